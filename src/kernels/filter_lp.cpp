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
#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "impl.h"
#include "kernels/filter.h"

namespace kvo {
namespace {

inline Kvo32s abs32(Kvo32s v) {
    return v < 0 ? -v : v;
}

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

// Rounding of an exact (unsaturated) sum: the value of the chain's shift and rounding, and
// whether either saturated.  With sh = 15 - scale the doubled sum saturates the shift below
// -2^(30 - sh) and the rounding add at or above 0x7fff8000 >> (sh + 1).
template <int SCALE>
inline Kvo16s fast_finish(Kvo32s acc, bool& ovf) {
    constexpr Kvo32s lo_thr = -(1 << (SCALE + 15));
    constexpr Kvo32s hi_thr = 0x7fff8000 >> (16 - SCALE);
    ovf |= (acc < lo_thr) | (acc >= hi_thr);
    return sat16((acc + (1 << (SCALE - 1))) >> SCALE);
}

// One output by the ordered chain, out of line: the rare loud sample.
[[gnu::noinline]] Kvo16s synth_slow_sample(const Kvo16s* a, int order, Kvo16s xn, const Kvo16s* y,
                                           int n, const Kvo16s* mem, int scale, bool& ovf) {
    return chain_finish(synth_chain_sample(a, order, xn, y, n, mem, ovf), 15 - scale, ovf);
}

// Magnitude bound of the fast path.  Every doubled partial sum of an output is bounded by
// 2 * (|a0 x| + sum |a_k| ymax), ymax the largest output magnitude the taps can reach: at or
// below 0x3fffffff none of them, and no product, can saturate, and the plain sum is the
// chain's value.
struct QuietBound {
    Kvo64s abs_a0, abs_rest;
    Kvo32s ymax;
    bool quiet(Kvo16s xn) const { return abs_a0 * abs32(xn) + abs_rest * ymax <= 0x3fffffff; }
    void seen(Kvo16s v) { ymax = std::max(ymax, abs32(v)); }
};

// Body of the synthesis, where every tap reads the output vector: runs from n while the
// samples are quiet and returns the first one it did not do.  The older taps are summed as a
// tree while the newest output is still being computed, so the recursion's critical path is
// one multiply, one subtraction and the rounding.  Order 10 keeps its ten outputs in
// registers.  Any grouping of the sum is exact here: the quiet bound covers every subset.
template <int SCALE>
int synth_body_fast10(const Kvo16s* a, const Kvo16s* x, Kvo16s* y, int n, int len, QuietBound& qb,
                      bool& ovf) {
    const Kvo32s c0 = a[0], c1 = a[1], c2 = a[2], c3 = a[3], c4 = a[4], c5 = a[5], c6 = a[6],
                 c7 = a[7], c8 = a[8], c9 = a[9], c10 = a[10];
    Kvo32s y1 = y[n - 1], y2 = y[n - 2], y3 = y[n - 3], y4 = y[n - 4], y5 = y[n - 5], y6 = y[n - 6],
           y7 = y[n - 7], y8 = y[n - 8], y9 = y[n - 9], y10 = y[n - 10];
    constexpr Kvo32s r = 1 << (SCALE - 1);
    constexpr Kvo32s lo_thr = -(1 << (SCALE + 15)) + r;
    constexpr Kvo32s hi_thr = (0x7fff8000 >> (16 - SCALE)) + r;
    bool f = false;
    for (; n < len; ++n) {
        const Kvo16s xn = x[n];
        if (!qb.quiet(xn)) break;
        const Kvo32s far = ((c10 * y10 + c9 * y9) + (c8 * y8 + c7 * y7)) +
                           ((c6 * y6 + c5 * y5) + (c4 * y4 + c3 * y3));
        const Kvo32s part = (c0 * xn + r) - far - c2 * y2;
        const Kvo32s acc = part - c1 * y1;  // the sum with its rounding constant
        f |= (acc < lo_thr) | (acc >= hi_thr);
        const Kvo16s out = sat16(acc >> SCALE);
        y[n] = out;
        qb.seen(out);
        y10 = y9;
        y9 = y8;
        y8 = y7;
        y7 = y6;
        y6 = y5;
        y5 = y4;
        y4 = y3;
        y3 = y2;
        y2 = y1;
        y1 = out;
    }
    ovf |= f;
    return n;
}

template <int SCALE>
int synth_body_fast_any(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int n, int len,
                        QuietBound& qb, bool& ovf) {
    const Kvo32s a0 = a[0], a1 = a[1];
    Kvo32s prev = y[n - 1];
    bool f = false;
    for (; n < len; ++n) {
        const Kvo16s xn = x[n];
        if (!qb.quiet(xn)) break;
        const Kvo16s* yp = y + n;
        Kvo32s acc = a0 * xn;
        for (int k = order; k >= 2; --k) acc -= a[k] * yp[-k];
        acc -= a1 * prev;
        const Kvo16s out = fast_finish<SCALE>(acc, f);
        y[n] = out;
        prev = out;
        qb.seen(out);
    }
    ovf |= f;
    return n;
}

template <int ORDER, int SCALE>
int synth_body_fast(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int n, int len,
                    QuietBound& qb, bool& ovf) {
    if constexpr (ORDER == 10) return synth_body_fast10<SCALE>(a, x, y, n, len, qb, ovf);
    return synth_body_fast_any<SCALE>(a, order, x, y, n, len, qb, ovf);
}

// Outputs y[0..n0) are already done (with ovf); the rest by the per-sample bound.
template <int ORDER, int SCALE>
bool synth_sat_from(const Kvo16s* a, int order_rt, const Kvo16s* x, Kvo16s* y, int len,
                    const Kvo16s* mem, int n0, bool ovf) {
    const int order = ORDER > 0 ? ORDER : order_rt;
    QuietBound qb{abs32(a[0]), 0, 0};
    for (int k = 1; k <= order; ++k) qb.abs_rest += abs32(a[k]);
    for (int j = 0; j < order; ++j) qb.seen(mem[j]);
    for (int j = 0; j < n0; ++j) qb.seen(y[j]);

    int n = n0;
    // Head: the taps reach back into the caller's history.
    for (; n < len && n < order; ++n) {
        const Kvo16s xn = x[n];
        Kvo16s out;
        if (qb.quiet(xn)) {
            Kvo32s acc = a[0] * xn;
            for (int k = n + 1; k <= order; ++k) acc -= a[k] * mem[order + n - k];
            for (int k = 1; k <= n; ++k) acc -= a[k] * y[n - k];
            out = fast_finish<SCALE>(acc, ovf);
        } else {
            out = synth_slow_sample(a, order, xn, y, n, mem, SCALE, ovf);
        }
        y[n] = out;
        qb.seen(out);
    }
    while (n < len) {
        n = synth_body_fast<ORDER, SCALE>(a, order, x, y, n, len, qb, ovf);
        if (n < len) {
            const Kvo16s out = synth_slow_sample(a, order, x[n], y, n, mem, SCALE, ovf);
            y[n] = out;
            qb.seen(out);
            ++n;
        }
    }
    return ovf;
}

template <int ORDER, int SCALE>
bool synth_sat_impl(const Kvo16s* a, int order_rt, const Kvo16s* x, Kvo16s* y, int len,
                    const Kvo16s* mem) {
    return synth_sat_from<ORDER, SCALE>(a, order_rt, x, y, len, mem, 0, false);
}

// Order 10 on a whole-vector bound: with X the largest input magnitude, every
// output whose taps all stay within ylim = (2^30 - 1 - |a0| X) / sum|a_k| is
// quiet (as QuietBound), so the loop only checks each new output against ylim
// and starts from the history in registers, with no head loop.  ylim is kept
// below 32767, so an output inside it has not saturated and raised no flag.
// Any grouping of the sum is exact under the bound.  The first output beyond
// ylim is finished exactly (its own taps were still within the bound) and the
// per-sample path takes over from the next one.
template <int SCALE>
bool synth_sat10(const Kvo16s* a, const Kvo16s* x, Kvo16s* y, int len, const Kvo16s* mem) {
    Kvo64s abs_rest = 0;
    for (int k = 1; k <= 10; ++k) abs_rest += abs32(a[k]);
    Kvo32s xmax = 0, ymax = 0;
    for (int n = 0; n < len; ++n) xmax = std::max(xmax, abs32(x[n]));
    for (int j = 0; j < 10; ++j) ymax = std::max(ymax, abs32(mem[j]));
    const Kvo64s room = Kvo64s{0x3fffffff} - Kvo64s{abs32(a[0])} * xmax;
    Kvo64s lim = 32766;
    if (room < 0) return synth_sat_impl<10, SCALE>(a, 10, x, y, len, mem);
    if (abs_rest > 0) lim = std::min(lim, room / abs_rest);
    if (ymax > lim) return synth_sat_impl<10, SCALE>(a, 10, x, y, len, mem);
    const Kvo32s ylim = static_cast<Kvo32s>(lim);

    // Taps 3..10 as one pair-summing multiply over eight 16-bit lanes (lane i:
    // a[3 + i] and the output i + 3 samples back), taps 1 and 2 in scalars.
    const __m128i c38 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 3));
    __m128i h38 = _mm_setr_epi16(mem[7], mem[6], mem[5], mem[4], mem[3], mem[2], mem[1], mem[0]);
    const Kvo32s c0 = a[0], c1 = a[1], c2 = a[2];
    Kvo32s y1 = mem[9], y2 = mem[8];
    constexpr Kvo32s r = 1 << (SCALE - 1);
    for (int n = 0; n < len; ++n) {
        __m128i p = _mm_madd_epi16(h38, c38);
        p = _mm_add_epi32(p, _mm_shuffle_epi32(p, 0x4e));
        p = _mm_add_epi32(p, _mm_shuffle_epi32(p, 0xb1));
        const Kvo32s far = _mm_cvtsi128_si32(p);
        const Kvo32s acc = (c0 * x[n] + r) - far - c2 * y2 - c1 * y1;
        const Kvo32s out = acc >> SCALE;
        if (static_cast<Kvo32u>(out + ylim) > static_cast<Kvo32u>(2 * ylim)) {
            bool ovf = false;
            y[n] = fast_finish<SCALE>(acc - r, ovf);
            return synth_sat_from<10, SCALE>(a, 10, x, y, len, mem, n + 1, ovf);
        }
        y[n] = static_cast<Kvo16s>(out);
        h38 = _mm_insert_epi16(_mm_slli_si128(h38, 2), y2, 0);
        y2 = y1;
        y1 = out;
    }
    return false;
}

}  // namespace

bool synth_sat(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len, const Kvo16s* mem,
               int scale) {
    if (order == 10) {
        return scale == 12 ? synth_sat10<12>(a, x, y, len, mem)
                           : synth_sat10<13>(a, x, y, len, mem);
    }
    return scale == 12 ? synth_sat_impl<0, 12>(a, order, x, y, len, mem)
                       : synth_sat_impl<0, 13>(a, order, x, y, len, mem);
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

namespace {

// Order 10 with the taps 3..10 as one SSE2 pair-summing multiply: the 32-bit
// lanes wrap exactly as the plain sum does (a pair of -32768 squares gives
// 2^31, the same value modulo 2^32), so this matches synth_wrap for any input.
// A null x is a zero input.
void synth_wrap10(const Kvo16s* a, const Kvo16s* x, Kvo16s* y, int len, const Kvo16s* mem,
                  int scale) {
    static constexpr Kvo16s kZero[10] = {};
    const Kvo16s* m = mem != nullptr ? mem : kZero;
    const __m128i c38 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 3));
    __m128i h38 = _mm_setr_epi16(m[7], m[6], m[5], m[4], m[3], m[2], m[1], m[0]);
    const Kvo32u c0 = static_cast<Kvo32u>(a[0]), c1 = static_cast<Kvo32u>(a[1]),
                 c2 = static_cast<Kvo32u>(a[2]);
    Kvo32u y1 = static_cast<Kvo32u>(m[9]), y2 = static_cast<Kvo32u>(m[8]);
    const Kvo32u r = 1u << (scale - 1);
    for (int n = 0; n < len; ++n) {
        __m128i p = _mm_madd_epi16(h38, c38);
        p = _mm_add_epi32(p, _mm_shuffle_epi32(p, 0x4e));
        p = _mm_add_epi32(p, _mm_shuffle_epi32(p, 0xb1));
        const Kvo32u far = static_cast<Kvo32u>(_mm_cvtsi128_si32(p));
        const Kvo32u xn = x != nullptr ? static_cast<Kvo32u>(x[n]) : 0u;
        const Kvo32u acc = c0 * xn + r - far - c2 * y2 - c1 * y1;
        const Kvo16s out = lo16(static_cast<Kvo32s>(acc) >> scale);
        y[n] = out;
        h38 = _mm_insert_epi16(_mm_slli_si128(h38, 2), static_cast<Kvo16s>(y2), 0);
        y2 = y1;
        y1 = static_cast<Kvo32u>(out);
    }
}

}  // namespace

void synth_wrap(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len, const Kvo16s* mem,
                int scale) {
    if (order == 10) {
        synth_wrap10(a, x, y, len, mem, scale);
        return;
    }
    synth_wrap_plain(a, order, x, y, len, mem, scale);
}

void synth_wrap_plain(const Kvo16s* a, int order, const Kvo16s* x, Kvo16s* y, int len,
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
    // Exact sums, one tap at a time across a block of outputs (the form that vectorises).
    bool ovf = false;  // not reported by the residual filters
    constexpr int kBlock = 64;
    alignas(16) Kvo32s acc[kBlock];
    for (int n0 = 0; n0 < len; n0 += kBlock) {
        const int m = std::min(kBlock, len - n0);
        const Kvo16s* xb = x + n0;
        const Kvo32s c0 = a[0];
        for (int i = 0; i < m; ++i) acc[i] = c0 * xb[i];
        for (int k = 1; k <= order; ++k) {
            const Kvo32s ck = a[k];
            const Kvo16s* xk = xb - k;
            for (int i = 0; i < m; ++i) acc[i] += ck * xk[i];
        }
        for (int i = 0; i < m; ++i) y[n0 + i] = fast_finish<12>(acc[i], ovf);
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

void zero_state_response_plain(const Kvo16s* a, Kvo16s* y, int len, int scale) {
    const Kvo32u r = 1u << (scale - 1);
    y[0] = a[0];
    for (int n = 1; n < len; ++n) {
        Kvo32u acc = r;
        const int taps = n < 10 ? n : 10;
        for (int k = 1; k <= taps; ++k) acc -= static_cast<Kvo32u>(Kvo32s{a[k]} * y[n - k]);
        y[n] = lo16(static_cast<Kvo32s>(acc) >> scale);
    }
}

// After y[0] = a[0] the response is the wrapping synthesis of a zero input
// from the history (0, ..., 0, a[0]).
void zero_state_response(const Kvo16s* a, Kvo16s* y, int len, int scale) {
    y[0] = a[0];
    if (len < 2) return;
    const Kvo16s hist[10] = {0, 0, 0, 0, 0, 0, 0, 0, 0, a[0]};
    synth_wrap10(a, nullptr, y + 1, len - 1, hist, scale);
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

KvoStatus synth_any(const Kvo16s* pLPC, Kvo32s order, const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                    const Kvo16s* pMem) {
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

KvoStatus kvosSynthesisFilterZeroStateResponse_NR_16s(const Kvo16s* pLPC, Kvo16s* pDst, Kvo32s len,
                                                      Kvo32s scaleFactor) {
    if (pLPC == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (scaleFactor != 12 && scaleFactor != 13) return kvoErrScaleRange;
    zero_state_response(pLPC, pDst, len, scaleFactor);
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
