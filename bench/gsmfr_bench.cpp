// GSM 06.10 full rate: the coder assembled from the exports against libgsm
// and spandsp on the same 2 s of speech-like signal (rtp frames, 33 octets).
// The counter "per10ms" is the time of 10 ms of audio (half a frame).
// Needs the assembled coders: kvosc_bench links kvosc_coders.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "kvosc.h"

#if defined(KVOSC_HAVE_LIBGSM)
#define KVOSC_GSMFR_BENCH_LIBGSM 1
#include <gsm.h>
#endif
#if defined(KVOSC_HAVE_SPANDSP) && __has_include(<spandsp.h>)
#define KVOSC_GSMFR_BENCH_SPANDSP 1
#include <spandsp.h>
#endif

namespace {

constexpr int kFrames = 100;  // 2 s

// Pulse train at a gliding pitch through two resonances, syllable envelope.
const std::vector<int16_t>& speech() {
    static const std::vector<int16_t> pcm = [] {
        std::vector<int16_t> v(kFrames * 160);
        double ph = 0, y1 = 0, y2 = 0, z1 = 0, z2 = 0;
        uint32_t seed = 1;
        for (size_t i = 0; i < v.size(); ++i) {
            const double t = i / 8000.0;
            ph += (120 + 40 * std::sin(4.4 * t)) / 8000.0;
            seed = seed * 1664525u + 1013904223u;
            double s = static_cast<int32_t>(seed) * 1e-11;
            if (ph >= 1) {
                ph -= 1;
                s += 1;
            }
            const double y = s + 1.7 * y1 - 0.94 * y2;
            y2 = y1;
            y1 = y;
            const double z = y + 0.4 * z1 - 0.9 * z2;
            z2 = z1;
            z1 = z;
            const double env = 0.5 + 0.5 * std::sin(2 * M_PI * 3 * t);
            v[i] = static_cast<int16_t>(std::fmax(-32768, std::fmin(32767, 2000 * env * z)));
        }
        return v;
    }();
    return pcm;
}

void perTenMs(benchmark::State& state) {
    state.counters["per10ms"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kFrames * 2,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

const kvosc::coders::Options kRtp{{{"format", "rtp"}}};

void BM_GsmFr_Encode_Kvosc(benchmark::State& state) {
    const auto* c = kvosc::coders::find_coder("gsmfr");
    std::vector<uint8_t> stream;
    std::string err;
    for (auto _ : state) {
        c->encode(kRtp, speech(), stream, err);
        benchmark::DoNotOptimize(stream.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_GsmFr_Encode_Kvosc);

void BM_GsmFr_Decode_Kvosc(benchmark::State& state) {
    const auto* c = kvosc::coders::find_coder("gsmfr");
    std::vector<uint8_t> stream;
    std::vector<int16_t> pcm;
    std::string err;
    c->encode(kRtp, speech(), stream, err);
    for (auto _ : state) {
        c->decode(kRtp, stream, pcm, err);
        benchmark::DoNotOptimize(pcm.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_GsmFr_Decode_Kvosc);

#ifdef KVOSC_GSMFR_BENCH_LIBGSM
void BM_GsmFr_Encode_Libgsm(benchmark::State& state) {
    std::vector<gsm_byte> stream(kFrames * 33);
    std::vector<gsm_signal> in(speech().begin(), speech().end());
    for (auto _ : state) {
        gsm g = gsm_create();
        for (int f = 0; f < kFrames; ++f) gsm_encode(g, &in[f * 160], &stream[f * 33]);
        gsm_destroy(g);
        benchmark::DoNotOptimize(stream.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_GsmFr_Encode_Libgsm);

void BM_GsmFr_Decode_Libgsm(benchmark::State& state) {
    std::vector<gsm_byte> stream(kFrames * 33);
    std::vector<gsm_signal> in(speech().begin(), speech().end()), out(kFrames * 160);
    gsm e = gsm_create();
    for (int f = 0; f < kFrames; ++f) gsm_encode(e, &in[f * 160], &stream[f * 33]);
    gsm_destroy(e);
    for (auto _ : state) {
        gsm g = gsm_create();
        for (int f = 0; f < kFrames; ++f) gsm_decode(g, &stream[f * 33], &out[f * 160]);
        gsm_destroy(g);
        benchmark::DoNotOptimize(out.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_GsmFr_Decode_Libgsm);
#endif

#ifdef KVOSC_GSMFR_BENCH_SPANDSP
void BM_GsmFr_Encode_Spandsp(benchmark::State& state) {
    std::vector<uint8_t> stream(kFrames * 33);
    for (auto _ : state) {
        gsm0610_state_t* s = gsm0610_init(nullptr, GSM0610_PACKING_VOIP);
        gsm0610_encode(s, stream.data(), speech().data(), kFrames * 160);
        gsm0610_free(s);
        benchmark::DoNotOptimize(stream.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_GsmFr_Encode_Spandsp);

void BM_GsmFr_Decode_Spandsp(benchmark::State& state) {
    std::vector<uint8_t> stream(kFrames * 33);
    std::vector<int16_t> out(kFrames * 160);
    gsm0610_state_t* e = gsm0610_init(nullptr, GSM0610_PACKING_VOIP);
    gsm0610_encode(e, stream.data(), speech().data(), kFrames * 160);
    gsm0610_free(e);
    for (auto _ : state) {
        gsm0610_state_t* s = gsm0610_init(nullptr, GSM0610_PACKING_VOIP);
        gsm0610_decode(s, out.data(), stream.data(), kFrames * 33);
        gsm0610_free(s);
        benchmark::DoNotOptimize(out.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_GsmFr_Decode_Spandsp);
#endif

}  // namespace
