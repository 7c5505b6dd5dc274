// kvosc denoise [--level 1-5] [--rate HZ] [--report] IN OUT
//
// Runs the assembled noise suppressor (coders/denoiser.h) over a recording:
// the echo-path noise filter driven frame by frame by the suppressor's own
// noise decision.  The output is aligned with the input (the filter's 56
// samples of delay are taken out) and has the same length.  Audio is 16-bit
// WAV or raw little-endian samples; the rate comes from the WAV header, else
// from --rate, else 8000 Hz.  --report prints, per second, the noise estimate
// (dB below full scale), the share of noise frames and the gain through the
// suppressor in noise frames and in the others.  On a terminal, long files
// show a progress line.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "audio.h"
#include "coders/denoiser.h"
#include "commands.h"

namespace kvosc {

namespace {

constexpr int kFrame = Denoiser::kFrame;
constexpr int kDelay = Denoiser::kDelay;

int denoise_usage(const char* why) {
    std::fprintf(stderr,
                 "kvosc: denoise: %s (usage: kvosc denoise [--level 1-5] [--rate HZ] [--report] "
                 "IN OUT)\n",
                 why);
    return 2;
}

bool parse_int(const std::string& s, long lo, long hi, long& v) {
    char* end = nullptr;
    v = std::strtol(s.c_str(), &end, 10);
    return !s.empty() && *end == '\0' && v >= lo && v <= hi;
}

int16_t to_pcm(float v) {
    const float r = std::nearbyint(v);
    return static_cast<int16_t>(r > 32767.0f ? 32767.0f : (r < -32768.0f ? -32768.0f : r));
}

double dbfs(double power) {
    return 10.0 * std::log10(power / (32768.0 * 32768.0) + 1e-12);
}

}  // namespace

int cmd_denoise(const std::vector<std::string>& args) {
    long level = 2, rate_opt = 0;
    bool report = false;
    size_t i = 0;
    for (; i < args.size() && args[i].rfind("--", 0) == 0; ++i) {
        if (args[i] == "--report") {
            report = true;
            continue;
        }
        if (i + 1 >= args.size()) return denoise_usage((args[i] + " needs a value").c_str());
        if (args[i] == "--level") {
            if (!parse_int(args[i + 1], 1, 5, level)) return denoise_usage("--level takes 1 to 5");
        } else if (args[i] == "--rate") {
            if (!parse_int(args[i + 1], 1, 1000000, rate_opt))
                return denoise_usage("--rate takes a rate in Hz");
        } else {
            return denoise_usage(("unknown option " + args[i]).c_str());
        }
        ++i;
    }
    if (args.size() - i != 2) return denoise_usage("needs IN and OUT");
    const std::string& in_path = args[i];
    const std::string& out_path = args[i + 1];

    Audio a;
    std::string err;
    if (!read_audio(in_path, a, err)) {
        std::fprintf(stderr, "kvosc: denoise: %s\n", err.c_str());
        return 1;
    }
    const int rate = a.rate ? a.rate : (rate_opt ? static_cast<int>(rate_opt) : 8000);
    Denoiser dn;
    if (!dn.init(rate, static_cast<int>(level))) {
        std::fprintf(
            stderr, "kvosc: denoise: %d Hz is not supported (8000, 16000, 22050 or 32000)\n", rate);
        return 1;
    }

    // Frames of input, then zero frames until the delayed tail has come out.
    const size_t n = a.samples.size();
    const size_t frames = (n + kDelay + kFrame - 1) / kFrame;
    std::vector<float> out(frames * kFrame + kFrame, 0.0f);
    const bool progress = isatty(2) && n > 60u * static_cast<size_t>(rate);
    const size_t per_second = static_cast<size_t>(rate) / kFrame;
    long noise_frames = 0;
    // Per second: input and output power of noise frames and of the others.
    double e_in[2] = {}, e_out[2] = {};
    long count[2] = {};
    if (report)
        std::printf("%6s %10s %7s %11s %11s\n", "second", "noise dBFS", "noise%", "gain noise",
                    "gain other");
    std::vector<int> flags;
    flags.reserve(frames);
    for (size_t f = 0; f < frames; ++f) {
        float x[kFrame], y[kFrame];
        for (int k = 0; k < kFrame; ++k) {
            const size_t at = f * kFrame + k;
            x[k] = at < n ? static_cast<float>(a.samples[at]) : 0.0f;
        }
        const bool noise = dn.step(x, y);
        flags.push_back(noise);
        noise_frames += noise;
        const long at = static_cast<long>(f * kFrame) - kDelay;
        for (int k = 0; k < kFrame; ++k)
            if (at + k >= 0) out[static_cast<size_t>(at + k)] = y[k];
        if (report && at >= 0) {
            // The output block stands for the input block kDelay samples back; its frame
            // decision is that of the frame holding its first sample.
            const int c = flags[static_cast<size_t>(at) / kFrame];
            for (int k = 0; k < kFrame && static_cast<size_t>(at + k) < n; ++k) {
                const double v = a.samples[static_cast<size_t>(at + k)];
                e_in[c] += v * v;
                e_out[c] += double(y[k]) * y[k];
            }
            ++count[c];
        }
        if (report && (f + 1) % per_second == 0) {
            auto gain = [&](int c) {
                return count[c] && e_in[c] > 0 ? 10.0 * std::log10(e_out[c] / e_in[c] + 1e-12)
                                               : 0.0;
            };
            std::printf("%6zu %10.1f %6.0f%% %+10.1f %+10.1f\n", (f + 1) / per_second,
                        dn.noise_power() > 0 ? dbfs(dn.noise_power()) : -99.0,
                        100.0 * count[1] / std::max(1L, count[0] + count[1]), gain(1), gain(0));
            e_in[0] = e_in[1] = e_out[0] = e_out[1] = 0;
            count[0] = count[1] = 0;
        }
        if (progress && f % (per_second * 10) == 0)
            std::fprintf(stderr, "\rkvosc: denoise: %3d%%", static_cast<int>(100.0 * f / frames));
    }
    if (progress) std::fprintf(stderr, "\rkvosc: denoise: 100%%\n");
    std::vector<int16_t> pcm(n);
    for (size_t k = 0; k < n; ++k) pcm[k] = to_pcm(out[k]);
    if (!write_audio(out_path, pcm, rate, err)) {
        std::fprintf(stderr, "kvosc: denoise: %s\n", err.c_str());
        return 1;
    }
    std::printf("denoise: %zu samples at %d Hz, level %ld (working at %d), %ld noise frames\n", n,
                rate, level, dn.working_level(), noise_frames);
    return 0;
}

}  // namespace kvosc
