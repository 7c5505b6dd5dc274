// Correlation kernels at coder sizes: the G.729 frame autocorrelation (240
// samples, 11 values), the pitch cross-correlation of a 40-sample subframe
// over the open-loop lag range, the codebook target correlation and the
// 40-sample partial convolutions.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "kvosc.h"

namespace {

std::vector<Kvo16s> noise16(int n, int amp, unsigned seed) {
    std::mt19937 g(seed);
    std::uniform_int_distribution<int> d(-amp, amp);
    std::vector<Kvo16s> v(static_cast<size_t>(n));
    for (auto& x : v) x = static_cast<Kvo16s>(d(g));
    return v;
}

void BM_AutoCorr_NormE_240x11(benchmark::State& state) {
    auto x = noise16(240, 2000, 1);
    Kvo32s r[11], n;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosAutoCorr_NormE_16s32s(x.data(), 240, r, 11, &n));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AutoCorr_NormE_240x11);

void BM_AutoCorr_NormE_NR_240x11(benchmark::State& state) {
    auto x = noise16(240, 32767, 2);
    Kvo16s r[11];
    Kvo32s n;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosAutoCorr_NormE_NR_16s(x.data(), 240, r, 11, &n));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AutoCorr_NormE_NR_240x11);

void BM_AutoCorr_G729B(benchmark::State& state) {
    auto x = noise16(240, static_cast<int>(state.range(0)), 3);
    Kvo32s r[13];
    Kvo16s n;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosAutoCorr_G729B(x.data(), &n, r));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AutoCorr_G729B)->Arg(1000)->Arg(32767);

// Pitch range of G.729: 40-sample subframe against lags 20..143 (124 values).
void BM_CrossCorr_NR_40x124(benchmark::State& state) {
    auto a = noise16(40, 8000, 4), b = noise16(40 + 123, 8000, 5);
    Kvo16s r[124];
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosCrossCorr_NR_16s(a.data(), b.data(), 40, r, 124));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CrossCorr_NR_40x124);

void BM_CrossCorr_NR_16s32s_80x124(benchmark::State& state) {
    auto a = noise16(80, 8000, 6), b = noise16(80 + 123, 8000, 7);
    Kvo32s r[124];
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosCrossCorr_NR_16s32s(a.data(), b.data(), 80, r, 124));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CrossCorr_NR_16s32s_80x124);

void BM_CrossCorr_NormM_40(benchmark::State& state) {
    auto h = noise16(40, 4096, 8), x = noise16(40, 8000, 9);
    Kvo16s r[40];
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosCrossCorr_NormM_16s(h.data(), x.data(), 40, r));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CrossCorr_NormM_40);

void BM_ConvPartial_16s_Sfs_40(benchmark::State& state) {
    auto x = noise16(40, 8000, 10), h = noise16(40, 4096, 11);
    Kvo16s r[40];
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosConvPartial_16s_Sfs(x.data(), h.data(), r, 40, 12));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ConvPartial_16s_Sfs_40);

void BM_ConvPartial_NR_16s_40(benchmark::State& state) {
    auto x = noise16(40, 8000, 12), h = noise16(40, 4096, 13);
    Kvo16s r[40];
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosConvPartial_NR_16s(x.data(), h.data(), r, 40));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ConvPartial_NR_16s_40);

void BM_ConvPartial_16s32s_40(benchmark::State& state) {
    auto x = noise16(40, 8000, 14), h = noise16(40, 4096, 15);
    Kvo32s r[40];
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosConvPartial_16s32s(x.data(), h.data(), r, 40));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ConvPartial_16s32s_40);

}  // namespace
