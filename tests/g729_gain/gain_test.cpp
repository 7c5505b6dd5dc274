// G.729 gain quantisation edges the vector sets do not reach (they prove both rates bit for
// bit): the index maps with stray high bits, erased frames, taming, and the argument checks.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "g729/gain_tables.h"
#include "g729/pitch.h"
#include "g729_gain/gain_test_tables.h"
#include "g729_pitch/signals.h"
#include "kvosc.h"
#include "support/badargs.h"

namespace {

using gsig::Vec;
using kvo::tab::gbk1;
using kvo::tab::gbk1_6k;
using kvo::tab::gbk2;
using kvo::tab::gbk2_6k;

// One subframe: target = gp y1 + gc y2 / 8192 plus noise, y2 the Q12 filter applied to the Q13
// pulses (a code gain g, Q1 value 2g, adds g y2 / 8192 to the target).
struct Subframe {
    Vec x, y1, code, y2;
};

Subframe make(std::mt19937& rng, double gp, double gc) {
    Subframe s;
    s.code.assign(40, 0);
    for (int k = 0; k < 4; ++k)  // one pulse per track
        s.code[k + 5 * (rng() % 8)] = static_cast<Kvo16s>((rng() & 1) ? 8192 : -8192);
    Vec h = gsig::impulse(rng);
    s.y2.resize(40);
    kvo::pitch::convolveQ12(s.code.data(), h.data(), s.y2.data(), 40);
    s.y1 = gsig::harmonic(40, 20 + rng() % 100, 3000, rng());
    std::normal_distribution<double> nd(0, 1);
    s.x.resize(40);
    for (int n = 0; n < 40; ++n)
        s.x[n] = gsig::clip(gp * s.y1[n] + gc * s.y2[n] / 8192.0 + 150 * nd(rng));
    return s;
}

// Every raw pair decodes, through the published maps, to that pair's pitch gain; only the
// low 3 and 4 bits of the coded indices count.
TEST(G729Gain, IndexMapsRoundTrip) {
    for (int r1 = 0; r1 < 8; ++r1)
        for (int r2 = 0; r2 < 16; ++r2) {
            Kvo16s past[4] = {}, p2[4] = {}, p6[4] = {}, q[2], q2[2], q6[2];
            const Kvo16s coded[2] = {kvo::tab::map1[r1], kvo::tab::map2[r2]};
            const Kvo16s high[2] = {static_cast<Kvo16s>(coded[0] | 0x7ff8),
                                    static_cast<Kvo16s>(coded[1] | 0x7ff0)};
            ASSERT_EQ(kvosDecodeGain_G729_16s(1 << 26, past, coded, q), kvoOk);
            ASSERT_EQ(kvosDecodeGain_G729_16s(1 << 26, p2, high, q2), kvoOk);
            EXPECT_EQ(q[0], gbk1[r1][0] + gbk2[r2][0]);
            EXPECT_TRUE(q2[0] == q[0] && q2[1] == q[1]);
            if (r2 >= 8) continue;
            const Kvo16s c6[2] = {kvo::tab::map1_6k[r1], kvo::tab::map2_6k[r2]};
            ASSERT_EQ(kvosDecodeGain_G729I_16s(1 << 26, 32767, p6, c6, q6), kvoOk);
            EXPECT_EQ(q6[0], gbk1_6k[r1][0] + gbk2_6k[r2][0]);
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
        for (int k = 0; k < 20; ++k) {
            Subframe s = make(rng, 1.2, 0);
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
    for (int annexD = 0; annexD < 2; ++annexD) {
        kvosc::test::BadArgs t(annexD ? "kvosDecodeGain_G729I_16s" : "kvosDecodeGain_G729_16s");
        auto en = t.value<Kvo32s>("energy", 1 << 28);
        auto past = t.inout<Kvo16s>("pSrcDstEnergyErr", 4, {-14336, -14336, -14336, -14336});
        auto idx = t.in<Kvo16s>("pIdx", 2, {3, 7});
        auto q = t.inout<Kvo16s>("pSrcDstQGain", 2, {8000, 100});
        t.optional(idx);  // null: an erased frame
        t.run([&](const kvosc::test::BadArgs::Call& k) {
            return annexD ? kvosDecodeGain_G729I_16s(k(en), 29491, k(past), k(idx), k(q))
                          : kvosDecodeGain_G729_16s(k(en), k(past), k(idx), k(q));
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
