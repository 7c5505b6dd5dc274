// Anti-sparseness post-processing of G.729 annex D: the fixed-codebook innovation of a
// low-rate subframe is spread by a circular convolution with one of three fixed impulse
// responses (strong, medium, none), chosen from the pitch-gain history and an onset detector,
// and the excitation is rebuilt with the dispersed innovation.
//
// Data: excitation Q0, innovation Q13, cbGain Q1, pitchGain Q14; the state record holds the
// six last pitch gains, the last class, the last code gain and the onset counter.  The
// convolution adds each pulse's contribution with 16-bit saturation, pulses in rising order of
// position, as the reference's saturating adds do.
#include <cstring>

#include "impl.h"
#include "numeric/fixed.h"
#include "post.h"
#include "post_tables.h"

namespace kvo {
namespace {

constexpr Kvo16s kThrHigh = 14745;  // 0.9 in Q14
constexpr Kvo16s kThrLow = 9830;    // 0.6 in Q14

void pushGain(KvoPhaseDispersionState_G729D* st, Kvo16s pitchGain) {
    for (int i = 5; i > 0; --i) st->gainHistory[i] = st->gainHistory[i - 1];
    st->gainHistory[0] = pitchGain;
}

}  // namespace

namespace impl {

KvoStatus kvosPhaseDispersionGetStateSize_G729D_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = 20;
    return kvoOk;
}

KvoStatus kvosPhaseDispersionInit_G729D_16s(KvoPhaseDispersionState_G729D* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    return kvoOk;
}

KvoStatus kvosPhaseDispersionUpdate_G729D_16s(Kvo16s pitchGain, Kvo16s cbGain,
                                              KvoPhaseDispersionState_G729D* pState) {
    if (!pState) return kvoErrNullPtr;
    pushGain(pState, pitchGain);
    pState->prevDispersion = 2;
    pState->prevCbGain = cbGain;
    pState->onset = 0;
    return kvoOk;
}

KvoStatus kvosPhaseDispersion_G729D_16s(const Kvo16s* pSrcExcSignal, Kvo16s* pDstFltExcSignal,
                                        Kvo16s cbGain, Kvo16s pitchGain, Kvo16s* pSrcDstInnovation,
                                        KvoPhaseDispersionState_G729D* pState) {
    if (!pSrcExcSignal || !pDstFltExcSignal || !pSrcDstInnovation || !pState) return kvoErrNullPtr;
    Kvo16s* inno = pSrcDstInnovation;

    // The excitation without its innovation.
    alignas(16) Kvo16s ltp[kPostSubfr];
    for (int n = 0; n < kPostSubfr; ++n)
        ltp[n] = sat16(Kvo32s{pSrcExcSignal[n]} - sat16((Kvo32s{inno[n]} * cbGain + 8192) >> 14));

    // Save and clear the innovation; list its pulses.
    alignas(16) Kvo16s saved[kPostSubfr];
    int pos[kPostSubfr];
    int npos = 0;
    std::memcpy(saved, inno, sizeof saved);
    for (int n = 0; n < kPostSubfr; ++n) {
        if (saved[n] != 0) pos[npos++] = n;
        inno[n] = 0;
    }

    // Class from the pitch gain, then the history, the onset and the limits on change.
    int cls = pitchGain >= kThrHigh ? 2 : (pitchGain > kThrLow ? 1 : 0);
    pushGain(pState, pitchGain);
    if ((cbGain >> 1) > pState->prevCbGain) {
        pState->onset = 2;
    } else if (pState->onset > 0) {
        pState->onset = static_cast<Kvo16s>(pState->onset - 1);
    } else {
        pState->onset = 0;
    }
    const bool onset = pState->onset != 0;
    if (!onset) {
        int low = 0;
        for (int i = 0; i < 6; ++i) low += pState->gainHistory[i] < kThrLow;
        if (low > 2) cls = 0;
        if (cls > pState->prevDispersion + 1) --cls;
    } else if (cls < 2) {
        ++cls;
    }
    pState->prevDispersion = static_cast<Kvo16s>(cls);
    pState->prevCbGain = cbGain;

    // Circular convolution of every pulse with the chosen response.
    if (cls == 2) {
        for (int i = 0; i < npos; ++i) {
            const int p = pos[i];
            inno[p] = sat16(Kvo32s{inno[p]} + postMult(saved[p], 32767));
        }
    } else {
        const Kvo16s* imp = cls == 0 ? tab::phImpLow : tab::phImpMid;
        for (int i = 0; i < npos; ++i) {
            const int p = pos[i];
            const Kvo16s v = saved[p];
            for (int k = p; k < kPostSubfr; ++k)
                inno[k] = sat16(Kvo32s{inno[k]} + postMult(v, imp[k - p]));
            for (int k = 0; k < p; ++k)
                inno[k] = sat16(Kvo32s{inno[k]} + postMult(v, imp[k - p + kPostSubfr]));
        }
    }

    // Rebuild the excitation with the dispersed innovation.
    for (int n = 0; n < kPostSubfr; ++n)
        pDstFltExcSignal[n] =
            sat16(Kvo32s{sat16((Kvo32s{inno[n]} * cbGain + 8192) >> 14)} + ltp[n]);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
