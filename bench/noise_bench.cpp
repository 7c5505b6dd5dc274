// Echo-path noise filter: time per frame of 16 samples (one iteration) at each rate, for the
// detector plus the suppressor (the usual pairing), and for the suppressor
// alone with the caller's noise decision, at levels 2 and 4.  The signal is
// low-pass noise with a 0.25 s burst of tone every 0.5 s, so that both noise
// and non-noise frames occur.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "kvosc.h"

namespace {

constexpr int kFrame = 16;

std::vector<float> test_signal(int rate) {
    std::vector<float> v(static_cast<size_t>(rate) / kFrame * kFrame);
    uint32_t seed = 99;
    double acc = 0;
    for (size_t i = 0; i < v.size(); ++i) {
        seed = seed * 1664525u + 1013904223u;
        acc = 0.9 * acc + static_cast<int32_t>(seed) * 1e-7;
        const bool tone = (i * 4 / static_cast<size_t>(rate)) % 2 == 1;
        v[i] =
            static_cast<float>(acc + (tone ? 4000 * std::sin(0.21 * static_cast<double>(i)) : 0));
    }
    return v;
}

struct Block {
    std::vector<uint64_t> mem;
    KvoFilterNoise32fState* st;
    Block(int rate, int level) {
        Kvo32s bytes = 0;
        kvosFilterNoiseGetStateSize_EC_32f(rate, &bytes);
        mem.resize(static_cast<size_t>(bytes) / 8 + 1);
        st = reinterpret_cast<KvoFilterNoise32fState*>(mem.data());
        kvosFilterNoiseInit_EC_32f(rate, st);
        kvosFilterNoiseLevel_EC_32f(level, st);
    }
};

void BM_NoiseDetectAndFilter(benchmark::State& state) {
    const int rate = static_cast<int>(state.range(0));
    const std::vector<float> x = test_signal(rate);
    Block b(rate, static_cast<int>(state.range(1)));
    float y[kFrame];
    size_t at = 0;
    for (auto _ : state) {
        Kvo64f np;
        Kvo32f nm;
        Kvo32s flag;
        kvosFilterNoiseDetect_EC_32f64f(&x[at], &np, &nm, &flag, b.st);
        kvosFilterNoise_EC_32f(&x[at], y, -1, b.st);
        benchmark::DoNotOptimize(y);
        at = at + 2 * kFrame <= x.size() ? at + kFrame : 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_NoiseFilterDeclared(benchmark::State& state) {
    const int rate = static_cast<int>(state.range(0));
    const std::vector<float> x = test_signal(rate);
    Block b(rate, static_cast<int>(state.range(1)));
    float y[kFrame];
    size_t at = 0;
    for (auto _ : state) {
        // The first quarter second of every half is declared noise.
        const Kvo32s flag = (at * 4 / static_cast<size_t>(rate)) % 2 == 0 ? 1 : 0;
        kvosFilterNoise_EC_32f(&x[at], y, flag, b.st);
        benchmark::DoNotOptimize(y);
        at = at + 2 * kFrame <= x.size() ? at + kFrame : 0;
    }
    state.SetItemsProcessed(state.iterations());
}

void rates_and_levels(benchmark::internal::Benchmark* b) {
    for (int rate : {8000, 16000, 22050, 32000})
        for (int level : {2, 4}) b->Args({rate, level});
    b->ArgNames({"rate", "level"});
}

}  // namespace

BENCHMARK(BM_NoiseDetectAndFilter)->Apply(rates_and_levels);
BENCHMARK(BM_NoiseFilterDeclared)->Apply(rates_and_levels);
