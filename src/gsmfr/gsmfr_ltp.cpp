// GSM 06.10 long-term prediction search and RPE steps.
//
// - kvosCrossCorrLagMax_16s: the LTP lag search.  The caller passes the
//   reconstructed residual history so that lag index k = 0 .. maxLag scans
//   from the longest LTP lag down; lags are tried from maxLag down to 0 and a
//   later one replaces the best only when strictly larger, so among equal
//   maxima the largest index stands.  Correlations are undoubled exact sums
//   saturated to 32 bits.  The SSE2 path sums in 32-bit lanes when the
//   magnitudes bound every sum below 2^31, otherwise it takes the exact path.
// - kvosWeightingFilter_GSMFR_16s: the 11-tap RPE weighting filter (Q13
//   coefficients 8192, 5741, 2054, 0, -374, -134 by offset), rounded and
//   saturated to 16 bits.
// - kvosRPEQuantDecode_GSMFR_16s: APCM inverse quantisation.  The rounding
//   term 2^(exponent-1) is added with 16-bit saturation, as the reference's
//   add does; from exponent 16 on the result is 0.
#include <emmintrin.h>

#include <algorithm>

#include "frame/impl.h"
#include "gsmfr/gsmfr.h"
#include "numeric/fixed.h"

namespace kvo {

namespace gsmfr {

namespace {

// Largest magnitude of a vector (32768 for -32768).
Kvo32s maxAbs(const Kvo16s* p, Kvo32s n) {
    __m128i hi = _mm_setzero_si128(), lo = hi;
    Kvo32s i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        hi = _mm_max_epi16(hi, v);
        lo = _mm_min_epi16(lo, v);
    }
    alignas(16) Kvo16s h[8], l[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(h), hi);
    _mm_store_si128(reinterpret_cast<__m128i*>(l), lo);
    Kvo32s m = 0;
    for (int j = 0; j < 8; ++j) m = std::max({m, Kvo32s{h[j]}, -Kvo32s{l[j]}});
    for (; i < n; ++i) m = std::max(m, p[i] < 0 ? -Kvo32s{p[i]} : Kvo32s{p[i]});
    return m;
}

// Horizontal sum of four 32-bit lanes.
inline Kvo32s hsum(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_cvtsi128_si32(v);
}

// 32-bit dot product; the caller has bounded every partial sum below 2^31.
inline Kvo32s dot32(const Kvo16s* x, const Kvo16s* y, Kvo32s len) {
    __m128i acc = _mm_setzero_si128();
    Kvo32s i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(y + i));
        acc = _mm_add_epi32(acc, _mm_madd_epi16(a, b));
    }
    Kvo32s s = hsum(acc);
    for (; i < len; ++i) s += Kvo32s{x[i]} * y[i];
    return s;
}

inline Kvo32s dotExactSat(const Kvo16s* x, const Kvo16s* y, Kvo32s len) {
    Kvo64s s = 0;
    for (Kvo32s i = 0; i < len; ++i) s += Kvo32s{x[i]} * y[i];
    return sat32(s);
}

// The subframe case (40 samples) with the five source vectors in registers.
void lagMax40(const Kvo16s* x, const Kvo16s* y, Kvo32s maxLag, Kvo32s* pMax, Kvo32s* pLag) {
    const __m128i* px = reinterpret_cast<const __m128i*>(x);
    const __m128i x0 = _mm_loadu_si128(px), x1 = _mm_loadu_si128(px + 1),
                  x2 = _mm_loadu_si128(px + 2), x3 = _mm_loadu_si128(px + 3),
                  x4 = _mm_loadu_si128(px + 4);
    Kvo32s best = 0, lag = maxLag;
    for (Kvo32s k = maxLag; k >= 0; --k) {
        const __m128i* py = reinterpret_cast<const __m128i*>(y + k);
        __m128i a = _mm_madd_epi16(x0, _mm_loadu_si128(py));
        __m128i b = _mm_madd_epi16(x1, _mm_loadu_si128(py + 1));
        a = _mm_add_epi32(a, _mm_madd_epi16(x2, _mm_loadu_si128(py + 2)));
        b = _mm_add_epi32(b, _mm_madd_epi16(x3, _mm_loadu_si128(py + 3)));
        a = _mm_add_epi32(a, _mm_madd_epi16(x4, _mm_loadu_si128(py + 4)));
        const Kvo32s c = hsum(_mm_add_epi32(a, b));
        if (c > best) {
            best = c;
            lag = k;
        }
    }
    *pMax = best;
    *pLag = lag;
}

}  // namespace

void crossCorrLagMaxScalar(const Kvo16s* x, const Kvo16s* y, Kvo32s len, Kvo32s maxLag,
                           Kvo32s* pMax, Kvo32s* pLag) {
    Kvo32s best = 0, lag = maxLag;
    for (Kvo32s k = maxLag; k >= 0; --k) {
        const Kvo32s c = dotExactSat(x, y + k, len);
        if (c > best) {
            best = c;
            lag = k;
        }
    }
    *pMax = best;
    *pLag = lag;
}

void crossCorrLagMax(const Kvo16s* x, const Kvo16s* y, Kvo32s len, Kvo32s maxLag, Kvo32s* pMax,
                     Kvo32s* pLag) {
    // Every partial sum is at most len * max|x| * max|y|; below 2^31 the
    // 32-bit lanes (and each pair sum of madd) are exact.
    const Kvo64s bound = Kvo64s{len} * maxAbs(x, len) * maxAbs(y, len + maxLag);
    if (bound >= (Kvo64s{1} << 31) || len < 8) {
        crossCorrLagMaxScalar(x, y, len, maxLag, pMax, pLag);
        return;
    }
    if (len == 40) {
        if (hasAvx2())
            lagMax40Avx2(x, y, maxLag, pMax, pLag);
        else
            lagMax40(x, y, maxLag, pMax, pLag);
        return;
    }
    Kvo32s best = 0, lag = maxLag;
    for (Kvo32s k = maxLag; k >= 0; --k) {
        const Kvo32s c = dot32(x, y + k, len);
        if (c > best) {
            best = c;
            lag = k;
        }
    }
    *pMax = best;
    *pLag = lag;
}

void weightingScalar(const Kvo16s* x, Kvo16s* y, Kvo32s len) {
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo32s s = 4096 + 8192 * Kvo32s{x[i]} + 5741 * (x[i - 1] + x[i + 1]) +
                         2054 * (x[i - 2] + x[i + 2]) - 374 * (x[i - 4] + x[i + 4]) -
                         134 * (x[i - 5] + x[i + 5]);
        y[i] = sat16(s >> 13);
    }
}

void weighting(const Kvo16s* x, Kvo16s* y, Kvo32s len) {
    // Pairs of taps (offsets -5..6, the last one zero) for madd on
    // interleaved neighbours: lane j of the pair (k, k+1) holds x[i+k], x[i+k+1].
    const __m128i h0 = _mm_set1_epi32((-374 << 16) | (-134 & 0xffff));  // -5, -4
    const __m128i h1 = _mm_set1_epi32(2054 << 16);                      // -3, -2
    const __m128i h2 = _mm_set1_epi32((8192 << 16) | 5741);             // -1, 0
    const __m128i h3 = _mm_set1_epi32((2054 << 16) | 5741);             // 1, 2
    const __m128i h4 = _mm_set1_epi32(static_cast<int>(0xfe8a0000u));   // 3, 4
    const __m128i h5 = _mm_set1_epi32(-134 & 0xffff);                   // 5 alone
    const __m128i rnd = _mm_set1_epi32(4096);
    Kvo32s i = 0;
    for (; i + 8 <= len; i += 8) {
        const Kvo16s* p = x + i;
        __m128i lo = rnd, hi = rnd;
        auto pair = [&](int k, __m128i h) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k + 1));
            lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), h));
            hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), h));
        };
        pair(-5, h0);
        pair(-3, h1);
        pair(-1, h2);
        pair(1, h3);
        pair(3, h4);
        // Offset 5 alone: a pair (5, 6) would read one sample beyond the
        // five promised, so it is paired with zeros.
        {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 5));
            const __m128i z = _mm_setzero_si128();
            lo = _mm_add_epi32(lo, _mm_madd_epi16(_mm_unpacklo_epi16(a, z), h5));
            hi = _mm_add_epi32(hi, _mm_madd_epi16(_mm_unpackhi_epi16(a, z), h5));
        }
        lo = _mm_srai_epi32(lo, 13);
        hi = _mm_srai_epi32(hi, 13);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + i), _mm_packs_epi32(lo, hi));
    }
    if (i < len) weightingScalar(x + i, y + i, len - i);
}

}  // namespace gsmfr

KvoStatus impl::kvosCrossCorrLagMax_16s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                        Kvo32s maxLag, Kvo32s* pMax, Kvo32s* pLag) {
    if (!pSrc1 || !pSrc2 || !pMax || !pLag) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (maxLag < 0) return kvoErrRange;
    gsmfr::crossCorrLagMax(pSrc1, pSrc2, len, maxLag, pMax, pLag);
    return kvoOk;
}

KvoStatus impl::kvosWeightingFilter_GSMFR_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    gsmfr::weighting(pSrc, pDst, len);
    return kvoOk;
}

KvoStatus impl::kvosRPEQuantDecode_GSMFR_16s(const Kvo16s* pSrc, Kvo16s mantissa, Kvo16s exponent,
                                             Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (exponent < 0) return kvoErrScaleRange;
    const Kvo32s round = exponent == 0 ? 0 : (exponent > 16 ? 65536 : 1 << (exponent - 1));
    const int shift = exponent > 15 ? 15 : exponent;
    Kvo16s out[13];
    for (int i = 0; i < 13; ++i) {
        // Codes outside 0..7 are not refused; their product is taken in 64 bits.
        const Kvo32s t = lo16(((2 * Kvo64s{pSrc[i]} - 7) * mantissa + 4) >> 3);
        out[i] = static_cast<Kvo16s>(sat16(t + round) >> shift);
    }
    for (int i = 0; i < 13; ++i) pDst[i] = out[i];
    return kvoOk;
}

}  // namespace kvo
