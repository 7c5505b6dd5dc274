// G.728 backward adaptation: the hybrid window against a double-precision
// model of the recursive window, and the Levinson-Durbin recursion against a
// double-precision recursion, plus its stop and hand-over rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
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

// Double model: memory decays once per call and takes the products of the L
// samples leaving the non-recursive section; the output adds the N newest.
struct WindowModel {
    int M, L, N;
    double decay;
    std::vector<double> x, mem;
    const std::vector<Kvo16s>& w;
    WindowModel(int m, int l, int n, double d, const std::vector<Kvo16s>& win)
        : M(m), L(l), N(n), decay(d), x(m + l + n, 0.0), mem(m + 1, 0.0), w(win) {}
    std::vector<double> step(const double* src) {
        const int T = M + L + N;
        for (int j = 0; j < M + N; ++j) x[j] = x[j + L];
        for (int j = 0; j < L; ++j) x[M + N + j] = src[j];
        std::vector<double> ws(T), u(M + 1);
        for (int j = 0; j < T; ++j) ws[j] = x[j] * w[T - 1 - j] / 32768.0;
        for (int k = 0; k <= M; ++k) {
            double r1 = 0, r2 = 0;
            for (int i = 0; i < L; ++i) r1 += ws[M + i] * ws[M + i - k];
            for (int i = 0; i < N; ++i) r2 += ws[M + L + i] * ws[M + L + i - k];
            mem[k] = decay * mem[k] + r1;
            u[k] = mem[k] + r2;
        }
        u[0] *= 257.0 / 256.0;
        return u;
    }
};

struct WinCase {
    int M, L, N, decay, block;
};

class HybridWindow : public ::testing::TestWithParam<WinCase> {};

TEST_P(HybridWindow, NormalisedLagsFollowTheDoubleModel) {
    const WinCase c = GetParam();
    const int T = c.M + c.L + c.N;
    const auto w = make_window(T);
    Kvo32s size = 0;
    ASSERT_EQ(kvosWinHybridGetStateSize_G728_16s(c.M, c.L, c.N, c.block, &size), kvoOk);
    std::vector<Kvo8u> mem(size + 1);
    // An odd address: the record is placed at the next 16-byte boundary.
    ASSERT_EQ(kvosWinHybridInit_G728_16s(w.data(), c.M, c.L, c.N, c.block, c.decay, mem.data() + 1),
              kvoOk);
    WindowModel model(c.M, c.L, c.N, c.decay == 12288 ? 0.75 : 0.5, w);
    std::mt19937 rng(7);
    std::vector<Kvo16s> src(c.L), exps(c.L / 5 + 1, 0), out(c.M + 1);
    std::vector<double> real(c.L);
    double level = 200;
    for (int call = 0; call < 40; ++call) {
        SCOPED_TRACE(call);
        level = call % 7 == 3 ? 20000 : (call % 5 == 1 ? 30 : 3000);
        // Low-pass noise at a changing level.
        double prev = 0;
        for (int i = 0; i < c.L; ++i) {
            prev = 0.8 * prev + std::uniform_real_distribution<double>(-1, 1)(rng);
            real[i] = std::round(std::clamp(prev * level, -32768.0, 32767.0));
        }
        if (c.block) {
            // Mantissa and exponent per block of 5, like the synthesis filter output.
            for (int b = 0; b < c.L / 5; ++b) {
                double mx = 0;
                for (int i = 0; i < 5; ++i) mx = std::max(mx, std::fabs(real[5 * b + i]));
                int e = 0;
                while (mx > 0 && mx * std::ldexp(1.0, e) < 4096) ++e;
                while (mx * std::ldexp(1.0, e) >= 8192) --e;
                exps[b] = static_cast<Kvo16s>(e);
                for (int i = 0; i < 5; ++i) {
                    src[5 * b + i] =
                        static_cast<Kvo16s>(std::lround(std::ldexp(real[5 * b + i], e)));
                    real[5 * b + i] = std::ldexp(src[5 * b + i], -e);
                }
            }
            const KvoStatus st =
                kvosWinHybridBlock_G728_16s(0, src.data(), exps.data(), out.data(), mem.data() + 1);
            // Until the signal reaches back M lags, the last lag may be zero.
            ASSERT_TRUE(st == kvoOk || (call < 3 && st == kvoWarnZeroEnergy)) << st;
        } else {
            for (int i = 0; i < c.L; ++i) src[i] = static_cast<Kvo16s>(real[i]);
            const KvoStatus st = kvosWinHybrid_G728_16s(0, src.data(), out.data(), mem.data() + 1);
            ASSERT_TRUE(st == kvoOk || (call < 3 && st == kvoWarnZeroEnergy)) << st;
        }
        const auto u = model.step(real.data());
        // The first lag fills the word; the others keep their ratio to it.
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

TEST(G728HybridWindow, SilenceAndShortLags) {
    const auto w = make_window(60);
    Kvo32s size = 0;
    ASSERT_EQ(kvosWinHybridGetStateSize_G728_16s(10, 20, 30, 0, &size), kvoOk);
    EXPECT_EQ(size, 32 + 2 * (20 + 20 + 30 + 2) + 16);
    std::vector<Kvo8u> mem(size);
    ASSERT_EQ(kvosWinHybridInit_G728_16s(w.data(), 10, 20, 30, 0, 8192, mem.data()), kvoOk);
    std::vector<Kvo16s> zero(20, 0), out(11, 99);
    EXPECT_EQ(kvosWinHybrid_G728_16s(0, zero.data(), out.data(), mem.data()), kvoWarnZeroEnergy);
    for (Kvo16s v : out) EXPECT_EQ(v, 0);
    // Order 50 with shortLags: lags above 10 are left alone.
    const auto w50 = make_window(105);
    ASSERT_EQ(kvosWinHybridGetStateSize_G728_16s(50, 20, 35, 5, &size), kvoOk);
    EXPECT_EQ(size, 32 + 2 * (100 + 20 + 35 + 2) + 2 * 21 + 16);
    std::vector<Kvo8u> m50(size);
    ASSERT_EQ(kvosWinHybridInit_G728_16s(w50.data(), 50, 20, 35, 5, 12288, m50.data()), kvoOk);
    std::vector<Kvo16s> src(20), exps(4, 0), o50(51, 1234);
    for (int i = 0; i < 20; ++i) src[i] = static_cast<Kvo16s>((i * 7919) % 4001 - 2000);
    EXPECT_EQ(kvosWinHybridBlock_G728_16s(1, src.data(), exps.data(), o50.data(), m50.data()),
              kvoOk);
    EXPECT_GE(o50[0], 16384);
    for (int k = 11; k <= 50; ++k) EXPECT_EQ(o50[k], 1234);
}

// Double-precision Levinson-Durbin; a holds the inverse filter 1 + sum a z^-i.
std::vector<double> levinson(const std::vector<double>& r, int order) {
    std::vector<double> a(order, 0.0);
    double alpha = r[0];
    for (int m = 0; m < order; ++m) {
        double s = r[m + 1];
        for (int i = 0; i < m; ++i) s += a[i] * r[m - i];
        const double k = -s / alpha;
        std::vector<double> b(a);
        for (int i = 0; i < m; ++i) b[i] = a[i] + k * a[m - 1 - i];
        b[m] = k;
        a = b;
        alpha *= 1 - k * k;
    }
    return a;
}

TEST(G728Levinson, MatchesDoubleRecursionOnSpeechLikeSpectra) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 30; ++trial) {
        SCOPED_TRACE(trial);
        // Autocorrelation of an AR(2) resonance plus white noise correction.
        const double rho = 0.5 + 0.45 * std::uniform_real_distribution<double>(0, 1)(rng);
        const double th = std::uniform_real_distribution<double>(0.1, 2.5)(rng);
        const int order = 10 + trial % 3 * 20;
        std::vector<double> r(order + 1);
        for (int k = 0; k <= order; ++k)
            r[k] = std::pow(rho, k) * std::cos(th * k) * (k == 0 ? 1.05 : 1.0);
        std::vector<Kvo16s> R(order + 1);
        for (int k = 0; k <= order; ++k) R[k] = static_cast<Kvo16s>(std::lround(r[k] * 30000));
        std::vector<double> rq(R.begin(), R.end());
        const auto ref = levinson(rq, order);
        std::vector<Kvo16s> a(order);
        Kvo16s rc, res, scale;
        ASSERT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R.data(), order, a.data(), &rc, &res, &scale),
                  kvoOk);
        EXPECT_NEAR(rc / 32768.0, -rq[1] / rq[0], 1e-4);
        ASSERT_GE(scale, 13);
        for (int i = 0; i < order; ++i)
            EXPECT_NEAR(std::ldexp(a[i], -scale), ref[i], 0.02 * (1 + std::fabs(ref[i])))
                << "coefficient " << i;
        // Order 10 first, then the rest from there: the same coefficients.
        if (order > 10) {
            std::vector<Kvo16s> b(order);
            Kvo16s res2, scale2;
            ASSERT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R.data(), 10, b.data(), &rc, &res2, &scale2),
                      kvoOk);
            ASSERT_EQ(
                kvosLevinsonDurbin_G728_16s_ISfs(R.data(), 10, order, b.data(), &res2, &scale2),
                kvoOk);
            EXPECT_EQ(a, b);
            EXPECT_EQ(res, res2);
            EXPECT_EQ(scale, scale2);
        }
    }
}

TEST(G728Levinson, StopsAndHandOver) {
    // First-order worked value: r1 = r0 / 2 gives k = -0.5 and residual 3/4.
    {
        Kvo16s R[2] = {16384, 8192}, a[1], rc, res, scale;
        EXPECT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R, 1, a, &rc, &res, &scale), kvoOk);
        EXPECT_EQ(rc, -16384);
        EXPECT_EQ(a[0], -16384);
        EXPECT_EQ(scale, 15);
        EXPECT_EQ(res, 12288);
    }
    // A perfectly predictable signal: |g| reaches alpha at stage 2.
    {
        Kvo16s R[4] = {16384, 16384, 16384, 16384}, a[3] = {0, 0, 0}, rc, res = -1, scale = -1;
        EXPECT_EQ(kvosLevinsonDurbin_G728_16s_Sfs(R, 3, a, &rc, &res, &scale),
                  kvoErrFilterUnstable);
        EXPECT_EQ(a[0], 32767 * -1);
    }
    // startOrder == endOrder: nothing runs, scale and residual written back unchanged.
    {
        Kvo16s R[3] = {16384, 3000, 100}, a[2] = {-5000, 1000}, res = 777, scale = 14;
        EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R, 2, 2, a, &res, &scale), kvoOk);
        EXPECT_EQ(a[0], -5000);
        EXPECT_EQ(a[1], 1000);
        EXPECT_EQ(res, 777);
        EXPECT_EQ(scale, 14);
        // Given scale 12 with no stage: the end test stops (stage 3 is below 11).
        scale = 12;
        EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R, 2, 2, a, &res, &scale), kvoErrFilterUnstable);
        EXPECT_EQ(res, 777);
        // The same stop at stage 11 or later is only a warning.
        std::vector<Kvo16s> R11(12, 100), a11(11, 0);
        R11[0] = 16384;
        scale = 12;
        EXPECT_EQ(kvosLevinsonDurbin_G728_16s_ISfs(R11.data(), 11, 11, a11.data(), &res, &scale),
                  kvoWarnOverflow);
    }
}

}  // namespace
