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
struct Interval {
    int lo, hi;
};
std::vector<Interval> alaw_intervals() {
    std::vector<Interval> v;
    for (int g = 0; g < 8; ++g) {
        int start = g == 0 ? 0 : 16 << g, step = g < 2 ? 2 : 1 << g;
        for (int i = 0; i < 16; ++i) v.push_back({start + i * step, start + (i + 1) * step - 1});
    }
    return v;
}
std::vector<Interval> mulaw_intervals() {
    std::vector<Interval> v;
    for (int j = 0; j < 8; ++j) {
        int start = 32 << j, step = 2 << j;
        for (int i = 0; i < 16; ++i) v.push_back({start + i * step, start + (i + 1) * step - 1});
    }
    return v;
}
int find(const std::vector<Interval>& iv, int mag) {
    for (int q = 0; q < static_cast<int>(iv.size()); ++q)
        if (mag >= iv[q].lo && mag <= iv[q].hi) return q;
    return -1;
}

Kvo8u alaw_model(int x) {
    static const auto iv = alaw_intervals();
    // Magnitude of the 13-bit sample; negative inputs lose one step (one's complement).
    int mag = x >= 0 ? x / 8 : (-x - 1) / 8;
    int q = find(iv, mag);
    return static_cast<Kvo8u>(q ^ (x >= 0 ? 0xd5 : 0x55));
}
Kvo8u mulaw_model(int x) {
    static const auto iv = mulaw_intervals();
    int mag = (x >= 0 ? x / 4 : (-x - 1) / 4) + 33;
    int q = mag > 8191 ? 127 : find(iv, mag);
    return static_cast<Kvo8u>((0x7f - q) | (x >= 0 ? 0x80 : 0));
}

std::vector<Kvo16s> all_inputs() {
    std::vector<Kvo16s> v(65536);
    for (int i = 0; i < 65536; ++i) v[i] = static_cast<Kvo16s>(i - 32768);
    return v;
}

TEST(G711, EncodersEqualIntervalModelOnAllInputs) {
    auto in = all_inputs();
    std::vector<Kvo8u> a(65536), m(65536);
    ASSERT_EQ(kvosLinToALaw_16s8u(in.data(), a.data(), 65536), kvoOk);
    ASSERT_EQ(kvosLinToMuLaw_16s8u(in.data(), m.data(), 65536), kvoOk);
    for (int i = 0; i < 65536; ++i) {
        ASSERT_EQ(a[i], alaw_model(in[i])) << "input " << in[i];
        ASSERT_EQ(m[i], mulaw_model(in[i])) << "input " << in[i];
    }
}

}  // namespace
