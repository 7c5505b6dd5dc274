// GSM AMR voice activity detector, option 1 (TS 26.094): a filter bank of
// 5th- and 3rd-order all-pass sections splits the frame into nine bands;
// their levels against the background estimates give an SNR sum that is
// compared with a noise-dependent threshold, then hangover, a complex-signal
// (high-band correlation) override and the background noise update follow.
//
// Formats: samples Q0 (taken in shifted right by 2), band levels and noise
// estimates in the filter bank's scale, correlations Q15.  All 16-bit sums
// saturate, the 32-bit sums too.
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr Kvo16s kCoeff5_1 = 21955;
constexpr Kvo16s kCoeff5_2 = 6390;
constexpr Kvo16s kCoeff3 = 13363;






void filter5(Kvo16s* in0, Kvo16s* in1, Kvo16s* d) {
    Kvo16s t = sub16(*in0, mult16(kCoeff5_1, d[0]));
    const Kvo16s u = add16(d[0], mult16(kCoeff5_1, t));
    d[0] = t;
    t = sub16(*in1, mult16(kCoeff5_2, d[1]));
    const Kvo16s v = add16(d[1], mult16(kCoeff5_2, t));
    d[1] = t;
    *in0 = static_cast<Kvo16s>((Kvo32s{u} + v) >> 1);
    *in1 = static_cast<Kvo16s>((Kvo32s{u} - v) >> 1);
}

void filter3(Kvo16s* in0, Kvo16s* in1, Kvo16s* d) {
    const Kvo16s s = sub16(*in1, mult16(kCoeff3, *d));
    const Kvo16s u = add16(*d, mult16(kCoeff3, s));
    *d = s;
    *in1 = static_cast<Kvo16s>((Kvo32s{*in0} - u) >> 1);
    *in0 = static_cast<Kvo16s>((Kvo32s{*in0} + u) >> 1);
}

Kvo16s signalLevel(const Kvo16s* w, Kvo16s* carry, int count1, int count2, int stride, int offset,
                   int scale) {
    Kvo32s t1 = 0;
    for (int i = count1; i < count2; ++i) t1 = Add_32s(t1, 2 * Abs_16s(w[stride * i + offset]));
    Kvo32s t2 = Add_32s(t1, shl32(*carry, 16 - scale));
    *carry = hi(shl32(t1, scale));
    for (int i = 0; i < count1; ++i) t2 = Add_32s(t2, 2 * Abs_16s(w[stride * i + offset]));
    return hi(shl32(t2, scale));
}

void filterBank(const Kvo16s* in, KvoVAD1State_GSMAMR* st, Kvo16s* level) {
    Kvo16s w[160];
    Kvo16s d0 = st->lp5Mem[0][0], d1 = st->lp5Mem[0][1];
    for (int i = 0; i < 40; ++i) {
        const Kvo16s* x = in + 4 * i;
        Kvo16s t0 = sub16(x[0] >> 2, mult16(kCoeff5_1, d0));
        Kvo16s t1 = add16(d0, mult16(kCoeff5_1, t0));
        Kvo16s t3 = sub16(x[1] >> 2, mult16(kCoeff5_2, d1));
        Kvo16s t2 = add16(d1, mult16(kCoeff5_2, t3));
        w[4 * i] = add16(t1, t2);
        w[4 * i + 1] = sub16(t1, t2);
        d0 = sub16(x[2] >> 2, mult16(kCoeff5_1, t0));
        t1 = add16(t0, mult16(kCoeff5_1, d0));
        d1 = sub16(x[3] >> 2, mult16(kCoeff5_2, t3));
        t2 = add16(t3, mult16(kCoeff5_2, d1));
        w[4 * i + 2] = add16(t1, t2);
        w[4 * i + 3] = sub16(t1, t2);
    }
    st->lp5Mem[0][0] = d0;
    st->lp5Mem[0][1] = d1;
    for (int i = 0; i < 40; ++i) {
        filter5(&w[4 * i], &w[4 * i + 2], st->lp5Mem[1]);
        filter5(&w[4 * i + 1], &w[4 * i + 3], st->lp5Mem[2]);
    }
    for (int i = 0; i < 20; ++i) {
        filter3(&w[8 * i], &w[8 * i + 4], &st->lp3Mem[0]);
        filter3(&w[8 * i + 2], &w[8 * i + 6], &st->lp3Mem[1]);
        filter3(&w[8 * i + 3], &w[8 * i + 7], &st->lp3Mem[4]);
    }
    for (int i = 0; i < 10; ++i) {
        filter3(&w[16 * i], &w[16 * i + 8], &st->lp3Mem[2]);
        filter3(&w[16 * i + 4], &w[16 * i + 12], &st->lp3Mem[3]);
    }
    Kvo16s* c = st->subLevel;
    level[8] = signalLevel(w, &c[8], 32, 40, 4, 1, 15);
    level[7] = signalLevel(w, &c[7], 16, 20, 8, 7, 16);
    level[6] = signalLevel(w, &c[6], 16, 20, 8, 3, 16);
    level[5] = signalLevel(w, &c[5], 16, 20, 8, 2, 16);
    level[4] = signalLevel(w, &c[4], 16, 20, 8, 6, 16);
    level[3] = signalLevel(w, &c[3], 8, 10, 16, 4, 16);
    level[2] = signalLevel(w, &c[2], 8, 10, 16, 12, 16);
    level[1] = signalLevel(w, &c[1], 8, 10, 16, 8, 16);
    level[0] = signalLevel(w, &c[0], 8, 10, 16, 0, 16);
}

void noiseEstimateUpdate(KvoVAD1State_GSMAMR* st, const Kvo16s* level, Kvo16s tone) {
    if (st->complexWarning != 0 && st->statCount < 5) st->statCount = 5;
    if ((st->pitchReg & 0x6000) == 0x6000 || (tone & 0x7c00) == 0x7c00 ||
        (st->vadReg & 0x7f80) == 0) {
        st->statCount = 20;
    } else {
        Kvo16s sum = 0;
        for (int i = 0; i < 9; ++i) {
            Kvo16s a = level[i], b = st->aveLevel[i];
            Kvo16s hiV = a > b ? a : b, loV = a > b ? b : a;
            if (hiV < 184) hiV = 184;
            if (loV < 184) loV = 184;
            const int n = norm16(loV);
            const Kvo16s q = div16(static_cast<Kvo16s>(hiV >> 1), static_cast<Kvo16s>(loV << n));
            sum = add16(sum, shl16(q, n - 8));
        }
        if (sum > 1000)
            st->statCount = 20;
        else if ((st->vadReg & 0x4000) != 0 && st->statCount != 0)
            st->statCount = static_cast<Kvo16s>(st->statCount - 1);
    }
    Kvo16s alpha = 3276;
    if (st->statCount == 20)
        alpha = 32767;
    else if ((st->vadReg & 0x4000) == 0)
        alpha = 16383;
    for (int i = 0; i < 9; ++i)
        st->aveLevel[i] = add16(st->aveLevel[i], multR16(alpha, sub16(level[i], st->aveLevel[i])));

    Kvo16s up, down, plus;
    if ((st->vadReg & 0x7800) == 0 && (st->pitchReg & 0x7800) == 0 && st->complexHangCount == 0) {
        up = 1638, down = 2097, plus = 2;
    } else if (st->statCount == 0 && st->complexHangCount == 0) {
        up = 491, down = 1867, plus = 2;
    } else {
        up = 0, down = 1638, plus = 0;
    }
    for (int i = 0; i < 9; ++i) {
        const Kvo16s e = sub16(st->oldLevel[i], st->bckrEst[i]);
        Kvo16s b;
        if (e < 0)
            b = add16(add16(st->bckrEst[i], multR16(down, e)), -2);
        else
            b = add16(add16(st->bckrEst[i], multR16(up, e)), plus);
        if (b < 40) b = 40;
        if (b > 16000) b = 16000;
        st->bckrEst[i] = b;
        st->oldLevel[i] = level[i];
    }
}

Kvo16s decision(KvoVAD1State_GSMAMR* st, const Kvo16s* level, Kvo32s power, Kvo16s corrHp,
                Kvo16s tone) {
    const bool lowPower = power < 15000;

    // SNR sum over the bands.
    Kvo32s snrSum = 0;
    for (int i = 0; i < 9; ++i) {
        const Kvo16s b = st->bckrEst[i];
        const int n = norm16(b);
        const Kvo16s den = shl16(b, n);
        Kvo16s r = den > 0 ? div16(static_cast<Kvo16s>(level[i] >> 1), den) : Kvo16s{32767};
        r = shl16(r, n - 5);
        snrSum = FMac_16s32s(snrSum, r, r);
    }
    const Kvo16s snr = mult16(hi(ShiftLSat_32s(snrSum, 6)), 3641);

    Kvo16s noise = 0;
    for (int i = 0; i < 9; ++i) noise = add16(noise, st->bckrEst[i] >> 3);
    Kvo16s thr = add16(mult16(noise, -2808), 1260);
    if (thr < 720) thr = 720;

    st->vadReg = static_cast<Kvo16s>(st->vadReg >> 1);
    if (snr > thr) st->vadReg = static_cast<Kvo16s>(st->vadReg | 0x4000);

    // Smoothed high-band correlation.
    Kvo16s c = st->corrHpFast;
    Kvo16s a;
    if (c < 19660)
        a = 2621;
    else
        a = corrHp < c ? Kvo16s{6553} : Kvo16s{655};
    c = round16(FMac_16s32s(Kvo32s{c} * 65536, sub16(corrHp, c), a));
    if (c < 13106) c = 13106;
    if (lowPower) c = 13106;
    st->corrHpFast = c;

    st->complexHigh = static_cast<Kvo16s>(st->complexHigh >> 1);
    st->complexLow = static_cast<Kvo16s>(st->complexLow >> 1);
    if (!lowPower) {
        if (c > 19660) st->complexHigh = static_cast<Kvo16s>(st->complexHigh | 0x4000);
        if (c > 16383) st->complexLow = static_cast<Kvo16s>(st->complexLow | 0x4000);
    }
    st->complexHangTimer = c > 22936 ? add16(st->complexHangTimer, 1) : Kvo16s{0};
    st->complexWarning =
        ((st->complexHigh & 0x7f80) == 0x7f80 || (st->complexLow & 0x7fff) == 0x7fff) ? 1 : 0;

    noiseEstimateUpdate(st, level, tone);

    // Hangover.
    if (lowPower) {
        st->burstCount = 0;
        st->hangCount = 0;
        st->complexHangCount = 0;
        st->complexHangTimer = 0;
        return 0;
    }
    if (st->complexHangTimer > 100 && st->complexHangCount < 250) st->complexHangCount = 250;
    if (st->complexHangCount != 0) {
        st->burstCount = 4;
        st->complexHangCount = static_cast<Kvo16s>(st->complexHangCount - 1);
        return 1;
    }
    if ((st->vadReg & 0x3ff0) == 0 && c > 21298) return 1;
    if ((st->vadReg & 0x4000) == 0) {
        st->burstCount = 0;
        if (st->hangCount > 0) {
            st->hangCount = static_cast<Kvo16s>(st->hangCount - 1);
            return 1;
        }
        return 0;
    }
    st->burstCount = add16(st->burstCount, 1);
    const bool noisy = noise > 100;
    if (st->burstCount >= (noisy ? 4 : 5)) st->hangCount = noisy ? 7 : 4;
    return 1;
}

}  // namespace

namespace impl {

KvoStatus kvosVAD1_GSMAMR_16s(const Kvo16s* pSrc, KvoVAD1State_GSMAMR* pState, Kvo16s* pVadFlag,
                              Kvo16s bestCorrHp, Kvo16s toneRegister) {
    if (!pSrc || !pState || !pVadFlag) return kvoErrNullPtr;
    Kvo64s p = 0;
    for (int i = 0; i < 160; ++i) p += Kvo32s{pSrc[i]} * pSrc[i];
    const Kvo32s power = sat32(2 * p);
    if (power < 343040) pState->pitchReg = static_cast<Kvo16s>(pState->pitchReg & 0x3fff);
    if (power < 15000) pState->complexLow = static_cast<Kvo16s>(pState->complexLow & 0x3fff);
    Kvo16s level[9];
    filterBank(pSrc + 40, pState, level);
    *pVadFlag = decision(pState, level, power, bestCorrHp, toneRegister);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
