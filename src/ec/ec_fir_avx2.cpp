// AVX2 twins of the float subband FIR and coefficient update: four subbands per 256-bit
// register of doubles, the same double-precision products, rounding to single precision
// and single-precision sums in the same order as the scalar cores (bit-exact; the tests
// compare them by memcmp).  No fused multiply-add: every product is rounded on its own.
// The last subbands (fewer than four) go through the SSE2 twin (FIR) or the scalar core
// (update, so that two 64 kB scratch frames are never stacked).
#include <immintrin.h>

#include "ec/ec_common.h"

namespace kvo::ec {

namespace {

// Four subbands [r0 i0 r1 i1 | r2 i2 r3 i3] -> real and imaginary parts as doubles.
inline void split4(const Kvo32fc* p, __m256d& re, __m256d& im) {
    const __m128 lo = _mm_loadu_ps(reinterpret_cast<const float*>(p));
    const __m128 hi = _mm_loadu_ps(reinterpret_cast<const float*>(p + 2));
    re = _mm256_cvtps_pd(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0)));
    im = _mm256_cvtps_pd(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1)));
}

// Rounds to single and stores the interleaved [r0 i0 r1 i1], [r2 i2 r3 i3] halves.
inline void join4(__m256d re, __m256d im, __m128& lo, __m128& hi) {
    const __m128 r = _mm256_cvtpd_ps(re), i = _mm256_cvtpd_ps(im);
    lo = _mm_unpacklo_ps(r, i);
    hi = _mm_unpackhi_ps(r, i);
}

}  // namespace

void firSubband32fcAvx2(const Kvo32fc* const* ppRefRows, const Kvo32fc* const* ppCoefRows,
                        Kvo32fc* pDst, int numSegments, int numSubbands) {
    int k = 0;
    for (; k + 4 <= numSubbands; k += 4) {
        __m128 acc0 = _mm_setzero_ps(), acc1 = _mm_setzero_ps();
        for (int r = 0; r < numSegments; ++r) {
            __m256d xr, xi, hr, hi;
            split4(ppRefRows[r] + k, xr, xi);
            split4(ppCoefRows[r] + k, hr, hi);
            const __m256d re = _mm256_sub_pd(_mm256_mul_pd(xr, hr), _mm256_mul_pd(xi, hi));
            const __m256d im = _mm256_add_pd(_mm256_mul_pd(xr, hi), _mm256_mul_pd(xi, hr));
            __m128 lo, up;
            join4(re, im, lo, up);
            acc0 = _mm_add_ps(acc0, lo);
            acc1 = _mm_add_ps(acc1, up);
        }
        _mm_storeu_ps(reinterpret_cast<float*>(pDst + k), acc0);
        _mm_storeu_ps(reinterpret_cast<float*>(pDst + k + 2), acc1);
    }
    if (k < numSubbands) {
        const Kvo32fc* x[kMaxSegments];
        const Kvo32fc* h[kMaxSegments];
        for (int r = 0; r < numSegments; ++r) x[r] = ppRefRows[r] + k, h[r] = ppCoefRows[r] + k;
        firSubband32fcSse2(x, h, pDst + k, numSegments, numSubbands - k);
    }
}

void coeffUpdate32fcAvx2(const Kvo64f* pStep, const Kvo32fc* const* ppRefRows, const Kvo32fc* pErr,
                         Kvo32fc* const* ppCoefRows, int numSegments, int numSubbands) {
    const int quads = numSubbands & ~3;
    // step * E per subband, formed once for all rows (64 kB of stack at most).
    alignas(32) Kvo64f ab[2 * (kMaxSubbands + 3)];
    for (int k = 0; k < quads; k += 4) {
        const __m256d st = _mm256_loadu_pd(pStep + k);
        __m256d er, ei;
        split4(pErr + k, er, ei);
        _mm256_store_pd(ab + 2 * k, _mm256_mul_pd(st, er));
        _mm256_store_pd(ab + 2 * k + 4, _mm256_mul_pd(st, ei));
    }
    const __m128 zero = _mm_setzero_ps();
    for (int r = 0; r < numSegments; ++r) {
        const Kvo32fc* x = ppRefRows[r];
        Kvo32fc* h = ppCoefRows[r];
        for (int k = 0; k < quads; k += 4) {
            const __m256d a = _mm256_load_pd(ab + 2 * k), b = _mm256_load_pd(ab + 2 * k + 4);
            const __m128 lo = _mm_loadu_ps(reinterpret_cast<const float*>(x + k));
            const __m128 hi = _mm_loadu_ps(reinterpret_cast<const float*>(x + k + 2));
            const __m256d xr = _mm256_cvtps_pd(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0)));
            // conj: 0 - Xi in single precision (+0 stays +0).
            const __m128 xin = _mm_sub_ps(zero, _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1)));
            const __m256d xi = _mm256_cvtps_pd(xin);
            const __m256d dr = _mm256_sub_pd(_mm256_mul_pd(a, xr), _mm256_mul_pd(b, xi));
            const __m256d di = _mm256_add_pd(_mm256_mul_pd(b, xr), _mm256_mul_pd(a, xi));
            __m128 d0, d1;
            join4(dr, di, d0, d1);
            float* hp = reinterpret_cast<float*>(h + k);
            _mm_storeu_ps(hp, _mm_add_ps(_mm_loadu_ps(hp), d0));
            _mm_storeu_ps(hp + 4, _mm_add_ps(_mm_loadu_ps(hp + 4), d1));
        }
    }
    if (quads < numSubbands) {
        const Kvo32fc* x[kMaxSegments];
        Kvo32fc* h[kMaxSegments];
        for (int r = 0; r < numSegments; ++r)
            x[r] = ppRefRows[r] + quads, h[r] = ppCoefRows[r] + quads;
        coeffUpdate32fcScalar(pStep + quads, x, pErr + quads, h, numSegments, numSubbands - quads);
    }
}

}  // namespace kvo::ec

namespace kvo::ec {

namespace {

// Arithmetic right shift of 64-bit lanes by per-lane counts 0..63 (AVX2 has only the
// logical form): flip negative lanes, shift logically, flip back.
inline __m256i sra64(__m256i x, __m256i n) {
    const __m256i s = _mm256_cmpgt_epi64(_mm256_setzero_si256(), x);
    return _mm256_xor_si256(_mm256_srlv_epi64(_mm256_xor_si256(x, s), n), s);
}

// Arithmetic right shift by one of the lanes selected by mask m.
inline __m256i sra1If(__m256i x, __m256i m) {
    const __m256i sign = _mm256_and_si256(x, _mm256_set1_epi64x(INT64_MIN));
    const __m256i h = _mm256_or_si256(_mm256_srli_epi64(x, 1), sign);
    return _mm256_blendv_epi8(x, h, m);
}

// Low signed 32 bits of each 64-bit lane, sign-extended.
inline __m256i sext_lo(__m256i x) {
    return _mm256_mul_epi32(x, _mm256_set1_epi64x(1));
}

inline __m256i clamp64(__m256i x, __m256i lo, __m256i hi) {
    x = _mm256_blendv_epi8(x, hi, _mm256_cmpgt_epi64(x, hi));
    return _mm256_blendv_epi8(x, lo, _mm256_cmpgt_epi64(lo, x));
}

}  // namespace

void coeffUpdate32scRowAvx2(const Kvo64s* er, const Kvo64s* ei, const Kvo64s* d, const Kvo32sc* x,
                            Kvo32sc* h, int n, bool low) {
    const __m256i one = _mm256_set1_epi64x(1);
    const __m256i lim33 = _mm256_set1_epi64x(Kvo64s{1} << 33);
    const __m256i nlim33 = _mm256_set1_epi64x(-(Kvo64s{1} << 33));
    const __m256i i32max = _mm256_set1_epi64x(INT32_MAX), i32min = _mm256_set1_epi64x(INT32_MIN);
    const __m256i lo32mask = _mm256_set1_epi64x(0xFFFFFFFFLL);
    const __m256i min32 = _mm256_set1_epi32(INT32_MIN);
    for (int j = 0; j + 4 <= n; j += 4) {
        const __m256i vr = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(er + j));
        const __m256i vi = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ei + j));
        const __m256i vd = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(d + j));
        const __m256i xv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + j));
        // 32-bit lanes [xr, xi, ...]: conj negates xi; -2^31 goes to 2^31 - 1 unless the
        // cheap form's plain negation is asked for.
        __m256i xn = _mm256_sub_epi32(_mm256_setzero_si256(), xv);
        if (!low) xn = _mm256_xor_si256(xn, _mm256_cmpeq_epi32(xv, min32));
        const __m256i xin = _mm256_srli_epi64(xn, 32);  // low 32 bits: -xi
        const __m256i pr = _mm256_sub_epi64(_mm256_mul_epi32(vr, xv), _mm256_mul_epi32(vi, xin));
        const __m256i pi = _mm256_add_epi64(_mm256_mul_epi32(vi, xv), _mm256_mul_epi32(vr, xin));
        // Rounded shift (p + 2^(d-1)) >> d for d >= 2, taken as ((p >> (d-1)) + 1) >> 1
        // (nested floors; p >> (d-1) < 2^62 cannot overflow); p >> d for d of 0 and 1,
        // as (p >> 0) >> d.
        const __m256i round = _mm256_and_si256(_mm256_cmpgt_epi64(vd, one), one);
        const __m256i halve = _mm256_cmpgt_epi64(vd, _mm256_setzero_si256());
        const __m256i d1 = _mm256_add_epi64(vd, halve);  // d - 1, or 0 for d = 0
        const __m256i ar = sra1If(_mm256_add_epi64(sra64(pr, d1), round), halve);
        const __m256i ai = sra1If(_mm256_add_epi64(sra64(pi, d1), round), halve);
        const __m256i hv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + j));
        __m256i hr = sext_lo(hv), hi = sext_lo(_mm256_srli_epi64(hv, 32));
        if (low) {  // 32-bit wrap
            hr = _mm256_add_epi64(hr, ar);
            hi = _mm256_add_epi64(hi, ai);
        } else {  // addends beyond 2^33 saturate whatever the coefficient
            hr = clamp64(_mm256_add_epi64(hr, clamp64(ar, nlim33, lim33)), i32min, i32max);
            hi = clamp64(_mm256_add_epi64(hi, clamp64(ai, nlim33, lim33)), i32min, i32max);
        }
        const __m256i out =
            _mm256_or_si256(_mm256_and_si256(hr, lo32mask), _mm256_slli_epi64(hi, 32));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(h + j), out);
    }
}

}  // namespace kvo::ec

namespace kvo::ec {

// Fixed-point subband FIR: 64-bit lanes hold one subband each ([re | im] of a Kvo32sc),
// _mm256_mul_epi32 forms the exact 32 x 32 -> 64-bit products.  The real term xr*hr -
// xi*hi never leaves 64 bits; the imaginary term and both running sums are checked for
// signed overflow ((a ^ s) & (b ^ s) < 0).  Without an overflow the wrapping sums equal
// the saturating ones; a subband that overflowed anywhere is flagged in the returned mask
// and must be summed again by the scalar core.
Kvo64u firSubband32scAvx2(const Kvo32sc* const* ppRefRows, const Kvo32sc* const* ppCoefRows,
                            int k0, int n, int numSegments, Kvo64s* accR, Kvo64s* accI) {
    Kvo64u mask = 0;
    for (int j = 0; j + 4 <= n; j += 4) {
        __m256i sr = _mm256_setzero_si256(), si = _mm256_setzero_si256();
        __m256i ovf = _mm256_setzero_si256();
        for (int r = 0; r < numSegments; ++r) {
            const __m256i x =
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ppRefRows[r] + k0 + j));
            const __m256i h =
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ppCoefRows[r] + k0 + j));
            const __m256i xi = _mm256_srli_epi64(x, 32), hi = _mm256_srli_epi64(h, 32);
            const __m256i tr = _mm256_sub_epi64(_mm256_mul_epi32(x, h), _mm256_mul_epi32(xi, hi));
            const __m256i p = _mm256_mul_epi32(x, hi), q = _mm256_mul_epi32(xi, h);
            const __m256i ti = _mm256_add_epi64(p, q);
            const __m256i nr = _mm256_add_epi64(sr, tr), ni = _mm256_add_epi64(si, ti);
            ovf = _mm256_or_si256(
                ovf, _mm256_and_si256(_mm256_xor_si256(p, ti), _mm256_xor_si256(q, ti)));
            ovf = _mm256_or_si256(
                ovf, _mm256_and_si256(_mm256_xor_si256(sr, nr), _mm256_xor_si256(tr, nr)));
            ovf = _mm256_or_si256(
                ovf, _mm256_and_si256(_mm256_xor_si256(si, ni), _mm256_xor_si256(ti, ni)));
            sr = nr;
            si = ni;
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(accR + j), sr);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(accI + j), si);
        mask |= static_cast<Kvo64u>(_mm256_movemask_pd(_mm256_castsi256_pd(ovf))) << j;
    }
    return mask;
}

}  // namespace kvo::ec
