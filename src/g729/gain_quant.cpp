// G.729 gain quantisation: the joint two-stage conjugate-structure search of the pitch gain and
// the fixed-codebook gain at 8 kbit/s and at 6.4 kbit/s (annex D), with moving-average
// prediction of the fixed-codebook energy.
//
// Data: target and filtered adaptive vector Q0, fixed vector Q13, filtered fixed vector Q12;
// past quantised energies Q10 (newest first); gains out as pitch Q14 and code Q1; raw stage
// indices out (the caller maps them to the coded indices).
//
// Arithmetic of the reference: correlations are doubled saturating chains; the unquantised best
// gains (pitch Q9, code Q2) use doubled products and one normalised division, the same code at
// both rates; the preselection works in 32 bits with the intermediate x and
// y saturated to 16 bits; the distance of each candidate pair is the sum, saturated term by term,
// of five doubled double-precision products.  The denominator's reciprocal is 32767 when the
// normalised denominator is exactly 0.5 (the reference division of equal operands), and -32767
// is used for a denominator that is not positive.  The exponent code of x.y is forced to -15
// when x.y is not positive.
#include "frame/impl.h"
#include "g729/gain.h"
#include "g729/gain_tables.h"
#include "g729/pitch.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr Kvo16s kThr1[4] = {10808, 12374, 19778, 32567};
constexpr Kvo16s kThr2[8] = {14087, 16188, 20274, 21321, 23525, 25232, 27873, 30542};
constexpr Kvo16s kThr1_6k[2] = {9919, 19675};
constexpr Kvo16s kThr2_6k[2] = {17233, 25144};

using pitch::mult2;
using pitch::shr32;

// a - b on 32-bit values, saturated.
inline Kvo32s subSat(Kvo32s a, Kvo32s b) {
    return sat32(Kvo64s{a} - b);
}

// Quotient of the normalised numerator n over the denominator, as one of the two best gains:
// the doubled numerator mantissa times the reciprocal, shifted by the exponent difference.
struct Denominator {
    Kvo16s inv;  // -1 / denominator mantissa, Q(29 - exp)
    int expInv;
};

Denominator denominator(const Kvo16s* g, const Kvo16s* e) {
    Kvo32s t1 = mult2(g[0], g[2]);
    Kvo32s t2 = mult2(g[4], g[4]);
    const int x1 = e[0] + e[2] - 1, x2 = 2 * e[4] + 1;
    Kvo32s t;
    int X;
    if (x1 > x2) {
        t = subSat(shr32(t1, x1 - x2), t2);
        X = x2;
    } else {
        t = subSat(t1, shr32(t2, x2 - x1));
        X = x1;
    }
    const int sft = Norm_32s_I(&t);
    const Kvo16s den = hi(t);
    Denominator d;
    d.inv = static_cast<Kvo16s>((den > 0 && den != 16384) ? -(0x20000000 / den) : -32767);
    d.expInv = 29 - (X + sft - 16);
    return d;
}

// One best gain: numerator 2 ga gb (exponent ea + eb) less 2 gc gd (exponent ec + ed + 1), both
// halved onto the smaller exponent; normalised; times the reciprocal and shifted into Q(qOut).
Kvo16s bestGain(Kvo16s ga, Kvo16s gb, int eab, Kvo16s gc, Kvo16s gd, int ecd,
                const Denominator& den, int qShift) {
    const Kvo32s n = mult2(ga, gb), m = mult2(gc, gd);
    const int q1 = eab, q2 = ecd + 1;
    Kvo32s u;
    int Q;
    if (q1 > q2) {
        u = subSat(shr32(n, q1 - q2 + 1), m >> 1);
        Q = q2 - 1;
    } else {
        u = subSat(n >> 1, shr32(m, q2 - q1 + 1));
        Q = q1 - 1;
    }
    const int s = Norm_32s_I(&u);
    const Kvo16s nume = hi(u);
    const int sh = (Q + s - 16) + den.expInv - qShift;
    return hi(shr32(mult2(nume, den.inv), sh));
}

struct Rate {
    bool full;       // 8 kbit/s
    int e2, e3, e4;  // alignment offsets of the code terms
    const Kvo16s (*gbk1)[2];
    const Kvo16s (*gbk2)[2];
    int ncan1, ncan2;  // candidates searched per stage
};

constexpr Rate kRate8k{true, -21, -3, -4, tab::gbk1, tab::gbk2, 4, 8};
constexpr Rate kRate6k{false, -19, -2, -3, tab::gbk1_6k, tab::gbk2_6k, 6, 6};

// Preselection at 8 kbit/s: the unquantised gains projected on the two stage axes.
void preselect8k(const Kvo16s best[2], Kvo16s gc, int* cand1, int* cand2) {
    const Kvo32s a = 63762 * Kvo32s{best[0]};
    const Kvo32s acc = (a + 55633) >> 16;
    const Kvo16s x = sat16((128 * Kvo64s{best[1]} - 2 * Kvo64s{acc} * gc) >> 14);
    const Kvo16s v = lo16((((a - 1690642) >> 16) * Kvo32s{gc}) >> 15);
    const Kvo16s y = sat16((63096 * Kvo64s{v} - ((31881 * Kvo32s{best[1]}) >> 2)) >> 14);
    const Kvo32s xs = -34206 * Kvo32s{x}, ys = -34206 * Kvo32s{y};
    int c1 = 0, c2 = 0;
    if (gc > 0) {
        while (c1 < 4 && ys > ((kThr1[c1] * Kvo32s{gc}) >> 2)) ++c1;
        while (c2 < 8 && xs > ((kThr2[c2] * Kvo32s{gc}) >> 4)) ++c2;
    } else {
        while (c1 < 4 && ys < 0) ++c1;
        while (c2 < 8 && xs < 0) ++c2;
    }
    *cand1 = c1;
    *cand2 = c2;
}

// Preselection at 6.4 kbit/s: the same projection with the annex D constants.
void preselect6k(const Kvo16s best[2], Kvo16s gc, int* cand1, int* cand2) {
    const Kvo32s a = 18756 * Kvo32s{best[0]};
    const Kvo32s acc = (a + 19322) >> 15;
    const Kvo16s x = sat16((32 * Kvo64s{best[1]} - Kvo64s{acc} * gc) >> 13);
    const Kvo16s v = lo16((((a - 659074) >> 15) * Kvo32s{gc}) >> 15);
    const Kvo16s y = sat16((26166 * Kvo64s{v} - ((18756 * Kvo32s{best[1]}) >> 3)) >> 13);
    const Kvo32s xs = -28940 * Kvo32s{x}, ys = -28940 * Kvo32s{y};
    int c1 = 0, c2 = 0;
    if (gc > 0) {
        while (c1 < 2 && ys > ((kThr1_6k[c1] * Kvo32s{gc}) >> 2)) ++c1;
        while (c2 < 2 && xs > ((kThr2_6k[c2] * Kvo32s{gc}) >> 5)) ++c2;
    } else {
        while (c1 < 2 && ys < 0) ++c1;
        while (c2 < 2 && xs < 0) ++c2;
    }
    *cand1 = c1;
    *cand2 = c2;
}

// Mpy_32_16 of the reference: sat32(sat32(2 h v) + 2 ((l v) >> 15)).
inline Kvo32s term(Kvo16s h, Kvo16s l, Kvo16s v) {
    return sat32(Kvo64s{mult2(h, v)} + 2 * ((Kvo32s{l} * v) >> 15));
}

// The whole quantiser on the five correlations.
void quantise(const Rate& r, const Kvo16s* g, const Kvo16s* e, Kvo32s codeEnergy,
              Kvo16s* pSrcDstEnergyErr, Kvo16s* pDstQGain, Kvo16s* pDstQGainIndex, bool tame) {
    Kvo16s gcode0, exp;
    ownGainPredict(pSrcDstEnergyErr, codeEnergy, &gcode0, &exp);

    const Denominator den = denominator(g, e);
    Kvo16s best[2];
    best[0] = bestGain(g[1], g[2], e[1] + e[2], g[3], g[4], e[3] + e[4], den, 24);
    if (tame && best[0] > 481) best[0] = 481;
    best[1] = bestGain(g[0], g[3], e[0] + e[3], g[1], g[4], e[1] + e[4], den, 17);

    // Predicted gain in Q4.
    Kvo16s gc;
    if (exp >= 4)
        gc = static_cast<Kvo16s>(exp - 4 > 15 ? 0 : gcode0 >> (exp - 4));
    else
        gc = hi(ShiftL_32s(gcode0, 20 - exp));

    int cand1, cand2;
    if (r.full)
        preselect8k(best, gc, &cand1, &cand2);
    else
        preselect6k(best, gc, &cand1, &cand2);

    // Align the five terms on the smallest exponent, in double precision.
    int E[5] = {e[0] + 13, e[1] + 14, e[2] + 2 * exp + r.e2, e[3] + exp + r.e3, e[4] + exp + r.e4};
    int em = E[0];
    for (int i = 1; i < 5; ++i)
        if (E[i] < em) em = E[i];
    Kvo16s ch[5], cl[5];
    for (int i = 0; i < 5; ++i) {
        const Kvo32s L = shr32(Kvo32s{g[i]} * 65536, E[i] - em);
        ch[i] = hi(L);
        cl[i] = lo(L);
    }

    Kvo32s dmin = INT32_MAX;
    int i1 = cand1, i2 = cand2;
    for (int i = 0; i < r.ncan1; ++i) {
        const Kvo16s* p1 = r.gbk1[cand1 + i];
        for (int j = 0; j < r.ncan2; ++j) {
            const Kvo16s* p2 = r.gbk2[cand2 + j];
            const Kvo16s gp = sat16(Kvo32s{p1[0]} + p2[0]);
            if (tame && gp >= 16383) continue;
            const Kvo16s t = lo16((Kvo32s{p1[1]} + p2[1]) >> 1);
            const Kvo16s gk = mult16(gcode0, t);
            Kvo32s D = term(ch[0], cl[0], mult16(gp, gp));
            D = sat32(Kvo64s{D} + term(ch[1], cl[1], gp));
            D = sat32(Kvo64s{D} + term(ch[2], cl[2], mult16(gk, gk)));
            D = sat32(Kvo64s{D} + term(ch[3], cl[3], gk));
            D = sat32(Kvo64s{D} + term(ch[4], cl[4], mult16(gk, gp)));
            if (D < dmin) {
                dmin = D;
                i1 = cand1 + i;
                i2 = cand2 + j;
            }
        }
    }

    const Kvo16s* p1 = r.gbk1[i1];
    const Kvo16s* p2 = r.gbk2[i2];
    pDstQGain[0] = sat16(Kvo32s{p1[0]} + p2[0]);
    const Kvo32s S = Kvo32s{p1[1]} + p2[1];
    const Kvo16s T = lo16(S >> 1);
    if (r.full) {
        pDstQGain[1] = g729CodeGain(T, gcode0, exp, 4);
        ownGainUpdate(pSrcDstEnergyErr, S);
    } else {
        pDstQGain[1] = g729CodeGain(T, gcode0, exp, 3);
        ownGainUpdate(pSrcDstEnergyErr, T);
    }
    pDstQGainIndex[0] = static_cast<Kvo16s>(i1);
    pDstQGainIndex[1] = static_cast<Kvo16s>(i2);
}

// The five correlations and exponents of both encoders (see the file comment for the order).
void correlations(const Kvo16s* x, const Kvo16s* y1, const Kvo16s* y2, Kvo16s* g, Kvo16s* e) {
    Kvo16s co[4], gp;
    kvosComputeAdaptiveCodebookGain_16s_(0, y1, x, co, &gp, 40);
    if (co[2] <= 0) co[3] = -15;

    alignas(16) Kvo16s y2s[40];
    for (int i = 0; i < 40; ++i) y2s[i] = static_cast<Kvo16s>(y2[i] >> 3);
    Kvo32s a = pitch::dotChain(y2s, y2s, 40, 1);
    Kvo32s b = pitch::dotChain(x, y2s, 40, 1);
    Kvo32s c = pitch::dotChain(y1, y2s, 40, 1);
    const int na = Norm_32s_I(&a), nb = Norm_32s_I(&b), nc = Norm_32s_I(&c);

    g[0] = co[0];
    e[0] = static_cast<Kvo16s>(-co[1]);
    g[1] = sat16(-Kvo32s{co[2]});
    e[1] = static_cast<Kvo16s>(-(co[3] + 1));
    g[2] = round16(a);
    e[2] = static_cast<Kvo16s>(na + 3);
    g[3] = sat16(-Kvo32s{round16(b)});
    e[3] = static_cast<Kvo16s>(nb - 7);
    g[4] = round16(c);
    e[4] = static_cast<Kvo16s>(nc - 7);
}

KvoStatus gainQuant(const Rate& r, const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcFltAdptVector,
                    const Kvo16s* pSrcFixedVector, const Kvo16s* pSrcFltFixedVector,
                    Kvo16s* pSrcDstEnergyErr, Kvo16s* pDstQGain, Kvo16s* pDstQGainIndex,
                    Kvo16s tameFlag) {
    if (!pSrcAdptTarget || !pSrcFltAdptVector || !pSrcFixedVector || !pSrcFltFixedVector ||
        !pSrcDstEnergyErr || !pDstQGain || !pDstQGainIndex)
        return kvoErrNullPtr;
    if (tameFlag != 0 && tameFlag != 1) return kvoErrRange;
    Kvo16s g[5], e[5];
    correlations(pSrcAdptTarget, pSrcFltAdptVector, pSrcFltFixedVector, g, e);
    Kvo64s en = 0;
    for (int i = 0; i < 40; ++i) en += Kvo32s{pSrcFixedVector[i]} * pSrcFixedVector[i];
    quantise(r, g, e, sat32(en), pSrcDstEnergyErr, pDstQGain, pDstQGainIndex, tameFlag == 1);
    return kvoOk;
}

}  // namespace

// Code gain of a quantised pair: the doubled product of half the code parts' sum with the
// predicted gain, shifted left by shift - exp (saturating) or right by exp - shift, high half.
Kvo16s g729CodeGain(Kvo16s halfSum, Kvo16s gcode0, int exp, int shift) {
    return hi(shr32(mult2(halfSum, gcode0), exp - shift));
}

void Qua_gain_6k(const Kvo16s* pCode, const Kvo16s* pCorr, const Kvo16s* pExp, Kvo16s* pDstQGain,
                 Kvo16s* pDstQGainIndex, Kvo16s tameFlag, Kvo16s* pSrcDstEnergyErr) {
    Kvo64s en = 0;
    for (int i = 0; i < 40; ++i) en += Kvo32s{pCode[i]} * pCode[i];
    quantise(kRate6k, pCorr, pExp, sat32(en), pSrcDstEnergyErr, pDstQGain, pDstQGainIndex,
             tameFlag == 1);
}

namespace impl {

KvoStatus kvosGainQuant_G729_16s(const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcFltAdptVector,
                                 const Kvo16s* pSrcFixedVector, const Kvo16s* pSrcFltFixedVector,
                                 Kvo16s* pSrcDstEnergyErr, Kvo16s* pDstQGain,
                                 Kvo16s* pDstQGainIndex, Kvo16s tameFlag) {
    return gainQuant(kRate8k, pSrcAdptTarget, pSrcFltAdptVector, pSrcFixedVector,
                     pSrcFltFixedVector, pSrcDstEnergyErr, pDstQGain, pDstQGainIndex, tameFlag);
}

KvoStatus kvosGainQuant_G729D_16s(const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcFltAdptVector,
                                  const Kvo16s* pSrcFixedVector, const Kvo16s* pSrcFltFixedVector,
                                  Kvo16s* pSrcDstEnergyErr, Kvo16s* pDstQGain,
                                  Kvo16s* pDstQGainIndex, Kvo16s tameFlag) {
    return gainQuant(kRate6k, pSrcAdptTarget, pSrcFltAdptVector, pSrcFixedVector,
                     pSrcFltFixedVector, pSrcDstEnergyErr, pDstQGain, pDstQGainIndex, tameFlag);
}

}  // namespace impl
}  // namespace kvo
