// AMR-WB gain quantiser and decoder: the chosen entry against an exhaustive double evaluation
// of the weighted error over its window and the 30 dB mean-energy MA prediction, the decoder
// against the quantiser, and the bad-frame paths on worked values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "amrwb/amrwb_pitch_tables.h"
#include "kvosc.h"
#include "support/badargs.h"
#include "support/signals.h"

namespace {

using kvosc::test::BadArgs;

constexpr double kPred[4] = {4096 / 8192.0, 3277 / 8192.0, 2458 / 8192.0, 1638 / 8192.0};

struct Frame {
    std::vector<Kvo16s> x, y1, code, y2;
};

// Target, filtered adaptive vector, a code of `pulses` pulses of +-512 (64: every position) and
// its filtered form (Q9, response Q12).
Frame makeFrame(uint32_t seed, int pulses) {
    std::mt19937 g(seed);
    Frame f;
    f.x = kvosc::test::speech_like(64, seed, 5000, 12800);
    f.y1 = kvosc::test::speech_like(64, seed + 1000, 4000, 12800);
    f.code.assign(64, 0);
    for (int k = 0; k < pulses; ++k) {
        const int p = pulses == 64 ? k : static_cast<int>(g() % 64);
        f.code[p] = (g() & 1) ? 512 : -512;
    }
    std::vector<int> h(64);
    for (int i = 0; i < 64; ++i)
        h[i] = static_cast<int>(4096 * std::pow(0.75, i) * ((i & 1) ? -0.6 : 1));
    f.y2.assign(64, 0);
    for (int n = 0; n < 64; ++n) {
        long s = 0;
        for (int k = 0; k <= n; ++k) s += long{f.code[k]} * h[n - k];
        f.y2[n] = static_cast<Kvo16s>(std::max(-32768L, std::min(32767L, s >> 12)));
    }
    return f;
}

// Predicted code gain of the double model: 30 dB mean, MA prediction, minus the code energy.
double predictedGain(const Kvo16s* past, const std::vector<Kvo16s>* code) {
    double db = 30;
    for (int i = 0; i < 4; ++i) db += kPred[i] * past[i] / 1024.0;
    if (code) {
        double e = 0;
        for (Kvo16s c : *code) e += (c / 512.0) * (c / 512.0);
        db -= 10 * std::log10(e / 64);
    }
    return std::pow(10.0, db / 20);
}

// Error of the real signals: target and filtered adaptive vector carry q fraction bits.
double weightedError(const Frame& f, double gp, double gc, int q = 0) {
    double e = 0;
    const double s = std::ldexp(1.0, -q);
    for (int n = 0; n < 64; ++n) {
        const double r = s * f.x[n] - gp * s * f.y1[n] - gc * f.y2[n] / 512.0;
        e += r * r;
    }
    return e;
}

struct Quantised {
    Kvo32s index, gainCode;
    Kvo16s gainPitch;
    Kvo16s past[4];
};

// Target and filtered adaptive vector in Q(qTarget); the filtered code in Q9.
Quantised quantise(const Frame& f, KvoSpeechRate mode, Kvo16s pitchIn, const Kvo16s* past,
                   Kvo32s clip, int qTarget = 0) {
    Kvo16s coeffs[4], gp = 0;
    const std::vector<Kvo16s>&x = f.x, &y1 = f.y1;
    EXPECT_EQ(kvosAdaptiveCodebookGainCoeff_AMRWB_16s(x.data(), y1.data(), coeffs, &gp, 64), kvoOk);
    Quantised q;
    std::memcpy(q.past, past, sizeof q.past);
    q.gainPitch = pitchIn;
    EXPECT_EQ(kvosGainQuant_AMRWB_16s(x.data(), y1.data(), static_cast<Kvo32u>(qTarget),
                                      f.code.data(), f.y2.data(), coeffs, q.past, &q.gainPitch,
                                      &q.gainCode, clip, &q.index, 64, mode),
              kvoOk);
    return q;
}

// Target x = gp y1 + gc y2 / 512 + noise with gains near the table's, so that every term of
// the error matters; x and y1 go in with q = 0, 1 or 2 fraction bits.
Frame mixedFrame(uint32_t seed, int pulses, const Kvo16s* past, int q) {
    Frame f = makeFrame(seed, pulses);
    std::mt19937 g(seed * 7 + 1);
    std::uniform_real_distribution<double> u(0.2, 1.2), v(0.3, 2.5);
    std::normal_distribution<double> nz(0, 20);
    const double gp = u(g), gc = predictedGain(past, &f.code) * v(g);
    const double s = std::ldexp(1.0, q);
    for (int n = 0; n < 64; ++n) {
        const double y1 = f.y1[n] / 16.0;
        const double x = gp * y1 + gc * f.y2[n] / 512.0 + nz(g);
        f.y1[n] = static_cast<Kvo16s>(std::lround(y1 * s));
        f.x[n] = static_cast<Kvo16s>(std::lround(std::max(-32768.0, std::min(32767.0, x * s))));
    }
    return f;
}

TEST(AmrwbGain, QuantiserChoosesTheBestEntryOfItsWindow) {
    std::mt19937 g(21);
    for (KvoSpeechRate mode : {9, 13}) {
        const bool six = mode == 9;
        for (int trial = 0; trial < 150; ++trial) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << " trial " << trial);
            Kvo16s past[4];
            for (Kvo16s& p : past) p = static_cast<Kvo16s>(static_cast<int>(g() % 8000) - 6000);
            const int qx = trial % 3;
            const Frame f = mixedFrame(trial + 1, 4 + trial % 20, past, qx);
            const Kvo32s clip = trial % 5 == 0;
            const Kvo16s pitchIn = static_cast<Kvo16s>(g() % 20000);
            const Quantised q = quantise(f, mode, pitchIn, past, clip, qx);
            const Kvo16s(*tab)[2] = six ? kvo::tab::gain_sq6Tbl : kvo::tab::gain_sq7Tbl;
            int start = 0, size = six && clip ? 48 : 64;
            if (!six)
                for (int i = 0; i < (clip ? 37 : 64); ++i) start += pitchIn > tab[32 + i][0];
            ASSERT_GE(q.index, start);
            ASSERT_LT(q.index, start + size);
            const double gc0 = predictedGain(past, &f.code);
            double best = 1e300;
            for (int i = start; i < start + size; ++i)
                best = std::min(
                    best, weightedError(f, tab[i][0] / 16384.0, gc0 * tab[i][1] / 2048.0, qx));
            double ex = 0;
            for (Kvo16s v : f.x) ex += std::ldexp(double(v) * v, -2 * qx);
            const double got =
                weightedError(f, tab[q.index][0] / 16384.0, gc0 * tab[q.index][1] / 2048.0, qx);
            EXPECT_LE(got, best + 1e-3 * ex);
            EXPECT_EQ(q.gainPitch, tab[q.index][0]);
            EXPECT_NEAR(q.gainCode / 65536.0, gc0 * tab[q.index][1] / 2048.0,
                        0.01 * gc0 * tab[q.index][1] / 2048.0 + 2 / 65536.0);
            EXPECT_NEAR(q.past[0], 1024 * 20 * std::log10(tab[q.index][1] / 2048.0), 8);
            for (int i = 1; i < 4; ++i) EXPECT_EQ(q.past[i], past[i - 1]);
        }
    }
}

// A code with a pulse on every position has a unit mean square: the quantiser's prediction then
// equals the decoder's, which has no code-energy term.
TEST(AmrwbGain, DecoderRebuildsTheQuantisersGains) {
    std::mt19937 g(4);
    for (KvoSpeechRate mode : {5, 9, 13, 16, 21, 25}) {
        for (int trial = 0; trial < 40; ++trial) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << " trial " << trial);
            const Frame f = makeFrame(trial + 300, 64);
            Kvo16s past[4];
            for (Kvo16s& p : past) p = static_cast<Kvo16s>(static_cast<int>(g() % 6000) - 4000);
            const Quantised q = quantise(f, mode, 9000, past, 0);
            Kvo16s dpast[4], gp = -1, prev = 0, cg = 0;
            std::memcpy(dpast, past, sizeof dpast);
            Kvo32s gc = 0;
            ASSERT_EQ(
                kvosDecodeGain_AMRWB_16s(q.index, 4096, &gp, &gc, 0, 0, dpast, &prev, &cg, mode),
                kvoOk);
            EXPECT_EQ(gp, q.gainPitch);
            EXPECT_NEAR(gc, q.gainCode, 64);
            EXPECT_EQ(std::memcmp(dpast, q.past, sizeof dpast), 0);
            EXPECT_EQ(prev, cg);
            EXPECT_NEAR(cg, q.gainCode / 8192.0, 1);
        }
    }
}

TEST(AmrwbGain, DecoderBadFramePaths) {
    // Erased frame: decayed mean energy with its floor, the gain from the stored code gain.
    const struct {
        Kvo16s in[4];
        Kvo16s want;
    } cases[] = {{{1000, 2000, 3000, 4000}, 2500 - 3072},
                 {{-14000, -14336, -14336, -14336}, -14336},
                 {{-14336, -14336, -14336, -14336}, -14336}};
    for (const auto& c : cases) {
        Kvo16s past[4], gp = 1234, prev = 77, cg = 300;
        std::memcpy(past, c.in, sizeof past);
        Kvo32s gc = 0;
        ASSERT_EQ(kvosDecodeGain_AMRWB_16s(999, 5000, &gp, &gc, 1, 0, past, &prev, &cg, 13), kvoOk);
        EXPECT_EQ(past[0], c.want);
        EXPECT_EQ(past[1], c.in[0]);
        EXPECT_EQ(past[3], c.in[2]);
        EXPECT_EQ(gc, 2 * 5000 * 300);
        EXPECT_EQ(gp, 1234);
        EXPECT_EQ(cg, 300);
        EXPECT_EQ(prev, 77);
    }
    // After a bad frame a large good gain is held to 1.25 times the previous one, but only from
    // 100 on (6-bit entries 6 and 3: factors 15614 and 10163 give 241 and 157, entry 2 gives
    // 100.2).
    for (int index : {6, 3, 2, 1}) {
        SCOPED_TRACE(index);
        Kvo16s past[4] = {0, 0, 0, 0}, gp = 0, prev = 8, cg = 0;
        Kvo32s gc = 0;
        kvosDecodeGain_AMRWB_16s(index, 4096, &gp, &gc, 0, 1, past, &prev, &cg, 9);
        const double v = std::pow(10.0, 1.5) * kvo::tab::gain_sq6Tbl[index][1] / 2048.0;
        if (v > 100.01) {
            EXPECT_NEAR(gc / 65536.0, 1.25, 0.001);
            EXPECT_EQ(cg, 10);
        } else {
            EXPECT_NEAR(gc / 65536.0, v, 0.01 * v);
        }
    }
}

TEST(AmrwbGain, ArgumentChecks) {
    const Frame f = makeFrame(1, 8);
    Kvo16s co[4], past[4] = {-1000, -2000, 0, 500}, gp = 9000, prev = 40, cg = 40;
    Kvo32s gc = -5, idx = -5;
    kvosAdaptiveCodebookGainCoeff_AMRWB_16s(f.x.data(), f.y1.data(), co, &gp, 64);
    auto quant = [&](Kvo32s* pIdx, Kvo32s len, KvoSpeechRate mode) {
        return kvosGainQuant_AMRWB_16s(f.x.data(), f.y1.data(), 0, f.code.data(), f.y2.data(), co,
                                       past, &gp, &gc, 0, pIdx, len, mode);
    };
    EXPECT_EQ(quant(nullptr, 0, 26), kvoErrNullPtr);
    EXPECT_EQ(quant(&idx, 0, 26), kvoErrBadArg);
    for (KvoSpeechRate bad : {22, 26}) EXPECT_EQ(quant(&idx, 64, bad), kvoErrRange);
    auto dec = [&](Kvo16s* pCg, KvoSpeechRate mode) {
        return kvosDecodeGain_AMRWB_16s(20, 3000, &gp, &gc, 0, 0, past, &prev, pCg, mode);
    };
    EXPECT_EQ(dec(nullptr, 0), kvoErrNullPtr);
    for (KvoSpeechRate bad : {0, 27}) EXPECT_EQ(dec(&cg, bad), kvoErrRange);
    EXPECT_EQ(gc + idx, -10) << "nothing written on a refused call";
    EXPECT_EQ(past[0], -1000);
}

}  // namespace
