// Float subband echo-canceller controller.  Per subband it smooths the error powers
// of the adaptive and the fixed coefficient set, copies the adaptive taps to the
// fixed set when they are still and clearly better (error under 35% of the fixed
// one), and back when the adaptive error rises above 150%; the frame's output gain
// is a residual-echo mute that slides to 0 once enough power has been saved.  The
// update forms the normalised step learningRate / E per subband, E being the
// running sum of the reference power over the rows.  Single precision throughout;
// the smoothing factors are the second-order expansion of exp(-frameSize / (T fs)).
#include <cmath>
#include <cstring>

#include "ec/ec_control.h"
#include "impl.h"

namespace kvo::impl {

using kvo::ec::align16;
using State32f = KvoSubbandController32fState;

namespace {

// Record and arrays inside the caller's block, from the record's aligned base.
void layout(State32f* s) {
    auto* base = reinterpret_cast<Kvo8u*>(s);
    auto* arr = reinterpret_cast<Kvo32f*>(base + kvo::ec::roundUp16(sizeof(State32f)));
    const Kvo32s n = s->numSubbands;
    s->pErrPowAdaptive = arr;
    s->pErrPowFixed = arr + n;
    s->pRefEnergy = arr + 2 * n;
    s->pCoefEnergy = arr + 3 * n;
}

KvoStatus checkConfig(Kvo32s numSubbands, Kvo32s frameSize, Kvo32s numSegments,
                      Kvo32s sampleFreq) {
    if (numSubbands < 1 || frameSize < 1 || numSegments < 1) return kvoErrBadArg;
    if (!kvo::ec::rateOk(sampleFreq)) return kvoErrRange;
    return kvoOk;
}

inline Kvo32f pow2(const Kvo32fc& x) { return x.re * x.re + x.im * x.im; }

}  // namespace

KvoStatus kvosSubbandControllerGetSize_EC_32f(Kvo32s numSubbands, Kvo32s frameSize,
                                              Kvo32s numSegments, Kvo32s sampleFreq,
                                              Kvo32s* pSize) {
    if (KvoStatus st = checkConfig(numSubbands, frameSize, numSegments, sampleFreq); st != kvoOk)
        return st;
    if (pSize == nullptr) return kvoErrNullPtr;
    if (numSubbands > (INT32_MAX - 112) / 16) return kvoErrBadArg;  // beyond the 32-bit size
    *pSize = 16 * numSubbands + 112;
    return kvoOk;
}

KvoStatus kvosSubbandControllerInit_EC_32f(KvoSubbandController32fState* pState,
                                           Kvo32s numSubbands, Kvo32s frameSize,
                                           Kvo32s numSegments, Kvo32s sampleFreq) {
    if (KvoStatus st = checkConfig(numSubbands, frameSize, numSegments, sampleFreq); st != kvoOk)
        return st;
    if (pState == nullptr) return kvoErrNullPtr;
    if (numSubbands > (INT32_MAX - 112) / 16) return kvoErrBadArg;
    State32f* s = align16(pState);
    s->numSubbands = numSubbands;
    s->frameSize = frameSize;
    s->numSegments = numSegments;
    s->sampleFreq = sampleFreq;
    layout(s);
    std::memset(s->pErrPowAdaptive, 0, sizeof(Kvo32f) * 4 * static_cast<size_t>(numSubbands));
    s->micPower = 0.0f;
    s->aPower = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.015);
    s->aCoef = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.009);
    s->aConv = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.02);
    s->aGain = kvo::ec::smoothFactor(frameSize, sampleFreq, 1.0 / 0.01);
    s->gain = 1.0f;
    s->conv = 1.0f;
    s->energyFloor = static_cast<Kvo32f>(100000.0 * numSubbands * numSegments);
    s->minStep = 0.05f / s->energyFloor;
    s->micValid = 0;
    return kvoOk;
}

KvoStatus kvosSubbandControllerReset_EC_32f(KvoSubbandController32fState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    State32f* s = align16(pState);
    const size_t n = static_cast<size_t>(s->numSubbands);
    std::memset(s->pErrPowAdaptive, 0, sizeof(Kvo32f) * n);
    std::memset(s->pErrPowFixed, 0, sizeof(Kvo32f) * n);
    std::memset(s->pCoefEnergy, 0, sizeof(Kvo32f) * n);
    return kvoOk;
}

KvoStatus kvosSubbandController_EC_32f(const Kvo32fc* pErrAdaptive, const Kvo32fc* pErrFixed,
                                       Kvo32fc** ppAdaptiveCoefs, Kvo32fc** ppFixedCoefs,
                                       Kvo32f* pGain, KvoSubbandController32fState* pState) {
    if (pErrAdaptive == nullptr || pErrFixed == nullptr || ppAdaptiveCoefs == nullptr ||
        ppFixedCoefs == nullptr || pGain == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    State32f* s = align16(pState);
    const Kvo32s n = s->numSubbands, rows = s->numSegments;
    for (Kvo32s r = 0; r < rows; ++r)
        if (ppAdaptiveCoefs[r] == nullptr || ppFixedCoefs[r] == nullptr) return kvoErrNullPtr;

    const Kvo32f aPow = s->aPower, bPow = 1.0f - s->aPower;
    const Kvo32f aCoef = s->aCoef, bCoef = 1.0f - s->aCoef;
    Kvo32f saved = 0.0f, restored = 0.0f, total = 0.0f;
    for (Kvo32s k = 0; k < n; ++k) {
        Kvo32f c = 0.0f;
        for (Kvo32s r = 0; r < rows; ++r) c += pow2(ppAdaptiveCoefs[r][k]);
        const Kvo32f change = std::fabs(s->pCoefEnergy[k] - c);
        s->pCoefEnergy[k] = s->pCoefEnergy[k] * aCoef + c * bCoef;
        s->pErrPowFixed[k] = s->pErrPowFixed[k] * aPow + pow2(pErrFixed[k]) * bPow;
        s->pErrPowAdaptive[k] = s->pErrPowAdaptive[k] * aPow + pow2(pErrAdaptive[k]) * bPow;
        if (s->pCoefEnergy[k] * 0.1f > change &&
            s->pErrPowFixed[k] * 0.35f > s->pErrPowAdaptive[k]) {
            for (Kvo32s r = 0; r < rows; ++r) ppFixedCoefs[r][k] = ppAdaptiveCoefs[r][k];
            s->pErrPowFixed[k] = s->pErrPowAdaptive[k];
            saved += s->pErrPowFixed[k];  // the fixed set's new error power
        } else if (s->pErrPowAdaptive[k] > s->pErrPowFixed[k] * 1.5f) {
            for (Kvo32s r = 0; r < rows; ++r) ppAdaptiveCoefs[r][k] = ppFixedCoefs[r][k];
            s->pErrPowAdaptive[k] = s->pErrPowFixed[k];
            restored += s->pErrPowAdaptive[k];
        }
        total += s->pErrPowFixed[k];
    }
    const Kvo32f limit = 0.1f * total;
    if (saved > limit && (s->micValid == 0 || s->micPower * 0.2f > total))
        s->conv = s->conv * s->aConv;
    else if (restored > limit)
        s->conv = s->conv * s->aConv + (1.0f - s->aConv);
    const Kvo32f t = s->conv > 0.5f ? 1.0f : 0.0f;
    s->gain = s->gain * s->aGain + (1.0f - s->aGain) * t;
    *pGain = s->gain;
    return kvoOk;
}

KvoStatus kvosSubbandAPControllerUpdate_EC_32f(const Kvo32fc* const* ppRefRows,
                                               const Kvo32fc* pMicSubbands, Kvo64f* pStep,
                                               KvoSubbandController32fState* pState,
                                               Kvo32f learningRate) {
    if (ppRefRows == nullptr || pStep == nullptr || pState == nullptr) return kvoErrNullPtr;
    if (!(learningRate >= 0.0f && learningRate <= 1.0f)) return kvoErrRange;
    State32f* s = align16(pState);
    const Kvo32s n = s->numSubbands;
    const Kvo32fc* newest = ppRefRows[0];
    const Kvo32fc* oldest = ppRefRows[s->numSegments - 1];
    if (newest == nullptr || oldest == nullptr) return kvoErrNullPtr;

    const Kvo32f floor = s->energyFloor;
    for (Kvo32s k = 0; k < n; ++k) {
        const Kvo32f e = s->pRefEnergy[k] + pow2(newest[k]);
        pStep[k] = e > floor ? static_cast<Kvo64f>(learningRate / e) : Kvo64f{s->minStep};
        const Kvo32f left = e - pow2(oldest[k]);
        s->pRefEnergy[k] = left < 0.0f ? 0.0f : left;
    }
    Kvo32f p = 0.0f;
    if (pMicSubbands != nullptr) {
        s->micValid = 1;
        for (Kvo32s k = 0; k < n; ++k) p += pow2(pMicSubbands[k]);
    }
    s->micPower = s->micPower * s->aPower + (1.0f - s->aPower) * p;
    return kvoOk;
}

KvoStatus kvosSubbandControllerUpdate_EC_32f(const Kvo32f* pRefBlock, const Kvo32f* pMicBlock,
                                             const Kvo32fc* const* ppRefRows,
                                             const Kvo32fc* pMicSubbands, Kvo64f* pStep,
                                             KvoSubbandController32fState* pState) {
    if (pRefBlock == nullptr || pMicBlock == nullptr) return kvoErrNullPtr;
    return kvo::impl::kvosSubbandAPControllerUpdate_EC_32f(ppRefRows, pMicSubbands, pStep, pState, 0.5f);
}

}  // namespace kvo::impl
