// G.729 LSP quantisation per frame: the main quantiser (LSF and LSP forms),
// the annex B silence-descriptor quantiser and the main decoder.
#include <benchmark/benchmark.h>

#include <cstring>

#include "kvosc.h"

namespace {

// A speech-like LSF vector (Q13) and a history of four copies of it.
const Kvo16s kLsf[10] = {2300, 3900, 6500, 8100, 10800, 13200, 15400, 17600, 20300, 22500};

void resetHistory(Kvo16s* h) {
    for (int k = 0; k < 4; ++k) std::memcpy(h + 10 * k, kLsf, sizeof kLsf);
}

void BM_LSFQuant_G729(benchmark::State& state) {
    Kvo16s h[40], q[10], idx[4];
    resetHistory(h);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLSFQuant_G729_16s(kLsf, h, q, idx));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LSFQuant_G729);

void BM_LSPQuant_G729(benchmark::State& state) {
    Kvo16s h[40], lsp[10], q[10], code[2];
    resetHistory(h);
    kvosLSFToLSP_G729_16s(kLsf, lsp);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLSPQuant_G729_16s(lsp, h, q, code));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LSPQuant_G729);

void BM_LSFQuant_G729B(benchmark::State& state) {
    Kvo16s h[40], q[10], idx[3];
    resetHistory(h);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLSFQuant_G729B_16s(kLsf, h, q, idx));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LSFQuant_G729B);

void BM_LSFDecode_G729(benchmark::State& state) {
    Kvo16s h[40], q[10];
    const Kvo16s idx[4] = {1, 77, 12, 25};
    resetHistory(h);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLSFDecode_G729_16s(idx, h, q));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LSFDecode_G729);

}  // namespace
