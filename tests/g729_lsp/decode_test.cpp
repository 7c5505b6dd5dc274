// G.729 LSF decoders (main body, G.729.1, annex B) and the erased-frame
// update, against the wide-integer model built from the table rows and the
// predictor coefficients; the stability pass, its warnings and the gap pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "g729/lsp.h"
#include "kvosc.h"
#include "lsp_model.h"

using namespace kvo::tab;

namespace {

struct IndexSet {
    Kvo16s p, first, low, high;
};

// The three rows an index set addresses, for the main tables or annex B.
void rowsMain(const IndexSet& s, const Kvo16s** r1, const Kvo16s** lo, const Kvo16s** hi) {
    *r1 = LSPCode1[s.first];
    *lo = LSPCode2[s.low];
    *hi = LSPCode2[s.high];
}
void rowsB(const IndexSet& s, const Kvo16s** r1, const Kvo16s** lo, const Kvo16s** hi) {
    *r1 = LSPCode1[PtrTab_1[s.first]];
    *lo = LSPCode2[PtrTab_2[0][s.low]];
    *hi = LSPCode2[PtrTab_2[1][s.low]];
}

KvoStatus statusOf(int flags) {
    static const KvoStatus st[4] = {kvoOk, kvoWarnLsfLow, kvoWarnLsfHigh, kvoWarnLsfLowAndHigh};
    return st[flags];
}

// Checks the guarantees of the stability pass on a decoded vector.
void expectStable(const Kvo16s* q, KvoStatus st) {
    EXPECT_GE(q[0], 40);
    EXPECT_LE(q[9], 25681);
    for (int j = 0; j < 8; ++j) EXPECT_GE(q[j + 1] - q[j], 321) << "pair " << j;
    if (st != kvoWarnLsfHigh && st != kvoWarnLsfLowAndHigh) {
        EXPECT_GE(q[9] - q[8], 321);
    }
}

}  // namespace

// Every decoder against the model over 100 frames, with one history each:
// first worked index sets (the corners of the tables), then random ones.
// Outputs, statuses and histories must agree, and every output must meet the
// ordering and spacing limits.
TEST(LsfDecode, ModelOverHundredFrames) {
    const unsigned seed = 729;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    const IndexSet fixedMain[] = {{0, 5, 3, 7}, {1, 100, 20, 31}, {0, 127, 31, 0}, {1, 0, 0, 0}};
    const IndexSet fixedB[] = {{0, 0, 0, 0}, {1, 31, 15, 0}, {0, 17, 9, 0}, {1, 1, 1, 0}};
    Kvo16s hA[40], hG[40], hB[40], mA[40], mB[40];
    for (Kvo16s* h : {hA, hG, hB, mA, mB}) lspmodel::resetHistory(h);
    for (int f = 0; f < 100; ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        const IndexSet s =
            f < 4 ? fixedMain[f]
                  : IndexSet{static_cast<Kvo16s>(rng() & 1), static_cast<Kvo16s>(rng() & 127),
                             static_cast<Kvo16s>(rng() & 31), static_cast<Kvo16s>(rng() & 31)};
        const Kvo16s *r1, *lo, *hi;
        rowsMain(s, &r1, &lo, &hi);
        int y[10];
        lspmodel::codeVector(r1, lo, hi, y);
        Kvo16s want[10], q[10], q2[10];
        const int flags = lspmodel::decodeFrame(y, fg[s.p], fg_sum[s.p], mA, want);
        const Kvo16s idx[4] = {s.p, s.first, s.low, s.high};
        const KvoStatus st = kvosLSFDecode_G729_16s(idx, hA, q);
        ASSERT_EQ(st, statusOf(flags));
        ASSERT_EQ(0, std::memcmp(q, want, sizeof q));
        ASSERT_EQ(0, std::memcmp(hA, mA, sizeof hA));
        ASSERT_EQ(kvosLSFDecode_G7291_16s(idx, hG, q2), st);
        ASSERT_EQ(0, std::memcmp(q2, q, sizeof q));
        expectStable(q, st);

        // Annex B: the first index goes through PtrTab_1, the second through
        // both lines of PtrTab_2.
        const IndexSet b =
            f < 4 ? fixedB[f]
                  : IndexSet{static_cast<Kvo16s>(rng() & 1), static_cast<Kvo16s>(rng() & 31),
                             static_cast<Kvo16s>(rng() & 15), 0};
        rowsB(b, &r1, &lo, &hi);
        lspmodel::codeVector(r1, lo, hi, y, true);
        const int bflags = lspmodel::decodeFrame(y, noise_fg[b.p], noise_fg_sum[b.p], mB, want);
        const Kvo16s bidx[3] = {b.p, b.first, b.low};
        const KvoStatus bst = kvosLSFDecode_G729B_16s(bidx, hB, q);
        ASSERT_EQ(bst, statusOf(bflags));
        ASSERT_EQ(0, std::memcmp(q, want, sizeof q));
        ASSERT_EQ(0, std::memcmp(hB, mB, sizeof hB));
        expectStable(q, bst);
    }
}

// Histories that push the prediction below 40 or above 25681: each limit sets
// its own warning, in every decoder, and the history keeps the code vector
// (it never sees the stability pass).
TEST(LsfDecode, StabilityWarnings) {
    struct Case {
        Kvo16s first, last;
        KvoStatus want;
    };
    const Case cases[] = {{2339, 23396, kvoOk},
                          {-3000, 21000, kvoWarnLsfLow},
                          {2339, 32000, kvoWarnLsfHigh},
                          {-3000, 32000, kvoWarnLsfLowAndHigh}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.first) + " .. " + std::to_string(c.last));
        Kvo16s base[40];
        lspmodel::resetHistory(base);
        for (int k = 0; k < 4; ++k) {
            base[10 * k] = c.first;
            base[10 * k + 9] = c.last;
        }
        const Kvo16s idx[4] = {0, 10, 4, 9};
        const Kvo16s bidx[3] = {0, 3, 2};
        Kvo16s h[40], q[10];
        std::memcpy(h, base, sizeof h);
        const KvoStatus st = kvosLSFDecode_G729_16s(idx, h, q);
        EXPECT_EQ(st, c.want);
        expectStable(q, st);
        if (st == kvoWarnLsfLow || st == kvoWarnLsfLowAndHigh) {
            EXPECT_EQ(q[0], 40);
        }
        if (st == kvoWarnLsfHigh || st == kvoWarnLsfLowAndHigh) {
            EXPECT_EQ(q[9], 25681);
        }
        int y[10];
        lspmodel::codeVector(LSPCode1[10], LSPCode2[4], LSPCode2[9], y);
        for (int j = 0; j < 10; ++j) EXPECT_EQ(h[j], y[j]);
        EXPECT_EQ(0, std::memcmp(h + 10, base, 30 * sizeof(Kvo16s)));

        std::memcpy(h, base, sizeof h);
        EXPECT_EQ(kvosLSFDecode_G7291_16s(idx, h, q), c.want);
        std::memcpy(h, base, sizeof h);
        EXPECT_EQ(kvosLSFDecode_G729B_16s(bidx, h, q), c.want);
    }
}

// The stability pass: one ordering sweep only, then the limits and spacing.
TEST(LsfDecode, StabilityPassIsOneSweep) {
    // 3000 sits two places too late: one sweep moves it one place only, and
    // the spacing pass then pushes the rest up.
    Kvo16s v[10] = {1000, 2000, 4000, 5000, 3000, 8000, 10000, 12000, 14000, 16000};
    EXPECT_EQ(kvo::ownLspStability(v), 0);
    const Kvo16s want[10] = {1000, 2000, 4000, 4321, 5000, 8000, 10000, 12000, 14000, 16000};
    EXPECT_EQ(0, std::memcmp(v, want, sizeof v));
    // A descending pair across the whole vector: the largest bubbles to the
    // end, the limits fire.
    Kvo16s w[10] = {30000, 10, 1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000};
    EXPECT_EQ(kvo::ownLspStability(w), kvo::kLsfFlagLow | kvo::kLsfFlagHigh);
    EXPECT_EQ(w[0], 40);
    EXPECT_EQ(w[1], 1000);
    EXPECT_EQ(w[9], 25681);
}

TEST(LsfDecode, GapPass) {
    // Pairs already 10 apart or more are left alone.
    Kvo16s a[10] = {100, 110, 200, 300, 311, 400, 500, 600, 700, 800};
    Kvo16s b[10];
    std::memcpy(b, a, sizeof a);
    kvo::ownLspExpand(b, 10);
    EXPECT_EQ(0, std::memcmp(a, b, sizeof a));
    // 100, 104: k = (100 - 104 + 10) >> 1 = 3 each way; 200, 201: k = 4.
    Kvo16s c[10] = {100, 104, 200, 201, 1000, 2000, 3000, 4000, 5000, 6000};
    kvo::ownLspExpand(c, 10);
    const Kvo16s want[10] = {97, 107, 196, 205, 1000, 2000, 3000, 4000, 5000, 6000};
    EXPECT_EQ(0, std::memcmp(c, want, sizeof c));
}

// The erased frame pushes the code vector that would have produced the
// previous LSF: the exact wide formula, and, recomposed with the old history,
// the previous LSF again within the rounding of the inverse sums.
TEST(LsfDecodeErased, PushesTheInverseOfThePrediction) {
    std::mt19937 rng(7291);
    for (int t = 0; t < 50; ++t) {
        SCOPED_TRACE("trial " + std::to_string(t));
        Kvo16s h[40];
        lspmodel::resetHistory(h);
        for (int f = 0; f < 4; ++f) {
            const Kvo16s idx[4] = {static_cast<Kvo16s>(rng() & 1), static_cast<Kvo16s>(rng() & 127),
                                   static_cast<Kvo16s>(rng() & 31),
                                   static_cast<Kvo16s>(rng() & 31)};
            Kvo16s q[10];
            kvosLSFDecode_G729_16s(idx, h, q);
        }
        const std::vector<Kvo16s> prev = lspmodel::stableLsf(rng);
        const int p = static_cast<int>(rng() & 1);
        Kvo16s old[40];
        std::memcpy(old, h, sizeof h);
        // maIndex is read as 16 bits: 65536 + p is p.
        ASSERT_EQ(kvosLSFDecodeErased_G729_16s(p + (t & 1) * 65536, h, prev.data()), kvoOk);
        EXPECT_EQ(0, std::memcmp(h + 10, old, 30 * sizeof(Kvo16s)));
        for (int j = 0; j < 10; ++j) {
            int64_t s = int64_t{prev[j]} << 15;
            for (int k = 0; k < 4; ++k) s -= int64_t{old[10 * k + j]} * fg[p][k][j];
            const int64_t r = ((s >> 15) * fg_sum_inv[p][j]) >> 12;
            EXPECT_EQ(h[j], std::clamp<int64_t>(r, -32768, 32767)) << "element " << j;
            if (r != h[j]) continue;  // saturated: nothing to recompose
            int64_t back = int64_t{h[j]} * fg_sum[p][j];
            for (int k = 0; k < 4; ++k) back += int64_t{old[10 * k + j]} * fg[p][k][j];
            EXPECT_NEAR(static_cast<double>(back >> 15), prev[j], 3.0) << "element " << j;
        }
    }
}
