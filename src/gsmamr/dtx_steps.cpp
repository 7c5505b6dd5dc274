// GSM AMR (TS 26.093) discontinuous transmission: the history buffers of the
// encoder and decoder (eight rows of spectral parameters and log energies),
// the encoder's hangover handler, and the SID parameters (mean energy index,
// start residual of the LSF predictor and the three LSF split indices).
//
// Formats: LSPs and LSFs Q15, log energies log2 in Q10 less the offset
// 8521 (the encoder stores them halved), prediction errors Q10.  The
// decoder's history holds quantised LSFs, the encoder's LSPs; the buffer
// step copies whatever ten values it is given.
#include <cstring>

#include "gsmamr/gsmamr_lp_tables.h"
#include "gsmamr/lsp_shared.h"
#include "impl.h"
#include "kernels/corr.h"
#include "kernels/lpc.h"
#include "numeric/arith.h"
#include "numeric/numeric_tables.h"

namespace kvo {
namespace {

// Shared body of the two buffers; `halve` for the encoder.
KvoStatus dtxBuffer(const Kvo16s* pSpeech, const Kvo16s* pVec, Kvo16s* pHistIndex, Kvo16s* pHist,
                    Kvo16s* pLogEn, bool halve) {
    if (!pSpeech || !pVec || !pHistIndex || !pHist || !pLogEn) return kvoErrNullPtr;
    // An index outside the eight rows cannot come from an earlier call.
    if (*pHistIndex < 0 || *pHistIndex > 7) return kvoErrRange;
    const int row = *pHistIndex == 7 ? 0 : *pHistIndex + 1;
    *pHistIndex = static_cast<Kvo16s>(row);
    std::memcpy(pHist + 10 * row, pVec, sizeof(Kvo16s) * 10);
    const Kvo32s e = sat32(2 * corrDotExact(pSpeech, pSpeech, 160));
    Kvo16s ex, fr;
    ownLog2(e, &ex, &fr);
    const Kvo16s logEn = static_cast<Kvo16s>((Kvo32s{ex} << 10) + (fr >> 5) - 8521);
    pLogEn[row] = halve ? static_cast<Kvo16s>(logEn >> 1) : logEn;
    return kvoOk;
}

}  // namespace

namespace impl {

KvoStatus kvosEncDTXBuffer_GSMAMR_16s(const Kvo16s* pSpeech, const Kvo16s* pLsp, Kvo16s* pHistIndex,
                                      Kvo16s* pLspHistory, Kvo16s* pLogEnHistory) {
    return dtxBuffer(pSpeech, pLsp, pHistIndex, pLspHistory, pLogEnHistory, true);
}

KvoStatus kvosDecDTXBuffer_GSMAMR_16s(const Kvo16s* pSpeech, const Kvo16s* pLsf, Kvo16s* pHistIndex,
                                      Kvo16s* pLsfHistory, Kvo16s* pLogEnHistory) {
    return dtxBuffer(pSpeech, pLsf, pHistIndex, pLsfHistory, pLogEnHistory, false);
}

KvoStatus kvosEncDTXHandler_GSMAMR_16s(Kvo16s* pHangover, Kvo16s* pAnaElapsed, KvoSpeechRate* pMode,
                                       Kvo16s* pSidUpdate, Kvo16s vadFlag) {
    if (!pHangover || !pAnaElapsed || !pMode || !pSidUpdate) return kvoErrNullPtr;
    if (*pAnaElapsed != 32767) *pAnaElapsed = static_cast<Kvo16s>(*pAnaElapsed + 1);
    *pSidUpdate = 0;
    if (vadFlag != 0) {
        *pHangover = 7;
        return kvoOk;
    }
    if (*pHangover == 0) {
        *pAnaElapsed = 0;
        *pMode = kvoRateSID;
        *pSidUpdate = 1;
        return kvoOk;
    }
    *pHangover = sub16(*pHangover, 1);
    if (add16(*pHangover, *pAnaElapsed) < 30) *pMode = kvoRateSID;
    return kvoOk;
}

KvoStatus kvosEncDTXSID_GSMAMR_16s(const Kvo16s* pLspHistory, const Kvo16s* pLogEnHistory,
                                   Kvo16s* pLogEnergyIndex, Kvo16s* pInitLsfIndex,
                                   Kvo16s* pLsfIndices, Kvo16s* pPredErr, Kvo16s* pPredErrMR122,
                                   Kvo16s sidUpdate) {
    if (!pLspHistory || !pLogEnHistory || !pLogEnergyIndex || !pInitLsfIndex || !pLsfIndices ||
        !pPredErr || !pPredErrMR122)
        return kvoErrNullPtr;
    if (sidUpdate == 0) return kvoOk;

    // Mean LSP and mean log energy of the history.
    Kvo16s lsp[10];
    for (int j = 0; j < 10; ++j) {
        Kvo32s s = 0;
        for (int r = 0; r < 8; ++r) s += pLspHistory[10 * r + j];
        lsp[j] = lo16(s >> 3);
    }
    Kvo16s logEn = 0;
    for (int r = 0; r < 8; ++r) logEn = add16(logEn, pLogEnHistory[r] >> 2);

    // Energy index and the gain predictors' memories.
    Kvo32s idx = add16(logEn >> 1, 2688) >> 8;
    if (idx > 63) idx = 63;
    if (idx < 0) idx = 0;
    Kvo32s e = (idx << 8) - 11560;
    if (e > 0) e = 0;
    if (e < -14436) e = -14436;
    for (int i = 0; i < 4; ++i) {
        pPredErr[i] = static_cast<Kvo16s>(e);
        pPredErrMR122[i] = static_cast<Kvo16s>(mulQ15(static_cast<Kvo16s>(e), 5443));
    }

    // LSFs of the mean, kept apart by the minimum gap, and their weights.
    Kvo16s lsf[10], wf[10];
    kvosLSPToLSF_Norm_G729_16s(lsp, lsf);
    ownReorderLsf_GSMAMR(lsf, kLsfGap, 10);
    ownLSFToLSP_16s(tab::slope_cos15, 8, lsf, lsp);
    kvosLSPToLSF_Norm_G729_16s(lsp, lsf);
    ownLsfWeight_GSMAMR(lsf, wf);

    // Start residual of the predictor: the closest row of past_rq_init.
    Kvo32s best = INT32_MAX;
    int init = 0;
    for (int j = 0; j < 8; ++j) {
        Kvo32s d = 0;
        for (int i = 0; i < 10; ++i) {
            const Kvo16s t = sub16(sub16(lsf[i], TableMeanLsf2[i]), tab::past_rq_init[j][i]);
            d = FMac_16s32s(d, t, t);
        }
        if (d < best) {
            best = d;
            init = j;
        }
    }
    Kvo16s r[10];
    for (int i = 0; i < 10; ++i)
        r[i] = sub16(sub16(lsf[i], TableMeanLsf2[i]), tab::past_rq_init[init][i]);
    const int i1 = ownQuantSubVeq_GSMAMR(r, &tab::dico1_lsf2[0][0], wf, 3, 256, false);
    const int i2 = ownQuantSubVeq_GSMAMR(r + 3, &tab::dico2_lsf2[0][0], wf + 3, 3, 512, false);
    const int i3 = ownQuantSubVeq_GSMAMR(r + 6, &tab::dico3_lsf2[0][0], wf + 6, 4, 512, false);

    *pLogEnergyIndex = static_cast<Kvo16s>(idx);
    *pInitLsfIndex = static_cast<Kvo16s>(init);
    pLsfIndices[0] = static_cast<Kvo16s>(i1);
    pLsfIndices[1] = static_cast<Kvo16s>(i2);
    pLsfIndices[2] = static_cast<Kvo16s>(i3);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
