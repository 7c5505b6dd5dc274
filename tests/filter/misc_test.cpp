// Harmonic filters (wide model and worked values), the high-pass filter at its saturation
// edges (its published coefficients are proven by the coder vectors) and the tilt
// compensation against the basic-operator chain.
#include <gtest/gtest.h>

#include "filter_model.h"
#include "kvosc.h"

using namespace fmodel;

TEST(HarmonicFilter, NonRecursiveMatchesWideModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int lag = r.uni(0, 60), len = r.uni(1, 80);
        const i16 val = seed % 5 ? r.s16() : i16{-32768};
        const Vec x = r.input(1 + seed % 2, lag + len);
        Vec y(len);
        ASSERT_EQ(kvosHarmonicFilter_NR_16s(val, lag, x.data() + lag, y.data(), len), kvoOk);
        for (int n = 0; n < len; ++n)
            EXPECT_EQ(y[n], low16(((i64{x[lag + n]} << 15) + i64{val} * x[n] + 16384) >> 15)) << n;
    }
}

TEST(HarmonicFilter, InPlaceWorkedValues) {
    // Lag 0, gain 0.5: each sample times 1.5, rounded down, saturated.
    i16 v[4] = {100, -3, 30000, -32768};
    ASSERT_EQ(kvosHarmonicFilter_16s_I(16384, 0, v, 4), kvoOk);
    EXPECT_EQ(Vec(v, v + 4), (Vec{150, -5, 32767, -32768}));
    // Lag 1 is recursive: an impulse decays by halves.
    i16 w[5] = {0, 1000, 0, 0, 0};
    ASSERT_EQ(kvosHarmonicFilter_16s_I(16384, 1, w + 1, 4), kvoOk);
    EXPECT_EQ(Vec(w + 2, w + 5), (Vec{500, 250, 125}));
    // -1 * -1 in Q15 saturates to 32767 before the sum.
    i16 m[2] = {-32768, 0};
    ASSERT_EQ(kvosHarmonicFilter_16s_I(-32768, 1, m + 1, 1), kvoOk);
    EXPECT_EQ(m[1], 32767);
}

// A gain far above one: the state saturates and the rounded output holds full scale (the
// rounding add does not wrap); at scale 13 the doubling saturates as well.  A unit filter
// at scale 13 doubles the signal.
TEST(HighPass, SaturationEdgesAndUnitFilter) {
    for (int sf : {12, 13}) {
        const i16 c[6] = {4096, 0, 0, 32767, 32767, 32767};
        KvoHighPassState_G729 st;
        ASSERT_EQ(kvosHighPassFilterInit_G729(c, &st), kvoOk);
        Vec v(4, 32767), w(4, -32768);
        ASSERT_EQ(kvosHighPassFilter_G729_16s_ISfs(v.data(), 4, sf, &st), kvoOk);
        EXPECT_EQ(v, Vec(4, 32767));
        EXPECT_EQ(st.y1, INT32_MAX);
        ASSERT_EQ(kvosHighPassFilter_G729_16s_ISfs(w.data(), 4, sf, &st), kvoOk);
        EXPECT_EQ(w[3], -32768);
        EXPECT_EQ(st.y1, INT32_MIN);
    }
    const i16 unit[6] = {8192, 0, 0, 8192, 0, 0};
    KvoHighPassState_G729 st;
    ASSERT_EQ(kvosHighPassFilterInit_G729(unit, &st), kvoOk);
    i16 s[2] = {1000, -1000};
    ASSERT_EQ(kvosHighPassFilter_G729_16s_ISfs(s, 2, 13, &st), kvoOk);
    EXPECT_EQ(s[0], 2000);
    EXPECT_EQ(s[1], -2000);
    EXPECT_EQ(st.y2, 1000 << 16);
}

TEST(TiltCompensation, MatchesChainModel) {
    for (uint32_t seed = 1; seed <= 80; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 23);
        const i16 val = seed == 1 ? -32768 : seed == 2 ? 32767 : seed == 3 ? 1 : r.s16();
        const Vec x = r.input(seed % 6, 41);
        Ops o;
        const bool neg = val <= 0;
        const i16 t = o.mult_r(val, neg ? 29491 : 6554);
        const i32 d = t == 0 ? 32767 : 32768 - (t < 0 ? -t : t);
        const i16 q = static_cast<i16>((neg ? (1 << 26) : (1 << 29)) / d);
        const i16 h = static_cast<i16>(t >> 1);
        Vec want(40), y(40);
        for (int n = 0; n < 40; ++n) {
            const i16 u = o.add(x[n + 1], o.round(o.L_shl(o.L_mult(x[n], h), 1)));
            want[n] = o.round(o.L_shl(o.L_mult(u, q), neg ? 4 : 1));
        }
        ASSERT_EQ(kvosTiltCompensation_G729E_16s(val, x.data(), y.data()), kvoOk);
        EXPECT_EQ(y, want);
    }
}
