// G.723.1 open-loop pitch and harmonic search: periodic signals (the period,
// not a multiple, and the full harmonic gain), signals without correlation,
// and the open-loop choice against a double-precision normalised correlation.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "exc_model.h"
#include "kvosc.h"
#include "support/signals.h"

using namespace g723test;

namespace {

// 142 + 120 samples of a pulse-like periodic waveform of period p.
std::vector<int16_t> periodic(int p, int len, std::mt19937& rng) {
    std::vector<int16_t> shape = random16(rng, p, 300);
    shape[0] = 3000;
    shape[1] = -2000;
    std::vector<int16_t> v(len);
    for (int i = 0; i < len; ++i) v[i] = shape[i % p];
    return v;
}

TEST(G723OpenLoop, PeriodicSignalGivesItsPeriod) {
    std::mt19937 rng(1);
    for (int p : {18, 25, 37, 50, 61, 80, 99, 142}) {
        SCOPED_TRACE(p);
        const auto v = periodic(p, 262, rng);
        int16_t lag = 0;
        ASSERT_EQ(kvosOpenLoopPitchSearch_G723_16s(v.data() + 142, &lag), kvoOk);
        EXPECT_EQ(lag, p);
    }
}

TEST(G723OpenLoop, NoPositiveCorrelationGives18) {
    std::vector<int16_t> v(262, 0);
    int16_t lag = 0;
    ASSERT_EQ(kvosOpenLoopPitchSearch_G723_16s(v.data() + 142, &lag), kvoOk);
    EXPECT_EQ(lag, 18);
    // Only the last 18 samples non-zero: every lagged product is 0.
    for (int i = 244; i < 262; ++i) v[i] = int16_t((i * 37) % 2001 - 1000);
    ASSERT_EQ(kvosOpenLoopPitchSearch_G723_16s(v.data() + 142, &lag), kvoOk);
    EXPECT_EQ(lag, 18);
}

// The chosen lag's normalised correlation C^2/E is close to the best of all
// lags: an earlier lag may only be kept against a strictly better later one
// within 18 lags, or one less than 4/3 better beyond.
TEST(G723OpenLoop, ChoiceNearBestNormalisedCorrelation) {
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE(seed);
        const auto s = kvosc::test::speech_like(262 + 240 * (seed % 3), seed, 2500, 8000);
        const int16_t* x = s.data() + s.size() - 120;
        int16_t lag = 0;
        ASSERT_EQ(kvosOpenLoopPitchSearch_G723_16s(x, &lag), kvoOk);
        ASSERT_GE(lag, 18);
        ASSERT_LE(lag, 142);
        auto score = [&](int L) {
            double c = 0, e = 0;
            for (int i = 0; i < 120; ++i) {
                c += double(x[i]) * x[i - L];
                e += double(x[i - L]) * x[i - L];
            }
            return c > 0 && e > 0 ? c * c / e : 0.0;
        };
        double best = 0;
        for (int L = 18; L <= 142; ++L) best = std::max(best, score(L));
        EXPECT_GE(score(lag), 0.74 * best) << "lag " << lag;
    }
}

TEST(G723Harmonic, SilenceAndPeriodicSignals) {
    std::mt19937 rng(2);
    // Silent target: the open-loop lag and no gain.
    std::vector<int16_t> v(60 + 150, 0);
    for (int i = 0; i < 150; ++i) v[i] = int16_t(i * 100 % 3001 - 1500);
    int16_t lag = 0, gain = -1;
    ASSERT_EQ(kvosHarmonicSearch_G723_16s(60, v.data() + 150, &lag, &gain), kvoOk);
    EXPECT_EQ(lag, 60);
    EXPECT_EQ(gain, 0);
    // An exactly periodic signal: its period within +-3, full gain.
    for (int p : {20, 45, 77, 120}) {
        for (int off : {-3, -1, 0, 2, 3}) {
            SCOPED_TRACE(p * 10 + off);
            if (p + off < 18) continue;
            const auto w = periodic(p, 150 + 60, rng);
            ASSERT_EQ(kvosHarmonicSearch_G723_16s(int16_t(p + off), w.data() + 150, &lag, &gain),
                      kvoOk);
            EXPECT_EQ(lag, p);
            EXPECT_EQ(gain, 10240);
        }
    }
}

// Gain below full: a periodic signal plus independent noise, so that the
// normalised cross is about 1/(1 + noise power ratio); the gain stays
// 10240 x that ratio within rounding, or 0 under the 3/8 energy test.
TEST(G723Harmonic, PartialGainFollowsCorrelation) {
    std::mt19937 rng(3);
    std::normal_distribution<double> noise(0, 1);
    int partial = 0;
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        const int p = 30 + trial;
        const auto base = periodic(p, 210, rng);
        const double sigma = 100 + 40.0 * trial;
        std::vector<int16_t> w(210);
        for (int i = 0; i < 210; ++i) w[i] = clamp16(std::lround(base[i] + sigma * noise(rng)));
        int16_t lag = 0, gain = -1;
        ASSERT_EQ(kvosHarmonicSearch_G723_16s(int16_t(p), w.data() + 150, &lag, &gain), kvoOk);
        ASSERT_GE(lag, p - 3);
        ASSERT_LE(lag, p + 3);
        ASSERT_GE(gain, 0);
        ASSERT_LE(gain, 10240);
        const int16_t* x = w.data() + 150;
        double c = 0, e = 0, t = 0;
        for (int i = 0; i < 60; ++i) {
            c += double(x[i]) * x[i - lag];
            e += double(x[i - lag]) * x[i - lag];
            t += double(x[i]) * x[i];
        }
        if (c <= 0 || c * c < 0.375 * t * e * 0.98) {
            EXPECT_EQ(gain, c * c < 0.375 * t * e * 0.98 ? 0 : gain);
            continue;
        }
        if (c * c < 0.375 * t * e * 1.02) continue;  // too close to the threshold
        const double expect = c >= e ? 10240 : 10240 * c / e;
        EXPECT_NEAR(gain, expect, 10240 * 0.002 + 2);
        partial += gain > 0 && gain < 10240;
    }
    EXPECT_GT(partial, 5);
}

}  // namespace
