// G.729 annex B silence-descriptor LSF quantiser and decoder: the MA
// predictive two-stage quantiser restricted to the 32 first-stage rows of
// PtrTab_1 and the 16 second-stage pairs of PtrTab_2, with the annex B
// predictors and a four-survivor search between the stages.
//
// Data: LSF in radians Q13; index set: predictor (0, 1), first stage (0..31,
// into PtrTab_1), second stage (0..15, into PtrTab_2); history 4 x 10 code
// vectors, shared with the main quantiser.
//
// Arithmetic: distances are the reference's doubled multiply-add chains,
// saturated at 0x7fffffff and then taken as their high 16 bits (the undoubled
// sum held at 0x3fffffff and shifted right by 15); differences saturate.
//
// Deliberate deviation: the decoder takes its indices modulo the table sizes
// (predictor & 1, first & 31, second & 15); in-range indices are unchanged.
#include <cstring>

#include "g729/lsp.h"
#include "g729/lsp_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// First-stage weights of the two predictors.
constexpr Kvo16s kMp[2] = {8644, 16572};
constexpr int kSurvivors = 4;

constexpr Kvo64s lmult(Kvo32s a, Kvo32s b) {
    const Kvo64s p = 2 * (Kvo64s{a} * b);
    return p > INT32_MAX ? INT32_MAX : p;
}
// High half of a saturated sum of non-negative doubled terms.
constexpr Kvo16s distHi(Kvo64s s) {
    return static_cast<Kvo16s>((s > INT32_MAX ? INT32_MAX : s) >> 16);
}

// Code vector of an annex B index set.  The silence-descriptor quantiser and
// decoder run a single gap pass (10), not the main quantiser's 10 then 5.
void codeVectorB(int first, int second, Kvo16s* y) {
    const Kvo16s* c1 = tab::LSPCode1[tab::PtrTab_1[first]];
    const Kvo16s* lo = tab::LSPCode2[tab::PtrTab_2[0][second]];
    const Kvo16s* hi = tab::LSPCode2[tab::PtrTab_2[1][second]];
    for (int j = 0; j < kLspHalf; ++j) y[j] = sat16(Kvo32s{c1[j]} + lo[j]);
    for (int j = kLspHalf; j < kLspOrder; ++j) y[j] = sat16(Kvo32s{c1[j]} + hi[j]);
    ownLspExpand(y, kLspGap1);
}

KvoStatus decodeB(int p, int first, int second, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF) {
    Kvo16s y[kLspOrder], q[kLspOrder];
    codeVectorB(first, second, y);
    ownLspCompose(y, pPrevFreq, tab::noise_fg[p], tab::noise_fg_sum[p], q);
    ownLspPushHistory(pPrevFreq, y);
    const int flags = ownLspStability(q);
    std::memcpy(pDstQLSF, q, sizeof q);
    return ownLspFlagStatus(flags);
}

}  // namespace

void ownMLSearch1(const Kvo16s* pR, Kvo16s* pPred, Kvo16s* pRow, Kvo16s* pDiff) {
    Kvo16s e[2][32];
    for (int p = 0; p < 2; ++p) {
        const Kvo16s* r = pR + p * kLspOrder;
        for (int m = 0; m < 32; ++m) {
            const Kvo16s* c = tab::LSPCode1[tab::PtrTab_1[m]];
            Kvo64s d = 0;
            for (int j = 0; j < kLspOrder; ++j) {
                const Kvo32s t = sub16(r[j], c[j]);
                d += lmult(t, t);
            }
            e[p][m] = static_cast<Kvo16s>((Kvo32s{distHi(d)} * kMp[p]) >> 15);
        }
    }
    // Four rounds of the smallest, lower predictor then lower row on ties.
    // Every value lies below 32767 (Mp < 1), so each round finds one.
    for (int q = 0; q < kSurvivors; ++q) {
        Kvo16s best = 32767;
        int bp = 0, bm = 0;
        for (int p = 0; p < 2; ++p)
            for (int m = 0; m < 32; ++m)
                if (e[p][m] < best) {
                    best = e[p][m];
                    bp = p;
                    bm = m;
                }
        e[bp][bm] = 32767;
        pPred[q] = static_cast<Kvo16s>(bp);
        pRow[q] = static_cast<Kvo16s>(bm);
        const Kvo16s* r = pR + bp * kLspOrder;
        const Kvo16s* c = tab::LSPCode1[tab::PtrTab_1[bm]];
        for (int j = 0; j < kLspOrder; ++j) pDiff[q * kLspOrder + j] = sub16(r[j], c[j]);
    }
}

int ownMLSearch2(const Kvo16s* pDiff, const Kvo16s* pPred, const Kvo16s* pW, Kvo16s* pIdx2) {
    Kvo16s best = 32767;
    int bq = 0, bi = 0;
    for (int q = 0; q < kSurvivors; ++q) {
        // W[j] = mult(s[j]^2 >> 13, w[j]), s the predictor's noise_fg_sum.
        const Kvo16s* s = tab::noise_fg_sum[pPred[q] & 1];
        Kvo16s W[kLspOrder];
        for (int j = 0; j < kLspOrder; ++j) {
            const Kvo32s s2 = Kvo32s{s[j]} * s[j];
            const Kvo32s t = s2 >= (1 << 28) ? 32767 : s2 >> 13;
            W[j] = static_cast<Kvo16s>((t * pW[j]) >> 15);
        }
        const Kvo16s* v0 = pDiff + q * kLspOrder;
        for (int i = 0; i < 16; ++i) {
            const Kvo16s* lo = tab::LSPCode2[tab::PtrTab_2[0][i]];
            const Kvo16s* hi = tab::LSPCode2[tab::PtrTab_2[1][i]];
            Kvo64s d = 0;
            for (int j = 0; j < kLspOrder; ++j) {
                const Kvo32s v = sub16(v0[j], j < kLspHalf ? lo[j] : hi[j]);
                const Kvo32s u = sat16((Kvo32s{W[j]} * v) >> 12);
                d += lmult(u, v);
            }
            const Kvo16s dist = distHi(d);
            if (dist < best) {
                best = dist;
                bq = q;
                bi = i;
            }
        }
    }
    *pIdx2 = static_cast<Kvo16s>(bi);
    return bq;
}

namespace impl {

KvoStatus kvosLSFDecode_G729B_16s(const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF) {
    if (!pIdx || !pPrevFreq || !pDstQLSF) return kvoErrNullPtr;
    return decodeB(pIdx[0] & 1, pIdx[1] & 31, pIdx[2] & 15, pPrevFreq, pDstQLSF);
}

KvoStatus kvosLSFQuant_G729B_16s(const Kvo16s* pSrcLSF, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF,
                                 Kvo16s* pDstIdx) {
    if (!pSrcLSF || !pPrevFreq || !pDstQLSF || !pDstIdx) return kvoErrNullPtr;
    Kvo16s x[kLspOrder], w[kLspOrder], r[2 * kLspOrder];
    std::memcpy(x, pSrcLSF, sizeof x);
    ownLspWeights(x, w);
    for (int p = 0; p < 2; ++p)
        ownLspTarget(x, pPrevFreq, tab::noise_fg[p], tab::noise_fg_sum_inv[p], r + p * kLspOrder);
    Kvo16s pred[kSurvivors], row[kSurvivors], diff[kSurvivors * kLspOrder], second;
    ownMLSearch1(r, pred, row, diff);
    const int q = ownMLSearch2(diff, pred, w, &second);
    Kvo16s idx[3] = {pred[q], row[q], second};
    const KvoStatus st = decodeB(idx[0], idx[1], idx[2], pPrevFreq, pDstQLSF);
    std::memcpy(pDstIdx, idx, sizeof idx);
    return st;
}

}  // namespace impl
}  // namespace kvo
