// 16-bit subband echo-canceller controller with double-talk detection.
//
// The update forms the normalised step per subband, 0.9 / (numSegments * average
// reference power), as a mantissa/exponent pair, and flags near-end speech per subband
// from decaying peaks of the microphone and error power: a subband detects when the
// error peak stands high against the learned echo-alone error level (or the
// microphone power exceeds twice the reference power) and both peaks are above the
// learned levels.  A flag holds 32 frames (150 after 17 detecting frames, with lowered
// thresholds); flagged subbands and a long calm lower the step.  The frame flag is set
// when a quarter of the subbands are flagged.
//
// The controller keeps a saved copy of the whole filter: it saves on a timer in calm
// frames, on a very low test power, and when the adaptive error falls 9 dB under the
// saved filter's; it restores when the adaptive error rises over the saved one, when
// the test power stays high, and when the filter was touched during double talk.
//
// Powers of 32-bit subband samples are formed exactly in 64 bits; products with the
// Q14 factors that can leave 64 bits are formed in 128 bits and saturated, and the
// learned levels are saturated to 32 bits.
#include <cstring>

#include "ec/ec_control.h"
#include "impl.h"
#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo::impl {

using kvo::ec::roundUp16;
using kvo::ec::sat32w;
using kvo::ec::sat64w;
using StateDT = KvoSubbandControllerDT16sState;

namespace {

constexpr Kvo32s kRecordBytes = 208;  // the record's share of the size, 16-byte multiple
static_assert(sizeof(StateDT) <= kRecordBytes, "record outgrows its share of the block");
// Largest count whose block size (about 60 bytes per subband) fits 32 bits.
constexpr Kvo32s kMaxSubbands = (INT32_MAX - kRecordBytes) / 64;

KvoStatus checkConfig(Kvo32s numSubbands, Kvo32s frameSize, Kvo32s numSegments,
                      Kvo32s sampleFreq) {
    if (numSubbands < 1 || frameSize < 1 || numSegments < 1) return kvoErrBadArg;
    if (!kvo::ec::rateOk(sampleFreq)) return kvoErrRange;
    return kvoOk;
}

// Arrays behind the record at offsets that are multiples of 16 from the record: the two
// 64-bit peak arrays first, then the eleven 32-bit arrays.
void layout(StateDT* s) {
    auto* p = reinterpret_cast<Kvo8u*>(s) + kRecordBytes;
    const Kvo32s n = s->numSubbands;
    const Kvo32s s64 = roundUp16(8 * n), s32 = roundUp16(4 * n);
    s->pPeakMic = reinterpret_cast<Kvo64s*>(p);
    s->pPeakErr = reinterpret_cast<Kvo64s*>(p + s64);
    p += 2 * s64;
    Kvo32s** arrays[11] = {&s->pDtCount,  &s->pHangover, &s->pDtFlag,  &s->pThreshPeak,
                           &s->pThreshLevel, &s->pMicLevel, &s->pErrLevel, &s->pRefPow,
                           &s->pMicPow,   &s->pRefAvg,   &s->pEnergy};
    for (int i = 0; i < 11; ++i) *arrays[i] = reinterpret_cast<Kvo32s*>(p + i * s32);
}

void startState(StateDT* s, Kvo32s numSubbands, Kvo32s frameSize, Kvo32s numSegments,
                Kvo32s sampleFreq) {
    s->numSubbands = numSubbands;
    s->frameSize = frameSize;
    s->numSegments = numSegments;
    s->sampleFreq = sampleFreq;
    layout(s);
    const Kvo32s n = numSubbands;
    std::memset(s->pPeakMic, 0,
                2 * static_cast<size_t>(roundUp16(8 * n)) + 11 * static_cast<size_t>(roundUp16(4 * n)));
    for (Kvo32s k = 0; k < n; ++k) s->pThreshPeak[k] = s->pThreshLevel[k] = 16384;
    s->errPowAdaptive = s->savedPower = s->trackedAvg = s->errPowFixed = 0;
    // The floor of the 16-bit subband controller; the product is held in 32 bits.
    const Kvo32s prod = static_cast<Kvo32s>(static_cast<Kvo32u>(numSubbands) * 100000u *
                                            static_cast<Kvo32u>(numSegments));
    const Kvo32s floor = prod / 1024;
    s->minMantissa = floor != 0 ? 0x40000000 / floor : 0x40000000;
    s->minShift = -31;
    s->aPower = kvo::ec::smoothFactorQ14(frameSize, sampleFreq, 0x10c000u);
    s->lowCount = s->okCount = s->highCount = 0;
    s->doubleTalk = s->prevDoubleTalk = 0;
    s->dtSubbands = s->dtLowSubbands = 0;
    s->calmSamples = 0;
    s->saveTimer = 0;
    s->goodSave = 0;
}

// (x * q14 + 8192) >> 14 or (x * f) >> 14 of a 64-bit power, saturated to 64 bits.
inline Kvo64s mulQ14(Kvo64s x, Kvo32s f) { return sat64w((__int128{x} * f) >> 14); }

void copyRows(Kvo32sc* const* src, Kvo32sc* const* dst, Kvo32s rows, Kvo32s n) {
    for (Kvo32s r = 0; r < rows; ++r) kvo::kvosCopy_32sc(src[r], dst[r], n);
}

}  // namespace

KvoStatus kvosSubbandControllerDTGetSize_EC_16s(Kvo32s numSubbands, Kvo32s frameSize,
                                                Kvo32s numSegments, Kvo32s sampleFreq,
                                                Kvo32s* pSize) {
    if (KvoStatus st = checkConfig(numSubbands, frameSize, numSegments, sampleFreq); st != kvoOk)
        return st;
    if (pSize == nullptr) return kvoErrNullPtr;
    if (numSubbands > kMaxSubbands) return kvoErrBadArg;  // beyond the 32-bit size range
    *pSize = 11 * roundUp16(4 * numSubbands) + 2 * roundUp16(8 * numSubbands) + kRecordBytes;
    return kvoOk;
}

KvoStatus kvosSubbandControllerDTInit_EC_16s(KvoSubbandControllerDT16sState* pState,
                                             Kvo32s numSubbands, Kvo32s frameSize,
                                             Kvo32s numSegments, Kvo32s sampleFreq) {
    if (KvoStatus st = checkConfig(numSubbands, frameSize, numSegments, sampleFreq); st != kvoOk)
        return st;
    if (pState == nullptr) return kvoErrNullPtr;
    if (numSubbands > kMaxSubbands) return kvoErrBadArg;
    startState(pState, numSubbands, frameSize, numSegments, sampleFreq);
    return kvoOk;
}

KvoStatus kvosSubbandControllerDTReset_EC_16s(KvoSubbandControllerDT16sState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    startState(pState, pState->numSubbands, pState->frameSize, pState->numSegments,
               pState->sampleFreq);
    return kvoOk;
}

KvoStatus kvosSubbandControllerDTUpdate_EC_16s(const Kvo32sc* const* ppRefRows,
                                               const Kvo32sc* pMicSubbands,
                                               const Kvo32sc* pErrSubbands, KvoStepPair* pStep,
                                               Kvo32s* pDoubleTalk, Kvo32s* pLowDoubleTalk,
                                               Kvo32s startSubband,
                                               KvoSubbandControllerDT16sState* pState) {
    if (ppRefRows == nullptr || pMicSubbands == nullptr || pErrSubbands == nullptr ||
        pStep == nullptr || pDoubleTalk == nullptr || pLowDoubleTalk == nullptr ||
        pState == nullptr || ppRefRows[0] == nullptr)
        return kvoErrNullPtr;
    StateDT* s = pState;
    const Kvo32s n = s->numSubbands;
    if (startSubband < 0 || startSubband > n) return kvoErrRange;
    const Kvo32sc* x = ppRefRows[0];

    const Kvo32s segs = s->numSegments;
    const Kvo32s N = 0x73333333 / segs;  // 0.9 in Q31 over the rows
    const Kvo32s b = 16384 - 16384 / segs;
    const Kvo32s f = 80530 / segs;
    kvo::kvosMagSquared_32sc32s_Sfs(x, s->pEnergy, n, 14);
    if (*pDoubleTalk != 0) {
        const Kvo64s c = s->calmSamples - 10 * Kvo64s{s->frameSize};
        s->calmSamples = c > 0 ? static_cast<Kvo32s>(c) : 0;
    } else {
        const Kvo64s c = s->calmSamples + Kvo64s{s->frameSize};
        s->calmSamples = c < 40000 ? static_cast<Kvo32s>(c) : 40000;
    }

    Kvo32s num = N != 0 ? N : 1;
    const int sn = kvo::ec::normShift(num);
    num = static_cast<Kvo32s>(static_cast<Kvo32u>(num) << sn);
    for (Kvo32s k = startSubband; k < n; ++k) {
        s->pRefAvg[k] = sat32((Kvo64s{s->pRefAvg[k]} * b + Kvo64s{s->pEnergy[k]} * (16384 - b) +
                               8192) >> 14);
        s->pEnergy[k] = sat32(Kvo64s{s->pRefAvg[k]} + f);
        const Kvo32s e = s->pEnergy[k];
        if (e > 0) {
            const int sd = kvo::ec::normShift(e);
            pStep[k].mantissa = kvo::ec::normDiv(num, e << sd);
            pStep[k].exponent = 75 - (sd - sn);
        } else {
            pStep[k].mantissa = s->minMantissa;
            pStep[k].exponent = 75 - s->minShift;
        }
    }

    for (Kvo32s k = startSubband; k < n; ++k) {
        // Powers of this subband.
        const Kvo64s m2 = kvo::ec::cpow64(pMicSubbands[k]);
        const Kvo64s e2 = kvo::ec::cpow64(pErrSubbands[k]);
        const Kvo64s x2 = kvo::ec::cpow64(x[k]);
        const Kvo64s pm = m2 >> 4, pe = e2 >> 4;
        s->pMicPow[k] =
            sat32((Kvo64s{s->pMicPow[k]} * 16072 + (m2 >> 14) * 312 + 8192) >> 14);
        s->pRefPow[k] =
            sat32((Kvo64s{s->pRefPow[k]} * 16072 + (x2 >> 14) * 312 + 8192) >> 14);

        // Decaying peaks.
        const Kvo64s decErr = mulQ14(s->pPeakErr[k], 16351);
        const Kvo64s decMic = mulQ14(s->pPeakMic[k], 16351);
        s->pPeakErr[k] = pe > decErr ? pe : decErr;
        s->pPeakMic[k] = pm > decMic ? pm : decMic;
        const Kvo64s PM = s->pPeakMic[k], PE = s->pPeakErr[k];

        // Levels learned while the echo is alone (error peak 15 dB under the microphone).
        if (s->pDtFlag[k] == 0 && (PM >> 5) > PE) {
            s->pErrLevel[k] =
                sat32w((__int128{PE >> 10} * 312 + __int128{s->pErrLevel[k]} * 16072 + 8192) >> 14);
            s->pMicLevel[k] =
                sat32w((__int128{PM >> 10} * 312 + __int128{s->pMicLevel[k]} * 16072 + 8192) >> 14);
        }
        const __int128 ML = s->pMicLevel[k], EL = s->pErrLevel[k];

        const __int128 peakTerm = (__int128{s->pThreshPeak[k]} * PM + 8192) >> 14;
        const bool ratio = peakTerm * EL < ((__int128{PE} * ML) >> 4) ||
                           (s->pMicPow[k] >> 1) > s->pRefPow[k];
        const bool errAbove = EL < (PE >> 10);
        const bool micAbove = ((ML * (s->pThreshLevel[k] >> 2) + 8192) >> 14) < (PM >> 10);

        Kvo32s count = 0;
        if (ratio && errAbove && micAbove) {
            if (s->pDtFlag[k] == 0) {
                s->pDtFlag[k] = 1;
                s->pHangover[k] = 32;
                count = 1;
            }
            if (s->pDtCount[k] > 16) {
                s->pThreshPeak[k] = 13107;
                s->pThreshLevel[k] = 8192;
                s->pHangover[k] = 150;
            } else {
                s->pDtCount[k] += 1;
            }
        } else if (s->pHangover[k] > 0) {
            s->pHangover[k] -= 1;
        } else if (s->pDtFlag[k] != 0) {
            s->pDtFlag[k] = 0;
            s->pDtCount[k] = 0;
            s->pThreshPeak[k] = s->pThreshLevel[k] = 16384;
            count = -1;
        }
        s->dtSubbands += count;
        if (k < 10) s->dtLowSubbands += count;

        if (s->calmSamples >= 40000)
            pStep[k].exponent += 3;
        else if (s->calmSamples >= 32000)
            pStep[k].exponent += 2;
        if (s->pDtFlag[k] > 0 && *pDoubleTalk == 0) pStep[k].exponent += 3;
    }

    s->doubleTalk = s->dtSubbands >= n / 4 ? 1 : 0;
    *pDoubleTalk = s->doubleTalk;
    *pLowDoubleTalk = s->dtLowSubbands >= 5 ? 1 : 0;
    return kvoOk;
}

KvoStatus kvosSubbandControllerDT_EC_16s(const Kvo32sc* pErrAdaptive, const Kvo32sc* pErrFixed,
                                         Kvo32sc** ppAdaptiveCoefs, Kvo32sc** ppFixedCoefs,
                                         Kvo64s* pTrackedPower, Kvo32s* pAction,
                                         Kvo64s testPower, Kvo32s errorsValid,
                                         Kvo32s keepChanges, Kvo32s startSubband,
                                         KvoSubbandControllerDT16sState* pState) {
    if (pErrAdaptive == nullptr || pErrFixed == nullptr || ppAdaptiveCoefs == nullptr ||
        ppFixedCoefs == nullptr || pTrackedPower == nullptr || pAction == nullptr ||
        pState == nullptr)
        return kvoErrNullPtr;
    StateDT* s = pState;
    const Kvo32s n = s->numSubbands, rows = s->numSegments;
    for (Kvo32s r = 0; r < rows; ++r)
        if (ppAdaptiveCoefs[r] == nullptr || ppFixedCoefs[r] == nullptr) return kvoErrNullPtr;
    if (startSubband < 0 || startSubband > n) return kvoErrRange;

    bool savedNow = false;
    auto save = [&] {
        s->saveTimer = 0;
        *pAction = -1;
        s->errPowFixed = s->errPowAdaptive;
        s->savedPower = *pTrackedPower;
        copyRows(ppAdaptiveCoefs, ppFixedCoefs, rows, n);
        savedNow = true;
    };
    auto restore = [&] {
        *pAction = 1;
        s->errPowAdaptive = s->errPowFixed;
        *pTrackedPower = s->savedPower;
        copyRows(ppFixedCoefs, ppAdaptiveCoefs, rows, n);
    };

    if (s->prevDoubleTalk == 0 && s->doubleTalk == 1) s->errPowAdaptive = s->errPowFixed = 0;
    s->prevDoubleTalk = s->doubleTalk;
    *pAction = 0;
    if (keepChanges == 0 && testPower < 1) return kvoOk;

    const Kvo32s a = s->aPower;
    if (errorsValid != 0) {
        Kvo64s sa = 0, sf = 0;
        for (Kvo32s k = startSubband; k < n; ++k) {
            sa += kvo::ec::cpowShift(pErrAdaptive[k], 14);
            sf += kvo::ec::cpowShift(pErrFixed[k], 14);
        }
        s->errPowFixed = kvo::ec::smoothQ14(s->errPowFixed, sf >> 5, a);
        s->errPowAdaptive = kvo::ec::smoothQ14(s->errPowAdaptive, sa >> 5, a);
    }

    const __int128 T2 = __int128{16384 - a} * *pTrackedPower + __int128{a} * s->trackedAvg + 8192;
    s->trackedAvg = sat64w(T2 >> 14);
    const __int128 T = s->trackedAvg;

    if (s->doubleTalk == 0) {
        const Kvo64s st = s->saveTimer + Kvo64s{s->frameSize};
        if (st > 4000 && testPower < (T2 >> 24))
            save();
        else
            s->saveTimer = static_cast<Kvo32s>(st < INT32_MAX ? st : INT32_MAX);
    } else {
        s->saveTimer = 0;
    }

    if (testPower < (T >> 13)) {
        s->okCount = 0;
        s->highCount = 0;
        const Kvo32s c = s->lowCount + 1;
        if (c <= 100 && testPower >= (T >> 20)) {
            s->lowCount = c;
        } else {
            s->lowCount = c < 100 ? c : 100;
            if (!savedNow) save();
        }
    } else {
        s->lowCount = 0;
        s->okCount = s->okCount < 10 ? s->okCount + 1 : 10;
        if (testPower > (T >> 7))
            s->highCount = s->highCount < 100 ? s->highCount + 1 : 100;
        else
            s->highCount = 0;
    }

    if (errorsValid != 0) {
        if (s->okCount >= 10 && (s->highCount > 10 || s->errPowAdaptive > s->errPowFixed)) {
            restore();
            s->goodSave = 0;
        }
        if (s->errPowAdaptive < (s->errPowFixed >> 3) && !savedNow) {
            save();
            s->goodSave = 1;
        }
    }
    if (keepChanges == 0 && testPower > 0 && s->doubleTalk != 0 && s->goodSave == 0) restore();
    return kvoOk;
}

}  // namespace kvo::impl
