// G.169 level control: behaviour on generated talkers and noise, and the
// argument checks. Levels are measured by a second, fresh instance run over
// the signal (its talker level does not depend on the first one's gain).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

constexpr double kTarget = 1623.4912;  // -26.1 dB re 32768
constexpr double kMaxGainDb = 11.6;

double db(double v) {
    return 20.0 * std::log10(v);
}

// Voiced talker: harmonics of a gliding pitch under a syllable envelope with a
// pause of about 0.3 s every 3 s, scaled by k.
std::vector<Kvo16s> talker(double secs, double k) {
    std::mt19937 rng(1);
    std::normal_distribution<double> gauss(0.0, 1.0);
    std::vector<Kvo16s> x(static_cast<int>(secs * 8000));
    double ph = 0.0;
    for (size_t t = 0; t < x.size(); ++t) {
        ph += 2 * M_PI * (120.0 + 30.0 * std::sin(2 * M_PI * t / 8000.0 / 1.7)) / 8000.0;
        double s = 0.0;
        for (int h = 1; h < 20; ++h) s += std::sin(h * ph) / h;
        double env = std::sqrt(std::fabs(std::sin(2 * M_PI * t / 8000.0 * 2.0)));
        if (std::sin(2 * M_PI * t / 8000.0 / 3.0) < -0.6) env = 0.0;
        x[t] = static_cast<Kvo16s>(
            std::lround(std::clamp(k * (s * env + 0.002 * gauss(rng)), -32768.0, 32767.0)));
    }
    return x;
}

KvoALCState fresh() {
    KvoALCState s;
    EXPECT_EQ(kvosALCInit_G169_16s(&s), kvoOk);
    return s;
}

// Runs the device over x in 1 ms calls; the gain after every block.
std::vector<Kvo16s> run(KvoALCState& s, const std::vector<Kvo16s>& x, std::vector<double>* g) {
    std::vector<Kvo16s> y(x.size());
    for (size_t i = 0; i + 8 <= x.size(); i += 8) {
        EXPECT_EQ(kvosALC_G169_16s(&x[i], &y[i], 8, &s), kvoOk);
        if (g) g->push_back(s.gain);
    }
    return y;
}

double level(const std::vector<Kvo16s>& x) {
    KvoALCState m = fresh();
    run(m, x, nullptr);
    return m.speechLevel;
}

std::vector<Kvo16s> talkerAt(double offsetDb, double secs) {
    const double unit = level(talker(secs, 1000.0));
    return talker(secs, 1000.0 * kTarget / unit * std::pow(10.0, offsetDb / 20.0));
}

// Talkers below, well below and above the target: the output level, the final
// gain and the gain ceiling. At -8 dB the gain settles within 2 dB of its final
// value within 0.6 s (rates: power average to 1/300, gain target +1 % a block).
TEST(ALCBehaviour, TalkersAreBroughtToTheTargetWithinTheGainLimits) {
    const struct {
        double offset, secs, outDb, outTol, maxGainDb;
    } rows[] = {{-8.0, 20.0, 0.0, 2.0, kMaxGainDb},
                {-20.0, 12.0, -20.0 + kMaxGainDb, 0.5, kMaxGainDb},
                {6.0, 12.0, 0.0, 2.0, 0.0}};
    for (const auto& r : rows) {
        SCOPED_TRACE(r.offset);
        const std::vector<Kvo16s> x = talkerAt(r.offset, r.secs);
        KvoALCState s = fresh();
        std::vector<double> g;
        const std::vector<Kvo16s> y = run(s, x, &g);
        EXPECT_NEAR(db(level(y) / kTarget), r.outDb, r.outTol);
        EXPECT_LE(db(*std::max_element(g.begin(), g.end())), r.maxGainDb + 1e-5);
        if (r.offset == -20.0) {
            EXPECT_NEAR(db(g.back()), kMaxGainDb, 0.01);
        }
        if (r.offset != -8.0) continue;
        const double fin = db(g.back());
        EXPECT_NEAR(fin, 8.0, 2.0);
        const auto settled = std::find_if(g.begin(), g.end(),
                                          [&](double v) { return std::fabs(db(v) - fin) < 2.0; });
        EXPECT_LT(settled - g.begin(), 600);  // within 0.6 s
        for (size_t b = 1000; b < g.size(); ++b) ASSERT_NEAR(db(g[b]), fin, 2.0) << b;
    }
}

// Stationary noise below the noise ceiling starts no talkspurt and is not amplified.
TEST(ALCBehaviour, StationaryNoiseAloneIsNotAmplified) {
    for (const double sigma : {5.0, 60.0}) {
        SCOPED_TRACE(sigma);
        std::mt19937 rng(11);
        std::normal_distribution<double> gauss(0.0, sigma);
        std::vector<Kvo16s> x(80000);
        for (auto& v : x) v = static_cast<Kvo16s>(std::lround(gauss(rng)));
        KvoALCState s = fresh();
        std::vector<double> g;
        run(s, x, &g);
        EXPECT_EQ(s.talkCount, 0);
        EXPECT_LE(*std::max_element(g.begin(), g.end()), 1.0);
    }
}

// At maximum gain, loud bursts and full-scale squares never pass the ceiling,
// and the output is the input times the block's gain, truncated.
TEST(ALCBehaviour, NoOutputSampleExceedsMaxLevel) {
    std::mt19937 rng(12);
    for (const float maxDb : {0.0f, 12.0f}) {
        SCOPED_TRACE(maxDb);
        KvoALCState s = fresh();
        ASSERT_EQ(kvosALCSetLevel_G169_16s(&s, 26.1f, maxDb), kvoOk);
        const double ceiling = 32768.0 / std::pow(10.0, maxDb / 20.0);
        EXPECT_NEAR(s.maxLevel, ceiling, 0.01);
        std::vector<Kvo16s> x = talkerAt(-20.0, 3.0);
        for (int burst = 0; burst < 30; ++burst) {
            const int amp = 1 + static_cast<int>(rng() % 32768);
            for (int t = 0; t < 400; ++t)
                x.push_back(static_cast<Kvo16s>(static_cast<int>(rng() % (2 * amp + 1)) - amp));
            for (int t = 0; t < 400; ++t) x.push_back((t & 1) ? -32768 : 32767);
        }
        std::vector<Kvo16s> y(x.size());
        for (size_t i = 0; i < x.size(); i += 8) {
            ASSERT_EQ(kvosALC_G169_16s(&x[i], &y[i], 8, &s), kvoOk);
            for (size_t k = i; k < i + 8; ++k) {
                ASSERT_LE(std::abs(int(y[k])), ceiling) << k;
                ASSERT_EQ(y[k], static_cast<Kvo16s>(static_cast<float>(x[k]) * s.gain)) << k;
            }
        }
    }
}

TEST(ALCRecord, SilenceClickAndInPlace) {
    KvoALCState s = fresh();
    std::vector<Kvo16s> zeros(800, 0), y(800, 7);
    ASSERT_EQ(kvosALC_G169_16s(zeros.data(), y.data(), 800, &s), kvoOk);
    EXPECT_TRUE(s.talking == 0 && s.gain == 0.03125f && std::count(y.begin(), y.end(), 0) == 800);
    // a three-block click starts a talkspurt that is taken back after the peak
    // envelope decays (about 630 blocks) and the hang (200 blocks) runs out
    KvoALCState c = fresh();
    std::vector<Kvo16s> click(24, 12000);
    click.resize(24 + 8 * 1200, 0);
    std::vector<Kvo16s> out(click.size());
    ASSERT_EQ(kvosALC_G169_16s(click.data(), out.data(), 24, &c), kvoOk);
    EXPECT_EQ(c.talkCount, 1);
    ASSERT_EQ(kvosALC_G169_16s(click.data() + 24, out.data() + 24, 8 * 1200, &c), kvoOk);
    EXPECT_EQ(c.talkCount, 0);
    EXPECT_TRUE(c.gainTarget == 0.03125f && c.rate == 0.1f);
    // in place in one call equals out of place in calls of 8
    const std::vector<Kvo16s> x = talkerAt(-5.0, 1.0);
    KvoALCState a = fresh(), b = fresh();
    std::vector<Kvo16s> io(x);
    ASSERT_EQ(kvosALC_G169_16s(io.data(), io.data(), static_cast<int>(io.size()), &a), kvoOk);
    EXPECT_EQ(io, run(b, x, nullptr));
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

TEST(ALCArgs, ChecksInOrderAndWritesNothingOnFailure) {
    Kvo32s size = 0;
    EXPECT_EQ(kvosALCGetStateSize_G169_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosALCGetStateSize_G169_16s(&size), kvoOk);
    EXPECT_EQ(size, 124);
    EXPECT_EQ(kvosALCInit_G169_16s(nullptr), kvoErrNullPtr);
    KvoALCState s = fresh();
    const KvoALCState before = s;
    EXPECT_EQ(kvosALCSetLevel_G169_16s(nullptr, 10.0f, 0.0f), kvoErrNullPtr);
    EXPECT_EQ(kvosALCSetLevel_G169_16s(&s, -0.5f, 0.0f), kvoErrRange);
    EXPECT_EQ(kvosALCSetLevel_G169_16s(&s, 10.0f, -1.0f), kvoErrRange);
    EXPECT_EQ(kvosALCSetGain_G169_16s(nullptr, 6.0f), kvoErrNullPtr);
    EXPECT_EQ(kvosALCSetGain_G169_16s(&s, -6.0f), kvoErrRange);
    Kvo16s x[16] = {1000, -1000, 1000, -1000, 1000, -1000, 1000, -1000};
    Kvo16s y[16] = {5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5};
    for (int k = 0; k < 3; ++k)  // nulls before the length
        EXPECT_EQ(kvosALC_G169_16s(k == 0 ? nullptr : x, k == 1 ? nullptr : y, 0,
                                   k == 2 ? nullptr : &s),
                  kvoErrNullPtr);
    for (const int len : {0, -8, 4, 15}) EXPECT_EQ(kvosALC_G169_16s(x, y, len, &s), kvoErrRange);
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
    EXPECT_EQ(std::count(y, y + 16, 5), 16);
    // settings in dB below full scale and dB of gain; the running values stay
    EXPECT_EQ(kvosALCSetLevel_G169_16s(&s, 20.0f, 6.0f), kvoOk);
    EXPECT_NEAR(s.targetLevel, 3276.8, 0.01);
    EXPECT_NEAR(s.maxLevel, 32768.0 / std::pow(10.0, 0.3), 0.01);
    EXPECT_EQ(kvosALCSetGain_G169_16s(&s, 0.0f), kvoOk);
    EXPECT_FLOAT_EQ(s.maxGain, 1.0f);
    EXPECT_FLOAT_EQ(s.gainTarget, before.gainTarget);
}

}  // namespace
