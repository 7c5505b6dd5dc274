// G.729 adaptive-codebook workers: the doubled multiply-accumulate chains, the Q12
// convolution, the 1/3-resolution adaptive vector, the normalised correlation of the
// closed-loop search with its interpolation, and the adaptive gain.
//
// Data: excitation Q0, impulse response Q12, interpolation filters Q15, gains Q14.  Every sum
// is the reference's saturating chain in the reference's term order; the only short cut is the
// adaptive vector's plain sum, taken when a bound on the samples proves that no partial sum of
// the chain can saturate.
#include <emmintrin.h>

#include <cstring>

#include "frame/impl.h"
#include "g729/pitch.h"
#include "g729/pitch_tables.h"
#include "numeric/fixed.h"

namespace kvo {

namespace pitch {

namespace {

// The exact doubled sum from s0 when no partial sum of the chain can leave the 32-bit range
// (|s0| + 2 sum |a b| at most 0x7fffffff bounds every partial sum); false otherwise.
inline bool dotBounded(const Kvo16s* a, const Kvo16s* b, int n, Kvo32s s0, Kvo32s* pSum) {
    Kvo64s sum = 0, mag = 0;
    for (int i = 0; i < n; ++i) {
        const Kvo32s p = Kvo32s{a[i]} * b[i];
        sum += p;
        mag += p < 0 ? -Kvo64s{p} : p;
    }
    const Kvo64s m0 = s0 < 0 ? -Kvo64s{s0} : s0;
    if (m0 + 2 * mag > INT32_MAX) return false;
    *pSum = static_cast<Kvo32s>(s0 + 2 * sum);
    return true;
}

}  // namespace

Kvo32s dotChain(const Kvo16s* a, const Kvo16s* b, int n, Kvo32s s0) {
    Kvo32s s;
    if (dotBounded(a, b, n, s0, &s)) return s;
    s = s0;
    for (int i = 0; i < n; ++i) s = mac(s, a[i], b[i]);
    return s;
}

Kvo32s dotChain(const Kvo16s* a, const Kvo16s* b, int n, Kvo32s s0, bool& ovf) {
    Kvo32s s;
    if (dotBounded(a, b, n, s0, &s)) return s;
    s = s0;
    for (int i = 0; i < n; ++i) s = mac(s, a[i], b[i], ovf);
    return s;
}

void convolveQ12(const Kvo16s* x, const Kvo16s* h, Kvo16s* y, int len) {
    // With 2 max|x| sum|h| within 32 bits no partial sum of any output's chain saturates.
    Kvo32s mx = 0;
    Kvo64s sh = 0;
    for (int i = 0; i < len; ++i) {
        const Kvo32s ax = x[i] < 0 ? -Kvo32s{x[i]} : x[i];
        if (ax > mx) mx = ax;
        sh += h[i] < 0 ? -Kvo32s{h[i]} : h[i];
    }
    if (2 * mx * sh <= INT32_MAX) {
        for (int n = 0; n < len; ++n) {
            Kvo32s s = 0;
            for (int i = 0; i <= n; ++i) s += Kvo32s{x[i]} * h[n - i];
            y[n] = hi(ShiftL_32s(2 * s, 3));
        }
        return;
    }
    for (int n = 0; n < len; ++n) {
        Kvo32s s = 0;
        for (int i = 0; i <= n; ++i) s = mac(s, x[i], h[n - i]);
        y[n] = hi(ShiftL_32s(s, 3));
    }
}

namespace {

// Normalisation of the backward-filtered target: the largest magnitude
// (0x80000000 counting as 0x7fffffff) to 14 bits, low 16 bits of each shift.
void normaliseBackward(const Kvo32s* y32, Kvo16s* d) {
    Kvo32s max = 0;
    for (int i = 0; i < kSubframe; ++i) {
        const Kvo32s s = y32[i];
        const Kvo32s a = s == INT32_MIN ? INT32_MAX : (s < 0 ? -s : s);
        if (a > max) max = a;
    }
    int n = norm32(max);
    if (n > 16) n = 16;
    const int sh = 18 - n;
    for (int i = 0; i < kSubframe; ++i) d[i] = lo16(y32[i] >> sh);
}

}  // namespace

void backwardTargetPlain(const Kvo16s* h, const Kvo16s* x, Kvo16s* d) {
    Kvo32s y32[kSubframe];
    for (int i = 0; i < kSubframe; ++i) {
        Kvo32s s = 0;
        for (int j = i; j < kSubframe; ++j) s = mac(s, x[j], h[j - i]);
        y32[i] = s;
    }
    normaliseBackward(y32, d);
}

// Every partial sum of every chain is bounded by 2 max|x| sum|h|: within 32
// bits nothing saturates and the plain sums, taken one tap of h at a time
// across all outputs (the form that vectorises), are the chains' values.
void backwardTarget(const Kvo16s* h, const Kvo16s* x, Kvo16s* d) {
    Kvo32s mx = 0;
    Kvo64s sh = 0;
    for (int i = 0; i < kSubframe; ++i) {
        const Kvo32s ax = x[i] < 0 ? -Kvo32s{x[i]} : x[i];
        if (ax > mx) mx = ax;
        sh += h[i] < 0 ? -Kvo32s{h[i]} : h[i];
    }
    if (2 * mx * sh > INT32_MAX) {
        backwardTargetPlain(h, x, d);
        return;
    }
    alignas(16) Kvo32s y32[kSubframe] = {};
    for (int k = 0; k < kSubframe; ++k) {
        const Kvo32s hk = h[k];
        const Kvo16s* xk = x + k;
        for (int i = 0; i < kSubframe - k; ++i) y32[i] += xk[i] * hk;
    }
    for (int i = 0; i < kSubframe; ++i) y32[i] *= 2;
    normaliseBackward(y32, d);
}

void decodeAdaptiveVectorPlain(Kvo16s* pExc, int lag, int fraction, int len) {
    const Kvo16s* x0 = pExc - lag;
    int t = -fraction;
    if (t < 0) {
        t += 3;
        --x0;
    }
    const Kvo16s* c1 = tab::inter_3l + t;
    const Kvo16s* c2 = tab::inter_3l + 3 - t;

    // The 20 taps in sample order: w[m] multiplies x[m - 9], m = 0 .. 19.
    alignas(16) Kvo16s w[20];
    for (int i = 0; i < 10; ++i) {
        w[9 - i] = c1[3 * i];
        w[10 + i] = c2[3 * i];
    }

    // Plain sums are exact copies of the chain when 2 max|x| sum|w| stays below 2^31: then no
    // partial sum can leave the 32-bit range.  Only lags whose reads stay in the past qualify
    // for the block test, since a short lag reads outputs that may exceed the past samples.
    if (x0 + len + 9 < pExc) {
        Kvo32s m = 0;
        for (const Kvo16s* p = x0 - 9; p < x0 + len + 10; ++p) {
            const Kvo32s a = *p < 0 ? -Kvo32s{*p} : *p;
            if (a > m) m = a;
        }
        Kvo32s sw = 0;
        for (int k = 0; k < 20; ++k) sw += w[k] < 0 ? -w[k] : w[k];
        if (2 * Kvo64s{m} * sw <= INT32_MAX) {
            for (int j = 0; j < len; ++j) {
                const Kvo16s* x = x0 + j - 9;
                Kvo32s s = 0;
                for (int k = 0; k < 20; ++k) s += Kvo32s{x[k]} * w[k];
                pExc[j] = round16(2 * s);
            }
            return;
        }
    }
    // The reference order: x[0] c1[0], x[1] c2[0], x[-1] c1[3], x[2] c2[3], ..., each step a
    // doubled product added with saturation, then rounded to the high half.  A sample whose
    // products have magnitudes summing to at most 2^30 - 1 cannot saturate, and takes the sum.
    for (int j = 0; j < len; ++j) {
        const Kvo16s* xw = x0 + j - 9;
        Kvo64s sum = 0, mag = 0;
        for (int k = 0; k < 20; ++k) {
            const Kvo32s p = Kvo32s{xw[k]} * w[k];
            sum += p;
            mag += p < 0 ? -Kvo64s{p} : p;
        }
        if (mag <= 0x3fffffff) {
            pExc[j] = round16(static_cast<Kvo32s>(2 * sum));
            continue;
        }
        const Kvo16s* x = x0 + j;
        Kvo32s s = 0;
        for (int i = 0; i < 10; ++i) {
            s = mac(s, x[-i], c1[3 * i]);
            s = mac(s, x[1 + i], c2[3 * i]);
        }
        pExc[j] = round16(s);
    }
}

namespace {

// Sum of 20 products x[k] w[k] by three pair-summing multiplies; exact while
// the magnitudes sum below 2^31.
inline Kvo32s dot20(const Kvo16s* x, __m128i w0, __m128i w1, __m128i w2) {
    Kvo64s tail;
    std::memcpy(&tail, x + 16, sizeof tail);
    __m128i p = _mm_madd_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(x)), w0);
    p = _mm_add_epi32(p,
                      _mm_madd_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(x + 8)), w1));
    p = _mm_add_epi32(p, _mm_madd_epi16(_mm_cvtsi64_si128(tail), w2));
    p = _mm_add_epi32(p, _mm_shuffle_epi32(p, 0x4e));
    p = _mm_add_epi32(p, _mm_shuffle_epi32(p, 0xb1));
    return _mm_cvtsi128_si32(p);
}

}  // namespace

// One bound for the whole vector: m, the largest magnitude of every sample
// the filter reads (the past, the old contents of the subframe, then each new
// output as it is written), times sum|w|.  At or below 2^30 - 1 each sample's
// product magnitudes sum below that, the plain sum is the chain's value and
// it is taken by the vector dot product; past it, the sample goes the ordered
// per-sample way (with its own exact magnitude test).
void decodeAdaptiveVector(Kvo16s* pExc, int lag, int fraction, int len) {
    const Kvo16s* x0 = pExc - lag;
    int t = -fraction;
    if (t < 0) {
        t += 3;
        --x0;
    }
    const Kvo16s* c1 = tab::inter_3l + t;
    const Kvo16s* c2 = tab::inter_3l + 3 - t;
    alignas(16) Kvo16s w[24] = {};
    for (int i = 0; i < 10; ++i) {
        w[9 - i] = c1[3 * i];
        w[10 + i] = c2[3 * i];
    }
    Kvo32s sw = 0;
    for (int k = 0; k < 20; ++k) sw += w[k] < 0 ? -w[k] : w[k];
    Kvo32s m = 0;
    for (const Kvo16s* p = x0 - 9; p < x0 + len + 10; ++p) {
        const Kvo32s v = *p < 0 ? -Kvo32s{*p} : *p;
        if (v > m) m = v;
    }
    const __m128i w0 = _mm_load_si128(reinterpret_cast<const __m128i*>(w));
    const __m128i w1 = _mm_load_si128(reinterpret_cast<const __m128i*>(w + 8));
    const __m128i w2 = _mm_load_si128(reinterpret_cast<const __m128i*>(w + 16));
    for (int j = 0; j < len; ++j) {
        const Kvo16s* xw = x0 + j - 9;
        Kvo16s out;
        if (Kvo64s{m} * sw <= 0x3fffffff) {
            out = round16(2 * dot20(xw, w0, w1, w2));
        } else {
            Kvo64s sum = 0, mag = 0;
            for (int k = 0; k < 20; ++k) {
                const Kvo32s p = Kvo32s{xw[k]} * w[k];
                sum += p;
                mag += p < 0 ? -Kvo64s{p} : p;
            }
            if (mag <= 0x3fffffff) {
                out = round16(static_cast<Kvo32s>(2 * sum));
            } else {
                const Kvo16s* x = x0 + j;
                Kvo32s s = 0;
                for (int i = 0; i < 10; ++i) {
                    s = mac(s, x[-i], c1[3 * i]);
                    s = mac(s, x[1 + i], c2[3 * i]);
                }
                out = round16(s);
            }
        }
        pExc[j] = out;
        const Kvo32s v = out < 0 ? -Kvo32s{out} : out;
        if (v > m) m = v;
    }
}

int bestIntegerLag(const Kvo16s* pCorr, int lower, int upper) {
    const Kvo16s* corr = pCorr + 4 - lower;  // corr[lag]
    Kvo16s best = corr[lower];
    int lag = lower;
    for (int i = lower + 1; i <= upper; ++i)
        if (corr[i] >= best) {
            best = corr[i];
            lag = i;
        }
    return lag;
}

}  // namespace pitch

// ---- gain worker ---------------------------------------------------------------------------

// Order of the reference: y.y as a doubled chain from 1; if any step saturates, y' = y >> 2 and
// y'.y' again (exponent base -4).  x.y as a doubled chain from the rounding term; if any step
// saturates, x.y' instead (exponent less 2).  Each value is normalised (0 stays, -1 becomes
// 0x80000000 with norm 31) and rounded to its high half.  gain = (m_x >> 1) / m_y in Q15 (the
// reference division, 32767 for equal operands), shifted by exp_x - exp_y, at most 1.2 in Q14.
void kvosComputeAdaptiveCodebookGain_16s_(Kvo32s rounding, const Kvo16s* pFlt,
                                          const Kvo16s* pTarget, Kvo16s* pCoeffs, Kvo16s* pGain,
                                          int len) {
    alignas(16) Kvo16s ys[pitch::kMaxLen];
    bool haveScaled = false;
    auto makeScaled = [&] {
        for (int i = 0; i < len; ++i) ys[i] = static_cast<Kvo16s>(pFlt[i] >> 2);
        haveScaled = true;
    };

    bool ovf = false;
    Kvo32s yy = pitch::dotChain(pFlt, pFlt, len, 1, ovf);
    int expY = 0;
    if (ovf) {
        makeScaled();
        yy = pitch::dotChain(ys, ys, len, 1);
        expY = -4;
    }
    expY += Norm_32s_I(&yy);
    const Kvo16s my = round16(yy);

    ovf = false;
    Kvo32s xy = pitch::dotChain(pTarget, pFlt, len, rounding, ovf);
    int expX = 0;
    if (ovf) {
        if (!haveScaled) makeScaled();
        xy = pitch::dotChain(pTarget, ys, len, rounding);
        expX = -2;
    }
    expX += Norm_32s_I(&xy);
    const Kvo16s mx = round16(xy);

    pCoeffs[0] = my;
    pCoeffs[1] = static_cast<Kvo16s>(15 - expY);
    pCoeffs[2] = mx;
    pCoeffs[3] = static_cast<Kvo16s>(15 - expX);

    if (mx < 4) {
        *pGain = 0;
        return;
    }
    const Kvo32s num = mx >> 1;
    Kvo32s q;
    if (my < 1 || num >= my)
        q = 32767;
    else
        q = (num << 15) / my;
    const int d = expX - expY;
    if (d >= 0) {
        q = d > 15 ? 0 : q >> d;
    } else {
        q = -d > 15 ? 32767 : sat16(q << -d);
    }
    *pGain = static_cast<Kvo16s>(q > 19661 ? 19661 : q);
}

// ---- normalised correlation ------------------------------------------------------------------

// First f: the reference convolution at delay lowerLag.  If its exact energy is above 2^25 the
// vector is taken at a quarter, and the recursion then shifts by 14 instead of 12.  Per lag:
// energy f.f (doubled, saturated), its inverse root, the doubled chain c = x.f, the product of
// the two in double precision and sat16 of it.  The recursion to the next lag, with s the next
// older excitation sample, runs j = len-1 .. 1: f[j] = sat16(f[j-1] + hi(sat32(sat32(2 s h[j])
// << (3 or 1)))), then f[0] = s >> (0 or 2).
void kvosMeanSquareWeightedError_16s_(const Kvo16s* pExc, const Kvo16s* pTarget,
                                      const Kvo16s* pImpulse, int lowerLag, int upperLag,
                                      Kvo16s* pDst, int len) {
    alignas(16) Kvo16s f[pitch::kMaxLen];
    pitch::convolveQ12(pExc - lowerLag, pImpulse, f, len);

    Kvo64s e0 = 0;
    for (int j = 0; j < len; ++j) e0 += Kvo32s{f[j]} * f[j];
    int hfac = 3, sampleShift = 0;
    if (e0 > 0x2000000) {
        for (int j = 0; j < len; ++j) f[j] = static_cast<Kvo16s>(f[j] >> 2);
        hfac = 1;
        sampleShift = 2;
    }

    for (int lag = lowerLag; lag <= upperLag; ++lag) {
        Kvo64s ee = 0;
        for (int j = 0; j < len; ++j) ee += Kvo32s{f[j]} * f[j];
        Kvo32s en = ee > 0x3fffffff ? INT32_MAX : static_cast<Kvo32s>(2 * ee);
        impl::kvosInvSqrt_32s_I(&en, 1);
        const Kvo32s c = pitch::dotChain(pTarget, f, len);
        pDst[lag - lowerLag] = sat16(mpy32(c, en));

        if (lag != upperLag) {
            const Kvo16s s = pExc[-lag - 1];
            for (int j = len - 1; j > 0; --j) {
                const Kvo32s t = ShiftL_32s(pitch::mult2(s, pImpulse[j]), hfac);
                f[j] = sat16(Kvo32s{f[j - 1]} + hi(t));
            }
            f[0] = static_cast<Kvo16s>(s >> sampleShift);
        }
    }
}

// ---- fractional refinement -------------------------------------------------------------------

// inter_3 interpolation: c1 from the fraction, c2 from 3 less it; terms x[0] c1[0], x[1] c2[0],
// x[-1] c1[3], x[2] c2[3], ... in a doubled chain, then rounded to the high half.
Kvo16s ownInterpol_3(const Kvo16s* pCorr, int fraction) {
    const Kvo16s* x = pCorr;
    if (fraction < 0) {
        fraction += 3;
        --x;
    }
    const Kvo16s* c1 = tab::inter_3 + fraction;
    const Kvo16s* c2 = tab::inter_3 + 3 - fraction;
    Kvo32s s = 0;
    for (int i = 0; i < 4; ++i) {
        s = pitch::mac(s, x[-i], c1[3 * i]);
        s = pitch::mac(s, x[1 + i], c2[3 * i]);
    }
    return round16(s);
}

void kvosClosedLoopPitchSearch_G729_16s_(const Kvo16s* pCorr, int subFrame, int lowerLag,
                                         int upperLag, Kvo16s* pFraction, Kvo16s* pLag) {
    int lag = pitch::bestIntegerLag(pCorr, lowerLag, upperLag);
    int frac = 0;
    if (!(subFrame == 0 && lag > 84)) {
        const Kvo16s* at = pCorr + 4 + (lag - lowerLag);
        Kvo16s best = ownInterpol_3(at, -2);
        frac = -2;
        for (int i = -1; i <= 2; ++i) {
            const Kvo16s v = ownInterpol_3(at, i);
            if (v > best) {
                best = v;
                frac = i;
            }
        }
        if (frac == -2) {
            frac = 1;
            --lag;
        } else if (frac == 2) {
            frac = -1;
            ++lag;
        }
    }
    *pFraction = static_cast<Kvo16s>(frac);
    *pLag = static_cast<Kvo16s>(lag);
}

// ---- lag maxima of doubled chains ---------------------------------------------------------------

void kvosCrossCorrLagMax_Inv_16s_(const Kvo16s* pSrc1, const Kvo16s* pSrc2, int len, int lowerLag,
                                  int upperLag, Kvo32s* pMax, int* pMaxLag) {
    if (lowerLag > upperLag) return;
    Kvo32s best = INT32_MIN;
    int lag = lowerLag;
    for (int t = lowerLag; t <= upperLag; ++t) {
        const Kvo32s c = pitch::dotChain(pSrc1, pSrc2 - t, len);
        if (c > best) {
            best = c;
            lag = t;
        }
    }
    *pMax = best;
    *pMaxLag = lag;
}

}  // namespace kvo
