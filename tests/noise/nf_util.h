// Helpers of the echo-path noise filter tests: filter blocks at a chosen
// address, test signals, and a double-precision model of the suppressor for
// gains that are fixed per bin.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "kvosc.h"
#include "nf_scenes.h"

namespace nftest {

inline constexpr int kRates[4] = {8000, 16000, 22050, 32000};
inline constexpr int kFrame = 16;
inline constexpr int kDelay = 56;

// A filter block in its own heap memory, placed `offset` bytes past a 64-byte boundary
// and prefilled with `fill` before Init.
struct Filter {
    std::vector<uint8_t> mem;
    KvoFilterNoise32fState* st = nullptr;
    Kvo32s bytes = 0;
    explicit Filter(int rate, int offset = 0, uint8_t fill = 0) {
        EXPECT_EQ(kvosFilterNoiseGetStateSize_EC_32f(rate, &bytes), kvoOk);
        mem.assign(static_cast<size_t>(bytes) + 128, fill);
        auto base = reinterpret_cast<uintptr_t>(mem.data());
        base = ((base + 63) & ~uintptr_t{63}) + static_cast<uintptr_t>(offset);
        st = reinterpret_cast<KvoFilterNoise32fState*>(base);
        EXPECT_EQ(kvosFilterNoiseInit_EC_32f(rate, st), kvoOk);
    }
    // The record inside the block (the block's first 8-byte boundary).
    KvoFilterNoise32fState* rec() const {
        const auto a = reinterpret_cast<uintptr_t>(st);
        return reinterpret_cast<KvoFilterNoise32fState*>((a + 7) & ~uintptr_t{7});
    }
};

// Per-frame results of a run.
struct Outcome {
    std::vector<float> out;
    std::vector<int> flags;  // detector decisions, one per frame
};

// Detector then suppressor (flag -1) per frame.
inline Outcome run_detect_filter(Filter& f, const std::vector<float>& x) {
    Outcome r;
    r.out.resize(x.size());
    for (size_t i = 0; i + kFrame <= x.size(); i += kFrame) {
        Kvo64f np = 0;
        Kvo32f nm = 0;
        Kvo32s flag = -7;
        EXPECT_EQ(kvosFilterNoiseDetect_EC_32f64f(&x[i], &np, &nm, &flag, f.st), kvoOk);
        r.flags.push_back(flag);
        EXPECT_EQ(kvosFilterNoise_EC_32f(&x[i], &r.out[i], -1, f.st), kvoOk);
    }
    return r;
}

// Suppressor alone with the caller's noise decision for every frame.
inline std::vector<float> run_declared(Filter& f, const std::vector<float>& x, int flag) {
    std::vector<float> y(x.size());
    for (size_t i = 0; i + kFrame <= x.size(); i += kFrame)
        EXPECT_EQ(kvosFilterNoise_EC_32f(&x[i], &y[i], flag, f.st), kvoOk);
    return y;
}

// White or pink noise of the scene generator at rms `rms`.
inline std::vector<float> noise_of(Noise kind, size_t n, double rms, unsigned seed) {
    const std::vector<double> u = unit_noise(kind, n, 16000, seed);
    std::vector<float> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<float>(rms * u[i]);
    return v;
}
inline std::vector<float> white(size_t n, double rms, unsigned seed) {
    return noise_of(Noise::White, n, rms, seed);
}
inline std::vector<float> pink(size_t n, double rms, unsigned seed) {
    return noise_of(Noise::Pink, n, rms, seed);
}

// Synthesis window of 64 taps by its rule: trunc(8192 sin^2(pi i / 63)) over 12288
// (levels 1, 2, 5) or 16384 (levels 3, 4).
inline std::vector<double> window(bool low) {
    std::vector<double> w(64);
    for (int i = 0; i < 64; ++i) {
        const double s = std::sin(M_PI * i / 63.0);
        // (the margin keeps sin^2(pi/3) = 3/4 exact)
        w[i] = std::floor(8192.0 * s * s + 1e-9) / (low ? 16384.0 : 12288.0);
    }
    return w;
}

// Mean square of the overlap-added window sums S(j) = sum_m w[j + 16 m].
inline double window_power_gain(bool low) {
    const std::vector<double> w = window(low);
    double e = 0;
    for (int j = 0; j < 16; ++j) {
        const double s = w[j] + w[j + 16] + w[j + 32] + w[j + 48];
        e += s * s;
    }
    return e / 16.0;
}

// Suppressor model for a fixed real gain G[k] per bin (k = 0..64): per frame the last
// 128 samples (zeros before the start) are filtered by G in the DFT domain, the second
// half is windowed and overlap-added at a hop of 16, values below 0.5 in magnitude are
// cleared (high rule: raised to 0.05 with their sign), and the output is delayed 8 more
// samples.  Output sample t stands for input
// sample t - 56.  Double precision, direct DFT.
inline std::vector<double> model_fixed_gain(const std::vector<float>& x, const double* G,
                                            bool lowWindow, bool highRule) {
    const std::vector<double> w = window(lowWindow);
    const size_t n = x.size();
    std::vector<double> ola(64, 0.0), stream(n + 8, 0.0), blk(128);
    std::vector<double> cs(128), sn(128);
    for (int m = 0; m < 128; ++m) {
        cs[m] = std::cos(2 * M_PI * m / 128.0);
        sn[m] = std::sin(2 * M_PI * m / 128.0);
    }
    for (size_t f = 0; f * kFrame + kFrame <= n; ++f) {
        const long end = static_cast<long>((f + 1) * kFrame);
        for (int m = 0; m < 128; ++m) {
            const long at = end - 128 + m;
            blk[m] = at >= 0 ? x[static_cast<size_t>(at)] : 0.0;
        }
        double re[65], im[65];
        for (int k = 0; k < 65; ++k) {
            re[k] = im[k] = 0;
            for (int m = 0; m < 128; ++m) {
                re[k] += blk[m] * cs[(k * m) % 128];
                im[k] -= blk[m] * sn[(k * m) % 128];
            }
            re[k] *= G[k];
            im[k] *= G[k];
        }
        for (int i = 0; i < 48; ++i) ola[i] = ola[i + 16];
        for (int i = 48; i < 64; ++i) ola[i] = 0;
        for (int i = 0; i < 64; ++i) {
            const int t = 64 + i;
            double y = re[0] + re[64] * ((t & 1) ? -1.0 : 1.0);
            for (int k = 1; k < 64; ++k)
                y += 2 * (re[k] * cs[(k * t) % 128] - im[k] * sn[(k * t) % 128]);
            ola[i] += y / 128.0 * w[i];
        }
        for (int i = 0; i < 64; ++i) {
            if (highRule && std::fabs(ola[i]) < 0.05) ola[i] = ola[i] < 0 ? -0.05 : 0.05;
            if (!highRule && std::fabs(ola[i]) < 0.5) ola[i] = 0;
        }
        for (int i = 0; i < kFrame; ++i) stream[f * kFrame + i + 8] = ola[i];
    }
    stream.resize(n);
    return stream;
}

}  // namespace nftest
