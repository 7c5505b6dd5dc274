// Fixed-point vocabulary shared by every family: the saturating, rounding and
// normalising operations of the published fixed-point coders.
//
// Naming: the width and mode are in the name.  sat16/sat32 clamp; round16 is
// the 32->16 rounding with its single upper test; norm32 counts the left shifts
// that bring a value's top significant bit to bit 30; mulQ15 is (a*b) >> 15;
// the R suffix rounds; hi/lo split a 32-bit value into the double precision
// format (hi = x >> 16, lo = (x >> 1) & 0x7fff) that mpy32 multiplies.
#pragma once

#include <cstdint>

#include "kvosc_types.h"

namespace kvo {

// NormTable[i] = 6 - floor(log2 i), NormTable2[i] = 14 - floor(log2 i),
// index 0 holding 7 and 15.
struct NormTables {
    Kvo16s t1[256];
    Kvo16s t2[256];
};

constexpr NormTables make_norm_tables() {
    NormTables t{};
    t.t1[0] = 7;
    t.t2[0] = 15;
    for (int i = 1; i < 256; ++i) {
        int l = 0;
        while ((i >> (l + 1)) != 0) ++l;
        t.t1[i] = static_cast<Kvo16s>(6 - l);
        t.t2[i] = static_cast<Kvo16s>(14 - l);
    }
    return t;
}

inline constexpr NormTables kNormTables = make_norm_tables();
inline constexpr const Kvo16s* NormTable = kNormTables.t1;
inline constexpr const Kvo16s* NormTable2 = kNormTables.t2;

constexpr Kvo16s sat16(Kvo32s x) {
    return static_cast<Kvo16s>(x > 32767 ? 32767 : (x < -32768 ? -32768 : x));
}
constexpr Kvo16s sat16(Kvo64s x) {
    return static_cast<Kvo16s>(x > 32767 ? 32767 : (x < -32768 ? -32768 : x));
}
constexpr Kvo32s sat32(Kvo64s x) {
    return static_cast<Kvo32s>(x > INT32_MAX ? INT32_MAX : (x < INT32_MIN ? INT32_MIN : x));
}

// Low 16 bits of a value, as a signed 16-bit number (the wrapped store).
constexpr Kvo16s lo16(Kvo32s x) { return static_cast<Kvo16s>(static_cast<Kvo16u>(x)); }
constexpr Kvo16s lo16(Kvo64s x) { return static_cast<Kvo16s>(static_cast<Kvo16u>(x)); }
// Low 32 bits of a 64-bit value (the wrapped 32-bit sum).
constexpr Kvo32s lo32(Kvo64s x) { return static_cast<Kvo32s>(static_cast<Kvo32u>(x)); }
// Wrapping 32-bit add and left shift (defined behaviour for the modulo-2^32 sums).
constexpr Kvo32s add_wrap(Kvo32s a, Kvo32s b) {
    return static_cast<Kvo32s>(static_cast<Kvo32u>(a) + static_cast<Kvo32u>(b));
}
constexpr Kvo32s shl_wrap(Kvo32s x, int n) {
    return static_cast<Kvo32s>(static_cast<Kvo32u>(x) << n);
}
constexpr Kvo64s shl64(Kvo64s x, int n) {
    return static_cast<Kvo64s>(static_cast<Kvo64u>(x) << n);
}

// round16: 32767 at or above 0x7fff8000, otherwise (x + 32768) >> 16.
constexpr Kvo16s round16(Kvo32s x) {
    return x >= 0x7fff8000 ? Kvo16s{32767} : static_cast<Kvo16s>((x + 32768) >> 16);
}

// norm32 of a positive value by the two-table lookup; 0 for 0.
constexpr int norm32_pos(Kvo32u x) {
    if (x == 0) return 0;
    if (x >= (1u << 24)) return NormTable[x >> 24];
    if (x >= (1u << 16)) return NormTable2[x >> 16];
    if (x >= (1u << 8)) return NormTable[x >> 8] + 16;
    return NormTable2[x] + 16;
}
// norm32 of any value: negative values take the norm of their complement.
constexpr int norm32(Kvo32s x) {
    return norm32_pos(static_cast<Kvo32u>(x < 0 ? ~x : x));
}

// double32: sat32(2x).
constexpr Kvo32s double32(Kvo32s x) {
    return x >= 0x40000000 ? INT32_MAX : (x < -0x40000000 ? INT32_MIN : x * 2);
}

constexpr Kvo32s mulQ15(Kvo16s a, Kvo16s b) { return (Kvo32s{a} * b) >> 15; }
constexpr Kvo32s mulQ15R(Kvo16s a, Kvo16s b) { return (Kvo32s{a} * b + 16384) >> 15; }

constexpr Kvo16s hi(Kvo32s x) { return static_cast<Kvo16s>(x >> 16); }
constexpr Kvo16s lo(Kvo32s x) { return static_cast<Kvo16s>((x >> 1) & 0x7fff); }

// Fractional product of two double-precision values, saturated after each of
// its three doubled terms as the reference does: two -32768 high halves give
// 0x7fffffff before the cross terms are added.
constexpr Kvo32s mpy32(Kvo32s x, Kvo32s y) {
    Kvo32s xh = hi(x), yh = hi(y);
    Kvo32s s = sat32(2 * (Kvo64s{xh} * yh));
    s = sat32(Kvo64s{s} + 2 * ((Kvo32s{xh} * lo(y)) >> 15));
    return sat32(Kvo64s{s} + 2 * ((Kvo32s{lo(x)} * yh) >> 15));
}

// Add_32s: sat32(a + b).
constexpr Kvo32s Add_32s(Kvo32s a, Kvo32s b) { return sat32(Kvo64s{a} + b); }

// ShiftL_32s: x << n saturated, n in 0..31.
constexpr Kvo32s ShiftL_32s(Kvo32s x, int n) {
    if (x > (INT32_MAX >> n)) return INT32_MAX;
    if (x < (INT32_MIN >> n)) return INT32_MIN;
    return shl_wrap(x, n);
}

// Norm_32s_I: returns the norm and shifts x left by it.
constexpr int Norm_32s_I(Kvo32s* x) {
    if (*x == 0) return 0;
    if (*x == -1) {
        *x = INT32_MIN;
        return 31;
    }
    int n = norm32(*x);
    *x = shl_wrap(*x, n);
    return n;
}

// ---- further saturating basic operations of the published fixed-point coders

// sat32(a - b).
constexpr Kvo32s Sub_32s(Kvo32s a, Kvo32s b) { return sat32(Kvo64s{a} - b); }
// |x| with 0x80000000 going to 0x7fffffff.
constexpr Kvo32s Abs_32s(Kvo32s x) { return x == INT32_MIN ? INT32_MAX : (x < 0 ? -x : x); }
// -x with 0x80000000 going to 0x7fffffff.
constexpr Kvo32s Neg_32s(Kvo32s x) { return x == INT32_MIN ? INT32_MAX : -x; }
// |x| with -32768 going to 32767.
constexpr Kvo16s Abs_16s(Kvo16s x) {
    return x == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(x < 0 ? -x : x);
}
// -x with -32768 going to 32767.
constexpr Kvo16s Neg_16s(Kvo16s x) {
    return x == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(-x);
}
// Fractional product sat32(2ab): only -32768 * -32768 saturates.
constexpr Kvo32s FMul_16s32s(Kvo16s a, Kvo16s b) { return sat32(2 * (Kvo64s{a} * b)); }
// acc + 2ab and acc - 2ab, the product saturated first, then the sum.
constexpr Kvo32s FMac_16s32s(Kvo32s acc, Kvo16s a, Kvo16s b) {
    return Add_32s(acc, FMul_16s32s(a, b));
}
constexpr Kvo32s FMsu_16s32s(Kvo32s acc, Kvo16s a, Kvo16s b) {
    return Sub_32s(acc, FMul_16s32s(a, b));
}
// x << n saturated, for any n >= 0 (counts of 31 and more saturate every
// non-zero value).
constexpr Kvo32s ShiftLSat_32s(Kvo32s x, int n) {
    if (n <= 0 || x == 0) return x;
    if (n > 30) return x > 0 ? INT32_MAX : INT32_MIN;
    return ShiftL_32s(x, n);
}
// ---- 16-bit basic operations of the published fixed-point coders

// sat16(a + b) and sat16(a - b) of 16-bit values.
constexpr Kvo16s add16(Kvo32s a, Kvo32s b) { return sat16(a + b); }
constexpr Kvo16s sub16(Kvo32s a, Kvo32s b) { return sat16(a - b); }
// Fractional product sat16((a b) >> 15) of 16-bit values (only -32768 * -32768 saturates),
// and its rounded form sat16((a b + 16384) >> 15).
constexpr Kvo16s mult16(Kvo32s a, Kvo32s b) { return sat16((a * b) >> 15); }
constexpr Kvo16s multR16(Kvo32s a, Kvo32s b) { return sat16((a * b + 16384) >> 15); }
// Normalising left shift of a 16-bit value: 0 for 0, 15 for -1.
constexpr int norm16(Kvo16s x) {
    if (x == 0) return 0;
    return norm32(Kvo32s{x}) - 16;
}
// x << n with 16-bit saturation; a negative n shifts right (arithmetically).
constexpr Kvo16s shl16(Kvo16s x, int n) {
    if (n < 0) return static_cast<Kvo16s>(x >> (-n > 15 ? 15 : -n));
    return sat16(shl64(x, n > 31 ? 31 : n));
}
// x << n with 32-bit saturation; a negative n shifts right (arithmetically).
constexpr Kvo32s shl32(Kvo32s x, int n) {
    if (n < 0) return x >> (-n > 31 ? 31 : -n);
    return ShiftLSat_32s(x, n);
}
// Fractional division (num << 15) / den for 0 <= num <= den, den > 0; 32767 when num == den.
constexpr Kvo16s div16(Kvo16s num, Kvo16s den) {
    return num >= den ? Kvo16s{32767} : static_cast<Kvo16s>((Kvo32s{num} << 15) / den);
}

// Recomposed double precision value: bit 0 cleared.
constexpr Kvo32s dp(Kvo32s x) { return static_cast<Kvo32s>(static_cast<Kvo32u>(x) & ~1u); }
// Double precision times 16 bits: 2 hi(x) n + 2 ((lo(x) n) >> 15), saturated
// after the first product and after the sum.
constexpr Kvo32s mpy32_16(Kvo32s x, Kvo16s n) {
    return Add_32s(FMul_16s32s(hi(x), n), 2 * ((Kvo32s{lo(x)} * n) >> 15));
}
// 32 x 16 product of the G.723.1 arithmetic: ((x & 0xffff) v) >> 15 plus the
// saturated 2 hi(x) v.
constexpr Kvo32s mls_32s16s(Kvo32s x, Kvo16s v) {
    const Kvo32s low = static_cast<Kvo32s>((Kvo64s{x & 0xffff} * v) >> 15);
    return Add_32s(low, FMul_16s32s(static_cast<Kvo16s>(x >> 16), v));
}

// G.729 32-bit division: num / den in Q31 for a normalised den and
// 0 <= num <= den.  The reciprocal of den is refined once from the 16-bit
// first guess (0x1fff8000 / hi(den), kept to 16 bits) by Newton's step; the
// final product is multiplied by 4 with saturation, so a quotient of 1 or more
// comes out as 0x7fffffff.
constexpr Kvo32s div32(Kvo32s num, Kvo32s den) {
    const Kvo16s a = lo16(Kvo32s{0x1fff8000} / hi(den));
    Kvo32s t = mpy32_16(den, a);
    t = Sub_32s(INT32_MAX, t);
    t = mpy32_16(t, a);
    return ShiftL_32s(mpy32(num, t), 2);
}

}  // namespace kvo
