// G.723.1 post-processing decisions and scaling: the pitch post-filter
// decision of one subframe, the tilt compensation of the formant post filter
// and the gain control that brings the post-filtered subframe back to the
// energy of its input.
//
// Formats: excitation and speech Q0 in 16 bits; gains and scales Q15.  The
// pitch post filter measures with the 32-bit autocorrelation lag maxima of
// the G.729 pitch steps (backward and forward), normalises its five terms by
// one common shift and keeps their high halves.  Divisions are plain integer
// divisions of the guarded terms; square roots are the stepped search of the
// G.723.1 reference, whose result is even.
#include "g723/lp_lsf.h"
#include "impl.h"
#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo {

Kvo16s g723StepSqrt_(Kvo32s x) {
    Kvo32s s = x < 0x10000000 ? 0 : 16384;
    for (Kvo32s step = 8192; step >= 2; step >>= 1)
        if (Kvo64s{x} >= Kvo64s{s + step} * (s + step)) s += step;
    return static_cast<Kvo16s>(s);
}

namespace {

constexpr int kSub = 60;
constexpr Kvo16s kPostGainLimit[2] = {6144, 8192};  // 6.3 and 5.3 kbit/s

Kvo32s dot0(const Kvo16s* a, const Kvo16s* b) {
    Kvo32s r = 0;
    kvosDotProd_16s32s_Sfs(a, b, kSub, &r, 0);
    return r;
}

}  // namespace

namespace impl {

KvoStatus kvosPitchPostFilter_G723_16s(Kvo16s lag, const Kvo16s* pSrc, Kvo16s* pDelay,
                                       Kvo16s* pGain, Kvo16s* pScale, Kvo32s subframe,
                                       KvoSpeechRate rate) {
    if (!pSrc || !pDelay || !pGain || !pScale) return kvoErrNullPtr;
    if (rate != 2 && rate != 4) return kvoErrSize;
    if (subframe < 0 || subframe > 3 || lag < 18 || lag > 145) return kvoErrSize;
    const Kvo16s* p = pSrc + kSub * subframe;
    *pDelay = 0;
    *pGain = 0;
    *pScale = 32767;
    const Kvo32s L = lag < 142 ? lag : 142;

    Kvo32s cb = 0, lb = 0, cf = 0, lf = 0;
    kvosAutoCorrLagMax_Inv_16s(p, kSub, L - 3, L + 3, &cb, &lb);
    const Kvo32s tb = cb >= 1 ? -lb : 0;
    Kvo32s tf = 0;
    Kvo32s upper = 180 - kSub * subframe;
    if (L + 3 < upper) upper = L + 3;
    if (upper >= L - 3) {
        kvosAutoCorrLagMax_Fwd_16s(p, kSub, L - 3, upper, &cf, &lf);
        tf = cf > 0 ? lf : 0;
    }
    if (tb == 0 && tf == 0) return kvoOk;

    Kvo32s term[5] = {dot0(p, p), 0, 0, 0, 0};
    if (tb != 0) {
        term[1] = cb >> 1;
        term[2] = dot0(p + tb, p + tb);
    }
    if (tf != 0) {
        term[3] = cf >> 1;
        term[4] = dot0(p + tf, p + tf);
    }
    Kvo32s big = 0;
    for (Kvo32s t : term) {
        const Kvo32s a = Abs_32s(t);
        if (a > big) big = a;
    }
    const int n = norm32(big);
    Kvo16s sc[5];
    for (int i = 0; i < 5; ++i) sc[i] = hi(shl_wrap(term[i], n));

    Kvo32s off;
    Kvo16s c, e;
    const Kvo16s e0 = sc[0];
    bool forward;
    if (tb != 0 && tf != 0) {
        const Kvo32s b2 = (Kvo32s{sc[1]} * sc[1] + 16384) >> 15;
        const Kvo32s f2 = (Kvo32s{sc[3]} * sc[3] + 16384) >> 15;
        forward = Kvo64s{b2} * sc[4] <= Kvo64s{f2} * sc[2];
    } else {
        forward = tf != 0;
    }
    if (forward) {
        off = tf;
        c = sc[3];
        e = sc[4];
    } else {
        off = tb;
        c = sc[1];
        e = sc[2];
    }
    *pDelay = static_cast<Kvo16s>(off);

    if (Kvo64s{c} * c <= (Kvo64s{e0} * e) >> 2) return kvoOk;
    const Kvo16s g0 = kPostGainLimit[rate == 2 ? 1 : 0];
    Kvo32s g;
    if (c >= e) {
        g = g0;
    } else {
        const Kvo32s q = e > 0 ? (Kvo32s{c} << 15) / e : 32767;
        g = (g0 * q) >> 15;
    }
    const Kvo64s t = (Kvo64s{e0} << 15) + 2 * Kvo64s{c} * g + Kvo64s{e} * ((g * g) >> 15) + 32768;
    const Kvo64s d = t >> 16;
    Kvo32s ratio;
    if (e0 >= 2 * d || t < 0x10000)
        ratio = 32767;
    else
        ratio = static_cast<Kvo32s>((Kvo64s{e0} << 14) / d);
    const Kvo16s scale = g723StepSqrt_(ratio << 15);
    *pScale = scale;
    *pGain = static_cast<Kvo16s>((g * scale) >> 15);
    return kvoOk;
}

KvoStatus kvosTiltCompensation_G723_32s16s(Kvo16s val, const Kvo32s* pSrc, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    for (int n = 0; n < kSub; ++n) {
        const Kvo64s s = Kvo64s{pSrc[n + 1]} + 2 * Kvo64s{round16(pSrc[n])} * val + 32768;
        pDst[n] = sat16(s >> 16);
    }
    return kvoOk;
}

KvoStatus kvosGainControl_G723_16s_I(Kvo32s energy, Kvo16s* pSrcDst, Kvo16s* pGain) {
    if (!pSrcDst || !pGain) return kvoErrNullPtr;
    if (energy < 0) return kvoErrBadArg;
    Kvo16s tmp[kSub];
    kvo::kvosRShiftC_16s(pSrcDst, 2, tmp, kSub);
    Kvo32s e = 0;
    kvo::kvosDotProd_16s32s_Sfs(tmp, tmp, kSub, &e, 0);
    e = double32(e);
    Kvo32s G = 4096;
    if (e != 0 && energy != 0) {
        const int n1 = norm32(e), n2 = norm32(energy);
        const Kvo32s q = (shl_wrap(energy, n2) >> 2) / (shl_wrap(e, n1) >> 16);
        int c = 6 - (n1 - n2 + 1);
        if (c < 0) c = 0;
        const int sh = 15 - c;
        Kvo64s x = sh >= 0 ? (Kvo64s{q} << sh) : (Kvo64s{q} >> -sh);
        if (x > INT32_MAX) x = INT32_MAX;
        G = g723StepSqrt_(static_cast<Kvo32s>(x));
    }
    Kvo32s s = *pGain;
    for (int n = 0; n < kSub; ++n) {
        s = lo16((16 * s + G - s + 8) >> 4);
        const Kvo32s m = (s >> 4) + s;
        pSrcDst[n] = sat16((Kvo64s{m} * pSrcDst[n] + 1024) >> 11);
    }
    *pGain = static_cast<Kvo16s>(s);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
