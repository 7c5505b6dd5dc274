// Argument checks of every G.729 LSP export: nulls first, then the predictor
// range; a refused call leaves history and outputs untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <utility>
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

template <class T>
T* nul(T* p, int k, int i) {
    return k == i ? nullptr : p;
}

bool untouched(const Bufs& b, Kvo16s pred) {
    Bufs ref;
    ref.idx[0] = pred;  // the case may have set the predictor
    return b == ref;
}

}  // namespace

TEST(Arguments, EveryExportRefusesBeforeWriting) {
    // Each export with its pointer count; the pointer numbered k is passed null.
    using Call = std::function<KvoStatus(Bufs&, int)>;
    // clang-format off
    const std::pair<int, Call> exports[] = {
        {4, [](Bufs& b, int k) { return kvosLSFQuant_G729_16s(nul(b.lsf, k, 0), nul(b.hist, k, 1), nul(b.out, k, 2), nul(b.idx, k, 3)); }},
        {4, [](Bufs& b, int k) { return kvosLSPQuant_G729_16s(nul(b.lsp, k, 0), nul(b.hist, k, 1), nul(b.out, k, 2), nul(b.code, k, 3)); }},
        {3, [](Bufs& b, int k) { return kvosLSFDecode_G729_16s(nul(b.idx, k, 0), nul(b.hist, k, 1), nul(b.out, k, 2)); }},
        {2, [](Bufs& b, int k) { return kvosLSFDecodeErased_G729_16s(0, nul(b.hist, k, 0), nul(b.lsf, k, 1)); }},
        {5, [](Bufs& b, int k) { return kvosLSPQuant_G729E_16s(nul(b.lsp, k, 0), nul(b.hist, k, 1), nul(b.out2, k, 2), nul(b.out, k, 3), nul(b.code, k, 4)); }},
        {3, [](Bufs& b, int k) { return kvosLSFDecode_G7291_16s(nul(b.idx, k, 0), nul(b.hist, k, 1), nul(b.out, k, 2)); }},
        {4, [](Bufs& b, int k) { return kvosLSFQuant_G729B_16s(nul(b.lsf, k, 0), nul(b.hist, k, 1), nul(b.out, k, 2), nul(b.idx, k, 3)); }},
        {3, [](Bufs& b, int k) { return kvosLSFDecode_G729B_16s(nul(b.idx, k, 0), nul(b.hist, k, 1), nul(b.out, k, 2)); }},
    };
    // clang-format on
    for (size_t e = 0; e < std::size(exports); ++e)
        for (int k = 0; k < exports[e].first; ++k) {
            Bufs b;
            EXPECT_EQ(exports[e].second(b, k), kvoErrNullPtr) << "export " << e << " null " << k;
            EXPECT_TRUE(untouched(b, 0)) << "export " << e << " null " << k;
        }
    // Ranges, after the nulls: the decoder's predictor bit, the erased frame's predictor.
    for (Kvo16s pred : {2, -1, 128}) {
        Bufs b;
        b.idx[0] = pred;
        EXPECT_EQ(kvosLSFDecode_G729_16s(b.idx, b.hist, nullptr), kvoErrNullPtr);
        EXPECT_EQ(kvosLSFDecode_G729_16s(b.idx, b.hist, b.out), kvoErrOutOfRange) << pred;
        EXPECT_TRUE(untouched(b, pred));
    }
    for (int ma : {2, -1, 65538}) {
        Bufs b;
        EXPECT_EQ(kvosLSFDecodeErased_G729_16s(ma, b.hist, nullptr), kvoErrNullPtr);
        EXPECT_EQ(kvosLSFDecodeErased_G729_16s(ma, b.hist, b.lsf), kvoErrOutOfRange) << ma;
        EXPECT_TRUE(untouched(b, 0));
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
