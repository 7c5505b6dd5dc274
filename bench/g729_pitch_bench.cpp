// G.729 pitch and gain stages on speech-like data: the open-loop searches of one frame, the
// closed-loop searches of one subframe (base, annex A, annex D), the adaptive vector, and the gain
// quantisers.  Argument 0 is the signal amplitude: 3000 is ordinary speech, 30000 drives the
// saturating paths.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>

#include "kvosc.h"

namespace {

// Voiced-like signal: a decaying pulse of period 57.3 samples plus a little noise.
void voiced(Kvo16s* v, int n, int amp, uint32_t seed) {
    for (int i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const double ph = std::fmod(i, 57.3);
        const double s = std::exp(-ph / 6.0) * std::cos(0.9 * ph) +
                         0.05 * (static_cast<int32_t>(seed >> 16) % 2000) / 1000.0;
        v[i] = static_cast<Kvo16s>(std::lround(amp * s));
    }
}

void impulse(Kvo16s* h) {
    for (int i = 0; i < 40; ++i)
        h[i] = static_cast<Kvo16s>(std::lround(4096.0 * std::pow(0.85, i) * std::cos(0.7 * i)));
}

void BM_OpenLoopPitchSearch_G729(benchmark::State& state) {
    Kvo16s s[223];
    voiced(s, 223, static_cast<int>(state.range(0)), 1);
    Kvo16s t;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosOpenLoopPitchSearch_G729_16s(s + 143, &t));
        benchmark::DoNotOptimize(t);
    }
}
BENCHMARK(BM_OpenLoopPitchSearch_G729)->Arg(3000)->Arg(30000);

void BM_OpenLoopPitchSearch_G729A(benchmark::State& state) {
    Kvo16s s[223];
    voiced(s, 223, static_cast<int>(state.range(0)), 2);
    Kvo16s t;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosOpenLoopPitchSearch_G729A_16s(s + 143, &t));
        benchmark::DoNotOptimize(t);
    }
}
BENCHMARK(BM_OpenLoopPitchSearch_G729A)->Arg(3000)->Arg(30000);

// Closed loop in subframe 1 (the widest window, 10 lags), the coder chosen by argument 1.
void BM_AdaptiveCodebookSearch(benchmark::State& state) {
    Kvo16s exc[194], work[194], x[40], h[40], delay[2], vec[40];
    voiced(exc, 194, static_cast<int>(state.range(0)), 3);
    for (int i = 0; i < 40; ++i) x[i] = static_cast<Kvo16s>(exc[154 + i] / 2);
    impulse(h);
    const int coder = static_cast<int>(state.range(1));
    for (auto _ : state) {
        for (int i = 0; i < 194; ++i) work[i] = exc[i];
        if (coder == 0)
            benchmark::DoNotOptimize(
                kvosAdaptiveCodebookSearch_G729_16s(57, x, h, work, delay, vec, 1));
        else if (coder == 1)
            benchmark::DoNotOptimize(
                kvosAdaptiveCodebookSearch_G729A_16s(57, x, h, work, delay, vec, 1));
        else
            benchmark::DoNotOptimize(
                kvosAdaptiveCodebookSearch_G729D_16s(57, x, h, work, 1, delay));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AdaptiveCodebookSearch)
    ->ArgNames({"amp", "coder"})
    ->Args({3000, 0})
    ->Args({3000, 1})
    ->Args({3000, 2})
    ->Args({30000, 0});

void BM_DecodeAdaptiveVector(benchmark::State& state) {
    Kvo16s exc[194], work[194];
    voiced(exc, 194, static_cast<int>(state.range(0)), 4);
    const Kvo16s delay[2] = {static_cast<Kvo16s>(state.range(1)), 1};
    for (auto _ : state) {
        for (int i = 0; i < 194; ++i) work[i] = exc[i];
        benchmark::DoNotOptimize(kvosDecodeAdaptiveVector_G729_16s_I(delay, work));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_DecodeAdaptiveVector)
    ->ArgNames({"amp", "lag"})
    ->Args({3000, 57})
    ->Args({3000, 30})
    ->Args({30000, 57});

void BM_GainQuant(benchmark::State& state) {
    Kvo16s x[40], y1[40], code[40] = {}, y2[40], h[40], q[2], idx[2];
    voiced(x, 40, 3000, 5);
    voiced(y1, 40, 2500, 6);
    impulse(h);
    code[3] = 8192, code[14] = -8192, code[20] = 8192, code[37] = -8192;
    for (int n = 0; n < 40; ++n) {
        int32_t s = 0;
        for (int i = 0; i <= n; ++i) s += code[i] * h[n - i];
        y2[n] = static_cast<Kvo16s>(s >> 12);
    }
    const bool rate64 = state.range(0) != 0;
    for (auto _ : state) {
        Kvo16s past[4] = {-14336, -14336, -14336, -14336};
        benchmark::DoNotOptimize(rate64 ? kvosGainQuant_G729D_16s(x, y1, code, y2, past, q, idx, 0)
                                        : kvosGainQuant_G729_16s(x, y1, code, y2, past, q, idx, 0));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GainQuant)->ArgName("rate64")->Arg(0)->Arg(1);

}  // namespace
