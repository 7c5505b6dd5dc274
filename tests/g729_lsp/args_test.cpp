// Argument checks of every G.729 LSP export: nulls first, then the predictor
// range; a refused call leaves history and outputs untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kvosc.h"
#include "lsp_test_reset.h"

namespace {

struct Bufs {
    Kvo16s lsf[10], lsp[10], hist[40], out[10], out2[10], idx[4], code[2];
    Bufs() {
        std::memcpy(lsf, kvo::tab::freq_prev_reset, sizeof lsf);
        kvosLSFToLSP_G729_16s(lsf, lsp);
        for (int k = 0; k < 4; ++k) std::memcpy(hist + 10 * k, lsf, sizeof lsf);
        for (Kvo16s& v : out) v = 0x5a5a;
        for (Kvo16s& v : out2) v = 0x5a5a;
        idx[0] = 0, idx[1] = 10, idx[2] = 4, idx[3] = 9;
        code[0] = code[1] = 0x5a5a;
    }
    bool operator==(const Bufs& o) const { return std::memcmp(this, &o, sizeof *this) == 0; }
};

struct Case {
    std::string what;
    std::function<KvoStatus(Bufs&)> call;
    KvoStatus want;
};

}  // namespace

TEST(Arguments, EveryExportRefusesBeforeWriting) {
    const Kvo16s* N = nullptr;
    Kvo16s* W = nullptr;
    auto withPred = [](Bufs& b, Kvo16s p) {
        b.idx[0] = p;
        return b.idx;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {"quant null lsf", [&](Bufs& b) { return kvosLSFQuant_G729_16s(N, b.hist, b.out, b.idx); }, kvoErrNullPtr},
        {"quant null hist", [&](Bufs& b) { return kvosLSFQuant_G729_16s(b.lsf, W, b.out, b.idx); }, kvoErrNullPtr},
        {"quant null out", [&](Bufs& b) { return kvosLSFQuant_G729_16s(b.lsf, b.hist, W, b.idx); }, kvoErrNullPtr},
        {"quant null idx", [&](Bufs& b) { return kvosLSFQuant_G729_16s(b.lsf, b.hist, b.out, W); }, kvoErrNullPtr},
        {"lspq null lsp", [&](Bufs& b) { return kvosLSPQuant_G729_16s(N, b.hist, b.out, b.code); }, kvoErrNullPtr},
        {"lspq null hist", [&](Bufs& b) { return kvosLSPQuant_G729_16s(b.lsp, W, b.out, b.code); }, kvoErrNullPtr},
        {"lspq null out", [&](Bufs& b) { return kvosLSPQuant_G729_16s(b.lsp, b.hist, W, b.code); }, kvoErrNullPtr},
        {"lspq null code", [&](Bufs& b) { return kvosLSPQuant_G729_16s(b.lsp, b.hist, b.out, W); }, kvoErrNullPtr},
        {"dec null idx", [&](Bufs& b) { return kvosLSFDecode_G729_16s(N, b.hist, b.out); }, kvoErrNullPtr},
        {"dec null hist", [&](Bufs& b) { return kvosLSFDecode_G729_16s(b.idx, W, b.out); }, kvoErrNullPtr},
        {"dec null out", [&](Bufs& b) { return kvosLSFDecode_G729_16s(b.idx, b.hist, W); }, kvoErrNullPtr},
        {"dec null before range", [&](Bufs& b) { return kvosLSFDecode_G729_16s(withPred(b, 2), b.hist, W); }, kvoErrNullPtr},
        {"dec predictor 2", [&](Bufs& b) { return kvosLSFDecode_G729_16s(withPred(b, 2), b.hist, b.out); }, kvoErrOutOfRange},
        {"dec predictor -1", [&](Bufs& b) { return kvosLSFDecode_G729_16s(withPred(b, -1), b.hist, b.out); }, kvoErrOutOfRange},
        {"dec predictor 128", [&](Bufs& b) { return kvosLSFDecode_G729_16s(withPred(b, 128), b.hist, b.out); }, kvoErrOutOfRange},
        {"erased null hist", [&](Bufs& b) { return kvosLSFDecodeErased_G729_16s(0, W, b.lsf); }, kvoErrNullPtr},
        {"erased null lsf", [&](Bufs& b) { return kvosLSFDecodeErased_G729_16s(0, b.hist, N); }, kvoErrNullPtr},
        {"erased null before range", [&](Bufs& b) { return kvosLSFDecodeErased_G729_16s(2, b.hist, N); }, kvoErrNullPtr},
        {"erased ma 2", [&](Bufs& b) { return kvosLSFDecodeErased_G729_16s(2, b.hist, b.lsf); }, kvoErrOutOfRange},
        {"erased ma -1", [&](Bufs& b) { return kvosLSFDecodeErased_G729_16s(-1, b.hist, b.lsf); }, kvoErrOutOfRange},
        {"erased ma 65538", [&](Bufs& b) { return kvosLSFDecodeErased_G729_16s(65538, b.hist, b.lsf); }, kvoErrOutOfRange},
        {"E null lsp", [&](Bufs& b) { return kvosLSPQuant_G729E_16s(N, b.hist, b.out2, b.out, b.code); }, kvoErrNullPtr},
        {"E null hist", [&](Bufs& b) { return kvosLSPQuant_G729E_16s(b.lsp, N, b.out2, b.out, b.code); }, kvoErrNullPtr},
        {"E null freq", [&](Bufs& b) { return kvosLSPQuant_G729E_16s(b.lsp, b.hist, W, b.out, b.code); }, kvoErrNullPtr},
        {"E null qlsp", [&](Bufs& b) { return kvosLSPQuant_G729E_16s(b.lsp, b.hist, b.out2, W, b.code); }, kvoErrNullPtr},
        {"E null code", [&](Bufs& b) { return kvosLSPQuant_G729E_16s(b.lsp, b.hist, b.out2, b.out, W); }, kvoErrNullPtr},
        {"7291 null idx", [&](Bufs& b) { return kvosLSFDecode_G7291_16s(N, b.hist, b.out); }, kvoErrNullPtr},
        {"7291 null hist", [&](Bufs& b) { return kvosLSFDecode_G7291_16s(b.idx, W, b.out); }, kvoErrNullPtr},
        {"7291 null out", [&](Bufs& b) { return kvosLSFDecode_G7291_16s(b.idx, b.hist, W); }, kvoErrNullPtr},
        {"B quant null lsf", [&](Bufs& b) { return kvosLSFQuant_G729B_16s(N, b.hist, b.out, b.idx); }, kvoErrNullPtr},
        {"B quant null hist", [&](Bufs& b) { return kvosLSFQuant_G729B_16s(b.lsf, W, b.out, b.idx); }, kvoErrNullPtr},
        {"B quant null out", [&](Bufs& b) { return kvosLSFQuant_G729B_16s(b.lsf, b.hist, W, b.idx); }, kvoErrNullPtr},
        {"B quant null idx", [&](Bufs& b) { return kvosLSFQuant_G729B_16s(b.lsf, b.hist, b.out, W); }, kvoErrNullPtr},
        {"B dec null idx", [&](Bufs& b) { return kvosLSFDecode_G729B_16s(N, b.hist, b.out); }, kvoErrNullPtr},
        {"B dec null hist", [&](Bufs& b) { return kvosLSFDecode_G729B_16s(b.idx, W, b.out); }, kvoErrNullPtr},
        {"B dec null out", [&](Bufs& b) { return kvosLSFDecode_G729B_16s(b.idx, b.hist, W); }, kvoErrNullPtr},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bufs b;
        const KvoStatus st = c.call(b);
        EXPECT_EQ(st, c.want);
        Bufs ref;
        std::memcpy(ref.idx, b.idx, sizeof b.idx);  // the case may have set the predictor
        EXPECT_TRUE(b == ref) << "something was written";
    }
}

// Accepted edge values: the erased-frame predictor is read as 16 bits, and the
// G.729.1 and annex B decoders do not range-test their indices (they are read
// modulo the table sizes, so nothing outside a table is ever addressed).
TEST(Arguments, AcceptedEdgeValues) {
    Bufs a, b;
    EXPECT_EQ(kvosLSFDecodeErased_G729_16s(65536, a.hist, a.lsf), kvoOk);
    EXPECT_EQ(kvosLSFDecodeErased_G729_16s(0, b.hist, b.lsf), kvoOk);
    EXPECT_EQ(0, std::memcmp(a.hist, b.hist, sizeof a.hist));

    Bufs c, d;
    const Kvo16s wild[4] = {2, 128 + 10, 32 + 4, -32 + 9};
    EXPECT_GE(kvosLSFDecode_G7291_16s(wild, c.hist, c.out), 0);
    EXPECT_GE(kvosLSFDecode_G7291_16s(d.idx, d.hist, d.out), 0);
    EXPECT_EQ(0, std::memcmp(c.out, d.out, sizeof c.out));

    const Kvo16s bwild[3] = {-1, 40, 17}, bsame[3] = {1, 8, 1};
    Bufs e, f;
    EXPECT_GE(kvosLSFDecode_G729B_16s(bwild, e.hist, e.out), 0);
    EXPECT_GE(kvosLSFDecode_G729B_16s(bsame, f.hist, f.out), 0);
    EXPECT_EQ(0, std::memcmp(e.out, f.out, sizeof e.out));
}
