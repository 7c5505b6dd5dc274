// G.723.1 5.3 kbit/s algebraic codebook: the correlation matrix of the
// impulse response and the depth-first search of four signed pulses.
//
// Matrix: 416 raw sums R(p, q) of the scaled response s at the positions
// p = 8i + 2k of pulse k, blocks r00 r11 r22 r33 (8 each) then r01 r02 r03
// r12 r13 r23 (64 each).  The response is halved when the doubled energy has
// a high half above 32000 (energy 0x3E808000 or more), otherwise shifted left
// by half the normalising shift of the doubled energy.  The 16-bit form holds
// the sums shifted right by 15 (the reference's upper halves of the doubled
// sums).
//
// Search: signs by pulse pairs, a threshold on the best three-pulse sums,
// then i0, i1, i2 nested with the fourth pulse on either grid; every triple
// above the threshold costs one unit of the search budget, which carries over
// between subframes (the caller starts a frame at 120, so the first subframe
// has 240).  Comparisons are strict cross-multiplications, so the first best
// in scan order stays.
#include <cstring>

#include "frame/impl.h"
#include "g723/exc.h"
#include "numeric/fixed.h"

namespace kvo {

using namespace g723;

namespace {

// Block offsets of the matrix.
constexpr int kDiag[4] = {0, 8, 16, 24};
constexpr int kR01 = 32, kR02 = 96, kR03 = 160, kR12 = 224, kR13 = 288, kR23 = 352;

void toepliz(const Kvo16s* h, Kvo32s* m) {
    Kvo64s energy = 0;
    for (int i = 0; i < kSubframe; ++i) energy += Kvo32s{h[i]} * h[i];
    const Kvo32s cor = sat32(2 * energy);
    Kvo16s s[kSubframe];
    if ((cor >> 16) > 32000) {
        for (int i = 0; i < kSubframe; ++i) s[i] = static_cast<Kvo16s>(h[i] >> 1);
    } else {
        const int k = norm32(cor) >> 1;
        for (int i = 0; i < kSubframe; ++i) s[i] = sat16(Kvo32s{h[i]} << k);
    }
    // pre[d/2][m]: sum over n < m of s[n] s[n + d], for the even distances d.
    Kvo32s pre[32][kSubframe + 1];
    for (int dd = 0; dd < 32; ++dd) {
        const int d = 2 * dd;
        Kvo32s acc = 0;
        pre[dd][0] = 0;
        for (int n = 0; n + d < kSubframe; ++n) {
            acc = add_wrap(acc, Kvo32s{s[n]} * s[n + d]);
            pre[dd][n + 1] = acc;
        }
    }
    auto R = [&](int p, int q) -> Kvo32s {
        if (p > q) {
            const int t = p;
            p = q;
            q = t;
        }
        if (q > kSubframe - 1) return 0;
        return pre[(q - p) >> 1][kSubframe - q];
    };
    for (int k = 0; k < 4; ++k)
        for (int i = 0; i < 8; ++i) m[kDiag[k] + i] = R(8 * i + 2 * k, 8 * i + 2 * k);
    const int offs[6] = {kR01, kR02, kR03, kR12, kR13, kR23};
    const int ka[6] = {0, 0, 0, 1, 1, 2}, kb[6] = {1, 2, 3, 2, 3, 3};
    for (int b = 0; b < 6; ++b)
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 8; ++j)
                m[offs[b] + 8 * i + j] = R(8 * i + 2 * ka[b], 8 * j + 2 * kb[b]);
}

void acelp_search(const Kvo16s* pCorr, Kvo32s* mtx, Kvo16s* pDstSigns, Kvo16s* pDstPositions,
                  Kvo16s* pDstGrid, Kvo16s* pCode, Kvo16s* pSearchBudget) {
    Kvo16s c[64];
    Kvo16s sign[32];
    std::memcpy(c, pCorr, sizeof(Kvo16s) * kSubframe);
    c[60] = c[61] = c[62] = c[63] = 0;
    for (int j = 0; j < 30; ++j) {
        if (Kvo32s{c[2 * j]} < -Kvo32s{c[2 * j + 1]}) {
            c[2 * j] = Neg_16s(c[2 * j]);
            c[2 * j + 1] = Neg_16s(c[2 * j + 1]);
            sign[j] = -1;
        } else {
            sign[j] = 1;
        }
    }
    sign[30] = sign[31] = 1;

    // Threshold from the lane maxima and means of the two grids.
    Kvo16s lane[6];
    for (int l = 0; l < 6; ++l) {
        Kvo16s mx = c[l];
        for (int r = 1; r < 8; ++r)
            if (c[8 * r + l] > mx) mx = c[8 * r + l];
        lane[l] = mx;
    }
    Kvo16s thr = 0;
    for (int g = 0; g < 2; ++g) {
        const Kvo16s mx = sat16(Kvo32s{sat16(Kvo32s{lane[g]} + lane[g + 2])} + lane[g + 4]);
        Kvo32s sum = 0;
        for (int r = 0; r < 8; ++r)
            sum += Kvo32s{c[8 * r + g]} + c[8 * r + g + 2] + c[8 * r + g + 4];
        const Kvo16s mean = lo16(sum >> 3);
        const Kvo16s t = sat16(Kvo32s{mean} + (Kvo32s{sat16(Kvo32s{mx} - mean)} >> 1));
        if (g == 0 || t > thr) thr = t;
    }

    // Sign folding of the off-diagonal blocks.
    const int offs[6] = {kR01, kR02, kR03, kR12, kR13, kR23};
    const int ka[6] = {0, 0, 0, 1, 1, 2}, kb[6] = {1, 2, 3, 2, 3, 3};
    for (int b = 0; b < 6; ++b)
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 8; ++j) {
                Kvo32s& v = mtx[offs[b] + 8 * i + j];
                v = (v >> 15) * sign[4 * i + ka[b]] * sign[4 * j + kb[b]];
            }
    const Kvo32s* r00 = mtx + kDiag[0];
    const Kvo32s* r11 = mtx + kDiag[1];
    const Kvo32s* r22 = mtx + kDiag[2];
    const Kvo32s* r33 = mtx + kDiag[3];
    const Kvo32s* r01 = mtx + kR01;
    const Kvo32s* r02 = mtx + kR02;
    const Kvo32s* r03 = mtx + kR03;
    const Kvo32s* r12 = mtx + kR12;
    const Kvo32s* r13 = mtx + kR13;
    const Kvo32s* r23 = mtx + kR23;

    Kvo32s t = Kvo32s{*pSearchBudget} + 120;
    Kvo32s bestSq = 0, bestAlp = 32767;
    int ip[4] = {0, 0, 0, 0}, bestGrid = 0;
    for (int i0 = 0; i0 < 8; ++i0) {
        for (int i1 = 0; i1 < 8; ++i1) {
            const Kvo16s pe1 = sat16(Kvo32s{c[8 * i0]} + c[8 * i1 + 2]);
            const Kvo16s po1 = sat16(Kvo32s{c[8 * i0 + 1]} + c[8 * i1 + 3]);
            const Kvo32s a1 = (r00[i0] >> 15) + (r11[i1] >> 15) + 2 * r01[8 * i0 + i1];
            for (int i2 = 0; i2 < 8; ++i2) {
                const Kvo16s pe = sat16(Kvo32s{pe1} + c[8 * i2 + 4]);
                const Kvo16s po = sat16(Kvo32s{po1} + c[8 * i2 + 5]);
                const int g = po > pe ? 1 : 0;
                const Kvo16s ps = g ? po : pe;
                if (ps <= thr) continue;
                const Kvo32s a = a1 + (r22[i2] >> 15) + 2 * (r02[8 * i0 + i2] + r12[8 * i1 + i2]);
                for (int i3 = 0; i3 < 8; ++i3) {
                    const Kvo16s p = sat16(Kvo32s{ps} + c[8 * i3 + 6 + g]);
                    const Kvo32s sq = p == -32768 ? 32767 : (Kvo32s{p} * p) >> 15;
                    const Kvo32s alp =
                        lo16(((r33[i3] >> 15) + a +
                              2 * (r03[8 * i0 + i3] + r13[8 * i1 + i3] + r23[8 * i2 + i3])) >>
                             4);
                    if (Kvo64s{sq} * bestAlp > Kvo64s{bestSq} * alp) {
                        bestSq = sq;
                        bestAlp = alp;
                        ip[0] = i0;
                        ip[1] = i1;
                        ip[2] = i2;
                        ip[3] = i3;
                        bestGrid = g;
                    }
                }
                if (--t < 1) goto done;
            }
        }
    }
done:
    *pSearchBudget = lo16(t);
    std::memset(pCode, 0, sizeof(Kvo16s) * kSubframe);
    for (int k = 0; k < 4; ++k) {
        const int pos = 8 * ip[k] + 2 * k + bestGrid;
        const Kvo16s sg = sign[4 * ip[k] + k];
        pDstPositions[k] = static_cast<Kvo16s>(pos);
        pDstSigns[k] = sg;
        if (pos < kSubframe) pCode[pos] = sg;
    }
    *pDstGrid = static_cast<Kvo16s>(bestGrid);
}

}  // namespace

namespace impl {

KvoStatus kvosToeplizMatrix_G723_16s32s(const Kvo16s* pImpulse, Kvo32s* pDst) {
    if (!pImpulse || !pDst) return kvoErrNullPtr;
    toepliz(pImpulse, pDst);
    return kvoOk;
}

KvoStatus kvosToeplizMatrix_G723_16s(const Kvo16s* pImpulse, Kvo16s* pDst) {
    if (!pImpulse || !pDst) return kvoErrNullPtr;
    Kvo32s m[kMatrixLen];
    toepliz(pImpulse, m);
    for (int i = 0; i < kMatrixLen; ++i) pDst[i] = sat16(m[i] >> 15);
    return kvoOk;
}

KvoStatus kvosACELPFixedCodebookSearch_G723_32s16s(const Kvo16s* pCorr, Kvo32s* pMatrix,
                                                   Kvo16s* pDstSigns, Kvo16s* pDstPositions,
                                                   Kvo16s* pDstGrid, Kvo16s* pCode,
                                                   Kvo16s* pSearchBudget) {
    if (!pCorr || !pMatrix || !pDstSigns || !pDstPositions || !pDstGrid || !pCode || !pSearchBudget)
        return kvoErrNullPtr;
    acelp_search(pCorr, pMatrix, pDstSigns, pDstPositions, pDstGrid, pCode, pSearchBudget);
    return kvoOk;
}

KvoStatus kvosACELPFixedCodebookSearch_G723_16s(const Kvo16s* pCorr, const Kvo16s* pMatrix,
                                                Kvo16s* pDstSigns, Kvo16s* pDstPositions,
                                                Kvo16s* pDstGrid, Kvo16s* pCode,
                                                Kvo16s* pSearchBudget) {
    if (!pCorr || !pMatrix || !pDstSigns || !pDstPositions || !pDstGrid || !pCode || !pSearchBudget)
        return kvoErrNullPtr;
    Kvo32s m[kMatrixLen];
    for (int i = 0; i < kMatrixLen; ++i) m[i] = Kvo32s{pMatrix[i]} * 32768;
    acelp_search(pCorr, m, pDstSigns, pDstPositions, pDstGrid, pCode, pSearchBudget);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
