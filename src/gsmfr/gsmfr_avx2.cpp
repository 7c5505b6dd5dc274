// AVX2 builds of the GSM full-rate kernels (dispatched at run time).
//
// The lattices and the deemphasis keep each 16-bit value in lane 0 of its
// own vector register: the rounded product mult_r is one pmulhrsw (whose
// product of two -32768 keeps its low 16 bits, 0x8000, exactly as mult_r
// does) and the saturating 16-bit sums are paddsw/psubsw, which shortens
// the per-sample dependency chains of the recursions.  The LTP lag search
// takes 16 products per madd and reduces four lags at once.  Every kernel
// gives the bits of its plain twin.
#include <immintrin.h>

#include "gsmfr/gsmfr.h"

namespace kvo::gsmfr {

namespace {

inline __m128i w(Kvo16s v) {
    return _mm_cvtsi32_si128(static_cast<Kvo16u>(v));
}
inline Kvo16s w0(__m128i v) {
    return static_cast<Kvo16s>(_mm_cvtsi128_si32(v));
}
inline __m128i mulr(__m128i a, __m128i b) {
    return _mm_mulhrs_epi16(a, b);
}

}  // namespace

// The analysis lattice as a wavefront: lane i is stage i and, at step t,
// works on sample t - i.  Its inputs are d_i and s_i of that sample (passed up
// from lane i - 1 by a one-lane shift) and its memory s_i of the sample
// before; the memory lanes take the current s_i only while the lane has a
// sample, so lanes wait with their memory before the first sample and keep
// it after the last.  Sample n leaves lane 7 at step n + 7.
void analysisLatticeAvx2(const Kvo16s* rc, Kvo16s* x, Kvo32s len, Kvo16s* mem) {
    const __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rc));
    const __m128i lane = _mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7);
    __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(mem));
    __m128i d = w(x[0]), s = d;
    const Kvo64s steps = Kvo64s{len} + 7;
    for (Kvo64s t = 0; t < steps; ++t) {
        const __m128i dn = _mm_adds_epi16(d, mulr(r, m));
        const __m128i sn = _mm_adds_epi16(m, mulr(r, d));
        if (t >= 7 && t < len) {
            m = s;
        } else {
            // Lanes lo..hi have a sample at this step.
            const int lo = static_cast<int>(t - len + 1 > 0 ? t - len + 1 : 0);
            const int hi = static_cast<int>(t < 7 ? t : 7);
            const __m128i on =
                _mm_and_si128(_mm_cmpgt_epi16(_mm_set1_epi16(static_cast<short>(hi + 1)), lane),
                              _mm_cmpgt_epi16(lane, _mm_set1_epi16(static_cast<short>(lo - 1))));
            m = _mm_blendv_epi8(m, s, on);
        }
        if (t >= 7) x[t - 7] = static_cast<Kvo16s>(_mm_extract_epi16(dn, 7));
        const __m128i next = t + 1 < len ? w(x[t + 1]) : _mm_setzero_si128();
        d = _mm_or_si128(_mm_slli_si128(dn, 2), next);
        s = _mm_or_si128(_mm_slli_si128(sn, 2), next);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(mem), m);
}

// Preemphasis, eight samples a step; the previous sample comes from the
// vector before by a byte alignment, so in-place runs read no output.
void preemphasisAvx2(const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem) {
    const __m128i c = _mm_set1_epi16(-28180);
    __m128i before = _mm_slli_si128(w(*mem), 14);
    Kvo32s i = 0;
    for (; i + 8 <= len; i += 8) {
        const __m128i cur = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + i));
        const __m128i prev = _mm_alignr_epi8(cur, before, 14);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + i), _mm_adds_epi16(cur, mulr(prev, c)));
        before = cur;
    }
    Kvo16s p = i > 0 ? static_cast<Kvo16s>(_mm_extract_epi16(before, 7)) : *mem;
    for (; i < len; ++i) {
        const Kvo16s v = x[i];
        y[i] = w0(_mm_adds_epi16(w(v), mulr(w(p), c)));
        p = v;
    }
    *mem = p;
}

void synthesisLatticeAvx2(const Kvo16s* rc, const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem) {
    const __m128i r0 = w(rc[0]), r1 = w(rc[1]), r2 = w(rc[2]), r3 = w(rc[3]), r4 = w(rc[4]),
                  r5 = w(rc[5]), r6 = w(rc[6]), r7 = w(rc[7]);
    __m128i v0 = w(mem[0]), v1 = w(mem[1]), v2 = w(mem[2]), v3 = w(mem[3]), v4 = w(mem[4]),
            v5 = w(mem[5]), v6 = w(mem[6]), v7 = w(mem[7]), v8 = w(mem[8]);
    for (Kvo32s k = 0; k < len; ++k) {
        __m128i sri = w(x[k]);
#define KVO_GSMFR_STAGE(vi, vn, r)          \
    sri = _mm_subs_epi16(sri, mulr(r, vi)); \
    vn = _mm_adds_epi16(vi, mulr(r, sri));
        KVO_GSMFR_STAGE(v7, v8, r7)
        KVO_GSMFR_STAGE(v6, v7, r6)
        KVO_GSMFR_STAGE(v5, v6, r5)
        KVO_GSMFR_STAGE(v4, v5, r4)
        KVO_GSMFR_STAGE(v3, v4, r3)
        KVO_GSMFR_STAGE(v2, v3, r2)
        KVO_GSMFR_STAGE(v1, v2, r1)
        KVO_GSMFR_STAGE(v0, v1, r0)
#undef KVO_GSMFR_STAGE
        v0 = sri;
        y[k] = w0(sri);
    }
    mem[0] = w0(v0), mem[1] = w0(v1), mem[2] = w0(v2), mem[3] = w0(v3), mem[4] = w0(v4);
    mem[5] = w0(v5), mem[6] = w0(v6), mem[7] = w0(v7), mem[8] = w0(v8);
}

void deemphasisAvx2(Kvo16s* x, Kvo32s len, Kvo16s* mem) {
    const __m128i c = w(28180), mask = w(static_cast<Kvo16s>(0xfff8));
    __m128i m = w(*mem);
    for (Kvo32s i = 0; i < len; ++i) {
        m = _mm_adds_epi16(w(x[i]), mulr(m, c));
        x[i] = w0(_mm_and_si128(_mm_adds_epi16(m, m), mask));
    }
    *mem = w0(m);
}

namespace {

inline __m128i fold(__m256i v) {
    return _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

}  // namespace

// 40-sample lag search with every sum known to stay below 2^31.
void lagMax40Avx2(const Kvo16s* x, const Kvo16s* y, Kvo32s maxLag, Kvo32s* pMax, Kvo32s* pLag) {
    const __m256i xa = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x));
    const __m256i xb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(x + 16));
    const __m128i xc = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x + 32));
    auto lag = [&](Kvo32s k) {
        const Kvo16s* p = y + k;
        __m256i s = _mm256_madd_epi16(xa, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
        s = _mm256_add_epi32(
            s, _mm256_madd_epi16(xb, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 16))));
        return _mm_add_epi32(
            fold(s), _mm_madd_epi16(xc, _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 32))));
    };
    Kvo32s best = 0, bestLag = maxLag, k = maxLag;
    for (; k >= 3; k -= 4) {
        // Four lags k, k-1, k-2, k-3 reduced together, then scanned in that order.
        const __m128i a = lag(k), b = lag(k - 1), c = lag(k - 2), d = lag(k - 3);
        const __m128i ab = _mm_hadd_epi32(a, b), cd = _mm_hadd_epi32(c, d);
        alignas(16) Kvo32s s[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(s), _mm_hadd_epi32(ab, cd));
        for (int j = 0; j < 4; ++j)
            if (s[j] > best) {
                best = s[j];
                bestLag = k - j;
            }
    }
    for (; k >= 0; --k) {
        __m128i v = lag(k);
        v = _mm_hadd_epi32(v, v);
        v = _mm_hadd_epi32(v, v);
        const Kvo32s s = _mm_cvtsi128_si32(v);
        if (s > best) {
            best = s;
            bestLag = k;
        }
    }
    *pMax = best;
    *pLag = bestLag;
}

}  // namespace kvo::gsmfr
