// The 128-point real FFT of GSM AMR VAD option 2 (TS 26.094), 16-bit fixed
// point, in place, result in Perm order: x[0] = X[0], x[1] = X[64], then
// (Re X[k], Im X[k]) at x[2k], x[2k+1] for k = 1 .. 63.
//
// Scaling: the 64-point complex FFT of z[m] = x[2m] + j x[2m+1] halves after
// every radix-2 stage (Z = DFT64(z) / 64); the unpacking then gives
// X[k] = DFT128(x)[k] / 64 for every bin.  Outputs saturate: a bin of the
// scaled transform beyond 16 bits is clipped.
//
// Complex stages (decimation in time after the bit reversal): the twiddle
// product t = y W, W = (cos, -sin) from twd_tbl, is formed as the doubled
// saturating product sum and rounded to 16 bits, i.e. (a b + c d + 16384)
// >> 15 saturated; top and bottom become sat16(x + t) >> 1 and
// sat16(x - t) >> 1.
//
// Unpacking, derived from X[k] = (E + W128^k O) / 2 with
//   E = Z[k] + conj Z[64-k],  O = -j (Z[k] - conj Z[64-k]),
// and X[64-k] = conj(E - W128^k O) / 2.  With Z[k] = (a, b), Z[64-k] = (c, d)
// the 16-bit terms are saturated sums: Er = a + c, Ei = b - d, Or = b + d,
// Oi = c - a.  Each output is (term << 16) plus the doubled twiddle products,
// saturated at every step, shifted right by 1 and rounded to 16 bits, which
// is ((term << 15) + u v + ... + 32768) >> 16:
//   Re X[k]    = Er + Or cos_k - Oi sin'_k      (cos_k, sin'_k = row k)
//   Im X[k]    = Ei + Oi cos_k + Or sin'_k
//   Re X[64-k] = Er + Or cos_j + Oi sin'_j      (row j = 64 - k)
//   Im X[64-k] = -Ei - Oi cos_j + Or sin'_j
// for k = 1 .. 32 (bin 32 is written twice with the same value).
#include "gsmamr/gsmamr_lp_tables.h"
#include "gsmamr/lp_private.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr Kvo32s mac(Kvo32s acc, Kvo32s a, Kvo32s b) {
    return sat32(Kvo64s{acc} + 2 * (Kvo64s{a} * b));
}

// Rounded 16-bit value of a doubled 32-bit sum halved: round16(L >> 1).
constexpr Kvo16s roundHalf(Kvo32s l) {
    return round16(l >> 1);
}

}  // namespace

void ownFFTFwd_RToPerm_GSMAMR(Kvo16s* x) {
    for (const auto& p : tab::bitrevTab) {
        const int a = 2 * p[0], b = 2 * p[1];
        const Kvo16s r = x[a], i = x[a + 1];
        x[a] = x[b];
        x[a + 1] = x[b + 1];
        x[b] = r;
        x[b + 1] = i;
    }
    for (int s = 0; s < 6; ++s) {
        const int half = 1 << s;
        const int step = tab::ii_table[s];
        for (int j = 0; j < half; ++j) {
            const Kvo32s wr = tab::twd_tbl[j * step][0];
            const Kvo32s wi = tab::twd_tbl[j * step][1];
            for (int t = j; t < 64; t += 2 * half) {
                Kvo16s* top = x + 2 * t;
                Kvo16s* bot = x + 2 * (t + half);
                const Kvo32s yr = bot[0], yi = bot[1];
                const Kvo16s tr = round16(mac(mac(0, yr, wr), -yi, wi));
                const Kvo16s ti = round16(mac(mac(0, yi, wr), yr, wi));
                const Kvo32s xr = top[0], xi = top[1];
                bot[0] = static_cast<Kvo16s>(sat16(xr - tr) >> 1);
                bot[1] = static_cast<Kvo16s>(sat16(xi - ti) >> 1);
                top[0] = static_cast<Kvo16s>(sat16(xr + tr) >> 1);
                top[1] = static_cast<Kvo16s>(sat16(xi + ti) >> 1);
            }
        }
    }
    const Kvo32s d0 = x[0], d1 = x[1];
    x[0] = sat16(d0 + d1);
    x[1] = sat16(d0 - d1);
    for (int k = 1; k <= 32; ++k) {
        const int j = 64 - k;
        const Kvo32s a = x[2 * k], b = x[2 * k + 1], c = x[2 * j], d = x[2 * j + 1];
        const Kvo32s er = sat16(a + c), ei = sat16(b - d);
        const Kvo32s orr = sat16(b + d), oi = sat16(c - a);
        const Kvo32s ck = tab::twd_tbl[k][0], sk = tab::twd_tbl[k][1];
        const Kvo32s cj = tab::twd_tbl[j][0], sj = tab::twd_tbl[j][1];
        const Kvo32s eR = er * 65536, eI = ei * 65536;
        const Kvo16s rk = roundHalf(mac(mac(eR, orr, ck), -oi, sk));
        const Kvo16s ik = roundHalf(mac(mac(eI, oi, ck), orr, sk));
        const Kvo16s rj = roundHalf(mac(mac(eR, orr, cj), oi, sj));
        const Kvo16s ij = roundHalf(mac(mac(Neg_32s(eI), -oi, cj), orr, sj));
        x[2 * k] = rk;
        x[2 * k + 1] = ik;
        x[2 * j] = rj;
        x[2 * j + 1] = ij;
    }
}

namespace impl {

KvoStatus kvosFFTFwd_RToPerm_GSMAMR_16s_I(Kvo16s* pSrcDst) {
    if (!pSrcDst) return kvoErrNullPtr;
    ownFFTFwd_RToPerm_GSMAMR(pSrcDst);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
