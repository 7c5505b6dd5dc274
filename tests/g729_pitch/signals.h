// Test signals of the G.729 pitch tests: voiced-like harmonic sums and pulse trains of a known
// period, and random vectors of every level up to full scale (which drive the saturating chains).
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace gsig {

using Vec = std::vector<int16_t>;

inline int16_t clip(double v) {
    if (v > 32767) return 32767;
    if (v < -32768) return -32768;
    return static_cast<int16_t>(std::lround(v));
}

// n samples of a harmonic sum of fundamental period `period` (in samples, may be fractional).
inline Vec harmonic(int n, double period, double amp, uint32_t seed, double noise = 0.0) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> nd(0.0, 1.0);
    std::uniform_real_distribution<double> ph(0.0, 6.283185307179586);
    const int nh = static_cast<int>(std::floor(period / 2.2));
    std::vector<double> phase(nh + 1), gain(nh + 1);
    for (int k = 1; k <= nh; ++k) phase[k] = ph(rng), gain[k] = 1.0 / std::sqrt(double(k));
    Vec v(n);
    for (int i = 0; i < n; ++i) {
        double s = 0;
        for (int k = 1; k <= nh; ++k)
            s += gain[k] * std::cos(6.283185307179586 * k * i / period + phase[k]);
        v[i] = clip(amp * (s / 2.5 + noise * nd(rng)));
    }
    return v;
}

// Pulse train of the given integer period with a short decaying shape per pulse.
inline Vec pulses(int n, int period, double amp, int offset = 3) {
    Vec v(n, 0);
    for (int p = offset; p < n; p += period)
        for (int k = 0; k < 6 && p + k < n; ++k) v[p + k] = clip(amp * std::pow(-0.55, k));
    return v;
}

// Random vector whose magnitude class is chosen at random: quiet, normal, loud, or full scale
// with some samples at -32768 (to reach every saturation of the chains).
inline Vec anyLevel(int n, std::mt19937& rng) {
    static const int amps[] = {20, 600, 4000, 12000, 32767};
    const int amp = amps[rng() % 5];
    Vec v(n);
    std::uniform_int_distribution<int> d(-amp, amp);
    for (auto& x : v) x = static_cast<int16_t>(d(rng));
    if (amp == 32767)
        for (int k = 0; k < n / 8; ++k) v[rng() % n] = (rng() & 1) ? -32768 : 32767;
    return v;
}

// A Q12 impulse response of a weighted synthesis filter: 4096 first, then a decaying resonance.
inline Vec impulse(std::mt19937& rng, bool extreme = false) {
    Vec h(40);
    std::uniform_real_distribution<double> u(0.6, 0.95), w(0.2, 2.5);
    const double r = u(rng), th = w(rng);
    for (int i = 0; i < 40; ++i)
        h[i] = clip(4096.0 * std::pow(r, i) * std::cos(th * i) * (i ? 1.6 : 1));
    h[0] = 4096;
    if (extreme)
        for (auto& x : h) x = static_cast<int16_t>((rng() & 1) ? 32767 : -32768);
    return h;
}

}  // namespace gsig
