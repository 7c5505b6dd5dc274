// Throughput of the vector layer's hot members on frame-sized vectors.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "numeric/vector.h"

namespace {

std::vector<Kvo16s> samples16(int n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-32768, 32767);
    std::vector<Kvo16s> v(n);
    for (auto& x : v) x = static_cast<Kvo16s>(d(rng));
    return v;
}

std::vector<Kvo32f> samples32f(int n, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<Kvo32f> v(n);
    for (auto& x : v) x = d(rng);
    return v;
}

void BM_DotProd_16s32s_Sfs(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto a = samples16(n, 1), b = samples16(n, 2);
    Kvo32s r;
    for (auto _ : st) {
        kvo::kvosDotProd_16s32s_Sfs(a.data(), b.data(), n, &r, 8);
        benchmark::DoNotOptimize(r);
    }
    st.SetItemsProcessed(st.iterations() * n);
}
BENCHMARK(BM_DotProd_16s32s_Sfs)->Arg(40)->Arg(160)->Arg(1024);

void BM_Add_16s(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto a = samples16(n, 3), b = samples16(n, 4);
    std::vector<Kvo16s> d(n);
    for (auto _ : st) {
        kvo::kvosAdd_16s(a.data(), b.data(), d.data(), n);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * n);
}
BENCHMARK(BM_Add_16s)->Arg(40)->Arg(160)->Arg(1024);

void BM_MulC_16s_Sfs(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto a = samples16(n, 5);
    std::vector<Kvo16s> d(n);
    for (auto _ : st) {
        kvo::kvosMulC_16s_Sfs(a.data(), 12345, d.data(), n, 15);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * n);
}
BENCHMARK(BM_MulC_16s_Sfs)->Arg(40)->Arg(160)->Arg(1024);

void BM_Mul_16s32s_Sfs(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto a = samples16(n, 6), b = samples16(n, 7);
    std::vector<Kvo32s> d(n);
    for (auto _ : st) {
        kvo::kvosMul_16s32s_Sfs(a.data(), b.data(), d.data(), n, 3);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * n);
}
BENCHMARK(BM_Mul_16s32s_Sfs)->Arg(160);

void BM_LinToALaw_16s8u(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto a = samples16(n, 8);
    std::vector<Kvo8u> d(n);
    for (auto _ : st) {
        kvo::kvosLinToALaw_16s8u(a.data(), d.data(), n);
        benchmark::DoNotOptimize(d.data());
    }
    st.SetItemsProcessed(st.iterations() * n);
}
BENCHMARK(BM_LinToALaw_16s8u)->Arg(160);

void BM_DotProd_32f(benchmark::State& st) {
    const int n = static_cast<int>(st.range(0));
    auto a = samples32f(n, 9), b = samples32f(n, 10);
    Kvo32f r;
    for (auto _ : st) {
        kvo::kvosDotProd_32f(a.data(), b.data(), n, &r);
        benchmark::DoNotOptimize(r);
    }
    st.SetItemsProcessed(st.iterations() * n);
}
BENCHMARK(BM_DotProd_32f)->Arg(40)->Arg(1024);

void BM_ConvBiased_32f(benchmark::State& st) {
    auto x = samples32f(31, 11), h = samples32f(110, 12);
    std::vector<Kvo32f> y(80);
    for (auto _ : st) {
        kvo::kvosConvBiased_32f(x.data(), 31, h.data() + 30, 110, y.data(), 80, 30);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_ConvBiased_32f);

}  // namespace
