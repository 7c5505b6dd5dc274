// Int64 models of the correlation kernels from their definitions (no library
// helpers), and the random / extreme data they run on.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace corrmodel {

using i64 = int64_t;
using V16 = std::vector<int16_t>;
constexpr i64 kMax32 = 2147483647, kMin32 = -2147483648LL;

inline int32_t wrap32(i64 x) {
    return static_cast<int32_t>(static_cast<uint32_t>(x));
}
inline int16_t wrap16(i64 x) {
    return static_cast<int16_t>(static_cast<uint16_t>(x));
}
inline int32_t s32(i64 x) {
    return static_cast<int32_t>(x < kMin32 ? kMin32 : (x > kMax32 ? kMax32 : x));
}
inline int16_t s16(i64 x) {
    return static_cast<int16_t>(x < -32768 ? -32768 : (x > 32767 ? 32767 : x));
}
// Left shifts that bring the top significant bit of x (x >= 0) to bit 30.
inline int norm(i64 x) {
    if (x <= 0) return 0;
    int n = 0;
    while (x < (i64{1} << 30)) x <<= 1, ++n;
    return n;
}
inline int16_t rnd16(i64 x) {  // x is a 32-bit value
    return x >= 0x7fff8000 ? int16_t{32767} : static_cast<int16_t>((x + 32768) >> 16);
}
// Exact sum of a[i] b[i + off] over i < n.
inline i64 dot(const int16_t* a, const int16_t* b, i64 n) {
    i64 s = 0;
    for (i64 i = 0; i < n; ++i) s += i64{a[i]} * b[i];
    return s;
}
// Exact sum over i < len - lag of a[i] b[i + lag] (0 when no term is left).
inline i64 tri(const int16_t* a, const int16_t* b, i64 len, i64 lag) {
    return lag < len ? dot(a, b + lag, len - lag) : 0;
}

// ---- data ----------------------------------------------------------------
enum class Kind { Random, Small, FullNeg, Alternate, Bursts };
constexpr Kind kAllKinds[] = {Kind::Random, Kind::Small, Kind::FullNeg, Kind::Alternate,
                              Kind::Bursts};

inline V16 make(Kind kind, size_t n, std::mt19937& g) {
    V16 v(n);
    for (size_t i = 0; i < n; ++i) {
        int16_t r = static_cast<int16_t>(g()), alt = (i & 1) ? int16_t{-32768} : int16_t{32767};
        v[i] = kind == Kind::Random      ? r
               : kind == Kind::Small     ? static_cast<int16_t>(r % 301)
               : kind == Kind::FullNeg   ? int16_t{-32768}
               : kind == Kind::Alternate ? alt
               : g() % 8 == 0            ? r
                                         : ((i / 8) & 1 ? int16_t{-32768} : int16_t{32767});
    }
    return v;
}

// ---- models of the exports -----------------------------------------------

// G.729 energy-normalised autocorrelation.  Returns false on overflow.
inline bool autoNormE32(const V16& x, int lags, std::vector<int32_t>& out, int& nrm) {
    const i64 len = static_cast<i64>(x.size());
    i64 e = s32(dot(x.data(), x.data(), len));
    if (e > 0x3fffffff) return false;
    i64 v = 2 * e + 1;
    nrm = norm(v);
    out.assign(lags, 0);
    out[0] = static_cast<int32_t>(v << nrm);
    for (int k = 1; k < lags; ++k) {
        i64 s = wrap32(tri(x.data(), x.data(), len, k));
        out[k] = s32(s * (i64{1} << (nrm + 1)));
    }
    return true;
}

// Rounded form of the above.
inline void autoNormENR(const V16& x, int lags, std::vector<int16_t>& out, int& nrm) {
    const i64 len = static_cast<i64>(x.size());
    i64 v = s32(2 * i64{s32(dot(x.data(), x.data(), len))});
    nrm = norm(v);
    v <<= nrm;
    out.assign(lags, 0);
    out[0] = rnd16(v);
    for (int k = 1; k < lags; ++k) {
        i64 y = tri(x.data(), x.data(), len, k) * (i64{1} << (nrm + 1));
        out[k] = y >= (i64{1} << 31) ? int16_t{32767} : (y < kMin32 ? int16_t{-32768} : rnd16(y));
    }
}

// Triangular doubled correlation normalised by its maximum; h is the headroom.
inline int crossNorm(const V16& h, const V16& x, int hr, std::vector<int16_t>& out) {
    const i64 len = static_cast<i64>(h.size());
    std::vector<i64> s(len);
    i64 m = 0;
    for (i64 k = 0; k < len; ++k) {
        s[k] = wrap32(2 * i64{wrap32(tri(h.data(), x.data(), len, k))});
        i64 mag = s[k] == kMin32 ? kMax32 : (s[k] < 0 ? -s[k] : s[k]);
        if (mag > m) m = mag;
    }
    int n = norm(m);
    if (n > 16) n = 16;
    int shift = hr + 16 - n;
    bool sat = hr != 2 && len <= 40;
    out.resize(len);
    for (i64 k = 0; k < len; ++k) {
        i64 v = shift >= 0 ? (s[k] >> shift) : s[k] * (i64{1} << -shift);
        out[k] = sat ? s16(v) : wrap16(v);
    }
    return shift;
}

// Fractional multiply-accumulate of the standard's basic operators: the
// doubled product saturated, then a saturating add.
inline i64 mac(i64 acc, i64 a, i64 b) {
    return s32(acc + s32(2 * a * b));
}

inline i64 convSat(const V16& a, const V16& b, int n) {
    i64 acc = 0;
    for (int k = 0; k <= n; ++k) acc = mac(acc, a[k], b[n - k]);
    return acc;
}
inline i64 convExact(const V16& a, const V16& b, int n) {
    i64 s = 0;
    for (int k = 0; k <= n; ++k) s += i64{a[k]} * b[n - k];
    return s;
}

}  // namespace corrmodel
