// GSM AMR voice activity detector, option 2 (TS 26.094): per 80-sample half
// frame, block-scaled and preemphasised samples go through a 128-point real
// FFT; sixteen channel energies are smoothed, compared with channel noise
// estimates, and the sum of a voice metric over the channels is compared
// with a threshold that follows the long-term SNR; hangover and a noise
// update (forced after long stationary stretches) follow.
//
// Formats: channel energies and noise 32-bit in the scale of the shift state
// (noise always at state 0 scale), energies in dB Q8 (long-term values in
// the same units), SNR Q8 dB.  Every 16- and 32-bit sum saturates.  The
// preemphasis memory follows the block scale with a rounded right shift
// (saturating left shift when the scale grows).
#include <algorithm>

#include "gsmamr/lp_private.h"
#include "impl.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr Kvo16s Table16Ch[16][2] = {{2, 3},   {4, 5},   {6, 7},   {8, 9},   {10, 11}, {12, 13},
                                     {14, 16}, {17, 19}, {20, 22}, {23, 26}, {27, 30}, {31, 35},
                                     {36, 41}, {42, 48}, {49, 55}, {56, 63}};
constexpr Kvo16s TableDFTch[16] = {16384, 16384, 16384, 16384, 16384, 16384, 10923, 10923,
                                   10923, 8192,  8192,  6554,  5461,  4681,  4681,  4096};
constexpr Kvo16s tableStateChangeShiftR[2] = {-5, 5};
constexpr Kvo16s tableEnrgNormShift[2] = {10, 5};
constexpr Kvo32s tableMinChanEnrg[2] = {32, 1};
constexpr Kvo32s tableNoiseFloorChan[2] = {512, 16};
constexpr Kvo32s tableIneNoise[2] = {8192, 256};
constexpr Kvo16s tableFbits[2] = {9, 4};
constexpr Kvo16s TablePeakSNR[20] = {34, 34, 34, 34, 34,  34,  34,  34,  34,  34,
                                     34, 40, 51, 71, 100, 139, 191, 257, 337, 432};
constexpr Kvo16s TableBurstcount[20] = {8, 8, 8, 8, 8, 8, 8, 8, 7, 6, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4};
constexpr Kvo16s TableHangover[20] = {30, 30, 30, 30, 30, 30, 28, 26, 24, 22,
                                      20, 18, 16, 14, 12, 10, 8,  8,  8,  8};
constexpr Kvo16s TableVoiceMetric[] = {
    2,  2,  2,  2,  2,  2,  2,  2,  2,  2,  2,  3,  3,  3,  3,  3,  4,  4,  4,  5,  5,  5,  6,
    6,  7,  7,  7,  8,  8,  9,  9,  10, 10, 11, 12, 12, 13, 13, 14, 15, 15, 16, 17, 17, 18, 19,
    20, 20, 21, 22, 23, 24, 24, 25, 26, 27, 28, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 37, 38,
    39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50};
static_assert(sizeof TableVoiceMetric / sizeof TableVoiceMetric[0] == 90);


// Rounded arithmetic right shift of a 32-bit value by n >= 1.
constexpr Kvo32s shrR32(Kvo32s x, int n) {
    if (n > 31) return 0;
    return (x >> n) + ((x >> (n - 1)) & 1);
}

// Level in dB Q8 of a positive value: log2 with `offset` taken off the
// exponent, times 3.0103 dB (24660 / 8192 in the fraction's doubled form).
Kvo16s dbQ8(Kvo32s v, int offset) {
    Kvo16s e, f;
    ownLog2(v, &e, &f);
    const Kvo32s t = mulQ15(f, 24660) * 2 + (e - offset) * 49320;
    return lo16(shrR32(t, 6));
}

// Smoothing of a 16-bit value: round16(sat32(2 (x a + y b))).
Kvo16s smooth(Kvo16s x, Kvo32s a, Kvo16s y, Kvo32s b) {
    return round16(sat32(2 * (Kvo64s{x} * a + Kvo64s{y} * b)));
}

Kvo16s halfFrame(const Kvo16s* src, KvoVAD2State_GSMAMR* st, Kvo16s ltpFlag) {
    st->frameCount = st->frameCount == INT32_MAX ? INT32_MAX : st->frameCount + 1;
    const bool first = st->frameCount == 1;

    // Block scale with two bits of headroom; the preemphasis memory follows.
    Kvo16s scaled[80];
    Kvo32s norm = 2;
    impl::kvosAutoScale_16s(src, scaled, 80, &norm);
    const int k = st->lastNormShift - norm;
    if (k > 0)
        st->preEmphMem = static_cast<Kvo16s>(shrR32(st->preEmphMem, k));
    else if (k < 0)
        st->preEmphMem = sat16(ShiftLSat_32s(st->preEmphMem, -k));
    st->lastNormShift = static_cast<Kvo16s>(norm);

    Kvo16s buf[128] = {};
    impl::kvosPreemphasize_GSMAMR_16s(-26214, scaled, buf + 24, 80, &st->preEmphMem);
    ownFFTFwd_RToPerm_GSMAMR(buf);

    // Channel energies.
    // Any nonzero shift state counts as 1 (a record holds 0 or 1).
    const int oldState = st->shiftState != 0 ? 1 : 0;
    st->shiftState = static_cast<Kvo16s>(oldState);
    if (st->shiftState == 0 && norm < 1)
        st->shiftState = 1;
    else if (st->shiftState == 1 && norm >= 3)
        st->shiftState = 0;
    const int state = st->shiftState;
    if (state != oldState) {
        for (int c = 0; c < 16; ++c)
            st->chEnrg[c] = tableStateChangeShiftR[state] < 0
                                ? ShiftLSat_32s(st->chEnrg[c], -tableStateChangeShiftR[state])
                                : st->chEnrg[c] >> tableStateChangeShiftR[state];
    }
    const int sh = 2 * norm - tableEnrgNormShift[state];
    const Kvo16s g = first ? 32767 : 18022;
    const Kvo16s wOld = first ? 0 : 14746;
    for (int c = 0; c < 16; ++c) {
        Kvo32s s = 0;
        for (int b = Table16Ch[c][0]; b <= Table16Ch[c][1]; ++b) {
            s = FMac_16s32s(s, buf[2 * b], buf[2 * b]);
            s = FMac_16s32s(s, buf[2 * b + 1], buf[2 * b + 1]);
        }
        s = sh > 0 ? shrR32(s, sh) : ShiftLSat_32s(s, -sh);
        const Kvo16s gain = static_cast<Kvo16s>(mulQ15(TableDFTch[c], g));
        Kvo32s e = Add_32s(mpy32_16(s, gain), mpy32_16(st->chEnrg[c], wOld));
        if (e < tableMinChanEnrg[state]) e = tableMinChanEnrg[state];
        st->chEnrg[c] = e;
    }

    // SNR per channel and voice metric.
    Kvo32s total = 0;
    Kvo32s peak = 0;
    for (int c = 0; c < 16; ++c) {
        total = Add_32s(total, st->chEnrg[c]);
        if (c >= 2 && st->chEnrg[c] > peak) peak = st->chEnrg[c];
    }
    const bool tone = peak > mpy32_16(total, 20480);
    if (st->frameCount < 5) {
        for (int c = 0; c < 16; ++c) {
            if (tone || st->chEnrg[c] < tableIneNoise[state])
                st->chNoise[c] = 8192;
            else
                st->chNoise[c] = state == 1 ? ShiftLSat_32s(st->chEnrg[c], 5) : st->chEnrg[c];
        }
    }
    Kvo16s chDb[16], chSnr[16];
    Kvo16s vm = 0;
    for (int c = 0; c < 16; ++c) {
        chDb[c] = dbQ8(st->chEnrg[c], tableFbits[state]);
        const Kvo16s nDb = dbQ8(st->chNoise[c], 9);
        chSnr[c] = sub16(chDb[c], nDb);
        Kvo32s i = (mulQ15(chSnr[c], 21845) + 32) >> 6;
        i = std::clamp<Kvo32s>(i, 0, 89);
        vm = add16(vm, TableVoiceMetric[i]);
    }

    // Frame SNR, long-term SNR tracker and the negative-SNR bias.
    Kvo16s x;
    if (st->frameCount <= 4 || st->forcedUpdateFlag == 1) {
        st->negSnrVar = 0;
        st->negSnrBias = 0;
        Kvo32s tne = 0;
        for (int c = 0; c < 16; ++c) tne = Add_32s(tne, st->chNoise[c]);
        Kvo16s e, f;
        ownLog2(tne, &e, &f);
        const Kvo32s t = shrR32((mulQ15(f, 24660) + (e - 9) * 24660) * 2, 6);
        x = sub16(14320, t);
        st->snr = x;
    } else {
        Kvo32s sum = 0;
        for (int c = 0; c < 16; ++c) {
            const Kvo32s s = Kvo32s{chSnr[c]} * 10885;
            sum = Add_32s(sum, ownPow2(static_cast<Kvo16s>((s >> 23) + 3),
                                       static_cast<Kvo16s>((s >> 8) & 0x7fff)));
        }
        Kvo16s e, f;
        ownLog2(sum, &e, &f);
        x = lo16(shrR32((mulQ15(f, 24660) + (e - 7) * 24660) * 2, 6));
        const Kvo16s tr = st->snr;
        if (x > tr)
            st->snr = smooth(tr, 29491, x, 3277);
        else if (x > mulQ15(tr, 20480))
            st->snr = smooth(tr, 32702, x, 66);
    }
    Kvo32s q = (Kvo32s{st->snr} * 10923) >> 23;
    q = std::clamp<Kvo32s>(q, 0, 19);
    if (x < 0) {
        const Kvo32s v2 = Kvo32s{x} * x;
        const Kvo16s v = v2 >= 0x800000 ? Kvo16s{32767} : round16(v2 << 8);
        Kvo16s var = smooth(st->negSnrVar, 32440, v, 328);
        if (var > 1024) var = 1024;
        st->negSnrVar = var;
        const Kvo64s inner = Kvo64s{var} * 16 * 24576 - 65257472;
        st->negSnrBias = inner < 0 ? Kvo16s{0} : static_cast<Kvo16s>((inner >> 15) >> 8);
    }

    // Decision with hangover.
    Kvo16s flag;
    if (vm <= add16(TablePeakSNR[q], st->negSnrBias)) {
        st->burstCount = 0;
        if (st->hangover - 1 < 1) {
            st->hangover = 0;
            flag = 0;
        } else {
            st->hangover = static_cast<Kvo16s>(st->hangover - 1);
            flag = 1;
        }
    } else {
        flag = 1;
        st->burstCount = add16(st->burstCount, 1);
        if (st->burstCount > TableBurstcount[q]) st->hangover = TableHangover[q];
    }

    // Spectral deviation and the long-term channel levels.
    Kvo16s dev = 0;
    if (first) {
        for (int c = 0; c < 16; ++c) st->chEnrgLongDb[c] = chDb[c];
    } else {
        for (int c = 0; c < 16; ++c) dev = add16(dev, Abs_16s(sub16(st->chEnrgLongDb[c], chDb[c])));
    }
    const Kvo16s T = st->snr;
    const Kvo16s u = sub16(T, x);
    Kvo32s a, b;
    if (u < 1 || T < 1) {
        a = 29491;
        b = 3277;
    } else if (u > T) {
        a = 22938;
        b = 9830;
    } else {
        const Kvo32s r = u == T ? 32767 : (Kvo32s{u} << 15) / T;
        a = 29491 - ((r * 6553) >> 15);
        b = 32767 - a;
    }
    for (int c = 0; c < 16; ++c) st->chEnrgLongDb[c] = smooth(chDb[c], b, st->chEnrgLongDb[c], a);

    // Background noise update.
    bool update = false;
    if (vm <= 35) {
        st->forcedUpdateFlag = 0;
        if (st->burstCount == 0) {
            update = true;
            st->updateCnt = 0;
        }
    } else if (total > tableNoiseFloorChan[state] && dev < 7168 && !tone && ltpFlag == 0) {
        st->updateCnt = add16(st->updateCnt, 1);
        if (st->updateCnt >= 50) {
            update = true;
            st->forcedUpdateFlag = 1;
        } else {
            st->forcedUpdateFlag = 0;
        }
    } else {
        st->forcedUpdateFlag = 0;
    }
    if (st->updateCnt == st->lastUpdateCnt)
        st->histCnt = add16(st->histCnt, 1);
    else
        st->histCnt = 0;
    st->lastUpdateCnt = st->updateCnt;
    if (st->histCnt > 6) st->updateCnt = 0;
    if (update) {
        for (int c = 0; c < 16; ++c) {
            const Kvo32s e = state == 1 ? ShiftLSat_32s(st->chEnrg[c], 5) : st->chEnrg[c];
            Kvo32s n = Add_32s(mpy32_16(e, 3277), mpy32_16(st->chNoise[c], 29491));
            st->chNoise[c] = n < 32 ? 32 : n;
        }
    }
    return flag;
}

}  // namespace

namespace impl {

KvoStatus kvosVAD2_GSMAMR_16s(const Kvo16s* pSrc, KvoVAD2State_GSMAMR* pState, Kvo16s* pVadFlag,
                              Kvo16s ltpFlag) {
    if (!pSrc || !pState || !pVadFlag) return kvoErrNullPtr;
    const Kvo16s f1 = halfFrame(pSrc, pState, ltpFlag);
    const Kvo16s f2 = halfFrame(pSrc + 80, pState, ltpFlag);
    *pVadFlag = static_cast<Kvo16s>(f1 | f2);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
