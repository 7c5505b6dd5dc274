// G.729 interpolation of two 16-bit vectors (LSP and gain interpolation of
// the subframes): the plain mid-point, the weighted sum with each product
// truncated on its own, and the weighted sum rounded once.
#include "impl.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

void interp_16s_scalar(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len) {
    for (int i = 0; i < len; ++i) dst[i] = static_cast<Kvo16s>((a[i] >> 1) + (b[i] >> 1));
}

void interpC_16s_scalar(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst,
                        int len, int sf) {
    for (int i = 0; i < len; ++i)
        dst[i] = sat16(((Kvo64s{a[i]} * v1) >> sf) + ((Kvo64s{b[i]} * v2) >> sf));
}

void interpCNR_16s_scalar(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst,
                          int len, int sf) {
    const Kvo64s r = sf > 0 ? Kvo64s{1} << (sf - 1) : 0;
    for (int i = 0; i < len; ++i)
        dst[i] = sat16((Kvo64s{a[i]} * v1 + Kvo64s{b[i]} * v2 + r) >> sf);
}

}  // namespace kvo

namespace kvo::impl {

KvoStatus kvosInterpolate_G729_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst,
                                   Kvo32s len) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    interp_16s(pSrc1, pSrc2, pDst, len);
    return kvoOk;
}

KvoStatus kvosInterpolateC_G729_16s_Sfs(const Kvo16s* pSrc1, Kvo16s val1, const Kvo16s* pSrc2,
                                        Kvo16s val2, Kvo16s* pDst, Kvo32s len,
                                        Kvo32s scaleFactor) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (scaleFactor < 0) return kvoErrScaleRange;
    if (len < 1) return kvoErrSize;
    interpC_16s(pSrc1, val1, pSrc2, val2, pDst, len, scaleFactor & 31);
    return kvoOk;
}

KvoStatus kvosInterpolateC_NR_G729_16s_Sfs(const Kvo16s* pSrc1, Kvo16s val1, const Kvo16s* pSrc2,
                                           Kvo16s val2, Kvo16s* pDst, Kvo32s len,
                                           Kvo32s scaleFactor) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (scaleFactor < 0) return kvoErrScaleRange;
    if (len < 1) return kvoErrSize;
    interpCNR_16s(pSrc1, val1, pSrc2, val2, pDst, len, scaleFactor & 31);
    return kvoOk;
}

}  // namespace kvo::impl

namespace kvo {

void interp_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len) {
    interp_16s_scalar(a, b, dst, len);
}
void interpC_16s(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst, int len,
                 int sf) {
    interpC_16s_scalar(a, v1, b, v2, dst, len, sf);
}
void interpCNR_16s(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst, int len,
                   int sf) {
    interpCNR_16s_scalar(a, v1, b, v2, dst, len, sf);
}

}  // namespace kvo
