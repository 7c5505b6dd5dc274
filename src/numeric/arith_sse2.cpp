// SSE2 paths of the element-wise products and interpolations: eight 16-bit
// lanes with 32-bit intermediate products, a scalar lead-in that brings the
// output to a 16-byte boundary, unaligned loads of the inputs.  Outputs that
// overlap an input at another position take the scalar loop (its plain
// order defines the result), and so do the few scales whose rounding sum
// could leave 32 bits (noted at each function).  Results equal the scalar
// loops bit for bit.
#include <cstdint>

#include "numeric/arith.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kvo {

namespace {

// True when dst shares memory with src without being the same element
// sequence: such a call must run element by element in order.
inline bool overlapsShifted(const Kvo16s* dst, const Kvo16s* src, int len) {
    if (dst == src) return false;
    const auto d = reinterpret_cast<std::uintptr_t>(dst), s = reinterpret_cast<std::uintptr_t>(src);
    const auto bytes = static_cast<std::uintptr_t>(len) * sizeof(Kvo16s);
    return d < s + bytes && s < d + bytes;
}

// Elements to process one by one until dst sits on a 16-byte boundary
// (0 when dst is not even 2-byte aligned: the body then stores unaligned).
inline int leadIn(const Kvo16s* dst, int len) {
    const auto a = reinterpret_cast<std::uintptr_t>(dst);
    if (a & 1) return 0;
    const int n = static_cast<int>(((16 - (a & 15)) & 15) >> 1);
    return n < len ? n : len;
}

#if defined(__SSE2__)
// The eight 32-bit products of a and b, as two vectors of four.
inline void products(__m128i a, __m128i b, __m128i& p0, __m128i& p1) {
    const __m128i l = _mm_mullo_epi16(a, b), h = _mm_mulhi_epi16(a, b);
    p0 = _mm_unpacklo_epi16(l, h);
    p1 = _mm_unpackhi_epi16(l, h);
}
inline __m128i load(const Kvo16s* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
inline void store(Kvo16s* p, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
#endif

}  // namespace

// sat16((a b + r) >> sf).  The vector path needs a b + r below 2^31, which
// holds up to sf 30 (a b is at most 2^30); sf 31 runs the scalar loop.
void mulNR_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len, int sf) {
#if defined(__SSE2__)
    if (len >= 8 && sf < 31 && !overlapsShifted(dst, a, len) && !overlapsShifted(dst, b, len)) {
        const int lead = leadIn(dst, len);
        mulNR_16s_scalar(a, b, dst, lead, sf);
        const __m128i r = _mm_set1_epi32(sf > 0 ? 1 << (sf - 1) : 0);
        const __m128i cnt = _mm_cvtsi32_si128(sf);
        int i = lead;
        for (; i + 8 <= len; i += 8) {
            __m128i p0, p1;
            products(load(a + i), load(b + i), p0, p1);
            p0 = _mm_sra_epi32(_mm_add_epi32(p0, r), cnt);
            p1 = _mm_sra_epi32(_mm_add_epi32(p1, r), cnt);
            store(dst + i, _mm_packs_epi32(p0, p1));
        }
        mulNR_16s_scalar(a + i, b + i, dst + i, len - i, sf);
        return;
    }
#endif
    mulNR_16s_scalar(a, b, dst, len, sf);
}

void mulCNR_16s(const Kvo16s* src, Kvo16s val, Kvo16s* dst, int len, int sf) {
#if defined(__SSE2__)
    if (len >= 8 && sf < 31 && !overlapsShifted(dst, src, len)) {
        const int lead = leadIn(dst, len);
        mulCNR_16s_scalar(src, val, dst, lead, sf);
        const __m128i v = _mm_set1_epi16(val);
        const __m128i r = _mm_set1_epi32(sf > 0 ? 1 << (sf - 1) : 0);
        const __m128i cnt = _mm_cvtsi32_si128(sf);
        int i = lead;
        for (; i + 8 <= len; i += 8) {
            __m128i p0, p1;
            products(load(src + i), v, p0, p1);
            p0 = _mm_sra_epi32(_mm_add_epi32(p0, r), cnt);
            p1 = _mm_sra_epi32(_mm_add_epi32(p1, r), cnt);
            store(dst + i, _mm_packs_epi32(p0, p1));
        }
        mulCNR_16s_scalar(src + i, val, dst + i, len - i, sf);
        return;
    }
#endif
    mulCNR_16s_scalar(src, val, dst, len, sf);
}

// (a >> 1) + (b >> 1): the halves cannot overflow 16 bits.  Sixteen lanes a step.
void interp_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* dst, int len) {
#if defined(__SSE2__)
    if (len >= 16 && !overlapsShifted(dst, a, len) && !overlapsShifted(dst, b, len)) {
        const int lead = leadIn(dst, len);
        interp_16s_scalar(a, b, dst, lead);
        int i = lead;
        for (; i + 16 <= len; i += 16) {
            const __m128i x0 =
                _mm_add_epi16(_mm_srai_epi16(load(a + i), 1), _mm_srai_epi16(load(b + i), 1));
            const __m128i x1 = _mm_add_epi16(_mm_srai_epi16(load(a + i + 8), 1),
                                             _mm_srai_epi16(load(b + i + 8), 1));
            store(dst + i, x0);
            store(dst + i + 8, x1);
        }
        interp_16s_scalar(a + i, b + i, dst + i, len - i);
        return;
    }
#endif
    interp_16s_scalar(a, b, dst, len);
}

// sat16((a v1 >> sf) + (b v2 >> sf)).  From sf 1 on each shifted product is
// at most 2^29 and the sum fits 32 bits; sf 0 runs the scalar loop.
void interpC_16s(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst, int len,
                 int sf) {
#if defined(__SSE2__)
    if (len >= 8 && sf > 0 && !overlapsShifted(dst, a, len) && !overlapsShifted(dst, b, len)) {
        const int lead = leadIn(dst, len);
        interpC_16s_scalar(a, v1, b, v2, dst, lead, sf);
        const __m128i w1 = _mm_set1_epi16(v1), w2 = _mm_set1_epi16(v2);
        const __m128i cnt = _mm_cvtsi32_si128(sf);
        int i = lead;
        for (; i + 8 <= len; i += 8) {
            __m128i p0, p1, q0, q1;
            products(load(a + i), w1, p0, p1);
            products(load(b + i), w2, q0, q1);
            p0 = _mm_add_epi32(_mm_sra_epi32(p0, cnt), _mm_sra_epi32(q0, cnt));
            p1 = _mm_add_epi32(_mm_sra_epi32(p1, cnt), _mm_sra_epi32(q1, cnt));
            store(dst + i, _mm_packs_epi32(p0, p1));
        }
        interpC_16s_scalar(a + i, v1, b + i, v2, dst + i, len - i, sf);
        return;
    }
#endif
    interpC_16s_scalar(a, v1, b, v2, dst, len, sf);
}

// sat16((a v1 + b v2 + r) >> sf).  The sum of the two products may reach
// 2^31, so the lanes carry its exact half h = floor((p + q) / 2) =
// (p >> 1) + (q >> 1) + (p & q & 1).  Then for sf 1 the result is h plus
// the parity of p + q, and for sf >= 2 it is (h + 2^(sf-2)) >> (sf - 1).
// sf 0 runs the scalar loop.
void interpCNR_16s(const Kvo16s* a, Kvo16s v1, const Kvo16s* b, Kvo16s v2, Kvo16s* dst, int len,
                   int sf) {
#if defined(__SSE2__)
    if (len >= 8 && sf > 0 && !overlapsShifted(dst, a, len) && !overlapsShifted(dst, b, len)) {
        const int lead = leadIn(dst, len);
        interpCNR_16s_scalar(a, v1, b, v2, dst, lead, sf);
        const __m128i w1 = _mm_set1_epi16(v1), w2 = _mm_set1_epi16(v2);
        const __m128i one = _mm_set1_epi32(1);
        const __m128i r = _mm_set1_epi32(sf >= 2 ? 1 << (sf - 2) : 0);
        const __m128i parityMask = sf == 1 ? one : _mm_setzero_si128();
        const __m128i cnt = _mm_cvtsi32_si128(sf - 1);
        auto half = [&](__m128i p, __m128i q) {
            __m128i h = _mm_add_epi32(_mm_srai_epi32(p, 1), _mm_srai_epi32(q, 1));
            h = _mm_add_epi32(h, _mm_and_si128(_mm_and_si128(p, q), one));
            h = _mm_add_epi32(h, _mm_and_si128(_mm_xor_si128(p, q), parityMask));
            return _mm_sra_epi32(_mm_add_epi32(h, r), cnt);
        };
        int i = lead;
        for (; i + 8 <= len; i += 8) {
            __m128i p0, p1, q0, q1;
            products(load(a + i), w1, p0, p1);
            products(load(b + i), w2, q0, q1);
            store(dst + i, _mm_packs_epi32(half(p0, q0), half(p1, q1)));
        }
        interpCNR_16s_scalar(a + i, v1, b + i, v2, dst + i, len - i, sf);
        return;
    }
#endif
    interpCNR_16s_scalar(a, v1, b, v2, dst, len, sf);
}

}  // namespace kvo
