// Echo-canceller controllers on random geometry and random data: subband (float and
// 16-bit), fullband (float and 16-bit) and double-talk controllers, each record in a
// heap block of exactly the queried size at a random misalignment, a few frames each.
// Invariants: every call succeeds on a valid set-up, gains stay in [0, 1] (Q15 in
// 16 bits), steps are not negative, double-talk flags are 0 or 1, actions -1, 0, 1.
#include "common.h"
#include "kvosc.h"

namespace {

using kvosc::fuzz::HeapBuf;

// The caller's block: the queried bytes plus a misalignment taken from the input.
struct Block {
    HeapBuf<uint8_t> mem;
    size_t off;
    Block(Kvo32s bytes, size_t misalign) : mem(static_cast<size_t>(bytes) + misalign), off(misalign) {}
    template <class T>
    T* as() {
        return reinterpret_cast<T*>(mem.data() + off);
    }
};

template <class C>
struct Rows {
    HeapBuf<C> data;
    std::vector<C*> ptr;
    Rows(FuzzedDataProvider& fdp, int rows, int n)
        : data(fdp, static_cast<size_t>(rows) * static_cast<size_t>(n)), ptr(static_cast<size_t>(rows)) {
        for (int r = 0; r < rows; ++r) ptr[static_cast<size_t>(r)] = data.data() + static_cast<size_t>(r) * n;
    }
};

void subband(FuzzedDataProvider& fdp, int n, int segs, int frame, int rate) {
    const size_t mis = fdp.ConsumeIntegralInRange<size_t>(0, 15);
    Kvo32s bf = 0, bi = 0;
    KVOSC_FUZZ_CHECK(kvosSubbandControllerGetSize_EC_32f(n, frame, segs, rate, &bf) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosSubbandControllerGetSize_EC_16s(n, frame, segs, rate, &bi) == kvoOk);
    Block mf(bf, mis), mi(bi, mis);
    auto* sf = mf.as<KvoSubbandController32fState>();
    auto* si = mi.as<KvoSubbandController16sState>();
    KVOSC_FUZZ_CHECK(kvosSubbandControllerInit_EC_32f(sf, n, frame, segs, rate) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosSubbandControllerInit_EC_16s(si, n, frame, segs, rate) == kvoOk);
    for (int f = 0; f < 3 && fdp.remaining_bytes() > 0; ++f) {
        Rows<Kvo32fc> refF(fdp, segs, n), adF(fdp, segs, n), fxF(fdp, segs, n);
        Rows<Kvo32sc> refI(fdp, segs, n), adI(fdp, segs, n), fxI(fdp, segs, n);
        HeapBuf<Kvo32fc> eaF(fdp, n), efF(fdp, n);
        HeapBuf<Kvo32sc> eaI(fdp, n), efI(fdp, n);
        for (size_t k = 0; k < static_cast<size_t>(n); ++k) {  // finite float data
            for (Kvo32fc* v : {&eaF.data()[k], &efF.data()[k]})
                if (!(v->re == v->re && v->im == v->im)) *v = {0, 0};
        }
        HeapBuf<Kvo64f> stepF(n);
        HeapBuf<KvoStepPair> stepI(n);
        Kvo32f gf = -1;
        Kvo16s gi = -1;
        const Kvo32f blk = 0;
        const Kvo16s blk16 = 0;
        const float rate01 = fdp.ConsumeFloatingPointInRange<float>(0.0f, 1.0f);
        KVOSC_FUZZ_CHECK(kvosSubbandAPControllerUpdate_EC_32f(
                             const_cast<const Kvo32fc**>(refF.ptr.data()),
                             fdp.ConsumeBool() ? eaF.data() : nullptr, stepF.data(), sf, rate01) ==
                         kvoOk);
        KVOSC_FUZZ_CHECK(kvosSubbandControllerUpdate_EC_32f(
                             &blk, &blk, const_cast<const Kvo32fc**>(refF.ptr.data()), nullptr,
                             stepF.data(), sf) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosSubbandController_EC_32f(eaF.data(), efF.data(), adF.ptr.data(),
                                                      fxF.ptr.data(), &gf, sf) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosSubbandControllerUpdate_EC_16s(
                             &blk16, &blk16, const_cast<const Kvo32sc**>(refI.ptr.data()),
                             fdp.ConsumeBool() ? eaI.data() : nullptr, stepI.data(), si) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosSubbandController_EC_16s(eaI.data(), efI.data(), adI.ptr.data(),
                                                      fxI.ptr.data(), &gi, si) == kvoOk);
        KVOSC_FUZZ_CHECK(gi >= 0);
        for (int k = 0; k < n; ++k) KVOSC_FUZZ_CHECK(stepI.data()[k].mantissa >= 0);
    }
    KVOSC_FUZZ_CHECK(kvosSubbandControllerReset_EC_32f(sf) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosSubbandControllerReset_EC_16s(si) == kvoOk);
}

void doubleTalk(FuzzedDataProvider& fdp, int n, int segs, int frame, int rate) {
    Kvo32s bytes = 0;
    KVOSC_FUZZ_CHECK(kvosSubbandControllerDTGetSize_EC_16s(n, frame, segs, rate, &bytes) == kvoOk);
    Block m(bytes, 8 * fdp.ConsumeIntegralInRange<size_t>(0, 1));
    auto* st = m.as<KvoSubbandControllerDT16sState>();
    KVOSC_FUZZ_CHECK(kvosSubbandControllerDTInit_EC_16s(st, n, frame, segs, rate) == kvoOk);
    Kvo32s dt = 0, low = 0;
    for (int f = 0; f < 4 && fdp.remaining_bytes() > 0; ++f) {
        Rows<Kvo32sc> ref(fdp, 1, n), ad(fdp, segs, n), fx(fdp, segs, n);
        HeapBuf<Kvo32sc> mic(fdp, n), err(fdp, n), ef(fdp, n);
        HeapBuf<KvoStepPair> step(n);
        const Kvo32s start = fdp.ConsumeIntegralInRange<Kvo32s>(0, n);
        KVOSC_FUZZ_CHECK(kvosSubbandControllerDTUpdate_EC_16s(
                             const_cast<const Kvo32sc**>(ref.ptr.data()), mic.data(), err.data(),
                             step.data(), &dt, &low, start, st) == kvoOk);
        KVOSC_FUZZ_CHECK((dt == 0 || dt == 1) && (low == 0 || low == 1));
        Kvo64s tracked = fdp.ConsumeIntegral<Kvo64s>();
        Kvo32s action = 5;
        KVOSC_FUZZ_CHECK(kvosSubbandControllerDT_EC_16s(
                             err.data(), ef.data(), ad.ptr.data(), fx.ptr.data(), &tracked, &action,
                             fdp.ConsumeIntegral<Kvo64s>(), fdp.ConsumeIntegral<Kvo32s>(),
                             fdp.ConsumeIntegral<Kvo32s>(), start, st) == kvoOk);
        KVOSC_FUZZ_CHECK(action >= -1 && action <= 1);
    }
    KVOSC_FUZZ_CHECK(kvosSubbandControllerDTReset_EC_16s(st) == kvoOk);
}

void fullband(FuzzedDataProvider& fdp, int frame, int taps, int rate) {
    const size_t mis = fdp.ConsumeIntegralInRange<size_t>(0, 15);
    Kvo32s bf = 0, bi = 0;
    KVOSC_FUZZ_CHECK(kvosFullbandControllerGetSize_EC_32f(frame, taps, rate, &bf) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosFullbandControllerGetSize_EC_16s(frame, taps, rate, &bi) == kvoOk);
    Block mf(bf, mis), mi(bi, mis);
    auto* sf = mf.as<KvoFullbandController32fState>();
    auto* si = mi.as<KvoFullbandController16sState>();
    KVOSC_FUZZ_CHECK(kvosFullbandControllerInit_EC_32f(sf, frame, taps, rate) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosFullbandControllerInit_EC_16s(si, frame, taps, rate) == kvoOk);
    for (int f = 0; f < 3 && fdp.remaining_bytes() > 0; ++f) {
        HeapBuf<Kvo16s> ref(fdp, static_cast<size_t>(taps + frame)), mic(fdp, frame);
        HeapBuf<Kvo16s> ea(fdp, frame), ef(fdp, frame), ad(fdp, taps), fx(fdp, taps);
        HeapBuf<Kvo32f> reff(static_cast<size_t>(taps + frame)), micf(frame), eaf(frame), eff(frame);
        HeapBuf<Kvo32f> adf(taps), fxf(taps), stepf(frame);
        HeapBuf<Kvo32s> stepi(frame);
        for (int i = 0; i < taps + frame; ++i) reff.data()[i] = ref.data()[i];
        for (int i = 0; i < frame; ++i) {
            micf.data()[i] = mic.data()[i];
            eaf.data()[i] = ea.data()[i];
            eff.data()[i] = ef.data()[i];
        }
        for (int t = 0; t < taps; ++t) adf.data()[t] = ad.data()[t] / 32768.0f;
        Kvo32f gf = -1;
        Kvo16s gi = -1;
        KVOSC_FUZZ_CHECK(kvosFullbandControllerUpdate_EC_32f(reff.data() + taps, micf.data(),
                                                             stepf.data(), sf) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosFullbandControllerUpdate_EC_16s(ref.data() + taps, mic.data(),
                                                             stepi.data(), si) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosFullbandController_EC_32f(eaf.data(), eff.data(), adf.data(),
                                                       fxf.data(), &gf, sf) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosFullbandController_EC_16s(ea.data(), ef.data(), ad.data(), fx.data(),
                                                       &gi, si) == kvoOk);
        KVOSC_FUZZ_CHECK(gf >= 0.0f && gf <= 1.0001f && gi >= 0);
        for (int i = 0; i < frame; ++i) KVOSC_FUZZ_CHECK(stepf.data()[i] >= 0 && stepi.data()[i] >= 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int rate = fdp.ConsumeBool() ? 8000 : 16000;
    const int frame = fdp.ConsumeIntegralInRange<int>(1, 160);
    switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
        subband(fdp, fdp.ConsumeIntegralInRange<int>(1, 65), fdp.ConsumeIntegralInRange<int>(1, 40),
                frame, rate);
        break;
    case 1:
        doubleTalk(fdp, fdp.ConsumeIntegralInRange<int>(1, 126),
                   fdp.ConsumeIntegralInRange<int>(1, 40), frame, rate);
        break;
    default:
        fullband(fdp, frame, fdp.ConsumeIntegralInRange<int>(1, 512), rate);
        break;
    }
    return 0;
}
