// G.729 algebraic codebook per 40-sample subframe: the correlation matrix,
// each search with its matrix (the searches consume their matrix, so the
// matrix copy is part of every iteration), on speech-like impulse responses
// and targets.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

struct Subframe {
    Kvo16s h[40], x[40], d[40];
};

// Resonant weighted-synthesis impulse responses (Q12) and targets made of a
// few filtered pulses plus noise.
std::vector<Subframe> subframes(int n) {
    std::mt19937 g(2026);
    std::uniform_real_distribution<double> rho(0.6, 0.9), om(0.2, 2.5), nz(-300, 300);
    std::uniform_int_distribution<int> pos(0, 39), coin(0, 1);
    std::vector<Subframe> v(static_cast<size_t>(n));
    for (auto& s : v) {
        const double r = rho(g), w = om(g);
        for (int i = 0; i < 40; ++i)
            s.h[i] = static_cast<Kvo16s>(std::lround(4096.0 * std::pow(r, i) * std::cos(w * i)));
        double x[40] = {};
        for (int k = 0; k < 6; ++k) {
            const int p = pos(g);
            const double a = coin(g) ? 1500 : -1500;
            for (int i = p; i < 40; ++i) x[i] += a * s.h[i - p] / 4096.0;
        }
        for (int i = 0; i < 40; ++i) {
            const double y = x[i] + nz(g);
            s.x[i] = static_cast<Kvo16s>(y > 32767 ? 32767 : y < -32768 ? -32768 : y);
        }
        kvosCrossCorr_NormM_16s(s.h, s.x, 40, s.d);
    }
    return v;
}

const std::vector<Subframe>& data() {
    static const std::vector<Subframe> v = subframes(64);
    return v;
}

void BM_ToeplizMatrix_G729_16s32s(benchmark::State& state) {
    const auto& v = data();
    Kvo32s m[616];
    size_t k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosToeplizMatrix_G729_16s32s(v[k].h, m));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_ToeplizMatrix_G729_16s32s);

void BM_ToeplizMatrix_G729_16s(benchmark::State& state) {
    const auto& v = data();
    Kvo16s m[616];
    size_t k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosToeplizMatrix_G729_16s(v[k].h, m));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_ToeplizMatrix_G729_16s);

// Search including its matrix: what the encoder spends per subframe.
void BM_Search_G729_32s16s(benchmark::State& state) {
    const auto& v = data();
    Kvo32s m[616];
    Kvo16s code[40], idx[2], times = 0;
    size_t k = 0;
    for (auto _ : state) {
        kvosToeplizMatrix_G729_16s32s(v[k].h, m);
        benchmark::DoNotOptimize(kvosFixedCodebookSearch_G729_32s16s(
            v[k].d, m, code, idx, &times, static_cast<Kvo32s>(k & 1)));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_Search_G729_32s16s);

void BM_Search_G729_16s(benchmark::State& state) {
    const auto& v = data();
    Kvo16s m[616];
    Kvo16s code[40], idx[2], times = 0;
    size_t k = 0;
    for (auto _ : state) {
        kvosToeplizMatrix_G729_16s(v[k].h, m);
        benchmark::DoNotOptimize(kvosFixedCodebookSearch_G729_16s(
            v[k].d, m, code, idx, &times, static_cast<Kvo32s>(k & 1)));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_Search_G729_16s);

void BM_Search_G729A_32s16s(benchmark::State& state) {
    const auto& v = data();
    Kvo32s m[616];
    Kvo16s code[40], idx[2];
    size_t k = 0;
    for (auto _ : state) {
        kvosToeplizMatrix_G729_16s32s(v[k].h, m);
        benchmark::DoNotOptimize(kvosFixedCodebookSearch_G729A_32s16s(v[k].d, m, code, idx));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_Search_G729A_32s16s);

void BM_Search_G729A_16s(benchmark::State& state) {
    const auto& v = data();
    Kvo16s m[616];
    Kvo16s code[40], idx[2];
    size_t k = 0;
    for (auto _ : state) {
        kvosToeplizMatrix_G729_16s(v[k].h, m);
        benchmark::DoNotOptimize(kvosFixedCodebookSearch_G729A_16s(v[k].d, m, code, idx));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_Search_G729A_16s);

void BM_Search_G729D_16s(benchmark::State& state) {
    const auto& v = data();
    Kvo16s code[40], flt[40], sign, index;
    size_t k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            kvosFixedCodebookSearch_G729D_16s(v[k].d, v[k].h, code, flt, &sign, &index));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_Search_G729D_16s);

void BM_Search_G729E_16s(benchmark::State& state) {
    const auto& v = data();
    const Kvo16s mode = static_cast<Kvo16s>(state.range(0));
    Kvo16s code[40], flt[40], idx[5];
    size_t k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            kvosFixedCodebookSearch_G729E_16s(mode, v[k].x, v[k].x, v[k].h, code, flt, idx));
        benchmark::ClobberMemory();
        k = (k + 1) % v.size();
    }
}
BENCHMARK(BM_Search_G729E_16s)->Arg(0)->Arg(1);

}  // namespace
