// Echo-canceller kernels per frame: the subband chain of one block (two analyses, FIR,
// coefficient update, synthesis) on the (6, 44, 256) bank with 30 rows of 33 subbands,
// and the fullband NLMS filter of 1024 taps over a 10 ms frame at 8 kHz, float and
// 16-bit, beside speexdsp's canceller on the same frame size and tail.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "kvosc.h"

#ifdef KVOSC_HAVE_SPEEXDSP
#include <speex/speex_echo.h>
#endif

namespace {

std::vector<Kvo16s> noise16(size_t n, unsigned seed) {
    std::mt19937 g(seed);
    std::normal_distribution<double> d(0, 3000);
    std::vector<Kvo16s> v(n);
    for (auto& x : v) x = static_cast<Kvo16s>(d(g));
    return v;
}

struct Mem {
    std::vector<uint8_t> b;
    explicit Mem(Kvo32s n) : b(static_cast<size_t>(n) + 16) {}
    uint8_t* p() { return b.data(); }
};

void BM_EcSubbandBlock_32f(benchmark::State& state) {
    constexpr int S = 30, K = 33, B = 44;
    Kvo32s sz, isz, wsz;
    kvosSubbandProcessGetSize_32f(6, 256, &sz, &isz, &wsz);
    Mem a(sz), m(sz), s(sz), w(wsz);
    auto* sa = reinterpret_cast<KvoSubbandProcess32fState*>(a.p());
    auto* sm = reinterpret_cast<KvoSubbandProcess32fState*>(m.p());
    auto* ss = reinterpret_cast<KvoSubbandProcess32fState*>(s.p());
    kvosSubbandProcessInit_32f(sa, 6, B, 256, nullptr, nullptr);
    kvosSubbandProcessInit_32f(sm, 6, B, 256, nullptr, nullptr);
    kvosSubbandProcessInit_32f(ss, 6, B, 256, nullptr, nullptr);
    std::vector<std::vector<Kvo32fc>> X(S, std::vector<Kvo32fc>(K)), H = X;
    std::vector<const Kvo32fc*> xp, hp;
    std::vector<Kvo32fc*> hw;
    for (int r = 0; r < S; ++r) {
        xp.push_back(X[static_cast<size_t>(r)].data());
        hp.push_back(H[static_cast<size_t>(r)].data());
        hw.push_back(H[static_cast<size_t>(r)].data());
    }
    const auto f16 = noise16(B, 1), n16 = noise16(B, 2);
    std::vector<Kvo32f> far(f16.begin(), f16.end()), near(n16.begin(), n16.end()), out(B);
    std::vector<Kvo32fc> mic(K), y(K);
    std::vector<Kvo64f> step(K, 1e-9);
    for (auto _ : state) {
        kvosSubbandAnalysis_32f32fc(far.data(), X[0].data(), sa, w.p());
        kvosSubbandAnalysis_32f32fc(near.data(), mic.data(), sm, w.p());
        kvosFIRSubband_EC_32fc(xp.data(), hp.data(), y.data(), S, K);
        for (int k = 0; k < K; ++k) mic[k].re -= y[k].re, mic[k].im -= y[k].im;
        kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), xp.data(), mic.data(), hw.data(), S, K);
        kvosSubbandSynthesis_32fc32f(mic.data(), out.data(), ss, w.p());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_EcSubbandBlock_32f);

// The fixed-point subband FIR and coefficient update of one block, 30 rows of 33
// subbands with references near 2^20 and taps near 2^26 (the integer cancellers' levels).
void BM_EcSubbandFirUpdate_32sc(benchmark::State& state) {
    constexpr int S = 30, K = 33;
    std::mt19937 g(9);
    std::uniform_int_distribution<Kvo32s> ref(-(1 << 20), 1 << 20), tap(-(1 << 26), 1 << 26);
    std::vector<std::vector<Kvo32sc>> X(S, std::vector<Kvo32sc>(K)), H = X;
    std::vector<const Kvo32sc*> xp, hp;
    std::vector<Kvo32sc*> hw;
    for (int r = 0; r < S; ++r) {
        for (int k = 0; k < K; ++k) {
            X[size_t(r)][size_t(k)] = {ref(g), ref(g)};
            H[size_t(r)][size_t(k)] = {tap(g), tap(g)};
        }
        xp.push_back(X[size_t(r)].data());
        hp.push_back(H[size_t(r)].data());
        hw.push_back(H[size_t(r)].data());
    }
    std::vector<Kvo32sc> y(K), err(K, Kvo32sc{1000, -1000});
    std::vector<KvoStepPair> step(K, KvoStepPair{0x40000000, 80});
    for (auto _ : state) {
        kvosFIRSubband_EC_32sc_Sfs(xp.data(), hp.data(), y.data(), S, K, 24);
        kvosFIRSubbandCoeffUpdate_EC_32sc_I(step.data(), xp.data(), err.data(), hw.data(), S, K,
                                            24);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_EcSubbandFirUpdate_32sc);

template <bool kFixed>
void BM_EcNLMS_1024_80(benchmark::State& state) {
    constexpr int taps = 1024, len = 80;
    const auto r16 = noise16(taps + len, 3), m16 = noise16(len, 4);
    using T = std::conditional_t<kFixed, Kvo16s, Kvo32f>;
    std::vector<T> ref(r16.begin(), r16.end()), mic(m16.begin(), m16.end()), out(len), coef(taps);
    std::vector<std::conditional_t<kFixed, Kvo32s, Kvo32f>> step(len, kFixed ? 100 : 1e-9f);
    T mu = 0;
    for (auto _ : state) {
        if constexpr (kFixed)
            kvosNLMS_EC_16s(&ref[taps], mic.data(), step.data(), out.data(), len, coef.data(), taps,
                            &mu);
        else
            kvosNLMS_EC_32f(&ref[taps], mic.data(), step.data(), out.data(), len, coef.data(), taps,
                            &mu);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_EcNLMS_1024_80<false>);
BENCHMARK(BM_EcNLMS_1024_80<true>);

#ifdef KVOSC_HAVE_SPEEXDSP
void BM_Speexdsp_Echo_1024_80(benchmark::State& state) {
    SpeexEchoState* st = speex_echo_state_init(80, 1024);
    const auto far = noise16(80, 5), near = noise16(80, 6);
    std::vector<spx_int16_t> out(80);
    for (auto _ : state) {
        speex_echo_cancellation(st, near.data(), far.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    speex_echo_state_destroy(st);
}
BENCHMARK(BM_Speexdsp_Echo_1024_80);
#endif

}  // namespace
