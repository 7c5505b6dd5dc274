// G.729 algebraic (fixed) codebook: private workers shared by the codebook
// searches of G.729, its annexes A, D and E, and by the G.729.1 core layer.
//
// Data: 40-sample subframes; position p lies in track p mod 5 at index p / 5.
// The impulse response h is Q12; the correlation matrices are those of the
// scaled h (see ownScaleImpulse_G729) without doubling.
//
// Matrix layout of G.729 and annex A (kMatrixSize elements):
//   0, 8, 16, 24, 32   diagonals M(p, p), p = t + 5 i, for tracks t = 0 .. 4;
//   40 + 64 k          block k of the track pairs (0,1) (0,2) (0,3) (0,4) (1,2)
//                      (1,3) (1,4) (2,3) (2,4): row i, column j holds
//                      M(t1 + 5 i, t2 + 5 j).
// Annex D uses the same frame with the pairs (0,1) (1,1) (0,3) (3,4) (1,2) (1,3)
// (1,4) (2,3); the last 64 elements are not written.
//
// Legal C++ names of the underscore-led workers: a trailing underscore
// replaces the leading one (kvosToeplizMatrix_G729D_16s32s_).
#pragma once

#include <emmintrin.h>

#include "kvosc_types.h"

namespace kvo {

inline constexpr int kFcbSubframe = 40;
inline constexpr int kFcbMatrixSize = 616;
// Offsets of the diagonals and of the first block.
inline constexpr int kFcbBlockBase = 40;

// Track pairs of the nine blocks of the G.729 / annex A matrix and of the
// eight blocks of the annex D matrix, in storage order.
inline constexpr int kFcbPairs[9][2] = {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {1, 2},
                                        {1, 3}, {1, 4}, {2, 3}, {2, 4}};
inline constexpr int kFcbPairsD[8][2] = {{0, 1}, {1, 1}, {0, 3}, {3, 4},
                                         {1, 2}, {1, 3}, {1, 4}, {2, 3}};

// Working impulse response of the G.729, annex A and annex D matrices.  With
// c = sat32(2 E), E the energy of h: c >> 16 above 32000 halves h; otherwise h
// is shifted left by norm32(c) >> 1 (a zero h stays zero).
void ownScaleImpulse_G729(const Kvo16s* pSrc, Kvo16s* pDst);

// G.729 / annex A matrix of an already scaled h, 32-bit form.  Each element
// is the correlation sum M; where the doubled running sum of the reference
// arithmetic would saturate (only for impulse responses of extreme energy)
// the element is that saturated doubled sum halved, so that >> 15 gives the
// 16-bit element of the reference.
void ownToeplizMatrix_G729_32s(const Kvo16s* pH, Kvo32s* pDst);
// The same for the annex D layout (elements 552 .. 615 untouched).
void ownToeplizMatrix_G729D_32s(const Kvo16s* pH, Kvo32s* pDst);

// Strict sequential scan of eight candidates (sq, alp) against the best so
// far (bestSq, bestAlp): a candidate is taken when sq bestAlp > bestSq alp.
// Returns the index of the last one taken, or -1, and updates the best.  The
// first pass only asks whether any candidate beats the best at the start: if
// none does, the scan takes none.  All values are 16-bit (sq -1 .. 32767).
inline int ownScanBest8Tail(const Kvo32s* sq, const Kvo32s* alp, Kvo32s& bestSq,
                            Kvo32s& bestAlp) {
    int w = -1;
    for (int k = 0; k < 8; ++k)
        if (sq[k] * bestAlp > bestSq * alp[k]) {
            bestSq = sq[k];
            bestAlp = alp[k];
            w = k;
        }
    return w;
}
// Plain twin of ownScanBest8.
inline int ownScanBest8_Scalar(const Kvo32s* sq, const Kvo32s* alp, Kvo32s& bestSq,
                               Kvo32s& bestAlp) {
    Kvo32s any = 0;
    for (int k = 0; k < 8; ++k) any |= static_cast<Kvo32s>(sq[k] * bestAlp > bestSq * alp[k]);
    return any ? ownScanBest8Tail(sq, alp, bestSq, bestAlp) : -1;
}
inline int ownScanBest8(const Kvo32s* sq, const Kvo32s* alp, Kvo32s& bestSq, Kvo32s& bestAlp) {
    // sq bestAlp - bestSq alp in each 32-bit lane by one multiply-add of the
    // 16-bit pairs (sq, alp) and (bestAlp, -bestSq); no sum can overflow.
    const __m128i s = _mm_packs_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(sq)),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(sq + 4)));
    const __m128i a = _mm_packs_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(alp)),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(alp + 4)));
    const __m128i k = _mm_set1_epi32(static_cast<Kvo32s>(
        (static_cast<Kvo32u>(-bestSq) << 16) | (static_cast<Kvo32u>(bestAlp) & 0xffff)));
    const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(s, a), k);
    const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(s, a), k);
    const __m128i z = _mm_setzero_si128();
    const int any = _mm_movemask_epi8(_mm_or_si128(_mm_cmpgt_epi32(lo, z), _mm_cmpgt_epi32(hi, z)));
    return any ? ownScanBest8Tail(sq, alp, bestSq, bestAlp) : -1;
}

// Scales pSrcImpulse and builds the G.729 matrix (32-bit and 16-bit forms).
void ownToeplizMatrix_G729_16s32s(const Kvo16s* pSrcImpulse, Kvo32s* pDst);
void ownToeplizMatrix_G729_16s(const Kvo16s* pSrcImpulse, Kvo16s* pDst);
// Scales pSrcImpulse and builds the annex D matrix, 32-bit form.
void kvosToeplizMatrix_G729D_16s32s_(const Kvo16s* pSrcImpulse, Kvo32s* pDst);

// Sign factors of the annex A and E searches: an element for the positions
// a and b is multiplied by 32767 when their signs agree and by -32768 when
// they differ, then shifted right by 15 (the product of -32768 by -32768
// saturating to 32767, as the 16-bit fractional multiply does).
// pSign[p] is 32767 for plus and -32768 for minus.
void ownFixedCodebookACorrSign_Opt(const Kvo16s* pSign, Kvo32s* pMatrix);

// G.729 search (four pulses, tracks 0, 1, 2 and 3-or-4, budgeted) on a matrix
// already at the 16-bit scale.  pSearchTimes is the budget word; firstSubframe
// resets it.  Writes the code vector (8191 / -8192 pulses) and the two index
// words.  The matrix blocks are left multiplied by the sign factors.
void ownFixedCodebookSearch_G729_32s16s(const Kvo16s* pCorr, Kvo32s* pMatrix, Kvo16s* pCode,
                                        Kvo16s* pIndex, Kvo16s* pSearchTimes, bool firstSubframe);
void ownFixedCodebookSearch_G729_16s(const Kvo16s* pCorr, Kvo16s* pMatrix, Kvo16s* pCode,
                                     Kvo16s* pIndex, Kvo16s* pSearchTimes, bool firstSubframe);
// Annex A depth-first search, same data.
void ownFixedCodebookSearch_G729A_32s16s(const Kvo16s* pCorr, Kvo32s* pMatrix, Kvo16s* pCode,
                                         Kvo16s* pIndex);
void ownFixedCodebookSearch_G729A_16s(const Kvo16s* pCorr, Kvo16s* pMatrix, Kvo16s* pCode,
                                      Kvo16s* pIndex);

// Annex D two-pulse search of its own matrix (32-bit form, not yet shifted).
void ownFixedCodebookSearch_G729D(const Kvo16s* pCorr, const Kvo16s* pImpulse, Kvo32s* pMatrix,
                                  Kvo16s* pCode, Kvo16s* pFltCode, Kvo16s* pSign,
                                  Kvo16s* pIndex);

// Annex E.  Matrix of 40 diagonal values (halved scale, by track) and five
// blocks of 64 of the pairs (t, t + 1 mod 5).
struct FcbMatrixE {
    Kvo16s diag[5][8];
    Kvo16s blk[5][64];
};
// Scales pSrcImpulse to the annex E working h (pH) and its negation (pHNeg),
// builds the matrix and applies the sign factors of pSign.
void kvosToeplizMatrix_G729E_16s_(const Kvo16s* pSrcImpulse, const Kvo16s* pSign, Kvo16s* pH,
                                  Kvo16s* pHNeg, FcbMatrixE* pM);
// Sign factors on the five annex E blocks.
void ownTakeSign_G729E_16s(const Kvo16s* pSign, FcbMatrixE* pM);
// The 35-bit (10 pulses) and 44-bit (12 pulses) searches: target, LTP
// residual and impulse response in, code vector (4096 pulses, Q12), filtered
// code vector and five index words out.
void ownACELP_10i40_35bits_16s(const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                               const Kvo16s* pImpulse, Kvo16s* pCode, Kvo16s* pFltCode,
                               Kvo16s* pIndex);
void ownACELP_12i40_44bits_16s(const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                               const Kvo16s* pImpulse, Kvo16s* pCode, Kvo16s* pFltCode,
                               Kvo16s* pIndex);

}  // namespace kvo
