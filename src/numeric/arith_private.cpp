// Private vector workers of the fixed-point core and the G.729 gain
// predictor (past quantised energies in Q10, MA prediction of order 4).
#include <cstddef>
#include <cstring>

#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

void ownMul_32s16s(const Kvo32s* pSrc1, const Kvo32s* pSrc2, Kvo16s* pDst, int len) {
    for (int i = 0; i < len; ++i) pDst[i] = lo16(mpy32(pSrc1[i], pSrc2[i]));
}

void ownMul_16s_NoS_Sfs(const Kvo16s* pSrc1, const Kvo16s* pSrc2, Kvo16s* pDst, int len, int sf) {
    for (int i = 0; i < len; ++i) pDst[i] = lo16((Kvo32s{pSrc1[i]} * pSrc2[i]) >> sf);
}

void ownConvert_32s16s_sfs(const Kvo32s* pSrc, Kvo16s* pDst, int len, int sf) {
    if (sf > 31) sf = 31;
    for (int i = 0; i < len; ++i) pDst[i] = sat16(pSrc[i] >> sf);
}

void kvosConvert_NR_32s16s_Sfs_(const Kvo32s* pSrc, Kvo16s* pDst, int len, int sf) {
    if (sf > 0) {
        if (sf > 31) sf = 31;
        const Kvo64s r = Kvo64s{1} << (sf - 1);
        for (int i = 0; i < len; ++i) pDst[i] = sat16((Kvo64s{pSrc[i]} + r) >> sf);
    } else {
        const int n = sf < -31 ? 31 : -sf;
        for (int i = 0; i < len; ++i) pDst[i] = sat16(shl_wrap(pSrc[i], n));
    }
}

// Normalises the block so that its largest magnitude fills 15 bits: values
// with more bits are narrowed with rounding, smaller ones shifted up.
void ownAutoScale_NR_32s16s(const Kvo32s* pSrc, Kvo16s* pDst, int len) {
    Kvo32s m = 0;
    for (int i = 0; i < len; ++i) {
        const Kvo32s x = pSrc[i];
        if (x == INT32_MIN) {
            m = INT32_MAX;
            break;
        }
        const Kvo32s v = x < 0 ? -x : x;
        if (v > m) m = v;
    }
    const int n = norm32_pos(static_cast<Kvo32u>(m));
    if (n == 0) {
        for (int i = 0; i < len; ++i) {
            const Kvo32s x = pSrc[i];
            pDst[i] = x > 0x7fff7fff ? Kvo16s{32767} : static_cast<Kvo16s>((Kvo64s{x} + 32768) >> 16);
        }
    } else if (n <= 16) {
        const int s = 16 - n;
        const Kvo64s r = s > 0 ? Kvo64s{1} << (s - 1) : 0;
        for (int i = 0; i < len; ++i) pDst[i] = sat16((Kvo64s{pSrc[i]} + r) >> s);
    } else {
        const int s = n - 16;
        for (int i = 0; i < len; ++i) pDst[i] = lo16(shl_wrap(pSrc[i], s));
    }
}

void kvosCopy_16s32s_(const Kvo16s* pSrc, Kvo32s* pDst, int len) {
    for (int i = 0; i < len; ++i) pDst[i] = pSrc[i];
}

void ownEnergy_16s32s(const Kvo16s* pSrc, int len, Kvo32s* pDst, int count) {
    Kvo32s e = 0;
    for (int i = 0; i < len; ++i) e = add_wrap(e, Kvo32s{pSrc[i]} * pSrc[i]);
    pDst[0] = e;
    for (int k = 1; k < count; ++k) {
        const Kvo32s in = pSrc[k + len - 1], out = pSrc[k - 1];
        e = add_wrap(e, in * in);
        e = add_wrap(e, -(out * out));
        pDst[k] = e;
    }
}

// n selection rounds: each picks the largest remaining value (the last of
// equal ones; the search starts at -32767, so a -32768 is never picked and a
// round that finds nothing repeats the previous index) and marks it -32768.
Kvo16s ownGmed_n(const Kvo16s* pSrc, int n) {
    Kvo16s tmp[64];
    int order[64];
    std::memcpy(tmp, pSrc, sizeof(Kvo16s) * static_cast<size_t>(n));
    int ix = 0;
    for (int i = 0; i < n; ++i) {
        Kvo16s mx = -32767;
        for (int j = 0; j < n; ++j) {
            if (tmp[j] >= mx) {
                mx = tmp[j];
                ix = j;
            }
        }
        tmp[ix] = -32768;
        order[i] = ix;
    }
    return pSrc[order[n >> 1]];
}

static inline Kvo32s dot0(const Kvo16s* a, const Kvo16s* b, int len) {
    Kvo64s acc = 0;
    for (int i = 0; i < len; ++i) acc += Kvo32s{a[i]} * b[i];
    return sat32(acc);
}

void kvosSumSquare_D2_16s32s_(const Kvo16s* pSrc, int rows, int rowLen, Kvo32s* pDst) {
    for (int r = 0; r < rows; ++r) {
        const Kvo16s* row = pSrc + static_cast<std::ptrdiff_t>(r) * rowLen;
        pDst[r] = dot0(row, row, rowLen);
    }
}

void kvosMul_D2D1_16s32s_(const Kvo16s* pSrc, int rows, const Kvo16s* pVec, Kvo32s* pDst,
                          int rowLen) {
    for (int r = 0; r < rows; ++r)
        pDst[r] = dot0(pSrc + static_cast<std::ptrdiff_t>(r) * rowLen, pVec, rowLen);
}

void kvosMul_D2D1Step_16s32s_(const Kvo16s* pSrc, int rows, const Kvo16s* pVec, Kvo32s* pDst,
                              int len, int step) {
    for (int r = 0; r < rows; ++r)
        pDst[r] = dot0(pSrc + static_cast<std::ptrdiff_t>(r) * step, pVec, len);
}

void kvosMul_D2_16s32s_(const Kvo16s* pSrc, int rows, Kvo32s* pDst, int rowLen) {
    kvosSumSquare_D2_16s32s_(pSrc, rows, rowLen, pDst);
    Kvo32s* out = pDst + rows;
    for (int i = 1; i < rows; ++i) {
        const Kvo16s* ri = pSrc + static_cast<std::ptrdiff_t>(i) * rowLen;
        for (int j = 0; j < i; ++j) *out++ = dot0(ri, pSrc + static_cast<std::ptrdiff_t>(j) * rowLen, rowLen);
    }
}

// MA prediction of the fixed-codebook gain in the log domain:
// mean energy - 10 log10(code energy) + sum of pred[k] * past energy[k],
// folded into one Q23 sum, then brought back by 2^x.
void ownGainPredict(const Kvo16s* pPastEnergy, Kvo32s codeEnergy, Kvo16s* pGain, Kvo16s* pExp) {
    Kvo16s e, f;
    ownLog2(double32(codeEnergy), &e, &f);
    Kvo32s L = 1024 * (Kvo32s{e} * -24660 + ((Kvo32s{f} * -24660) >> 15));
    L += 5571 * Kvo32s{pPastEnergy[0]} + 4751 * Kvo32s{pPastEnergy[1]} +
         2785 * Kvo32s{pPastEnergy[2]} + 1556 * Kvo32s{pPastEnergy[3]} + 0x3fa60000;
    const Kvo32s g = sat16(L >> 15);
    const Kvo32s t = g * 5439;
    *pGain = lo16(ownPow2(14, static_cast<Kvo16s>((t >> 8) & 0x7fff)));
    *pExp = static_cast<Kvo16s>(14 - (t >> 23));
}

static inline void pushEnergy(Kvo16s* p, Kvo16s v) {
    p[3] = p[2];
    p[2] = p[1];
    p[1] = p[0];
    p[0] = v;
}

// Quantised energy of the new gain, 10 log10 of the squared gain in Q10:
// log2 less the format offset of 13 bits, times 3.0103 (24660 in Q13).
void ownGainUpdate(Kvo16s* pPastEnergy, Kvo32s gainSquare) {
    Kvo16s e, f;
    ownLog2(gainSquare, &e, &f);
    const Kvo32s v = (Kvo32s{e} << 16) + 2 * Kvo32s{f} - 0xd0000;
    const Kvo32s t = hi(ShiftL_32s(v, 13));
    pushEnergy(pPastEnergy, static_cast<Kvo16s>((t * 24660) >> 15));
}

// Lost frame: the mean of the four past energies less 4 dB (4096 in Q10),
// held at -14 dB or above.
void ownGainUpdateErasure(Kvo16s* pPastEnergy) {
    Kvo32s m = ((Kvo32s{pPastEnergy[0]} + pPastEnergy[1] + pPastEnergy[2] + pPastEnergy[3]) >> 2) -
               4096;
    if (m < -14336) m = -14336;
    pushEnergy(pPastEnergy, static_cast<Kvo16s>(m));
}

}  // namespace kvo
