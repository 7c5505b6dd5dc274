// Independent model of the G.722 SB-ADPCM coder for the unit tests, written
// block by block after the Recommendation: a linear quantizer search, the
// scale factor from the 32-entry antilog table ILB and a shift, the zero
// section as doubled-difference products (reference style), 64-bit
// intermediates with an explicit saturation wherever the reference saturates.
#pragma once

#include <cstdint>

#include "g72x/g722_tables.h"

namespace g722model {

inline int64_t clamp64(int64_t v, int64_t lo, int64_t hi) {
    return v < lo ? lo : v > hi ? hi : v;
}
inline int sat(int64_t v) {
    return static_cast<int>(clamp64(v, -32768, 32767));
}
inline int wrap(int64_t v) {
    return static_cast<int16_t>(static_cast<uint16_t>(v));
}
// The reference's 16-bit fractional product (a*b*2) >> 16 with its one saturating case.
inline int mult(int a, int b) {
    return (a == -32768 && b == -32768) ? 32767 : (a * b) >> 15;
}
inline bool neg(int v) {
    return v < 0;
}

// ILB: the Recommendation's 32-entry antilog table, 2048 * 2^(k/32) rounded.
inline int ilb(int k) {
    return kvo::tab::table_ila[320 + k] + 1;
}

struct Band {
    int a1 = 0, a2 = 0, b[7] = {}, d[7] = {};  // b[1..6], d[1..6]
    int det = 0, nb = 0, p1 = 0, p2 = 0, r1 = 0, r2 = 0, sz = 0, sp = 0, s = 0;
    int p = 0, r = 0, d0 = 0;
};

struct Coder {
    Band lo, hi;
    Coder() {
        lo.det = 32;
        hi.det = 8;
    }
};

// Blocks UPZERO, UPPOL2, UPPOL1, FILTEZ, FILTEP and the predictor sum.
inline void adapt(Band& z, int dq) {
    z.d0 = dq;
    z.p = sat(int64_t{z.sz} + dq);
    z.r = sat(int64_t{z.s} + dq);
    for (int i = 1; i <= 6; ++i) {
        int wd = 0;
        if (dq != 0) wd = (neg(dq) == neg(z.d[i])) ? 128 : -128;
        z.b[i] = wrap(((int64_t{z.b[i]} * 32640) >> 15) + wd);
    }
    for (int i = 6; i > 1; --i) z.d[i] = z.d[i - 1];
    z.d[1] = dq;
    // UPPOL2
    int wd1 = sat(int64_t{z.a1} * 4);
    int wd2 = (neg(z.p) == neg(z.p1)) ? sat(-int64_t{wd1}) : wd1;
    wd2 >>= 7;
    const int wd3 = (neg(z.p) == neg(z.p2)) ? 128 : -128;
    const int a2 =
        static_cast<int>(clamp64(wrap(wd2 + wd3 + ((int64_t{z.a2} * 127) >> 7)), -12288, 12288));
    // UPPOL1
    const int w = wrap(((int64_t{z.a1} * 32640) >> 15) + ((neg(z.p) == neg(z.p1)) ? 192 : -192));
    const int lim = 15360 - a2;
    z.a1 = static_cast<int>(clamp64(w, -lim, lim));
    z.a2 = a2;
    z.p2 = z.p1;
    z.p1 = z.p;
    // FILTEZ: oldest tap first, each addition saturated
    int sz = 0;
    for (int i = 6; i >= 1; --i) sz = sat(int64_t{sz} + mult(sat(2 * int64_t{z.d[i]}), z.b[i]));
    z.sz = sz;
    // FILTEP
    z.r2 = z.r1;
    z.r1 = z.r;
    z.sp = sat(int64_t{mult(sat(2 * int64_t{z.r1}), z.a1)} + mult(sat(2 * int64_t{z.r2}), z.a2));
    z.s = sat(int64_t{z.sp} + z.sz);
}

// INVQAL + LOGSCL + SCALEL for the 4-bit index; returns DLT.
inline int low_step(Band& z, int il4) {
    using namespace kvo::tab;
    const int m = table_quant_ril4[il4];
    int q = table_quant_oq4[m] << 3;
    if (table_quant_risi4[il4]) q = -q;
    const int dq = (z.det * q) >> 15;
    static const int wl[8] = {-60, -30, 58, 172, 334, 538, 1198, 3042};
    z.nb = static_cast<int>(clamp64(wrap(((int64_t{z.nb} * 127) >> 7) + wl[m]), 0, 18432));
    const int e = z.nb >> 11;  // 0..9
    const int v = ilb((z.nb >> 6) & 31);
    z.det = (e <= 8 ? v >> (8 - e) : v << 1) << 2;
    return dq;
}

// INVQAH + LOGSCH + SCALEH; returns DH.
inline int high_step(Band& z, int ih) {
    static const int ih2[4] = {2, 1, 2, 1}, oq2[3] = {0, 202, 926}, wh[3] = {0, -214, 798};
    int q = oq2[ih2[ih]] << 3;
    if (ih < 2) q = -q;
    const int dq = (z.det * q) >> 15;
    z.nb = static_cast<int>(clamp64(((int64_t{z.nb} * 127) >> 7) + wh[ih2[ih]], 0, 22528));
    const int e = z.nb >> 11;  // 0..11
    const int v = ilb((z.nb >> 6) & 31);
    z.det = (e <= 10 ? v >> (10 - e) : v << 1) << 2;
    return dq;
}

// QUANTL: linear scan of the decision levels.
inline int quant_low(int el, int det) {
    using namespace kvo::tab;
    const int sg = el < 0;
    const int mag = sg ? (32767 - el) & 32767 : el;
    int k = 1;
    while (k < 30 && ((table_quant_q6[k] * det) >> 12) <= mag) ++k;
    return table_misil[sg ? 0 : 1][k];
}

inline int quant_high(int eh, int det) {
    const int sg = eh < 0;
    const int mag = sg ? (32767 - eh) & 32767 : eh;
    const int pos = mag >= ((564 * det) >> 12);
    return sg ? (pos ? 0 : 1) : (pos ? 2 : 3);
}

inline void encode(Coder& c, int xl, int xh, int& il, int& ih) {
    il = quant_low(sat(int64_t{xl} - c.lo.s), c.lo.det);
    ih = quant_high(sat(int64_t{xh} - c.hi.s), c.hi.det);
    adapt(c.lo, low_step(c.lo, il >> 2));
    adapt(c.hi, high_step(c.hi, ih));
}

// Inverse quantizer output for the decoder at mode 1 (6 bits), 2 (5) or else 4.
inline int out_level(int il, int bits) {
    using namespace kvo::tab;
    if (bits == 6) return (table_quant_risi6[il] ? -1 : 1) * table_quant_oq6[table_quant_ril6[il]];
    if (bits == 5)
        return (table_quant_risi5[il >> 1] ? -1 : 1) * table_quant_oq5[table_quant_ril5[il >> 1]];
    return (table_quant_risi4[il >> 2] ? -1 : 1) * table_quant_oq4[table_quant_ril4[il >> 2]];
}

inline void decode(Coder& c, int il, int ih, int bits, int& yl, int& yh) {
    il &= 63;
    ih &= 3;
    const int dl = (c.lo.det * (out_level(il, bits) << 3)) >> 15;
    yl = static_cast<int>(clamp64(int64_t{c.lo.s} + dl, -16384, 16383));
    adapt(c.lo, low_step(c.lo, il >> 2));
    adapt(c.hi, high_step(c.hi, ih));
    yh = static_cast<int>(clamp64(c.hi.r, -16384, 16383));
}

}  // namespace g722model
