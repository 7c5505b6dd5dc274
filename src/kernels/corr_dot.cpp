// Dot products of 16-bit vectors for the correlation kernels: the 32-bit
// (modulo 2^32) sum and the exact 64-bit sum of the products.
//
// Both sums are independent of the order of addition, so the SSE2 paths add
// eight products a step.  The 16-bit multiply-add instruction wraps only for
// a pair of (-32768)^2 products, whose true sum 2^31 it returns as -2^31: the
// same value modulo 2^32, so the wrapped sum is exact.  The exact sum splits
// every product p into its signed high half (p >> 16) and unsigned low half
// (p & 0xffff), sums both halves in 32-bit lanes over bounded blocks and
// joins them in 64 bits.
#include <emmintrin.h>

#include "kernels/corr.h"

namespace kvo {

Kvo32s corrDotWrapScalar(const Kvo16s* a, const Kvo16s* b, Kvo32s n) {
    Kvo32u acc = 0;
    for (Kvo32s i = 0; i < n; ++i) acc += static_cast<Kvo32u>(Kvo32s{a[i]} * b[i]);
    return static_cast<Kvo32s>(acc);
}

Kvo64s corrDotExactScalar(const Kvo16s* a, const Kvo16s* b, Kvo32s n) {
    Kvo64s acc = 0;
    for (Kvo32s i = 0; i < n; ++i) acc += Kvo32s{a[i]} * b[i];
    return acc;
}

namespace {

inline Kvo32u hsum_u32(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<Kvo32u>(_mm_cvtsi128_si32(v));
}

inline Kvo64s hsum_s32_wide(__m128i v) {
    alignas(16) Kvo32s l[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(l), v);
    return Kvo64s{l[0]} + l[1] + l[2] + l[3];
}

inline __m128i load8(const Kvo16s* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

}  // namespace

Kvo32s corrDotWrap(const Kvo16s* a, const Kvo16s* b, Kvo32s n) {
    __m128i acc0 = _mm_setzero_si128();
    __m128i acc1 = _mm_setzero_si128();
    Kvo32s i = 0;
    for (; n - i >= 16; i += 16) {
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(load8(a + i), load8(b + i)));
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(load8(a + i + 8), load8(b + i + 8)));
    }
    if (n - i >= 8) {
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(load8(a + i), load8(b + i)));
        i += 8;
    }
    Kvo32u acc = hsum_u32(_mm_add_epi32(acc0, acc1));
    for (; i < n; ++i) acc += static_cast<Kvo32u>(Kvo32s{a[i]} * b[i]);
    return static_cast<Kvo32s>(acc);
}

Kvo64s corrDotExact(const Kvo16s* a, const Kvo16s* b, Kvo32s n) {
    // Per step each 32-bit lane gains at most 2 * 16384 from the high halves
    // and 2 * 32768 from the (offset) low halves: 16384 steps stay in range.
    constexpr Kvo32s kBlockSteps = 16384;
    const __m128i ones = _mm_set1_epi16(1);
    const __m128i bias = _mm_set1_epi16(static_cast<Kvo16s>(-32768));
    Kvo64s total = 0;
    Kvo32s i = 0;
    while (n - i >= 8) {
        Kvo32s steps = (n - i) / 8;
        if (steps > kBlockSteps) steps = kBlockSteps;
        __m128i accHi = _mm_setzero_si128();
        __m128i accLo = _mm_setzero_si128();
        for (Kvo32s s = 0; s < steps; ++s, i += 8) {
            __m128i x = load8(a + i), y = load8(b + i);
            __m128i hiHalf = _mm_mulhi_epi16(x, y);
            // Low half as unsigned 0..65535, offset by -32768 into signed range.
            __m128i loHalf = _mm_xor_si128(_mm_mullo_epi16(x, y), bias);
            accHi = _mm_add_epi32(accHi, _mm_madd_epi16(hiHalf, ones));
            accLo = _mm_add_epi32(accLo, _mm_madd_epi16(loHalf, ones));
        }
        total += hsum_s32_wide(accHi) * 65536 + hsum_s32_wide(accLo) + Kvo64s{32768} * 8 * steps;
    }
    for (; i < n; ++i) total += Kvo32s{a[i]} * b[i];
    return total;
}

}  // namespace kvo
