// The bounded fast paths of the pitch search against their ordered saturating
// twins, byte for byte: random, full-scale, -32768, alternating-sign and
// near-saturation targets and impulse responses.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "g729/pitch.h"

namespace {

// Fills v (n samples) in one of seven regimes: small, full range, -32768, alternating full
// scale, alternating near full scale, a decaying response, quiet.
void fill(std::mt19937& rng, int kind, Kvo16s* v, int n = 40) {
    std::uniform_int_distribution<int> full(-32768, 32767), small(-2000, 2000), jit(0, 63);
    for (int i = 0; i < n; ++i) {
        const int alt = i & 1 ? -32768 : 32767;
        v[i] = static_cast<Kvo16s>(kind == 0   ? small(rng)
                                   : kind == 1 ? full(rng)
                                   : kind == 2 ? -32768
                                   : kind == 3 ? alt
                                   : kind == 4 ? alt + (i & 1 ? jit(rng) : -jit(rng))
                                   : kind == 5 ? (i == 0 ? 4096 : small(rng) >> ((i % 40) / 4))
                                               : small(rng) >> 4);
    }
}

TEST(G729PitchTwin, BackwardTargetMatchesOrderedChains) {
    std::mt19937 rng(1729);
    for (int n = 0; n < 6000; ++n) {
        Kvo16s h[40], x[40], d[40], e[40];
        fill(rng, n % 7, h);
        fill(rng, (n / 7) % 7, x);
        // Scale the target so that the bound sits on either side of 2^31.
        const int shift = (n / 49) % 12;
        for (Kvo16s& v : x) v = static_cast<Kvo16s>(v >> shift);
        kvo::pitch::backwardTarget(h, x, d);
        kvo::pitch::backwardTargetPlain(h, x, e);
        SCOPED_TRACE(::testing::Message() << "seed 1729 case " << n);
        ASSERT_EQ(0, std::memcmp(d, e, sizeof d));
    }
}

// The adaptive vector at every lag and fraction; the whole buffer (history, subframe, guard)
// must match the scalar twin.
TEST(G729PitchTwin, AdaptiveVectorMatchesScalarSums) {
    std::mt19937 rng(2729);
    constexpr int kHist = 154, kLen = 40, kGuard = 16;
    for (int kind = 0; kind < 7; ++kind) {
        for (int lag = 1; lag <= 144; ++lag) {
            for (int frac = -1; frac <= 1; ++frac) {
                Kvo16s a[kHist + kLen + kGuard], b[kHist + kLen + kGuard];
                fill(rng, kind, a, kHist + kLen + kGuard);
                std::memcpy(b, a, sizeof a);
                kvo::pitch::decodeAdaptiveVector(a + kHist, lag, frac);
                kvo::pitch::decodeAdaptiveVectorPlain(b + kHist, lag, frac);
                SCOPED_TRACE(::testing::Message()
                             << "seed 2729 kind " << kind << " lag " << lag << " frac " << frac);
                ASSERT_EQ(0, std::memcmp(a, b, sizeof a));
            }
        }
    }
}

}  // namespace
