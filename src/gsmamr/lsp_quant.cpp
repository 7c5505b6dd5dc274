// GSM AMR (TS 26.090) LSP quantisation and decoding: first-order MA
// predictive split vector quantisation of the LSFs, three splits (3, 3, 4)
// in all modes but 12.2 kbit/s, five joint 2 x 2 splits of the two LSF
// vectors at 12.2 kbit/s (the third with a sign), and the decoder with its
// bad-frame concealment and per-subframe LSP interpolation.
//
// Formats: LSPs Q15 cosines, LSFs Q15 normalised frequencies, prediction
// factors Q15.  16-bit sums saturate.  In comfort-noise (SID, rate code 25)
// frames the prediction is the past residual itself, without a factor, in
// the quantiser and the decoder alike; the decoder first loads the start
// residual named by the first index word.
#include <cstring>

#include "gsmamr/gsmamr_lp_tables.h"
#include "gsmamr/lp_private.h"
#include "gsmamr/lsp_shared.h"
#include "impl.h"
#include "kernels/lpc.h"
#include "numeric/numeric_tables.h"

namespace kvo {

const Kvo16s TableMeanLsf1[10] = {1384, 2077, 3420, 5108, 6742, 8122, 9863, 11092, 12714, 13701};
const Kvo16s TableMeanLsf2[10] = {1546, 2272, 3778, 5488, 6972, 8382, 10047, 11229, 12766, 13714};
const Kvo16s TablePredFac[10] = {9556, 10769, 12571, 13292, 14381, 11651, 10588, 9767, 8593, 6484};

void ownLsfWeight_GSMAMR(const Kvo16s* lsf, Kvo16s* wf) {
    wf[0] = lsf[1];
    for (int i = 1; i < 9; ++i) wf[i] = sub16(lsf[i + 1], lsf[i - 1]);
    wf[9] = sub16(16384, lsf[8]);
    for (int i = 0; i < 10; ++i) {
        const Kvo32s d = sub16(wf[i], 1843);
        const Kvo16s w = d < 0 ? sub16(3427, mulQ15(wf[i], 28160))
                               : sub16(1843, mulQ15(static_cast<Kvo16s>(d), 6242));
        wf[i] = sat16(Kvo32s{w} * 8);
    }
}

void ownReorderLsf_GSMAMR(Kvo16s* lsf, Kvo16s gap, int n) {
    Kvo16s lo = gap;
    for (int i = 0; i < n; ++i) {
        if (lsf[i] < lo) lsf[i] = lo;
        lo = add16(lsf[i], gap);
    }
}

Kvo32s ownSubVeqError_GSMAMR(const Kvo16s* r, const Kvo16s* row, const Kvo16s* w, int dim,
                             int sign) {
    Kvo32s dist = 0;
    for (int i = 0; i < dim; ++i) {
        const Kvo16s d = sign ? add16(r[i], row[i]) : sub16(r[i], row[i]);
        const Kvo16s e = sat16(mulQ15(d, w[i]));
        dist = FMac_16s32s(dist, e, e);
    }
    return dist;
}

int ownQuantSubVeq_GSMAMR(Kvo16s* r, const Kvo16s* table, const Kvo16s* w, int dim, int count,
                          bool step2) {
    const int stride = dim * (step2 ? 2 : 1);
    Kvo32s best = INT32_MAX;
    int index = 0;
    for (int k = 0; k < count; ++k) {
        const Kvo32s dist = ownSubVeqError_GSMAMR(r, table + k * stride, w, dim, 0);
        if (dist < best) {
            best = dist;
            index = k;
        }
    }
    for (int i = 0; i < dim; ++i) r[i] = table[index * stride + i];
    return index;
}

namespace {

// Split layout of a mode other than 12: table, row count, dimension, step2.
struct Split {
    const Kvo16s* table;
    int count;
    int dim;
    bool step2;
};

void splitsOf(KvoSpeechRate mode, Split* s) {
    if (mode == kvoRate4750 || mode == kvoRate5150) {
        s[0] = {&tab::dico1_lsf2[0][0], 256, 3, false};
        s[1] = {&tab::dico2_lsf2[0][0], 256, 3, true};
        s[2] = {&tab::mr515_3_lsf[0][0], 128, 4, false};
    } else if (mode == kvoRate7950) {
        s[0] = {&tab::mr795_1_lsf[0][0], 512, 3, false};
        s[1] = {&tab::dico2_lsf2[0][0], 512, 3, false};
        s[2] = {&tab::dico3_lsf2[0][0], 512, 4, false};
    } else {
        s[0] = {&tab::dico1_lsf2[0][0], 256, 3, false};
        s[1] = {&tab::dico2_lsf2[0][0], 512, 3, false};
        s[2] = {&tab::dico3_lsf2[0][0], 512, 4, false};
    }
}

constexpr int kSplitStart[3] = {0, 3, 6};

const Kvo16s* const kDicoMR122[5] = {&tab::dico1_lsf1[0][0], &tab::dico2_lsf1[0][0],
                                     &tab::dico3_lsf1[0][0], &tab::dico4_lsf1[0][0],
                                     &tab::dico5_lsf1[0][0]};
constexpr int kDicoMR122Rows[5] = {128, 256, 256, 256, 64};

// Prediction lsf_p = mean + predicted part of the past residual.
void predict(KvoSpeechRate mode, const Kvo16s* past, Kvo16s* lsfP) {
    for (int i = 0; i < 10; ++i) {
        Kvo16s p;
        if (mode == kvoRate12200)
            p = static_cast<Kvo16s>(mulQ15(kPredFacMR122, past[i]));
        else if (mode == kvoRateSID)
            p = past[i];
        else
            p = static_cast<Kvo16s>(mulQ15(TablePredFac[i], past[i]));
        lsfP[i] = add16(mode == kvoRate12200 ? TableMeanLsf1[i] : TableMeanLsf2[i], p);
    }
}

void lsfToLsp(const Kvo16s* lsf, Kvo16s* lsp) {
    ownLSFToLSP_16s(tab::slope_cos15, 8, lsf, lsp);
}

}  // namespace

namespace impl {

KvoStatus kvosLSPQuant_GSMAMR_16s(const Kvo16s* pLsp, Kvo16s* pPastResid, Kvo16s* pLspQ,
                                  Kvo16s* pIndices, KvoSpeechRate mode) {
    if (!pLsp || !pPastResid || !pLspQ || !pIndices) return kvoErrNullPtr;
    if (!gsmamrModeValid(mode)) return kvoErrRange;

    Kvo16s lsfP[10];
    predict(mode, pPastResid, lsfP);

    if (mode == kvoRate12200) {
        Kvo16s lsf1[10], lsf2[10], wf1[10], wf2[10], r1[10], r2[10];
        kvosLSPToLSF_Norm_G729_16s(pLsp, lsf1);
        kvosLSPToLSF_Norm_G729_16s(pLsp + 10, lsf2);
        ownLsfWeight_GSMAMR(lsf1, wf1);
        ownLsfWeight_GSMAMR(lsf2, wf2);
        for (int i = 0; i < 10; ++i) {
            r1[i] = sub16(lsf1[i], lsfP[i]);
            r2[i] = sub16(lsf2[i], lsfP[i]);
        }
        Kvo16s idx[5];
        for (int s = 0; s < 5; ++s) {
            const int a = 2 * s;
            Kvo16s r[4] = {r1[a], r1[a + 1], r2[a], r2[a + 1]};
            const Kvo16s w[4] = {wf1[a], wf1[a + 1], wf2[a], wf2[a + 1]};
            const Kvo16s* tbl = kDicoMR122[s];
            Kvo32s best = INT32_MAX;
            int index = 0, sign = 0;
            for (int k = 0; k < kDicoMR122Rows[s]; ++k) {
                Kvo32s d = ownSubVeqError_GSMAMR(r, tbl + 4 * k, w, 4, 0);
                if (d < best) {
                    best = d;
                    index = k;
                    sign = 0;
                }
                if (s == 2) {
                    d = ownSubVeqError_GSMAMR(r, tbl + 4 * k, w, 4, 1);
                    if (d < best) {
                        best = d;
                        index = k;
                        sign = 1;
                    }
                }
            }
            const Kvo16s* row = tbl + 4 * index;
            for (int i = 0; i < 4; ++i) r[i] = sign ? Neg_16s(row[i]) : row[i];
            r1[a] = r[0];
            r1[a + 1] = r[1];
            r2[a] = r[2];
            r2[a + 1] = r[3];
            idx[s] = static_cast<Kvo16s>(s == 2 ? 2 * index + sign : index);
        }
        for (int i = 0; i < 10; ++i) {
            pPastResid[i] = r2[i];
            lsf1[i] = add16(r1[i], lsfP[i]);
            lsf2[i] = add16(r2[i], lsfP[i]);
        }
        ownReorderLsf_GSMAMR(lsf1, kLsfGap, 10);
        ownReorderLsf_GSMAMR(lsf2, kLsfGap, 10);
        lsfToLsp(lsf1, pLspQ);
        lsfToLsp(lsf2, pLspQ + 10);
        for (int s = 0; s < 5; ++s) pIndices[s] = idx[s];
        return kvoOk;
    }

    Kvo16s lsf[10], wf[10], r[10];
    kvosLSPToLSF_Norm_G729_16s(pLsp, lsf);
    ownLsfWeight_GSMAMR(lsf, wf);
    for (int i = 0; i < 10; ++i) r[i] = sub16(lsf[i], lsfP[i]);
    Split sp[3];
    splitsOf(mode, sp);
    Kvo16s idx[3];
    for (int s = 0; s < 3; ++s) {
        const int a = kSplitStart[s];
        idx[s] = static_cast<Kvo16s>(
            ownQuantSubVeq_GSMAMR(r + a, sp[s].table, wf + a, sp[s].dim, sp[s].count, sp[s].step2));
    }
    for (int i = 0; i < 10; ++i) {
        pPastResid[i] = r[i];
        lsf[i] = add16(r[i], lsfP[i]);
    }
    ownReorderLsf_GSMAMR(lsf, kLsfGap, 10);
    lsfToLsp(lsf, pLspQ);
    for (int s = 0; s < 3; ++s) pIndices[s] = idx[s];
    return kvoOk;
}

KvoStatus kvosQuantLSPDecode_GSMAMR_16s(const Kvo16s* pIndices, Kvo16s* pPastResid,
                                        Kvo16s* pPrevLsf, Kvo16s* pPrevLsp, Kvo16s* pLspQ,
                                        Kvo16s badFrame, KvoSpeechRate mode) {
    if (!pIndices || !pPastResid || !pPrevLsf || !pPrevLsp || !pLspQ) return kvoErrNullPtr;
    if (!gsmamrModeValid(mode)) return kvoErrRange;

    const bool mr122 = mode == kvoRate12200;
    // Index words outside the codebooks cannot come from the quantiser.
    if (!badFrame) {
        if (mr122) {
            constexpr int lim[5] = {128, 256, 512, 256, 64};
            for (int s = 0; s < 5; ++s)
                if (pIndices[s] < 0 || pIndices[s] >= lim[s]) return kvoErrRange;
        } else {
            const int off = mode == kvoRateSID ? 1 : 0;
            if (off && (pIndices[0] < 0 || pIndices[0] > 7)) return kvoErrRange;
            Split sp[3];
            splitsOf(mode, sp);
            for (int s = 0; s < 3; ++s)
                if (pIndices[off + s] < 0 || pIndices[off + s] >= sp[s].count) return kvoErrRange;
        }
    }

    Kvo16s lsf1[10], lsf2[10];
    if (badFrame) {
        const Kvo16s* mean = mr122 ? TableMeanLsf1 : TableMeanLsf2;
        for (int i = 0; i < 10; ++i) {
            const Kvo16s l = mr122 ? add16(mulQ15(pPrevLsf[i], 31128), mulQ15(mean[i], 1639))
                                   : add16(mulQ15(pPrevLsf[i], 29491), mulQ15(mean[i], 3277));
            lsf1[i] = lsf2[i] = l;
            const Kvo16s fac = mr122 ? kPredFacMR122 : TablePredFac[i];
            pPastResid[i] = sub16(l, add16(mean[i], mulQ15(fac, pPastResid[i])));
        }
    } else if (mr122) {
        Kvo16s lsfP[10];
        predict(mode, pPastResid, lsfP);
        Kvo16s r1[10], r2[10];
        for (int s = 0; s < 5; ++s) {
            int k = pIndices[s];
            bool neg = false;
            if (s == 2) {
                neg = (k & 1) != 0;
                k >>= 1;
            }
            const Kvo16s* row = kDicoMR122[s] + 4 * k;
            const int a = 2 * s;
            r1[a] = neg ? Neg_16s(row[0]) : row[0];
            r1[a + 1] = neg ? Neg_16s(row[1]) : row[1];
            r2[a] = neg ? Neg_16s(row[2]) : row[2];
            r2[a + 1] = neg ? Neg_16s(row[3]) : row[3];
        }
        for (int i = 0; i < 10; ++i) {
            lsf1[i] = add16(r1[i], lsfP[i]);
            lsf2[i] = add16(r2[i], lsfP[i]);
            pPastResid[i] = r2[i];
        }
    } else {
        const Kvo16s* idx = pIndices;
        if (mode == kvoRateSID) {
            std::memcpy(pPastResid, tab::past_rq_init[idx[0]], sizeof(Kvo16s) * 10);
            ++idx;
        }
        Kvo16s lsfP[10];
        predict(mode, pPastResid, lsfP);
        Split sp[3];
        splitsOf(mode, sp);
        Kvo16s r[10];
        for (int s = 0; s < 3; ++s) {
            const int stride = sp[s].dim * (sp[s].step2 ? 2 : 1);
            const Kvo16s* row = sp[s].table + stride * idx[s];
            for (int i = 0; i < sp[s].dim; ++i) r[kSplitStart[s] + i] = row[i];
        }
        for (int i = 0; i < 10; ++i) {
            lsf2[i] = add16(r[i], lsfP[i]);
            pPastResid[i] = r[i];
        }
    }

    ownReorderLsf_GSMAMR(lsf2, kLsfGap, 10);
    std::memcpy(pPrevLsf, lsf2, sizeof lsf2);
    Kvo16s lsp2[10];
    lsfToLsp(lsf2, lsp2);
    const Kvo16s* old = pPrevLsp;
    if (mr122) {
        Kvo16s lsp1[10];
        ownReorderLsf_GSMAMR(lsf1, kLsfGap, 10);
        lsfToLsp(lsf1, lsp1);
        for (int i = 0; i < 10; ++i) {
            pLspQ[i] = static_cast<Kvo16s>((old[i] >> 1) + (lsp1[i] >> 1));
            pLspQ[10 + i] = lsp1[i];
            pLspQ[20 + i] = static_cast<Kvo16s>((lsp1[i] >> 1) + (lsp2[i] >> 1));
            pLspQ[30 + i] = lsp2[i];
        }
    } else {
        for (int i = 0; i < 10; ++i) {
            const Kvo32s o = old[i], n = lsp2[i];
            pLspQ[i] = static_cast<Kvo16s>((n >> 2) + o - (o >> 2));
            pLspQ[10 + i] = static_cast<Kvo16s>((o >> 1) + (n >> 1));
            pLspQ[20 + i] = static_cast<Kvo16s>((o >> 2) + n - (n >> 2));
            pLspQ[30 + i] = lsp2[i];
        }
    }
    std::memcpy(pPrevLsp, lsp2, sizeof lsp2);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
