// Wide-integer models for the fixed-point tests: exact floor shift, rounding
// and clamping, and operand sources with the edge values forced in.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "kvosc_types.h"

namespace model {

using i128 = __int128;

inline i128 floorShift(i128 num, int k) {  // floor(num / 2^k)
    i128 d = i128{1} << k, q = num / d;
    return (num % d != 0 && num < 0) ? q - 1 : q;
}
inline i128 roundHalfUp(i128 num, int k) {
    return floorShift(2 * num + (i128{1} << k), k + 1);
}
inline Kvo16s c16(i128 v) {
    return Kvo16s(v < -32768 ? -32768 : (v > 32767 ? 32767 : v));
}
inline Kvo32s c32(i128 v) {
    return Kvo32s(v < INT32_MIN ? INT32_MIN : (v > INT32_MAX ? INT32_MAX : v));
}
inline Kvo16s low16(i128 v) {
    return Kvo16s(uint16_t(uint64_t(int64_t(v & 0xffff))));
}

inline const std::vector<Kvo32s>& edges32() {
    // clang-format off
    static const std::vector<Kvo32s> e = {
        INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 1, -32768, 32767, 32768, -32769, 0, -1,
        1, 0x40000000, -0x40000000, 0x3fffffff, -0x40000001, 0x7fff8000, 0x7fff7fff, 65535, 65536};
    // clang-format on
    return e;
}

// The edges, then random words, half of them shifted right by a random count.
inline std::vector<Kvo32s> operands32(size_t n, uint32_t seed) {
    std::vector<Kvo32s> v(edges32());
    std::mt19937 g(seed);
    while (v.size() < n) {
        Kvo32s x = Kvo32s(g());
        v.push_back((g() & 1) ? x >> (g() % 32) : x);
    }
    return v;
}
inline std::vector<Kvo16s> random16(size_t n, std::mt19937& g) {
    std::vector<Kvo16s> v(n);
    for (auto& x : v) x = Kvo16s(uint16_t(g()));
    return v;
}
inline std::vector<Kvo16s> all16() {
    std::vector<Kvo16s> v(65536);
    for (int i = 0; i < 65536; ++i) v[size_t(i)] = Kvo16s(i - 32768);
    return v;
}

}  // namespace model
