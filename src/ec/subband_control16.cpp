// 16-bit subband echo-canceller controller: the float controller's decisions in
// integers.  Powers are (re*re + im*im + 512) >> 10 of the 32-bit subband samples,
// smoothing is first order in Q14, (old*a + x*(16384 - a) + 8192) >> 14, the gain
// Q15 and the convergence state Q14.  Steps leave as mantissa * 2^-exponent pairs
// worth 0.5 / E at full scale, the mantissa from a normalised division that replaces
// a 32-bit division by a 16-bit head division and one Newton step.
//
// Wide intermediates are computed exactly and saturated to 32 bits, so extreme
// powers clip instead of wrapping.  Unlike the float family, a frame with both
// `saved` and `restored` below 100 keeps the gain target at full scale, and an
// update without a microphone vector leaves the microphone power as it was.
#include <cstring>

#include "ec/ec_control.h"
#include "impl.h"
#include "numeric/cpu.h"
#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo::ec {

Kvo32s normDiv(Kvo32s n, Kvo32s d) {
    Kvo32s q = 0, r = n;
    if (n >= d) {
        q = 0x40000000;
        r = n - d;
    }
    const Kvo32s hi = d >> 16;
    const Kvo32s lo = (d >> 1) & 0x7fff;
    const Kvo32s a = static_cast<Kvo16s>(0x1fff8000 / hi);
    const Kvo32s t = 0x7fffffff - 2 * hi * a - 2 * ((lo * a) >> 15);
    const Kvo32s u = (t >> 16) * a + ((((t >> 1) & 0x7fff) * a) >> 15);
    const Kvo32s uh = static_cast<Kvo16s>(u >> 15);
    const Kvo32s ul = u & 0x7fff;
    const Kvo32s rh = r >> 17;
    const Kvo32s rl = (r >> 2) & 0x7fff;
    const Kvo64s m = Kvo64s{q} + 8 * (Kvo64s{(ul * rh) >> 15} + Kvo64s{rh} * uh +
                                      Kvo64s{(rl * uh) >> 15});
    return lo32(m);
}

}  // namespace kvo::ec

namespace kvo::impl {

using kvo::ec::align16;
using kvo::ec::roundUp16;
using State16 = KvoSubbandController16sState;

namespace {

void layout(State16* s) {
    auto* base = reinterpret_cast<Kvo8u*>(s) + roundUp16(sizeof(State16));
    const Kvo32s stride = roundUp16(4 * s->numSubbands);
    Kvo32s** arrays[5] = {&s->pErrPowAdaptive, &s->pErrPowFixed, &s->pRefEnergy, &s->pScratch,
                          &s->pCoefEnergy};
    for (int i = 0; i < 5; ++i) *arrays[i] = reinterpret_cast<Kvo32s*>(base + i * stride);
}

KvoStatus checkConfig(Kvo32s numSubbands, Kvo32s frameSize, Kvo32s numSegments,
                      Kvo32s sampleFreq) {
    if (numSubbands < 1 || frameSize < 1 || numSegments < 1) return kvoErrBadArg;
    if (!kvo::ec::rateOk(sampleFreq)) return kvoErrRange;
    return kvoOk;
}

// Saturating 32-bit accumulation.
inline void accSat(Kvo32s& acc, Kvo64s x) { acc = kvo::ec::sat32w(__int128{acc} + x); }

}  // namespace

KvoStatus kvosSubbandControllerGetSize_EC_16s(Kvo32s numSubbands, Kvo32s frameSize,
                                              Kvo32s numSegments, Kvo32s sampleFreq,
                                              Kvo32s* pSize) {
    if (KvoStatus st = checkConfig(numSubbands, frameSize, numSegments, sampleFreq); st != kvoOk)
        return st;
    if (pSize == nullptr) return kvoErrNullPtr;
    const Kvo64s bytes = 5 * ((4 * Kvo64s{numSubbands} + 15) & ~Kvo64s{15}) + 128;
    if (bytes > INT32_MAX) return kvoErrBadArg;  // a block beyond the 32-bit size range
    *pSize = static_cast<Kvo32s>(bytes);
    return kvoOk;
}

KvoStatus kvosSubbandControllerInit_EC_16s(KvoSubbandController16sState* pState,
                                           Kvo32s numSubbands, Kvo32s frameSize,
                                           Kvo32s numSegments, Kvo32s sampleFreq) {
    if (KvoStatus st = checkConfig(numSubbands, frameSize, numSegments, sampleFreq); st != kvoOk)
        return st;
    if (pState == nullptr) return kvoErrNullPtr;
    if (5 * ((4 * Kvo64s{numSubbands} + 15) & ~Kvo64s{15}) + 128 > INT32_MAX) return kvoErrBadArg;
    State16* s = align16(pState);
    s->numSubbands = numSubbands;
    s->frameSize = frameSize;
    s->numSegments = numSegments;
    s->sampleFreq = sampleFreq;
    layout(s);
    std::memset(s->pErrPowAdaptive, 0, 5 * static_cast<size_t>(roundUp16(4 * numSubbands)));
    s->stepNumerator = 0x40000000;
    s->micPower = 0;
    s->aPower = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 0x10c000u);
    s->aCoef = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 0x1bc000u);
    s->aConv = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 819200u);
    s->aGain = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 1638400u);
    s->gain = 32767;
    s->conv = 16384;
    // The product is held in 32 bits: numSubbands * numSegments must stay below 21475.
    const Kvo32s prod = static_cast<Kvo32s>(static_cast<Kvo32u>(numSubbands) * 100000u *
                                            static_cast<Kvo32u>(numSegments));
    s->energyFloor = prod / 1024;
    s->minMantissa = s->energyFloor != 0 ? 0x40000000 / s->energyFloor : 0x40000000;
    s->minShift = -31;
    s->micValid = 0;
    return kvoOk;
}

KvoStatus kvosSubbandControllerReset_EC_16s(KvoSubbandController16sState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    State16* s = align16(pState);
    const size_t n = static_cast<size_t>(s->numSubbands);
    std::memset(s->pErrPowAdaptive, 0, sizeof(Kvo32s) * n);
    std::memset(s->pErrPowFixed, 0, sizeof(Kvo32s) * n);
    std::memset(s->pCoefEnergy, 0, sizeof(Kvo32s) * n);
    return kvoOk;
}

KvoStatus kvosSubbandController_EC_16s(const Kvo32sc* pErrAdaptive, const Kvo32sc* pErrFixed,
                                       Kvo32sc** ppAdaptiveCoefs, Kvo32sc** ppFixedCoefs,
                                       Kvo16s* pGain, KvoSubbandController16sState* pState) {
    if (pErrAdaptive == nullptr || pErrFixed == nullptr || ppAdaptiveCoefs == nullptr ||
        ppFixedCoefs == nullptr || pGain == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    State16* s = align16(pState);
    const Kvo32s n = s->numSubbands, rows = s->numSegments;
    for (Kvo32s r = 0; r < rows; ++r)
        if (ppAdaptiveCoefs[r] == nullptr || ppFixedCoefs[r] == nullptr) return kvoErrNullPtr;

    using kvo::ec::cpowShift;
    using kvo::ec::smoothQ14;
    Kvo32s saved = 0, restored = 0, total = 0;
    // Coefficient energies of a chunk of subbands, each row walked once (the integer sums
    // do not depend on the order).
    constexpr Kvo32s kChunk = 64;
    Kvo64u energy[kChunk];
    const bool avx2 = kvo::cpuHasAvx2();
    for (Kvo32s k = 0; k < n; ++k) {
        const Kvo32s j = k % kChunk;
        if (j == 0) {
            const Kvo32s m = n - k < kChunk ? n - k : kChunk;
            const int mv = avx2 ? static_cast<int>(m & ~3) : 0;
            std::memset(energy, 0, sizeof(energy));
            for (Kvo32s r = 0; r < rows; ++r) {
                const Kvo32sc* h = ppAdaptiveCoefs[r] + k;
                if (mv > 0) kvo::ec::coefEnergyRowAvx2(h, energy, mv);
                for (Kvo32s i = mv; i < m; ++i) energy[i] += static_cast<Kvo64u>(cpowShift(h[i], 10));
            }
        }
        const Kvo64s c = static_cast<Kvo64s>(energy[j]);
        const Kvo64s old = s->pCoefEnergy[k];
        s->pCoefEnergy[k] = smoothQ14(old, c, s->aCoef);
        s->pErrPowFixed[k] = smoothQ14(s->pErrPowFixed[k], cpowShift(pErrFixed[k], 10), s->aPower);
        s->pErrPowAdaptive[k] =
            smoothQ14(s->pErrPowAdaptive[k], cpowShift(pErrAdaptive[k], 10), s->aPower);
        const __int128 change = c > old ? c - old : old - c;
        if (__int128{s->pCoefEnergy[k]} > 10 * change &&
            s->pErrPowAdaptive[k] < ((Kvo64s{s->pErrPowFixed[k]} * 5734 + 8192) >> 14)) {
            for (Kvo32s r = 0; r < rows; ++r) ppFixedCoefs[r][k] = ppAdaptiveCoefs[r][k];
            s->pErrPowFixed[k] = s->pErrPowAdaptive[k];
            accSat(saved, s->pErrPowFixed[k]);
        } else if (s->pErrPowFixed[k] < ((Kvo64s{s->pErrPowAdaptive[k]} * 10922 + 8192) >> 14)) {
            for (Kvo32s r = 0; r < rows; ++r) ppAdaptiveCoefs[r][k] = ppFixedCoefs[r][k];
            s->pErrPowAdaptive[k] = s->pErrPowFixed[k];
            accSat(restored, s->pErrPowAdaptive[k]);
        }
        accSat(total, s->pErrPowFixed[k]);
    }
    if (Kvo64s{total} < 10 * Kvo64s{saved} &&
        (s->micValid == 0 || Kvo64s{s->micPower} > 5 * Kvo64s{total}))
        s->conv = static_cast<Kvo32s>((Kvo64s{s->conv} * s->aConv + 8192) >> 14);
    else if (Kvo64s{total} <= 10 * Kvo64s{restored})
        s->conv = static_cast<Kvo32s>(
            (Kvo64s{s->aConv} * (Kvo64s{s->conv} - 16384) + 0x10002000) >> 14);
    const Kvo32s t = (s->conv >= 8192 || (restored < 100 && saved < 100)) ? 32767 : 0;
    s->gain = static_cast<Kvo32s>(
        (Kvo64s{t} * (16384 - s->aGain) + Kvo64s{s->aGain} * s->gain + 8192) >> 14);
    *pGain = sat16(s->gain);
    return kvoOk;
}

KvoStatus kvosSubbandControllerUpdate_EC_16s(const Kvo16s* pRefBlock, const Kvo16s* pMicBlock,
                                             const Kvo32sc* const* ppRefRows,
                                             const Kvo32sc* pMicSubbands, KvoStepPair* pStep,
                                             KvoSubbandController16sState* pState) {
    if (pRefBlock == nullptr || pMicBlock == nullptr || ppRefRows == nullptr ||
        pStep == nullptr || pState == nullptr)
        return kvoErrNullPtr;
    State16* s = align16(pState);
    const Kvo32s n = s->numSubbands;
    const Kvo32sc* newest = ppRefRows[0];
    const Kvo32sc* oldest = ppRefRows[s->numSegments - 1];
    if (newest == nullptr || oldest == nullptr) return kvoErrNullPtr;

    kvo::kvosMagSquared_32sc32s_Sfs(newest, s->pScratch, n, 10);
    kvo::kvosAdd_32s_Sfs(s->pRefEnergy, s->pScratch, s->pRefEnergy, n, 0);

    Kvo32s num = s->stepNumerator != 0 ? s->stepNumerator : 1;
    const int sn = kvo::ec::normShift(num);
    num = static_cast<Kvo32s>(static_cast<Kvo32u>(num) << sn);
    for (Kvo32s k = 0; k < n; ++k) {
        const Kvo32s e = s->pRefEnergy[k];
        // (A floor wrapped negative by an oversized geometry never lets 0 through.)
        if (e > s->energyFloor && e > 0) {
            const int sd = kvo::ec::normShift(e);
            pStep[k].mantissa = kvo::ec::normDiv(num, e << sd);
            pStep[k].exponent = 71 - (sd - sn);
        } else {
            pStep[k].mantissa = s->minMantissa;
            pStep[k].exponent = 71 - s->minShift;
        }
    }

    kvo::kvosMagSquared_32sc32s_Sfs(oldest, s->pScratch, n, 10);
    for (Kvo32s k = 0; k < n; ++k) {
        const Kvo32s left = sat32(Kvo64s{s->pRefEnergy[k]} - s->pScratch[k]);
        s->pRefEnergy[k] = left < 0 ? 0 : left;
    }
    if (pMicSubbands == nullptr) return kvoOk;
    s->micValid = 1;
    Kvo64s p = 0;
    for (Kvo32s k = 0; k < n; ++k) p += kvo::ec::cpowShift(pMicSubbands[k], 10);
    s->micPower = kvo::ec::smoothQ14(s->micPower, p, s->aPower);
    return kvoOk;
}

}  // namespace kvo::impl
