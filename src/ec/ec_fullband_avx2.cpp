// AVX2 twin of the 16-bit fullband NLMS filter: eight taps per step in 32-bit lanes.
//
// Exactness: with |mu| <= 65535 the coefficient step (ref*mu + 4096) >> 13 fits 32 bits,
// and the new coefficient is clamped to 16 bits as in the scalar code; every filter term
// (coef*ref + 16384) >> 15 is at most 2^15 in magnitude, so for tapLen <= 65535 no partial
// sum reaches the 32-bit limits and the saturating sequential sum equals the lane sums
// added in any order.  A sample whose mu does not fit 16 bits runs the scalar step.
// The reference runs backwards against the taps: loaded eight at a time, lanes reversed.
#include <immintrin.h>

#include "ec/ec_common.h"
#include "numeric/fixed.h"

namespace kvo::ec {

namespace {

// Eight 16-bit samples p[0..7] as 32-bit lanes in reverse order (lane j = p[7 - j]).
inline __m256i load_rev(const Kvo16s* p) {
    const __m256i v = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0));
}

inline Kvo32s hsum(__m256i v) {
    __m128i s = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, _MM_SHUFFLE(1, 0, 3, 2)));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_cvtsi128_si32(s);
}

}  // namespace

void nlms16sAvx2(const Kvo16s* pRef, const Kvo16s* pMic, const Kvo32s* pStep, Kvo16s* pDst, int len,
                 Kvo16s* pCoefs, int tapLen, Kvo16s* pMuErr) {
    Kvo32s mu = *pMuErr;
    const int body = tapLen & ~7;
    const __m256i lo = _mm256_set1_epi32(-32768), hi = _mm256_set1_epi32(32767);
    const __m256i r13 = _mm256_set1_epi32(4096), r15 = _mm256_set1_epi32(16384);
    for (int i = 0; i < len; ++i) {
        const Kvo16s* x = pRef + i;
        if (mu > 65535 || mu < -65535) {
            mu = nlms16sSample(x, pMic[i], pStep[i], pCoefs, tapLen, mu, pDst + i);
            continue;
        }
        const __m256i vmu = _mm256_set1_epi32(mu);
        __m256i acc = _mm256_setzero_si256();
        for (int t = 0; t < body; t += 8) {
            __m256i c = _mm256_cvtepi16_epi32(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(pCoefs + t)));
            const __m256i r1 = load_rev(x - 1 - t - 7);  // x[-1-t-j], j = 0..7
            const __m256i r0 = load_rev(x - t - 7);      // x[-t-j]
            c = _mm256_add_epi32(
                c, _mm256_srai_epi32(_mm256_add_epi32(_mm256_mullo_epi32(r1, vmu), r13), 13));
            c = _mm256_min_epi32(_mm256_max_epi32(c, lo), hi);
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(c, c), 0x08);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(pCoefs + t),
                             _mm256_castsi256_si128(packed));
            acc = _mm256_add_epi32(
                acc, _mm256_srai_epi32(_mm256_add_epi32(_mm256_mullo_epi32(c, r0), r15), 15));
        }
        Kvo32s y = hsum(acc);
        for (int t = body; t < tapLen; ++t) {
            pCoefs[t] = sat16(Kvo32s{pCoefs[t]} + ((Kvo32s{x[-1 - t]} * mu + 4096) >> 13));
            y += (Kvo32s{pCoefs[t]} * x[-t] + 16384) >> 15;
        }
        const Kvo16s e = sat16(Kvo64s{pMic[i]} - y);
        pDst[i] = e;
        mu = lo32((Kvo64s{e} * pStep[i] + 1024) >> 11);
    }
    *pMuErr = sat16(mu);
}

}  // namespace kvo::ec

namespace kvo::ec {

void fir16sAvx2(const Kvo16s* pRef, const Kvo16s* pMic, Kvo16s* pDst, int len, const Kvo16s* pCoefs,
                int tapLen) {
    const int body = tapLen & ~7;
    const __m256i r15 = _mm256_set1_epi32(16384);
    for (int i = 0; i < len; ++i) {
        const Kvo16s* x = pRef + i;
        __m256i acc = _mm256_setzero_si256();
        for (int t = 0; t < body; t += 8) {
            const __m256i c = _mm256_cvtepi16_epi32(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(pCoefs + t)));
            const __m256i r = load_rev(x - t - 7);
            acc = _mm256_add_epi32(
                acc, _mm256_srai_epi32(_mm256_add_epi32(_mm256_mullo_epi32(c, r), r15), 15));
        }
        Kvo32s y = hsum(acc);
        for (int t = body; t < tapLen; ++t) y += (Kvo32s{pCoefs[t]} * x[-t] + 16384) >> 15;
        pDst[i] = sat16(Kvo64s{pMic[i]} - y);
    }
}

void fir32fAvx2(const Kvo32f* pRef, const Kvo32f* pMic, Kvo32f* pDst, int len, const Kvo32f* pCoefs,
                int tapLen) {
    // Eight output samples per pass, one per lane; each lane sums its taps in ascending
    // order in single precision, exactly as the scalar loop does.
    int i = 0;
    for (; i + 8 <= len; i += 8) {
        __m256 y = _mm256_setzero_ps();
        const Kvo32f* x = pRef + i;
        for (int t = 0; t < tapLen; ++t)
            y = _mm256_add_ps(
                y, _mm256_mul_ps(_mm256_loadu_ps(x - t), _mm256_broadcast_ss(pCoefs + t)));
        _mm256_storeu_ps(pDst + i, _mm256_sub_ps(_mm256_loadu_ps(pMic + i), y));
    }
    for (; i < len; ++i) {
        const Kvo32f* x = pRef + i;
        Kvo32f y = 0.0f;
        for (int t = 0; t < tapLen; ++t) y += x[-t] * pCoefs[t];
        pDst[i] = pMic[i] - y;
    }
}

}  // namespace kvo::ec
