// Cross-correlation of a fixed vector (pSrc1) with a sliding one (pSrc2), for
// pitch and codebook searches.  Sums of 16 x 16 bit products are held modulo
// 2^32 unless a form says it takes the exact 64-bit sum; what differs between
// the forms is the doubling, the rounding (ties toward plus infinity), the
// saturation and whether a triangular range of terms is used.
//
// kvosCrossCorr_NormM_16s is the target / impulse-response correlation of
// the algebraic codebook searches, normalised so that its largest magnitude
// fits 14 bits.  The magnitude of a doubled sum of 0x80000000 is taken as
// 0x7fffffff, so such a value takes part in the maximum search.
#include <algorithm>

#include "frame/impl.h"
#include "kernels/corr.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// (s + r) >> sf with r = 2^(sf-1), or no rounding at scale 0.  The rounding
// is added to the 32-bit sum without wrapping.  Scales outside 0..31 have no
// defined meaning; they are held to 0..62 so that the shift is defined.
inline Kvo64s roundShift(Kvo32s s, Kvo32s sf) {
    int sh = sf < 0 ? 0 : (sf > 62 ? 62 : sf);
    Kvo64s r = sh > 0 ? (Kvo64s{1} << (sh - 1)) : 0;
    return (Kvo64s{s} + r) >> sh;
}

// A 32-bit value shifted right by `sh` (left for negative sh), exactly, in 64 bits.
inline Kvo64s shiftExact(Kvo32s s, Kvo32s sh) {
    if (sh >= 0) return Kvo64s{s} >> std::min<Kvo32s>(sh, 63);
    return sh <= -32 ? shl64(s, 32) : shl64(s, -sh);
}

// Magnitude for the maximum search: 0x80000000 counts as 0x7fffffff.
inline Kvo32s magnitude(Kvo32s s) {
    return s == INT32_MIN ? INT32_MAX : (s < 0 ? -s : s);
}

inline Kvo32s triangular(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s k) {
    return corrDotWrap(pSrc1, pSrc2 + k, len - k);
}

}  // namespace

void kvosCrossCorr_Fwd_16s32s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s* pDst,
                               Kvo32s count) {
    for (Kvo32s k = 0; k < count; ++k) pDst[k] = double32(corrDotWrap(pSrc1, pSrc2 + k, len));
}

void kvosCrossCorr_Fwd_Low_16s32s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo32s* pDst, Kvo32s count) {
    for (Kvo32s k = 0; k < count; ++k) pDst[k] = shl_wrap(corrDotWrap(pSrc1, pSrc2 + k, len), 1);
}

void kvosCrossCorr_Inv_16s32s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s* pDst,
                               Kvo32s count) {
    for (Kvo32s k = 0; k < count; ++k) pDst[k] = double32(corrDotWrap(pSrc1, pSrc2 - k, len));
}

void kvosCrossCorr_Step_NR_Sfs_16s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                    Kvo32s step, Kvo16s* pDst, Kvo32s count, Kvo32s scaleFactor) {
    for (Kvo32s j = 0; j < count; ++j) {
        Kvo64s off = Kvo64s{j} * step;
        Kvo32s s = off < len ? corrDotWrap(pSrc1, pSrc2 + off, static_cast<Kvo32s>(len - off)) : 0;
        pDst[j] = lo16(roundShift(s, scaleFactor));
    }
}

void kvosCrossCorr_Norm_16s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len,
                             Kvo32s* pShift) {
    // Doubled triangular sums; kept on the stack for the usual subframe sizes.
    constexpr Kvo32s kKeep = 256;
    alignas(16) Kvo32s keep[kKeep];
    const bool kept = len <= kKeep;
    Kvo32s m = 0;
    for (Kvo32s k = 0; k < len; ++k) {
        Kvo32s s = shl_wrap(triangular(pSrc1, pSrc2, len, k), 1);
        if (kept) keep[k] = s;
        m = std::max(m, magnitude(s));
    }
    int n = std::min(norm32(m), 16);
    Kvo32s shift = *pShift + 16 - n;
    // The 14-bit form (h = 2), and long vectors, keep the low 16 bits; other
    // headrooms on subframe-sized vectors go through the saturating 32-to-16
    // conversion.  Both agree whenever the largest magnitude fits.
    const bool saturate = *pShift != 2 && len <= 40;
    *pShift = shift;
    for (Kvo32s k = 0; k < len; ++k) {
        Kvo32s s = kept ? keep[k] : shl_wrap(triangular(pSrc1, pSrc2, len, k), 1);
        Kvo64s v = shiftExact(s, shift);
        pDst[k] = saturate ? sat16(v) : lo16(v);
    }
}

namespace impl {

KvoStatus kvosCrossCorr_NR_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo16s* pDst,
                               Kvo32s lagCount) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1 || lagCount < 1) return kvoErrSize;
    for (Kvo32s k = 0; k < lagCount; ++k)
        pDst[k] = lo16(roundShift(corrDotWrap(pSrc1, pSrc2 + k, len), 15));
    return kvoOk;
}

KvoStatus kvosCrossCorr_NR_16s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo16s* pDst, Kvo32s lagCount, Kvo32s scaleFactor) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1 || lagCount < 1) return kvoErrSize;
    for (Kvo32s k = 0; k < lagCount; ++k)
        pDst[k] = sat16(roundShift(corrDotWrap(pSrc1, pSrc2 + k, len), scaleFactor));
    return kvoOk;
}

KvoStatus kvosCrossCorr_NR_16s32s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                  Kvo32s* pDst, Kvo32s lagCount) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1 || lagCount < 1) return kvoErrSize;
    for (Kvo32s k = 0; k < lagCount; ++k) pDst[k] = sat32(corrDotExact(pSrc1, pSrc2 + k, len));
    return kvoOk;
}

KvoStatus kvosCrossCorr_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo32s* pDst, Kvo32s scaleFactor) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    // Right shifts truncate; left shifts (negative scale, -1 being the
    // doubling of the fractional form) wrap in 32 bits.
    for (Kvo32s k = 0; k < len; ++k)
        pDst[k] = lo32(shiftExact(triangular(pSrc1, pSrc2, len, k), scaleFactor));
    return kvoOk;
}

KvoStatus kvosCrossCorr_NormM_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                  Kvo16s* pDst) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo32s shift = 2;
    kvosCrossCorr_Norm_16s_(pSrc1, pSrc2, pDst, len, &shift);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
