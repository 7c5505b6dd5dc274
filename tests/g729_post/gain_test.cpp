// Adaptive gain controls: the gain step from a double model of the level ratio, the level
// match on steady signals after the smoothing, the documented early returns, and saturation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::Rng;
using pmodel::Vec;

namespace {

Vec tone(double amp, double freq, int start, double phase = 0.3) {
    Vec x(40);
    for (int n = 0; n < 40; ++n)
        x[n] = static_cast<i16>(std::lround(amp * std::sin(2 * 3.14159265358979 * freq * (start + n) + phase)));
    return x;
}

double absSum(const Vec& x) {
    double s = 0;
    for (i16 v : x) s += std::abs(int{v});
    return s;
}
double energy(const Vec& x) {
    double s = 0;
    for (i16 v : x) s += double(v) * v;
    return s;
}

}  // namespace

// Main body: starting from gain 0, the first sample's gain is g0 = (1 - 0.9875) sum|in| /
// sum|out| in Q14, readable from an output sample of 16384 (1.0 in Q14).
TEST(GainControl, FirstStepIsTheLevelRatio) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec in(40), out(40);
        const double li = r.real(50, 9000), lo = li * r.real(0.55, 1.9);
        for (auto& v : in) v = pmodel::sat16(std::lround(r.gauss() * li));
        for (auto& v : out) v = pmodel::sat16(std::lround(r.gauss() * lo));
        out[0] = 16384;
        const double ratio = absSum(in) / absSum(out);
        i16 gain = 0;
        ASSERT_EQ(kvosGainControl_G729_16s_I(in.data(), out.data(), &gain), kvoOk);
        EXPECT_NEAR(out[0], 16384 * ratio * 410 / 32768, 1.0 + 0.002 * 16384 * ratio * 410 / 32768);
    }
}

// Annex A: g0 = (1 - 0.9) sqrt(energy in / energy out) in Q12, read from an output sample of
// 4096 (1.0 in Q12).
TEST(GainControlA, FirstStepIsTheRootEnergyRatio) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        Vec in(40), out(40);
        // Levels below the saturation of the doubled energies.
        const double li = r.real(200, 2500), lo = li * r.real(0.15, 6.0);
        for (auto& v : in) v = pmodel::sat16(std::lround(r.gauss() * li));
        for (auto& v : out) v = pmodel::sat16(std::lround(r.gauss() * lo));
        out[0] = 4096;
        Vec in4 = in, out4 = out;
        for (auto& v : in4) v = static_cast<i16>(v >> 2);
        for (auto& v : out4) v = static_cast<i16>(v >> 2);
        const double g0 = 4096 * 0.1 * std::sqrt(energy(in4) / energy(out4));
        i16 gain = 0;
        ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), out.data(), &gain), kvoOk);
        EXPECT_NEAR(out[0], std::min(g0, 3275.0), 2.0 + 0.004 * g0);
    }
}

// On a steady signal the smoothed gain settles on the level ratio, so that the controlled
// output has the level of the reference: magnitude sums (main body), energies (annex A).
TEST(GainControl, SteadySignalsReachTheInputLevel) {
    for (double scale : {0.6, 0.8, 1.5, 1.9}) {
        SCOPED_TRACE(scale);
        i16 gain = 16384, gainA = 4096;
        double sumIn = 0, sumOut = 0, eIn = 0, eOut = 0;
        for (int f = 0; f < 120; ++f) {
            const Vec in = tone(8000, 0.0371, 40 * f);
            const Vec filt = tone(8000 / scale, 0.0371, 40 * f, 0.9);
            Vec out = filt, outA = filt;
            ASSERT_EQ(kvosGainControl_G729_16s_I(in.data(), out.data(), &gain), kvoOk);
            ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), outA.data(), &gainA), kvoOk);
            if (f >= 100) {
                sumIn += absSum(in);
                sumOut += absSum(out);
                eIn += energy(in);
                eOut += energy(outA);
            }
        }
        EXPECT_NEAR(sumOut / sumIn, 1.0, 0.01);
        EXPECT_NEAR(gain / 16384.0, scale, 0.01 * scale);
        EXPECT_NEAR(std::sqrt(eOut / eIn), 1.0, 0.01);
        EXPECT_NEAR(gainA / 4096.0, scale, 0.01 * scale);
    }
}

// Silent reference: g0 is 0 and the gain decays by the smoothing factor on every sample;
// silent output: the gain is reset to 0 and the vector left alone.
TEST(GainControl, SilentVectors) {
    const Vec zero(40, 0);
    const Vec ref = tone(5000, 0.05, 0);
    Vec out = ref, outA = ref;
    i16 gain = 16384, gainA = 4096;
    ASSERT_EQ(kvosGainControl_G729_16s_I(zero.data(), out.data(), &gain), kvoOk);
    ASSERT_EQ(kvosGainControl_G729A_16s_I(zero.data(), outA.data(), &gainA), kvoOk);
    int32_t g = 16384, ga = 4096;
    for (int n = 0; n < 40; ++n) {
        g = (g * 32358 + 16384) >> 15;  // 0.9875, rounded
        ga = (ga * 29491) >> 15;        // 0.9, truncated
        EXPECT_EQ(out[n], (g * ref[n] + 8192) >> 14) << n;
        EXPECT_EQ(outA[n], (ga * ref[n]) >> 12) << n;
    }
    EXPECT_EQ(gain, g);
    EXPECT_EQ(gainA, ga);
    EXPECT_NEAR(g, 16384 * std::pow(32358 / 32768.0, 40), 40);
    EXPECT_NEAR(ga, 4096 * std::pow(0.9, 40), 20);

    const Vec in = tone(5000, 0.05, 0);
    Vec z = zero;
    gain = 12345;
    ASSERT_EQ(kvosGainControl_G729_16s_I(in.data(), z.data(), &gain), kvoOk);
    EXPECT_EQ(gain, 0);
    EXPECT_EQ(z, zero);
    gainA = 12345;
    ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), z.data(), &gainA), kvoOk);
    EXPECT_EQ(gainA, 0);
    EXPECT_EQ(z, zero);

    // Annex A energies are of the samples shifted right by 2: |x| < 4 counts as silence.
    Vec tiny(40, 3);
    gainA = 999;
    ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), tiny.data(), &gainA), kvoOk);
    EXPECT_EQ(gainA, 0);
}

// Full scale: a large carried gain drives the outputs to the rails, and the gain recursion
// itself is held at 32767 instead of wrapping.
TEST(GainControl, SaturatesAtFullScale) {
    Vec in(40), out(40);
    for (int n = 0; n < 40; ++n) {
        in[n] = n % 2 ? 32767 : -32768;
        out[n] = n % 2 ? 20000 : -20000;
    }
    Vec o = out;
    i16 gain = 32767;  // 2.0 in Q14
    ASSERT_EQ(kvosGainControl_G729_16s_I(in.data(), o.data(), &gain), kvoOk);
    for (int n = 0; n < 40; ++n) EXPECT_EQ(o[n], n % 2 ? 32767 : -32768) << n;
    EXPECT_GT(gain, 26000);

    // Annex A: each output is sat16((x g) >> 12).  An output sample of 4096 shows the first
    // gain g1 = 0.9 * 32767 + g0; the full-scale samples after it are held at the rails, and a
    // small one shows the fourth gain of the recursion.
    Vec oa(40, 0);
    oa[0] = 4096;
    oa[1] = 32767;
    oa[2] = -32768;
    oa[3] = 100;
    i16 gainA = 32767;  // 8.0 in Q12
    ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), oa.data(), &gainA), kvoOk);
    const int g1 = oa[0], g0 = g1 - (32767 * 29491 >> 15);
    EXPECT_GT(g0, 0);
    EXPECT_EQ(oa[1], 32767);
    EXPECT_EQ(oa[2], -32768);
    const int g2 = (g1 * 29491 >> 15) + g0, g3 = (g2 * 29491 >> 15) + g0;
    const int g4 = (g3 * 29491 >> 15) + g0;
    EXPECT_EQ(oa[3], (100 * g4) >> 12);

    // A quiet output whose level asks for more than 8: the root is held at 32767 before the
    // factor 0.1, so g0 = 3275 and the first gain is 0.9 * 32767 + 3275 = 32765.
    Vec q(40, 0);
    q[0] = 4096;
    gainA = 32767;
    ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), q.data(), &gainA), kvoOk);
    EXPECT_EQ(q[0], 32765);
}
