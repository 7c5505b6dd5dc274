// G.723.1 algebraic codebook: the correlation matrix against direct 64-bit
// sums with the response scaling at its boundary, and the pulse search on
// worked cases: isolated pulses, an empty fourth track, the search budget.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "exc_model.h"
#include "kvosc.h"

using namespace g723test;

namespace {

// Entry of the 416-element matrix for block b and indices (i, j): the two
// pulse positions it correlates.
void positions_of(int e, int* p, int* q) {
    if (e < 32) {
        *p = *q = 8 * (e % 8) + 2 * (e / 8);
        return;
    }
    static const int ka[6] = {0, 0, 0, 1, 1, 2}, kb[6] = {1, 2, 3, 2, 3, 3};
    const int b = (e - 32) / 64, r = (e - 32) % 64;
    *p = 8 * (r / 8) + 2 * ka[b];
    *q = 8 * (r % 8) + 2 * kb[b];
}

std::vector<int64_t> model_matrix(const std::vector<int16_t>& h) {
    int64_t e = 0;
    for (int v : h) e += int64_t(v) * v;
    const int64_t e2 = std::min<int64_t>(2 * e, INT32_MAX);
    std::vector<int64_t> s(60);
    if (e2 >= int64_t(32001) << 16) {
        for (int i = 0; i < 60; ++i) s[i] = h[i] >> 1;
    } else {
        int n = 0;  // left shifts that bring 2E to bit 30
        while (e2 != 0 && (e2 << n) < (int64_t(1) << 30)) ++n;
        for (int i = 0; i < 60; ++i) s[i] = int64_t(h[i]) << (n / 2);
    }
    std::vector<int64_t> m(416);
    for (int k = 0; k < 416; ++k) {
        int p, q;
        positions_of(k, &p, &q);
        const int lo = std::min(p, q), hi = std::max(p, q);
        int64_t sum = 0;
        for (int n = 0; n + hi <= 59; ++n) sum += s[n] * s[n + hi - lo];
        m[k] = sum;
    }
    return m;
}

// Samples whose squares add up to exactly `target` (greedy squares).
std::vector<int16_t> with_energy(int64_t target) {
    std::vector<int16_t> h(60, 0);
    for (int i = 0; i < 60 && target > 0; ++i) {
        int64_t r = std::min<int64_t>(32767, int64_t(std::sqrt(double(target))));
        while (r * r > target) --r;
        h[i] = int16_t(i % 2 ? -r : r);
        target -= r * r;
    }
    return h;
}

TEST(G723Acelp, MatrixMatchesDirectSums) {
    std::mt19937 rng(11);
    std::vector<std::vector<int16_t>> cases;
    for (int t = 0; t < 12; ++t) cases.push_back(impulse(rng, 512 << (t % 7)));
    cases.push_back(with_energy(0x3E808000));  // halved
    cases.push_back(with_energy(0x3E807FFF));  // kept
    cases.push_back(std::vector<int16_t>(60, 0));
    for (size_t c = 0; c < cases.size(); ++c) {
        SCOPED_TRACE(c);
        const auto& h = cases[c];
        std::vector<int32_t> m32(416);
        std::vector<int16_t> m16(416);
        ASSERT_EQ(kvosToeplizMatrix_G723_16s32s(h.data(), m32.data()), kvoOk);
        ASSERT_EQ(kvosToeplizMatrix_G723_16s(h.data(), m16.data()), kvoOk);
        const auto want = model_matrix(h);
        for (int k = 0; k < 416; ++k) {
            ASSERT_EQ(m32[k], want[k]) << k;
            ASSERT_EQ(m16[k], clamp16(want[k] >> 15)) << k;
        }
    }
    // The boundary: energy 0x3E808000 halves the response, one less does not.
    int64_t e = 0;
    for (int v : cases[12]) e += int64_t(v >> 1) * (v >> 1);
    std::vector<int32_t> m(416);
    kvosToeplizMatrix_G723_16s32s(cases[12].data(), m.data());
    EXPECT_EQ(m[0], e);
    kvosToeplizMatrix_G723_16s32s(cases[13].data(), m.data());
    EXPECT_EQ(m[0], 0x3E807FFF);
}

struct SearchOut {
    int16_t signs[4], pos[4], grid;
    int16_t code[60];
    int16_t budget;
};

SearchOut search32(const std::vector<int16_t>& corr, const std::vector<int16_t>& h,
                   int16_t budget) {
    std::vector<int32_t> m(416);
    kvosToeplizMatrix_G723_16s32s(h.data(), m.data());
    SearchOut o{};
    o.budget = budget;
    EXPECT_EQ(kvosACELPFixedCodebookSearch_G723_32s16s(corr.data(), m.data(), o.signs, o.pos,
                                                       &o.grid, o.code, &o.budget),
              kvoOk);
    return o;
}

TEST(G723Acelp, IsolatedPulsesAreFound) {
    std::vector<int16_t> h(60, 0);
    h[0] = 4096;  // white response: the matrix is diagonal
    for (int grid = 0; grid < 2; ++grid) {
        SCOPED_TRACE(grid);
        std::vector<int16_t> c(60, 0);
        const int want[4] = {8 * 1 + grid, 8 * 3 + 2 + grid, 8 * 5 + 4 + grid, 8 * 6 + 6 + grid};
        const int sg[4] = {1, -1, -1, 1};
        for (int k = 0; k < 4; ++k) c[want[k]] = int16_t(sg[k] * (4000 + 300 * k));
        const SearchOut o = search32(c, h, 0);
        EXPECT_EQ(o.grid, grid);
        for (int k = 0; k < 4; ++k) {
            EXPECT_EQ(o.pos[k], want[k]);
            EXPECT_EQ(o.signs[k], sg[k]);
        }
        for (int i = 0; i < 60; ++i) {
            int v = 0;
            for (int k = 0; k < 4; ++k)
                if (want[k] == i) v = sg[k];
            EXPECT_EQ(o.code[i], v) << i;
        }
    }
}

TEST(G723Acelp, EmptyFourthTrackReportsPosition62OutsideTheCode) {
    // White response: position 62 has no energy, wins the empty track, and
    // stays out of the code vector.
    std::vector<int16_t> h(60, 0), c(60, 0);
    h[0] = 4096;
    c[8] = c[36] = 5000;
    c[18] = -5000;
    const SearchOut o = search32(c, h, 0);
    EXPECT_EQ(std::vector<int>(o.pos, o.pos + 4), (std::vector<int>{8, 18, 36, 62}));
    EXPECT_EQ(std::count_if(o.code, o.code + 60, [](int16_t v) { return v != 0; }), 3);
}

TEST(G723Acelp, BudgetCountsTriplesAboveThreshold) {
    // Flat correlation: all 8 x 8 x 7 triples without position 60 beat the
    // threshold (the mean sits below the triple sum), those with it do not.
    std::mt19937 rng(4);
    const auto h = impulse(rng);
    std::vector<int16_t> c(60, 1000);
    struct Case {
        int16_t in, out;
    } cases[] = {{1000, 1120 - 448}, {328, 0}, {329, 1}, {0, 0}, {-119, 0}};
    for (const auto& k : cases) {
        SCOPED_TRACE(k.in);
        EXPECT_EQ(search32(c, h, k.in).budget, k.out);
    }
}

}  // namespace
