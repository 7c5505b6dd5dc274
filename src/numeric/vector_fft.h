// Vector-layer members that sit on the real FFT: the float cross-correlation (direct sums
// or FFT), the pack-format conjugate product, in-place reversal, and the float to integer
// conversions with their rounding modes.  Library-internal, namespace kvo.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// pDst[n] = sum over i of pSrc1[i] * pSrc2[i + n + lowLag], over the indices present in both
// vectors, n = 0 .. dstLen - 1.  Float accumulators; long correlations run through the FFT
// and allocate for the time of the call (kvoErrMemAlloc if that fails).
KvoStatus kvosCrossCorr_32f(const Kvo32f* pSrc1, Kvo32s len1, const Kvo32f* pSrc2, Kvo32s len2,
                            Kvo32f* pDst, Kvo32s dstLen, Kvo32s lowLag);

// pSrcDst = conj(pSrc) * pSrcDst on two real spectra in pack order of len values: element 0
// (and the last when len is even) real, the pairs between complex.
KvoStatus kvosMulPackConj_32f_I(const Kvo32f* pSrc, Kvo32f* pSrcDst, Kvo32s len);

// Reverses the order of the elements.
KvoStatus kvosFlip_32f_I(Kvo32f* pSrcDst, Kvo32s len);

// Element times 2^-scaleFactor, clamped to the target range, then rounded: rndMode 0 toward
// zero, 1 to nearest with ties to even, any other to nearest with ties away from zero.
// A NaN element gives 0.
KvoStatus kvosConvert_32f16s_Sfs(const Kvo32f* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s rndMode,
                                 Kvo32s scaleFactor);
KvoStatus kvosConvert_32f32s_Sfs(const Kvo32f* pSrc, Kvo32s* pDst, Kvo32s len, Kvo32s rndMode,
                                 Kvo32s scaleFactor);

}  // namespace kvo
