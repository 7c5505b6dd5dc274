// GSM AMR subframe pitch steps (TS 26.090): impulse response, LP residual and target of a
// 40-sample subframe; the closed-loop adaptive-codebook search (normalised correlation of the
// filtered past excitation, 1/3 or 1/6 fractional refinement, lag index); the lag decoder with
// its bad-frame handling; and the adaptive-vector interpolator.  LP sets Q12, samples Q0,
// normalised correlations Q15 in 16 bits.
//
// Arithmetic is that of the reference coder: every synthesis and residual filter saturates;
// the normalised correlation uses saturating sums, a saturating shift in its recursive update
// and a saturated 16-bit result; the fractional interpolations are saturating chains of
// doubled products, rounded.  12.2 lag decoding falls back to the previous good lag in every
// bad frame and in a good delta subframe whose index is 61 or more.  Lags and fractions that
// only indices or states outside the coder's range can produce are held to 17..143 and to the
// fraction range of the resolution before the excitation is read, so the decoder never reads
// outside the documented history.
#include <cstring>

#include "frame/impl.h"
#include "gsmamr/gsmamr_pitch_tables.h"
#include "gsmamr/pitch.h"
#include "kernels/filter.h"

namespace kvo {
namespace amr {

void predLT3or6(Kvo16s* e, int lag, int frac, int len, bool thirds) {
    int g = thirds ? -2 * frac : -frac;
    const Kvo16s* x = e - lag;
    if (g < 0) {
        --x;
        g += 6;
    }
    const Kvo16s* c1 = tab::inter_6new[g];
    const Kvo16s* c2 = tab::inter_6new[6 - g];
    // No partial sum can saturate when twice the largest source magnitude times the taps'
    // magnitude sum stays in 32 bits; samples written in place (short lags) count as full scale.
    const int span = lag + 10;  // history samples before e[0] that can be read
    Kvo32s m = maxAbs16(e - span, span);
    if (lag < len + 10) m = 32768;
    const Kvo64s bound = 2 * Kvo64s{m} * (sumAbs16(c1, 10) + sumAbs16(c2, 10));
    if (bound <= INT32_MAX) {
        for (int n = 0; n < len; ++n, ++x) {
            Kvo32s s = 0;
            for (int i = 0; i < 10; ++i) s += Kvo32s{x[-i]} * c1[i] + Kvo32s{x[1 + i]} * c2[i];
            e[n] = round16(2 * s);
        }
        return;
    }
    for (int n = 0; n < len; ++n, ++x) {
        Kvo32s s = 0;
        for (int i = 0; i < 10; ++i) {
            s = FMac_16s32s(s, x[-i], c1[i]);
            s = FMac_16s32s(s, x[1 + i], c2[i]);
        }
        e[n] = round16(s);
    }
}

namespace {

constexpr int L = 40;
constexpr int kPitMax = 143;

// The standard's 1/6 interpolation filter of the normalised correlation (step 6 between taps).
constexpr Kvo16s kInter6[25] = {29519, 28316, 24906, 19838, 13896, 7945, 2755, -1127, -3459,
                                -4304, -3969, -2899, -1561, -336,  534,  970,  1023,  823,
                                516,   220,   0,     -131,  -194,  -215, 0};

struct SearchRow {
    int maxFrac, thirds, first, last, intStart, intRange, deltaStart, deltaRange, minLag;
};
constexpr SearchRow kRows[4] = {{84, 1, -2, 2, 5, 10, 5, 9, 20},
                                {84, 1, -2, 2, 3, 6, 5, 9, 20},
                                {84, 1, -2, 2, 3, 6, 10, 19, 20},
                                {94, 0, -3, 3, 3, 6, 5, 9, 18}};

constexpr const SearchRow& rowOf(KvoSpeechRate mode) {
    return mode == 0 || mode == 1 ? kRows[0]
                                  : (mode == 8 ? kRows[2] : (mode == 12 ? kRows[3] : kRows[1]));
}

constexpr bool isDelta(int subframe, KvoSpeechRate mode) {
    return subframe == 1 || subframe == 3 || (subframe == 2 && (mode == 0 || mode == 1));
}

// Normalised correlation of the target with the filtered excitation for lags a..b, stored at
// corr[lag].  x is the excitation at the subframe start.
void normCorr(const Kvo16s* exc, const Kvo16s* t, const Kvo16s* h, int a, int b, Kvo16s* corr) {
    Kvo16s y[L];
    int k = -a;
    // Convolution chains: plain sums when no partial sum can reach 32 bits.
    const bool plain = 2 * Kvo64s{maxAbs16(exc + k, L)} * sumAbs16(h, L) <= INT32_MAX;
    for (int n = 0; n < L; ++n) {
        Kvo32s s = 0;
        if (plain)
            for (int i = 0; i <= n; ++i) s += Kvo32s{exc[k + i]} * h[n - i];
        if (plain)
            s *= 2;
        else
            for (int i = 0; i <= n; ++i) s = FMac_16s32s(s, exc[k + i], h[n - i]);
        y[n] = hi(ShiftL_32s(s, 3));
    }
    int hfac = 3, scaling = 0;
    if (macChain(y, y, L) > 0x4000000) {
        for (int n = 0; n < L; ++n) y[n] = static_cast<Kvo16s>(y[n] >> 2);
        hfac = 1;
        scaling = 2;
    }
    for (int lag = a; lag <= b; ++lag) {
        Kvo32s r = macChain(y, y, L);
        impl::kvosInvSqrt_32s_I(&r, 1);
        const Kvo32s s = macChain(t, y, L);
        corr[lag] = sat16(mpy32(s, r));
        if (lag != b) {
            --k;
            const Kvo16s z = exc[k];
            for (int j = L - 1; j > 0; --j) {
                const Kvo32s p = ShiftL_32s(FMul_16s32s(z, h[j]), hfac);
                y[j] = sat16(Kvo32s{hi(p)} + y[j - 1]);
            }
            y[0] = static_cast<Kvo16s>(z >> scaling);
        }
    }
}

// Interpolated correlation at lag + fraction (fraction in sixths, -5..5).
Kvo16s interpCorr(const Kvo16s* corr, int lag, int g) {
    const Kvo16s* x = corr + lag;
    if (g < 0) {
        g += 6;
        --x;
    }
    Kvo32s s = 0;
    for (int i = 0, k = 0; i < 4; ++i, k += 6) {
        s = FMac_16s32s(s, x[-i], kInter6[g + k]);
        s = FMac_16s32s(s, x[1 + i], kInter6[6 - g + k]);
    }
    return round16(s);
}

int clampLag(int lag) {
    return lag < 17 ? 17 : (lag > kPitMax ? kPitMax : lag);
}

}  // namespace
}  // namespace amr

namespace impl {

KvoStatus kvosImpulseResponseTarget_GSMAMR_16s(const Kvo16s* pSpeech, const Kvo16s* pWeighted1,
                                               const Kvo16s* pWeighted2, const Kvo16s* pLpc,
                                               const Kvo16s* pErrorMem, const Kvo16s* pWeightedMem,
                                               Kvo16s* pDstImpulse, Kvo16s* pDstResidual,
                                               Kvo16s* pDstTarget) {
    if (!pSpeech || !pWeighted1 || !pWeighted2 || !pLpc || !pErrorMem || !pWeightedMem ||
        !pDstImpulse || !pDstResidual || !pDstTarget)
        return kvoErrNullPtr;
    constexpr int L = 40;
    const Kvo16s zero[10] = {};
    // Impulse response of A(z/g1) / (Aq(z) A(z/g2)).
    Kvo16s h[L] = {};
    std::memcpy(h, pWeighted1, 11 * sizeof(Kvo16s));
    synth_sat(pLpc, 10, h, h, L, zero, 12);
    synth_sat(pWeighted2, 10, h, h, L, zero, 12);
    // LP residual.
    Kvo16s res[L];
    residual_sat(pLpc, 10, pSpeech + 10, res, L);
    // Error signal and target.
    Kvo16s err[10 + L];
    std::memcpy(err, pErrorMem, 10 * sizeof(Kvo16s));
    synth_sat(pLpc, 10, res, err + 10, L, pErrorMem, 12);
    Kvo16s xn[L];
    residual_sat(pWeighted1, 10, err + 10, xn, L);
    synth_sat(pWeighted2, 10, xn, xn, L, pWeightedMem, 12);
    std::memcpy(pDstImpulse, h, sizeof h);
    std::memcpy(pDstResidual, res, sizeof res);
    std::memcpy(pDstTarget, xn, sizeof xn);
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookSearch_GSMAMR_16s(const Kvo16s* pTarget, const Kvo16s* pImpulse,
                                                const Kvo16s* pOpenLoopLags, Kvo16s* pLag,
                                                Kvo16s* pExcitation, Kvo16s* pDstFraction,
                                                Kvo16s* pDstIndex, Kvo16s* pDstVector,
                                                Kvo16s subframe, KvoSpeechRate mode) {
    using namespace amr;
    if (!pTarget || !pImpulse || !pOpenLoopLags || !pLag || !pExcitation || !pDstFraction ||
        !pDstIndex || !pDstVector)
        return kvoErrNullPtr;
    if (subframe < 0 || subframe > 3) return kvoErrSize;
    if (!pitchModeValid(mode) || mode == 25) return kvoErrRange;

    const SearchRow& row = rowOf(mode);
    const bool delta = isDelta(subframe, mode);
    const int prev = *pLag;
    int t0, top;
    {
        const int base = delta ? prev : pOpenLoopLags[subframe < 2 ? 0 : 1];
        const int start = delta ? row.deltaStart : row.intStart;
        const int range = delta ? row.deltaRange : row.intRange;
        t0 = base - start;
        if (t0 < row.minLag) t0 = row.minLag;
        top = t0 + range;
        if (top > kPitMax) {
            top = kPitMax;
            t0 = kPitMax - range;
        }
    }
    Kvo16s* exc = pExcitation + 154;
    Kvo16s corrBuf[kPitMax + 6];
    normCorr(exc, pTarget, pImpulse, t0 - 4, top + 4, corrBuf);

    int lag = t0;
    Kvo16s mx = corrBuf[t0];
    for (int l = t0 + 1; l <= top; ++l) {
        if (corrBuf[l] >= mx) {
            mx = corrBuf[l];
            lag = l;
        }
    }
    // Fractional refinement range.
    int p = prev;
    const bool lowDelta = delta && (mode == 0 || mode == 1 || mode == 3 || mode == 6);
    if (lowDelta) {
        if (p - t0 > 5) p = t0 + 5;
        if (top - p > 4) p = top - 4;
    }
    bool search = true;
    int fFirst = row.first, fLast = row.last;
    if (!delta && lag > row.maxFrac) {
        search = false;
    } else if (lowDelta) {
        const int dl = lag - p;
        if (dl == 0 || dl == -1) {
        } else if (dl == -2) {
            fFirst = 0;
        } else if (dl == 1) {
            fLast = 0;
        } else {
            search = false;
        }
    }
    int frac = 0;
    if (search) {
        const int step = row.thirds ? 2 : 1;
        frac = fFirst;
        Kvo16s best = interpCorr(corrBuf, lag, frac * step);
        for (int f = fFirst + 1; f <= fLast; ++f) {
            const Kvo16s v = interpCorr(corrBuf, lag, f * step);
            if (v > best) {
                best = v;
                frac = f;
            }
        }
        if (row.thirds) {
            if (frac == -2) {
                frac = 1;
                --lag;
            } else if (frac == 2) {
                frac = -1;
                ++lag;
            }
        } else if (frac == -3) {
            frac = 3;
            --lag;
        }
    }
    int index;
    if (!row.thirds) {
        index = delta ? 6 * (lag - t0) + frac + 3 : (lag < 95 ? 6 * lag + frac - 105 : lag + 368);
    } else if (!delta) {
        index = lag < 86 ? 3 * lag + frac - 58 : lag + 112;
    } else if (lowDelta) {
        const int u = 3 * lag + frac;
        if (u <= 3 * p - 6)
            index = lag - p + 5;
        else if (u < 3 * p + 3)
            index = u - (3 * p - 6) + 3;
        else
            index = lag - p + 11;
    } else {
        index = 3 * (lag - t0) + frac + 2;
    }
    *pDstIndex = static_cast<Kvo16s>(index);
    *pLag = static_cast<Kvo16s>(lag);
    *pDstFraction = static_cast<Kvo16s>(frac);
    predLT3or6(exc, lag, frac, L, row.thirds != 0);
    std::memcpy(pDstVector, exc, L * sizeof(Kvo16s));
    return kvoOk;
}

KvoStatus kvosAdaptiveCodebookDecode_GSMAMR_16s(Kvo32s index, Kvo16s* pPrevGoodLag,
                                                Kvo16s* pLagBuffer, Kvo16s* pExcitation,
                                                Kvo16s* pLag, Kvo16s* pDstVector, Kvo16s subframe,
                                                Kvo16s badFrame, Kvo16s inBackgroundNoise,
                                                Kvo16s voicedHangover, KvoSpeechRate mode) {
    using namespace amr;
    if (!pPrevGoodLag || !pLagBuffer || !pExcitation || !pLag || !pDstVector) return kvoErrNullPtr;
    if (subframe < 0 || subframe > 3) return kvoErrSize;
    if (!pitchModeValid(mode)) return kvoErrRange;
    const int idx = lo16(index);
    if (mode != 12 && (idx < 0 || idx > 511)) return kvoErrRange;

    const bool delta = isDelta(subframe, mode);
    const bool bad = badFrame != 0;
    int lag, frac;
    bool thirds = true;
    if (mode == 12) {
        thirds = false;
        const int q6 = (idx * 5462 + 27310) >> 15;
        if (delta) {
            int t0 = *pLag - 5;
            if (t0 < 18) t0 = 18;
            if (t0 + 9 >= 144) t0 = 134;
            lag = t0 + q6 - 1;
            frac = idx - 6 * q6 + 3;
        } else if (idx >= 463) {
            lag = idx - 368;
            frac = 0;
        } else {
            lag = q6 + 17;
            frac = idx - 6 * q6 + 3;
        }
        lag = clampLag(lag);
        *pLag = static_cast<Kvo16s>(lag);
        if (bad || (delta && idx >= 61)) {
            *pLagBuffer = static_cast<Kvo16s>(lag);
            frac = 0;
            lag = clampLag(*pPrevGoodLag);
            *pLag = static_cast<Kvo16s>(lag);
        }
    } else {
        const int d = mode == 8 ? 10 : 5, r = mode == 8 ? 19 : 9;
        int t0 = *pPrevGoodLag - d;
        if (t0 < 20) t0 = 20;
        int top = t0 + r;
        if (top > kPitMax) {
            top = kPitMax;
            t0 = kPitMax - r;
        }
        const int q3 = (idx * 10923 + 21846) >> 15;
        if (!delta) {
            if (idx >= 197) {
                lag = idx - 112;
                frac = 0;
            } else {
                lag = q3 + 19;
                frac = idx - 3 * q3 + 1;
            }
        } else if (!(mode == 0 || mode == 1 || mode == 3 || mode == 6)) {
            lag = t0 + q3 - 1;
            frac = idx - 3 * q3 + 1;
        } else {
            int p = *pPrevGoodLag;
            if (p - t0 > 5) p = t0 + 5;
            if (top - p > 4) p = top - 4;
            if (idx < 4) {
                lag = idx + p - 5;
                frac = 0;
            } else if (idx >= 12) {
                lag = idx + p - 11;
                frac = 0;
            } else {
                const int q = (10923 * idx - 54615) >> 15;
                lag = p + q - 1;
                frac = idx - 3 * q - 6;
            }
        }
        lag = clampLag(lag);
        *pLag = static_cast<Kvo16s>(lag);
        *pLagBuffer = static_cast<Kvo16s>(lag);
        if (bad) {
            if (*pPrevGoodLag < kPitMax) *pPrevGoodLag = static_cast<Kvo16s>(*pPrevGoodLag + 1);
            frac = 0;
            *pLag = *pPrevGoodLag;
            if (inBackgroundNoise != 0 && voicedHangover > 4 &&
                (mode == 0 || mode == 1 || mode == 3))
                *pLag = *pLagBuffer;
            lag = clampLag(*pLag);
            *pLag = static_cast<Kvo16s>(lag);
        }
    }
    // A 12.2 index far outside 0..511 can give a fraction outside -2..3: held in range.
    if (thirds)
        frac = frac < -1 ? -1 : (frac > 1 ? 1 : frac);
    else
        frac = frac < -2 ? -2 : (frac > 3 ? 3 : frac);
    Kvo16s* exc = pExcitation + 154;
    predLT3or6(exc, lag, frac, L, thirds);
    std::memcpy(pDstVector, exc, L * sizeof(Kvo16s));
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
