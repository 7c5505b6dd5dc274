// Echo-path noise filter: time per frame of 16 samples (one iteration) at each rate, for the
// detector plus the suppressor (the usual pairing), and for the suppressor
// alone with the caller's noise decision, at levels 2 and 4.  The signal is
// low-pass noise with a 0.25 s burst of tone every 0.5 s, so that both noise
// and non-noise frames occur.
//
// Against the peers, per 10 ms in the same run (ratio.h): the library's steps
// (detector and filter), and the assembled suppressor of kvosc denoise, against
// the speexdsp preprocessor's noise suppression (8 and 16 kHz) and the webrtc
// audio processing noise suppression (16 kHz, level high).  One call of ours is
// the 10 ms of frames of 16 samples (the last partial frame carried over).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coders/denoiser.h"
#include "kvosc.h"
#include "ratio.h"

#if defined(KVOSC_HAVE_SPEEXDSP) && __has_include(<speex/speex_preprocess.h>)
#include <speex/speex_preprocess.h>
#define NF_BENCH_SPEEX 1
#endif
#if defined(KVOSC_HAVE_WEBRTC_AUDIO_PROCESSING) && \
    __has_include(<webrtc/modules/audio_processing/include/audio_processing.h>)
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#define NF_BENCH_WEBRTC 1
#endif

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

namespace {

// Streams 10 ms at a time through our two drivers; 160 samples at 16 kHz make ten frames
// of 16, 80 at 8 kHz five, 220.5 at 22.05 kHz and 320 at 32 kHz are taken as 224 and 320
// (whole frames).
struct OursPer10ms {
    std::vector<float> x;
    size_t at = 0, per = 0;
    Block steps;
    kvosc::Denoiser dn;
    float y[kFrame];
    explicit OursPer10ms(int rate)
        : x(test_signal(rate)),
          per((static_cast<size_t>(rate) / 100 + kFrame - 1) / kFrame),
          steps(rate, 2) {
        dn.init(rate, 3);
    }
    void run_steps() {
        for (size_t f = 0; f < per; ++f) {
            Kvo64f np;
            Kvo32f nm;
            Kvo32s flag;
            kvosFilterNoiseDetect_EC_32f64f(&x[at], &np, &nm, &flag, steps.st);
            kvosFilterNoise_EC_32f(&x[at], y, -1, steps.st);
            at = at + 2 * kFrame <= x.size() ? at + kFrame : 0;
        }
        benchmark::DoNotOptimize(y);
    }
    void run_denoiser() {
        for (size_t f = 0; f < per; ++f) {
            dn.step(&x[at], y);
            at = at + 2 * kFrame <= x.size() ? at + kFrame : 0;
        }
        benchmark::DoNotOptimize(y);
    }
};

#ifdef NF_BENCH_SPEEX
struct Speex {
    std::vector<spx_int16_t> pcm;
    size_t at = 0, fl;
    SpeexPreprocessState* st;
    explicit Speex(int rate) : fl(static_cast<size_t>(rate) / 100) {
        const std::vector<float> x = test_signal(rate);
        pcm.assign(x.begin(), x.end());
        st = speex_preprocess_state_init(static_cast<int>(fl), rate);
        int on = 1;
        speex_preprocess_ctl(st, SPEEX_PREPROCESS_SET_DENOISE, &on);
    }
    void run() {
        spx_int16_t b[320];
        std::copy(&pcm[at], &pcm[at] + fl, b);
        speex_preprocess_run(st, b);
        benchmark::DoNotOptimize(b);
        at = at + 2 * fl <= pcm.size() ? at + fl : 0;
    }
};
#endif

#ifdef NF_BENCH_WEBRTC
struct Webrtc {
    std::vector<float> x;
    size_t at = 0, fl;
    std::shared_ptr<webrtc::AudioProcessing> apm;
    webrtc::StreamConfig cfg;
    explicit Webrtc(int rate)
        : fl(static_cast<size_t>(rate) / 100),
          apm(webrtc::AudioProcessing::Create()),
          cfg(rate, 1) {
        x = test_signal(rate);
        for (float& v : x) v /= 32768.0f;
        apm->noise_suppression()->set_level(webrtc::NoiseSuppression::kHigh);
        apm->noise_suppression()->Enable(true);
    }
    void run() {
        float out[320];
        const float* src[1] = {&x[at]};
        float* dst[1] = {out};
        apm->ProcessStream(src, cfg, cfg, dst);
        benchmark::DoNotOptimize(out);
        at = at + 2 * fl <= x.size() ? at + fl : 0;
    }
};
#endif

[[maybe_unused]] int register_peer_pairs() {
    for (int rate : {8000, 16000}) {
        const std::string r = std::to_string(rate);
#ifdef NF_BENCH_SPEEX
        {
            auto ours = std::make_shared<OursPer10ms>(rate);
            auto peer = std::make_shared<Speex>(rate);
            kvosc::bench::register_pair(
                "NoiseSteps10ms_vs_speexdsp/" + r, [ours] { ours->run_steps(); },
                [peer] { peer->run(); });
            auto ours2 = std::make_shared<OursPer10ms>(rate);
            auto peer2 = std::make_shared<Speex>(rate);
            kvosc::bench::register_pair(
                "NoiseDenoise10ms_vs_speexdsp/" + r, [ours2] { ours2->run_denoiser(); },
                [peer2] { peer2->run(); });
        }
#endif
#ifdef NF_BENCH_WEBRTC
        if (rate == 16000) {
            auto ours = std::make_shared<OursPer10ms>(rate);
            auto peer = std::make_shared<Webrtc>(rate);
            kvosc::bench::register_pair(
                "NoiseSteps10ms_vs_webrtc/" + r, [ours] { ours->run_steps(); },
                [peer] { peer->run(); });
            auto ours2 = std::make_shared<OursPer10ms>(rate);
            auto peer2 = std::make_shared<Webrtc>(rate);
            kvosc::bench::register_pair(
                "NoiseDenoise10ms_vs_webrtc/" + r, [ours2] { ours2->run_denoiser(); },
                [peer2] { peer2->run(); });
        }
#endif
    }
    return 0;
}

[[maybe_unused]] const int kPeerPairs = register_peer_pairs();

// Ours alone per 10 ms at the two rates no peer here takes.
void BM_NoiseDenoise10ms(benchmark::State& state) {
    OursPer10ms o(static_cast<int>(state.range(0)));
    for (auto _ : state) o.run_denoiser();
    state.SetItemsProcessed(state.iterations());
}
void BM_NoiseSteps10ms(benchmark::State& state) {
    OursPer10ms o(static_cast<int>(state.range(0)));
    for (auto _ : state) o.run_steps();
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

BENCHMARK(BM_NoiseDenoise10ms)->Arg(8000)->Arg(16000)->Arg(22050)->Arg(32000);
BENCHMARK(BM_NoiseSteps10ms)->Arg(8000)->Arg(16000)->Arg(22050)->Arg(32000);
