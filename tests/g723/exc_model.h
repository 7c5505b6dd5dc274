// Plain wide-integer models of the G.723.1 excitation steps for the tests:
// the delayed excitation by its periodic-extension definition, filtering by
// direct convolution, and small helpers.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "kvosc_types.h"

namespace g723test {

// Excitation L samples before time t (t = -2 .. 61 relative to the
// subframe): the history before the subframe, extended by repeating its last
// L samples.
inline int64_t excitation_at(const int16_t* hist145, int lag, int t) {
    int tau = t - lag;
    while (tau >= 0) tau -= lag;  // periodic extension of the past
    return hist145[145 + tau];
}

// The 64-sample delayed vector of a lag.
inline std::vector<int64_t> delayed(const int16_t* hist145, int lag) {
    std::vector<int64_t> e(64);
    for (int n = 0; n < 64; ++n) e[n] = excitation_at(hist145, lag, n - 2);
    return e;
}

inline int16_t clamp16(int64_t v) {
    return int16_t(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}
inline int32_t clamp32(int64_t v) {
    return int32_t(v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : v));
}

inline std::vector<int16_t> random16(std::mt19937& rng, int n, int amp) {
    std::uniform_int_distribution<int> d(-amp, amp);
    std::vector<int16_t> v(n);
    for (auto& x : v) x = int16_t(d(rng));
    return v;
}

// A decaying impulse response like that of a weighted synthesis filter (Q12 .. Q13).
inline std::vector<int16_t> impulse(std::mt19937& rng, int peak = 8192) {
    std::vector<int16_t> h(60);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    double a = peak;
    for (int i = 0; i < 60; ++i) {
        h[i] = int16_t(i == 0 ? peak : a * u(rng));
        a *= 0.88;
    }
    return h;
}

}  // namespace g723test
