// G.723.1 open-loop pitch and harmonic search: periodic signals give their
// period (not a multiple) and the full harmonic gain, silence the defaults,
// and a noisy periodic signal the gain of its normalised cross-correlation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "exc_model.h"
#include "kvosc.h"

using namespace g723test;

namespace {

std::vector<int16_t> periodic(int p, int len, std::mt19937& rng) {
    std::vector<int16_t> shape = random16(rng, p, 300);
    shape[0] = 3000;
    shape[1] = -2000;
    std::vector<int16_t> v(len);
    for (int i = 0; i < len; ++i) v[i] = shape[i % p];
    return v;
}

TEST(G723OpenLoop, PeriodAndSilence) {
    std::mt19937 rng(1);
    int16_t lag = 0;
    for (int p : {18, 25, 37, 50, 61, 99, 142}) {
        const auto v = periodic(p, 262, rng);
        ASSERT_EQ(kvosOpenLoopPitchSearch_G723_16s(v.data() + 142, &lag), kvoOk);
        EXPECT_EQ(lag, p);
    }
    // No positive correlation (only the last 18 samples non-zero): lag 18.
    std::vector<int16_t> v(262, 0);
    for (int i = 244; i < 262; ++i) v[i] = int16_t((i * 37) % 2001 - 1000);
    ASSERT_EQ(kvosOpenLoopPitchSearch_G723_16s(v.data() + 142, &lag), kvoOk);
    EXPECT_EQ(lag, 18);
}

TEST(G723Harmonic, SilenceAndPeriodicSignals) {
    std::mt19937 rng(2);
    std::vector<int16_t> v(210, 0);
    for (int i = 0; i < 150; ++i) v[i] = int16_t(i * 100 % 3001 - 1500);
    int16_t lag = 0, gain = -1;
    ASSERT_EQ(kvosHarmonicSearch_G723_16s(60, v.data() + 150, &lag, &gain), kvoOk);
    EXPECT_EQ(lag, 60);
    EXPECT_EQ(gain, 0);
    for (int p : {20, 45, 77, 120})
        for (int off : {-3, -1, 0, 2, 3}) {
            if (p + off < 18) continue;
            const auto w = periodic(p, 210, rng);
            ASSERT_EQ(kvosHarmonicSearch_G723_16s(int16_t(p + off), w.data() + 150, &lag, &gain),
                      kvoOk);
            EXPECT_EQ(lag, p) << p << " " << off;
            EXPECT_EQ(gain, 10240) << p << " " << off;
        }
}

// Periodic signal plus noise: the gain follows 10240 c/e (c the cross, e
// the lag energy) where c^2 clears 3/8 of the target energy times e, else 0.
TEST(G723Harmonic, PartialGainFollowsCorrelation) {
    std::mt19937 rng(3);
    std::normal_distribution<double> noise(0, 1);
    int partial = 0, zero = 0;
    for (int trial = 0; trial < 60; ++trial) {
        const int p = 30 + trial;
        const auto base = periodic(p, 210, rng);
        std::vector<int16_t> w(210);
        for (int i = 0; i < 210; ++i)
            w[i] = clamp16(std::lround(base[i] + (100 + 40.0 * trial) * noise(rng)));
        int16_t lag = 0, gain = -1;
        ASSERT_EQ(kvosHarmonicSearch_G723_16s(int16_t(p), w.data() + 150, &lag, &gain), kvoOk);
        const int16_t* x = w.data() + 150;
        double c = 0, e = 0, t = 0;
        for (int i = 0; i < 60; ++i)
            c += double(x[i]) * x[i - lag], e += double(x[i - lag]) * x[i - lag],
                t += double(x[i]) * x[i];
        const double ratio = c * c / (0.375 * t * e);
        if (ratio < 0.98) {
            EXPECT_EQ(gain, 0) << trial;
            ++zero;
        }
        if (ratio < 1.02) continue;  // too close to the threshold for rounding
        EXPECT_NEAR(gain, c >= e ? 10240 : 10240 * c / e, 23) << trial;
        partial += gain > 0 && gain < 10240;
    }
    EXPECT_GT(partial, 5);
    EXPECT_GT(zero, 5);
}

}  // namespace
