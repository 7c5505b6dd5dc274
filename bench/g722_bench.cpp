// G.722 at 64 kbit/s per 10 ms (160 samples at 16 kHz): our encoder (QMF
// analysis + SB-ADPCM) and decoder (SB-ADPCM + QMF synthesis) against
// spandsp's on the same one-second speech-like signal, frame after frame.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "kvosc.h"

#ifdef KVOSC_HAVE_SPANDSP
#include <spandsp.h>
#endif

namespace {

constexpr int kFrame = 160;
constexpr int kFrames = 100;

// Two moving tones and a little noise, peak about 12000.
const std::vector<Kvo16s>& test_signal() {
    static const std::vector<Kvo16s> s = [] {
        std::vector<Kvo16s> v(kFrame * kFrames);
        uint32_t seed = 12345;
        for (size_t i = 0; i < v.size(); ++i) {
            seed = seed * 1664525u + 1013904223u;
            const double t = i / 16000.0;
            const double x = 6000 * std::sin(2 * M_PI * (180 + 60 * std::sin(7 * t)) * t) +
                             3000 * std::sin(2 * M_PI * 2400 * t) +
                             static_cast<int32_t>(seed >> 20) - 2048;
            v[i] = static_cast<Kvo16s>(x);
        }
        return v;
    }();
    return s;
}

struct OurEncoder {
    std::vector<Kvo8u> mem;
    Kvo16s qmf[24] = {};
    OurEncoder() {
        Kvo32s size = 0;
        kvosSBADPCMEncodeStateSize_G722_16s(&size);
        mem.resize(size);
        kvosSBADPCMEncodeInit_G722_16s(mem.data());
    }
    void frame(const Kvo16s* pcm, Kvo16s* code) {
        Kvo16s band[kFrame];
        kvosQMFEncode_G722_16s(pcm, band, kFrame, qmf);
        kvosSBADPCMEncode_G722_16s(band, code, kFrame, mem.data());
    }
};

struct OurDecoder {
    std::vector<Kvo8u> mem;
    Kvo16s qmf[24] = {};
    OurDecoder() {
        Kvo32s size = 0;
        kvosSBADPCMDecodeStateSize_G722_16s(&size);
        mem.resize(size);
        kvosSBADPCMDecodeInit_G722_16s(mem.data());
    }
    void frame(const Kvo16s* code, Kvo16s* pcm) {
        Kvo16s band[kFrame];
        kvosSBADPCMDecode_G722_16s(code, band, kFrame, 1, mem.data());
        kvosQMFDecode_G722_16s(band, pcm, kFrame, qmf);
    }
};

void BM_G722Encode64k_10ms(benchmark::State& state) {
    const auto& s = test_signal();
    OurEncoder enc;
    Kvo16s code[kFrame];
    int f = 0;
    for (auto _ : state) {
        enc.frame(s.data() + kFrame * f, code);
        benchmark::DoNotOptimize(code);
        f = f + 1 == kFrames ? 0 : f + 1;
    }
}
BENCHMARK(BM_G722Encode64k_10ms);

void BM_G722Decode64k_10ms(benchmark::State& state) {
    const auto& s = test_signal();
    std::vector<Kvo16s> codes(s.size());
    {
        OurEncoder enc;
        for (int f = 0; f < kFrames; ++f)
            enc.frame(s.data() + kFrame * f, codes.data() + kFrame * f);
    }
    OurDecoder dec;
    Kvo16s pcm[kFrame];
    int f = 0;
    for (auto _ : state) {
        dec.frame(codes.data() + kFrame * f, pcm);
        benchmark::DoNotOptimize(pcm);
        f = f + 1 == kFrames ? 0 : f + 1;
    }
}
BENCHMARK(BM_G722Decode64k_10ms);

#ifdef KVOSC_HAVE_SPANDSP

void BM_SpandspG722Encode64k_10ms(benchmark::State& state) {
    const auto& s = test_signal();
    g722_encode_state_t* enc = g722_encode_init(nullptr, 64000, 0);
    uint8_t code[kFrame / 2];
    int f = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(g722_encode(enc, code, s.data() + kFrame * f, kFrame));
        benchmark::DoNotOptimize(code);
        f = f + 1 == kFrames ? 0 : f + 1;
    }
    g722_encode_free(enc);
}
BENCHMARK(BM_SpandspG722Encode64k_10ms);

void BM_SpandspG722Decode64k_10ms(benchmark::State& state) {
    const auto& s = test_signal();
    std::vector<uint8_t> codes(s.size() / 2);
    {
        g722_encode_state_t* enc = g722_encode_init(nullptr, 64000, 0);
        g722_encode(enc, codes.data(), s.data(), static_cast<int>(s.size()));
        g722_encode_free(enc);
    }
    g722_decode_state_t* dec = g722_decode_init(nullptr, 64000, 0);
    int16_t pcm[kFrame];
    int f = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(g722_decode(dec, pcm, codes.data() + kFrame / 2 * f, kFrame / 2));
        benchmark::DoNotOptimize(pcm);
        f = f + 1 == kFrames ? 0 : f + 1;
    }
    g722_decode_free(dec);
}
BENCHMARK(BM_SpandspG722Decode64k_10ms);

#endif

}  // namespace
