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

    KvoHighPassState_G729 hp;
    Kvo16s coeffs[6];
    std::memcpy(coeffs, kvo::tab::a140, sizeof kvo::tab::a140);
    std::memcpy(coeffs + 3, kvo::tab::b140, sizeof kvo::tab::b140);
    ASSERT_EQ(kvosHighPassFilterInit_G729(coeffs, &hp), kvoOk);

    Kvo16s speech[240] = {};
    Kvo16s prevFreq[40];
    for (int k = 0; k < 4; ++k) std::memcpy(prevFreq + 10 * k, kvo::tab::freq_prev_reset, 20);
    Kvo16s lpc[11] = {4096}, lspOld[10];
    kvosLSFToLSP_G729_16s(kvo::tab::freq_prev_reset, lspOld);

    for (size_t k = 0; k < frames; ++k) {
        SCOPED_TRACE(name + " frame " + std::to_string(k));
        std::memmove(speech, speech + 80, 160 * sizeof(Kvo16s));
        std::memcpy(speech + 160, in.data() + k * 80, 80 * sizeof(Kvo16s));
        ASSERT_GE(kvosHighPassFilter_G729_16s_ISfs(speech + 160, 80, 12, &hp), 0);

        Kvo32s r[13];
        Kvo16s norm;
        ASSERT_GE(kvosAutoCorr_G729B(speech, &norm, r), 0);
        kvosLagWindow_G729_32s_I(r + 1, 10);
        Kvo16s a[11], rc[10], err;
        if (kvosLevinsonDurbin_G729_32s16s(r, 10, a, rc, &err) == kvoOk) std::memcpy(lpc, a, sizeof a);

        Kvo16s lsp[10], lspq[10], code[2], want[2];
        kvosLPCToLSP_G729_16s(lpc, lspOld, lsp);
        std::memcpy(lspOld, lsp, sizeof lsp);
        ASSERT_EQ(kvosLSPQuant_G729_16s(lsp, prevFreq, lspq, code), kvoOk);
        frameCode(bits, k, want);
        ASSERT_EQ(code[0], want[0]);
        ASSERT_EQ(code[1], want[1]);
    }
}

INSTANTIATE_TEST_SUITE_P(G729, LspVectors,
                         ::testing::Values("LSP", "ALGTHM", "FIXED", "PITCH", "TAME"));
