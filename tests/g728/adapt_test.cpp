// G.728 backward adaptation: the hybrid window against a double-precision model of the
// recursive window, and the Levinson-Durbin recursion against a double-precision recursion,
// plus its stop and hand-over rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

// Window of T entries: a decaying recursive tail and a sine-shaped head.
std::vector<Kvo16s> make_window(int T) {
    std::vector<Kvo16s> w(T);
    for (int i = 0; i < T; ++i)
        w[i] = static_cast<Kvo16s>(32767 * std::sin(0.05 + 0.9 * M_PI * (i + 1) / (T + 1)));
    return w;
}

struct WinCase {
    int M, L, N, decay, block;
};

class HybridWindow : public ::testing::TestWithParam<WinCase> {};

// Double model: memory decays once per call and takes the products of the L samples leaving
// the non-recursive section; the output adds the N newest and lifts lag 0 by 257/256.  The
// block form gets mantissas in 4096..8191 and an exponent per block of 5, like the synthesis
// filter output.  The first lag fills the word; the others keep their ratio to it.
TEST_P(HybridWindow, NormalisedLagsFollowTheDoubleModel) {
    const WinCase c = GetParam();
    const int T = c.M + c.L + c.N;
    const auto w = make_window(T);
    Kvo32s size = 0;
    ASSERT_EQ(kvosWinHybridGetStateSize_G728_16s(c.M, c.L, c.N, c.block, &size), kvoOk);
    std::vector<Kvo8u> mem(size + 1);  // at an odd address: the record is placed at 16 bytes
    ASSERT_EQ(kvosWinHybridInit_G728_16s(w.data(), c.M, c.L, c.N, c.block, c.decay, mem.data() + 1),
              kvoOk);
    const double decay = c.decay / 16384.0;
    std::vector<double> x(T, 0.0), rec(c.M + 1, 0.0), real(c.L);
    std::mt19937 rng(7);
    std::vector<Kvo16s> src(c.L), exps(c.L / 5 + 1, 0), out(c.M + 1);
    for (int call = 0; call < 40; ++call) {
        SCOPED_TRACE(call);
        const double level = call % 7 == 3 ? 20000 : (call % 5 == 1 ? 30 : 3000);
        double prev = 0;  // low-pass noise
        for (int i = 0; i < c.L; ++i) {
            prev = 0.8 * prev + std::uniform_real_distribution<double>(-1, 1)(rng);
            real[i] = std::round(std::clamp(prev * level, -32768.0, 32767.0));
            src[i] = static_cast<Kvo16s>(real[i]);
        }
        for (int b = 0; c.block && b < c.L / 5; ++b) {
            double mx = 0;
            for (int i = 0; i < 5; ++i) mx = std::max(mx, std::fabs(real[5 * b + i]));
            int e = 0;
            while (mx > 0 && mx * std::ldexp(1.0, e) < 4096) ++e;
            while (mx * std::ldexp(1.0, e) >= 8192) --e;
            exps[b] = static_cast<Kvo16s>(e);
            for (int i = 5 * b; i < 5 * b + 5; ++i) {
                src[i] = static_cast<Kvo16s>(std::lround(std::ldexp(real[i], e)));
                real[i] = std::ldexp(src[i], -e);
            }
        }
        const KvoStatus st =
            c.block ? kvosWinHybridBlock_G728_16s(0, src.data(), exps.data(), out.data(),
                                                  mem.data() + 1)
                    : kvosWinHybrid_G728_16s(0, src.data(), out.data(), mem.data() + 1);
        // Until the signal reaches back M lags, the last lag may be zero.
        ASSERT_TRUE(st == kvoOk || (call < 3 && st == kvoWarnZeroEnergy)) << st;

        std::copy(x.begin() + c.L, x.end(), x.begin());
        std::copy(real.begin(), real.end(), x.end() - c.L);
        std::vector<double> ws(T), u(c.M + 1);
        for (int j = 0; j < T; ++j) ws[j] = x[j] * w[T - 1 - j] / 32768.0;
        for (int k = 0; k <= c.M; ++k) {
            double r1 = 0, r2 = 0;
            for (int i = c.M; i < c.M + c.L; ++i) r1 += ws[i] * ws[i - k];
            for (int i = c.M + c.L; i < T; ++i) r2 += ws[i] * ws[i - k];
            rec[k] = decay * rec[k] + r1;
            u[k] = rec[k] + r2;
        }
        u[0] *= 257.0 / 256.0;
        EXPECT_GE(out[0], 16384);
        for (int k = 1; k <= c.M; ++k)
            EXPECT_NEAR(out[k] / double(out[0]), u[k] / u[0], 2e-3) << "lag " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(G728, HybridWindow,
                         ::testing::Values(WinCase{10, 20, 30, 8192, 0},  // weighting filter
                                           WinCase{10, 4, 20, 12288, 0},  // log gain
                                           WinCase{50, 20, 35, 12288, 5}  // synthesis filter
                                           ));

// Silence gives zero lags and the warning; with shortLags an order-50 window leaves lags
// above 10 alone.  The record sizes hold the window, the signal and the recursive memory.
TEST(G728HybridWindow, SilenceAndShortLags) {
    const auto w60 = make_window(60), w105 = make_window(105);  // the record keeps the window
    Kvo32s size = 0;
    ASSERT_EQ(kvosWinHybridGetStateSize_G728_16s(10, 20, 30, 0, &size), kvoOk);
    EXPECT_EQ(size, 32 + 2 * (20 + 20 + 30 + 2) + 16);
    std::vector<Kvo8u> mem(size);
    ASSERT_EQ(kvosWinHybridInit_G728_16s(w60.data(), 10, 20, 30, 0, 8192, mem.data()), kvoOk);
    std::vector<Kvo16s> zero(20, 0), out(11, 99);
    EXPECT_EQ(kvosWinHybrid_G728_16s(0, zero.data(), out.data(), mem.data()), kvoWarnZeroEnergy);
    EXPECT_EQ(out, std::vector<Kvo16s>(11, 0));
    ASSERT_EQ(kvosWinHybridGetStateSize_G728_16s(50, 20, 35, 5, &size), kvoOk);
    EXPECT_EQ(size, 32 + 2 * (100 + 20 + 35 + 2) + 2 * 21 + 16);
    mem.resize(size);
    ASSERT_EQ(kvosWinHybridInit_G728_16s(w105.data(), 50, 20, 35, 5, 12288, mem.data()), kvoOk);
    std::vector<Kvo16s> src(20), exps(4, 0), o50(51, 1234);
    for (int i = 0; i < 20; ++i) src[i] = static_cast<Kvo16s>((i * 7919) % 4001 - 2000);
    EXPECT_EQ(kvosWinHybridBlock_G728_16s(1, src.data(), exps.data(), o50.data(), mem.data()),
              kvoOk);
    EXPECT_GE(o50[0], 16384);
    EXPECT_EQ(std::vector<Kvo16s>(o50.begin() + 11, o50.end()), std::vector<Kvo16s>(40, 1234));
}

// Autocorrelation of an AR(2) resonance with a white-noise correction, against a double
// Levinson-Durbin recursion (a: the inverse filter 1 + sum a z^-i); order 10 first, then the
// rest from there, gives the same coefficients.
TEST(G728Levinson, MatchesDoubleRecursionAndHandsOver) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 30; ++trial) {
        SCOPED_TRACE(trial);
        const double rho = 0.5 + 0.45 * std::uniform_real_distribution<double>(0, 1)(rng);
        const double th = std::uniform_real_distribution<double>(0.1, 2.5)(rng);
        const int order = 10 + trial % 3 * 20;
        std::vector<Kvo16s> R(order + 1);
        for (int k = 0; k <= order; ++k)
            R[k] = static_cast<Kvo16s>(
                std::lround(30000 * std::pow(rho, k) * std::cos(th * k) * (k == 0 ? 1.05 : 1.0)));
        std::vector<double> ref(order, 0.0);
        double alpha = R[0];
        for (int m = 0; m < order; ++m) {
            double s = R[m + 1];
            for (int i = 0; i < m; ++i) s += ref[i] * R[m - i];
            const double k = -s / alpha;
            const std::vector<double> b(ref);
            for (int i = 0; i < m; ++i) ref[i] = b[i] + k * b[m - 1 - i];
            ref[m] = k;
            alpha *= 1 - k * k;
        }
        std::vector<Kvo16s> a(order), b(order);
        Kvo16s rc, res, scale, res2, scale2;
        ASSERT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R.data(), order, a.data(), &rc, &res, &scale),
                  kvoOk);
        EXPECT_NEAR(rc / 32768.0, -double(R[1]) / R[0], 1e-4);
        ASSERT_GE(scale, 13);
        for (int i = 0; i < order; ++i)
            EXPECT_NEAR(std::ldexp(a[i], -scale), ref[i], 0.02 * (1 + std::fabs(ref[i]))) << i;
        if (order == 10) continue;
        ASSERT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R.data(), 10, b.data(), &rc, &res2, &scale2),
                  kvoOk);
        ASSERT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R.data(), 10, order, b.data(), &res2, &scale2),
                  kvoOk);
        EXPECT_EQ(a, b);
        EXPECT_EQ(res, res2);
        EXPECT_EQ(scale, scale2);
    }
}

TEST(G728Levinson, StopsAndHandOver) {
    // First-order worked value: r1 = r0 / 2 gives k = -0.5 and residual 3/4.
    Kvo16s R1[2] = {16384, 8192}, a1[1], rc, res, scale;
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R1, 1, a1, &rc, &res, &scale), kvoOk);
    EXPECT_EQ((std::vector<int>{rc, a1[0], scale, res}),
              (std::vector<int>{-16384, -16384, 15, 12288}));
    // A perfectly predictable signal: |g| reaches alpha at stage 2.
    Kvo16s R4[4] = {16384, 16384, 16384, 16384}, a3[3] = {};
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R4, 3, a3, &rc, &res, &scale), kvoErrFilterUnstable);
    EXPECT_EQ(a3[0], -32767);
    // startOrder == endOrder: nothing runs, scale and residual written back unchanged.
    Kvo16s R[3] = {16384, 3000, 100}, a[2] = {-5000, 1000};
    res = 777;
    scale = 14;
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R, 2, 2, a, &res, &scale), kvoOk);
    EXPECT_EQ((std::vector<int>{a[0], a[1], res, scale}), (std::vector<int>{-5000, 1000, 777, 14}));
    // Given scale 12 with no stage: the end test stops (stage 3 is below 11) ...
    scale = 12;
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R, 2, 2, a, &res, &scale), kvoErrFilterUnstable);
    EXPECT_EQ(res, 777);
    // ... the same stop at stage 11 or later is only a warning.
    std::vector<Kvo16s> R11(12, 100), a11(11, 0);
    R11[0] = 16384;
    scale = 12;
    EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R11.data(), 11, 11, a11.data(), &res, &scale),
              kvoWarnOverflow);
}

}  // namespace
