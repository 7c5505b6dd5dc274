// Fuzz target of the echo-canceller kernels with random geometry: the filter bank (any
// order 1..9, block, window multiple, caller or built-in window, record at any offset),
// the subband FIR and coefficient updates (rows, subbands, start subband, scale and step
// pairs drawn from wide ranges, including invalid ones), the fullband FIR and NLMS with
// exact history, and the tone detectors.  Every vector sits in its own exact heap block.
// Invariants: each call returns the status its arguments imply, and a failed call writes
// nothing.
#include <cstdint>
#include <cstring>
#include <vector>

#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

void fuzz_bank(FuzzedDataProvider& fdp) {
    const bool fixed = fdp.ConsumeBool();
    const int order = fdp.ConsumeIntegralInRange<int>(1, 9);
    const int n = 1 << order;
    const int block = fdp.ConsumeIntegralInRange<int>(1, n + 1);
    const int win = n * fdp.ConsumeIntegralInRange<int>(1, 4) + (fdp.ConsumeBool() ? 0 : 1);
    const bool builtin = fdp.ConsumeIntegralInRange<int>(0, 3) == 0;
    const size_t off = fdp.ConsumeIntegralInRange<size_t>(0, 15);
    Kvo32s sz = 0, isz = 0, wsz = 0;
    const KvoStatus gs = fixed ? kvosSubbandProcessGetSize_16s(order, win, &sz, &isz, &wsz)
                               : kvosSubbandProcessGetSize_32f(order, win, &sz, &isz, &wsz);
    const bool multiple = win % n == 0;
    KVOSC_FUZZ_CHECK(gs == (multiple ? kvoOk : kvoErrBadArg));
    if (!multiple) return;
    HeapBuf<uint8_t> mem(static_cast<size_t>(sz) + off), ib(static_cast<size_t>(isz)),
        wb(static_cast<size_t>(wsz) + off);
    const bool known =
        (order == 5 && block == 24 && win == 128) || (order == 6 && block == 44 && win == 256);
    const KvoStatus want = block > n ? kvoErrBadArg : (builtin && !known ? kvoErrBadArg : kvoOk);
    KvoStatus st;
    if (fixed) {
        HeapBuf<Kvo16s> w(fdp, static_cast<size_t>(win));
        st = kvosSubbandProcessInit_16s(reinterpret_cast<KvoSubbandProcess16sState*>(mem + off),
                                        order, block, win, builtin ? nullptr : w.data(), ib);
    } else {
        HeapBuf<Kvo32f> w(static_cast<size_t>(win));
        for (int i = 0; i < win; ++i) w[i] = fdp.ConsumeIntegralInRange<int>(-3000, 3000) / 1000.0f;
        st = kvosSubbandProcessInit_32f(reinterpret_cast<KvoSubbandProcess32fState*>(mem + off),
                                        order, block, win, builtin ? nullptr : w.data(), ib);
    }
    KVOSC_FUZZ_CHECK(st == want);
    if (st != kvoOk) return;
    const size_t bands = static_cast<size_t>(n / 2 + 1);
    for (int frame = 0; frame < 8 && fdp.remaining_bytes() > 0; ++frame) {
        const bool synth = fdp.ConsumeBool();
        if (fixed) {
            auto* s = reinterpret_cast<KvoSubbandProcess16sState*>(mem + off);
            const int sf = fdp.ConsumeIntegralInRange<int>(-4, 20);
            if (synth) {
                HeapBuf<Kvo32sc> x(fdp, bands);
                HeapBuf<Kvo16s> y(static_cast<size_t>(block));
                KVOSC_FUZZ_CHECK(kvosSubbandSynthesis_32sc16s_Sfs(x, y, s, sf, wb + off) == kvoOk);
            } else {
                HeapBuf<Kvo16s> x(fdp, static_cast<size_t>(block));
                HeapBuf<Kvo32sc> y(bands);
                KVOSC_FUZZ_CHECK(kvosSubbandAnalysis_16s32sc_Sfs(x, y, s, sf, wb + off) == kvoOk);
            }
        } else {
            auto* s = reinterpret_cast<KvoSubbandProcess32fState*>(mem + off);
            if (synth) {
                HeapBuf<Kvo32fc> x(bands);
                for (size_t k = 0; k < bands; ++k)
                    x[k] = {fdp.ConsumeIntegral<int16_t>() * 1.0f,
                            fdp.ConsumeIntegral<int16_t>() * 1.0f};
                HeapBuf<Kvo32f> y(static_cast<size_t>(block));
                KVOSC_FUZZ_CHECK(kvosSubbandSynthesis_32fc32f(x, y, s, wb + off) == kvoOk);
            } else {
                HeapBuf<Kvo32f> x(static_cast<size_t>(block));
                for (int i = 0; i < block; ++i) x[i] = fdp.ConsumeIntegral<int16_t>();
                HeapBuf<Kvo32fc> y(bands);
                KVOSC_FUZZ_CHECK(kvosSubbandAnalysis_32f32fc(x, y, s, wb + off) == kvoOk);
            }
        }
    }
}

// Rows of exact heap blocks.
template <class C>
struct RowSet {
    std::vector<HeapBuf<C>*> rows;
    std::vector<C*> ptr;
    RowSet(FuzzedDataProvider& fdp, int count, int bands) {
        for (int r = 0; r < count; ++r) {
            rows.push_back(new HeapBuf<C>(fdp, static_cast<size_t>(bands)));
            ptr.push_back(rows.back()->data());
        }
    }
    ~RowSet() {
        for (auto* r : rows) delete r;
    }
    const C* const* c() const { return ptr.data(); }
    std::vector<uint8_t> snap() const {
        std::vector<uint8_t> s;
        for (auto* r : rows) {
            auto v = r->snapshot();
            s.insert(s.end(), v.begin(), v.end());
        }
        return s;
    }
};

void fuzz_subband(FuzzedDataProvider& fdp) {
    // Geometry: mostly valid, sometimes out of range (the rows then have the size a
    // valid call would read, and the call must refuse before touching them).
    const int segs = fdp.ConsumeIntegralInRange<int>(-1, 9);
    const int bands = fdp.ConsumeIntegralInRange<int>(-1, 40);
    const int start = fdp.ConsumeIntegralInRange<int>(-1, 42);
    const int sf = fdp.ConsumeIntegralInRange<int>(-33, 33);
    const int P = fdp.ConsumeIntegralInRange<int>(0, 3);
    const int nRows = segs > 0 ? segs + (P > 0 ? P - 1 : 0) : 1;
    const int nb = bands > 0 ? bands : 1;
    const bool segOk = segs >= 1 && segs <= 255, bandOk = bands >= 1 && bands <= 4097;
    const int which = fdp.ConsumeIntegralInRange<int>(0, 6);

    if (which <= 1 || which == 6) {  // float kernels
        RowSet<Kvo32fc> X(fdp, nRows, nb), H(fdp, segs > 0 ? segs : 1, nb);
        HeapBuf<Kvo32fc> e(fdp, static_cast<size_t>(nb)), y(static_cast<size_t>(nb));
        HeapBuf<Kvo64f> step(static_cast<size_t>(nb));
        bool neg = false;
        for (int k = 0; k < nb; ++k) {
            step[k] = fdp.ConsumeIntegralInRange<int>(-2, 1000) * 1e-9;
            neg |= step[k] < 0;
        }
        const auto before = H.snap();
        KvoStatus st, want = !bandOk ? kvoErrFilterLen : (!segOk ? kvoErrRange : kvoOk);
        if (which == 0) {
            st = kvosFIRSubband_EC_32fc(const_cast<const Kvo32fc**>(X.c()),
                                        const_cast<const Kvo32fc**>(H.c()), y, segs, bands);
        } else if (which == 1) {
            if (want == kvoOk && neg) want = kvoErrSize;
            st = kvosFIRSubbandCoeffUpdate_EC_32fc_I(step, const_cast<const Kvo32fc**>(X.c()), e,
                                                     H.ptr.data(), segs, bands);
        } else {
            std::vector<HeapBuf<Kvo64f>*> ms;
            std::vector<HeapBuf<Kvo32fc>*> es;
            std::vector<const Kvo64f*> mp;
            std::vector<const Kvo32fc*> ep;
            for (int j = 0; j < (P > 0 ? P : 1); ++j) {
                ms.push_back(new HeapBuf<Kvo64f>(static_cast<size_t>(nb)));
                es.push_back(new HeapBuf<Kvo32fc>(fdp, static_cast<size_t>(nb)));
                mp.push_back(ms.back()->data());
                ep.push_back(es.back()->data());
            }
            want = (bands < 1 || bands > 4097)          ? kvoErrFilterLen
                   : (segs < 1 || segs > 255 || P == 0) ? kvoErrRange
                                                        : kvoOk;
            st = kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(
                mp.data(), const_cast<const Kvo32fc**>(X.c()), ep.data(), H.ptr.data(),
                static_cast<Kvo32u>(segs), static_cast<Kvo32u>(bands), static_cast<Kvo32u>(P));
            for (auto* m : ms) delete m;
            for (auto* x : es) delete x;
        }
        KVOSC_FUZZ_CHECK(st == want);
        if (st != kvoOk) KVOSC_FUZZ_CHECK(H.snap() == before);
        return;
    }
    RowSet<Kvo32sc> X(fdp, nRows, nb), H(fdp, segs > 0 ? segs : 1, nb);
    HeapBuf<Kvo32sc> e(fdp, static_cast<size_t>(nb)), y(static_cast<size_t>(nb)),
        se(static_cast<size_t>(nb));
    HeapBuf<KvoStepPair> step(static_cast<size_t>(nb));
    bool neg = false;
    for (int k = 0; k < nb; ++k) {
        step[k] = {fdp.ConsumeIntegral<Kvo32s>(), fdp.ConsumeIntegralInRange<Kvo32s>(-200, 200)};
        neg |= step[k].mantissa < 0;
    }
    const auto before = H.snap();
    const bool startOk = start >= 0 && start <= bands;
    KvoStatus st, want;
    if (which == 2) {
        want = !bandOk ? kvoErrFilterLen : (!segOk || sf < -31 || sf > 31) ? kvoErrRange : kvoOk;
        st = kvosFIRSubband_EC_32sc_Sfs(const_cast<const Kvo32sc**>(X.c()),
                                        const_cast<const Kvo32sc**>(H.c()), y, segs, bands, sf);
    } else if (which == 3) {
        want = !bandOk                         ? kvoErrFilterLen
               : (!segOk || sf < 0 || sf > 31) ? kvoErrRange
               : neg                           ? kvoErrSize
                                               : kvoOk;
        st = kvosFIRSubbandCoeffUpdate_EC_32sc_I(step, const_cast<const Kvo32sc**>(X.c()), e,
                                                 H.ptr.data(), segs, bands, sf);
    } else {
        want = (!segOk || !startOk)  ? kvoErrRange
               : !bandOk             ? kvoErrFilterLen
               : (sf < 0 || sf > 31) ? kvoErrRange
                                     : kvoOk;
        if (which == 4)
            st = kvosFIRSubbandLow_EC_32sc_Sfs(const_cast<const Kvo32sc**>(X.c()),
                                               const_cast<const Kvo32sc**>(H.c()), segs, y, start,
                                               bands, sf);
        else
            st = kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(const_cast<const Kvo32sc**>(X.c()), e,
                                                        H.ptr.data(), segs, se, step, start, bands,
                                                        sf);
    }
    KVOSC_FUZZ_CHECK(st == want);
    if (st != kvoOk) KVOSC_FUZZ_CHECK(H.snap() == before);
}

void fuzz_fullband(FuzzedDataProvider& fdp) {
    const bool fixed = fdp.ConsumeBool(), nlms = fdp.ConsumeBool();
    const int len = fdp.ConsumeIntegralInRange<int>(0, 64),
              taps = fdp.ConsumeIntegralInRange<int>(0, 80);
    const size_t lead = static_cast<size_t>(taps > 0 ? taps : 0);
    const size_t n = static_cast<size_t>(len > 0 ? len : 1);
    const KvoStatus want = (len < 1 || taps < 1) ? kvoErrBadArg : kvoOk;
    KvoStatus st;
    if (fixed) {
        HeapBuf<Kvo16s> ref(fdp, lead + n), mic(fdp, n), out(n), coef(fdp, lead ? lead : 1);
        HeapBuf<Kvo32s> step(fdp, n);
        HeapBuf<Kvo16s> mu(fdp, 1);
        st = nlms ? kvosNLMS_EC_16s(ref + lead, mic, step, out, len, coef, taps, mu)
                  : kvosFIR_EC_16s(ref + lead, mic, out, len, coef, taps);
    } else {
        HeapBuf<Kvo32f> ref(lead + n), mic(n), out(n), coef(lead ? lead : 1), step(n), mu(1);
        for (size_t i = 0; i < lead + n; ++i) ref[i] = fdp.ConsumeIntegral<int16_t>();
        for (size_t i = 0; i < n; ++i)
            mic[i] = fdp.ConsumeIntegral<int16_t>(),
            step[i] = 1e-7f * fdp.ConsumeIntegral<uint8_t>();
        st = nlms ? kvosNLMS_EC_32f(ref + lead, mic, step, out, len, coef, taps, mu)
                  : kvosFIR_EC_32f(ref + lead, mic, out, len, coef, taps);
    }
    KVOSC_FUZZ_CHECK(st == want);
}

void fuzz_tone(FuzzedDataProvider& fdp) {
    const int rate = fdp.ConsumeBool() ? 8000 : 16000;
    const size_t off = fdp.ConsumeIntegralInRange<size_t>(0, 15);
    HeapBuf<uint8_t> m32(80 + off), m16(72 + off);
    auto* s32 = reinterpret_cast<KvoToneDetect32fState*>(m32 + off);
    auto* s16 = reinterpret_cast<KvoToneDetect16sState*>(m16 + off);
    KVOSC_FUZZ_CHECK(kvosToneDetectInit_EC_32f(s32, rate) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosToneDetectInit_EC_16s(s16, rate) == kvoOk);
    while (fdp.remaining_bytes() > 0) {
        const int len = fdp.ConsumeIntegralInRange<int>(1, 300);
        HeapBuf<Kvo16s> x(fdp, static_cast<size_t>(len));
        HeapBuf<Kvo32f> xf(static_cast<size_t>(len));
        for (int i = 0; i < len; ++i) xf[i] = x[i];
        Kvo32s r1 = -1, r2 = -1;
        KVOSC_FUZZ_CHECK(kvosToneDetect_EC_16s(x, len, &r1, s16) == kvoOk && (r1 == 0 || r1 == 1));
        KVOSC_FUZZ_CHECK(kvosToneDetect_EC_32f(xf, len, &r2, s32) == kvoOk && (r2 == 0 || r2 == 1));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    switch (fdp.ConsumeIntegralInRange<int>(0, 3)) {
        case 0:
            fuzz_bank(fdp);
            break;
        case 1:
            fuzz_subband(fdp);
            break;
        case 2:
            fuzz_fullband(fdp);
            break;
        default:
            fuzz_tone(fdp);
            break;
    }
    return 0;
}
