// The LSP indices of the G.729 encoder, checked bit for bit against the
// standard's test bit streams: each .IN file runs through the encoder's LP
// front end (pre-processing high-pass, windowed autocorrelation, lag window,
// Levinson-Durbin, LSP root search) and kvosLSPQuant_G729_16s, and the packed
// code must equal the first 18 bits of every frame of the matching .BIT file.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kvosc.h"
#include "lsp_test_hp.h"
#include "lsp_test_reset.h"
#include "support/paths.h"

namespace {

std::vector<Kvo16s> readWords(const std::string& path) {
    std::vector<Kvo16s> v;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return v;
    Kvo16s buf[4096];
    size_t n;
    while ((n = std::fread(buf, sizeof(Kvo16s), 4096, f)) > 0) v.insert(v.end(), buf, buf + n);
    std::fclose(f);
    return v;
}

// The two LSP code words of frame k: bits 0 (predictor), 1-7, 8-12, 13-17.
void frameCode(const std::vector<Kvo16s>& bits, size_t k, Kvo16s* code) {
    const Kvo16s* b = bits.data() + k * 82 + 2;
    auto field = [&](int from, int n) {
        int v = 0;
        for (int i = 0; i < n; ++i) v = (v << 1) | (b[from + i] == 0x0081 ? 1 : 0);
        return v;
    };
    code[0] = static_cast<Kvo16s>((field(0, 1) << 7) | field(1, 7));
    code[1] = static_cast<Kvo16s>((field(8, 5) << 5) | field(13, 5));
}

// The encoder's LP front end over 80-sample frames: pre-processing high-pass,
// the 240-sample analysis window, autocorrelation, lag window, Levinson-Durbin
// (the previous filter kept when it gives up) and the LSP root search.
struct FrontEnd {
    KvoHighPassState_G729 hp;
    Kvo16s speech[240] = {};
    Kvo16s lpc[11] = {4096};
    Kvo16s lspOld[10];
    FrontEnd() {
        Kvo16s coeffs[6];
        std::memcpy(coeffs, kvo::tab::a140, sizeof kvo::tab::a140);
        std::memcpy(coeffs + 3, kvo::tab::b140, sizeof kvo::tab::b140);
        kvosHighPassFilterInit_G729(coeffs, &hp);
        kvosLSFToLSP_G729_16s(kvo::tab::freq_prev_reset, lspOld);
    }
    void frame(const Kvo16s* in, Kvo16s* lsp) {
        std::memmove(speech, speech + 80, 160 * sizeof(Kvo16s));
        std::memcpy(speech + 160, in, 80 * sizeof(Kvo16s));
        kvosHighPassFilter_G729_16s_ISfs(speech + 160, 80, 12, &hp);
        Kvo32s r[13];
        Kvo16s norm;
        kvosAutoCorr_G729B(speech, &norm, r);
        kvosLagWindow_G729_32s_I(r + 1, 10);
        Kvo16s a[11], rc[10], err;
        if (kvosLevinsonDurbin_G729_32s16s(r, 10, a, rc, &err) == kvoOk)
            std::memcpy(lpc, a, sizeof a);
        kvosLPCToLSP_G729_16s(lpc, lspOld, lsp);
        std::memcpy(lspOld, lsp, sizeof lspOld);
    }
};

void resetHistory(Kvo16s* h) {
    for (int k = 0; k < 4; ++k) std::memcpy(h + 10 * k, kvo::tab::freq_prev_reset, 20);
}

}  // namespace

class LspVectors : public ::testing::TestWithParam<const char*> {};

TEST_P(LspVectors, EncoderCodesMatchTheBitStream) {
    const std::string dir = kvosc::test::vector_dir_or_skip("g729");
    if (dir.empty()) return;
    const std::string name = GetParam();
    const std::vector<Kvo16s> in = readWords(dir + "/" + name + ".IN");
    const std::vector<Kvo16s> bits = readWords(dir + "/" + name + ".BIT");
    ASSERT_FALSE(in.empty());
    const size_t frames = in.size() / 80;
    ASSERT_EQ(bits.size(), frames * 82);

    FrontEnd fe;
    Kvo16s prevFreq[40];
    resetHistory(prevFreq);
    for (size_t k = 0; k < frames; ++k) {
        SCOPED_TRACE(name + " frame " + std::to_string(k));
        Kvo16s lsp[10], lspq[10], code[2], want[2];
        fe.frame(in.data() + k * 80, lsp);
        ASSERT_EQ(kvosLSPQuant_G729_16s(lsp, prevFreq, lspq, code), kvoOk);
        frameCode(bits, k, want);
        ASSERT_EQ(code[0], want[0]);
        ASSERT_EQ(code[1], want[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(G729, LspVectors,
                         ::testing::Values("LSP", "ALGTHM", "FIXED", "PITCH", "TAME"));

// Annex B streams: speech frames carry the main quantiser's codes, silence
// descriptor frames the annex B indices, which the encoder pushes into the
// shared history exactly as kvosLSFDecode_G729B_16s does; untransmitted frames
// leave the history alone.  Every speech frame's code must match, so the
// history after each descriptor frame is checked too.
class LspVectorsB : public ::testing::TestWithParam<const char*> {};

TEST_P(LspVectorsB, SpeechCodesFollowTheDescriptorHistory) {
    const std::string dir = kvosc::test::vector_dir_or_skip("g729b");
    if (dir.empty()) return;
    const std::string name = GetParam();
    const std::vector<Kvo16s> in = readWords(dir + "/" + name + ".bin");
    const std::vector<Kvo16s> bits = readWords(dir + "/" + name + ".bit");
    ASSERT_FALSE(in.empty());
    FrontEnd fe;
    Kvo16s prevFreq[40];
    resetHistory(prevFreq);
    size_t pos = 0;
    int speech = 0, sid = 0;
    for (size_t k = 0; (k + 1) * 80 <= in.size() && pos + 2 <= bits.size(); ++k) {
        SCOPED_TRACE(name + " frame " + std::to_string(k));
        const int size = bits[pos + 1];
        const Kvo16s* b = bits.data() + pos + 2;
        pos += 2 + size;
        auto field = [&](int from, int n) {
            int v = 0;
            for (int i = 0; i < n; ++i) v = (v << 1) | (b[from + i] == 0x0081 ? 1 : 0);
            return static_cast<Kvo16s>(v);
        };
        Kvo16s lsp[10];
        fe.frame(in.data() + k * 80, lsp);
        if (size == 80) {
            Kvo16s lspq[10], code[2];
            ASSERT_EQ(kvosLSPQuant_G729_16s(lsp, prevFreq, lspq, code), kvoOk);
            ASSERT_EQ(code[0], (field(0, 1) << 7) | field(1, 7));
            ASSERT_EQ(code[1], (field(8, 5) << 5) | field(13, 5));
            ++speech;
        } else if (size == 16) {
            const Kvo16s idx[3] = {field(0, 1), field(1, 5), field(6, 4)};
            Kvo16s q[10];
            ASSERT_GE(kvosLSFDecode_G729B_16s(idx, prevFreq, q), 0);
            ++sid;
        }
    }
    RecordProperty("speechFrames", speech);
    RecordProperty("sidFrames", sid);
    EXPECT_GT(sid, 0);
}

INSTANTIATE_TEST_SUITE_P(G729B, LspVectorsB, ::testing::Values("tstseq1", "tstseq2", "tstseq3"));
