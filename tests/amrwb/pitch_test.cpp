// AMR-WB pitch steps: the interpolator against a delayed sinusoid, the lag index code, the
// search against the decoder, the open loop on a pulse train with a double correlation model,
// lag concealment on worked histories, the adaptive gain against a double model.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "support/signals.h"

namespace {


constexpr int kHist = 231 + 6 * 17 + 16 + 1;  // excitation history the decoders may read

KvoAdaptiveDecodeState_AMRWB freshState() {
    KvoAdaptiveDecodeState_AMRWB st;
    kvosAdaptiveCodebookDecodeInit_AMRWB_16s(&st);
    return st;
}

// Absolute index of lag + frac / 4 in the 9-bit code (modes 13 .. 21): quarter resolution below
// 128.
Kvo32u quarterIndex(int lag, int frac) {
    return static_cast<Kvo32u>(4 * (lag - 34) + frac);
}

TEST(AmrwbPitch, InterpolatorDelaysASlowSinusoidByLagPlusFraction) {
    const double w = 2 * M_PI * 230.0 / 12800.0;
    for (int lag : {81, 99, 120}) {
        for (int frac = 0; frac < 4; ++frac) {
            std::vector<Kvo16s> buf(kHist + 65, 0);
            for (int n = 0; n < kHist; ++n)
                buf[n] = static_cast<Kvo16s>(std::lround(9000 * std::sin(w * (n - kHist))));
            Kvo32s bounds[2] = {0, 0}, outLag = 0, outFrac = 0;
            KvoAdaptiveDecodeState_AMRWB st = freshState();
            kvosAdaptiveCodebookDecode_AMRWB_16s(quarterIndex(lag, frac), &outFrac,
                                                 buf.data() + kHist, &outLag, bounds, 0, 0, 0, 13,
                                                 &st);
            for (int j = 0; j < 65; ++j) {
                const double want = 9000 * std::sin(w * (j - lag - frac / 4.0));
                ASSERT_NEAR(buf[kHist + j], want, 40) << "lag " << lag << " frac " << frac;
            }
        }
    }
}

// Every absolute index decodes to a distinct lag in quarters, with quarter, half and whole-sample
// steps in their ranges (delta indices are covered by the search test's subframes 1 and 3).
TEST(AmrwbPitch, LagIndexCodeCoversTheRangeAtItsResolutions) {
    struct Case {
        KvoSpeechRate mode;
        int count, half, integer;
    };
    const Case cases[] = {
        {5, 256, 34, 92}, {9, 256, 34, 92}, {13, 512, 128, 160}, {21, 512, 128, 160}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "mode " << c.mode);
        int prev = -1;
        for (int q = 0; q < c.count; ++q) {
            std::vector<Kvo16s> buf(kHist + 65, 1);
            Kvo32s b[2] = {0, 0}, lag = 0, f = 0;
            KvoAdaptiveDecodeState_AMRWB st = freshState();
            ASSERT_EQ(kvosAdaptiveCodebookDecode_AMRWB_16s(q, &f, buf.data() + kHist, &lag, b, 0, 0,
                                                           0, c.mode, &st),
                      kvoOk);
            const int quarters = 4 * lag + f;
            if (q == 0 || q == c.count - 1) {
                EXPECT_EQ(quarters, q == 0 ? 4 * 34 : 4 * 231);
            }
            if (prev >= 0) {
                ASSERT_EQ(quarters - prev, prev < 4 * c.half ? 1 : (prev < 4 * c.integer ? 2 : 4));
            }
            prev = quarters;
            // The bounds follow the lag: 16 lags around it inside 34 .. 231.
            ASSERT_EQ(b[1] - b[0], 15);
            ASSERT_GE(b[0], 34);
            ASSERT_LE(b[1], 231);
            ASSERT_TRUE(lag >= b[0] && lag <= b[1]);
        }
    }
}

std::vector<Kvo16s> convolveQ12(const std::vector<Kvo16s>& v, const std::vector<Kvo16s>& h) {
    std::vector<Kvo16s> y(64);
    for (int n = 0; n < 64; ++n) {
        int64_t s = 0;
        for (int k = 0; k <= n; ++k) s += int64_t{v[k]} * h[n - k];
        y[n] = static_cast<Kvo16s>(std::max<int64_t>(-32768, std::min<int64_t>(32767, s >> 12)));
    }
    return y;
}

// The search on a periodic excitation whose target is the filtered adaptive vector of the true
// lag finds that lag, and the decoder fed with its index rebuilds lag, fraction, bounds and the
// written vector, subframe after subframe, for the AMR-WB index layouts and an AMR-WB+ one.
TEST(AmrwbPitch, SearchFindsThePeriodAndTheDecoderFollowsItsIndex) {
    struct Case {
        KvoSpeechRate mode;
        int adj;
        int period;
    };
    const Case cases[] = {{5, 0, 57},   {9, 0, 57},  {13, 0, 57},  {20, 0, 150},
                          {16, 0, 140}, {28, 5, 57}, {30, -9, 140}};
    std::vector<Kvo16s> h(64, 0);
    for (int i = 0; i < 64; ++i)
        h[i] = static_cast<Kvo16s>(4096 * std::pow(0.7, i) * (i % 3 == 2 ? -0.5 : 1));
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "mode " << c.mode << " adj " << c.adj);
        const int total = kHist + 256 + 1;
        std::vector<Kvo16s> enc(total), dec;
        const std::vector<Kvo16s> s = kvosc::test::speech_like(c.period, 17, 6000, 12800);
        for (int n = 0; n < total; ++n) enc[n] = s[n % c.period];
        dec = enc;
        Kvo32s ebounds[2] = {0, 0}, dbounds[2] = {0, 0};
        const Kvo32s ol[2] = {c.period + 3, c.period - 2};
        KvoAdaptiveDecodeState_AMRWB st = freshState();
        for (Kvo32u sub = 0; sub < 4; ++sub) {
            SCOPED_TRACE(::testing::Message() << "subframe " << sub);
            Kvo16s* e = enc.data() + kHist + 64 * sub;
            // Target: the filtered signal one period back (integer lag, fraction 0).
            std::vector<Kvo16s> v(e - c.period, e - c.period + 64);
            const std::vector<Kvo16s> x = convolveQ12(v, h);
            Kvo32s lag = 0, frac = 0, index = 0;
            KvoStatus st1 =
                c.adj == 0 && c.mode < 26
                    ? kvosAdaptiveCodebookSearch_AMRWB_16s(x.data(), h.data(), ol, &lag, ebounds, e,
                                                           &frac, &index, sub, c.mode)
                    : kvosAdaptiveCodebookSearch_AMRWBE_16s(x.data(), h.data(), ol, &lag, ebounds,
                                                            e, &frac, &index, sub, c.mode,
                                                            static_cast<Kvo16s>(c.adj));
            ASSERT_EQ(st1, kvoOk);
            EXPECT_LE(std::abs(4 * (lag - c.period) + frac), 1) << lag << " " << frac;
            Kvo32s dlag = 0, dfrac = 0;
            Kvo16s* d = dec.data() + kHist + 64 * sub;
            if (c.mode < 26) {
                ASSERT_EQ(kvosAdaptiveCodebookDecode_AMRWB_16s(index, &dfrac, d, &dlag, dbounds,
                                                               sub, 0, 0, c.mode, &st),
                          kvoOk);
                kvosAdaptiveCodebookDecodeUpdate_AMRWB_16s(8000, dlag, &st);
            } else {
                ASSERT_EQ(kvosAdaptiveCodebookDecode_AMRWBE_16s(index, d, &dlag, &dfrac, dbounds,
                                                                static_cast<Kvo32s>(sub), 0,
                                                                static_cast<Kvo16s>(c.adj)),
                          kvoOk);
            }
            EXPECT_EQ(dlag, lag);
            EXPECT_EQ(dfrac, frac);
            EXPECT_EQ(dbounds[0], ebounds[0]);
            EXPECT_EQ(dbounds[1], ebounds[1]);
            ASSERT_EQ(std::memcmp(d, e, 65 * sizeof(Kvo16s)), 0);
        }
    }
}

// Shaped pulses every `period` samples, history included.
std::vector<Kvo16s> pulseTrain(int period, int len, uint32_t seed) {
    std::mt19937 g(seed);
    std::vector<Kvo16s> x(115 + len);
    std::normal_distribution<double> nz(0, 150);
    for (int n = 0; n < 115 + len; ++n) {
        const int k = (n + 7) % period;
        const double v = k < 6 ? 9000 * std::pow(-0.6, k) : 0;
        x[n] = static_cast<Kvo16s>(std::lround(v + nz(g)));
    }
    return x;
}

double normCorrModel(const Kvo16s* x, int len, int lag) {
    double r0 = 0, r1 = 0, r2 = 0;
    for (int n = 0; n < len; ++n) {
        r0 += double(x[n]) * x[n - lag];
        r1 += double(x[n - lag]) * x[n - lag];
        r2 += double(x[n]) * x[n];
    }
    return r0 / std::sqrt(r1 * r2);
}

TEST(AmrwbPitch, OpenLoopFindsThePulseTrainPeriod) {
    for (int period : {23, 57, 113}) {
        SCOPED_TRACE(::testing::Message() << "period " << period);
        const int len = 128;
        const std::vector<Kvo16s> x = pulseTrain(period, len, period);
        Kvo16s median = 0, wgain = 0, tone = 0x0002, corr = 0, flag = 0;
        Kvo16s hist[5] = {60, 60, 60, 60, 60};
        Kvo32s lag = 0;
        ASSERT_EQ(kvosOpenLoopPitchSearch_AMRWB_16s(x.data() + 115, x.data() + 115, &median, &wgain,
                                                    &lag, &tone, &corr, hist, &flag, len),
                  kvoOk);
        EXPECT_EQ(lag, 2 * period);
        EXPECT_NEAR(corr / 32768.0, normCorrModel(x.data() + 115, len, period), 0.002);
        EXPECT_GT(corr, 21299);
        EXPECT_EQ(hist[0], period);
        EXPECT_EQ(hist[1], 60);
        EXPECT_EQ(median, 60);  // median of {period, 60, 60, 60, 60}
        EXPECT_EQ(wgain, 32767);
        EXPECT_EQ(flag, 1);
        EXPECT_EQ(tone, 0x4001);
    }
}

void fillHistory(KvoAdaptiveDecodeState_AMRWB* st, const int (&lags)[5], const int (&gains)[5]) {
    *st = freshState();
    for (int i = 0; i < 5; ++i) kvosAdaptiveCodebookDecodeUpdate_AMRWB_16s(gains[i], lags[i], st);
}

TEST(AmrwbPitch, LagConcealmentOnWorkedHistories) {
    std::vector<Kvo16s> buf(kHist + 65, 100);
    Kvo16s* e = buf.data() + kHist;
    Kvo32s b[2] = {90, 105}, lag = 0, f = 0;
    KvoAdaptiveDecodeState_AMRWB st;
    // Stable strong history: an unusable frame repeats the last good lag, seed untouched.
    fillHistory(&st, {60, 61, 62, 63, 64}, {9000, 9000, 9000, 9000, 9000});
    EXPECT_EQ(st.lagHistory[0], 64);
    EXPECT_EQ(st.gainHistory[4], 9000);
    kvosAdaptiveCodebookDecode_AMRWB_16s(quarterIndex(50, 2), &f, e, &lag, b, 0, 1, 1, 13, &st);
    EXPECT_EQ(lag, 64);
    EXPECT_EQ(f, 0);
    EXPECT_EQ(st.seed, 21845);
    // Weak, spread history: the sorted mix with the random term.
    fillHistory(&st, {120, 100, 80, 60, 40}, {1000, 1000, 1000, 1000, 1000});
    kvosAdaptiveCodebookDecode_AMRWB_16s(0, &f, e, &lag, b, 1, 1, 1, 13, &st);
    const int64_t seed = static_cast<int16_t>(static_cast<uint16_t>(21845 * 31821 + 13849));
    EXPECT_EQ(st.seed, seed);
    const int want =
        static_cast<int>(((80 + 100 + 120) * 10923) >> 15) + static_cast<int>((seed * 20) >> 15);
    EXPECT_EQ(lag, std::min(120, std::max(40, want)));
    // Bad frame with a usable lag close to a stable history: the decoded lag stands.
    fillHistory(&st, {70, 71, 72, 73, 74}, {2000, 2000, 2000, 2000, 2000});
    kvosAdaptiveCodebookDecode_AMRWB_16s(quarterIndex(72, 3), &f, e, &lag, b, 0, 1, 0, 13, &st);
    EXPECT_EQ(lag, 72);
    EXPECT_EQ(f, 0);
    // ... and one far outside it is replaced by the newest lag of a strong history.
    fillHistory(&st, {70, 71, 72, 73, 74}, {9000, 9000, 9000, 9000, 9000});
    kvosAdaptiveCodebookDecode_AMRWB_16s(quarterIndex(120, 0), &f, e, &lag, b, 0, 1, 0, 13, &st);
    EXPECT_EQ(lag, 74);
    // AMR-WB+ bad frame: the fraction steps by one, wrapping into the lag.
    Kvo32s wl = 80, wf = 3;
    kvosAdaptiveCodebookDecode_AMRWBE_16s(5, e, &wl, &wf, b, 1, 1, 0);
    EXPECT_EQ(wl, 81);
    EXPECT_EQ(wf, 0);
    wl = 231;
    wf = 0;
    kvosAdaptiveCodebookDecode_AMRWBE_16s(5, e, &wl, &wf, b, 1, 1, 0);
    EXPECT_EQ(wl, 226);
    EXPECT_EQ(wf, 1);
}

TEST(AmrwbPitch, AdaptiveGainAgainstDoubleModel) {
    std::mt19937 g(5);
    for (int trial = 0; trial < 40; ++trial) {
        SCOPED_TRACE(::testing::Message() << "trial " << trial);
        const std::vector<Kvo16s> y = kvosc::test::speech_like(64, trial + 1, 8000, 12800);
        std::normal_distribution<double> nz(0, 500);
        const double g0 = (trial % 7) * 0.25 - 0.3;
        std::vector<Kvo16s> x(64);
        for (int n = 0; n < 64; ++n)
            x[n] = static_cast<Kvo16s>(
                std::lround(std::max(-32768.0, std::min(32767.0, g0 * y[n] + nz(g)))));
        Kvo16s coeffs[4], gain = -1;
        ASSERT_EQ(kvosAdaptiveCodebookGainCoeff_AMRWB_16s(x.data(), y.data(), coeffs, &gain, 64),
                  kvoOk);
        double xy = 0, yy = 0;
        for (int n = 0; n < 64; ++n) xy += double(x[n]) * y[n], yy += double(y[n]) * y[n];
        const double want = std::max(0.0, std::min(1.2, xy / yy));
        EXPECT_NEAR(gain / 16384.0, want, 3.0 / 16384);
        EXPECT_NEAR(coeffs[0] * std::ldexp(1.0, coeffs[1] - 14), 2 * yy + 1, (2 * yy + 1) / 8192);
        EXPECT_NEAR(coeffs[2] * std::ldexp(1.0, coeffs[3] - 14), 2 * xy + 1,
                    std::fabs(2 * xy + 1) / 8192 + std::ldexp(1.0, coeffs[3] - 14));
    }
}

TEST(AmrwbPitch, ArgumentChecks) {
    std::vector<Kvo16s> wsp(115 + 64, 100), hist(5, 60);
    Kvo16s med = 60, wg = 20000, tone = 0, corr = -5, flag = 1;
    Kvo32s olLag = -5;
    auto openLoop = [&](Kvo16s* pFlag, Kvo32s len) {
        return kvosOpenLoopPitchSearch_AMRWB_16s(wsp.data() + 115, wsp.data() + 115, &med, &wg,
                                                 &olLag, &tone, &corr, hist.data(), pFlag, len);
    };
    EXPECT_EQ(openLoop(nullptr, 0), kvoErrNullPtr);
    for (Kvo32s len : {0, -3}) EXPECT_EQ(openLoop(&flag, len), kvoErrBadArg);
    EXPECT_EQ(olLag + corr, -10);
    EXPECT_EQ(wg, 20000);
    std::vector<Kvo16s> h(64, 0), x(64, 100), exc(400, 100);
    h[0] = 4096;
    Kvo16s* e = exc.data() + 340;
    Kvo32s ol[2] = {80, 90}, b[2] = {72, 87}, lag = -5, frac = -5, idx = -5;
    auto search = [&](Kvo32s* l, Kvo32u sub, KvoSpeechRate mode, int adj) {
        return adj == 99 ? kvosAdaptiveCodebookSearch_AMRWB_16s(x.data(), h.data(), ol, l, b, e,
                                                                &frac, &idx, sub, mode)
                         : kvosAdaptiveCodebookSearch_AMRWBE_16s(x.data(), h.data(), ol, l, b, e,
                                                                 &frac, &idx, sub, mode,
                                                                 static_cast<Kvo16s>(adj));
    };
    for (int adj : {99, 0}) {
        EXPECT_EQ(search(nullptr, 4, 12, 18), kvoErrNullPtr);
        EXPECT_EQ(search(&lag, 4, 12, 18), kvoErrSize);
        EXPECT_EQ(search(&lag, 1, 22, 18), kvoErrRange);
        EXPECT_EQ(search(&lag, 1, 12, adj == 99 ? 99 : -18), kvoErrRange);
    }
    EXPECT_EQ(search(&lag, 1, 13, -18), kvoErrRange);
    EXPECT_EQ(lag + frac + idx, -15) << "nothing written on a refused call";
    KvoAdaptiveDecodeState_AMRWB st = freshState();
    for (KvoSpeechRate mode : {0, 26})
        EXPECT_EQ(kvosAdaptiveCodebookDecode_AMRWB_16s(17, &frac, e, &lag, b, 1, 0, 0, mode, &st),
                  kvoErrRange);
    EXPECT_EQ(kvosAdaptiveCodebookDecode_AMRWB_16s(17, &frac, e, &lag, b, 4, 0, 0, 26, &st),
              kvoErrSize);
    EXPECT_EQ(kvosAdaptiveCodebookDecode_AMRWB_16s(17, &frac, e, &lag, b, -1, 0, 0, 9, nullptr),
              kvoErrNullPtr);
    EXPECT_EQ(kvosAdaptiveCodebookDecode_AMRWBE_16s(17, e, &lag, &frac, b, 4, 0, 18), kvoErrSize);
    EXPECT_EQ(kvosAdaptiveCodebookDecode_AMRWBE_16s(17, e, &lag, &frac, b, 1, 0, 18), kvoErrRange);
    EXPECT_EQ(kvosAdaptiveCodebookDecode_AMRWBE_16s(17, e, &lag, nullptr, b, 4, 0, 18),
              kvoErrNullPtr);
    EXPECT_EQ(lag + frac, -10);
    Kvo16s co[4], g = -5;
    EXPECT_EQ(kvosAdaptiveCodebookGainCoeff_AMRWB_16s(x.data(), h.data(), co, &g, 0), kvoErrBadArg);
    EXPECT_EQ(kvosAdaptiveCodebookGainCoeff_AMRWB_16s(x.data(), h.data(), nullptr, &g, 0),
              kvoErrNullPtr);
    EXPECT_EQ(g, -5);
    Kvo32s size = 0;
    EXPECT_EQ(kvosAdaptiveCodebookDecodeGetSize_AMRWB_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosAdaptiveCodebookDecodeGetSize_AMRWB_16s(&size), kvoOk);
    EXPECT_EQ(size, 24);
    EXPECT_EQ(kvosAdaptiveCodebookDecodeInit_AMRWB_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosAdaptiveCodebookDecodeUpdate_AMRWB_16s(1, 2, nullptr), kvoErrNullPtr);
}

}  // namespace
