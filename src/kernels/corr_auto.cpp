// Autocorrelation of 16-bit speech for LP analysis.
//
// - kvosAutoCorr_NormE_16s32s: the G.729 autocorrelation.  The energy starts
//   at 1, products are doubled (fractional Q31 sums) and every value is
//   shifted left by the norm of the energy; a too-loud input is reported so
//   that the caller can scale it down and try again.
// - kvosAutoCorr_NormE_NR_16s: the same normalisation rounded to Q15 words,
//   the energy saturating instead of failing.
// - kvosAutoCorr_16s32s: plain 32-bit lag sums.
// - kvosAutoCorr_NormE_G723_16s: the G.723.1 autocorrelation of 180 samples
//   with the 1025/1024 white-noise correction and the binomial lag window.
// Lag sums are 32-bit sums of products held modulo 2^32 (exact whenever the
// energy fits) or exact 64-bit sums, as each function states.
#include "frame/impl.h"
#include "kernels/corr.h"
#include "kernels/kernel_tables.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// Energy of a vector: sat32 of the exact sum of squares.
inline Kvo32s energy(const Kvo16s* p, Kvo32s len) {
    return sat32(corrDotExact(p, p, len));
}

// Lag value of the rounded forms: S << (n + 1) in 64 bits, then clamped to
// 16 bits at the 32-bit bounds, otherwise round16.
inline Kvo16s roundLag(Kvo64s s, int n) {
    Kvo64s y = shl64(s, n + 1);
    if (y >= (Kvo64s{1} << 31)) return 32767;
    if (y < -(Kvo64s{1} << 31)) return -32768;
    return round16(static_cast<Kvo32s>(y));
}

// Shared body of the rounded forms: energy already clamped by the caller.
void normENR(const Kvo16s* pSrc, Kvo32s len, Kvo64s step, Kvo16s* pDst, Kvo32s count, Kvo32s* pNorm,
             Kvo32s e) {
    Kvo32s v = sat32(2 * Kvo64s{e});
    int n = 0;
    if (v != 0) {
        n = norm32(v);
        v = shl_wrap(v, n);
    }
    *pNorm = n;
    pDst[0] = round16(v);
    for (Kvo32s j = 1; j < count; ++j) {
        Kvo64s off = Kvo64s{j} * step;
        Kvo64s s = off < len ? corrDotExact(pSrc, pSrc + off, static_cast<Kvo32s>(len - off)) : 0;
        pDst[j] = roundLag(s, n);
    }
}

}  // namespace

void kvosAutoCorr_G729_16s32s_Sfs_(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s count,
                                   Kvo32s shift, Kvo32s firstLag) {
    for (Kvo32s j = 0; j < count; ++j) {
        Kvo64s k = Kvo64s{firstLag} + j;
        pDst[j] = k < len
                      ? ShiftL_32s(corrDotWrap(pSrc, pSrc + k, static_cast<Kvo32s>(len - k)), shift)
                      : 0;
    }
}

void kvosAutoCorr_Inv_16s32s_(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s count) {
    for (Kvo32s k = 0; k < count; ++k) pDst[k] = sat32(corrDotExact(pSrc, pSrc - k, len));
}

void kvosAutoCorr_NormE_Step_NR_16s_(const Kvo16s* pSrc, Kvo32s len, Kvo32s step, Kvo16s* pDst,
                                     Kvo32s count, Kvo32s* pNorm) {
    Kvo32s e = energy(pSrc, len);
    if (e > 0x3fffffff) e = 0x3fffffff;
    normENR(pSrc, len, step, pDst, count, pNorm, e);
}

namespace impl {

KvoStatus kvosAutoCorr_NormE_16s32s(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s lagCount,
                                    Kvo32s* pNorm) {
    if (!pSrc || !pDst || !pNorm) return kvoErrNullPtr;
    if (len < 1 || lagCount < 1) return kvoErrSize;
    Kvo32s e = energy(pSrc, len);
    if (e > 0x3fffffff) return kvoWarnOverflow;  // 2 E + 1 would not fit: nothing written
    Kvo32s v = 2 * e + 1;
    int n = norm32(v);
    pDst[0] = shl_wrap(v, n);
    *pNorm = n;
    // Lag sums doubled (the fractional product) and normalised: shift n + 1.
    if (lagCount > 1) kvosAutoCorr_G729_16s32s_Sfs_(pSrc, len, pDst + 1, lagCount - 1, n + 1, 1);
    return kvoOk;
}

KvoStatus kvosAutoCorr_NormE_NR_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pDst, Kvo32s lagCount,
                                    Kvo32s* pNorm) {
    if (!pSrc || !pDst || !pNorm) return kvoErrNullPtr;
    if (len < 1 || lagCount < 1) return kvoErrSize;
    normENR(pSrc, len, 1, pDst, lagCount, pNorm, energy(pSrc, len));
    return kvoOk;
}

KvoStatus kvosAutoCorr_16s32s(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pDst, Kvo32s lagCount) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (len < 1 || lagCount < 1) return kvoErrSize;
    for (Kvo32s k = 0; k < lagCount; ++k)
        pDst[k] = k < len ? corrDotWrap(pSrc, pSrc + k, len - k) : 0;
    return kvoOk;
}

KvoStatus kvosAutoCorr_NormE_G723_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s* pNorm) {
    constexpr Kvo32s kLen = 180, kLags = 11;
    if (!pSrc || !pDst || !pNorm) return kvoErrNullPtr;
    Kvo32s e = energy(pSrc, kLen);
    // White-noise correction: energy times 1025/1024, saturated.
    Kvo32s v = sat32(Kvo64s{e} + (e >> 10));
    int n = 0;
    if (v != 0) n = norm32(v);
    *pNorm = n;
    if (v == 0) {  // round16 of a normalised non-zero energy is at least 16384
        for (Kvo32s k = 0; k < kLags; ++k) pDst[k] = 0;
        return kvoOk;
    }
    pDst[0] = round16(shl_wrap(v, n));
    for (Kvo32s k = 1; k < kLags; ++k) {
        Kvo32s y = shl_wrap(corrDotWrap(pSrc, pSrc + k, kLen - k), n);
        // 32 x 16 bit fractional product with the lag window: low half
        // unsigned and truncated, high half doubled.
        Kvo64s w = tab::BinomWindowCoeffTbl_G723[k];
        Kvo64s x = ((w * (y & 0xffff)) >> 15) + 2 * w * (y >> 16);
        if (x >= (Kvo64s{1} << 31))
            pDst[k] = 32767;
        else if (x < -(Kvo64s{1} << 31))
            pDst[k] = -32768;
        else
            pDst[k] = round16(static_cast<Kvo32s>(x));
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
