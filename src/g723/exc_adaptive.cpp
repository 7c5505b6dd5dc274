// G.723.1 adaptive codebook: the encoder's closed-loop five-tap pitch search
// and the decoder's adaptive vector.
//
// Data: excitation history of 145 samples, newest last; impulse response and
// target in the encoder's weighted-speech scale (h Q12 .. Q13); the gain rows
// hold five Q14 tap gains then fifteen Q14 products.  The filtered vectors are
// rounded by 15 bits and saturated; the 20-element correlation vector of a
// candidate holds 5 target crosses (doubled, saturated), 5 energies (doubled,
// saturated) and the 10 tap-pair crosses (1,0) (2,0) (2,1) (3,0) (3,1) (3,2)
// (4,0) (4,1) (4,2) (4,3), shifted left by 2 with saturation.  All vectors of
// the candidates are scaled to 16 bits with one common rounded shift.
//
// In even subframes the centre lag 18 is searched as 19 and lags above 140 as
// 140, as the reference encoder clamps them; the coded lag is that centre - 1
// plus the returned index.  The error buffer holds five values.
#include <emmintrin.h>

#include <cstring>

#include "frame/impl.h"
#include "g723/exc.h"
#include "g723/g723_exc_tables.h"
#include "kernels/corr.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

using namespace g723;

void kvosExcitationDelay_G723_16s_(const Kvo16s* pHistory, int lag, Kvo16s* pDst) {
    pDst[0] = pHistory[143 - lag];
    pDst[1] = pHistory[144 - lag];
    const Kvo16s* src = pHistory + kHistory - lag;
    int j = 0;
    for (int k = 0; k < kDelayed - 2; ++k) {
        pDst[k + 2] = src[j];
        if (++j == lag) j = 0;
    }
}

void kvosPitchPredictor_G723_16s_(const Kvo16s* pDelayed, const Kvo16s* pImpulse,
                                  Kvo16s (*pDst)[kSubframe]) {
    const Kvo16s* e4 = pDelayed + 4;
    // The convolution in 32 bits when no sum can leave that range (the usual
    // case), otherwise in 64 bits; both are exact.
    Kvo32s maxE = 0, sumH = 0;
    for (int i = 0; i < kSubframe; ++i) {
        const Kvo32s a = e4[i] < 0 ? -Kvo32s{e4[i]} : e4[i];
        if (a > maxE) maxE = a;
        sumH += pImpulse[i] < 0 ? -Kvo32s{pImpulse[i]} : pImpulse[i];
    }
    if (Kvo64s{maxE} * sumH < 0x3fffc000) {
        Kvo32s acc[kSubframe] = {};
        for (int j = 0; j < kSubframe; ++j) {
            const Kvo32s ej = e4[j];
            const Kvo16s* hj = pImpulse - j;
            for (int i = j; i < kSubframe; ++i) acc[i] += ej * hj[i];
        }
        for (int i = 0; i < kSubframe; ++i) pDst[4][i] = sat16((acc[i] + 16384) >> 15);
    } else {
        Kvo64s acc[kSubframe] = {};
        for (int j = 0; j < kSubframe; ++j) {
            const Kvo32s ej = e4[j];
            for (int i = j; i < kSubframe; ++i) acc[i] += ej * pImpulse[i - j];
        }
        for (int i = 0; i < kSubframe; ++i) pDst[4][i] = sat16((acc[i] + 16384) >> 15);
    }
    for (int t = 3; t >= 0; --t) {
        const Kvo32s et = pDelayed[t];
        const Kvo16s* __restrict prev = pDst[t + 1];
        Kvo16s* __restrict cur = pDst[t];
        cur[0] = static_cast<Kvo16s>((et * 8192 + 16384) >> 15);
        for (int i = 1; i < kSubframe; ++i)
            cur[i] = sat16(Kvo32s{prev[i - 1]} + ((et * pImpulse[i] + 16384) >> 15));
    }
}

void kvosAdaptiveCodebookDecode_G723_16s_(const Kvo16s* pDelayed, const Kvo16s* pRow,
                                          Kvo16s* pDst) {
    for (int i = 0; i < kSubframe; ++i) {
        Kvo64s s = 0;
        for (int k = 0; k < 5; ++k) s += Kvo32s{pRow[k]} * pDelayed[i + k];
        if (s >= 0x20000000)
            pDst[i] = 32767;
        else if (s < -0x20000000)
            pDst[i] = -32768;
        else
            pDst[i] = round16(static_cast<Kvo32s>(s * 4));
    }
}

namespace {

// Table sizes from the excitation-error test: the largest error of the
// zones that the candidates' five taps reach.
void error_test_sizes(int lag, int odd, const Kvo32s* err, Kvo16s sine, int* n85, int* n170) {
    const int z2 = ((lag + odd + 3) * 1092) >> 15;
    const int z1 = ((lag - 62 > 1 ? lag - 62 : 1) * 1092) >> 15;
    Kvo32s m = -1;
    for (int i = z2; i >= z1; --i)
        if (err[i] > m) m = err[i];
    if (m > 0x40000000 || sine < 0) {
        *n85 = 51;
        *n170 = 93;
        return;
    }
    const int t = (0x40000000 - m) >> 23;
    *n85 = 4 * t + 51 < kHighRows ? 4 * t + 51 : kHighRows;
    *n170 = 8 * t + 93 < kLowRows ? 8 * t + 93 : kLowRows;
}

Kvo64s dot60(const Kvo16s* a, const Kvo16s* b) {
    return corrDotExact(a, b, kSubframe);
}

// Match values of `rows` gain rows against one 20-element vector, exact: the
// vector is split into v = 256 vh + vl (vl in 0 .. 255), so that both partial
// dot products stay far inside 32 bits and run as pair products (SSE2).
void match_rows(const Kvo16s (*table)[kRowLen], int rows, const Kvo16s* v, Kvo32s* out) {
    alignas(16) Kvo16s vh[24] = {}, vl[24] = {};
    for (int j = 0; j < kRowLen; ++j) {
        vh[j] = static_cast<Kvo16s>(v[j] >> 8);
        vl[j] = static_cast<Kvo16s>(v[j] & 255);
    }
    const __m128i h0 = _mm_load_si128(reinterpret_cast<const __m128i*>(vh));
    const __m128i h1 = _mm_load_si128(reinterpret_cast<const __m128i*>(vh + 8));
    const __m128i h2 = _mm_load_si128(reinterpret_cast<const __m128i*>(vh + 16));
    const __m128i l0 = _mm_load_si128(reinterpret_cast<const __m128i*>(vl));
    const __m128i l1 = _mm_load_si128(reinterpret_cast<const __m128i*>(vl + 8));
    const __m128i l2 = _mm_load_si128(reinterpret_cast<const __m128i*>(vl + 16));
    for (int r = 0; r < rows; ++r) {
        const Kvo16s* row = table[r];
        const __m128i a0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row));
        const __m128i a1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 8));
        const __m128i a2 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + 16));
        __m128i sh = _mm_add_epi32(_mm_madd_epi16(a0, h0), _mm_madd_epi16(a1, h1));
        __m128i sl = _mm_add_epi32(_mm_madd_epi16(a0, l0), _mm_madd_epi16(a1, l1));
        sh = _mm_add_epi32(sh, _mm_madd_epi16(a2, h2));
        sl = _mm_add_epi32(sl, _mm_madd_epi16(a2, l2));
        // Horizontal sums of the four lanes.
        sh = _mm_add_epi32(sh, _mm_shuffle_epi32(sh, 0x4e));
        sl = _mm_add_epi32(sl, _mm_shuffle_epi32(sl, 0x4e));
        sh = _mm_add_epi32(sh, _mm_shuffle_epi32(sh, 0xb1));
        sl = _mm_add_epi32(sl, _mm_shuffle_epi32(sl, 0xb1));
        out[r] = sat32(Kvo64s{_mm_cvtsi128_si32(sh)} * 256 + _mm_cvtsi128_si32(sl));
    }
}

}  // namespace

namespace impl {

KvoStatus kvosAdaptiveCodebookSearch_G723(Kvo16s pitchLag, const Kvo16s* pTarget,
                                          const Kvo16s* pImpulse, const Kvo16s* pPrevExcitation,
                                          const Kvo32s* pErrorBuffer, Kvo16s* pDstLagDelta,
                                          Kvo16s* pDstGainIndex, Kvo16s subframe,
                                          Kvo16s sineDetector, KvoSpeechRate rate) {
    if (!pTarget || !pImpulse || !pPrevExcitation || !pErrorBuffer || !pDstLagDelta ||
        !pDstGainIndex)
        return kvoErrNullPtr;
    const int odd = subframe & 1;
    if (pitchLag < 18 || pitchLag > (odd ? 141 : 142) || subframe < 0 || subframe > 4)
        return kvoErrRange;
    if (rate != 2 && rate != 4) return kvoErrRange;

    int lag = pitchLag;
    if (!odd) {
        if (lag == 18) lag = 19;
        if (lag > 140) lag = 140;
    }
    const int n = 3 + odd;

    alignas(16) Kvo32s corr[4 * kRowLen];
    alignas(16) Kvo16s scaled[4 * kRowLen];
    alignas(16) Kvo16s e[kDelayed];
    alignas(16) Kvo16s y[5][kSubframe];
    for (int k = 0; k < n; ++k) {
        kvosExcitationDelay_G723_16s_(pPrevExcitation, lag - 1 + k, e);
        kvosPitchPredictor_G723_16s_(e, pImpulse, y);
        Kvo32s* v = corr + k * kRowLen;
        for (int t = 0; t < 5; ++t) v[t] = double32(sat32(dot60(pTarget, y[t])));
        for (int t = 0; t < 5; ++t) v[5 + t] = sat32(2 * dot60(y[t], y[t]));
        int p = 10;
        for (int i = 1; i < 5; ++i)
            for (int j = 0; j < i; ++j) v[p++] = ShiftL_32s(sat32(dot60(y[i], y[j])), 2);
    }
    ownAutoScale_NR_32s16s(corr, scaled, n * kRowLen);

    int n85, n170;
    error_test_sizes(lag, odd, pErrorBuffer, sineDetector, &n85, &n170);

    Kvo32s best = 0;  // a match value must reach 1
    int bestLag = 1, bestGain = 0;
    for (int k = 0; k < n; ++k) {
        bool low = true;
        if (rate == 4) low = (lag + odd - 59 >= 0) || (!odd && lag - 59 + k >= 0);
        const Kvo16s(*table)[kRowLen] =
            low ? tab::AdCdbkGainTblLowRate : tab::AdCdbkGainTblHighRate;
        const int rows = low ? n170 : n85;
        Kvo32s m[kLowRows];
        match_rows(table, rows, scaled + k * kRowLen, m);
        for (int r = 0; r < rows; ++r) {
            if (m[r] > best) {
                best = m[r];
                bestLag = k;
                bestGain = r;
            }
        }
    }
    *pDstLagDelta = static_cast<Kvo16s>(bestLag);
    *pDstGainIndex = static_cast<Kvo16s>(bestGain);
    return kvoOk;
}

KvoStatus kvosDecodeAdaptiveVector_G723_16s(Kvo16s pitchLag, Kvo16s lagDelta, Kvo16s gainIndex,
                                            const Kvo16s* pPrevExcitation, Kvo16s* pDst,
                                            KvoSpeechRate rate) {
    if (!pPrevExcitation || !pDst) return kvoErrNullPtr;
    if (static_cast<Kvo16u>(lagDelta) > 3 || pitchLag < 18 || pitchLag + lagDelta > 146 ||
        gainIndex < 0 || gainIndex >= kLowRows)
        return kvoErrOutOfRange;
    if (rate != 2 && rate != 4) return kvoErrRange;
    const bool high = rate == 4 && pitchLag < 58;
    if (high && gainIndex >= kHighRows) return kvoErrOutOfRange;

    alignas(16) Kvo16s e[kDelayed];
    kvosExcitationDelay_G723_16s_(pPrevExcitation, pitchLag + lagDelta - 1, e);
    const Kvo16s* row =
        high ? tab::AdCdbkGainTblHighRate[gainIndex] : tab::AdCdbkGainTblLowRate[gainIndex];
    kvosAdaptiveCodebookDecode_G723_16s_(e, row, pDst);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
