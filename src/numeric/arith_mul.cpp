// Element-wise rounded products of 16-bit vectors and block normalisation.
//
// kvosMul_NR / kvosMulC_NR: Q(a+b) products rounded half up before the
// arithmetic right shift by scaleFactor, then saturated to 16 bits.
// kvosMulPowerC_NR: weighted LPC vectors src[i] * val^i.
// kvosAutoScale: block normalisation of a 16-bit vector to 15 bits.
//
// A scaleFactor above 31 has no meaning for these functions; its shift count
// is taken modulo 32 (masked with 31) so that no shift is out of range.
#include <cstring>

#include "impl.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

void mulNR_16s_scalar(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len, int sf) {
    const Kvo64s r = sf > 0 ? Kvo64s{1} << (sf - 1) : 0;
    for (int i = 0; i < len; ++i) dst[i] = sat16((Kvo64s{a[i]} * b[i] + r) >> sf);
}

void mulCNR_16s_scalar(const Kvo16s* src, Kvo16s val, Kvo16s* dst, int len, int sf) {
    const Kvo64s r = sf > 0 ? Kvo64s{1} << (sf - 1) : 0;
    for (int i = 0; i < len; ++i) dst[i] = sat16((Kvo64s{src[i]} * val + r) >> sf);
}

}  // namespace kvo

namespace kvo::impl {

KvoStatus kvosMul_NR_16s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len,
                             Kvo32s scaleFactor) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor < 0) return kvoErrScaleRange;
    mulNR_16s(pSrc1, pSrc2, pDst, len, scaleFactor & 31);
    return kvoOk;
}

KvoStatus kvosMul_NR_16s_ISfs(const Kvo16s* pSrc, Kvo16s* pSrcDst, Kvo32s len, Kvo32s scaleFactor) {
    if (!pSrc || !pSrcDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor < 0) return kvoErrScaleRange;
    mulNR_16s(pSrc, pSrcDst, pSrcDst, len, scaleFactor & 31);
    return kvoOk;
}

KvoStatus kvosMulC_NR_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                              Kvo32s scaleFactor) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor < 0) return kvoErrScaleRange;
    mulCNR_16s(pSrc, val, pDst, len, scaleFactor & 31);
    return kvoOk;
}

KvoStatus kvosMulC_NR_16s_ISfs(Kvo16s val, Kvo16s* pSrcDst, Kvo32s len, Kvo32s scaleFactor) {
    if (!pSrcDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor < 0) return kvoErrScaleRange;
    mulCNR_16s(pSrcDst, val, pSrcDst, len, scaleFactor & 31);
    return kvoOk;
}

// Weighted LPC vector: dst[0] = src[0], dst[i] = src[i] * p with p = val^i, both
// products scaled by the same rule.  Scale 15 is the Q15 case of the coders
// (rounded product kept as its low 16 bits), scale 0 the saturated plain
// product; any other scale rounds, saturates to 32 bits, shifts and
// saturates to 16.
KvoStatus kvosMulPowerC_NR_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                                   Kvo32s scaleFactor) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (scaleFactor < 0) return kvoErrScaleRange;
    if (len < 1) return kvoErrSize;
    const int sf = scaleFactor & 31;
    pDst[0] = pSrc[0];
    Kvo16s p = val;
    if (sf == 15) {
        for (int i = 1; i < len; ++i) {
            pDst[i] = lo16(mulQ15R(pSrc[i], p));
            p = lo16(mulQ15R(p, val));
        }
    } else if (sf == 0) {
        for (int i = 1; i < len; ++i) {
            pDst[i] = sat16(Kvo32s{pSrc[i]} * p);
            p = sat16(Kvo32s{p} * val);
        }
    } else {
        const Kvo64s r = Kvo64s{1} << (sf - 1);
        for (int i = 1; i < len; ++i) {
            pDst[i] = sat16(sat32(Kvo64s{pSrc[i]} * p + r) >> sf);
            p = sat16(sat32(Kvo64s{p} * val + r) >> sf);
        }
    }
    return kvoOk;
}

// Block normalisation: the largest magnitude (-32768 counted as 32767) is
// doubled until it reaches 16384; every element is shifted left by that count
// and right by the caller's extra shift s, kept to 16 bits.  The scale
// returned is the net left shift n - s; an all-zero block reports 16 - s.
// A right shift of 31 already leaves only the sign of a 31-bit value, so
// larger s are clamped to 31 without changing the result.
static KvoStatus autoScale(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s* pScale) {
    const Kvo32s s = *pScale;
    int m = 0;
    for (int i = 0; i < len; ++i) {
        int v = pSrc[i] < 0 ? -Kvo32s{pSrc[i]} : pSrc[i];
        if (v > m) m = v;
    }
    if (m > 32767) m = 32767;
    if (m == 0) {
        std::memset(pDst, 0, sizeof(Kvo16s) * static_cast<size_t>(len));
        *pScale = 16 - s;
        return kvoOk;
    }
    const int n = norm32_pos(static_cast<Kvo32u>(m)) - 16;
    const int rs = s > 31 ? 31 : s;
    for (int i = 0; i < len; ++i) pDst[i] = lo16(shl_wrap(pSrc[i], n) >> rs);
    *pScale = n - s;
    return kvoOk;
}

KvoStatus kvosAutoScale_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s* pScale) {
    if (!pSrc || !pDst || !pScale) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (*pScale < 0) return kvoErrScaleRange;
    return autoScale(pSrc, pDst, len, pScale);
}

KvoStatus kvosAutoScale_16s_I(Kvo16s* pSrcDst, Kvo32s len, Kvo32s* pScale) {
    if (!pSrcDst || !pScale) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (*pScale < 0) return kvoErrScaleRange;
    return autoScale(pSrcDst, pSrcDst, len, pScale);
}

}  // namespace kvo::impl

namespace kvo {

void mulNR_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len, int sf) {
    mulNR_16s_scalar(a, b, dst, len, sf);
}

void mulCNR_16s(const Kvo16s* src, Kvo16s val, Kvo16s* dst, int len, int sf) {
    mulCNR_16s_scalar(src, val, dst, len, sf);
}

}  // namespace kvo
