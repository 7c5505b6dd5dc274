// AMR-WB and AMR-WB+ sample-level filters (3GPP TS 26.190 fixed point, 12.8 kHz):
//  - the synthesis filter 1/A(z) with a 32-bit output history, in the plain AMR-WB form
//    (high and low parts summed in two plain 32-bit accumulators) and the AMR-WB+ form
//    (every term saturating, in the published order);
//  - the high-pass filters of orders 2 and 3 with their double-precision output pairs
//    (high = y >> 16, low = (y >> 1) & 0x7fff), the order-3 form carrying a block scale;
//  - the stateless symmetric three-tap filter, pre- and de-emphasis, the residual filter A(z)
//    and the two-operand interpolation of scaled vectors.
// Coefficients are Q12 (filters) or Q15/Q14 factors as the caller's tables give them; the
// library holds none of them.  Plain sums wrap modulo 2^32 as the coder's 32-bit registers do;
// everything stated as saturating saturates.
#include <cstddef>

#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

// Left shift of a 64-bit value with 32-bit saturation (n >= 0).
constexpr Kvo32s shl_sat32(Kvo64s v, int n) {
    if (n > 32) n = 32;
    return sat32(v * (Kvo64s{1} << n));
}

// round16 of v << n (n >= 0), with +-32767/-32768 when the shift leaves 32 bits.
constexpr Kvo16s round_shifted(Kvo32s v, int n) {
    const Kvo64s w = Kvo64s{v} * (Kvo64s{1} << n);
    if (w > INT32_MAX) return 32767;
    if (w < INT32_MIN) return -32768;
    return round16(static_cast<Kvo32s>(w));
}

// Output pair of a 32-bit value.
inline void store_pair(Kvo32s v, Kvo16s& high, Kvo16s& low) {
    high = static_cast<Kvo16s>(v >> 16);
    low = static_cast<Kvo16s>((v >> 1) & 0x7fff);
}
constexpr Kvo32s pair_value(Kvo16s high, Kvo16s low) {
    return lo32(Kvo64s{high} * 65536 + 2 * Kvo64s{low});
}

bool bad_order(Kvo32s order) {
    return order != 2 && order != 3;
}

}  // namespace

namespace impl {

KvoStatus kvosSynthesisFilter_AMRWB_16s32s_I(const Kvo16s* pCoef, Kvo32s order, const Kvo16s* pSrc,
                                             Kvo32s* pSrcDst, Kvo32s len) {
    if (!pCoef || !pSrc || !pSrcDst) return kvoErrNullPtr;
    if (order < 1 || len < 1) return kvoErrSize;
    for (Kvo32s n = 0; n < len; ++n) {
        Kvo32s h = lo32(Kvo64s{pCoef[0]} * pSrc[n]);
        Kvo32s l = 0;
        const Kvo32s* y = pSrcDst + n;
        for (Kvo32s k = 1; k <= order; ++k) {
            h = lo32(Kvo64s{h} - Kvo64s{y[-k] >> 16} * pCoef[k]);
            l = lo32(Kvo64s{l} - Kvo64s{(y[-k] >> 4) & 0xfff} * pCoef[k]);
        }
        const Kvo32s t = shl_sat32(h, 1);
        const Kvo32s s = sat32(Kvo64s{t} + (l >> 11));
        pSrcDst[n] = shl_sat32(s, 3);
    }
    return kvoOk;
}

KvoStatus kvosSynthesisFilter_AMRWBE_16s32s_I(const Kvo16s* pCoef, Kvo32s order, const Kvo16s* pSrc,
                                              Kvo32s* pSrcDst, Kvo32s len) {
    if (!pCoef || !pSrc || !pSrcDst) return kvoErrNullPtr;
    if (order < 1 || len < 1) return kvoErrSize;
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo32s* y = pSrcDst + n;
        Kvo32s l = 0;
        for (Kvo32s k = 1; k <= order; ++k)
            l = sat32(Kvo64s{l} - 2 * Kvo64s{(y[-k] >> 4) & 0xfff} * pCoef[k]);
        Kvo32s s = sat32(2 * Kvo64s{pCoef[0]} * pSrc[n] + (l >> 12));
        for (Kvo32s k = 1; k <= order; ++k)
            s = sat32(Kvo64s{s} - 2 * Kvo64s{y[-k] >> 16} * pCoef[k]);
        pSrcDst[n] = shl_sat32(s, 3);
    }
    return kvoOk;
}

KvoStatus kvosHighPassFilterGetSize_AMRWB_16s(Kvo32s order, Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    if (bad_order(order)) return kvoErrSize;
    *pSize = static_cast<Kvo32s>(sizeof(KvoHighPassStateAMRWB));
    return kvoOk;
}

KvoStatus kvosHighPassFilterInit_AMRWB_16s(const Kvo16s* pCoefA, const Kvo16s* pCoefB, Kvo32s order,
                                           KvoHighPassStateAMRWB* pState) {
    if (!pCoefA || !pCoefB || !pState) return kvoErrNullPtr;
    if (bad_order(order)) return kvoErrSize;
    for (int k = 0; k <= order; ++k) {
        pState->coefA[k] = pCoefA[k];
        pState->coefB[k] = pCoefB[k];
    }
    for (int k = 0; k < order; ++k) pState->yLow[k] = pState->yHigh[k] = pState->x[k] = 0;
    if (order == 3) pState->scale = 0;
    return kvoOk;
}

// Order 3: the history first moves to the new block scale, then each sample runs
// A = sum b x + sum a yHigh, R = (sum a yLow + 8192) >> 14, V = (2A + R) << 2 saturated.
KvoStatus kvosHighPassFilter_AMRWB_16s_Sfs(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                                           KvoHighPassStateAMRWB* pState, Kvo32s scaleFactor) {
    if (!pSrc || !pDst || !pState) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    KvoHighPassStateAMRWB& st = *pState;
    if (st.scale != scaleFactor) {
        const Kvo64s d = Kvo64s{st.scale} - scaleFactor;
        auto rescale = [d](Kvo32s v) -> Kvo32s {
            if (d >= 0) return shl_sat32(v, static_cast<int>(d > 32 ? 32 : d));
            return d <= -31 ? (v < 0 ? -1 : 0) : v >> static_cast<int>(-d);
        };
        for (int k = 0; k < 3; ++k) {
            store_pair(rescale(pair_value(st.yHigh[k], st.yLow[k])), st.yHigh[k], st.yLow[k]);
            st.x[k] = round16(rescale(Kvo32s{st.x[k]} * 65536));
        }
        st.scale = scaleFactor;
    }
    const Kvo16s* a = st.coefA;
    const Kvo16s* b = st.coefB;
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo16s x0 = pSrc[n];
        const Kvo32s acc =
            lo32(Kvo64s{b[0]} * x0 + Kvo64s{b[1]} * st.x[0] + Kvo64s{b[2]} * st.x[1] +
                 Kvo64s{b[3]} * st.x[2] + Kvo64s{a[1]} * st.yHigh[0] + Kvo64s{a[2]} * st.yHigh[1] +
                 Kvo64s{a[3]} * st.yHigh[2]);
        const Kvo32s r = lo32((Kvo64s{a[1]} * st.yLow[0] + Kvo64s{a[2]} * st.yLow[1] +
                               Kvo64s{a[3]} * st.yLow[2] + 8192) >>
                              14);
        const Kvo32s v = shl_sat32(lo32(2 * Kvo64s{acc} + r), 2);
        st.x[2] = st.x[1];
        st.x[1] = st.x[0];
        st.x[0] = x0;
        st.yHigh[2] = st.yHigh[1];
        st.yLow[2] = st.yLow[1];
        st.yHigh[1] = st.yHigh[0];
        st.yLow[1] = st.yLow[0];
        store_pair(v, st.yHigh[0], st.yLow[0]);
        pDst[n] = v >= 0x40000000   ? Kvo16s{32767}
                  : v < -0x40000000 ? Kvo16s{-32768}
                                    : round16(v * 2);
    }
    return kvoOk;
}

// Order 2 in place: W = 2A + R as for order 3, the state takes W << (16 - scaleFactor)
// saturated, the output round16 of that value shifted left by 15 - scaleFactor.
KvoStatus kvosHighPassFilter_AMRWB_16s_ISfs(Kvo16s* pSrcDst, Kvo32s len,
                                            KvoHighPassStateAMRWB* pState, Kvo32s scaleFactor) {
    if (!pSrcDst || !pState) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    KvoHighPassStateAMRWB& st = *pState;
    const Kvo16s* a = st.coefA;
    const Kvo16s* b = st.coefB;
    // scaleFactor is the caller's, kept in 0..15; other values are clamped to that range.
    const int sf = scaleFactor < 0 ? 0 : (scaleFactor > 15 ? 15 : static_cast<int>(scaleFactor));
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo16s x0 = pSrcDst[n];
        const Kvo32s acc =
            lo32(Kvo64s{b[0]} * x0 + Kvo64s{b[1]} * st.x[0] + Kvo64s{b[2]} * st.x[1] +
                 Kvo64s{a[1]} * st.yHigh[0] + Kvo64s{a[2]} * st.yHigh[1]);
        const Kvo32s r = lo32((Kvo64s{a[1]} * st.yLow[0] + Kvo64s{a[2]} * st.yLow[1] + 8192) >> 14);
        const Kvo32s w = lo32(2 * Kvo64s{acc} + r);
        const Kvo32s v = shl_sat32(w, 16 - sf);
        st.x[1] = st.x[0];
        st.x[0] = x0;
        st.yHigh[1] = st.yHigh[0];
        st.yLow[1] = st.yLow[0];
        store_pair(v, st.yHigh[0], st.yLow[0]);
        pSrcDst[n] = round_shifted(v, 15 - sf);
    }
    return kvoOk;
}

KvoStatus kvosHighPassFilterGetDlyLine_AMRWB_16s(const KvoHighPassStateAMRWB* pState,
                                                 Kvo16s* pDlyLine, Kvo32s order) {
    if (!pState || !pDlyLine) return kvoErrNullPtr;
    if (bad_order(order)) return kvoErrSize;
    Kvo16s* d = pDlyLine;
    for (int k = order - 1; k >= 0; --k) {
        *d++ = pState->yHigh[k];
        *d++ = pState->yLow[k];
    }
    for (int k = 0; k < order; ++k) *d++ = pState->x[k];
    return kvoOk;
}

KvoStatus kvosHighPassFilterSetDlyLine_AMRWB_16s(const Kvo16s* pDlyLine,
                                                 KvoHighPassStateAMRWB* pState, Kvo32s order) {
    if (!pDlyLine || !pState) return kvoErrNullPtr;
    if (bad_order(order)) return kvoErrSize;
    const Kvo16s* d = pDlyLine;
    for (int k = order - 1; k >= 0; --k) {
        pState->yHigh[k] = *d++;
        pState->yLow[k] = *d++;
    }
    for (int k = 0; k < order; ++k) pState->x[k] = *d++;
    return kvoOk;
}

// round16(2P) of a plain 32-bit sum P; the doubling saturates.
KvoStatus kvosHighPassFilter_Direct_AMRWB_16s(const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo16s* pDst,
                                              Kvo32s len, Kvo32s mode) {
    if (!pCoef || !pSrc || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    const Kvo16s c0 = pCoef[0], c1 = pCoef[1];
    auto out = [](Kvo64s p) { return round16(sat32(2 * Kvo64s{lo32(p)})); };
    if (mode == 0) {
        // Centre tap 1.0; the first and the last sample see one neighbour.  The last sample is
        // written last so that an in-place call reads only inputs.
        if (len == 1) {  // the end formula, with x[-1]
            pDst[0] = out((Kvo64s{pSrc[0]} << 15) - Kvo64s{c1} * pSrc[-1]);
            return kvoOk;
        }
        Kvo16s prev = pSrc[0];
        pDst[0] = out((Kvo64s{prev} << 15) - Kvo64s{c1} * pSrc[1]);
        for (Kvo32s n = 1; n < len - 1; ++n) {
            const Kvo16s cur = pSrc[n];
            pDst[n] = out((Kvo64s{cur} << 15) - Kvo64s{c1} * (Kvo64s{prev} + pSrc[n + 1]));
            prev = cur;
        }
        pDst[len - 1] = out((Kvo64s{pSrc[len - 1]} << 15) - Kvo64s{c1} * prev);
        return kvoOk;
    }
    Kvo16s prev = pSrc[-1];
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo16s cur = pSrc[n];
        pDst[n] = out(Kvo64s{c0} * cur - Kvo64s{c1} * (Kvo64s{prev} + pSrc[n + 1]));
        prev = cur;
    }
    return kvoOk;
}

KvoStatus kvosDeemphasize_AMRWB_32s16s(Kvo16s val, const Kvo32s* pSrc, Kvo16s* pDst, Kvo32s len,
                                       Kvo16s* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo16s y = *pMem;
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo32s t = shl_sat32(pSrc[n] & ~Kvo32s{15}, 2);
        const Kvo32s acc = lo32(Kvo64s{t} + Kvo64s{val} * y);
        y = acc >= 0x20000000   ? Kvo16s{32767}
            : acc < -0x20000000 ? Kvo16s{-32768}
                                : round16(acc * 4);
        pDst[n] = y;
    }
    *pMem = y;
    return kvoOk;
}

KvoStatus kvosDeemphasize_AMRWB_NR_16s_I(Kvo16s val, Kvo16s* pSrcDst, Kvo32s len, Kvo16s* pMem) {
    if (!pSrcDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo16s y = *pMem;
    for (Kvo32s n = 0; n < len; ++n) {
        y = sat16((16384 * Kvo64s{pSrcDst[n]} + Kvo64s{val} * y + 16384) >> 15);
        pSrcDst[n] = y;
    }
    *pMem = y;
    return kvoOk;
}

KvoStatus kvosDeemphasize_AMRWBE_NR_16s_I(Kvo16s val, Kvo32s s, Kvo16s* pSrcDst, Kvo32s len,
                                          Kvo16s* pMem) {
    if (!pSrcDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (s < 0 || s > 15) return kvoErrScaleRange;
    Kvo16s y = *pMem;
    for (Kvo32s n = 0; n < len; ++n) {
        y = sat16(((Kvo64s{pSrcDst[n]} << s) + Kvo64s{val} * y + 16384) >> 15);
        pSrcDst[n] = y;
    }
    *pMem = y;
    return kvoOk;
}

// From the last sample back, so that each step still sees its unfiltered left neighbour.
KvoStatus kvosPreemphasize_AMRWB_16s_ISfs(Kvo16s val, Kvo16s* pSrcDst, Kvo32s len,
                                          Kvo32s scaleFactor, Kvo16s* pMem) {
    if (!pSrcDst || !pMem) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor < 0 || scaleFactor > 15) return kvoErrScaleRange;
    const Kvo16s last = pSrcDst[len - 1];
    const Kvo64s r = Kvo64s{1} << scaleFactor;
    for (Kvo32s n = len - 1; n >= 0; --n) {
        const Kvo16s left = n > 0 ? pSrcDst[n - 1] : *pMem;
        pSrcDst[n] =
            sat16(((Kvo64s{pSrcDst[n]} << 15) + r - Kvo64s{val} * left) >> (scaleFactor + 1));
    }
    *pMem = last;
    return kvoOk;
}

namespace {

// S = sum a[k] x[n-k], a plain 32-bit sum.
inline Kvo32s residual_sum(const Kvo16s* a, int order, const Kvo16s* x) {
    Kvo64s s = 0;
    for (int k = 0; k <= order; ++k) s += Kvo64s{a[k]} * x[-k];
    return lo32(s);
}

KvoStatus residual_args(const Kvo16s* pCoef, Kvo16s order, const Kvo16s* pSrc, Kvo16s* pDst,
                        Kvo32s len, Kvo32s scaleFactor) {
    if (!pCoef || !pSrc || !pDst) return kvoErrNullPtr;
    if (order < 1 || len < 1 || order > len) return kvoErrSize;
    if (scaleFactor < 0 || scaleFactor > 15) return kvoErrScaleRange;
    return kvoOk;
}

}  // namespace

// The output may overwrite the input only where no later sample still needs it, so the sums
// are formed from the end of the block backwards.
KvoStatus kvosResidualFilter_AMRWB_16s_Sfs(const Kvo16s* pCoef, Kvo16s order, const Kvo16s* pSrc,
                                           Kvo16s* pDst, Kvo32s len, Kvo32s scaleFactor) {
    if (KvoStatus st = residual_args(pCoef, order, pSrc, pDst, len, scaleFactor)) return st;
    const int m = 15 - static_cast<int>(scaleFactor);
    for (Kvo32s n = len - 1; n >= 0; --n)
        pDst[n] = round_shifted(residual_sum(pCoef, order, pSrc + n), m);
    return kvoOk;
}

KvoStatus kvosResidualFilter_Low_16s_Sfs(const Kvo16s* pCoef, Kvo16s order, const Kvo16s* pSrc,
                                         Kvo16s* pDst, Kvo32s len, Kvo32s scaleFactor) {
    if (KvoStatus st = residual_args(pCoef, order, pSrc, pDst, len, scaleFactor)) return st;
    const Kvo32s r = scaleFactor ? Kvo32s{1} << (scaleFactor - 1) : 0;
    for (Kvo32s n = len - 1; n >= 0; --n)
        pDst[n] = sat16(lo32(Kvo64s{residual_sum(pCoef, order, pSrc + n)} + r) >> scaleFactor);
    return kvoOk;
}

KvoStatus kvosInterpolateC_NR_16s(const Kvo16s* pSrc1, Kvo16s val1, Kvo32s scale1,
                                  const Kvo16s* pSrc2, Kvo16s val2, Kvo32s scale2, Kvo16s* pDst,
                                  Kvo32s len) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scale1 < 0 || scale2 < 0) return kvoErrScaleRange;
    // Put the finer scale first.
    if (scale1 > scale2) {
        const Kvo16s* p = pSrc1;
        pSrc1 = pSrc2;
        pSrc2 = p;
        const Kvo16s v = val1;
        val1 = val2;
        val2 = v;
        const Kvo32s s = scale1;
        scale1 = scale2;
        scale2 = s;
    }
    // Beyond 32 bits of difference every non-zero coarse term saturates anyway.
    const int up = scale2 - scale1 > 32 ? 32 : static_cast<int>(scale2 - scale1);
    const Kvo64s r = scale1 <= 15 ? Kvo64s{1} << (15 - scale1) : 0;
    const int down = 16 - static_cast<int>(scale1 > 48 ? 48 : scale1);
    for (Kvo32s i = 0; i < len; ++i) {
        const Kvo64s sum =
            Kvo64s{pSrc2[i]} * val2 * (Kvo64s{1} << up) + r + Kvo64s{pSrc1[i]} * val1;
        if (down >= 0) {
            pDst[i] = sat16(sum >> down);
        } else {  // a scale above 16 scales up
            const int n = -down;
            pDst[i] = sum > (Kvo64s{32767} >> n)    ? Kvo16s{32767}
                      : sum < (Kvo64s{-32768} >> n) ? Kvo16s{-32768}
                                                    : static_cast<Kvo16s>(sum * (Kvo64s{1} << n));
        }
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
