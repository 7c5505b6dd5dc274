// AMR-WB joint gain quantiser and decoder, 3GPP TS 26.190 fixed point: the pitch gain (Q14)
// and the correction factor (Q11) of the fixed-codebook gain, whose prediction comes from a
// 4-tap MA predictor on the past quantised energies (Q10, 20 log10 units) with a mean energy
// of 30 dB.  The quantiser minimises the weighted error
//   g_p^2 <y1,y1> - 2 g_p <x,y1> + g_c^2 <y2,y2> - 2 g_c <x,y2> + 2 g_p g_c <y1,y2>
// over a 64-entry window of the 6- or 7-bit table, in aligned double precision (high 16 bits
// and low 12 bits of each term).  The target's Q enters the three terms with the code vector
// only; the alignment divides every term by 4 against overflow.  The decoder's code gain is
// 16 times the double-precision product with the innovation gain, as in its bad-frame form.
#include "amrwb/gain.h"
#include "amrwb/amrwb_pitch_tables.h"
#include "amrwb/modes.h"
#include "frame/impl.h"
#include "kernels/corr.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr Kvo16s kPred[4] = {4096, 3277, 2458, 1638};

Kvo32s dot12(const Kvo16s* x, const Kvo16s* y, int n, int* exp) {
    const Kvo64s s = corrDotExact(x, y, n);
    Kvo32s v = sat32(2 * s + 1);
    const int sh = norm32(v);
    *exp = 30 - sh;
    return shl_wrap(v, sh);
}

bool sixBit(KvoSpeechRate mode) {
    return mode == 5 || mode == 9 || mode == 25;
}

// Past quantised energy of a Q11 correction factor: 20 log10(c / 2048) in Q10.
Kvo16s quantEnergy(Kvo16s c) {
    Kvo16s e, f;
    ownLog2(c, &e, &f);
    e = static_cast<Kvo16s>(e - 11);
    const Kvo32s l = mpy32_16((Kvo32s{e} << 16) + (Kvo32s{f} << 1), 24660);
    return lo16(l >> 3);
}

void pushEnergy(Kvo16s* past, Kvo16s v) {
    past[3] = past[2];
    past[2] = past[1];
    past[1] = past[0];
    past[0] = v;
}

}  // namespace

void amrwbPredictGain(const Kvo16s* past, Kvo32s codeEnergy, bool withEnergy, Kvo16s* G, int* E) {
    Kvo32s l = 0x1e000000;
    if (withEnergy) {
        Kvo16s e, f;
        ownLog2(codeEnergy, &e, &f);
        e = static_cast<Kvo16s>(e - 25);
        // u = -3.0103 log2(energy) in Q14, doubled by the 32 x 16 product.
        Kvo32s u = mpy32_16((Kvo32s{e} << 16) + (Kvo32s{f} << 1), -24660);
        u = Add_32s(u, 2 * 30 * 8192);
        l = ShiftL_32s(u, 10);
    }
    for (int i = 0; i < 4; ++i) l = FMac_16s32s(l, kPred[i], past[i]);
    const Kvo16s g0 = hi(l);
    const Kvo32s t = FMul_16s32s(g0, 5443);
    *E = t >> 24;
    *G = lo16(ownPow2(14, static_cast<Kvo16s>((t >> 9) & 0x7fff)));
}

Kvo32s amrwbScaleCodeGain(Kvo16s G, int E, Kvo16s c) {
    const Kvo32s v = FMul_16s32s(c, G);
    const int sh = E - 10;
    if (sh >= 0) return ShiftLSat_32s(v, sh);
    return v >> (-sh > 31 ? 31 : -sh);
}

namespace impl {

KvoStatus kvosGainQuant_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pFiltered, Kvo32u qTarget,
                                  const Kvo16s* pCode, const Kvo16s* pFilteredCode,
                                  const Kvo16s* pCoeffs, Kvo16s* pPastEnergy, Kvo16s* pGainPitch,
                                  Kvo32s* pDstGainCode, Kvo32s clipFlag, Kvo32s* pDstIndex,
                                  Kvo32s len, KvoSpeechRate mode) {
    if (!pTarget || !pFiltered || !pCode || !pFilteredCode || !pCoeffs || !pPastEnergy ||
        !pGainPitch || !pDstGainCode || !pDstIndex)
        return kvoErrNullPtr;
    if (len < 1) return kvoErrBadArg;
    if (!amrwbMode(mode)) return kvoErrRange;

    const Kvo16s(*table)[2];
    const Kvo16s* sq;
    int start = 0, size = 64;
    if (sixBit(mode)) {
        table = tab::gain_sq6Tbl;
        sq = tab::pitchSq6;
        if (clipFlag == 1) size = 48;
    } else {
        table = tab::gain_sq7Tbl;
        sq = tab::pitchSq7;
        const int lim = clipFlag == 1 ? 37 : 64;
        const Kvo16s g = *pGainPitch;
        for (int i = 0; i < lim; ++i)
            if (g > table[32 + i][0]) ++start;
    }

    const int q = static_cast<int>(static_cast<Kvo16s>(qTarget));
    Kvo16s coef[5];
    int ex[5];
    coef[0] = pCoeffs[0];
    ex[0] = pCoeffs[1];
    coef[1] = Neg_16s(pCoeffs[2]);
    ex[1] = pCoeffs[3] + 1;
    int e;
    coef[2] = hi(dot12(pFilteredCode, pFilteredCode, len, &e));
    ex[2] = e - 18 + 2 * q;
    coef[3] = hi(Neg_32s(dot12(pTarget, pFilteredCode, len, &e)));
    ex[3] = e - 8 + q;
    coef[4] = hi(dot12(pFiltered, pFilteredCode, len, &e));
    ex[4] = e - 8 + q;

    // Energy of the code vector (Q9), doubled, plus 1: its log less 25 is the log of the
    // mean square amplitude.
    const Kvo32s energy = sat32(2 * corrDotExact(pCode, pCode, len) + 1);
    Kvo16s G;
    int E;
    amrwbPredictGain(pPastEnergy, energy, true, &G, &E);

    const int k = E - 10;
    int emax[5] = {ex[0] - 13, ex[1] - 14, ex[2] + 15 + 2 * k, ex[3] + k, ex[4] + 1 + k};
    int m = emax[0];
    for (int i = 1; i < 5; ++i)
        if (emax[i] > m) m = emax[i];
    Kvo32s H[5], L[5];
    for (int i = 0; i < 5; ++i) {
        int sh = m - emax[i] + 2;
        if (sh > 31) sh = 31;
        const Kvo32s v = (Kvo32s{coef[i]} * 65536) >> sh;
        H[i] = hi(v);
        L[i] = lo(v) >> 3;
    }

    Kvo32s dmin = INT32_MAX;
    int best = 0;
    for (int i = 0; i < size; ++i) {
        const Kvo16s p = table[start + i][0];
        const Kvo16s g = static_cast<Kvo16s>(mulQ15R(table[start + i][1], G));
        const Kvo16s s = sq[start + i];
        const Kvo16s t = static_cast<Kvo16s>(mulQ15R(g, p));
        const Kvo32s gg = Kvo32s{g} * g;
        const Kvo32s g2 = gg >> 15;
        Kvo64s lo12 = ((gg & 0x7fff) * H[2]) >> 3;
        lo12 +=
            Kvo64s{p} * L[1] + Kvo64s{g} * L[3] + Kvo64s{s} * L[0] + Kvo64s{t} * L[4] + g2 * L[2];
        Kvo64s d = lo12 >> 11;
        d += 2 * (Kvo64s{p} * H[1] + Kvo64s{g} * H[3] + Kvo64s{s} * H[0] + Kvo64s{t} * H[4] +
                  g2 * H[2]);
        const Kvo32s dist = sat32(d);
        if (dist < dmin) {
            dmin = dist;
            best = i;
        }
    }
    const int idx = start + best;
    const Kvo16s c = table[idx][1];
    *pDstIndex = idx;
    *pGainPitch = table[idx][0];
    *pDstGainCode = amrwbScaleCodeGain(G, E, c);
    pushEnergy(pPastEnergy, quantEnergy(c));
    return kvoOk;
}

KvoStatus kvosDecodeGain_AMRWB_16s(Kvo32s index, Kvo32u gainInnovation, Kvo16s* pDstGainPitch,
                                   Kvo32s* pDstGainCode, Kvo32s badFrame, Kvo32s previousBad,
                                   Kvo16s* pPastEnergy, Kvo16s* pPreviousCodeGain,
                                   Kvo16s* pCodeGain, KvoSpeechRate mode) {
    if (!pDstGainPitch || !pDstGainCode || !pPastEnergy || !pPreviousCodeGain || !pCodeGain)
        return kvoErrNullPtr;
    if (!amrwbMode(mode)) return kvoErrRange;
    const Kvo16s inov = static_cast<Kvo16s>(gainInnovation);
    if (badFrame != 0) {
        Kvo32s mean =
            (Kvo32s{pPastEnergy[0]} + pPastEnergy[1] + pPastEnergy[2] + pPastEnergy[3]) >> 2;
        mean -= 3072;
        if (mean < -14336) mean = -14336;
        pushEnergy(pPastEnergy, static_cast<Kvo16s>(mean));
        *pDstGainCode = FMul_16s32s(inov, *pCodeGain);
        return kvoOk;
    }
    const bool six = sixBit(mode);
    const Kvo16s* row = six ? tab::gain_sq6Tbl[index & 63] : tab::gain_sq7Tbl[index & 127];
    Kvo16s G;
    int E;
    amrwbPredictGain(pPastEnergy, 0, false, &G, &E);
    Kvo32s v = amrwbScaleCodeGain(G, E, row[1]);
    if (previousBad == 1) {
        const Kvo32s w = FMul_16s32s(*pPreviousCodeGain, 5120);
        if (v > w && v > 0x640000) v = w;
    }
    const Kvo16s pc = round16(ShiftL_32s(v, 3));
    *pDstGainPitch = row[0];
    *pPreviousCodeGain = pc;
    *pCodeGain = pc;
    *pDstGainCode = ShiftL_32s(mpy32_16(v, inov), 3);
    pushEnergy(pPastEnergy, quantEnergy(row[1]));
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
