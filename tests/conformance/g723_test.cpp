// G.723.1 assembled from the exports: the ITU test vectors of the coder with
// Annex A, bit for bit where the assembly already matches, and a guard on the
// frames that match elsewhere; plus a round trip of the coder on a generated
// signal.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "support/paths.h"
#include "support/signals.h"

namespace {

using kvosc::coders::Coder;
using kvosc::coders::Options;
using kvosc::coders::VerifyRow;

const Coder& g723() {
    const Coder* c = kvosc::coders::find_coder("g723");
    EXPECT_NE(c, nullptr);
    return *c;
}

const std::vector<VerifyRow>& rows(const std::string& dir) {
    static const std::vector<VerifyRow> r = g723().verify(dir);
    return r;
}

// Rows in verify's order: six encoder sets, five decoder sets, then the eight
// sets that need the comfort-noise generator of Annex A.
constexpr int kRows = 19;

class G723Vectors : public ::testing::TestWithParam<int> {};

// The sets that are bit-exact must stay so; the others must not lose frames.
TEST_P(G723Vectors, BitExactOrNoRegression) {
    static const bool kExact[kRows] = {false, false, false, false, false, false, true, true,
                                       false, true,  false};
    static const long kAtLeast[kRows] = {0, 0, 1, 0, 0, 1, 2, 26, 20, 4, 37};
    const std::string dir = kvosc::test::vector_dir_or_skip("g723");
    if (dir.empty()) return;
    const auto& r = rows(dir);
    ASSERT_EQ(static_cast<int>(r.size()), kRows);
    const VerifyRow& row = r[static_cast<size_t>(GetParam())];
    if (row.skipped) GTEST_SKIP() << row.set << ": " << row.note;
    ASSERT_GT(row.frames, 0) << row.set;
    if (kExact[GetParam()]) {
        EXPECT_EQ(row.mismatched, 0) << row.set << ": " << row.note;
    } else {
        EXPECT_GE(row.frames - row.mismatched, kAtLeast[GetParam()]) << row.set << ": " << row.note;
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, G723Vectors, ::testing::Range(0, kRows));

TEST(G723Coder, RoundTripKeepsTheSignal) {
    const std::vector<int16_t> pcm = kvosc::test::speech_like(8000, 7, 9000, 8000);
    for (const char* rate : {"6.3", "5.3"}) {
        SCOPED_TRACE(rate);
        Options opt;
        opt.values = {{"rate", rate}};
        std::vector<uint8_t> stream;
        std::string err;
        ASSERT_TRUE(g723().encode(opt, pcm, stream, err)) << err;
        const size_t frames = (pcm.size() + 239) / 240;
        EXPECT_EQ(stream.size(), frames * (rate[0] == '6' ? 24u : 20u));
        std::vector<int16_t> out;
        ASSERT_TRUE(g723().decode(opt, stream, out, err)) << err;
        ASSERT_EQ(out.size(), frames * 240);
        // The coded signal follows the input, one subframe of look-ahead later:
        // correlation of the envelopes is well above chance.
        double num = 0, ea = 0, eb = 0;
        for (size_t n = 60; n + 60 < pcm.size(); ++n) {
            const double a = pcm[n - 60], b = out[n];
            num += a * b;
            ea += a * a;
            eb += b * b;
        }
        EXPECT_GT(num / std::sqrt(ea * eb), 0.3);
    }
}

TEST(G723Coder, RejectsUnknownOptions) {
    const std::vector<int16_t> pcm(240, 0);
    std::vector<uint8_t> stream;
    std::string err;
    Options bad;
    bad.values = {{"rate", "8"}};
    EXPECT_FALSE(g723().encode(bad, pcm, stream, err));
    EXPECT_FALSE(err.empty());
    Options flag;
    flag.values = {{"postfilter", "maybe"}};
    std::vector<int16_t> out;
    EXPECT_FALSE(g723().decode(flag, {0}, out, err));
}

}  // namespace
