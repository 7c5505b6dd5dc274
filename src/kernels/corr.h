// Correlation kernels shared by the LP, pitch and codebook stages of the
// fixed-point coders: dot products of 16-bit vectors, autocorrelations,
// cross-correlations and their scaled, doubled or rounded forms.
//
// All kernels here are private: they test nothing, and their callers keep
// within the stated sizes.  A "32-bit sum" is the sum of the 16 x 16 bit
// products held modulo 2^32; an "exact sum" is the 64-bit sum.
//
// Legal C++ names of the private workers (underscore-led in the export
// grammar): a trailing underscore replaces the leading one, e.g.
// kvosAutoCorr_G729_16s32s_Sfs_.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// ---- dot products --------------------------------------------------------
// Sum of a[i] b[i] for i < n, modulo 2^32 (0 for n < 1).  SSE2 path.
Kvo32s corrDotWrap(const Kvo16s* a, const Kvo16s* b, Kvo32s n);
// Exact sum of a[i] b[i] for i < n (0 for n < 1).  SSE2 path.
Kvo64s corrDotExact(const Kvo16s* a, const Kvo16s* b, Kvo32s n);
// Plain scalar twins of the two above (same results; kept for testing).
Kvo32s corrDotWrapScalar(const Kvo16s* a, const Kvo16s* b, Kvo32s n);
Kvo64s corrDotExactScalar(const Kvo16s* a, const Kvo16s* b, Kvo32s n);

// ---- private kernels ----------------------------------------------------
// G.729 lag correlations: for j < count, k = firstLag + j, the 32-bit sum of
// pSrc[i] pSrc[i+k] over i < len - k, shifted left by `shift` (0..31) with
// 32-bit saturation; 0 once k reaches len.
void kvosAutoCorr_G729_16s32s_Sfs_(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s count,
                                   Kvo32s shift, Kvo32s firstLag);

// Backward autocorrelation: pDst[k] = sat32(exact sum over i < len of
// pSrc[i] pSrc[i-k]), k < count.  Reads count - 1 samples before pSrc.
void kvosAutoCorr_Inv_16s32s_(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s count);

// pDst[k] = double32(32-bit sum over i < len of pSrc1[i] pSrc2[i+k]).
void kvosCrossCorr_Fwd_16s32s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s* pDst,
                               Kvo32s count);

// pDst[k] = 2 (32-bit sum over i < len of pSrc1[i] pSrc2[i+k]), modulo 2^32.
void kvosCrossCorr_Fwd_Low_16s32s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo32s* pDst, Kvo32s count);

// pDst[k] = double32(32-bit sum over i < len of pSrc1[i] pSrc2[i-k]).
// Reads count - 1 samples before pSrc2.
void kvosCrossCorr_Inv_16s32s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s* pDst,
                               Kvo32s count);

// Strided lags: for j < count, S = 32-bit sum over i < len - j step of
// pSrc1[i] pSrc2[i + j step]; pDst[j] = low 16 bits of (S + r) >> scaleFactor,
// r = 1 << (scaleFactor - 1), or 0 at scale 0.  S is 0 when no term is left.
void kvosCrossCorr_Step_NR_Sfs_16s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                    Kvo32s step, Kvo16s* pDst, Kvo32s count, Kvo32s scaleFactor);

// Energy-normalised autocorrelation rounded to 16 bits with strided lags: as
// kvosAutoCorr_NormE_NR_16s, the energy held at 0x3fffffff before doubling,
// lag j taken at offset j step.  pDst[0] is the energy, pNorm its norm.
void kvosAutoCorr_NormE_Step_NR_16s_(const Kvo16s* pSrc, Kvo32s len, Kvo32s step, Kvo16s* pDst,
                                     Kvo32s count, Kvo32s* pNorm);

// Triangular doubled correlation of an impulse response (pSrc1) with a target
// (pSrc2), len values, normalised by its largest magnitude: the shift is
// h + 16 - min(norm32(M), 16), h the value passed in through pShift, and is
// written back there.  h = 2 gives 14-bit outputs.
void kvosCrossCorr_Norm_16s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len,
                             Kvo32s* pShift);

}  // namespace kvo
