// Scenes and figures of merit for noise suppressors.
//
// A scene is generated speech with pauses (voiced syllables through moving
// formants and some fricatives, between pauses of 0.15 to 0.6 s, after 1 s of
// noise alone) plus white, pink or brown noise at a given SNR (active speech
// power over the noise power of the first half), whose level steps down by
// 6 dB half way; or a steady tone (bin-centred or between bins of the
// 128-point grid) in white noise 20 dB below it.  The clean speech and the
// activity mask travel with the scene.
//
// The figures compare an output y, delayed by d samples, with the clean
// speech s and the input x, after the first 1.5 s:
//  - segmental SNR: mean over active 20 ms frames of 10 log10(|s|^2/|s - y|^2),
//    held to -10 .. 35 dB; the change is that of y over that of x;
//  - noise attenuation: output over input power in pauses (30 ms away from
//    any syllable);
//  - speech level: the in-phase part of y on s, sum of <y,s>^2/<s,s> over
//    active frames, against the power of s;
//  - musical noise: in pauses, the gain of each of 16 bands per 32 ms frame
//    (Hann window), its spread over time in dB, weighted by the band's power;
//    a steady gain gives 0, isolated bins that open and close give several dB;
//  - clipping: output samples at +-32767 or beyond where the input is not;
//  - silent frames: 16-sample output blocks of exact zeros where the input
//    block is not.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace nftest {

enum class Noise { White, Pink, Brown };
inline const char* noise_name(Noise n) {
    return n == Noise::White ? "white" : (n == Noise::Pink ? "pink" : "brown");
}

struct Scene {
    int rate = 0;
    std::vector<float> x;         // input
    std::vector<double> s;        // clean speech (or the tone)
    std::vector<char> on;         // speech activity
    std::vector<double> noise_p;  // noise power per sample (the step)
    size_t step_at = 0;           // first sample of the lower noise level
};

// Unit-power noise of the kind.
inline std::vector<double> unit_noise(Noise kind, size_t n, int rate, unsigned seed) {
    std::mt19937 g(seed);
    std::normal_distribution<double> d(0.0, 1.0);
    std::vector<double> v(n);
    if (kind == Noise::White) {
        for (double& x : v) x = d(g);
    } else if (kind == Noise::Brown) {
        // Integrated white noise, leaky below 20 Hz.
        const double a = std::exp(-2 * M_PI * 20.0 / rate);
        double acc = 0;
        for (double& x : v) x = acc = a * acc + d(g);
    } else {
        // 1/f by first-order sections spread over the band (-3 dB per octave).
        double b[8] = {};
        const double poles[8] = {0.9995, 0.998, 0.992, 0.97, 0.89, 0.6, 0.1, -0.5};
        const double w[8] = {0.02, 0.035, 0.06, 0.11, 0.2, 0.35, 0.6, 0.3};
        for (double& x : v) {
            const double e = d(g);
            x = 0;
            for (int k = 0; k < 8; ++k) x += b[k] = poles[k] * b[k] + w[k] * e;
        }
    }
    double e = 0;
    for (double x : v) e += x * x;
    e = std::sqrt(e / static_cast<double>(n));
    for (double& x : v) x /= e;
    return v;
}

// Generated speech at active rms 1 and its activity mask.
inline std::vector<double> gen_speech(size_t n, int rate, unsigned seed, std::vector<char>& on) {
    std::mt19937 g(seed);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::normal_distribution<double> d(0.0, 1.0);
    std::vector<double> s(n, 0.0);
    on.assign(n, 0);
    size_t at = static_cast<size_t>(rate);  // 1 s of noise alone first
    while (at < n) {
        const size_t len = static_cast<size_t>(rate * (0.15 + 0.3 * u(g)));
        const size_t end = std::min(n, at + len);
        const bool voiced = u(g) < 0.8;
        double F[4] = {300 + 500 * u(g), 900 + 1300 * u(g), 2300 + 700 * u(g), 3300 + 500 * u(g)};
        const double Bw[4] = {80, 110, 160, 250};
        if (!voiced) F[0] = std::min(2500 + 3500 * u(g), 0.4 * rate);
        const int nf = voiced ? (rate > 8000 ? 4 : 3) : 1;
        double f0 = 90 + 130 * u(g), phase = 0;
        const double glide = (u(g) - 0.5) * 0.4 / static_cast<double>(len);
        double st[4][2] = {};
        for (size_t i = at; i < end; ++i) {
            double e;
            if (voiced) {
                phase += f0 * (1.0 + glide * static_cast<double>(i - at)) / rate;
                e = phase >= 1.0 ? 1.0 : 0.0;
                if (phase >= 1.0) phase -= 1.0;
                e += 0.02 * d(g);
            } else {
                e = 0.3 * d(g);
            }
            for (int f = 0; f < nf; ++f) {
                const double r = std::exp(-M_PI * Bw[f] / rate), th = 2 * M_PI * F[f] / rate;
                const double y = e * (1 - r) + 2 * r * std::cos(th) * st[f][0] - r * r * st[f][1];
                st[f][1] = st[f][0];
                st[f][0] = y;
                e = y;  // formants in cascade; a fricative has one resonance
            }
            const double env =
                std::sin(M_PI * static_cast<double>(i - at) / static_cast<double>(len));
            s[i] = e * std::sqrt(env);
            on[i] = 1;
        }
        // Each syllable at its own level, -6 to +3 dB around the others.
        double es = 0;
        for (size_t i = at; i < end; ++i) es += s[i] * s[i];
        const double k = std::pow(10.0, (9.0 * u(g) - 6.0) / 20.0) /
                         std::sqrt(es / static_cast<double>(end - at) + 1e-30);
        for (size_t i = at; i < end; ++i) s[i] *= k;
        at = end + static_cast<size_t>(rate * (0.15 + 0.45 * u(g)));
    }
    double es = 0;
    size_t cnt = 0;
    for (size_t i = 0; i < n; ++i)
        if (on[i]) es += s[i] * s[i], ++cnt;
    const double k = 1.0 / std::sqrt(es / static_cast<double>(cnt));
    for (double& v : s) v *= k;
    return s;
}

// Speech at active rms `level` plus noise at `snr_db`, stepping down 6 dB half way.
inline Scene speech_scene(int rate, double seconds, Noise kind, double snr_db, unsigned seed,
                          double level = 3000.0) {
    Scene sc;
    sc.rate = rate;
    const size_t n = static_cast<size_t>(rate * seconds) / 16 * 16;
    sc.s = gen_speech(n, rate, seed, sc.on);
    for (double& v : sc.s) v *= level;
    const std::vector<double> nz = unit_noise(kind, n, rate, seed + 101);
    const double a = level / std::pow(10.0, snr_db / 20.0);
    sc.step_at = n / 2;
    sc.x.resize(n);
    sc.noise_p.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const double an = i < sc.step_at ? a : a / 2;
        sc.noise_p[i] = an * an;
        sc.x[i] = static_cast<float>(sc.s[i] + an * nz[i]);
    }
    return sc;
}

// A steady tone of rms `level` in white noise 20 dB below it; the tone is the "speech",
// active throughout.
inline Scene tone_scene(int rate, double seconds, double hz, unsigned seed, double level = 3000.0) {
    Scene sc;
    sc.rate = rate;
    const size_t n = static_cast<size_t>(rate * seconds) / 16 * 16;
    const std::vector<double> nz = unit_noise(Noise::White, n, rate, seed);
    sc.s.resize(n);
    sc.x.resize(n);
    sc.on.assign(n, 1);
    sc.noise_p.assign(n, level * level / 100.0);
    sc.step_at = n;
    for (size_t i = 0; i < n; ++i) {
        sc.s[i] = level * std::sqrt(2.0) * std::sin(2 * M_PI * hz * static_cast<double>(i) / rate);
        sc.x[i] = static_cast<float>(sc.s[i] + level * 0.1 * nz[i]);
    }
    return sc;
}

struct Figures {
    double seg_in = 0, seg_out = 0;  // segmental SNR, dB
    double atten = 0;                // noise in pauses, dB (negative: down)
    double atten_lo = 0;             // the same over 0-10 dB scenes only (filled by callers)
    double speech = 0;               // speech level change, dB
    double musical = 0;              // gain spread in pauses, dB
    long clipped = 0, silent = 0;
    int delay = 0;  // samples
};

// Delay of y behind s (0 .. maxLag) by the largest correlation over active samples.
inline int find_delay(const std::vector<double>& s, const std::vector<float>& y, size_t from,
                      int maxLag) {
    double best = -1e300;
    int at = 0;
    const size_t to = std::min(s.size(), y.size()) - static_cast<size_t>(maxLag);
    for (int d = 0; d <= maxLag; ++d) {
        double c = 0;
        for (size_t i = from; i < to; i += 1) c += s[i] * y[i + static_cast<size_t>(d)];
        if (c > best) best = c, at = d;
    }
    return at;
}

inline void fft_inplace(std::vector<std::complex<double>>& a) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const std::complex<double> wl = std::polar(1.0, -2 * M_PI / static_cast<double>(len));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w = 1;
            for (size_t k = 0; k < len / 2; ++k) {
                const auto u = a[i + k], v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
                w *= wl;
            }
        }
    }
}

// True where sample i is at least `margin` samples from any active sample.
inline std::vector<char> pause_mask(const std::vector<char>& on, size_t margin) {
    const size_t n = on.size();
    std::vector<char> p(n, 1);
    long last = -static_cast<long>(margin) - 1;
    for (size_t i = 0; i < n; ++i) {
        if (on[i]) last = static_cast<long>(i);
        if (static_cast<long>(i) - last <= static_cast<long>(margin)) p[i] = 0;
    }
    last = static_cast<long>(n + margin + 1);
    for (size_t i = n; i-- > 0;) {
        if (on[i]) last = static_cast<long>(i);
        if (last - static_cast<long>(i) <= static_cast<long>(margin)) p[i] = 0;
    }
    return p;
}

// Figures of y (delay d) for the scene, from `from` on.
inline Figures measure(const Scene& sc, const std::vector<float>& y, int d, size_t from) {
    Figures f;
    f.delay = d;
    const size_t n = sc.x.size() - static_cast<size_t>(d);
    const size_t du = static_cast<size_t>(d);
    // Segmental SNR and speech level on 20 ms frames that are active throughout.
    const size_t fl = static_cast<size_t>(sc.rate) / 50;
    double seg_in = 0, seg_out = 0, ys2 = 0, ss = 0;
    long frames = 0;
    for (size_t b = from; b + fl <= n; b += fl) {
        bool all = true;
        for (size_t i = b; i < b + fl && all; ++i) all = sc.on[i] != 0;
        if (!all) continue;
        double es = 0, ei = 0, eo = 0, ys = 0;
        for (size_t i = b; i < b + fl; ++i) {
            const double s = sc.s[i], xi = sc.x[i], yo = y[i + du];
            es += s * s;
            ei += (s - xi) * (s - xi);
            eo += (s - yo) * (s - yo);
            ys += s * yo;
        }
        auto clamp = [](double v) { return std::min(35.0, std::max(-10.0, v)); };
        seg_in += clamp(10 * std::log10(es / std::max(ei, 1e-9)));
        seg_out += clamp(10 * std::log10(es / std::max(eo, 1e-9)));
        ys2 += ys * ys / es;
        ss += es;
        ++frames;
    }
    if (frames) {
        f.seg_in = seg_in / frames;
        f.seg_out = seg_out / frames;
        f.speech = 10 * std::log10(ys2 / ss);
    }
    // Noise in pauses.
    const std::vector<char> pause = pause_mask(sc.on, static_cast<size_t>(sc.rate) * 3 / 100);
    double pin = 0, pout = 0;
    for (size_t i = from; i < n; ++i)
        if (pause[i]) pin += double(sc.x[i]) * sc.x[i], pout += double(y[i + du]) * y[i + du];
    f.atten = pin > 0 ? 10 * std::log10(std::max(pout, 1e-9) / pin) : 0;
    // Musical noise: band gains over 32 ms frames inside pauses.
    size_t N = 256;
    while (N < static_cast<size_t>(sc.rate) * 32 / 1000) N *= 2;
    std::vector<std::complex<double>> X(N), Y(N);
    const int bands = 16;
    std::vector<double> sum(bands, 0), sum2(bands, 0), pw(bands, 0);
    long pf = 0;
    for (size_t b = from; b + N <= n; b += N / 2) {
        bool all = true;
        for (size_t i = b; i < b + N && all; ++i) all = pause[i] != 0;
        if (!all) continue;
        for (size_t i = 0; i < N; ++i) {
            const double w = 0.5 - 0.5 * std::cos(2 * M_PI * static_cast<double>(i) / N);
            X[i] = w * sc.x[b + i];
            Y[i] = w * y[b + i + du];
        }
        fft_inplace(X);
        fft_inplace(Y);
        for (int k = 0; k < bands; ++k) {
            double ex = 0, ey = 0;
            for (size_t j = 1 + k * (N / 2) / bands; j <= (k + 1) * (N / 2) / bands; ++j)
                ex += std::norm(X[j]), ey += std::norm(Y[j]);
            const double g = 10 * std::log10((ey + 1e-3) / (ex + 1e-3));
            sum[k] += g;
            sum2[k] += g * g;
            pw[k] += ex;
        }
        ++pf;
    }
    if (pf > 1) {
        double acc = 0, wt = 0;
        for (int k = 0; k < bands; ++k) {
            const double m = sum[k] / pf;
            const double var = std::max(0.0, sum2[k] / pf - m * m);
            acc += pw[k] * std::sqrt(var);
            wt += pw[k];
        }
        f.musical = acc / wt;
    }
    // Clipping and silent frames.
    for (size_t i = 0; i < n; ++i)
        if (std::fabs(y[i + du]) >= 32767.0f && std::fabs(sc.x[i]) < 32767.0f) ++f.clipped;
    for (size_t b = from; b + 16 <= n; b += 16) {
        bool yz = true, xz = true;
        for (size_t i = b; i < b + 16; ++i)
            yz = yz && y[i + du] == 0.0f, xz = xz && sc.x[i] == 0.0f;
        f.silent += yz && !xz;
    }
    return f;
}

}  // namespace nftest
