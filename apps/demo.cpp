// kvosc demo, coders, encode, decode, verify.
//
// demo runs every assembled coder over the built-in synthetic speech; until
// coders are assembled it times the library's kernels on the same signal,
// looking each one up by its exported name so that the tool works with
// whatever this build exports.
#include <dlfcn.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "audio.h"
#include "coders/coder.h"
#include "coders/denoiser.h"
#include "commands.h"
#include "progress.h"
#include "kvosc_types.h"
#include "sample.h"

namespace kvosc {

namespace {

constexpr int kRate = 8000;
constexpr double kSeconds = 3.0;
constexpr int kFrame = 80;    // 10 ms
constexpr int kWindow = 240;  // LP analysis window
constexpr int kOrder = 10;

// Inputs shared by the kernels, one entry per 10 ms frame.
struct Material {
    std::vector<int16_t> pcm;
    std::vector<int16_t> window;                 // Hamming, Q15
    std::vector<std::vector<int16_t>> windowed;  // kWindow samples per frame
    std::vector<std::vector<int32_t>> acf;       // normalised autocorrelation, kOrder + 1
    size_t frames = 0;
};

Material make_material() {
    Material m;
    m.pcm = synth_speech(kSeconds, kRate);
    const double pi = 3.14159265358979323846;
    m.window.resize(kWindow);
    for (int i = 0; i < kWindow; ++i)
        m.window[i] = static_cast<int16_t>(
            std::lround(32767 * (0.54 - 0.46 * std::cos(2 * pi * i / (kWindow - 1)))));
    m.frames = (m.pcm.size() - kWindow - 2 * kFrame) / kFrame;
    for (size_t k = 0; k < m.frames; ++k) {
        std::vector<int16_t> w(kWindow);
        for (int i = 0; i < kWindow; ++i)
            w[i] = static_cast<int16_t>((m.pcm[k * kFrame + i] * m.window[i] + 16384) >> 15);
        // Autocorrelation in 64 bits, normalised so r[0] fills 31 bits.
        int64_t r[kOrder + 1];
        for (int j = 0; j <= kOrder; ++j) {
            r[j] = 0;
            for (int i = j; i < kWindow; ++i) r[j] += int64_t{w[i]} * w[i - j];
            r[j] *= 2;
        }
        r[0] += 1;
        int shift = 0;  // r[0] scaled into [2^30, 2^31)
        for (int64_t v = r[0]; v >= (int64_t{1} << 31); v >>= 1) --shift;
        for (int64_t v = r[0]; v < (int64_t{1} << 30); v *= 2) ++shift;
        std::vector<int32_t> a(kOrder + 1);
        for (int j = 0; j <= kOrder; ++j)
            a[j] = static_cast<int32_t>(shift >= 0 ? r[j] * (int64_t{1} << shift) : r[j] >> -shift);
        m.windowed.push_back(std::move(w));
        m.acf.push_back(std::move(a));
    }
    return m;
}

using RunFn = int (*)(void* fn, const Material& m, size_t frame);

template <class F>
F as(void* p) {
    F f;
    std::memcpy(&f, &p, sizeof f);
    return f;
}

int run_mul(void* fn, const Material& m, size_t k) {
    int16_t y[kWindow];
    return as<KvoStatus (*)(const Kvo16s*, const Kvo16s*, Kvo16s*, Kvo32s, Kvo32s)>(fn)(
        &m.pcm[k * kFrame], m.window.data(), y, kWindow, 15);
}
int run_autocorr(void* fn, const Material& m, size_t k) {
    int32_t r[kOrder + 1];
    int32_t norm = 0;
    return as<KvoStatus (*)(const Kvo16s*, Kvo32s, Kvo32s*, Kvo32s, Kvo32s*)>(fn)(
        m.windowed[k].data(), kWindow, r, kOrder + 1, &norm);
}
int run_crosscorr(void* fn, const Material& m, size_t k) {
    // An open-loop pitch style correlation: this frame against lags 20..83 back.
    int16_t c[64];
    const int16_t* cur = &m.pcm[k * kFrame + 160];
    return as<KvoStatus (*)(const Kvo16s*, const Kvo16s*, Kvo32s, Kvo16s*, Kvo32s)>(fn)(
        cur, cur - 83, kFrame, c, 64);
}
int run_levinson(void* fn, const Material& m, size_t k) {
    int16_t a[kOrder + 1], rc[kOrder], err = 0;
    return as<KvoStatus (*)(const Kvo32s*, Kvo32s, Kvo16s*, Kvo16s*, Kvo16s*)>(fn)(
        m.acf[k].data(), kOrder, a, rc, &err);
}

struct Kernel {
    const char* name;
    RunFn run;
};
const Kernel kKernels[] = {
    {"kvosMul_NR_16s_Sfs", run_mul},
    {"kvosAutoCorr_NormE_16s32s", run_autocorr},
    {"kvosCrossCorr_NR_16s", run_crosscorr},
    {"kvosLevinsonDurbin_G729_32s16s", run_levinson},
};

double now_s() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void run_kernels(const Material& m) {
    std::printf("%-34s %9s %10s %14s\n", "kernel (one call per 10 ms frame)", "calls", "ns/call",
                "x real time");
    int present = 0;
    for (const Kernel& k : kKernels) {
        void* fn = dlsym(RTLD_DEFAULT, k.name);
        if (!fn) {
            std::printf("%-34s %9s %10s %14s\n", k.name, "-", "-", "not built");
            continue;
        }
        ++present;
        int bad = 0;
        for (size_t f = 0; f < m.frames && !bad; ++f) {
            int st = k.run(fn, m, f);
            if (st < 0) bad = st;
        }
        if (bad) {
            std::printf("%-34s %9s %10s %14s (status %d)\n", k.name, "-", "-", "failed", bad);
            continue;
        }
        long calls = 0;
        double t0 = now_s(), t = t0;
        volatile int sink = 0;
        while (t - t0 < 0.15) {
            for (size_t f = 0; f < m.frames; ++f) sink = sink + k.run(fn, m, f);
            calls += static_cast<long>(m.frames);
            t = now_s();
        }
        double ns = (t - t0) * 1e9 / calls;
        double realtime = (calls * (kFrame / double(kRate))) / (t - t0);
        std::printf("%-34s %9ld %10.1f %14.0f\n", k.name, calls, ns, realtime);
    }
    if (!present) std::printf("none of these kernels is exported by this build yet\n");
}

bool write_file_words(const char* path, const std::vector<int16_t>& w) {
    std::string err;
    return write_audio(path, w, kRate, err);
}

// Signal-to-noise ratio of y against x in dB, at the delay (0..64 samples)
// that gives the best match: coders with filter banks delay their output.
double snr_db(const std::vector<int16_t>& x, const std::vector<int16_t>& y) {
    double best = -100;
    for (size_t d = 0; d <= 64 && d < y.size(); ++d) {
        double sig = 0, err = 0;
        for (size_t i = 0; i + d < y.size() && i < x.size(); ++i) {
            double e = double(x[i]) - y[i + d];
            sig += double(x[i]) * x[i];
            err += e * e;
        }
        double v = err > 0 ? 10 * std::log10(sig / err) : 99;
        if (v > best) best = v;
    }
    return best;
}

const coders::Coder* coder_or_complain(const char* name) {
    const coders::Coder* c = coders::find_coder(name);
    if (!c) std::fprintf(stderr, "kvosc: unknown coder '%s' (kvosc coders lists them)\n", name);
    return c;
}

// The noise suppressor over 1 s of white noise and then the sample with the noise 10 dB
// below it (fixed seed): the noise through it in the second half of the first second,
// and the time per 10 ms.
void run_denoise(const Material& m) {
    const size_t lead = kRate;
    const size_t n = (lead + m.pcm.size()) / Denoiser::kFrame * Denoiser::kFrame;
    std::vector<float> x(n), y(n);
    uint32_t seed = 1;
    double speech = 0;
    for (int16_t v : m.pcm) speech += double(v) * v;
    const double rms = std::sqrt(speech / m.pcm.size()) / std::sqrt(10.0);
    for (size_t i = 0; i < n; ++i) {
        double u = 0;  // sum of 12 uniforms: near-normal
        for (int k = 0; k < 12; ++k) {
            seed = seed * 1664525u + 1013904223u;
            u += seed / 4294967296.0;
        }
        x[i] = static_cast<float>((i >= lead ? m.pcm[i - lead] : 0) + rms * (u - 6.0));
    }
    Denoiser d;
    if (!d.init(kRate, 2)) {
        std::printf("noise suppressor: not available\n");
        return;
    }
    long noise = 0;
    const double t0 = now_s();
    for (size_t i = 0; i < n; i += Denoiser::kFrame) noise += d.step(&x[i], &y[i]);
    const double dt = now_s() - t0;
    double ein = 0, eout = 0;
    for (size_t i = lead / 2; i < lead; ++i) {
        ein += double(x[i]) * x[i];
        eout += double(y[i + Denoiser::kDelay]) * y[i + Denoiser::kDelay];
    }
    std::printf("noise suppressor (level 2), 1 s of white noise, then the sample at 10 dB SNR: "
                "%ld noise frames of %zu, noise alone %+.1f dB, %.2f us/10 ms\n\n",
                noise, n / Denoiser::kFrame, 10 * std::log10(eout / ein + 1e-12),
                dt * 1e6 / (n / (kRate / 100.0)));
}

}  // namespace

int cmd_demo() {
    Material m = make_material();
    std::printf("kvosc demo: %.1f s of synthetic speech, %d Hz, 16-bit\n\n", kSeconds, kRate);
    run_denoise(m);
    const auto& list = coders::all_coders();
    if (list.empty()) {
        std::printf("no coder assembled yet: timing the library's kernels instead\n\n");
        run_kernels(m);
        return demo_aec() ? 1 : 0;
    }
    std::printf("%-8s %-34s %8s %6s %8s %12s %12s\n", "coder", "standard", "kbit/s", "kHz",
                "SNR dB", "us/10 ms", "x real time");
    int failures = 0;
    for (const coders::Coder* c : list) {
        std::vector<int16_t> pcm =
            c->sample_rate == kRate ? m.pcm : synth_speech(kSeconds, c->sample_rate);
        std::vector<uint8_t> stream;
        std::vector<int16_t> out;
        std::string err;
        coders::Options none;
        double t0 = now_s();
        bool ok = c->encode(none, pcm, stream, err) && c->decode(none, stream, out, err);
        double dt = now_s() - t0;
        if (!ok) {
            // A coder still being assembled says so; anything else is a failure.
            const bool unfinished = err.find("not available") != std::string::npos;
            std::printf("%-8s %s: %s\n", c->name, unfinished ? "unfinished" : "FAILED", err.c_str());
            failures += unfinished ? 0 : 1;
            continue;
        }
        double seconds = pcm.size() / double(c->sample_rate);
        std::printf("%-8s %-34s %8.2f %6.1f %8.1f %12.2f %12.0f\n", c->name, c->description,
                    c->kbps, c->sample_rate / 1000.0, snr_db(pcm, out), dt * 1e6 / (seconds * 100),
                    seconds / dt);
    }
    std::printf("\n");
    failures += demo_aec();
    run_kernels(m);
    return failures ? 1 : 0;
}

int cmd_coders() {
    const auto& list = coders::all_coders();
    if (list.empty()) std::printf("no coder assembled yet\n");
    for (const coders::Coder* c : list)
        std::printf("%-8s %-34s %6.2f kbit/s %6d Hz  %s\n", c->name, c->description, c->kbps,
                    c->sample_rate, c->options);
    return 0;
}

int cmd_code(bool encode, const char* name, const std::vector<std::string>& args) {
    const coders::Coder* c = coder_or_complain(name);
    if (!c) return 2;
    coders::Options opt;
    size_t i = 0;
    for (; i + 2 < args.size(); i += 2) {
        if (args[i].rfind("--", 0) != 0) break;
        opt.values.emplace_back(args[i].substr(2), args[i + 1]);
    }
    if (args.size() - i != 2) {
        std::fprintf(stderr, "kvosc: %s %s [options] IN OUT (options: %s)\n",
                     encode ? "encode" : "decode", name, c->options);
        return 2;
    }
    const std::string& in = args[i];
    const std::string& out = args[i + 1];
    std::string err;
    bool ok;
    if (encode) {
        Audio a;
        std::vector<uint8_t> stream;
        ok = read_audio(in, a, err);
        if (ok && a.rate && a.rate != c->sample_rate) {
            err = in + " is sampled at " + std::to_string(a.rate) + " Hz; " + name + " needs " +
                  std::to_string(c->sample_rate) + " Hz";
            ok = false;
        }
        Progress bar(std::string("encode ") + name,
                     static_cast<double>(a.samples.size()) / c->sample_rate);
        if (bar.on()) opt.progress = [&bar](size_t d, size_t t) { bar.update(d, t); };
        ok = ok && c->encode(opt, a.samples, stream, err);
        bar.finish();
        ok = ok && write_bytes(out, stream, err);
    } else {
        std::vector<uint8_t> stream;
        std::vector<int16_t> pcm;
        ok = coders::read_file(in, stream);
        if (!ok) err = "cannot read '" + in + "'";
        // The duration is not known before decoding; a stream at the coder's
        // nominal rate gives its length closely enough for the threshold.
        Progress bar(std::string("decode ") + name,
                     static_cast<double>(stream.size()) * 8.0 / (c->kbps * 1000.0));
        if (bar.on()) opt.progress = [&bar](size_t d, size_t t) { bar.update(d, t); };
        ok = ok && c->decode(opt, stream, pcm, err);
        bar.finish();
        ok = ok && write_audio(out, pcm, c->sample_rate, err);
    }
    if (!ok) {
        std::fprintf(stderr, "kvosc: %s %s: %s\n", name, encode ? "encode" : "decode", err.c_str());
        return 1;
    }
    return 0;
}

int cmd_verify(const char* name, const char* dir) {
    const coders::Coder* c = coder_or_complain(name);
    if (!c) return 2;
    std::vector<coders::VerifyRow> rows = c->verify(dir);
    if (rows.empty()) {
        std::fprintf(stderr, "kvosc: no %s vector set found in '%s'\n", name, dir);
        return 1;
    }
    std::printf("%-28s %8s %10s  %s\n", "set", "frames", "bit-exact", "result");
    long bad = 0, skipped = 0;
    for (const auto& r : rows) {
        const char* result = r.skipped ? "skipped" : (r.mismatched ? "MISMATCH" : "pass");
        std::printf("%-28s %8ld %10ld  %s%s%s\n", r.set.c_str(), r.frames,
                    r.frames - r.mismatched, result, r.note.empty() ? "" : ": ", r.note.c_str());
        bad += r.mismatched;
        skipped += r.skipped;
    }
    std::printf("%s: %s\n", name,
                bad ? "NOT bit-exact" : (skipped ? "bit-exact on every set present" : "bit-exact on every set"));
    return bad ? 1 : 0;
}

int cmd_sample(const char* out) {
    if (!write_file_words(out, synth_speech(kSeconds, kRate))) {
        std::fprintf(stderr, "kvosc: cannot write '%s'\n", out);
        return 1;
    }
    return 0;
}

}  // namespace kvosc
