// G.169 automatic level control for telephony speech, in blocks of 8 samples
// (1 ms at 8 kHz), single-precision float throughout.
//
// A noise tracker and a talk detector (fast envelope, decaying peak, four
// times the noise level as threshold, 200 blocks of hang) decide when a
// talker is active; a long-term mean square of the talker, scaled by a crest
// factor from 0.7 up to 0.89, is its level; the gain target moves toward
// target level / talker level, limited by the maximum gain, slowly upward and
// at once downward; a peak ceiling limits each block without attack time.
//
// Readings kept where the level logic is open to more than one:
//  - The speech-relative noise floor is 0.044457 (-27 dB) times the talker's
//    level: an absolute -27 dBov amplitude (1456.7665) times that level would
//    hold the noise level at its ceiling from the second talkspurt on.
//  - In the first talkspurt that floor stays off: its second condition, rate
//    at or above 0.0025, always holds because the rate never falls below
//    minRate (0.0033333).
//  - The state record is 124 bytes: the fields, then 16 bytes of room.
#include <cmath>
#include <cstring>

#include "impl.h"

namespace kvo {
namespace {

constexpr float kNoiseFloorOfSpeech = 1456.7665f / 32768.0f;  // -27 dB below the talker

void alcBlock(KvoALCState& s, const Kvo16s* x, Kvo16s* y) {
    float sumAbs = 0.0f, sumSq = 0.0f;
    int peak = 0;
    for (int i = 0; i < 8; ++i) {
        const int v = x[i];
        const int m = v < 0 ? -v : v;
        sumAbs += static_cast<float>(m);
        sumSq += static_cast<float>(v) * static_cast<float>(v);
        peak = m > peak ? m : peak;
    }
    const float a = sumAbs * 0.125f;
    const float p = sumSq * 0.125f;

    // 1. Envelopes.
    s.env = 0.8f * a + 0.2f * s.env;
    s.peakEnv = std::fmax(s.env, 0.99f * s.peakEnv);

    // 2. Noise level and the talk threshold.
    float na, nb;
    if (s.noiseEnv > s.env) {
        na = 0.9f;
        nb = 0.1f;
    } else if (2.0f * s.noiseEnv > s.env) {
        na = 0.99f;
        nb = 0.01f;
    } else {
        na = 1.0f;
        nb = 0.0f;
    }
    const float n = s.noiseEnv * na + nb * s.env;
    float floorOfSpeech = 0.0f;
    if (s.talkCount >= 1 && !(s.talkCount == 1 && (s.activeBlocks <= 500 || s.rate >= 0.0025f)))
        floorOfSpeech = kNoiseFloorOfSpeech * s.speechLevel;
    s.noiseEnv = std::fmin(s.maxNoise, std::fmax(floorOfSpeech, std::fmax(s.minNoise, n)));
    const float t = 4.0f * s.noiseEnv;

    // 3. Slow follower of the envelope.
    if (s.noisePeak > s.env)
        s.noisePeak = std::fmax(s.noiseEnv, s.noisePeak * 0.7f + 0.3f * s.env);
    else
        s.noisePeak = std::fmax(s.noiseEnv, s.noisePeak * 0.99f + 0.01f * s.env);

    // 4, 5. Active blocks and talk state.
    if (a > t && s.activeBlocks < 16383) ++s.activeBlocks;
    if (s.peakEnv > t) {
        s.hangCount = 0;
        if (s.talking == 0) {
            s.talking = 1;
            if (s.talkCount < 16383) ++s.talkCount;
            s.savedPow = s.speechPow;
            s.savedGain = s.gainTarget;
            s.savedRate = s.rate;
            s.crest = 0.7f;
        }
    } else if (s.talking == 1) {
        if (s.hangCount < 16383) ++s.hangCount;
        if (static_cast<float>(s.hangCount) == s.hangBlocks) {
            s.talking = 0;
            if (s.activeBlocks < 50) {  // a click, not a talkspurt: taken back
                --s.talkCount;
                s.speechPow = s.savedPow;
                s.gainTarget = s.savedGain;
                s.rate = s.savedRate;
            }
            s.activeBlocks = 0;
        }
    } else {
        s.activeBlocks = 0;
    }

    // 6. Step factor of the gain target.
    if (s.talkCount != 1)
        s.slew = s.gainSlew;
    else if (s.activeBlocks < 10 || (s.activeBlocks < 500 && 3.0f * s.noisePeak > s.env))
        s.slew = 0.0f;
    else
        s.slew = s.gainSlew;

    // 7. Peak level of the talker.
    if (s.talking) {
        if (s.peakEnv > s.speechPeak)
            s.speechPeak = s.peakEnv;
        else if (s.peakEnv > t)
            s.speechPeak = 0.999f * s.speechPeak + 0.001f * s.peakEnv;
    } else {
        s.speechPeak = s.talkCount == 0 ? s.peakEnv : s.speechLevel;
    }

    // 8, 9. Talker power, a running mean whose rate falls as r - r^2.
    float r;
    if (!s.talking) {
        r = s.talkCount != 0 ? std::fmax(s.minRateStart, s.rate) : 0.1f;
    } else {
        r = s.rate;
        if (s.talkCount == 1 && s.activeBlocks < 500 && 0.1f * p > s.speechPow)
            r = std::fmax(0.05f, s.rate);
        if (t > s.env) {
            if (s.activeBlocks < 500) s.crest = 0.7f;
        } else if (a >= t || s.activeBlocks >= 20) {
            r = r - r * r;
            s.speechPow += (p - s.speechPow) * r;
        }
    }

    // 10. Talker level.
    const float level = std::sqrt(s.speechPow) * s.crest;
    s.speechLevel = level;
    s.rate = std::fmax(s.minRate, r);
    if (s.activeBlocks < 500) s.crest = std::fmin(0.89f, s.crest + 0.000461f * s.crest);

    // 11. Gain target, only while talking.
    if (s.talking) {
        float limit, step;
        if (s.targetLevel > level * s.maxGain) {
            limit = s.maxGain;
            step =
                s.targetLevel > s.maxGain * s.speechPeak ? s.maxGain : s.targetLevel / s.speechPeak;
        } else {
            limit = step = s.targetLevel / level;
        }
        s.gainTarget = std::fmin(limit, s.gainTarget + s.slew * step);
    }

    // 12, 13. Gain: falls at once, rises by a share of the distance; the
    // ceiling holds within the block.
    float g = std::fmin(s.gainTarget, s.gain + (s.gainTarget - s.gain) * s.gainRate);
    if (static_cast<float>(peak) * g > s.maxLevel) {
        g = s.maxLevel / static_cast<float>(peak);
        s.gainRate = 0.001f;
    } else {
        s.gainRate = std::fmin(1.0f, 1.1f * s.gainRate);
    }
    s.gain = g;

    // 14. Output, truncated toward zero and saturated.
    for (int i = 0; i < 8; ++i) {
        const float v = static_cast<float>(x[i]) * g;
        y[i] = v > 32767.0f ? 32767 : (v < -32768.0f ? -32768 : static_cast<Kvo16s>(v));
    }
}

}  // namespace

namespace impl {

KvoStatus kvosALCGetStateSize_G169_16s(Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoALCState));
    return kvoOk;
}

KvoStatus kvosALCInit_G169_16s(KvoALCState* pState) {
    if (pState == nullptr) return kvoErrNullPtr;
    KvoALCState& s = *pState;
    std::memset(&s, 0, sizeof s);
    s.targetLevel = 1623.4912f;  // -26.1 dB re 32768
    s.maxLevel = 32767.0f;
    s.minNoise = 4.125246f;
    s.maxNoise = 65.38f;
    s.maxGain = 3.80189f;  // 11.6 dB
    s.minRateStart = 0.02f;
    s.minRate = 0.0033333f;
    s.hangBlocks = 200.0f;
    s.gainSlew = 0.01f;
    s.hangCount = 200;
    s.noiseEnv = 65.38f;
    s.noisePeak = 32767.0f;
    s.rate = 0.1f;
    s.crest = 0.7f;
    s.gainTarget = 0.03125f;
    s.gainRate = 1.0f;
    s.savedGain = 0.03125f;
    s.savedRate = 0.1f;
    return kvoOk;
}

KvoStatus kvosALCSetLevel_G169_16s(KvoALCState* pState, Kvo32f targetDb, Kvo32f maxDb) {
    if (pState == nullptr) return kvoErrNullPtr;
    if (!(targetDb >= 0.0f) || !(maxDb >= 0.0f)) return kvoErrRange;
    pState->targetLevel = static_cast<Kvo32f>(32768.0 / std::pow(10.0, targetDb / 20.0));
    pState->maxLevel = static_cast<Kvo32f>(32768.0 / std::pow(10.0, maxDb / 20.0));
    return kvoOk;
}

KvoStatus kvosALCSetGain_G169_16s(KvoALCState* pState, Kvo32f maxGainDb) {
    if (pState == nullptr) return kvoErrNullPtr;
    if (!(maxGainDb >= 0.0f)) return kvoErrRange;
    pState->maxGain = static_cast<Kvo32f>(std::pow(10.0, maxGainDb / 20.0));
    return kvoOk;
}

KvoStatus kvosALC_G169_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, KvoALCState* pState) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr) return kvoErrNullPtr;
    if (len < 8 || (len & 7) != 0) return kvoErrRange;
    for (int i = 0; i < len; i += 8) {
        Kvo16s block[8];
        std::memcpy(block, pSrc + i, sizeof block);  // read in full before writing
        alcBlock(*pState, block, pDst + i);
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
