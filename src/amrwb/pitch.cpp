// AMR-WB pitch steps, 3GPP TS 26.190 fixed point (also the ACELP modes of AMR-WB+):
//  - open-loop lag on the weighted speech decimated to 6.4 kHz, with the correlation weighting
//    and the neighbourhood weighting of the median of the past lags, the normalised correlation
//    on the high-passed signal and the tone register;
//  - closed-loop lag with 1/4 (and 1/2) sample resolution: normalised correlation of the target
//    with the filtered past excitation over the lag range, its 1/4-sample interpolation;
//  - the adaptive vector by the 32-tap interpolator (65 samples, written in place);
//  - the decoder's lag from its index, with the lag concealment of bad frames;
//  - the adaptive gain and its energy terms.
// Data: speech and excitation Q0, impulse response Q12, gains Q14, correlations Q15.  The
// weighting products are the reference's doubled 32-by-16 products; the normalised
// correlation rounds the mantissas of R1 and R2 before multiplying them.
#include <cstring>

#include "amrwb/amrwb_pitch_tables.h"
#include "amrwb/pitch.h"
#include "frame/impl.h"
#include "kernels/corr.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr int kSub = 64;

// Normalised dot product: sat32(2 sum x y + 1) shifted to bit 30, exponent 30 - shift.
Kvo32s dot12(const Kvo16s* x, const Kvo16s* y, int n, int* exp) {
    const Kvo64s s = corrDotExact(x, y, n);
    Kvo32s v = sat32(2 * s + 1);
    const int sh = norm32(v);
    *exp = 30 - sh;
    return shl_wrap(v, sh);
}

// Integer part of the 1/4-resolution lag limits of a mode.
bool lagLimits(KvoSpeechRate mode, int adj, LagLimits* l) {
    switch (mode) {
        case 5:
        case 9:
        case 25:
            *l = {34, 231, 34, 92, true};
            return true;
        case 13:
        case 15:
        case 16:
        case 18:
        case 19:
        case 20:
        case 21:
            *l = {34, 231, 128, 160, false};
            return true;
        case 26:
        case 27:
        case 28:
        case 29:
        case 30:
        case 31:
        case 32:
            *l = {34 + adj, 231 + 6 * adj, 128 - adj, 160, false};
            return true;
        default:
            return false;
    }
}

void boundsFrom(int lag, const LagLimits& l, Kvo32s* b) {
    int lo = lag - 8;
    if (lo < l.min) lo = l.min;
    int up = lo + 15;
    if (up > l.max) {
        up = l.max;
        lo = up - 15;
    }
    b[0] = lo;
    b[1] = up;
}

// 1/4-sample interpolation of the normalised correlation around x[0] at fraction f (-3..3).
Kvo16s interpol4(const Kvo16s* x, int f) {
    if (f < 0) {
        f += 4;
        --x;
    }
    const Kvo16s* t = tab::inter4_1Tbl[3 - f];
    Kvo64s s = 0;
    for (int j = 0; j < 8; ++j) s += Kvo32s{x[j - 3]} * t[j];
    return round16(sat32(4 * s));
}

// Closed-loop lag in lo..up with fraction: kind 0 or 2 marks an absolute-coded subframe.
int pitchRes4(const Kvo16s* exc, const Kvo16s* xn, const Kvo16s* h, int lo, int up, int* frac,
              int kind, int halfStart, int intStart) {
    const int tmin = lo - 4, tmax = up + 4;
    Kvo16s corrv[40];  // corrv[t - tmin]: the normalised correlation at lag t
    Kvo16s y[kSub];
    impl::kvosConvPartial_NR_16s(exc - tmin, h, y, kSub);

    Kvo64s ex = corrDotExact(xn, xn, kSub);
    const Kvo32s e = sat32(2 * ex + 1);
    const int scale = -((32 - norm32(e)) >> 1);

    for (int t = tmin;; ++t) {
        int ec, en;
        Kvo32s c = dot12(xn, y, kSub, &ec);
        Kvo32s n = dot12(y, y, kSub, &en);
        Kvo16s en16 = static_cast<Kvo16s>(en);
        ownInvSqrt_32s16s_I(&n, &en16);
        const Kvo32s p = FMul_16s32s(hi(c), hi(n));
        // L_mult already doubles the product of the mantissas.
        corrv[t - tmin] = round16(shl32(p, ec + en16 + scale));
        if (t == tmax) break;
        const Kvo16s ek = exc[-t - 1];
        for (int j = kSub - 1; j > 0; --j) y[j] = add16(y[j - 1], mult16(ek, h[j]));
        y[0] = mult16(ek, h[0]);
    }

    Kvo16s mx = corrv[lo - tmin];
    int t0 = lo;
    for (int t = lo + 1; t <= up; ++t) {
        if (corrv[t - tmin] >= mx) {
            mx = corrv[t - tmin];
            t0 = t;
        }
    }
    const bool absolute = kind == 0 || kind == 2;
    if (absolute && t0 >= intStart) {
        *frac = 0;
        return t0;
    }
    int step = 1, f = -3;
    if ((absolute && t0 >= halfStart) || halfStart == 34) {
        step = 2;
        f = -2;
    }
    if (t0 == lo) f = 0;
    mx = interpol4(corrv + (t0 - tmin), f);
    for (int i = f + step; i <= 3; i += step) {
        const Kvo16s v = interpol4(corrv + (t0 - tmin), i);
        if (v > mx) {
            mx = v;
            f = i;
        }
    }
    if (f < 0) {
        f += 4;
        --t0;
    }
    *frac = f;
    return t0;
}

// Index of a lag: see the search export.
int lagIndex(int lag, int f, int kind, const LagLimits& l, const Kvo32s* bounds, bool* absolute) {
    const int m = l.min, h = l.half, i = l.integer;
    if (l.lowRate) {
        if (kind != 0 && kind != 2) {
            *absolute = false;
            return (f >> 1) + 2 * (lag - bounds[0]);
        }
        *absolute = true;
        if (lag < i) return (f >> 1) + 2 * lag - 2 * m;
        return i + lag - 2 * m;
    }
    if (kind == 1 || kind == 3) {
        *absolute = false;
        return f + 4 * (lag - bounds[0]);
    }
    *absolute = true;
    if (lag < h) return f + 4 * lag - 4 * m;
    if (lag < i) return (f >> 1) + 2 * h + 2 * lag - 4 * m;
    return i + 2 * h + lag - 4 * m;
}

// Lag and fraction from an index (the index masked to its field width).
void lagDecode(Kvo32u q0, bool absolute, const LagLimits& l, Kvo32s* bounds, int* lag, int* f) {
    const int m = l.min, h = l.half, i = l.integer;
    if (absolute) {
        if (l.lowRate) {
            const int q = static_cast<int>(q0 & 0xff);
            if (q >= 2 * i - 2 * m) {
                *lag = q + 2 * m - i;
                *f = 0;
            } else {
                *lag = (q >> 1) + m;
                *f = 2 * (q + 2 * m - 2 * *lag);
            }
        } else {
            const int q = static_cast<int>(q0 & 0x1ff);
            if (q < 4 * (h - m)) {
                *lag = (q >> 2) + m;
                *f = q + 4 * m - 4 * *lag;
            } else if (q < 4 * (h - m) + 2 * (i - h)) {
                const int u = q + 4 * m - 4 * h;
                *lag = (u >> 1) + h;
                *f = 2 * (u + 2 * h - 2 * *lag);
            } else {
                *lag = q + 4 * m - i - 2 * h;
                *f = 0;
            }
        }
        boundsFrom(*lag, l, bounds);
    } else if (l.lowRate) {
        const int q = static_cast<int>(q0 & 0x1f);
        *lag = (q >> 1) + bounds[0];
        *f = 2 * (q + 2 * bounds[0] - 2 * *lag);
    } else {
        const int q = static_cast<int>(q0 & 0x3f);
        *lag = (q >> 2) + bounds[0];
        *f = q + 4 * (bounds[0] - *lag);
    }
}

// Lag concealment of AMR-WB bad frames from the lag and gain histories.
int concealLag(int lag, bool unusable, KvoAdaptiveDecodeState_AMRWB* st) {
    const Kvo16s* lh = st->lagHistory;
    const Kvo16s* gh = st->gainHistory;
    int maxLag = lh[0], minLag = lh[0], minGain = gh[0];
    for (int i = 1; i < 5; ++i) {
        if (lh[i] > maxLag) maxLag = lh[i];
        if (lh[i] < minLag) minLag = lh[i];
        if (gh[i] < minGain) minGain = gh[i];
    }
    const int lastGain = gh[4], secondGain = gh[3];
    const int d = maxLag - minLag;
    const bool bothGains = lastGain > 8192 && secondGain > 8192;
    auto mix = [&]() {
        Kvo16s s[5];
        std::memcpy(s, lh, sizeof s);
        for (int i = 1; i < 5; ++i) {
            const Kvo16s v = s[i];
            int j = i - 1;
            while (j >= 0 && s[j] > v) {
                s[j + 1] = s[j];
                --j;
            }
            s[j + 1] = v;
        }
        int d2 = s[4] - s[2];
        if (d2 > 40) d2 = 40;
        d2 >>= 1;
        st->seed = lo16(Kvo32s{st->seed} * 31821 + 13849);
        const Kvo16s sum = add16(add16(s[2], s[3]), s[4]);
        return add16(mult16(sum, 10923), mult16(st->seed, static_cast<Kvo16s>(d2)));
    };
    auto clamp = [&](int v) { return v > maxLag ? maxLag : (v < minLag ? minLag : v); };
    if (unusable) {
        int t;
        if (minGain > 8192 && d < 10)
            t = st->prevLag;
        else if (bothGains)
            t = lh[0];
        else
            t = mix();
        return clamp(t);
    }
    int sum = 0;
    for (int i = 0; i < 5; ++i) sum = add16(sum, lh[i]);
    const int mean = mult16(static_cast<Kvo16s>(sum), 6554);
    const int toMax = lag - maxLag, toLast = lag - lh[0];
    const bool inside = lag > minLag && lag < maxLag;
    if (d < 10 && lag > minLag - 5 && toMax < 5) return lag;
    if (bothGains && toLast > -10 && toLast < 10) return lag;
    if (minGain < 6554 && lastGain == minGain && inside) return lag;
    if (d < 70 && inside) return lag;
    if (lag > mean && lag < maxLag) return lag;
    int t;
    if ((minGain > 8192 && d < 10) || bothGains)
        t = lh[0];
    else
        t = mix();
    return clamp(t);
}

// Decoder path shared by the AMR-WB and AMR-WB+ forms (no argument checks).
void adaptiveDecode(Kvo32u index, int* frac, Kvo16s* exc, Kvo32s* pLag, Kvo32s* bounds,
                    int subframe, bool bad, bool unusable, KvoSpeechRate mode, int adj,
                    KvoAdaptiveDecodeState_AMRWB* st) {
    LagLimits l{};
    lagLimits(mode, adj, &l);
    int lag = *pLag, f = *frac;
    if (!st && bad) {
        if (++f == 4) {
            f = 0;
            ++lag;
        }
        if (lag >= l.max) lag = l.max - 5;
    } else {
        const bool absolute = subframe == 0 || (subframe == 2 && !(mode == 5 || mode == 25));
        lagDecode(index, absolute, l, bounds, &lag, &f);
        // A negative AMR-WB+ adjustment puts the largest lag below what the 9-bit index
        // reaches: such lags are held at the largest one, inside the caller's history.
        if (!st && lag > l.max) {
            lag = l.max;
            f = 0;
        }
        if (st && bad) {
            lag = concealLag(lag, unusable, st);
            f = 0;
        }
    }
    *pLag = lag;
    *frac = f;
    amrwbPredLt4(exc, lag, f);
}

}  // namespace

void amrwbPredLt4(Kvo16s* exc, int lag, int frac) {
    const Kvo16s* x = exc - lag;
    int phase = 0;
    if (frac > 0) {
        phase = 4 - frac;
        --x;
    }
    const Kvo16s* t = tab::inter4_2Tbl[phase];
    x -= 15;
    for (int j = 0; j <= kSub; ++j) {
        Kvo64s s = 0;
        for (int i = 0; i < 32; ++i) s += Kvo32s{x[j + i]} * t[i];
        exc[j] = sat16((s + 8192) >> 14);
    }
}

bool amrwbLagLimits(KvoSpeechRate mode, int adj, LagLimits* l) {
    return lagLimits(mode, adj, l);
}

namespace impl {

KvoStatus kvosOpenLoopPitchSearch_AMRWB_16s(const Kvo16s* pWsp, const Kvo16s* pHpWsp,
                                            Kvo16s* pMedianLag, Kvo16s* pWeightGain,
                                            Kvo32s* pDstLag, Kvo16s* pToneRegister,
                                            Kvo16s* pDstNormCorr, Kvo16s* pLagHistory,
                                            Kvo16s* pWeightFlag, Kvo32s len) {
    if (!pWsp || !pHpWsp || !pMedianLag || !pWeightGain || !pDstLag || !pToneRegister ||
        !pDstNormCorr || !pLagHistory || !pWeightFlag)
        return kvoErrNullPtr;
    if (len < 1) return kvoErrBadArg;

    const bool weighted = *pMedianLag >= 1 && *pWeightFlag >= 1;
    const int med = *pMedianLag;
    Kvo32s best = INT32_MIN;
    int lag = 115;
    for (int k = 0; k < 98; ++k) {
        const int t = 115 - k;
        Kvo32s c = double32(corrDotWrap(pWsp, pWsp - t, len));
        c = mpy32_16(c, tab::CorrWgtTbl[k]);
        if (weighted) {
            const int wi = med - 15 + k;
            // Medians outside 17..115 read no weight past the table's ends.
            const Kvo16s w = tab::CorrWgtTbl[wi < 0 ? 0 : (wi > 198 ? 198 : wi)];
            c = mpy32_16(c, w);
        }
        if (c >= best) {
            best = c;
            lag = t;
        }
    }

    const Kvo16s* x = pHpWsp;
    Kvo32s r0 = 0, r1 = 1, r2 = 1;
    for (int n = 0; n < len; ++n) {
        r2 = FMac_16s32s(r2, x[n], x[n]);
        r1 = FMac_16s32s(r1, x[n - lag], x[n - lag]);
        r0 = FMac_16s32s(r0, x[n], x[n - lag]);
    }
    const int e0 = norm32(r0);
    r0 = shl_wrap(r0, e0);
    const int e1 = norm32(r1);
    r1 = shl_wrap(r1, e1);
    const int e2 = norm32(r2);
    r2 = shl_wrap(r2, e2);
    Kvo32s r = FMul_16s32s(round16(r1), round16(r2));
    const int i = norm32(r);
    r = shl_wrap(r, i);
    Kvo16s er = static_cast<Kvo16s>(62 - (e1 + e2 + i));
    ownInvSqrt_32s16s_I(&r, &er);
    const Kvo32s p = FMul_16s32s(round16(r0), round16(r));
    const Kvo16s gain = round16(shl32(p, 31 - e0 + er));

    *pDstNormCorr = gain;
    if (gain > 19661) {
        for (int k = 4; k > 0; --k) pLagHistory[k] = pLagHistory[k - 1];
        pLagHistory[0] = static_cast<Kvo16s>(lag);
        *pMedianLag = ownGmed_n(pLagHistory, 5);
        *pWeightGain = 32767;
    } else {
        *pWeightGain = mult16(*pWeightGain, 29491);
    }
    *pWeightFlag = *pWeightGain >= 26214 ? 1 : 0;
    Kvo16s tone = static_cast<Kvo16s>(*pToneRegister >> 1);
    if (gain >= 21299) tone = static_cast<Kvo16s>(tone | 0x4000);
    *pToneRegister = tone;
    *pDstLag = 2 * lag;
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookSearch_AMRWBE_16s(const Kvo16s* pTarget, const Kvo16s* pImpulse,
                                                const Kvo32s* pOpenLoopLags, Kvo32s* pDstLag,
                                                Kvo32s* pLagBounds, Kvo16s* pExcitation,
                                                Kvo32s* pDstFraction, Kvo32s* pDstIndex,
                                                Kvo32u subframe, KvoSpeechRate mode, Kvo16s adj) {
    if (!pTarget || !pImpulse || !pOpenLoopLags || !pDstLag || !pLagBounds || !pExcitation ||
        !pDstFraction || !pDstIndex)
        return kvoErrNullPtr;
    if (subframe > 3) return kvoErrSize;
    if (adj < -17 || adj > 17) return kvoErrRange;
    LagLimits l{};
    if (!lagLimits(mode, adj, &l)) return kvoErrRange;

    const bool low = mode == 5 || mode == 25;
    Kvo32s bounds[2] = {pLagBounds[0], pLagBounds[1]};
    if (subframe == 0 || (subframe == 2 && !low))
        boundsFrom(pOpenLoopLags[subframe == 0 ? 0 : 1], l, bounds);
    int kind = static_cast<int>(subframe);
    if (low && kind == 2) kind = 4;
    int f;
    const int lag = pitchRes4(pExcitation, pTarget, pImpulse, bounds[0], bounds[1], &f, kind,
                              l.half, l.integer);
    bool absolute;
    const int index = lagIndex(lag, f, kind, l, bounds, &absolute);
    if (absolute) boundsFrom(lag, l, bounds);
    amrwbPredLt4(pExcitation, lag, f);
    *pDstLag = lag;
    *pDstFraction = f;
    *pDstIndex = index;
    pLagBounds[0] = bounds[0];
    pLagBounds[1] = bounds[1];
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookSearch_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pImpulse,
                                               const Kvo32s* pOpenLoopLags, Kvo32s* pDstLag,
                                               Kvo32s* pLagBounds, Kvo16s* pExcitation,
                                               Kvo32s* pDstFraction, Kvo32s* pDstIndex,
                                               Kvo32u subframe, KvoSpeechRate mode) {
    return kvosAdaptiveCodebookSearch_AMRWBE_16s(pTarget, pImpulse, pOpenLoopLags, pDstLag,
                                                 pLagBounds, pExcitation, pDstFraction, pDstIndex,
                                                 subframe, mode, 0);
}

KvoStatus kvosAdaptiveCodebookDecodeGetSize_AMRWB_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoAdaptiveDecodeState_AMRWB));
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookDecodeInit_AMRWB_16s(KvoAdaptiveDecodeState_AMRWB* pState) {
    if (!pState) return kvoErrNullPtr;
    for (int i = 0; i < 5; ++i) {
        pState->gainHistory[i] = 0;
        pState->lagHistory[i] = 64;
    }
    pState->seed = 21845;
    pState->prevLag = 64;
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookDecode_AMRWB_16s(Kvo32u index, Kvo32s* pDstFraction,
                                               Kvo16s* pExcitation, Kvo32s* pDstLag,
                                               Kvo32s* pLagBounds, Kvo64s subframe, Kvo32s badFrame,
                                               Kvo32s unusableFrame, KvoSpeechRate mode,
                                               KvoAdaptiveDecodeState_AMRWB* pState) {
    if (!pDstFraction || !pExcitation || !pDstLag || !pLagBounds || !pState) return kvoErrNullPtr;
    const Kvo32u sub = static_cast<Kvo32u>(subframe);
    if (sub > 3) return kvoErrSize;
    LagLimits l{};
    if (mode >= 26 || !lagLimits(mode, 0, &l)) return kvoErrRange;
    Kvo32s lag = pState->prevLag;
    int f = 0;
    adaptiveDecode(index, &f, pExcitation, &lag, pLagBounds, static_cast<int>(sub), badFrame != 0,
                   unusableFrame != 0, mode, 0, pState);
    *pDstLag = lag;
    *pDstFraction = f;
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookDecode_AMRWBE_16s(Kvo32u index, Kvo16s* pExcitation, Kvo32s* pLag,
                                                Kvo32s* pFraction, Kvo32s* pLagBounds,
                                                Kvo32s subframe, Kvo32s badFrame, Kvo16s adj) {
    if (!pExcitation || !pLag || !pFraction || !pLagBounds) return kvoErrNullPtr;
    if (static_cast<Kvo32u>(subframe) > 3) return kvoErrSize;
    if (adj < -17 || adj > 17) return kvoErrRange;
    int f = *pFraction & 3;
    Kvo32s lag = *pLag;
    adaptiveDecode(index, &f, pExcitation, &lag, pLagBounds, subframe, badFrame != 0, false, 26,
                   adj, nullptr);
    *pLag = lag;
    *pFraction = f;
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookDecodeUpdate_AMRWB_16s(Kvo32s gain, Kvo32s lag,
                                                     KvoAdaptiveDecodeState_AMRWB* pState) {
    if (!pState) return kvoErrNullPtr;
    for (int i = 0; i < 4; ++i) pState->gainHistory[i] = pState->gainHistory[i + 1];
    pState->gainHistory[4] = lo16(gain);
    for (int i = 4; i > 0; --i) pState->lagHistory[i] = pState->lagHistory[i - 1];
    pState->lagHistory[0] = lo16(lag);
    pState->prevLag = lo16(lag);
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookGainCoeff_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered,
                                                  Kvo16s* pCoeffs, Kvo16s* pDstGain, Kvo32s len) {
    if (!pTarget || !pFiltered || !pCoeffs || !pDstGain) return kvoErrNullPtr;
    if (len < 1) return kvoErrBadArg;
    int eyy, exy;
    const Kvo16s yy = hi(dot12(pFiltered, pFiltered, len, &eyy));
    const Kvo16s xy = hi(dot12(pTarget, pFiltered, len, &exy));
    pCoeffs[0] = yy;
    pCoeffs[1] = static_cast<Kvo16s>(eyy);
    pCoeffs[2] = xy;
    pCoeffs[3] = static_cast<Kvo16s>(exy);
    if (xy < 0) {
        *pDstGain = 0;
        return kvoOk;
    }
    const Kvo32s num = xy >> 1;
    Kvo32s g = num >= yy ? 32767 : (num << 15) / yy;
    g = shl32(g << 16, exy - eyy) >> 16;  // the ratio of the two exponents
    if (g > 19661) g = 19661;
    *pDstGain = static_cast<Kvo16s>(g);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
