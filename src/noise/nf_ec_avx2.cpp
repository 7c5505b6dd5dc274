// Echo-path noise filter: the AVX2 form of the history's sum of squares.  The
// sixteen partial sums (one per index modulo 16) sit four to a register, lanes
// 4r .. 4r + 3 in register r, and are added pairwise at the end in the same
// order as the SSE2 and scalar forms, so all three give the same double.
#include <immintrin.h>

#include "noise/nf_ec.h"

namespace kvo::nf {

Kvo64f sumSquaresAvx2(const Kvo32f* x, Kvo32s n) {
    __m256d acc[4];
    for (__m256d& r : acc) r = _mm256_setzero_pd();
    Kvo32s i = 0;
    for (; i + 16 <= n; i += 16) {
        for (int q = 0; q < 4; ++q) {
            const __m256d v = _mm256_cvtps_pd(_mm_loadu_ps(x + i + 4 * q));
            acc[q] = _mm256_add_pd(acc[q], _mm256_mul_pd(v, v));
        }
    }
    alignas(32) Kvo64f a[16];
    for (int r = 0; r < 4; ++r) _mm256_store_pd(a + 4 * r, acc[r]);
    for (; i < n; ++i) a[0] += static_cast<Kvo64f>(x[i]) * x[i];
    for (int w = 8; w >= 1; w /= 2)
        for (int j = 0; j < w; ++j) a[j] += a[j + w];
    return a[0];
}

}  // namespace kvo::nf
