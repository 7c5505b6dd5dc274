// Direct-form LP filters of the CELP coders: synthesis 1/A(z) (order 10 at scale 12 or 13, any
// order at scale 12 for G.729 annex E), its zero-state impulse response, and the residual filter
// A(z).  Coefficients Q12, samples Q0.
//
// Saturating forms follow the reference basic-operation chain: each product doubled, each
// partial sum saturated in tap order, a saturating shift by 15 - scale and a rounding to the
// high half; any saturation on the way sets the overflow flag, which the synthesis filters with
// a history report as kvoWarnOverflow once the whole vector is done (the feedback uses the
// saturated outputs).  The residual filters saturate the same way but report nothing.  The
// wrapping forms (null history, the Low twin, the zero-state response) keep the low 16 bits of
// the plain 32-bit sum.
#include <algorithm>
#include <cstring>

#include "impl.h"
#include "kernels/filter.h"

namespace kvo {
namespace {

inline Kvo32s abs32(Kvo32s v) { return v < 0 ? -v : v; }

// One output of the ordered saturating synthesis chain (before the final shift and rounding).
inline Kvo32s synth_chain_sample(const Kvo16s* a, int order, Kvo16s xn, const Kvo16s* y, int n,
                                 const Kvo16s* mem, bool& ovf) {
    Kvo32s s = chain_mult(a[0], xn, ovf);
    for (int k = 1; k <= order; ++k) {
        Kvo16s yk = (n - k >= 0) ? y[n - k] : mem[order + n - k];
        s = chain_sub(s, chain_mult(a[k], yk, ovf), ovf);
    }
    return s;
}

// ORDER > 0 fixes the order at compile time (the order-10 hot path); 0 takes order_rt.
template <int ORDER>
bool synth_sat_impl(const Kvo16s* a, int order_rt, const Kvo16s* x, Kvo16s* y, int len,
                    const Kvo16s* mem, int scale) {
    const int order = ORDER > 0 ? ORDER : order_rt;
    const int sh = 15 - scale;
    const Kvo32s a0 = a[0];
    const Kvo64s abs_a0 = abs32(a0);
    Kvo64s abs_rest = 0;
    for (int k = 1; k <= order; ++k) abs_rest += abs32(a[k]);
    // Largest magnitude among the outputs the feedback can reach: history, then each output.
    Kvo32s ymax = 0;
    for (int j = 0; j < order; ++j) ymax = std::max(ymax, abs32(mem[j]));

    bool ovf = false;
    for (int n = 0; n < len; ++n) {
        const Kvo16s xn = x[n];
        Kvo32s s;
        // Every doubled partial sum is bounded by 2 * bound: at or below 0x3fffffff none of
        // them, and no product, can saturate, and the plain sum is the chain's value.
        if (abs_a0 * abs32(xn) + abs_rest * ymax <= 0x3fffffff) {
            Kvo32s acc = a0 * xn;
            if (n >= order) {
                const Kvo16s* yp = y + n;
                for (int k = 1; k <= order; ++k) acc -= a[k] * yp[-k];
            } else {
                for (int k = 1; k <= n; ++k) acc -= a[k] * y[n - k];
                for (int k = n + 1; k <= order; ++k) acc -= a[k] * mem[order + n - k];
            }
            s = acc * 2;
        } else {
            s = synth_chain_sample(a, order, xn, y, n, mem, ovf);
        }
        const Kvo16s out = chain_finish(s, sh, ovf);
        y[n] = out;
        ymax = std::max(ymax, abs32(out));
    }
    return ovf;
}

}  // namespace

bool synth_sat(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len,
               const Kvo16s* mem, int scale) {
    if (order == 10) return synth_sat_impl<10>(a, 10, x, y, len, mem, scale);
    return synth_sat_impl<0>(a, order, x, y, len, mem, scale);
}

bool synth_sat_ordered(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len,
                       const Kvo16s* mem, int scale) {
    bool ovf = false;
    for (int n = 0; n < len; ++n) {
        Kvo32s s = synth_chain_sample(a, order, x[n], y, n, mem, ovf);
        y[n] = chain_finish(s, 15 - scale, ovf);
    }
    return ovf;
}

void synth_wrap(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len,
                const Kvo16s* mem, int scale) {
    const Kvo32u r = 1u << (scale - 1);
    for (int n = 0; n < len; ++n) {
        Kvo32u acc = static_cast<Kvo32u>(Kvo32s{a[0]} * x[n]) + r;
        const int direct = n < order ? n : order;
        for (int k = 1; k <= direct; ++k) acc -= static_cast<Kvo32u>(Kvo32s{a[k]} * y[n - k]);
        if (mem != nullptr) {
            for (int k = direct + 1; k <= order; ++k)
                acc -= static_cast<Kvo32u>(Kvo32s{a[k]} * mem[order + n - k]);
        }
        y[n] = lo16(static_cast<Kvo32s>(acc) >> scale);
    }
}

void residual_sat_ordered(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len) {
    bool ovf = false;
    for (int n = 0; n < len; ++n) {
        Kvo32s s = chain_mult(a[0], x[n], ovf);
        for (int k = 1; k <= order; ++k) s = chain_add(s, chain_mult(a[k], x[n - k], ovf), ovf);
        y[n] = chain_finish(s, 3, ovf);
    }
}

void residual_sat(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len) {
    Kvo64s abs_a = 0;
    for (int k = 0; k <= order; ++k) abs_a += abs32(a[k]);
    Kvo32s xmax = 0;
    for (int i = -order; i < len; ++i) xmax = std::max(xmax, abs32(x[i]));
    // Bound on every doubled partial sum of every output: 2 * abs_a * xmax.
    if (abs_a * xmax > 0x3fffffff) {
        residual_sat_ordered(a, order, x, y, len);
        return;
    }
    bool ovf = false;  // only the final rounding can still saturate
    for (int n = 0; n < len; ++n) {
        const Kvo16s* xp = x + n;
        Kvo32s acc = 0;
        for (int k = 0; k <= order; ++k) acc += a[k] * xp[-k];
        y[n] = chain_finish(acc * 2, 3, ovf);
    }
}

void residual_wrap(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len) {
    for (int n = 0; n < len; ++n) {
        const Kvo16s* xp = x + n;
        Kvo32u acc = 2048;
        for (int k = 0; k <= order; ++k) acc += static_cast<Kvo32u>(Kvo32s{a[k]} * xp[-k]);
        y[n] = lo16(static_cast<Kvo32s>(acc) >> 12);
    }
}

namespace {

// Order-10 synthesis behind the three NR exports; arguments already checked.
KvoStatus synth_nr(const Kvo16s* pLPC, const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, int scale,
                   const Kvo16s* pMem) {
    if (pMem == nullptr) {
        synth_wrap(pLPC, 10, pSrc, pDst, len, nullptr, scale);
        return kvoOk;
    }
    return synth_sat(pLPC, 10, pSrc, pDst, len, pMem, scale) ? kvoWarnOverflow : kvoOk;
}

KvoStatus synth_any(const Kvo16s* pLPC, Kvo32s order, const Kvo16s* pSrc, Kvo16s* pDst,
                    Kvo32s len, const Kvo16s* pMem) {
    const int ord = lo16(order);
    if (len < 1 || ord < 1) return kvoErrSize;
    if (ord == 10) return synth_nr(pLPC, pSrc, pDst, len, 12, pMem);
    if (pMem == nullptr) {
        synth_wrap(pLPC, ord, pSrc, pDst, len, nullptr, 12);
        return kvoOk;
    }
    return synth_sat(pLPC, ord, pSrc, pDst, len, pMem, 12) ? kvoWarnOverflow : kvoOk;
}

}  // namespace

namespace impl {

KvoStatus kvosSynthesisFilter_NR_16s_Sfs(const Kvo16s* pLPC, const Kvo16s* pSrc, Kvo16s* pDst,
                                         Kvo32s len, Kvo32s scaleFactor, const Kvo16s* pMem) {
    if (pLPC == nullptr || pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor != 12 && scaleFactor != 13) return kvoErrScaleRange;
    return synth_nr(pLPC, pSrc, pDst, len, scaleFactor, pMem);
}

KvoStatus kvosSynthesisFilter_NR_16s_ISfs(const Kvo16s* pLPC, Kvo16s* pSrcDst, Kvo32s len,
                                          Kvo32s scaleFactor, const Kvo16s* pMem) {
    if (pLPC == nullptr || pSrcDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor != 12 && scaleFactor != 13) return kvoErrScaleRange;
    return synth_nr(pLPC, pSrcDst, pSrcDst, len, scaleFactor, pMem);
}

// The Low twin keeps the low 16 bits even with a history; a null history is zero history.
KvoStatus kvosSynthesisFilterLow_NR_16s_ISfs(const Kvo16s* pLPC, Kvo16s* pSrcDst, Kvo32s len,
                                             Kvo32s scaleFactor, const Kvo16s* pMem) {
    if (pLPC == nullptr || pSrcDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor != 12 && scaleFactor != 13) return kvoErrScaleRange;
    synth_wrap(pLPC, 10, pSrcDst, pSrcDst, len, pMem, scaleFactor);
    return kvoOk;
}

KvoStatus kvosSynthesisFilter_G729E_16s(const Kvo16s* pLPC, Kvo32s order, const Kvo16s* pSrc,
                                        Kvo16s* pDst, Kvo32s len, const Kvo16s* pMem) {
    if (pLPC == nullptr || pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    return synth_any(pLPC, order, pSrc, pDst, len, pMem);
}

KvoStatus kvosSynthesisFilter_G729E_16s_I(const Kvo16s* pLPC, Kvo32s order, Kvo16s* pSrcDst,
                                          Kvo32s len, const Kvo16s* pMem) {
    if (pLPC == nullptr || pSrcDst == nullptr) return kvoErrNullPtr;
    return synth_any(pLPC, order, pSrcDst, pSrcDst, len, pMem);
}

KvoStatus kvosSynthesisFilterZeroStateResponse_NR_16s(const Kvo16s* pLPC, Kvo16s* pDst,
                                                      Kvo32s len, Kvo32s scaleFactor) {
    if (pLPC == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor != 12 && scaleFactor != 13) return kvoErrScaleRange;
    const Kvo32u r = 1u << (scaleFactor - 1);
    pDst[0] = pLPC[0];
    for (int n = 1; n < len; ++n) {
        Kvo32u acc = r;
        const int taps = n < 10 ? n : 10;
        for (int k = 1; k <= taps; ++k)
            acc -= static_cast<Kvo32u>(Kvo32s{pLPC[k]} * pDst[n - k]);
        pDst[n] = lo16(static_cast<Kvo32s>(acc) >> scaleFactor);
    }
    return kvoOk;
}

KvoStatus kvosResidualFilter_G729_16s(const Kvo16s* pSrc, const Kvo16s* pLPC, Kvo16s* pDst) {
    if (pSrc == nullptr || pLPC == nullptr || pDst == nullptr) return kvoErrNullPtr;
    // Through a local vector, so that an output overlapping the input history stays correct.
    Kvo16s out[40];
    residual_sat(pLPC, 10, pSrc, out, 40);
    std::memcpy(pDst, out, sizeof out);
    return kvoOk;
}

KvoStatus kvosResidualFilter_G729E_16s(const Kvo16s* pLPC, Kvo32s order, const Kvo16s* pSrc,
                                       Kvo16s* pDst, Kvo32s len) {
    if (pLPC == nullptr || pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    const int ord = lo16(order);
    if (ord < 1 || len < 1 || ord > len) return kvoErrSize;
    if (ord == 10 && len == 40) return kvosResidualFilter_G729_16s(pSrc, pLPC, pDst);
    residual_sat(pLPC, ord, pSrc, pDst, len);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
