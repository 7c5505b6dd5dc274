// Source-filter synthesis: impulse-like glottal pulses (a raised-cosine
// opening, an abrupt closure) excite a cascade of three two-pole resonators.
#include "sample.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace kvosc {

namespace {

struct Resonator {
    double y1 = 0, y2 = 0;
    // Two-pole resonance at f Hz with bandwidth bw Hz, unity gain at DC.
    double run(double x, double f, double bw, int rate) {
        const double pi = 3.14159265358979323846;
        double r = std::exp(-pi * bw / rate);
        double a1 = 2 * r * std::cos(2 * pi * f / rate), a2 = -r * r;
        double g = 1 - a1 - a2;
        double y = g * x + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        return y;
    }
};

struct Lcg {
    uint32_t s = 12345;
    double next() {  // uniform in [-1, 1)
        s = s * 1664525u + 1013904223u;
        return static_cast<double>(s >> 8) / 8388608.0 - 1.0;
    }
};

}  // namespace

std::vector<int16_t> synth_speech(double seconds, int rate) {
    const double pi = 3.14159265358979323846;
    const size_t n = static_cast<size_t>(seconds * rate);
    // Formants F1, F2, F3 (Hz) of the three vowels.
    const double vowels[3][3] = {{730, 1090, 2440}, {270, 2290, 3010}, {300, 870, 2240}};
    const double syllable = 0.32, pause = 0.08;  // seconds
    std::vector<double> out(n);
    Resonator f1, f2, f3;
    Lcg noise;
    double phase = 0;  // glottal cycle position, 0..1
    for (size_t i = 0; i < n; ++i) {
        double t = static_cast<double>(i) / rate;
        double cycle = std::fmod(t, syllable + pause);
        int k = static_cast<int>(t / (syllable + pause));
        bool voiced = cycle < syllable;
        // Vowel glide within the syllable, from vowel k to vowel k+1.
        double u = voiced ? cycle / syllable : 1.0;
        const double* va = vowels[k % 3];
        const double* vb = vowels[(k + 1) % 3];
        double F[3];
        for (int j = 0; j < 3; ++j) F[j] = va[j] + (vb[j] - va[j]) * u * u * (3 - 2 * u);
        // Pitch: a falling declination with a slow vibrato.
        double f0 = 150 - 55 * u + 6 * std::sin(2 * pi * 5.5 * t);
        phase += f0 / rate;
        double src = 0;
        if (phase >= 1) phase -= 1;
        if (voiced) {
            // Glottal flow derivative: rising raised cosine, then a sharp fall.
            double open = 0.6;
            src = phase < open ? 0.5 * (1 - std::cos(pi * phase / open)) - 0.5
                               : -0.5 * std::cos(pi * (phase - open) / (1 - open));
            double env = std::sin(pi * std::min(1.0, cycle / syllable));
            src *= env;
            src += 0.02 * noise.next();
        } else {
            src = 0.004 * noise.next();
        }
        double y = f1.run(src, F[0], 80, rate);
        y = f2.run(y, F[1], 110, rate);
        y = f3.run(y, F[2], 160, rate);
        out[i] = y;
    }
    double peak = 1e-9;
    for (double v : out) peak = std::max(peak, std::fabs(v));
    std::vector<int16_t> pcm(n);
    const double target = 13000;  // about -8 dBFS
    for (size_t i = 0; i < n; ++i)
        pcm[i] = static_cast<int16_t>(std::lround(out[i] * target / peak));
    return pcm;
}

}  // namespace kvosc
