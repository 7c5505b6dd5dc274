// G.723.1 multipulse search: the packed parameters decoded by the decoder's
// combinatorial rule reproduce the code vector (pulses, signs, levels, the
// pulse train), and an exactly coded target is recovered.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include "exc_model.h"
#include "kvosc.h"

using namespace g723test;

namespace {

const int16_t kLevels[24] = {1,   2,   3,   4,   6,   9,   13,   18,   26,   38,   55,   80,
                             115, 166, 240, 348, 502, 726, 1050, 1517, 2193, 3170, 4582, 6623};

int64_t choose(int n, int k) {
    if (k < 0 || n < k) return 0;
    int64_t r = 1;
    for (int i = 1; i <= k; ++i) r = r * (n - k + i) / i;
    return r;
}

// The decoder's unpacking: positions of the grid from the combinatorial code
// (pulses left = np, scanning the 30 grid slots), signs from the mask with the
// first pulse in the highest bit.
std::vector<int16_t> unpack(int np, int grid, int ampIndex, int mask, int32_t code) {
    std::vector<int16_t> v(60, 0);
    int left = np;
    int bit = np - 1;
    int64_t c = code;
    for (int j = 0; j < 30 && left > 0; ++j) {
        // Codes with a pulse in slot j come first: C(29 - j, left - 1) of them.
        const int64_t n = choose(29 - j, left - 1);
        if (c >= n) {
            c -= n;
            continue;
        }
        const int sg = (mask >> bit) & 1 ? -1 : 1;
        v[grid + 2 * j] = int16_t(sg * kLevels[ampIndex]);
        --bit;
        --left;
    }
    return v;
}

struct Result {
    std::vector<int16_t> code = std::vector<int16_t>(60);
    int16_t grid = -1, train = -1, amp = -1, mask = -1;
    int32_t pos = -1;
};

Result run(int lag, const std::vector<int16_t>& h, const std::vector<int16_t>& x, int sf) {
    Result r;
    EXPECT_EQ(
        kvosMPMLQFixedCodebookSearch_G723(int16_t(lag), h.data(), x.data(), r.code.data(), &r.grid,
                                          &r.train, &r.amp, &r.mask, &r.pos, int16_t(sf)),
        kvoOk);
    return r;
}

TEST(G723Mpmlq, PackedParametersReproduceTheCode) {
    std::mt19937 rng(63);
    int trains = 0;
    for (int t = 0; t < 80; ++t) {
        SCOPED_TRACE(t);
        const int sf = t % 4, np = sf % 2 ? 5 : 6;
        const int lag = 18 + int(rng() % 100);
        const auto h = impulse(rng, 4096);
        const auto x = random16(rng, 60, 200 + 100 * (t % 20));
        const Result r = run(lag, h, x, sf);
        ASSERT_TRUE(r.grid == 0 || r.grid == 1);
        ASSERT_GE(r.amp, 0);
        ASSERT_LE(r.amp, 23);
        ASSERT_GE(r.pos, 0);
        ASSERT_LT(r.pos, choose(30, np));
        auto base = unpack(np, r.grid, r.amp, r.mask, r.pos);
        int pulses = 0;
        for (int v : base) pulses += v != 0;
        EXPECT_EQ(pulses, np);
        if (lag >= 58) {
            EXPECT_EQ(r.train, 0);
        }
        std::vector<int16_t> want = base;
        if (r.train) {
            ++trains;
            for (int i = 0; i < 60; ++i)
                for (int m = lag; m <= i; m += lag)
                    want[i] = clamp16(int64_t(want[i]) + base[i - m]);
        }
        EXPECT_EQ(r.code, want);
    }
    EXPECT_GT(trains, 3);
}

TEST(G723Mpmlq, ExactlyCodedTargetIsRecovered) {
    // A white response (8192 in Q13): the target is the code itself.
    std::vector<int16_t> h(60, 0);
    h[0] = 8192;
    std::mt19937 rng(17);
    for (int t = 0; t < 40; ++t) {
        SCOPED_TRACE(t);
        const int sf = t % 4, np = sf % 2 ? 5 : 6;
        const int grid = int(rng() % 2), amp = 4 + int(rng() % 19);
        std::vector<int16_t> x(60, 0);
        int placed = 0;
        while (placed < np) {
            const int p = grid + 2 * int(rng() % 30);
            if (x[p]) continue;
            x[p] = int16_t((rng() % 2 ? -1 : 1) * kLevels[amp]);
            ++placed;
        }
        const Result r = run(100, h, x, sf);
        EXPECT_EQ(r.grid, grid);
        EXPECT_EQ(r.amp, amp);
        EXPECT_EQ(r.train, 0);
        EXPECT_EQ(r.code, x);
    }
}

}  // namespace
