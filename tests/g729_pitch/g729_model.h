// Independent model of the G.729 pitch and gain stages for the tests: the basic operators of the
// published fixed-point coder (each saturating, with a sticky overflow flag), and the stages
// written on top of them in the reference's own loop order (descending lag loops, in-place
// pointer walks), without any of the library's fast paths.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "g729/gain_tables.h"
#include "g729/pitch_tables.h"
#include "kvosc.h"
#include "numeric/arith.h"

namespace gmodel {

using i16 = int16_t;
using i32 = int32_t;
using i64 = int64_t;

struct Ops {
    bool ovf = false;
    i32 L_sat(i64 v) {
        if (v > INT32_MAX) return ovf = true, INT32_MAX;
        if (v < INT32_MIN) return ovf = true, INT32_MIN;
        return static_cast<i32>(v);
    }
    i16 sat(i32 v) {
        if (v > 32767) return ovf = true, 32767;
        if (v < -32768) return ovf = true, -32768;
        return static_cast<i16>(v);
    }
    i16 add(i16 a, i16 b) { return sat(i32{a} + b); }
    i16 sub(i16 a, i16 b) { return sat(i32{a} - b); }
    i16 negate(i16 a) { return a == -32768 ? 32767 : static_cast<i16>(-a); }
    i16 abs_s(i16 a) { return a == -32768 ? 32767 : static_cast<i16>(a < 0 ? -a : a); }
    i16 shr(i16 a, int n) {
        if (n < 0) return shl(a, -n);
        if (n >= 15) return a < 0 ? -1 : 0;
        return static_cast<i16>(a >> n);
    }
    i16 shl(i16 a, int n) {
        if (n < 0) return shr(a, -n);
        i32 r = i32{a} * (i32{1} << (n > 16 ? 16 : n));
        if (n > 15 && a != 0) return ovf = true, a > 0 ? 32767 : -32768;
        return sat(r);
    }
    i16 mult(i16 a, i16 b) { return sat((i32{a} * b) >> 15); }
    i32 L_mult(i16 a, i16 b) {
        i32 p = i32{a} * b;
        if (p == 0x40000000) return ovf = true, INT32_MAX;
        return p * 2;
    }
    i32 L_add(i32 a, i32 b) { return L_sat(i64{a} + b); }
    i32 L_sub(i32 a, i32 b) { return L_sat(i64{a} - b); }
    i32 L_mac(i32 s, i16 a, i16 b) { return L_add(s, L_mult(a, b)); }
    i32 L_msu(i32 s, i16 a, i16 b) { return L_sub(s, L_mult(a, b)); }
    i32 L_shl(i32 x, int n) {
        if (n < 0) return L_shr(x, -n);
        for (; n > 0; --n) {
            if (x > 0x3fffffff) return ovf = true, INT32_MAX;
            if (x < -0x40000000) return ovf = true, INT32_MIN;
            x *= 2;
        }
        return x;
    }
    i32 L_shr(i32 x, int n) {
        if (n < 0) return L_shl(x, -n);
        if (n >= 31) return x < 0 ? -1 : 0;
        return x >> n;
    }
    i16 extract_h(i32 x) { return static_cast<i16>(x >> 16); }
    i16 extract_l(i32 x) { return static_cast<i16>(static_cast<uint16_t>(x)); }
    i16 round(i32 x) { return extract_h(L_add(x, 0x8000)); }
    i32 L_deposit_h(i16 a) { return i32{a} * 65536; }
    i32 L_abs(i32 x) { return x == INT32_MIN ? INT32_MAX : (x < 0 ? -x : x); }
    int norm_l(i32 x) {
        if (x == 0) return 0;
        if (x == -1) return 31;
        if (x < 0) x = ~x;
        int n = 0;
        while (x < 0x40000000) x <<= 1, ++n;
        return n;
    }
    // Long division of the reference: a/b in Q15 for 0 <= a <= b, 32767 for a == b.
    i16 div_s(i16 a, i16 b) {
        if (a == b) return 32767;
        i32 num = a, den = b;
        i16 out = 0;
        for (int k = 0; k < 15; ++k) {
            out = static_cast<i16>(out << 1);
            num <<= 1;
            if (num >= den) {
                num -= den;
                out = static_cast<i16>(out + 1);
            }
        }
        return out;
    }
    void L_Extract(i32 L, i16* h, i16* l) {
        *h = extract_h(L);
        *l = extract_l(L_msu(L >> 1, *h, 16384));
    }
    i32 Mpy_32(i16 h1, i16 l1, i16 h2, i16 l2) {
        i32 s = L_mult(h1, h2);
        s = L_mac(s, mult(h1, l2), 1);
        return L_mac(s, mult(l1, h2), 1);
    }
    i32 Mpy_32_16(i16 h, i16 l, i16 n) { return L_mac(L_mult(h, n), mult(l, n), 1); }
    i32 Inv_sqrt(i32 x) {
        kvosInvSqrt_32s_I(&x, 1);
        return x;
    }
};

// ---- open loop ----------------------------------------------------------------------------

// Lag_max: lags from lagmax down to lagmin, ">=" keeps the lower lag.
inline i16 Lag_max(Ops& o, const i16* sig, int L, int lagmax, int lagmin, i16* cor_max) {
    i32 max = INT32_MIN;
    int p_max = lagmax;
    for (int i = lagmax; i >= lagmin; --i) {
        i32 t0 = 0;
        for (int j = 0; j < L; ++j) t0 = o.L_mac(t0, sig[j], sig[j - i]);
        if (o.L_sub(t0, max) >= 0) max = t0, p_max = i;
    }
    i32 t0 = 0;
    for (int i = 0; i < L; ++i) t0 = o.L_mac(t0, sig[i - p_max], sig[i - p_max]);
    t0 = o.Inv_sqrt(t0);
    i16 mh, ml, eh, el;
    o.L_Extract(max, &mh, &ml);
    o.L_Extract(t0, &eh, &el);
    *cor_max = o.extract_l(o.Mpy_32(mh, ml, eh, el));
    return static_cast<i16>(p_max);
}

inline i16 Pitch_ol(const i16* signal) {
    Ops o;
    std::vector<i16> buf(223);
    i16* s = buf.data() + 143;
    i32 t0 = 0;
    for (int i = -143; i < 80; ++i) t0 = o.L_mac(t0, signal[i], signal[i]);
    if (o.ovf) {
        for (int i = -143; i < 80; ++i) s[i] = o.shr(signal[i], 3);
    } else if (o.L_sub(t0, 1048576) < 0) {
        for (int i = -143; i < 80; ++i) s[i] = o.shl(signal[i], 3);
    } else {
        for (int i = -143; i < 80; ++i) s[i] = signal[i];
    }
    i16 m1, m2, m3;
    i16 p1 = Lag_max(o, s, 80, 143, 80, &m1);
    i16 p2 = Lag_max(o, s, 80, 79, 40, &m2);
    i16 p3 = Lag_max(o, s, 80, 39, 20, &m3);
    if (o.sub(o.mult(m1, 27853), m2) < 0) m1 = m2, p1 = p2;
    if (o.sub(o.mult(m1, 27853), m3) < 0) p1 = p3;
    return p1;
}

inline i16 Pitch_ol_fast(const i16* signal) {
    Ops o;
    std::vector<i16> buf(223);
    i16* s = buf.data() + 143;
    i32 sum = 0;
    for (int i = -143; i < 80; i += 2) sum = o.L_mac(sum, signal[i], signal[i]);
    if (o.ovf) {
        for (int i = -143; i < 80; ++i) s[i] = o.shr(signal[i], 3);
    } else if (o.L_sub(sum, 1048576) < 0) {
        for (int i = -143; i < 80; ++i) s[i] = o.shl(signal[i], 3);
    } else {
        for (int i = -143; i < 80; ++i) s[i] = signal[i];
    }
    auto corr = [&](int lag) {
        i32 c = 0;
        for (int j = 0; j < 80; j += 2) c = o.L_mac(c, s[j], s[j - lag]);
        return c;
    };
    auto norm = [&](i32 max, int T) {
        i32 e = 1;
        for (int i = 0; i < 80; i += 2) e = o.L_mac(e, s[i - T], s[i - T]);
        e = o.Inv_sqrt(e);
        i16 mh, ml, eh, el;
        o.L_Extract(max, &mh, &ml);
        o.L_Extract(e, &eh, &el);
        return o.extract_l(o.Mpy_32(mh, ml, eh, el));
    };
    i32 max = INT32_MIN;
    int T1 = 20, T2 = 40, T3 = 80;
    for (int i = 20; i < 40; ++i) {
        i32 c = corr(i);
        if (o.L_sub(c, max) > 0) max = c, T1 = i;
    }
    i16 max1 = norm(max, T1);
    max = INT32_MIN;
    for (int i = 40; i < 80; ++i) {
        i32 c = corr(i);
        if (o.L_sub(c, max) > 0) max = c, T2 = i;
    }
    i16 max2 = norm(max, T2);
    max = INT32_MIN;
    for (int i = 80; i < 143; i += 2) {
        i32 c = corr(i);
        if (o.L_sub(c, max) > 0) max = c, T3 = i;
    }
    int i = T3;
    i32 c = corr(i + 1);
    if (o.L_sub(c, max) > 0) max = c, T3 = i + 1;
    c = corr(i - 1);
    if (o.L_sub(c, max) > 0) max = c, T3 = i - 1;
    i16 max3 = norm(max, T3);

    i16 d = o.sub(o.shl(static_cast<i16>(T2), 1), static_cast<i16>(T3));
    if (o.sub(o.abs_s(d), 5) < 0) max2 = o.add(max2, o.shr(max3, 2));
    d = o.add(d, static_cast<i16>(T2));
    if (o.sub(o.abs_s(d), 7) < 0) max2 = o.add(max2, o.shr(max3, 2));
    d = o.sub(o.shl(static_cast<i16>(T1), 1), static_cast<i16>(T2));
    if (o.sub(o.abs_s(d), 5) < 0) max1 = o.add(max1, o.mult(max2, 6554));
    d = o.add(d, static_cast<i16>(T1));
    if (o.sub(o.abs_s(d), 7) < 0) max1 = o.add(max1, o.mult(max2, 6554));
    if (o.sub(max1, max2) < 0) max1 = max2, T1 = T2;
    if (o.sub(max1, max3) < 0) T1 = T3;
    return static_cast<i16>(T1);
}

// ---- closed loop ----------------------------------------------------------------------------

inline void Convolve(Ops& o, const i16* x, const i16* h, i16* y, int L) {
    for (int n = 0; n < L; ++n) {
        i32 s = 0;
        for (int i = 0; i <= n; ++i) s = o.L_mac(s, x[i], h[n - i]);
        y[n] = o.extract_h(o.L_shl(s, 3));
    }
}

// corr_norm[i] for i = t_min .. t_max, exc pointing at the subframe start.
inline void Norm_Corr(const i16* exc, const i16* xn, const i16* h, int L, int t_min, int t_max,
                      i16* corr_norm) {
    Ops o;
    i16 excf[64], scaled[64];
    int k = -t_min;
    Convolve(o, &exc[k], h, excf, L);
    for (int j = 0; j < L; ++j) scaled[j] = o.shr(excf[j], 2);
    i32 s = 0;
    for (int j = 0; j < L; ++j) s = o.L_mac(s, excf[j], excf[j]);
    i16* sx;
    int h_fac, scaling;
    if (o.L_sub(s, 67108864) <= 0) {
        sx = excf, h_fac = 3, scaling = 0;
    } else {
        sx = scaled, h_fac = 1, scaling = 2;
    }
    for (int i = t_min; i <= t_max; ++i) {
        s = 0;
        for (int j = 0; j < L; ++j) s = o.L_mac(s, sx[j], sx[j]);
        s = o.Inv_sqrt(s);
        i16 nh, nl, ch, cl;
        o.L_Extract(s, &nh, &nl);
        s = 0;
        for (int j = 0; j < L; ++j) s = o.L_mac(s, xn[j], sx[j]);
        o.L_Extract(s, &ch, &cl);
        s = o.Mpy_32(ch, cl, nh, nl);
        corr_norm[i - t_min] = o.extract_h(o.L_shl(s, 16));
        if (i != t_max) {
            --k;
            for (int j = L - 1; j > 0; --j) {
                s = o.L_shl(o.L_mult(exc[k], h[j]), h_fac);
                sx[j] = o.add(o.extract_h(s), sx[j - 1]);
            }
            sx[0] = o.shr(exc[k], scaling);
        }
    }
}

inline i16 Interpol_3(const i16* x, int frac) {
    Ops o;
    if (frac < 0) frac += 3, --x;
    const i16* c1 = &kvo::tab::inter_3[frac];
    const i16* c2 = &kvo::tab::inter_3[3 - frac];
    i32 s = 0;
    for (int i = 0, k = 0; i < 4; ++i, k += 3) {
        s = o.L_mac(s, x[-i], c1[k]);
        s = o.L_mac(s, x[1 + i], c2[k]);
    }
    return o.round(s);
}

inline void Pred_lt_3(i16* exc, int T0, int frac, int L) {
    Ops o;
    i16* x0 = &exc[-T0];
    frac = -frac;
    if (frac < 0) frac += 3, --x0;
    for (int j = 0; j < L; ++j) {
        i16* x1 = x0++;
        i16* x2 = x0;
        const i16* c1 = &kvo::tab::inter_3l[frac];
        const i16* c2 = &kvo::tab::inter_3l[3 - frac];
        i32 s = 0;
        for (int i = 0, k = 0; i < 10; ++i, k += 3) {
            s = o.L_mac(s, x1[-i], c1[k]);
            s = o.L_mac(s, x2[i], c2[k]);
        }
        exc[j] = o.round(s);
    }
}

inline void window(int T, int sub, int* lo, int* hi) {
    if (sub == 0) {
        *lo = T - 3 < 20 ? 20 : T - 3;
        *hi = *lo + 6;
        if (*hi > 143) *hi = 143, *lo = 137;
    } else {
        *lo = T - 5 < 20 ? 20 : T - 5;
        *hi = *lo + 9;
        if (*hi > 143) *hi = 143, *lo = 134;
    }
}

// Pitch_fr3 of the base coder: returns the lag, writes the fraction.
inline int Pitch_fr3(const i16* exc, const i16* xn, const i16* h, int t0_min, int t0_max,
                     int i_subfr, int* pit_frac) {
    Ops o;
    i16 corr_v[32];
    int t_min = t0_min - 4, t_max = t0_max + 4;
    Norm_Corr(exc, xn, h, 40, t_min, t_max, corr_v);
    auto corr = [&](int lag) { return corr_v + (lag - t_min); };  // corr(lag) -> its value
    i16 max = *corr(t0_min);
    int lag = t0_min;
    for (int i = t0_min + 1; i <= t0_max; ++i)
        if (o.sub(*corr(i), max) >= 0) max = *corr(i), lag = i;
    if (i_subfr == 0 && lag > 84) {
        *pit_frac = 0;
        return lag;
    }
    max = Interpol_3(corr(lag), -2);
    int frac = -2;
    for (int i = -1; i <= 2; ++i) {
        i16 v = Interpol_3(corr(lag), i);
        if (o.sub(v, max) > 0) max = v, frac = i;
    }
    if (frac == -2) frac = 1, --lag;
    if (frac == 2) frac = -1, ++lag;
    *pit_frac = frac;
    return lag;
}

inline void Cor_h_X(const i16* h, const i16* X, i16* D) {
    Ops o;
    i32 y32[40], max = 0;
    for (int i = 0; i < 40; ++i) {
        i32 s = 0;
        for (int j = i; j < 40; ++j) s = o.L_mac(s, X[j], h[j - i]);
        y32[i] = s;
        s = o.L_abs(s);
        if (o.L_sub(s, max) > 0) max = s;
    }
    int j = o.norm_l(max);
    if (j > 16) j = 16;
    j = 18 - j;
    for (int i = 0; i < 40; ++i) D[i] = o.extract_l(o.L_shr(y32[i], j));
}

inline i32 Dot_Product(Ops& o, const i16* x, const i16* y, int n) {
    i32 s = 0;
    for (int i = 0; i < n; ++i) s = o.L_mac(s, x[i], y[i]);
    return s;
}

// Annex A closed loop; exc at the subframe start, the chosen vector left there.
inline int Pitch_fr3_fast(i16* exc, const i16* xn, const i16* h, int t0_min, int t0_max,
                          int i_subfr, int* pit_frac) {
    Ops o;
    i16 Dn[40], tmp[40];
    Cor_h_X(h, xn, Dn);
    i32 max = INT32_MIN;
    int t0 = t0_min;
    for (int t = t0_min; t <= t0_max; ++t) {
        i32 c = Dot_Product(o, Dn, &exc[-t], 40);
        if (o.L_sub(c, max) > 0) max = c, t0 = t;
    }
    Pred_lt_3(exc, t0, 0, 40);
    max = Dot_Product(o, Dn, exc, 40);
    *pit_frac = 0;
    if (i_subfr == 0 && t0 > 84) return t0;
    std::memcpy(tmp, exc, sizeof(tmp));
    Pred_lt_3(exc, t0, -1, 40);
    i32 c = Dot_Product(o, Dn, exc, 40);
    if (o.L_sub(c, max) > 0) {
        max = c, *pit_frac = -1;
        std::memcpy(tmp, exc, sizeof(tmp));
    }
    Pred_lt_3(exc, t0, 1, 40);
    c = Dot_Product(o, Dn, exc, 40);
    if (o.L_sub(c, max) > 0)
        *pit_frac = 1;
    else
        std::memcpy(exc, tmp, sizeof(tmp));
    return t0;
}

// ---- gains ----------------------------------------------------------------------------------

inline i16 G_pitch(const i16* xn, const i16* y1, i16* g_coeff, int L) {
    Ops o;
    i16 scaled[64];
    for (int i = 0; i < L; ++i) scaled[i] = o.shr(y1[i], 2);
    o.ovf = false;
    i32 s = 1;
    for (int i = 0; i < L; ++i) s = o.L_mac(s, y1[i], y1[i]);
    int exp_yy;
    i16 yy;
    if (!o.ovf) {
        exp_yy = o.norm_l(s);
        yy = o.round(o.L_shl(s, exp_yy));
    } else {
        s = 1;
        for (int i = 0; i < L; ++i) s = o.L_mac(s, scaled[i], scaled[i]);
        exp_yy = o.norm_l(s);
        yy = o.round(o.L_shl(s, exp_yy));
        exp_yy -= 4;
    }
    o.ovf = false;
    s = 0;
    for (int i = 0; i < L; ++i) s = o.L_mac(s, xn[i], y1[i]);
    int exp_xy;
    i16 xy;
    if (!o.ovf) {
        exp_xy = o.norm_l(s);
        xy = o.round(o.L_shl(s, exp_xy));
    } else {
        s = 0;
        for (int i = 0; i < L; ++i) s = o.L_mac(s, xn[i], scaled[i]);
        exp_xy = o.norm_l(s);
        xy = o.round(o.L_shl(s, exp_xy));
        exp_xy -= 2;
    }
    g_coeff[0] = yy;
    g_coeff[1] = static_cast<i16>(15 - exp_yy);
    g_coeff[2] = xy;
    g_coeff[3] = static_cast<i16>(15 - exp_xy);
    if (o.sub(xy, 4) < 0) return 0;
    xy = o.shr(xy, 1);
    i16 gain = o.div_s(xy, yy);
    gain = o.shr(gain, exp_xy - exp_yy);
    if (o.sub(gain, 19661) > 0) gain = 19661;
    return gain;
}

inline void Corr_xy2(const i16* xn, const i16* y1, const i16* y2, i16* g, i16* e) {
    Ops o;
    i16 sy2[40];
    for (int i = 0; i < 40; ++i) sy2[i] = o.shr(y2[i], 3);
    i32 L = 1;
    for (int i = 0; i < 40; ++i) L = o.L_mac(L, sy2[i], sy2[i]);
    int ex = o.norm_l(L);
    g[2] = o.round(o.L_shl(L, ex));
    e[2] = static_cast<i16>(ex + 3);
    L = 1;
    for (int i = 0; i < 40; ++i) L = o.L_mac(L, xn[i], sy2[i]);
    ex = o.norm_l(L);
    g[3] = o.negate(o.round(o.L_shl(L, ex)));
    e[3] = static_cast<i16>(ex - 6 - 1);
    L = 1;
    for (int i = 0; i < 40; ++i) L = o.L_mac(L, y1[i], sy2[i]);
    ex = o.norm_l(L);
    g[4] = o.round(o.L_shl(L, ex));
    e[4] = static_cast<i16>(ex - 6 - 1);
}

inline void Gbk_presel(const i16* best_gain, int* cand1, int* cand2, i16 gcode0) {
    Ops o;
    static const i16 thr1[4] = {10808, 12374, 19778, 32567};
    static const i16 thr2[8] = {14087, 16188, 20274, 21321, 23525, 25232, 27873, 30542};
    i32 L_cfbg = o.L_mult(31881, best_gain[0]);
    i32 L_acc = o.L_shr(1822990272, 15);
    L_acc = o.L_add(L_cfbg, L_acc);
    i16 acc_h = o.extract_h(L_acc);
    i32 L_preg = o.L_mult(acc_h, gcode0);
    L_acc = o.L_shl(best_gain[1], 7);
    L_acc = o.L_sub(L_acc, L_preg);
    acc_h = o.extract_h(o.L_shl(L_acc, 2));
    i32 L_tmp_x = o.L_mult(acc_h, -17103);
    L_acc = o.L_shr(1731217536, 10);
    L_acc = o.L_sub(L_cfbg, L_acc);
    acc_h = o.extract_h(L_acc);
    acc_h = o.mult(acc_h, gcode0);
    i32 L_tmp = o.L_mult(acc_h, 31548);
    L_preg = o.L_mult(31881, best_gain[1]);
    L_acc = o.L_sub(L_tmp, o.L_shr(L_preg, 3));
    acc_h = o.extract_h(o.L_shl(L_acc, 2));
    i32 L_tmp_y = o.L_mult(acc_h, -17103);
    if (gcode0 > 0) {
        *cand1 = 0;
        do {
            if (o.L_sub(L_tmp_y, o.L_shr(o.L_mult(thr1[*cand1], gcode0), 3)) > 0)
                ++*cand1;
            else
                break;
        } while (*cand1 < 4);
        *cand2 = 0;
        do {
            if (o.L_sub(L_tmp_x, o.L_shr(o.L_mult(thr2[*cand2], gcode0), 5)) > 0)
                ++*cand2;
            else
                break;
        } while (*cand2 < 8);
    } else {
        *cand1 = 0;
        do {
            if (o.L_sub(L_tmp_y, o.L_shr(o.L_mult(thr1[*cand1], gcode0), 3)) < 0)
                ++*cand1;
            else
                break;
        } while (*cand1 != 4);
        *cand2 = 0;
        do {
            if (o.L_sub(L_tmp_x, o.L_shr(o.L_mult(thr2[*cand2], gcode0), 5)) < 0)
                ++*cand2;
            else
                break;
        } while (*cand2 != 8);
    }
}

// Qua_gain at 8 kbit/s on the five correlations; returns the raw indices through i1, i2.
inline void Qua_gain(const i16* code, const i16* g_coeff, const i16* exp_coeff, i16* gain_pit,
                     i16* gain_cod, int tameflag, i16* past_qua_en, int* i1, int* i2) {
    Ops o;
    i64 en = 0;
    for (int i = 0; i < 40; ++i) en += i32{code[i]} * code[i];
    i16 gcode0, exp_gcode0;
    kvo::ownGainPredict(past_qua_en, en > INT32_MAX ? INT32_MAX : static_cast<i32>(en), &gcode0,
                        &exp_gcode0);

    i32 L_tmp1 = o.L_mult(g_coeff[0], g_coeff[2]);
    int exp1 = exp_coeff[0] + exp_coeff[2] + 1 - 2;
    i32 L_tmp2 = o.L_mult(g_coeff[4], g_coeff[4]);
    int exp2 = exp_coeff[4] + exp_coeff[4] + 1;
    i32 L_tmp;
    int exp;
    if (exp1 - exp2 > 0) {
        L_tmp = o.L_sub(o.L_shr(L_tmp1, exp1 - exp2), L_tmp2);
        exp = exp2;
    } else {
        L_tmp = o.L_sub(L_tmp1, o.L_shr(L_tmp2, exp2 - exp1));
        exp = exp1;
    }
    int sft = o.norm_l(L_tmp);
    i16 denom = o.extract_h(o.L_shl(L_tmp, sft));
    int exp_denom = exp + sft - 16;
    i16 inv_denom = denom > 0 ? o.negate(o.div_s(16384, denom)) : -32767;
    int exp_inv_denom = 14 + 15 - exp_denom;

    auto numer = [&](i16 a, i16 b, int ea, i16 c, i16 d, int ec, int* exp_nume) {
        i32 t1 = o.L_mult(a, b);
        int x1 = ea;
        i32 t2 = o.L_mult(c, d);
        int x2 = ec + 1;
        i32 t;
        int ex;
        if (x1 - x2 > 0) {
            t = o.L_sub(o.L_shr(t1, x1 - x2 + 1), o.L_shr(t2, 1));
            ex = x2 - 1;
        } else {
            t = o.L_sub(o.L_shr(t1, 1), o.L_shr(t2, x2 - x1 + 1));
            ex = x1 - 1;
        }
        int s = o.norm_l(t);
        *exp_nume = ex + s - 16;
        return o.extract_h(o.L_shl(t, s));
    };
    i16 best_gain[2];
    int en0;
    i16 nume = numer(g_coeff[2], g_coeff[1], exp_coeff[2] + exp_coeff[1], g_coeff[3], g_coeff[4],
                     exp_coeff[3] + exp_coeff[4], &en0);
    best_gain[0] = o.extract_h(o.L_shr(o.L_mult(nume, inv_denom), en0 + exp_inv_denom - 24));
    if (tameflag == 1 && o.sub(best_gain[0], 481) > 0) best_gain[0] = 481;
    nume = numer(g_coeff[0], g_coeff[3], exp_coeff[0] + exp_coeff[3], g_coeff[1], g_coeff[4],
                 exp_coeff[1] + exp_coeff[4], &en0);
    best_gain[1] = o.extract_h(o.L_shr(o.L_mult(nume, inv_denom), en0 + exp_inv_denom - 17));

    i16 gcode0_org;
    if (exp_gcode0 >= 4)
        gcode0_org = o.shr(gcode0, exp_gcode0 - 4);
    else
        gcode0_org = o.extract_h(o.L_shl(gcode0, 20 - exp_gcode0));
    int cand1, cand2;
    Gbk_presel(best_gain, &cand1, &cand2, gcode0_org);

    int exp_min[5] = {exp_coeff[0] + 13, exp_coeff[1] + 14, exp_coeff[2] + 2 * exp_gcode0 - 21,
                      exp_coeff[3] + exp_gcode0 - 3, exp_coeff[4] + exp_gcode0 - 4};
    int e_min = exp_min[0];
    for (int i = 1; i < 5; ++i)
        if (exp_min[i] < e_min) e_min = exp_min[i];
    i16 coeff[5], coeff_lsf[5];
    for (int i = 0; i < 5; ++i)
        o.L_Extract(o.L_shr(o.L_deposit_h(g_coeff[i]), exp_min[i] - e_min), &coeff[i],
                    &coeff_lsf[i]);
    i32 dmin = INT32_MAX;
    int index1 = cand1, index2 = cand2;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 8; ++j) {
            const i16* p1 = kvo::tab::gbk1[cand1 + i];
            const i16* p2 = kvo::tab::gbk2[cand2 + j];
            i16 g_pitch = o.add(p1[0], p2[0]);
            if (tameflag == 1 && g_pitch >= 16383) continue;
            i16 tmp = o.extract_l(o.L_shr(o.L_add(p1[1], p2[1]), 1));
            i16 g_code = o.mult(gcode0, tmp);
            i16 g2_pitch = o.mult(g_pitch, g_pitch);
            i16 g2_code = o.mult(g_code, g_code);
            i16 g_pit_cod = o.mult(g_code, g_pitch);
            i32 d = o.Mpy_32_16(coeff[0], coeff_lsf[0], g2_pitch);
            d = o.L_add(d, o.Mpy_32_16(coeff[1], coeff_lsf[1], g_pitch));
            d = o.L_add(d, o.Mpy_32_16(coeff[2], coeff_lsf[2], g2_code));
            d = o.L_add(d, o.Mpy_32_16(coeff[3], coeff_lsf[3], g_code));
            d = o.L_add(d, o.Mpy_32_16(coeff[4], coeff_lsf[4], g_pit_cod));
            if (o.L_sub(d, dmin) < 0) dmin = d, index1 = cand1 + i, index2 = cand2 + j;
        }
    *gain_pit = o.add(kvo::tab::gbk1[index1][0], kvo::tab::gbk2[index2][0]);
    i32 L_gbk12 = o.L_add(kvo::tab::gbk1[index1][1], kvo::tab::gbk2[index2][1]);
    i16 tmp = o.extract_l(o.L_shr(L_gbk12, 1));
    i32 L_acc = o.L_mult(tmp, gcode0);
    L_acc = o.L_shl(L_acc, -exp_gcode0 + 4);
    *gain_cod = o.extract_h(L_acc);
    kvo::ownGainUpdate(past_qua_en, L_gbk12);
    *i1 = index1;
    *i2 = index2;
}

}  // namespace gmodel
