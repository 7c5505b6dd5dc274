// Double-precision models for the LPC tests: Levinson-Durbin, the step-up recursion (reflection coefficients
// to filter and autocorrelation), and the line spectral frequencies of a filter, found by a
// fine scan of its symmetric and antisymmetric polynomials on the unit circle or multiplied
// out from them.  Convention: A(z) = 1 + sum a[i] z^-i, a[0] = 1.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>
#include <vector>

namespace lpcmodel {

// Levinson-Durbin in double precision (the GSM AMR tests' model of the recursion).
struct Levinson {
    std::vector<double> a;  // a[0..p]
    double err = 0;         // prediction error power
};
inline Levinson levinson(const std::vector<double>& r, int p) {
    Levinson out;
    out.a.assign(size_t(p) + 1, 0.0);
    out.a[0] = 1.0;
    double e = r[0];
    for (int i = 1; i <= p; ++i) {
        double acc = r[size_t(i)];
        for (int j = 1; j < i; ++j) acc += out.a[size_t(j)] * r[size_t(i - j)];
        const double ki = -acc / e;
        std::vector<double> an(out.a);
        for (int j = 1; j < i; ++j) an[size_t(j)] = out.a[size_t(j)] + ki * out.a[size_t(i - j)];
        an[size_t(i)] = ki;
        out.a = an;
        e *= 1.0 - ki * ki;
    }
    out.err = e;
    return out;
}

inline std::vector<double> randomRC(std::mt19937& g, int p, double kmax) {
    std::uniform_real_distribution<double> u(-kmax, kmax);
    std::vector<double> k(static_cast<size_t>(p));
    for (auto& x : k) x = u(g);
    return k;
}

// Autocorrelation r[0..p] (r[0] = 1) of the AR process with reflection coefficients k, and
// in *filter its A(z).
inline std::vector<double> stepUp(const std::vector<double>& k, std::vector<double>* filter) {
    const size_t p = k.size();
    std::vector<double> r(p + 1, 0.0), a(p + 1, 0.0);
    r[0] = a[0] = 1.0;
    double e = 1.0;
    for (size_t i = 1; i <= p; ++i) {
        double s = 0;
        for (size_t j = 1; j < i; ++j) s += a[j] * r[i - j];
        r[i] = -k[i - 1] * e - s;
        std::vector<double> an(a);
        for (size_t j = 1; j < i; ++j) an[j] = a[j] + k[i - 1] * a[i - j];
        an[i] = k[i - 1];
        a = an;
        e *= 1.0 - k[i - 1] * k[i - 1];
    }
    if (filter) *filter = a;
    return r;
}

// Line spectral frequencies (radians, increasing) of a filter of order m: the zeros in
// (0, pi) of Re and Im of e^{j (m + 1) w / 2} A(e^{jw}).
inline std::vector<double> lsf(const std::vector<double>& a) {
    const int m = int(a.size()) - 1, n = 2048;
    const double pi = std::acos(-1.0);
    auto f = [&](double w, int part) {
        std::complex<double> s = 0;
        for (int i = 0; i <= m; ++i) s += a[size_t(i)] * std::polar(1.0, -w * i);
        s *= std::polar(1.0, w * (m + 1) / 2.0);
        return part == 0 ? s.real() : s.imag();
    };
    std::vector<double> roots;
    for (int part = 0; part < 2; ++part) {
        double w0 = 1e-9, y0 = f(w0, part);
        for (int i = 1; i <= n; ++i) {
            const double w1 = pi * i / n - (i == n ? 1e-9 : 0), y1 = f(w1, part);
            if ((y0 < 0) != (y1 < 0)) {  // bisection
                double lo = w0, hi = w1;
                for (int it = 0; it < 60; ++it) {
                    const double mid = 0.5 * (lo + hi);
                    ((f(mid, part) < 0) == (y0 < 0) ? lo : hi) = mid;
                }
                roots.push_back(0.5 * (lo + hi));
            }
            w0 = w1;
            y0 = y1;
        }
    }
    std::sort(roots.begin(), roots.end());
    return roots;
}

// Filter A(z) from its LSFs (radians, increasing): the sum polynomial takes the 1st, 3rd ...
// frequencies and the factor (1 + z^-1), the difference polynomial the others and
// (1 - z^-1); A = (P + Q) / 2.
inline std::vector<double> lpcFromLsf(const std::vector<double>& w) {
    std::vector<double> P{1.0}, Q{1.0};
    auto mul = [](std::vector<double>& x, const std::vector<double>& f) {
        std::vector<double> y(x.size() + f.size() - 1, 0.0);
        for (size_t i = 0; i < x.size(); ++i)
            for (size_t j = 0; j < f.size(); ++j) y[i + j] += x[i] * f[j];
        x = y;
    };
    for (size_t i = 0; i < w.size(); ++i)
        mul(i % 2 == 0 ? P : Q, {1.0, -2.0 * std::cos(w[i]), 1.0});
    mul(P, {1.0, 1.0});
    mul(Q, {1.0, -1.0});
    std::vector<double> a(w.size() + 1);
    for (size_t i = 0; i < a.size(); ++i) a[i] = 0.5 * (P[i] + Q[i]);
    return a;
}

}  // namespace lpcmodel
