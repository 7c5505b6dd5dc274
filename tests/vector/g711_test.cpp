// G.711 A-law and mu-law encoders against the quantisation-interval
// description of the standard (exhaustively over all 65536 inputs), and
// decode-then-encode consistency over all 256 codes.
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

// Expansions to the 16-bit scale: the midpoint of the quantisation interval.
int alaw_decode(Kvo8u c) {
    int e = c ^ 0x55;
    int seg = (e >> 4) & 7, mant = e & 15;
    int mag = seg == 0 ? (mant << 4) + 8 : ((mant << 4) + 0x108) << (seg - 1);
    return (e & 0x80) ? mag : -mag;
}
int mulaw_decode(Kvo8u c) {
    int u = ~c & 0xff;
    int t = (((u & 15) << 3) + 0x84) << ((u >> 4) & 7);
    return (u & 0x80) ? 0x84 - t : t - 0x84;
}

std::vector<Kvo16s> all_inputs() {
    std::vector<Kvo16s> v(65536);
    for (int i = 0; i < 65536; ++i) v[i] = static_cast<Kvo16s>(i - 32768);
    return v;
}

TEST(G711, ALawEqualsIntervalModelOnAllInputs) {
    auto in = all_inputs();
    std::vector<Kvo8u> out(65536);
    ASSERT_EQ(kvosLinToALaw_16s8u(in.data(), out.data(), 65536), kvoOk);
    for (int i = 0; i < 65536; ++i) ASSERT_EQ(out[i], alaw_model(in[i])) << "input " << in[i];
    EXPECT_EQ(out[32768], 0xd5);  // 0
}

TEST(G711, MuLawEqualsIntervalModelOnAllInputs) {
    auto in = all_inputs();
    std::vector<Kvo8u> out(65536);
    ASSERT_EQ(kvosLinToMuLaw_16s8u(in.data(), out.data(), 65536), kvoOk);
    for (int i = 0; i < 65536; ++i) ASSERT_EQ(out[i], mulaw_model(in[i])) << "input " << in[i];
    EXPECT_EQ(out[32768], 0xff);  // 0
}

TEST(G711, DecodeThenEncodeGivesTheCodeBack) {
    std::vector<Kvo16s> a(256), m(256);
    for (int c = 0; c < 256; ++c) {
        a[c] = static_cast<Kvo16s>(alaw_decode(static_cast<Kvo8u>(c)));
        m[c] = static_cast<Kvo16s>(mulaw_decode(static_cast<Kvo8u>(c)));
    }
    std::vector<Kvo8u> ra(256), rm(256);
    ASSERT_EQ(kvosLinToALaw_16s8u(a.data(), ra.data(), 256), kvoOk);
    ASSERT_EQ(kvosLinToMuLaw_16s8u(m.data(), rm.data(), 256), kvoOk);
    for (int c = 0; c < 256; ++c) {
        EXPECT_EQ(ra[c], c) << "A-law code " << c;
        // Mu-law has two zeros; the negative one (0x7f) encodes back as +0.
        EXPECT_EQ(rm[c], c == 0x7f ? 0xff : c) << "mu-law code " << c;
    }
}

}  // namespace
