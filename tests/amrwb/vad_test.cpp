// AMR-WB voice activity detector: band energies of tones land in the band that holds them,
// decisions on generated speech with pauses (clean and in noise), and the quiet-frame rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kvosc.h"
#include "support/signals.h"

namespace {

struct Vad {
    KvoVADState_AMRWB st;
    Kvo16s tone = 0;
    Vad() { kvosVADInit_AMRWB_16s(&st); }
    int run(const Kvo16s* frame) {
        Kvo16s flag = -1;
        EXPECT_EQ(kvosVAD_AMRWB_16s(frame, &st, &tone, &flag), kvoOk);
        return flag;
    }
};

TEST(AmrwbVad, TonesFillTheirBand) {
    // Band edges at 12.8 kHz: four of 200 Hz, four of 400 Hz, three of 800 Hz, 4.8-6.4 kHz.
    const std::pair<double, int> tones[] = {{100, 0}, {1800, 6}, {3600, 9}, {5600, 11}};
    for (auto [f, band] : tones) {
        Vad v;
        std::vector<Kvo16s> x(256);
        Kvo16s e[12];
        for (int frame = 0; frame < 4; ++frame) {
            for (int n = 0; n < 256; ++n)
                x[n] =
                    static_cast<Kvo16s>(8000 * std::sin(2 * M_PI * f * (256 * frame + n) / 12800));
            v.run(x.data());
        }
        ASSERT_EQ(kvosVADGetEnergyLevel_AMRWB_16s(&v.st, e), kvoOk);
        EXPECT_EQ(std::max_element(e, e + 12) - e, band) << f << " Hz";
    }
}

TEST(AmrwbVad, SpeechWithPausesCleanAndInNoise) {
    // 2 s of speech-like signal, 2 s pause, 2 s speech, at 12.8 kHz, 256-sample frames.
    const int frames = 300, len = 256 * frames;
    const auto talk = kvosc::test::speech_like(len, 5, 12000, 12800);
    for (double noiseRms : {0.0, 100.0}) {
        std::mt19937 g(9);
        std::normal_distribution<double> nd(0.0, 1.0);
        std::vector<Kvo16s> x(len);
        for (int n = 0; n < len; ++n) {
            const bool pause = n >= 100 * 256 && n < 200 * 256;
            const double s = (pause ? 0.0 : talk[n]) + noiseRms * nd(g);
            x[n] = static_cast<Kvo16s>(std::clamp(s, -32768.0, 32767.0));
        }
        Vad v;
        int speechOn = 0, speechFrames = 0, pauseOff = 0, pauseFrames = 0;
        for (int f = 0; f < frames; ++f) {
            const int flag = v.run(&x[256 * f]);
            if (f >= 20 && f < 100) speechFrames++, speechOn += flag;
            if (f >= 130 && f < 200) pauseFrames++, pauseOff += !flag;
        }
        EXPECT_GT(speechOn, speechFrames * 0.9) << "noise " << noiseRms;
        EXPECT_GT(pauseOff, pauseFrames * (noiseRms > 0 ? 0.5 : 0.7)) << "noise " << noiseRms;
    }
    // Steady noise alone (-38 dBFS): the background estimate climbs to it from its start value
    // and the detector falls silent within about three seconds.
    std::mt19937 g(4);
    std::normal_distribution<double> nd(0.0, 400.0);
    Vad v;
    std::vector<Kvo16s> x(256);
    int on = 0;
    for (int f = 0; f < 300; ++f) {
        for (auto& s : x) s = static_cast<Kvo16s>(std::clamp(nd(g), -32768.0, 32767.0));
        const int flag = v.run(x.data());
        if (f >= 200) on += flag;
    }
    EXPECT_EQ(on, 0);
}

TEST(AmrwbVad, QuietFramesAndRecord) {
    Kvo32s size = 0;
    ASSERT_EQ(kvosVADGetSize_AMRWB_16s(&size), kvoOk);
    EXPECT_EQ(size, 172);
    Vad v;
    EXPECT_EQ(v.st.speechLevel, 2050);
    v.tone = static_cast<Kvo16s>(0xF0F0);
    std::vector<Kvo16s> zero(256, 0);
    EXPECT_EQ(v.run(zero.data()), 0);
    EXPECT_EQ(v.tone, 0x10F0) << "bits 13-15 clear on a quiet frame";
    EXPECT_EQ(v.st.burstCount, 0);
    EXPECT_EQ(v.st.hangCount, 0);
    Kvo16s flag;
    EXPECT_EQ(kvosVAD_AMRWB_16s(zero.data(), &v.st, nullptr, &flag), kvoErrNullPtr);
    EXPECT_EQ(kvosVADInit_AMRWB_16s(nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosVADGetEnergyLevel_AMRWB_16s(&v.st, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosVADGetSize_AMRWB_16s(nullptr), kvoErrNullPtr);
}

}  // namespace
