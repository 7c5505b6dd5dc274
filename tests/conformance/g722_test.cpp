// G.722 assembled from the exports: the ITU test vectors bit for bit, and an
// independent G.722 implementation (spandsp) on generated signals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "support/paths.h"

#ifdef KVOSC_HAVE_SPANDSP
#include <spandsp.h>
#endif

namespace {

using kvosc::coders::Coder;
using kvosc::coders::Options;
using kvosc::coders::VerifyRow;

const Coder& g722() {
    const Coder* c = kvosc::coders::find_coder("g722");
    EXPECT_NE(c, nullptr);
    return *c;
}

// ---- ITU vectors -------------------------------------------------------------

class G722Vectors : public ::testing::TestWithParam<int> {};

TEST_P(G722Vectors, BitExact) {
    const std::string dir = kvosc::test::vector_dir_or_skip("g722");
    if (dir.empty()) return;
    static const std::vector<VerifyRow> rows = g722().verify(dir);
    ASSERT_LT(GetParam(), static_cast<int>(rows.size()));
    const VerifyRow& r = rows[GetParam()];
    if (r.skipped) GTEST_SKIP() << r.set << ": " << r.note;
    std::printf("[ g722 ] %-40s frames %ld, mismatched %ld %s\n", r.set.c_str(), r.frames,
                r.mismatched, r.note.c_str());
    EXPECT_GT(r.frames, 0);
    EXPECT_EQ(r.mismatched, 0) << r.set << ": " << r.note;
}

// Encoder, then the decoder at modes 1, 2, 3.
INSTANTIATE_TEST_SUITE_P(Sets, G722Vectors, ::testing::Values(0, 1, 2, 3));

// ---- generated signals --------------------------------------------------------

std::vector<int16_t> speech_like(int n, uint32_t seed) {
    // Pitch pulses through two formant resonators, with a syllable envelope.
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<int16_t> s(n);
    double y1 = 0, y2 = 0, z1 = 0, z2 = 0;
    const double fs = 16000;
    for (int i = 0; i < n; ++i) {
        const double t = i / fs;
        const double f0 = 110 + 40 * std::sin(2 * M_PI * 1.3 * t);
        const bool pulse = std::fmod(t * f0, 1.0) < f0 / fs;
        const double ex = (pulse ? 6000.0 : 0.0) + 150 * noise(rng);
        const double r1 = 0.97, w1 = 2 * M_PI * (600 + 200 * std::sin(2 * M_PI * 2.1 * t)) / fs;
        const double y = ex + 2 * r1 * std::cos(w1) * y1 - r1 * r1 * y2;
        y2 = y1;
        y1 = y;
        const double r2 = 0.93, w2 = 2 * M_PI * 2300 / fs;
        const double z = 0.3 * y + 2 * r2 * std::cos(w2) * z1 - r2 * r2 * z2;
        z2 = z1;
        z1 = z;
        const double env = 0.55 + 0.45 * std::sin(2 * M_PI * 3.0 * t);
        const double v = env * (0.2 * y + 0.5 * z);
        s[i] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, v)));
    }
    return s;
}

std::vector<int16_t> white_noise(int n, double amp, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-amp, amp);
    std::vector<int16_t> s(n);
    for (auto& v : s) v = static_cast<int16_t>(std::lround(u(rng)));
    return s;
}

std::vector<int16_t> square(int n, int period, int16_t amp) {
    std::vector<int16_t> s(n);
    for (int i = 0; i < n; ++i) s[i] = (i / (period / 2)) % 2 ? static_cast<int16_t>(-amp - 1) : amp;
    return s;
}

std::vector<int16_t> sweep(int n, double amp) {
    std::vector<int16_t> s(n);
    double ph = 0;
    for (int i = 0; i < n; ++i) {
        const double f = 50 + 7900.0 * i / n;
        ph += 2 * M_PI * f / 16000;
        s[i] = static_cast<int16_t>(std::lround(amp * std::sin(ph)));
    }
    return s;
}

struct Signal {
    const char* name;
    std::vector<int16_t> pcm;
};

std::vector<Signal> signals() {
    const int n = 16000 * 3;
    return {
        {"speech", speech_like(n, 7)},
        {"noise", white_noise(n, 8000, 11)},
        {"loud noise", white_noise(n, 32767, 13)},
        {"silence", std::vector<int16_t>(n, 0)},
        {"square full scale", square(n, 40, 32767)},
        {"sweep", sweep(n, 30000)},
    };
}

std::vector<uint8_t> our_encode(const std::vector<int16_t>& pcm) {
    std::vector<uint8_t> codes;
    std::string err;
    EXPECT_TRUE(g722().encode(Options{}, pcm, codes, err)) << err;
    return codes;
}

std::vector<int16_t> our_decode(const std::vector<uint8_t>& codes, int mode) {
    std::vector<int16_t> pcm;
    std::string err;
    Options opt;
    opt.values.push_back({"mode", std::to_string(mode)});
    EXPECT_TRUE(g722().decode(opt, codes, pcm, err)) << err;
    return pcm;
}

// Index of the first difference, or -1.
template <typename T>
long first_difference(const std::vector<T>& a, const std::vector<T>& b) {
    if (a.size() != b.size()) return static_cast<long>(std::min(a.size(), b.size()));
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i]) return static_cast<long>(i);
    return -1;
}

TEST(G722Coder, ModesStayInStepWithTheEncoder) {
    // The decoder adapts on the 4-bit index at every mode: a stream decoded at
    // 48 kbit/s and one decoded at 64 kbit/s track each other closely.
    const auto pcm = speech_like(16000, 3);
    const auto codes = our_encode(pcm);
    const auto d1 = our_decode(codes, 1), d3 = our_decode(codes, 3);
    ASSERT_EQ(d1.size(), d3.size());
    double e = 0, d = 0;
    for (size_t i = 0; i < d1.size(); ++i) {
        e += double(d1[i]) * d1[i];
        d += double(d1[i] - d3[i]) * (d1[i] - d3[i]);
    }
    EXPECT_GT(10 * std::log10(e / d), 15.0);
}

TEST(G722Coder, RejectsUnknownOptions) {
    std::vector<uint8_t> out;
    std::vector<int16_t> pcm(32, 0);
    std::string err;
    Options bad_mode;
    bad_mode.values.push_back({"mode", "4"});
    EXPECT_FALSE(g722().encode(bad_mode, pcm, out, err));
    EXPECT_FALSE(err.empty());
    Options bad_format;
    bad_format.values.push_back({"format", "rtp"});
    EXPECT_FALSE(g722().decode(bad_format, out, pcm, err));
}

TEST(G722Coder, ItuFormatHoldsOneCodePerWord) {
    const auto pcm = speech_like(3200, 5);
    std::vector<uint8_t> packed, itu;
    std::string err;
    Options opt;
    ASSERT_TRUE(g722().encode(opt, pcm, packed, err));
    opt.values.push_back({"format", "itu"});
    ASSERT_TRUE(g722().encode(opt, pcm, itu, err));
    ASSERT_EQ(itu.size(), 2 * packed.size());
    for (size_t i = 0; i < packed.size(); ++i) {
        EXPECT_EQ(itu[2 * i], packed[i]);
        EXPECT_EQ(itu[2 * i + 1], 0);
    }
    std::vector<int16_t> a, b;
    ASSERT_TRUE(g722().decode(opt, itu, a, err));
    ASSERT_TRUE(g722().decode(Options{}, packed, b, err));
    EXPECT_EQ(a, b);
}

// ---- spandsp ------------------------------------------------------------------

#ifdef KVOSC_HAVE_SPANDSP

std::vector<uint8_t> peer_encode(const std::vector<int16_t>& pcm) {
    g722_encode_state_t* s = g722_encode_init(nullptr, 64000, 0);
    std::vector<uint8_t> codes(pcm.size() / 2 + 1);
    int n = 0;
    for (size_t at = 0; at < pcm.size(); at += 160) {
        const int len = static_cast<int>(std::min<size_t>(160, pcm.size() - at));
        n += g722_encode(s, codes.data() + n, pcm.data() + at, len);
    }
    codes.resize(n);
    g722_encode_free(s);
    return codes;
}

std::vector<int16_t> peer_decode(const std::vector<uint8_t>& codes, int rate) {
    g722_decode_state_t* s = g722_decode_init(nullptr, rate, 0);
    std::vector<int16_t> pcm(codes.size() * 2 + 2);
    int n = 0;
    for (size_t at = 0; at < codes.size(); at += 80) {
        const int len = static_cast<int>(std::min<size_t>(80, codes.size() - at));
        n += g722_decode(s, pcm.data() + n, codes.data() + at, len);
    }
    pcm.resize(n);
    g722_decode_free(s);
    return pcm;
}

TEST(G722Peer, CodesAndSamplesMatchAt64k) {
    for (const Signal& sig : signals()) {
        SCOPED_TRACE(sig.name);
        const auto ours = our_encode(sig.pcm);
        const auto theirs = peer_encode(sig.pcm);
        EXPECT_EQ(first_difference(ours, theirs), -1) << "codes differ";
        const auto dec = our_decode(ours, 1);
        const auto pdec = peer_decode(ours, 64000);
        EXPECT_EQ(first_difference(dec, pdec), -1) << "decoded samples differ";
    }
}

#else

TEST(G722Peer, CodesAndSamplesMatchAt64k) { GTEST_SKIP() << "spandsp not found"; }

#endif

}  // namespace
