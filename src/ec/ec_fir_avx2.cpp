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
