// Independent models for the annex E codebook tests: the published bit layouts
// of the indices (decoded back into code vectors) and targets built from known
// code vectors.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace fcbmodel {

using i64 = int64_t;
constexpr int L = 40;
using Vec = std::array<int16_t, L>;

inline int16_t s16(i64 x) {
    return static_cast<int16_t>(x < -32768 ? -32768 : x > 32767 ? 32767 : x);
}
struct Pulse {
    int pos;
    int sign;  // +1 or -1
};

// Q12 impulse response, h[0] = 4096, a decaying resonance.
inline Vec impulse(std::mt19937& g) {
    std::uniform_real_distribution<double> r(0.55, 0.85), w(0.2, 2.8);
    const double rho = r(g), om = w(g);
    Vec h{};
    for (int n = 0; n < L; ++n)
        h[n] = s16(std::lround(4096.0 * std::pow(rho, n) * std::cos(om * n)));
    return h;
}

// Target that is exactly one filtered code vector, scaled by amp / 4096.
inline Vec target(const std::vector<Pulse>& ps, const Vec& h, int amp) {
    Vec x{};
    for (int n = 0; n < L; ++n) {
        i64 s = 0;
        for (const Pulse& p : ps)
            if (n >= p.pos) s += p.sign * i64{h[n - p.pos]};
        x[n] = s16(s * amp / 4096);
    }
    return x;
}

inline Vec code(const std::vector<Pulse>& ps, int plus, int minus) {
    Vec c{};
    for (const Pulse& p : ps)
        c[p.pos] = static_cast<int16_t>(c[p.pos] + (p.sign > 0 ? plus : minus));
    return c;
}

// Annex E: one 7-bit word of two pulses of track t.  The low nibble is a full
// code (3-bit position, bit 3 = minus); the top 3 bits the other position,
// whose sign is the same when it is not above the first and opposite when it
// is.
inline void decodeTwo(int word, int t, std::vector<Pulse>& out) {
    const int lo = word & 15, p1 = lo & 7, p2 = (word >> 4) & 7;
    const int s1 = lo & 8 ? -1 : 1;
    out.push_back({t + 5 * p1, s1});
    out.push_back({t + 5 * p2, p2 > p1 ? -s1 : s1});
}
// Three pulses of track t in 10 bits: low nibble L (with sign), middle 3 bits M,
// top 3 bits T; the order of the three positions tells the signs.
inline void decodeThree(int word, int t, std::vector<Pulse>& out) {
    const int lo = word & 15, pl = lo & 7, pm = (word >> 4) & 7, pt = (word >> 7) & 7;
    const int s = lo & 8 ? -1 : 1;
    int sm = s, st = s;
    if (pt <= pm && pm <= pl) {
        // all three signs alike
    } else if (pm <= pl && pt >= pl) {
        st = -s;
    } else if (pm <= pt && pt <= pl) {
        st = -s;
    } else {
        sm = st = -s;
    }
    out.push_back({t + 5 * pl, s});
    out.push_back({t + 5 * pm, sm});
    out.push_back({t + 5 * pt, st});
}
inline std::vector<Pulse> decodeG729E(bool bits44, const int16_t* idx) {
    std::vector<Pulse> ps;
    if (!bits44) {
        for (int t = 0; t < 5; ++t) decodeTwo(idx[t], t, ps);
    } else {
        const int t0 = (idx[0] >> 10) & 7;
        decodeThree(idx[0] & 1023, t0, ps);
        decodeThree(idx[1], (t0 + 1) % 5, ps);
        for (int k = 2; k < 5; ++k) decodeTwo(idx[k], (t0 + k) % 5, ps);
    }
    return ps;
}

}  // namespace fcbmodel
