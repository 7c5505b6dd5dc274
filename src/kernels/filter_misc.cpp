// The other shared filters of the G.729 family:
//  - the perceptual weighting filter A(z/g1)/A(z/g2) of G.729 as one two-sided IIR of order 10
//    (22 Q12 coefficients: numerator then denominator), with its ten past outputs as memory;
//  - the harmonic (pitch) filters with a Q15 gain;
//  - the second-order high-pass filter of G.729 pre-processing (Q12 coefficients, scale 12)
//    and post-processing (Q13 coefficients, scale 13, output doubled), its output history kept
//    in 32-bit double precision format;
//  - the tilt compensation of G.729 annex E post-filtering.
//
// The weighting filter runs the saturating residual then the saturating synthesis chain of
// filter_lp.cpp; its Low twin keeps low 16 bits throughout.  The in-place harmonic filter and
// the tilt compensation saturate each result as the reference coders do; the non-recursive
// harmonic filter keeps the low 16 bits.  The high-pass sum is exact in 64 bits and saturated
// once, when shifted to its 32-bit state.
#include <cstring>

#include "impl.h"
#include "kernels/filter.h"

namespace kvo::impl {

KvoStatus kvosIIR16s_G729_16s(const Kvo16s* pCoeffs, const Kvo16s* pSrc, Kvo16s* pDst,
                              Kvo16s* pMem) {
    if (pCoeffs == nullptr || pSrc == nullptr || pDst == nullptr || pMem == nullptr)
        return kvoErrNullPtr;
    Kvo16s y[40];
    residual_sat(pCoeffs, 10, pSrc + 10, y, 40);
    synth_sat(pCoeffs + 11, 10, y, y, 40, pMem, 12);
    std::memcpy(pDst, y, sizeof y);
    std::memcpy(pMem, y + 30, 10 * sizeof(Kvo16s));
    return kvoOk;
}

KvoStatus kvosIIR16sLow_G729_16s(const Kvo16s* pCoeffs, const Kvo16s* pSrc, Kvo16s* pDst,
                                 Kvo16s* pMem) {
    if (pCoeffs == nullptr || pSrc == nullptr || pDst == nullptr || pMem == nullptr)
        return kvoErrNullPtr;
    Kvo16s y[40];
    residual_wrap(pCoeffs, 10, pSrc + 10, y, 40);
    synth_wrap(pCoeffs + 11, 10, y, y, 40, pMem, 12);
    std::memcpy(pDst, y, sizeof y);
    std::memcpy(pMem, y + 30, 10 * sizeof(Kvo16s));
    return kvoOk;
}

KvoStatus kvosHarmonicFilter_NR_16s(Kvo16s val, Kvo32s lag, const Kvo16s* pSrc, Kvo16s* pDst,
                                    Kvo32s len) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    const Kvo16s* past = pSrc - lag;
    // (x << 15) + val * past + 16384 stays inside 32 bits for all 16-bit operands.
    for (int n = 0; n < len; ++n)
        pDst[n] = lo16((Kvo32s{pSrc[n]} * 32768 + Kvo32s{val} * past[n] + 16384) >> 15);
    return kvoOk;
}

KvoStatus kvosHarmonicFilter_16s_I(Kvo16s val, Kvo32s lag, Kvo16s* pSrcDst, Kvo32s len) {
    if (pSrcDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    // In increasing n, so that from n = lag on the filter reads its own output.  The Q15
    // product saturates (only -32768 * -32768 can), then the sum.
    for (int n = 0; n < len; ++n) {
        Kvo32s p = mulQ15(val, pSrcDst[n - lag]);
        if (p > 32767) p = 32767;
        pSrcDst[n] = sat16(Kvo32s{pSrcDst[n]} + p);
    }
    return kvoOk;
}

}  // namespace kvo::impl

namespace kvo {

void highpass_g729_plain(KvoHighPassState_G729& st, Kvo16s* v, int len, int scale) {
    const Kvo64s gain = Kvo64s{1} << (16 - scale);
    Kvo32s y1 = st.y1, y2 = st.y2;
    Kvo16s x0 = st.x0, x1 = st.x1;
    for (int i = 0; i < len; ++i) {
        const Kvo16s x = v[i];
        // y1, y2 in double precision format: hi * a + ((lo * a) >> 15).
        Kvo64s s = Kvo64s{st.b0} * x + Kvo64s{st.b1} * x0 + Kvo64s{st.b2} * x1;
        s += Kvo64s{st.a1} * hi(y1) + ((Kvo32s{st.a1} * lo(y1)) >> 15);
        s += Kvo64s{st.a2} * hi(y2) + ((Kvo32s{st.a2} * lo(y2)) >> 15);
        const Kvo32s y = sat32(s * gain);
        x1 = x0;
        x0 = x;
        y2 = y1;
        y1 = y;
        v[i] = round16(scale == 12 ? y : double32(y));
    }
    st.y1 = y1;
    st.y2 = y2;
    st.x0 = x0;
    st.x1 = x1;
}

namespace {

// The same sums with the scale fixed: the output doubling of scale 13 folded
// into one saturation, sat32(2 sat32(v)) being sat32(2 v).
template <int SCALE>
void highpass_g729_fixed(KvoHighPassState_G729& st, Kvo16s* x, int len) {
    const Kvo64s b0 = st.b0, b1 = st.b1, b2 = st.b2;
    const Kvo32s a1 = st.a1, a2 = st.a2;
    Kvo32s y1 = st.y1, y2 = st.y2;
    Kvo64s x0 = st.x0, x1 = st.x1;
    for (int i = 0; i < len; ++i) {
        const Kvo64s xi = x[i];
        const Kvo64s s = b0 * xi + b1 * x0 + b2 * x1 + Kvo64s{a1 * hi(y1)} + ((a1 * lo(y1)) >> 15) +
                         Kvo64s{a2 * hi(y2)} + ((a2 * lo(y2)) >> 15);
        const Kvo32s y = sat32(s << (16 - SCALE));
        x1 = x0;
        x0 = xi;
        y2 = y1;
        y1 = y;
        x[i] = round16(SCALE == 12 ? y : sat32(s << (17 - SCALE)));
    }
    st.y1 = y1;
    st.y2 = y2;
    st.x0 = static_cast<Kvo16s>(x0);
    st.x1 = static_cast<Kvo16s>(x1);
}

}  // namespace

void highpass_g729(KvoHighPassState_G729& st, Kvo16s* x, int len, int scale) {
    if (scale == 12)
        highpass_g729_fixed<12>(st, x, len);
    else
        highpass_g729_fixed<13>(st, x, len);
}

}  // namespace kvo

namespace kvo::impl {

KvoStatus kvosHighPassFilterSize_G729(Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoHighPassState_G729));
    return kvoOk;
}

KvoStatus kvosHighPassFilterInit_G729(const Kvo16s* pCoeffs, KvoHighPassState_G729* pMem) {
    if (pCoeffs == nullptr || pMem == nullptr) return kvoErrNullPtr;
    KvoHighPassState_G729 st;
    st.y1 = 0;
    st.y2 = 0;
    st.x0 = 0;
    st.x1 = 0;
    st.a0 = pCoeffs[0];
    st.a1 = pCoeffs[1];
    st.a2 = pCoeffs[2];
    st.b0 = pCoeffs[3];
    st.b1 = pCoeffs[4];
    st.b2 = pCoeffs[5];
    std::memcpy(pMem, &st, sizeof st);
    return kvoOk;
}

KvoStatus kvosHighPassFilter_G729_16s_ISfs(Kvo16s* pSrcDst, Kvo32s len, Kvo32s scaleFactor,
                                           KvoHighPassState_G729* pMem) {
    if (pSrcDst == nullptr || pMem == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor != 12 && scaleFactor != 13) return kvoErrScaleRange;
    KvoHighPassState_G729 st;
    std::memcpy(&st, pMem, sizeof st);
    highpass_g729(st, pSrcDst, len, scaleFactor);
    std::memcpy(pMem, &st, sizeof st);
    return kvoOk;
}

KvoStatus kvosTiltCompensation_G729E_16s(Kvo16s val, const Kvo16s* pSrc, Kvo16s* pDst) {
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    // Negative (or zero) first reflection coefficient: gain 0.9, Q12 result; positive: 0.2, Q15.
    const bool neg = val <= 0;
    const Kvo32s t = neg ? mulQ15R(val, 29491) : mulQ15R(val, 6554);
    const Kvo32s d = t == 0 ? 32767 : 32768 - (t < 0 ? -t : t);
    const Kvo32s q = lo16((neg ? (1 << 26) : (1 << 29)) / d);
    const Kvo32s h = t >> 1;
    const int shift = neg ? 12 : 15;
    const Kvo32s rnd = neg ? 2048 : 16384;
    // Through a local vector: the caller may write over its own input one sample on.
    Kvo16s out[40];
    for (int n = 0; n < 40; ++n) {
        const Kvo16s u = sat16(Kvo32s{pSrc[n + 1]} + ((Kvo32s{pSrc[n]} * h + 8192) >> 14));
        out[n] = sat16((Kvo32s{u} * 2 * q + rnd) >> shift);
    }
    std::memcpy(pDst, out, sizeof out);
    return kvoOk;
}

}  // namespace kvo::impl
