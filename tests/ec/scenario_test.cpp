// The assembled echo cancellers (apps/aec.cpp) on generated echo scenes, with the
// same scenes through speexdsp's canceller as the yardstick.
//
// A scene: far-end synthetic speech (or coloured noise) through a room echo path
// (pure delay, then an exponentially decaying random tail, scaled to an echo-return
// loss), near-end noise at -60 dBFS; the path changes half way; near-end speech for
// one second of double talk.  Figures: converged ERLE, time to 15 dB, ERLE in the
// second that ends 2 s after the path change, near-end distortion during double talk
// (SNR of the output against the near-end speech), and divergence (ERLE after double
// talk against before).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "aec.h"
#include "sample.h"
#include "support/signals.h"

#ifdef KVOSC_HAVE_SPEEXDSP
#include <speex/speex_echo.h>
#endif

namespace {

using kvosc::aec::Kind;

struct PathSpec {
    double delayMs, tailMs, erlDb;
    uint32_t seed;
};

// Impulse response: zeros for the delay, then Gaussian taps under exp(-5 t / tail),
// scaled to the echo-return loss.
std::vector<double> make_path(const PathSpec& p, int rate) {
    const int d = static_cast<int>(p.delayMs * rate / 1000), L = static_cast<int>(p.tailMs * rate / 1000);
    std::vector<double> h(static_cast<size_t>(d + L), 0.0);
    std::mt19937 rng(p.seed);
    std::normal_distribution<double> g(0.0, 1.0);
    double e = 0;
    for (int i = 0; i < L; ++i) {
        h[d + i] = g(rng) * std::exp(-5.0 * i / L);
        e += h[d + i] * h[d + i];
    }
    const double s = std::sqrt(std::pow(10.0, -p.erlDb / 10) / e);
    for (double& v : h) v *= s;
    return h;
}

std::vector<double> convolve(const std::vector<int16_t>& x, const std::vector<double>& h, size_t from,
                             size_t to) {
    std::vector<double> y(to - from, 0.0);
    for (size_t n = from; n < to; ++n)
        for (size_t k = 0; k < std::min(h.size(), n + 1); ++k) y[n - from] += h[k] * x[n - k];
    return y;
}

// Coloured noise: white Gaussian noise through a one-pole low-pass (pole 0.8).
std::vector<int16_t> coloured_noise(size_t n, uint32_t seed, double rms) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> g(0.0, 1.0);
    std::vector<int16_t> v(n);
    double s = 0;
    const double gain = rms * std::sqrt(1 - 0.64);
    for (size_t i = 0; i < n; ++i) {
        s = 0.8 * s + g(rng);
        v[i] = static_cast<int16_t>(std::lround(std::clamp(s * gain, -32768.0, 32767.0)));
    }
    return v;
}

struct Scene {
    int rate;
    std::vector<int16_t> far, mic, nearSpeech;  // mic = echo + noise + near speech
    std::vector<double> echoNoise;              // mic without the near speech
    size_t change, dtFrom, dtTo;
};

// 8 s: path A until 4 s, path B after; near-end speech from 6 to 7 s (if dt).
Scene make_scene(int rate, bool speech, bool dt, const PathSpec& a, const PathSpec& b) {
    Scene s;
    s.rate = rate;
    const size_t n = static_cast<size_t>(8 * rate);
    s.change = n / 2;
    s.dtFrom = static_cast<size_t>(6 * rate);
    s.dtTo = static_cast<size_t>(7 * rate);
    s.far = speech ? kvosc::synth_speech(8.0, rate) : coloured_noise(n, 21, 3000);
    s.far.resize(n);
    const auto e1 = convolve(s.far, make_path(a, rate), 0, s.change);
    const auto e2 = convolve(s.far, make_path(b, rate), s.change, n);
    std::mt19937 rng(99);
    std::normal_distribution<double> g(0.0, 32768.0 * 0.001);  // -60 dBFS
    s.nearSpeech.assign(n, 0);
    if (dt) {
        // Another talker, of another pitch and other formants.
        const auto v = kvosc::test::speech_like(static_cast<int>(s.dtTo - s.dtFrom), 7, 30000, rate);
        std::copy(v.begin(), v.end(), s.nearSpeech.begin() + static_cast<long>(s.dtFrom));
    }
    s.mic.resize(n);
    s.echoNoise.resize(n);
    for (size_t i = 0; i < n; ++i) {
        s.echoNoise[i] = (i < s.change ? e1[i] : e2[i - s.change]) + g(rng);
        s.mic[i] = static_cast<int16_t>(
            std::lround(std::clamp(s.echoNoise[i] + s.nearSpeech[i], -32768.0, 32767.0)));
    }
    return s;
}

double erle(const Scene& s, const std::vector<int16_t>& out, double t0, double t1) {
    const size_t a = static_cast<size_t>(t0 * s.rate), b = static_cast<size_t>(t1 * s.rate);
    double pin = 0, pout = 0;
    for (size_t i = a; i < b; ++i) {
        pin += s.echoNoise[i] * s.echoNoise[i];
        pout += double(out[i]) * out[i];
    }
    return 10 * std::log10((pin + 1) / (pout + 1));
}

struct Figures {
    double converged, t15, afterChange, dtSnr, before, after, usPer10ms;
};

Figures measure(const Scene& s, const std::vector<int16_t>& out, double seconds) {
    Figures f{};
    f.converged = erle(s, out, 2.0, 4.0);
    f.t15 = 99;
    for (double t = 0; t + 0.5 <= 4.0; t += 0.05)
        if (erle(s, out, t, t + 0.5) >= 15) {
            f.t15 = t + 0.5;
            break;
        }
    f.afterChange = erle(s, out, 5.0, 6.0);
    double ps = 0, pd = 0;
    for (size_t i = s.dtFrom; i < s.dtTo; ++i) {
        const double d = double(out[i]) - s.nearSpeech[i];
        ps += double(s.nearSpeech[i]) * s.nearSpeech[i];
        pd += d * d;
    }
    f.dtSnr = 10 * std::log10((ps + 1) / (pd + 1));
    f.before = erle(s, out, 5.25, 6.0);
    f.after = erle(s, out, 7.25, 8.0);
    f.usPer10ms = seconds * 1e6 / (s.far.size() / (s.rate / 100.0));
    return f;
}

// Tail of every canceller and of speexdsp: 1024 taps at 8 kHz, 64 ms at 16 kHz (the
// scene's paths end by 52 ms), which keeps the fullband runs short.
int tail_ms(int rate) { return rate == 8000 ? 128 : 64; }

Figures run_kind(const Scene& s, Kind kind) {
    kvosc::aec::Config cfg;
    cfg.kind = kind;
    cfg.rate = s.rate;
    cfg.tailMs = tail_ms(s.rate);
    std::vector<int16_t> out;
    std::string err;
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(kvosc::aec::run(cfg, s.far, s.mic, out, err)) << err;
    const double dt = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    out.resize(s.mic.size());
    return measure(s, out, dt);
}

#ifdef KVOSC_HAVE_SPEEXDSP
Figures run_speex(const Scene& s) {
    const int frame = s.rate / 100, taps = tail_ms(s.rate) * s.rate / 1000;
    SpeexEchoState* st = speex_echo_state_init(frame, taps);
    int rate = s.rate;
    speex_echo_ctl(st, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
    std::vector<int16_t> out(s.mic.size(), 0);
    const auto t0 = std::chrono::steady_clock::now();
    for (size_t i = 0; i + frame <= s.mic.size(); i += frame)
        speex_echo_cancellation(st, &s.mic[i], &s.far[i], &out[i]);
    const double dt = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    speex_echo_state_destroy(st);
    return measure(s, out, dt);
}
#endif

void print_row(const char* name, int rate, const Figures& f) {
    std::printf("%-11s %5d %9.1f %7.2f %9.1f %8.1f %8.1f %8.1f %9.0f\n", name, rate, f.converged,
                f.t15, f.afterChange, f.dtSnr, f.before, f.after, f.usPer10ms);
}

const PathSpec kPathA{5, 24, 10, 1};   // 5 ms + 24 ms tail, 10 dB ERL
const PathSpec kPathB{12, 40, 12, 2};  // the changed path

// The table of the closing note: every canceller at both rates beside speexdsp, on
// far-end speech with a path change and a second of double talk.
TEST(EchoScenes, FiguresAgainstSpeexdsp) {
    std::printf("\n%-11s %5s %9s %7s %9s %8s %8s %8s %9s\n", "canceller", "rate", "ERLE dB",
                "t15 s", "chg+2s dB", "DT SNR", "pre-DT", "post-DT", "us/10ms");
    for (int rate : {8000, 16000}) {
        const Scene s = make_scene(rate, true, true, kPathA, kPathB);
        double speexErle = 0;
#ifdef KVOSC_HAVE_SPEEXDSP
        const Figures sp = run_speex(s);
        print_row("speexdsp", rate, sp);
        speexErle = sp.converged;
#endif
        Figures got[5];
        int i = 0;
        for (Kind k : {Kind::Subband, Kind::Subband16, Kind::DoubleTalk16, Kind::Fullband,
                       Kind::Fullband16}) {
            SCOPED_TRACE(::testing::Message() << kvosc::aec::kind_name(k) << " at " << rate);
            const Figures f = got[i++] = run_kind(s, k);
            print_row(kvosc::aec::kind_name(k), rate, f);
            EXPECT_GE(f.converged, 18.0);
            EXPECT_LE(f.t15, 2.0);
            if (k != Kind::Fullband && k != Kind::Fullband16) {
                // The saved coefficient set (or the double-talk detector) protects the
                // filter: near-end speech passes, and the echo stays cancelled after it.
                EXPECT_LE(f.before - f.after, 3.0) << "diverged after double talk";
                EXPECT_GE(f.dtSnr, 9.0);
                if (rate == 8000 && k != Kind::DoubleTalk16) {
                    EXPECT_GE(f.converged, 22.0);
                }
            } else {
                // The time-domain NLMS (step 0.5 / E) converges more slowly than speexdsp's
                // frequency-domain filter on speech: at 8 kHz it stays about 3 dB short
                // after 4 s; at 16 kHz it reaches speexdsp.
                EXPECT_GE(f.converged, speexErle - (rate == 8000 ? 3.5 : 1.0));
            }
            // A changed echo path is learnt again, also behind the double-talk detector.
            EXPECT_GE(f.afterChange, 11.0);
        }
        // The integer families follow the float ones.
        EXPECT_NEAR(got[1].converged, got[0].converged, 2.0);
        EXPECT_NEAR(got[4].converged, got[3].converged, 2.0);
    }
}

// Paths across the range (delays 1-60 ms, tails 10-100 ms, ERL 6-20 dB) on speech, and a
// coloured-noise far end: the float subband canceller converges on each, and on the
// broadband reference the integer families stay within 2 dB (subband) and 3 dB (fullband:
// its Q15 taps and rounded per-tap update set a floor near 26 dB) of the float ones.
TEST(EchoScenes, ConvergesOverThePathRangeAndOnNoise) {
    const PathSpec paths[] = {{1, 10, 6, 3}, {20, 50, 15, 4}, {60, 60, 20, 5}, {10, 100, 10, 6}};
    for (const PathSpec& p : paths) {
        const Figures f = run_kind(make_scene(8000, true, false, p, p), Kind::Subband);
        std::printf("path %2.0f ms + %3.0f ms, ERL %2.0f dB: subband ERLE %.1f dB\n", p.delayMs,
                    p.tailMs, p.erlDb, f.converged);
        // A 20 dB loss puts the echo only 20 dB over the -60 dBFS noise: a lower ceiling.
        EXPECT_GE(f.converged, p.erlDb >= 20 ? 12.0 : 15.0) << p.delayMs << " ms delay";
    }
    const Scene s = make_scene(8000, false, false, kPathA, kPathB);
    double e[4];
    int i = 0;
    for (Kind k : {Kind::Subband, Kind::Subband16, Kind::Fullband, Kind::Fullband16}) {
        e[i] = run_kind(s, k).converged;
        EXPECT_GE(e[i++], 20.0) << kvosc::aec::kind_name(k);
    }
    std::printf("coloured noise: subband %.1f / %.1f dB, fullband %.1f / %.1f dB\n", e[0], e[1],
                e[2], e[3]);
    EXPECT_NEAR(e[1], e[0], 2.0);
    EXPECT_NEAR(e[3], e[2], 3.0);
}

// A G.165 disabling tone on the far end (2100 Hz, phase reversal every 450 ms, about
// -12 dBm0) bypasses the canceller within a second; speech never does.
TEST(EchoScenes, DisablingToneBypassesTheCanceller) {
    for (int rate : {8000, 16000})
        for (Kind k : {Kind::Subband, Kind::Fullband16}) {
            SCOPED_TRACE(::testing::Message() << kvosc::aec::kind_name(k) << " at " << rate);
            const size_t n = static_cast<size_t>(2 * rate);
            std::vector<int16_t> far(n), nearEnd(n, 0), out;
            const double amp = 3000 * std::sqrt(2.0);
            for (size_t i = 0; i < n; ++i) {
                const int flips = static_cast<int>(i / (0.45 * rate));
                const double ph = 2 * M_PI * 2100.0 * i / rate + (flips % 2 ? M_PI : 0.0);
                far[i] = static_cast<int16_t>(std::lround(amp * std::sin(ph)));
            }
            kvosc::aec::Config cfg;
            cfg.kind = k;
            cfg.rate = rate;
            std::vector<kvosc::aec::FrameInfo> frames;
            std::string err;
            ASSERT_TRUE(kvosc::aec::run(cfg, far, nearEnd, out, err, &frames)) << err;
            const auto hit = std::find_if(frames.begin(), frames.end(),
                                          [](const auto& fi) { return fi.toneBypass; });
            ASSERT_NE(hit, frames.end()) << "never bypassed";
            EXPECT_LT(double(hit - frames.begin()) * (double(n) / frames.size()) / rate, 1.0);
            // Speech far end: no bypass.
            const auto speech = kvosc::synth_speech(2.0, rate);
            ASSERT_TRUE(kvosc::aec::run(cfg, speech, speech, out, err, &frames)) << err;
            for (const auto& fi : frames) ASSERT_FALSE(fi.toneBypass);
        }
}

}  // namespace
