// G.729 algebraic codebook searches of the 17-bit four-pulse codebook: the
// budgeted nested search of the main body and the depth-first search of
// annex A.
//
// Inputs: the backward-filtered target d (pCorr, 16 bits) and the correlation
// matrix at the 16-bit scale (matrix layout in fcb.h), as 16-bit words or as
// 32-bit words already shifted right by 15.  The matrix blocks are multiplied
// by the sign factors in place.  Outputs: the code vector (pulses 8191 for plus,
// -8192 for minus, Q13) and two index words: the sign bits (bit k for the pulse
// of track k, 1 = plus) and the positions (i0/5 + 8 i1/5 + 64 i2/5 + 512 k3,
// k3 = 2 (i3/5) + (track of i3) - 3).
//
// Arithmetic as the G.729 reference: correlation sums saturate at 16 bits, the
// energy of the main search is kept as the low 16 bits of (sum >> 4), squares
// are 16-bit fractional products, and candidates are compared by strict
// cross-multiplication, so that the first candidate in scan order wins ties.
#include <algorithm>
#include <cstring>

#include "g729/fcb.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int L = kFcbSubframe;


// Signs (32767 / -32768) and magnitudes of d; -32768 gives 32767.
void splitSigns(const Kvo16s* pCorr, Kvo16s* sign, Kvo16s* mag) {
    for (int i = 0; i < L; ++i) {
        const Kvo16s d = pCorr[i];
        if (d >= 0) {
            sign[i] = 32767;
            mag[i] = d;
        } else {
            sign[i] = -32768;
            mag[i] = d == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(-d);
        }
    }
}

template <class T>
struct Blocks {
    T* diag[5];
    T* r[5][5];  // r[t1][t2], t1 < t2
    explicit Blocks(T* m) {
        for (int t = 0; t < 5; ++t) diag[t] = m + 8 * t;
        for (int k = 0; k < 9; ++k)
            r[kFcbPairs[k][0]][kFcbPairs[k][1]] = m + kFcbBlockBase + 64 * k;
    }
};

// The sign factors below are 16-bit fractional products (r f) >> 15 written
// without multiplies: with f = 32768 - c, (r f) >> 15 = r + ((-c r) >> 15).
// Elements are at most 65536 in magnitude (16-bit words, or 32-bit words
// shifted right by 15), so nothing overflows.

// Main-body sign factors: mult(sign_a, sign_b) = 32766 for two plus signs,
// 32767 for two minus signs, -32767 for a mixed pair.
template <class T>
void applySignG729(const Kvo16s* sign, T* m) {
    for (int k = 0; k < 9; ++k) {
        T* b = m + kFcbBlockBase + 64 * k;
        const Kvo16s* s1 = sign + kFcbPairs[k][0];
        const Kvo16s* s2 = sign + kFcbPairs[k][1];
        Kvo32s pb[8];
        for (int j = 0; j < 8; ++j) pb[j] = s2[5 * j] > 0;
        for (int i = 0; i < 8; ++i) {
            const Kvo32s pa = s1[5 * i] > 0;
            T* row = b + 8 * i;
            for (int j = 0; j < 8; ++j) {
                const Kvo32s r = row[j];
                const Kvo32s both = r + ((-2 * r) >> 15);  // 32766
                const Kvo32s none = r + ((-r) >> 15);      // 32767
                const Kvo32s mixed = (r >> 15) - r;        // -32767
                row[j] = static_cast<T>(pa != pb[j] ? mixed : (pa ? both : none));
            }
        }
    }
}

// Annex A / E sign factors on the nine blocks: 32767 for equal signs, -32768
// for opposite ones; mult(-32768, -32768) saturates to 32767.
template <class T>
void applySignA(const Kvo16s* sign, T* m) {
    for (int k = 0; k < 9; ++k) {
        T* b = m + kFcbBlockBase + 64 * k;
        const Kvo16s* s1 = sign + kFcbPairs[k][0];
        const Kvo16s* s2 = sign + kFcbPairs[k][1];
        Kvo32s pb[8];
        for (int j = 0; j < 8; ++j) pb[j] = s2[5 * j] >= 0;
        for (int i = 0; i < 8; ++i) {
            const Kvo32s pa = s1[5 * i] >= 0;
            T* row = b + 8 * i;
            for (int j = 0; j < 8; ++j) {
                const Kvo32s r = row[j];
                const Kvo32s same = r + ((-r) >> 15);
                const Kvo32s neg = r == -32768 ? 32767 : -r;
                row[j] = static_cast<T>(pa == pb[j] ? same : neg);
            }
        }
    }
}

// Code vector and index words common to the main and annex A searches.
void writeCode(const Kvo16s* sign, const int ip[4], Kvo16s* pCode, Kvo16s* pIndex) {
    std::memset(pCode, 0, L * sizeof(Kvo16s));
    int signs = 0;
    for (int k = 0; k < 4; ++k) {
        pCode[ip[k]] = static_cast<Kvo16s>(sign[ip[k]] >> 2);
        if (sign[ip[k]] > 0) signs |= 1 << k;
    }
    const int q3 = ip[3] / 5;
    const int k3 = 2 * q3 + (ip[3] - 5 * q3 - 3);
    pIndex[0] = static_cast<Kvo16s>(signs);
    pIndex[1] = lo16(ip[0] / 5 + 8 * (ip[1] / 5) + 64 * (ip[2] / 5) + 512 * k3);
}

// ---- main body ----------------------------------------------------------------

template <class T>
void searchG729(const Kvo16s* pCorr, T* pMatrix, Kvo16s* pCode, Kvo16s* pIndex,
                Kvo16s* pSearchTimes, bool firstSubframe) {
    alignas(16) Kvo16s sign[L];
    alignas(16) Kvo16s dn[L];
    splitSigns(pCorr, sign, dn);

    // Threshold after three pulses: average + 0.4 (max - average), where the
    // average is 1/8 of the sum of the 24 magnitudes of tracks 0 .. 2 (its
    // low 16 bits) and max the sum of the three track maxima.
    Kvo16s mx[3] = {dn[0], dn[1], dn[2]};
    Kvo32s sum = 0;
    for (int i = 0; i < L; i += 5)
        for (int t = 0; t < 3; ++t) {
            if (dn[i + t] > mx[t]) mx[t] = dn[i + t];
            sum += dn[i + t];
        }
    const Kvo16s average = lo16(sum >> 3);
    const Kvo16s maxSum = add16(add16(mx[0], mx[1]), mx[2]);
    const Kvo16s thres = add16(mult16(sat16(Kvo32s{maxSum} - average), 13107), average);

    applySignG729(sign, pMatrix);
    const Blocks<T> b(pMatrix);
    Kvo32s dt[5][8];
    for (int p = 0; p < L; ++p) dt[p % 5][p / 5] = dn[p];

    Kvo16s time = add16(75, firstSubframe ? 30 : *pSearchTimes);
    int ip[4] = {0, 1, 2, 3};
    Kvo32s psc = 0, alpha = 32767;

    // Energy terms of the last pulse that do not depend on the third pulse:
    // v[t][k] = M(i3,i3) + 2 (M(i0,i3) + M(i1,i3)) for the positions of
    // tracks 3 and 4, built when a pair (i0, i1) first reaches the last loop.
    Kvo32s v[2][8];
    for (int i0 = 0; i0 < 8; ++i0) {
        const Kvo16s ps0 = dn[5 * i0];
        const Kvo32s alp0 = b.diag[0][i0];
        for (int i1 = 0; i1 < 8; ++i1) {
            const Kvo16s ps1 = add16(ps0, dn[1 + 5 * i1]);
            const Kvo32s alp1 = alp0 + b.diag[1][i1] + 2 * Kvo32s{b.r[0][1][8 * i0 + i1]};
            bool haveV = false;
            for (int i2 = 0; i2 < 8; ++i2) {
                const Kvo32s ps2 = add16(ps1, dn[2 + 5 * i2]);
                if (ps2 <= thres) continue;
                const Kvo32s alp2 = alp1 + b.diag[2][i2] +
                                    2 * (Kvo32s{b.r[0][2][8 * i0 + i2]} + b.r[1][2][8 * i1 + i2]);
                if (!haveV) {
                    for (int k = 0; k < 8; ++k) {
                        v[0][k] = b.diag[3][k] +
                                  2 * (Kvo32s{b.r[0][3][8 * i0 + k]} + b.r[1][3][8 * i1 + k]);
                        v[1][k] = b.diag[4][k] +
                                  2 * (Kvo32s{b.r[0][4][8 * i0 + k]} + b.r[1][4][8 * i1 + k]);
                    }
                    haveV = true;
                }
                // All of track 3, then all of track 4.
                for (int t = 0; t < 2; ++t) {
                    const T* r23 = b.r[2][3 + t] + 8 * i2;
                    const Kvo32s* d3 = dt[3 + t];
                    Kvo32s sqv[8], alpv[8];
                    for (int k = 0; k < 8; ++k) {
                        const Kvo32s ps3 = std::min(ps2 + d3[k], 32767);
                        sqv[k] = (ps3 * ps3) >> 15;
                        alpv[k] = lo16((alp2 + v[t][k] + 2 * Kvo32s{r23[k]}) >> 4);
                    }
                    const int w = ownScanBest8(sqv, alpv, psc, alpha);
                    if (w >= 0) {
                        ip[0] = 5 * i0;
                        ip[1] = 1 + 5 * i1;
                        ip[2] = 2 + 5 * i2;
                        ip[3] = 3 + t + 5 * w;
                    }
                }
                time = sat16(Kvo32s{time} - 1);
                if (time <= 0) goto done;
            }
        }
    }
done:
    *pSearchTimes = time;
    writeCode(sign, ip, pCode, pIndex);
}

// ---- annex A --------------------------------------------------------------------

// Best and second-best positions of a track by magnitude; a later position
// replaces either only when strictly above it.
void bestTwo(const Kvo16s* dn, int track, int out[2]) {
    int first = -1, second = -1;
    Kvo32s m1 = -1, m2 = -1;
    for (int p = track; p < L; p += 5) {
        if (dn[p] > m1) {
            second = first;
            m2 = m1;
            first = p;
            m1 = dn[p];
        } else if (dn[p] > m2) {
            second = p;
            m2 = dn[p];
        }
    }
    out[0] = first;
    out[1] = second;
}

// alp * sq2 > sq * alp2: the candidate is strictly better.
constexpr bool better(Kvo32s sq2, Kvo32s alp2, Kvo32s sq, Kvo32s alp) {
    return alp * sq2 > sq * alp2;
}

// One phase-A row: the first pulse a fixed (energy term ea = M(a,a)), the
// second over the eight positions of a track with magnitudes d2, diagonal
// diag2 and cross terms cross[j] = M(a, j-th position).
template <class T>
int phaseA(Kvo32s psA, Kvo32s ea, const Kvo32s* d2, const T* diag2, const Kvo32s* cross, Kvo32s& sq,
           Kvo32s& alp, Kvo32s* ps2v) {
    Kvo32s sqv[8], alpv[8];
    for (int j = 0; j < 8; ++j) {
        ps2v[j] = std::min(psA + d2[j], 32767);
        sqv[j] = (ps2v[j] * ps2v[j]) >> 15;
        alpv[j] = sat16((ea + 2 * cross[j] + diag2[j] + 2) >> 2);
    }
    return ownScanBest8(sqv, alpv, sq, alp);
}

template <class T>
void searchG729A(const Kvo16s* pCorr, T* pMatrix, Kvo16s* pCode, Kvo16s* pIndex) {
    alignas(16) Kvo16s sign[L];
    alignas(16) Kvo16s dn[L];
    splitSigns(pCorr, sign, dn);
    applySignA(sign, pMatrix);
    const Blocks<T> b(pMatrix);
    Kvo32s dt[5][8];
    for (int p = 0; p < L; ++p) dt[p % 5][p / 5] = dn[p];

    int best2[5][2];
    for (int t = 2; t < 5; ++t) bestTwo(dn, t, best2[t]);

    Kvo32s psk = -1, alpk = 1;
    int ip[4] = {0, 1, 2, 3};
    // Winners of the phases; they keep their value when a phase has none.
    int ix = 0, iy = 0;
    Kvo32s ps = 0;

    for (int s = 3; s < 5; ++s) {
        const T* dS = b.diag[s];
        const T* r0s = b.r[0][s];
        const T* r1s = b.r[1][s];
        const T* r2s = b.r[2][s];

        // ---- sub-search 3: tracks 2 and s, then tracks 0 and 1 ----
        Kvo32s sq = -1, alp = 1;
        for (int n = 0; n < 2; ++n) {
            const int a = best2[2][n];
            const int ia = a / 5;
            Kvo32s cross[8], ps2v[8];
            for (int j = 0; j < 8; ++j) cross[j] = r2s[8 * ia + j];
            const int w = phaseA(dn[a], b.diag[2][ia], dt[s], dS, cross, sq, alp, ps2v);
            if (w >= 0) {
                ps = ps2v[w];
                ix = a;
                iy = s + 5 * w;
            }
        }
        {
            const int i0 = ix, i1 = iy;  // tracks 2 and s
            const int j0 = i0 / 5, j1 = i1 / 5;
            const Kvo32s ps0 = ps;
            const Kvo32s alp0 = 4 * alp;
            sq = -1;
            alp = 1;
            // 8 rr(e) + 8 for the positions e of track 1: rr(e) / 8 rounded.
            Kvo32s tmp[8];
            for (int e = 0; e < 8; ++e)
                tmp[e] = 8 * sat16((2 * (Kvo32s{b.r[1][2][8 * e + j0]} + r1s[8 * e + j1]) +
                                    b.diag[1][e] + 4) >>
                                   3) +
                         8;
            for (int c = 0; c < 8; ++c) {
                const Kvo32s ps1 = std::min(ps0 + dt[0][c], 32767);
                const Kvo32s alp1 =
                    alp0 + 2 * (Kvo32s{b.r[0][2][8 * c + j0]} + r0s[8 * c + j1]) + b.diag[0][c];
                const T* r01 = b.r[0][1] + 8 * c;
                Kvo32s sqv[8], alpv[8];
                for (int e = 0; e < 8; ++e) {
                    const Kvo32s ps2 = std::min(ps1 + dt[1][e], 32767);
                    sqv[e] = (ps2 * ps2) >> 15;
                    alpv[e] = sat16((alp1 + 2 * Kvo32s{r01[e]} + tmp[e]) >> 4);
                }
                const int w = ownScanBest8(sqv, alpv, sq, alp);
                if (w >= 0) {
                    ix = 5 * c;
                    iy = 1 + 5 * w;
                }
            }
            if (better(sq, alp, psk, alpk)) {
                psk = sq;
                alpk = alp;
                ip[0] = ix;
                ip[1] = iy;
                ip[2] = i0;
                ip[3] = i1;
            }
        }

        // ---- sub-search 4: tracks s and 0, then tracks 1 and 2 ----
        sq = -1;
        alp = 1;
        for (int n = 0; n < 2; ++n) {
            const int a = best2[s][n];
            const int ia = a / 5;
            Kvo32s cross[8], ps2v[8];
            for (int j = 0; j < 8; ++j) cross[j] = r0s[8 * j + ia];
            const int w = phaseA(dn[a], dS[ia], dt[0], b.diag[0], cross, sq, alp, ps2v);
            if (w >= 0) {
                ps = ps2v[w];
                ix = a;
                iy = 5 * w;
            }
        }
        {
            const int i0 = ix, i1 = iy;  // tracks s and 0
            const int j0 = i0 / 5, j1 = i1 / 5;
            const Kvo32s ps0 = ps;
            const Kvo32s alp0 = 4 * alp;
            sq = -1;
            alp = 1;
            // 8 rr(e) + 8 for the positions e of track 2.
            Kvo32s tmp[8];
            for (int e = 0; e < 8; ++e)
                tmp[e] = 8 * sat16((2 * (Kvo32s{r2s[8 * e + j0]} + b.r[0][2][8 * j1 + e]) +
                                    b.diag[2][e] + 4) >>
                                   3) +
                         8;
            for (int c = 0; c < 8; ++c) {
                const Kvo32s ps1 = std::min(ps0 + dt[1][c], 32767);
                const Kvo32s alp1 =
                    alp0 + 2 * (Kvo32s{r1s[8 * c + j0]} + b.r[0][1][8 * j1 + c]) + b.diag[1][c];
                const T* r12 = b.r[1][2] + 8 * c;
                Kvo32s sqv[8], alpv[8];
                for (int e = 0; e < 8; ++e) {
                    const Kvo32s ps2 = std::min(ps1 + dt[2][e], 32767);
                    sqv[e] = (ps2 * ps2) >> 15;
                    alpv[e] = sat16((alp1 + 2 * Kvo32s{r12[e]} + tmp[e]) >> 4);
                }
                const int w = ownScanBest8(sqv, alpv, sq, alp);
                if (w >= 0) {
                    ix = 1 + 5 * c;
                    iy = 2 + 5 * w;
                }
            }
            if (better(sq, alp, psk, alpk)) {
                psk = sq;
                alpk = alp;
                ip[0] = i1;
                ip[1] = ix;
                ip[2] = iy;
                ip[3] = i0;
            }
        }
    }
    writeCode(sign, ip, pCode, pIndex);
}

}  // namespace

void ownFixedCodebookACorrSign_Opt(const Kvo16s* pSign, Kvo32s* pMatrix) {
    applySignA(pSign, pMatrix);
}

void ownFixedCodebookSearch_G729_32s16s(const Kvo16s* pCorr, Kvo32s* pMatrix, Kvo16s* pCode,
                                        Kvo16s* pIndex, Kvo16s* pSearchTimes, bool firstSubframe) {
    searchG729(pCorr, pMatrix, pCode, pIndex, pSearchTimes, firstSubframe);
}

void ownFixedCodebookSearch_G729_16s(const Kvo16s* pCorr, Kvo16s* pMatrix, Kvo16s* pCode,
                                     Kvo16s* pIndex, Kvo16s* pSearchTimes, bool firstSubframe) {
    searchG729(pCorr, pMatrix, pCode, pIndex, pSearchTimes, firstSubframe);
}

void ownFixedCodebookSearch_G729A_32s16s(const Kvo16s* pCorr, Kvo32s* pMatrix, Kvo16s* pCode,
                                         Kvo16s* pIndex) {
    searchG729A(pCorr, pMatrix, pCode, pIndex);
}

void ownFixedCodebookSearch_G729A_16s(const Kvo16s* pCorr, Kvo16s* pMatrix, Kvo16s* pCode,
                                      Kvo16s* pIndex) {
    searchG729A(pCorr, pMatrix, pCode, pIndex);
}

}  // namespace kvo
