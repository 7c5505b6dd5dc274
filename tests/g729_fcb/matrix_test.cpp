// Correlation matrix of the G.729 codebook searches against a direct int64
// computation of every element on the scaled impulse response, and against
// worked values.
#include <gtest/gtest.h>

#include <cstring>

#include "fcb_model.h"
#include "g729/fcb.h"
#include "kvosc.h"

using namespace fcbmodel;

namespace {

// Random, resonant, tiny and full-scale impulse responses: every branch of
// the scaling (normalised, halved, energy below 32768).
std::vector<Vec> impulses() {
    std::mt19937 g(7291);
    std::vector<Vec> v;
    for (int k = 0; k < 40; ++k) v.push_back(impulse(g));
    std::uniform_int_distribution<int> small(-40, 40), mid(-6000, 6000), full(-32768, 32767);
    for (int k = 0; k < 10; ++k) {
        Vec a{}, b{}, c{};
        for (int i = 0; i < L; ++i) {
            a[i] = static_cast<int16_t>(small(g));
            b[i] = static_cast<int16_t>(mid(g) >> (i / 8));
            c[i] = static_cast<int16_t>(full(g) >> (i / 4));
        }
        v.push_back(a);
        v.push_back(b);
        v.push_back(c);
    }
    Vec one{};
    one[0] = 1;
    v.push_back(one);
    v.push_back(Vec{});
    return v;
}

TEST(G729FcbMatrix, EveryElementIsTheCorrelationOfTheScaledImpulse) {
    int n = 0;
    for (const Vec& h : impulses()) {
        SCOPED_TRACE(n++);
        const auto hs = scaleG729(h.data());
        std::vector<Kvo32s> m32(616);
        std::vector<Kvo16s> m16(616);
        ASSERT_EQ(kvosToeplizMatrix_G729_16s32s(h.data(), m32.data()), kvoOk);
        ASSERT_EQ(kvosToeplizMatrix_G729_16s(h.data(), m16.data()), kvoOk);
        int checked = 0;
        for (int a = 0; a < L; ++a)
            for (int b = 0; b < L; ++b) {
                const int off = offsetG729(a, b);
                if (off < 0 || (a != b && a % 5 > b % 5)) continue;
                const i64 ref = corr(hs, a, b);
                ASSERT_EQ(m32[off], ref) << a << "," << b;
                ASSERT_EQ(m16[off], s16(ref >> 15)) << a << "," << b;
                ++checked;
            }
        ASSERT_EQ(checked, 616);
    }
}

TEST(G729FcbMatrix, WorkedValues) {
    // A unit pulse of 4096 (Q12): energy 2^24, normalised by 2 bits to 16384,
    // so every diagonal element is 2^28 (8192 at the 16-bit scale) and every
    // off-diagonal element 0.
    Vec h{};
    h[0] = 4096;
    std::vector<Kvo32s> m(616);
    std::vector<Kvo16s> m16(616);
    kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
    kvosToeplizMatrix_G729_16s(h.data(), m16.data());
    for (int k = 0; k < 616; ++k) {
        EXPECT_EQ(m[k], k < 40 ? (1 << 28) : 0) << k;
        EXPECT_EQ(m16[k], k < 40 ? 8192 : 0) << k;
    }
    // Two taps 4096, 2048: energy 5 * 2^22; norm of its double is 5, so the
    // taps become 16384, 8192.  M(p,p) = 2^28 + (p < 39 ? 2^26 : 0); the
    // neighbours (p, p+1) correlate by 16384 * 8192 = 2^27.
    h[1] = 2048;
    kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
    EXPECT_EQ(m[0], (1 << 28) + (1 << 26));       // M(0,0)
    EXPECT_EQ(m[7 + 32], 1 << 28);                // M(39,39)
    EXPECT_EQ(m[40], 1 << 27);                    // M(0,1), block (0,1) row 0 col 0
    EXPECT_EQ(m[40 + 64 * 3 + 8 * 1], 1 << 27);   // M(5,4), block (0,4) row 1 col 0
    EXPECT_EQ(m[40 + 64 * 3 + 8 * 0 + 0], 0);     // M(0,4)
}

TEST(G729FcbMatrix, EnergyBelowOneWordIsStillNormalised) {
    // Energy 1 (a single 1): the doubled energy 2 has norm 29, so h is shifted
    // left by 14 and M(p,p) = 2^28 as for a full-scale pulse.
    Vec h{};
    h[0] = -1;
    std::vector<Kvo32s> m(616);
    kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
    EXPECT_EQ(m[0], 1 << 28);
    // A zero response gives a zero matrix.
    Vec z{};
    kvosToeplizMatrix_G729_16s32s(z.data(), m.data());
    for (int k = 0; k < 616; ++k) ASSERT_EQ(m[k], 0);
}

TEST(G729FcbMatrix, ExtremeEnergySaturatesLikeTheDoubledRunningSums) {
    // All taps -32768: halved to -16384; the doubled running sums of 2^28
    // per term saturate from the fourth term on.  A 16-bit element is the
    // saturated doubled sum >> 16; the 32-bit one that sum >> 1.
    Vec h;
    h.fill(-32768);
    std::vector<Kvo32s> m(616);
    std::vector<Kvo16s> m16(616);
    kvosToeplizMatrix_G729_16s32s(h.data(), m.data());
    kvosToeplizMatrix_G729_16s(h.data(), m16.data());
    for (int a = 0; a < L; ++a)
        for (int b = a; b < L; ++b) {
            const int off = offsetG729(a, b);
            if (off < 0 || (a != b && a % 5 > b % 5)) continue;
            i64 c = 0;
            for (int n = b; n < L; ++n) c = s32(c + 2 * i64{-16384} * -16384);
            EXPECT_EQ(m[off], c >> 1);
            EXPECT_EQ(m16[off], c >> 16);
        }
    EXPECT_EQ(m16[0], 32767);
    EXPECT_EQ(m16[7 + 32], 8192);  // M(39,39): one term, 2^28 >> 15
}

TEST(G729FcbMatrix, AnnexDLayout) {
    std::mt19937 g(64);
    const int pairs[8][2] = {{0, 1}, {1, 1}, {0, 3}, {3, 4}, {1, 2}, {1, 3}, {1, 4}, {2, 3}};
    for (int r = 0; r < 20; ++r) {
        const Vec h = impulse(g);
        const auto hs = scaleG729(h.data());
        std::vector<Kvo32s> m(616, 0x5a5a5a5a);
        kvo::kvosToeplizMatrix_G729D_16s32s_(h.data(), m.data());
        for (int p = 0; p < L; ++p) ASSERT_EQ(m[8 * (p % 5) + p / 5], corr(hs, p, p));
        for (int k = 0; k < 8; ++k)
            for (int i = 0; i < 8; ++i)
                for (int j = 0; j < 8; ++j)
                    ASSERT_EQ(m[40 + 64 * k + 8 * i + j],
                              corr(hs, pairs[k][0] + 5 * i, pairs[k][1] + 5 * j));
        for (int k = 552; k < 616; ++k) ASSERT_EQ(m[k], 0x5a5a5a5a);
    }
}

}  // namespace
