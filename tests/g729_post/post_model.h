// Test models of the G.729 post-filter stages: saturating helpers, the reference synthesis
// chain, wrapping zero-state synthesis, stable LP sets and a seeded generator.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace pmodel {

using i16 = int16_t;
using i32 = int32_t;
using i64 = int64_t;
using Vec = std::vector<i16>;

inline i32 sat32(i64 v) {
    return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : i32(v));
}
inline i16 sat16(i64 v) {
    return v > 32767 ? 32767 : (v < -32768 ? -32768 : i16(v));
}
inline i16 low16(i64 v) {
    return static_cast<i16>(static_cast<uint16_t>(v));
}
// L_mac chain: doubled product and sum, each saturated, in order.
inline i32 macChain(const i16* a, const i16* b, int n) {
    i32 s = 0;
    for (int i = 0; i < n; ++i) s = sat32(i64{s} + sat32(2 * i64{a[i]} * b[i]));
    return s;
}

// Order-10 synthesis at scale 12 as the reference chain: doubled products, partial sums
// saturated in tap order, saturating shift by 3, rounding to the high half.  mem: ten past
// outputs, oldest first.
inline void synthChain(const i16* a, const i16* x, i16* y, int len, const i16* mem) {
    Vec buf(mem, mem + 10);
    for (int n = 0; n < len; ++n) {
        i32 s = sat32(2 * i64{a[0]} * x[n]);
        for (int k = 1; k <= 10; ++k) s = sat32(i64{s} - sat32(2 * i64{a[k]} * buf[10 + n - k]));
        for (int i = 0; i < 3; ++i) s = sat32(i64{s} * 2);
        buf.push_back(static_cast<i16>(sat32(i64{s} + 0x8000) >> 16));
    }
    for (int n = 0; n < len; ++n) y[n] = buf[10 + n];
}

// Zero-state order-10 synthesis at scale 12, 32-bit wrapping sums, low 16 bits kept.
inline void synthWrap(const i16* a, const i16* x, i16* y, int len) {
    for (int n = 0; n < len; ++n) {
        i64 s = i64{a[0]} * x[n] + 2048;
        for (int k = 1; k <= 10 && k <= n; ++k) s -= i64{a[k]} * y[n - k];
        y[n] = low16(static_cast<i32>(static_cast<uint32_t>(s)) >> 12);
    }
}

struct Rng {
    std::mt19937 g;
    explicit Rng(uint32_t seed) : g(seed) {}
    int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
    double real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(g); }
    double gauss() { return std::normal_distribution<double>(0.0, 1.0)(g); }
    Vec noise(int n, double level) {
        Vec v(n);
        for (auto& x : v) x = sat16(std::lround(gauss() * level));
        return v;
    }
};

// A stable order-10 LP set in Q12 (a[0] = 4096) from random reflection coefficients.
inline Vec stableLpc(Rng& r, double kmax = 0.85) {
    for (;;) {
        double a[11] = {1.0};
        for (int m = 1; m <= 10; ++m) {
            const double k = r.real(-kmax, kmax);
            double t[11];
            for (int i = 0; i <= 10; ++i) t[i] = a[i];
            for (int i = 1; i < m; ++i) a[i] = t[i] + k * t[m - i];
            a[m] = k;
        }
        Vec q(11);
        bool ok = true;
        for (int i = 0; i <= 10; ++i) {
            ok &= std::fabs(a[i] * 4096.0) < 32767;
            q[i] = static_cast<i16>(std::lround(a[i] * 4096.0));
        }
        if (ok) return q;
    }
}

}  // namespace pmodel
