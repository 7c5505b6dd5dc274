// GSM AMR algebraic codebook: the search's index words decoded in every mode, the filtered
// code and sharpening against 64-bit models, recovery of known code vectors, the 2-pulse
// search against an exhaustive one, worked index words and argument checks.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

constexpr int L = 40;
using Vec = std::array<Kvo16s, L>;
const int kModes[] = {0, 1, 3, 6, 7, 8, 11, 12, 25};

struct Out {
    Vec h{}, code{}, flt{};
    Kvo16s idx[10] = {};
};

Out search(int mode, int sf, int lag, int gain, const Vec& x, const Vec& res, const Vec& h) {
    Out o;
    o.h = h;
    EXPECT_EQ(kvosAlgebraicCodebookSearch_GSMAMR_16s(
                  static_cast<Kvo16s>(lag), static_cast<Kvo16s>(gain), x.data(), res.data(),
                  o.h.data(), o.code.data(), o.flt.data(), o.idx, static_cast<Kvo16s>(sf), mode),
              kvoOk);
    return o;
}

Vec decode(int mode, int sf, const Kvo16s* idx) {
    Vec c{};
    EXPECT_EQ(kvosFixedCodebookDecode_GSMAMR_16s(idx, c.data(), static_cast<Kvo16s>(sf), mode),
              kvoOk);
    return c;
}

// Decaying impulse response of a weighted synthesis filter, Q12.
Vec impulse(std::mt19937& g) {
    std::uniform_real_distribution<double> u(-1, 1);
    Vec h{};
    const double r = 0.75 + 0.2 * (u(g) + 1) / 2;
    double a = 4096;
    for (int i = 0; i < L; ++i, a *= r) h[i] = static_cast<Kvo16s>(std::lround(a * (i ? u(g) : 1)));
    return h;
}

// 64-bit model of the sharpening: x[n] += sat(2 gain) x[n - lag] >> 15, in order, saturating.
Vec sharpen(Vec v, int lag, int gain) {
    const int64_t s = std::clamp<int64_t>(2 * gain, -32768, 32767);
    for (int n = lag; n < L; ++n)
        v[n] = static_cast<Kvo16s>(
            std::clamp<int64_t>(v[n] + ((s * v[n - lag]) >> 15), -32768, 32767));
    return v;
}

// Filtered code vector model from the decoded code vector: each pulse contributes
// (2 s h + 32768) >> 16 summed exactly, s = +32767 / -32768 (4096 steps of 8192 in 12.2).
Vec filteredModel(int mode, const Vec& code, const Vec& h) {
    const bool m122 = mode == 12 || mode == 25;
    int64_t acc[L] = {};
    for (int p = 0; p < L; ++p) {
        if (code[p] == 0) continue;
        int64_t s;
        if (m122)
            s = 2 * int64_t{code[p]};
        else {
            const int count = mode == 11 ? std::abs(code[p]) / 8191 : 1;
            s = count * (code[p] > 0 ? 32767 : -32768);
        }
        for (int i = p; i < L; ++i) acc[i] += s * h[i - p];
    }
    Vec y{};
    for (int i = 0; i < L; ++i)
        y[i] = static_cast<Kvo16s>(std::clamp<int64_t>((2 * acc[i] + 32768) >> 16, -32768, 32767));
    return y;
}

// Filtering in double precision (h Q12).
std::array<double, L> filt(const Vec& c, const Vec& h) {
    std::array<double, L> y{};
    for (int p = 0; p < L; ++p)
        if (c[p])
            for (int i = p; i < L; ++i) y[i] += c[p] * double(h[i - p]) / 4096;
    return y;
}
// Signs of the backward-filtered target d = H'x.
std::array<int, L> corrSigns(const Vec& x, const Vec& h) {
    std::array<int, L> sg{};
    for (int i = 0; i < L; ++i) {
        double d = 0;
        for (int j = i; j < L; ++j) d += x[j] * double(h[j - i]);
        sg[i] = d >= 0 ? 1 : -1;
    }
    return sg;
}
// Criterion (x . Hc)^2 / |Hc|^2 of a code vector.
double criterion(const Vec& x, const Vec& c, const Vec& h) {
    const auto y = filt(c, h);
    double num = 0, den = 1e-9;
    for (int i = 0; i < L; ++i) {
        num += x[i] * y[i];
        den += y[i] * y[i];
    }
    return num * num / den;
}

Vec randomVec(std::mt19937& g, int amp) {
    std::uniform_int_distribution<int> u(-amp, amp);
    Vec v{};
    for (auto& e : v) e = static_cast<Kvo16s>(u(g));
    return v;
}

TEST(GsmAmrCodebook, SearchIndicesDecodeToTheCodeVectorInEveryMode) {
    std::mt19937 g(9);
    for (int mode : kModes) {
        for (int r = 0; r < 120; ++r) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " trial " << r);
            const int sf = r % 4;
            const int lag = r % 3 == 0 ? 20 + r % 20 : 40 + r % 100;
            const int gain = (r * 977) % 20000;  // above 16383 the doubled gain saturates
            // Every 7th trial a full-scale response (energy beyond 2^30: the halved matrix).
            const bool loud = r % 7 == 3;
            const Vec h = loud ? randomVec(g, 32767) : impulse(g);
            const Vec x = randomVec(g, r % 5 == 0 ? 30000 : 3000);
            const Vec res = randomVec(g, 4000);
            const Out o = search(mode, sf, lag, gain, x, res, h);
            if (r % 10 == 0) {  // the scratch-buffer form gives the same result
                Out e;
                e.h = h;
                Kvo8u buf[64];
                ASSERT_EQ(kvosAlgebraicCodebookSearchEX_GSMAMR_16s(
                              static_cast<Kvo16s>(lag), static_cast<Kvo16s>(gain), x.data(),
                              res.data(), e.h.data(), e.code.data(), e.flt.data(), e.idx,
                              static_cast<Kvo16s>(sf), mode, buf),
                          kvoOk);
                EXPECT_EQ(e.code, o.code);
                EXPECT_EQ(e.flt, o.flt);
                EXPECT_TRUE(std::equal(e.idx, e.idx + 10, o.idx));
            }
            const Vec hs = lag < L ? sharpen(h, lag, gain) : h;
            EXPECT_EQ(o.h, hs);
            const Vec c = decode(mode, sf, o.idx);
            EXPECT_EQ(o.code, lag < L ? sharpen(c, lag, gain) : c);
            if (!loud) {
                EXPECT_EQ(o.flt, filteredModel(mode, c, hs));
            }
            // Pulse count of the mode (in 2 to 4-pulse modes a pulse may replace another).
            int pulses = 0;
            for (Kvo16s v : c)
                pulses += (std::abs(v) + 1) / (mode == 12 || mode == 25 ? 4096 : 8191);
            const int want = mode <= 3 ? 2 : mode == 6 ? 3 : mode <= 8 ? 4 : mode == 11 ? 8 : 10;
            EXPECT_TRUE(mode <= 8 ? pulses <= want : pulses == want) << pulses;
        }
    }
}

// Targets made by a known code vector of the mode: the search gives it back.
TEST(GsmAmrCodebook, RecoversTheCodeVectorThatMadeTheTarget) {
    std::mt19937 g(77);
    std::uniform_int_distribution<int> word(0, 32767);
    for (int mode : kModes) {
        int hits = 0, trials = 0;
        for (int r = 0; r < 60; ++r) {
            const int sf = r % 4;
            Kvo16s idx[10];
            for (auto& w : idx) w = static_cast<Kvo16s>(word(g) & 0x7ff);
            if (mode == 11) {
                for (int t = 0; t < 4; ++t) idx[t] = idx[t] & 1;
                idx[4] &= 0x3ff;
                idx[5] &= 0x3ff;
                idx[6] &= 0x7f;
                if ((idx[4] >> 3) > 124 || (idx[5] >> 3) > 124) continue;
            }
            if (mode == 12 || mode == 25)
                for (auto& w : idx) w &= 15;
            ++trials;
            const Vec c = decode(mode, sf, idx);
            // Short, well-conditioned response so the target determines the pulses.
            Vec h{};
            h[0] = 4096;
            h[1] = 1500;
            h[2] = -600;
            h[3] = 200;
            const auto y = filt(c, h);
            Vec x{}, res{};
            for (int i = 0; i < L; ++i) {
                x[i] = static_cast<Kvo16s>(std::lround(y[i] / 4));
                res[i] = static_cast<Kvo16s>(c[i] / 4);
            }
            const Out o = search(mode, sf, 60, 0, x, res, h);
            hits += o.code == c;
        }
        EXPECT_GE(hits * 10, trials * 9) << "mode " << mode;
    }
}

// Exhaustive double-precision search over every pair the 2-pulse modes may place.
TEST(GsmAmrCodebook, TwoPulseSearchesMatchExhaustiveSearch) {
    std::mt19937 g(1234);
    const Kvo16s startPos[16] = {0, 2, 0, 3, 0, 2, 0, 3, 1, 3, 2, 4, 1, 4, 1, 4};
    for (int mode : {0, 3}) {
        double worst = 1;
        for (int r = 0; r < 100; ++r) {
            const int sf = r % 4;
            const Vec h = impulse(g), x = randomVec(g, 8000), res{};
            const Out o = search(mode, sf, 60, 0, x, res, h);
            std::vector<std::pair<int, int>> tracks;
            if (mode == 0)
                for (int gg = 0; gg < 2; ++gg)
                    tracks.push_back({startPos[gg * 8 + sf * 2], startPos[gg * 8 + sf * 2 + 1]});
            else
                for (int a : {1, 3})
                    for (int b : {0, 1, 2, 4}) tracks.push_back({a, b});
            const auto sg = corrSigns(x, h);
            double best = 0;
            for (auto [ta, tb] : tracks)
                for (int p = ta; p < L; p += 5)
                    for (int q = tb; q < L; q += 5) {
                        Vec c{};
                        c[p] = static_cast<Kvo16s>(sg[p] * 8191);
                        c[q] = static_cast<Kvo16s>(sg[q] * 8191);
                        best = std::max(best, criterion(x, c, h));
                    }
            worst = std::min(worst, criterion(x, o.code, h) / best);
        }
        EXPECT_GT(worst, 0.97) << "mode " << mode;
    }
}

// Worked index words.
TEST(GsmAmrCodebook, DecodesWorkedIndexWords) {
    struct Case {
        int mode, sf;
        std::vector<Kvo16s> idx;
        std::vector<std::pair<int, int>> pulses;  // position, amplitude
    };
    const Case cases[] = {
        // 4.75 subframe 1, group 1 (bit 6): tracks 2 and 4; first at 3*5+2, second 1*5+4.
        {0, 1, {64 + 3 + (1 << 3), 1}, {{17, 8191}, {9, -8192}}},
        // 5.90: first pulse track 3 index 2 ((2<<1)|1), second track 4 index 5 ((5<<6)|48).
        {3, 0, {((2 << 1) | 1) + ((5 << 6) | 48), 2}, {{13, -8192}, {29, 8191}}},
        // 6.70: track 0 index 7, track 3 index 1, track 4 index 6.
        {6, 0, {7 + ((1 << 4) | 8) + ((6 << 8) | 128), 5}, {{35, 8191}, {8, -8192}, {34, 8191}}},
        // 7.40: Gray words 2 -> 3, 4 -> 5, 0 -> 0, 7 -> 7 with track 4 (0x200).
        {7,
         0,
         {2 + (4 << 3) + (0 << 6) + (7 << 10) + 0x200, 0xF},
         {{15, 8191}, {26, 8191}, {2, 8191}, {39, 8191}}},
        // 12.2: track 0 words 3 (Gray of 2) and 4 (Gray of 5): +4096 at 10, then 25 (above, same
        // sign).
        {12,
         0,
         {3, 0, 0, 0, 0, 4, 0, 0, 0, 0},
         {{10, 4096}, {25, 4096}, {1, 8192}, {2, 8192}, {3, 8192}, {4, 8192}}},
        // 12.2: negative first pulse at index 5, second at index 2 (below: opposite sign).
        {12,
         0,
         {8 | 6, 0, 0, 0, 0, 3, 0, 0, 0, 0},
         {{20, -4096}, {10, 4096}, {1, 8192}, {2, 8192}, {3, 8192}, {4, 8192}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << " word " << c.idx[0]);
        Vec want{};
        for (auto [p, a] : c.pulses) want[p] = static_cast<Kvo16s>(a);
        EXPECT_EQ(decode(c.mode, c.sf, c.idx.data()), want);
    }
}

TEST(GsmAmrCodebook, ArgumentChecks) {
    using kvosc::test::BadArgs;
    {
        BadArgs t("kvosAlgebraicCodebookSearch_GSMAMR_16s");
        auto x = t.in<Kvo16s>("pTarget", 40);
        auto r = t.in<Kvo16s>("pLtpResidual", 40);
        auto h = t.inout<Kvo16s>("pImpulse", 40);
        auto c = t.out<Kvo16s>("pCode", 40);
        auto y = t.out<Kvo16s>("pFilteredCode", 40);
        auto i = t.out<Kvo16s>("pIndices", 10);
        auto lag = t.value<Kvo16s>("pitchLag", 30, {{16, kvoErrRange}, {145, kvoErrRange}});
        auto sf = t.value<Kvo16s>("subframe", 3, {{-1, kvoErrRange}, {4, kvoErrRange}});
        auto m = t.value<KvoSpeechRate>("mode", 12,
                                        {{2, kvoErrRange}, {26, kvoErrRange}, {-1, kvoErrRange}});
        t.run([&](const BadArgs::Call& a) {
            return kvosAlgebraicCodebookSearch_GSMAMR_16s(a(lag), 8000, a(x), a(r), a(h), a(c),
                                                          a(y), a(i), a(sf), a(m));
        });
    }
    Vec v{}, h{};
    Kvo16s idx[10];
    Kvo8u buf[64];
    EXPECT_EQ(kvosAlgebraicCodebookSearchEX_GSMAMR_16s(50, 8000, v.data(), v.data(), h.data(),
                                                       v.data(), v.data(), idx, 1, 4, nullptr),
              kvoErrNullPtr);
    EXPECT_EQ(kvosAlgebraicCodebookSearchEX_GSMAMR_16s(50, 8000, v.data(), v.data(), h.data(),
                                                       v.data(), v.data(), idx, 1, 4, buf),
              kvoErrRange);
    {
        BadArgs t("kvosFixedCodebookDecode_GSMAMR_16s");
        auto i = t.in<Kvo16s>("pIndices", 10);
        auto c = t.out<Kvo16s>("pCode", 40);
        auto sf = t.value<Kvo16s>("subframe", 0, {{-1, kvoErrRange}, {4, kvoErrRange}});
        auto m = t.value<KvoSpeechRate>("mode", 11, {{5, kvoErrRange}, {13, kvoErrRange}});
        t.run([&](const BadArgs::Call& a) {
            return kvosFixedCodebookDecode_GSMAMR_16s(a(i), a(c), a(sf), a(m));
        });
    }
}

}  // namespace
