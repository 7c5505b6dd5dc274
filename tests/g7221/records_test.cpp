// The G.722.1 steps on the reference coder's own data: every record of every
// step file, bit for bit, at 7 kHz and 14 kHz; then the steps chained as the
// coder runs them against the next step's recorded input and the decoder's
// output files.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "kvosc.h"
#include "records.h"
#include "support/paths.h"
#include "support/vectors.h"

using g7221test::HuffRecord;
using g7221test::Kind;
using g7221test::StepRecord;

namespace {

std::vector<StepRecord> load(const std::string& name, Kind kind) {
    std::string dir = kvosc::test::vector_dir_or_skip("g7221steps");
    if (dir.empty()) return {};
    std::string error;
    auto recs = g7221test::read_steps(dir + "/" + name + ".bin", kind, error);
    EXPECT_TRUE(error.empty()) << error;
    EXPECT_EQ(recs.size(), 100u) << name;
    return recs;
}

std::vector<HuffRecord> loadHuff(const std::string& name) {
    std::string dir = kvosc::test::vector_dir_or_skip("g7221steps");
    if (dir.empty()) return {};
    std::string error;
    auto recs = g7221test::read_huff(dir + "/" + name + ".bin", error);
    EXPECT_TRUE(error.empty()) << error;
    EXPECT_FALSE(recs.empty()) << name;
    return recs;
}

// Index of the first differing word, or -1.
long diff(const std::vector<int16_t>& got, const std::vector<int16_t>& want) {
    return kvosc::test::first_mismatch(got, want);
}

// ---- each step on each record ------------------------------------------------

class EncoderSteps : public ::testing::TestWithParam<const char*> {};

TEST_P(EncoderSteps, WindowingMatchesEveryRecord) {
    const auto recs = load(std::string(GetParam()) + "_mlt2dct", Kind::Mlt2Dct);
    for (const StepRecord& r : recs) {
        SCOPED_TRACE("frame " + std::to_string(r.frame));
        std::vector<int16_t> mem = r.memIn, dst(r.len);
        ASSERT_EQ(kvosDecomposeMLTToDCT_G7221_16s(r.src.data(), mem.data(), dst.data(), r.len),
                  kvoOk);
        ASSERT_EQ(diff(dst, r.dst), -1);
        ASSERT_EQ(diff(mem, r.src), -1);
        if (r.len == 320) {
            std::vector<int16_t> mem2 = r.memIn, dst2(320);
            ASSERT_EQ(kvosDecomposeMLTToDCT_G722_16s(r.src.data(), mem2.data(), dst2.data()),
                      kvoOk);
            ASSERT_EQ(dst2, dst);
            ASSERT_EQ(mem2, mem);
        }
    }
}

TEST_P(EncoderSteps, ForwardDctMatchesEveryRecord) {
    const auto recs = load(std::string(GetParam()) + "_dctfwd", Kind::DctFwd);
    for (const StepRecord& r : recs) {
        SCOPED_TRACE("frame " + std::to_string(r.frame));
        std::vector<int16_t> dst(r.len);
        ASSERT_EQ(kvosDCTFwd_G7221_16s(r.src.data(), dst.data(), r.len), kvoOk);
        ASSERT_EQ(diff(dst, r.dst), -1);
        if (r.len == 320) {
            std::vector<int16_t> dst2(320);
            ASSERT_EQ(kvosDCTFwd_G722_16s(r.src.data(), dst2.data()), kvoOk);
            ASSERT_EQ(dst2, dst);
        }
    }
}

// Windowing with our own history from a zero start, the recorded shift, and
// the forward DCT: each stage reproduces the next step's recorded input and
// the transform output.
TEST_P(EncoderSteps, ChainReproducesTransformInputAndOutput) {
    const std::string run = GetParam();
    const auto win = load(run + "_mlt2dct", Kind::Mlt2Dct);
    const auto fwd = load(run + "_dctfwd", Kind::DctFwd);
    ASSERT_EQ(win.size(), fwd.size());
    if (win.empty()) return;
    const int len = win[0].len;
    std::vector<int16_t> mem(len, 0), folded(len), coef(len);
    for (size_t f = 0; f < win.size(); ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        ASSERT_EQ(win[f].shift, fwd[f].shift);
        ASSERT_EQ(
            kvosDecomposeMLTToDCT_G7221_16s(win[f].src.data(), mem.data(), folded.data(), len),
            kvoOk);
        const auto shifted = g7221test::shift_block(folded, win[f].shift);
        ASSERT_EQ(diff(shifted, fwd[f].src), -1);
        ASSERT_EQ(kvosDCTFwd_G7221_16s(shifted.data(), coef.data(), len), kvoOk);
        ASSERT_EQ(diff(coef, fwd[f].dst), -1);
    }
}

INSTANTIATE_TEST_SUITE_P(G7221, EncoderSteps, ::testing::Values("enc7k", "enc14k"));

class DecoderSteps : public ::testing::TestWithParam<const char*> {};

TEST_P(DecoderSteps, InverseDctMatchesEveryRecord) {
    const auto recs = load(std::string(GetParam()) + "_dctinv", Kind::DctInv);
    for (const StepRecord& r : recs) {
        SCOPED_TRACE("frame " + std::to_string(r.frame));
        std::vector<int16_t> dst(r.len);
        ASSERT_EQ(kvosDCTInv_G7221_16s(r.src.data(), dst.data(), r.len), kvoOk);
        ASSERT_EQ(diff(dst, r.dst), -1);
        if (r.len == 320) {
            std::vector<int16_t> dst2(320);
            ASSERT_EQ(kvosDCTInv_G722_16s(r.src.data(), dst2.data()), kvoOk);
            ASSERT_EQ(dst2, dst);
        }
    }
}

TEST_P(DecoderSteps, SynthesisWindowingMatchesEveryRecord) {
    const auto recs = load(std::string(GetParam()) + "_dct2mlt", Kind::Dct2Mlt);
    for (const StepRecord& r : recs) {
        SCOPED_TRACE("frame " + std::to_string(r.frame));
        std::vector<int16_t> mem = r.memIn, dst(r.len);
        ASSERT_EQ(kvosDecomposeDCTToMLT_G7221_16s(r.src.data(), mem.data(), dst.data(), r.len),
                  kvoOk);
        ASSERT_EQ(diff(dst, r.dst), -1);
        ASSERT_EQ(diff(mem, r.memOut), -1);
        if (r.len == 320) {
            std::vector<int16_t> mem2 = r.memIn, dst2(320);
            ASSERT_EQ(kvosDecomposeDCTToMLT_G722_16s(r.src.data(), mem2.data(), dst2.data()),
                      kvoOk);
            ASSERT_EQ(dst2, dst);
            ASSERT_EQ(mem2, mem);
        }
    }
}

// Decoder output files of each run (the program clears the two low bits).
const std::map<std::string, std::string> kDecoderOutput = {
    {"dec7k_24000", "g7221/g722_1_dec_out_24000.pcm"},
    {"dec7k_24000_fe", "g7221/g722_1_dec_out_24000_fe.pcm"},
    {"dec7k_32000", "g7221/g722_1_dec_out_32000.pcm"},
    {"dec7k_32000_fe", "g7221/g722_1_dec_out_32000_fe.pcm"},
    {"dec14k_24000", "g7221c/g722_1c_dec_out_24000.pcm"},
    {"dec14k_32000", "g7221c/g722_1c_dec_out_32000.pcm"},
    {"dec14k_48000", "g7221c/g722_1c_dec_out_48000.pcm"},
};

// Inverse DCT, shift undone, windowing with our own history from a zero
// start: reproduces the windowing's recorded input, its output, and the
// decoder's output file.
TEST_P(DecoderSteps, ChainReproducesDecoderOutput) {
    const std::string run = GetParam();
    const auto inv = load(run + "_dctinv", Kind::DctInv);
    const auto win = load(run + "_dct2mlt", Kind::Dct2Mlt);
    ASSERT_EQ(inv.size(), win.size());
    if (inv.empty()) return;
    const int len = inv[0].len;
    std::vector<int16_t> pcm;
    const std::string root = kvosc::test::vectors_root();
    auto words = kvosc::test::read_words(root + "/" + kDecoderOutput.at(run));
    const bool havePcm = words.ok() && words.items.size() >= inv.size() * len;
    std::vector<int16_t> mem(len / 2, 0), coef(len), out(len);
    for (size_t f = 0; f < inv.size(); ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        ASSERT_EQ(inv[f].shift, win[f].shift);
        ASSERT_EQ(kvosDCTInv_G7221_16s(inv[f].src.data(), coef.data(), len), kvoOk);
        const auto unshifted = g7221test::shift_block(coef, -inv[f].shift);
        ASSERT_EQ(diff(unshifted, win[f].src), -1);
        ASSERT_EQ(kvosDecomposeDCTToMLT_G7221_16s(unshifted.data(), mem.data(), out.data(), len),
                  kvoOk);
        ASSERT_EQ(diff(out, win[f].dst), -1);
        if (havePcm) {
            for (int i = 0; i < len; ++i)
                ASSERT_EQ(static_cast<int16_t>(out[i] & 0xfffc), words.items[f * len + i])
                    << "sample " << i;
        }
    }
    if (!havePcm) GTEST_SKIP() << "decoder output file of " << run << " not found";
}

INSTANTIATE_TEST_SUITE_P(G7221, DecoderSteps,
                         ::testing::Values("dec7k_24000", "dec7k_24000_fe", "dec7k_32000",
                                           "dec7k_32000_fe", "dec14k_24000", "dec14k_32000",
                                           "dec14k_48000"));

// ---- region coder ------------------------------------------------------------

class RegionCoder : public ::testing::TestWithParam<const char*> {};

TEST_P(RegionCoder, MatchesEveryRecord) {
    const auto recs = loadHuff(GetParam());
    for (const HuffRecord& r : recs) {
        SCOPED_TRACE("frame " + std::to_string(r.frame) + " call " + std::to_string(r.call));
        Kvo32u words[6];
        std::fill(std::begin(words), std::end(words), 0xdeadbeefu);
        Kvo32s bits = -1;
        ASSERT_EQ(kvosHuffmanEncode_G722_16s32u(r.category, r.powerIndex, r.coef, words, &bits),
                  kvoOk);
        ASSERT_EQ(bits, r.bits);
        ASSERT_EQ(r.words, (bits + 31) / 32);
        for (int w = 0; w < r.words; ++w) ASSERT_EQ(words[w], r.code[w]) << "word " << w;
        // nothing beyond the last word of the code
        for (int w = r.words; w < 6; ++w) ASSERT_EQ(words[w], 0xdeadbeefu) << "word " << w;
    }
}

INSTANTIATE_TEST_SUITE_P(G7221, RegionCoder,
                         ::testing::Values("enc7k_24000_huff", "enc7k_32000_huff",
                                           "enc14k_24000_huff", "enc14k_32000_huff",
                                           "enc14k_48000_huff"));

}  // namespace
