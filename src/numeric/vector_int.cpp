// Vector layer, element-wise integer family: saturating 16-bit add and
// subtract, the scaled (_Sfs) operations with ties-to-even rounding, squared
// magnitude of 32-bit complex values, and the constant shifts.
//
// Data: plain integers; _Sfs results are the exact product or sum divided by
// 2^scaleFactor (ties to even), saturated to the output width.  Loops run in
// plain index order, so overlapping operands behave as the forward loop.
#include <cstdint>

#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo {

namespace {

// The SIMD twins store 16 bytes at a time: they may run only where every
// operand either is the destination itself or does not overlap it.
bool clear_of(const void* src, const void* dst, std::size_t bytes) {
    auto s = reinterpret_cast<std::uintptr_t>(src);
    auto d = reinterpret_cast<std::uintptr_t>(dst);
    return s == d || s + bytes <= d || d + bytes <= s;
}

bool simd_ok_16s(const void* a, const void* b, const Kvo16s* d, Kvo32s len) {
    auto bytes = static_cast<std::size_t>(len) * sizeof(Kvo16s);
    return len >= 8 && (reinterpret_cast<std::uintptr_t>(d) & 1) == 0 && clear_of(a, d, bytes) &&
           (b == nullptr || clear_of(b, d, bytes));
}

// Stores f(i) under the scaling rule to 16 or 32 bits, with the scale cases
// hoisted out of the loop.  Narrow: every |f(i)| <= 2^30, so scales 1 .. 30
// round in 32-bit arithmetic (the loops then vectorise).
template <bool Narrow = false, class Out, class F>
void scaled_store(Out* pDst, Kvo32s len, int s, F f) {
    constexpr Kvo64s lo = sizeof(Out) == 2 ? INT16_MIN : INT32_MIN;
    constexpr Kvo64s hi = sizeof(Out) == 2 ? INT16_MAX : INT32_MAX;
    if (Narrow && s > 0 && s <= 30) {
        for (Kvo32s i = 0; i < len; ++i) {
            Kvo32s r = sfs_round_even32(static_cast<Kvo32s>(f(i)), s);
            pDst[i] = static_cast<Out>(r > hi ? hi : (r < lo ? lo : r));
        }
    } else if (s == 0) {
        for (Kvo32s i = 0; i < len; ++i) {
            Kvo64s r = f(i);
            pDst[i] = static_cast<Out>(r > hi ? hi : (r < lo ? lo : r));
        }
    } else if (s > 0 && s < 64) {
        for (Kvo32s i = 0; i < len; ++i) {
            Kvo64s r = sfs_round_even(f(i), s);
            pDst[i] = static_cast<Out>(r > hi ? hi : (r < lo ? lo : r));
        }
    } else {
        for (Kvo32s i = 0; i < len; ++i) pDst[i] = static_cast<Out>(sfs_scale(f(i), s, lo, hi));
    }
}

}  // namespace

// ---- plain loops (also the reference for the SIMD twins) ------------------------

namespace vec_scalar {
void add_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len) {
    for (Kvo32s i = 0; i < len; ++i) d[i] = sat16(Kvo32s{a[i]} + b[i]);
}
void sub_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len) {
    for (Kvo32s i = 0; i < len; ++i) d[i] = sat16(Kvo32s{b[i]} - a[i]);
}
void mulc_16s_sfs(const Kvo16s* a, Kvo16s val, Kvo16s* d, Kvo32s len, Kvo32s sf) {
    scaled_store<true>(d, len, sf, [a, val](Kvo32s i) { return Kvo64s{Kvo32s{a[i]} * val}; });
}
}  // namespace vec_scalar

KvoStatus kvosAbs_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo32s v = pSrc[i];
        v = v < 0 ? -v : v;
        pDst[i] = static_cast<Kvo16s>(v > 32767 ? 32767 : v);
    }
    return kvoOk;
}

KvoStatus kvosAdd_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (simd_ok_16s(pSrc1, pSrc2, pDst, len))
        vec_sse2::add_16s(pSrc1, pSrc2, pDst, len);
    else
        vec_scalar::add_16s(pSrc1, pSrc2, pDst, len);
    return kvoOk;
}

KvoStatus kvosSub_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, Kvo32s len) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (simd_ok_16s(pSrc1, pSrc2, pDst, len))
        vec_sse2::sub_16s(pSrc1, pSrc2, pDst, len);
    else
        vec_scalar::sub_16s(pSrc1, pSrc2, pDst, len);
    return kvoOk;
}

KvoStatus kvosAdd_32s_Sfs(const Kvo32s* pSrc1, const Kvo32s* pSrc2, Kvo32s* pDst, Kvo32s len,
                          Kvo32s scaleFactor) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    scaled_store(pDst, len, scaleFactor,
                 [pSrc1, pSrc2](Kvo32s i) { return Kvo64s{pSrc1[i]} + pSrc2[i]; });
    return kvoOk;
}

KvoStatus kvosSubC_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                           Kvo32s scaleFactor) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    scaled_store<true>(pDst, len, scaleFactor,
                       [pSrc, val](Kvo32s i) { return Kvo64s{Kvo32s{pSrc[i]} - val}; });
    return kvoOk;
}

KvoStatus kvosSubCRev_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                              Kvo32s scaleFactor) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    scaled_store<true>(pDst, len, scaleFactor,
                       [pSrc, val](Kvo32s i) { return Kvo64s{Kvo32s{val} - pSrc[i]}; });
    return kvoOk;
}

KvoStatus kvosMulC_16s_Sfs(const Kvo16s* pSrc, Kvo16s val, Kvo16s* pDst, Kvo32s len,
                           Kvo32s scaleFactor) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor >= 0 && scaleFactor <= 30 && simd_ok_16s(pSrc, nullptr, pDst, len))
        vec_sse2::mulc_16s_sfs(pSrc, val, pDst, len, scaleFactor);
    else
        vec_scalar::mulc_16s_sfs(pSrc, val, pDst, len, scaleFactor);
    return kvoOk;
}

KvoStatus kvosMul_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s* pDst, Kvo32s len,
                             Kvo32s scaleFactor) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    scaled_store<true>(pDst, len, scaleFactor,
                       [pSrc1, pSrc2](Kvo32s i) { return Kvo64s{Kvo32s{pSrc1[i]} * pSrc2[i]}; });
    return kvoOk;
}

KvoStatus kvosMagSquared_32sc32s_Sfs(const Kvo32sc* pSrc, Kvo32s* pDst, Kvo32s len,
                                     Kvo32s scaleFactor) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    constexpr Kvo64u kMax = 0x7fffffff;
    // re^2 + im^2 reaches 2^63 (both parts -2^31): it needs the unsigned sum.
    auto mag = [pSrc](Kvo32s i) {
        Kvo64s re = pSrc[i].re, im = pSrc[i].im;
        return static_cast<Kvo64u>(re * re) + static_cast<Kvo64u>(im * im);
    };
    const int s = scaleFactor;
    if (s >= 0) {
        for (Kvo32s i = 0; i < len; ++i) {
            Kvo64u u = s >= 64 ? 0 : mag(i) >> s;
            pDst[i] = static_cast<Kvo32s>(u > kMax ? kMax : u);
        }
    } else {
        const int n = s < -31 ? 31 : -s;
        for (Kvo32s i = 0; i < len; ++i) {
            Kvo64u u = mag(i);
            Kvo64u r = u == 0 ? 0 : (n >= 31 || u > (kMax >> n)) ? kMax : u << n;
            pDst[i] = static_cast<Kvo32s>(r);
        }
    }
    return kvoOk;
}

KvoStatus kvosRShiftC_16s(const Kvo16s* pSrc, Kvo32s count, Kvo16s* pDst, Kvo32s len) {
    if (count == 0) return kvosCopy_16s(pSrc, pDst, len);
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (count < 0) return kvoErrShiftCount;
    const int c = count > 15 ? 15 : count;
    for (Kvo32s i = 0; i < len; ++i) pDst[i] = static_cast<Kvo16s>(pSrc[i] >> c);
    return kvoOk;
}

KvoStatus kvosRShiftC_32s(const Kvo32s* pSrc, Kvo32s count, Kvo32s* pDst, Kvo32s len) {
    if (count == 0) return kvosCopy_32s(pSrc, pDst, len);
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (count < 0) return kvoErrShiftCount;
    const int c = count > 31 ? 31 : count;
    for (Kvo32s i = 0; i < len; ++i) pDst[i] = pSrc[i] >> c;
    return kvoOk;
}

KvoStatus kvosLShiftC_16u(const Kvo16u* pSrc, Kvo32s count, Kvo16u* pDst, Kvo32s len) {
    if (count == 0)
        return kvosCopy_16s(reinterpret_cast<const Kvo16s*>(pSrc), reinterpret_cast<Kvo16s*>(pDst),
                            len);
    if (count >= 16) {
        if (pSrc == nullptr) return kvoErrNullPtr;
        return kvosZero_16s(reinterpret_cast<Kvo16s*>(pDst), len);
    }
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (count < 0) return kvoErrShiftCount;
    for (Kvo32s i = 0; i < len; ++i) pDst[i] = static_cast<Kvo16u>(pSrc[i] << count);
    return kvoOk;
}

KvoStatus kvosLShiftC_16s(const Kvo16s* pSrc, Kvo32s count, Kvo16s* pDst, Kvo32s len) {
    return kvosLShiftC_16u(reinterpret_cast<const Kvo16u*>(pSrc), count,
                           reinterpret_cast<Kvo16u*>(pDst), len);
}

}  // namespace kvo
