// Single-precision real FFT of power-of-two length (orders 0 to 28): size query, init,
// release and the forward and inverse transforms in Perm, Pack and CCS storage order.
//
// Data: float samples; spectra in the three storage orders of fft.h.  The N/2-point complex
// kernel works on split real/imaginary arrays in the work buffer: bit-reversed gather fused
// with the first radix-4 pass, radix-4 decimation-in-time passes (SSE, four butterflies at
// a time), and one radix-2 pass when log2(N/2) is odd.  The scale factor is folded into the
// real recombination (forward) or into its inverse (inverse transform).
#include "fft/fft.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "frame/alloc.h"

namespace kvo {

namespace {

constexpr Kvo32s kMaxOrder = 28;
constexpr std::int64_t kRecordBytes = 128;  // the record, rounded to a 64-byte multiple
static_assert(sizeof(KvoFFTSpec32f) <= kRecordBytes, "record outgrew its slot");
static_assert(sizeof(KvoFFTSpec16s) <= 64, "16-bit record outgrew its slot");

constexpr std::int64_t roundUp64(std::int64_t v) {
    return (v + 63) & ~std::int64_t{63};
}

template <typename T>
T* align64(void* p) {
    auto a = reinterpret_cast<std::uintptr_t>(p);
    return reinterpret_cast<T*>((a + 63) & ~std::uintptr_t{63});
}

bool flagValid(Kvo32s flag) {
    return flag == 1 || flag == 2 || flag == 4 || flag == 8;
}

// Offsets (from the record's start) of the tables, and the sizes, for one order.
struct Layout {
    std::int64_t bitrevOff = 0;
    std::int64_t twOff = 0;
    std::int64_t recOff = 0;
    std::int64_t recordBytes = 0;  // record and tables, from the record's start
    std::int64_t twFloats = 0;
    std::int64_t workBytes = 0;
};

// Number of twiddle floats of the complex kernel for M points (M >= 4).
std::int64_t twiddleFloats(std::int64_t M) {
    std::int64_t n = 0, L = 4;
    while (4 * L <= M) {
        n += 6 * L;
        L *= 4;
    }
    if (L < M) n += 2 * L;
    return n;
}

Layout layoutFor(Kvo32s order) {
    Layout l;
    const std::int64_t N = std::int64_t{1} << order;
    const std::int64_t M = N / 2;
    std::int64_t off = kRecordBytes;
    if (M >= 4) {
        l.bitrevOff = off;
        off += roundUp64(4 * M);
        l.twFloats = twiddleFloats(M);
        l.twOff = off;
        off += roundUp64(4 * l.twFloats);
    }
    if (M >= 2) {
        l.recOff = off;
        off += roundUp64(4 * 2 * (M / 2 + 1));
    }
    l.recordBytes = off;
    l.workBytes = order <= 6 ? 0 : 8 * N;  // split arrays, and the inverse's staging copy
    return l;
}

// cos and sin of 2 pi k / n in double, reduced to the first quadrant so that the points on
// the axes come out exact.
void cosSin(std::int64_t k, std::int64_t n, double& c, double& s) {
    k %= n;
    if (k < 0) k += n;
    const std::int64_t q = (4 * k) / n;
    const std::int64_t r = 4 * k - q * n;
    const double a = (M_PI / 2) * static_cast<double>(r) / static_cast<double>(n);
    const double cc = r == 0 ? 1.0 : std::cos(a);
    const double ss = r == 0 ? 0.0 : std::sin(a);
    switch (q) {
        case 0:
            c = cc;
            s = ss;
            break;
        case 1:
            c = -ss;
            s = cc;
            break;
        case 2:
            c = -cc;
            s = -ss;
            break;
        default:
            c = ss;
            s = -cc;
            break;
    }
}

bool specValid(const KvoFFTSpec32f* s) {
    return s->idTag == kFftSpec32fTag && s->self == s;
}

// ---- complex kernel on split arrays ------------------------------------------------------

// Bit-reversed gather of the interleaved samples, fused with the first radix-4 pass.
void gatherFirstPass(const float* x, float* re, float* im, Kvo32s M, const Kvo32s* rev) {
    for (Kvo32s b = 0; b < M; b += 4) {
        const float* p0 = x + 2 * rev[b];
        const float* p1 = x + 2 * rev[b + 1];
        const float* p2 = x + 2 * rev[b + 2];
        const float* p3 = x + 2 * rev[b + 3];
        const float t0r = p0[0] + p1[0], t0i = p0[1] + p1[1];
        const float t1r = p0[0] - p1[0], t1i = p0[1] - p1[1];
        const float t2r = p2[0] + p3[0], t2i = p2[1] + p3[1];
        const float t3r = p2[0] - p3[0], t3i = p2[1] - p3[1];
        re[b] = t0r + t2r;
        im[b] = t0i + t2i;
        re[b + 2] = t0r - t2r;
        im[b + 2] = t0i - t2i;
        re[b + 1] = t1r + t3i;
        im[b + 1] = t1i - t3r;
        re[b + 3] = t1r - t3i;
        im[b + 3] = t1i + t3r;
    }
}

#if defined(__SSE2__)
// The same for M >= 16, four blocks at a time.  Block index c + t*M/16 (t = 0..3) takes its
// inputs from rev2(i)*M/4 + base + rev2(t), base = 4*rev(c): for fixed i, four consecutive
// complex samples, one per lane u = rev2(t).  The butterflies run across the lanes, and a
// 4x4 transpose turns lanes back into blocks.
void gatherFirstPassSimd(const float* x, float* re, float* im, Kvo32s M, const Kvo32s* rev) {
    const Kvo32s Q = M / 16, quarter = M / 4;
    for (Kvo32s c = 0; c < Q; ++c) {
        const Kvo32s base = rev[c] >> 2;
        const float* p0 = x + 2 * base;
        const float* p1 = x + 2 * (base + 2 * quarter);
        const float* p2 = x + 2 * (base + quarter);
        const float* p3 = x + 2 * (base + 3 * quarter);
        __m128 lo, hi;
        lo = _mm_loadu_ps(p0), hi = _mm_loadu_ps(p0 + 4);
        const __m128 q0r = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 q0i = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
        lo = _mm_loadu_ps(p1), hi = _mm_loadu_ps(p1 + 4);
        const __m128 q1r = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 q1i = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
        lo = _mm_loadu_ps(p2), hi = _mm_loadu_ps(p2 + 4);
        const __m128 q2r = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 q2i = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
        lo = _mm_loadu_ps(p3), hi = _mm_loadu_ps(p3 + 4);
        const __m128 q3r = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 q3i = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
        const __m128 t0r = _mm_add_ps(q0r, q1r), t0i = _mm_add_ps(q0i, q1i);
        const __m128 t1r = _mm_sub_ps(q0r, q1r), t1i = _mm_sub_ps(q0i, q1i);
        const __m128 t2r = _mm_add_ps(q2r, q3r), t2i = _mm_add_ps(q2i, q3i);
        const __m128 t3r = _mm_sub_ps(q2r, q3r), t3i = _mm_sub_ps(q2i, q3i);
        __m128 o0r = _mm_add_ps(t0r, t2r), o0i = _mm_add_ps(t0i, t2i);
        __m128 o1r = _mm_add_ps(t1r, t3i), o1i = _mm_sub_ps(t1i, t3r);
        __m128 o2r = _mm_sub_ps(t0r, t2r), o2i = _mm_sub_ps(t0i, t2i);
        __m128 o3r = _mm_sub_ps(t1r, t3i), o3i = _mm_add_ps(t1i, t3r);
        _MM_TRANSPOSE4_PS(o0r, o1r, o2r, o3r);
        _MM_TRANSPOSE4_PS(o0i, o1i, o2i, o3i);
        _mm_store_ps(re + 4 * c, o0r);
        _mm_store_ps(im + 4 * c, o0i);
        _mm_store_ps(re + 4 * (c + 2 * Q), o1r);
        _mm_store_ps(im + 4 * (c + 2 * Q), o1i);
        _mm_store_ps(re + 4 * (c + Q), o2r);
        _mm_store_ps(im + 4 * (c + Q), o2i);
        _mm_store_ps(re + 4 * (c + 3 * Q), o3r);
        _mm_store_ps(im + 4 * (c + 3 * Q), o3i);
    }
}
#endif

// Bit-reversed gather with the first pass, by size.
template <bool V>
void gather(const float* x, float* re, float* im, Kvo32s M, const Kvo32s* rev) {
#if defined(__SSE2__)
    if constexpr (V) {
        if (M >= 16) {
            gatherFirstPassSimd(x, re, im, M, rev);
            return;
        }
    }
#endif
    gatherFirstPass(x, re, im, M, rev);
}

// Radix-4 pass of span L (a multiple of 4).  With base-2 bit-reversed input, the quarters
// of a block of 4L hold the sub-transforms of the residues 0, 2, 1, 3 modulo 4.
template <bool V>
void radix4Pass(float* re, float* im, Kvo32s M, Kvo32s L, const float* tw) {
    const float* w1r = tw;
    const float* w1i = tw + L;
    const float* w2r = tw + 2 * L;
    const float* w2i = tw + 3 * L;
    const float* w3r = tw + 4 * L;
    const float* w3i = tw + 5 * L;
    for (Kvo32s b = 0; b < M; b += 4 * L) {
        float* r0 = re + b;
        float* r1 = r0 + L;
        float* r2 = r1 + L;
        float* r3 = r2 + L;
        float* i0 = im + b;
        float* i1 = i0 + L;
        float* i2 = i1 + L;
        float* i3 = i2 + L;
        Kvo32s j = 0;
#if defined(__SSE2__)
        for (; V && j < L; j += 4) {
            const __m128 ar = _mm_load_ps(r0 + j), ai = _mm_load_ps(i0 + j);
            const __m128 q1r = _mm_load_ps(r1 + j), q1i = _mm_load_ps(i1 + j);
            const __m128 q2r = _mm_load_ps(r2 + j), q2i = _mm_load_ps(i2 + j);
            const __m128 q3r = _mm_load_ps(r3 + j), q3i = _mm_load_ps(i3 + j);
            const __m128 x1r = _mm_load_ps(w1r + j), x1i = _mm_load_ps(w1i + j);
            const __m128 x2r = _mm_load_ps(w2r + j), x2i = _mm_load_ps(w2i + j);
            const __m128 x3r = _mm_load_ps(w3r + j), x3i = _mm_load_ps(w3i + j);
            // b = q2 w1, c = q1 w2, d = q3 w3
            const __m128 br = _mm_sub_ps(_mm_mul_ps(q2r, x1r), _mm_mul_ps(q2i, x1i));
            const __m128 bi = _mm_add_ps(_mm_mul_ps(q2r, x1i), _mm_mul_ps(q2i, x1r));
            const __m128 cr = _mm_sub_ps(_mm_mul_ps(q1r, x2r), _mm_mul_ps(q1i, x2i));
            const __m128 ci = _mm_add_ps(_mm_mul_ps(q1r, x2i), _mm_mul_ps(q1i, x2r));
            const __m128 dr = _mm_sub_ps(_mm_mul_ps(q3r, x3r), _mm_mul_ps(q3i, x3i));
            const __m128 di = _mm_add_ps(_mm_mul_ps(q3r, x3i), _mm_mul_ps(q3i, x3r));
            const __m128 t0r = _mm_add_ps(ar, cr), t0i = _mm_add_ps(ai, ci);
            const __m128 t1r = _mm_sub_ps(ar, cr), t1i = _mm_sub_ps(ai, ci);
            const __m128 t2r = _mm_add_ps(br, dr), t2i = _mm_add_ps(bi, di);
            const __m128 t3r = _mm_sub_ps(br, dr), t3i = _mm_sub_ps(bi, di);
            _mm_store_ps(r0 + j, _mm_add_ps(t0r, t2r));
            _mm_store_ps(i0 + j, _mm_add_ps(t0i, t2i));
            _mm_store_ps(r2 + j, _mm_sub_ps(t0r, t2r));
            _mm_store_ps(i2 + j, _mm_sub_ps(t0i, t2i));
            _mm_store_ps(r1 + j, _mm_add_ps(t1r, t3i));
            _mm_store_ps(i1 + j, _mm_sub_ps(t1i, t3r));
            _mm_store_ps(r3 + j, _mm_sub_ps(t1r, t3i));
            _mm_store_ps(i3 + j, _mm_add_ps(t1i, t3r));
        }
#endif
        for (; j < L; ++j) {
            const float ar = r0[j], ai = i0[j];
            const float br = r2[j] * w1r[j] - i2[j] * w1i[j];
            const float bi = r2[j] * w1i[j] + i2[j] * w1r[j];
            const float cr = r1[j] * w2r[j] - i1[j] * w2i[j];
            const float ci = r1[j] * w2i[j] + i1[j] * w2r[j];
            const float dr = r3[j] * w3r[j] - i3[j] * w3i[j];
            const float di = r3[j] * w3i[j] + i3[j] * w3r[j];
            const float t0r = ar + cr, t0i = ai + ci, t1r = ar - cr, t1i = ai - ci;
            const float t2r = br + dr, t2i = bi + di, t3r = br - dr, t3i = bi - di;
            r0[j] = t0r + t2r;
            i0[j] = t0i + t2i;
            r2[j] = t0r - t2r;
            i2[j] = t0i - t2i;
            r1[j] = t1r + t3i;
            i1[j] = t1i - t3r;
            r3[j] = t1r - t3i;
            i3[j] = t1i + t3r;
        }
    }
}

// Final radix-2 pass of span L = M/2.
template <bool V>
void radix2Pass(float* re, float* im, Kvo32s L, const float* tw) {
    const float* wr = tw;
    const float* wi = tw + L;
    float* r1 = re + L;
    float* i1 = im + L;
    Kvo32s j = 0;
#if defined(__SSE2__)
    for (; V && j < L; j += 4) {
        const __m128 ar = _mm_load_ps(re + j), ai = _mm_load_ps(im + j);
        const __m128 qr = _mm_load_ps(r1 + j), qi = _mm_load_ps(i1 + j);
        const __m128 xr = _mm_load_ps(wr + j), xi = _mm_load_ps(wi + j);
        const __m128 br = _mm_sub_ps(_mm_mul_ps(qr, xr), _mm_mul_ps(qi, xi));
        const __m128 bi = _mm_add_ps(_mm_mul_ps(qr, xi), _mm_mul_ps(qi, xr));
        _mm_store_ps(re + j, _mm_add_ps(ar, br));
        _mm_store_ps(im + j, _mm_add_ps(ai, bi));
        _mm_store_ps(r1 + j, _mm_sub_ps(ar, br));
        _mm_store_ps(i1 + j, _mm_sub_ps(ai, bi));
    }
#endif
    for (; j < L; ++j) {
        const float br = r1[j] * wr[j] - i1[j] * wi[j];
        const float bi = r1[j] * wi[j] + i1[j] * wr[j];
        const float ar = re[j], ai = im[j];
        re[j] = ar + br;
        im[j] = ai + bi;
        r1[j] = ar - br;
        i1[j] = ai - bi;
    }
}

// The passes after the first, for M >= 4 points.
template <bool V>
void laterPasses(float* re, float* im, Kvo32s M, const float* tw) {
    Kvo32s L = 4;
    while (4 * L <= M) {
        radix4Pass<V>(re, im, M, L, tw);
        tw += 6 * L;
        L *= 4;
    }
    if (L < M) radix2Pass<V>(re, im, L, tw);
}

// ---- real recombination ------------------------------------------------------------------

enum class Fmt { Perm, Pack, CCS };

// Index of the pair (R[k], I[k]) for 1 <= k < N/2.
template <Fmt F>
constexpr Kvo32s pairOff() {
    return F == Fmt::Pack ? -1 : 0;
}

#if defined(__SSE2__)
inline __m128 rev4(__m128 v) {
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(0, 1, 2, 3));
}
#endif

// Forward: spectrum Z of z[m] = x[2m] + j x[2m+1] (natural order, split) to X in format F,
// every value multiplied by scale.  Bins k and M - k are formed together.
template <bool V, Fmt F>
void recombineFwd(const float* re, const float* im, Kvo32s M, const float* cs, float scale,
                  float* dst) {
    const Kvo32s N = 2 * M;
    const float half = 0.5f * scale;
    const float* C = cs;
    const float* S = cs + (M / 2 + 1);
    float* P = dst + pairOff<F>();
    const float x0 = (re[0] + im[0]) * scale;
    const float xm = (re[0] - im[0]) * scale;
    Kvo32s k = 1;
#if defined(__SSE2__)
    const __m128 vh = _mm_set1_ps(half);
    for (; V && k + 4 <= M / 2; k += 4) {
        const __m128 zr = _mm_loadu_ps(re + k), zi = _mm_loadu_ps(im + k);
        const __m128 yr = rev4(_mm_loadu_ps(re + M - k - 3));
        const __m128 yi = rev4(_mm_loadu_ps(im + M - k - 3));
        const __m128 er = _mm_add_ps(zr, yr), ei = _mm_sub_ps(zi, yi);
        const __m128 orr = _mm_add_ps(zi, yi), oi = _mm_sub_ps(yr, zr);
        const __m128 c = _mm_loadu_ps(C + k), sn = _mm_loadu_ps(S + k);
        const __m128 tr = _mm_add_ps(_mm_mul_ps(c, orr), _mm_mul_ps(sn, oi));
        const __m128 ti = _mm_sub_ps(_mm_mul_ps(c, oi), _mm_mul_ps(sn, orr));
        const __m128 ar = _mm_mul_ps(vh, _mm_add_ps(er, tr));
        const __m128 ai = _mm_mul_ps(vh, _mm_add_ps(ei, ti));
        const __m128 br = rev4(_mm_mul_ps(vh, _mm_sub_ps(er, tr)));
        const __m128 bi = rev4(_mm_mul_ps(vh, _mm_sub_ps(ti, ei)));
        _mm_storeu_ps(P + 2 * k, _mm_unpacklo_ps(ar, ai));
        _mm_storeu_ps(P + 2 * k + 4, _mm_unpackhi_ps(ar, ai));
        _mm_storeu_ps(P + 2 * (M - k - 3), _mm_unpacklo_ps(br, bi));
        _mm_storeu_ps(P + 2 * (M - k - 3) + 4, _mm_unpackhi_ps(br, bi));
    }
#endif
    for (; k < M / 2; ++k) {
        const float zr = re[k], zi = im[k], yr = re[M - k], yi = im[M - k];
        const float er = zr + yr, ei = zi - yi, orr = zi + yi, oi = yr - zr;
        const float c = C[k], sn = S[k];
        const float tr = c * orr + sn * oi, ti = c * oi - sn * orr;
        P[2 * k] = half * (er + tr);
        P[2 * k + 1] = half * (ei + ti);
        P[2 * (M - k)] = half * (er - tr);
        P[2 * (M - k) + 1] = half * (ti - ei);
    }
    P[M] = re[M / 2] * scale;  // bin N/4
    P[M + 1] = -im[M / 2] * scale;
    dst[0] = x0;
    if (F == Fmt::Perm) {
        dst[1] = xm;
    } else if (F == Fmt::Pack) {
        dst[N - 1] = xm;
    } else {
        dst[1] = 0.0f;
        dst[N] = xm;
        dst[N + 1] = 0.0f;
    }
}

// Inverse: spectrum X in format F to Z' = 2E + 2jO (scaled), the spectrum of the half-length
// complex signal.  Written interleaved in natural order with its parts exchanged, ready for
// the forward kernel: IFFT(Z') = swap(FFT(swap(Z'))).
template <bool V, Fmt F>
void recombineInv(const float* src, Kvo32s M, const float* cs, float scale, float* u) {
    const Kvo32s N = 2 * M;
    const float* C = cs;
    const float* S = cs + (M / 2 + 1);
    const float* P = src + pairOff<F>();
    const float x0 = src[0];
    const float xm = F == Fmt::Perm ? src[1] : (F == Fmt::Pack ? src[N - 1] : src[N]);
    u[0] = (x0 - xm) * scale;
    u[1] = (x0 + xm) * scale;
    Kvo32s k = 1;
#if defined(__SSE2__)
    const __m128 vg = _mm_set1_ps(scale);
    for (; V && k + 4 <= M / 2; k += 4) {
        __m128 lo = _mm_loadu_ps(P + 2 * k), hi = _mm_loadu_ps(P + 2 * k + 4);
        const __m128 ar = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 ai = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
        lo = _mm_loadu_ps(P + 2 * (M - k - 3));
        hi = _mm_loadu_ps(P + 2 * (M - k - 3) + 4);
        const __m128 br = rev4(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0)));
        const __m128 bi = rev4(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1)));
        const __m128 sr = _mm_add_ps(ar, br), si = _mm_sub_ps(ai, bi);
        const __m128 dr = _mm_sub_ps(ar, br), di = _mm_add_ps(ai, bi);
        const __m128 c = _mm_loadu_ps(C + k), sn = _mm_loadu_ps(S + k);
        const __m128 tr = _mm_sub_ps(_mm_mul_ps(c, dr), _mm_mul_ps(sn, di));
        const __m128 ti = _mm_add_ps(_mm_mul_ps(c, di), _mm_mul_ps(sn, dr));
        const __m128 pr = _mm_mul_ps(_mm_sub_ps(sr, ti), vg);
        const __m128 pi = _mm_mul_ps(_mm_add_ps(si, tr), vg);
        const __m128 qr = rev4(_mm_mul_ps(_mm_add_ps(sr, ti), vg));
        const __m128 qi = rev4(_mm_mul_ps(_mm_sub_ps(tr, si), vg));
        _mm_storeu_ps(u + 2 * k, _mm_unpacklo_ps(pi, pr));
        _mm_storeu_ps(u + 2 * k + 4, _mm_unpackhi_ps(pi, pr));
        _mm_storeu_ps(u + 2 * (M - k - 3), _mm_unpacklo_ps(qi, qr));
        _mm_storeu_ps(u + 2 * (M - k - 3) + 4, _mm_unpackhi_ps(qi, qr));
    }
#endif
    for (; k < M / 2; ++k) {
        const float ar = P[2 * k], ai = P[2 * k + 1];
        const float br = P[2 * (M - k)], bi = P[2 * (M - k) + 1];
        const float sr = ar + br, si = ai - bi, dr = ar - br, di = ai + bi;
        const float c = C[k], sn = S[k];
        const float tr = c * dr - sn * di, ti = c * di + sn * dr;
        u[2 * k] = (si + tr) * scale;
        u[2 * k + 1] = (sr - ti) * scale;
        u[2 * (M - k)] = (tr - si) * scale;
        u[2 * (M - k) + 1] = (sr + ti) * scale;
    }
    u[M] = -2.0f * P[M + 1] * scale;  // bin N/4
    u[M + 1] = 2.0f * P[M] * scale;
}

// Interleave the split result back into samples.
template <bool V>
void interleave(const float* re, const float* im, Kvo32s M, float* dst) {
    Kvo32s m = 0;
#if defined(__SSE2__)
    for (; V && m + 4 <= M; m += 4) {
        const __m128 r = _mm_load_ps(re + m), i = _mm_load_ps(im + m);
        _mm_storeu_ps(dst + 2 * m, _mm_unpacklo_ps(r, i));
        _mm_storeu_ps(dst + 2 * m + 4, _mm_unpackhi_ps(r, i));
    }
#endif
    for (; m < M; ++m) {
        dst[2 * m] = re[m];
        dst[2 * m + 1] = im[m];
    }
}

float fwdScale(const KvoFFTSpec32f* s) {
    return s->fwdScaled ? s->factor : 1.0f;
}
float invScale(const KvoFFTSpec32f* s) {
    return s->invScaled ? s->factor : 1.0f;
}

template <bool V, Fmt F>
void forward(const KvoFFTSpec32f* s, const float* src, float* dst, float* work) {
    const Kvo32s order = s->order;
    const float g = fwdScale(s);
    if (order == 0) {
        dst[0] = src[0] * g;
        if (F == Fmt::CCS) dst[1] = 0.0f;
        return;
    }
    if (order == 1) {
        const float a = src[0], b = src[1];
        dst[0] = (a + b) * g;
        if (F == Fmt::CCS) {
            dst[1] = 0.0f;
            dst[2] = (a - b) * g;
            dst[3] = 0.0f;
        } else {
            dst[1] = (a - b) * g;
        }
        return;
    }
    const Kvo32s M = Kvo32s{1} << (order - 1);
    float* re = work;
    float* im = work + M;
    if (M == 2) {
        const float ar = src[0], ai = src[1], br = src[2], bi = src[3];
        re[0] = ar + br;
        im[0] = ai + bi;
        re[1] = ar - br;
        im[1] = ai - bi;
    } else {
        gather<V>(src, re, im, M, s->bitrev);
        laterPasses<V>(re, im, M, s->twiddle);
    }
    recombineFwd<V, F>(re, im, M, s->recomb, g, dst);
}

template <bool V, Fmt F>
void inverse(const KvoFFTSpec32f* s, const float* src, float* dst, float* work) {
    const Kvo32s order = s->order;
    const float g = invScale(s);
    if (order == 0) {
        dst[0] = src[0] * g;
        return;
    }
    if (order == 1) {
        const float a = src[0], b = F == Fmt::CCS ? src[2] : src[1];
        dst[0] = (a + b) * g;
        dst[1] = (a - b) * g;
        return;
    }
    const Kvo32s M = Kvo32s{1} << (order - 1);
    float* re = work;
    float* im = work + M;
    float* u = work + 2 * M;
    recombineInv<V, F>(src, M, s->recomb, g, u);
    if (M == 2) {
        // Two-point transform of u; the samples are its parts exchanged back.
        dst[0] = u[1] + u[3];
        dst[1] = u[0] + u[2];
        dst[2] = u[1] - u[3];
        dst[3] = u[0] - u[2];
        return;
    }
    gather<V>(u, re, im, M, s->bitrev);
    laterPasses<V>(re, im, M, s->twiddle);
    interleave<V>(im, re, M, dst);
}

// Common frame of the float transforms: checks, scratch, dispatch.
template <bool Fwd, Fmt F, bool V = true>
KvoStatus transform(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec, Kvo8u* pWork) {
    if (pSpec == nullptr) return kvoErrNullPtr;
    if (!specValid(pSpec)) return kvoErrContextMatch;
    if (pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    alignas(64) float local[128];
    float* work = local;
    void* owned = nullptr;
    if (pSpec->workSize > 0) {
        if (pWork != nullptr) {
            work = align64<float>(pWork);
        } else {
            owned = kvosMalloc_8u(pSpec->workSize + 64);
            if (owned == nullptr) return kvoErrMemAlloc;
            work = align64<float>(owned);
        }
    }
    if (Fwd)
        forward<V, F>(pSpec, pSrc, pDst, work);
    else
        inverse<V, F>(pSpec, pSrc, pDst, work);
    if (owned != nullptr) kvosFree(owned);
    return kvoOk;
}

// Fill the tables of an order into the record's memory.
void buildTables(KvoFFTSpec32f* s, const Layout& l) {
    auto* base = reinterpret_cast<Kvo8u*>(s);
    const std::int64_t N = std::int64_t{1} << s->order;
    const std::int64_t M = N / 2;
    s->bitrev = nullptr;
    s->twiddle = nullptr;
    s->recomb = nullptr;
    if (M >= 4) {
        auto* rev = reinterpret_cast<Kvo32s*>(base + l.bitrevOff);
        const int p = s->order - 1;
        for (std::int64_t m = 0; m < M; ++m) {
            std::int64_t r = 0;
            for (int b = 0; b < p; ++b) r |= ((m >> b) & 1) << (p - 1 - b);
            rev[m] = static_cast<Kvo32s>(r);
        }
        s->bitrev = rev;
        auto* tw = reinterpret_cast<Kvo32f*>(base + l.twOff);
        s->twiddle = tw;
        std::int64_t L = 4;
        double c, sn;
        while (4 * L <= M) {
            for (int q = 1; q <= 3; ++q) {
                for (std::int64_t j = 0; j < L; ++j) {
                    cosSin(q * j, 4 * L, c, sn);
                    tw[2 * (q - 1) * L + j] = static_cast<float>(c);
                    tw[(2 * (q - 1) + 1) * L + j] = static_cast<float>(-sn);
                }
            }
            tw += 6 * L;
            L *= 4;
        }
        if (L < M) {
            for (std::int64_t j = 0; j < L; ++j) {
                cosSin(j, 2 * L, c, sn);
                tw[j] = static_cast<float>(c);
                tw[L + j] = static_cast<float>(-sn);
            }
        }
    }
    if (M >= 2) {
        auto* cs = reinterpret_cast<Kvo32f*>(base + l.recOff);
        const std::int64_t K = M / 2 + 1;
        double c, sn;
        for (std::int64_t k = 0; k < K; ++k) {
            cosSin(k, N, c, sn);
            cs[k] = static_cast<float>(c);
            cs[K + k] = static_cast<float>(sn);
        }
        s->recomb = cs;
    }
}

}  // namespace

// ---- size query, init, release -----------------------------------------------------------

KvoStatus kvosFFTGetSize_R_32f(Kvo32s order, Kvo32s flag, Kvo32s hint, Kvo32s* pSpecSize,
                               Kvo32s* pInitSize, Kvo32s* pWorkSize) {
    if (static_cast<Kvo32u>(order) > 30u) return kvoErrFftOrder;
    if (pSpecSize == nullptr || pInitSize == nullptr || pWorkSize == nullptr) return kvoErrNullPtr;
    if (!flagValid(flag)) return kvoErrFftFlag;
    if (order > kMaxOrder) return kvoErrFftOrder;
    const Layout l = layoutFor(order);
    const std::int64_t fftSpec = l.recordBytes + 64;
    const std::int64_t work = l.workBytes > 0 ? l.workBytes + 64 : 0;
    // The sizes travel as signed 32-bit counts: an order whose tables do not fit is refused.
    if (fftSpec > INT32_MAX || work > INT32_MAX) return kvoErrFftOrder;
    *pSpecSize = static_cast<Kvo32s>(fftSpec);
    *pInitSize = order > 10 ? 64 : 0;
    *pWorkSize = static_cast<Kvo32s>(work);
    return kvoOk;
}

KvoStatus kvosFFTInit_R_32f(KvoFFTSpec32f** ppSpec, Kvo32s order, Kvo32s flag, Kvo32s hint,
                            Kvo8u* pMem, Kvo8u* pInitBuf) {
    if (ppSpec == nullptr) return kvoErrNullPtr;
    if (static_cast<Kvo32u>(order) > static_cast<Kvo32u>(kMaxOrder)) return kvoErrFftOrder;
    if (pMem == nullptr || (order > 10 && pInitBuf == nullptr)) return kvoErrNullPtr;
    if (!flagValid(flag)) return kvoErrFftFlag;
    const Layout l = layoutFor(order);
    if (l.recordBytes + 64 > INT32_MAX) return kvoErrFftOrder;
    auto* s = align64<KvoFFTSpec32f>(pMem);
    std::memset(s, 0, sizeof(*s));
    s->order = order;
    s->hint = hint;
    s->fwdScaled = (flag == 1 || flag == 4) ? 1 : 0;
    s->invScaled = (flag == 2 || flag == 4) ? 1 : 0;
    const double n = std::ldexp(1.0, order);
    s->factor = flag == 4 ? static_cast<float>(1.0 / std::sqrt(n))
                          : (flag == 8 ? 1.0f : static_cast<float>(1.0 / n));
    s->workSize = static_cast<Kvo32s>(l.workBytes);
    s->allocBase = nullptr;
    buildTables(s, l);
    s->self = s;
    s->idTag = kFftSpec32fTag;
    *ppSpec = s;
    return kvoOk;
}

KvoStatus kvosFFTInitAlloc_R_32f(KvoFFTSpec32f** ppSpec, Kvo32s order, Kvo32s flag, Kvo32s hint) {
    if (ppSpec == nullptr) return kvoErrNullPtr;
    if (static_cast<Kvo32u>(order) > static_cast<Kvo32u>(kMaxOrder)) return kvoErrFftOrder;
    if (!flagValid(flag)) return kvoErrFftFlag;
    Kvo32s specSize = 0, initSize = 0, workSize = 0;
    KvoStatus st = kvosFFTGetSize_R_32f(order, flag, hint, &specSize, &initSize, &workSize);
    if (st != kvoOk) return st;
    auto* mem = static_cast<Kvo8u*>(kvosMalloc_8u(specSize));
    if (mem == nullptr) return kvoErrMemAlloc;
    Kvo8u* init = nullptr;
    if (initSize > 0) {
        init = static_cast<Kvo8u*>(kvosMalloc_8u(initSize));
        if (init == nullptr) {
            kvosFree(mem);
            return kvoErrMemAlloc;
        }
    }
    KvoFFTSpec32f* s = nullptr;
    st = kvosFFTInit_R_32f(&s, order, flag, hint, mem, init);
    if (init != nullptr) kvosFree(init);
    if (st != kvoOk) {
        kvosFree(mem);
        return st;
    }
    s->allocBase = mem;
    *ppSpec = s;
    return kvoOk;
}

KvoStatus kvosFFTFree_R_32f(KvoFFTSpec32f* pSpec) {
    if (pSpec == nullptr) return kvoErrNullPtr;
    if (!specValid(pSpec)) return kvoErrContextMatch;
    pSpec->idTag = 0;
    pSpec->self = nullptr;
    void* base = pSpec->allocBase;
    pSpec->allocBase = nullptr;
    if (base != nullptr) kvosFree(base);
    return kvoOk;
}

KvoStatus kvosFFTGetBufSize_R_32f(const KvoFFTSpec32f* pSpec, Kvo32s* pWorkSize) {
    if (pSpec == nullptr || pWorkSize == nullptr) return kvoErrNullPtr;
    if (!specValid(pSpec)) return kvoErrContextMatch;
    *pWorkSize = pSpec->workSize > 0 ? pSpec->workSize + 64 : 0;
    return kvoOk;
}

// ---- transforms --------------------------------------------------------------------------

KvoStatus kvosFFTFwd_RToCCS_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                Kvo8u* pWork) {
    return transform<true, Fmt::CCS>(pSrc, pDst, pSpec, pWork);
}
KvoStatus kvosFFTFwd_RToPerm_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork) {
    return transform<true, Fmt::Perm>(pSrc, pDst, pSpec, pWork);
}
KvoStatus kvosFFTFwd_RToPack_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork) {
    return transform<true, Fmt::Pack>(pSrc, pDst, pSpec, pWork);
}
KvoStatus kvosFFTInv_CCSToR_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                Kvo8u* pWork) {
    return transform<false, Fmt::CCS>(pSrc, pDst, pSpec, pWork);
}
KvoStatus kvosFFTInv_PackToR_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork) {
    return transform<false, Fmt::Pack>(pSrc, pDst, pSpec, pWork);
}
KvoStatus kvosFFTInv_PermToR_32f(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork) {
    return transform<false, Fmt::Perm>(pSrc, pDst, pSpec, pWork);
}

// ---- scalar twin -------------------------------------------------------------------------

KvoStatus kvosFFTScalarTwin_32f_(const Kvo32f* pSrc, Kvo32f* pDst, const KvoFFTSpec32f* pSpec,
                                 Kvo8u* pWork, Kvo32s forward, Kvo32s format) {
    if (forward) {
        if (format == 0) return transform<true, Fmt::Perm, false>(pSrc, pDst, pSpec, pWork);
        if (format == 1) return transform<true, Fmt::Pack, false>(pSrc, pDst, pSpec, pWork);
        return transform<true, Fmt::CCS, false>(pSrc, pDst, pSpec, pWork);
    }
    if (format == 0) return transform<false, Fmt::Perm, false>(pSrc, pDst, pSpec, pWork);
    if (format == 1) return transform<false, Fmt::Pack, false>(pSrc, pDst, pSpec, pWork);
    return transform<false, Fmt::CCS, false>(pSrc, pDst, pSpec, pWork);
}

}  // namespace kvo
