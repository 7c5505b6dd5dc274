// GSM full-rate filters: offset compensation, pre/deemphasis and the two
// short-term lattices, against worked values, double-precision models and
// their properties (chunked runs, in-place runs, inverse pairs).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

std::vector<Kvo16s> randomSignal(int n, uint32_t seed, int amp) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-amp, amp - 1);
    std::vector<Kvo16s> v(n);
    for (auto& x : v) x = static_cast<Kvo16s>(d(rng));
    return v;
}

TEST(GsmFrHighPass, TruncatesToTheGridAndRemovesDc) {
    // -1 drops to -8 on the 13-bit grid: the first output is the step's
    // (-8 / 2) << 15 rounded back, i.e. -4.
    KvoHighPassState_GSMFR st{0, 0};
    Kvo16s x = -1, y = 0;
    ASSERT_EQ(kvosHighPassFilter_GSMFR_16s(&x, &y, 1, &st), kvoOk);
    EXPECT_EQ(y, -4);
    EXPECT_EQ(st.z1, -4);
    EXPECT_EQ(st.z2, -4 << 15);
    // A constant input decays with the pole at 32735/32768 (about 1/1000 per sample).
    KvoHighPassState_GSMFR s2{0, 0};
    std::vector<Kvo16s> dc(8000, 8000), out(8000);
    ASSERT_EQ(kvosHighPassFilter_GSMFR_16s(dc.data(), out.data(), 8000, &s2), kvoOk);
    EXPECT_EQ(out[0], 4000);
    const double pole = 32735.0 / 32768.0;
    for (int n : {1, 100, 1000, 3000}) EXPECT_NEAR(out[n], 4000 * std::pow(pole, n), 2.0) << n;
    EXPECT_LE(std::abs(out[7999]), 1);
}

// Whole runs equal runs cut into pieces, and in-place runs equal copies.
TEST(GsmFrFilters, ChunkedAndInPlaceRunsAgree) {
    const auto x = randomSignal(480, 5, 32768);
    const Kvo16s rc[8] = {-29000, 26000, -12000, 9000, -3000, 2500, -700, 300};
    const std::vector<int> cuts = {1, 13, 14, 13, 120, 2, 157, 160};
    for (int which = 0; which < 5; ++which) {
        SCOPED_TRACE(which);
        auto run = [&](Kvo16s* buf, int n, KvoHighPassState_GSMFR& hp, Kvo16s* mem) {
            switch (which) {
                case 0:
                    return kvosHighPassFilter_GSMFR_16s(buf, buf, n, &hp);
                case 1:
                    return kvosPreemphasize_GSMFR_16s(buf, buf, n, mem);
                case 2:
                    return kvosDeemphasize_GSMFR_16s_I(buf, n, mem);
                case 3:
                    return kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, buf, n, mem);
                default:
                    return kvosShortTermSynthesisFilter_GSMFR_16s(rc, buf, buf, n, mem);
            }
        };
        std::vector<Kvo16s> whole = x, pieces = x;
        KvoHighPassState_GSMFR h1{12345, -20}, h2 = h1;
        Kvo16s m1[9] = {100, -200, 300, -400, 500, -600, 700, -800, 0}, m2[9];
        std::copy(m1, m1 + 9, m2);
        ASSERT_EQ(run(whole.data(), 480, h1, m1), kvoOk);
        int at = 0;
        for (int c : cuts) {
            ASSERT_EQ(run(pieces.data() + at, c, h2, m2), kvoOk);
            at += c;
        }
        EXPECT_EQ(whole, pieces);
        EXPECT_TRUE(std::equal(m1, m1 + 9, m2));
        EXPECT_EQ(h1.z2, h2.z2);
        EXPECT_EQ(h1.z1, h2.z1);
    }
    // Out-of-place forms give the in-place results.
    std::vector<Kvo16s> a = x, b(480);
    Kvo16s ma = 77, mb = 77;
    kvosPreemphasize_GSMFR_16s(a.data(), a.data(), 480, &ma);
    kvosPreemphasize_GSMFR_16s(x.data(), b.data(), 480, &mb);
    EXPECT_EQ(a, b);
    Kvo16s va[9] = {}, vb[9] = {};
    a = x;
    kvosShortTermSynthesisFilter_GSMFR_16s(rc, a.data(), a.data(), 480, va);
    kvosShortTermSynthesisFilter_GSMFR_16s(rc, x.data(), b.data(), 480, vb);
    EXPECT_EQ(a, b);
}

TEST(GsmFrEmphasis, WorkedValuesAndInversePair) {
    // Preemphasis: y = x + mult_r(x[-1], -28180).
    Kvo16s x[3] = {1000, -32768, 32767}, y[3], mem = 32767;
    ASSERT_EQ(kvosPreemphasize_GSMFR_16s(x, y, 3, &mem), kvoOk);
    EXPECT_EQ(y[0], 1000 - 28179);  // (32767*28180 + 16384) >> 15 = 28179
    EXPECT_EQ(y[1], -32768);        // -32768 - 860 saturates
    EXPECT_EQ(y[2], 32767);         // 32767 + 28180 saturates
    EXPECT_EQ(mem, 32767);
    // Deemphasis of a large input: 32760 out, memory before doubling.
    Kvo16s d[2] = {30000, 30000}, m = 0;
    ASSERT_EQ(kvosDeemphasize_GSMFR_16s_I(d, 2, &m), kvoOk);
    EXPECT_EQ(d[0], 32760);
    EXPECT_EQ(d[1], 32760);
    EXPECT_EQ(m, 32767);
    Kvo16s n[1] = {-3}, mn = 0;
    kvosDeemphasize_GSMFR_16s_I(n, 1, &mn);
    EXPECT_EQ(n[0], -8);  // -6 with its three low bits cleared
    EXPECT_EQ(mn, -3);
    // Deemphasis undoes preemphasis up to the rounding and the 2x/13-bit output.
    auto s = randomSignal(800, 9, 8000);
    std::vector<Kvo16s> p(800);
    Kvo16s pm = 0, dm = 0;
    kvosPreemphasize_GSMFR_16s(s.data(), p.data(), 800, &pm);
    kvosDeemphasize_GSMFR_16s_I(p.data(), 800, &dm);
    for (int i = 0; i < 800; ++i) ASSERT_NEAR(p[i], 2 * s[i], 40) << i;
}

// Double-precision lattice models of the two filters.
void analysisModel(const double* k, std::vector<double>& x, double* u) {
    for (double& s : x) {
        double d = s, sav = s;
        for (int i = 0; i < 8; ++i) {
            const double ui = u[i];
            u[i] = sav;
            sav = ui + k[i] * d;
            d = d + k[i] * ui;
        }
        s = d;
    }
}

TEST(GsmFrShortTerm, LatticesFollowTheRealModelAndInvertEachOther) {
    std::mt19937 rng(77);
    for (int trial = 0; trial < 20; ++trial) {
        SCOPED_TRACE(trial);
        Kvo16s rc[8];
        double k[8];
        std::uniform_int_distribution<int> dr(-30000, 30000);
        for (int i = 0; i < 8; ++i) {
            rc[i] = static_cast<Kvo16s>(dr(rng) >> (i / 2));
            k[i] = rc[i] / 32768.0;
        }
        auto x = randomSignal(160, 100 + trial, 1200);
        std::vector<Kvo16s> e = x;
        Kvo16s u[8] = {};
        ASSERT_EQ(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, e.data(), 160, u), kvoOk);
        std::vector<double> ed(x.begin(), x.end());
        double ud[8] = {};
        analysisModel(k, ed, ud);
        for (int n = 0; n < 160; ++n) ASSERT_NEAR(e[n], ed[n], 40.0) << n;
        // Synthesis with the same coefficients restores the input.
        std::vector<Kvo16s> r(160);
        Kvo16s v[9] = {};
        ASSERT_EQ(kvosShortTermSynthesisFilter_GSMFR_16s(rc, e.data(), r.data(), 160, v), kvoOk);
        for (int n = 0; n < 160; ++n) ASSERT_NEAR(r[n], x[n], 60) << n;
        EXPECT_EQ(v[0], r[159]);
    }
}

TEST(GsmFrShortTerm, FullScaleWorkedValues) {
    // Coefficients at -32768: products of two -32768 keep their low 16 bits
    // (mult_r gives -32768), every sum saturates.
    Kvo16s rc[8], a[2] = {32767, -32768}, u[8] = {};
    std::fill(rc, rc + 8, Kvo16s{-32768});
    ASSERT_EQ(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, a, 1, u), kvoOk);
    EXPECT_EQ(a[0], 32767);  // zero memory: di passes unchanged
    EXPECT_EQ(u[0], 32767);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(u[i], -32767) << i;  // mult_r(-32768, 32767)
    ASSERT_EQ(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, a + 1, 1, u), kvoOk);
    EXPECT_EQ(u[0], -32768);
    EXPECT_EQ(u[1], -1);      // 32767 + mult_r(-32768, -32768) = 32767 - 32768
    EXPECT_EQ(u[2], -32768);  // -32767 - 32768 saturates
    Kvo16s x = 32767, y = 0, v[9] = {};
    ASSERT_EQ(kvosShortTermSynthesisFilter_GSMFR_16s(rc, &x, &y, 1, v), kvoOk);
    EXPECT_EQ(y, 32767);
    EXPECT_EQ(v[0], 32767);
    for (int i = 1; i < 9; ++i) EXPECT_EQ(v[i], -32767) << i;
}

}  // namespace
