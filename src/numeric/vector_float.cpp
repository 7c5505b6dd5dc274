// Vector layer, floating-point family: element-wise IEEE operations in the
// element's own precision, integer and double to float conversions, and the
// value, magnitude and inverse thresholds.
//
// Loops are plain index order (written to auto-vectorise); no operation is
// contracted into a fused multiply-add, so results equal the single operations.
#include <cfloat>

#include "numeric/vector.h"

namespace kvo {

namespace {

template <class A, class B, class D, class F>
KvoStatus binary(const A* a, const B* b, D* d, Kvo32s len, F f) {
    if (a == nullptr || b == nullptr || d == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) d[i] = f(a[i], b[i]);
    return kvoOk;
}

template <class S, class D, class F>
KvoStatus unary(const S* s, D* d, Kvo32s len, F f) {
    if (s == nullptr || d == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) d[i] = f(s[i]);
    return kvoOk;
}

}  // namespace

// ---- element-wise -----------------------------------------------------------------

KvoStatus kvosAdd_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pDst, Kvo32s len) {
    return binary(pSrc1, pSrc2, pDst, len, [](Kvo32f a, Kvo32f b) { return a + b; });
}
KvoStatus kvosAdd_64f(const Kvo64f* pSrc1, const Kvo64f* pSrc2, Kvo64f* pDst, Kvo32s len) {
    return binary(pSrc1, pSrc2, pDst, len, [](Kvo64f a, Kvo64f b) { return a + b; });
}
KvoStatus kvosSub_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pDst, Kvo32s len) {
    return binary(pSrc1, pSrc2, pDst, len, [](Kvo32f a, Kvo32f b) { return b - a; });
}
KvoStatus kvosMul_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pDst, Kvo32s len) {
    return binary(pSrc1, pSrc2, pDst, len, [](Kvo32f a, Kvo32f b) { return a * b; });
}
KvoStatus kvosMul_64f(const Kvo64f* pSrc1, const Kvo64f* pSrc2, Kvo64f* pDst, Kvo32s len) {
    return binary(pSrc1, pSrc2, pDst, len, [](Kvo64f a, Kvo64f b) { return a * b; });
}
KvoStatus kvosAddC_32f(const Kvo32f* pSrc, Kvo32f val, Kvo32f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [val](Kvo32f a) { return a + val; });
}
KvoStatus kvosSubC_32f(const Kvo32f* pSrc, Kvo32f val, Kvo32f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [val](Kvo32f a) { return a - val; });
}
KvoStatus kvosMulC_32f(const Kvo32f* pSrc, Kvo32f val, Kvo32f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [val](Kvo32f a) { return a * val; });
}
KvoStatus kvosMulC_64f(const Kvo64f* pSrc, Kvo64f val, Kvo64f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [val](Kvo64f a) { return a * val; });
}
KvoStatus kvosMulC_32f_I(Kvo32f val, Kvo32f* pSrcDst, Kvo32s len) {
    return unary(pSrcDst, pSrcDst, len, [val](Kvo32f a) { return a * val; });
}

KvoStatus kvosAddProduct_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32f* pSrcDst,
                             Kvo32s len) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pSrcDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo32f p = pSrc1[i] * pSrc2[i];
        pSrcDst[i] = pSrcDst[i] + p;
    }
    return kvoOk;
}

KvoStatus kvosMul_32f32fc(const Kvo32f* pSrc, const Kvo32fc* pSrc2, Kvo32fc* pDst, Kvo32s len) {
    return binary(pSrc, pSrc2, pDst, len, [](Kvo32f a, Kvo32fc b) {
        return Kvo32fc{a * b.re, a * b.im};
    });
}

// ---- conversions ------------------------------------------------------------------

KvoStatus kvosConvert_16s32s(const Kvo16s* pSrc, Kvo32s* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [](Kvo16s a) { return Kvo32s{a}; });
}
KvoStatus kvosConvert_16s32f(const Kvo16s* pSrc, Kvo32f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [](Kvo16s a) { return static_cast<Kvo32f>(a); });
}
KvoStatus kvosConvert_32s32f(const Kvo32s* pSrc, Kvo32f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [](Kvo32s a) { return static_cast<Kvo32f>(a); });
}
// Infinities become the largest finite float of their sign; NaN passes through.
KvoStatus kvosConvert_64f32f(const Kvo64f* pSrc, Kvo32f* pDst, Kvo32s len) {
    return unary(pSrc, pDst, len, [](Kvo64f a) {
        a = a > FLT_MAX ? FLT_MAX : a;
        a = a < -FLT_MAX ? -FLT_MAX : a;
        return static_cast<Kvo32f>(a);
    });
}

// ---- thresholds -------------------------------------------------------------------

KvoStatus kvosThreshold_LTVal_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f level,
                                  Kvo32f value) {
    return unary(pSrc, pDst, len, [=](Kvo32f a) { return a < level ? value : a; });
}
KvoStatus kvosThreshold_GTVal_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f level,
                                  Kvo32f value) {
    return unary(pSrc, pDst, len, [=](Kvo32f a) { return a > level ? value : a; });
}
KvoStatus kvosThreshold_GTVal_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len, Kvo64f level,
                                  Kvo64f value) {
    return unary(pSrc, pDst, len, [=](Kvo64f a) { return a > level ? value : a; });
}

namespace {
template <class T>
KvoStatus lt_gt(const T* pSrc, T* pDst, Kvo32s len, T levelLT, T valueLT, T levelGT, T valueGT) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (levelLT > levelGT) return kvoErrThresholdOrder;
    for (Kvo32s i = 0; i < len; ++i) {
        T a = pSrc[i];
        pDst[i] = a < levelLT ? valueLT : (a > levelGT ? valueGT : a);
    }
    return kvoOk;
}
}  // namespace

KvoStatus kvosThreshold_LTValGTVal_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f levelLT,
                                       Kvo32f valueLT, Kvo32f levelGT, Kvo32f valueGT) {
    return lt_gt(pSrc, pDst, len, levelLT, valueLT, levelGT, valueGT);
}
KvoStatus kvosThreshold_LTValGTVal_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len, Kvo64f levelLT,
                                       Kvo64f valueLT, Kvo64f levelGT, Kvo64f valueGT) {
    return lt_gt(pSrc, pDst, len, levelLT, valueLT, levelGT, valueGT);
}

KvoStatus kvosThreshold_LTAbs_32f(const Kvo32f* pSrc, Kvo32f* pDst, Kvo32s len, Kvo32f level) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (level < 0.0f) return kvoErrThresholdNegative;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo32f a = pSrc[i];
        Kvo32f mag = a < 0.0f ? -a : a;
        pDst[i] = mag < level ? (a < 0.0f ? -level : level) : a;
    }
    return kvoOk;
}

KvoStatus kvosThreshold_LTInv_64f(const Kvo64f* pSrc, Kvo64f* pDst, Kvo32s len, Kvo64f level) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (level < 0.0) return kvoErrThresholdNegative;
    if (level == 0.0) {
        bool metZero = false;
        for (Kvo32s i = 0; i < len; ++i) {
            Kvo64f a = pSrc[i];
            if (a == 0.0) {
                metZero = true;
                pDst[i] = kvoConstantOfINF_64f;
            } else {
                pDst[i] = 1.0 / a;
            }
        }
        return metZero ? kvoWarnInvZero : kvoOk;
    }
    const Kvo64f inv = 1.0 / level;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo64f a = pSrc[i];
        Kvo64f mag = a < 0.0 ? -a : a;
        pDst[i] = mag <= level ? (a < 0.0 ? -inv : inv) : 1.0 / a;
    }
    return kvoOk;
}

}  // namespace kvo
