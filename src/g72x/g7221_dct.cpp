// G.722.1 fast type IV DCT, forward (encoder) and inverse (decoder), at 320
// and 640 points, in the Recommendation's fixed-point arithmetic.
//
// Three phases: butterfly folding stages that halve the block size down to
// blocks of 10, a ten-point matrix product per block, then rotation stages
// that merge blocks back up to the full length.  Data are 16-bit words, the
// ten-point matrices and rotation pairs Q15.
//
// Forward: the 320-point input first takes the analysis bias (saturating);
// folds are exact (a + b) >> 1 and (a - b) >> 1; the matrix product is a
// saturating multiply-accumulate of doubled products in column order, then
// rounded; rotations round round16(2 v), saturated.
// Inverse: the first fold adds a dither bit to a with saturation before the
// halving sum with b; later folds are saturating sums without halving, the
// difference taken as a + negate(b) (negate(-32768) = 32767); the matrix
// product as above; rotations round round16(4 v), saturated; the 320-point
// output takes the synthesis bias (saturating).
#include <cstring>

#include "g72x/g7221.h"
#include "g72x/g7221_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int stages(int len) {
    return len == 320 ? 6 : 7;
}

// round16(2^shift * v) with saturation, v a sum of two Q15 products (which
// always fits in 32 bits): clamp v to the range whose scaled value fits, then
// round16 written as (x >> 16) + bit 15, limited to 32767.
template <int Shift>
inline Kvo16s roundScaled(Kvo32s v) {
    constexpr Kvo32s kMax = 0x7fffffff >> Shift;
    constexpr Kvo32s kMin = -(1 << (31 - Shift));
    v = v > kMax ? kMax : (v < kMin ? kMin : v);
    const Kvo32s x = static_cast<Kvo32s>(static_cast<Kvo32u>(v) << Shift);
    const Kvo32s r = (x >> 16) + ((x >> 15) & 1);
    return static_cast<Kvo16s>(r > 32767 ? 32767 : r);
}

// Ten-point product of one block: out[i] = round16 of the saturating sum over
// j of 2 m[i][j] x[j], accumulated in j order.
template <Kvo32s MaxCoef>
inline void tenPoint(const Kvo16s (*m)[10], const Kvo16s* x, Kvo16s* out) {
    // No partial sum can leave 32 bits when 2 * max|m| * sum|x| stays inside:
    // then plain 32-bit sums are exact.
    Kvo32s mag = 0;
    for (int j = 0; j < 10; ++j) mag += x[j] < 0 ? -Kvo32s{x[j]} : Kvo32s{x[j]};
    if (Kvo64s{mag} * 2 * MaxCoef <= 0x7fffffff) {
        for (int i = 0; i < 10; ++i) {
            Kvo32s acc = 0;
            for (int j = 0; j < 10; ++j) acc += Kvo32s{m[i][j]} * x[j];
            out[i] = round16(2 * acc);
        }
        return;
    }
    for (int i = 0; i < 10; ++i) {
        Kvo32s acc = 0;
        for (int j = 0; j < 10; ++j) acc = sat32(Kvo64s{acc} + 2 * (Kvo32s{m[i][j]} * x[j]));
        out[i] = round16(acc);
    }
}

// One rotation stage: blocks of z merged from their halves with the pairs of
// the stage (read from the stage's start for every block).
template <int Len, int Shift>
inline void rotate(const Kvo16s* src, Kvo16s* dst, int z, const Kvo16s (*table)[2]) {
    const int h = z / 2;
    const Kvo16s(*cs)[2] = table + g7221RotationOffset(z);
    for (int base = 0; base < Len; base += z) {
        const Kvo16s* a = src + base;
        const Kvo16s* b = src + base + h;
        Kvo16s* t = dst + base;
        for (int k = 0; k < h; k += 2) {
            const Kvo32s c = cs[k][0], s = cs[k][1];
            const Kvo32s c2 = cs[k + 1][0], s2 = cs[k + 1][1];
            const Kvo32s a1 = a[k], b1 = b[k], a2 = a[k + 1], b2 = b[k + 1];
            // Each product is below 2^30 in magnitude (no pair value is
            // -32768), so the sums fit in 32 bits; the rounding saturates.
            t[k] = roundScaled<Shift>(a1 * c - b1 * s);
            t[z - 1 - k] = roundScaled<Shift>(a1 * s + b1 * c);
            t[k + 1] = roundScaled<Shift>(a2 * c2 + b2 * s2);
            t[z - 2 - k] = roundScaled<Shift>(a2 * s2 - b2 * c2);
        }
    }
}

}  // namespace

template <int Len>
void g7221DctFwd(const Kvo16s* src, Kvo16s* dst) {
    constexpr int D = stages(Len);
    alignas(16) Kvo16s buf0[Len];
    alignas(16) Kvo16s buf1[Len];
    if constexpr (Len == 320) {
        for (int i = 0; i < Len; ++i) buf0[i] = sat16(Kvo32s{src[i]} + tab::cnstAnalBias_G722[i]);
    } else {
        std::memcpy(buf0, src, sizeof buf0);
    }
    Kvo16s* in = buf0;
    Kvo16s* out = buf1;
    for (int s = 0; s <= D - 2; ++s) {
        const int z = Len >> s, h = z / 2;
        for (int base = 0; base < Len; base += z) {
            const Kvo16s* x = in + base;
            Kvo16s* t = out + base;
            for (int i = 0; i < h; ++i) {
                const Kvo32s a = x[2 * i], b = x[2 * i + 1];
                t[i] = static_cast<Kvo16s>((a + b) >> 1);
                t[z - 1 - i] = static_cast<Kvo16s>((a - b) >> 1);
            }
        }
        Kvo16s* tmp = in;
        in = out;
        out = tmp;
    }
    for (int base = 0; base < Len; base += 10)
        tenPoint<kDct10FwdMax>(tab::cnstDct10Fwd_G722, in + base, out + base);
    {
        Kvo16s* tmp = in;
        in = out;
        out = tmp;
    }
    for (int v = D - 2; v >= 0; --v) {
        rotate<Len, 1>(in, v == 0 ? dst : out, Len >> v, tab::cnstCosSinFwd_G722);
        Kvo16s* tmp = in;
        in = out;
        out = tmp;
    }
}

template <int Len>
void g7221DctInv(const Kvo16s* src, Kvo16s* dst) {
    constexpr int D = stages(Len);
    const Kvo16s* dither = Len == 320 ? tab::cnstDither_G722_7kHz : tab::cnstDither_G722_14kHz;
    alignas(16) Kvo16s buf0[Len];
    alignas(16) Kvo16s buf1[Len];
    // First fold: the dither bit joins a (saturated) before the halving sum.
    for (int i = 0; i < Len / 2; ++i) {
        const Kvo32s a = src[2 * i], b = src[2 * i + 1];
        buf0[i] = static_cast<Kvo16s>((sat16(a + dither[2 * i]) + b) >> 1);
        buf0[Len - 1 - i] = static_cast<Kvo16s>((sat16(a + dither[2 * i + 1]) - b) >> 1);
    }
    Kvo16s* in = buf0;
    Kvo16s* out = buf1;
    for (int s = 1; s <= D - 2; ++s) {
        const int z = Len >> s, h = z / 2;
        for (int base = 0; base < Len; base += z) {
            const Kvo16s* x = in + base;
            Kvo16s* t = out + base;
            for (int i = 0; i < h; ++i) {
                const Kvo16s a = x[2 * i], b = x[2 * i + 1];
                t[i] = sat16(Kvo32s{a} + b);
                t[z - 1 - i] = sat16(Kvo32s{a} + Neg_16s(b));
            }
        }
        Kvo16s* tmp = in;
        in = out;
        out = tmp;
    }
    for (int base = 0; base < Len; base += 10)
        tenPoint<kDct10InvMax>(tab::cnstDct10Inv_G722, in + base, out + base);
    {
        Kvo16s* tmp = in;
        in = out;
        out = tmp;
    }
    for (int v = D - 2; v >= 0; --v) {
        rotate<Len, 2>(in, out, Len >> v, tab::cosTable);
        Kvo16s* tmp = in;
        in = out;
        out = tmp;
    }
    if constexpr (Len == 320) {
        for (int i = 0; i < Len; ++i)
            dst[i] = sat16(Kvo32s{in[i]} + tab::cnstSynthesisBias7khz_G722[i]);
    } else {
        std::memcpy(dst, in, sizeof buf0);
    }
}

template void g7221DctFwd<320>(const Kvo16s*, Kvo16s*);
template void g7221DctFwd<640>(const Kvo16s*, Kvo16s*);
template void g7221DctInv<320>(const Kvo16s*, Kvo16s*);
template void g7221DctInv<640>(const Kvo16s*, Kvo16s*);

namespace impl {

KvoStatus kvosDCTFwd_G7221_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (len == 320)
        g7221DctFwd<320>(pSrc, pDst);
    else if (len == 640)
        g7221DctFwd<640>(pSrc, pDst);
    else
        return kvoErrSize;
    return kvoOk;
}

KvoStatus kvosDCTFwd_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    g7221DctFwd<320>(pSrc, pDst);
    return kvoOk;
}

KvoStatus kvosDCTInv_G7221_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    if (len == 320)
        g7221DctInv<320>(pSrc, pDst);
    else if (len == 640)
        g7221DctInv<640>(pSrc, pDst);
    else
        return kvoErrSize;
    return kvoOk;
}

KvoStatus kvosDCTInv_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst) {
    if (!pSrc || !pDst) return kvoErrNullPtr;
    g7221DctInv<320>(pSrc, pDst);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
