// G.169 level control: behaviour on generated talkers and noise, measured in
// numbers, and the argument checks.
//
// Levels are measured the way the device estimates them: a second, fresh
// level control runs over the signal and its talker level (the root of the
// mean square over the talker's active blocks, times its crest factor) is
// read from its record; it does not depend on that instance's gain.
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

// Voiced talker: harmonics of a gliding pitch under a syllable envelope
// (4 syllables a second) with a pause of about 0.3 s every 3 s, scaled by k.
std::vector<Kvo16s> talker(double secs, double k, unsigned seed = 1) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const int n = static_cast<int>(secs * 8000);
    std::vector<Kvo16s> x(n);
    double ph = 0.0;
    for (int t = 0; t < n; ++t) {
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

// Runs the device over x in 10 ms calls; the gain after every block.
std::vector<Kvo16s> run(KvoALCState& s, const std::vector<Kvo16s>& x, std::vector<double>* gains) {
    std::vector<Kvo16s> y(x.size());
    for (size_t i = 0; i + 8 <= x.size(); i += 8) {
        EXPECT_EQ(kvosALC_G169_16s(&x[i], &y[i], 8, &s), kvoOk);
        if (gains) gains->push_back(s.gain);
    }
    return y;
}

// The device's own level estimate of a signal.
double level(const std::vector<Kvo16s>& x) {
    KvoALCState m = fresh();
    run(m, x, nullptr);
    return m.speechLevel;
}

// A talker scaled to a level offset (dB) from the target, as the device measures.
std::vector<Kvo16s> talkerAt(double offsetDb, double secs) {
    const double unit = level(talker(secs, 1000.0));
    return talker(secs, 1000.0 * kTarget / unit * std::pow(10.0, offsetDb / 20.0));
}

// A steady talker 8 dB below the target ends within 2 dB of it.  Time the
// rates imply: the talker level settles with the power average, whose rate
// falls as r - r^2 from 0.1 to its floor 1/300 (about 300 active blocks,
// 0.3 s of speech); the gain target climbs from -30 dB by 1 % of
// target / peak level per block (about 0.016 a block, so about 150 blocks to
// the 2.5 needed), and in the first talkspurt only in blocks where the
// envelope stands above three times its slow follower: about half of the
// syllable.  So within 1 s of speech the gain has reached its final value
// within 2 dB, and stays there.
TEST(ALCBehaviour, SteadyTalkerEightDbBelowTargetEndsWithinTwoDb) {
    const std::vector<Kvo16s> x = talkerAt(-8.0, 20.0);
    EXPECT_NEAR(db(level(x) / kTarget), -8.0, 0.3);
    KvoALCState s = fresh();
    std::vector<double> g;
    const std::vector<Kvo16s> y = run(s, x, &g);
    const double out = db(level(y) / kTarget);
    EXPECT_NEAR(out, 0.0, 2.0);
    const double finalDb = db(g.back());
    EXPECT_NEAR(finalDb, 8.0, 2.0);
    for (size_t b = 1000; b < g.size(); ++b) ASSERT_NEAR(db(g[b]), finalDb, 2.0) << "block " << b;
    double firstWithin = -1.0;
    for (size_t b = 0; b < g.size() && firstWithin < 0; ++b)
        if (std::fabs(db(g[b]) - finalDb) < 2.0) firstWithin = b / 1000.0;
    EXPECT_GT(firstWithin, 0.01);  // the first 10 active blocks hold the start gain
    EXPECT_LT(firstWithin, 0.6);
    RecordProperty("seconds_to_within_2dB", std::to_string(firstWithin));
    RecordProperty("output_level_dB_re_target", std::to_string(out));
}

// A talker 20 dB below is raised by the maximum gain and no more.
TEST(ALCBehaviour, TalkerTwentyDbBelowGetsTheFullMaximumGainOnly) {
    const std::vector<Kvo16s> x = talkerAt(-20.0, 12.0);
    KvoALCState s = fresh();
    std::vector<double> g;
    const std::vector<Kvo16s> y = run(s, x, &g);
    const double maxGain = std::pow(10.0, kMaxGainDb / 20.0);
    EXPECT_LE(*std::max_element(g.begin(), g.end()), maxGain * (1 + 1e-6));
    EXPECT_NEAR(db(g.back()), kMaxGainDb, 0.01);
    EXPECT_NEAR(db(level(y) / level(x)), kMaxGainDb, 0.3);
    EXPECT_NEAR(db(level(y) / kTarget), -20.0 + kMaxGainDb, 0.5);
    RecordProperty("output_level_dB_re_target", std::to_string(db(level(y) / kTarget)));
}

// A talker above the target is never raised: it is brought down toward it.
TEST(ALCBehaviour, TalkerAboveTargetIsNotRaised) {
    const std::vector<Kvo16s> x = talkerAt(6.0, 12.0);
    KvoALCState s = fresh();
    std::vector<double> g;
    const std::vector<Kvo16s> y = run(s, x, &g);
    EXPECT_LE(*std::max_element(g.begin(), g.end()), 1.0);
    EXPECT_NEAR(db(level(y) / kTarget), 0.0, 2.0);
    RecordProperty("final_gain_dB", std::to_string(db(g.back())));
    RecordProperty("output_level_dB_re_target", std::to_string(db(level(y) / kTarget)));
}

// Stationary noise alone, below the noise ceiling (mean magnitude 65.38),
// starts no talkspurt and is not amplified.
TEST(ALCBehaviour, StationaryNoiseAloneIsNotAmplified) {
    for (const double sigma : {5.0, 20.0, 60.0}) {  // mean |x| 4, 16, 48
        SCOPED_TRACE(sigma);
        std::mt19937 rng(11);
        std::normal_distribution<double> gauss(0.0, sigma);
        std::vector<Kvo16s> x(80000);
        for (auto& v : x) v = static_cast<Kvo16s>(std::lround(gauss(rng)));
        KvoALCState s = fresh();
        std::vector<double> g;
        const std::vector<Kvo16s> y = run(s, x, &g);
        EXPECT_EQ(s.talkCount, 0);
        EXPECT_LE(*std::max_element(g.begin(), g.end()), 1.0);
        double ex = 0.0, ey = 0.0;
        for (size_t i = 0; i < x.size(); ++i) {
            ex += double(x[i]) * x[i];
            ey += double(y[i]) * y[i];
        }
        EXPECT_LE(ey, ex);
    }
}

// After a quiet talker has raised the gain, a loud onset is limited in its
// first block: the gain of that block is at most maxLevel / peak.
TEST(ALCBehaviour, GainFallsWithinOneBlockOnLoudOnset) {
    std::vector<Kvo16s> x = talkerAt(-20.0, 4.0);
    KvoALCState s = fresh();
    run(s, x, nullptr);
    ASSERT_NEAR(db(s.gain), kMaxGainDb, 0.01);
    const size_t onset = x.size();
    for (int t = 0; t < 800; ++t)
        x.push_back(static_cast<Kvo16s>(20000.0 * std::sin(2 * M_PI * 440.0 * t / 8000.0)));
    std::vector<Kvo16s> y(8);
    int peak = 0;
    for (int i = 0; i < 8; ++i) peak = std::max(peak, std::abs(int(x[onset + i])));
    ASSERT_EQ(kvosALC_G169_16s(&x[onset], y.data(), 8, &s), kvoOk);
    EXPECT_LE(s.gain, 32767.0 / peak);
    for (int i = 0; i < 8; ++i) {
        EXPECT_LE(std::abs(int(y[i])), 32767);
        EXPECT_EQ(y[i], static_cast<Kvo16s>(static_cast<float>(x[onset + i]) * s.gain));
    }
}

// No output sample exceeds the ceiling, whatever the input and gains.
TEST(ALCBehaviour, NoOutputSampleExceedsMaxLevel) {
    std::mt19937 rng(12);
    for (const float maxDb : {0.0f, 3.0f, 12.0f}) {
        SCOPED_TRACE(maxDb);
        KvoALCState s = fresh();
        ASSERT_EQ(kvosALCSetLevel_G169_16s(&s, 26.1f, maxDb), kvoOk);
        const double ceiling = 32768.0 / std::pow(10.0, maxDb / 20.0);
        EXPECT_NEAR(s.maxLevel, ceiling, 0.01);
        std::vector<Kvo16s> x = talkerAt(-20.0, 3.0);  // gain at its maximum
        for (int burst = 0; burst < 50; ++burst) {
            const int amp = 1 + static_cast<int>(rng() % 32768);
            for (int t = 0; t < 400; ++t)
                x.push_back(static_cast<Kvo16s>(static_cast<int>(rng() % (2 * amp + 1)) - amp));
            for (int t = 0; t < 400; ++t)
                x.push_back(static_cast<Kvo16s>((t & 1) ? -32768 : 32767));
        }
        const std::vector<Kvo16s> y = run(s, x, nullptr);
        for (size_t i = 0; i < y.size(); ++i) ASSERT_LE(std::abs(int(y[i])), ceiling) << i;
    }
}

// ---- record and calls -------------------------------------------------------

TEST(ALCRecord, SilenceClicksBlocksAndInPlace) {
    // Silence from Init: no talkspurt, the gain goes to the start target, zeros out.
    KvoALCState s = fresh();
    std::vector<Kvo16s> zeros(800, 0), y(800, 7);
    ASSERT_EQ(kvosALC_G169_16s(zeros.data(), y.data(), 800, &s), kvoOk);
    EXPECT_EQ(s.talking, 0);
    EXPECT_FLOAT_EQ(s.gain, 0.03125f);
    EXPECT_EQ(std::count(y.begin(), y.end(), 0), 800);

    // A click of three blocks starts a talkspurt that is taken back when it ends:
    // the peak envelope decays by 1 % a block to the threshold (about 630 blocks),
    // then the hang of 200 blocks runs out.
    KvoALCState c = fresh();
    std::vector<Kvo16s> click(24, 12000);
    click.resize(24 + 8 * 1200, 0);
    std::vector<Kvo16s> out(click.size());
    ASSERT_EQ(kvosALC_G169_16s(click.data(), out.data(), 24, &c), kvoOk);
    EXPECT_EQ(c.talkCount, 1);
    ASSERT_EQ(kvosALC_G169_16s(click.data() + 24, out.data() + 24, 8 * 1200, &c), kvoOk);
    EXPECT_EQ(c.talkCount, 0);
    EXPECT_EQ(c.talking, 0);
    EXPECT_FLOAT_EQ(c.gainTarget, 0.03125f);
    EXPECT_FLOAT_EQ(c.rate, 0.1f);

    // In place equals out of place; calls of 8 equal one call.
    const std::vector<Kvo16s> x = talkerAt(-5.0, 1.0);
    KvoALCState a = fresh(), b = fresh();
    std::vector<Kvo16s> io(x), sep(x.size());
    ASSERT_EQ(kvosALC_G169_16s(io.data(), io.data(), static_cast<int>(io.size()), &a), kvoOk);
    for (size_t i = 0; i < x.size(); i += 8)
        ASSERT_EQ(kvosALC_G169_16s(&x[i], &sep[i], 8, &b), kvoOk);
    EXPECT_EQ(io, sep);
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
}

TEST(ALCArgs, ChecksInOrderAndWritesNothingOnFailure) {
    Kvo32s size = 0;
    EXPECT_EQ(kvosALCGetStateSize_G169_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosALCGetStateSize_G169_16s(&size), kvoOk);
    EXPECT_EQ(size, 124);
    EXPECT_EQ(sizeof(KvoALCState), 124u);
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
    EXPECT_EQ(kvosALC_G169_16s(nullptr, y, 8, &s), kvoErrNullPtr);
    EXPECT_EQ(kvosALC_G169_16s(x, nullptr, 8, &s), kvoErrNullPtr);
    EXPECT_EQ(kvosALC_G169_16s(x, y, 8, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosALC_G169_16s(nullptr, y, 0, &s), kvoErrNullPtr);
    for (const int len : {0, -8, 4, 12, 15})
        EXPECT_EQ(kvosALC_G169_16s(x, y, len, &s), kvoErrRange) << len;
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
    EXPECT_EQ(std::count(y, y + 16, 5), 16);

    // Settings: dB below full scale, gain in dB; the running values stay.
    EXPECT_EQ(kvosALCSetLevel_G169_16s(&s, 20.0f, 6.0f), kvoOk);
    EXPECT_NEAR(s.targetLevel, 3276.8, 0.01);
    EXPECT_NEAR(s.maxLevel, 32768.0 / std::pow(10.0, 0.3), 0.01);
    EXPECT_EQ(kvosALCSetGain_G169_16s(&s, 0.0f), kvoOk);
    EXPECT_FLOAT_EQ(s.maxGain, 1.0f);
    EXPECT_FLOAT_EQ(s.gainTarget, before.gainTarget);
    EXPECT_FLOAT_EQ(s.noiseEnv, before.noiseEnv);

    // With a maximum gain of 0 dB the gain never exceeds 1.
    const std::vector<Kvo16s> q = talkerAt(-15.0, 3.0);
    KvoALCState u = fresh();
    ASSERT_EQ(kvosALCSetGain_G169_16s(&u, 0.0f), kvoOk);
    std::vector<double> g;
    run(u, q, &g);
    EXPECT_LE(*std::max_element(g.begin(), g.end()), 1.0);
    EXPECT_FLOAT_EQ(static_cast<float>(g.back()), 1.0f);
}

}  // namespace
