// Fuzz target of the G.729 post-processing stages: arbitrary residuals, speech,
// LP sets, gains, delays, frame types and phase-dispersion records.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;
using B = HeapBuf<Kvo16s>;

namespace {

void longTerm(FuzzedDataProvider& fdp) {
    const Kvo16s gamma = fdp.ConsumeBool() ? 16384 : fdp.ConsumeIntegralInRange<Kvo16s>(-2, 16386);
    const Kvo32s delay = fdp.ConsumeIntegralInRange(16, 145);
    B src(fdp, 152 + 40), dst(40), voice(1);
    const KvoStatus st = kvosLongTermPostFilter_G729_16s(gamma, delay, src + 152, dst, voice);
    const bool bad = delay < 18 || delay > 143 || Kvo16u(gamma) > 16384;
    KVOSC_FUZZ_CHECK(st == (bad ? kvoErrRange : kvoOk));
    if (bad) return;
    if (voice[0] == 0)
        KVOSC_FUZZ_CHECK(std::memcmp(dst, src + 152, 80) == 0);
    else
        KVOSC_FUZZ_CHECK(voice[0] >= delay - 1 && voice[0] <= delay + 2);
}

void longTermAB(FuzzedDataProvider& fdp) {
    const bool annexB = fdp.ConsumeBool();
    const Kvo32s delay = fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange(10, 150)
                                           : Kvo32s{fdp.ConsumeIntegral<Kvo16s>()};
    const Kvo16s type = fdp.ConsumeIntegralInRange<Kvo16s>(-1, 3);
    B spch(fdp, 10 + 40), lpc(fdp, 11), res(fdp, 154 + 40), dst(40), voice(1);
    const auto before = res.snapshot();
    const KvoStatus st =
        annexB ? kvosLongTermPostFilter_G729B_16s(delay, spch + 10, lpc, res, dst, voice, type)
               : kvosLongTermPostFilter_G729A_16s(delay, spch + 10, lpc, res, dst);
    if (st != kvoOk) return KVOSC_FUZZ_CHECK(st == kvoErrRange && res.same_as(before));
    KVOSC_FUZZ_CHECK(std::memcmp(before.data(), res, 154 * 2) == 0);
    if (annexB) KVOSC_FUZZ_CHECK(voice[0] == 0 || (voice[0] == 1 && type == 1));
}

void shortTermAndTilt(FuzzedDataProvider& fdp) {
    B lpc(fdp, 11), src(fdp, 40), dst(fdp, 10 + 40), imp(20), lpc2(fdp, 22), io(fdp, 1 + 40);
    const auto mem = dst.snapshot();
    const KvoStatus st = kvosShortTermPostFilter_G729_16s(lpc, src, dst + 10, imp);
    KVOSC_FUZZ_CHECK(st == kvoOk || st == kvoWarnOverflow);
    KVOSC_FUZZ_CHECK(std::memcmp(mem.data(), dst, 20) == 0);
    // the response feeds the tilt compensation, as in the decoder
    KVOSC_FUZZ_CHECK(kvosTiltCompensation_G729_16s(imp, dst + 10) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosTiltCompensation_G729A_16s(lpc2, io + 1) == kvoOk);
}

void preemphasisAndGain(FuzzedDataProvider& fdp) {
    const Kvo16s gamma = fdp.ConsumeIntegral<Kvo16s>();
    const int len = fdp.ConsumeIntegralInRange(-1, 100);
    const size_t n = len > 0 ? size_t(len) : 0;
    B src(fdp, n), dst(n), io(n), mem1(fdp, 1), mem2(1);
    std::memcpy(io, src, n * 2);
    mem2[0] = mem1[0];
    const KvoStatus a = kvosPreemphasize_G729A_16s(gamma, src, dst, len, mem1);
    const KvoStatus b = kvosPreemphasize_G729A_16s_I(gamma, io, len, mem2);
    KVOSC_FUZZ_CHECK(a == b && a == (len < 1 ? kvoErrSize : kvoOk));
    KVOSC_FUZZ_CHECK(mem1[0] == mem2[0] && dst.same_as(io, n));
    B s(fdp, 40), y(fdp, 40), gain(fdp, 1);
    KVOSC_FUZZ_CHECK((fdp.ConsumeBool() ? kvosGainControl_G729_16s_I : kvosGainControl_G729A_16s_I)(
                         s, y, gain) == kvoOk);
}

void phaseDispersion(FuzzedDataProvider& fdp) {
    Kvo32s size = 0;
    KVOSC_FUZZ_CHECK(kvosPhaseDispersionGetStateSize_G729D_16s(&size) == kvoOk);
    HeapBuf<uint8_t> mem(fdp, size_t(size));
    auto* st = reinterpret_cast<KvoPhaseDispersionState_G729D*>(mem.data());
    if (fdp.ConsumeBool()) kvosPhaseDispersionInit_G729D_16s(st);
    auto sane = [st] {
        return st->prevDispersion >= 0 && st->prevDispersion <= 2 && st->onset >= 0 &&
               st->onset <= 2;
    };
    const bool wasSane = sane();
    for (int f = fdp.ConsumeIntegralInRange(1, 8); f > 0; --f) {
        const Kvo16s cb = fdp.ConsumeIntegral<Kvo16s>(), pitch = fdp.ConsumeIntegral<Kvo16s>();
        if (fdp.ConsumeIntegralInRange(0, 5) == 0) {
            KVOSC_FUZZ_CHECK(kvosPhaseDispersionUpdate_G729D_16s(pitch, cb, st) == kvoOk);
            continue;
        }
        B exc(fdp, 40), out(40), inno(fdp, 40);
        KVOSC_FUZZ_CHECK(kvosPhaseDispersion_G729D_16s(exc, out, cb, pitch, inno, st) == kvoOk);
        KVOSC_FUZZ_CHECK(st->gainHistory[0] == pitch && st->prevCbGain == cb);
        if (wasSane) KVOSC_FUZZ_CHECK(sane());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    void (*const steps[])(FuzzedDataProvider&) = {longTerm, longTermAB, shortTermAndTilt,
                                                  preemphasisAndGain, phaseDispersion};
    steps[fdp.ConsumeIntegralInRange(0, 4)](fdp);
    return 0;
}
