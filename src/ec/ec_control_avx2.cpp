// AVX2 helper of the 16-bit subband echo-canceller controller: the coefficient energy of
// a row, (re^2 + im^2 + 512) >> 10 per subband, exact 64-bit integer arithmetic.
#include <immintrin.h>

#include "ec/ec_control.h"

namespace kvo::ec {

// Coefficient energy of one row, four subbands at a time: acc[j] += (re^2 + im^2 + 512)
// >> 10, exact in 64 bits (each square below 2^62, their sum below 2^63), sums modulo 2^64.
void coefEnergyRowAvx2(const Kvo32sc* h, Kvo64u* acc, int n) {
    const __m256i round = _mm256_set1_epi64x(512);
    for (int j = 0; j + 4 <= n; j += 4) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + j));
        const __m256i im = _mm256_srli_epi64(v, 32);
        const __m256i p = _mm256_add_epi64(
            _mm256_add_epi64(_mm256_mul_epi32(v, v), _mm256_mul_epi32(im, im)), round);
        __m256i* a = reinterpret_cast<__m256i*>(acc + j);
        _mm256_storeu_si256(a, _mm256_add_epi64(_mm256_loadu_si256(a), _mm256_srli_epi64(p, 10)));
    }
}

}  // namespace kvo::ec
