// Fullband echo-canceller controller, float and 16-bit.  The update gives one NLMS
// step per sample, 0.5 / E with E the energy of the last tapLen reference samples
// (a sliding sum), and smooths the microphone energy per frame.  The controller
// compares the frame energies of the adaptive and the fixed error: it copies the
// adaptive taps to the fixed set when the adaptive error is 10 dB under the fixed
// one and the taps are still (frame energy within 20% of its smoothed value), copies
// back when the adaptive error rises above 130%, and gives a residual-echo mute gain.
//
// 16-bit formats: sample squares (s*s + 8) >> 4 for the microphone and the errors,
// (r*r + 128) >> 8 for the reference, sums saturating at 0x7fffffff; Q14 factors,
// Q15 gain and taps.  The step 0x40000000 / E matches the shifts of the 16-bit NLMS
// so that its update is the float 0.5 * e * r / E.  Below the energy floor the two
// families' steps differ by a factor of 2 (1 / floor against 0x40000000 / floor).
#include <cmath>
#include <cstring>

#include "ec/ec_control.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo::impl {

using kvo::ec::align16;
using Full32f = KvoFullbandController32fState;
using Full16s = KvoFullbandController16sState;

namespace {

KvoStatus checkConfig(const void* p, Kvo32s frameSize, Kvo32s tapLen, Kvo32s sampleFreq) {
    if (p == nullptr) return kvoErrNullPtr;
    if (frameSize < 1 || tapLen < 1) return kvoErrBadArg;
    if (!kvo::ec::rateOk(sampleFreq)) return kvoErrRange;
    return kvoOk;
}

inline Kvo32s sq16(Kvo32s x) { return (x * x + 8) >> 4; }
inline Kvo32s sqRef16(Kvo32s x) { return (x * x + 128) >> 8; }
inline Kvo32s addSat(Kvo32s a, Kvo32s b) { return sat32(Kvo64s{a} + b); }

}  // namespace

KvoStatus kvosFullbandControllerGetSize_EC_32f(Kvo32s frameSize, Kvo32s tapLen,
                                               Kvo32s sampleFreq, Kvo32s* pSize) {
    if (KvoStatus st = checkConfig(pSize, frameSize, tapLen, sampleFreq); st != kvoOk) return st;
    *pSize = 72;
    return kvoOk;
}

KvoStatus kvosFullbandControllerGetSize_EC_16s(Kvo32s frameSize, Kvo32s tapLen,
                                               Kvo32s sampleFreq, Kvo32s* pSize) {
    if (KvoStatus st = checkConfig(pSize, frameSize, tapLen, sampleFreq); st != kvoOk) return st;
    *pSize = 96;
    return kvoOk;
}

KvoStatus kvosFullbandControllerInit_EC_32f(KvoFullbandController32fState* pState,
                                            Kvo32s frameSize, Kvo32s tapLen, Kvo32s sampleFreq) {
    if (KvoStatus st = checkConfig(pState, frameSize, tapLen, sampleFreq); st != kvoOk)
        return st;
    Full32f* s = align16(pState);
    s->errPowAdaptive = s->errPowFixed = s->coefEnergy = s->micPower = 0.0f;
    s->aPower = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.05);
    s->aConv = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.02);
    s->aGain = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.01);
    s->frameSize = frameSize;
    s->tapLen = tapLen;
    s->gain = 1.0f;
    s->conv = 1.0f;
    s->energyFloor = static_cast<Kvo32f>(1500000.0 * tapLen);
    s->minStep = 1.0f / s->energyFloor;
    return kvoOk;
}

KvoStatus kvosFullbandControllerInit_EC_16s(KvoFullbandController16sState* pState,
                                            Kvo32s frameSize, Kvo32s tapLen, Kvo32s sampleFreq) {
    if (KvoStatus st = checkConfig(pState, frameSize, tapLen, sampleFreq); st != kvoOk)
        return st;
    Full16s* s = align16(pState);
    s->coefEnergy = 0;
    s->errPowAdaptive = s->errPowFixed = s->micPower = 0;
    s->aPower = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 0x50000u);
    s->aConv = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 819200u);
    s->aGain = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 1638400u);
    s->gain = 32767;
    s->conv = 16384;
    s->energyFloor = sat32((Kvo64s{tapLen} * 1500000 + 128) >> 8);
    s->minStep = 0x40000000 / s->energyFloor;
    s->frameSize = frameSize;
    s->tapLen = tapLen;
    return kvoOk;
}

KvoStatus kvosFullbandControllerReset_EC_32f(KvoFullbandController32fState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    Full32f* s = align16(pState);
    s->errPowAdaptive = s->errPowFixed = s->coefEnergy = 0.0f;
    return kvoOk;
}

KvoStatus kvosFullbandControllerReset_EC_16s(KvoFullbandController16sState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    Full16s* s = align16(pState);
    s->errPowAdaptive = s->errPowFixed = 0;
    s->coefEnergy = 0;
    return kvoOk;
}

KvoStatus kvosFullbandControllerUpdate_EC_32f(const Kvo32f* pRef, const Kvo32f* pMic,
                                              Kvo32f* pStep,
                                              KvoFullbandController32fState* pState) {
    if (pRef == nullptr || pMic == nullptr || pStep == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    Full32f* s = align16(pState);
    const Kvo32s L = s->tapLen, n = s->frameSize;
    Kvo32f e = 0.0f;
    for (Kvo32s t = 1; t <= L; ++t) e += pRef[-t] * pRef[-t];
    const Kvo32f floor = s->energyFloor;
    pStep[0] = e > floor ? 0.5f / e : s->minStep;
    for (Kvo32s i = 1; i < n; ++i) {
        e = e + pRef[i - 1] * pRef[i - 1] - pRef[i - 1 - L] * pRef[i - 1 - L];
        pStep[i] = e > floor ? 0.5f / e : s->minStep;
    }
    Kvo32f p = 0.0f;
    for (Kvo32s i = 0; i < n; ++i) p += pMic[i] * pMic[i];
    s->micPower = s->micPower * s->aPower + (1.0f - s->aPower) * p;
    return kvoOk;
}

KvoStatus kvosFullbandControllerUpdate_EC_16s(const Kvo16s* pRef, const Kvo16s* pMic,
                                              Kvo32s* pStep,
                                              KvoFullbandController16sState* pState) {
    if (pRef == nullptr || pMic == nullptr || pStep == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    Full16s* s = align16(pState);
    const Kvo32s L = s->tapLen, n = s->frameSize;
    Kvo32s e = 0;
    for (Kvo32s t = 1; t <= L; ++t) e = addSat(e, sqRef16(pRef[-t]));
    auto step = [s](Kvo32s energy) {
        return energy > s->energyFloor ? 0x40000000 / energy : s->minStep;
    };
    pStep[0] = step(e);
    for (Kvo32s i = 1; i < n; ++i) {
        e = sat32(Kvo64s{e} + sqRef16(pRef[i - 1]) - sqRef16(pRef[i - 1 - L]));
        pStep[i] = step(e);
    }
    Kvo32s p = 0;
    for (Kvo32s i = 0; i < n; ++i) p = addSat(p, sq16(pMic[i]));
    s->micPower = kvo::ec::smoothQ14(s->micPower, p, s->aPower);
    return kvoOk;
}

KvoStatus kvosFullbandController_EC_32f(const Kvo32f* pErrAdaptive, const Kvo32f* pErrFixed,
                                        Kvo32f* pAdaptiveCoefs, Kvo32f* pFixedCoefs,
                                        Kvo32f* pGain, KvoFullbandController32fState* pState) {
    if (pErrAdaptive == nullptr || pErrFixed == nullptr || pAdaptiveCoefs == nullptr ||
        pFixedCoefs == nullptr || pGain == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    Full32f* s = align16(pState);
    const Kvo32s n = s->frameSize, L = s->tapLen;
    const Kvo32f a = s->aPower, b = 1.0f - s->aPower;
    Kvo32f ea = 0.0f, ef = 0.0f, c = 0.0f;
    for (Kvo32s i = 0; i < n; ++i) {
        ea += pErrAdaptive[i] * pErrAdaptive[i];
        ef += pErrFixed[i] * pErrFixed[i];
    }
    s->errPowAdaptive = s->errPowAdaptive * a + ea * b;
    s->errPowFixed = s->errPowFixed * a + ef * b;
    for (Kvo32s t = 0; t < L; ++t) c += pAdaptiveCoefs[t] * pAdaptiveCoefs[t];
    const Kvo32f old = s->coefEnergy;
    s->coefEnergy = a * old + b * c;
    if (0.1f * s->errPowFixed > s->errPowAdaptive && c * 0.2f > std::fabs(old - c)) {
        std::memcpy(pFixedCoefs, pAdaptiveCoefs, sizeof(Kvo32f) * static_cast<size_t>(L));
        s->errPowFixed = s->errPowAdaptive;
        s->conv = s->conv * s->aConv;
    } else if (s->errPowAdaptive > 1.3f * s->errPowFixed) {
        std::memcpy(pAdaptiveCoefs, pFixedCoefs, sizeof(Kvo32f) * static_cast<size_t>(L));
        s->errPowAdaptive = s->errPowFixed;
        s->conv = s->conv * s->aConv + 1.0f - s->aConv;
    }
    Kvo32f t = 1.0f;
    if (s->conv < 0.5f && 0.2f * s->micPower > s->errPowFixed) t = 0.0f;
    s->gain = s->gain * s->aGain + (1.0f - s->aGain) * t;
    *pGain = s->gain;
    return kvoOk;
}

KvoStatus kvosFullbandController_EC_16s(const Kvo16s* pErrAdaptive, const Kvo16s* pErrFixed,
                                        Kvo16s* pAdaptiveCoefs, Kvo16s* pFixedCoefs,
                                        Kvo16s* pGain, KvoFullbandController16sState* pState) {
    if (pErrAdaptive == nullptr || pErrFixed == nullptr || pAdaptiveCoefs == nullptr ||
        pFixedCoefs == nullptr || pGain == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    Full16s* s = align16(pState);
    const Kvo32s n = s->frameSize, L = s->tapLen;
    Kvo32s ea = 0, ef = 0;
    for (Kvo32s i = 0; i < n; ++i) {
        ea = addSat(ea, sq16(pErrAdaptive[i]));
        ef = addSat(ef, sq16(pErrFixed[i]));
    }
    s->errPowAdaptive = kvo::ec::smoothQ14(s->errPowAdaptive, ea, s->aPower);
    s->errPowFixed = kvo::ec::smoothQ14(s->errPowFixed, ef, s->aPower);
    Kvo64s c = 0;
    for (Kvo32s t = 0; t < L; ++t) c += Kvo32s{pAdaptiveCoefs[t]} * pAdaptiveCoefs[t];
    const Kvo64s old = s->coefEnergy;
    s->coefEnergy = kvo::ec::smoothQ14(old, c, s->aPower);
    const Kvo64s change = old > c ? old - c : c - old;
    if (Kvo64s{s->errPowFixed} > 10 * Kvo64s{s->errPowAdaptive} && c > 5 * change) {
        std::memcpy(pFixedCoefs, pAdaptiveCoefs, sizeof(Kvo16s) * static_cast<size_t>(L));
        s->errPowFixed = s->errPowAdaptive;
        s->conv = static_cast<Kvo32s>((Kvo64s{s->aConv} * s->conv + 8192) >> 14);
    } else if (((Kvo64s{s->errPowAdaptive} * 12603 + 8192) >> 14) > s->errPowFixed) {
        std::memcpy(pAdaptiveCoefs, pFixedCoefs, sizeof(Kvo16s) * static_cast<size_t>(L));
        s->errPowAdaptive = s->errPowFixed;
        s->conv = static_cast<Kvo32s>(
            (Kvo64s{s->aConv} * (Kvo64s{s->conv} - 16384) + 0x10002000) >> 14);
    }
    const Kvo32s t =
        (s->conv < 8192 && s->errPowFixed < ((Kvo64s{s->micPower} * 3276 + 8192) >> 14)) ? 0
                                                                                          : 32767;
    s->gain = static_cast<Kvo32s>(
        (Kvo64s{t} * (16384 - s->aGain) + Kvo64s{s->aGain} * s->gain + 8192) >> 14);
    *pGain = sat16(s->gain);
    return kvoOk;
}

}  // namespace kvo::impl
