// Echo cancellers: time per 10 ms of audio for every assembled canceller (apps/aec.cpp),
// in the same run as speexdsp's canceller at 8 kHz with 1024 taps and as the
// webrtc-audio-processing echo canceller at 16 kHz (each with its usual 10 ms frame).
// The scene is synthetic speech through a 5 ms + 24 ms echo path at 10 dB loss.
// Counters: ours_ns and peer_ns per 10 ms, peer/ours above 1 when ours is faster.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aec.h"
#include "ratio.h"
#include "sample.h"

#ifdef KVOSC_HAVE_SPEEXDSP
#include <speex/speex_echo.h>
#endif
#ifdef KVOSC_HAVE_WEBRTC_AUDIO_PROCESSING
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>
#endif

namespace {

using kvosc::aec::Kind;

struct Scene {
    std::vector<int16_t> far, mic;
};

Scene make_scene(int rate) {
    Scene s;
    s.far = kvosc::synth_speech(2.0, rate);
    const int d = 5 * rate / 1000, L = 24 * rate / 1000;
    std::vector<double> h(static_cast<size_t>(d + L), 0.0);
    uint32_t seed = 7;
    double e = 0;
    for (int i = 0; i < L; ++i) {
        seed = seed * 1664525u + 1013904223u;
        h[static_cast<size_t>(d + i)] = ((seed >> 8) / 16777216.0 - 0.5) * std::exp(-5.0 * i / L);
        e += h[static_cast<size_t>(d + i)] * h[static_cast<size_t>(d + i)];
    }
    for (double& v : h) v *= std::sqrt(0.1 / e);
    s.mic.resize(s.far.size());
    for (size_t n = 0; n < s.far.size(); ++n) {
        double y = 0;
        for (size_t k = 0; k < h.size() && k <= n; ++k) y += h[k] * s.far[n - k];
        s.mic[n] = static_cast<int16_t>(std::lround(y));
    }
    return s;
}

// One of ours, advanced by 10 ms per call (in its own frame size).
struct Ours {
    std::unique_ptr<kvosc::aec::Canceller> c;
    Scene s;
    std::vector<int16_t> out;
    size_t pos = 0, done = 0, per10 = 0;
    Ours(Kind k, int rate) : s(make_scene(rate)) {
        kvosc::aec::Config cfg;
        cfg.kind = k;
        cfg.rate = rate;
        cfg.tailMs = 128;
        std::string err;
        c = kvosc::aec::make_canceller(cfg, err);
        out.resize(s.far.size());
        per10 = static_cast<size_t>(rate / 100);
    }
    void tenMs() {
        const size_t N = static_cast<size_t>(c->frameSize());
        const size_t target = done + per10;
        kvosc::aec::FrameInfo info;
        while (done < target) {
            if (pos + N > s.far.size()) pos = 0;
            c->process(&s.far[pos], &s.mic[pos], &out[pos], info);
            pos += N;
            done += N;
        }
        benchmark::DoNotOptimize(out.data());
    }
};

#ifdef KVOSC_HAVE_SPEEXDSP
struct Speex {
    SpeexEchoState* st;
    Scene s;
    std::vector<int16_t> out;
    size_t pos = 0;
    int frame;
    explicit Speex(int rate) : s(make_scene(rate)), frame(rate / 100) {
        st = speex_echo_state_init(frame, 128 * rate / 1000);
        speex_echo_ctl(st, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
        out.resize(s.far.size());
    }
    ~Speex() { speex_echo_state_destroy(st); }
    void tenMs() {
        if (pos + static_cast<size_t>(frame) > s.far.size()) pos = 0;
        speex_echo_cancellation(st, &s.mic[pos], &s.far[pos], &out[pos]);
        pos += static_cast<size_t>(frame);
        benchmark::DoNotOptimize(out.data());
    }
};
#endif

#ifdef KVOSC_HAVE_WEBRTC_AUDIO_PROCESSING
struct Webrtc {
    webrtc::AudioProcessing* apm;
    Scene s;
    size_t pos = 0;
    int rate, frame;
    webrtc::AudioFrame farF, nearF;
    explicit Webrtc(int r) : apm(webrtc::AudioProcessing::Create()), s(make_scene(r)), rate(r), frame(r / 100) {
        apm->echo_cancellation()->Enable(true);
        for (webrtc::AudioFrame* f : {&farF, &nearF}) {
            f->sample_rate_hz_ = rate;
            f->num_channels_ = 1;
            f->samples_per_channel_ = static_cast<size_t>(frame);
        }
    }
    ~Webrtc() { delete apm; }
    void tenMs() {
        if (pos + static_cast<size_t>(frame) > s.far.size()) pos = 0;
        std::memcpy(farF.data_, &s.far[pos], sizeof(int16_t) * static_cast<size_t>(frame));
        std::memcpy(nearF.data_, &s.mic[pos], sizeof(int16_t) * static_cast<size_t>(frame));
        apm->ProcessReverseStream(&farF);
        apm->set_stream_delay_ms(0);
        apm->ProcessStream(&nearF);
        pos += static_cast<size_t>(frame);
        benchmark::DoNotOptimize(nearF.data_);
    }
};
#endif

[[maybe_unused]] const int kRegistered = [] {
    for (Kind k : {Kind::Subband, Kind::Subband16, Kind::DoubleTalk16, Kind::Fullband,
                   Kind::Fullband16}) {
        const std::string name = kvosc::aec::kind_name(k);
#ifdef KVOSC_HAVE_SPEEXDSP
        {
            auto ours = std::make_shared<Ours>(k, 8000);
            auto peer = std::make_shared<Speex>(8000);
            kvosc::bench::register_pair("EchoCanceller10ms_8k_" + name + "_vs_speexdsp",
                                        [ours] { ours->tenMs(); }, [peer] { peer->tenMs(); }, 4);
        }
#endif
#ifdef KVOSC_HAVE_WEBRTC_AUDIO_PROCESSING
        {
            auto ours = std::make_shared<Ours>(k, 16000);
            auto peer = std::make_shared<Webrtc>(16000);
            kvosc::bench::register_pair("EchoCanceller10ms_16k_" + name + "_vs_webrtc",
                                        [ours] { ours->tenMs(); }, [peer] { peer->tenMs(); }, 4);
        }
#endif
    }
    return 0;
}();

}  // namespace
