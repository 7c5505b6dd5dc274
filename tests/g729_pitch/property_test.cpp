// Pitch search edges the vector sets do not pin: the open-loop lag of signals of known period
// over the whole range, the decoder's history boundary and the closed-loop window edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "g729_pitch/signals.h"
#include "kvosc.h"

namespace {

using gsig::Vec;

TEST(G729PitchProperty, OpenLoopFindsThePeriod) {
    for (int P = 20; P <= 143; P += 3) {
        SCOPED_TRACE(P);
        Vec h = gsig::harmonic(223, P, 3000, 1000 + P);
        Vec p = gsig::pulses(223, P, 9000, (143 + 60) % P);  // a pulse inside the frame
        for (const Vec* v : {&h, &p}) {
            Kvo16s t = 0, ta = 0;
            ASSERT_EQ(kvosOpenLoopPitchSearch_G729_16s(v->data() + 143, &t), kvoOk);
            EXPECT_EQ(t, P);
            // Annex A reads only even samples: a train of one short pulse per frame can fall
            // between them, so it is held to the harmonic sums.
            if (v == &p) continue;
            ASSERT_EQ(kvosOpenLoopPitchSearch_G729A_16s(v->data() + 143, &ta), kvoOk);
            EXPECT_LE(std::abs(ta - P), 1);
        }
    }
}

// The decoder reads exactly 154 samples of past at lag 144 and fraction +1, one fewer at 0.
TEST(G729PitchProperty, DecoderReadsTheWholeHistoryOnlyAtTheLongestDelay) {
    Vec base(194, 1000);
    for (int frac = -1; frac <= 1; ++frac) {
        Vec a = base, b = base;
        b[0] = -20000;
        const Kvo16s d[2] = {144, static_cast<Kvo16s>(frac)};
        ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(d, a.data()), kvoOk);
        ASSERT_EQ(kvosDecodeAdaptiveVector_G729_16s_I(d, b.data()), kvoOk);
        const bool changed = !std::equal(a.begin() + 154, a.end(), b.begin() + 154);
        EXPECT_EQ(changed, frac == 1) << frac;
    }
}

// Window edges: 145 is accepted (window 137..143 in subframe 0), 18 starts the window at 20.
TEST(G729PitchProperty, WindowEdges) {
    std::mt19937 rng(17);
    Vec h = gsig::impulse(rng);
    for (int rep = 0; rep < 50; ++rep) {
        Vec exc = gsig::anyLevel(194, rng), x = gsig::anyLevel(40, rng);
        Kvo16s d[2], v[40];
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G729_16s(145, x.data(), h.data(), exc.data(), d, v, 0),
                  kvoOk);
        EXPECT_GE(d[0] * 3 + d[1], 137 * 3 - 1);
        EXPECT_EQ(d[1], 0);  // lags above 84 have no fraction in subframe 0
        ASSERT_EQ(kvosAdaptiveCodebookSearch_G729_16s(18, x.data(), h.data(), exc.data(), d, v, 0),
                  kvoOk);
        EXPECT_GE(d[0] * 3 + d[1], 19 * 3 + 1);  // lag 20 at fraction -2 is 19 1/3
        EXPECT_LE(d[0] * 3 + d[1], 26 * 3 + 1);
    }
}

}  // namespace
