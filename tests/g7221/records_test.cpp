// The G.722.1 steps on the reference coder's own data (first 100 frames of each run): every
// record of every step file bit for bit at 7 kHz and 14 kHz, the 320-sample G.722 forms
// included, the synthesis windowing also against the decoder's output files; the region
// coder on every recorded region.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kvosc.h"
#include "support/paths.h"
#include "support/vectors.h"

namespace {

using kvosc::test::first_mismatch;

// Step records, little-endian, no padding: frame, len, the frame's block-floating shift
// (int32), then the step's vectors: windowing src, memIn, dst (len each); synthesis
// windowing src, memIn (len / 2), dst, memOut (len / 2); transforms src, dst.
enum class Kind { Mlt2Dct, DctFwd, DctInv, Dct2Mlt };
struct StepRecord {
    int32_t head[3];  // frame, len, shift
    std::vector<int16_t> src, memIn, dst, memOut;
};

std::vector<StepRecord> load(const std::string& name, Kind kind) {
    std::vector<StepRecord> out;
    const std::string dir = kvosc::test::vector_dir_or_skip("g7221steps");
    if (dir.empty()) return out;
    const auto file = kvosc::test::read_bytes(dir + "/" + name + ".bin");
    EXPECT_TRUE(file.ok()) << file.error;
    const uint8_t *p = file.items.data(), *end = p + file.items.size();
    auto take = [&](size_t n) {
        std::vector<int16_t> v(n);
        std::memcpy(v.data(), p, 2 * n);
        p += 2 * n;
        return v;
    };
    while (end - p >= 12) {
        StepRecord r;
        std::memcpy(r.head, p, 12);
        p += 12;
        const size_t len = static_cast<size_t>(r.head[1]), h = len / 2;
        const bool dct = kind == Kind::DctFwd || kind == Kind::DctInv;
        if ((len != 320 && len != 640) || size_t(end - p) < 2 * (dct ? 2 : 3) * len) break;
        r.src = take(len);
        if (kind == Kind::Mlt2Dct) r.memIn = take(len), r.memOut = r.src;  // history: this frame
        if (kind == Kind::Dct2Mlt) r.memIn = take(h);
        r.dst = take(len);
        if (kind == Kind::Dct2Mlt) r.memOut = take(h);
        out.push_back(std::move(r));
    }
    EXPECT_EQ(p, end) << name << ": broken record after " << out.size();
    EXPECT_EQ(out.size(), 100u) << name;
    return out;
}

// One step through the general export or, at 320 samples, the G.722 form.
KvoStatus step(Kind k, bool g722, const int16_t* src, int16_t* mem, int16_t* dst, int len) {
    switch (k) {
        case Kind::Mlt2Dct:
            return g722 ? kvosDecomposeMLTToDCT_G722_16s(src, mem, dst)
                        : kvosDecomposeMLTToDCT_G7221_16s(src, mem, dst, len);
        case Kind::DctFwd:
            return g722 ? kvosDCTFwd_G722_16s(src, dst) : kvosDCTFwd_G7221_16s(src, dst, len);
        case Kind::DctInv:
            return g722 ? kvosDCTInv_G722_16s(src, dst) : kvosDCTInv_G7221_16s(src, dst, len);
        default:
            return g722 ? kvosDecomposeDCTToMLT_G722_16s(src, mem, dst)
                        : kvosDecomposeDCTToMLT_G7221_16s(src, mem, dst, len);
    }
}

struct StepFile {
    std::string name;
    Kind kind;
    std::string pcm;  // the decoder's output file (synthesis windowing only)
};

std::vector<StepFile> stepFiles() {
    std::vector<StepFile> v;
    for (const char* r : {"enc7k", "enc14k"}) {
        v.push_back({std::string(r) + "_mlt2dct", Kind::Mlt2Dct, ""});
        v.push_back({std::string(r) + "_dctfwd", Kind::DctFwd, ""});
    }
    for (const char* r : {"24000", "24000_fe", "32000", "32000_fe"}) {
        v.push_back({std::string("dec7k_") + r + "_dctinv", Kind::DctInv, ""});
        v.push_back({std::string("dec7k_") + r + "_dct2mlt", Kind::Dct2Mlt,
                     std::string("g7221/g722_1_dec_out_") + r + ".pcm"});
    }
    for (const char* r : {"24000", "32000", "48000"}) {
        v.push_back({std::string("dec14k_") + r + "_dctinv", Kind::DctInv, ""});
        v.push_back({std::string("dec14k_") + r + "_dct2mlt", Kind::Dct2Mlt,
                     std::string("g7221c/g722_1c_dec_out_") + r + ".pcm"});
    }
    return v;
}

class Steps : public ::testing::TestWithParam<StepFile> {};

// The synthesis windowing also runs with our own history from a zero start, against the
// recorded output and the decoder's output file (the program clears the two low bits).
TEST_P(Steps, MatchEveryRecord) {
    const StepFile& sf = GetParam();
    const auto recs = load(sf.name, sf.kind);
    const auto pcm = sf.pcm.empty()
                         ? kvosc::test::VectorFile<int16_t>{}
                         : kvosc::test::read_words(kvosc::test::vectors_root() + "/" + sf.pcm);
    std::vector<int16_t> own;
    for (size_t f = 0; f < recs.size(); ++f) {
        const StepRecord& r = recs[f];
        const int len = r.head[1];
        for (bool g722 : {false, true}) {
            if (g722 && len != 320) continue;
            SCOPED_TRACE(testing::Message() << "frame " << r.head[0] << (g722 ? " G.722" : ""));
            std::vector<int16_t> mem = r.memIn, dst(len);
            ASSERT_EQ(step(sf.kind, g722, r.src.data(), mem.data(), dst.data(), len), kvoOk);
            ASSERT_EQ(first_mismatch(dst, r.dst), -1);
            ASSERT_EQ(first_mismatch(mem, r.memOut), -1);
        }
        if (sf.pcm.empty()) continue;
        own.resize(len / 2);
        std::vector<int16_t> out(len);
        ASSERT_EQ(kvosDecomposeDCTToMLT_G7221_16s(r.src.data(), own.data(), out.data(), len),
                  kvoOk);
        ASSERT_EQ(first_mismatch(out, r.dst), -1) << "frame " << f << " from a zero history";
        ASSERT_TRUE(pcm.ok()) << pcm.error;
        ASSERT_GE(pcm.items.size(), (f + 1) * len);
        for (int i = 0; i < len; ++i)
            ASSERT_EQ(static_cast<int16_t>(out[i] & 0xfffc), pcm.items[f * len + i]) << f;
    }
}

INSTANTIATE_TEST_SUITE_P(G7221, Steps, ::testing::ValuesIn(stepFiles()),
                         [](const auto& p) { return p.param.name; });

// Region coder records: frame, call, region, category, power index (int32), 20 coefficients,
// bits, words (int32), six code words.
struct HuffRecord {
    int32_t frame, call, region, category, powerIndex;
    int16_t coef[20];
    int32_t bits, words;
    uint32_t code[6];
};
static_assert(sizeof(HuffRecord) == 92);

class RegionCoder : public ::testing::TestWithParam<const char*> {};

TEST_P(RegionCoder, MatchesEveryRecord) {
    const std::string dir = kvosc::test::vector_dir_or_skip("g7221steps");
    if (dir.empty()) return;
    const auto file = kvosc::test::read_bytes(dir + "/" + GetParam() + ".bin");
    ASSERT_TRUE(file.ok()) << file.error;
    ASSERT_EQ(file.items.size() % sizeof(HuffRecord), 0u);
    std::vector<HuffRecord> recs(file.items.size() / sizeof(HuffRecord));
    ASSERT_FALSE(recs.empty());
    std::memcpy(recs.data(), file.items.data(), file.items.size());
    for (const HuffRecord& r : recs) {
        SCOPED_TRACE(testing::Message() << "frame " << r.frame << " call " << r.call);
        Kvo32u words[6];
        std::fill(std::begin(words), std::end(words), 0xdeadbeefu);
        Kvo32s bits = -1;
        ASSERT_EQ(kvosHuffmanEncode_G722_16s32u(r.category, r.powerIndex, r.coef, words, &bits),
                  kvoOk);
        ASSERT_EQ(bits, r.bits);
        ASSERT_EQ(r.words, (bits + 31) / 32);
        for (int w = 0; w < 6; ++w)  // nothing beyond the last word of the code
            ASSERT_EQ(words[w], w < r.words ? r.code[w] : 0xdeadbeefu) << "word " << w;
    }
}

INSTANTIATE_TEST_SUITE_P(G7221, RegionCoder,
                         ::testing::Values("enc7k_24000_huff", "enc7k_32000_huff",
                                           "enc14k_24000_huff", "enc14k_32000_huff",
                                           "enc14k_48000_huff"));

}  // namespace
