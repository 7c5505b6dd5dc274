// Benchmarks of the LPC recursions and the root searches on a typical
// speech-like filter.
#include <benchmark/benchmark.h>

#include <cmath>

#include "kvosc.h"

namespace {

// Autocorrelation of a two-formant spectrum, normalised to the word.
void makeAutocorr(Kvo32s* R, int order) {
    const double f1 = 0.07, f2 = 0.21, b1 = 0.95, b2 = 0.9;
    for (int k = 0; k <= order; ++k) {
        const double v = std::pow(b1, k) * std::cos(6.2831853 * f1 * k) +
                         0.5 * std::pow(b2, k) * std::cos(6.2831853 * f2 * k) + (k == 0 ? 0.01 : 0);
        R[k] = Kvo32s(v / 1.51 * 2.0e9);
    }
}

void BM_LevinsonDurbin_G729(benchmark::State& state) {
    const int order = int(state.range(0));
    Kvo32s R[31];
    makeAutocorr(R, order);
    Kvo16s lpc[31], rc[30], res;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLevinsonDurbin_G729_32s16s(R, order, lpc, rc, &res));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LevinsonDurbin_G729)->Arg(10)->Arg(30);

void BM_LevinsonDurbin_G723(benchmark::State& state) {
    Kvo32s R32[11];
    makeAutocorr(R32, 10);
    Kvo16s R[11], lpc[10], res, sine = 0;
    for (int i = 0; i < 11; ++i) R[i] = Kvo16s(R32[i] >> 16);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLevinsonDurbin_G723_16s(R, &sine, &res, lpc));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LevinsonDurbin_G723);

void BM_LPCToLSP_G729(benchmark::State& state) {
    Kvo32s R[11];
    makeAutocorr(R, 10);
    Kvo16s lpc[11], rc[10], res, prev[10] = {}, lsp[10];
    kvosLevinsonDurbin_G729_32s16s(R, 10, lpc, rc, &res);
    for (auto _ : state) {
        benchmark::DoNotOptimize(state.range(0) ? kvosLPCToLSP_G729A_16s(lpc, prev, lsp)
                                                : kvosLPCToLSP_G729_16s(lpc, prev, lsp));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LPCToLSP_G729)->Arg(0)->Arg(1);

void BM_LPCToLSF_G723(benchmark::State& state) {
    Kvo32s R32[11];
    makeAutocorr(R32, 10);
    Kvo16s R[11], lpc[10], res, sine = 0, prev[10] = {}, lsf[10];
    for (int i = 0; i < 11; ++i) R[i] = Kvo16s(R32[i] >> 16);
    kvosLevinsonDurbin_G723_16s(R, &sine, &res, lpc);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLPCToLSF_G723_16s(lpc, prev, lsf));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LPCToLSF_G723);

}  // namespace
