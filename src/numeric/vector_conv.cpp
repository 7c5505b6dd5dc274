// Vector layer, biased convolution of the floating-point codebook searches:
// y[n] = sum_k x[k] h[n - k] with h addressed through a pointer that sits
// `bias` elements into its array, terms outside the array left out.
//
// Every output is accumulated in single precision in increasing k; the fixed
// shapes compute eight outputs side by side (eight partial sums), each of which
// still follows that order, so the fixed and the generic paths agree bit for bit.
#include <xmmintrin.h>

#include "numeric/vector.h"

namespace kvo {

namespace {

// Eight outputs y[n0 .. n0+7] accumulated over k in [k0, k1]: one product and
// one sum per term in single precision, as the plain loop does.
inline void block8(const Kvo32f* x, const Kvo32f* h, Kvo32s n0, Kvo32s k0, Kvo32s k1, __m128& a0,
                   __m128& a1) {
    for (Kvo32s k = k0; k <= k1; ++k) {
        const __m128 xk = _mm_set1_ps(x[k]);
        const Kvo32f* hp = h + n0 - k;
        a0 = _mm_add_ps(a0, _mm_mul_ps(xk, _mm_loadu_ps(hp)));
        a1 = _mm_add_ps(a1, _mm_mul_ps(xk, _mm_loadu_ps(hp + 4)));
    }
}

// Dense shape: every term of every output lies inside the array.
template <int L1, int DL>
void conv_dense(const Kvo32f* x, const Kvo32f* h, Kvo32f* y) {
    int n0 = 0;
    for (; n0 + 8 <= DL; n0 += 8) {
        __m128 a0 = _mm_setzero_ps(), a1 = _mm_setzero_ps();
        block8(x, h, n0, 0, L1 - 1, a0, a1);
        _mm_storeu_ps(y + n0, a0);
        _mm_storeu_ps(y + n0 + 4, a1);
    }
    if constexpr (DL % 8 != 0) {
        for (; n0 < DL; ++n0) {
            Kvo32f acc = 0.0f;
            for (int k = 0; k < L1; ++k) acc += x[k] * h[n0 - k];
            y[n0] = acc;
        }
    }
}

// Triangular product: y[n] = sum_{k <= n} x[k] h[n - k], n < N.
void conv_triangle(const Kvo32f* x, const Kvo32f* h, Kvo32f* y, Kvo32s N) {
    Kvo32s n0 = 0;
    for (; n0 + 8 <= N; n0 += 8) {
        __m128 a0 = _mm_setzero_ps(), a1 = _mm_setzero_ps();
        block8(x, h, n0, 0, n0, a0, a1);
        alignas(16) Kvo32f acc[8];
        _mm_store_ps(acc, a0);
        _mm_store_ps(acc + 4, a1);
        // The last seven terms belong only to the later outputs of the block.
        for (int j = 1; j < 8; ++j)
            for (Kvo32s k = n0 + 1; k <= n0 + j; ++k) acc[j] += x[k] * h[n0 + j - k];
        for (int j = 0; j < 8; ++j) y[n0 + j] = acc[j];
    }
    for (; n0 < N; ++n0) {
        Kvo32f acc = 0.0f;
        for (Kvo32s k = 0; k <= n0; ++k) acc += x[k] * h[n0 - k];
        y[n0] = acc;
    }
}

void conv_generic(const Kvo32f* x, Kvo32s len1, const Kvo32f* h, Kvo32s len2, Kvo32f* y,
                  Kvo32s dstLen, Kvo32s bias) {
    for (Kvo32s n = 0; n < dstLen; ++n) {
        // Terms need 0 <= bias + n - k <= len2 - 1 and 0 <= k <= len1 - 1.
        Kvo64s lo = Kvo64s{bias} + n - (len2 - 1);
        Kvo64s hi = Kvo64s{bias} + n;
        lo = lo < 0 ? 0 : lo;
        hi = hi > len1 - 1 ? len1 - 1 : hi;
        Kvo32f acc = 0.0f;
        for (Kvo64s k = lo; k <= hi; ++k) acc += x[k] * h[n - k];
        y[n] = acc;
    }
}

}  // namespace

KvoStatus kvosConvBiased_32f(const Kvo32f* pSrc1, Kvo32s len1, const Kvo32f* pSrc2, Kvo32s len2,
                             Kvo32f* pDst, Kvo32s dstLen, Kvo32s bias) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return kvoErrNullPtr;
    struct Shape {
        Kvo32s len2, len1, dstLen, bias;
        void (*run)(const Kvo32f*, const Kvo32f*, Kvo32f*);
    };
    static constexpr Shape kShapes[] = {
        {45, 4, 41, 4, conv_dense<4, 41>},     {50, 11, 40, 10, conv_dense<11, 40>},
        {56, 16, 40, 16, conv_dense<16, 40>},  {70, 31, 40, 30, conv_dense<31, 40>},
        {110, 31, 80, 30, conv_dense<31, 80>},
    };
    for (const Shape& s : kShapes) {
        if (len2 == s.len2 && len1 == s.len1 && dstLen == s.dstLen && bias == s.bias) {
            s.run(pSrc1, pSrc2, pDst);
            return kvoOk;
        }
    }
    if (bias == 0 && len1 == len2 && len1 == dstLen && (len1 == 40 || len1 == 60)) {
        conv_triangle(pSrc1, pSrc2, pDst, len1);
        return kvoOk;
    }
    if (len1 < 1 || len2 < 1 || dstLen < 1) return kvoErrSize;
    if (bias == 0 && len1 == len2 && len1 == dstLen)
        conv_triangle(pSrc1, pSrc2, pDst, len1);
    else
        conv_generic(pSrc1, len1, pSrc2, len2, pDst, dstLen, bias);
    return kvoOk;
}

}  // namespace kvo
