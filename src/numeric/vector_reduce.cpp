// Vector layer, reductions: extremes with their first index, largest
// magnitude, exact integer sums and dot products with the ties-to-even scaling
// rule, and floating-point sums and dot products with the stated accumulator
// widths.
#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo {

namespace {

template <class T>
KvoStatus check(const T* pSrc, Kvo32s len, const void* pResult) {
    if (pSrc == nullptr || pResult == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    return kvoOk;
}

}  // namespace

KvoStatus kvosMax_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo16s m = pSrc[0];
    for (Kvo32s i = 1; i < len; ++i) m = pSrc[i] > m ? pSrc[i] : m;
    *pResult = m;
    return kvoOk;
}

KvoStatus kvosMax_32s(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pResult) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo32s m = pSrc[0];
    for (Kvo32s i = 1; i < len; ++i) m = pSrc[i] > m ? pSrc[i] : m;
    *pResult = m;
    return kvoOk;
}

KvoStatus kvosMin_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo16s m = pSrc[0];
    for (Kvo32s i = 1; i < len; ++i) m = pSrc[i] < m ? pSrc[i] : m;
    *pResult = m;
    return kvoOk;
}

KvoStatus kvosMin_32f(const Kvo32f* pSrc, Kvo32s len, Kvo32f* pResult) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo32f m = pSrc[0];
    for (Kvo32s i = 1; i < len; ++i) m = pSrc[i] < m ? pSrc[i] : m;
    *pResult = m;
    return kvoOk;
}

// The first of equal extremes wins: only a strictly better element moves the index.
KvoStatus kvosMaxIndx_32s(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pResult, Kvo32s* pIndex) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo32s m = pSrc[0], at = 0;
    for (Kvo32s i = 1; i < len; ++i) {
        if (pSrc[i] > m) {
            m = pSrc[i];
            at = i;
        }
    }
    *pResult = m;
    if (pIndex != nullptr) *pIndex = at;
    return kvoOk;
}

KvoStatus kvosMinIndx_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult, Kvo32s* pIndex) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo16s m = pSrc[0];
    Kvo32s at = 0;
    for (Kvo32s i = 1; i < len; ++i) {
        if (pSrc[i] < m) {
            m = pSrc[i];
            at = i;
        }
    }
    *pResult = m;
    if (pIndex != nullptr) *pIndex = at;
    return kvoOk;
}

KvoStatus kvosMaxAbs_16s(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pResult) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo32s m = 0;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo32s v = pSrc[i] < 0 ? -Kvo32s{pSrc[i]} : pSrc[i];
        m = v > m ? v : m;
    }
    *pResult = static_cast<Kvo16s>(m > 32767 ? 32767 : m);
    return kvoOk;
}

KvoStatus kvosMaxAbs_32s(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pResult) {
    if (KvoStatus st = check(pSrc, len, pResult)) return st;
    Kvo64s m = 0;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo64s v = pSrc[i] < 0 ? -Kvo64s{pSrc[i]} : pSrc[i];
        m = v > m ? v : m;
    }
    *pResult = static_cast<Kvo32s>(m > INT32_MAX ? INT32_MAX : m);
    return kvoOk;
}

// Blocks of 65536 samples fit a 32-bit accumulator; the blocks add exactly in 64 bits.
KvoStatus kvosSum_16s32s_Sfs(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pSum, Kvo32s scaleFactor) {
    if (KvoStatus st = check(pSrc, len, pSum)) return st;
    Kvo64s total = 0;
    for (Kvo32s b = 0; b < len; b += 65536) {
        Kvo32s n = len - b < 65536 ? len - b : 65536;
        Kvo32s acc = 0;
        for (Kvo32s i = 0; i < n; ++i) acc += pSrc[b + i];
        total += acc;
    }
    *pSum = sfs_sat32(total, scaleFactor);
    return kvoOk;
}

KvoStatus kvosSum_16s_Sfs(const Kvo16s* pSrc, Kvo32s len, Kvo16s* pSum, Kvo32s scaleFactor) {
    if (pSrc == nullptr || pSum == nullptr) return kvoErrNullPtr;
    Kvo32s s32 = 0;
    if (KvoStatus st = kvosSum_16s32s_Sfs(pSrc, len, &s32, scaleFactor)) return st;
    *pSum = sat16(s32);
    return kvoOk;
}

KvoStatus kvosSum_32s_Sfs(const Kvo32s* pSrc, Kvo32s len, Kvo32s* pSum, Kvo32s scaleFactor) {
    if (KvoStatus st = check(pSrc, len, pSum)) return st;
    Kvo64s total = 0;
    for (Kvo32s i = 0; i < len; ++i) total += pSrc[i];
    const int s = scaleFactor > 63 ? 63 : (scaleFactor < -31 ? -31 : scaleFactor);
    *pSum = sfs_sat32(total, s);
    return kvoOk;
}

KvoStatus kvosSum_32f(const Kvo32f* pSrc, Kvo32s len, Kvo32f* pSum, Kvo32s hint) {
    if (KvoStatus st = check(pSrc, len, pSum)) return st;
    Kvo64f total = 0.0;
    if (hint == 1) {
        for (Kvo32s b = 0; b < len; b += 1024) {
            const Kvo32s n = len - b < 1024 ? len - b : 1024;
            const Kvo32f* p = pSrc + b;
            Kvo32f lane[8] = {};
            Kvo32s i = 0;
            for (; i + 8 <= n; i += 8)
                for (int j = 0; j < 8; ++j) lane[j] += p[i + j];
            for (int j = 0; i < n; ++i, ++j) lane[j] += p[i];
            total += ((lane[0] + lane[4]) + (lane[1] + lane[5])) +
                     ((lane[2] + lane[6]) + (lane[3] + lane[7]));
        }
    } else {
        for (Kvo32s i = 0; i < len; ++i) total += pSrc[i];
    }
    *pSum = static_cast<Kvo32f>(total);
    return kvoOk;
}

KvoStatus kvosSum_64f(const Kvo64f* pSrc, Kvo32s len, Kvo64f* pSum) {
    if (KvoStatus st = check(pSrc, len, pSum)) return st;
    Kvo64f total = 0.0;
    for (Kvo32s i = 0; i < len; ++i) total += pSrc[i];
    *pSum = total;
    return kvoOk;
}

// Eight single-precision partial sums.
Kvo32f ownDotProd_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32s len) {
    Kvo32f lane[8] = {};
    Kvo32s i = 0;
    for (; i + 8 <= len; i += 8)
        for (int j = 0; j < 8; ++j) lane[j] += pSrc1[i + j] * pSrc2[i + j];
    for (int j = 0; i < len; ++i, ++j) lane[j] += pSrc1[i] * pSrc2[i];
    return ((lane[0] + lane[4]) + (lane[1] + lane[5])) +
           ((lane[2] + lane[6]) + (lane[3] + lane[7]));
}

KvoStatus kvosDotProd_32f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32s len, Kvo32f* pDp) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDp == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    *pDp = ownDotProd_32f(pSrc1, pSrc2, len);
    return kvoOk;
}

KvoStatus kvosDotProd_32f64f(const Kvo32f* pSrc1, const Kvo32f* pSrc2, Kvo32s len, Kvo64f* pDp) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDp == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo64f total = 0.0;
    for (Kvo32s i = 0; i < len; ++i) total += Kvo64f{pSrc1[i]} * Kvo64f{pSrc2[i]};
    *pDp = total;
    return kvoOk;
}

namespace vec_scalar {
Kvo64s dotprod_16s64s(const Kvo16s* a, const Kvo16s* b, Kvo32s len) {
    Kvo64s total = 0;
    for (Kvo32s i = 0; i < len; ++i) total += Kvo32s{a[i]} * b[i];
    return total;
}
}  // namespace vec_scalar

Kvo64s ownDotProd_16s64s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len) {
    return len >= 8 ? vec_sse2::dotprod_16s64s(pSrc1, pSrc2, len)
                    : vec_scalar::dotprod_16s64s(pSrc1, pSrc2, len);
}

KvoStatus kvosDotProd_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len, Kvo32s* pDp,
                                 Kvo32s scaleFactor) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDp == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    const int s = scaleFactor > 31 ? 31 : (scaleFactor < -31 ? -31 : scaleFactor);
    *pDp = sfs_sat32(ownDotProd_16s64s(pSrc1, pSrc2, len), s);
    return kvoOk;
}

}  // namespace kvo
