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

std::vector<int16_t> white_noise(int n, int amp, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-amp, amp);
    std::vector<int16_t> s(n);
    for (auto& v : s) v = static_cast<int16_t>(std::clamp(d(rng), -32768, 32767));
    return s;
}

std::vector<int16_t> square(int n, int period, int amp) {
    std::vector<int16_t> s(n);
    for (int i = 0; i < n; ++i)
        s[i] = static_cast<int16_t>((i / (period / 2)) % 2 ? -amp - 1 : amp);
    return s;
}

std::vector<int16_t> sweep(int n, double amp, double fs) {
    std::vector<int16_t> s(n);
    double ph = 0;
    for (int i = 0; i < n; ++i) {
        ph += 2 * M_PI * (50 + (fs / 2 - 100) * i / n) / fs;
        s[i] = static_cast<int16_t>(std::lround(std::clamp(amp * std::sin(ph), -32768.0, 32767.0)));
    }
    return s;
}

double snr_db(const std::vector<int16_t>& ref, const std::vector<int16_t>& x) {
    double sig = 0, err = 0;
    for (size_t i = 0; i < ref.size() && i < x.size(); ++i) {
        sig += double(ref[i]) * ref[i];
        err += (double(ref[i]) - x[i]) * (double(ref[i]) - x[i]);
    }
    return err == 0 ? 200.0 : 10 * std::log10(sig / err);
}

}  // namespace kvosc::test
