// G.728 filters: the block floating point order-50 synthesis filter against a
// double-precision all-pole filter, the combined filter's zero-state synthesis
// equal to the synthesis filter's, the pole-zero and inverse filters by worked
// impulse responses, the post filter's long-term stage, and the pitch extractor
// on pulse trains.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

// A stable order-50 predictor (Q14): a resonance pair and a weak tail.
std::vector<Kvo16s> predictor() {
    std::vector<double> a = {-1.2, 0.6};  // 1 - 1.2 z^-1 + 0.6 z^-2
    std::vector<Kvo16s> q(50, 0);
    for (int i = 0; i < 2; ++i) q[i] = static_cast<Kvo16s>(std::lround(a[i] * 16384));
    for (int i = 2; i < 50; ++i) q[i] = static_cast<Kvo16s>((i % 3) - 1);
    return q;
}

// Excitation vector with a block exponent: real = e * 2^-exp.
int excite(std::mt19937& rng, double level, Kvo16s* e) {
    double v[5], mx = 0;
    for (auto& x : v) {
        x = std::uniform_real_distribution<double>(-level, level)(rng);
        mx = std::max(mx, std::fabs(x));
    }
    int exp = 0;
    while (mx * std::ldexp(1.0, exp) < 8192) ++exp;
    while (mx * std::ldexp(1.0, exp) >= 16384) --exp;
    for (int j = 0; j < 5; ++j) e[j] = static_cast<Kvo16s>(std::lround(std::ldexp(v[j], exp)));
    return exp;
}

TEST(G728Synthesis, FollowsDoubleAllPoleFilterAcrossLevels) {
    const auto a = predictor();
    KvoG728SynthesisState st;
    KvoG728CombinedState cst;
    ASSERT_EQ(kvosSynthesisFilterInit_G728_16s(&st), kvoOk);
    ASSERT_EQ(kvosCombinedFilterInit_G728_16s(&cst), kvoOk);
    Kvo16s w[20] = {};
    for (int i = 0; i < 10; ++i) {
        w[i] = static_cast<Kvo16s>(-3000 / (i + 1));
        w[10 + i] = static_cast<Kvo16s>(-2000 / (i + 1));
    }
    std::vector<double> hist(50, 0.0);  // double model output, newest first
    std::mt19937 rng(9);
    double err = 0, sig = 0;
    for (int v = 0; v < 400; ++v) {
        SCOPED_TRACE(v);
        const double level = v < 200 ? 40.0 : (v < 300 ? 2.0 : 120.0);
        Kvo16s e[5], e2[5], e0[5], y[5], y2[5], z[5], yExp, y2Exp;
        const int ex = excite(rng, level, e);
        std::memcpy(e2, e, sizeof e);
        std::memcpy(e0, e, sizeof e);
        ASSERT_EQ(kvosSyntesisFilterZeroInput_G728_16s(a.data(), e, ex, y, &yExp, &st), kvoOk);
        ASSERT_EQ(kvosCombinedFilterZeroInput_G728_16s(a.data(), w, z, &cst), kvoOk);
        ASSERT_EQ(kvosCombinedFilterZeroState_G728_16s(a.data(), w, e2, ex, y2, &y2Exp, &cst),
                  kvoOk);
        // Encoder and decoder keep the same synthesis memory.
        ASSERT_EQ(0, std::memcmp(y, y2, sizeof y));
        ASSERT_EQ(yExp, y2Exp);
        for (int j = 0; j < 5; ++j) {
            double s = std::ldexp(e0[j], -ex);
            for (int i = 0; i < 50; ++i) s -= a[i] / 16384.0 * hist[i];
            hist.insert(hist.begin(), s);
            hist.pop_back();
            // The newest block is normalised into 4096..8191 (or all zero).
            const double got = std::ldexp(y[j], -yExp);
            err += (got - s) * (got - s);
            sig += s * s;
        }
        int mx = 0;
        for (Kvo16s x : y) mx = std::max(mx, std::abs(int(x)));
        EXPECT_TRUE(mx == 0 || (mx >= 4096 && mx <= 8192)) << mx;
    }
    EXPECT_GT(10 * std::log10(sig / err), 50.0);
}

// Silence from the initial state: block update gives exponent 16 + 14, the zero response at
// exponent 0 pulls it down to 0, the final normalisation adds 13.  An excitation overloading
// y[n] = e + 2 y[n-1] is shifted (the caller sees it) and the output clips near 4095.
TEST(G728Synthesis, SilenceAndOverload) {
    KvoG728SynthesisState st;
    ASSERT_EQ(kvosSynthesisFilterInit_G728_16s(&st), kvoOk);
    for (Kvo16s e : st.exponents) EXPECT_EQ(e, 16);
    Kvo16s e[5] = {}, y[5], exp;
    ASSERT_EQ(kvosSyntesisFilterZeroInput_G728_16s(predictor().data(), e, 0, y, &exp, &st), kvoOk);
    EXPECT_EQ(std::vector<Kvo16s>(y, y + 5), std::vector<Kvo16s>(5, 0));
    EXPECT_EQ(exp, 13);
    ASSERT_EQ(kvosSynthesisFilterInit_G728_16s(&st), kvoOk);
    std::vector<Kvo16s> a(50, 0);
    a[0] = -32768;  // -2.0 in Q14: the zero-state guard must shift
    std::fill(e, e + 5, 30000);
    ASSERT_EQ(kvosSyntesisFilterZeroInput_G728_16s(a.data(), e, 0, y, &exp, &st), kvoOk);
    EXPECT_LT(e[0], 30000);
    for (int j = 0; j < 5; ++j) {
        EXPECT_LE(std::ldexp(y[j], -exp), 4095.0);
        EXPECT_GE(std::ldexp(y[j], -exp), 3900.0);
    }
}

TEST(G728IIR, PoleZeroImpulseResponses) {
    KvoG728IIRState st;
    ASSERT_EQ(kvosIIR16sInit_G728_16s(&st), kvoOk);
    // Zero section b = 0.5, 0.25; pole section c = -0.5: y = x + .5 x1 + .25 x2 + .5 y1.
    Kvo16s w[20] = {8192, 4096, 0, 0, 0, 0, 0, 0, 0, 0, -8192};
    Kvo16s x[8] = {16384}, y[8];
    ASSERT_EQ(kvosIIR16s_G728_16s(w, x, y, 8, &st), kvoOk);
    double yd[8], x1 = 0, x2 = 0, y1 = 0;
    for (int n = 0; n < 8; ++n) {
        const double xn = n == 0 ? 16384 : 0;
        yd[n] = xn + 0.5 * x1 + 0.25 * x2 + 0.5 * y1;
        x2 = x1;
        x1 = xn;
        y1 = yd[n];
        EXPECT_EQ(y[n], static_cast<Kvo16s>(std::floor(yd[n]))) << n;
    }
    // Full-scale input cannot wrap: the pole section saturates.
    Kvo16s big[5] = {32767, 32767, 32767, 32767, 32767}, out[5];
    Kvo16s wp[20] = {};
    wp[10] = -16384;  // y = x + y1
    ASSERT_EQ(kvosIIR16sInit_G728_16s(&st), kvoOk);
    ASSERT_EQ(kvosIIR16s_G728_16s(wp, big, out, 5, &st), kvoOk);
    EXPECT_EQ(out[4], 32767);
}

TEST(G728PostFilter, LongTermStageAndInverseFilter) {
    KvoG728PostFilterState st;
    ASSERT_EQ(kvosPostFilterInit_G728_16s(&st), kvoOk);
    Kvo16s coef[20] = {}, buf[45], out[5];
    for (int i = 0; i < 45; ++i) buf[i] = static_cast<Kvo16s>(100 * i - 2000);
    // Without short-term stage and tilt: (g x[n] + gl x[n - lag]) >> 14.
    ASSERT_EQ(kvosPostFilter_G728_16s(12000, 3000, 33, 0, coef, buf + 40, out, &st), kvoOk);
    for (int j = 0; j < 5; ++j)
        EXPECT_EQ(out[j], (12000 * buf[40 + j] + 3000 * buf[40 + j - 33]) >> 14) << j;

    KvoG728PostFilterAdapterState ad;
    ASSERT_EQ(kvosPostFilterAdapterStateInit_G728(&ad), kvoOk);
    // One coefficient of 1.0 (Q13): out = round((x[n] + x[n-1]) / 2).
    Kvo16s c[10] = {8192}, x[5] = {101, -7, 3000, -3001, 5}, r[5];
    ASSERT_EQ(kvosLPCInverseFilter_G728_16s(x, c, r, &ad), kvoOk);
    int prev = 0;
    for (int j = 0; j < 5; ++j) {
        EXPECT_EQ(r[j], static_cast<Kvo16s>(std::floor((x[j] + prev) / 2.0 + 0.5))) << j;
        prev = x[j];
    }
}

TEST(G728Pitch, FindsThePeriodOfPulseTrains) {
    for (int period : {25, 33, 41, 57, 88}) {
        SCOPED_TRACE(period);
        KvoG728PostFilterAdapterState ad;
        ASSERT_EQ(kvosPostFilterAdapterStateInit_G728(&ad), kvoOk);
        std::vector<Kvo16s> res(240 + 20 * 40, 0);
        std::mt19937 rng(period);
        for (size_t n = 0; n < res.size(); ++n) {
            res[n] = static_cast<Kvo16s>(static_cast<int>(rng() % 201) - 100);
            if (n % period == 0) res[n] = 6000;
        }
        Kvo32s pitch = 140;
        for (int call = 0; call < 40; ++call)
            ASSERT_EQ(kvosPitchPeriodExtraction_G728_16s(res.data() + 140 + 20 * call, &pitch, &ad),
                      kvoOk);
        EXPECT_EQ(pitch, period);
    }
}

}  // namespace
