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

inline __m128i w(Kvo16s v) { return _mm_cvtsi32_si128(static_cast<Kvo16u>(v)); }
inline Kvo16s w0(__m128i v) { return static_cast<Kvo16s>(_mm_cvtsi128_si32(v)); }
inline __m128i mulr(__m128i a, __m128i b) { return _mm_mulhrs_epi16(a, b); }

}  // namespace

void analysisLatticeAvx2(const Kvo16s* rc, Kvo16s* x, Kvo32s len, Kvo16s* mem) {
    const __m128i r0 = w(rc[0]), r1 = w(rc[1]), r2 = w(rc[2]), r3 = w(rc[3]), r4 = w(rc[4]),
                  r5 = w(rc[5]), r6 = w(rc[6]), r7 = w(rc[7]);
    __m128i u0 = w(mem[0]), u1 = w(mem[1]), u2 = w(mem[2]), u3 = w(mem[3]), u4 = w(mem[4]),
            u5 = w(mem[5]), u6 = w(mem[6]), u7 = w(mem[7]);
    for (Kvo32s k = 0; k < len; ++k) {
        __m128i di = w(x[k]), sav = di, t;
#define KVO_GSMFR_STAGE(u, r)                                   \
    t = u;                                                      \
    u = sav;                                                    \
    sav = _mm_adds_epi16(t, mulr(r, di));                       \
    di = _mm_adds_epi16(di, mulr(r, t));
        KVO_GSMFR_STAGE(u0, r0)
        KVO_GSMFR_STAGE(u1, r1)
        KVO_GSMFR_STAGE(u2, r2)
        KVO_GSMFR_STAGE(u3, r3)
        KVO_GSMFR_STAGE(u4, r4)
        KVO_GSMFR_STAGE(u5, r5)
        KVO_GSMFR_STAGE(u6, r6)
        KVO_GSMFR_STAGE(u7, r7)
#undef KVO_GSMFR_STAGE
        (void)sav;
        x[k] = w0(di);
    }
    mem[0] = w0(u0), mem[1] = w0(u1), mem[2] = w0(u2), mem[3] = w0(u3);
    mem[4] = w0(u4), mem[5] = w0(u5), mem[6] = w0(u6), mem[7] = w0(u7);
}

void synthesisLatticeAvx2(const Kvo16s* rc, const Kvo16s* x, Kvo16s* y, Kvo32s len, Kvo16s* mem) {
    const __m128i r0 = w(rc[0]), r1 = w(rc[1]), r2 = w(rc[2]), r3 = w(rc[3]), r4 = w(rc[4]),
                  r5 = w(rc[5]), r6 = w(rc[6]), r7 = w(rc[7]);
    __m128i v0 = w(mem[0]), v1 = w(mem[1]), v2 = w(mem[2]), v3 = w(mem[3]), v4 = w(mem[4]),
            v5 = w(mem[5]), v6 = w(mem[6]), v7 = w(mem[7]), v8 = w(mem[8]);
    for (Kvo32s k = 0; k < len; ++k) {
        __m128i sri = w(x[k]);
#define KVO_GSMFR_STAGE(vi, vn, r)                        \
    sri = _mm_subs_epi16(sri, mulr(r, vi));               \
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
