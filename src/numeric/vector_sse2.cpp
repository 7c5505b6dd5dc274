// Vector layer, SSE2 twins of the hot 16-bit members: saturating add and
// subtract, the scaled constant product (ties to even, scale 0..30) and the
// exact 64-bit dot product.  Each gives bit for bit the result of its plain
// loop; the callers route overlapping operands to the plain loop.
//
// The element-wise twins reach a 16-byte boundary of the destination by
// single elements, run 8 elements per step, and finish the tail singly.
#include <emmintrin.h>

#include <cstdint>

#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo::vec_sse2 {

namespace {

// Elements to store singly before the destination reaches 16-byte alignment.
Kvo32s head_16s(const Kvo16s* d, Kvo32s len) {
    auto mis = reinterpret_cast<std::uintptr_t>(d) & 15;
    Kvo32s h = mis == 0 ? 0 : static_cast<Kvo32s>((16 - mis) >> 1);
    return h > len ? len : h;
}

inline __m128i loadu(const Kvo16s* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

}  // namespace

void add_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len) {
    Kvo32s i = head_16s(d, len);
    vec_scalar::add_16s(a, b, d, i);
    for (; i + 8 <= len; i += 8)
        _mm_store_si128(reinterpret_cast<__m128i*>(d + i),
                        _mm_adds_epi16(loadu(a + i), loadu(b + i)));
    vec_scalar::add_16s(a + i, b + i, d + i, len - i);
}

void sub_16s(const Kvo16s* a, const Kvo16s* b, Kvo16s* d, Kvo32s len) {
    Kvo32s i = head_16s(d, len);
    vec_scalar::sub_16s(a, b, d, i);
    for (; i + 8 <= len; i += 8)
        _mm_store_si128(reinterpret_cast<__m128i*>(d + i),
                        _mm_subs_epi16(loadu(b + i), loadu(a + i)));
    vec_scalar::sub_16s(a + i, b + i, d + i, len - i);
}

// Scale 0 .. 30 only.  Products reach 2^30, so the rounding addend keeps them
// inside 32 bits; packs saturates to 16 bits.
void mulc_16s_sfs(const Kvo16s* a, Kvo16s val, Kvo16s* d, Kvo32s len, Kvo32s sf) {
    Kvo32s i = head_16s(d, len);
    vec_scalar::mulc_16s_sfs(a, val, d, i, sf);
    const __m128i v = _mm_set1_epi16(val);
    const __m128i cnt = _mm_cvtsi32_si128(sf);
    const __m128i bias = _mm_set1_epi32(sf > 0 ? (1 << (sf - 1)) - 1 : 0);
    const __m128i one = _mm_set1_epi32(sf > 0 ? 1 : 0);
    auto round = [&](__m128i r) {
        __m128i odd = _mm_and_si128(_mm_sra_epi32(r, cnt), one);
        return _mm_sra_epi32(_mm_add_epi32(_mm_add_epi32(r, bias), odd), cnt);
    };
    for (; i + 8 <= len; i += 8) {
        __m128i x = loadu(a + i);
        __m128i pl = _mm_mullo_epi16(x, v), ph = _mm_mulhi_epi16(x, v);
        __m128i r0 = _mm_unpacklo_epi16(pl, ph), r1 = _mm_unpackhi_epi16(pl, ph);
        if (sf > 0) {
            r0 = round(r0);
            r1 = round(r1);
        }
        _mm_store_si128(reinterpret_cast<__m128i*>(d + i), _mm_packs_epi32(r0, r1));
    }
    vec_scalar::mulc_16s_sfs(a + i, val, d + i, len - i, sf);
}

// Pair sums of pmaddwd wrap only for two (-32768)^2 products, which give
// 0x80000000 for +2^31: that lane is widened as unsigned, every other as signed.
Kvo64s dotprod_16s64s(const Kvo16s* a, const Kvo16s* b, Kvo32s len) {
    const __m128i kMin = _mm_set1_epi32(INT32_MIN);
    __m128i acc = _mm_setzero_si128();
    Kvo32s i = 0;
    for (; i + 8 <= len; i += 8) {
        __m128i m = _mm_madd_epi16(loadu(a + i), loadu(b + i));
        __m128i sign = _mm_andnot_si128(_mm_cmpeq_epi32(m, kMin), _mm_srai_epi32(m, 31));
        acc = _mm_add_epi64(acc, _mm_unpacklo_epi32(m, sign));
        acc = _mm_add_epi64(acc, _mm_unpackhi_epi32(m, sign));
    }
    alignas(16) Kvo64s lanes[2];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), acc);
    // Lane sums stay below 2^62 for any Kvo32s length: no wrap.
    return lanes[0] + lanes[1] + vec_scalar::dotprod_16s64s(a + i, b + i, len - i);
}

}  // namespace kvo::vec_sse2
