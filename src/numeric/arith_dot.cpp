// Dot products with 32-bit results, inverse square root, the G.729 lag window
// and the G.729B comfort-noise excitation.
//
// Data: 16-bit Q15 vectors, 32-bit results in Q31 (doubled products) or Q30
// (the undoubled first term of the auto-scaled product).  The inverse square
// root and the lag window follow the G.729 reference table arithmetic.
#include "impl.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"
#include "numeric/numeric_tables.h"

namespace kvo::impl {

// Dot product whose operands are shifted right until the sum fits 32 bits:
// the first product undoubled, the others doubled, summed exactly.  Each
// overflow adds one to the shift of the second operand, then of the first,
// alternately.  Once both shifts have reached 15 the operands are 0 or -1 and
// shifting further changes nothing; a sum that still does not fit (only
// possible beyond 2^30 elements) is stored saturated.
KvoStatus kvosDotProdAutoScale_16s32s_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                          Kvo32s* pDst, Kvo32s* pSfs) {
    if (!pSrc1 || !pSrc2 || !pDst || !pSfs) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    int s1 = 0, s2 = 0;
    bool toggleS2 = true;
    for (;;) {
        Kvo64s acc = 0;
        for (int i = 1; i < len; ++i) acc += Kvo32s{pSrc1[i] >> s1} * (pSrc2[i] >> s2);
        acc = 2 * acc + Kvo32s{pSrc1[0] >> s1} * (pSrc2[0] >> s2);
        if ((acc >= INT32_MIN && acc <= INT32_MAX) || (s1 >= 15 && s2 >= 15)) {
            *pDst = sat32(acc);
            *pSfs = s1 + s2;
            return kvoOk;
        }
        if (toggleS2) ++s2; else ++s1;
        toggleS2 = !toggleS2;
    }
}

// G.729A correlation over the even indices 0, 2, 4 ... below len, exact in
// 64 bits, then doubled; a result beyond 32 bits is stored saturated with
// kvoWarnOverflow.
KvoStatus kvosDotProd_G729A_16s32s(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo32s len,
                                   Kvo32s* pDst) {
    if (!pSrc1 || !pSrc2 || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo64s acc = 0;
    for (int i = 0; i < len; i += 2) acc += Kvo32s{pSrc1[i]} * pSrc2[i];
    acc *= 2;
    *pDst = sat32(acc);
    return (acc > INT32_MAX || acc < INT32_MIN) ? kvoWarnOverflow : kvoOk;
}

// Inverse square root of each Q0 element by the G.729 table method: the
// element is normalised, the table interpolated on its top bits and the
// result shifted by half the exponent.  Non-positive elements give 0x3fffffff.
KvoStatus kvosInvSqrt_32s_I(Kvo32s* pSrcDst, Kvo32s len) {
    if (!pSrcDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    for (int k = 0; k < len; ++k) {
        const Kvo32s x = pSrcDst[k];
        if (x <= 0) {
            pSrcDst[k] = 0x3fffffff;
            continue;
        }
        const int n = norm32_pos(static_cast<Kvo32u>(x));
        Kvo32s y = shl_wrap(x, n);
        const int e = 32 - n;
        if ((e & 1) == 0) y >>= 1;
        const int i = (y >> 25) - 16;
        const Kvo32s a = (y >> 10) & 0x7fff;
        pSrcDst[k] = (tab::tabsqr[i] - a * tab::tabsqr_d[i]) >> (e >> 1);
    }
    return kvoOk;
}

// G.729 lag window on the autocorrelation from lag 1 (up to 12 lags, the
// last two being those of the Annex B 12th-order analysis).
KvoStatus kvosLagWindow_G729_32s_I(Kvo32s* pSrcDst, Kvo32s len) {
    if (!pSrcDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (len > 12) return kvoErrRange;
    for (int i = 0; i < len; ++i) pSrcDst[i] = mpy32(pSrcDst[i], tab::wlag[i]);
    return kvoOk;
}

// G.729B comfort-noise Gaussian excitation: each output is the sum of twelve
// draws of the 16-bit generator s = 31821 s + 13849, shifted right by 7.
// Four outputs are produced at a time from the generator's jump constants:
// after k draws s_k = A_k s + C_k (mod 2^16), so lanes j = 0..3 start from
// s_{12 j} and each step advances every lane by one draw; the sequence is
// that of the serial generator.
namespace {
struct Lcg {
    Kvo16u a, c;
};
constexpr Lcg lcgJump(int k) {
    Kvo32u a = 1, c = 0;
    for (int i = 0; i < k; ++i) {
        a = (a * 31821u) & 0xffff;
        c = (c * 31821u + 13849u) & 0xffff;
    }
    return {static_cast<Kvo16u>(a), static_cast<Kvo16u>(c)};
}
constexpr Lcg kJump12 = lcgJump(12);
constexpr Lcg kJump48 = lcgJump(48);
constexpr Lcg kJump1 = lcgJump(1);

inline Kvo16u lcgStep(Kvo16u s, Lcg j) { return static_cast<Kvo16u>(Kvo32u{j.a} * s + j.c); }
}  // namespace

KvoStatus kvosRandomNoiseExcitation_G729B_16s(Kvo16s* pSeed, Kvo16s* pDst, Kvo32s len) {
    if (!pSeed || !pDst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    Kvo16u s = static_cast<Kvo16u>(*pSeed);
    int i = 0;
    for (; i + 4 <= len; i += 4) {
        Kvo16u l0 = s;
        Kvo16u l1 = lcgStep(l0, kJump12);
        Kvo16u l2 = lcgStep(l1, kJump12);
        Kvo16u l3 = lcgStep(l2, kJump12);
        Kvo32s a0 = 0, a1 = 0, a2 = 0, a3 = 0;
        for (int k = 0; k < 12; ++k) {
            l0 = lcgStep(l0, kJump1);
            l1 = lcgStep(l1, kJump1);
            l2 = lcgStep(l2, kJump1);
            l3 = lcgStep(l3, kJump1);
            a0 += static_cast<Kvo16s>(l0);
            a1 += static_cast<Kvo16s>(l1);
            a2 += static_cast<Kvo16s>(l2);
            a3 += static_cast<Kvo16s>(l3);
        }
        pDst[i] = lo16(a0 >> 7);
        pDst[i + 1] = lo16(a1 >> 7);
        pDst[i + 2] = lo16(a2 >> 7);
        pDst[i + 3] = lo16(a3 >> 7);
        s = lcgStep(s, kJump48);
    }
    for (; i < len; ++i) {
        Kvo32s acc = 0;
        for (int k = 0; k < 12; ++k) {
            s = lcgStep(s, kJump1);
            acc += static_cast<Kvo16s>(s);
        }
        pDst[i] = lo16(acc >> 7);
    }
    *pSeed = static_cast<Kvo16s>(s);
    return kvoOk;
}

}  // namespace kvo::impl
