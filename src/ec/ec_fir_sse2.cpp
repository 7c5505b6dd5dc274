// SSE2 twins of the float subband FIR and coefficient update: two subbands per register
// pair, rows in the inner loop of the FIR, the same double-precision products, the same
// rounding to single precision and the same single-precision sums in the same order as
// the scalar cores, so the results agree bit for bit (tests compare them by memcmp).
// A last odd subband goes through the scalar core.
#include <emmintrin.h>

#include "ec/ec_common.h"

namespace kvo::ec {

namespace {

// [r0, i0, r1, i1] -> real parts and imaginary parts of the two subbands, as doubles.
inline void split(const Kvo32fc* p, __m128d& re, __m128d& im) {
    const __m128 v = _mm_loadu_ps(reinterpret_cast<const float*>(p));
    re = _mm_cvtps_pd(_mm_shuffle_ps(v, v, _MM_SHUFFLE(2, 0, 2, 0)));
    im = _mm_cvtps_pd(_mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 1, 3, 1)));
}

// Two real and two imaginary doubles, rounded to single, interleaved to [r0, i0, r1, i1].
inline __m128 join(__m128d re, __m128d im) {
    return _mm_unpacklo_ps(_mm_cvtpd_ps(re), _mm_cvtpd_ps(im));
}

}  // namespace

void firSubband32fcSse2(const Kvo32fc* const* ppRefRows, const Kvo32fc* const* ppCoefRows,
                        Kvo32fc* pDst, int numSegments, int numSubbands) {
    int k = 0;
    // Four subbands per pass (two independent pairs), then two.
    for (; k + 4 <= numSubbands; k += 4) {
        __m128 acc0 = _mm_setzero_ps(), acc1 = _mm_setzero_ps();  // [re, im, re, im]
        for (int r = 0; r < numSegments; ++r) {
            const Kvo32fc* x = ppRefRows[r] + k;
            const Kvo32fc* h = ppCoefRows[r] + k;
            __m128d xr0, xi0, hr0, hi0, xr1, xi1, hr1, hi1;
            split(x, xr0, xi0);
            split(h, hr0, hi0);
            split(x + 2, xr1, xi1);
            split(h + 2, hr1, hi1);
            const __m128d re0 = _mm_sub_pd(_mm_mul_pd(xr0, hr0), _mm_mul_pd(xi0, hi0));
            const __m128d im0 = _mm_add_pd(_mm_mul_pd(xr0, hi0), _mm_mul_pd(xi0, hr0));
            const __m128d re1 = _mm_sub_pd(_mm_mul_pd(xr1, hr1), _mm_mul_pd(xi1, hi1));
            const __m128d im1 = _mm_add_pd(_mm_mul_pd(xr1, hi1), _mm_mul_pd(xi1, hr1));
            acc0 = _mm_add_ps(acc0, join(re0, im0));
            acc1 = _mm_add_ps(acc1, join(re1, im1));
        }
        _mm_storeu_ps(reinterpret_cast<float*>(pDst + k), acc0);
        _mm_storeu_ps(reinterpret_cast<float*>(pDst + k + 2), acc1);
    }
    for (; k + 2 <= numSubbands; k += 2) {
        __m128 acc = _mm_setzero_ps();
        for (int r = 0; r < numSegments; ++r) {
            __m128d xr, xi, hr, hi;
            split(ppRefRows[r] + k, xr, xi);
            split(ppCoefRows[r] + k, hr, hi);
            const __m128d re = _mm_sub_pd(_mm_mul_pd(xr, hr), _mm_mul_pd(xi, hi));
            const __m128d im = _mm_add_pd(_mm_mul_pd(xr, hi), _mm_mul_pd(xi, hr));
            acc = _mm_add_ps(acc, join(re, im));
        }
        _mm_storeu_ps(reinterpret_cast<float*>(pDst + k), acc);
    }
    if (k < numSubbands) {
        const Kvo32fc* x[kMaxSegments];
        const Kvo32fc* h[kMaxSegments];
        for (int r = 0; r < numSegments; ++r) x[r] = ppRefRows[r] + k, h[r] = ppCoefRows[r] + k;
        firSubband32fcScalar(x, h, pDst + k, numSegments, numSubbands - k);
    }
}

void coeffUpdate32fcSse2(const Kvo64f* pStep, const Kvo32fc* const* ppRefRows, const Kvo32fc* pErr,
                         Kvo32fc* const* ppCoefRows, int numSegments, int numSubbands) {
    const int pairs = numSubbands & ~1;
    // step * E per subband, formed once for all rows (64 kB of stack at most).
    alignas(16) Kvo64f ab[2 * (kMaxSubbands + 1)];
    for (int k = 0; k < pairs; k += 2) {
        const __m128d st = _mm_loadu_pd(pStep + k);
        __m128d er, ei;
        split(pErr + k, er, ei);
        _mm_store_pd(ab + 2 * k, _mm_mul_pd(st, er));
        _mm_store_pd(ab + 2 * k + 2, _mm_mul_pd(st, ei));
    }
    for (int r = 0; r < numSegments; ++r) {
        const Kvo32fc* x = ppRefRows[r];
        Kvo32fc* h = ppCoefRows[r];
        for (int k = 0; k < pairs; k += 2) {
            const __m128d a = _mm_load_pd(ab + 2 * k), b = _mm_load_pd(ab + 2 * k + 2);
            const __m128 xv = _mm_loadu_ps(reinterpret_cast<const float*>(x + k));
            const __m128d xr = _mm_cvtps_pd(_mm_shuffle_ps(xv, xv, _MM_SHUFFLE(2, 0, 2, 0)));
            // conj: 0 - Xi in single precision (not a sign flip: +0 stays +0).
            const __m128 xin = _mm_sub_ps(_mm_setzero_ps(), xv);
            const __m128d xi = _mm_cvtps_pd(_mm_shuffle_ps(xin, xin, _MM_SHUFFLE(3, 1, 3, 1)));
            const __m128d dr = _mm_sub_pd(_mm_mul_pd(a, xr), _mm_mul_pd(b, xi));
            const __m128d di = _mm_add_pd(_mm_mul_pd(b, xr), _mm_mul_pd(a, xi));
            float* hp = reinterpret_cast<float*>(h + k);
            _mm_storeu_ps(hp, _mm_add_ps(_mm_loadu_ps(hp), join(dr, di)));
        }
    }
    if (pairs < numSubbands) {
        const Kvo32fc* x[kMaxSegments];
        Kvo32fc* h[kMaxSegments];
        for (int r = 0; r < numSegments; ++r)
            x[r] = ppRefRows[r] + pairs, h[r] = ppCoefRows[r] + pairs;
        coeffUpdate32fcScalar(pStep + pairs, x, pErr + pairs, h, numSegments, numSubbands - pairs);
    }
}

}  // namespace kvo::ec
