// G.729 LSP quantisation exports: the switched-MA predictive two-stage
// quantiser of the main body, its decoder and erased-frame update, the
// annex E form (history read only) and the G.729.1 decoder.
//
// Data: LSF in radians Q13, LSP cosines Q15, history 4 x 10 code vectors.
// Index set: predictor (0, 1), first stage (0..127), low and high second
// stage (0..31); packed code (p << 7) | first, (low << 5) | high.
//
// Deliberate deviation: the decoders take the codebook indices modulo their
// table sizes (first & 127, halves & 31; the predictor & 1 where it is not
// range-tested), so an index out of range cannot read outside the tables.
// In-range indices decode unchanged, as in the reference, which masks the
// bit-stream fields the same way.
#include <cstring>

#include "g729/lsp.h"
#include "g729/lsp_tables.h"
#include "impl.h"

namespace kvo {
namespace {

// Reconstruction shared by the decoders of the main body and G.729.1: code
// vector, prediction, history push (before the stability pass), stability.
KvoStatus decodeMain(int p, const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF) {
    Kvo16s y[kLspOrder], q[kLspOrder];
    ownLspGetQuant(pIdx[1] & 127, pIdx[2] & 31, pIdx[3] & 31, y);
    ownLspCompose(y, pPrevFreq, tab::fg[p], tab::fg_sum[p], q);
    ownLspPushHistory(pPrevFreq, y);
    const int flags = ownLspStability(q);
    std::memcpy(pDstQLSF, q, sizeof q);
    return ownLspFlagStatus(flags);
}

void packCode(const Kvo16s* idx, Kvo16s* pCode) {
    pCode[0] = static_cast<Kvo16s>((idx[0] << 7) | idx[1]);
    pCode[1] = static_cast<Kvo16s>((idx[2] << 5) | idx[3]);
}

}  // namespace

namespace impl {

KvoStatus kvosLSFDecode_G729_16s(const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF) {
    if (!pIdx || !pPrevFreq || !pDstQLSF) return kvoErrNullPtr;
    if (pIdx[0] < 0 || pIdx[0] > 1) return kvoErrOutOfRange;
    return decodeMain(pIdx[0], pIdx, pPrevFreq, pDstQLSF);
}

KvoStatus kvosLSFDecode_G7291_16s(const Kvo16s* pIdx, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF) {
    if (!pIdx || !pPrevFreq || !pDstQLSF) return kvoErrNullPtr;
    return decodeMain(pIdx[0] & 1, pIdx, pPrevFreq, pDstQLSF);
}

KvoStatus kvosLSFDecodeErased_G729_16s(Kvo32s maIndex, Kvo16s* pPrevFreq,
                                       const Kvo16s* pSrcPrevLSF) {
    if (!pPrevFreq || !pSrcPrevLSF) return kvoErrNullPtr;
    const Kvo16u p = static_cast<Kvo16u>(maIndex);
    if (p >= 2) return kvoErrOutOfRange;
    // The code vector that would have given the previous LSF.
    Kvo16s r[kLspOrder];
    ownLspTarget(pSrcPrevLSF, pPrevFreq, tab::fg[p], tab::fg_sum_inv[p], r);
    ownLspPushHistory(pPrevFreq, r);
    return kvoOk;
}

KvoStatus kvosLSFQuant_G729_16s(const Kvo16s* pSrcLSF, Kvo16s* pPrevFreq, Kvo16s* pDstQLSF,
                                Kvo16s* pDstIdx) {
    if (!pSrcLSF || !pPrevFreq || !pDstQLSF || !pDstIdx) return kvoErrNullPtr;
    Kvo16s x[kLspOrder], idx[4];
    std::memcpy(x, pSrcLSF, sizeof x);
    ownRelspwed(x, tab::fg, pPrevFreq, tab::fg_sum, tab::fg_sum_inv, idx);
    const KvoStatus st = decodeMain(idx[0], idx, pPrevFreq, pDstQLSF);
    std::memcpy(pDstIdx, idx, sizeof idx);
    return st;
}

KvoStatus kvosLSPQuant_G729_16s(const Kvo16s* pSrcLSP, Kvo16s* pPrevFreq, Kvo16s* pDstQLSP,
                                Kvo16s* pDstCode) {
    if (!pSrcLSP || !pPrevFreq || !pDstQLSP || !pDstCode) return kvoErrNullPtr;
    Kvo16s lsf[kLspOrder], q[kLspOrder], idx[4];
    kvosLSPToLSF_G729_16s(pSrcLSP, lsf);
    ownRelspwed(lsf, tab::fg, pPrevFreq, tab::fg_sum, tab::fg_sum_inv, idx);
    decodeMain(idx[0], idx, pPrevFreq, q);  // stability warnings are not reported here
    packCode(idx, pDstCode);
    return kvosLSFToLSP_G729_16s(q, pDstQLSP);
}

KvoStatus kvosLSPQuant_G729E_16s(const Kvo16s* pSrcLSP, const Kvo16s* pSrcPrevFreq,
                                 Kvo16s* pDstFreq, Kvo16s* pDstQLSP, Kvo16s* pDstCode) {
    if (!pSrcLSP || !pSrcPrevFreq || !pDstFreq || !pDstQLSP || !pDstCode) return kvoErrNullPtr;
    Kvo16s lsf[kLspOrder], q[kLspOrder], row[kLspOrder], idx[4];
    kvosLSPToLSF_G729_16s(pSrcLSP, lsf);
    ownRelspwed(lsf, tab::fg, pSrcPrevFreq, tab::fg_sum, tab::fg_sum_inv, idx);
    kvosLSFDecode_G729E_16s_(idx, pSrcPrevFreq, q, row);  // warnings dropped
    std::memcpy(pDstFreq, row, sizeof row);
    packCode(idx, pDstCode);
    return kvosLSFToLSP_G729_16s(q, pDstQLSP);
}

}  // namespace impl
}  // namespace kvo
