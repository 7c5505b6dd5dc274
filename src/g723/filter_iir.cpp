// G.723.1 filters of 60 samples (240 for the high-pass): the input high-pass
// filter, the ten-tap pole-zero filters of the perceptual weighting and the
// formant post filter, the two synthesis filters and the harmonic noise
// shaping subtraction.
//
// Formats: samples Q0 in 16 bits; pole-zero coefficients Q13 (zeros b[1..10]
// then poles a[1..10]); synthesis coefficients Q13.  The pole-zero sums are
// plain 32-bit sums (held modulo 2^32, as the coder's data never comes near
// the limit); the 32-bit output form saturates its result and history, the
// in-place form keeps the low 16 bits of the rounded result.
//
// The high-pass filter is the DC removal of G.723.1: a first difference and a
// pole at 127/128 applied to the 32-bit accumulator in high and low halves.
//
// Harmonic noise shaping: the reference adds the gain-weighted lag term to the
// difference of the two vectors, saturates that difference to 16 bits first,
// and saturates the rounding.
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int kSub = 60;

// S = (x << 13) - sum b[k] x[n-k] + sum a[k] y[n-k] over a history array in
// which inputs and outputs run on; h points at 10 past samples + 60 new ones.
Kvo32s pole_zero_sum(const Kvo16s* c, const Kvo16s* xh, const Kvo16s* yh, int n, Kvo32s head) {
    Kvo64s s = head;
    for (int k = 1; k <= 10; ++k) {
        s -= Kvo32s{c[k - 1]} * xh[10 + n - k];
        s += Kvo32s{c[9 + k]} * yh[10 + n - k];
    }
    return lo32(s);
}

void load_mem(const KvoIIRMemG723* m, Kvo16s* xh, Kvo16s* yh) {
    for (int i = 0; i < 10; ++i) {
        xh[i] = m->x[i];
        yh[i] = m->y[i];
    }
}

void store_mem(KvoIIRMemG723* m, const Kvo16s* xh, const Kvo16s* yh) {
    for (int i = 0; i < 10; ++i) {
        m->x[i] = xh[kSub + i];
        m->y[i] = yh[kSub + i];
    }
}

}  // namespace

namespace impl {

KvoStatus kvosHighPassFilter_G723_16s(const Kvo16s* pSrc, Kvo16s* pDst,
                                      KvoHighPassStateG723* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    Kvo32s x1 = pMem->x1, a = pMem->acc;
    for (int n = 0; n < 240; ++n) {
        const Kvo32s x = pSrc[n];
        Kvo64s s = Kvo64s{a >> 16} * 65024;
        s += ((Kvo32s{a & 0xffff} * 127) & 0xffff80) >> 7;
        s += Kvo64s{x - x1} * 32768;
        a = lo32(s);
        x1 = x;
        pDst[n] = lo16(static_cast<Kvo32s>((Kvo64s{a} + 32768) >> 16));
    }
    pMem->x1 = x1;
    pMem->acc = a;
    return kvoOk;
}

KvoStatus kvosIIR16s_G723_16s32s(const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo32s* pDst,
                                 KvoIIRMemG723* pMem) {
    if (!pCoef || !pSrc || !pDst || !pMem) return kvoErrNullPtr;
    Kvo16s xh[10 + kSub], yh[10 + kSub];
    load_mem(pMem, xh, yh);
    for (int n = 0; n < kSub; ++n) xh[10 + n] = pSrc[n];
    for (int n = 0; n < kSub; ++n) {
        const Kvo32s s = pole_zero_sum(pCoef, xh, yh, n, Kvo32s{pSrc[n]} * 8192);
        if (s > 0x0fffffff) {
            pDst[n] = INT32_MAX;
            yh[10 + n] = 32767;
        } else if (s < -0x10000000) {
            pDst[n] = INT32_MIN;
            yh[10 + n] = -32768;
        } else {
            pDst[n] = s * 8;
            yh[10 + n] = static_cast<Kvo16s>((s + 4096) >> 13);
        }
    }
    store_mem(pMem, xh, yh);
    return kvoOk;
}

KvoStatus kvosIIR16s_G723_16s_I(const Kvo16s* pCoef, Kvo16s* pSrcDst, KvoIIRMemG723* pMem) {
    if (!pCoef || !pSrcDst || !pMem) return kvoErrNullPtr;
    Kvo16s xh[10 + kSub], yh[10 + kSub];
    load_mem(pMem, xh, yh);
    for (int n = 0; n < kSub; ++n) xh[10 + n] = pSrcDst[n];
    for (int n = 0; n < kSub; ++n) {
        const Kvo32s s = pole_zero_sum(pCoef, xh, yh, n, Kvo32s{xh[10 + n]} * 8192);
        yh[10 + n] = lo16(static_cast<Kvo32s>((Kvo64s{s} + 4096) >> 13));
        pSrcDst[n] = yh[10 + n];
    }
    store_mem(pMem, xh, yh);
    return kvoOk;
}

KvoStatus kvosIIR16s_G723_32s16s_Sfs(const Kvo16s* pCoef, const Kvo32s* pSrc, Kvo32s scaleFactor,
                                     Kvo16s* pDst, KvoIIRMemG723* pMem) {
    if (!pCoef || !pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (scaleFactor < 0) return kvoErrScaleRange;
    Kvo16s xh[10 + kSub], yh[10 + kSub];
    load_mem(pMem, xh, yh);
    for (int n = 0; n < kSub; ++n)
        xh[10 + n] = sat16(static_cast<Kvo32s>((Kvo64s{pSrc[n]} + 4096) >> 13));
    const int sf = scaleFactor > 31 ? 31 : scaleFactor;
    for (int n = 0; n < kSub; ++n) {
        Kvo64s in = pSrc[n];
        for (int k = 1; k <= 10; ++k) in -= Kvo32s{pCoef[k - 1]} * xh[10 + n - k];
        Kvo64s s = Kvo64s{shl_wrap(lo32(in), sf)};
        for (int k = 1; k <= 10; ++k) s += Kvo32s{pCoef[9 + k]} * yh[10 + n - k];
        const Kvo32s sw = lo32(s);
        yh[10 + n] = sat16(static_cast<Kvo32s>((Kvo64s{sw} + 4096) >> 13));
        pDst[n] = yh[10 + n];
    }
    store_mem(pMem, xh, yh);
    return kvoOk;
}

KvoStatus kvosSynthesisFilter_G723_16s(const Kvo16s* pLPC, const Kvo16s* pSrc, Kvo16s* pMem,
                                       Kvo16s* pDst) {
    if (!pLPC || !pSrc || !pMem || !pDst) return kvoErrNullPtr;
    Kvo16s a[11];
    a[0] = 4096;
    for (int i = 0; i < 10; ++i) a[i + 1] = Neg_16s(pLPC[i]);
    Kvo16s hist[10];  // oldest first for the kernel
    for (int i = 0; i < 10; ++i) hist[i] = pMem[9 - i];
    Kvo16s buf[kSub];
    for (int n = 0; n < kSub; ++n) buf[n] = pSrc[n];
    kvosSynthesisFilter_NR_16s_ISfs(a, buf, kSub, 13, hist);
    for (int n = 0; n < kSub; ++n) pDst[n] = buf[n];
    for (int i = 0; i < 10; ++i) pMem[i] = buf[kSub - 1 - i];
    return kvoOk;
}

KvoStatus kvosSynthesisFilter_G723_16s32s(const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo32s* pDst,
                                          Kvo16s* pMem) {
    if (!pCoef || !pSrc || !pDst || !pMem) return kvoErrNullPtr;
    Kvo16s yh[10 + kSub];
    for (int i = 0; i < 10; ++i) yh[i] = pMem[i];
    for (int n = 0; n < kSub; ++n) {
        Kvo64s s = Kvo32s{pCoef[0]} * pSrc[n];
        for (int k = 1; k <= 10; ++k) s += Kvo32s{pCoef[k]} * yh[10 + n - k];
        const Kvo32s sw = lo32(s);
        pDst[n] = sw;
        yh[10 + n] = sat16(static_cast<Kvo32s>((Kvo64s{sw} + 4096) >> 13));
    }
    for (int i = 0; i < 10; ++i) pMem[i] = yh[kSub + i];
    return kvoOk;
}

KvoStatus kvosHarmonicNoiseSubtract_G723_16s_I(Kvo16s val, Kvo32s lag, const Kvo16s* pSrc,
                                               Kvo16s* pSrcDst) {
    if (!pSrc || !pSrcDst) return kvoErrNullPtr;
    for (int n = 0; n < kSub; ++n) {
        const Kvo32s d = sat16(Kvo32s{pSrcDst[n]} - pSrc[n]);
        Kvo64s t = Kvo64s{d} * 32768 + Kvo64s{pSrc[n - lag]} * val;
        if (t > 0x3fffffff) t = 0x3fffffff;
        if (t < -0x40000000) t = -0x40000000;
        pSrcDst[n] = sat16((t + 16384) >> 15);
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
