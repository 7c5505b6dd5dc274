// G.711 A-law and mu-law encoders against the quantisation-interval
// description of the standard, over all 65536 inputs.
#include <gtest/gtest.h>

#include <vector>

#include "numeric/vector.h"

using namespace kvo;

namespace {

// Quantisation intervals of one sign: 8 segments of 16 equal intervals.  A-law
// on the 13-bit magnitude: segments 0 and 1 have step 2 from 0 and 32, segment
// g >= 2 has step 2^g from 2^(g+4).  Mu-law on the biased 14-bit magnitude:
// segment j has step 2^(j+1) from 2^(j+5).
// Index of the interval holding mag; segment g starts at start(g), step(g) wide.
template <class Start, class Step>
int find(int mag, Start start, Step step) {
    for (int g = 0; g < 8; ++g)
        for (int i = 0; i < 16; ++i)
            if (mag >= start(g) + i * step(g) && mag < start(g) + (i + 1) * step(g))
                return g * 16 + i;
    return -1;
}

Kvo8u alaw_model(int x) {
    // Magnitude of the 13-bit sample; negative inputs lose one step (one's complement).
    int mag = x >= 0 ? x / 8 : (-x - 1) / 8;
    int q = find(mag, [](int g) { return g == 0 ? 0 : 16 << g; },
                 [](int g) { return g < 2 ? 2 : 1 << g; });
    return static_cast<Kvo8u>(q ^ (x >= 0 ? 0xd5 : 0x55));
}
Kvo8u mulaw_model(int x) {
    int mag = (x >= 0 ? x / 4 : (-x - 1) / 4) + 33;
    int q = mag > 8191 ? 127
                       : find(mag, [](int j) { return 32 << j; }, [](int j) { return 2 << j; });
    return static_cast<Kvo8u>((0x7f - q) | (x >= 0 ? 0x80 : 0));
}

TEST(G711, EncodersEqualIntervalModelOnAllInputs) {
    std::vector<Kvo16s> in(65536);
    for (int i = 0; i < 65536; ++i) in[i] = static_cast<Kvo16s>(i - 32768);
    std::vector<Kvo8u> a(65536), m(65536);
    ASSERT_EQ(kvosLinToALaw_16s8u(in.data(), a.data(), 65536), kvoOk);
    ASSERT_EQ(kvosLinToMuLaw_16s8u(in.data(), m.data(), 65536), kvoOk);
    for (int i = 0; i < 65536; ++i) {
        ASSERT_EQ(a[i], alaw_model(in[i])) << "input " << in[i];
        ASSERT_EQ(m[i], mulaw_model(in[i])) << "input " << in[i];
    }
}

}  // namespace
