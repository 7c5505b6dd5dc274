// G.729 closed-loop pitch search (base coder, annex A, annex D), the decoder's adaptive vector at
// 1/3 resolution, the adaptive-codebook gain and the target update.
//
// Data: excitation buffer of 154 past samples followed by the 40 of the subframe (index 154 is
// the subframe start), Q0; targets Q0; impulse response and LP coefficients Q12; gains Q14.
// The arithmetic is the reference's: doubled saturating chains in the reference's term order,
// 16-bit results saturated.  Deliberate readings: the filtered vector of the annex A gain is the
// saturating synthesis filter with zero history, and the target update saturates (it is
// sub(x, hi(sat32(sat32(2 y g) << 1))) in the reference), where a plain 16-bit wrap would differ
// on loud frames.
#include <cstring>

#include "frame/impl.h"
#include "g729/pitch.h"
#include "kernels/filter.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

using pitch::kExcHistory;
using pitch::kSubframe;

// Normalised correlations over the window with four lags of margin on each side.
struct WindowCorr {
    int lower, upper;
    alignas(16) Kvo16s corr[10 + 8];  // at most 10 lags (subframe 1) plus the margins
};

void windowCorrelations(Kvo32s openDelay, int subFrame, const Kvo16s* pTarget,
                        const Kvo16s* pImpulse, const Kvo16s* pExc, WindowCorr* w) {
    pitch::searchWindow(openDelay, subFrame, &w->lower, &w->upper);
    kvosMeanSquareWeightedError_16s_(pExc, pTarget, pImpulse, w->lower - 4, w->upper + 4, w->corr,
                                     kSubframe);
}

bool validSearchArgs(Kvo32s valOpenDelay, Kvo16s subFrame) {
    return valOpenDelay >= 18 && valOpenDelay <= 145 && (subFrame == 0 || subFrame == 1);
}

}  // namespace

namespace impl {

// Base coder: normalised correlations over the window, integer lag and fraction, then the
// adaptive vector written at the subframe start and copied out.
KvoStatus kvosAdaptiveCodebookSearch_G729_16s(Kvo32s valOpenDelay, const Kvo16s* pSrcAdptTarget,
                                              const Kvo16s* pSrcImpulseResponse,
                                              Kvo16s* pSrcDstPrevExc, Kvo16s* pDstDelay,
                                              Kvo16s* pDstAdptVector, Kvo16s subFrame) {
    if (!pSrcAdptTarget || !pSrcImpulseResponse || !pSrcDstPrevExc || !pDstDelay || !pDstAdptVector)
        return kvoErrNullPtr;
    if (!validSearchArgs(valOpenDelay, subFrame)) return kvoErrRange;
    Kvo16s* exc = pSrcDstPrevExc + kExcHistory;
    WindowCorr w;
    windowCorrelations(valOpenDelay, subFrame, pSrcAdptTarget, pSrcImpulseResponse, exc, &w);
    Kvo16s lag, frac;
    kvosClosedLoopPitchSearch_G729_16s_(w.corr, subFrame, w.lower, w.upper, &frac, &lag);
    pitch::decodeAdaptiveVector(exc, lag, frac);
    std::memcpy(pDstAdptVector, exc, kSubframe * sizeof(Kvo16s));
    pDstDelay[0] = lag;
    pDstDelay[1] = frac;
    return kvoOk;
}

// Annex A: integer lag from the doubled chains of the backward-filtered target with the past
// excitation; fractions 0, -1, +1 scored by the doubled chain of the target with each vector,
// a strictly greater score taking the fraction.  The chosen vector stays in the buffer.
KvoStatus kvosAdaptiveCodebookSearch_G729A_16s(Kvo32s valOpenDelay, const Kvo16s* pSrcAdptTarget,
                                               const Kvo16s* pSrcImpulseResponse,
                                               Kvo16s* pSrcDstPrevExc, Kvo16s* pDstDelay,
                                               Kvo16s* pDstAdptVector, Kvo16s subFrame) {
    if (!pSrcAdptTarget || !pSrcImpulseResponse || !pSrcDstPrevExc || !pDstDelay || !pDstAdptVector)
        return kvoErrNullPtr;
    if (!validSearchArgs(valOpenDelay, subFrame)) return kvoErrRange;
    Kvo16s* exc = pSrcDstPrevExc + kExcHistory;
    int lower, upper;
    pitch::searchWindow(valOpenDelay, subFrame, &lower, &upper);

    alignas(16) Kvo16s d[kSubframe];
    pitch::backwardTarget(pSrcImpulseResponse, pSrcAdptTarget, d);
    Kvo32s best = INT32_MIN;
    int lag = lower;
    kvosCrossCorrLagMax_Inv_16s_(d, exc, kSubframe, lower, upper, &best, &lag);

    int frac = 0;
    pitch::decodeAdaptiveVector(exc, lag, 0);
    if (!(subFrame == 0 && lag > 84)) {
        alignas(16) Kvo16s saved[kSubframe];
        Kvo32s score = pitch::dotChain(d, exc, kSubframe);
        std::memcpy(saved, exc, sizeof(saved));

        pitch::decodeAdaptiveVector(exc, lag, -1);
        Kvo32s c = pitch::dotChain(d, exc, kSubframe);
        if (c > score) {
            score = c;
            frac = -1;
            std::memcpy(saved, exc, sizeof(saved));
        }
        pitch::decodeAdaptiveVector(exc, lag, 1);
        c = pitch::dotChain(d, exc, kSubframe);
        if (c > score)
            frac = 1;
        else
            std::memcpy(exc, saved, sizeof(saved));
    }
    std::memcpy(pDstAdptVector, exc, kSubframe * sizeof(Kvo16s));
    pDstDelay[0] = static_cast<Kvo16s>(lag);
    pDstDelay[1] = static_cast<Kvo16s>(frac);
    return kvoOk;
}

// Annex D: correlations and integer lag as the base coder.  Subframe 0 searches all fractions
// unless the lag is above 84; subframe 1 has fractional resolution only in the middle of its
// window: with d = lag - (upper - 4), d of -1 or 0 searches -2 .. 2, d of -2 searches 0 .. 2,
// d of 1 searches -2 .. 0, any other d keeps fraction 0.  No vector is built.
KvoStatus kvosAdaptiveCodebookSearch_G729D_16s(Kvo32s valOpenDelay, const Kvo16s* pSrcAdptTarget,
                                               const Kvo16s* pSrcImpulseResponse,
                                               const Kvo16s* pSrcDstPrevExc, Kvo16s subFrame,
                                               Kvo16s* pDstDelay) {
    if (!pSrcAdptTarget || !pSrcImpulseResponse || !pSrcDstPrevExc || !pDstDelay)
        return kvoErrNullPtr;
    if (!validSearchArgs(valOpenDelay, subFrame)) return kvoErrRange;
    const Kvo16s* exc = pSrcDstPrevExc + kExcHistory;
    WindowCorr w;
    windowCorrelations(valOpenDelay, subFrame, pSrcAdptTarget, pSrcImpulseResponse, exc, &w);
    int lag = pitch::bestIntegerLag(w.corr, w.lower, w.upper);

    int first = 0, last = 0;
    if (subFrame == 0) {
        if (lag <= 84) first = -2, last = 2;
    } else {
        const int d = lag - (w.upper - 4);
        if (d == -1 || d == 0)
            first = -2, last = 2;
        else if (d == -2)
            first = 0, last = 2;
        else if (d == 1)
            first = -2, last = 0;
    }
    int frac = 0;
    if (first != last) {
        const Kvo16s* at = w.corr + 4 + (lag - w.lower);
        Kvo16s best = ownInterpol_3(at, first);
        frac = first;
        for (int i = first + 1; i <= last; ++i) {
            const Kvo16s v = ownInterpol_3(at, i);
            if (v > best) {
                best = v;
                frac = i;
            }
        }
        if (frac == -2) {
            frac = 1;
            --lag;
        } else if (frac == 2) {
            frac = -1;
            ++lag;
        }
    }
    pDstDelay[0] = static_cast<Kvo16s>(lag);
    pDstDelay[1] = static_cast<Kvo16s>(frac);
    return kvoOk;
}

KvoStatus kvosDecodeAdaptiveVector_G729_16s_I(const Kvo16s* pDelay, Kvo16s* pSrcDstPrevExc) {
    if (!pDelay || !pSrcDstPrevExc) return kvoErrNullPtr;
    const int lag = pDelay[0], frac = pDelay[1];
    if (lag < 18 || lag > 144 || frac < -1 || frac > 1) return kvoErrOutOfRange;
    pitch::decodeAdaptiveVector(pSrcDstPrevExc + kExcHistory, lag, frac);
    return kvoOk;
}

KvoStatus kvosDecodeAdaptiveVector_G729_16s(const Kvo16s* pDelay, Kvo16s* pSrcDstPrevExc,
                                            Kvo16s* pDst) {
    if (!pDelay || !pSrcDstPrevExc || !pDst) return kvoErrNullPtr;
    const int lag = pDelay[0], frac = pDelay[1];
    if (lag < 18 || lag > 144 || frac < -1 || frac > 1) return kvoErrOutOfRange;
    Kvo16s* exc = pSrcDstPrevExc + kExcHistory;
    pitch::decodeAdaptiveVector(exc, lag, frac);
    std::memmove(pDst, exc, kSubframe * sizeof(Kvo16s));
    return kvoOk;
}

// Filtered vector by the reference convolution with the Q12 impulse response, then the gain.
KvoStatus kvosAdaptiveCodebookGain_G729_16s(const Kvo16s* pSrcAdptTarget,
                                            const Kvo16s* pSrcImpulseResponse,
                                            const Kvo16s* pSrcAdptVector, Kvo16s* pDstFltAdptVector,
                                            Kvo16s* pResultAdptGain) {
    if (!pSrcAdptTarget || !pSrcImpulseResponse || !pSrcAdptVector || !pDstFltAdptVector ||
        !pResultAdptGain)
        return kvoErrNullPtr;
    alignas(16) Kvo16s y[kSubframe];
    pitch::convolveQ12(pSrcAdptVector, pSrcImpulseResponse, y, kSubframe);
    Kvo16s coeffs[4];
    kvosComputeAdaptiveCodebookGain_16s_(0, y, pSrcAdptTarget, coeffs, pResultAdptGain);
    std::memcpy(pDstFltAdptVector, y, sizeof(y));
    return kvoOk;
}

// Filtered vector by the saturating order-10 synthesis filter with zero history, then the gain.
KvoStatus kvosAdaptiveCodebookGain_G729A_16s(const Kvo16s* pSrcAdptTarget, const Kvo16s* pSrcLPC,
                                             const Kvo16s* pSrcAdptVector,
                                             Kvo16s* pDstFltAdptVector, Kvo16s* pResultAdptGain) {
    if (!pSrcAdptTarget || !pSrcLPC || !pSrcAdptVector || !pDstFltAdptVector || !pResultAdptGain)
        return kvoErrNullPtr;
    alignas(16) Kvo16s y[kSubframe];
    static constexpr Kvo16s kZeroMem[10] = {};
    synth_sat(pSrcLPC, 10, pSrcAdptVector, y, kSubframe, kZeroMem, 12);
    Kvo16s coeffs[4];
    kvosComputeAdaptiveCodebookGain_16s_(0, y, pSrcAdptTarget, coeffs, pResultAdptGain);
    std::memcpy(pDstFltAdptVector, y, sizeof(y));
    return kvoOk;
}

// Target update x - y g (gain Q14): the doubled product saturated, shifted left by one with
// saturation, its high half subtracted with 16-bit saturation.
KvoStatus kvosAdaptiveCodebookContribution_G729_16s(Kvo16s gain, const Kvo16s* pFltAdptVector,
                                                    const Kvo16s* pSrcAdptTarget,
                                                    Kvo16s* pDstAdptTarget) {
    if (!pFltAdptVector || !pSrcAdptTarget || !pDstAdptTarget) return kvoErrNullPtr;
    for (int n = 0; n < kSubframe; ++n) {
        const Kvo32s t = ShiftL_32s(pitch::mult2(pFltAdptVector[n], gain), 1);
        pDstAdptTarget[n] = sat16(Kvo32s{pSrcAdptTarget[n]} - hi(t));
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
