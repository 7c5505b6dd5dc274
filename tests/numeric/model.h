// Wide-integer reference models for the fixed-point tests: exact floor
// division, clamping and a deterministic operand source with the edge values
// forced in.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "kvosc_types.h"

namespace model {

using i128 = __int128;

// floor(num / 2^k) for any k >= 0, exact.
inline i128 floorShift(i128 num, int k) {
    i128 d = i128{1} << k;
    i128 q = num / d;
    if (num % d != 0 && num < 0) --q;
    return q;
}
// Round half up of num / 2^k: floor((2 num + 2^k) / 2^(k+1)).
inline i128 roundHalfUp(i128 num, int k) {
    return floorShift(2 * num + (i128{1} << k), k + 1);
}

inline int64_t clamp(i128 v, int64_t lo, int64_t hi) {
    return v < lo ? lo : (v > hi ? hi : int64_t(v));
}
inline Kvo16s c16(i128 v) {
    return Kvo16s(clamp(v, -32768, 32767));
}
inline Kvo32s c32(i128 v) {
    return Kvo32s(clamp(v, INT32_MIN, INT32_MAX));
}
inline Kvo16s low16(i128 v) {
    return Kvo16s(uint16_t(uint64_t(int64_t(v & 0xffff))));
}

inline const std::vector<Kvo32s>& edges32() {
    static const std::vector<Kvo32s> e = {INT32_MIN,   INT32_MIN + 1,
                                          INT32_MAX,   INT32_MAX - 1,
                                          -32768,      32767,
                                          32768,       -32769,
                                          0,           -1,
                                          1,           0x40000000,
                                          -0x40000000, 0x3fffffff,
                                          -0x40000001, 0x7fff8000,
                                          0x7fff7fff,  0x7fff7fff + 1,
                                          65535,       65536};
    return e;
}
inline const std::vector<Kvo16s>& edges16() {
    static const std::vector<Kvo16s> e = {-32768, -32767, 32767, 32766, 0,      -1,    1,   2,
                                          -2,     3,      -3,    16384, -16384, 16383, 255, 256};
    return e;
}

// n 32-bit operands: the edges first, then uniform random words, then random
// words shifted right by a random count (so small magnitudes are covered).
inline std::vector<Kvo32s> operands32(size_t n, uint32_t seed) {
    std::vector<Kvo32s> v(edges32());
    std::mt19937 g(seed);
    while (v.size() < n) {
        Kvo32s x = Kvo32s(g());
        if (g() & 1) x >>= (g() % 32);
        v.push_back(x);
    }
    return v;
}

inline std::vector<Kvo16s> random16(size_t n, std::mt19937& g) {
    std::vector<Kvo16s> v(n);
    for (auto& x : v) x = Kvo16s(uint16_t(g()));
    return v;
}

// Every 16-bit value once, in order.
inline std::vector<Kvo16s> all16() {
    std::vector<Kvo16s> v(65536);
    for (int i = 0; i < 65536; ++i) v[size_t(i)] = Kvo16s(i - 32768);
    return v;
}

}  // namespace model
