// Echo cancellation: declarations shared by the kernels of this folder (filter bank,
// adaptive filters, tone detection) and by the controllers.
//
// Records of the family live at the first 16-byte boundary at or after the caller's
// pointer: every function computes the same address from the same pointer, and the
// size queries include the 15 bytes of slack.
//
// Limits of the subband kernels: 1 to kMaxSubbands complex subbands per row, 1 to
// kMaxSegments rows (taps of each subband filter).
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvosc_types.h"

namespace kvo::ec {

inline constexpr Kvo32s kMaxSubbands = 4097;
inline constexpr Kvo32s kMaxSegments = 255;
inline constexpr Kvo32s kAlign = 16;

// First 16-byte boundary at or after p.
template <class T>
inline T* align16(void* p) {
    const auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<T*>((a + (kAlign - 1)) & ~std::uintptr_t{kAlign - 1});
}
template <class T>
inline const T* align16(const void* p) {
    const auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<const T*>((a + (kAlign - 1)) & ~std::uintptr_t{kAlign - 1});
}
constexpr std::int64_t roundUp16(std::int64_t v) {
    return (v + 15) & ~std::int64_t{15};
}

// The echo family accepts these two sampling rates only.
constexpr bool rateOk(Kvo32s sampleFreq) {
    return sampleFreq == 8000 || sampleFreq == 16000;
}

// First halves of the two built-in prototype windows (ec_windows.cpp).
extern const Kvo32f kSubbandWindowHalf_5_24_128[64];
extern const Kvo32f kSubbandWindowHalf_6_44_256[128];

// ---- scalar cores of the hot kernels (arguments already checked) ----------------------
// The exports dispatch to vector twins where the CPU has them; tests compare the twins
// with these by memcmp.

// Float subband FIR over subbands [0, numSubbands).
void firSubband32fcScalar(const Kvo32fc* const* ppRefRows, const Kvo32fc* const* ppCoefRows,
                          Kvo32fc* pDst, int numSegments, int numSubbands);
// Float coefficient update over subbands [0, numSubbands).
void coeffUpdate32fcScalar(const Kvo64f* pStep, const Kvo32fc* const* ppRefRows,
                           const Kvo32fc* pErr, Kvo32fc* const* ppCoefRows, int numSegments,
                           int numSubbands);

// SSE2 twins of the two (bit-exact with the scalar cores).
void firSubband32fcSse2(const Kvo32fc* const* ppRefRows, const Kvo32fc* const* ppCoefRows,
                        Kvo32fc* pDst, int numSegments, int numSubbands);
void coeffUpdate32fcSse2(const Kvo64f* pStep, const Kvo32fc* const* ppRefRows, const Kvo32fc* pErr,
                         Kvo32fc* const* ppCoefRows, int numSegments, int numSubbands);

// AVX2 twins (ec_fir_avx2.cpp); call only when kvo::cpuHasAvx2().
void firSubband32fcAvx2(const Kvo32fc* const* ppRefRows, const Kvo32fc* const* ppCoefRows,
                        Kvo32fc* pDst, int numSegments, int numSubbands);
void coeffUpdate32fcAvx2(const Kvo64f* pStep, const Kvo32fc* const* ppRefRows, const Kvo32fc* pErr,
                         Kvo32fc* const* ppCoefRows, int numSegments, int numSubbands);

// 16-bit fullband NLMS.  nlms16sSample runs one sample (coefficient update with the
// previous mu, then the filter) and returns the next mu; the scalar core runs a call.
// The AVX2 twin needs tapLen <= kNlmsVectorMaxTaps: then no partial sum of the filter can
// reach the 32-bit limits (each rounded product is at most 2^15 in magnitude), so the
// saturating sum equals the plain sum in any order; samples whose mu exceeds 16 bits take
// the scalar step.
inline constexpr int kNlmsVectorMaxTaps = 65535;
Kvo32s nlms16sSample(const Kvo16s* x, Kvo16s mic, Kvo32s step, Kvo16s* pCoefs, int tapLen,
                     Kvo32s mu, Kvo16s* pOut);
void nlms16sScalar(const Kvo16s* pRef, const Kvo16s* pMic, const Kvo32s* pStep, Kvo16s* pDst,
                   int len, Kvo16s* pCoefs, int tapLen, Kvo16s* pMuErr);
void nlms16sAvx2(const Kvo16s* pRef, const Kvo16s* pMic, const Kvo32s* pStep, Kvo16s* pDst, int len,
                 Kvo16s* pCoefs, int tapLen, Kvo16s* pMuErr);

// AVX2 twins of the fullband FIR (the 16-bit one for tapLen <= kNlmsVectorMaxTaps, where
// its saturating sum cannot saturate).  The 32-bit one runs eight output samples at once.
void fir16sScalar(const Kvo16s* pRef, const Kvo16s* pMic, Kvo16s* pDst, int len,
                  const Kvo16s* pCoefs, int tapLen);
void fir32fScalar(const Kvo32f* pRef, const Kvo32f* pMic, Kvo32f* pDst, int len,
                  const Kvo32f* pCoefs, int tapLen);
void fir16sAvx2(const Kvo16s* pRef, const Kvo16s* pMic, Kvo16s* pDst, int len, const Kvo16s* pCoefs,
                int tapLen);
void fir32fAvx2(const Kvo32f* pRef, const Kvo32f* pMic, Kvo32f* pDst, int len, const Kvo32f* pCoefs,
                int tapLen);

// AVX2 twin of the fixed-point update over one row of a chunk: er, ei the scaled errors,
// d the shifts (all in 0..63), groups of four subbands (n rounded down to a multiple of
// four); low selects the cheap form (plain negation, 32-bit wrap of the sum).
void coeffUpdate32scRowAvx2(const Kvo64s* er, const Kvo64s* ei, const Kvo64s* d, const Kvo32sc* x,
                            Kvo32sc* h, int n, bool low);

// Fixed-point subband FIR (saturating 64-bit sums, scaled result) over [0, numSubbands):
// avx2 = false runs the scalar sums only, true lets the AVX2 twin below take the groups
// of four whose sums cannot saturate.
void firSubband32scCore(const Kvo32sc* const* ppRefRows, const Kvo32sc* const* ppCoefRows,
                        Kvo32sc* pDst, int numSegments, int numSubbands, int scaleFactor,
                        bool avx2);
// AVX2 twin of the fixed-point FIR over subbands k0 + [0, n) of a chunk (n <= 64, taken
// in groups of four; the rest is left to the caller): raw 64-bit sums into accR/accI.
// Bit j of the result is set when subband k0 + j overflowed 64 bits somewhere, i.e. when
// the saturating scalar sum may differ; the caller sums those subbands again.
Kvo64u firSubband32scAvx2(const Kvo32sc* const* ppRefRows, const Kvo32sc* const* ppCoefRows,
                            int k0, int n, int numSegments, Kvo64s* accR, Kvo64s* accI);

// The fixed-point update's addend for one 64-bit product p at shift d = exponent -
// scaleFactor - 31: for d >= 0 the rounded right shift (p + c) >> d with c = 2^(d-1) for
// d >= 2 and 0 for d of 0 and 1, taken without overflow as (p >> d) + bit d-1 of p; for
// d < 0 the left shift by L = -d, where p at or above lim = (2^63 - 1) >> L gives
// 4294967294 and p at or below -lim gives -4294967296 (lim is 0 for L >= 63).  A shift of
// 64 or more stands for a step below one unit of the product's last bit and gives 0: no
// adaptation.
inline Kvo64s updateAddend(Kvo64s p, Kvo64s d) {
    if (d >= 64) return 0;
    if (d >= 2) return (p >> d) + ((p >> (d - 1)) & 1);
    if (d >= 0) return p >> d;
    const Kvo64s L = -d;
    const Kvo64s lim = L >= 63 ? 0 : (INT64_MAX >> L);
    if (p >= lim) return 4294967294LL;
    if (p <= -lim) return -4294967296LL;
    return static_cast<Kvo64s>(static_cast<std::uint64_t>(p) << L);
}

}  // namespace kvo::ec
