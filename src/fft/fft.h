// Internal real FFT of power-of-two length in single precision, and its 16-bit wrapper.
//
// N = 2^order real samples.  R[k], I[k] are bin k of X[k] = sum x[n] exp(-2 pi j k n / N);
// the inverse has the opposite sign.  Three storage orders of the half spectrum:
//   Perm: R[0], R[N/2], R[1], I[1], ... R[N/2-1], I[N/2-1]                 (N reals)
//   Pack: R[0], R[1], I[1], ... R[N/2-1], I[N/2-1], R[N/2]                 (N reals)
//   CCS : R[0], 0, R[1], I[1], ... R[N/2-1], I[N/2-1], R[N/2], 0           (N + 2 reals;
//         two reals, R[0] and 0, at order 0)
// Scaling flag: 1 forward divides by N; 2 inverse divides by N; 4 both divide by sqrt(N);
// 8 neither.
//
// Method: the N real samples are taken as N/2 complex values z[m] = x[2m] + j x[2m+1], held
// in split form (real and imaginary arrays), permuted into bit-reversed order and transformed
// by an in-place radix-4 decimation-in-time complex FFT (one radix-2 pass when log2(N/2) is
// odd); the real spectrum follows by the usual even/odd recombination of bins k and N/2 - k.
// The inverse first undoes the recombination into a staging copy of the half-length complex
// spectrum, then runs the forward kernel with real and imaginary parts exchanged (which
// computes the inverse transform).  The work buffer therefore holds 2N floats.  All tables
// are computed at Init in double precision and rounded to float, into the FFT record
// memory.  SSE2 paths cover the gather, the passes and both recombinations; they perform the
// same operations in the same order as the scalar code.
//
// Memory protocol: the record starts at the first 64-byte boundary of the memory given, and
// the sizes reported by the query include that slack; likewise a work buffer is used from
// its first 64-byte boundary.  Orders 0 to 6 need no work buffer.  A null pWork makes a
// transform allocate its scratch for the duration of the call.  Above order 10 Init takes a
// scratch buffer (its callers provide one); the tables are computed directly, so the query
// reports a nominal 64 bytes for it.
//
// Not exported: these are library-internal functions in namespace kvo.
#pragma once

#include "kvosc_types.h"

namespace kvo {

// Identity tags of the two records.
inline constexpr Kvo32s kFftSpec32fTag = 6;
inline constexpr Kvo32s kFftSpec16sTag = 0x434d414f;

struct KvoFFTSpec32f {
    Kvo32s idTag;  // kFftSpec32fTag while valid, cleared on free
    Kvo32s order;
    Kvo32s fwdScaled;  // 1 if the forward transform scales by factor
    Kvo32s invScaled;  // 1 if the inverse transform scales by factor
    Kvo32f factor;     // 1/N or 1/sqrt(N); 1 when neither direction scales
    Kvo32s hint;
    Kvo32s workSize;  // bytes of scratch a transform needs (without alignment slack)
    Kvo32s reserved;
    const Kvo32s* bitrev;   // bit-reversal permutation of N/2 points (order >= 3)
    const Kvo32f* twiddle;  // per-pass twiddles of the complex kernel, split form
    const Kvo32f* recomb;   // cos, sin of 2 pi k / N for k = 0 .. N/4 (recombination)
    void* allocBase;        // block returned by the allocator (InitAlloc), else null
    const void* self;       // address of this record, checked with the tag
};

struct KvoFFTSpec16s {
    Kvo32s idTag;  // kFftSpec16sTag while valid
    Kvo32s order;
    Kvo32s hint;
    Kvo32s workSize;   // bytes of scratch, without alignment slack
    Kvo32s allocated;  // 1 if the memory was allocated by the library
    Kvo32s reserved;
    KvoFFTSpec32f* pSpec32f;  // inner float FFT record, behind this record
    const void* self;         // address of this record, checked with the tag
};

// ---- single-precision real FFT ----------------------------------------------------------
KvoStatus kvosFFTGetSize_R_32f(Kvo32s order, Kvo32s flag, Kvo32s hint, Kvo32s* pSpecSize,
                               Kvo32s* pInitSize, Kvo32s* pWorkSize);
KvoStatus kvosFFTInit_R_32f(KvoFFTSpec32f** ppSpec, Kvo32s order, Kvo32s flag, Kvo32s hint,
                            Kvo8u* pMem, Kvo8u* pInitBuf);
KvoStatus kvosFFTInitAlloc_R_32f(KvoFFTSpec32f** ppSpec, Kvo32s order, Kvo32s flag, Kvo32s hint);
KvoStatus kvosFFTFree_R_32f(KvoFFTSpec32f* pSpec);
KvoStatus kvosFFTGetBufSize_R_32f(const KvoFFTSpec32f* pSpec, Kvo32s* pWorkSize);

KvoStatus kvosFFTFwd_RToCCS_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                Kvo8u* pWork);
KvoStatus kvosFFTFwd_RToPerm_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork);
KvoStatus kvosFFTFwd_RToPack_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork);
KvoStatus kvosFFTInv_CCSToR_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                Kvo8u* pWork);
KvoStatus kvosFFTInv_PackToR_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork);
KvoStatus kvosFFTInv_PermToR_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork);

// The same transforms through the plain scalar code only (forward != 0: forward; format 0
// Perm, 1 Pack, 2 CCS).  The vector paths must agree with it bit for bit; tests compare them.
KvoStatus kvosFFTScalarTwin_32f_(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork, Kvo32s forward, Kvo32s format);

// ---- 16-bit wrapper: float transform inside, rounding to nearest (ties to even) -----------
KvoStatus kvosFFTGetSize_R_16s32s(Kvo32s order, Kvo32s flag, Kvo32s hint, Kvo32s* pSpecSize,
                                  Kvo32s* pInitSize, Kvo32s* pWorkSize);
KvoStatus kvosFFTInit_R_16s32s(KvoFFTSpec16s** ppSpec, Kvo32s order, Kvo32s flag, Kvo32s hint,
                               Kvo8u* pMem, Kvo8u* pInitBuf);
KvoStatus kvosFFTFwd_RToCCS_16s32s_Sfs(const Kvo16s* pSrc, Kvo32s* pDst, const KvoFFTSpec16s* pSpec,
                                       Kvo32s scaleFactor, Kvo8u* pWork);
KvoStatus kvosFFTInv_CCSToR_32s16s_Sfs(const Kvo32s* pSrc, Kvo16s* pDst, const KvoFFTSpec16s* pSpec,
                                       Kvo32s scaleFactor, Kvo8u* pWork);

}  // namespace kvo
