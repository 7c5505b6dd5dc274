// Harmonic filters, the high-pass filter (edges and its fixed-scale twin; the published
// coefficients are proven by the coder vectors) and the tilt compensation.
#include <gtest/gtest.h>

#include <cstring>

#include "filter_model.h"
#include "filter_test_tables.h"
#include "kernels/filter.h"
#include "kvosc.h"

using namespace fmodel;

TEST(HarmonicFilter, NonRecursiveMatchesWideModel) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const int lag = r.uni(0, 60), len = r.uni(1, 80);
        const i16 val = seed % 5 ? r.s16() : i16{-32768};
        const Vec x = seed % 2 ? r.vec(lag + len, 32768) : r.square(lag + len);
        Vec y(len);
        ASSERT_EQ(kvosHarmonicFilter_NR_16s(val, lag, x.data() + lag, y.data(), len), kvoOk);
        for (int n = 0; n < len; ++n) {
            i64 v = (i64{x[lag + n]} << 15) + i64{val} * x[n] + 16384;
            EXPECT_EQ(y[n], low16(v >> 15)) << n;
        }
    }
    // Gain one half: 100 + 50 exactly; 101 + 50.5 rounds up.
    const i16 x[2] = {100, 101};
    i16 y[1];
    kvosHarmonicFilter_NR_16s(16384, 1, x + 1, y, 1);
    EXPECT_EQ(y[0], 151);
}

TEST(HarmonicFilter, InPlaceWorkedValues) {
    // Lag 0, gain 0.5: each sample times 1.5, rounded down, saturated.
    i16 v[4] = {100, -3, 30000, -32768};
    ASSERT_EQ(kvosHarmonicFilter_16s_I(16384, 0, v, 4), kvoOk);
    EXPECT_EQ(v[0], 150);
    EXPECT_EQ(v[1], -5);
    EXPECT_EQ(v[2], 32767);
    EXPECT_EQ(v[3], -32768);
    // Lag 1 is recursive: an impulse decays by halves.
    i16 w[5] = {0, 1000, 0, 0, 0};
    ASSERT_EQ(kvosHarmonicFilter_16s_I(16384, 1, w + 1, 4), kvoOk);
    EXPECT_EQ(w[2], 500);
    EXPECT_EQ(w[3], 250);
    EXPECT_EQ(w[4], 125);
    // -1 * -1 in Q15 saturates to 32767 before the sum.
    i16 m[2] = {-32768, 0};
    ASSERT_EQ(kvosHarmonicFilter_16s_I(-32768, 1, m + 1, 1), kvoOk);
    EXPECT_EQ(m[1], 32767);
}

namespace {

Vec hp_coeffs(int sf) {
    const i16* a = sf == 12 ? kvo::tab::a140 : kvo::tab::a100;
    const i16* b = sf == 12 ? kvo::tab::b140 : kvo::tab::b100;
    return {a[0], a[1], a[2], b[0], b[1], b[2]};
}

}  // namespace

// A gain far above one: the state saturates to 0x7fffffff and the rounded output holds 32767
// (the rounding add does not wrap); at scale 13 the doubling saturates as well.
TEST(HighPass, SaturatesWithoutWrapping) {
    for (int sf : {12, 13}) {
        const i16 c[6] = {4096, 0, 0, 32767, 32767, 32767};
        KvoHighPassState_G729 st;
        ASSERT_EQ(kvosHighPassFilterInit_G729(c, &st), kvoOk);
        Vec v(4, 32767);
        ASSERT_EQ(kvosHighPassFilter_G729_16s_ISfs(v.data(), 4, sf, &st), kvoOk);
        EXPECT_EQ(v, Vec(4, 32767));
        EXPECT_EQ(st.y1, INT32_MAX);
        Vec w(4, -32768);
        ASSERT_EQ(kvosHighPassFilter_G729_16s_ISfs(w.data(), 4, sf, &st), kvoOk);
        EXPECT_EQ(w[3], -32768);
        EXPECT_EQ(st.y1, INT32_MIN);
    }
    // A unit filter at scale 13 doubles the signal: 1000 gives 2000.
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
        const Vec x = seed % 3 == 0 ? r.square(41) : r.vec(41, seed % 3 == 1 ? 32768 : 3000);
        Ops o;
        const bool neg = val <= 0;
        const i16 t = o.mult_r(val, neg ? 29491 : 6554);
        const i32 d = t == 0 ? 32767 : 32768 - (t < 0 ? -t : t);
        const i16 q = static_cast<i16>((neg ? (1 << 26) : (1 << 29)) / d);
        const i16 h = static_cast<i16>(t >> 1);
        Vec want(40);
        for (int n = 0; n < 40; ++n) {
            i16 u = o.add(x[n + 1], o.round(o.L_shl(o.L_mult(x[n], h), 1)));
            want[n] = o.round(o.L_shl(o.L_mult(u, q), neg ? 4 : 1));
        }
        Vec y(40);
        ASSERT_EQ(kvosTiltCompensation_G729E_16s(val, x.data(), y.data()), kvoOk);
        EXPECT_EQ(y, want);
    }
}

// The fixed-scale high-pass against its general twin over any coefficients
// and state (full-scale and -32768 included), input in pieces, record and
// output byte for byte.
TEST(HighPass, FixedScaleFormEqualsGeneralLoop) {
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed * 6151);
        const int sf = 12 + (seed & 1);
        KvoHighPassState_G729 st{};
        if (seed % 3 == 0) {
            const Vec c = hp_coeffs(sf);
            ASSERT_EQ(kvosHighPassFilterInit_G729(c.data(), &st), kvoOk);
        } else {
            const Vec c = seed % 5 == 1 ? Vec(6, -32768) : r.vec(6, 32768);
            ASSERT_EQ(kvosHighPassFilterInit_G729(c.data(), &st), kvoOk);
            st.y1 = static_cast<Kvo32s>(r.uni(-32768, 32767)) * 65536 + r.uni(0, 65535);
            st.y2 = seed % 7 == 0 ? INT32_MIN : static_cast<Kvo32s>(r.uni(-32768, 32767)) * 65536;
            st.x0 = r.s16();
            st.x1 = r.s16();
        }
        Vec x = (seed / 3) % 3 == 2 ? r.square(120) : r.vec(120, (seed / 3) % 3 ? 32768 : 700);
        Vec y1 = x, y2 = x;
        KvoHighPassState_G729 s1 = st, s2 = st;
        for (int n0 = 0; n0 < 120; n0 += 40) {
            kvo::highpass_g729(s1, y1.data() + n0, 40, sf);
            kvo::highpass_g729_plain(s2, y2.data() + n0, 40, sf);
        }
        ASSERT_EQ(0, std::memcmp(y1.data(), y2.data(), 120 * sizeof(int16_t)));
        ASSERT_EQ(0, std::memcmp(&s1, &s2, sizeof s1));
    }
}
