// AMR-WB algebraic (fixed) codebook, 3GPP TS 26.190 fixed point, also the ACELP modes of
// AMR-WB+: one subframe of 64 positions at 12.8 kHz.
//  - the 2-track design of 6.60 kbit/s (2 pulses, exhaustive search over 32 x 32 pairs);
//  - the 4-track designs (track = position & 3) with the depth-first search of pulse pairs,
//    2 to 24 pulses, and the pulse indexing of 1 to 6 pulses per track.
// Data: target and LTP residual Q0 as the caller scales them, impulse response Q12; the code
// vector carries pulses of +-512 (Q9), halved in the search when the response is strong and
// 12 or more pulses are used; the filtered code is the rounded eighth of the summed shifted
// responses.  Index words: see encodeWords().
// Every sum follows the reference arithmetic: 16-bit adds saturate (the fixed pulses are summed
// in pairs, then the pairs added; the 2-track filtered output is saturated before its rounding
// shift), correlation tables come from saturating running sums along the diagonals.
#include <cstring>

#include "amrwb/codebook.h"
#include "frame/impl.h"
#include "kernels/corr.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {
namespace {

constexpr int kSub = 64;
constexpr int kPosTrack = 16;

// Search parameters of one mode.
struct SearchParams {
    int nbiter;
    Kvo16s alp;
    int pulses;
    int fixed;  // pulses fixed before the pair stages
    int stages;
    Kvo16s nbpos[10];
    int forced;  // place in the track list of the two pulses forced to tracks 0 and 1, or -1
};

const SearchParams kParams[] = {
    {4, 8192, 4, 0, 2, {4, 8}, -1},                            // 20 bits
    {4, 6144, 6, 0, 3, {4, 8, 8}, 4},                          // 28 bits
    {4, 4096, 8, 2, 3, {4, 8, 8}, -1},                         // 36 bits
    {4, 4096, 10, 2, 4, {4, 6, 8, 8}, 8},                      // 44 bits
    {4, 4096, 12, 4, 4, {4, 6, 8, 8}, -1},                     // 52 bits
    {3, 3277, 16, 4, 6, {4, 4, 6, 6, 8, 8}, -1},               // 64 bits
    {3, 3072, 18, 4, 7, {2, 3, 4, 5, 6, 7, 8}, 16},            // 72 bits
    {2, 2048, 24, 4, 10, {2, 2, 3, 4, 5, 6, 7, 8, 8, 8}, -1},  // 88 bits
    {1, 2048, 24, 4, 10, {2, 2, 3, 4, 5, 6, 7, 8, 8, 8}, -1},  // 88 bits, one round
};

// Track order of the search rounds: round k reads from place 4 k.
constexpr Kvo16s kTipos[16] = {0, 1, 2, 3, 1, 2, 3, 0, 2, 3, 0, 1, 3, 0, 1, 2};

const SearchParams* paramsOf(CbLayout l, KvoSpeechRate mode) {
    switch (l) {
        case CbLayout::P4:
            return &kParams[0];
        case CbLayout::P6:
            return &kParams[1];
        case CbLayout::P8:
            return &kParams[2];
        case CbLayout::P10:
            return &kParams[3];
        case CbLayout::P12:
            return &kParams[4];
        case CbLayout::P16:
            return &kParams[5];
        case CbLayout::P18:
            return &kParams[6];
        case CbLayout::P24:
            return mode == 21 ? &kParams[8] : &kParams[7];
        default:
            return nullptr;
    }
}

// Fractional dot product 2 sum x y plus 1, saturated, normalised: mantissa and exponent 30 - n.
Kvo32s dot12(const Kvo16s* x, const Kvo16s* y, int n, Kvo16s* exp) {
    Kvo64s s = 0;
    for (int i = 0; i < n; ++i) s += Kvo32s{x[i]} * y[i];
    Kvo32s v = sat32(2 * s + 1);
    const int sh = norm32(v);
    v = shl_wrap(v, sh);
    *exp = static_cast<Kvo16s>(30 - sh);
    return v;
}

// round16 of the inverse root of a normalised energy, shifted by exp + extra.
Kvo16s invRootScale(Kvo32s v, Kvo16s e, int extra) {
    ownInvSqrt_32s16s_I(&v, &e);
    const int sh = e + extra;
    v = sh >= 0 ? ShiftLSat_32s(v, sh) : (v >> (-sh > 31 ? 31 : -sh));
    return round16(v);
}

// Backward-filtered target: dn[p] = sum x[n] h[n - p], normalised over the four tracks.
void backwardFilter(const Kvo16s* h, const Kvo16s* x, Kvo16s* dn) {
    Kvo32s y[kSub];
    Kvo32s tot = 1;
    for (int t = 0; t < 4; ++t) {
        Kvo32s mx = 0;
        for (int p = t; p < kSub; p += 4) {
            const Kvo64s s = corrDotExact(x + p, h, kSub - p);
            y[p] = Add_32s(sat32(2 * s), 1);
            const Kvo32s a = Abs_32s(y[p]);
            if (a > mx) mx = a;
        }
        tot = Add_32s(tot, mx >> 2);
        tot = Add_32s(tot, mx >> 3);
    }
    const int n = norm32(tot);
    kvosConvert_NR_32s16s_Sfs_(y, dn, kSub, 20 - n);
}

// Signs from the mix of the normalised residual and backward-filtered target; dn becomes
// non-negative, dn2 holds |mix|.
void chooseSigns(const Kvo16s* cn, Kvo16s* dn, Kvo16s alp, Kvo16s* sign, Kvo16s* vec, Kvo16s* dn2) {
    Kvo16s e;
    Kvo32s s = dot12(cn, cn, kSub, &e);
    const Kvo16s kcn = invRootScale(s, e, 5);
    s = dot12(dn, dn, kSub, &e);
    Kvo16s kdn = invRootScale(s, e, 8);
    kdn = static_cast<Kvo16s>(mulQ15R(alp, kdn));
    for (int p = 0; p < kSub; ++p) {
        Kvo32s m = FMul_16s32s(kcn, cn[p]);
        m = FMac_16s32s(m, kdn, dn[p]);
        const Kvo16s v = hi(ShiftL_32s(m, 8));
        if (v < 0) {
            sign[p] = -32768;
            vec[p] = 32767;
            dn[p] = Neg_16s(dn[p]);
        } else {
            sign[p] = 32767;
            vec[p] = -32768;
        }
        dn2[p] = Abs_16s(v);
    }
}

// Correlation tables of the response with itself: diag[p][q] for p <= q is the high half of
// the saturating running sum, from `start`, of 2 h[n] h[n + q - p] for n = 0 .. 63 - q.
// fill(p, q, value) receives every pair.
template <class F>
void diagonalSums(const Kvo16s* h, Kvo32s start, F fill) {
    // Below 0x3fffffff for the doubled energy no partial sum can saturate (Cauchy-Schwarz):
    // plain 32-bit sums then give the same tables.
    const bool plain = 2 * corrDotExact(h, h, kSub) < 0x3fffffff - 65536;
    for (int d = 0; d < kSub; ++d) {
        Kvo32s cor = start;
        for (int n = 0; n + d < kSub; ++n) {
            cor = plain ? cor + 2 * Kvo32s{h[n]} * h[n + d] : FMac_16s32s(cor, h[n], h[n + d]);
            const int q = kSub - 1 - n;
            fill(q - d, q, cor);
        }
    }
}

// The impulse-response buffer: 64 zeros, h, 64 zeros, -h.  A pulse at p with its sign has the
// response (s >= 0 ? h : -h) - p.
struct HBuf {
    alignas(16) Kvo16s b[4 * kSub];
    const Kvo16s* h() const { return b + kSub; }
    const Kvo16s* hinv() const { return b + 3 * kSub; }
    const Kvo16s* resp(int p, Kvo16s s) const { return (s >= 0 ? h() : hinv()) - p; }
    void set(const Kvo16s* src, int shift) {
        std::memset(b, 0, sizeof b);
        for (int i = 0; i < kSub; ++i) {
            b[kSub + i] = static_cast<Kvo16s>(src[i] >> shift);
            b[3 * kSub + i] = Neg_16s(b[kSub + i]);
        }
    }
};

// ---- 2-track search of 6.60 kbit/s -----------------------------------------------------

void search2t(const Kvo16s* x, const Kvo16s* cn, const Kvo16s* hsrc, Kvo16s* code, Kvo16s* y,
              Kvo16s* index) {
    Kvo16s dn[kSub], dn2[kSub], sign[kSub], vec[kSub];
    backwardFilter(hsrc, x, dn);
    chooseSigns(cn, dn, 8192, sign, vec, dn2);
    HBuf hb;
    hb.set(hsrc, 0);
    const Kvo16s* h = hb.h();

    Kvo16s rrixix[kSub];  // by position
    Kvo16s rrixiy[32][32];
    {
        Kvo32s cor = 65536;
        for (int n = 0; n < kSub; ++n) {
            cor = FMac_16s32s(cor, h[n], h[n]);
            rrixix[kSub - 1 - n] = static_cast<Kvo16s>(cor >> 17);
        }
    }
    diagonalSums(h, 32768, [&](int p, int q, Kvo32s v) {
        if ((p & 1) == 0 && (q & 1) == 1)
            rrixiy[p >> 1][q >> 1] = hi(v);
        else if ((p & 1) == 1 && (q & 1) == 0)
            rrixiy[q >> 1][p >> 1] = hi(v);
    });

    Kvo16s psk = -1, alpk = 1;
    int ix = 0, iy = 1;
    for (int i0 = 0; i0 < kSub; i0 += 2) {
        const Kvo16s* s = sign[i0] >= 0 ? sign : vec;
        Kvo16s row[32];
        for (int j = 0; j < 32; ++j) row[j] = mult16(rrixiy[i0 >> 1][j], s[2 * j + 1]);
        const Kvo16s ps1 = dn[i0];
        const Kvo16s alp1 = rrixix[i0];
        int pos = -1;
        for (int j = 0; j < 32; ++j) {
            const int i1 = 2 * j + 1;
            const Kvo16s ps2 = add16(ps1, dn[i1]);
            const Kvo16s alp2 = add16(alp1, add16(rrixix[i1], row[j]));
            const Kvo16s sq = static_cast<Kvo16s>(mulQ15(ps2, ps2));
            if (Kvo32s{alpk} * sq > Kvo32s{psk} * alp2) {
                psk = sq;
                alpk = alp2;
                pos = i1;
            }
        }
        if (pos >= 0) {
            ix = i0;
            iy = pos;
        }
    }

    std::memset(code, 0, kSub * sizeof(Kvo16s));
    int i0 = ix >> 1, i1 = iy >> 1;
    if (sign[ix] > 0) {
        code[ix] = 512;
    } else {
        code[ix] = -512;
        i0 += 32;
    }
    if (sign[iy] > 0) {
        code[iy] = 512;
    } else {
        code[iy] = -512;
        i1 += 32;
    }
    index[0] = static_cast<Kvo16s>((i0 << 6) + i1);
    const Kvo16s* p0 = hb.resp(ix, sign[ix]);
    const Kvo16s* p1 = hb.resp(iy, sign[iy]);
    for (int n = 0; n < kSub; ++n) y[n] = static_cast<Kvo16s>((add16(p0[n], p1[n]) + 4) >> 3);
}

// ---- 4-track search ---------------------------------------------------------------------

struct Tables4 {
    Kvo16s rrixix[4][kPosTrack];
    Kvo32s rrixiy[4][kPosTrack * kPosTrack];  // track t place i with track t + 1 place j
};

// Correlation of each place of `track` with the pulses fixed so far (vec).
void corrImpVec(const Kvo16s* h, const Kvo16s* vec, int track, const Kvo16s* sign,
                const Tables4& tb, Kvo16s* cor) {
    for (int i = 0; i < kPosTrack; ++i) {
        const int p = track + 4 * i;
        const Kvo64s s = corrDotExact(h, vec + p, kSub - p);
        const Kvo16s c = round16(sat32(4 * s));
        cor[i] = add16(tb.rrixix[track][i], mult16(c, sign[p]));
    }
}

// Best pair of the stage: q candidates of track tx (by dn2 rank), all places of ty.
void searchPair(int q, int tx, int ty, Kvo16s* ps, Kvo16s* alp, int* ix, int* iy, const Kvo16s* dn,
                const Kvo16s* dn2, const Kvo16s* corx, const Kvo16s* cory, const Tables4& tb) {
    const Kvo16s thres = static_cast<Kvo16s>(q - 8);
    const Kvo32s alp0 = Add_32s(Kvo32s{*alp} * 65536, 32768);
    Kvo16s sqk = -1, alpk = 1;
    int xs = tx, ys = ty;
    const Kvo32s* rr = tb.rrixiy[tx];
    for (int i = 0; i < kPosTrack; ++i) {
        const int x = tx + 4 * i;
        if (dn2[x] >= thres) continue;
        const Kvo16s ps1 = add16(*ps, dn[x]);
        const Kvo32s alp1 = Add_32s(alp0, corx[i] * 8192);
        int pos = -1;
        for (int j = 0; j < kPosTrack; ++j) {
            const int y = ty + 4 * j;
            const Kvo16s ps2 = add16(ps1, dn[y]);
            Kvo32s a2 = Add_32s(alp1, cory[j] * 8192);
            a2 = Add_32s(a2, rr[16 * i + j] * 16384);
            const Kvo16s alp2 = hi(a2);
            const Kvo16s sq = static_cast<Kvo16s>(mulQ15(ps2, ps2));
            if (Kvo32s{alpk} * sq > Kvo32s{sqk} * alp2) {
                sqk = sq;
                alpk = alp2;
                pos = y;
            }
        }
        if (pos >= 0) {
            xs = x;
            ys = pos;
        }
    }
    *ps = add16(*ps, add16(dn[xs], dn[ys]));
    *alp = alpk;
    *ix = xs;
    *iy = ys;
}

void search4t(const Kvo16s* x, const Kvo16s* cn, const Kvo16s* H, Kvo16s* code, Kvo16s* y,
              const SearchParams& prm, int* ind /* 4 x 6 */, int* nbInTrack) {
    Kvo16s dn[kSub], dn2[kSub], sign[kSub], vecs[kSub];
    backwardFilter(H, x, dn);
    chooseSigns(cn, dn, prm.alp, sign, vecs, dn2);

    // Candidates: 8 best of dn2 per track, marked k - 8.
    int posMax[4];
    for (int t = 0; t < 4; ++t) {
        for (int k = 0; k < 8; ++k) {
            Kvo16s best = -1;
            int pos = t;
            for (int p = t; p < kSub; p += 4) {
                if (dn2[p] > best) {
                    best = dn2[p];
                    pos = p;
                }
            }
            dn2[pos] = static_cast<Kvo16s>(k - 8);
            if (k == 0) posMax[t] = pos;
        }
    }

    const Kvo64s e = corrDotExact(H, H, kSub);
    const int hshift = (prm.pulses >= 12 && hi(sat32(2 * e)) > 1024) ? 1 : 0;
    HBuf hb;
    hb.set(H, hshift);
    const Kvo16s* h = hb.h();

    Tables4 tb;
    {
        Kvo32s cor = 32768;
        for (int n = 0; n < kSub; ++n) {
            cor = FMac_16s32s(cor, h[n], h[n]);
            const int p = kSub - 1 - n;
            tb.rrixix[p & 3][p >> 2] = hi(cor);
        }
    }
    diagonalSums(h, 32768, [&](int p, int q, Kvo32s v) {
        const int tp = p & 3, tq = q & 3;
        if (tq == ((tp + 1) & 3))
            tb.rrixiy[tp][16 * (p >> 2) + (q >> 2)] = hi(v);
        else if (tp == ((tq + 1) & 3))
            tb.rrixiy[tq][16 * (q >> 2) + (p >> 2)] = hi(v);
    });
    for (int t = 0; t < 4; ++t) {
        const int tn = (t + 1) & 3;
        for (int i = 0; i < kPosTrack; ++i) {
            const Kvo16s* s = sign[t + 4 * i] >= 0 ? sign : vecs;
            for (int j = 0; j < kPosTrack; ++j) {
                Kvo32s& r = tb.rrixiy[t][16 * i + j];
                r = mult16(static_cast<Kvo16s>(r), s[tn + 4 * j]);
            }
        }
    }

    Kvo16s psk = -1, alpk = 1;
    int codvec[24] = {};
    Kvo16s best[kSub] = {};
    for (int k = 0; k < prm.nbiter; ++k) {
        int ipos[36];
        for (int i = 0; i < prm.pulses; ++i) ipos[i] = kTipos[(4 * k + i) & 15];
        if (prm.forced >= 0) {
            ipos[prm.forced] = 0;
            ipos[prm.forced + 1] = 1;
        }
        int indk[24];
        Kvo16s ps, alp, vec[kSub];
        if (prm.fixed == 0) {
            ps = 0;
            alp = 0;
            std::memset(vec, 0, sizeof vec);
        } else if (prm.fixed == 2) {
            const int ix = posMax[ipos[0]], iy = posMax[ipos[1]];
            indk[0] = ix;
            indk[1] = iy;
            ps = add16(dn[ix], dn[iy]);
            const int i = ix >> 2, j = iy >> 2;
            Kvo32s s = FMul_16s32s(tb.rrixix[ipos[0]][i], 4096);
            s = FMac_16s32s(s, tb.rrixix[ipos[1]][j], 4096);
            s = FMac_16s32s(s, static_cast<Kvo16s>(tb.rrixiy[ipos[0]][16 * i + j]), 8192);
            alp = round16(s);
            const Kvo16s* p0 = hb.resp(ix, sign[ix]);
            const Kvo16s* p1 = hb.resp(iy, sign[iy]);
            for (int n = 0; n < kSub; ++n) vec[n] = add16(p0[n], p1[n]);
        } else {
            int f[4];
            for (int m = 0; m < 4; ++m) indk[m] = f[m] = posMax[ipos[m]];
            ps = add16(add16(add16(dn[f[0]], dn[f[1]]), dn[f[2]]), dn[f[3]]);
            const Kvo16s* p0 = hb.resp(f[0], sign[f[0]]);
            const Kvo16s* p1 = hb.resp(f[1], sign[f[1]]);
            const Kvo16s* p2 = hb.resp(f[2], sign[f[2]]);
            const Kvo16s* p3 = hb.resp(f[3], sign[f[3]]);
            Kvo32s s = 0;
            for (int n = 0; n < kSub; ++n) {
                vec[n] = add16(add16(p0[n], p1[n]), add16(p2[n], p3[n]));
                s = FMac_16s32s(s, vec[n], vec[n]);
            }
            alp = round16(s >> 3);
        }
        for (int j = prm.fixed, st = 0; j < prm.pulses; j += 2, ++st) {
            Kvo16s corx[kPosTrack], cory[kPosTrack];
            corrImpVec(h, vec, ipos[j], sign, tb, corx);
            corrImpVec(h, vec, ipos[j + 1], sign, tb, cory);
            int ix, iy;
            searchPair(prm.nbpos[st], ipos[j], ipos[j + 1], &ps, &alp, &ix, &iy, dn, dn2, corx,
                       cory, tb);
            indk[j] = ix;
            indk[j + 1] = iy;
            const Kvo16s* p0 = hb.resp(ix, sign[ix]);
            const Kvo16s* p1 = hb.resp(iy, sign[iy]);
            for (int n = 0; n < kSub; ++n) vec[n] = add16(vec[n], add16(p0[n], p1[n]));
        }
        const Kvo16s sq = static_cast<Kvo16s>(mulQ15(ps, ps));
        if (Kvo32s{alpk} * sq > Kvo32s{psk} * alp) {
            psk = sq;
            alpk = alp;
            for (int i = 0; i < prm.pulses; ++i) codvec[i] = indk[i];
            std::memcpy(best, vec, sizeof vec);
        }
    }

    for (int n = 0; n < kSub; ++n) y[n] = static_cast<Kvo16s>((best[n] + 4) >> 3);
    std::memset(code, 0, kSub * sizeof(Kvo16s));
    const Kvo16s amp = static_cast<Kvo16s>(512 >> hshift);
    for (int t = 0; t < 4; ++t) nbInTrack[t] = 0;
    for (int i = 0; i < 24; ++i) ind[i] = -1;
    for (int k = 0; k < prm.pulses; ++k) {
        const int p = codvec[k];
        int entry = p >> 2;
        if (sign[p] > 0) {
            code[p] = add16(code[p], amp);
        } else {
            code[p] = add16(code[p], -amp);
            entry += kPosTrack;
        }
        const int t = p & 3;
        ind[6 * t + nbInTrack[t]++] = entry;
    }
}

// ---- pulse indexing (entries: place, plus 16 for a negative pulse) ---------------------------

constexpr int kSignBit = 16;

Kvo32s q1p(int pos, int n) {
    Kvo32s i = pos & ((1 << n) - 1);
    if (pos & kSignBit) i += 1 << n;
    return i;
}
Kvo32s q2p(int p1, int p2, int n) {
    const int mask = (1 << n) - 1;
    Kvo32s i;
    if (((p1 ^ p2) & kSignBit) == 0) {
        i = p1 <= p2 ? ((p1 & mask) << n) + (p2 & mask) : ((p2 & mask) << n) + (p1 & mask);
        if (p1 & kSignBit) i += 1 << (2 * n);
    } else if ((p1 & mask) <= (p2 & mask)) {
        i = ((p2 & mask) << n) + (p1 & mask);
        if (p2 & kSignBit) i += 1 << (2 * n);
    } else {
        i = ((p1 & mask) << n) + (p2 & mask);
        if (p1 & kSignBit) i += 1 << (2 * n);
    }
    return i;
}
Kvo32s q3p(int p1, int p2, int p3, int n) {
    const int nb = 1 << (n - 1);
    Kvo32s i;
    if (((p1 ^ p2) & nb) == 0) {
        i = q2p(p1, p2, n - 1) + ((p1 & nb) << n) + (q1p(p3, n) << (2 * n));
    } else if (((p1 ^ p3) & nb) == 0) {
        i = q2p(p1, p3, n - 1) + ((p1 & nb) << n) + (q1p(p2, n) << (2 * n));
    } else {
        i = q2p(p2, p3, n - 1) + ((p2 & nb) << n) + (q1p(p1, n) << (2 * n));
    }
    return i;
}
Kvo32s q4pN1(int p1, int p2, int p3, int p4, int n) {
    const int nb = 1 << (n - 1);
    Kvo32s i;
    if (((p1 ^ p2) & nb) == 0) {
        i = q2p(p1, p2, n - 1) + ((p1 & nb) << n) + (q2p(p3, p4, n) << (2 * n));
    } else if (((p1 ^ p3) & nb) == 0) {
        i = q2p(p1, p3, n - 1) + ((p1 & nb) << n) + (q2p(p2, p4, n) << (2 * n));
    } else {
        i = q2p(p2, p3, n - 1) + ((p2 & nb) << n) + (q2p(p1, p4, n) << (2 * n));
    }
    return i;
}
// Splits by bit n - 1 of the place: a gets the entries with it clear.
int splitAB(const int* pos, int cnt, int n, int* a, int* b) {
    const int nb = 1 << (n - 1);
    int na = 0, nbb = 0;
    for (int k = 0; k < cnt; ++k) {
        if (pos[k] & nb)
            b[nbb++] = pos[k];
        else
            a[na++] = pos[k];
    }
    return na;
}
Kvo32s q4p(const int* pos, int n) {
    int a[4], b[4];
    const int na = splitAB(pos, 4, n, a, b);
    const int n1 = n - 1;
    Kvo32s i = 0;
    switch (na) {
        case 0:
            i = (Kvo32s{1} << (4 * n - 3)) + q4pN1(b[0], b[1], b[2], b[3], n1);
            break;
        case 1:
            i = (q1p(a[0], n1) << (3 * n1 + 1)) + q3p(b[0], b[1], b[2], n1);
            break;
        case 2:
            i = (q2p(a[0], a[1], n1) << (2 * n1 + 1)) + q2p(b[0], b[1], n1);
            break;
        case 3:
            i = (q3p(a[0], a[1], a[2], n1) << n) + q1p(b[0], n1);
            break;
        default:
            i = q4pN1(a[0], a[1], a[2], a[3], n1);
            break;
    }
    return i + ((na & 3) << (4 * n - 2));
}
Kvo32s q5p(const int* pos, int n) {
    int a[5], b[5];
    const int na = splitAB(pos, 5, n, a, b);
    const int n1 = n - 1;
    const Kvo32s flag = Kvo32s{1} << (5 * n - 1);
    const int sh = 2 * n + 1;
    switch (na) {
        case 0:
            return flag + (q3p(b[0], b[1], b[2], n1) << sh) + q2p(b[3], b[4], n);
        case 1:
            return flag + (q3p(b[0], b[1], b[2], n1) << sh) + q2p(b[3], a[0], n);
        case 2:
            return flag + (q3p(b[0], b[1], b[2], n1) << sh) + q2p(a[0], a[1], n);
        case 3:
            return (q3p(a[0], a[1], a[2], n1) << sh) + q2p(b[0], b[1], n);
        case 4:
            return (q3p(a[0], a[1], a[2], n1) << sh) + q2p(a[3], b[0], n);
        default:
            return (q3p(a[0], a[1], a[2], n1) << sh) + q2p(a[3], a[4], n);
    }
}
Kvo32s q6p(const int* pos, int n) {
    int a[6], b[6];
    const int na = splitAB(pos, 6, n, a, b);
    const int n1 = n - 1;
    const Kvo32s flag = Kvo32s{1} << (6 * n - 5);
    Kvo32s i;
    int cls = na;
    switch (na) {
        case 0:
            i = flag + (q5p(b, n1) << n) + q1p(b[5], n1);
            break;
        case 1:
            i = flag + (q5p(b, n1) << n) + q1p(a[0], n1);
            break;
        case 2:
            i = flag + (q4p(b, n1) << (2 * n1 + 1)) + q2p(a[0], a[1], n1);
            break;
        case 3:
            i = (q3p(a[0], a[1], a[2], n1) << (3 * n1 + 1)) + q3p(b[0], b[1], b[2], n1);
            break;
        case 4:
            cls = 2;
            i = (q4p(a, n1) << (2 * n1 + 1)) + q2p(b[0], b[1], n1);
            break;
        case 5:
            cls = 1;
            i = (q5p(a, n1) << n) + q1p(b[0], n1);
            break;
        default:
            cls = 0;
            i = (q5p(a, n1) << n) + q1p(a[5], n1);
            break;
    }
    return i + ((cls & 3) << (6 * n - 4));
}

// ---- pulse decoding (entries returned as place within the track, plus 16 if negative) -------

void d1p(Kvo32s idx, int n, int off, int* pos) {
    int p = (idx & ((1 << n) - 1)) + off;
    if ((idx >> n) & 1) p += kSignBit;
    pos[0] = p;
}
void d2p(Kvo32s idx, int n, int off, int* pos) {
    const int mask = (1 << n) - 1;
    int p1 = ((idx >> n) & mask) + off;
    int p2 = (idx & mask) + off;
    const int s = (idx >> (2 * n)) & 1;
    if (p2 < p1) {
        if (s)
            p1 += kSignBit;
        else
            p2 += kSignBit;
    } else if (s) {
        p1 += kSignBit;
        p2 += kSignBit;
    }
    pos[0] = p1;
    pos[1] = p2;
}
void d3p(Kvo32s idx, int n, int off, int* pos) {
    int j = off;
    if ((idx >> (2 * n - 1)) & 1) j += 1 << (n - 1);
    d2p(idx & ((1 << (2 * n - 1)) - 1), n - 1, j, pos);
    d1p((idx >> (2 * n)) & ((1 << (n + 1)) - 1), n, off, pos + 2);
}
void d4pN1(Kvo32s idx, int n, int off, int* pos) {
    int j = off;
    if ((idx >> (2 * n - 1)) & 1) j += 1 << (n - 1);
    d2p(idx & ((1 << (2 * n - 1)) - 1), n - 1, j, pos);
    d2p((idx >> (2 * n)) & ((1 << (2 * n + 1)) - 1), n, off, pos + 2);
}
void d4p(Kvo32s idx, int n, int off, int* pos) {
    const int n1 = n - 1;
    const int j = off + (1 << n1);
    switch ((idx >> (4 * n - 2)) & 3) {
        case 0:
            d4pN1(idx, n1, ((idx >> (4 * n1 + 1)) & 1) ? j : off, pos);
            break;
        case 1:
            d1p(idx >> (3 * n1 + 1), n1, off, pos);
            d3p(idx, n1, j, pos + 1);
            break;
        case 2:
            d2p(idx >> (2 * n1 + 1), n1, off, pos);
            d2p(idx, n1, j, pos + 2);
            break;
        default:
            d3p(idx >> (n1 + 1), n1, off, pos);
            d1p(idx, n1, j, pos + 3);
            break;
    }
}
void d5p(Kvo32s idx, int n, int off, int* pos) {
    const int n1 = n - 1;
    const int j = off + (1 << n1);
    const Kvo32s top = idx >> (2 * n + 1);
    d3p(top, n1, ((idx >> (5 * n - 1)) & 1) ? j : off, pos);
    d2p(idx, n, off, pos + 3);
}
void d6p(Kvo32s idx, int n, int off, int* pos) {
    const int n1 = n - 1;
    const int j = off + (1 << n1);
    int offA = j, offB = j;
    if (((idx >> (6 * n - 5)) & 1) == 0)
        offA = off;
    else
        offB = off;
    switch ((idx >> (6 * n - 4)) & 3) {
        case 0:
            d5p(idx >> n, n1, offA, pos);
            d1p(idx, n1, offA, pos + 5);
            break;
        case 1:
            d5p(idx >> n, n1, offA, pos);
            d1p(idx, n1, offB, pos + 5);
            break;
        case 2:
            d4p(idx >> (2 * n1 + 1), n1, offA, pos);
            d2p(idx, n1, offB, pos + 4);
            break;
        default:
            d3p(idx >> (3 * n1 + 1), n1, off, pos);
            d3p(idx, n1, j, pos + 3);
            break;
    }
}

inline Kvo32s w(const Kvo16s* words, int k, int bits) {
    return static_cast<Kvo32s>(static_cast<Kvo16u>(words[k]) & ((1u << bits) - 1));
}

}  // namespace

CbLayout cbLayout(KvoSpeechRate mode) {
    switch (mode) {
        case 5:
        case 25:
            return CbLayout::P2;
        case 9:
        case 26:
            return CbLayout::P4;
        case 27:
            return CbLayout::P6;
        case 13:
        case 28:
            return CbLayout::P8;
        case 15:
        case 29:
            return CbLayout::P10;
        case 16:
        case 30:
            return CbLayout::P12;
        case 18:
        case 31:
            return CbLayout::P16;
        case 19:
        case 32:
            return CbLayout::P18;
        case 20:
        case 21:
        case 22:
            return CbLayout::P24;
        default:
            return CbLayout::Invalid;
    }
}

int cbWordCount(CbLayout l) {
    switch (l) {
        case CbLayout::P2:
            return 1;
        case CbLayout::P16:
        case CbLayout::P18:
        case CbLayout::P24:
            return 8;
        case CbLayout::Invalid:
            return 0;
        default:
            return 4;
    }
}

void cbEncodeWords(CbLayout l, const int* ind, Kvo16s* W) {
    for (int t = 0; t < 4; ++t) {
        const int* e = ind + 6 * t;
        Kvo32s I;
        switch (l) {
            case CbLayout::P4:
                W[t] = static_cast<Kvo16s>(e[0]);
                break;
            case CbLayout::P6:
                W[t] = static_cast<Kvo16s>(t < 2 ? q2p(e[0], e[1], 4) : e[0]);
                break;
            case CbLayout::P8:
                W[t] = static_cast<Kvo16s>(q2p(e[0], e[1], 4));
                break;
            case CbLayout::P10:
                W[t] = static_cast<Kvo16s>(t < 2 ? q3p(e[0], e[1], e[2], 4) : q2p(e[0], e[1], 4));
                break;
            case CbLayout::P12:
                W[t] = static_cast<Kvo16s>(q3p(e[0], e[1], e[2], 4));
                break;
            case CbLayout::P16:
                I = q4p(e, 4);
                W[t] = static_cast<Kvo16s>(I >> 14);
                W[t + 4] = static_cast<Kvo16s>(I & 0x3fff);
                break;
            case CbLayout::P18:
                if (t < 2) {
                    I = q5p(e, 4);
                    W[t] = static_cast<Kvo16s>((I >> 10) & 0x3ff);
                    W[t + 4] = static_cast<Kvo16s>(I & 0x3ff);
                } else {
                    I = q4p(e, 4);
                    W[t] = static_cast<Kvo16s>(I >> 14);
                    W[t + 4] = static_cast<Kvo16s>(I & 0x3fff);
                }
                break;
            case CbLayout::P24:
                I = q6p(e, 4);
                W[t] = static_cast<Kvo16s>((I >> 11) & 0x7ff);
                W[t + 4] = static_cast<Kvo16s>(I & 0x7ff);
                break;
            default:
                break;
        }
    }
}

void cbDecodeWords(CbLayout l, const Kvo16s* W, Kvo16s* code) {
    std::memset(code, 0, kSub * sizeof(Kvo16s));
    if (l == CbLayout::P2) {
        const Kvo32s v = w(W, 0, 12);
        const int p0 = 2 * ((v >> 6) & 31), p1 = 2 * (v & 31) + 1;
        code[p0] = (v >> 11) & 1 ? -512 : 512;
        code[p1] = (v >> 5) & 1 ? -512 : 512;
        return;
    }
    for (int t = 0; t < 4; ++t) {
        int pos[6];
        int n = 0;
        switch (l) {
            case CbLayout::P4:
                d1p(w(W, t, 5), 4, 0, pos), n = 1;
                break;
            case CbLayout::P6:
                if (t < 2)
                    d2p(w(W, t, 9), 4, 0, pos), n = 2;
                else
                    d1p(w(W, t, 5), 4, 0, pos), n = 1;
                break;
            case CbLayout::P8:
                d2p(w(W, t, 9), 4, 0, pos), n = 2;
                break;
            case CbLayout::P10:
                if (t < 2)
                    d3p(w(W, t, 13), 4, 0, pos), n = 3;
                else
                    d2p(w(W, t, 9), 4, 0, pos), n = 2;
                break;
            case CbLayout::P12:
                d3p(w(W, t, 13), 4, 0, pos), n = 3;
                break;
            case CbLayout::P16:
                d4p((w(W, t, 2) << 14) + w(W, t + 4, 14), 4, 0, pos), n = 4;
                break;
            case CbLayout::P18:
                if (t < 2)
                    d5p((w(W, t, 10) << 10) + w(W, t + 4, 10), 4, 0, pos), n = 5;
                else
                    d4p((w(W, t, 2) << 14) + w(W, t + 4, 14), 4, 0, pos), n = 4;
                break;
            case CbLayout::P24:
                d6p((w(W, t, 11) << 11) + w(W, t + 4, 11), 4, 0, pos), n = 6;
                break;
            default:
                break;
        }
        for (int k = 0; k < n; ++k) {
            const int p = ((pos[k] & 15) << 2) + t;
            code[p] = add16(code[p], (pos[k] & kSignBit) ? -512 : 512);
        }
    }
}

void cbSearch(CbLayout l, KvoSpeechRate mode, const Kvo16s* x, const Kvo16s* cn, const Kvo16s* h,
              Kvo16s* code, Kvo16s* y, Kvo16s* W) {
    if (l == CbLayout::P2) {
        search2t(x, cn, h, code, y, W);
        return;
    }
    int ind[24], cnt[4];
    search4t(x, cn, h, code, y, *paramsOf(l, mode), ind, cnt);
    cbEncodeWords(l, ind, W);
}

namespace impl {

KvoStatus kvosAlgebraicCodebookSearch_AMRWB_16s(const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                                                const Kvo16s* pImpulse, Kvo16s* pDstCode,
                                                Kvo16s* pDstFiltered, KvoSpeechRate mode,
                                                Kvo16s* pDstIndices) {
    if (!pTarget || !pLtpResidual || !pImpulse || !pDstCode || !pDstFiltered || !pDstIndices)
        return kvoErrNullPtr;
    const CbLayout l = cbLayout(mode);
    if (l == CbLayout::Invalid) return kvoErrRange;
    Kvo16s code[kSub], y[kSub], W[8] = {};
    cbSearch(l, mode, pTarget, pLtpResidual, pImpulse, code, y, W);
    std::memcpy(pDstCode, code, sizeof code);
    std::memcpy(pDstFiltered, y, sizeof y);
    std::memcpy(pDstIndices, W, cbWordCount(l) * sizeof(Kvo16s));
    return kvoOk;
}

KvoStatus kvosAlgebraicCodebookDecode_AMRWB_16s(const Kvo16s* pSrcIndices, Kvo16s* pDstCode,
                                                KvoSpeechRate mode) {
    if (!pSrcIndices || !pDstCode) return kvoErrNullPtr;
    const CbLayout l = cbLayout(mode);
    if (l == CbLayout::Invalid) return kvoErrRange;
    Kvo16s code[kSub];
    cbDecodeWords(l, pSrcIndices, code);
    std::memcpy(pDstCode, code, sizeof code);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
