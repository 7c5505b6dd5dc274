// The vector-file readers: exact decoding of small files written here, every
// layout fault reported with its position, then every real vector folder
// that is present read end to end as a smoke test.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "support/paths.h"
#include "support/vectors.h"

namespace kt = kvosc::test;

namespace {

class Files : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = kt::make_temp_dir();
        ASSERT_FALSE(dir_.empty());
    }
    void TearDown() override { kt::remove_tree(dir_); }
    std::string file(const std::string& name, const std::vector<int16_t>& words) {
        std::string p = dir_ + "/" + name;
        EXPECT_TRUE(kt::write_words(p, words));
        return p;
    }
    std::string dir_;
};

std::vector<int16_t> itu_frame(uint16_t sync, const std::vector<int>& bits) {
    std::vector<int16_t> w = {static_cast<int16_t>(sync), static_cast<int16_t>(bits.size())};
    for (int b : bits) w.push_back(b < 0 ? 0 : b ? 0x0081 : 0x007f);
    return w;
}
void append(std::vector<int16_t>& a, const std::vector<int16_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
}

TEST_F(Files, WordsAreLittleEndianSigned) {
    auto f = kt::read_words(file("w.bin", {1, -1, 0x1234, -32768}));
    ASSERT_TRUE(f.ok()) << f.error;
    EXPECT_EQ(f.items, (std::vector<int16_t>{1, -1, 0x1234, -32768}));
    auto raw = kt::read_bytes(dir_ + "/w.bin");
    ASSERT_EQ(raw.items.size(), 8u);
    EXPECT_EQ(raw.items[4], 0x34);  // low byte first
    EXPECT_EQ(raw.items[5], 0x12);

    std::string odd = dir_ + "/odd.bin";
    FILE* o = std::fopen(odd.c_str(), "wb");
    std::fputs("abc", o);
    std::fclose(o);
    EXPECT_NE(kt::read_words(odd).error.find("odd byte count"), std::string::npos);
    EXPECT_NE(kt::read_words(dir_ + "/absent").error.find("cannot open"), std::string::npos);
}

TEST_F(Files, ItuBitStreamFramesOfEveryKind) {
    std::vector<int16_t> w;
    std::vector<int> speech(80), sid(16);
    for (int i = 0; i < 80; ++i) speech[i] = (i * 7 + 3) % 5 < 2;
    for (int i = 0; i < 16; ++i) sid[i] = i & 1;
    append(w, itu_frame(0x6b21, speech));
    append(w, itu_frame(0x6b21, sid));
    append(w, itu_frame(0x6b21, {}));                        // untransmitted
    append(w, itu_frame(0x6b21, std::vector<int>(80, -1)));  // erased: all zero words
    append(w, itu_frame(0x6b20, std::vector<int>(4, 1)));    // bad-frame sync
    auto f = kt::read_itu_bitstream(file("s.bit", w));
    ASSERT_TRUE(f.ok()) << f.error;
    ASSERT_EQ(f.items.size(), 5u);
    EXPECT_EQ(f.items[0].bits.size(), 80u);
    for (int i = 0; i < 80; ++i) EXPECT_EQ(f.items[0].bits[i], speech[i]) << i;
    EXPECT_FALSE(f.items[0].erased);
    // Fields read MSB first: sid bits 0101... -> the first 4 are 0b0101.
    EXPECT_EQ(f.items[1].field(0, 4), 5u);
    EXPECT_EQ(f.items[1].field(1, 3), 5u);
    EXPECT_EQ(f.items[1].field(0, 16), 0x5555u);
    EXPECT_TRUE(f.items[2].bits.empty());
    EXPECT_FALSE(f.items[2].erased);
    EXPECT_TRUE(f.items[3].erased);
    EXPECT_TRUE(f.items[4].erased);
    EXPECT_EQ(f.items[4].sync, 0x6b20);
}

TEST_F(Files, ItuBitStreamFaultsNameTheFrameAndWord) {
    struct Fault {
        const char* what;
        std::vector<int16_t> words;
        const char* says;
    };
    std::vector<int16_t> good = itu_frame(0x6b21, {1, 0, 1});
    std::vector<int16_t> bad_sync = good;
    append(bad_sync, itu_frame(0x6b22, {1}));
    std::vector<int16_t> bad_bit = good;
    append(bad_bit, {0x6b21, 2, 0x007f, 0x0080});
    std::vector<int16_t> short_frame = good;
    append(short_frame, {0x6b21, 5, 0x007f});
    std::vector<int16_t> mixed = {0x6b21, 2, 0x007f, 0};
    std::vector<int16_t> no_size = {0x6b21};
    const Fault faults[] = {
        {"sync", bad_sync, "frame 1, word 5: sync word 0x6b22"},
        {"bit word", bad_bit, "frame 1, word 8: bit word 0x0080"},
        {"size", short_frame, "frame 1, word 5: size word 5 runs past"},
        {"mixed", mixed, "zero word in a frame of bits"},
        {"no size", no_size, "size word missing"},
    };
    for (const auto& f : faults) {
        auto r = kt::read_itu_bitstream(file("f.bit", f.words));
        EXPECT_NE(r.error.find(f.says), std::string::npos) << f.what << ": " << r.error;
    }
}

TEST_F(Files, ByteWordsRejectAWideWord) {
    auto f = kt::read_byte_words(file("a.bin", {0x00d5, 0x0000, 0x00ff}));
    ASSERT_TRUE(f.ok()) << f.error;
    EXPECT_EQ(f.items, (std::vector<uint8_t>{0xd5, 0x00, 0xff}));
    auto g = kt::read_byte_words(file("b.bin", {0x00d5, 0x0100}));
    EXPECT_NE(g.error.find("word 1 is 0x0100"), std::string::npos) << g.error;
}

TEST_F(Files, GsmFullRateLayouts) {
    std::vector<int16_t> cod;
    for (int i = 0; i < 8; ++i) cod.push_back(static_cast<int16_t>(i % 4 + 1));
    for (int s = 0; s < 4; ++s) {
        cod.push_back(static_cast<int16_t>(40 + s));  // Nc
        cod.push_back(static_cast<int16_t>(s));       // bc
        cod.push_back(static_cast<int16_t>(3 - s));   // Mc
        cod.push_back(static_cast<int16_t>(60 + s));  // xmaxc
        for (int k = 0; k < 13; ++k) cod.push_back(static_cast<int16_t>((k + s) % 8));
    }
    ASSERT_EQ(cod.size(), kt::kGsmFrCodWords);
    auto f = kt::read_gsmfr_cod(file("a.cod", cod));
    ASSERT_TRUE(f.ok()) << f.error;
    ASSERT_EQ(f.items.size(), 1u);
    EXPECT_EQ(f.items[0].LARc[7], 4);
    EXPECT_EQ(f.items[0].sub[2].Nc, 42);
    EXPECT_EQ(f.items[0].sub[3].Mc, 0);
    EXPECT_EQ(f.items[0].sub[3].xmaxc, 63);
    EXPECT_EQ(f.items[0].sub[1].xmc[12], 5);

    auto wide = cod;
    wide[7] = 8;  // LARc[8] has 3 bits
    EXPECT_NE(kt::read_gsmfr_cod(file("b.cod", wide)).error.find("exceeds 3 bits"),
              std::string::npos);
    cod.pop_back();
    EXPECT_NE(kt::read_gsmfr_cod(file("c.cod", cod)).error.find("not a multiple of 76"),
              std::string::npos);

    std::vector<int16_t> pcm(320);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>((i * 8) - 1000);
    auto s = kt::read_gsmfr_samples(file("a.inp", pcm));
    ASSERT_TRUE(s.ok()) << s.error;
    ASSERT_EQ(s.items.size(), 2u);
    EXPECT_EQ(s.items[1][0], pcm[160]);
    pcm[200] |= 1;
    EXPECT_NE(kt::read_gsmfr_samples(file("b.inp", pcm)).error.find("frame 1"), std::string::npos);
}

TEST_F(Files, AmrWbFramesBySizeOfTypeAndMode) {
    EXPECT_EQ(kt::amrwb_frame_bits(0, 0), 132);
    EXPECT_EQ(kt::amrwb_frame_bits(0, 8), 477);
    EXPECT_EQ(kt::amrwb_frame_bits(3, 2), 35);
    EXPECT_EQ(kt::amrwb_frame_bits(0, 9), -1);
    EXPECT_EQ(kt::amrwb_frame_bits(4, 0), -1);
    std::vector<int16_t> w = {0x6b21, 0, 2};
    for (int i = 0; i < 253; ++i) w.push_back(i % 3 ? 0x007f : static_cast<int16_t>(0xff81));
    append(w, {0x6b20, 2, 2});
    for (int i = 0; i < 35; ++i) w.push_back(0x007f);
    auto f = kt::read_amrwb_cod(file("a.cod", w));
    ASSERT_TRUE(f.ok()) << f.error;
    ASSERT_EQ(f.items.size(), 2u);
    EXPECT_TRUE(f.items[0].good);
    EXPECT_EQ(f.items[0].bits.size(), 253u);
    EXPECT_EQ(f.items[0].bits[0], 0);
    EXPECT_EQ(f.items[0].bits[1], 1);
    EXPECT_FALSE(f.items[1].good);
    EXPECT_EQ(f.items[1].type, 2);
    w.back() = 0x0081;
    EXPECT_NE(kt::read_amrwb_cod(file("b.cod", w)).error.find("frame 1, word 293: bit word 0x0081"),
              std::string::npos);
    w[1] = 0;
    w[2] = 11;
    EXPECT_NE(kt::read_amrwb_cod(file("c.cod", w)).error.find("mode 11"), std::string::npos);
}

TEST(Compare, MismatchReportLocatesTheSample) {
    std::vector<int16_t> a(400, 7), b(400, 7);
    EXPECT_EQ(kt::first_mismatch(a, b), -1);
    EXPECT_EQ(kt::describe_mismatch(a, b, 160), "identical");
    b[170] = 9;
    b[399] = 0;
    EXPECT_EQ(kt::first_mismatch(a, b), 170);
    EXPECT_EQ(kt::describe_mismatch(a, b, 160),
              "first difference at sample 170 (frame 1, offset 10): got 7, want 9; 2 of 400 "
              "samples differ");
    b.resize(300);
    b[170] = 7;
    b[299] = 7;
    EXPECT_EQ(kt::first_mismatch(a, b), 300);
}

// ---- every published folder that is present --------------------------------

struct SmokeSet {
    const char* set;
    std::function<bool(const std::string&)> pick;         // by file name
    std::function<std::string(const std::string&)> read;  // error text, empty when fine
};

void PrintTo(const SmokeSet& s, std::ostream* os) {
    *os << s.set;
}

bool ends_with(const std::string& s, const std::string& e) {
    return s.size() >= e.size() && s.compare(s.size() - e.size(), e.size(), e) == 0;
}

// Reads an ITU bit stream and checks every frame size is one of `sizes`.
std::function<std::string(const std::string&)> itu(std::set<size_t> sizes) {
    return [sizes](const std::string& p) {
        auto f = kt::read_itu_bitstream(p);
        if (!f.ok()) return f.error;
        if (f.items.empty()) return p + ": no frame";
        for (size_t i = 0; i < f.items.size(); ++i)
            if (!sizes.count(f.items[i].bits.size()))
                return p + ": frame " + std::to_string(i) + " has " +
                       std::to_string(f.items[i].bits.size()) + " bits";
        return std::string();
    };
}
std::string words(const std::string& p) {
    auto f = kt::read_words(p);
    return f.ok() && f.items.empty() ? p + ": empty" : f.error;
}

class RealFolder : public ::testing::TestWithParam<SmokeSet> {};

TEST_P(RealFolder, EveryFileReads) {
    const SmokeSet& s = GetParam();
    std::string dir = kt::vector_dir_or_skip(s.set);
    if (dir.empty()) return;
    int read = 0;
    for (const auto& name : kt::files_in(dir)) {
        if (!s.pick(name)) continue;
        std::string err = s.read(dir + "/" + name);
        EXPECT_TRUE(err.empty()) << err;
        ++read;
    }
    EXPECT_GT(read, 0) << "no file of the expected kind in " << dir;
}

const SmokeSet kSmoke[] = {
    {"g729", [](auto& n) { return ends_with(n, ".BIT"); }, itu({80})},
    {"g729", [](auto& n) { return ends_with(n, ".IN") || ends_with(n, ".PST"); }, words},
    {"g729a", [](auto& n) { return ends_with(n, ".BIT"); }, itu({80})},
    {"g729b", [](auto& n) { return ends_with(n, ".bit"); }, itu({80, 16, 0})},
    {"g729d", [](auto& n) { return n.rfind("testmid.", 0) == 0; }, itu({64, 80})},
    {"g729e", [](auto& n) { return ends_with(n, ".bit"); }, itu({118, 80, 64})},
    {"g7221", [](auto& n) { return ends_with(n, ".itu"); }, itu({480, 640})},
    {"g7221c", [](auto& n) { return ends_with(n, ".itu"); }, itu({480, 640, 960})},
    {"g722", [](auto& n) { return n == "codspw.cod"; },
     [](const std::string& p) { return kt::read_byte_words(p).error; }},
    // The published G.711 inputs and every reset/homing set (pcm_init.* and
    // the i_ini_* files hold 16-bit linear samples).
    {"g726",
     [](auto& n) {
         return n == "nrm.a" || n == "nrm.m" || n == "ovr.a" || n == "ovr.m" ||
                ends_with(n, ".i") || ends_with(n, ".o");
     },
     [](const std::string& p) { return kt::read_byte_words(p).error; }},
    {"g728", [](auto& n) { return ends_with(n, ".bin"); }, words},
    {"gsmfr", [](auto& n) { return ends_with(n, ".cod"); },
     [](const std::string& p) { return kt::read_gsmfr_cod(p).error; }},
    {"gsmfr", [](auto& n) { return ends_with(n, ".inp") || ends_with(n, ".out"); },
     [](const std::string& p) { return kt::read_gsmfr_samples(p).error; }},
    {"amrwb", [](auto& n) { return ends_with(n, ".cod"); },
     [](const std::string& p) { return kt::read_amrwb_cod(p).error; }},
};

INSTANTIATE_TEST_SUITE_P(Vectors, RealFolder, ::testing::ValuesIn(kSmoke),
                         [](const auto& param_info) {
                             return std::string(param_info.param.set) + "_" +
                                    std::to_string(param_info.index);
                         });

}  // namespace
