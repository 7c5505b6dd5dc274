// G.729 annex E (11.8 kbit/s) algebraic codebooks: 10 pulses in 35 bits and
// 12 pulses in 44 bits, two or three pulses per track of 8 positions.
//
// Target correlation d: the undoubled correlation of h with the target,
// rounded to 16 bits so that the sum of the five track maxima fits 14 bits.
// Signs follow d weighted with the LTP residual, each normalised by its
// inverse root energy (the energies and the mixed value saturate at 32
// bits).  The search fixes two pulses on the maxima of a start track and its
// neighbour, then adds pairs of pulses on neighbouring tracks, eight by eight
// positions each, the energy of a candidate coming from the correlation of h
// with the pulses already placed; three start tracks are tried.  Arithmetic
// as in the G.729 reference: 16-bit saturating sums of
// correlations and energies, strict cross-multiplied comparisons.
//
// Outputs: code vector (pulses of 4096, Q12, summed on shared positions),
// filtered code vector (h >> 1 placed at each pulse with its sign, saturating,
// in pulse order), five index words (35 bits: one 7-bit word per track; 44
// bits: two 10-bit words of three-pulse tracks, the first with its track in
// bits 10 .. 12, then three 7-bit words).
#include <algorithm>
#include <cstring>

#include "g729/fcb.h"
#include "impl.h"
#include "kernels/corr.h"
#include "numeric/arith.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int L = kFcbSubframe;
constexpr int kIpos[16] = {0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 0, 1, 2, 3, 4, 0};


struct StateE {
    alignas(16) Kvo16s dn[L];
    alignas(16) Kvo32s dt[5][8];  // dn by track
    // Working h and its negation, each behind 40 zeros (h placed at p is
    // hPad + 40 - p).
    alignas(16) Kvo16s hPad[2 * L];
    alignas(16) Kvo16s hNegPad[2 * L];
    alignas(16) Kvo16s sign[L];
    alignas(16) Kvo16s h[L];
    alignas(16) Kvo16s hNeg[L];
    int posMax[5];
    Kvo32s trackVal[5];
    FcbMatrixE m;
};

Kvo32s dot(const Kvo16s* a, const Kvo16s* b) {
    Kvo64s s = 0;
    for (int i = 0; i < L; ++i) s += Kvo32s{a[i]} * b[i];
    return sat32(s);
}

Kvo32s invSqrt(Kvo32s x) {
    impl::kvosInvSqrt_32s_I(&x, 1);
    return x;
}

void prepare(const Kvo16s* pTarget, const Kvo16s* pRes, const Kvo16s* pImp, StateE& st) {
    // d[k] = sum h[i] x[i + k], normalised by the sum of the track maxima.
    alignas(16) Kvo32s d32[L];
    impl::kvosCrossCorr_16s32s_Sfs(pImp, pTarget, L, d32, 0);
    Kvo32s tot = 5;
    for (int t = 0; t < 5; ++t) {
        Kvo32s mx = 0;
        for (int p = t; p < L; p += 5) {
            const Kvo32s a = d32[p] == INT32_MIN ? INT32_MAX : (d32[p] < 0 ? -d32[p] : d32[p]);
            if (a > mx) mx = a;
        }
        tot = Add_32s(tot, mx);
    }
    kvosConvert_NR_32s16s_Sfs_(d32, st.dn, L, 17 - norm32(tot));

    // Inverse root energies of the residual and of d.
    Kvo32s ec = dot(pRes, pRes);
    ec = ec < 256 ? 512 : double32(ec);
    const Kvo32s gc = (Kvo32s{lo16(invSqrt(ec) >> 11)} * 32767) >> 15;
    Kvo32s ed = dot(st.dn, st.dn);
    ed = ed < 256 ? 512 : double32(ed);
    const Kvo32s gd = lo16(invSqrt(ed) >> 11);

    for (int t = 0; t < 5; ++t) {
        st.trackVal[t] = -1;
        st.posMax[t] = t;
    }
    for (int p = 0; p < L; ++p) {
        Kvo32s v = sat32(Kvo64s{gd} * st.dn[p] + Kvo64s{gc} * pRes[p]);
        if (v < 0) {
            st.sign[p] = -32768;
            st.dn[p] = sat16(-Kvo32s{st.dn[p]});
            v = v == INT32_MIN ? INT32_MAX : -v;
        } else {
            st.sign[p] = 32767;
        }
        const int t = p % 5;
        if (v > st.trackVal[t]) {
            st.trackVal[t] = v;
            st.posMax[t] = p;
        }
    }
    kvosToeplizMatrix_G729E_16s_(pImp, st.sign, st.h, st.hNeg, &st.m);
    for (int p = 0; p < L; ++p) st.dt[p % 5][p / 5] = st.dn[p];
    std::fill_n(st.hPad, L, Kvo16s{0});
    std::fill_n(st.hNegPad, L, Kvo16s{0});
    std::memcpy(st.hPad + L, st.h, L * sizeof(Kvo16s));
    std::memcpy(st.hNegPad + L, st.hNeg, L * sizeof(Kvo16s));
}

// Energy terms of the eight positions of a track against the pulses in vec:
// diagonal + sign * round(correlation of h with vec at that position).
void corHVec(const StateE& st, const Kvo16s* vec, int track, Kvo16s* cor) {
    kvosCrossCorr_Step_NR_Sfs_16s_(st.h, vec + track, L - track, 5, cor, 8, 15);
    for (int i = 0; i < 8; ++i)
        cor[i] = add16(mult16(cor[i], st.sign[track + 5 * i]), st.m.diag[track][i]);
}

// Best pair (x, y) of tracks tx and ty = tx + 1 (mod 5) given the pulses fixed
// so far (ps, alp).  A row without a strictly better candidate keeps the
// previous (ix, iy).
void searchPair(const StateE& st, int tx, int ty, const Kvo16s* corX, const Kvo16s* corY,
                Kvo32s& ps, Kvo32s& alp, int& ix, int& iy) {
    const Kvo16s* blk = st.m.blk[tx];
    const Kvo32s* dy = st.dt[ty];
    Kvo32s sqk = -1, alpk = 1;
    for (int i = 0; i < 8; ++i) {
        const int x = tx + 5 * i;
        const Kvo32s ps1 = add16(ps, st.dn[x]);
        const Kvo32s alp1 = add16(alp, corX[i]);
        const Kvo16s* row = blk + 8 * i;
        Kvo32s sqv[8], alpv[8];
        for (int j = 0; j < 8; ++j) {
            const Kvo32s ps2 = add16(ps1, dy[j]);
            alpv[j] = add16(alp1, add16(corY[j], row[j]));
            sqv[j] = mult16(ps2, ps2);
        }
        const int w = ownScanBest8(sqv, alpv, sqk, alpk);
        if (w >= 0) {
            ix = x;
            iy = ty + 5 * w;
        }
    }
    ps = add16(ps, add16(st.dn[ix], st.dn[iy]));
    alp = alpk;
}

// Runs the three start tracks; codvec receives the positions of the best set
// in pulse order and the return value is its start track.
int search(StateE& st, int nPulses, int* codvec) {
    // Start tracks: each track's value joined by its successor's (track 4 by
    // track 0's), saturating; three times the largest (lower track on ties).
    Kvo32s val[5];
    for (int t = 0; t < 5; ++t) val[t] = Add_32s(st.trackVal[t], st.trackVal[(t + 1) % 5]);
    int starts[3];
    for (int k = 0; k < 3; ++k) {
        int best = 0;
        for (int t = 1; t < 5; ++t)
            if (val[t] > val[best]) best = t;
        starts[k] = best;
        val[best] = -1;
    }

    for (int k = 0; k < nPulses; ++k) codvec[k] = k;
    int bestStart = 0;
    Kvo32s psk = -1, alpk = 1;
    for (int n = 0; n < 3; ++n) {
        const int s = starts[n];
        const int* trk = kIpos + s;
        int ip[12];
        int ix = st.posMax[trk[0]], iy = st.posMax[trk[1]];
        Kvo32s ps = add16(st.dn[ix], st.dn[iy]);
        Kvo32s alp = add16(add16(st.m.diag[trk[0]][ix / 5], st.m.diag[trk[1]][iy / 5]),
                           st.m.blk[trk[0]][8 * (ix / 5) + iy / 5]);
        ip[0] = ix;
        ip[1] = iy;

        alignas(16) Kvo16s vec[L] = {};
        for (int j = 2; j < nPulses; j += 2) {
            // Add the two pulses placed last to vec.
            const Kvo16s* hx = (st.sign[ix] < 0 ? st.hNegPad : st.hPad) + L - ix;
            const Kvo16s* hy = (st.sign[iy] < 0 ? st.hNegPad : st.hPad) + L - iy;
            for (int i = 0; i < L; ++i) vec[i] = add16(vec[i], add16(hx[i], hy[i]));
            alignas(16) Kvo16s corX[8], corY[8];
            corHVec(st, vec, trk[j], corX);
            corHVec(st, vec, trk[j + 1], corY);
            searchPair(st, trk[j], trk[j + 1], corX, corY, ps, alp, ix, iy);
            ip[j] = ix;
            ip[j + 1] = iy;
        }

        const Kvo32s sq = mult16(ps, ps);
        if (alpk * sq > psk * alp) {
            psk = sq;
            alpk = alp;
            for (int k = 0; k < nPulses; ++k) codvec[k] = ip[k];
            bestStart = s;
        }
    }
    return bestStart;
}

// Code vectors; q[k] = position / 5, + 8 for a minus pulse.
void buildCode(const StateE& st, const Kvo16s* pImp, const int* codvec, int nPulses, Kvo16s* pCode,
               Kvo16s* pFlt, int* q) {
    alignas(16) Kvo16s h2[L];
    for (int i = 0; i < L; ++i) h2[i] = static_cast<Kvo16s>(pImp[i] >> 1);
    std::memset(pCode, 0, L * sizeof(Kvo16s));
    std::memset(pFlt, 0, L * sizeof(Kvo16s));
    for (int k = 0; k < nPulses; ++k) {
        const int p = codvec[k];
        if (st.sign[p] > 0) {
            pCode[p] = add16(pCode[p], 4096);
            for (int i = p; i < L; ++i) pFlt[i] = add16(pFlt[i], h2[i - p]);
            q[k] = p / 5;
        } else {
            pCode[p] = add16(pCode[p], -4096);
            for (int i = p; i < L; ++i) pFlt[i] = add16(pFlt[i], -Kvo32s{h2[i - p]});
            q[k] = p / 5 + 8;
        }
    }
}

// Two pulses of one track in 7 bits: the order of the two 4-bit codes tells
// the sign of the second.
int packTwo(int a, int b) {
    if ((a ^ b) & 8) return (a & 7) <= (b & 7) ? a + 16 * b : 16 * a + b;
    return a > b ? a + 16 * b : 16 * a + b;
}

// Three pulses of one track in 10 bits.
int packThree(int q0, int q1, int q2) {
    int v[3] = {q0, q1, q2};
    // Sort by 3-bit position (pulses on one position share their sign).
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2 - i; ++j)
            if ((v[j] & 7) > (v[j + 1] & 7)) {
                const int t = v[j];
                v[j] = v[j + 1];
                v[j + 1] = t;
            }
    const int a = v[0], b = v[1], c = v[2];
    switch (((a >> 3) << 2) + ((b >> 3) << 1) + (c >> 3)) {
        case 0:
        case 7:
            return c + ((b & 7) << 4) + ((a & 7) << 7);
        case 1:
        case 6:
            return b + ((a & 7) << 4) + ((c & 7) << 7);
        case 2:
        case 5:
            return c + ((a & 7) << 4) + ((b & 7) << 7);
        default:
            return a + ((c & 7) << 4) + ((b & 7) << 7);
    }
}

void searchE(const Kvo16s* pTarget, const Kvo16s* pRes, const Kvo16s* pImp, Kvo16s* pCode,
             Kvo16s* pFlt, Kvo16s* pIndex, int nPulses) {
    StateE st;
    prepare(pTarget, pRes, pImp, st);
    int codvec[12];
    const int s = search(st, nPulses, codvec);
    int q[12];
    buildCode(st, pImp, codvec, nPulses, pCode, pFlt, q);

    // Pulse k belongs to track (s + k) mod 5.
    if (nPulses == 10) {
        for (int k = 0; k < 5; ++k)
            pIndex[(s + k) % 5] = static_cast<Kvo16s>(packTwo(q[k], q[k + 5]) & 127);
    } else {
        pIndex[0] = static_cast<Kvo16s>(packThree(q[0], q[5], q[10]) + (s << 10));
        pIndex[1] = static_cast<Kvo16s>(packThree(q[1], q[6], q[11]));
        for (int k = 2; k < 5; ++k) pIndex[k] = static_cast<Kvo16s>(packTwo(q[k], q[k + 5]) & 127);
    }
}

}  // namespace

void ownACELP_10i40_35bits_16s(const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                               const Kvo16s* pImpulse, Kvo16s* pCode, Kvo16s* pFltCode,
                               Kvo16s* pIndex) {
    searchE(pTarget, pLtpResidual, pImpulse, pCode, pFltCode, pIndex, 10);
}

void ownACELP_12i40_44bits_16s(const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                               const Kvo16s* pImpulse, Kvo16s* pCode, Kvo16s* pFltCode,
                               Kvo16s* pIndex) {
    searchE(pTarget, pLtpResidual, pImpulse, pCode, pFltCode, pIndex, 12);
}

}  // namespace kvo
