// Long-term (pitch) post-filters of the G.729 decoder, one 40-sample subframe at a time:
//   - the main-body filter with a 1/8-sample delay search around the decoded pitch (short
//     4-tap interpolation for the search, 16-tap interpolation for the chosen fraction), a
//     prediction-gain test and the harmonic gain 1/(1 + gamma) at most;
//   - the annex A harmonic filter on integer lags of the A(z/g) residual;
//   - the annex B entry, which computes the A(z/0.55) residual and runs the main filter on
//     active-speech frames only.
//
// Data: residual samples Q0; the search works on a copy justified on 13 bits.  Correlations are
// the doubled products of the fractional arithmetic; energies and correlations are brought to
// 16 bits with their shifts kept beside them (num, den, sh_num, sh_den).  The order of the
// reference arithmetic is kept where it can saturate: rescaling of the interpolated vector is a
// saturating shift, the output weight 32768 - g saturates to 32767 when g is 0, and the
// criteria products are the truncated 32 x 16 bit products of the reference.
#include <cstring>

#include "impl.h"
#include "kernels/corr.h"
#include "numeric/fixed.h"
#include "numeric/vector.h"
#include "post.h"
#include "post_tables.h"

namespace kvo {

void postLagMaxInv(const Kvo16s* src, int len, int lower, int upper, Kvo32s* pMax, int* pLag) {
    Kvo32s best = INT32_MIN;
    bool have = false;
    int lag = 0;
    for (int t = lower; t <= upper; ++t) {
        const Kvo32s s = corrDotWrap(src, src - t, len);
        if (!have || s > best) {
            best = s;
            lag = t;
            have = true;
        }
    }
    *pMax = have ? double32(best) : INT32_MIN;
    *pLag = lag;
}

namespace {

constexpr int kHist = 152;                 // residual history read by the 1/8 resolution filter
constexpr int kWork = kHist + kPostSubfr;  // 192 samples of the working copy
constexpr int kRow = kPostSubfr + 1;       // 41 samples of each short-interpolation row
constexpr int kResOffset = 154;            // subframe start in the annex A/B residual buffer

// Brings a non-negative 32-bit value to 16 bits: returns the right shift (0 or more) and
// stores the shifted value.
inline int to16(Kvo32s x, Kvo16s* v) {
    int sh = 16 - norm32(x);
    if (sh < 0) sh = 0;
    *v = lo16(x >> sh);
    return sh;
}

// Exact dot product saturated to 32 bits, doubled with saturation (a chain of L_mac whose
// terms are all of one sign, or that cannot overflow on the 13-bit working signal).
inline Kvo32s dot2(const Kvo16s* a, const Kvo16s* b, int n) {
    return sat32(2 * corrDotExact(a, b, n));
}

// Interpolation filter: y[k] = round15 of the 32-bit sum of h[i] x[k + i], i < taps,
// low 16 bits (the rounded correlation of kvosCrossCorr_NR_16s).
inline void interp(const Kvo16s* h, int taps, const Kvo16s* x, Kvo16s* y, int count) {
    for (int k = 0; k < count; ++k) {
        Kvo32s s = 0;
        for (int i = 0; i < taps; ++i) s = add_wrap(s, Kvo32s{h[i]} * x[k + i]);
        y[k] = lo16(add_wrap(s, 16384) >> 15);
    }
}

// Harmonic gain from the numerator and denominator of the chosen delay, brought to one scale:
// g = 1 / (1 + gamma num/den) in Q15, at most 1 / (1 + gamma).
Kvo16s harmonicGain(Kvo16s gamma, Kvo16s num, Kvo16s den, int shNum, int shDen) {
    if (shNum > shDen)
        den = static_cast<Kvo16s>(den >> (shNum - shDen));
    else
        num = static_cast<Kvo16s>(num >> (shDen - shNum));
    Kvo32s u;
    if (num < den) {
        u = gamma == 16384 ? num >> 2 : lo16((Kvo32s{gamma} * num + 16384) >> 15) >> 1;
    } else {
        if (gamma == 16384) return 21845;
        u = lo16((Kvo32s{gamma} * den + 16384) >> 15) >> 1;
    }
    const Kvo32s t = den >> 1;
    const Kvo32s sum = u + t;
    if (sum == t || sum < 1) return 32767;
    return postDivS(t, sum);
}

// The 1/8 resolution long-term post filter; arguments already checked.  Returns the delay used
// (0 when the filter does not apply, pDst then a copy of the subframe).
Kvo16s ltpFilter(Kvo16s gamma, int delay, const Kvo16s* pSrc, Kvo16s* pDst) {
    alignas(16) Kvo16s w[kWork];
    alignas(16) Kvo16s rows[8][kRow + 7];  // rows[r] for phases 1..7
    alignas(16) Kvo16s ylong[kPostSubfr];
    Kvo32s dA[8], dB[8];

    // Justify the 192 samples on 13 bits.
    const Kvo16s* x = pSrc - kHist;
    Kvo32s v = 0;
    for (int i = 0; i < kWork; ++i) v |= x[i] == -32768 ? 32767 : (x[i] < 0 ? -x[i] : x[i]);
    const int sh = 3 - postNorm16(v);
    if (sh > 0) {
        for (int i = 0; i < kWork; ++i) w[i] = static_cast<Kvo16s>(x[i] >> sh);
    } else if (sh < 0) {
        for (int i = 0; i < kWork; ++i) w[i] = lo16(shl_wrap(x[i], -sh));
    } else {
        std::memcpy(w, x, sizeof w);
    }
    const Kvo16s* s = w + kHist;

    auto copyOut = [&]() -> Kvo16s {
        std::memcpy(pDst, pSrc, kPostSubfr * sizeof(Kvo16s));
        return 0;
    };

    // Energy of the subframe.
    Kvo32s e0l = dot2(s, s, kPostSubfr);
    if (e0l == 0) return copyOut();
    Kvo16s e0;
    const int she = to16(e0l, &e0);

    // Best integer delay around the decoded one.
    Kvo32s c;
    int T;
    postLagMaxInv(s, kPostSubfr, delay - 1, delay + 1, &c, &T);
    if (c <= 0) return copyOut();
    const Kvo32s d0 = dot2(s - T, s - T, kPostSubfr);
    if (d0 <= 0) return copyOut();

    // Short interpolation around T for the seven fractions, and the two candidate energies
    // of each (delays T + 1 - r/8 from y[0..39] and T - r/8 from y[1..40]).
    Kvo32s m = d0;
    for (int r = 1; r < 8; ++r) {
        interp(tab::tab_hup_s[7 - r], 4, s - T - 2, rows[r], kRow);
        const Kvo64s f = corrDotExact(rows[r] + 1, rows[r] + 1, kPostSubfr - 1);
        const Kvo32s y0 = rows[r][0], y40 = rows[r][kPostSubfr];
        dA[r] = sat32(2 * (f + y0 * y0));
        dB[r] = sat32(2 * (f + y40 * y40));
        if (dA[r] > m) m = dA[r];
        if (dB[r] > m) m = dB[r];
    }
    if (m < 32768) return copyOut();
    const int shd = 16 - norm32(m);
    const int shn = shd > she ? shd : she;

    // The integer delay is the first best; every fraction must beat it strictly on
    // num^2 / den, compared by cross products.
    Kvo16s cb = lo16(c >> shn);
    Kvo32s nb = sat32(2 * (Kvo64s{cb} * cb));
    Kvo16s db = lo16(d0 >> shd);
    int phase = 0, flag = 1;
    for (int r = 1; r < 8; ++r) {
        Kvo32s cc[2];
        kvosCrossCorr_Inv_16s32s_(s, rows[r] + 1, kPostSubfr, cc, 2);
        const Kvo32s corr[2] = {cc[1], cc[0]};  // flag 0: s[i] y[i]; flag 1: s[i] y[i + 1]
        const Kvo32s den[2] = {dA[r], dB[r]};
        for (int f = 0; f < 2; ++f) {
            if (corr[f] <= 0) continue;
            const Kvo16s cn = lo16(corr[f] >> shn);
            const Kvo32s nn = sat32(2 * (Kvo64s{cn} * cn));
            const Kvo16s dn = lo16(den[f] >> shd);
            if (postMpy32x16(nn, db) > postMpy32x16(nb, dn)) {
                cb = cn;
                nb = nn;
                db = dn;
                phase = r;
                flag = f;
            }
        }
    }

    // Prediction gain test: num^2 >= 0.5 ener den, aligned by the shifts.
    if (cb == 0 || db <= 1) return copyOut();
    {
        Kvo32s left = sat32(2 * (Kvo64s{db} * e0));
        Kvo32s right = nb;
        const int t = 2 * shn - she - shd + 1;
        if (t < 0)
            right = postShr32(right, -t);
        else if (t > 0)
            left = postShr32(left, t);
        if (right < left) return copyOut();
    }
    const int L = T - flag + 1;

    // Delayed vector, numerator and denominator of the chosen filter.
    const Kvo16s* y;
    Kvo16s num = cb, den = db;
    int shNum = shn, shDen = shd;
    alignas(16) Kvo16s yres[kPostSubfr];
    if (phase == 0) {
        y = pSrc - L;
    } else {
        interp(tab::tab_hup_l[7 - phase], 16, s - L - 7, ylong, kPostSubfr);
        Kvo32s n2l = double32(sat32(corrDotExact(ylong, s, kPostSubfr)));
        Kvo16s n2 = 0;
        int sh2 = 0;
        if (n2l >= 0) sh2 = to16(n2l, &n2);
        Kvo16s d2;
        const int shd2 = to16(dot2(ylong, ylong, kPostSubfr), &d2);

        bool useLong = false;
        if (d2 != 0) {
            Kvo32s left = postMpy32x16(sat32(2 * (Kvo64s{n2} * n2)), db);
            Kvo32s right = postMpy32x16(sat32(2 * (Kvo64s{cb} * cb)), d2);
            const int sl = shd + 2 * sh2, sr = shd2 + 2 * shn;
            if (sl < sr)
                left = postShr32(left, sr - sl);
            else if (sr < sl)
                right = postShr32(right, sl - sr);
            useLong = left > right;
        }
        const Kvo16s* yv;
        if (useLong) {
            num = n2;
            den = d2;
            shNum = sh2;
            shDen = shd2;
            yv = ylong;
        } else {
            yv = rows[phase] + flag;
        }
        // Back to the scale of the residual (saturating shift left, as the reference shl).
        for (int n = 0; n < kPostSubfr; ++n)
            yres[n] = sh > 0 ? postShl16(yv[n], sh) : static_cast<Kvo16s>(yv[n] >> -sh);
        y = yres;
    }

    // Output: g x + (1 - g) y with the weight 32768 - g saturated to 16 bits.
    const Kvo16s g = harmonicGain(gamma, num, den, shNum, shDen);
    const Kvo32s g1 = g == 0 ? 32767 : 32768 - g;
    for (int n = 0; n < kPostSubfr; ++n)
        pDst[n] = sat16((Kvo32s{g} * pSrc[n] + g1 * y[n] + 16384) >> 15);
    return static_cast<Kvo16s>(L);
}

// Annex A harmonic filter on the residual at pRes (143 samples of history); lag window
// [lower, upper].
void harmonicFilterA(const Kvo16s* pRes, int lower, int upper, Kvo16s* pDst) {
    constexpr int kHistA = 143;
    alignas(16) Kvo16s w[kHistA + kPostSubfr];
    for (int i = 0; i < kHistA + kPostSubfr; ++i) w[i] = static_cast<Kvo16s>(pRes[i - kHistA] >> 2);
    const Kvo16s* s = w + kHistA;

    Kvo32s c;
    int L;
    postLagMaxInv(s, kPostSubfr, lower, upper, &c, &L);
    if (c < 1) c = 0;
    const Kvo32s ed = sat32(1 + 2 * corrDotExact(s - L, s - L, kPostSubfr));
    const Kvo32s es = sat32(1 + 2 * corrDotExact(s, s, kPostSubfr));

    Kvo32s mx = c;
    if (ed > mx) mx = ed;
    if (es > mx) mx = es;
    const int j = norm32(mx);
    const Kvo16s cm = round16(shl_wrap(c, j));
    const Kvo16s en = round16(shl_wrap(ed, j));
    const Kvo16s en0 = round16(shl_wrap(es, j));

    // Prediction gain below 3 dB: no filtering.
    if (2 * Kvo64s{cm} * cm < Kvo64s{en} * en0) {
        std::memcpy(pDst, pRes, kPostSubfr * sizeof(Kvo16s));
        return;
    }
    Kvo16s g0, gain;
    if (cm > en) {
        g0 = 21845;  // 1 / (1 + 0.5)
        gain = 10923;
    } else {
        const Kvo32s a = cm >> 2;
        const Kvo32s b = a + (en >> 1);
        if (b > 0) {
            gain = postDivS(a, b);
            g0 = static_cast<Kvo16s>(32767 - gain);
        } else {
            gain = 0;
            g0 = 32767;
        }
    }
    for (int n = 0; n < kPostSubfr; ++n)
        pDst[n] = sat16(postMult(g0, pRes[n]) + postMult(gain, pRes[n - L]));
}

}  // namespace

namespace impl {

KvoStatus kvosLongTermPostFilter_G729_16s(Kvo16s gammaFactor, Kvo32s delay, const Kvo16s* pSrc,
                                          Kvo16s* pDst, Kvo16s* pResultVoice) {
    if (!pSrc || !pDst || !pResultVoice) return kvoErrNullPtr;
    if (delay < 18 || delay > 143) return kvoErrRange;
    if (static_cast<Kvo16u>(gammaFactor) > 16384) return kvoErrRange;
    *pResultVoice = ltpFilter(gammaFactor, delay, pSrc, pDst);
    return kvoOk;
}

KvoStatus kvosLongTermPostFilter_G729A_16s(Kvo32s delay, const Kvo16s* pSrcSpch,
                                           const Kvo16s* pSrcLPC, Kvo16s* pSrcDstResidual,
                                           Kvo16s* pDst) {
    if (!pSrcSpch || !pSrcLPC || !pSrcDstResidual || !pDst) return kvoErrNullPtr;
    const int t = static_cast<Kvo16s>(delay);
    if (t < 18 || t > 145) return kvoErrRange;
    Kvo16s* res = pSrcDstResidual + kResOffset;
    impl::kvosResidualFilter_G729_16s(pSrcSpch, pSrcLPC, res);
    int lower = t - 3, upper = t + 3;
    if (upper > 143) {
        upper = 143;
        lower = 137;
    }
    harmonicFilterA(res, lower, upper, pDst);
    return kvoOk;
}

KvoStatus kvosLongTermPostFilter_G729B_16s(Kvo32s delay, const Kvo16s* pSrcSpch,
                                           const Kvo16s* pSrcLPC, Kvo16s* pSrcDstResidual,
                                           Kvo16s* pDst, Kvo16s* pVoice, Kvo16s frameType) {
    if (!pSrcSpch || !pSrcLPC || !pSrcDstResidual || !pDst || !pVoice) return kvoErrNullPtr;
    const int t = static_cast<Kvo16u>(delay);
    if (t >= 144 || frameType < 0 || frameType > 2) return kvoErrRange;
    // An active frame needs a delay the 1/8 resolution filter accepts: refused here, before
    // the residual is written, rather than half-way through.
    if (frameType == 1 && t < 18) return kvoErrRange;

    alignas(16) Kvo16s a2[11];
    impl::kvosMul_NR_16s_Sfs(pSrcLPC, tab::facGamma2_pst, a2, 11, 15);
    Kvo16s* res = pSrcDstResidual + kResOffset;
    impl::kvosResidualFilter_G729_16s(pSrcSpch, a2, res);
    if (frameType == 1) {
        const Kvo16s used = ltpFilter(16384, t, res, pDst);
        *pVoice = used != 0 ? 1 : 0;
    } else {
        std::memmove(pDst, res, kPostSubfr * sizeof(Kvo16s));
        *pVoice = 0;
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
