// Independent models for the vector-layer tests: exact arithmetic in 128-bit
// integers, rounding by floor division and remainder comparison.
#pragma once

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "kvosc_types.h"

namespace vt {

using i128 = __int128;

// r / 2^s to nearest, ties to the even quotient; r * 2^-s for s < 0; then
// clamped to [lo, hi].
inline i128 scale_model(i128 r, long s, i128 lo, i128 hi) {
    if (s > 0) {
        if (s >= 100) {
            r = 0;
        } else {
            i128 d = i128{1} << s;
            i128 q = r / d, rem = r % d;
            if (rem < 0) {
                q -= 1;
                rem += d;
            }
            if (2 * rem > d || (2 * rem == d && (q & 1) != 0)) q += 1;
            r = q;
        }
    } else if (s < 0 && r != 0) {
        if (-s >= 64)
            r = r > 0 ? hi : lo;
        else
            r = r * (i128{1} << -s);
    }
    return r > hi ? hi : (r < lo ? lo : r);
}
inline Kvo32s model32(i128 r, long s) {
    return static_cast<Kvo32s>(scale_model(r, s, INT32_MIN, INT32_MAX));
}
inline Kvo16s model16(i128 r, long s) {
    return static_cast<Kvo16s>(scale_model(r, s, INT16_MIN, INT16_MAX));
}

// Random data with the extremes and the small values of the rounding ties mixed in.
template <class T>
std::vector<T> mixed(std::mt19937& rng, int n, const std::vector<T>& specials) {
    std::uniform_int_distribution<int64_t> any(std::numeric_limits<T>::min(),
                                               std::numeric_limits<T>::max());
    std::uniform_int_distribution<int> pick(0, 3);
    std::uniform_int_distribution<size_t> which(0, specials.size() - 1);
    std::vector<T> v(n);
    for (auto& x : v) x = pick(rng) == 0 ? specials[which(rng)] : static_cast<T>(any(rng));
    return v;
}

inline const std::vector<Kvo16s> kSpecial16 = {-32768, -32767, -16384, -5, -3,    -2,    -1,   0,
                                               1,      2,      3,      5,  16384, 32766, 32767};
inline const std::vector<Kvo32s> kSpecial32 = {
    INT32_MIN, INT32_MIN + 1, -65536, -5, -3, -1, 0, 1, 3, 5, 65536, INT32_MAX - 1, INT32_MAX};

}  // namespace vt
