// Detector of the echo-canceller disabling tone (ITU-T G.165/G.168): 2100 Hz with a phase
// reversal about every 450 ms.  A second-order band-pass c0 (1 - z^-2) / (1 + c2 z^-1 +
// c3 z^-2) with poles at 2100 Hz (bandwidth about 100 Hz) feeds a power tracker; a second
// tracker follows the input power.  A phase reversal shows as a short dip of the band-pass
// share, and two accepted reversals make a detection.  Accepted reversal distances are
// (minRun, maxRun) exclusive = (0.413, 0.466) s of tone; a dip may last 0.02 s.
//
// The smoothing factor is 0.96 per sample at 8000 Hz and 0.92 = 0.96^2 at 16000 Hz, so the
// 16 kHz trackers have a time constant of about a quarter of the 8 kHz ones; the window of
// accepted spacings differs accordingly between the rates (the tests record it).
//
// Float: single precision.  16-bit: samples Q0, filter Q12 with a rounded 32-bit sum, power
// trackers (x*x*(16384 - a) + pow*a) >> 14 in 64 bits with a = 15728 or 15073 (Q14).  The
// 16-bit detector has no lower bound on the ratio of the two powers: every sample that is
// not tone counts as a dip.
#include <cstring>

#include "ec/ec_common.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo::impl {

namespace {

using ec::align16;

const Kvo32f td_iir_coeffs_8_32f[4] = {0.0378047526f, -0.0378047526f, 0.151102439f, 0.924390495f};
const Kvo32f td_iir_coeffs_16_32f[4] = {0.019259274f, -0.019259274f, -1.33171177f, 0.961481452f};
const Kvo16s td_iir_coeffs_8_16s[4] = {155, -155, 619, 3786};
const Kvo16s td_iir_coeffs_16_16s[4] = {79, -79, -5455, 3938};

constexpr Kvo32s kSize32f = 80;  // record and 16 bytes of alignment slack
constexpr Kvo32s kSize16s = 72;
static_assert(sizeof(KvoToneDetect32fState) + 16 <= kSize32f);
static_assert(sizeof(KvoToneDetect16sState) + 16 <= kSize16s);

}  // namespace

KvoStatus kvosToneDetectGetStateSize_EC_32f(Kvo32s sampleFreq, Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    if (!ec::rateOk(sampleFreq)) return kvoErrRange;
    *pSize = kSize32f;
    return kvoOk;
}

KvoStatus kvosToneDetectGetStateSize_EC_16s(Kvo32s sampleFreq, Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    if (!ec::rateOk(sampleFreq)) return kvoErrRange;
    *pSize = kSize16s;
    return kvoOk;
}

KvoStatus kvosToneDetectInit_EC_32f(KvoToneDetect32fState* pState, Kvo32s sampleFreq) {
    if (pState == nullptr) return kvoErrNullPtr;
    if (!ec::rateOk(sampleFreq)) return kvoErrRange;
    auto* s = align16<KvoToneDetect32fState>(pState);
    std::memset(static_cast<void*>(s), 0, sizeof(*s));
    const bool wide = sampleFreq == 16000;
    s->pIirCoefs = wide ? td_iir_coeffs_16_32f : td_iir_coeffs_8_32f;
    s->aSmooth = wide ? 0.92f : 0.96f;
    // 0.413, 0.466 and 0.02 s of samples: 3304, 3728, 160 at 8000 Hz (0.413 * 8000 in
    // binary floating point falls just below 3304, so the counts are formed in integers).
    s->minRun = sampleFreq * 413 / 1000;
    s->maxRun = sampleFreq * 466 / 1000;
    s->maxDip = sampleFreq * 2 / 100;
    return kvoOk;
}

KvoStatus kvosToneDetectInit_EC_16s(KvoToneDetect16sState* pState, Kvo32s sampleFreq) {
    if (pState == nullptr) return kvoErrNullPtr;
    if (!ec::rateOk(sampleFreq)) return kvoErrRange;
    auto* s = align16<KvoToneDetect16sState>(pState);
    std::memset(static_cast<void*>(s), 0, sizeof(*s));
    const bool wide = sampleFreq == 16000;
    s->pIirCoefs = wide ? td_iir_coeffs_16_16s : td_iir_coeffs_8_16s;
    s->aSmooth = static_cast<Kvo16s>(wide ? 15073 : 15728);
    s->minRun = sampleFreq * 413 / 1000;
    s->maxRun = sampleFreq * 466 / 1000;
    s->maxDip = sampleFreq * 2 / 100;
    return kvoOk;
}

KvoStatus kvosToneDetect_EC_32f(const Kvo32f* pSrc, Kvo32s len, Kvo32s* pResult,
                                KvoToneDetect32fState* pState) {
    if (pSrc == nullptr || pResult == nullptr || pState == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrBadArg;
    auto* st = align16<KvoToneDetect32fState>(pState);
    KvoToneDetect32fState s = *st;
    const Kvo32f c0 = s.pIirCoefs[0], c1 = s.pIirCoefs[1], c2 = s.pIirCoefs[2], c3 = s.pIirCoefs[3];
    const Kvo32f a = s.aSmooth, b = 1.0f - s.aSmooth;
    Kvo32s result = 0;
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo32f x = pSrc[n];
        const Kvo32f y = c0 * x + c1 * s.x2 - c2 * s.y1 - c3 * s.y2;
        s.x2 = s.x1;
        s.x1 = x;
        s.y2 = s.y1;
        s.y1 = y;
        s.powInput = s.powInput * a + x * x * b;
        s.powTone = s.powTone * a + y * y * b;
        if (s.powTone > 0.8f * s.powInput && 10000.0f * s.powInput > s.powTone) {
            if (s.toneRun < INT32_MAX) ++s.toneRun;  // a tone of hours must not wrap
            s.dipRun = 0;
            continue;
        }
        if (s.powTone > 0.0008f * s.powInput && s.powInput > s.powTone) {
            if (0.48f * s.powInput > s.powTone && s.toneRun > s.minRun && s.toneRun < s.maxRun) {
                ++s.reversals;
                if (s.reversals >= 2) result = 1;
                s.toneRun = 0;
            }
            if (++s.dipRun > s.maxDip) s.dipRun = s.toneRun = s.reversals = 0;
        } else {
            s.dipRun = 0;
            s.toneRun = 0;
        }
    }
    *st = s;
    *pResult = result;
    return kvoOk;
}

KvoStatus kvosToneDetect_EC_16s(const Kvo16s* pSrc, Kvo32s len, Kvo32s* pResult,
                                KvoToneDetect16sState* pState) {
    if (pSrc == nullptr || pResult == nullptr || pState == nullptr) return kvoErrNullPtr;
    if (len < 1) return kvoErrBadArg;
    auto* st = align16<KvoToneDetect16sState>(pState);
    KvoToneDetect16sState s = *st;
    const Kvo32s c0 = s.pIirCoefs[0], c1 = s.pIirCoefs[1], c2 = s.pIirCoefs[2], c3 = s.pIirCoefs[3];
    const Kvo64s a = s.aSmooth, b = 16384 - Kvo64s{s.aSmooth};
    Kvo32s result = 0;
    for (Kvo32s n = 0; n < len; ++n) {
        const Kvo32s x = pSrc[n];
        const Kvo16s y = sat16((c0 * x + c1 * s.x2 - c2 * s.y1 - c3 * s.y2 + 2048) >> 12);
        s.x2 = s.x1;
        s.x1 = static_cast<Kvo16s>(x);
        s.y2 = s.y1;
        s.y1 = y;
        s.powInput = static_cast<Kvo32s>((Kvo64s{x * x} * b + s.powInput * a) >> 14);
        s.powTone = static_cast<Kvo32s>((Kvo64s{Kvo32s{y} * y} * b + s.powTone * a) >> 14);
        if (s.powTone > ((Kvo64s{s.powInput} * 13107) >> 14)) {
            s.dipRun = 0;
            if (s.toneRun < INT32_MAX) ++s.toneRun;
            continue;
        }
        if (s.powTone < ((Kvo64s{s.powInput} * 7864) >> 14) && s.toneRun > s.minRun &&
            s.toneRun < s.maxRun) {
            ++s.reversals;
            if (s.reversals >= 2) result = 1;
            s.toneRun = 0;
        }
        if (++s.dipRun > s.maxDip) s.dipRun = s.toneRun = s.reversals = 0;
    }
    *st = s;
    *pResult = result;
    return kvoOk;
}

}  // namespace kvo::impl
