// G.726 at 32 kbit/s, 10 ms (80 samples) per iteration: our encoder and decoder
// (linear and A-law output) against an independent implementation on the same
// speech-like input.  The coders run continuously across iterations.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "kvosc.h"

#ifdef KVOSC_HAVE_SPANDSP
#include <spandsp.h>
#endif

namespace {

constexpr int kBlock = 80;
constexpr int kBlocks = 100;  // one second of signal, cycled

// 16-bit speech-like signal: harmonics of a gliding pitch under an envelope.
const std::vector<int16_t>& signal16() {
    static const std::vector<int16_t> x = [] {
        std::vector<int16_t> v(kBlock * kBlocks);
        double ph = 0.0;
        for (size_t n = 0; n < v.size(); ++n) {
            const double env = 0.5 + 0.5 * std::sin(6.2831853 * n / 2400.0);
            ph += 6.2831853 * (110.0 + 40.0 * std::sin(6.2831853 * n / 8000.0)) / 8000.0;
            double s = 0.0;
            for (int h = 1; h < 12; ++h) s += std::sin(h * ph) / h;
            v[n] = static_cast<int16_t>(env * 9000.0 * s);
        }
        return v;
    }();
    return x;
}

std::vector<int16_t> signal14() {
    std::vector<int16_t> v(signal16());
    for (auto& s : v) s = static_cast<int16_t>(s >> 2);
    return v;
}

std::vector<uint8_t> codes32() {
    const std::vector<int16_t> x = signal14();
    std::vector<uint8_t> c(x.size());
    KvoG726EncodeState st;
    kvosEncodeInit_G726_16s8u(&st, kvoRate32000);
    kvosEncode_G726_16s8u(&st, x.data(), c.data(), static_cast<int>(x.size()));
    return c;
}

void BM_G726_32_Encode_10ms(benchmark::State& state) {
    const std::vector<int16_t> x = signal14();
    uint8_t out[kBlock];
    KvoG726EncodeState st;
    kvosEncodeInit_G726_16s8u(&st, kvoRate32000);
    int b = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosEncode_G726_16s8u(&st, x.data() + b * kBlock, out, kBlock));
        benchmark::ClobberMemory();
        b = (b + 1) % kBlocks;
    }
}
BENCHMARK(BM_G726_32_Encode_10ms);

void decodeBench(benchmark::State& state, int law) {
    const std::vector<uint8_t> c = codes32();
    int16_t out[kBlock];
    KvoG726DecodeState st;
    kvosDecodeInit_G726_8u16s(&st, kvoRate32000, law);
    int b = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kvosDecode_G726_8u16s(&st, c.data() + b * kBlock, out, kBlock));
        benchmark::ClobberMemory();
        b = (b + 1) % kBlocks;
    }
}
void BM_G726_32_Decode_Linear_10ms(benchmark::State& state) {
    decodeBench(state, 2);
}
void BM_G726_32_Decode_ALaw_10ms(benchmark::State& state) {
    decodeBench(state, 1);
}
BENCHMARK(BM_G726_32_Decode_Linear_10ms);
BENCHMARK(BM_G726_32_Decode_ALaw_10ms);

#ifdef KVOSC_HAVE_SPANDSP
void BM_Peer_G726_32_Encode_10ms(benchmark::State& state) {
    const std::vector<int16_t>& x = signal16();
    uint8_t out[kBlock];
    g726_state_t* s = g726_init(nullptr, 32000, G726_ENCODING_LINEAR, G726_PACKING_NONE);
    int b = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(g726_encode(s, out, x.data() + b * kBlock, kBlock));
        benchmark::ClobberMemory();
        b = (b + 1) % kBlocks;
    }
    g726_free(s);
}
BENCHMARK(BM_Peer_G726_32_Encode_10ms);

void peerDecodeBench(benchmark::State& state, int coding) {
    const std::vector<uint8_t> c = codes32();
    int16_t out[kBlock];
    g726_state_t* s = g726_init(nullptr, 32000, coding, G726_PACKING_NONE);
    int b = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(g726_decode(s, out, c.data() + b * kBlock, kBlock));
        benchmark::ClobberMemory();
        b = (b + 1) % kBlocks;
    }
    g726_free(s);
}
void BM_Peer_G726_32_Decode_Linear_10ms(benchmark::State& state) {
    peerDecodeBench(state, G726_ENCODING_LINEAR);
}
void BM_Peer_G726_32_Decode_ALaw_10ms(benchmark::State& state) {
    peerDecodeBench(state, G726_ENCODING_ALAW);
}
BENCHMARK(BM_Peer_G726_32_Decode_Linear_10ms);
BENCHMARK(BM_Peer_G726_32_Decode_ALaw_10ms);
#endif

}  // namespace
