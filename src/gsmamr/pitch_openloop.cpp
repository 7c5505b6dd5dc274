// GSM AMR open-loop pitch search (TS 26.090): weighted speech of a 160-sample frame through
// A(z/g1)/A(z/g2) (LP sets Q12), then one lag per half frame (one per frame in 4.75 and 5.15)
// from three lag sections favouring short lags, or in 10.2 the correlation-weighted search with
// its median lag tracking.  The VAD option 1 form updates the tone register and gives the
// high-pass correlation maximum; the option 2 form accumulates the correlation and energy at
// the chosen lags.
//
// Arithmetic is that of the reference coder: the weighting synthesis saturates; the frame is
// scaled down by 3 bits once its doubled energy saturates (undoubled energy >= 0x40000000);
// energies and correlations of the chosen lag are saturating chains of doubled products; the
// 12.2 section value is rounded out of a saturating shift; the high-pass maximum divides the
// normalised maximum (M' >> 17) << 15 by D' >> 16; the option 2 sums add with saturation.
// The corrweight index of the median-lag weighting is held inside the table for median lags
// the coder cannot produce.
#include <cstring>

#include "frame/impl.h"
#include "gsmamr/gsmamr_pitch_tables.h"
#include "gsmamr/pitch.h"
#include "kernels/corr.h"
#include "kernels/filter.h"
#include "numeric/arith.h"

namespace kvo {
namespace amr {
namespace {

constexpr int kPitMax = 143;

struct VadIo {
    Kvo16s* tone = nullptr;     // option 1
    Kvo16s* hpOut = nullptr;    // option 1
    Kvo32s* corrSum = nullptr;  // option 2
    Kvo32s* enerSum = nullptr;  // option 2
};

// Scaled copy of the L + 143 samples ending with the block; returns the scale (3, 0, -3).
int scaleBlock(const Kvo16s* sig, int len, Kvo16s* out) {
    const int n = len + kPitMax;
    const Kvo16s* src = sig - kPitMax;
    Kvo64s e = 0;
    for (int i = 0; i < n; ++i) e += Kvo32s{src[i]} * src[i];
    if (e >= 0x40000000) {
        for (int i = 0; i < n; ++i) out[i] = static_cast<Kvo16s>(src[i] >> 3);
        return 3;
    }
    if (e >= 0x80000) {
        std::memcpy(out, src, n * sizeof(Kvo16s));
        return 0;
    }
    for (int i = 0; i < n; ++i) out[i] = static_cast<Kvo16s>(src[i] * 8);  // |x| < 2^10 here
    return -3;
}

// c[lag] = doubled correlation for lags 143 down to m; corr is indexed by lag.
void lagCorrelations(const Kvo16s* x, int len, int m, Kvo32s* corr) {
    Kvo32s tmp[kPitMax + 1];
    const int count = kPitMax - m + 1;
    kvosCrossCorr_Fwd_Low_16s32s_(x, x - kPitMax, len, tmp, count);
    for (int k = 0; k < count; ++k) corr[kPitMax - k] = tmp[k];
}

// High-pass correlation maximum of VAD option 1.
Kvo16s hpMax(const Kvo32s* corr, const Kvo16s* x, int len, int m) {
    Kvo32s mx = INT32_MIN;
    for (int lag = kPitMax - 1; lag > m; --lag) {
        Kvo32s t = double32(corr[lag]);
        t = Sub_32s(t, corr[lag + 1]);
        t = Sub_32s(t, corr[lag - 1]);
        t = Abs_32s(t);
        if (t >= mx) mx = t;
    }
    Kvo32s t0 = macChain(x, x, len);
    Kvo32s t1 = macChain(x, x - 1, len);
    t0 = ShiftL_32s(t0, 1);
    t1 = ShiftL_32s(t1, 1);
    const Kvo32s d = Abs_32s(Sub_32s(t0, t1));
    Kvo32s mn = mx;
    const int a = mx == 0 ? 0 : Norm_32s_I(&mn);
    Kvo32s dn = d;
    const int b = d == 0 ? 0 : Norm_32s_I(&dn);
    const Kvo32s num = (mn >> 17) << 15;
    const Kvo32s den = dn >> 16;
    const Kvo16s q = den == 0 ? Kvo16s{0} : sat16(num / den);
    const int s = a - 1 - b;
    if (s >= 0) return static_cast<Kvo16s>(s >= 15 ? 0 : q >> s);
    const int l = -s;
    if (q == 0) return 0;
    return l >= 15 ? Kvo16s{32767} : sat16(Kvo32s{q} << l);
}

// One open-loop estimate over the block sig (len samples, 143 samples of history before it).
Kvo16s pitchOL(KvoSpeechRate mode, const Kvo16s* sig, int m, int len, int half, VadIo& v) {
    if (v.tone) {
        if (mode == 0 || mode == 1)
            *v.tone = static_cast<Kvo16s>((*v.tone >> 2) | 0x2000);
        else
            *v.tone = static_cast<Kvo16s>(*v.tone >> 1);
    }
    Kvo16s buf[kPitMax + 160];
    const int scale = scaleBlock(sig, len, buf);
    const Kvo16s* x = buf + kPitMax;
    Kvo32s corr[kPitMax + 2];
    lagCorrelations(x, len, m, corr);

    const int lo[3] = {4 * m, 2 * m, m};
    const int hiLag[3] = {kPitMax, 4 * m - 1, 2 * m - 1};
    int lag[3];
    Kvo16s val[3];
    for (int s = 0; s < 3; ++s) {
        Kvo32s best = INT32_MIN;
        lag[s] = hiLag[s];
        for (int l = lo[s]; l <= hiLag[s]; ++l) {
            if (corr[l] > best) {
                best = corr[l];
                lag[s] = l;
            }
        }
        const Kvo32s c = corr[lag[s]];
        const Kvo16s* p = x - lag[s];
        const Kvo32s e2 = macChain(p, p, len);
        if (v.tone) {
            const Kvo16s t = round16(e2);
            if (t > 0 && Kvo64s{c} - Kvo64s{42596} * t > 0) *v.tone |= 0x4000;
        }
        Kvo32s r = e2;
        impl::kvosInvSqrt_32s_I(&r, 1);
        if (mode == 12) {
            r = ShiftL_32s(r, 1);
            Kvo32s t = mpy32(c, r);
            t = scale >= 0 ? t >> scale : ShiftL_32s(t, -scale);
            val[s] = hi(ShiftL_32s(t, 15));
        } else {
            val[s] = lo16(mpy32(c, r));
        }
    }
    int win = 0;
    Kvo16s t = static_cast<Kvo16s>(mulQ15(val[0], 27853));
    if (val[1] > t) {
        win = 1;
        t = static_cast<Kvo16s>(mulQ15(val[1], 27853));
    }
    if (val[2] > t) win = 2;

    if (v.hpOut && half == 1) *v.hpOut = hpMax(corr, x, len, m);
    if (v.corrSum) {
        const Kvo16s* p = x - lag[win];
        *v.corrSum = Add_32s(*v.corrSum, corr[lag[win]]);
        *v.enerSum = Add_32s(*v.enerSum, macChain(p, p, len));
    }
    return static_cast<Kvo16s>(lag[win]);
}

// Weighted maximum of 10.2 over lags 143 .. 20 and the open-loop gain flag.
Kvo16s lagMax(const Kvo32s* corr, const Kvo16s* x, bool weighted, int medianLag, Kvo16s* gainFlag,
              VadIo& v) {
    Kvo32s best = INT32_MIN;
    int bestLag = kPitMax;
    for (int k = 0; k < 124; ++k) {
        const int lag = kPitMax - k;
        Kvo32s p = mpy32_16(corr[lag], tab::corrweight[250 - k]);
        if (weighted) {
            int wi = 266 - medianLag - k;
            wi = wi < 0 ? 0 : (wi > 250 ? 250 : wi);
            p = mpy32_16(p, tab::corrweight[wi]);
        }
        if (p >= best) {
            best = p;
            bestLag = lag;
        }
    }
    const Kvo16s* p = x - bestLag;
    const Kvo32s t0 = macChain(x, p, 80);
    const Kvo32s e2 = macChain(p, p, 80);
    const Kvo16s t1 = round16(e2);
    *gainFlag = round16(Sub_32s(t0, 26214 * Kvo32s{t1}));
    if (v.tone) {
        *v.tone = static_cast<Kvo16s>(*v.tone >> 1);
        if (t1 > 0 && Kvo64s{t0} - Kvo64s{42596} * t1 > 0) *v.tone |= 0x4000;
    }
    if (v.corrSum) {
        *v.corrSum = Add_32s(*v.corrSum, t0);
        *v.enerSum = Add_32s(*v.enerSum, e2);
    }
    return static_cast<Kvo16s>(bestLag);
}

void openLoop(const Kvo16s* w1, const Kvo16s* w2, const Kvo16s* speech, Kvo16s* medianLag,
              Kvo16s* weightGain, Kvo16s* lagHist, Kvo16s* oldW, Kvo16s* lags, Kvo16s* flags,
              KvoSpeechRate mode, VadIo& v) {
    Kvo16s work[kPitMax + 160];
    std::memcpy(work, oldW, kPitMax * sizeof(Kvo16s));
    for (int s = 0; s < 4; ++s) {
        Kvo16s tmp[40];
        residual_sat(w1 + 11 * s, 10, speech + 10 + 40 * s, tmp, 40);
        Kvo16s* y = work + kPitMax + 40 * s;
        synth_sat(w2 + 11 * s, 10, tmp, y, 40, y - 10, 12);
    }
    if (mode != 11) flags[0] = flags[1] = 0;
    const Kvo16s* sig = work + kPitMax;
    switch (mode) {
        case 0:
        case 1:
            lags[0] = lags[1] = pitchOL(mode, sig, 20, 160, 1, v);
            break;
        case 11: {
            Kvo16s buf[kPitMax + 80];
            Kvo32s corr[kPitMax + 2];
            for (int h = 0; h < 2; ++h) {
                const bool weighted = *weightGain >= 9830;
                scaleBlock(sig + 80 * h, 80, buf);
                const Kvo16s* x = buf + kPitMax;
                lagCorrelations(x, 80, 20, corr);
                lags[h] = lagMax(corr, x, weighted, *medianLag, &flags[h], v);
                if (flags[h] < 1) {
                    *medianLag = lags[h];
                    *weightGain = static_cast<Kvo16s>(mulQ15(*weightGain, 29491));
                } else {
                    for (int i = 4; i > 0; --i) lagHist[i] = lagHist[i - 1];
                    lagHist[0] = lags[h];
                    *medianLag = ownGmed_n(lagHist, 5);
                    *weightGain = 32767;
                }
                if (h == 1 && v.hpOut) *v.hpOut = hpMax(corr, x, 80, 20);
            }
            break;
        }
        default: {
            const int m = (mode == 12 || mode == 25) ? 18 : 20;
            lags[0] = pitchOL(mode, sig, m, 80, 0, v);
            lags[1] = pitchOL(mode, sig + 80, m, 80, 1, v);
            break;
        }
    }
    std::memcpy(oldW, work + 160, kPitMax * sizeof(Kvo16s));
}

}  // namespace
}  // namespace amr

namespace impl {

KvoStatus kvosOpenLoopPitchSearchNonDTX_GSMAMR_16s(const Kvo16s* pWeighted1,
                                                   const Kvo16s* pWeighted2, const Kvo16s* pSpeech,
                                                   Kvo16s* pMedianLag, Kvo16s* pWeightGain,
                                                   Kvo16s* pLagHistory, Kvo16s* pOldWeighted,
                                                   Kvo16s* pDstLags, Kvo16s* pDstGainFlags,
                                                   KvoSpeechRate mode) {
    if (!pWeighted1 || !pWeighted2 || !pSpeech || !pMedianLag || !pWeightGain || !pLagHistory ||
        !pOldWeighted || !pDstLags || !pDstGainFlags)
        return kvoErrNullPtr;
    if (!amr::pitchModeValid(mode)) return kvoErrRange;
    amr::VadIo v;
    amr::openLoop(pWeighted1, pWeighted2, pSpeech, pMedianLag, pWeightGain, pLagHistory,
                  pOldWeighted, pDstLags, pDstGainFlags, mode, v);
    return kvoOk;
}

KvoStatus kvosOpenLoopPitchSearchDTXVAD1_GSMAMR_16s(const Kvo16s* pWeighted1,
                                                    const Kvo16s* pWeighted2, const Kvo16s* pSpeech,
                                                    Kvo16s* pToneRegister, Kvo16s* pMedianLag,
                                                    Kvo16s* pWeightGain, Kvo16s* pLagHistory,
                                                    Kvo16s* pOldWeighted, Kvo16s* pDstBestCorrHp,
                                                    Kvo16s* pDstLags, Kvo16s* pDstGainFlags,
                                                    KvoSpeechRate mode) {
    if (!pWeighted1 || !pWeighted2 || !pSpeech || !pToneRegister || !pMedianLag || !pWeightGain ||
        !pLagHistory || !pOldWeighted || !pDstBestCorrHp || !pDstLags || !pDstGainFlags)
        return kvoErrNullPtr;
    if (!amr::pitchModeValid(mode)) return kvoErrRange;
    amr::VadIo v;
    v.tone = pToneRegister;
    v.hpOut = pDstBestCorrHp;
    amr::openLoop(pWeighted1, pWeighted2, pSpeech, pMedianLag, pWeightGain, pLagHistory,
                  pOldWeighted, pDstLags, pDstGainFlags, mode, v);
    return kvoOk;
}

KvoStatus kvosOpenLoopPitchSearchDTXVAD2_GSMAMR_16s32s(
    const Kvo16s* pWeighted1, const Kvo16s* pWeighted2, const Kvo16s* pSpeech, Kvo16s* pMedianLag,
    Kvo16s* pWeightGain, Kvo16s* pLagHistory, Kvo16s* pOldWeighted, Kvo32s* pCorrSum,
    Kvo32s* pEnergySum, Kvo16s* pDstLags, Kvo16s* pDstGainFlags, KvoSpeechRate mode) {
    if (!pWeighted1 || !pWeighted2 || !pSpeech || !pMedianLag || !pWeightGain || !pLagHistory ||
        !pOldWeighted || !pCorrSum || !pEnergySum || !pDstLags || !pDstGainFlags)
        return kvoErrNullPtr;
    if (!amr::pitchModeValid(mode)) return kvoErrRange;
    amr::VadIo v;
    v.corrSum = pCorrSum;
    v.enerSum = pEnergySum;
    amr::openLoop(pWeighted1, pWeighted2, pSpeech, pMedianLag, pWeightGain, pLagHistory,
                  pOldWeighted, pDstLags, pDstGainFlags, mode, v);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
