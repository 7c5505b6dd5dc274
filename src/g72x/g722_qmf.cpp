// G.722 quadrature mirror filter bank: 24-tap analysis of 16 kHz samples into
// a low and a high 8 kHz subband, and the matching synthesis.
//
// Data: samples and subband values are 16-bit words; the coefficients are the
// Recommendation's 24 QMF values doubled (Q13 gain), so the analysis keeps
// (sum >> 15) and the synthesis (sum >> 12).  The 24-word delay line is the
// caller's; word 0 is the newest.  The analysis clamps each subband value to
// -16384..16383, the synthesis saturates its inputs' sum and difference and
// its outputs to 16 bits.  Sums are exact in 32 bits.
//
// The block forms work on a time-ordered copy of the delay line and the new
// samples, one SSE2 multiply-add window per pair, and leave the delay line
// exactly as the per-pair loop does (words 0 and 1 repeat words 2 and 3).
#include <emmintrin.h>

#include <cstring>

#include "g72x/g722.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int kChunk = 128;  // pairs per block of the vector form
constexpr int kHist = 22;    // delay words 2..23

inline int clampi(int v, int lo, int hi) {
    return v < lo ? lo : (v > hi ? hi : v);
}

// Coefficients in time order (oldest first) for a window z[2i .. 2i+23] whose
// newest sample is delay word 0: entry j pairs with word 23 - j.
struct QmfRows {
    alignas(16) Kvo16s sum[24];   // all taps: even + odd branch
    alignas(16) Kvo16s diff[24];  // even branch minus odd branch
    alignas(16) Kvo16s even[24];  // even branch only
    alignas(16) Kvo16s odd[24];   // odd branch only
};

constexpr QmfRows makeRows() {
    const auto& c = kG722QmfCoef;
    QmfRows r{};
    for (int j = 0; j < 24; ++j) {
        const int k = 23 - j;
        const bool ev = (k & 1) == 0;
        r.sum[j] = c[k];
        r.diff[j] = static_cast<Kvo16s>(ev ? c[k] : -c[k]);
        r.even[j] = ev ? c[k] : Kvo16s{0};
        r.odd[j] = ev ? Kvo16s{0} : c[k];
    }
    return r;
}
constexpr QmfRows kRows = makeRows();

inline __m128i dot3(const Kvo16s* z, const Kvo16s* c) {
    const __m128i* zp = reinterpret_cast<const __m128i*>(z);
    const __m128i* cp = reinterpret_cast<const __m128i*>(c);
    __m128i a = _mm_madd_epi16(_mm_loadu_si128(zp), _mm_load_si128(cp));
    a = _mm_add_epi32(a, _mm_madd_epi16(_mm_loadu_si128(zp + 1), _mm_load_si128(cp + 1)));
    return _mm_add_epi32(a, _mm_madd_epi16(_mm_loadu_si128(zp + 2), _mm_load_si128(cp + 2)));
}

// Lanes 0 and 1: the full sums of u and v.
inline __m128i reduce2(__m128i u, __m128i v) {
    __m128i s = _mm_add_epi32(_mm_unpacklo_epi32(u, v), _mm_unpackhi_epi32(u, v));
    return _mm_add_epi32(s, _mm_srli_si128(s, 8));
}

// Time-ordered history from the delay line, and the delay line back from the
// last kHist + 2 values of the buffer ending at z[n-1].
inline void loadHistory(const Kvo16s* delay, Kvo16s* z) {
    for (int j = 0; j < kHist; ++j) z[j] = delay[23 - j];
}
inline void storeDelay(const Kvo16s* z, int n, Kvo16s* delay) {
    delay[0] = z[n - 1];
    delay[1] = z[n - 2];
    for (int k = 2; k < 24; ++k) delay[k] = z[n + 1 - k];
}

template <typename Fill, typename Emit>
void qmfBlocks(int pairs, Kvo16s* delay, Fill fill, Emit emit) {
    alignas(16) Kvo16s z[kHist + 2 * kChunk];
    loadHistory(delay, z);
    int n = kHist;
    for (int base = 0; base < pairs; base += kChunk) {
        const int cnt = pairs - base < kChunk ? pairs - base : kChunk;
        fill(z + kHist, base, cnt);
        for (int i = 0; i < cnt; ++i) emit(z + 2 * i, base + i);
        n = kHist + 2 * cnt;
        if (base + cnt < pairs) std::memmove(z, z + 2 * cnt, kHist * sizeof(Kvo16s));
    }
    storeDelay(z, n, delay);
}

}  // namespace

void g722QmfAnalysisScalar(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay) {
    for (int i = 0; i < pairs; ++i) {
        delay[1] = src[2 * i];
        delay[0] = src[2 * i + 1];
        Kvo32s a = 0, b = 0;
        for (int m = 0; m < 12; ++m) {
            a += kG722QmfCoef[2 * m] * delay[2 * m];
            b += kG722QmfCoef[2 * m + 1] * delay[2 * m + 1];
        }
        dst[2 * i] = static_cast<Kvo16s>(clampi((a + b) >> 15, -16384, 16383));
        dst[2 * i + 1] = static_cast<Kvo16s>(clampi((a - b) >> 15, -16384, 16383));
        std::memmove(delay + 2, delay, 22 * sizeof(Kvo16s));
    }
}

void g722QmfSynthesisScalar(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay) {
    for (int i = 0; i < pairs; ++i) {
        const int l = src[2 * i], h = src[2 * i + 1];
        delay[1] = sat16(l + h);
        delay[0] = sat16(l - h);
        Kvo32s a = 0, b = 0;
        for (int m = 0; m < 12; ++m) {
            a += kG722QmfCoef[2 * m] * delay[2 * m];
            b += kG722QmfCoef[2 * m + 1] * delay[2 * m + 1];
        }
        dst[2 * i] = sat16(a >> 12);
        dst[2 * i + 1] = sat16(b >> 12);
        std::memmove(delay + 2, delay, 22 * sizeof(Kvo16s));
    }
}

void g722QmfAnalysis(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay) {
    const __m128i lo = _mm_set1_epi16(-16384), hi = _mm_set1_epi16(16383);
    qmfBlocks(
        pairs, delay,
        [src](Kvo16s* z, int base, int cnt) {
            std::memcpy(z, src + 2 * base, 2 * cnt * sizeof(Kvo16s));
        },
        [&](const Kvo16s* w, int i) {
            __m128i r = reduce2(dot3(w, kRows.sum), dot3(w, kRows.diff));
            r = _mm_srai_epi32(r, 15);
            r = _mm_packs_epi32(r, r);
            r = _mm_min_epi16(_mm_max_epi16(r, lo), hi);
            const int v = _mm_cvtsi128_si32(r);
            std::memcpy(dst + 2 * i, &v, 4);
        });
}

void g722QmfSynthesis(const Kvo16s* src, Kvo16s* dst, int pairs, Kvo16s* delay) {
    qmfBlocks(
        pairs, delay,
        [src](Kvo16s* z, int base, int cnt) {
            for (int i = 0; i < cnt; ++i) {
                const int l = src[2 * (base + i)], h = src[2 * (base + i) + 1];
                z[2 * i] = sat16(l + h);
                z[2 * i + 1] = sat16(l - h);
            }
        },
        [&](const Kvo16s* w, int i) {
            __m128i r = reduce2(dot3(w, kRows.even), dot3(w, kRows.odd));
            r = _mm_srai_epi32(r, 12);
            r = _mm_packs_epi32(r, r);
            const int v = _mm_cvtsi128_si32(r);
            std::memcpy(dst + 2 * i, &v, 4);
        });
}

namespace impl {

KvoStatus kvosQMFEncode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo16s* pDelay) {
    if (!pSrc || !pDst || !pDelay) return kvoErrNullPtr;
    if (len < 1 || (len & 1)) return kvoErrSize;
    g722QmfAnalysis(pSrc, pDst, len / 2, pDelay);
    return kvoOk;
}

KvoStatus kvosQMFDecode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo16s* pDelay) {
    if (!pSrc || !pDst || !pDelay) return kvoErrNullPtr;
    if (len < 1 || (len & 1)) return kvoErrSize;
    g722QmfSynthesis(pSrc, pDst, len / 2, pDelay);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
