// Vector-layer members built on the real FFT: float cross-correlation, pack-format conjugate
// product, in-place reversal, float to 16/32-bit integer conversion with rounding modes.
//
// Cross-correlation: lags without overlap are zeroed; when min(len1,len2) * lags / max(...)
// (in float, truncated) is at most 383 the sums run directly (float accumulators, four lags
// at a time); otherwise through the FFT (inverse scaled by 1/N): in blocks of the longer
// vector when it is at least three times the shorter one, else as one transform covering
// the whole linear correlation.  Everything allocated is released on every way out.
#include "numeric/vector_fft.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "fft/fft.h"
#include "frame/alloc.h"

namespace kvo {

namespace {

using i64 = std::int64_t;

// sum of a[i] * b[i + lag] for i in [from, to)
float partialSum(const float* a, const float* b, i64 lag, i64 from, i64 to) {
    float s = 0.0f;
    for (i64 i = from; i < to; ++i) s += a[i] * b[i + lag];
    return s;
}

// Direct correlation for lags lo .. lo + m - 1, each with some overlap.
void crossCorrDirect(const float* a, i64 len1, const float* b, i64 len2, i64 lo, i64 m,
                     float* out) {
    i64 n = 0;
    for (; n + 4 <= m; n += 4) {
        const i64 l = lo + n;
        const i64 i0 = std::max<i64>(0, -l);
        const i64 i1 = std::min<i64>(len1, len2 - l - 3);
        float s[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        if (i0 < i1) {
            float s0 = 0.0f, s1 = 0.0f, s2 = 0.0f, s3 = 0.0f;
            const float* bp = b + l;
            for (i64 i = i0; i < i1; ++i) {
                const float ai = a[i];
                s0 += ai * bp[i];
                s1 += ai * bp[i + 1];
                s2 += ai * bp[i + 2];
                s3 += ai * bp[i + 3];
            }
            s[0] = s0;
            s[1] = s1;
            s[2] = s2;
            s[3] = s3;
            for (int d = 0; d < 4; ++d) {
                const i64 lag = l + d;
                const i64 loD = std::max<i64>(0, -lag);
                const i64 hiD = std::min<i64>(len1, len2 - lag);
                s[d] += partialSum(a, b, lag, loD, i0) + partialSum(a, b, lag, i1, hiD);
            }
        } else {
            for (int d = 0; d < 4; ++d) {
                const i64 lag = l + d;
                s[d] =
                    partialSum(a, b, lag, std::max<i64>(0, -lag), std::min<i64>(len1, len2 - lag));
            }
        }
        for (int d = 0; d < 4; ++d) out[n + d] = s[d];
    }
    for (; n < m; ++n) {
        const i64 lag = lo + n;
        out[n] = partialSum(a, b, lag, std::max<i64>(0, -lag), std::min<i64>(len1, len2 - lag));
    }
}

int ceilLog2(i64 v) {
    int o = 0;
    while ((i64{1} << o) < v) ++o;
    return o;
}

// Scratch of one FFT correlation, released on every path.
struct FftScratch {
    KvoFFTSpec32f* fftSpec = nullptr;
    Kvo8u* work = nullptr;
    float* data = nullptr;
    ~FftScratch() {
        if (data != nullptr) kvosFree(data);
        if (work != nullptr) kvosFree(work);
        if (fftSpec != nullptr) kvosFFTFree_R_32f(fftSpec);
    }
    // Order `order`, flag 2 (the inverse divides by the size), and dataLen floats.
    KvoStatus open(int order, i64 dataLen) {
        KvoStatus st = kvosFFTInitAlloc_R_32f(&fftSpec, order, 2, 0);
        if (st != kvoOk) {
            fftSpec = nullptr;
            return st;
        }
        Kvo32s ws = 0;
        st = kvosFFTGetBufSize_R_32f(fftSpec, &ws);
        if (st != kvoOk) return st;
        if (ws > 0) {
            work = static_cast<Kvo8u*>(kvosMalloc_8u(ws));
            if (work == nullptr) return kvoErrMemAlloc;
        }
        if (dataLen > INT32_MAX) return kvoErrMemAlloc;
        data = static_cast<float*>(kvosMalloc_32f(static_cast<Kvo32s>(dataLen)));
        if (data == nullptr) return kvoErrMemAlloc;
        return kvoOk;
    }
};

// Correlation of a short vector s (len sLen) with a long one l (len lLen) at lags
// lo .. lo + m - 1, by blocks of the long vector.
KvoStatus crossCorrBlocks(const float* s, i64 sLen, const float* l, i64 lLen, i64 lo, i64 m,
                          float* out) {
    const int order = ceilLog2(2 * sLen) + 1;
    const i64 P = i64{1} << order;
    FftScratch fx;
    KvoStatus st = fx.open(order, 2 * P);
    if (st != kvoOk) return st;
    float* A = fx.data;
    float* seg = fx.data + P;
    std::fill(A, A + P, 0.0f);
    std::copy(s, s + sLen, A);
    st = kvosFFTFwd_RToPack_32f(A, A, fx.fftSpec, fx.work);
    if (st != kvoOk) return st;
    const i64 perBlock = P - sLen + 1;  // lags of one block free of circular wrap
    for (i64 l0 = lo; l0 < lo + m; l0 += perBlock) {
        const i64 cnt = std::min(perBlock, lo + m - l0);
        for (i64 t = 0; t < P; ++t) {
            const i64 idx = l0 + t;
            seg[t] = (idx >= 0 && idx < lLen) ? l[idx] : 0.0f;
        }
        st = kvosFFTFwd_RToPack_32f(seg, seg, fx.fftSpec, fx.work);
        if (st != kvoOk) return st;
        st = kvosMulPackConj_32f_I(A, seg, static_cast<Kvo32s>(P));
        if (st != kvoOk) return st;
        st = kvosFFTInv_PackToR_32f(seg, seg, fx.fftSpec, fx.work);
        if (st != kvoOk) return st;
        std::copy(seg, seg + cnt, out + (l0 - lo));
    }
    return kvoOk;
}

// Correlation at lags lo .. lo + m - 1 through one transform covering len1 + len2 - 1.
KvoStatus crossCorrWhole(const float* a, i64 len1, const float* b, i64 len2, i64 lo, i64 m,
                         float* out) {
    const int order = std::max(1, ceilLog2(len1 + len2 - 1));
    const i64 P = i64{1} << order;
    FftScratch fx;
    KvoStatus st = fx.open(order, 2 * P);
    if (st != kvoOk) return st;
    float* A = fx.data;
    float* B = fx.data + P;
    std::fill(A, A + P, 0.0f);
    std::fill(B, B + P, 0.0f);
    std::copy(a, a + len1, A);
    std::copy(b, b + len2, B);
    if ((st = kvosFFTFwd_RToPack_32f(A, A, fx.fftSpec, fx.work)) != kvoOk) return st;
    if ((st = kvosFFTFwd_RToPack_32f(B, B, fx.fftSpec, fx.work)) != kvoOk) return st;
    if ((st = kvosMulPackConj_32f_I(A, B, static_cast<Kvo32s>(P))) != kvoOk) return st;
    if ((st = kvosFFTInv_PackToR_32f(B, B, fx.fftSpec, fx.work)) != kvoOk) return st;
    for (i64 n = 0; n < m; ++n) {
        const i64 lag = lo + n;
        out[n] = B[lag < 0 ? lag + P : lag];
    }
    return kvoOk;
}

}  // namespace

KvoStatus kvosCrossCorr_32f(const Kvo32f* pSrc1, Kvo32s len1, const Kvo32f* pSrc2, Kvo32s len2,
                            Kvo32f* pDst, Kvo32s dstLen, Kvo32s lowLag) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len1 < 1 || len2 < 1 || dstLen < 1) return kvoErrSize;
    const i64 lagLo = lowLag;
    const i64 lagHi = lagLo + dstLen - 1;
    const i64 vLo = std::max<i64>(lagLo, -(i64{len1} - 1));
    const i64 vHi = std::min<i64>(lagHi, i64{len2} - 1);
    if (vLo > vHi) {
        std::fill(pDst, pDst + dstLen, 0.0f);
        return kvoOk;
    }
    const i64 m = vHi - vLo + 1;
    float* out = pDst + (vLo - lagLo);
    const i64 S = std::min(len1, len2), L = std::max(len1, len2);
    const float w = static_cast<float>(S) * static_cast<float>(m) / static_cast<float>(L);
    if (static_cast<i64>(w) <= 383) {  // the work measure is truncated before the test
        std::fill(pDst, out, 0.0f);
        std::fill(out + m, pDst + dstLen, 0.0f);
        crossCorrDirect(pSrc1, len1, pSrc2, len2, vLo, m, out);
        return kvoOk;
    }
    KvoStatus st;
    if (L >= 3 * S) {
        if (len1 <= len2) {
            st = crossCorrBlocks(pSrc1, len1, pSrc2, len2, vLo, m, out);
        } else {
            // Exchanged vectors: the lag changes sign, so the outputs come out reversed.
            st = crossCorrBlocks(pSrc2, len2, pSrc1, len1, -vHi, m, out);
            if (st == kvoOk) st = kvosFlip_32f_I(out, static_cast<Kvo32s>(m));
        }
    } else {
        st = crossCorrWhole(pSrc1, len1, pSrc2, len2, vLo, m, out);
    }
    if (st != kvoOk) return st;
    std::fill(pDst, out, 0.0f);
    std::fill(out + m, pDst + dstLen, 0.0f);
    return kvoOk;
}

KvoStatus kvosMulPackConj_32f_I(const Kvo32f* pSrc, Kvo32f* pSrcDst, Kvo32s len) {
    if (pSrc == nullptr || pSrcDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    pSrcDst[0] *= pSrc[0];
    // Pairs occupy 1 .. end - 1; with an even length the last element is real.
    const Kvo32s end = (len & 1) ? len : len - 1;
    if ((len & 1) == 0 && len > 1) pSrcDst[len - 1] *= pSrc[len - 1];
    for (Kvo32s k = 1; k + 1 < end; k += 2) {
        const float ar = pSrc[k], ai = pSrc[k + 1];
        const float br = pSrcDst[k], bi = pSrcDst[k + 1];
        pSrcDst[k] = ar * br + ai * bi;
        pSrcDst[k + 1] = ar * bi - ai * br;
    }
    return kvoOk;
}

KvoStatus kvosFlip_32f_I(Kvo32f* pSrcDst, Kvo32s len) {
    if (pSrcDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    std::reverse(pSrcDst, pSrcDst + len);
    return kvoOk;
}

namespace {

// Scale, clamp to [lo, hi], round: Mode 0 toward zero, 1 nearest with ties to even, 2 nearest
// with ties away from zero.  All in double, where every step is exact (the clamped value
// fits 32 bits, so truncation and the fraction are exact); the result does not depend on the
// floating-point rounding mode.
template <int Mode, typename T>
void convertRange(const float* src, T* dst, Kvo32s len, double mul, double lo, double hi) {
    for (Kvo32s n = 0; n < len; ++n) {
        double v = static_cast<double>(src[n]) * mul;
        if (v != v) v = 0.0;  // NaN
        v = std::min(hi, std::max(lo, v));
        std::int64_t t = static_cast<std::int64_t>(v);
        const double frac = v - static_cast<double>(t);
        if (Mode == 1) {
            t += (frac > 0.5) - (frac < -0.5);
            if (frac == 0.5) t += t & 1;
            if (frac == -0.5) t -= t & 1;
        } else if (Mode == 2) {
            t += (frac >= 0.5) - (frac <= -0.5);
        }
        dst[n] = static_cast<T>(t);
    }
}

template <typename T>
void convertScaled(const float* src, T* dst, Kvo32s len, Kvo32s rndMode, Kvo32s scaleFactor,
                   double lo, double hi) {
    // Beyond +-300 the scale already sends every float to zero or to the limits.
    const Kvo32s sf = std::clamp<Kvo32s>(scaleFactor, -300, 300);
    const double mul = std::ldexp(1.0, -sf);
    if (rndMode == 0)
        convertRange<0>(src, dst, len, mul, lo, hi);
    else if (rndMode == 1)
        convertRange<1>(src, dst, len, mul, lo, hi);
    else
        convertRange<2>(src, dst, len, mul, lo, hi);
}

}  // namespace

KvoStatus kvosConvert_32f16s_Sfs(const Kvo32f* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s rndMode,
                                 Kvo32s scaleFactor) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    convertScaled(pSrc, pDst, len, rndMode, scaleFactor, -32768.0, 32767.0);
    return kvoOk;
}

KvoStatus kvosConvert_32f32s_Sfs(const Kvo32f* pSrc, Kvo32s* pDst, Kvo32s len, Kvo32s rndMode,
                                 Kvo32s scaleFactor) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    convertScaled(pSrc, pDst, len, rndMode, scaleFactor, -2147483648.0, 2147483647.0);
    return kvoOk;
}

}  // namespace kvo
