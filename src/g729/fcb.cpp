// G.729 algebraic (fixed) codebook exports: the correlation matrix of the
// impulse response and the searches of G.729, annex A, annex D and annex E.
//
// Every export tests all its pointers first (kvoErrNullPtr), then the
// subframe number where it takes one, and writes nothing on failure.
// The searches modify the matrix they are given (the sign factors stay in
// it), so a matrix serves one search only.
#include <cstring>

#include "g729/fcb.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo::impl {

KvoStatus kvosToeplizMatrix_G729_16s32s(const Kvo16s* pSrcImpulse, Kvo32s* pDstMatrix) {
    if (!pSrcImpulse || !pDstMatrix) return kvoErrNullPtr;
    ownToeplizMatrix_G729_16s32s(pSrcImpulse, pDstMatrix);
    return kvoOk;
}

KvoStatus kvosToeplizMatrix_G729_16s(const Kvo16s* pSrcImpulse, Kvo16s* pDstMatrix) {
    if (!pSrcImpulse || !pDstMatrix) return kvoErrNullPtr;
    ownToeplizMatrix_G729_16s(pSrcImpulse, pDstMatrix);
    return kvoOk;
}

// subFrame is taken as its low 16 bits; negative values are refused, 0 is the
// first subframe and resets the budget.
KvoStatus kvosFixedCodebookSearch_G729_32s16s(const Kvo16s* pSrcFixedCorr, Kvo32s* pSrcDstMatrix,
                                              Kvo16s* pDstFixedVector, Kvo16s* pDstFixedIndex,
                                              Kvo16s* pSearchTimes, Kvo32s subFrame) {
    if (!pSrcFixedCorr || !pSrcDstMatrix || !pDstFixedVector || !pDstFixedIndex || !pSearchTimes)
        return kvoErrNullPtr;
    const Kvo16s sf = lo16(subFrame);
    if (sf < 0) return kvoErrRange;
    for (int k = 0; k < kFcbMatrixSize; ++k) pSrcDstMatrix[k] >>= 15;
    ownFixedCodebookSearch_G729_32s16s(pSrcFixedCorr, pSrcDstMatrix, pDstFixedVector,
                                       pDstFixedIndex, pSearchTimes, sf == 0);
    return kvoOk;
}

// subFrame, as an unsigned 16-bit number, must be 0 or 1.
KvoStatus kvosFixedCodebookSearch_G729_16s(const Kvo16s* pSrcFixedCorr, Kvo16s* pSrcDstMatrix,
                                           Kvo16s* pDstFixedVector, Kvo16s* pDstFixedIndex,
                                           Kvo16s* pSearchTimes, Kvo32s subFrame) {
    if (!pSrcFixedCorr || !pSrcDstMatrix || !pDstFixedVector || !pDstFixedIndex || !pSearchTimes)
        return kvoErrNullPtr;
    const Kvo16u sf = static_cast<Kvo16u>(subFrame);
    if (sf > 1) return kvoErrRange;
    // The signed elements of the main search always fit 16 bits, so the
    // search runs on the caller's words directly.
    ownFixedCodebookSearch_G729_16s(pSrcFixedCorr, pSrcDstMatrix, pDstFixedVector,
                                    pDstFixedIndex, pSearchTimes, sf == 0);
    return kvoOk;
}

KvoStatus kvosFixedCodebookSearch_G729A_32s16s(const Kvo16s* pSrcFixedCorr,
                                               Kvo32s* pSrcDstMatrix, Kvo16s* pDstFixedVector,
                                               Kvo16s* pDstFixedIndex) {
    if (!pSrcFixedCorr || !pSrcDstMatrix || !pDstFixedVector || !pDstFixedIndex)
        return kvoErrNullPtr;
    for (int k = 0; k < kFcbMatrixSize; ++k) pSrcDstMatrix[k] >>= 15;
    ownFixedCodebookSearch_G729A_32s16s(pSrcFixedCorr, pSrcDstMatrix, pDstFixedVector,
                                        pDstFixedIndex);
    return kvoOk;
}

KvoStatus kvosFixedCodebookSearch_G729A_16s(const Kvo16s* pSrcFixedCorr, Kvo16s* pSrcDstMatrix,
                                            Kvo16s* pDstFixedVector, Kvo16s* pDstFixedIndex) {
    if (!pSrcFixedCorr || !pSrcDstMatrix || !pDstFixedVector || !pDstFixedIndex)
        return kvoErrNullPtr;
    // Signed elements saturate to 16 bits (only -32768 against an opposite
    // sign reaches 32768), as the write-back of a widened search would.
    ownFixedCodebookSearch_G729A_16s(pSrcFixedCorr, pSrcDstMatrix, pDstFixedVector,
                                     pDstFixedIndex);
    return kvoOk;
}

KvoStatus kvosFixedCodebookSearch_G729D_16s(const Kvo16s* pSrcFixedCorr,
                                            const Kvo16s* pSrcImpulse, Kvo16s* pDstFixedVector,
                                            Kvo16s* pDstFltFixedVector, Kvo16s* pDstSign,
                                            Kvo16s* pDstIndex) {
    if (!pSrcFixedCorr || !pSrcImpulse || !pDstFixedVector || !pDstFltFixedVector || !pDstSign ||
        !pDstIndex)
        return kvoErrNullPtr;
    alignas(32) Kvo32s m[kFcbMatrixSize];
    kvosToeplizMatrix_G729D_16s32s_(pSrcImpulse, m);
    ownFixedCodebookSearch_G729D(pSrcFixedCorr, pSrcImpulse, m, pDstFixedVector,
                                 pDstFltFixedVector, pDstSign, pDstIndex);
    return kvoOk;
}

KvoStatus kvosFixedCodebookSearch_G729E_16s(Kvo16s mode, const Kvo16s* pSrcTarget,
                                            const Kvo16s* pSrcLtpResidual,
                                            const Kvo16s* pSrcImpulse, Kvo16s* pDstFixedVector,
                                            Kvo16s* pDstFltFixedVector, Kvo16s* pDstFixedIndex) {
    if (!pSrcTarget || !pSrcLtpResidual || !pSrcImpulse || !pDstFixedVector ||
        !pDstFltFixedVector || !pDstFixedIndex)
        return kvoErrNullPtr;
    if (mode == 0)
        ownACELP_10i40_35bits_16s(pSrcTarget, pSrcLtpResidual, pSrcImpulse, pDstFixedVector,
                                  pDstFltFixedVector, pDstFixedIndex);
    else
        ownACELP_12i40_44bits_16s(pSrcTarget, pSrcLtpResidual, pSrcImpulse, pDstFixedVector,
                                  pDstFltFixedVector, pDstFixedIndex);
    return kvoOk;
}

}  // namespace kvo::impl
