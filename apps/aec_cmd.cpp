// kvosc aec --far FAR.wav --near NEAR.wav OUT.wav [--rate 8000|16000] [--tail MS]
//           [--kind subband|subband16|dt16|fullband|fullband16] [--gain] [--report]
//
// Removes the echo of the far-end signal from the near-end recording with one of the
// assembled cancellers (aec.h).  The output is aligned with the near-end input and has
// its length.  --report prints, per second, the echo-return loss enhancement (near-end
// power over output power; meaningful where the far end talks alone), the frames with
// double talk, the controller's mean gain and the tone-disabler state.  --gain applies
// the controller's residual-echo mute to the output.  On a terminal, long files show a
// progress line.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "aec.h"
#include "audio.h"
#include "commands.h"
#include "sample.h"

namespace kvosc {

namespace {

int aec_usage(const char* why) {
    std::fprintf(stderr,
                 "kvosc: aec: %s (usage: kvosc aec --far FAR --near NEAR OUT [--rate 8000|16000]"
                 " [--tail MS] [--kind subband|subband16|dt16|fullband|fullband16] [--gain]"
                 " [--report])\n",
                 why);
    return 2;
}

bool parse_long(const std::string& s, long lo, long hi, long& v) {
    char* end = nullptr;
    v = std::strtol(s.c_str(), &end, 10);
    return !s.empty() && *end == '\0' && v >= lo && v <= hi;
}

void show_progress(double fraction) {
    std::fprintf(stderr, "\rkvosc: aec: %3d%%", static_cast<int>(100.0 * fraction));
}

}  // namespace

int cmd_aec(const std::vector<std::string>& args) {
    std::string far_path, near_path, out_path;
    long rate_opt = 0, tail = 128;
    bool report = false;
    aec::Config cfg;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool has_value = i + 1 < args.size();
        if (a == "--report") {
            report = true;
        } else if (a == "--gain") {
            cfg.applyGain = true;
        } else if (a == "--far" || a == "--near" || a == "--rate" || a == "--tail" ||
                   a == "--kind") {
            if (!has_value) return aec_usage((a + " needs a value").c_str());
            const std::string& v = args[++i];
            if (a == "--far") {
                far_path = v;
            } else if (a == "--near") {
                near_path = v;
            } else if (a == "--rate") {
                if (!parse_long(v, 8000, 16000, rate_opt) || (rate_opt != 8000 && rate_opt != 16000))
                    return aec_usage("--rate takes 8000 or 16000");
            } else if (a == "--tail") {
                if (!parse_long(v, 1, 500, tail)) return aec_usage("--tail takes 1 to 500 ms");
            } else if (!aec::parse_kind(v, cfg.kind)) {
                return aec_usage(("unknown kind " + v).c_str());
            }
        } else if (a.rfind("--", 0) == 0) {
            return aec_usage(("unknown option " + a).c_str());
        } else if (out_path.empty()) {
            out_path = a;
        } else {
            return aec_usage("more than one output");
        }
    }
    if (far_path.empty() || near_path.empty() || out_path.empty())
        return aec_usage("needs --far, --near and OUT");

    Audio far_audio, near_audio;
    std::string err;
    if (!read_audio(far_path, far_audio, err) || !read_audio(near_path, near_audio, err)) {
        std::fprintf(stderr, "kvosc: aec: %s\n", err.c_str());
        return 1;
    }
    int rate = static_cast<int>(rate_opt);
    if (rate == 0) rate = near_audio.rate ? near_audio.rate : (far_audio.rate ? far_audio.rate : 8000);
    if ((near_audio.rate && near_audio.rate != rate) || (far_audio.rate && far_audio.rate != rate)) {
        std::fprintf(stderr, "kvosc: aec: the two files and --rate disagree on the rate\n");
        return 1;
    }
    cfg.rate = rate;
    cfg.tailMs = static_cast<int>(tail);

    const bool progress = isatty(2) && near_audio.samples.size() > 60u * 8000u;
    std::vector<int16_t> out;
    std::vector<aec::FrameInfo> frames;
    if (!aec::run(cfg, far_audio.samples, near_audio.samples, out, err, &frames,
                  progress ? show_progress : nullptr)) {
        std::fprintf(stderr, "kvosc: aec: %s\n", err.c_str());
        return 1;
    }
    if (progress) std::fprintf(stderr, "\rkvosc: aec: 100%%\n");
    if (!write_audio(out_path, out, rate, err)) {
        std::fprintf(stderr, "kvosc: aec: %s\n", err.c_str());
        return 1;
    }

    const size_t n = near_audio.samples.size();
    if (report && !frames.empty()) {
        const size_t frame = (n + frames.size() - 1) / frames.size();  // about the frame size
        std::printf("%6s %9s %9s %9s %8s %6s\n", "second", "near dB", "ERLE dB", "DT frames",
                    "gain", "tone");
        for (size_t s = 0; s * rate < n; ++s) {
            const size_t a = s * rate, b = std::min(n, a + rate);
            double pin = 0, pout = 0;
            for (size_t i = a; i < b; ++i) {
                pin += double(near_audio.samples[i]) * near_audio.samples[i];
                pout += double(out[i]) * out[i];
            }
            const size_t fa = a / frame, fb = std::min(frames.size(), b / frame);
            int dt = 0, tone = 0;
            double gain = 0;
            for (size_t f = fa; f < fb; ++f) {
                dt += frames[f].doubleTalk;
                tone += frames[f].toneBypass;
                gain += frames[f].gain;
            }
            const double cnt = fb > fa ? double(fb - fa) : 1.0;
            const double len = double(b - a);
            std::printf("%6zu %9.1f %9.1f %9d %8.2f %6s\n", s,
                        10 * std::log10(pin / len / (32768.0 * 32768.0) + 1e-12),
                        10 * std::log10((pin + 1.0) / (pout + 1.0)), dt, gain / cnt,
                        tone ? "off" : "-");
        }
    }
    std::printf("aec: %zu samples at %d Hz, %s canceller, %ld ms tail\n", n, rate,
                aec::kind_name(cfg.kind), tail);
    return 0;
}

}  // namespace kvosc

namespace kvosc {

// Demo: 4 s of synthetic far-end speech through a 5 ms delay and a 24 ms decaying
// echo tail at 10 dB echo-return loss, near-end noise at -60 dBFS, through every kind;
// ERLE over the last 2 s and time per 10 ms.
int demo_aec() {
    const int rate = 8000;
    const std::vector<int16_t> far = synth_speech(4.0, rate);
    const int delay = 5 * rate / 1000, tail = 24 * rate / 1000;
    std::vector<double> h(static_cast<size_t>(delay + tail), 0.0);
    uint32_t seed = 12345;
    double energy = 0;
    for (int i = 0; i < tail; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const double r = (static_cast<double>(seed >> 8) / 16777216.0) - 0.5;
        h[static_cast<size_t>(delay + i)] = r * std::exp(-i / (tail / 4.0));
        energy += h[static_cast<size_t>(delay + i)] * h[static_cast<size_t>(delay + i)];
    }
    for (double& v : h) v *= std::sqrt(0.1 / energy);  // 10 dB echo-return loss
    std::vector<int16_t> nearEnd(far.size());
    for (size_t n = 0; n < far.size(); ++n) {
        double y = 0;
        for (size_t k = 0; k < h.size() && k <= n; ++k) y += h[k] * far[n - k];
        seed = seed * 1664525u + 1013904223u;
        y += ((static_cast<double>(seed >> 8) / 16777216.0) - 0.5) * 2 * 0.0328 * 1.7;  // -60 dBFS
        nearEnd[n] = static_cast<int16_t>(std::lround(std::clamp(y, -32768.0, 32767.0)));
    }
    std::printf("echo cancellers: %.1f s far-end speech, 5 ms + 24 ms echo path, ERL 10 dB, "
                "128 ms tail\n",
                far.size() / double(rate));
    std::printf("%-11s %14s %12s\n", "canceller", "ERLE dB (2-4s)", "us/10 ms");
    int failures = 0;
    for (aec::Kind k : {aec::Kind::Subband, aec::Kind::Subband16, aec::Kind::DoubleTalk16,
                        aec::Kind::Fullband, aec::Kind::Fullband16}) {
        aec::Config cfg;
        cfg.kind = k;
        cfg.rate = rate;
        std::vector<int16_t> out;
        std::string err;
        const auto t0 = std::chrono::steady_clock::now();
        const bool ok = aec::run(cfg, far, nearEnd, out, err);
        const double dt =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (!ok) {
            std::printf("%-11s FAILED: %s\n", aec::kind_name(k), err.c_str());
            ++failures;
            continue;
        }
        double pin = 0, pout = 0;
        for (size_t n = far.size() / 2; n < far.size(); ++n) {
            pin += double(nearEnd[n]) * nearEnd[n];
            pout += double(out[n]) * out[n];
        }
        std::printf("%-11s %14.1f %12.1f\n", aec::kind_name(k),
                    10 * std::log10((pin + 1) / (pout + 1)), dt * 1e6 / (far.size() / 80.0));
    }
    std::printf("\n");
    return failures;
}

}  // namespace kvosc
