// Fuzz target of the AMR-WB decoder-side steps with arbitrary indices: the algebraic codebook
// decoder (pulse count and amplitudes), the adaptive codebook decoders with their lag
// concealment (lags inside the mode's range, reads inside the documented history), and the
// gain decoder with its bad-frame path (energy floor, untouched outputs).
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

constexpr KvoSpeechRate kModes[] = {5,  9,  13, 15, 16, 18, 19, 20, 21, 22, 25, 26,
                                    27, 28, 29, 30, 31, 32, 0,  10, 23, 33, -5};

// Pulses per subframe of each codebook mode (AMR-WB 5..22 and the AMR-WB+ 25..32); 0: invalid.
int pulsesOf(KvoSpeechRate m) {
    static const int kPulses[28] = {2,  0,  0,  0,  4, 0, 0, 0, 8, 0, 10, 12, 0,  16,
                                    18, 24, 24, 24, 0, 0, 2, 4, 6, 8, 10, 12, 16, 18};
    return m >= 5 && m <= 32 ? kPulses[m - 5] : 0;
}

void codebook(FuzzedDataProvider& fdp) {
    HeapBuf<Kvo16s> words(fdp, 8), code(64);
    const KvoSpeechRate mode = fdp.PickValueInArray(kModes);
    const auto before = code.snapshot();
    const KvoStatus st = kvosAlgebraicCodebookDecode_AMRWB_16s(words, code, mode);
    const int pulses = pulsesOf(mode);
    if (pulses == 0) return KVOSC_FUZZ_CHECK(st == kvoErrRange && code.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    // Coinciding pulses of opposite sign may cancel: the count keeps its parity.
    int total = 0;
    for (int n = 0; n < 64; ++n) {
        KVOSC_FUZZ_CHECK(code[n] % 512 == 0);
        total += (code[n] < 0 ? -code[n] : code[n]) / 512;
    }
    KVOSC_FUZZ_CHECK(total <= pulses && (pulses - total) % 2 == 0);
}

constexpr int kHist = 231 + 6 * 17 + 17;

void adaptive(FuzzedDataProvider& fdp) {
    HeapBuf<Kvo16s> exc(fdp, kHist + 65);
    KvoAdaptiveDecodeState_AMRWB st;
    kvosAdaptiveCodebookDecodeInit_AMRWB_16s(&st);
    for (int i = 0; i < 5; ++i)
        kvosAdaptiveCodebookDecodeUpdate_AMRWB_16s(
            fdp.ConsumeIntegral<Kvo16s>(), fdp.ConsumeIntegralInRange<Kvo32s>(34, 231), &st);
    const Kvo32u index = fdp.ConsumeIntegral<Kvo32u>();
    const Kvo32s lower = fdp.ConsumeIntegralInRange<Kvo32s>(34, 216);
    Kvo32s bounds[2] = {lower, lower + 15};
    const Kvo64s sub = fdp.ConsumeIntegralInRange<Kvo64s>(-1, 4);
    const Kvo32s bad = fdp.ConsumeIntegralInRange<Kvo32s>(0, 1);
    const Kvo32s unusable = fdp.ConsumeIntegralInRange<Kvo32s>(0, 1);
    if (fdp.ConsumeBool()) {
        const KvoSpeechRate mode = fdp.PickValueInArray(kModes);
        Kvo32s lag = -1, frac = -1;
        const KvoStatus s = kvosAdaptiveCodebookDecode_AMRWB_16s(
            index, &frac, exc + kHist, &lag, bounds, sub, bad, unusable, mode, &st);
        if (sub < 0 || sub > 3) return KVOSC_FUZZ_CHECK(s == kvoErrSize);
        const bool wb = mode == 5 || mode == 9 || mode == 25 ||
                        (mode >= 13 && mode <= 21 && mode != 14 && mode != 17);
        if (!wb) return KVOSC_FUZZ_CHECK(s == kvoErrRange);
        KVOSC_FUZZ_CHECK(s == kvoOk && lag >= 34 && lag <= 231 && frac >= 0 && frac <= 3);
        KVOSC_FUZZ_CHECK(bounds[1] - bounds[0] == 15 && bounds[0] >= 34 && bounds[1] <= 231);
    } else {
        const Kvo16s adj = fdp.ConsumeIntegralInRange<Kvo16s>(-17, 17);
        Kvo32s lag = fdp.ConsumeIntegralInRange<Kvo32s>(34 + adj, 231 + 6 * adj);
        Kvo32s frac = fdp.ConsumeIntegralInRange<Kvo32s>(0, 3);
        const Kvo32s lo = fdp.ConsumeIntegralInRange<Kvo32s>(34 + adj, 216 + 6 * adj);
        Kvo32s b2[2] = {lo, lo + 15};
        const KvoStatus s = kvosAdaptiveCodebookDecode_AMRWBE_16s(
            index, exc + kHist, &lag, &frac, b2, static_cast<Kvo32s>(sub), bad, adj);
        if (sub < 0 || sub > 3) return KVOSC_FUZZ_CHECK(s == kvoErrSize);
        KVOSC_FUZZ_CHECK(s == kvoOk && frac >= 0 && frac <= 3);
        KVOSC_FUZZ_CHECK(lag >= 34 + adj && lag <= 231 + 6 * adj);
    }
}

void gain(FuzzedDataProvider& fdp) {
    Kvo16s past[4];
    for (Kvo16s& p : past) p = fdp.ConsumeIntegral<Kvo16s>();
    // The previous code gain is what the decoder stored: round16 of a non-negative gain.
    Kvo16s prev = fdp.ConsumeIntegralInRange<Kvo16s>(0, 32767), cg = fdp.ConsumeIntegral<Kvo16s>();
    Kvo16s gp = 0x5a5a;
    Kvo32s gc = 0;
    const Kvo32s index = fdp.ConsumeIntegral<Kvo32s>();
    const Kvo32u inov = fdp.ConsumeIntegral<Kvo32u>();
    const Kvo32s bad = fdp.ConsumeIntegralInRange<Kvo32s>(0, 1);
    const Kvo32s prevBad = fdp.ConsumeIntegralInRange<Kvo32s>(0, 1);
    const KvoSpeechRate mode = fdp.PickValueInArray(kModes);
    const Kvo16s cgIn = cg, p0 = past[0];
    const KvoStatus s =
        kvosDecodeGain_AMRWB_16s(index, inov, &gp, &gc, bad, prevBad, past, &prev, &cg, mode);
    const bool wb = mode == 5 || mode == 9 || mode == 25 ||
                    (mode >= 13 && mode <= 21 && mode != 14 && mode != 17);
    if (!wb) return KVOSC_FUZZ_CHECK(s == kvoErrRange && gp == 0x5a5a && past[0] == p0);
    KVOSC_FUZZ_CHECK(s == kvoOk && past[1] == p0);
    if (bad) {
        KVOSC_FUZZ_CHECK(gp == 0x5a5a && cg == cgIn && past[0] >= -14336);
    } else {
        KVOSC_FUZZ_CHECK(gp >= 0 && gp <= 21234 && prev == cg);  // largest table pitch gain
        KVOSC_FUZZ_CHECK(gc >= 0 || static_cast<Kvo16s>(inov) < 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
            codebook(fdp);
            break;
        case 1:
            adaptive(fdp);
            break;
        default:
            gain(fdp);
            break;
    }
    return 0;
}
