// kvosc denoise [--level N] [--rate HZ] IN OUT
//
// Runs the echo-path noise filter over a recording: per frame of 16 samples
// the detector decides whether the frame is noise alone and updates the noise
// spectrum, then the suppressor filters the frame.  The output is aligned with
// the input (the filter's 56 samples of delay are taken out) and has the same
// length.  Audio is 16-bit WAV or raw little-endian samples; the rate comes
// from the WAV header, else from --rate, else 8000 Hz.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "audio.h"
#include "commands.h"
#include "kvosc.h"

namespace kvosc {

namespace {

constexpr int kFrame = 16;
constexpr int kDelay = 56;  // samples of delay at every level but 0

int denoise_usage(const char* why) {
    std::fprintf(stderr,
                 "kvosc: denoise: %s (usage: kvosc denoise [--level 0-5] [--rate HZ] IN OUT)\n",
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

}  // namespace

int cmd_denoise(const std::vector<std::string>& args) {
    long level = 5, rate_opt = 0;
    size_t i = 0;
    for (; i < args.size() && args[i].rfind("--", 0) == 0; i += 2) {
        if (i + 1 >= args.size()) return denoise_usage((args[i] + " needs a value").c_str());
        if (args[i] == "--level") {
            if (!parse_int(args[i + 1], 0, 5, level)) return denoise_usage("--level takes 0 to 5");
        } else if (args[i] == "--rate") {
            if (!parse_int(args[i + 1], 1, 1000000, rate_opt))
                return denoise_usage("--rate takes a rate in Hz");
        } else {
            return denoise_usage(("unknown option " + args[i]).c_str());
        }
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
    Kvo32s bytes = 0;
    if (kvosFilterNoiseGetStateSize_EC_32f(rate, &bytes) != kvoOk) {
        std::fprintf(
            stderr, "kvosc: denoise: %d Hz is not supported (8000, 16000, 22050 or 32000)\n", rate);
        return 1;
    }
    std::vector<uint64_t> mem((static_cast<size_t>(bytes) + 7) / 8);
    auto* st = reinterpret_cast<KvoFilterNoise32fState*>(mem.data());
    if (kvosFilterNoiseInit_EC_32f(rate, st) != kvoOk ||
        kvosFilterNoiseLevel_EC_32f(static_cast<Kvo32s>(level), st) != kvoOk) {
        std::fprintf(stderr, "kvosc: denoise: cannot set up the noise filter\n");
        return 1;
    }

    // Frames of input, then zero frames until the delayed tail has come out.
    const size_t n = a.samples.size();
    const size_t frames = (n + kDelay + kFrame - 1) / kFrame;
    std::vector<float> out(frames * kFrame + kFrame);
    for (size_t k = 0; k < n; ++k) out[k] = a.samples[k];  // what no frame covers passes as is
    long noise_frames = 0;
    for (size_t f = 0; f < frames; ++f) {
        float x[kFrame], y[kFrame];
        for (int k = 0; k < kFrame; ++k) {
            const size_t at = f * kFrame + k;
            x[k] = at < n ? static_cast<float>(a.samples[at]) : 0.0f;
        }
        Kvo64f noise_power = 0;
        Kvo32f noise_mean = 0;
        Kvo32s flag = 0;
        if (kvosFilterNoiseDetect_EC_32f64f(x, &noise_power, &noise_mean, &flag, st) != kvoOk ||
            kvosFilterNoise_EC_32f(x, y, -1, st) != kvoOk) {
            std::fprintf(stderr, "kvosc: denoise: the noise filter failed at frame %zu\n", f);
            return 1;
        }
        noise_frames += flag;
        // Level 0 (also chosen by level 5 for very quiet noise) runs without delay.
        const long at = static_cast<long>(f * kFrame) - (st->level != 0 ? kDelay : 0);
        for (int k = 0; k < kFrame; ++k)
            if (at + k >= 0) out[static_cast<size_t>(at + k)] = y[k];
    }
    std::vector<int16_t> pcm(n);
    for (size_t k = 0; k < n; ++k) pcm[k] = to_pcm(out[k]);
    if (!write_audio(out_path, pcm, rate, err)) {
        std::fprintf(stderr, "kvosc: denoise: %s\n", err.c_str());
        return 1;
    }
    std::printf("denoise: %zu samples at %d Hz, level %ld (working at %d), %ld noise frames\n", n,
                rate, level, st->level, noise_frames);
    return 0;
}

}  // namespace kvosc
