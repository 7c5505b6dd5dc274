// GSM 06.10 full-rate coder assembled from the exports against libgsm (an
// independent bit-exact implementation) on generated signals and on frames of
// random bits, and homing frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "conformance/coding.h"
#include "support/signals.h"
#include "support/vectors.h"

#ifdef KVOSC_HAVE_LIBGSM
#include <gsm.h>
#endif

namespace {

namespace kt = kvosc::test;

std::vector<uint8_t> encode(const char* format, const std::vector<int16_t>& pcm) {
    return kvosc::conformance::encode("gsmfr", {{{"format", format}}}, pcm);
}
std::vector<int16_t> decode(const char* format, const std::vector<uint8_t>& stream) {
    return kvosc::conformance::decode("gsmfr", {{{"format", format}}}, stream);
}

// Homing frames in mid-stream bring encoder and decoder back to their start
// state: what follows codes and decodes exactly as from a fresh coder.
TEST(GsmFrHoming, MidStreamHomingFramesResetEveryState) {
    const std::vector<int16_t> before = kt::speech_like(160 * 30, 21, 8000, 8000),
                               after = kt::speech_like(160 * 20, 22, 8000, 8000);
    const std::vector<int16_t> ehf(160, 0x0008);
    auto concat = [](std::initializer_list<const std::vector<int16_t>*> parts) {
        std::vector<int16_t> v;
        for (const auto* p : parts) v.insert(v.end(), p->begin(), p->end());
        return v;
    };
    // Two homing frames: the first resets the encoder, the second is then
    // coded from the start state as the decoder homing frame.
    const auto s1 = encode("etsi", concat({&before, &ehf, &ehf, &after})),
               s2 = encode("etsi", concat({&ehf, &after}));
    ASSERT_EQ(s1.size(), 52 * 152u);
    EXPECT_TRUE(std::equal(s2.begin(), s2.end(), s1.end() - s2.size()));
    // The decoder homes on that frame and then follows a fresh one.
    const auto d1 = decode("etsi", s1), d2 = decode("etsi", s2);
    ASSERT_EQ(d2.size(), 21 * 160u);
    EXPECT_TRUE(std::equal(d2.begin() + 160, d2.end(), d1.end() - (d2.size() - 160)));
    // A decoder in its start state answers the homing frame with the encoder homing frame.
    EXPECT_TRUE(std::equal(d2.begin(), d2.begin() + 160, ehf.begin()));
}

#ifdef KVOSC_HAVE_LIBGSM
struct Peer {
    gsm g = gsm_create();
    explicit Peer(bool wav49 = false) {
        int off = 0, on = 1;
        gsm_option(g, GSM_OPT_FAST, &off);
        gsm_option(g, GSM_OPT_LTP_CUT, &off);
        gsm_option(g, GSM_OPT_WAV49, wav49 ? &on : &off);
    }
    ~Peer() { gsm_destroy(g); }
};

// libgsm's stream: 33-octet frames, or 32 + 33 octets per frame pair in wav49.
std::vector<uint8_t> peer_encode(const std::vector<int16_t>& pcm, bool wav49) {
    Peer enc(wav49);
    std::vector<uint8_t> out;
    for (size_t f = 0; f < pcm.size() / 160; ++f) {
        gsm_signal in[160];
        gsm_byte frame[33];
        std::copy_n(&pcm[f * 160], 160, in);
        gsm_encode(enc.g, in, frame);
        out.insert(out.end(), frame, frame + (wav49 && f % 2 == 0 ? 32 : 33));
    }
    return out;
}

std::vector<int16_t> peer_decode(std::vector<uint8_t> stream) {
    Peer dec;
    std::vector<int16_t> out;
    for (size_t at = 0; at + 33 <= stream.size(); at += 33) {
        gsm_signal pcm[160];
        EXPECT_EQ(gsm_decode(dec.g, &stream[at], pcm), 0);
        out.insert(out.end(), pcm, pcm + 160);
    }
    return out;
}

TEST(GsmFrPeer, StreamsAndSamplesEqualLibgsm) {
    const int n = 3 * 8000;
    const struct {
        const char* name;
        std::vector<int16_t> pcm;
    } signals[] = {{"speech", kt::speech_like(n, 1, 8000, 8000)},
                   {"noise", kt::white_noise(n, 32768, 2)},
                   {"quiet noise", kt::white_noise(n, 40, 3)},
                   {"silence", std::vector<int16_t>(n, 0)},
                   {"square 100 Hz", kt::square(n, 80, 32767)},
                   {"square 2 kHz", kt::square(n, 4, 32767)},
                   {"sweep full scale", kt::sweep(n, 32767, 8000)},
                   {"sweep -20 dB", kt::sweep(n, 3277, 8000)}};
    for (const auto& sig : signals) {
        SCOPED_TRACE(sig.name);
        const auto ours = encode("rtp", sig.pcm);
        EXPECT_EQ(kt::first_mismatch(ours, peer_encode(sig.pcm, false)), -1) << "stream octet";
        EXPECT_EQ(kt::first_mismatch(encode("wav49", sig.pcm), peer_encode(sig.pcm, true)), -1)
            << "wav49 octet";
        EXPECT_EQ(kt::first_mismatch(decode("rtp", ours), peer_decode(ours)), -1) << "sample";
    }
}

// Frames of random bits (with the 0xD signature) decode as libgsm decodes them.
TEST(GsmFrPeer, RandomFramesDecodeAsLibgsm) {
    std::mt19937 rng(20261123);
    std::vector<uint8_t> stream(2000 * 33);
    for (size_t i = 0; i < stream.size(); ++i)
        stream[i] = static_cast<uint8_t>(i % 33 ? rng() : 0xD0 | (rng() & 0x0F));
    EXPECT_EQ(kt::first_mismatch(decode("rtp", stream), peer_decode(stream)), -1) << "sample";
}
#else
TEST(GsmFrPeer, Libgsm) {
    GTEST_SKIP() << "libgsm not found: peer comparison skipped";
}
#endif

}  // namespace
