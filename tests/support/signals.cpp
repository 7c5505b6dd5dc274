#include "support/signals.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace kvosc::test {

std::vector<int16_t> speech_like(int n, uint32_t seed, double peak, double fs) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<double> v(n);
    double y1 = 0, y2 = 0, z1 = 0, z2 = 0, top = 1e-9;
    for (int i = 0; i < n; ++i) {
        const double t = i / fs;
        const double f0 = 110 + 40 * std::sin(2 * M_PI * 1.3 * t);
        const bool pulse = std::fmod(t * f0, 1.0) < f0 / fs;
        const double ex = (pulse ? 1.0 : 0.0) + 0.03 * noise(rng);
        const double r1 = 0.97, w1 = 2 * M_PI * (600 + 200 * std::sin(2 * M_PI * 2.1 * t)) / fs;
        const double y = ex + 2 * r1 * std::cos(w1) * y1 - r1 * r1 * y2;
        y2 = y1;
        y1 = y;
        const double r2 = 0.93, w2 = 2 * M_PI * (2300 + 300 * std::sin(2 * M_PI * 0.7 * t)) / fs;
        const double z = 0.3 * y + 2 * r2 * std::cos(w2) * z1 - r2 * r2 * z2;
        z2 = z1;
        z1 = z;
        const double env = 0.55 + 0.45 * std::sin(2 * M_PI * 3.0 * t);
        v[i] = env * (0.2 * y + 0.5 * z);
        top = std::max(top, std::fabs(v[i]));
    }
    std::vector<int16_t> s(n);
    for (int i = 0; i < n; ++i) s[i] = static_cast<int16_t>(std::lround(v[i] * peak / top));
    return s;
}

}  // namespace kvosc::test
