// Partial (causal, first len outputs) convolution of a signal with an impulse
// response: y[n] = sum over k = 0..n of x[k] h[n-k].
//
// - kvosConvPartial_16s_Sfs: the G.729 convolution.  Doubled (Q31) products,
//   each saturated, are accumulated from k = 0 upward with a saturating add;
//   the result is stored as sat16 of the accumulator shifted right by
//   scaleFactor + 1 (the doubling removed).  At scale 12 this is the
//   adaptive-codebook filtering of G.729, whose Q12 impulse response brings
//   the Q0 excitation back to Q0.
// - kvosConvPartial_16s32s: the 32-bit sum, held modulo 2^32.
// - kvosConvPartial_NR_16s: doubled products, each saturated, accumulated
//   with saturation from k = 0 upward, then round16.
// - kvosConvPartial_NR_Low_16s: (S + 16384) >> 15 of the 32-bit sum, low
//   16 bits kept, for data that stays in range.
#include "frame/impl.h"
#include "kernels/corr.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// Sum over k = 0..n of a[k] b[n-k], modulo 2^32.
inline Kvo32s convWrap(const Kvo16s* a, const Kvo16s* b, Kvo32s n) {
    Kvo32u acc = 0;
    for (Kvo32s k = 0; k <= n; ++k) acc += static_cast<Kvo32u>(Kvo32s{a[k]} * b[n - k]);
    return static_cast<Kvo32s>(acc);
}

// Fractional multiply-accumulate: the doubled product is saturated (only
// (-32768)^2 can overflow), then added to the accumulator with saturation.
inline Kvo32s macSat(Kvo32s acc, Kvo16s a, Kvo16s b) {
    Kvo32s p = double32(Kvo32s{a} * b);
    return Add_32s(acc, p);
}

// The order-dependent sum of the saturating forms.
inline Kvo32s convSat(const Kvo16s* a, const Kvo16s* b, Kvo32s n) {
    Kvo32s acc = 0;
    for (Kvo32s k = 0; k <= n; ++k) acc = macSat(acc, a[k], b[n - k]);
    return acc;
}

}  // namespace

namespace impl {

KvoStatus kvosConvPartial_16s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                  Kvo32s len, Kvo32s scaleFactor) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (scaleFactor < 0) return kvoErrBadArg;
    if (len < 1) return kvoErrSize;
    // Shift of the doubled accumulator; beyond 63 the value is its sign already.
    const int sh = scaleFactor >= 62 ? 63 : scaleFactor + 1;
    for (Kvo32s n = 0; n < len; ++n) pDst[n] = sat16(Kvo64s{convSat(pSrc1, pSrc2, n)} >> sh);
    return kvoOk;
}

KvoStatus kvosConvPartial_16s32s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s* pDst,
                                 Kvo32s len) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s n = 0; n < len; ++n) pDst[n] = convWrap(pSrc1, pSrc2, n);
    return kvoOk;
}

KvoStatus kvosConvPartial_NR_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                 Kvo32s len) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s n = 0; n < len; ++n) pDst[n] = round16(convSat(pSrc1, pSrc2, n));
    return kvoOk;
}

KvoStatus kvosConvPartial_NR_Low_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                     Kvo32s len) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s n = 0; n < len; ++n)
        pDst[n] = lo16((Kvo64s{convWrap(pSrc1, pSrc2, n)} + 16384) >> 15);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
