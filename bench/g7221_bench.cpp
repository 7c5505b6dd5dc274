// G.722.1 transform steps, ns per call: windowing and folding both ways, the
// forward and inverse DCT-IV at 320 and 640 points, and the region coder.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "kvosc.h"

namespace {

// A speech-like frame: two tones and a little noise, peak about 12000.
std::vector<Kvo16s> frame(int len, double amp) {
    std::vector<Kvo16s> v(len);
    uint32_t seed = 777u + len;
    for (int i = 0; i < len; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const double x =
            amp * (0.6 * std::sin(0.031 * i) + 0.3 * std::sin(0.47 * i)) +
            amp * 0.1 * ((static_cast<int32_t>(seed >> 16) & 0xffff) - 32768) / 32768.0;
        v[i] = static_cast<Kvo16s>(x);
    }
    return v;
}

void BM_G7221_MLTToDCT(benchmark::State& st) {
    const int len = static_cast<int>(st.range(0));
    const auto x = frame(len, 12000);
    std::vector<Kvo16s> mem(len, 0), y(len);
    for (auto _ : st) {
        kvosDecomposeMLTToDCT_G7221_16s(x.data(), mem.data(), y.data(), len);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_G7221_MLTToDCT)->Arg(320)->Arg(640);

void BM_G7221_DCTToMLT(benchmark::State& st) {
    const int len = static_cast<int>(st.range(0));
    const auto x = frame(len, 12000);
    std::vector<Kvo16s> mem(len / 2, 0), y(len);
    for (auto _ : st) {
        kvosDecomposeDCTToMLT_G7221_16s(x.data(), mem.data(), y.data(), len);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_G7221_DCTToMLT)->Arg(320)->Arg(640);

void BM_G7221_DCTFwd(benchmark::State& st) {
    const int len = static_cast<int>(st.range(0));
    const auto x = frame(len, 12000);
    std::vector<Kvo16s> y(len);
    for (auto _ : st) {
        kvosDCTFwd_G7221_16s(x.data(), y.data(), len);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_G7221_DCTFwd)->Arg(320)->Arg(640);

void BM_G7221_DCTInv(benchmark::State& st) {
    const int len = static_cast<int>(st.range(0));
    const auto x = frame(len, 400);  // decoder-sized coefficients
    std::vector<Kvo16s> y(len);
    for (auto _ : st) {
        kvosDCTInv_G7221_16s(x.data(), y.data(), len);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_G7221_DCTInv)->Arg(320)->Arg(640);

void BM_G722_DCTFwd320(benchmark::State& st) {
    const auto x = frame(320, 12000);
    std::vector<Kvo16s> y(320);
    for (auto _ : st) {
        kvosDCTFwd_G722_16s(x.data(), y.data());
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_G722_DCTFwd320);

// One region per call, cycling through the categories at power index 34.
void BM_G722_HuffmanEncode(benchmark::State& st) {
    const auto x = frame(20 * 16, 1500);
    Kvo32u words[6];
    Kvo32s bits = 0;
    int r = 0;
    for (auto _ : st) {
        kvosHuffmanEncode_G722_16s32u(r % 7, 34, x.data() + 20 * (r % 16), words, &bits);
        benchmark::DoNotOptimize(words);
        ++r;
    }
}
BENCHMARK(BM_G722_HuffmanEncode);

}  // namespace
