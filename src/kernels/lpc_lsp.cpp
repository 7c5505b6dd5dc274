// G.729 (and GSM AMR) conversions between LP coefficients, line spectral
// pairs and line spectral frequencies.
//
// Formats: LP coefficients Q12 with a[0] = 4096; LSPs are cosines in Q15;
// LSFs are radians in Q13 (G.729 quantiser) or normalised frequencies in Q15
// (0.5 = Nyquist).
//
// The LP-to-LSP root search evaluates the two order-5 Chebyshev series in the
// reference's saturating double precision form and interpolates the root with
// 16-bit truncations and a saturated final subtraction.  Its walk over the
// grid goes two points at a time and falls back to the one-point walk only
// when that misses roots, which gives the same roots whenever no two sign
// changes share a double step.
#include "impl.h"
#include "kernels/lpc.h"
#include "numeric/numeric_tables.h"

namespace kvo {
namespace {

constexpr int kNC = 5;  // half order

// Chebyshev series of an order-5 polynomial f at x (Q15).  The series runs
// in Q(16 + scale) double precision; f[i] enters shifted by coefShift + 1
// (f[5] by coefShift); the result is the value in Q14, saturated.
Kvo16s cheb(Kvo16s x, const Kvo16s* f, int scale, int coefShift) {
    const Kvo16s c = static_cast<Kvo16s>(1 << coefShift);
    Kvo32s b2 = Kvo32s{1} << (16 + scale);  // 1.0
    Kvo32s b1 = dp(FMac_16s32s(FMul_16s32s(x, static_cast<Kvo16s>(2 << scale)), f[1], c));
    for (int i = 2; i < kNC; ++i) {
        Kvo32s t = ShiftL_32s(mpy32_16(b1, x), 1);
        t = FMac_16s32s(t, hi(b2), -32768);
        t = FMsu_16s32s(t, lo(b2), 1);
        t = FMac_16s32s(t, f[i], c);
        b2 = b1;
        b1 = dp(t);
    }
    Kvo32s t = mpy32_16(b1, x);
    t = FMac_16s32s(t, hi(b2), -32768);
    t = FMsu_16s32s(t, lo(b2), 1);
    t = FMac_16s32s(t, f[kNC], static_cast<Kvo16s>(1 << (coefShift - 1)));
    return hi(ShiftL_32s(t, 14 - scale));
}

constexpr bool no_change(Kvo16s a, Kvo16s b) { return Kvo32s{a} * b > 0; }

struct Search {
    const Kvo16s* f[2];
    int scale;
    int coefShift;
    const Kvo16s* grid;
    int gridSize;
    int bisections;

    Kvo16s eval(int poly, Kvo16s x) const { return cheb(x, f[poly], scale, coefShift); }

    // Bisection then linear interpolation inside [xlow, xhigh].
    Kvo16s root(int poly, Kvo16s xlow, Kvo16s ylow, Kvo16s xhigh, Kvo16s yhigh) const {
        for (int i = 0; i < bisections; ++i) {
            const Kvo16s xmid = static_cast<Kvo16s>((xlow >> 1) + (xhigh >> 1));
            const Kvo16s ymid = eval(poly, xmid);
            if (Kvo32s{ylow} * ymid <= 0) {
                yhigh = ymid;
                xhigh = xmid;
            } else {
                ylow = ymid;
                xlow = xmid;
            }
        }
        const Kvo16s dx = sat16(Kvo32s{xhigh} - xlow);
        const Kvo16s dy = sat16(Kvo32s{yhigh} - ylow);
        if (dy == 0) return xlow;
        Kvo16s m = Abs_16s(dy);
        int n = 0;
        while (m < 16384) {
            m = static_cast<Kvo16s>(m << 1);
            ++n;
        }
        const Kvo32s q = Kvo32s{0x1fff8000} / m;  // (xhigh - xlow) / (yhigh - ylow), Q11
        Kvo16s v = lo16((2 * Kvo64s{dx} * q) >> (20 - n));
        if (dy < 0) v = Neg_16s(v);
        const Kvo16s p = lo16(FMul_16s32s(ylow, v) >> 11);
        return sat16(Kvo32s{xlow} - p);
    }

    // The walk along the grid, `step` points at a time (1 or 2).
    int walk(int step, Kvo16s* lsp) const {
        int nf = 0;
        int poly = 0;
        int j = 0;
        Kvo16s xlow = grid[0];
        Kvo16s ylow = eval(poly, xlow);
        while (nf < 10 && j < gridSize) {
            Kvo16s xhigh, yhigh;
            if (step == 1) {
                ++j;
                xhigh = xlow;
                yhigh = ylow;
                xlow = grid[j];
                ylow = eval(poly, xlow);
                if (no_change(ylow, yhigh)) continue;
            } else {
                j += 2;
                const Kvo16s xe = grid[j];
                const Kvo16s ye = eval(poly, xe);
                if (no_change(ylow, ye)) {
                    xlow = xe;
                    ylow = ye;
                    continue;
                }
                const Kvo16s xm = grid[j - 1];
                const Kvo16s ym = eval(poly, xm);
                if (no_change(ylow, ym)) {  // the change lies in the second half
                    xhigh = xm;
                    yhigh = ym;
                    xlow = xe;
                    ylow = ye;
                } else {  // first half: the walk steps back one point
                    xhigh = xlow;
                    yhigh = ylow;
                    xlow = xm;
                    ylow = ym;
                    --j;
                }
            }
            const Kvo16s x = root(poly, xlow, ylow, xhigh, yhigh);
            lsp[nf++] = x;
            poly ^= 1;
            xlow = x;
            ylow = eval(poly, xlow);
        }
        return nf;
    }
};

}  // namespace

int ownLPCToLSP_G729_16s(int gridSize, int bisections, int tableIndex, const Kvo16s* pLPC,
                         Kvo16s* pLSP, int coefShift) {
    const Kvo16s* a = pLPC;
    Kvo16s f1[kNC + 1], f2[kNC + 1];
    int scale = 8;
    bool q10 = coefShift != 12;
    if (!q10) {
        // Q11 sum and difference polynomials; any overflow selects the Q10 form.
        f1[0] = f2[0] = 2048;
        for (int i = 0; i < kNC; ++i) {
            const Kvo32s x = a[i + 1], y = a[10 - i];
            const Kvo32s s = ((x + y) >> 1) - f1[i];
            const Kvo32s d = ((x - y) >> 1) + f2[i];
            if (s != sat16(s) || d != sat16(d)) q10 = true;
            f1[i + 1] = sat16(s);
            f2[i + 1] = sat16(d);
        }
        if (q10) scale = 7;
    }
    if (q10) {
        f1[0] = f2[0] = 1024;
        for (int i = 0; i < kNC; ++i) {
            const Kvo32s x = a[i + 1], y = a[10 - i];
            f1[i + 1] = sat16(((x + y) >> 2) - f1[i]);
            f2[i + 1] = sat16(((x - y) >> 2) + f2[i]);
        }
    }
    if (coefShift != 12) coefShift = 13;

    const Search s{{f1, f2},
                   scale,
                   coefShift,
                   tableIndex == 0 ? tab::w_eval_60 : tab::w_eval_50,
                   gridSize,
                   bisections};
    const int n = s.walk(2, pLSP);
    if (n == 10) return n;
    return s.walk(1, pLSP);
}

KvoStatus ownLSFToLSP_16s(const Kvo16s* pSlope, int shift, const Kvo16s* pIn, Kvo16s* pOut) {
    for (int k = 0; k < 10; ++k) {
        const Kvo16s x = pIn[k];
        int i = x >> 8;
        if (i < 0) return kvoErrNegativeFreq;
        const Kvo32s off = x & 255;
        Kvo32s c, slope;
        if (shift == 12 && i > 63) i = 63;
        if (i < 64) {
            c = tab::cos15[i];
            slope = pSlope[i];
        } else {
            // Beyond pi the cosine is continued by symmetry: cos(pi i / 64) =
            // cos(pi (128 - i) / 64); cos(pi) is the last entry plus its slope.
            auto cosAt = [pSlope](int m) -> Kvo32s {
                if (m == 64) return tab::cos15[63] + pSlope[63];
                return tab::cos15[m < 64 ? m : 128 - m];
            };
            c = cosAt(i);
            slope = cosAt(i + 1) - c;
        }
        pOut[k] = sat16(c + ((off * slope) >> shift));
    }
    return kvoOk;
}

namespace impl {

KvoStatus kvosLPCToLSP_G729_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrcPrevLSP,
                                Kvo16s* pDstLSP) {
    if (!pSrcLPC || !pSrcPrevLSP || !pDstLSP) return kvoErrNullPtr;
    Kvo16s lsp[10];
    const Kvo16s* src = ownLPCToLSP_G729_16s(60, 4, 0, pSrcLPC, lsp, 12) == 10 ? lsp : pSrcPrevLSP;
    for (int i = 0; i < 10; ++i) pDstLSP[i] = src[i];
    return kvoOk;
}

KvoStatus kvosLPCToLSP_G729A_16s(const Kvo16s* pSrcLPC, const Kvo16s* pSrcPrevLSP,
                                 Kvo16s* pDstLSP) {
    if (!pSrcLPC || !pSrcPrevLSP || !pDstLSP) return kvoErrNullPtr;
    Kvo16s lsp[10];
    const Kvo16s* src = ownLPCToLSP_G729_16s(50, 2, 1, pSrcLPC, lsp, 12) == 10 ? lsp : pSrcPrevLSP;
    for (int i = 0; i < 10; ++i) pDstLSP[i] = src[i];
    return kvoOk;
}

namespace {
// Product polynomial of the five LSPs at lsp[0], lsp[2], ... in Q24:
// prod (1 - 2 l z^-1 + z^-2), coefficients 0 to 5.
void lsp_poly(const Kvo16s* lsp, Kvo32s* f) {
    f[0] = 0x1000000;
    f[1] = -(Kvo32s{lsp[0]} * 1024);
    for (int i = 2; i <= 5; ++i) {
        const Kvo16s l = lsp[2 * (i - 1)];
        f[i] = f[i - 2];
        for (int j = i; j >= 2; --j) {
            const Kvo32s t = ShiftL_32s(mpy32_16(f[j - 1], l), 1);
            f[j] = Sub_32s(Add_32s(f[j], f[j - 2]), t);
        }
        f[1] = FMsu_16s32s(f[1], l, 512);
    }
}

// (x >> 13) rounded by bit 12, stored as its low 16 bits.
constexpr Kvo16s q24_to_q12(Kvo32s x) { return lo16((x >> 13) + ((x >> 12) & 1)); }
}  // namespace

KvoStatus kvosLSPToLPC_G729_16s(const Kvo16s* pSrcLSP, Kvo16s* pDstLPC) {
    if (!pSrcLSP || !pDstLPC) return kvoErrNullPtr;
    Kvo32s f1[6], f2[6];
    lsp_poly(pSrcLSP, f1);
    lsp_poly(pSrcLSP + 1, f2);
    for (int i = 5; i > 0; --i) {
        f1[i] = Add_32s(f1[i], f1[i - 1]);
        f2[i] = Sub_32s(f2[i], f2[i - 1]);
    }
    pDstLPC[0] = 4096;
    for (int i = 1; i <= 5; ++i) {
        pDstLPC[i] = q24_to_q12(Add_32s(f1[i], f2[i]));
        pDstLPC[11 - i] = q24_to_q12(Sub_32s(f1[i], f2[i]));
    }
    return kvoOk;
}

KvoStatus kvosLSFToLSP_G729_16s(const Kvo16s* pLSF, Kvo16s* pLSP) {
    if (!pLSF || !pLSP) return kvoErrNullPtr;
    // 20861 = 1 / (2 pi) in Q17: radians Q13 to normalised frequency Q15.
    Kvo16s x[10];
    for (int k = 0; k < 10; ++k) x[k] = static_cast<Kvo16s>(mulQ15(pLSF[k], 20861));
    return ownLSFToLSP_16s(tab::slope_cos, 12, x, pLSP);
}

KvoStatus kvosLSFToLSP_GSMAMR_16s(const Kvo16s* pLSF, Kvo16s* pLSP) {
    if (!pLSF || !pLSP) return kvoErrNullPtr;
    return ownLSFToLSP_16s(tab::slope_cos15, 8, pLSF, pLSP);
}

namespace {
// Table index walk shared by both LSP-to-LSF forms: from the last LSP to the
// first, the index only moves down, to the first entry of cos15 at or above x.
template <typename F>
void lsp_to_lsf(const Kvo16s* pLSP, Kvo16s* pLSF, F&& map) {
    int i = 63;
    for (int n = 9; n >= 0; --n) {
        const Kvo16s x = pLSP[n];
        while (i > 0 && tab::cos15[i] < x) --i;
        const Kvo16s d = sat16(Kvo32s{x} - tab::cos15[i]);
        pLSF[n] = map(i, d);
    }
}
}  // namespace

KvoStatus kvosLSPToLSF_G729_16s(const Kvo16s* pLSP, Kvo16s* pLSF) {
    if (!pLSP || !pLSF) return kvoErrNullPtr;
    lsp_to_lsf(pLSP, pLSF, [](int i, Kvo16s d) {
        // acos in Q15 of pi (index << 9 plus the slope term), then times
        // 2 pi / 8 (25736 in Q12) to radians Q13.
        const Kvo16s t = lo16((Kvo32s{d} * tab::acos12[i]) >> 11);
        const Kvo16s m = sat16((Kvo32s{i} << 9) + t);
        return static_cast<Kvo16s>((Kvo32s{m} * 25736) >> 15);
    });
    return kvoOk;
}

KvoStatus kvosLSPToLSF_Norm_G729_16s(const Kvo16s* pLSP, Kvo16s* pLSF) {
    if (!pLSP || !pLSF) return kvoErrNullPtr;
    lsp_to_lsf(pLSP, pLSF, [](int i, Kvo16s d) {
        const Kvo32s p = ShiftL_32s(FMul_16s32s(d, tab::acos12[i]), 3);
        return sat16(Kvo32s{round16(p)} + (i << 8));
    });
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
