// Filter kernels on one G.729 subframe: order-10 synthesis (with history, in place, and the
// loud case that takes the saturating chain), residual and the high-pass filter over a frame.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "kvosc.h"

namespace {

// Mild Q12 LP filter and a speech-like test signal from a fixed LCG.
const Kvo16s kLpc[11] = {4096, -5600, 4120, -2410, 1520, -900, 610, -330, 170, -90, 40};

void fill(Kvo16s* v, int n, int amp, uint32_t seed) {
    for (int i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        v[i] = static_cast<Kvo16s>(static_cast<int32_t>(seed >> 16) % amp);
    }
}

void BM_SynthesisFilter_Order10_Len40(benchmark::State& state) {
    Kvo16s src[40], dst[40], mem[10];
    fill(src, 40, static_cast<int>(state.range(0)), 1);
    fill(mem, 10, 1000, 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosSynthesisFilter_NR_16s_Sfs(kLpc, src, dst, 40, 12, mem));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_SynthesisFilter_Order10_Len40)->Arg(300)->Arg(32767);

void BM_SynthesisFilter_I_Order10_Len40(benchmark::State& state) {
    Kvo16s src[40], io[40], mem[10];
    fill(src, 40, 300, 3);
    fill(mem, 10, 1000, 4);
    for (auto _ : state) {
        for (int i = 0; i < 40; ++i) io[i] = src[i];
        benchmark::DoNotOptimize(kvosSynthesisFilter_NR_16s_ISfs(kLpc, io, 40, 12, mem));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_SynthesisFilter_I_Order10_Len40);

void BM_ResidualFilter_G729(benchmark::State& state) {
    Kvo16s src[50], dst[40];
    fill(src, 50, static_cast<int>(state.range(0)), 5);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosResidualFilter_G729_16s(src + 10, kLpc, dst));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ResidualFilter_G729)->Arg(3000)->Arg(32767);

void BM_HighPassFilter_G729_80(benchmark::State& state) {
    // A second-order high-pass of the size of the pre-processing filter (Q12).
    const Kvo16s coeffs[6] = {4096, 7700, -3700, 1900, -3800, 1900};
    KvoHighPassState_G729 st;
    kvosHighPassFilterInit_G729(coeffs, &st);
    Kvo16s src[80], io[80];
    fill(src, 80, 20000, 6);
    for (auto _ : state) {
        for (int i = 0; i < 80; ++i) io[i] = src[i];
        benchmark::DoNotOptimize(kvosHighPassFilter_G729_16s_ISfs(io, 80, 12, &st));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_HighPassFilter_G729_80);

}  // namespace
