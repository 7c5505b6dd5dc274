// Long-term post filters on synthetic voiced residuals: the lag found (integer and 1/8
// resolution), the harmonic gain against a double model, the fall-backs to a plain copy, and
// the annex A and B entries with their residual buffers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "g729/post_tables.h"
#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::Rng;
using pmodel::Vec;

namespace {

constexpr int kHist = 152, kLen = kHist + 40;
constexpr double kPi = 3.14159265358979323846;

// len samples of a band-limited signal of period P (any real), subframe at `start`, peak amp.
Vec periodic(double P, double amp, uint32_t seed, int len = kLen, int start = kHist) {
    Rng r(seed);
    std::vector<double> ph(static_cast<size_t>(std::min(P / 4, 12.0)) + 1), v(len);
    for (auto& p : ph) p = r.real(0, 2 * kPi);
    double peak = 0;
    for (int i = 0; i < len; ++i) {
        const int n = i - start + 1000 * static_cast<int>(std::ceil(P));
        for (size_t h = 1; h < ph.size(); ++h)
            v[i] += std::cos(2 * kPi * h * std::fmod(n, P) / P + ph[h]);
        peak = std::max(peak, std::fabs(v[i]));
    }
    Vec x(len);
    for (int i = 0; i < len; ++i) x[i] = static_cast<i16>(std::lround(v[i] / peak * amp));
    return x;
}

struct Ltp {
    Vec out = Vec(40);
    i16 voice = -1;
    bool copied(const Vec& x) const { return std::equal(out.begin(), out.end(), &x[kHist]); }
};

Ltp ltp(const Vec& x, int delay, i16 gamma = 16384) {
    Ltp r;
    EXPECT_EQ(kvosLongTermPostFilter_G729_16s(gamma, delay, &x[kHist], r.out.data(), &r.voice),
              kvoOk);
    return r;
}

}  // namespace

// An exactly periodic residual keeps its integer lag and, with the (2/3, 1/3) weights of
// gamma 0.5, comes out unchanged at every level of the 13-bit justification, full scale
// included.  A period of P + j/8 is found to the eighth: the delay reported is the integer
// above it, and the subframe is kept to a few units (a whole-sample delay misses by
// thousands).
TEST(LongTermPostFilter, FindsIntegerAndFractionalLag) {
    for (int P : {18, 37, 64, 142, 143})
        for (double amp : {60.0, 3000.0, 32767.0})
            for (int delay = std::max(P - 1, 18); delay <= std::min(P + 1, 143); ++delay) {
                SCOPED_TRACE(testing::Message() << P << " " << amp << " " << delay);
                const Vec x = periodic(P, amp, P);
                const Ltp o = ltp(x, delay);
                EXPECT_EQ(o.voice, P);
                EXPECT_TRUE(o.copied(x));
            }
    for (int base : {30, 100})
        for (int j = 1; j < 8; ++j) {
            SCOPED_TRACE(base * 8 + j);
            const Vec x = periodic(base + j / 8.0, 12000, base + j);
            const Ltp o = ltp(x, base);
            EXPECT_EQ(o.voice, base + 1);
            for (int n = 0; n < 40; ++n) EXPECT_NEAR(o.out[n], x[kHist + n], 16) << n;
        }
}

// A broadband period (white values repeated) whose subframe is the past scaled by a: no
// fraction can match better than the integer lag (Cauchy-Schwarz), num/den is a, and the
// output is g x + (1 - g) x(n - P), g = 1 / (1 + gamma min(a, 1)), as the double model says.
TEST(LongTermPostFilter, HarmonicGainFollowsTheModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int P = r.uni(19, 142);
        const double a = r.real(0.3, 1.3);
        const i16 gamma = seed % 4 ? static_cast<i16>(r.uni(0, 16384)) : 16384;
        const Vec per = r.noise(P, 3000);
        Vec x(kLen);
        for (int i = 0; i < kLen; ++i)
            x[i] = i < kHist ? per[i % P] : pmodel::sat16(std::lround(a * x[i - P]));
        const Ltp o = ltp(x, P + r.uni(-1, 1), gamma);
        ASSERT_EQ(o.voice, P);
        double num = 0, den = 0;
        for (int n = kHist; n < kLen; ++n)
            num += double(x[n]) * x[n - P], den += double(x[n - P]) * x[n - P];
        const double g = 1.0 / (1.0 + gamma / 32768.0 * std::min(num / den, 1.0));
        for (int n = 0; n < 40; ++n) {
            const double d = x[kHist + n] - x[kHist + n - P];
            EXPECT_NEAR(o.out[n], x[kHist + n - P] + g * d, 1.5 + 0.002 * std::fabs(d)) << n;
        }
    }
}

// Where no delay helps, the subframe is copied and the delay reported is 0: silence, white
// noise (prediction gain below 3 dB), and a residual that flips sign every period.
TEST(LongTermPostFilter, NoFilteringCopies) {
    std::vector<Vec> cases = {Vec(kLen, 0)};
    for (uint32_t seed = 1; seed <= 20; ++seed) cases.push_back(Rng(seed).noise(kLen, 3000));
    Vec flip(kLen);  // antiperiodic at lag 50
    for (int i = 0; i < kLen; ++i)
        flip[i] = static_cast<i16>(std::lround(8000 * std::sin(kPi * i / 50)));
    cases.push_back(flip);
    for (size_t k = 0; k < cases.size(); ++k) {
        const Ltp o = ltp(cases[k], k + 1 == cases.size() ? 50 : 18 + 6 * k);
        EXPECT_EQ(o.voice, 0) << k;
        EXPECT_TRUE(o.copied(cases[k])) << k;
    }
}

// Annex A with the identity LP set (residual = speech): the residual goes to index 154 and
// nothing else changes; a periodic residual gives g0 x + gain x(n - P), gain = 0.5 rho / (1 +
// 0.5 rho), rho at most 1; the lag window above 143 is 137..143.
TEST(LongTermPostFilterA, HarmonicFilter) {
    const Vec unit = {4096, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const int cases[][2] = {{20, 18}, {40, 42}, {77, 75}, {140, 145}, {139, 144}};
    for (const auto& c : cases) {
        const int P = c[0];
        SCOPED_TRACE(P);
        Vec full = periodic(P, 8000, P, 194, 154), res(200, 0x1234), out(40);
        Rng r(P);
        for (int i = 154; i < 194; ++i) full[i] = pmodel::sat16(full[i] * 0.8 + r.gauss() * 40);
        std::copy(full.begin(), full.begin() + 154, res.begin());
        Vec want = res;
        std::copy(full.begin() + 154, full.end(), want.begin() + 154);
        ASSERT_EQ(
            kvosLongTermPostFilter_G729A_16s(c[1], &full[154], unit.data(), res.data(), out.data()),
            kvoOk);
        ASSERT_EQ(res, want);
        double num = 0, den = 0;
        for (int n = 154; n < 194; ++n)
            num += double(full[n] >> 2) * (full[n - P] >> 2),
                den += double(full[n - P] >> 2) * (full[n - P] >> 2);
        const double rho = std::min(num / den, 1.0), gain = 0.5 * rho / (1 + 0.5 * rho);
        for (int n = 0; n < 40; ++n)
            EXPECT_NEAR(out[n], full[154 + n] + gain * (full[154 + n - P] - full[154 + n]),
                        2.5 + 3e-4 * std::abs(full[154 + n - P] - full[154 + n]))
                << n;
    }
}

// Annex B writes the A(z/0.55) residual (weights 0.55^i), filters active frames exactly as the
// main filter at gamma 0.5 and copies the others; pVoice tells whether a delay was used.
TEST(LongTermPostFilterB, FrameTypesAndResidual) {
    for (int k = 0; k <= 10; ++k)
        EXPECT_NEAR(kvo::tab::facGamma2_pst[k], 32768 * std::pow(0.55, k), 2);
    for (uint32_t seed = 1; seed <= 18; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const Vec a = pmodel::stableLpc(r, 0.8);
        const int P = r.uni(20, 143);
        const i16 type = static_cast<i16>(seed % 3);
        const Vec full = seed % 2 ? periodic(P, 6000, seed, 194, 154) : r.noise(194, 2000);
        Vec res(full.begin(), full.begin() + 154), out(40), main(40);
        res.resize(194);
        i16 voice = -7, used = -1;
        const int delay = type == 1 ? P : r.uni(0, 143);
        ASSERT_EQ(kvosLongTermPostFilter_G729B_16s(delay, &full[154], a.data(), res.data(),
                                                   out.data(), &voice, type),
                  kvoOk);
        for (int n = 154; n < 194; ++n) {
            int64_t s = 2048;
            for (int k = 0; k <= 10; ++k)
                s += pmodel::sat16((int64_t{a[k]} * kvo::tab::facGamma2_pst[k] + 16384) >> 15) *
                     int64_t{full[n - k]};
            ASSERT_EQ(res[n], pmodel::sat16(s >> 12)) << n;
        }
        if (type == 1)
            ASSERT_EQ(kvosLongTermPostFilter_G729_16s(16384, delay, &res[154], main.data(), &used),
                      kvoOk);
        else
            main.assign(res.begin() + 154, res.end()), used = 0;
        EXPECT_EQ(out, main);
        EXPECT_EQ(voice, used != 0 ? 1 : 0);
    }
}
