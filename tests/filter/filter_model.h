// Independent models of the filter kernels for the tests: the basic operators of the published
// fixed-point coders (each one saturating, with a sticky overflow flag), and the filters written
// in direct form on top of them, or in 64-bit arithmetic for the wrapping forms.
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

    i32 sat(i64 v) {
        if (v > INT32_MAX) {
            ovf = true;
            return INT32_MAX;
        }
        if (v < INT32_MIN) {
            ovf = true;
            return INT32_MIN;
        }
        return static_cast<i32>(v);
    }
    i16 sat_s(i32 v) {
        if (v > 32767) {
            ovf = true;
            return 32767;
        }
        if (v < -32768) {
            ovf = true;
            return -32768;
        }
        return static_cast<i16>(v);
    }
    i32 L_add(i32 a, i32 b) { return sat(i64{a} + b); }
    i32 L_sub(i32 a, i32 b) { return sat(i64{a} - b); }
    i32 L_mult(i16 a, i16 b) {
        i32 p = i32{a} * b;
        if (p == 0x40000000) {
            ovf = true;
            return INT32_MAX;
        }
        return p * 2;
    }
    i32 L_mac(i32 s, i16 a, i16 b) { return L_add(s, L_mult(a, b)); }
    i32 L_msu(i32 s, i16 a, i16 b) { return L_sub(s, L_mult(a, b)); }
    // Doubling one step at a time, saturating on the first step that leaves the range.
    i32 L_shl(i32 x, int n) {
        for (int i = 0; i < n; ++i) {
            if (x > 0x3fffffff) {
                ovf = true;
                return INT32_MAX;
            }
            if (x < -0x40000000) {
                ovf = true;
                return INT32_MIN;
            }
            x *= 2;
        }
        return x;
    }
    i16 extract_h(i32 x) { return static_cast<i16>(x >> 16); }
    i16 round(i32 x) { return extract_h(L_add(x, 0x8000)); }
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
        s = o.L_shl(s, 15 - sf);
        yy.push_back(o.round(s));
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

// Residual A(z) by the basic-operator chain; x has order samples of history before it.
inline Vec residu(const i16* a, int order, const i16* x, int len) {
    Ops o;
    Vec y(len);
    for (int i = 0; i < len; ++i) {
        i32 s = o.L_mult(x[i], a[0]);
        for (int j = 1; j <= order; ++j) s = o.L_mac(s, a[j], x[i - j]);
        y[i] = o.round(o.L_shl(s, 3));
    }
    return y;
}

inline Vec residu_wrap(const i16* a, int order, const i16* x, int len) {
    Vec y(len);
    for (int i = 0; i < len; ++i) {
        i64 acc = 2048;
        for (int j = 0; j <= order; ++j) acc += i64{a[j]} * x[i - j];
        y[i] = low16(acc >> 12);
    }
    return y;
}

// Random helpers.
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
    // Full-scale square wave of random period, the drive that saturates a filter.
    Vec square(int n) {
        Vec v(n);
        int half = uni(1, 12);
        for (int i = 0; i < n; ++i) v[i] = ((i / half) & 1) ? -32768 : 32767;
        return v;
    }
    // Stable-looking Q12 LP coefficients: a[0] = 4096, taps shrinking with k.
    Vec lpc(int order, int amp) {
        Vec a(order + 1);
        a[0] = 4096;
        for (int k = 1; k <= order; ++k) a[k] = static_cast<i16>(uni(-amp, amp) / k);
        return a;
    }
};

}  // namespace fmodel
