// Multi-rate G.729 coders (6.4 kbit/s Annex D, 8 kbit/s, 11.8 kbit/s Annex E),
// beside the vector sets checked with the other coders': the two stream
// formats against an independent bit-string model, frame lengths by rate, and
// 8 kbit/s frames against the main body.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "conformance/coding.h"
#include "support/signals.h"

namespace {

using kvosc::coders::Options;
using namespace kvosc::conformance;

// The packed stream holds, per frame, a length octet and the same bits as the
// serial stream's bit words, MSB first; both decode to the same samples.
TEST(G729Multirate, FormatsCarryTheSameBits) {
    const std::vector<int16_t> pcm = kvosc::test::speech_like(4000, 64, 12000, 8000);
    struct Row {
        const char* rate;
        int bits, octets;
    };
    for (const Row& r : {Row{"6.4", 64, 8}, Row{"8", 80, 10}, Row{"11.8", 118, 15}}) {
        SCOPED_TRACE(r.rate);
        const std::vector<uint8_t> itu = encode("g729i", {{{"rate", r.rate}, {"format", "itu"}}},
                                                pcm),
                                   packed = encode("g729i", {{{"rate", r.rate}}}, pcm);
        const std::vector<int16_t> w = kvosc::coders::words_from_bytes(itu);
        ASSERT_EQ(w.size(), 50u * (2 + r.bits));
        ASSERT_EQ(packed.size(), 50u * (1 + r.octets));
        for (int f = 0; f < 50; ++f) {
            const int16_t* fw = w.data() + f * (2 + r.bits);
            const uint8_t* fp = packed.data() + f * (1 + r.octets);
            EXPECT_EQ(fw[0], 0x6b21);
            EXPECT_EQ(fw[1], r.bits);
            EXPECT_EQ(fp[0], r.octets);
            for (int b = 0; b < r.bits; ++b) {
                const int bit = (fp[1 + b / 8] >> (7 - b % 8)) & 1;
                ASSERT_EQ(fw[2 + b], bit ? 0x0081 : 0x007f) << "frame " << f << " bit " << b;
            }
        }
        const std::vector<int16_t> a = decode("g729i", {{{"format", "itu"}}}, itu);
        EXPECT_EQ(a, decode("g729i", {}, packed));
        // The decoded speech follows the input (a coarse sanity floor, not a quality claim).
        ASSERT_EQ(a.size(), pcm.size());
        double num = 0, den = 0;
        for (size_t i = 0; i < pcm.size(); ++i)
            num += double(pcm[i]) * pcm[i], den += double(a[i]) * a[i];
        EXPECT_GT(den, 0.1 * num);
        EXPECT_LT(den, 10 * num);
    }
}

// A stream whose frames change rate decodes each frame at its own rate: the
// g729d record decodes 8 kbit/s frames exactly as the main-body coder does.
TEST(G729Multirate, EightKbitFramesMatchTheMainBody) {
    const std::vector<int16_t> pcm = kvosc::test::speech_like(3200, 64, 12000, 8000);
    const Options itu{{{"format", "itu"}}};
    const std::vector<uint8_t> s = encode("g729", itu, pcm);
    EXPECT_EQ(s, encode("g729i", itu, pcm));
    EXPECT_EQ(decode("g729", itu, s), decode("g729d", itu, s));
}

}  // namespace
