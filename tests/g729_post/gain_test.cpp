// Adaptive gain controls: the level match on steady signals after the smoothing, the first
// gain step against a double model, the silent cases, and saturation at full scale.
#include <gtest/gtest.h>

#include <cmath>

#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::Rng;
using pmodel::Vec;

namespace {

Vec tone(double amp, int start, double phase) {
    Vec x(40);
    for (int n = 0; n < 40; ++n)
        x[n] = static_cast<i16>(std::lround(amp * std::sin(0.233 * (start + n) + phase)));
    return x;
}
double sum(const Vec& x, int p) {
    double s = 0;
    for (i16 v : x) s += std::pow(std::abs(int{v}), p);
    return s;
}

}  // namespace

// On a steady signal the smoothed gain settles on the level ratio, and the controlled output
// takes the level of the reference: magnitude sums (main body, Q14), energies (annex A, Q12).
TEST(GainControl, SteadySignalsReachTheInputLevel) {
    for (double scale : {0.6, 0.8, 1.5, 1.9}) {
        SCOPED_TRACE(scale);
        i16 gain = 16384, gainA = 4096;
        double s[4] = {};
        for (int f = 0; f < 120; ++f) {
            const Vec in = tone(8000, 40 * f, 0.3);
            Vec out = tone(8000 / scale, 40 * f, 0.9), outA = out;
            ASSERT_EQ(kvosGainControl_G729_16s_I(in.data(), out.data(), &gain), kvoOk);
            ASSERT_EQ(kvosGainControl_G729A_16s_I(in.data(), outA.data(), &gainA), kvoOk);
            if (f < 100) continue;
            s[0] += sum(in, 1), s[1] += sum(out, 1), s[2] += sum(in, 2), s[3] += sum(outA, 2);
        }
        EXPECT_NEAR(s[1] / s[0], 1.0, 0.01);
        EXPECT_NEAR(std::sqrt(s[3] / s[2]), 1.0, 0.01);
        EXPECT_NEAR(gain / 16384.0, scale, 0.01 * scale);
        EXPECT_NEAR(gainA / 4096.0, scale, 0.01 * scale);
    }
}

// From gain 0 the first gain is g0: (1 - 0.9875) sum|in| / sum|out| in Q14, and (1 - 0.9)
// sqrt(energy in / energy out) of the samples >> 2 in Q12; an output sample of 1.0 shows it.
TEST(GainControl, FirstStepIsTheLevelRatio) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        const double li = r.real(200, 2500);
        const Vec in = r.noise(40, li);
        Vec out = r.noise(40, li * r.real(0.55, 1.9)), outA = r.noise(40, li * r.real(0.15, 6.0));
        out[0] = 16384, outA[0] = 4096;
        const double g0 = 16384 * sum(in, 1) / sum(out, 1) * 410 / 32768;
        Vec in4 = in, out4 = outA;
        for (auto& v : in4) v = static_cast<i16>(v >> 2);
        for (auto& v : out4) v = static_cast<i16>(v >> 2);
        const double g0A = 409.6 * std::sqrt(sum(in4, 2) / sum(out4, 2));
        i16 gain = 0, gainA = 0;
        kvosGainControl_G729_16s_I(in.data(), out.data(), &gain);
        kvosGainControl_G729A_16s_I(in.data(), outA.data(), &gainA);
        EXPECT_NEAR(out[0], g0, 1 + 0.002 * g0);
        EXPECT_NEAR(outA[0], g0A, 2 + 0.004 * g0A);
    }
}

// Silent reference: g0 = 0, the gain decays by the smoothing on every sample (rounded in the
// main body, truncated in annex A).  Silent output (annex A: |x| < 4): gain 0, vector kept.
TEST(GainControl, SilentVectors) {
    const Vec zero(40, 0), ref = tone(5000, 0, 0.1), tiny(40, 3);
    Vec out = ref, outA = ref;
    i16 gain = 16384, gainA = 4096;
    kvosGainControl_G729_16s_I(zero.data(), out.data(), &gain);
    kvosGainControl_G729A_16s_I(zero.data(), outA.data(), &gainA);
    int32_t g = 16384, ga = 4096;
    for (int n = 0; n < 40; ++n) {
        g = (g * 32358 + 16384) >> 15, ga = (ga * 29491) >> 15;
        EXPECT_EQ(out[n], (g * ref[n] + 8192) >> 14) << n;
        EXPECT_EQ(outA[n], (ga * ref[n]) >> 12) << n;
    }
    EXPECT_TRUE(gain == g && gainA == ga);
    Vec z = zero, t = tiny;
    gain = gainA = 12345;
    kvosGainControl_G729_16s_I(ref.data(), z.data(), &gain);
    kvosGainControl_G729A_16s_I(ref.data(), t.data(), &gainA);
    EXPECT_TRUE(gain == 0 && gainA == 0 && z == zero && t == tiny);
}

// Full scale: outputs held at the rails.  Annex A outputs are sat16((x g) >> 12): a sample of
// 4096 shows g1 = 0.9 * 32767 + g0, two rail samples follow, then 100 g4 >> 12.  A quiet
// output whose level asks for more than 8 holds the root at 32767: g0 = 3275, g1 = 32765.
TEST(GainControl, SaturatesAtFullScale) {
    Vec in(40), out(40);
    for (int n = 0; n < 40; ++n) in[n] = n % 2 ? 32767 : -32768, out[n] = n % 2 ? 20000 : -20000;
    i16 gain = 32767;
    kvosGainControl_G729_16s_I(in.data(), out.data(), &gain);
    for (int n = 0; n < 40; ++n) EXPECT_EQ(out[n], n % 2 ? 32767 : -32768) << n;

    Vec oa(40, 0), q(40, 0);
    oa[0] = q[0] = 4096, oa[1] = 32767, oa[2] = -32768, oa[3] = 100;
    gain = 32767;
    kvosGainControl_G729A_16s_I(in.data(), oa.data(), &gain);
    const int g1 = oa[0], g0 = g1 - (32767 * 29491 >> 15);
    int g = g1;
    for (int k = 2; k <= 4; ++k) g = (g * 29491 >> 15) + g0;
    EXPECT_TRUE(g0 > 0 && oa[1] == 32767 && oa[2] == -32768);
    EXPECT_EQ(oa[3], (100 * g) >> 12);
    gain = 32767;
    kvosGainControl_G729A_16s_I(in.data(), q.data(), &gain);
    EXPECT_EQ(q[0], 32765);
}
