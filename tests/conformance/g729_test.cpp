// G.729 and G.729 Annex A coders assembled from the library's exports:
// - every ITU vector set, encoder and decoder, bit for bit;
// - a second, independent G.729 Annex A implementation (libbcg729, when
//   found) as a sanity oracle on a minute of synthetic speech: each side's
//   decoder on the other side's stream must agree with that side's own
//   decode (the peer is not bit-exact with the ITU vectors, so the check is
//   an SNR floor);
// - the bit packing against an independent bit-string model;
// - no allocation on the per-frame path, and a decoder that accepts any bits.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "coders/g729.h"
#include "support/alloc_count.h"
#include "support/paths.h"

#ifdef KVOSC_HAVE_LIBBCG729
extern "C" {
#include <bcg729/decoder.h>
#include <bcg729/encoder.h>
}
#endif

namespace {

using namespace kvosc::coders;

// ---- vectors ----------------------------------------------------------

struct VectorCase {
    const char* coder;
    const char* folder;
};

class G729Vectors : public ::testing::TestWithParam<VectorCase> {};

TEST_P(G729Vectors, EverySetIsBitExact) {
    const std::string dir = kvosc::test::vector_dir_or_skip(GetParam().folder);
    if (dir.empty()) return;
    const Coder* coder = find_coder(GetParam().coder);
    ASSERT_NE(coder, nullptr);
    int compared = 0;
    for (const VerifyRow& row : coder->verify(dir)) {
        SCOPED_TRACE(row.set + ": " + row.note);
        if (row.skipped) continue;
        ++compared;
        EXPECT_GT(row.frames, 0);
        EXPECT_EQ(row.mismatched, 0);
    }
    EXPECT_GE(compared, 10);
}

INSTANTIATE_TEST_SUITE_P(G729, G729Vectors,
                         ::testing::Values(VectorCase{"g729", "g729"},
                                           VectorCase{"g729a", "g729a"}),
                         [](const auto& row) { return std::string(row.param.coder); });

// ---- synthetic speech ---------------------------------------------------

// Deterministic speech-like signal: a glottal pulse train with a gliding
// pitch (80..260 Hz) through three formant resonators that move from phrase
// to phrase, with unvoiced noise stretches, amplitude envelopes and pauses.
std::vector<int16_t> synthetic_speech(int seconds) {
    std::mt19937 rng(729);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const int n = seconds * 8000;
    std::vector<int16_t> out(n);
    double y1[3] = {}, y2[3] = {}, phase = 0;
    double f[3] = {500, 1500, 2500}, bw[3] = {80, 120, 200};
    double pitch = 120, pitchTarget = 150, amp = 0, ampTarget = 0.5;
    bool voiced = true;
    for (int i = 0; i < n; ++i) {
        if (i % 1600 == 0) {  // a new "syllable" every 200 ms
            voiced = u(rng) < 0.75;
            pitchTarget = 80 + 180 * u(rng);
            ampTarget = u(rng) < 0.1 ? 0.0 : 0.15 + 0.85 * u(rng);
            for (int k = 0; k < 3; ++k) f[k] = (k + 1) * 900 * (0.5 + u(rng) * 0.6) + 150 * k;
        }
        pitch += (pitchTarget - pitch) * 0.0008;
        amp += (ampTarget - amp) * 0.002;
        double x;
        if (voiced) {
            phase += pitch / 8000;
            x = phase >= 1 ? 1.0 : 0.0;
            if (phase >= 1) phase -= 1;
        } else {
            x = (u(rng) - 0.5) * 0.3;
        }
        double s = 0;
        for (int k = 0; k < 3; ++k) {
            const double r = std::exp(-M_PI * bw[k] / 8000);
            const double c = 2 * r * std::cos(2 * M_PI * f[k] / 8000);
            const double y = x + c * y1[k] - r * r * y2[k];
            y2[k] = y1[k];
            y1[k] = y;
            s += y / (k + 1);
        }
        out[i] = static_cast<int16_t>(std::clamp(s * amp * 2500, -32768.0, 32767.0));
    }
    return out;
}

#ifdef KVOSC_HAVE_LIBBCG729
double snr_db(const std::vector<int16_t>& ref, const std::vector<int16_t>& x) {
    double sig = 0, err = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        sig += double(ref[i]) * ref[i];
        err += (double(ref[i]) - x[i]) * (double(ref[i]) - x[i]);
    }
    return err == 0 ? 200.0 : 10 * std::log10(sig / err);
}

std::vector<uint8_t> our_encode(bool annexA, const std::vector<int16_t>& pcm) {
    g729::Encoder enc(annexA);
    std::vector<uint8_t> out;
    for (size_t at = 0; at + g729::kFrame <= pcm.size(); at += g729::kFrame) {
        int16_t prm[g729::kParams];
        uint8_t b[g729::kPackedBytes];
        EXPECT_TRUE(enc.frame(pcm.data() + at, prm));
        g729::pack(prm, b);
        out.insert(out.end(), b, b + g729::kPackedBytes);
    }
    return out;
}

std::vector<int16_t> our_decode(bool annexA, const std::vector<uint8_t>& stream) {
    g729::Decoder dec(annexA);
    std::vector<int16_t> out;
    for (size_t at = 0; at + g729::kPackedBytes <= stream.size(); at += g729::kPackedBytes) {
        int16_t prm[g729::kParams], pcm[g729::kFrame];
        g729::unpack(stream.data() + at, prm);
        EXPECT_TRUE(dec.frame(prm, false, pcm));
        out.insert(out.end(), pcm, pcm + g729::kFrame);
    }
    return out;
}

std::vector<uint8_t> peer_encode(const std::vector<int16_t>& pcm) {
    bcg729EncoderChannelContextStruct* enc = initBcg729EncoderChannel(0);
    std::vector<uint8_t> out;
    for (size_t at = 0; at + 80 <= pcm.size(); at += 80) {
        uint8_t b[10], len = 0;
        bcg729Encoder(enc, pcm.data() + at, b, &len);
        EXPECT_EQ(len, 10);
        out.insert(out.end(), b, b + 10);
    }
    closeBcg729EncoderChannel(enc);
    return out;
}

std::vector<int16_t> peer_decode(const std::vector<uint8_t>& stream) {
    bcg729DecoderChannelContextStruct* dec = initBcg729DecoderChannel();
    std::vector<int16_t> out;
    for (size_t at = 0; at + 10 <= stream.size(); at += 10) {
        int16_t pcm[80];
        bcg729Decoder(dec, stream.data() + at, 10, 0, 0, 0, pcm);
        out.insert(out.end(), pcm, pcm + 80);
    }
    closeBcg729DecoderChannel(dec);
    return out;
}
#endif

TEST(G729Coder, AgreesWithAnIndependentAnnexACoder) {
#ifndef KVOSC_HAVE_LIBBCG729
    GTEST_SKIP() << "libbcg729 not found: no peer G.729 Annex A coder to compare with";
#else
    const std::vector<int16_t> pcm = synthetic_speech(60);
    const std::vector<uint8_t> ours = our_encode(true, pcm);
    const std::vector<uint8_t> theirs = peer_encode(pcm);
    ASSERT_EQ(ours.size(), theirs.size());
    // Each decoder on the other's stream against the other's own decode.
    const double ourDecoder = snr_db(peer_decode(theirs), our_decode(true, theirs));
    const double peerDecoder = snr_db(our_decode(true, ours), peer_decode(ours));
    RecordProperty("our_decoder_on_peer_stream_db", std::to_string(ourDecoder));
    RecordProperty("peer_decoder_on_our_stream_db", std::to_string(peerDecoder));
    EXPECT_GE(ourDecoder, 20.0);
    EXPECT_GE(peerDecoder, 20.0);
#endif
}

// ---- bit packing ------------------------------------------------------

// Model: the parameters written out as a string of '0'/'1', MSB first.
std::string bit_string(const int16_t* prm) {
    std::string s;
    for (int p = 0; p < g729::kParams; ++p)
        for (int b = g729::kParamBits[p] - 1; b >= 0; --b) s += ((prm[p] >> b) & 1) ? '1' : '0';
    return s;
}

TEST(G729Coder, PackingFollowsTheTransmissionOrder) {
    int total = 0;
    for (int w : g729::kParamBits) total += w;
    ASSERT_EQ(total, 80);
    std::mt19937 rng(3551);
    for (int trial = 0; trial < 500; ++trial) {
        SCOPED_TRACE("trial " + std::to_string(trial));
        int16_t prm[g729::kParams], back[g729::kParams], words[g729::kSerialWords];
        for (int p = 0; p < g729::kParams; ++p)
            prm[p] = static_cast<int16_t>(rng() & ((1u << g729::kParamBits[p]) - 1));
        const std::string bits = bit_string(prm);
        uint8_t bytes[g729::kPackedBytes];
        g729::pack(prm, bytes);
        for (int i = 0; i < 80; ++i)
            ASSERT_EQ((bytes[i / 8] >> (7 - i % 8)) & 1, bits[i] - '0') << "bit " << i;
        g729::unpack(bytes, back);
        ASSERT_TRUE(std::equal(prm, prm + g729::kParams, back));
        g729::pack_serial(prm, words);
        ASSERT_EQ(words[0], 0x6b21);
        ASSERT_EQ(words[1], 80);
        for (int i = 0; i < 80; ++i) ASSERT_EQ(words[2 + i], bits[i] == '1' ? 0x0081 : 0x007f);
        ASSERT_FALSE(g729::unpack_serial(words, back));
        ASSERT_TRUE(std::equal(prm, prm + g729::kParams, back));
        words[2 + trial % 80] = 0;  // one missing bit word marks the frame erased
        ASSERT_TRUE(g729::unpack_serial(words, back));
    }
}

TEST(G729Coder, StreamFormatsAndOptions) {
    const Coder* coder = find_coder("g729a");
    ASSERT_NE(coder, nullptr);
    const std::vector<int16_t> pcm = synthetic_speech(1);
    std::vector<uint8_t> packed, itu;
    std::string error;
    ASSERT_TRUE(coder->encode(Options{}, pcm, packed, error)) << error;
    ASSERT_TRUE(coder->encode(Options{{{"format", "itu"}}}, pcm, itu, error)) << error;
    EXPECT_EQ(packed.size(), pcm.size() / 80 * 10);
    EXPECT_EQ(itu.size(), pcm.size() / 80 * 164);
    // The same frames either way, and the same decoded signal.
    std::vector<int16_t> a, b;
    ASSERT_TRUE(coder->decode(Options{}, packed, a, error)) << error;
    ASSERT_TRUE(coder->decode(Options{{{"format", "itu"}}}, itu, b, error)) << error;
    EXPECT_EQ(a, b);
    // A frame flagged bad by its sync word is concealed like one with missing bits.
    std::vector<int16_t> flagged = words_from_bytes(itu), zeroed = flagged;
    flagged[5 * 82] = 0x6b20;
    std::fill(zeroed.begin() + 5 * 82 + 2, zeroed.begin() + 6 * 82, 0);
    const std::vector<int16_t> clean = a;
    ASSERT_TRUE(coder->decode(Options{{{"format", "itu"}}}, bytes_from_words(flagged), a, error));
    ASSERT_TRUE(coder->decode(Options{{{"format", "itu"}}}, bytes_from_words(zeroed), b, error));
    EXPECT_EQ(a, b);
    EXPECT_TRUE(std::equal(a.begin(), a.begin() + 400, clean.begin()));
    EXPECT_FALSE(std::equal(a.begin() + 400, a.begin() + 480, clean.begin() + 400));
    // A partial last frame is padded with zeros.
    std::vector<int16_t> odd(pcm.begin(), pcm.begin() + 123);
    ASSERT_TRUE(coder->encode(Options{}, odd, packed, error));
    EXPECT_EQ(packed.size(), 20u);
    EXPECT_FALSE(coder->encode(Options{{{"format", "rtp"}}}, pcm, packed, error));
    EXPECT_FALSE(error.empty());
    error.clear();
    packed.pop_back();
    EXPECT_FALSE(coder->decode(Options{}, packed, a, error));
    EXPECT_FALSE(error.empty());
}

// ---- decoder robustness, allocation -----------------------------------

TEST(G729Coder, DecoderAcceptsAnyBitsAndErasures) {
    std::mt19937 rng(8);
    for (bool annexA : {false, true}) {
        g729::Decoder dec(annexA);
        for (int f = 0; f < 3000; ++f) {
            uint8_t bytes[g729::kPackedBytes];
            for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
            int16_t prm[g729::kParams], pcm[g729::kFrame];
            g729::unpack(bytes, prm);
            ASSERT_TRUE(dec.frame(prm, rng() % 7 == 0, pcm)) << "frame " << f;
        }
    }
}

TEST(G729Coder, FramesAllocateNothing) {
    ASSERT_TRUE(kvosc::test::allocation_counting_available());
    const std::vector<int16_t> pcm = synthetic_speech(1);
    for (bool annexA : {false, true}) {
        g729::Encoder enc(annexA);
        g729::Decoder dec(annexA);
        int16_t prm[g729::kParams], out[g729::kFrame];
        long allocations = 0;
        for (size_t at = 0; at + 80 <= pcm.size(); at += 80) {
            kvosc::test::AllocCounter count;
            ASSERT_TRUE(enc.frame(pcm.data() + at, prm));
            ASSERT_TRUE(dec.frame(prm, at % 800 == 400, out));
            allocations += count.allocations();
        }
        EXPECT_EQ(allocations, 0) << (annexA ? "annex A" : "G.729");
    }
}

}  // namespace
