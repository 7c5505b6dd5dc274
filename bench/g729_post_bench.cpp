// G.729 adaptive post-filter per 40-sample subframe: the main-body chain (1/8 resolution
// long-term filter, short-term filter, tilt compensation, gain control), the annex A chain
// (residual and harmonic filter, tilt preemphasis, synthesis, gain control), and the annex D
// phase dispersion; the long-term filters also alone, on voiced and on unvoiced residuals.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "kvosc.h"

namespace {

const Kvo16s kLpc[11] = {4096, -5600, 4120, -2410, 1520, -900, 610, -330, 170, -90, 40};

// Voiced residual: a decaying pulse every `period` samples plus a little noise; unvoiced:
// noise only.
void residual(Kvo16s* v, int n, int period, uint32_t seed) {
    for (int i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const int noise = static_cast<int32_t>(seed >> 16) % 400 - 200;
        const int k = period > 0 ? i % period : 1000;
        v[i] = static_cast<Kvo16s>(noise + (k < 6 ? 6000 >> k : 0));
    }
}

void BM_PostFilter_G729_Subframe(benchmark::State& state) {
    const int period = static_cast<int>(state.range(0));
    Kvo16s res[152 + 40], syn[10 + 40] = {}, imp[20];
    residual(res, 152 + 40, period, 7);
    Kvo16s ltp[40], out[10 + 40] = {}, gain = 16384, voice;
    for (auto _ : state) {
        kvosLongTermPostFilter_G729_16s(16384, period > 0 ? period : 60, res + 152, ltp, &voice);
        kvosShortTermPostFilter_G729_16s(kLpc, ltp, out + 10, imp);
        kvosTiltCompensation_G729_16s(imp, out + 10);
        kvosGainControl_G729_16s_I(syn + 10, out + 10, &gain);
        std::memcpy(out, out + 40, 10 * sizeof(Kvo16s));
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PostFilter_G729_Subframe)->Arg(0)->Arg(37)->Arg(91);

void BM_PostFilter_G729A_Subframe(benchmark::State& state) {
    Kvo16s speech[10 + 40], res[154 + 40], lpc2[22], ltp[40 + 1] = {}, gain = 4096;
    residual(speech, 50, 37, 3);
    residual(res, 154 + 40, 37, 5);
    for (int k = 0; k < 22; ++k) lpc2[k] = kLpc[k % 11];
    for (auto _ : state) {
        kvosLongTermPostFilter_G729A_16s(37, speech + 10, kLpc, res, ltp + 1);
        kvosTiltCompensation_G729A_16s(lpc2, ltp + 1);
        kvosGainControl_G729A_16s_I(speech + 10, ltp + 1, &gain);
        benchmark::DoNotOptimize(ltp);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PostFilter_G729A_Subframe);

void BM_LongTermPostFilter_G729(benchmark::State& state) {
    const int period = static_cast<int>(state.range(0));
    Kvo16s res[152 + 40], out[40], voice;
    residual(res, 152 + 40, period, 11);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosLongTermPostFilter_G729_16s(16384, period > 0 ? period : 60,
                                                                 res + 152, out, &voice));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LongTermPostFilter_G729)->Arg(0)->Arg(37)->Arg(143);

void BM_PhaseDispersion_G729D(benchmark::State& state) {
    KvoPhaseDispersionState_G729D st;
    kvosPhaseDispersionInit_G729D_16s(&st);
    Kvo16s exc[40], out[40], inno[40], code[40] = {};
    residual(exc, 40, 0, 9);
    code[3] = 8191;
    code[21] = -8192;
    Kvo16s pitch = 8000;
    for (auto _ : state) {
        std::memcpy(inno, code, sizeof inno);
        kvosPhaseDispersion_G729D_16s(exc, out, 600, pitch, inno, &st);
        pitch = static_cast<Kvo16s>(pitch == 8000 ? 12000 : 8000);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_PhaseDispersion_G729D);

}  // namespace
