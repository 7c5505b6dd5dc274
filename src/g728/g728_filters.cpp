// G.728 per-vector filters in block floating point: the order-50 synthesis
// filter (decoder), the cascade of synthesis and perceptual weighting filter
// (encoder), the order-10 pole-zero weighting filter, and the adaptive post
// filter with its LPC inverse filter and pitch extractor.
//
// Data: filter coefficients Q14 (the order-50 predictor and the weighting
// filter's 10 zero and 10 pole coefficients).  The order-50 memory holds 16-bit
// samples, newest first, with one exponent for every block of 5 (real value =
// stored value * 2^-exponent); a filter step brings every block to the
// smallest exponent in use.  The weighting filter runs at exponent 2.
//
// Deliberate behaviour: the combined filter starts with block exponents 16
// like the synthesis filter; the zero-input conversion to exponent 2
// saturates to 16 bits; the weighted zero-state response is added to the
// weighting filter memory with one saturation after the add; 4 * acc is
// saturated to 32 bits before rounding in the post filter and in the LPC
// inverse filter; the oldest (partial) block adds nothing for shifts of 30 or
// more, other shift counts are capped at 31; the zero-state guard also tests
// the first sample.
#include <cstring>

#include "frame/impl.h"
#include "g728/g728.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// Shift of a 16-bit word by a signed count (positive: left), saturated.
Kvo16s shift16(Kvo32s x, int s) {
    if (s >= 0) return sat16(Kvo64s{x} << (s > 31 ? 31 : s));
    return static_cast<Kvo16s>(x >> (-s > 31 ? 31 : -s));
}

// Zero-input response of the order-50 filter: y at exponent emin.
int zero_input(const Kvo16s* a, const Kvo16s* m, const Kvo16s* e, Kvo16s* y) {
    int emin = e[0];
    for (int b = 1; b < 10; ++b)
        if (e[b] < emin) emin = e[b];
    for (int t = 0; t < 5; ++t) {
        Kvo32s acc = 0;
        for (int j = 0; j < t; ++j) acc = add_wrap(acc, -Kvo32s{a[j]} * y[t - 1 - j]);
        for (int b = 0; b < 10; ++b) {
            Kvo32s B = 0;
            for (int i = 0; i < 5 && t + 5 * b + i < 50; ++i)
                B = add_wrap(B, -Kvo32s{a[t + 5 * b + i]} * m[5 * b + i]);
            const int sh = e[9 - b] - emin;
            if (sh >= 30 && b == 9 && t > 0) continue;
            acc = add_wrap(acc, B >> (sh > 31 ? 31 : sh));
        }
        y[t] = sat16(Kvo32s{acc >> 14});
    }
    return emin;
}

// Normalises the newest block m[0..4] into [lo, hi] (hi = 2 lo - 1) by its
// larger side; returns the shift count, positive for doubling.
int normalize_block(Kvo16s* m, Kvo32s lo, int zeroCount) {
    const Kvo32s hi = 2 * lo - 1;
    Kvo32s mx = m[0], mn = m[0];
    for (int i = 1; i < 5; ++i) {
        if (m[i] > mx) mx = m[i];
        if (m[i] < mn) mn = m[i];
    }
    int s = 0;
    if (mx == 0 && mn == 0) {
        s = zeroCount;
    } else if (mx >= 0 && mn >= -mx) {
        if (mx > hi)
            for (Kvo32s v = mx; v > hi; v >>= 1) --s;
        else
            for (Kvo32s v = mx; v < lo; v <<= 1) ++s;
    } else {
        if (mn < -(hi + 1))
            for (Kvo32s v = mn; v < -(hi + 1); v >>= 1) --s;
        else
            for (Kvo32s v = mn; v >= -lo; v *= 2) ++s;
    }
    for (int i = 0; i < 5; ++i) m[i] = shift16(m[i], s);
    return s;
}

// Block update after a zero-input response y at exponent emin.
void block_update(Kvo16s* m, Kvo16s* e, Kvo16s* minExp, const Kvo16s* y, int emin) {
    std::memmove(m + 5, m, sizeof(Kvo16s) * 45);
    for (int i = 0; i < 5; ++i) m[i] = y[4 - i];
    const int s = normalize_block(m, 8192, 14);
    std::memmove(e, e + 1, sizeof(Kvo16s) * 9);
    e[9] = static_cast<Kvo16s>(emin + s);
    *minExp = e[9];
}

// Zero-state response of the excitation with the overflow guard; x is
// rescaled in place; returns the right shift r.
int zero_state(const Kvo16s* a, Kvo16s* x, Kvo16s* z) {
    int r = 0;
    for (;;) {
        bool again = false;
        for (int i = 0; i < 5 && !again; ++i) {
            Kvo32s acc = Kvo32s{static_cast<Kvo16s>(x[i] >> r)} << 14;
            for (int j = 0; j < i; ++j) acc = sat32(Kvo64s{acc} - Kvo32s{a[j]} * z[i - 1 - j]);
            if (acc > 0x0FFFFFFF || acc < -0x10000000)
                again = true;
            else
                z[i] = static_cast<Kvo16s>(acc >> 14);
        }
        if (!again) break;
        ++r;
    }
    for (int i = 0; i < 5; ++i) x[i] = static_cast<Kvo16s>(x[i] >> r);
    return r;
}

// Adds the zero-state response z (exponent f) to the newest block.
void add_response(Kvo16s* m, Kvo16s* e, const Kvo16s* zin, int f) {
    Kvo16s z[5];
    std::memcpy(z, zin, sizeof z);
    const int g = e[9];
    if (f < g) {
        const int s = g - f > 15 ? 15 : g - f;
        for (int i = 0; i < 5; ++i) m[i] = static_cast<Kvo16s>(m[i] >> s);
        e[9] = static_cast<Kvo16s>(f);
    } else if (f > g) {
        const int s = f - g > 15 ? 15 : f - g;
        for (int i = 0; i < 5; ++i) z[i] = static_cast<Kvo16s>(z[i] >> s);
    }
    Kvo32s lim;
    if (e[9] > 0)
        lim = e[9] >= 20 ? INT32_MAX : (4095 << e[9]);
    else
        lim = 4095 >> (-e[9] > 31 ? 31 : -e[9]);
    for (int i = 0; i < 5; ++i) {
        Kvo32s v = Kvo32s{m[i]} + z[4 - i];
        if (v > lim) v = lim;
        if (v < -lim) v = -lim;
        m[i] = sat16(v);
    }
    e[9] = static_cast<Kvo16s>(e[9] + normalize_block(m, 4096, 13));
}

Kvo16s to_exp2(Kvo32s x, int exp) {
    return shift16(x, 2 - exp);
}

}  // namespace

}  // namespace kvo

namespace kvo::impl {

KvoStatus kvosSynthesisFilterGetStateSize_G728_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = sizeof(KvoG728SynthesisState);
    return kvoOk;
}

KvoStatus kvosSynthesisFilterInit_G728_16s(KvoG728SynthesisState* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    for (auto& e : pState->exponents) e = 16;
    pState->minExp = 16;
    return kvoOk;
}

KvoStatus kvosCombinedFilterGetStateSize_G728_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = sizeof(KvoG728CombinedState);
    return kvoOk;
}

KvoStatus kvosCombinedFilterInit_G728_16s(KvoG728CombinedState* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    for (auto& e : pState->exponents) e = 16;
    pState->minExp = 16;
    return kvoOk;
}

KvoStatus kvosIIR16sGetStateSize_G728_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = sizeof(KvoG728IIRState);
    return kvoOk;
}

KvoStatus kvosIIR16sInit_G728_16s(KvoG728IIRState* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    return kvoOk;
}

KvoStatus kvosPostFilterGetStateSize_G728_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = sizeof(KvoG728PostFilterState);
    return kvoOk;
}

KvoStatus kvosPostFilterInit_G728_16s(KvoG728PostFilterState* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    return kvoOk;
}

KvoStatus kvosPostFilterAdapterGetStateSize_G728(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = sizeof(KvoG728PostFilterAdapterState);
    return kvoOk;
}

KvoStatus kvosPostFilterAdapterStateInit_G728(KvoG728PostFilterAdapterState* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    return kvoOk;
}

KvoStatus kvosSyntesisFilterZeroInput_G728_16s(const Kvo16s* pCoef, Kvo16s* pSrcDst, Kvo32s srcExp,
                                               Kvo16s* pDst, Kvo16s* pDstExp,
                                               KvoG728SynthesisState* pState) {
    if (!pCoef || !pSrcDst || !pDst || !pDstExp || !pState) return kvoErrNullPtr;
    Kvo16s y[5], z[5];
    const int emin = zero_input(pCoef, pState->memory, pState->exponents, y);
    block_update(pState->memory, pState->exponents, &pState->minExp, y, emin);
    const int r = zero_state(pCoef, pSrcDst, z);
    add_response(pState->memory, pState->exponents, z, srcExp - r);
    for (int i = 0; i < 5; ++i) pDst[i] = pState->memory[4 - i];
    *pDstExp = pState->exponents[9];
    return kvoOk;
}

KvoStatus kvosIIR16s_G728_16s(const Kvo16s* pWeight, const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len,
                              KvoG728IIRState* pState) {
    if (!pWeight || !pSrc || !pDst || !pState) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo16s* u = pState->inMem;
    Kvo16s* v = pState->outMem;
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo16s x = pSrc[n];
        Kvo32s acc = Kvo32s{x} << 14;
        for (int i = 0; i < 10; ++i) acc = add_wrap(acc, Kvo32s{pWeight[i]} * u[i]);
        for (int i = 0; i < 10; ++i) acc = sat32(Kvo64s{acc} - Kvo32s{pWeight[10 + i]} * v[i]);
        const Kvo16s y = sat16(Kvo32s{acc >> 14});
        std::memmove(u + 1, u, sizeof(Kvo16s) * 9);
        std::memmove(v + 1, v, sizeof(Kvo16s) * 9);
        u[0] = x;
        v[0] = y;
        pDst[n] = y;
    }
    return kvoOk;
}

KvoStatus kvosCombinedFilterZeroInput_G728_16s(const Kvo16s* pCoef, const Kvo16s* pWeight,
                                               Kvo16s* pDst, KvoG728CombinedState* pState) {
    if (!pCoef || !pWeight || !pDst || !pState) return kvoErrNullPtr;
    Kvo16s y[5], ys[5];
    const int emin = zero_input(pCoef, pState->memory, pState->exponents, y);
    for (int t = 0; t < 5; ++t) ys[t] = to_exp2(y[t], emin);
    block_update(pState->memory, pState->exponents, &pState->minExp, y, emin);
    return kvo::impl::kvosIIR16s_G728_16s(pWeight, ys, pDst, 5, &pState->weight);
}

KvoStatus kvosCombinedFilterZeroState_G728_16s(const Kvo16s* pCoef, const Kvo16s* pWeight,
                                               Kvo16s* pSrcDst, Kvo32s srcExp, Kvo16s* pDst,
                                               Kvo16s* pDstExp, KvoG728CombinedState* pState) {
    if (!pCoef || !pWeight || !pSrcDst || !pDst || !pDstExp || !pState) return kvoErrNullPtr;
    Kvo16s z[5], w[5];
    const int f = srcExp - zero_state(pCoef, pSrcDst, z);
    w[0] = z[0];
    for (int i = 1; i < 5; ++i) {
        Kvo32s acc = Kvo32s{z[i]} << 14;
        for (int j = 0; j < i; ++j) acc = sat32(Kvo64s{acc} + Kvo32s{pWeight[j]} * z[i - 1 - j]);
        for (int j = 0; j < i; ++j)
            acc = sat32(Kvo64s{acc} - Kvo32s{pWeight[10 + j]} * w[i - 1 - j]);
        w[i] = sat16(Kvo32s{acc >> 14});
    }
    Kvo16s* m = pState->memory;
    Kvo16s* e = pState->exponents;
    add_response(m, e, z, f);
    // Superposition on the weighting filter: output memory takes the weighted
    // response (at exponent 2), input memory is rebuilt from the synthesis.
    Kvo16s* v = pState->weight.outMem;
    for (int i = 0; i < 5; ++i) {
        const int s = 2 - f;
        Kvo64s ws = s >= 0 ? (Kvo64s{w[4 - i]} << (s > 31 ? 31 : s))
                           : Kvo64s{w[4 - i] >> (-s > 31 ? 31 : -s)};
        v[i] = sat16(sat32(ws + v[i]));
    }
    Kvo16s* u = pState->weight.inMem;
    for (int i = 0; i < 5; ++i) u[i] = to_exp2(m[i], e[9]);
    for (int i = 5; i < 10; ++i) u[i] = to_exp2(m[i], e[8]);
    for (int i = 0; i < 5; ++i) pDst[i] = m[4 - i];
    *pDstExp = e[9];
    return kvoOk;
}

KvoStatus kvosPostFilter_G728_16s(Kvo16s gain, Kvo16s gainLag, Kvo16s lag, Kvo16s tilt,
                                  const Kvo16s* pCoef, const Kvo16s* pSrc, Kvo16s* pDst,
                                  KvoG728PostFilterState* pState) {
    if (!pCoef || !pSrc || !pDst || !pState) return kvoErrNullPtr;
    Kvo16s* u = pState->inMem;
    Kvo16s* v = pState->outMem;
    for (int j = 0; j < 5; ++j) {
        const Kvo32s t = add_wrap(Kvo32s{gain} * pSrc[j], Kvo32s{gainLag} * pSrc[j - lag]);
        Kvo32s acc = t;
        for (int i = 0; i < 10; ++i) acc = add_wrap(acc, Kvo32s{pCoef[i]} * u[i]);
        for (int i = 0; i < 10; ++i) acc = add_wrap(acc, -(Kvo32s{pCoef[10 + i]} * v[i]));
        std::memmove(u + 1, u, sizeof(Kvo16s) * 9);
        u[0] = g728_round16(sat32(Kvo64s{t} * 4));
        pDst[j] = sat16(Kvo32s{sat32(Kvo64s{acc} + Kvo32s{v[0]} * tilt) >> 14});
        std::memmove(v + 1, v, sizeof(Kvo16s) * 9);
        v[0] = sat16(Kvo32s{acc >> 14});
    }
    return kvoOk;
}

KvoStatus kvosLPCInverseFilter_G728_16s(const Kvo16s* pSrc, const Kvo16s* pCoef, Kvo16s* pDst,
                                        KvoG728PostFilterAdapterState* pState) {
    if (!pSrc || !pCoef || !pDst || !pState) return kvoErrNullPtr;
    Kvo16s* u = pState->residualMem;
    for (int n = 0; n < 5; ++n) {
        const Kvo16s x = pSrc[n];
        Kvo32s acc = Kvo32s{x} << 13;
        for (int i = 0; i < 10; ++i) acc = add_wrap(acc, Kvo32s{pCoef[i]} * u[i]);
        pDst[n] = g728_round16(sat32(Kvo64s{acc} * 4));
        std::memmove(u + 1, u, sizeof(Kvo16s) * 9);
        u[0] = x;
    }
    return kvoOk;
}

namespace {

Kvo32s lag_corr(const Kvo16s* x, int p) {
    Kvo32s c = 0;
    for (int i = 0; i < 100; ++i) c = add_wrap(c, Kvo32s{x[i]} * x[i - p]);
    return c;
}

// Best lag in [lo, hi], scanned downwards; equal sums keep the smaller lag.
int lag_search(const Kvo16s* x, int lo, int hi, Kvo32s* pc) {
    int best = 0;
    Kvo32s bc = INT32_MIN;
    for (int p = hi; p >= lo; --p) {
        const Kvo32s c = lag_corr(x, p);
        if (c >= bc) {
            bc = c;
            best = p;
        }
    }
    *pc = bc;
    return best;
}

Kvo32s lag_energy(const Kvo16s* x, int p) {
    Kvo64s e = 0;
    for (int i = 0; i < 100; ++i) e += Kvo32s{x[i - p]} * x[i - p];
    return sat32(e);
}

}  // namespace

KvoStatus kvosPitchPeriodExtraction_G728_16s(const Kvo16s* pSrc, Kvo32s* pPitch,
                                             KvoG728PostFilterAdapterState* pState) {
    if (!pSrc || !pPitch || !pState) return kvoErrNullPtr;
    const Kvo16s* x = pSrc;
    KvoG728PostFilterAdapterState& s = *pState;
    Kvo16s* d = s.decimated;
    // Third-order elliptic low-pass ahead of the 4:1 decimation.
    int out = 55;
    for (int i = 80; i < 100; ++i) {
        Kvo32s v = (18721 * (Kvo32s{x[i]} + s.x3) - 3668 * (Kvo32s{s.x1} + s.x2)) >> 6;
        v = v + 19172 * Kvo32s{s.y1} - 16481 * Kvo32s{s.y2} + 5031 * Kvo32s{s.y3};
        Kvo16s y;
        if (v > 0x0FFFFFFF)
            y = 32767;
        else if (v < -0x10000000)
            y = -32768;
        else
            y = g728_round16(v * 8);
        s.x3 = s.x2;
        s.x2 = s.x1;
        s.x1 = x[i];
        s.y3 = s.y2;
        s.y2 = s.y1;
        s.y1 = y;
        if ((i & 3) == 3) d[out++] = y;
    }
    // Coarse search on the decimated signal.
    int L = 35;
    Kvo32s best = INT32_MIN;
    for (int lag = 35; lag >= 5; --lag) {
        Kvo32s c = 0;
        for (int k = 0; k < 25; ++k) c = add_wrap(c, Kvo32s{d[35 + k]} * d[35 + k - lag]);
        if (c >= best) {
            best = c;
            L = lag;
        }
    }
    std::memmove(d, d + 5, sizeof(Kvo16s) * 55);
    // Fine search around four times the coarse lag.
    Kvo32s C1, C2;
    const int p1 =
        lag_search(x, 4 * L - 3 > 20 ? 4 * L - 3 : 20, 4 * L + 3 < 140 ? 4 * L + 3 : 140, &C1);
    const Kvo32s q = *pPitch;
    if (p1 <= q + 6) {
        *pPitch = p1;
        return kvoOk;
    }
    const Kvo32s lo = q - 6 > 20 ? q - 6 : 20, hi = q + 6 < 140 ? q + 6 : 140;
    int p2 = 0;
    if (hi < lo)
        C2 = INT32_MIN;
    else
        p2 = lag_search(x, lo, hi, &C2);
    Kvo32s E1 = lag_energy(x, p1), E2 = lag_energy(x, p2);
    Kvo32s A1 = E1 < C1 ? E1 : C1;
    if (E1 == 0 || A1 < 1) A1 = 0;
    Kvo32s c2 = E2 == 0 ? 0 : C2;
    Kvo32s A2 = E2 < c2 ? E2 : c2;
    if (A2 < 0) A2 = 0;
    const int sh = norm32(E1 > E2 ? E1 : E2);
    E1 <<= sh;
    E2 <<= sh;
    A1 = ShiftL_32s(A1, sh);
    A2 = ShiftL_32s(A2, sh);
    const Kvo32s lhs = (E1 >> 16) * (A2 >> 16);
    const Kvo32s rhs = 26214 * (((E2 >> 16) * (A1 >> 16)) >> 16);
    *pPitch = lhs > rhs ? p2 : p1;
    return kvoOk;
}

}  // namespace kvo::impl
