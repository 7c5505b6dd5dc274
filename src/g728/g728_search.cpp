// G.728 excitation search: energies of the filtered shape code vectors, the
// shape-gain-sign search at 16, 12.8 and 9.6 kbit/s, and the 40 kbit/s
// four-state trellis-coded quantiser of the prediction residual.
//
// Data: shape code vectors Q11 (the table stores each row newest sample
// first, so time index j reads column 4 - j); impulse response Q13; energies
// kept to 16 bits; gain tables g2 = twice the gain and gsq = its square.
//
// Deliberate behaviour: a gain threshold is passed only when the correlation
// is strictly above energy times threshold (ties take the lower gain), as the
// block floating point reference does.
#include <cstring>

#include "frame/impl.h"
#include "g728/g728.h"
#include "g728/g728_tables.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

// Shape sample at time index j of a row.
inline Kvo16s shape(int row, int j) {
    return tab::shape_all[row][4 - j];
}

constexpr Kvo16s kThr16[3] = {5808, 10164, 17787};
constexpr Kvo16s kG2_128[2] = {4308, 12800};
constexpr Kvo16s kGsq_128[2] = {566, 5000};
constexpr Kvo16s kThr128[1] = {7126};
constexpr Kvo16s kG2_96[2] = {4626, 15874};
constexpr Kvo16s kGsq_96[2] = {653, 7690};
constexpr Kvo16s kThr96[1] = {8253};

Kvo32s correlate(const Kvo16s* x, int row) {
    Kvo32s c = 0;
    for (int j = 0; j < 5; ++j) c = add_wrap(c, Kvo32s{x[j]} * shape(row, j));
    return c;
}

}  // namespace

KvoStatus g728TcqSearch(const Kvo16s* pSrc, const Kvo16s* pCoef, Kvo8u* pDst, Kvo16s* pMem,
                        Kvo16s* pQuant, Kvo32s* pState, KvoG728ScaledValue invGain,
                        KvoG728ScaledValue gain, const Kvo16s (*xk)[16], const Kvo16s (*yk)[4]) {
    // Per time step and new state: predecessor, code, level, reconstruction.
    Kvo8u pred[5][4], code[5][4];
    Kvo16s lev[5][4], rec[5][4];
    Kvo32s J[4];
    for (int s = 0; s < 4; ++s) J[s] = 0x1FFFFFFF;
    J[*pState & 3] = 0;
    const Kvo16s ig = invGain.value;
    const int ige = static_cast<Kvo16s>(invGain.exp);
    const Kvo16s gv = gain.value;
    const int ge = static_cast<Kvo16s>(gain.exp);
    // Subsets tried by each path: first, second.
    static constexpr int kSub[4][2] = {{0, 2}, {1, 3}, {2, 0}, {3, 1}};
    for (int n = 0; n < 5; ++n) {
        Kvo16s p[4], r[4];
        int idx[4][2];
        Kvo16s lvl[4][2];
        Kvo32s bm[4][2];
        for (int s = 0; s < 4; ++s) {
            // Past of path s: this vector's reconstructions traced back, then pMem.
            Kvo16s y[10];
            int st = s;
            int have = 0;
            for (int t = n - 1; t >= 0 && have < 10; --t) {
                y[have++] = rec[t][st];
                st = pred[t][st];
            }
            for (int i = 19; have < 10; --i) y[have++] = pMem[i];
            Kvo32s acc = 0;
            for (int i = 0; i < 10; ++i) acc = add_wrap(acc, -Kvo32s{pCoef[i]} * y[i]);
            p[s] = g728_round16(sat32(Kvo64s{acc} * 4));
            Kvo32s prod = Kvo32s{lo16(Kvo32s{pSrc[n]} - p[s])} * ig;
            Kvo64s sh = (1 - ige) >= 0 ? (Kvo64s{prod} >> ((1 - ige) > 63 ? 63 : (1 - ige)))
                                       : shl64(prod, ige - 1 > 32 ? 32 : ige - 1);
            r[s] = sat16(sat32(sh));
            for (int k = 0; k < 2; ++k) {
                const int c = kSub[s][k];
                int i;
                if (r[s] == 32767) {
                    i = 15;
                } else {
                    i = r[s] < 0 ? 0 : (c < 2 ? 7 : 5);
                    while (i < 15 && xk[c][i] < r[s]) ++i;
                }
                idx[s][k] = i;
                lvl[s][k] = yk[i][c];
                Kvo32s e = Kvo32s{r[s]} - lvl[s][k];
                bm[s][k] = add_wrap(J[s], (e * e) >> 2);
            }
        }
        // New state: first candidate (path, which), second candidate, code offset.
        static constexpr int kTr[4][4] = {{0, 0, 2, 0}, {0, 1, 2, 1}, {1, 0, 3, 0}, {1, 1, 3, 1}};
        Kvo32s Jn[4];
        for (int ns = 0; ns < 4; ++ns) {
            int ps = kTr[ns][0], pk = kTr[ns][1];
            if (!(bm[ps][pk] < bm[kTr[ns][2]][kTr[ns][3]])) {
                ps = kTr[ns][2];
                pk = kTr[ns][3];
            }
            Jn[ns] = bm[ps][pk];
            pred[n][ns] = static_cast<Kvo8u>(ps);
            code[n][ns] = static_cast<Kvo8u>(idx[ps][pk] + ((ns & 1) ? 16 : 0));
            lev[n][ns] = lvl[ps][pk];
            Kvo64s q = Kvo64s{lvl[ps][pk]} * gv;
            q = ge >= 0 ? shl64(q, ge > 32 ? 32 : ge) : (q >> (-ge > 63 ? 63 : -ge));
            rec[n][ns] = lo16(Kvo64s{(q >> 16) + p[ps]});
        }
        std::memcpy(J, Jn, sizeof J);
    }
    // Best end state, the higher state winning a tie.
    int best;
    Kvo32s m012 = J[0] < J[1] ? J[0] : J[1];
    if (J[2] < m012) m012 = J[2];
    if (J[3] <= m012)
        best = 3;
    else if (J[2] <= (J[0] < J[1] ? J[0] : J[1]))
        best = 2;
    else if (J[1] <= J[0])
        best = 1;
    else
        best = 0;
    Kvo8u codes[5];
    Kvo16s lv[5], rc[5];
    int s = best;
    for (int n = 4; n >= 0; --n) {
        codes[n] = code[n][s];
        lv[n] = lev[n][s];
        rc[n] = rec[n][s];
        s = pred[n][s];
    }
    std::memcpy(pDst, codes, 5);
    std::memmove(pMem, pMem + 5, sizeof(Kvo16s) * 15);
    std::memcpy(pMem + 15, rc, sizeof rc);
    std::memmove(pQuant, pQuant + 5, sizeof(Kvo16s) * 3);
    std::memcpy(pQuant + 3, lv, sizeof lv);
    *pState = best;
    return kvoOk;
}

}  // namespace kvo

namespace kvo::impl {

KvoStatus kvosImpulseResponseEnergy_G728_16s(const Kvo16s* pSrc, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    for (int row = 0; row < 128; ++row) {
        Kvo32s e = 0;
        for (int j = 0; j < 5; ++j) {
            Kvo32s acc = 0;
            for (int i = 0; i <= j; ++i) acc = add_wrap(acc, Kvo32s{pSrc[i]} * shape(row, j - i));
            Kvo32s y = acc >> 14;
            e = add_wrap(e, lo32(Kvo64s{y} * y));
        }
        pDst[row] = lo16(e >> 15);
    }
    return kvoOk;
}

KvoStatus kvosCodebookSearch_G728_16s(const Kvo16s* pSrc, const Kvo16s* pEnergy, Kvo32s* pShape,
                                      Kvo32s* pGain, Kvo16s* pCode, Kvo32s rate) {
    if (!pSrc || !pEnergy || !pShape || !pGain || !pCode) return kvoErrNullPtr;
    const Kvo16s *g2, *gsq, *thr;
    int nthr;
    if (rate == 17) {
        g2 = tab::g2;
        gsq = tab::gsq;
        thr = kThr16;
        nthr = 3;
    } else if (rate == 14) {
        g2 = kG2_128;
        gsq = kGsq_128;
        thr = kThr128;
        nthr = 1;
    } else if (rate == 10) {
        g2 = kG2_96;
        gsq = kGsq_96;
        thr = kThr96;
        nthr = 1;
    } else {
        return kvoErrRange;
    }
    // The best starts at 0x7FFFFFFF; a row takes over only when strictly below.
    Kvo32s best = 0x7FFFFFFF;
    int bestRow = -1, bestGain = 0;
    auto scan = [&](int row) {
        const Kvo32s c = correlate(pSrc, row);
        const Kvo32s a = c > -c ? c : -c;
        const Kvo32s E = pEnergy[row];
        int k = 0;
        while (k < nthr && a > E * thr[k]) ++k;
        const Kvo32s a14 = (a >> 14) > 32767 ? 32767 : (a >> 14);
        const Kvo32s d = add_wrap(E * gsq[k], -(a14 * g2[k]));
        if (d < best || bestRow < 0) {
            if (d < best) best = d;
            bestRow = row;
            bestGain = k;
        }
    };
    if (rate == 17) {
        for (int r = 0; r < 128; ++r) scan(r);
    } else if (rate == 14) {
        for (int r = 64; r < 128; ++r) scan(r);
    } else {
        for (int r = 96; r < 124; r += 8)
            for (int i = 0; i < 4; ++i) scan(r + i);
    }
    const int row = bestRow;
    Kvo32s c = correlate(pSrc, row);
    int gain = bestGain;
    if (c < 1) gain += rate == 17 ? 4 : 2;
    *pShape = row;
    *pGain = gain;
    if (rate == 17)
        *pCode = static_cast<Kvo16s>(row * 8 + gain);
    else if (rate == 14)
        *pCode = static_cast<Kvo16s>((row - 64) * 4 + gain);
    else {
        const int rr = row - (((row - 96) >> 1) & -4);
        *pCode = static_cast<Kvo16s>((rr - 96) * 4 + gain);
    }
    return kvoOk;
}

}  // namespace kvo::impl
