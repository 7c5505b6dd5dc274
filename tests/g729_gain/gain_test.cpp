// G.729 gain quantisation: the 8 kbit/s encoder against the basic-operator model over runs of
// subframes (gains, indices and the predictor memory), both encoders against the best pair of
// the whole codebook in double precision, the decoders against the encoders through the
// published index maps, erased frames, and the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "g729/gain_tables.h"
#include "g729/pitch.h"
#include "g729_gain/gain_test_tables.h"
#include "g729_pitch/g729_model.h"
#include "g729_pitch/signals.h"
#include "kvosc.h"
#include "numeric/arith.h"
#include "support/badargs.h"

namespace {

using gsig::Vec;
using kvo::tab::gbk1;
using kvo::tab::gbk1_6k;
using kvo::tab::gbk2;
using kvo::tab::gbk2_6k;

// One subframe of encoder data built from chosen true gains: target = gp y1 + gc y2 / 8192 plus
// some noise, y2 the filtered fixed vector (the Q12 filter applied to the Q13 pulses): a code
// gain of g (Q1 value 2g) adds g y2 / 8192 to the target.
struct Subframe {
    Vec x, y1, code, y2;
    double gp, gc;
};

Subframe make(std::mt19937& rng, int level) {
    Subframe s;
    s.code.assign(40, 0);
    for (int k = 0; k < 4; ++k)  // one pulse per track k, k + 5, k + 10, ...
        s.code[k + 5 * (rng() % 8)] = static_cast<Kvo16s>((rng() & 1) ? 8192 : -8192);
    Vec h = gsig::impulse(rng);
    s.y2.resize(40);
    kvo::pitch::convolveQ12(s.code.data(), h.data(), s.y2.data(), 40);
    static const int amps[] = {30, 300, 3000, 12000};
    s.y1 = gsig::harmonic(40, 20 + rng() % 100, amps[level % 4], rng());
    std::uniform_real_distribution<double> up(0.0, 1.2), uc(0.0, 1.0);
    s.gp = up(rng);
    s.gc = uc(rng) * amps[level % 4] / 400.0 * (level == 5 ? 40 : 1);
    std::normal_distribution<double> nd(0, 1);
    s.x.resize(40);
    for (int n = 0; n < 40; ++n)
        s.x[n] =
            gsig::clip(s.gp * s.y1[n] + s.gc * s.y2[n] / 8192.0 + 0.05 * amps[level % 4] * nd(rng));
    return s;
}

double residual(const Subframe& s, double gp, double gc) {
    double e = 0;
    for (int n = 0; n < 40; ++n) {
        const double r = s.x[n] - gp * s.y1[n] - gc * s.y2[n] / 8192.0;
        e += r * r;
    }
    return e;
}

TEST(G729Gain, EncoderMatchesReferenceModelOverARun) {
    std::mt19937 rng(2024);
    Kvo16s past[4] = {-14336, -14336, -14336, -14336};
    Kvo16s mpast[4] = {-14336, -14336, -14336, -14336};
    for (int frame = 0; frame < 600; ++frame) {
        SCOPED_TRACE(frame);
        Subframe s = make(rng, frame % 6);
        if (frame % 37 == 0) s.x = gsig::anyLevel(40, rng);  // unrelated or full-scale target
        if (frame % 41 == 0) s.y1 = gsig::anyLevel(40, rng);
        const Kvo16s tame = static_cast<Kvo16s>(frame % 5 == 0);
        Kvo16s q[2], idx[2];
        ASSERT_EQ(kvosGainQuant_G729_16s(s.x.data(), s.y1.data(), s.code.data(), s.y2.data(), past,
                                         q, idx, tame),
                  kvoOk);
        Kvo16s co[4], g[5], e[5];
        gmodel::G_pitch(s.x.data(), s.y1.data(), co, 40);
        if (co[2] <= 0) co[3] = -15;
        g[0] = co[0];
        e[0] = static_cast<Kvo16s>(-co[1]);
        g[1] = static_cast<Kvo16s>(co[2] == -32768 ? 32767 : -co[2]);
        e[1] = static_cast<Kvo16s>(-(co[3] + 1));
        gmodel::Corr_xy2(s.x.data(), s.y1.data(), s.y2.data(), g, e);
        Kvo16s mq0, mq1;
        int i1, i2;
        gmodel::Qua_gain(s.code.data(), g, e, &mq0, &mq1, tame, mpast, &i1, &i2);
        ASSERT_EQ(idx[0], i1);
        ASSERT_EQ(idx[1], i2);
        ASSERT_EQ(q[0], mq0);
        ASSERT_EQ(q[1], mq1);
        for (int k = 0; k < 4; ++k) ASSERT_EQ(past[k], mpast[k]);
        if (tame) EXPECT_LT(q[0], 16383);
    }
}

// Both rates: the chosen pair is nearly as good as the best of the whole codebook, and the
// decoder, given the coded indices through the published maps, returns the encoder's gains and
// keeps the same predictor memory over 100 subframes.
TEST(G729Gain, QuantisedGainsAreNearOptimalAndDecodeToTheSame) {
    for (int rate = 0; rate < 2; ++rate) {
        SCOPED_TRACE(rate ? "6.4 kbit/s" : "8 kbit/s");
        std::mt19937 rng(7 + rate);
        Kvo16s encPast[4] = {-14336, -14336, -14336, -14336};
        Kvo16s decPast[4] = {-14336, -14336, -14336, -14336};
        double worst = 0, sumRatio = 0, gcTrack = 4.0;
        for (int frame = 0; frame < 100; ++frame) {
            SCOPED_TRACE(frame);
            // One level for the whole run, so the moving-average predictor can follow the code
            // gain (a jump of 40 dB between subframes is outside the codebook's range).
            Subframe s = make(rng, 2);
            // A slowly varying code gain, as in speech: the predictor follows it.
            gcTrack *= std::exp(std::uniform_real_distribution<double>(-0.35, 0.35)(rng));
            gcTrack = std::min(std::max(gcTrack, 0.5), 20.0);
            s.gc = gcTrack;
            s.gp = std::uniform_real_distribution<double>(0.2, 1.0)(rng);
            std::normal_distribution<double> nd(0, 1);
            for (int n = 0; n < 40; ++n)
                s.x[n] = gsig::clip(s.gp * s.y1[n] + s.gc * s.y2[n] / 8192.0 + 150 * nd(rng));
            Kvo32s energy = 0;
            for (int n = 0; n < 40; ++n) energy += Kvo32s{s.code[n]} * s.code[n];
            // Predicted code gain of this subframe: gcode0 2^-exp.
            Kvo16s gcode0, gexp;
            kvo::ownGainPredict(encPast, energy, &gcode0, &gexp);
            const double gpred = std::ldexp(gcode0, -gexp);
            Kvo16s q[2], idx[2];
            const KvoStatus st =
                rate ? kvosGainQuant_G729D_16s(s.x.data(), s.y1.data(), s.code.data(), s.y2.data(),
                                               encPast, q, idx, 0)
                     : kvosGainQuant_G729_16s(s.x.data(), s.y1.data(), s.code.data(), s.y2.data(),
                                              encPast, q, idx, 0);
            ASSERT_EQ(st, kvoOk);

            // Decode through the coded indices.
            Kvo16s coded[2], dq[2] = {0, 0};
            if (rate) {
                coded[0] = kvo::tab::map1_6k[idx[0]];
                coded[1] = kvo::tab::map2_6k[idx[1]];
                ASSERT_EQ(kvosDecodeGain_G729I_16s(energy, 32767, decPast, coded, dq), kvoOk);
            } else {
                coded[0] = kvo::tab::map1[idx[0]];
                coded[1] = kvo::tab::map2[idx[1]];
                ASSERT_EQ(kvosDecodeGain_G729_16s(energy, decPast, coded, dq), kvoOk);
            }
            EXPECT_EQ(dq[0], q[0]);
            EXPECT_EQ(dq[1], q[1]);
            for (int k = 0; k < 4; ++k) ASSERT_EQ(decPast[k], encPast[k]);

            // Quality against the best pair of the whole codebook, in double precision.
            const auto& g1 = rate ? gbk1_6k : gbk1;
            const auto& g2 = rate ? gbk2_6k : gbk2;
            const int n1 = 8, n2 = rate ? 8 : 16;
            const double cbScale = rate ? 16384.0 : 8192.0;
            const double cbChosen = (g1[idx[0]][1] + g2[idx[1]][1]) / cbScale;
            EXPECT_NEAR(q[1] / 2.0, cbChosen * gpred, 0.5 + 0.01 * cbChosen * gpred);
            double best = 1e300;
            for (int i = 0; i < n1; ++i)
                for (int j = 0; j < n2; ++j) {
                    const double gp = (g1[i][0] + g2[j][0]) / 16384.0;
                    const double gc = gpred * (g1[i][1] + g2[j][1]) / cbScale;
                    best = std::min(best, residual(s, gp, gc));
                }
            // Excess error of the chosen pair over the full search, relative to the target.
            const double got = residual(s, q[0] / 16384.0, q[1] / 2.0);
            const double excess = (got - best) / (residual(s, 0, 0) + 1);
            worst = std::max(worst, excess);
            sumRatio += excess;
        }
        EXPECT_LT(sumRatio / 100, 0.01);      // on average within 1% of the target energy
        EXPECT_LT(worst, rate ? 0.25 : 0.1);  // the 6.4 kbit/s codebook has 64 pairs, not 128
    }
}

// Every raw pair decodes, through the published maps, to that pair's gains.
TEST(G729Gain, IndexMapsRoundTrip) {
    for (int r1 = 0; r1 < 8; ++r1)
        for (int r2 = 0; r2 < 16; ++r2) {
            Kvo16s past[4] = {0, 0, 0, 0}, q[2];
            const Kvo16s coded[2] = {kvo::tab::map1[r1], kvo::tab::map2[r2]};
            ASSERT_EQ(kvosDecodeGain_G729_16s(1 << 26, past, coded, q), kvoOk);
            EXPECT_EQ(q[0], gbk1[r1][0] + gbk2[r2][0]);
            // Only the low 3 and 4 bits of the coded indices count.
            const Kvo16s high[2] = {static_cast<Kvo16s>(coded[0] | 0x7ff8),
                                    static_cast<Kvo16s>(coded[1] | 0x7ff0)};
            Kvo16s past2[4] = {0, 0, 0, 0}, q2[2];
            ASSERT_EQ(kvosDecodeGain_G729_16s(1 << 26, past2, high, q2), kvoOk);
            EXPECT_EQ(q2[0], q[0]);
            EXPECT_EQ(q2[1], q[1]);
            if (r2 >= 8) continue;
            Kvo16s p6[4] = {0, 0, 0, 0}, q6[2];
            const Kvo16s c6[2] = {kvo::tab::map1_6k[r1], kvo::tab::map2_6k[r2]};
            ASSERT_EQ(kvosDecodeGain_G729I_16s(1 << 26, 32767, p6, c6, q6), kvoOk);
            EXPECT_EQ(q6[0], gbk1_6k[r1][0] + gbk2_6k[r2][0]);
        }
}

// Worked values: the new predictor entry is 20 log10 of the code-part sum (Q13 or, at 6.4 kbit/s,
// half the Q14 sum) in Q10, and the code gain is that factor times the predicted gain.
TEST(G729Gain, PredictorEntryIsTheDecibelsOfTheCodebookFactor) {
    for (int c1 = 0; c1 < 8; ++c1)
        for (int c2 = 0; c2 < 8; ++c2) {
            Kvo16s past[4] = {-14336, -14336, -14336, -14336}, q[2];
            const Kvo16s coded[2] = {static_cast<Kvo16s>(c1), static_cast<Kvo16s>(c2)};
            ASSERT_EQ(kvosDecodeGain_G729_16s(4 * 8192 * 8192, past, coded, q), kvoOk);
            const int i1 = [&] {
                for (int r = 0; r < 8; ++r)
                    if (kvo::tab::map1[r] == c1) return r;
                return -1;
            }();
            const int i2 = [&] {
                for (int r = 0; r < 16; ++r)
                    if (kvo::tab::map2[r] == c2) return r;
                return -1;
            }();
            const double f = (gbk1[i1][1] + gbk2[i2][1]) / 8192.0;
            EXPECT_NEAR(past[0] / 1024.0, 20 * std::log10(f), 0.02) << c1 << " " << c2;
            for (int k = 1; k < 4; ++k) EXPECT_EQ(past[k], -14336);

            Kvo16s p6[4] = {-14336, -14336, -14336, -14336}, q6[2];
            ASSERT_EQ(kvosDecodeGain_G729I_16s(4 * 8192 * 8192, 32767, p6, coded, q6), kvoOk);
            const int j1 = [&] {
                for (int r = 0; r < 8; ++r)
                    if (kvo::tab::map1_6k[r] == c1) return r;
                return -1;
            }();
            const int j2 = [&] {
                for (int r = 0; r < 8; ++r)
                    if (kvo::tab::map2_6k[r] == c2) return r;
                return -1;
            }();
            const double f6 = (gbk1_6k[j1][1] + gbk2_6k[j2][1]) / 16384.0;
            // (A zero factor, stage rows (5849, 0) and (3988, 0), has no logarithm: the entry is
            // then the fixed value of the zero input.)
            if (f6 > 0) EXPECT_NEAR(p6[0] / 1024.0, 20 * std::log10(f6), 0.02) << c1 << " " << c2;
            // Same predicted gain at both rates: the code gains are in the ratio of the factors.
            if (f > 0.3 && f6 > 0.3) EXPECT_NEAR(q6[1] / f6, q[1] / f, 0.01 * q[1] / f + 2);
        }
}

// Erased frames: gains decay by 0.9 and 0.98 (8 kbit/s) or by the given attenuation, and the
// predictor takes the mean of its memory less 4 dB, never below -14 dB.
TEST(G729Gain, ErasedFramesDecay) {
    Kvo16s past[4] = {2048, 1024, -1024, 4096};
    Kvo16s q[2] = {16384, 10000};
    ASSERT_EQ(kvosDecodeGain_G729_16s(0, past, nullptr, q), kvoOk);
    EXPECT_EQ(q[0], (16384 * 29491) >> 15);
    EXPECT_EQ(q[1], (10000 * 32111) >> 15);
    EXPECT_EQ(past[0], (2048 + 1024 - 1024 + 4096) / 4 - 4096);
    EXPECT_EQ(past[1], 2048);
    EXPECT_EQ(past[3], -1024);
    for (int k = 0; k < 30; ++k) ASSERT_EQ(kvosDecodeGain_G729_16s(0, past, nullptr, q), kvoOk);
    for (Kvo16s p : past) EXPECT_EQ(p, -14336);  // the floor
    EXPECT_LT(q[0], 16384 * std::pow(0.9, 30) + 2);
    EXPECT_GT(q[0], 16384 * std::pow(0.9, 31) - 31);

    Kvo16s p6[4] = {0, 0, 0, 0}, q6[2] = {12000, 3000};
    ASSERT_EQ(kvosDecodeGain_G729I_16s(0, 16384, p6, nullptr, q6), kvoOk);
    EXPECT_EQ(q6[0], 6000);
    EXPECT_EQ(q6[1], 1500);
    EXPECT_EQ(p6[0], -4096);
}

// tameFlag 1 never picks a pitch gain of 16383 or more, even for a target that wants 1.2.
TEST(G729Gain, TamingLimitsThePitchGain) {
    std::mt19937 rng(12);
    for (int rate = 0; rate < 2; ++rate)
        for (int k = 0; k < 50; ++k) {
            Subframe s = make(rng, 2);
            for (int n = 0; n < 40; ++n) s.x[n] = gsig::clip(1.2 * s.y1[n]);
            Kvo16s past[4] = {-14336, -14336, -14336, -14336}, q[2], idx[2];
            ASSERT_EQ(rate ? kvosGainQuant_G729D_16s(s.x.data(), s.y1.data(), s.code.data(),
                                                     s.y2.data(), past, q, idx, 1)
                           : kvosGainQuant_G729_16s(s.x.data(), s.y1.data(), s.code.data(),
                                                    s.y2.data(), past, q, idx, 1),
                      kvoOk);
            EXPECT_LT(q[0], 16383);
        }
}

TEST(G729Gain, ArgumentChecks) {
    for (int rate = 0; rate < 2; ++rate) {
        kvosc::test::BadArgs t(rate ? "kvosGainQuant_G729D_16s" : "kvosGainQuant_G729_16s");
        auto x = t.in<Kvo16s>("pSrcAdptTarget", 40);
        auto y1 = t.in<Kvo16s>("pSrcFltAdptVector", 40);
        auto c = t.in<Kvo16s>("pSrcFixedVector", 40);
        auto y2 = t.in<Kvo16s>("pSrcFltFixedVector", 40);
        auto past = t.inout<Kvo16s>("pSrcDstEnergyErr", 4, {-14336, -14336, -14336, -14336});
        auto q = t.out<Kvo16s>("pDstQGain", 2);
        auto idx = t.out<Kvo16s>("pDstQGainIndex", 2);
        auto tame = t.value<Kvo16s>("tameFlag", 1, {{2, kvoErrRange}, {-1, kvoErrRange}});
        t.run([&](const kvosc::test::BadArgs::Call& k) {
            return rate ? kvosGainQuant_G729D_16s(k(x), k(y1), k(c), k(y2), k(past), k(q), k(idx),
                                                  k(tame))
                        : kvosGainQuant_G729_16s(k(x), k(y1), k(c), k(y2), k(past), k(q), k(idx),
                                                 k(tame));
        });
    }
    {
        kvosc::test::BadArgs t("kvosDecodeGain_G729_16s");
        auto en = t.value<Kvo32s>("energy", 1 << 28);
        auto past = t.inout<Kvo16s>("pSrcDstEnergyErr", 4, {-14336, -14336, -14336, -14336});
        auto idx = t.in<Kvo16s>("pIdx", 2, {3, 9});
        auto q = t.inout<Kvo16s>("pSrcDstQGain", 2, {8000, 100});
        t.optional(idx);
        t.run([&](const kvosc::test::BadArgs::Call& k) {
            return kvosDecodeGain_G729_16s(k(en), k(past), k(idx), k(q));
        });
    }
    {
        kvosc::test::BadArgs t("kvosDecodeGain_G729I_16s");
        auto en = t.value<Kvo32s>("energy", 1 << 28);
        auto att = t.value<Kvo16s>("gainAttenuation", 29491);
        auto past = t.inout<Kvo16s>("pSrcDstEnergyErr", 4, {-14336, -14336, -14336, -14336});
        auto idx = t.in<Kvo16s>("pIdx", 2, {3, 7});
        auto q = t.inout<Kvo16s>("pSrcDstQGain", 2, {8000, 100});
        t.optional(idx);
        t.run([&](const kvosc::test::BadArgs::Call& k) {
            return kvosDecodeGain_G729I_16s(k(en), k(att), k(past), k(idx), k(q));
        });
    }
    // 6.4 kbit/s indices outside 0 .. 7 are refused and nothing is written.
    for (const auto& bad : {std::pair{8, 0}, {0, 8}, {-1, 0}, {0, -1}}) {
        Kvo16s past[4] = {1, 2, 3, 4}, q[2] = {5, 6};
        const Kvo16s idx[2] = {static_cast<Kvo16s>(bad.first), static_cast<Kvo16s>(bad.second)};
        EXPECT_EQ(kvosDecodeGain_G729I_16s(1 << 28, 32767, past, idx, q), kvoErrOutOfRange);
        EXPECT_EQ(past[0], 1);
        EXPECT_EQ(q[0], 5);
    }
    // A null fixed vector is reported before a bad tameFlag.
    Kvo16s v[40] = {}, past[4] = {}, q[2], idx[2];
    EXPECT_EQ(kvosGainQuant_G729_16s(v, v, nullptr, v, past, q, idx, 2), kvoErrNullPtr);
}

}  // namespace
