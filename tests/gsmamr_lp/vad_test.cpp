// GSM AMR voice activity detectors: behaviour on generated speech with known
// pauses (clean and with white noise at 20 and 10 dB SNR), agreement of the
// two options, and the documented state transitions of option 1 and 2.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "support/signals.h"

namespace {

constexpr int kFrame = 160;

// Start values of the standard's reset of option 1.
KvoVAD1State_GSMAMR vad1Reset() {
    KvoVAD1State_GSMAMR s;
    std::memset(&s, 0, sizeof s);
    for (int i = 0; i < 9; ++i) s.bckrEst[i] = s.oldLevel[i] = s.aveLevel[i] = 150;
    s.corrHpFast = 13106;
    return s;
}

KvoVAD2State_GSMAMR vad2Reset() {
    KvoVAD2State_GSMAMR s;
    std::memset(&s, 0, sizeof s);
    return s;
}

struct Scene {
    std::vector<int16_t> pcm;
    std::vector<int> speech;    // per frame: 1 speech, 0 pause
    std::vector<int> onsetAge;  // frames since the segment began
};

// Alternating speech (1.6 s) and pauses (1.4 s), 5 cycles, starting with a
// pause; white Gaussian noise at `snrDb` against the mean speech power
// (no noise when snrDb < 0).
Scene makeScene(double snrDb, uint32_t seed) {
    const int speechFrames = 80, pauseFrames = 70, cycles = 5;
    const auto sp = kvosc::test::speech_like(cycles * speechFrames * kFrame, seed, 12000, 8000);
    double pw = 0;
    for (int16_t v : sp) pw += double(v) * v;
    pw /= sp.size();
    const double sigma = snrDb < 0 ? 0 : std::sqrt(pw / std::pow(10, snrDb / 10));
    std::mt19937 rng(seed + 7);
    std::normal_distribution<double> g(0, 1);
    Scene s;
    size_t k = 0;
    for (int c = 0; c < cycles; ++c) {
        for (int f = 0; f < pauseFrames + speechFrames; ++f) {
            const bool isSpeech = f >= pauseFrames;
            s.speech.push_back(isSpeech);
            s.onsetAge.push_back(isSpeech ? f - pauseFrames : f);
            for (int i = 0; i < kFrame; ++i) {
                double v = isSpeech ? sp[k++] : 0.0;
                v += sigma * g(rng);
                s.pcm.push_back(
                    static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0))));
            }
        }
    }
    return s;
}

struct Decisions {
    std::vector<int> v1, v2;
};

Decisions runBoth(const Scene& s) {
    KvoVAD1State_GSMAMR st1 = vad1Reset();
    KvoVAD2State_GSMAMR st2 = vad2Reset();
    const int frames = static_cast<int>(s.speech.size());
    std::vector<int16_t> buf(40, 0);
    buf.insert(buf.end(), s.pcm.begin(), s.pcm.end());
    Decisions d;
    for (int f = 0; f < frames; ++f) {
        Kvo16s flag1 = -1, flag2 = -1;
        EXPECT_EQ(kvosVAD1_GSMAMR_16s(buf.data() + f * kFrame, &st1, &flag1, 0, 0), kvoOk);
        EXPECT_EQ(kvosVAD2_GSMAMR_16s(s.pcm.data() + f * kFrame, &st2, &flag2, 0), kvoOk);
        d.v1.push_back(flag1);
        d.v2.push_back(flag2);
    }
    return d;
}

struct Figures {
    double speechMissed;  // speech frames (past the first two of an onset) marked inactive
    double pauseCaught;   // pause frames past the hangover span marked inactive
};

Figures figures(const Scene& s, const std::vector<int>& v, int hangSpan) {
    int sp = 0, miss = 0, pa = 0, caught = 0;
    for (size_t f = 0; f < v.size(); ++f) {
        if (s.speech[f]) {
            if (s.onsetAge[f] < 2) continue;
            ++sp;
            miss += v[f] == 0;
        } else {
            if (s.onsetAge[f] < hangSpan || f < 40) continue;  // hangover, start-up
            ++pa;
            caught += v[f] == 0;
        }
    }
    return {double(miss) / sp, double(caught) / pa};
}

class VadScene : public ::testing::TestWithParam<double> {};

TEST_P(VadScene, SpeechKeptPausesFoundOptionsAgree) {
    const double snr = GetParam();
    const Scene s = makeScene(snr, 1234);
    SCOPED_TRACE(::testing::Message() << "seed 1234, SNR " << snr);
    const Decisions d = runBoth(s);
    // Hangover spans: option 2 up to 30 half frames, option 1 up to 7 frames.
    const Figures f2 = figures(s, d.v2, 20);
    const Figures f1 = figures(s, d.v1, 20);
    // Agreement once the first pause has let both noise estimates settle.
    int agree = 0, settled = 0;
    for (size_t i = 70; i < d.v1.size(); ++i) ++settled, agree += d.v1[i] == d.v2[i];
    const double agreement = double(agree) / settled;
    SCOPED_TRACE(::testing::Message() << "option 1 missed " << f1.speechMissed << " caught "
                                      << f1.pauseCaught);
    EXPECT_LT(f2.speechMissed, 0.02);
    EXPECT_GE(f2.pauseCaught, 0.70);
    EXPECT_GE(agreement, 0.90);
}

INSTANTIATE_TEST_SUITE_P(CleanAndNoisy, VadScene, ::testing::Values(-1.0, 20.0, 10.0));

// Option 1, low power: the frame is inactive and the burst, hang and
// complex counters restart; the low complex register loses the bit of the
// frame before (bit 14, shifted to 13), the fast correlation its history.
TEST(Vad1, SilentFrameRestartsCounters) {
    KvoVAD1State_GSMAMR st = vad1Reset();
    st.burstCount = 3;
    st.hangCount = 2;
    st.complexHangCount = 5;
    st.complexHangTimer = 7;
    st.complexLow = 0x4000;
    st.pitchReg = 0x7fff;
    st.corrHpFast = 25000;
    std::vector<int16_t> quiet(200, 2);  // power 1280 < 15000
    Kvo16s flag = -1;
    ASSERT_EQ(kvosVAD1_GSMAMR_16s(quiet.data(), &st, &flag, 30000, 0), kvoOk);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(st.burstCount, 0);
    EXPECT_EQ(st.hangCount, 0);
    EXPECT_EQ(st.complexHangCount, 0);
    EXPECT_EQ(st.complexHangTimer, 0);
    EXPECT_EQ(st.complexLow, 0);
    EXPECT_EQ(st.pitchReg, 0x3fff);
    EXPECT_EQ(st.corrHpFast, 13106);
}

// Option 2 reads each half frame on its own: speech in the first half alone
// makes the frame active; the first half frame seeds the long-term levels.
TEST(Vad2, HalvesAndFirstHalfFrame) {
    KvoVAD2State_GSMAMR st = vad2Reset();
    std::mt19937 rng(8);
    std::normal_distribution<double> g(0, 30);
    auto noise = [&](int16_t* p, int n) {
        for (int i = 0; i < n; ++i) p[i] = static_cast<int16_t>(std::lround(g(rng)));
    };
    std::vector<int16_t> f(160);
    noise(f.data(), 160);
    Kvo16s flag = -1;
    ASSERT_EQ(kvosVAD2_GSMAMR_16s(f.data(), &st, &flag, 0), kvoOk);
    EXPECT_EQ(st.frameCount, 2);
    for (int c = 0; c < 16; ++c) EXPECT_NE(st.chEnrgLongDb[c], 0) << c;
    for (int k = 0; k < 100; ++k) {
        noise(f.data(), 160);
        ASSERT_EQ(kvosVAD2_GSMAMR_16s(f.data(), &st, &flag, 0), kvoOk);
    }
    EXPECT_EQ(flag, 0);
    const auto sp = kvosc::test::speech_like(80, 5, 12000, 8000);
    std::copy(sp.begin(), sp.end(), f.begin());
    noise(f.data() + 80, 80);
    ASSERT_EQ(kvosVAD2_GSMAMR_16s(f.data(), &st, &flag, 0), kvoOk);
    EXPECT_EQ(flag, 1);
}

}  // namespace
