// AMR-WB sample filters against double-precision models of the filters they stand for
// (1/A(z), A(z), the high-pass biquad, pre- and de-emphasis), against each other where two
// forms must agree on unsaturated data, and argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "support/badargs.h"
#include "support/signals.h"

namespace {

using kvosc::test::BadArgs;

std::vector<Kvo16s> speech(int n, uint32_t seed, double peak) {
    return kvosc::test::speech_like(n, seed, peak, 12800);
}

// A stable A(z) in Q12 whose coefficients fit 16 bits: resonators multiplied out, their radii
// shrunk until every coefficient is below 8.
std::vector<Kvo16s> stable_lpc(int order, uint32_t seed) {
    std::mt19937 g(seed);
    std::uniform_real_distribution<double> ang(0.2, 2.9), rad(0.7, 0.95);
    std::vector<double> w(order / 2), r(order / 2);
    for (int k = 0; k < order / 2; ++k) w[k] = ang(g), r[k] = rad(g);
    for (double shrink = 1.0;; shrink *= 0.95) {
        std::vector<double> a{1.0};
        for (int k = 0; k < order / 2; ++k) {
            const double rk = r[k] * shrink;
            const double c[3] = {1.0, -2 * rk * std::cos(w[k]), rk * rk};
            std::vector<double> b(a.size() + 2, 0.0);
            for (size_t i = 0; i < a.size(); ++i)
                for (int j = 0; j < 3; ++j) b[i + j] += a[i] * c[j];
            a = b;
        }
        double big = 0;
        for (double v : a) big = std::max(big, std::fabs(v));
        if (big >= 7.9) continue;
        std::vector<Kvo16s> q(a.size());
        for (size_t i = 0; i < a.size(); ++i) q[i] = static_cast<Kvo16s>(std::lround(a[i] * 4096));
        return q;
    }
}

TEST(AmrwbFilters, SynthesisFollowsOneOverAAndBothFormsAgreeInRange) {
    const int order = 16, len = 256;
    const auto a = stable_lpc(order, 5);
    const auto x = speech(len, 3, 300);
    std::vector<Kvo32s> y(order + len, 0), ye(order + len, 0);
    ASSERT_EQ(kvosSynthesisFilter_AMRWB_16s32s_I(a.data(), order, x.data(), y.data() + order, len),
              kvoOk);
    ASSERT_EQ(
        kvosSynthesisFilter_AMRWBE_16s32s_I(a.data(), order, x.data(), ye.data() + order, len),
        kvoOk);
    // Without saturation the plain and the term-by-term saturating forms are the same sum.
    EXPECT_EQ(y, ye);
    // y / 65536 follows x / (a0 / 4096) - sum a_k / 4096 y_k in double.
    std::vector<double> m(order + len, 0.0);
    double worst = 0, peak = 0;
    for (int n = 0; n < len; ++n) {
        double s = a[0] / 4096.0 * x[n];
        for (int k = 1; k <= order; ++k) s -= a[k] / 4096.0 * m[order + n - k];
        m[order + n] = s;
        worst = std::max(worst, std::fabs(y[order + n] / 65536.0 - s));
        peak = std::max(peak, std::fabs(s));
    }
    ASSERT_LT(peak * 65536, 2.0e9) << "the model signal must stay in range";
    EXPECT_LT(worst, 0.05) << "peak " << peak;
    // Loud input: both forms pin at the 32-bit limits rather than wrapping.
    std::vector<Kvo16s> loud(len, 32767);
    ASSERT_EQ(
        kvosSynthesisFilter_AMRWB_16s32s_I(a.data(), order, loud.data(), y.data() + order, len),
        kvoOk);
    ASSERT_EQ(
        kvosSynthesisFilter_AMRWBE_16s32s_I(a.data(), order, loud.data(), ye.data() + order, len),
        kvoOk);
    EXPECT_EQ(y[order], 16 * 4096 * 32767);
    EXPECT_EQ(*std::max_element(y.begin(), y.end()), INT32_MAX);
    EXPECT_EQ(*std::max_element(ye.begin(), ye.end()), INT32_MAX);
}

TEST(AmrwbFilters, ResidualInvertsSynthesisAndItsTwoFormsAgree) {
    const int order = 16, len = 128;
    const auto a = stable_lpc(order, 9);
    const auto x = speech(len, 4, 300);
    std::vector<Kvo32s> y(order + len, 0);
    ASSERT_EQ(kvosSynthesisFilter_AMRWB_16s32s_I(a.data(), order, x.data(), y.data() + order, len),
              kvoOk);
    std::vector<Kvo16s> y16(order + len);
    for (int n = 0; n < order + len; ++n) y16[n] = static_cast<Kvo16s>(y[n] >> 16);
    std::vector<Kvo16s> back(len), low(len);
    // A(z) on the synthesis gives the excitation back, up to the truncation of y.
    ASSERT_EQ(
        kvosResidualFilter_Low_16s_Sfs(a.data(), order, y16.data() + order, back.data(), len, 12),
        kvoOk);
    double taps = 0;  // truncating y to 16 bits costs at most one unit per tap
    for (Kvo16s v : a) taps += std::abs(v) / 4096.0;
    for (int n = 0; n < len; ++n) EXPECT_NEAR(back[n], x[n], taps + 1) << n;
    // round16(S << (15 - sf)) and (S + 2^sf) >> (sf + 1) are one rounding.
    for (Kvo32s sf : {0, 4, 11, 14}) {
        ASSERT_EQ(kvosResidualFilter_AMRWB_16s_Sfs(a.data(), order, y16.data() + order, back.data(),
                                                   len, sf),
                  kvoOk);
        ASSERT_EQ(kvosResidualFilter_Low_16s_Sfs(a.data(), order, y16.data() + order, low.data(),
                                                 len, sf + 1),
                  kvoOk);
        if (sf >= 11) {
            EXPECT_EQ(back, low) << "sf " << sf;
        }
        // At small scales the saturating form clips where the Low form wraps to 16 bits.
        for (int n = 0; n < len; ++n) EXPECT_TRUE(back[n] == low[n] || std::abs(back[n]) >= 32767);
    }
}

// Second-order Butterworth high-pass at fc, in double: b0..b2, a1, a2 (y = b x - a y).
struct Biquad {
    double b[3], a[3];
};
Biquad butter_hp(double fc, double fs) {
    const double k = std::tan(M_PI * fc / fs), q = std::sqrt(2.0);
    const double n = 1 / (1 + q * k + k * k);
    return {{n, -2 * n, n}, {1, 2 * (k * k - 1) * n, (1 - q * k + k * k) * n}};
}

TEST(AmrwbFilters, HighPassOrderTwoIsTheBiquadAtBothScales) {
    const Biquad bq = butter_hp(400, 12800);
    const auto x = speech(1600, 8, 8000);
    // scaleFactor 15: Q14 coefficients, unit output; 14: Q13 with the output doubled, so the
    // caller halves b.
    for (Kvo32s sf : {14, 15}) {
        const double q = sf == 15 ? 16384 : 8192, bs = sf == 15 ? 1.0 : 0.5;
        Kvo16s A[3], B[3];
        for (int k = 0; k < 3; ++k) {
            B[k] = static_cast<Kvo16s>(std::lround(bq.b[k] * bs * q));
            A[k] = static_cast<Kvo16s>(std::lround(-bq.a[k] * q));  // the filter adds a[k] y
        }
        KvoHighPassStateAMRWB st;
        ASSERT_EQ(kvosHighPassFilterInit_AMRWB_16s(A, B, 2, &st), kvoOk);
        std::vector<Kvo16s> y(x);
        ASSERT_EQ(kvosHighPassFilter_AMRWB_16s_ISfs(y.data(), 800, &st, sf), kvoOk);
        ASSERT_EQ(kvosHighPassFilter_AMRWB_16s_ISfs(y.data() + 800, 800, &st, sf), kvoOk);
        double m1 = 0, m2 = 0, u1 = 0, u2 = 0, worst = 0;
        for (size_t n = 0; n < x.size(); ++n) {
            const double v =
                bq.b[0] * x[n] + bq.b[1] * u1 + bq.b[2] * u2 - bq.a[1] * m1 - bq.a[2] * m2;
            u2 = u1, u1 = x[n], m2 = m1, m1 = v;
            worst = std::max(worst, std::fabs(y[n] - v));
        }
        EXPECT_LT(worst, 40.0) << "scaleFactor " << sf;  // coefficient quantisation at Q13/Q14
    }
}

TEST(AmrwbFilters, HighPassBlockScaleMovesTheHistoryAndDelayLineRoundTrips) {
    // Third order (Q13): after a switch from block scale 2 to 1 with doubled input the history
    // follows the scale, so the output doubles.
    const Biquad bq = butter_hp(300, 12800);
    const double p = 0.9;  // times (1 - z^-1) / (1 - p z^-1) with gain (1 + p) / 2
    double b[4] = {}, a[4] = {1, bq.a[1] - p, bq.a[2] - p * bq.a[1], -p * bq.a[2]};
    for (int i = 0; i < 3; ++i) b[i] += bq.b[i] * (1 + p) / 2, b[i + 1] -= bq.b[i] * (1 + p) / 2;
    Kvo16s A[4], B[4];
    for (int k = 0; k < 4; ++k) {
        B[k] = static_cast<Kvo16s>(std::lround(b[k] * 0.5 * 8192));
        A[k] = static_cast<Kvo16s>(std::lround(-a[k] * 8192));
    }
    const auto x = speech(1200, 2, 4000);
    KvoHighPassStateAMRWB s1, s2;
    ASSERT_EQ(kvosHighPassFilterInit_AMRWB_16s(A, B, 3, &s1), kvoOk);
    ASSERT_EQ(kvosHighPassFilterInit_AMRWB_16s(A, B, 3, &s2), kvoOk);
    std::vector<Kvo16s> y1(1200), y2(1200), x2(x.begin() + 600, x.end());
    for (auto& v : x2) v = static_cast<Kvo16s>(v * 2);
    ASSERT_EQ(kvosHighPassFilter_AMRWB_16s_Sfs(x.data(), y1.data(), 1200, &s1, 2), kvoOk);
    ASSERT_EQ(kvosHighPassFilter_AMRWB_16s_Sfs(x.data(), y2.data(), 600, &s2, 2), kvoOk);
    ASSERT_EQ(kvosHighPassFilter_AMRWB_16s_Sfs(x2.data(), y2.data() + 600, 600, &s2, 1), kvoOk);
    for (int n = 0; n < 600; ++n) ASSERT_EQ(y1[n], y2[n]);
    for (int n = 600; n < 1200; ++n) EXPECT_NEAR(y2[n], 2 * y1[n], 6) << n;
    for (Kvo32s order : {2, 3}) {
        Kvo16s line[9], again[9];
        KvoHighPassStateAMRWB t;
        std::memset(&t, 0x55, sizeof t);
        ASSERT_EQ(kvosHighPassFilterGetDlyLine_AMRWB_16s(&s2, line, order), kvoOk);
        ASSERT_EQ(kvosHighPassFilterSetDlyLine_AMRWB_16s(line, &t, order), kvoOk);
        ASSERT_EQ(kvosHighPassFilterGetDlyLine_AMRWB_16s(&t, again, order), kvoOk);
        EXPECT_EQ(0, std::memcmp(line, again, sizeof(Kvo16s) * 3 * order));
        // Exchange order: oldest output pair first, then the inputs newest first.
        EXPECT_EQ(line[2 * order - 2], s2.yHigh[0]);
        EXPECT_EQ(line[2 * order - 1], s2.yLow[0]);
        EXPECT_EQ(line[2 * order], s2.x[0]);
    }
}

TEST(AmrwbFilters, DirectThreeTapWorkedValues) {
    // P = c0 x[n] - c1 (x[n-1] + x[n+1]); out = round16(2P).
    const Kvo16s c[2] = {16384, 8192};
    const Kvo16s x[6] = {100, 1000, 2000, -3000, 4000, 50};  // x[0] and x[5] are the margins
    Kvo16s y[4];
    ASSERT_EQ(kvosHighPassFilter_Direct_AMRWB_16s(c, x + 1, y, 4, 1), kvoOk);
    const Kvo16s want1[4] = {-25, 1500, -3000, 2738};
    EXPECT_EQ(0, std::memcmp(y, want1, sizeof y));
    // Mode 0: centre 1.0, the ends with one neighbour.
    ASSERT_EQ(kvosHighPassFilter_Direct_AMRWB_16s(c, x + 1, y, 4, 0), kvoOk);
    const Kvo16s want0[4] = {500, 2500, -4500, 4750};
    EXPECT_EQ(0, std::memcmp(y, want0, sizeof y));
    // Loud data saturates.
    const Kvo16s big[3] = {-32768, 32767, -32768};
    ASSERT_EQ(kvosHighPassFilter_Direct_AMRWB_16s(c, big + 1, y, 1, 1), kvoOk);
    EXPECT_EQ(y[0], 32767);
}

TEST(AmrwbFilters, EmphasisFiltersFollowTheirRecursions) {
    const auto x = speech(400, 6, 12000);
    const Kvo16s mu = 22282;  // 0.68 in Q15
    // De-emphasis y = x / 2 + mu y[n-1] (rounded, half scale) against double.
    std::vector<Kvo16s> y(x);
    Kvo16s mem = 0;
    ASSERT_EQ(kvosDeemphasize_AMRWB_NR_16s_I(mu, y.data(), 400, &mem), kvoOk);
    EXPECT_EQ(mem, y.back());
    double m = 0;
    for (size_t n = 0; n < x.size(); ++n) {
        m = x[n] / 2.0 + mu / 32768.0 * m;
        ASSERT_NEAR(y[n], m, 2.0) << n;
    }
    // The AMR-WB+ form at shift 14 is the same filter exactly.
    std::vector<Kvo16s> ye(x);
    Kvo16s me = 0;
    ASSERT_EQ(kvosDeemphasize_AMRWBE_NR_16s_I(mu, 14, ye.data(), 400, &me), kvoOk);
    EXPECT_EQ(ye, y);
    // 32-bit input: y = x / 4096 + val y[n-1] / 16384 (val Q14), low four bits ignored.
    std::vector<Kvo32s> wide(400);
    for (int n = 0; n < 400; ++n) wide[n] = x[n] * 256 + (n & 15);
    std::vector<Kvo16s> d(400);
    Kvo16s m1 = 0;
    ASSERT_EQ(kvosDeemphasize_AMRWB_32s16s(11141, wide.data(), d.data(), 400, &m1), kvoOk);
    m = 0;
    for (int n = 0; n < 400; ++n) {
        m = (wide[n] & ~15) / 4096.0 + 11141 / 16384.0 * m;
        ASSERT_NEAR(d[n], m, 2.0) << n;
    }
    // Pre-emphasis in place equals the difference equation on the untouched input.
    for (Kvo32s sf : {0, 15}) {
        std::vector<Kvo16s> p(x);
        Kvo16s pm = 1234;
        ASSERT_EQ(kvosPreemphasize_AMRWB_16s_ISfs(mu, p.data(), 400, sf, &pm), kvoOk);
        EXPECT_EQ(pm, x.back());
        for (int n = 0; n < 400; ++n) {
            const double prev = n ? x[n - 1] : 1234;
            const double want = (x[n] * 32768.0 - mu * prev) / std::ldexp(1.0, sf + 1);
            ASSERT_NEAR(p[n], std::max(-32768.0, std::min(32767.0, want)), 1.0) << n;
        }
    }
}

TEST(AmrwbFilters, InterpolationAddsAtTheFinerScale) {
    const auto p1 = speech(64, 1, 20000), p2 = speech(64, 2, 20000);
    std::vector<Kvo16s> d(64), e(64);
    for (auto [s1, s2] : {std::pair{15, 15}, std::pair{14, 16}, std::pair{16, 12}}) {
        ASSERT_EQ(kvosInterpolateC_NR_16s(p1.data(), 9000, s1, p2.data(), 20000, s2, d.data(), 64),
                  kvoOk);
        ASSERT_EQ(kvosInterpolateC_NR_16s(p2.data(), 20000, s2, p1.data(), 9000, s1, e.data(), 64),
                  kvoOk);
        EXPECT_EQ(d, e) << "operands exchanged";
        for (int i = 0; i < 64; ++i) {
            const double want = p1[i] * 9000.0 / std::ldexp(1.0, 16 - s1) +
                                p2[i] * 20000.0 / std::ldexp(1.0, 16 - s2);
            ASSERT_NEAR(d[i], std::max(-32768.0, std::min(32767.0, want)), 1.0) << i;
        }
    }
}

TEST(AmrwbFilters, ArgumentChecks) {
    const Kvo16s a[17] = {4096}, coef[4] = {4096, 1, 2, 3};
    Kvo16s v[80] = {}, line[9] = {}, mem = 0;
    Kvo32s y[80] = {}, size = 0;
    KvoHighPassStateAMRWB st;
    kvosHighPassFilterInit_AMRWB_16s(coef, coef, 3, &st);
    for (auto* f : {kvosSynthesisFilter_AMRWB_16s32s_I, kvosSynthesisFilter_AMRWBE_16s32s_I}) {
        EXPECT_EQ(f(a, 16, nullptr, y + 16, 0), kvoErrNullPtr);
        EXPECT_EQ(f(a, 0, v, y + 16, 64), kvoErrSize);
        EXPECT_EQ(f(a, 16, v, y + 16, 0), kvoErrSize);
    }
    for (auto* f : {kvosResidualFilter_AMRWB_16s_Sfs, kvosResidualFilter_Low_16s_Sfs}) {
        EXPECT_EQ(f(a, 16, v + 16, nullptr, 0, 16), kvoErrNullPtr);
        for (Kvo16s order : {0, 65}) EXPECT_EQ(f(a, order, v + 16, v, 64, 16), kvoErrSize);
        EXPECT_EQ(f(a, 16, v + 16, v, 0, 16), kvoErrSize);
        for (Kvo32s sf : {-1, 16}) EXPECT_EQ(f(a, 16, v + 16, v, 64, sf), kvoErrScaleRange);
    }
    EXPECT_EQ(kvosHighPassFilter_AMRWB_16s_Sfs(v, v, 16, nullptr, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosHighPassFilter_AMRWB_16s_Sfs(v, v, 0, &st, 0), kvoErrSize);
    for (Kvo32s order : {1, 4}) {
        EXPECT_EQ(kvosHighPassFilterGetSize_AMRWB_16s(order, &size), kvoErrSize);
        EXPECT_EQ(kvosHighPassFilterInit_AMRWB_16s(coef, coef, order, &st), kvoErrSize);
        EXPECT_EQ(kvosHighPassFilterGetDlyLine_AMRWB_16s(&st, line, order), kvoErrSize);
        EXPECT_EQ(kvosHighPassFilterSetDlyLine_AMRWB_16s(line, &st, order), kvoErrSize);
    }
    EXPECT_EQ(kvosHighPassFilterGetSize_AMRWB_16s(2, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosHighPassFilterGetSize_AMRWB_16s(3, &size), kvoOk);
    EXPECT_EQ(size, static_cast<Kvo32s>(sizeof(KvoHighPassStateAMRWB)));
    EXPECT_EQ(kvosDeemphasize_AMRWBE_NR_16s_I(1, 16, v, 4, &mem), kvoErrScaleRange);
    EXPECT_EQ(kvosPreemphasize_AMRWB_16s_ISfs(1, v, 4, -1, &mem), kvoErrScaleRange);
    EXPECT_EQ(kvosPreemphasize_AMRWB_16s_ISfs(1, v, 0, -1, &mem), kvoErrSize);
    EXPECT_EQ(kvosInterpolateC_NR_16s(v, 1, -1, v, 1, 0, v, 4), kvoErrScaleRange);
    EXPECT_EQ(kvosInterpolateC_NR_16s(v, 1, 0, nullptr, 1, 0, v, 4), kvoErrNullPtr);
    EXPECT_EQ(kvosDeemphasize_AMRWB_32s16s(1, nullptr, v, 4, &mem), kvoErrNullPtr);
    EXPECT_EQ(kvosHighPassFilter_Direct_AMRWB_16s(coef, v + 1, v, 0, 1), kvoErrSize);
    for (Kvo16s x : v) EXPECT_EQ(x, 0) << "nothing written on a refused call";
}

}  // namespace
