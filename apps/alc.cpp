// kvosc alc [--target DB] [--ceiling DB] [--max-gain DB] IN OUT
//
// G.169 automatic level control over a recording: the level control runs on
// blocks of 8 samples and brings talkers toward the target level (dB below
// full scale) without raising noise or letting peaks pass the ceiling.  Audio
// is 16-bit WAV or raw little-endian samples; the output keeps the input's
// length and rate.  On a terminal, long files show a progress line.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "audio.h"
#include "commands.h"
#include "progress.h"
#include "kvosc.h"

namespace kvosc {

namespace {

int alc_usage(const char* why) {
    std::fprintf(stderr,
                 "kvosc: alc: %s (usage: kvosc alc [--target DB] [--ceiling DB] "
                 "[--max-gain DB] IN OUT)\n",
                 why);
    return 2;
}

bool parse_db(const std::string& s, float& v) {
    char* end = nullptr;
    v = std::strtof(s.c_str(), &end);
    return !s.empty() && *end == '\0';
}

}  // namespace

int cmd_alc(const std::vector<std::string>& args) {
    float target = 26.1f, ceiling = 0.0f, max_gain = 11.6f;
    bool set_level = false, set_gain = false;
    size_t i = 0;
    for (; i < args.size() && args[i].rfind("--", 0) == 0; i += 2) {
        if (i + 1 >= args.size()) return alc_usage((args[i] + " needs a value").c_str());
        float v;
        if (!parse_db(args[i + 1], v)) return alc_usage((args[i] + " takes a number of dB").c_str());
        if (args[i] == "--target") {
            target = v;
            set_level = true;
        } else if (args[i] == "--ceiling") {
            ceiling = v;
            set_level = true;
        } else if (args[i] == "--max-gain") {
            max_gain = v;
            set_gain = true;
        } else {
            return alc_usage(("unknown option " + args[i]).c_str());
        }
    }
    if (args.size() - i != 2) return alc_usage("needs IN and OUT");

    Audio a;
    std::string err;
    if (!read_audio(args[i], a, err)) {
        std::fprintf(stderr, "kvosc: alc: %s\n", err.c_str());
        return 1;
    }
    Kvo32s bytes = 0;
    kvosALCGetStateSize_G169_16s(&bytes);
    std::vector<uint64_t> mem((static_cast<size_t>(bytes) + 7) / 8);
    auto* st = reinterpret_cast<KvoALCState*>(mem.data());
    if (kvosALCInit_G169_16s(st) != kvoOk ||
        (set_level && kvosALCSetLevel_G169_16s(st, target, ceiling) != kvoOk) ||
        (set_gain && kvosALCSetGain_G169_16s(st, max_gain) != kvoOk)) {
        std::fprintf(stderr, "kvosc: alc: level settings out of range\n");
        return 1;
    }

    // Whole blocks of 8; the last partial block is padded and cut again.
    const size_t n = a.samples.size();
    std::vector<int16_t> pcm(a.samples);
    pcm.resize((n + 7) / 8 * 8, 0);
    Progress bar("alc", static_cast<double>(pcm.size()) / (a.rate ? a.rate : 8000));
    const size_t chunk = 8 * 1000;
    for (size_t at = 0; at < pcm.size(); at += chunk) {
        const Kvo32s len = static_cast<Kvo32s>(std::min(chunk, pcm.size() - at));
        if (kvosALC_G169_16s(&pcm[at], &pcm[at], len, st) != kvoOk) {
            std::fprintf(stderr, "kvosc: alc: level control failed\n");
            return 1;
        }
        bar.update(at + static_cast<size_t>(len), pcm.size());
    }
    bar.finish();
    pcm.resize(n);
    if (!write_audio(args[i + 1], pcm, a.rate ? a.rate : 8000, err)) {
        std::fprintf(stderr, "kvosc: alc: %s\n", err.c_str());
        return 1;
    }
    return 0;
}

}  // namespace kvosc
