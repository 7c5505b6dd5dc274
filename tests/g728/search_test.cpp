// G.728 excitation search: code vector energies by worked values, the
// shape-gain search against a brute-force search over every row and every
// signed gain, the code layout of each rate, and the trellis quantiser's path
// properties with tables supplied here.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "g728/g728.h"
#include "g728/g728_tables.h"
#include "kvosc.h"

namespace {

TEST(G728Energy, WorkedValuesFixTimeOrder) {
    // A unit impulse (Q13) halves each sample; row 0 in time order is
    // 668 -2950 -1254 -1790 -2553, so the energy is
    // (334^2 + 1475^2 + 627^2 + 895^2 + 1277^2) >> 15 = 5112064 >> 15.
    Kvo16s h[5] = {8192, 0, 0, 0, 0}, e[128];
    ASSERT_EQ(kvosImpulseResponseEnergy_G728_16s(h, e), kvoOk);
    EXPECT_EQ(e[0], 156);
    // Delayed by one sample the last time sample (-2553) drops out.
    Kvo16s d[5] = {0, 8192, 0, 0, 0};
    ASSERT_EQ(kvosImpulseResponseEnergy_G728_16s(d, e), kvoOk);
    EXPECT_EQ(e[0], (5112064 - 1277 * 1277) >> 15);
}

struct Rate {
    int code;
    int first, last, levels;
    const Kvo16s* g2;
};
const Kvo16s kG2_128[2] = {4308, 12800};
const Kvo16s kG2_96[2] = {4626, 15874};

bool searched(int rate, int row) {
    if (rate == 17) return true;
    if (rate == 14) return row >= 64;
    return row >= 96 && row < 124 && (row & 4) == 0;
}

class CodebookSearch : public ::testing::TestWithParam<Rate> {};

TEST_P(CodebookSearch, FindsTheBruteForceOptimum) {
    const Rate r = GetParam();
    std::mt19937 rng(3);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        Kvo16s h[5], x[5], E[128];
        h[0] = 8192;
        for (int i = 1; i < 5; ++i) h[i] = static_cast<Kvo16s>(rng() % 12001 - 6000);
        for (int i = 0; i < 5; ++i) x[i] = static_cast<Kvo16s>(rng() % 6001 - 3000);
        ASSERT_EQ(kvosImpulseResponseEnergy_G728_16s(h, E), kvoOk);
        Kvo32s shape, gain;
        Kvo16s code;
        ASSERT_EQ(kvosCodebookSearch_G728_16s(x, E, &shape, &gain, &code, r.code), kvoOk);
        // Distortion E g^2 - 2 g c in the search's units, for any row and signed level.
        auto dist = [&](int row, int lvl, int sign) {
            double c = 0;
            for (int j = 0; j < 5; ++j) c += double(x[j]) * kvo::tab::shape_all[row][4 - j];
            const double g = sign * r.g2[lvl] / 8192.0;
            return E[row] * g * g - g * c / 4096.0;
        };
        double best = 1e300;
        for (int row = r.first; row <= r.last; ++row) {
            if (!searched(r.code, row)) continue;
            for (int l = 0; l < r.levels; ++l)
                for (int s : {1, -1}) best = std::min(best, dist(row, l, s));
        }
        ASSERT_TRUE(searched(r.code, shape));
        const int signBit = r.code == 17 ? 4 : 2;
        const double got = dist(shape, gain % signBit, gain & signBit ? -1 : 1);
        // Integer energies and the truncated correlation leave a little slack.
        EXPECT_LE(got, best + 0.02 * std::fabs(best) + 2.0);
        // Code layout of the rate (rate 10 closes the gaps between its searched rows).
        const int row =
            r.code == 17 ? shape : (r.code == 14 ? shape - 64 : (shape - 96) / 8 * 4 + shape % 4);
        EXPECT_EQ(code, row * (r.code == 17 ? 8 : 4) + gain);
    }
}

INSTANTIATE_TEST_SUITE_P(G728, CodebookSearch,
                         ::testing::Values(Rate{17, 0, 127, 4, kvo::tab::g2},
                                           Rate{14, 64, 127, 2, kG2_128},
                                           Rate{10, 96, 123, 2, kG2_96}));

TEST(G728CodebookSearch, ZeroTargetTakesSmallestEnergyAndNegativeSign) {
    Kvo16s x[5] = {}, E[128];
    for (int i = 0; i < 128; ++i) E[i] = static_cast<Kvo16s>(500 + (i * 37) % 101);
    E[77] = 3;
    E[90] = 3;
    Kvo32s shape, gain;
    Kvo16s code;
    ASSERT_EQ(kvosCodebookSearch_G728_16s(x, E, &shape, &gain, &code, 17), kvoOk);
    EXPECT_EQ(shape, 77);
    EXPECT_EQ(gain, 4);
    EXPECT_EQ(code, 77 * 8 + 4);
    EXPECT_EQ(kvosCodebookSearch_G728_16s(x, E, &shape, &gain, &code, 16), kvoErrRange);
}

// ---- trellis ---------------------------------------------------------------

// A symmetric 64-level uniform scale split into four interleaved subsets, and
// decision levels halfway between the levels of each subset.
const int kNext[4][2] = {{0, 1}, {2, 3}, {0, 1}, {2, 3}};  // trellis: next state per branch
const int kSub[4][2] = {{0, 2}, {1, 3}, {2, 0}, {3, 1}};   // and the subset it takes

struct TcqTables {
    Kvo16s xk[4][16];
    Kvo16s yk[16][4];
    TcqTables() {
        for (int i = 0; i < 16; ++i)
            for (int c = 0; c < 4; ++c) yk[i][c] = static_cast<Kvo16s>((4 * i + c) * 360 - 11340);
        for (int c = 0; c < 4; ++c) {
            for (int i = 0; i < 15; ++i)
                xk[c][i] = static_cast<Kvo16s>((yk[i][c] + yk[i + 1][c]) / 2);
            xk[c][15] = 32767;
        }
    }
};

TEST(G728Trellis, PathIsValidAndBeatsEveryOtherPathWithoutPrediction) {
    const TcqTables t;
    const Kvo16s coef[10] = {};
    std::mt19937 rng(5);
    Kvo16s mem[20] = {}, quant[8] = {};
    Kvo32s state = 0;
    for (int trial = 0; trial < 200; ++trial) {
        SCOPED_TRACE(trial);
        Kvo16s x[5];
        for (auto& v : x) v = static_cast<Kvo16s>(rng() % 20001 - 10000);
        const Kvo32s start = state;
        Kvo8u codes[5];
        // Unit gains: the residual is x (16384 >> 14) and a level comes back as
        // itself (16384 << 2 >> 16).
        const KvoG728ScaledValue inv{16384, 0, -13}, gain{16384, 0, 2};
        ASSERT_EQ(kvo::g728TcqSearch(x, coef, codes, mem, quant, &state, inv, gain, t.xk, t.yk),
                  kvoOk);
        // Walk the trellis: a code of 16 or more ends in an odd state.
        int s = start;
        double cost = 0;
        for (int n = 0; n < 5; ++n) {
            const int branch = codes[n] >= 16;
            int sub = -1, ns = -1;
            for (int b = 0; b < 2; ++b)
                if ((kNext[s][b] & 1) == branch) {
                    ns = kNext[s][b];
                    sub = kSub[s][b];
                }
            ASSERT_GE(ns, 0);
            const Kvo16s level = t.yk[codes[n] & 15][sub];
            EXPECT_EQ(quant[3 + n], level);
            cost += double(x[n] - level) * (x[n] - level);
            s = ns;
        }
        EXPECT_EQ(s, state);
        // No other path from the start state quantises with less error (2^5 branch choices,
        // the best level of each branch's subset).
        double best = 1e300;
        for (int p = 0; p < 32; ++p) {
            int st = start, q = p;
            double c = 0;
            for (int n = 0; n < 5; ++n, q >>= 1) {
                const int b = q & 1;
                const int sub = kSub[st][b];
                double e = 1e300;
                for (int i = 0; i < 16; ++i)
                    e = std::min(e, std::pow(double(x[n]) - t.yk[i][sub], 2));
                c += e;
                st = kNext[st][b];
            }
            best = std::min(best, c);
        }
        EXPECT_LE(cost, best * 1.0001 + 20);
    }
}

}  // namespace
