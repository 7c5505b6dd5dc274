// Fuzz target of the G.729 post-processing stages: arbitrary residuals, speech, LP sets,
// gains, delays, frame types and phase-dispersion records, every buffer on the heap at exactly
// the span the call may touch (history included), so that any access outside it is caught.
// Invariants checked: the delay reported by the long-term filter lies in its search window or
// is 0 with a plain copy; the annex A/B residual buffers change only at the subframe; the
// short-term filter leaves its memory alone; in-place and out-of-place preemphasis agree; the
// phase-dispersion record keeps its counters in range.
#include <cstdint>
#include <cstring>

#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

constexpr int kSub = 40;

void longTerm(FuzzedDataProvider& fdp) {
    const Kvo16s gamma =
        fdp.ConsumeBool() ? Kvo16s{16384} : fdp.ConsumeIntegralInRange<Kvo16s>(-2, 16386);
    const Kvo32s delay = fdp.ConsumeIntegralInRange<Kvo32s>(16, 145);
    HeapBuf<Kvo16s> src(fdp, 152 + kSub), dst(kSub), voice(1);
    const KvoStatus st =
        kvosLongTermPostFilter_G729_16s(gamma, delay, src.data() + 152, dst.data(), voice.data());
    const bool bad = delay < 18 || delay > 143 || static_cast<Kvo16u>(gamma) > 16384;
    KVOSC_FUZZ_CHECK(st == (bad ? kvoErrRange : kvoOk));
    if (bad) return;
    const int v = voice[0];
    if (v == 0)
        KVOSC_FUZZ_CHECK(std::memcmp(dst.data(), src.data() + 152, kSub * sizeof(Kvo16s)) == 0);
    else
        KVOSC_FUZZ_CHECK(v >= delay - 1 && v <= delay + 2);
}

void longTermAB(FuzzedDataProvider& fdp, bool annexB) {
    const Kvo32s delay = fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange<Kvo32s>(10, 150)
                                           : Kvo32s{fdp.ConsumeIntegral<Kvo16s>()};
    const Kvo16s type = fdp.ConsumeIntegralInRange<Kvo16s>(-1, 3);
    HeapBuf<Kvo16s> spch(fdp, 10 + kSub), lpc(fdp, 11), res(fdp, 154 + kSub), dst(kSub), voice(1);
    const std::vector<uint8_t> before = res.snapshot();
    KvoStatus st;
    if (annexB)
        st = kvosLongTermPostFilter_G729B_16s(delay, spch.data() + 10, lpc.data(), res.data(),
                                              dst.data(), voice.data(), type);
    else
        st = kvosLongTermPostFilter_G729A_16s(delay, spch.data() + 10, lpc.data(), res.data(),
                                              dst.data());
    if (st != kvoOk) {
        KVOSC_FUZZ_CHECK(st == kvoErrRange && res.same_as(before));
        return;
    }
    KVOSC_FUZZ_CHECK(std::memcmp(before.data(), res.data(), 154 * sizeof(Kvo16s)) == 0);
    if (annexB) KVOSC_FUZZ_CHECK(voice[0] == 0 || (voice[0] == 1 && type == 1));
}

void shortTerm(FuzzedDataProvider& fdp) {
    HeapBuf<Kvo16s> lpc(fdp, 11), src(fdp, kSub), dst(fdp, 10 + kSub), imp(20);
    std::vector<Kvo16s> mem(dst.data(), dst.data() + 10);
    const KvoStatus st =
        kvosShortTermPostFilter_G729_16s(lpc.data(), src.data(), dst.data() + 10, imp.data());
    KVOSC_FUZZ_CHECK(st == kvoOk || st == kvoWarnOverflow);
    KVOSC_FUZZ_CHECK(std::memcmp(mem.data(), dst.data(), 10 * sizeof(Kvo16s)) == 0);
    // The response feeds the tilt compensation, as in the decoder.
    KVOSC_FUZZ_CHECK(kvosTiltCompensation_G729_16s(imp.data(), dst.data() + 10) == kvoOk);
}

void tilt(FuzzedDataProvider& fdp) {
    HeapBuf<Kvo16s> h(fdp, 20), lpc(fdp, 22), io(fdp, 1 + kSub);
    if (fdp.ConsumeBool())
        KVOSC_FUZZ_CHECK(kvosTiltCompensation_G729_16s(h.data(), io.data() + 1) == kvoOk);
    else
        KVOSC_FUZZ_CHECK(kvosTiltCompensation_G729A_16s(lpc.data(), io.data() + 1) == kvoOk);
}

void preemphasis(FuzzedDataProvider& fdp) {
    const Kvo16s gamma = fdp.ConsumeIntegral<Kvo16s>();
    const int len = fdp.ConsumeIntegralInRange<int>(-1, 100);
    const size_t n = len > 0 ? static_cast<size_t>(len) : 0;
    HeapBuf<Kvo16s> src(fdp, n), dst(n), io(n), mem1(fdp, 1), mem2(1);
    if (n) std::memcpy(io.data(), src.data(), n * sizeof(Kvo16s));
    mem2[0] = mem1[0];
    const KvoStatus a = kvosPreemphasize_G729A_16s(gamma, src.data(), dst.data(), len, mem1.data());
    const KvoStatus b = kvosPreemphasize_G729A_16s_I(gamma, io.data(), len, mem2.data());
    KVOSC_FUZZ_CHECK(a == b && a == (len < 1 ? kvoErrSize : kvoOk));
    KVOSC_FUZZ_CHECK(mem1[0] == mem2[0]);
    if (n) KVOSC_FUZZ_CHECK(std::memcmp(dst.data(), io.data(), n * sizeof(Kvo16s)) == 0);
}

void gainControl(FuzzedDataProvider& fdp) {
    HeapBuf<Kvo16s> src(fdp, kSub), io(fdp, kSub), gain(fdp, 1);
    if (fdp.ConsumeBool())
        KVOSC_FUZZ_CHECK(kvosGainControl_G729_16s_I(src.data(), io.data(), gain.data()) == kvoOk);
    else
        KVOSC_FUZZ_CHECK(kvosGainControl_G729A_16s_I(src.data(), io.data(), gain.data()) == kvoOk);
}

void phaseDispersion(FuzzedDataProvider& fdp) {
    Kvo32s size = 0;
    KVOSC_FUZZ_CHECK(kvosPhaseDispersionGetStateSize_G729D_16s(&size) == kvoOk);
    HeapBuf<uint8_t> mem(fdp, static_cast<size_t>(size));
    auto* st = reinterpret_cast<KvoPhaseDispersionState_G729D*>(mem.data());
    if (fdp.ConsumeBool()) kvosPhaseDispersionInit_G729D_16s(st);
    const bool wasSane =
        st->prevDispersion >= 0 && st->prevDispersion <= 2 && st->onset >= 0 && st->onset <= 2;
    for (int f = fdp.ConsumeIntegralInRange<int>(1, 8); f > 0; --f) {
        const Kvo16s cb = fdp.ConsumeIntegral<Kvo16s>(), pitch = fdp.ConsumeIntegral<Kvo16s>();
        if (fdp.ConsumeIntegralInRange<int>(0, 5) == 0) {
            KVOSC_FUZZ_CHECK(kvosPhaseDispersionUpdate_G729D_16s(pitch, cb, st) == kvoOk);
            continue;
        }
        HeapBuf<Kvo16s> exc(fdp, kSub), out(kSub), inno(fdp, kSub);
        KVOSC_FUZZ_CHECK(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), cb, pitch,
                                                       inno.data(), st) == kvoOk);
        KVOSC_FUZZ_CHECK(st->gainHistory[0] == pitch && st->prevCbGain == cb);
        if (wasSane)
            KVOSC_FUZZ_CHECK(st->prevDispersion >= 0 && st->prevDispersion <= 2 && st->onset >= 0 &&
                             st->onset <= 2);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    switch (fdp.ConsumeIntegralInRange<int>(0, 7)) {
        case 0:
            longTerm(fdp);
            break;
        case 1:
            longTermAB(fdp, false);
            break;
        case 2:
            longTermAB(fdp, true);
            break;
        case 3:
            shortTerm(fdp);
            break;
        case 4:
            tilt(fdp);
            break;
        case 5:
            preemphasis(fdp);
            break;
        case 6:
            gainControl(fdp);
            break;
        default:
            phaseDispersion(fdp);
            break;
    }
    return 0;
}
