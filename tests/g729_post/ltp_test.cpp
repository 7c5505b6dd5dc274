// Long-term post filters on synthetic voiced residuals: the lag found (integer and 1/8
// resolution), the harmonic gain against a double model, the fall-backs to a plain copy, and
// the annex A and B entries with their residual buffers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "g729/post_tables.h"
#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::Rng;
using pmodel::Vec;

namespace {

constexpr int kHist = 152;
constexpr int kLen = kHist + 40;
constexpr double kPi = 3.14159265358979323846;

// len samples, exactly periodic with the integer period P: one band-limited period repeated,
// sample i at phase i - start.  amp is the peak magnitude.
Vec periodic(int P, double amp, uint32_t seed, int len = kLen, int start = kHist) {
    Rng r(seed);
    std::vector<double> one(P, 0.0);
    const int H = P / 4 > 12 ? 12 : P / 4;
    std::vector<double> ph(H + 1);
    for (auto& p : ph) p = r.real(0, 2 * kPi);
    double peak = 0;
    for (int n = 0; n < P; ++n) {
        for (int h = 1; h <= H; ++h) one[n] += std::cos(2 * kPi * h * n / P + ph[h]);
        peak = std::max(peak, std::fabs(one[n]));
    }
    Vec x(len);
    for (int i = 0; i < len; ++i)
        x[i] = static_cast<i16>(std::lround(one[((i - start) % P + P) % P] / peak * amp));
    return x;
}

// Band-limited signal with a fractional period P, sampled at n - kHist.
double analytic(double P, int n, const std::vector<double>& ph) {
    double v = 0;
    for (size_t h = 1; h < ph.size(); ++h) v += std::cos(2 * kPi * double(h) * n / P + ph[h]);
    return v;
}

struct Ltp {
    Vec out = Vec(40);
    i16 voice = -1;
    KvoStatus st = kvoOk;
};

Ltp runLtp(const Vec& x, int delay, i16 gamma = 16384) {
    Ltp r;
    r.st = kvosLongTermPostFilter_G729_16s(gamma, delay, x.data() + kHist, r.out.data(), &r.voice);
    return r;
}

bool isCopy(const Ltp& r, const Vec& x) {
    return std::memcmp(r.out.data(), x.data() + kHist, 40 * sizeof(i16)) == 0;
}

}  // namespace

// An exactly periodic residual keeps its integer lag, and with gamma 0.5 the harmonic filter
// weights (2/3, 1/3) give back the input itself, at every level of the 13-bit justification.
TEST(LongTermPostFilter, IntegerPeriodFoundAndInputKept) {
    for (int P : {18, 20, 37, 40, 64, 99, 142, 143}) {
        for (double amp : {60.0, 700.0, 3000.0, 20000.0, 32767.0}) {
            for (int d = -1; d <= 1; ++d) {
                const int delay = P + d;
                if (delay < 18 || delay > 143) continue;
                SCOPED_TRACE(testing::Message() << "P " << P << " amp " << amp << " delay " << delay);
                const Vec x = periodic(P, amp, P * 31u + unsigned(amp));
                const Ltp r = runLtp(x, delay);
                ASSERT_EQ(r.st, kvoOk);
                EXPECT_EQ(r.voice, P);
                EXPECT_TRUE(isCopy(r, x));
            }
        }
    }
}

// A fractional period is found to 1/8 sample: the delay reported is the integer above it, and
// the interpolated past matches the subframe closely enough to leave it nearly unchanged (an
// integer delay would miss by thousands).
TEST(LongTermPostFilter, FractionalPeriodFoundToAnEighth) {
    for (int base : {30, 57, 100}) {
        for (int j = 0; j < 8; ++j) {
            const double P = base + j / 8.0;
            SCOPED_TRACE(testing::Message() << "P " << P);
            Rng r(unsigned(base * 8 + j));
            std::vector<double> ph(int(P / 5) + 1);
            for (auto& p : ph) p = r.real(0, 2 * kPi);
            double peak = 0;
            for (int n = -kHist; n < 40; ++n) peak = std::max(peak, std::fabs(analytic(P, n, ph)));
            Vec x(kLen);
            for (int n = -kHist; n < 40; ++n)
                x[n + kHist] = static_cast<i16>(std::lround(analytic(P, n, ph) / peak * 12000));
            const Ltp o = runLtp(x, base);
            ASSERT_EQ(o.st, kvoOk);
            EXPECT_EQ(o.voice, static_cast<int>(std::ceil(P)));
            for (int n = 0; n < 40; ++n) EXPECT_NEAR(o.out[n], x[kHist + n], 16) << n;
        }
    }
}

// A broadband period (white values repeated) whose subframe is the past scaled by a: the lag
// is the integer period (by Cauchy-Schwarz no fraction can match better), num/den is a, and the
// output is g x + (1 - g) x(n - P) with g = 1 / (1 + gamma min(a, 1)) of the double model.
TEST(LongTermPostFilter, HarmonicGainFollowsTheModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int P = r.uni(19, 142);
        const double a = r.real(0.3, 1.3);
        const i16 gamma = seed % 4 == 0 ? 16384 : static_cast<i16>(r.uni(0, 16384));
        Vec per(P), x(kLen);
        for (auto& v : per) v = pmodel::sat16(std::lround(r.gauss() * 3000));
        for (int i = 0; i < kHist; ++i) x[i] = per[(i + 100 * P) % P];
        for (int i = kHist; i < kLen; ++i) x[i] = pmodel::sat16(std::lround(a * x[i - P]));
        const Ltp o = runLtp(x, P + r.uni(-1, 1), gamma);
        ASSERT_EQ(o.st, kvoOk);
        ASSERT_EQ(o.voice, P);
        double num = 0, den = 0;
        for (int n = 0; n < 40; ++n) {
            num += double(x[kHist + n]) * x[kHist + n - P];
            den += double(x[kHist + n - P]) * x[kHist + n - P];
        }
        const double ratio = std::min(num / den, 1.0);
        const double g = 1.0 / (1.0 + gamma / 32768.0 * ratio);
        for (int n = 0; n < 40; ++n) {
            const double want = g * x[kHist + n] + (1 - g) * x[kHist + n - P];
            EXPECT_NEAR(o.out[n], want, 1.5 + 0.002 * std::fabs(x[kHist + n] - x[kHist + n - P]))
                << n;
        }
    }
}

// Where no delay helps, the subframe is copied and the delay reported is 0: silence, white
// noise (prediction gain below 3 dB), and a residual that flips sign at the lag.
TEST(LongTermPostFilter, NoFilteringCopies) {
    Vec zero(kLen, 0);
    Ltp o = runLtp(zero, 60);
    EXPECT_EQ(o.voice, 0);
    EXPECT_TRUE(isCopy(o, zero));

    Vec quiet(kLen, 0);
    for (int i = 0; i < kHist; ++i) quiet[i] = static_cast<i16>(i * 37 % 200 - 100);
    o = runLtp(quiet, 60);  // silent subframe after a loud past
    EXPECT_EQ(o.voice, 0);
    EXPECT_TRUE(isCopy(o, quiet));

    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec x(kLen);
        for (auto& v : x) v = static_cast<i16>(std::lround(r.gauss() * 3000));
        o = runLtp(x, r.uni(18, 143));
        EXPECT_EQ(o.voice, 0);
        EXPECT_TRUE(isCopy(o, x));
    }

    const int P = 50;
    Vec flip(kLen);
    for (int i = 0; i < kLen; ++i) {
        const int n = i - kHist + 10 * P;
        const double v = 8000 * std::sin(kPi * (n % P) / P);
        flip[i] = static_cast<i16>(std::lround((n / P) % 2 ? -v : v));
    }
    o = runLtp(flip, P);
    EXPECT_EQ(o.voice, 0);
    EXPECT_TRUE(isCopy(o, flip));
}

// Full-scale periodic residuals, with -32768 in them, stay bit-exact through the filter.
TEST(LongTermPostFilter, FullScaleSquareWave) {
    for (int P : {24, 80, 143}) {
        SCOPED_TRACE(P);
        Vec x(kLen);
        for (int i = 0; i < kLen; ++i) x[i] = ((i - kHist + 1000 * P) % P) < P / 2 ? 32767 : -32768;
        const Ltp o = runLtp(x, P);
        EXPECT_EQ(o.voice, P);
        EXPECT_TRUE(isCopy(o, x));
    }
}

// ---- annex A ---------------------------------------------------------------------------

namespace {

constexpr int kResA = 154;

struct AnnexA {
    Vec res = Vec(kResA + 40 + 8, 0x1234);
    Vec out = Vec(40);
};

}  // namespace

// With the identity LP set the residual is the speech; an exactly periodic residual gives the
// double model's g0 x + gain x(n - L), gain = 0.5 rho / (1 + 0.5 rho) with rho at most 1, to
// within the two truncated products.  The lag window is clipped to 137..143 above 143.
TEST(LongTermPostFilterA, HarmonicFilterOnPeriodicResidual) {
    const Vec unit = {4096, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    struct Case {
        int P, delay;
        double noise;
    };
    const Case cases[] = {{20, 18, 0},   {40, 42, 0},  {40, 38, 300},   {77, 75, 800},
                          {140, 145, 0}, {140, 144, 0}, {139, 145, 500}, {100, 100, 2000}};
    uint32_t seed = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "P " << c.P << " delay " << c.delay);
        Rng r(++seed);
        // Speech buffer: 10 samples of filter history, then the subframe; the residual
        // history (kResA samples before the subframe) is the same periodic signal.
        Vec full = periodic(c.P, 8000, seed, kResA + 40, kResA);
        for (auto& v : full) v = static_cast<i16>(v + std::lround(r.gauss() * c.noise));
        AnnexA a;
        std::copy(full.begin(), full.begin() + kResA, a.res.begin());
        const Vec before = a.res;
        const i16* speech = full.data() + kResA;
        ASSERT_EQ(kvosLongTermPostFilter_G729A_16s(c.delay, speech, unit.data(), a.res.data(),
                                                   a.out.data()),
                  kvoOk);
        // The residual went to index 154 and nothing else in the buffer changed.
        for (int i = 0; i < int(a.res.size()); ++i) {
            const i16 want = (i >= kResA && i < kResA + 40) ? full[i] : before[i];
            ASSERT_EQ(a.res[i], want) << i;
        }
        // Model: best integer lag in the clipped window on the signal / 4, then the gain.
        int lo = c.delay - 3, hi = c.delay + 3;
        if (hi > 143) {
            hi = 143;
            lo = 137;
        }
        const i16* x = full.data() + kResA;
        int L = lo;
        double best = -1e300;
        for (int t = lo; t <= hi; ++t) {
            double s = 0;
            for (int n = 0; n < 40; ++n) s += double(x[n] >> 2) * (x[n - t] >> 2);
            if (s > best) best = s, L = t;
        }
        if (c.noise == 0) {
            EXPECT_EQ(L, c.P);
        }
        double ed = 0;
        for (int n = 0; n < 40; ++n) ed += double(x[n - L] >> 2) * (x[n - L] >> 2);
        const double rho = std::min(best / ed, 1.0);
        const double gain = 0.5 * rho / (1 + 0.5 * rho);
        for (int n = 0; n < 40; ++n)
            EXPECT_NEAR(a.out[n], (1 - gain) * x[n] + gain * x[n - L], 2.5 + 2e-4 * std::abs(x[n]))
                << n;
    }
}

// The residual of a real LP set is (sum a[k] s[n-k] + 2048) >> 12; white noise, with a
// prediction gain below 3 dB, is copied unchanged.
TEST(LongTermPostFilterA, ResidualAndUnvoicedCopy) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const Vec a = pmodel::stableLpc(r, 0.7);
        Vec speech(50);
        for (auto& v : speech) v = static_cast<i16>(std::lround(r.gauss() * 1500));
        AnnexA b;
        for (int i = 0; i < kResA; ++i) b.res[i] = static_cast<i16>(std::lround(r.gauss() * 1500));
        ASSERT_EQ(kvosLongTermPostFilter_G729A_16s(r.uni(18, 145), speech.data() + 10, a.data(),
                                                   b.res.data(), b.out.data()),
                  kvoOk);
        for (int n = 0; n < 40; ++n) {
            int64_t s = 2048;
            for (int k = 0; k <= 10; ++k) s += int64_t{a[k]} * speech[10 + n - k];
            ASSERT_EQ(b.res[kResA + n], pmodel::sat16(s >> 12)) << n;
        }
        EXPECT_EQ(0, std::memcmp(b.out.data(), b.res.data() + kResA, 80));
    }
}

// ---- annex B ---------------------------------------------------------------------------

// The weighting factors are the powers of 0.55 (and 0.7 for the short-term filter).
TEST(LongTermPostFilterB, WeightingFactorsArePowers) {
    for (int i = 0; i <= 10; ++i) {
        EXPECT_NEAR(kvo::tab::facGamma2_pst[i], 32768 * std::pow(0.55, i), 2.0) << i;
        EXPECT_NEAR(kvo::tab::facGamma1_pst[i], 32768 * std::pow(0.70, i), 2.0) << i;
    }
}

// Annex B writes the A(z/0.55) residual, then filters active frames exactly as the main filter
// at gamma 0.5 and copies the others; pVoice tells whether a delay was used.
TEST(LongTermPostFilterB, FrameTypesAndResidual) {
    for (uint32_t seed = 1; seed <= 18; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const Vec a = pmodel::stableLpc(r, 0.8);
        const int P = r.uni(20, 140);
        const i16 frameType = static_cast<i16>(seed % 3);
        // Voiced or noise speech.
        Vec full = periodic(P, 6000, seed, kResA + 40, kResA);
        if (seed % 2 == 0)
            for (auto& v : full) v = static_cast<i16>(std::lround(r.gauss() * 2000));
        Vec res(kResA + 40 + 4, 0);
        for (int i = 0; i < kResA; ++i) res[i] = full[i];  // past residual ~ past speech
        Vec out(40);
        i16 voice = -7;
        const int delay = frameType == 1 ? (P > 143 ? 143 : P) : r.uni(0, 143);
        ASSERT_EQ(kvosLongTermPostFilter_G729B_16s(delay, full.data() + kResA, a.data(),
                                                   res.data(), out.data(), &voice, frameType),
                  kvoOk);
        // Residual with the weighted coefficients.
        i16 a2[11];
        for (int k = 0; k <= 10; ++k)
            a2[k] = pmodel::sat16((int64_t{a[k]} * kvo::tab::facGamma2_pst[k] + 16384) >> 15);
        for (int n = 0; n < 40; ++n) {
            int64_t s = 2048;
            for (int k = 0; k <= 10; ++k) s += int64_t{a2[k]} * full[kResA + n - k];
            ASSERT_EQ(res[kResA + n], pmodel::sat16(s >> 12)) << n;
        }
        if (frameType != 1) {
            EXPECT_EQ(voice, 0);
            EXPECT_EQ(0, std::memcmp(out.data(), res.data() + kResA, 80));
        } else {
            Vec main(40);
            i16 used = -1;
            ASSERT_EQ(kvosLongTermPostFilter_G729_16s(16384, delay, res.data() + kResA,
                                                      main.data(), &used),
                      kvoOk);
            EXPECT_EQ(out, main);
            EXPECT_EQ(voice, used != 0 ? 1 : 0);
        }
    }
}
