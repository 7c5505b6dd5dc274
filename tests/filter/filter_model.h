// Independent models of the filter kernels: the saturating basic operators of the published
// fixed-point coders (with a sticky overflow flag), the filters in direct form on top of them
// or in 64-bit arithmetic for the wrapping forms, and the random inputs of the tests.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace fmodel {

using i16 = int16_t;
using i32 = int32_t;
using i64 = int64_t;
using Vec = std::vector<i16>;

struct Ops {
    bool ovf = false;
    i64 clamp(i64 v, i64 lo, i64 hi) {
        if (v < lo || v > hi) ovf = true;
        return v < lo ? lo : (v > hi ? hi : v);
    }
    i32 sat(i64 v) { return static_cast<i32>(clamp(v, INT32_MIN, INT32_MAX)); }
    i16 sat_s(i32 v) { return static_cast<i16>(clamp(v, -32768, 32767)); }
    i32 L_mult(i16 a, i16 b) { return sat(2 * i64{a} * b); }
    i32 L_mac(i32 s, i16 a, i16 b) { return sat(i64{s} + L_mult(a, b)); }
    i32 L_msu(i32 s, i16 a, i16 b) { return sat(i64{s} - L_mult(a, b)); }
    i32 L_shl(i32 x, int n) { return sat(i64{x} * (i64{1} << n)); }
    i16 round(i32 x) { return static_cast<i16>(sat(i64{x} + 0x8000) >> 16); }
    i16 add(i16 a, i16 b) { return sat_s(i32{a} + b); }
    i16 mult_r(i16 a, i16 b) { return sat_s((i32{a} * b + 16384) >> 15); }
};

inline i16 low16(i64 v) {
    return static_cast<i16>(static_cast<uint16_t>(v));
}

// Synthesis 1/A(z) by the basic-operator chain.  mem: order past outputs, oldest first.
inline Vec syn(const i16* a, int order, const i16* x, int len, const Vec& mem, int sf, bool* ovf) {
    Ops o;
    Vec yy(mem);
    for (int i = 0; i < len; ++i) {
        i32 s = o.L_mult(x[i], a[0]);
        for (int j = 1; j <= order; ++j) s = o.L_msu(s, a[j], yy[yy.size() - j]);
        yy.push_back(o.round(o.L_shl(s, 15 - sf)));
    }
    if (ovf) *ovf = o.ovf;
    return Vec(yy.begin() + order, yy.end());
}

// Synthesis with plain wide sums, low 16 bits of (sum + round) >> sf kept.
inline Vec syn_wrap(const i16* a, int order, const i16* x, int len, const Vec& mem, int sf) {
    Vec yy(mem);
    for (int i = 0; i < len; ++i) {
        i64 acc = i64{a[0]} * x[i] + (i64{1} << (sf - 1));
        for (int j = 1; j <= order; ++j) acc -= i64{a[j]} * yy[yy.size() - j];
        yy.push_back(low16(acc >> sf));
    }
    return Vec(yy.begin() + order, yy.end());
}

// Residual A(z) by the basic-operator chain (or wide sums, low 16 bits); x has order samples
// of history before it.
inline Vec residu(const i16* a, int order, const i16* x, int len, bool wrap = false) {
    Ops o;
    Vec y(len);
    for (int i = 0; i < len; ++i) {
        i32 s = o.L_mult(x[i], a[0]);
        i64 acc = 2048;
        for (int j = 0; j <= order; ++j) acc += i64{a[j]} * x[i - j];
        for (int j = 1; j <= order; ++j) s = o.L_mac(s, a[j], x[i - j]);
        y[i] = wrap ? low16(acc >> 12) : o.round(o.L_shl(s, 3));
    }
    return y;
}

struct Rng {
    std::mt19937 g;
    explicit Rng(uint32_t seed) : g(seed) {}
    int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(g); }
    i16 s16() { return static_cast<i16>(uni(-32768, 32767)); }
    Vec vec(int n, int amp) {
        Vec v(n);
        for (auto& e : v) e = static_cast<i16>(uni(-amp, amp < 32767 ? amp : 32767));
        return v;
    }
    // Kinds: quiet, full range, full-scale square wave, constant -32768, alternating full
    // scale, quiet then full range from a random point.
    Vec input(int kind, int n) {
        Vec v = vec(n, kind == 0 ? 2000 : 32768);
        const int half = uni(1, 12), burst = uni(0, n);
        for (int i = 0; i < n; ++i) {
            if (kind == 2) v[i] = ((i / half) & 1) ? -32768 : 32767;
            if (kind == 3) v[i] = -32768;
            if (kind == 4) v[i] = (i & 1) ? -32768 : 32767;
            if (kind == 5 && i < burst) v[i] = static_cast<i16>(v[i] / 1000);
        }
        return v;
    }
    // Kinds: mild LP (a[0] = 4096, taps shrinking with k), strong LP, anything (-32768 likely).
    Vec coefs(int kind, int order) {
        Vec a = vec(order + 1, 32768);
        if (kind == 2) {
            if (uni(0, 3) == 0) a[uni(0, order)] = -32768;
            return a;
        }
        a[0] = 4096;
        const int amp = kind ? 16000 : 4096;
        for (int k = 1; k <= order; ++k) a[k] = static_cast<i16>(uni(-amp, amp) / k);
        return a;
    }
};

}  // namespace fmodel
