// Test models of the G.729 post-filter stages: the saturating basic operators of the published
// fixed-point coder, direct-form LP filters on top of them (the wrapping forms in 64-bit
// arithmetic), stable LP coefficient sets and test signals.
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

inline i32 sat32(i64 v) { return v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : i32(v)); }
inline i16 sat16(i64 v) { return v > 32767 ? 32767 : (v < -32768 ? -32768 : i16(v)); }
inline i16 low16(i64 v) { return static_cast<i16>(static_cast<uint16_t>(v)); }

// Basic operators with a sticky overflow flag.
struct Ops {
    bool ovf = false;
    i32 sat(i64 v) {
        if (v > INT32_MAX || v < INT32_MIN) ovf = true;
        return sat32(v);
    }
    i32 L_mult(i16 a, i16 b) { return sat(2 * i64{a} * b); }
    i32 L_mac(i32 s, i16 a, i16 b) { return sat(i64{s} + L_mult(a, b)); }
    i32 L_msu(i32 s, i16 a, i16 b) { return sat(i64{s} - L_mult(a, b)); }
    i32 L_shl(i32 x, int n) {
        for (int i = 0; i < n; ++i) x = sat(i64{x} * 2);
        return x;
    }
    i16 round(i32 x) {
        const i32 r = sat(i64{x} + 0x8000);
        return static_cast<i16>(r >> 16);
    }
};

// Order-10 synthesis 1/A(z) at scale 12 as the reference chain: doubled products, each partial
// sum saturated in tap order, a saturating shift by 3 and a rounding to the high half.
// mem[0..9]: the ten past outputs, oldest first.  Returns true on any saturation.
inline bool synthChain(const i16* a, const i16* x, i16* y, int len, const i16* mem) {
    Ops o;
    std::vector<i16> buf(mem, mem + 10);
    buf.resize(10 + len);
    for (int n = 0; n < len; ++n) {
        i32 s = o.L_mult(a[0], x[n]);
        for (int k = 1; k <= 10; ++k) s = o.L_msu(s, a[k], buf[10 + n - k]);
        s = o.L_shl(s, 3);
        buf[10 + n] = o.round(s);
    }
    for (int n = 0; n < len; ++n) y[n] = buf[10 + n];
    return o.ovf;
}

// Zero-state synthesis of any order at scale 12 with 32-bit wrapping sums, low 16 bits kept.
inline void synthWrap(const i16* a, int order, const i16* x, i16* y, int len) {
    for (int n = 0; n < len; ++n) {
        i64 s = i64{a[0]} * x[n] + 2048;
        for (int k = 1; k <= order && k <= n; ++k) s -= i64{a[k]} * y[n - k];
        y[n] = low16(static_cast<i32>(static_cast<uint32_t>(s)) >> 12);
    }
}

inline int norm32(i32 x) {
    if (x == 0) return 0;
    if (x < 0) x = ~x;
    int n = 0;
    while (x < 0x40000000) {
        x <<= 1;
        ++n;
    }
    return n;
}

struct Rng {
    std::mt19937 g;
    explicit Rng(uint32_t seed) : g(seed) {}
    int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
    double real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(g); }
    double gauss() { return std::normal_distribution<double>(0.0, 1.0)(g); }
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
            const double v = std::lround(a[i] * 4096.0);
            if (v > 32767 || v < -32768) ok = false;
            q[i] = static_cast<i16>(v);
        }
        if (ok) return q;
    }
}

}  // namespace pmodel
