// Plain models shared by the G.723.1 excitation tests.
#pragma once

#include <cstdint>
#include <algorithm>
#include <random>
#include <vector>

namespace g723test {

// Delayed excitation for lag L, sample n = 0 .. 63 standing at time n - 2 of
// the subframe: the 145-sample history extended by repeating its last L samples.
inline std::vector<int64_t> delayed(const int16_t* hist145, int lag) {
    std::vector<int64_t> e(64);
    for (int n = 0; n < 64; ++n) {
        int tau = n - 2 - lag;
        while (tau >= 0) tau -= lag;
        e[n] = hist145[145 + tau];
    }
    return e;
}

inline int16_t clamp16(int64_t v) {
    return int16_t(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

inline std::vector<int16_t> random16(std::mt19937& rng, int n, int amp) {
    std::uniform_int_distribution<int> d(-amp, amp);
    std::vector<int16_t> v(n);
    for (auto& x : v) x = int16_t(d(rng));
    return v;
}

// Decaying impulse response like that of a weighted synthesis filter.
inline std::vector<int16_t> impulse(std::mt19937& rng, int peak = 8192) {
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<int16_t> h(60);
    double a = peak;
    for (int i = 0; i < 60; ++i, a *= 0.88) h[i] = int16_t(i == 0 ? std::min(peak, 32767) : a * u(rng));
    return h;
}

}  // namespace g723test
