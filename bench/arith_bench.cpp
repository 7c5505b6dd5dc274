// Throughput of the exported fixed-point arithmetic on coder-sized vectors.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "kvosc.h"

namespace {

std::vector<Kvo16s> noise16(int n, unsigned seed) {
    std::mt19937 g(seed);
    std::vector<Kvo16s> v(static_cast<size_t>(n));
    for (auto& x : v) x = static_cast<Kvo16s>(g());
    return v;
}

void BM_Mul_NR_16s_Sfs_80(benchmark::State& state) {
    auto a = noise16(80, 1), b = noise16(80, 2);
    std::vector<Kvo16s> d(80);
    for (auto _ : state) {
        kvosMul_NR_16s_Sfs(a.data(), b.data(), d.data(), 80, 15);
        benchmark::DoNotOptimize(d.data());
    }
}
BENCHMARK(BM_Mul_NR_16s_Sfs_80);

void BM_MulC_NR_16s_ISfs_80(benchmark::State& state) {
    auto a = noise16(80, 3);
    for (auto _ : state) {
        kvosMulC_NR_16s_ISfs(32767, a.data(), 80, 15);
        benchmark::DoNotOptimize(a.data());
    }
}
BENCHMARK(BM_MulC_NR_16s_ISfs_80);

void BM_DotProdAutoScale_40(benchmark::State& state) {
    auto a = noise16(40, 4), b = noise16(40, 5);
    Kvo32s dp, sfs;
    for (auto _ : state) {
        kvosDotProdAutoScale_16s32s_Sfs(a.data(), b.data(), 40, &dp, &sfs);
        benchmark::DoNotOptimize(dp);
    }
}
BENCHMARK(BM_DotProdAutoScale_40);

void BM_InvSqrt_32s_I_64(benchmark::State& state) {
    std::mt19937 g(6);
    std::vector<Kvo32s> src(64), v(64);
    for (auto& x : src) x = static_cast<Kvo32s>(g() >> 1);
    for (auto _ : state) {
        v = src;
        kvosInvSqrt_32s_I(v.data(), 64);
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK(BM_InvSqrt_32s_I_64);

void BM_RandomNoiseExcitation_40(benchmark::State& state) {
    std::vector<Kvo16s> d(40);
    Kvo16s seed = 11111;
    for (auto _ : state) {
        kvosRandomNoiseExcitation_G729B_16s(&seed, d.data(), 40);
        benchmark::DoNotOptimize(d.data());
    }
}
BENCHMARK(BM_RandomNoiseExcitation_40);

}  // namespace
