// Fuzz target of the GSM AMR decoder-side steps with arbitrary index words and states: the
// fixed-codebook decoder (amplitudes of the mode only, inside 40 samples), the lag decoder
// (lag held in 17..143, past excitation untouched, vector equal to the ordered saturating
// chain of the 61-point interpolator) and the post filter (bounded buffers, saturating).
#include "common.h"
#include "gsmamr/gsmamr_pitch_tables.h"
#include "kvosc.h"
#include "numeric/fixed.h"

using kvosc::fuzz::HeapBuf;

namespace {

const KvoSpeechRate kModes[] = {0, 1, 3, 6, 7, 8, 11, 12, 25};

KvoSpeechRate pickMode(FuzzedDataProvider& fdp) {
    if (fdp.ConsumeIntegralInRange(0, 15) == 0) return fdp.ConsumeIntegral<int32_t>();
    return kModes[fdp.ConsumeIntegralInRange(0, 8)];
}

bool valid(KvoSpeechRate m) {
    for (KvoSpeechRate v : kModes)
        if (v == m) return true;
    return false;
}

void fixedCodebook(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> idx(fdp, 10), code(40);
    const int16_t sf = fdp.ConsumeIntegralInRange<int16_t>(-1, 4);
    const KvoSpeechRate mode = pickMode(fdp);
    const auto before = code.snapshot();
    const KvoStatus st = kvosFixedCodebookDecode_GSMAMR_16s(idx, code, sf, mode);
    if (sf < 0 || sf > 3 || !valid(mode))
        return KVOSC_FUZZ_CHECK(st == kvoErrRange && code.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    // Amplitudes of the mode only: 4096 steps in 12.2, 8191 steps in 10.2, +-1 pulse otherwise.
    const bool m122 = mode == 12 || mode == 25;
    int pulses = 0;
    for (int i = 0; i < 40; ++i) {
        const int v = code[i], a = v < 0 ? -v : v;
        KVOSC_FUZZ_CHECK(m122         ? a % 4096 == 0
                         : mode == 11 ? a % 8191 == 0
                                      : a == 0 || v == 8191 || v == -8192);
        pulses += m122 ? a / 4096 : (a + 1) / 8191;
    }
    const int most = m122 ? 10 : mode == 11 ? 8 : mode == 6 ? 3 : mode >= 7 ? 4 : 2;
    KVOSC_FUZZ_CHECK(pulses <= most);
}

// Ordered chain of the adaptive vector in the published 61-point filter's phase layout.
void orderedVector(int16_t* e, int lag, int frac, bool thirds) {
    int g = thirds ? -2 * frac : -frac;
    const int16_t* x = e - lag;
    if (g < 0) g += 6, --x;
    for (int n = 0; n < 40; ++n, ++x) {
        int32_t s = 0;
        for (int i = 0; i < 10; ++i) {
            s = kvo::FMac_16s32s(s, x[-i], kvo::tab::inter_6new[g][i]);
            s = kvo::FMac_16s32s(s, x[1 + i], kvo::tab::inter_6new[6 - g][i]);
        }
        e[n] = kvo::round16(s);
    }
}

void adaptiveCodebook(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> exc(fdp, 194), vec(40), prevGood(1), lagBuf(1), lag(1);
    prevGood[0] = fdp.ConsumeIntegral<int16_t>();
    lag[0] = fdp.ConsumeIntegral<int16_t>();
    lagBuf[0] = fdp.ConsumeIntegral<int16_t>();
    const int32_t index = fdp.ConsumeBool() ? fdp.ConsumeIntegral<int32_t>()
                                            : fdp.ConsumeIntegralInRange<int32_t>(0, 520);
    const int16_t sf = fdp.ConsumeIntegralInRange<int16_t>(-1, 4);
    const int16_t bad = fdp.ConsumeIntegralInRange<int16_t>(0, 1);
    const int16_t bg = fdp.ConsumeIntegral<int16_t>(), hang = fdp.ConsumeIntegral<int16_t>();
    const KvoSpeechRate mode = pickMode(fdp);
    const auto before = exc.snapshot();
    const KvoStatus st = kvosAdaptiveCodebookDecode_GSMAMR_16s(index, prevGood, lagBuf, exc, lag,
                                                               vec, sf, bad, bg, hang, mode);
    const int idx16 = static_cast<int16_t>(index);
    if (sf < 0 || sf > 3) return KVOSC_FUZZ_CHECK(st == kvoErrSize && exc.same_as(before));
    if (!valid(mode) || (mode != 12 && (idx16 < 0 || idx16 > 511)))
        return KVOSC_FUZZ_CHECK(st == kvoErrRange && exc.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(lag[0] >= 17 && lag[0] <= 143);
    KVOSC_FUZZ_CHECK(std::memcmp(exc, before.data(), 154 * 2) == 0);
    KVOSC_FUZZ_CHECK(std::memcmp(vec, exc + 154, 80) == 0);
    // The vector is the chain at some fraction of the final lag.
    bool found = false;
    const bool thirds = mode != 12;
    for (int f = thirds ? -1 : -2; f <= (thirds ? 1 : 3) && !found; ++f) {
        HeapBuf<int16_t> model(194);
        std::memcpy(model, before.data(), 388);
        orderedVector(model + 154, lag[0], f, thirds);
        found = model.same_as(exc, 194);
    }
    KVOSC_FUZZ_CHECK(found);
}

void postFilter(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> lpc(fdp, 44), syn(fdp, 160), tilt(fdp, 1), gain(fdp, 1), hist(fdp, 10),
        mem(fdp, 10), out(160);
    const KvoSpeechRate mode = pickMode(fdp);
    const auto before = out.snapshot();
    const KvoStatus st = kvosPostFilter_GSMAMR_16s(lpc, syn, tilt, gain, hist, mem, out, mode);
    if (!valid(mode)) return KVOSC_FUZZ_CHECK(st == kvoErrRange && out.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(std::memcmp(hist, syn + 150, 20) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    switch (fdp.ConsumeIntegralInRange(0, 2)) {
        case 0:
            fixedCodebook(fdp);
            break;
        case 1:
            adaptiveCodebook(fdp);
            break;
        default:
            postFilter(fdp);
            break;
    }
    return 0;
}
