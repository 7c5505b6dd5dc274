// AMR-WB immittance spectral pairs (3GPP TS 26.190 fixed point):
//  - LPC <-> ISP: the sum and difference polynomials F1, F2 evaluated by a Chebyshev
//    recursion in double-precision (high part >> 15, low 15 bits) on a 100-point cosine grid,
//    with two bisections and a linear interpolation per root; ISP -> LPC by expanding the
//    products of second-order sections in Q23 (Q21 and a final doubling shift for the
//    20-coefficient high-band filter);
//  - ISP <-> ISF through the 128-step cosine table and its inverse slopes;
//  - the split multistage vector quantiser of the 16 ISF with moving-average prediction
//    (factor 1/3): 46-bit form (stage 1 split 9 + 7 with four survivors each, stage 2 in five
//    parts) and the 36-bit form of 6.60 kbit/s and comfort noise, the erasure concealment
//    of the decoder and the 5-part comfort-noise quantiser.
// ISP Q15 cosines; ISF Q15 of 0..6400 Hz (16384 = 6400 Hz), the last entry at half scale;
// LP coefficients Q12 with a[0] = 4096.
#include <cstring>

#include "amrwb/isf_tables.h"
#include "amrwb/modes.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr int kOrder = 16;
constexpr Kvo16s kPredFactor = 10923;  // 1/3 in Q15
constexpr Kvo16s kIsfGap = 128;

constexpr Kvo16s kMeanIsf[kOrder] = {738,  1326, 2336,  3578,  4596,  5662,  6711,  7730,
                                     8750, 9753, 10705, 11728, 12833, 13971, 15043, 4037};
constexpr Kvo16s kMeanIsfNoise[kOrder] = {478,  1100, 2213,  3267,  4219,  5222,  6198,  7240,
                                          8229, 9153, 10098, 11108, 12144, 13184, 14165, 3803};

constexpr Kvo16s predict(Kvo16s v) {
    return static_cast<Kvo16s>((Kvo32s{v} * kPredFactor) >> 15);
}

// Stability pass: going up from min = gap, an entry below min is raised to it and min
// becomes the entry plus the gap (saturating), over the first n entries.
void reorder(Kvo16s* x, Kvo16s gap, int n) {
    Kvo16s lo = gap;
    for (int i = 0; i < n; ++i) {
        if (x[i] < lo) x[i] = lo;
        lo = sat16(Kvo32s{x[i]} + gap);
    }
}

// Sum of doubled squared differences with saturation at every step (x - row, saturating).
Kvo32s distance(const Kvo16s* x, const Kvo16s* row, int dim) {
    Kvo32s d = 0;
    for (int j = 0; j < dim; ++j) {
        const Kvo16s t = sat16(Kvo32s{x[j]} - row[j]);
        d = FMac_16s32s(d, t, t);
    }
    return d;
}

// First row of the smallest distance (strict <).
template <size_t W>
int search(const Kvo16s* x, const Kvo16s (*table)[W], int rows, int dim, Kvo32s* best) {
    Kvo32s lo = INT32_MAX;
    int index = 0;
    for (int r = 0; r < rows; ++r) {
        const Kvo32s d = distance(x, table[r], dim);
        if (d < lo) lo = d, index = r;
    }
    *best = lo;
    return index;
}

// The four best rows of a stage-1 table, kept sorted by insertion.
template <size_t W>
void survivors(const Kvo16s* x, const Kvo16s (*table)[W], int rows, int dim, int surv[4]) {
    Kvo32s dist[4] = {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX};
    for (int k = 0; k < 4; ++k) surv[k] = k;
    for (int r = 0; r < rows; ++r) {
        const Kvo32s d = distance(x, table[r], dim);
        for (int k = 0; k < 4; ++k) {
            if (d < dist[k]) {
                for (int l = 3; l > k; --l) dist[l] = dist[l - 1], surv[l] = surv[l - 1];
                dist[k] = d;
                surv[k] = r;
                break;
            }
        }
    }
}

// A stage-2 part: entries [first, first + dim) searched in a table.
struct Part {
    int first, dim, rows;
    const Kvo16s* table;
    int width;
};
template <size_t W>
constexpr Part part(int first, int dim, int rows, const Kvo16s (*t)[W]) {
    return {first, dim, rows, &t[0][0], static_cast<int>(W)};
}

int search_part(const Kvo16s* x, const Part& p, Kvo32s* best) {
    Kvo32s lo = INT32_MAX;
    int index = 0;
    for (int r = 0; r < p.rows; ++r) {
        const Kvo32s d = distance(x + p.first, p.table + r * p.width, p.dim);
        if (d < lo) lo = d, index = r;
    }
    *best = lo;
    return index;
}

constexpr Part kStage2Wide[5] = {
    part(0, 3, 64, tab::QCdbk21ISFTbl), part(3, 3, 128, tab::QCdbk22ISFTbl),
    part(6, 3, 128, tab::QCdbk23ISFTbl), part(9, 3, 32, tab::QCdbk24ISFTbl),
    part(12, 4, 32, tab::QCdbk25ISFTbl)};
constexpr Part kStage2Narrow[3] = {part(0, 5, 128, tab::QCdbk21ISF36bTbl),
                                   part(5, 4, 128, tab::QCdbk22ISF36bTbl),
                                   part(9, 7, 64, tab::QCdbk23ISF36bTbl)};
constexpr Part kNoise[5] = {
    part(0, 2, 64, tab::QCdbk1ISFnoiseTbl), part(2, 3, 64, tab::QCdbk2ISFnoiseTbl),
    part(5, 3, 64, tab::QCdbk3ISFnoiseTbl), part(8, 4, 32, tab::QCdbk4ISFnoiseTbl),
    part(12, 4, 32, tab::QCdbk5ISFnoiseTbl)};

bool narrow_form(Kvo32s mode) {
    return mode == 5 || mode == 25;
}

// Stage-1 rows and the stage-2 rows named by the indices (a clear bit of `keep` per part)
// into e; indices outside a table are taken modulo its size.
void gather(const Kvo16s* idx, bool narrow, unsigned keep, Kvo16s e[kOrder]) {
    const int i0 = idx[0] & 255, i1 = idx[1] & 255;
    for (int j = 0; j < 9; ++j) e[j] = tab::QCdbk1ISFTbl[i0][j];
    for (int j = 0; j < 7; ++j) e[9 + j] = tab::QCdbk2ISFTbl[i1][j];
    const Part* parts = narrow ? kStage2Narrow : kStage2Wide;
    const int n = narrow ? 3 : 5;
    for (int k = 0; k < n; ++k) {
        if (!(keep & (1u << k))) continue;
        const Part& p = parts[k];
        const Kvo16s* row = p.table + (idx[2 + k] & (p.rows - 1)) * p.width;
        for (int j = 0; j < p.dim; ++j) e[p.first + j] = sat16(Kvo32s{e[p.first + j]} + row[j]);
    }
}

// Normal decoding of a gathered residual: prediction, memory, history, stability.
void reconstruct(const Kvo16s e[kOrder], Kvo16s* pIsfQ, Kvo16s* pPredMem, Kvo16s* pHistory) {
    Kvo16s q[kOrder];
    for (int i = 0; i < kOrder; ++i)
        q[i] = sat16(Kvo32s{e[i]} + kMeanIsf[i] + predict(pPredMem[i]));
    std::memcpy(pPredMem, e, sizeof q);
    if (pHistory) {
        std::memmove(pHistory + kOrder, pHistory, 2 * sizeof q);
        std::memcpy(pHistory, q, sizeof q);
    }
    reorder(q, kIsfGap, kOrder - 1);
    std::memcpy(pIsfQ, q, sizeof q);
}

// Concealment of a lost frame: 0.9 of the last vector and 0.1 of the long-term mean.
void conceal(Kvo16s* pIsfQ, Kvo16s* pPredMem, const Kvo16s* pPrevIsf, const Kvo16s* pHistory) {
    Kvo16s m[kOrder], q[kOrder];
    for (int i = 0; i < kOrder; ++i)
        m[i] = static_cast<Kvo16s>((Kvo32s{kMeanIsf[i]} + pHistory[i] + pHistory[kOrder + i] +
                                    pHistory[2 * kOrder + i] + 2) >>
                                   2);
    impl::kvosInterpolateC_G729_16s_Sfs(pPrevIsf, 29491, m, 3277, q, kOrder, 15);
    for (int i = 0; i < kOrder; ++i)
        pPredMem[i] = lo16((Kvo32s{q[i]} - (Kvo32s{m[i]} + predict(pPredMem[i]))) >> 1);
    reorder(q, kIsfGap, kOrder - 1);
    std::memcpy(pIsfQ, q, sizeof q);
}

// Chebyshev evaluation of F (degree n) at x (Q15), values in double precision held as a high
// part (>> 15) and 15 low bits; the result is the upper 16 bits of the value << 6.
Kvo16s evaluate(const Kvo16s* f, int n, Kvo16s x) {
    auto times_x = [x](Kvo32s b) {  // x b in the two-part form
        return sat32(Kvo64s{x} * (b >> 15) + ((Kvo64s{x} * (b & 0x7fff)) >> 15));
    };
    Kvo32s b1 = 0, b2 = 0;
    if (n >= 1) {
        b1 = Kvo32s{f[0]} << 12;
        if (n >= 2) {
            b2 = b1;
            b1 = Add_32s(Kvo32s{f[1]} << 12, ShiftL_32s(times_x(b2), 1));
            for (int i = 2; i < n; ++i) {
                Kvo32s b0 = ShiftL_32s(times_x(b1), 1);
                b0 = Sub_32s(b0, (b2 >> 15) * 32768);
                b0 = Sub_32s(b0, b2 & 0x7fff);
                b0 = Add_32s(b0, Kvo32s{f[i]} << 12);
                b2 = b1;
                b1 = b0;
            }
        }
    }
    const Kvo32s t = times_x(b1);
    Kvo32s y = Sub_32s(Kvo32s{f[n]} << 12, ShiftL_32s(b2 >> 15, 16));
    y = Add_32s(y, ShiftL_32s(Sub_32s(t, b2 & 0x7fff), 1));
    const Kvo16s r = hi(ShiftLSat_32s(y, 6));
    return r == -32768 ? Kvo16s{-32767} : r;
}

// ISP polynomial of n second-order sections from isp[0], isp[2], ... (step 2), as Q23
// (or Q21 when `wide`), the update of each coefficient saturating.
void expand(const Kvo16s* isp, int n, bool wide, Kvo32s* f) {
    const int s = wide ? 7 : 9;
    f[0] = wide ? 0x200000 : 0x800000;
    f[1] = -(Kvo32s{isp[0]} << s);
    for (int i = 2; i <= n; ++i) {
        const Kvo16s c = isp[2 * (i - 1)];
        f[i] = f[i - 2];
        for (int j = i; j >= 2; --j) {
            Kvo32s t = Sub_32s(f[j], ShiftL_32s(mpy32_16(f[j - 1], c), 1));
            f[j] = Add_32s(t, f[j - 2]);
        }
        f[1] = Sub_32s(f[1], Kvo32s{c} << s);
    }
    if (wide)
        for (int i = 0; i <= n; ++i) f[i] = ShiftL_32s(f[i], 2);
}

}  // namespace

namespace impl {

KvoStatus kvosISFQuant_AMRWB_16s(const Kvo16s* pIsf, Kvo16s* pPredMem, Kvo16s* pIsfQ,
                                 Kvo16s* pIndices, KvoSpeechRate mode) {
    if (!pIsf || !pPredMem || !pIsfQ || !pIndices) return kvoErrNullPtr;
    if (!amrwbMode(mode)) return kvoErrRange;
    const bool narrow = narrow_form(mode);
    Kvo16s r[kOrder];
    for (int i = 0; i < kOrder; ++i)
        r[i] = lo16(Kvo32s{pIsf[i]} - kMeanIsf[i] - predict(pPredMem[i]));
    Kvo16s idx[7];
    // One half: stage 1 survivors, each followed by its stage-2 parts; the smallest total wins.
    auto half = [&](const auto* stage1, int first, int dim, const Part* parts, int nparts,
                    Kvo16s* out1, Kvo16s* out2) {
        int surv[4];
        survivors(r + first, stage1, 256, dim, surv);
        Kvo32s best = INT32_MAX;
        for (int k = 0; k < 4; ++k) {
            Kvo16s x[kOrder];
            for (int j = 0; j < dim; ++j)
                x[first + j] = sat16(Kvo32s{r[first + j]} - stage1[surv[k]][j]);
            Kvo32s total = 0;
            int got[3];
            for (int p = 0; p < nparts; ++p) {
                Kvo32s d;
                got[p] = search_part(x, parts[p], &d);
                total = Add_32s(total, d);
            }
            if (total < best) {
                best = total;
                *out1 = static_cast<Kvo16s>(surv[k]);
                for (int p = 0; p < nparts; ++p) out2[p] = static_cast<Kvo16s>(got[p]);
            }
        }
    };
    if (narrow) {
        half(tab::QCdbk1ISFTbl, 0, 9, kStage2Narrow, 2, &idx[0], &idx[2]);
        half(tab::QCdbk2ISFTbl, 9, 7, kStage2Narrow + 2, 1, &idx[1], &idx[4]);
    } else {
        half(tab::QCdbk1ISFTbl, 0, 9, kStage2Wide, 3, &idx[0], &idx[2]);
        half(tab::QCdbk2ISFTbl, 9, 7, kStage2Wide + 3, 2, &idx[1], &idx[5]);
    }
    const int words = narrow ? 5 : 7;
    Kvo16s e[kOrder];
    gather(idx, narrow, 31, e);
    reconstruct(e, pIsfQ, pPredMem, nullptr);
    std::memcpy(pIndices, idx, words * sizeof(Kvo16s));
    return kvoOk;
}

KvoStatus kvosISFQuantDecode_AMRWB_16s(const Kvo16s* pIndices, Kvo16s* pIsfQ, Kvo16s* pPredMem,
                                       const Kvo16s* pPrevIsf, Kvo16s* pHistory, Kvo32s badFrame,
                                       KvoSpeechRate mode) {
    if (!pIndices || !pIsfQ || !pPredMem || !pPrevIsf || !pHistory) return kvoErrNullPtr;
    if (!amrwbMode(mode)) return kvoErrRange;
    if (badFrame) {
        conceal(pIsfQ, pPredMem, pPrevIsf, pHistory);
        return kvoOk;
    }
    Kvo16s e[kOrder];
    gather(pIndices, narrow_form(mode), 31, e);
    reconstruct(e, pIsfQ, pPredMem, pHistory);
    return kvoOk;
}

KvoStatus kvosISFQuantDecode_AMRWBE_16s(const Kvo16s* pIndices, Kvo16s* pIsfQ, Kvo16s* pPredMem,
                                        const Kvo16s* pPrevIsf, Kvo16s* pHistory, Kvo32s badFrame,
                                        Kvo32s lostMask) {
    if (!pIndices || !pIsfQ || !pPredMem || !pPrevIsf || !pHistory) return kvoErrNullPtr;
    if (badFrame) {
        conceal(pIsfQ, pPredMem, pPrevIsf, pHistory);
        return kvoOk;
    }
    Kvo16s e[kOrder];
    gather(pIndices, false, ~static_cast<unsigned>(lostMask) & 31u, e);
    reconstruct(e, pIsfQ, pPredMem, pHistory);
    return kvoOk;
}

KvoStatus kvosISFQuantDecodeDTX_AMRWB_16s(const Kvo16s* pIndices, Kvo16s* pIsfQ) {
    if (!pIndices || !pIsfQ) return kvoErrNullPtr;
    Kvo16s q[kOrder];
    for (int k = 0; k < 5; ++k) {
        const Part& p = kNoise[k];
        const Kvo16s* row = p.table + (pIndices[k] & (p.rows - 1)) * p.width;
        for (int j = 0; j < p.dim; ++j) q[p.first + j] = row[j];
    }
    for (int i = 0; i < kOrder; ++i) q[i] = sat16(Kvo32s{q[i]} + kMeanIsfNoise[i]);
    reorder(q, kIsfGap, kOrder - 1);
    std::memcpy(pIsfQ, q, sizeof q);
    return kvoOk;
}

KvoStatus kvosISFQuantDTX_AMRWB_16s(const Kvo16s* pIsf, Kvo16s* pIsfQ, Kvo16s* pIndices) {
    if (!pIsf || !pIsfQ || !pIndices) return kvoErrNullPtr;
    Kvo16s r[kOrder], idx[5];
    for (int i = 0; i < kOrder; ++i) r[i] = lo16(Kvo32s{pIsf[i]} - kMeanIsfNoise[i]);
    for (int k = 0; k < 5; ++k) {
        Kvo32s d;
        idx[k] = static_cast<Kvo16s>(search_part(r, kNoise[k], &d));
    }
    std::memcpy(pIndices, idx, sizeof idx);
    return kvosISFQuantDecodeDTX_AMRWB_16s(idx, pIsfQ);
}

KvoStatus kvosISPToISF_Norm_AMRWB_16s(const Kvo16s* pIsp, Kvo16s* pIsf, Kvo32s len) {
    if (!pIsp || !pIsf) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    int k = 127;
    for (Kvo32s i = len - 1; i >= 0; --i) {
        if (i >= len - 2) k = 127;
        const Kvo16s v = pIsp[i];
        while (k > 0 && tab::cosTbl[k] < v) --k;
        const Kvo32s frac = ((Kvo32s{v} - tab::cosTbl[k]) * tab::slopeTbl[k] + 1024) >> 11;
        pIsf[i] = lo16((Kvo32s{k} << 7) + frac);
    }
    pIsf[len - 1] = static_cast<Kvo16s>(pIsf[len - 1] >> 1);
    return kvoOk;
}

KvoStatus kvosISFToISP_AMRWB_16s(const Kvo16s* pIsf, Kvo16s* pIsp, Kvo32s len) {
    if (!pIsf || !pIsp) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (Kvo32s i = 0; i < len; ++i) {
        Kvo32s f = i == len - 1 ? 2 * Kvo32s{pIsf[i]} : pIsf[i];
        // The scale ends at 16384 (6400 Hz): frequencies outside it are taken at its edges.
        f = f < 0 ? 0 : (f > 16383 ? 16383 : f);
        const int k = f >> 7, o = f & 127;
        pIsp[i] = lo16(tab::cosTbl[k] + ((o * (Kvo32s{tab::cosTbl[k + 1]} - tab::cosTbl[k])) >> 7));
    }
    return kvoOk;
}

KvoStatus kvosLPCToISP_AMRWBE_16s(const Kvo16s* pLpc, const Kvo16s* pOldIsp, Kvo16s* pIsp,
                                  Kvo32s order) {
    if (!pLpc || !pOldIsp || !pIsp) return kvoErrNullPtr;
    if (order < 1) return kvoErrSize;
    const int m = static_cast<int>(order), nc = m / 2;
    // The polynomials and roots live on the stack: orders above 126 are refused.
    constexpr int kMax = 64;
    if (nc + 1 > kMax) return kvoErrSize;
    Kvo16s f1[kMax + 1], f2[kMax + 1], roots[2 * kMax + 2];
    for (int i = 0; i < nc; ++i) {
        f1[i] = lo16((Kvo32s{pLpc[i]} + pLpc[m - i] + 1) >> 1);
        f2[i] = lo16((Kvo32s{pLpc[i]} - pLpc[m - i] + 1) >> 1);
    }
    f1[nc] = pLpc[nc];
    for (int i = 2; i < nc; ++i) f2[i] = sat16(Kvo32s{f2[i]} + f2[i - 2]);

    const Kvo16s* poly[2] = {f1, f2};
    const int degree[2] = {nc, nc - 1};
    int which = 0, found = 0;
    Kvo16s xlow = tab::gridTbl[0];
    Kvo16s ylow = evaluate(poly[0], degree[0], xlow);
    for (int j = 1; j <= 100 && found < m - 1; ++j) {
        Kvo16s xhigh = xlow, yhigh = ylow;
        xlow = tab::gridTbl[j];
        ylow = evaluate(poly[which], degree[which], xlow);
        if (Kvo32s{ylow} * yhigh >= 1) continue;
        for (int b = 0; b < 2; ++b) {
            const Kvo16s xmid = static_cast<Kvo16s>((xlow >> 1) + (xhigh >> 1));
            const Kvo16s ymid = evaluate(poly[which], degree[which], xmid);
            if (Kvo32s{ylow} * ymid < 1)
                xhigh = xmid, yhigh = ymid;
            else
                xlow = xmid, ylow = ymid;
        }
        const Kvo16s d = sat16(Kvo32s{yhigh} - ylow);
        Kvo16s root = xlow;
        if (d != 0) {
            const Kvo16s ad = Abs_16s(d);
            const int n = norm32(Kvo32s{ad}) - 16;
            const Kvo32s w = 0x1FFF8000 / (Kvo32s{ad} << n);
            Kvo16s v = lo16((Kvo32s{sat16(Kvo32s{xhigh} - xlow)} * w) >> (19 - n));
            if (d < 0) v = Neg_16s(v);
            root = sat16(Kvo32s{xlow} - lo16((Kvo32s{ylow} * v) >> 10));
        }
        roots[found++] = root;
        xlow = root;
        which ^= 1;
        ylow = evaluate(poly[which], degree[which], xlow);
    }
    if (found == m - 1) {
        std::memcpy(pIsp, roots, (m - 1) * sizeof(Kvo16s));
        pIsp[m - 1] = sat16(Kvo32s{pLpc[m]} << 3);
    } else {
        std::memmove(pIsp, pOldIsp, m * sizeof(Kvo16s));
    }
    return kvoOk;
}

KvoStatus kvosLPCToISP_AMRWB_16s(const Kvo16s* pLpc, Kvo16s* pIsp, const Kvo16s* pOldIsp) {
    if (!pLpc || !pIsp || !pOldIsp) return kvoErrNullPtr;
    return kvosLPCToISP_AMRWBE_16s(pLpc, pOldIsp, pIsp, kOrder);
}

KvoStatus kvosISPToLPC_AMRWB_16s(const Kvo16s* pIsp, Kvo16s* pLpc, Kvo32s len) {
    if (!pIsp || !pLpc) return kvoErrNullPtr;
    if (len < 1 || len > 20) return kvoErrSize;
    const int nc = static_cast<int>(len) / 2;
    const bool wide = nc > 8;
    Kvo32s f1[12] = {}, f2[12] = {};
    if (nc >= 1) expand(pIsp, nc, wide, f1);
    if (nc >= 2) expand(pIsp + 1, nc - 1, wide, f2);
    for (int i = nc - 1; i >= 2; --i) f2[i] = Sub_32s(f2[i], f2[i - 2]);
    const Kvo16s g = pIsp[len - 1];
    for (int i = 0; i < nc; ++i) {
        f1[i] = Add_32s(f1[i], mpy32_16(f1[i], g));
        f2[i] = Sub_32s(f2[i], mpy32_16(f2[i], g));
    }
    Kvo16s a[21];
    a[0] = 4096;
    for (int i = 1; i < nc; ++i) {
        a[i] = static_cast<Kvo16s>(Add_32s(Add_32s(f1[i], f2[i]), 0x800) >> 12);
        a[len - i] = static_cast<Kvo16s>(Add_32s(Sub_32s(f1[i], f2[i]), 0x800) >> 12);
    }
    if (nc >= 1)
        a[nc] = static_cast<Kvo16s>(Add_32s(Add_32s(f1[nc], mpy32_16(f1[nc], g)), 0x800) >> 12);
    a[len] = static_cast<Kvo16s>((Kvo32s{g} + 4) >> 3);
    std::memcpy(pLpc, a, (len + 1) * sizeof(Kvo16s));
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
