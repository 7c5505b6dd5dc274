// Independent models for the G.729 algebraic codebook tests: the impulse
// scaling and the correlation sums in plain int64 on a full 40 x 40 matrix,
// the published bit layouts of the codebook indices (decoded back into code
// vectors), and the construction of targets from known code vectors.
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

inline int16_t s16(i64 x) { return static_cast<int16_t>(x < -32768 ? -32768 : x > 32767 ? 32767 : x); }
inline i64 s32(i64 x) { return x < INT32_MIN ? INT32_MIN : x > INT32_MAX ? INT32_MAX : x; }
inline int16_t w16(i64 x) { return static_cast<int16_t>(static_cast<uint16_t>(x)); }
// Left shifts that bring the top bit of x > 0 to bit 30.
inline int norm(i64 x) {
    int n = 0;
    if (x <= 0) return 0;
    while (x < (i64{1} << 30)) x <<= 1, ++n;
    return n;
}

inline i64 energy(const int16_t* h) {
    i64 e = 0;
    for (int i = 0; i < L; ++i) e += i64{h[i]} * h[i];
    return e;
}

// Working h of the G.729 / annex A / annex D matrix.
inline std::array<int, L> scaleG729(const int16_t* h) {
    const i64 c = s32(2 * energy(h));
    std::array<int, L> out{};
    if ((c >> 16) > 32000) {
        for (int i = 0; i < L; ++i) out[i] = h[i] >> 1;
    } else {
        const int k = norm(c) / 2;
        for (int i = 0; i < L; ++i) out[i] = h[i] * (1 << k);
    }
    return out;
}

// M(a, b) of a working h.
inline i64 corr(const std::array<int, L>& h, int a, int b) {
    i64 s = 0;
    for (int n = (a > b ? a : b); n < L; ++n) s += i64{h[n - a]} * h[n - b];
    return s;
}

// Offset of M(a, b) in the packed G.729 matrix (a and b on different tracks,
// not both on tracks 3 and 4), or of the diagonal when a == b.
inline int offsetG729(int a, int b) {
    static const int pairs[9][2] = {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {1, 2},
                                    {1, 3}, {1, 4}, {2, 3}, {2, 4}};
    if (a == b) return 8 * (a % 5) + a / 5;
    if (a % 5 > b % 5) std::swap(a, b);
    for (int k = 0; k < 9; ++k)
        if (pairs[k][0] == a % 5 && pairs[k][1] == b % 5) return 40 + 64 * k + 8 * (a / 5) + b / 5;
    return -1;
}

// ---- code vectors and targets --------------------------------------------------

struct Pulse {
    int pos;
    int sign;  // +1 or -1
};

// Impulse responses of weighted synthesis filters: Q12, h[0] = 4096, a
// decaying resonance.
inline Vec impulse(std::mt19937& g) {
    std::uniform_real_distribution<double> r(0.55, 0.85), w(0.2, 2.8);
    const double rho = r(g), om = w(g);
    Vec h{};
    for (int n = 0; n < L; ++n) h[n] = s16(std::lround(4096.0 * std::pow(rho, n) * std::cos(om * n)));
    return h;
}

// x = amp * sum of sign h[n - pos] / 4096 over the pulses (a target that is
// exactly one filtered code vector).
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

// Code vector of pulses with the given amplitudes for plus and minus.
inline Vec code(const std::vector<Pulse>& ps, int plus, int minus) {
    Vec c{};
    for (const Pulse& p : ps) c[p.pos] = static_cast<int16_t>(c[p.pos] + (p.sign > 0 ? plus : minus));
    return c;
}

// ---- index layouts -------------------------------------------------------------

// G.729 / annex A: sign bits of the pulses of tracks 0, 1, 2, 3-or-4 and the
// 13-bit position word (3 + 3 + 3 + 4 bits, the last the position of the
// fourth pulse on the interleaved tracks 3 and 4).
inline std::vector<Pulse> decodeG729(int signs, int positions) {
    std::vector<Pulse> ps;
    for (int k = 0; k < 3; ++k) ps.push_back({k + 5 * ((positions >> (3 * k)) & 7), 0});
    const int k3 = (positions >> 9) & 15;
    ps.push_back({3 + (k3 & 1) + 5 * (k3 >> 1), 0});
    for (int k = 0; k < 4; ++k) ps[k].sign = (signs >> k) & 1 ? 1 : -1;
    return ps;
}

inline int grayDecode(int g) {
    int i = g;
    for (int s = 1; s < 8; s <<= 1) i ^= i >> s;
    return i;
}
// Annex D positions by rule: first pulse on tracks 1 and 3, second on tracks
// 0, 2, 4 (rising) then 1.
inline int posTable0(int i) { return 5 * (i >> 1) + 1 + 2 * (i & 1); }
inline int posTable1(int i) { return i < 24 ? 5 * (i / 3) + 2 * (i % 3) : 5 * (i - 24) + 1; }
inline std::vector<Pulse> decodeG729D(int sign, int index) {
    const int i0 = grayDecode(index & 15), i1 = grayDecode((index >> 4) & 31);
    return {{posTable0(i0), sign & 1 ? 1 : -1}, {posTable1(i1), sign & 2 ? 1 : -1}};
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
