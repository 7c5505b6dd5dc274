// G.723.1 conversions between LP coefficients and line spectral frequencies.
//
// Formats: LP coefficients a[1..10] in Q13 (no leading 1); LSFs are positions
// on the 256-step grid from 0 to pi, in Q7 (0 .. 32767); the cosine table is a
// full period of 512 entries in Q14.
//
// LSF to LPC: cosine by table interpolation, then the sum and difference
// polynomials by repeated multiplication in 32 bits with the 32 x 16 product
// of the G.723.1 arithmetic; every sum, shift and rounding saturates.  LSF
// indices outside the table (negative values) wrap round the period.
//
// LPC to LSF: bandwidth expansion by 0.994^i, the order-5 polynomials scaled
// to 16 bits as one block, then a root scan over the grid rows 1 .. 255: first
// four rows at a time (rows of a reordered cosine table), narrowed by two
// halvings, then, only if that misses roots, row by row.  A zero value counts
// as positive in the sign test.
#include "impl.h"
#include "kernels/lpc.h"
#include "kernels/lpc_tables.h"
#include "numeric/arith.h"

namespace kvo {
namespace {

constexpr int kLastRow = 255;

void lsf_to_lpc(Kvo16s* v) {
    const Kvo16s* cosT = tab::CosineTbl_G723;
    Kvo16s c[10];
    for (int i = 0; i < 10; ++i) {
        const Kvo16s x = v[i];
        const int j = x >> 7;
        const Kvo16s c0 = cosT[j & 511];
        const Kvo16s c1 = cosT[(j + 1) & 511];
        const Kvo16s t = static_cast<Kvo16s>(((x & 127) << 8) + 128);
        Kvo32s acc = FMac_16s32s(Kvo32s{c0} * 65536, static_cast<Kvo16s>(c1 - c0), t);
        acc = ShiftL_32s(acc, 1);
        c[i] = Neg_16s(round16(acc));  // -cos in Q15
    }

    // P from the even cosines, Q from the odd ones; scaled by 1/8 overall.
    Kvo32s P[6], Q[6];
    Kvo32s* poly[2] = {P, Q};
    for (int h = 0; h < 2; ++h) {
        Kvo32s* X = poly[h];
        X[0] = 0x10000000;
        X[1] = FMac_16s32s(FMul_16s32s(c[h], 0x2000), c[h + 2], 0x2000);
        X[2] = Add_32s(FMul_16s32s(c[h], c[h + 2]) >> 1, 0x20000000);
        for (int i = 2; i < 5; ++i) {
            const Kvo16s cc = c[2 * i + h];
            X[i + 1] = Add_32s(mls_32s16s(X[i], cc), X[i - 1]);
            for (int j = i; j >= 2; --j) {
                Kvo32s acc = mls_32s16s(X[j - 1], cc);
                acc = Add_32s(acc, X[j] >> 1);
                acc = Add_32s(acc, X[j - 2] >> 1);
                X[j] = acc;
            }
            X[0] >>= 1;
            X[1] = Add_32s((Kvo32s{cc} * 65536) >> i, X[1]) >> 1;
        }
    }

    for (int i = 0; i < 5; ++i) {
        const Kvo32s s = Add_32s(P[i], P[i + 1]);
        Kvo32s lo = Add_32s(Sub_32s(s, Q[i]), Q[i + 1]);
        Kvo32s hi = Sub_32s(Add_32s(s, Q[i]), Q[i + 1]);
        v[i] = Neg_16s(round16(ShiftL_32s(lo, 3)));
        v[9 - i] = Neg_16s(round16(ShiftL_32s(hi, 3)));
    }
}

constexpr bool sign_differs(Kvo32s a, Kvo32s b) { return (a ^ b) < 0; }

// Value of the polynomial X (X[0 .. 5], X[5] halved) at row r, by the
// reordered cosine row: the doubled products summed with saturation after
// every term, X[5] c[0] first, then k = 1 .. 5 (the reference's order; a
// plain sum differs on loud frames).
Kvo32s eval_row(const Kvo16s* X, int r) {
    const Kvo16s* c = tab::ReorderedCOS[r];
    Kvo32s v = FMul_16s32s(X[5], c[0]);
    for (int k = 1; k < 6; ++k) v = FMac_16s32s(v, X[5 - k], c[k]);
    return v;
}

// The same value by the cosine table, saturating after each term.
Kvo32s eval_step(const Kvo16s* X, int r) {
    Kvo32s v = Kvo32s{X[5]} * 32768;
    for (int k = 1; k < 6; ++k)
        v = FMac_16s32s(v, X[5 - k], tab::CosineTbl_G723[(k * r) & 511]);
    return v;
}

// Root position between rows r - 1 (value lo) and r (value hi), Q7.
Kvo16s interpolate(Kvo32s lo, Kvo32s hi, int r) {
    const Kvo32s u = Abs_32s(lo);
    const Kvo32s z = Add_32s(u, Abs_32s(hi));
    const int n = norm32(z);
    const Kvo32s zn = shl_wrap(z, n);
    Kvo32s f = 32767;
    if (zn > 0) f = (shl_wrap(u, n) >> 9) / (zn >> 16);
    return lo16(f + ((r - 1) << 7));
}

}  // namespace

int g723LsfScan_(int step, const Kvo16s* pLPC, Kvo16s* pLSF) {
    Kvo16s a[10];
    mulNR_16s_scalar(pLPC, tab::BandwidthExpansionTbl, a, 10, 15);

    Kvo32s pq[12];
    pq[0] = pq[1] = 8192;
    for (int i = 0; i < 5; ++i) {
        pq[2 * i + 2] = -pq[2 * i] - a[i] - a[9 - i];
        pq[2 * i + 3] = pq[2 * i + 1] - a[i] + a[9 - i];
    }
    for (int i = 0; i < 10; ++i) pq[i] *= 2;
    Kvo16s s[12];
    ownAutoScale_NR_32s16s(pq, s, 12);
    Kvo16s X[2][6];
    for (int m = 0; m < 6; ++m) {
        X[0][m] = s[2 * m];
        X[1][m] = s[2 * m + 1];
    }

    // Value at row 0: all cosines 1, the coefficient sum times 2^15, saturated.
    const Kvo32s start = sat32((Kvo64s{X[0][0]} + X[0][1] + X[0][2] + X[0][3] + X[0][4] +
                                X[0][5]) * 32768);
    int count = 0;
    int poly = 0;
    Kvo32s prev = start;

    if (step != 1) {
        // Four rows at a time, the sign change narrowed by two halvings.
        int r = 0;
        while (r + 4 <= 256) {
            const int rn = r + 4;
            const Kvo32s cur = eval_row(X[poly], rn);
            if (!sign_differs(prev, cur)) {
                r = rn;
                prev = cur;
                continue;
            }
            int hiRow = rn;
            Kvo32s hiVal = cur, loVal = prev;
            for (int half = 2; half >= 1; half >>= 1) {
                const Kvo32s m = eval_row(X[poly], hiRow - half);
                if (sign_differs(loVal, m)) {
                    hiRow -= half;
                    hiVal = m;
                } else {
                    loVal = m;
                }
            }
            if (hiRow > kLastRow) break;  // the scan ends at row 255
            pLSF[count++] = interpolate(loVal, hiVal, hiRow);
            if (count == 10) return 0;
            poly ^= 1;
            r = hiRow;
            prev = eval_row(X[poly], r);
        }
        return 1;
    }

    // Row by row.
    for (int r = 1; r <= kLastRow; ++r) {
        Kvo32s cur = eval_step(X[poly], r);
        if (sign_differs(prev, cur)) {
            pLSF[count++] = interpolate(prev, cur, r);
            if (count == 10) return 0;
            poly ^= 1;
            cur = eval_step(X[poly], r);
        }
        prev = cur;
    }
    return 1;
}

int kvosLPCToLSF_Norm_G723_16s_(const Kvo16s* pLPC, Kvo16s* pLSF) {
    if (g723LsfScan_(4, pLPC, pLSF) == 0) return 0;
    return g723LsfScan_(1, pLPC, pLSF);
}

namespace impl {

KvoStatus kvosLSFToLPC_G723_16s_I(Kvo16s* pSrcDst) {
    if (!pSrcDst) return kvoErrNullPtr;
    lsf_to_lpc(pSrcDst);
    return kvoOk;
}

KvoStatus kvosLSFToLPC_G723_16s(const Kvo16s* pSrc, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    Kvo16s v[10];
    for (int i = 0; i < 10; ++i) v[i] = pSrc[i];
    lsf_to_lpc(v);
    for (int i = 0; i < 10; ++i) pDst[i] = v[i];
    return kvoOk;
}

KvoStatus kvosLPCToLSF_G723_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrcPrevLSF,
                                Kvo16s* pDstLSF) {
    if (!pSrcLPC || !pSrcPrevLSF || !pDstLSF) return kvoErrNullPtr;
    Kvo16s lsf[10];
    const Kvo16s* src = kvosLPCToLSF_Norm_G723_16s_(pSrcLPC, lsf) == 0 ? lsf : pSrcPrevLSF;
    for (int i = 0; i < 10; ++i) pDstLSF[i] = src[i];
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
