// Every coder assembled from the exports against the standards' vector sets,
// one row per coder: each set the coder's verify step finds (encoder and
// decoder) must match bit for bit, and at least the listed number of sets must
// have been compared.  A missing vector folder skips, or fails under CI=true.
// Then the coders' rejection of bad options and ragged streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "coders/coder.h"
#include "support/paths.h"

namespace {

using namespace kvosc::coders;

struct VectorCase {
    const char* coder;
    const char* folder;
    int min_sets;            // sets that must have been compared
    long frames = 0;         // exact frame count of every set, 0: any
    const long* at_least{};  // per set: frames that must match (null: all of them)
};

// G.728: the excitation gain is computed in double precision where the
// fixed-point reference uses its own log and power arithmetic, so most sets
// drift by a low bit after a few vectors.  Frames that already match, per set
// in verify's order (encoder then decoder of sets 1, 2, 3, 4 and 6, then the
// decoder with post filter): a change may raise these, never lower them.
const long kG728AtLeast[11] = {249, 2, 103, 91, 232, 1, 1049, 0, 64, 0, 0};

class Vectors : public ::testing::TestWithParam<VectorCase> {};

TEST_P(Vectors, EverySetMatches) {
    const VectorCase& c = GetParam();
    const std::string dir = kvosc::test::vector_dir_or_skip(c.folder);
    if (dir.empty()) return;
    const Coder* coder = find_coder(c.coder);
    ASSERT_NE(coder, nullptr);
    const std::vector<VerifyRow> rows = coder->verify(dir);
    ASSERT_TRUE(!c.at_least || rows.size() == 11u);
    int compared = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        const VerifyRow& r = rows[i];
        SCOPED_TRACE(r.set + ": " + r.note);
        std::printf("[ %s ] %-36s frames %ld, mismatched %ld\n", c.coder, r.set.c_str(), r.frames,
                    r.mismatched);
        if (r.skipped) continue;
        ++compared;
        EXPECT_TRUE(c.frames ? r.frames == c.frames : r.frames > 0) << r.frames << " frames";
        EXPECT_GE(r.frames - r.mismatched, c.at_least ? c.at_least[i] : r.frames);
    }
    EXPECT_GE(compared, c.min_sets);
}

INSTANTIATE_TEST_SUITE_P(
    Coders, Vectors,
    ::testing::Values(VectorCase{"g722", "g722", 5},  // encoder twice, decoder at modes 1..3
                      VectorCase{"g726", "g726", 100},
                      VectorCase{"g728", "g728", 11, 0, kG728AtLeast},
                      VectorCase{"g729", "g729", 10}, VectorCase{"g729a", "g729a", 10},
                      VectorCase{"g729b", "g729b", 8}, VectorCase{"g729ab", "g729b", 8},
                      VectorCase{"g729d", "g729d", 6, 1176}, VectorCase{"g729i", "g729d", 6, 1176},
                      VectorCase{"gsmfr", "gsmfr", 5}),
    [](const auto& row) { return std::string(row.param.coder); });

// The 11.8 kbit/s encoder codes every frame in forward mode: the sets where the
// reference stays in forward mode match in full, the others up to the first
// frame the reference codes in backward mode.  The decoder sets (no Annex E
// post filter or backward mode yet) are reported as pending.
TEST(G729EVectors, ForwardModeEncoderIsBitExact) {
    const std::string dir = kvosc::test::vector_dir_or_skip("g729e");
    if (dir.empty()) return;
    const std::pair<std::string, int> kSets[] = {{"algthme", -1}, {"fixed35", -1}, {"lspe", -1},
                                                 {"ovpitch", -1}, {"fixed44", 54}, {"pitche", 20},
                                                 {"switch", 197}};
    std::string pending;
    int encoders = 0;
    for (const VerifyRow& row : find_coder("g729e")->verify(dir)) {
        SCOPED_TRACE(row.set + ": " + row.note);
        if (row.skipped) continue;
        EXPECT_GT(row.frames, 0);
        if (row.set.find(" encoder") == std::string::npos) {
            if (row.mismatched != 0) pending += "\n  " + row.set + ": " + row.note;
            continue;
        }
        const std::string set = row.set.substr(0, row.set.find(' '));
        const auto it = std::find_if(std::begin(kSets), std::end(kSets),
                                     [&](const auto& e) { return e.first == set; });
        ASSERT_NE(it, std::end(kSets));
        ++encoders;
        const size_t at = row.note.find("first difference: frame ");
        const int first = at == std::string::npos ? -1 : std::atoi(row.note.c_str() + at + 24);
        if (it->second < 0)
            EXPECT_EQ(row.mismatched, 0);
        else
            EXPECT_EQ(first, it->second);
    }
    EXPECT_EQ(encoders, 7);
    if (!pending.empty()) GTEST_SKIP() << "11.8 kbit/s decoder sets not yet bit-exact:" << pending;
}

// The tool's itu format reproduces the G.726 reset vector files themselves.
TEST(G726Vectors, ItuFormatMapsVectorFileToVectorFile) {
    const std::string dir = kvosc::test::vector_dir_or_skip("g726");
    if (dir.empty()) return;
    for (const char* rate : {"16", "32", "40"}) {
        for (const char* law : {"a", "u"}) {
            SCOPED_TRACE(std::string(rate) + law);
            const std::string l = law[0] == 'a' ? "a" : "m", set = dir + "/rn" + rate + "f" + l;
            std::vector<uint8_t> in, codes, out, stream;
            ASSERT_TRUE(read_file(dir + "/nrm." + l, in) && read_file(set + ".i", codes) &&
                        read_file(set + ".o", out));
            const Options opt{{{"rate", rate}, {"law", law}, {"format", "itu"}}};
            std::vector<int16_t> pcm;
            std::string err;
            ASSERT_TRUE(find_coder("g726")->encode(opt, words_from_bytes(in), stream, err)) << err;
            EXPECT_EQ(stream, codes);
            ASSERT_TRUE(find_coder("g726")->decode(opt, codes, pcm, err)) << err;
            EXPECT_EQ(bytes_from_words(pcm), out);
        }
    }
}

// Each row: a coder, its options and a stream to decode (none: encode 160
// zero samples); the call must fail with a message naming the fault.
TEST(Coders, RejectBadOptionsAndRaggedStreams) {
    const struct {
        const char* coder;
        Options opt;
        std::vector<uint8_t> stream;
        const char* message = "";
    } rows[] = {{"g722", {{{"mode", "4"}}}, {}},
                {"g722", {{{"format", "rtp"}}}, {1, 2}},
                {"g726", {{{"rate", "33"}}}, {}},
                {"g728", {{{"postfilter", "maybe"}}}, {}},
                {"g729i", {{{"rate", "7"}}}, {}, "--rate"},
                {"g729i", {{{"format", "wav"}}}, {}, "--format"},
                {"g729i", {}, {9, 0, 0}},  // no 9-octet rate
                {"g729i", {}, {8, 1, 2, 3}},
                {"gsmfr", {{{"format", "amr"}}}, {}},
                {"gsmfr", {{{"format", "rtp"}}}, std::vector<uint8_t>(32)},
                {"gsmfr", {{{"format", "etsi"}}}, std::vector<uint8_t>(151)},
                {"gsmfr", {{{"format", "wav49"}}}, std::vector<uint8_t>(66)}};
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.coder) + " " + ::testing::PrintToString(r.opt.values));
        std::vector<int16_t> pcm(160);
        std::vector<uint8_t> stream;
        std::string err;
        EXPECT_FALSE(r.stream.empty() ? find_coder(r.coder)->encode(r.opt, pcm, stream, err)
                                      : find_coder(r.coder)->decode(r.opt, r.stream, pcm, err));
        EXPECT_NE(err.find(r.message), std::string::npos) << err;
        EXPECT_FALSE(err.empty());
    }
}

}  // namespace
