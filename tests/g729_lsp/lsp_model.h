// Independent models for the G.729 LSP tests: LSF vectors of random stable LP
// filters found in double precision, and the decoder's reconstruction written
// in plain wide integers straight from the table rows and the predictor
// coefficients (valid data never saturates, so no clamps are needed).
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "g729/lsp_tables.h"
#include "kvosc_types.h"
#include "lsp_test_reset.h"

namespace lspmodel {

// LSFs (Q13 radians) of a random stable, speech-like order-10 LP filter: four
// formants in their usual ranges at 8 kHz (bandwidths 80 to 300 Hz) and one
// broad resonance for the tilt (600 to 1500 Hz wide), multiplied out into A(z), then the roots of
// the symmetric and antisymmetric polynomials on the unit circle, found in double precision as
// zeros of Re and Im of A(e^jw) e^(j 5.5 w).
inline std::vector<Kvo16s> stableLsf(std::mt19937& rng) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const double base[5] = {300, 900, 2000, 2800, 500}, span[5] = {500, 900, 700, 600, 2500};
    for (;;) {
        double a[11] = {1.0};
        for (int s = 0; s < 5; ++s) {
            const double f = base[s] + span[s] * u(rng),
                         bw = s < 4 ? 80 + 220 * u(rng) : 600 + 900 * u(rng);
            const double r = std::exp(-M_PI * bw / 8000.0),
                         c = -2 * r * std::cos(2 * M_PI * f / 8000.0);
            // Multiply by 1 + c z^-1 + r^2 z^-2.
            double b[11] = {};
            for (int k = 0; k <= 2 * s; ++k) {
                b[k] += a[k];
                b[k + 1] += c * a[k];
                b[k + 2] += r * r * a[k];
            }
            std::memcpy(a, b, sizeof a);
        }
        auto B = [&](double w) {
            std::complex<double> s = 0;
            for (int k = 0; k <= 10; ++k) s += a[k] * std::polar(1.0, -w * k);
            return s * std::polar(1.0, 5.5 * w);
        };
        std::vector<double> roots;
        const int grid = 4000;
        for (int part = 0; part < 2; ++part) {
            auto f = [&](double w) { return part == 0 ? B(w).real() : B(w).imag(); };
            double w0 = 1e-6, f0 = f(w0);
            for (int g = 1; g <= grid; ++g) {
                const double w1 = M_PI * g / grid - (g == grid ? 1e-6 : 0.0), f1 = f(w1);
                if ((f0 < 0) != (f1 < 0)) {
                    double lo = w0, hi = w1, flo = f0;
                    for (int it = 0; it < 60; ++it) {
                        const double m = 0.5 * (lo + hi), fm = f(m);
                        if ((fm < 0) == (flo < 0)) {
                            lo = m;
                            flo = fm;
                        } else {
                            hi = m;
                        }
                    }
                    roots.push_back(0.5 * (lo + hi));
                }
                w0 = w1;
                f0 = f1;
            }
        }
        if (roots.size() != 10) continue;
        std::sort(roots.begin(), roots.end());
        std::vector<Kvo16s> lsf(10);
        for (int j = 0; j < 10; ++j) lsf[j] = static_cast<Kvo16s>(std::lround(roots[j] * 8192.0));
        return lsf;
    }
}

// One gap pass over a code vector, as the standard states it.
inline void gapPass(int* y, int g) {
    for (int j = 1; j < 10; ++j) {
        const int k = (y[j - 1] - y[j] + g) >> 1;
        if (k > 0) {
            y[j - 1] -= k;
            y[j] += k;
        }
    }
}

// Code vector from the three codebook rows, with the passes 10 and 5 (the
// silence-descriptor quantiser of annex B runs the pass of 10 only).
inline void codeVector(const Kvo16s* row1, const Kvo16s* rowLo, const Kvo16s* rowHi, int* y,
                       bool annexB = false) {
    for (int j = 0; j < 10; ++j) y[j] = row1[j] + (j < 5 ? rowLo[j] : rowHi[j]);
    gapPass(y, 10);
    if (!annexB) gapPass(y, 5);
}

// Quantised LSF and the warning flags (1 low, 2 high) of a decoder frame;
// updates the history model.
inline int decodeFrame(const int* y, const Kvo16s (*fg)[10], const Kvo16s* fgSum, Kvo16s* hist,
                       Kvo16s* out) {
    int q[10];
    for (int j = 0; j < 10; ++j) {
        int64_t s = int64_t{y[j]} * fgSum[j];
        for (int k = 0; k < 4; ++k) s += int64_t{hist[10 * k + j]} * fg[k][j];
        q[j] = static_cast<int>(s >> 15);
    }
    std::memmove(hist + 10, hist, 30 * sizeof(Kvo16s));
    for (int j = 0; j < 10; ++j) hist[j] = static_cast<Kvo16s>(y[j]);
    for (int j = 0; j < 9; ++j)
        if (q[j + 1] < q[j]) std::swap(q[j], q[j + 1]);
    int flags = 0;
    if (q[0] < 40) q[0] = 40, flags |= 1;
    for (int j = 0; j < 9; ++j) q[j + 1] = std::max(q[j + 1], q[j] + 321);
    if (q[9] > 25681) q[9] = 25681, flags |= 2;
    for (int j = 0; j < 10; ++j) out[j] = static_cast<Kvo16s>(q[j]);
    return flags;
}

inline void resetHistory(Kvo16s* hist) {
    for (int k = 0; k < 4; ++k) std::memcpy(hist + 10 * k, kvo::tab::freq_prev_reset, 20);
}

}  // namespace lspmodel
