// Multi-rate G.729 coders (6.4 kbit/s Annex D, 8 kbit/s, 11.8 kbit/s Annex E),
// beside the vector sets checked with the other coders': the two stream
// formats against an independent bit-string model, frame lengths by rate,
// 8 kbit/s frames against the main body.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "support/signals.h"

namespace {

using namespace kvosc::coders;

std::vector<int16_t> test_signal(int frames) {
    return kvosc::test::speech_like(80 * frames, 64, 12000, 8000);
}

Options opts(std::vector<std::pair<std::string, std::string>> kv) {
    return Options{std::move(kv)};
}

// The packed stream holds, per frame, a length octet and the same bits as the
// serial stream's bit words, MSB first; both decode to the same samples.
TEST(G729Multirate, FormatsCarryTheSameBits) {
    const Coder* coder = find_coder("g729i");
    ASSERT_NE(coder, nullptr);
    const std::vector<int16_t> pcm = test_signal(50);
    struct Row {
        const char* rate;
        int bits, octets;
    };
    for (const Row& r : {Row{"6.4", 64, 8}, Row{"8", 80, 10}, Row{"11.8", 118, 15}}) {
        SCOPED_TRACE(r.rate);
        std::vector<uint8_t> itu, packed;
        std::string err;
        ASSERT_TRUE(coder->encode(opts({{"rate", r.rate}, {"format", "itu"}}), pcm, itu, err))
            << err;
        ASSERT_TRUE(coder->encode(opts({{"rate", r.rate}}), pcm, packed, err)) << err;
        const std::vector<int16_t> w = words_from_bytes(itu);
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
        std::vector<int16_t> a, b;
        ASSERT_TRUE(coder->decode(opts({{"format", "itu"}}), itu, a, err)) << err;
        ASSERT_TRUE(coder->decode(opts({}), packed, b, err)) << err;
        EXPECT_EQ(a, b);
        ASSERT_EQ(a.size(), pcm.size());
        // The decoded speech follows the input (a coarse sanity floor, not a quality claim).
        double num = 0, den = 0;
        for (size_t i = 0; i < pcm.size(); ++i) num += double(pcm[i]) * pcm[i];
        for (size_t i = 0; i < pcm.size(); ++i) den += double(a[i]) * a[i];
        EXPECT_GT(den, 0.1 * num);
        EXPECT_LT(den, 10 * num);
    }
}

// A stream whose frames change rate decodes each frame at its own rate: the
// g729d record decodes 8 kbit/s frames exactly as the main-body coder does.
TEST(G729Multirate, EightKbitFramesMatchTheMainBody) {
    const Coder* multi = find_coder("g729d");
    const Coder* main = find_coder("g729");
    ASSERT_TRUE(multi && main);
    const std::vector<int16_t> pcm = test_signal(40);
    std::vector<uint8_t> s1, s2;
    std::vector<int16_t> d1, d2;
    std::string err;
    ASSERT_TRUE(main->encode(opts({{"format", "itu"}}), pcm, s1, err)) << err;
    ASSERT_TRUE(find_coder("g729i")->encode(opts({{"format", "itu"}}), pcm, s2, err)) << err;
    EXPECT_EQ(s1, s2);
    ASSERT_TRUE(main->decode(opts({{"format", "itu"}}), s1, d1, err)) << err;
    ASSERT_TRUE(multi->decode(opts({{"format", "itu"}}), s1, d2, err)) << err;
    EXPECT_EQ(d1, d2);
}

}  // namespace
