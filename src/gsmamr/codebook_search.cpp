// GSM AMR algebraic codebook search (TS 26.090 fixed-point arithmetic), one 40-sample
// subframe: pitch sharpening of the impulse response, target correlation d (Q0 in 32 bits,
// narrowed to 16 bits), signs, the sign-folded correlation matrix of the response, the pulse
// search of the mode, index words, code vector (Q13 pulses, Q12 in 12.2) and filtered code
// vector.
//
// Arithmetic follows the reference's saturating basic operations: the sharpening gain is
// doubled with saturation in every mode; the sign weights k_c, k_d of 10.2 and 12.2 are the
// inverse roots shifted with saturation (a small energy gives 32767) and the combined
// correlation en is rounded with saturation; the filtered code vector is the saturating chain of
// doubled products, rounded.  The 6.70 / 7.40 / 7.95 inner levels hand on ps = 0, alp = 1 when
// no candidate beats their fresh start; a zero target therefore selects the first candidate in
// scan order (not the default pulses).  The 12.2 index words keep the sign bit in words 0-4
// only; words 5-9 are the Gray code of the position index alone.
//
// Deviation of layout only: the full 40 x 40 sign-folded matrix is computed for every mode
// (its entries equal those of the per-mode block kernels).
#include <algorithm>
#include <cstring>

#include "frame/impl.h"
#include "gsmamr/codebook.h"
#include "numeric/fixed.h"

namespace kvo {
namespace amr {

namespace {

constexpr int L = kSubfr;

struct Work {
    Kvo16s h[L];      // sharpened impulse response
    Kvo16s d[L];      // correlation (magnitude in modes 0..8)
    Kvo16s sign[L];   // +-32767
    Kvo16s en[L];     // 10.2 / 12.2: combined sign criterion (magnitude)
    Kvo16s rr[L][L];  // sign-folded correlation matrix of the response
};

// sq of a 16-bit sum: mult(ps, ps).
inline Kvo16s sqOf(Kvo16s ps) {
    return sat16(mulQ15(ps, ps));
}

// Candidate (sq, alp) beats (sqk, alpk): sq alpk > sqk alp.
inline bool beats(Kvo16s sq, Kvo16s alp, Kvo16s sqk, Kvo16s alpk) {
    return Kvo64s{sq} * alpk > Kvo64s{sqk} * alp;
}

// Correlation of the target with the response, normalisation to 16 bits: the doubled
// correlations are saturating chains, tot = 5 + the sum of each track's largest magnitude,
// and d is the doubled value shifted by norm(tot) - sf (saturating), rounded.  In range this is
// the plain correlation narrowed with rounding by sf - norm + 15 bits.
void targetCorrelation(Work& w, const Kvo16s* x, int tracks, int sf) {
    Kvo32s y32[L];
    Kvo32s tot = 5;
    Kvo64s mx16 = 0, sh = 0;
    for (int i = 0; i < L; ++i) {
        mx16 = std::max<Kvo64s>(mx16, x[i] < 0 ? -Kvo64s{x[i]} : x[i]);
        sh += w.h[i] < 0 ? -Kvo64s{w.h[i]} : w.h[i];
    }
    const bool plain = 2 * mx16 * sh <= INT32_MAX;  // no partial sum can saturate
    for (int t = 0; t < tracks; ++t) {
        Kvo32s mx = 0;
        for (int i = t; i < L; i += tracks) {
            Kvo32s s = 0;
            if (plain) {
                for (int j = i; j < L; ++j) s += Kvo32s{x[j]} * w.h[j - i];
                s *= 2;
            } else {
                for (int j = i; j < L; ++j) s = FMac_16s32s(s, x[j], w.h[j - i]);
            }
            y32[i] = s;
            const Kvo32s a = Abs_32s(s);
            if (a > mx) mx = a;
        }
        tot = Add_32s(tot, mx >> 1);
    }
    const int j = norm32(tot) - sf;
    for (int i = 0; i < L; ++i) w.d[i] = round16(j >= 0 ? ShiftL_32s(y32[i], j) : y32[i] >> -j);
}

// The sign-folded correlation matrix rr[i][j] = sign_i sign_j sum h2[k] h2[k + |i-j|].
void correlationMatrix(Work& w) {
    Kvo16s h2[L];
    Kvo64s e = 0;
    for (int i = 0; i < L; ++i) e += Kvo32s{w.h[i]} * w.h[i];
    const Kvo32s s = sat32(2 * e + 2);
    if ((s >> 16) == 32767) {
        for (int i = 0; i < L; ++i) h2[i] = static_cast<Kvo16s>(w.h[i] >> 1);
    } else {
        Kvo32s v = s >> 1;
        impl::kvosInvSqrt_32s_I(&v, 1);
        const Kvo16s k0 = v >= (1 << 24) ? Kvo16s{32767} : static_cast<Kvo16s>(v >> 9);
        const Kvo16s k = static_cast<Kvo16s>(mulQ15(k0, 32440));
        for (int i = 0; i < L; ++i) h2[i] = sat16((Kvo32s{w.h[i]} * k + 32) >> 6);
    }
    // Every running sum of h2[k] h2[k + dec] is bounded by the energy of h2: when twice that
    // fits 32 bits the chains are plain sums.
    Kvo64s e2 = 0;
    for (int i = 0; i < L; ++i) e2 += Kvo32s{h2[i]} * h2[i];
    const bool plain = 2 * e2 <= INT32_MAX;
    auto mac = [plain](Kvo32s acc, Kvo16s a, Kvo16s b) {
        return plain ? acc + 2 * (Kvo32s{a} * b) : FMac_16s32s(acc, a, b);
    };
    // Diagonal.
    Kvo32s acc = 0;
    for (int k = 0; k < L; ++k) {
        acc = mac(acc, h2[k], h2[k]);
        w.rr[L - 1 - k][L - 1 - k] = round16(acc);
    }
    // Off-diagonal, by distance.
    for (int dec = 1; dec < L; ++dec) {
        acc = 0;
        for (int k = 0; k + dec < L; ++k) {
            acc = mac(acc, h2[k], h2[k + dec]);
            const int j = L - 1 - k, i = j - dec;
            const Kvo16s r = round16(acc);
            const Kvo16s sgn = static_cast<Kvo16s>(mulQ15(w.sign[i], w.sign[j]));
            const Kvo16s v = sat16(mulQ15(r, sgn));
            w.rr[i][j] = v;
            w.rr[j][i] = v;
        }
    }
}

// Signs from d alone (modes 0 .. 8): d becomes its magnitude.
void signsFromTarget(Work& w) {
    for (int i = 0; i < L; ++i) {
        if (w.d[i] >= 0) {
            w.sign[i] = 32767;
        } else {
            w.sign[i] = -32767;
            w.d[i] = Neg_16s(w.d[i]);
        }
    }
}

// Signs of 10.2 / 12.2 from the LTP residual and d; en holds the criterion magnitudes.
void signsFromResidual(Work& w, const Kvo16s* res) {
    auto weight = [](const Kvo16s* v) {
        Kvo64s e = 0;
        for (int i = 0; i < L; ++i) e += Kvo32s{v[i]} * v[i];
        Kvo32s s = e >= 0x3FFFFF7F ? INT32_MAX : static_cast<Kvo32s>(2 * e + 256);
        impl::kvosInvSqrt_32s_I(&s, 1);
        return s >= (1 << 26) ? Kvo16s{32767} : static_cast<Kvo16s>(s >> 11);
    };
    const Kvo16s kc = weight(res);
    const Kvo16s kd = weight(w.d);
    for (int i = 0; i < L; ++i) {
        Kvo16s val = w.d[i];
        Kvo32s s = FMac_16s32s(FMul_16s32s(kc, res[i]), kd, val);
        Kvo16s cor = round16(ShiftL_32s(s, 10));
        if (cor >= 0) {
            w.sign[i] = 32767;
        } else {
            w.sign[i] = -32767;
            cor = Neg_16s(cor);
            val = Neg_16s(val);
        }
        w.d[i] = val;
        w.en[i] = cor;
    }
}

// Filtered code vector of the low-rate modes and 10.2: saturating sum of doubled products.
void filteredCode(const Kvo16s* h, const int* pos, const Kvo16s* s, int n, Kvo16s* y) {
    for (int i = 0; i < L; ++i) {
        Kvo32s acc = 0;
        for (int k = 0; k < n; ++k)
            if (pos[k] <= i) acc = FMac_16s32s(acc, h[i - pos[k]], s[k]);
        y[i] = round16(acc);
    }
}

// ---- searches of the 2-pulse modes -------------------------------------------------------

// One pair of tracks, candidate against the running best.
void searchPair(const Work& w, int ta, int tb, bool satPs, Kvo16s& psk, Kvo16s& alpk, int* best) {
    for (int x = ta; x < L; x += 5) {
        for (int y = tb; y < L; y += 5) {
            const Kvo16s ps = satPs ? add16(w.d[x], w.d[y]) : static_cast<Kvo16s>(w.d[x] + w.d[y]);
            const Kvo32s a = (Kvo32s{w.rr[y][y]} + w.rr[x][x] + 2 * Kvo32s{w.rr[x][y]} + 2) >> 2;
            const Kvo16s alp = sat16(a);
            const Kvo16s sq = sqOf(ps);
            if (beats(sq, alp, psk, alpk)) {
                psk = sq;
                alpk = alp;
                best[0] = x;
                best[1] = y;
            }
        }
    }
}

// ---- searches of 6.70, 7.40, 7.95 ---------------------------------------------------------

void pruneCandidates(const Work& w, Kvo16s* d2, int removed) {
    std::memcpy(d2, w.d, sizeof(w.d));
    int pos = 0;
    for (int t = 0; t < 5; ++t) {
        if (t == 0) pos = 0;
        for (int k = 0; k < removed; ++k) {
            Kvo16s mn = 0x7fff;
            for (int j = t; j < L; j += 5) {
                if (d2[j] >= 0 && d2[j] < mn) {
                    mn = d2[j];
                    pos = j;
                }
            }
            d2[pos] = -1;
        }
    }
}

void searchMulti(const Work& w, int pulses, int* best) {
    Kvo16s d2[L];
    pruneCandidates(w, d2, pulses == 3 ? 2 : 4);
    for (int k = 0; k < pulses; ++k) best[k] = k;
    Kvo16s psk = -1, alpk = 1;
    const int sets = pulses == 3 ? 12 : 8;
    for (int s = 0; s < sets; ++s) {
        int tr[4];
        for (int k = 0; k < pulses; ++k)
            tr[k] = pulses == 3 ? kStartPosR67[k][s] : kStartPosR74[k][s];
        for (int i0 = tr[0]; i0 < L; i0 += 5) {
            if (d2[i0] < 0) continue;
            const Kvo16s ps0 = w.d[i0];
            // Level 1: second pulse.
            Kvo16s sq1 = -1, a1 = 1, ps1 = 0;
            int i1 = tr[1];
            for (int x = tr[1]; x < L; x += 5) {
                const Kvo16s ps = add16(ps0, w.d[x]);
                const Kvo16s alp =
                    sat16((Kvo32s{w.rr[x][x]} + 2 * Kvo32s{w.rr[i0][x]} + w.rr[i0][i0] + 2) >> 2);
                const Kvo16s sq = sqOf(ps);
                if (beats(sq, alp, sq1, a1)) {
                    sq1 = sq;
                    a1 = alp;
                    ps1 = ps;
                    i1 = x;
                }
            }
            // Level 2: third pulse.
            Kvo16s sq2 = -1, a2 = 1, ps2 = 0;
            int i2 = tr[2];
            for (int x = tr[2]; x < L; x += 5) {
                const Kvo16s ps = add16(ps1, w.d[x]);
                const Kvo16s alp = sat16((Kvo32s{w.rr[x][x]} + (Kvo32s{a1} << 2) +
                                          2 * (Kvo32s{w.rr[i0][x]} + w.rr[i1][x]) + 8) >>
                                         4);
                const Kvo16s sq = sqOf(ps);
                if (pulses == 3) {
                    if (beats(sq, alp, psk, alpk)) {
                        psk = sq;
                        alpk = alp;
                        best[0] = i0;
                        best[1] = i1;
                        best[2] = x;
                    }
                } else if (beats(sq, alp, sq2, a2)) {
                    sq2 = sq;
                    a2 = alp;
                    ps2 = ps;
                    i2 = x;
                }
            }
            if (pulses == 3) continue;
            // Level 3: fourth pulse, against the overall best.
            for (int x = tr[3]; x < L; x += 5) {
                const Kvo16s ps = add16(ps2, w.d[x]);
                const Kvo16s alp =
                    sat16((Kvo32s{w.rr[x][x]} + (Kvo32s{a2} << 4) +
                           2 * (Kvo32s{w.rr[i0][x]} + w.rr[i1][x] + w.rr[i2][x]) + 8) >>
                          4);
                const Kvo16s sq = sqOf(ps);
                if (beats(sq, alp, psk, alpk)) {
                    psk = sq;
                    alpk = alp;
                    best[0] = i0;
                    best[1] = i1;
                    best[2] = i2;
                    best[3] = x;
                }
            }
        }
    }
}

// ---- searches of 10.2 and 12.2 ------------------------------------------------------------

void searchPairs(const Work& w, int T, int* best) {
    const int pulses = 2 * T;
    const int rounds = T == 4 ? 3 : 4;
    // Positions of the best criterion in each track, and the track with the largest.
    int posMax[5] = {0, 0, 0, 0, 0};
    int ipos[10];
    Kvo16s maxAll = -1;
    for (int t = 0; t < T; ++t) {
        Kvo16s mx = -1;
        for (int j = t; j < L; j += T) {
            if (w.en[j] > mx) {
                mx = w.en[j];
                posMax[t] = j;
            }
        }
        if (mx > maxAll) {
            maxAll = mx;
            ipos[0] = t;
        }
    }
    for (int j = 1; j < T; ++j) ipos[j] = (ipos[0] + j) % T;
    for (int j = 0; j < T; ++j) ipos[j + T] = ipos[j];

    for (int k = 0; k < pulses; ++k) best[k] = k;
    Kvo16s psk = -1, alpk = 1;
    for (int r = 0; r < rounds; ++r) {
        int cur[10];
        cur[0] = posMax[ipos[0]];
        cur[1] = posMax[ipos[1]];
        Kvo16s ps = add16(w.d[cur[0]], w.d[cur[1]]);
        const Kvo64s A = (Kvo64s{w.rr[cur[0]][cur[0]]} + w.rr[cur[1]][cur[1]]) * 4096 +
                         Kvo64s{w.rr[cur[0]][cur[1]]} * 8192;
        Kvo16s alpPrev = 0, sqLev = -1, alpLev = 1;
        const int levels = T - 1;
        for (int lev = 1; lev <= levels; ++lev) {
            const int tx = ipos[2 * lev], ty = ipos[2 * lev + 1];
            const int nfix = 2 * lev;
            Kvo64s Ax[10], Ay[10];
            Kvo16s psx[10];
            int n = 0;
            for (int x = tx; x < L; x += T, ++n) {
                Kvo64s C = 0;
                for (int q = 0; q < nfix; ++q) C += w.rr[x][cur[q]];
                const Kvo64s D = w.rr[x][x];
                switch (lev) {
                    case 1:
                        Ax[n] = C * 8192 + D * 4096 + A;
                        break;
                    case 2:
                        Ax[n] = C * 4096 + D * 2048 + Kvo64s{alpPrev} * 32768;
                        break;
                    case 3:
                        Ax[n] = C * 2048 + D * 1024 + Kvo64s{alpPrev} * 32768;
                        break;
                    default:
                        Ax[n] = C * 1024 + D * 512 + Kvo64s{alpPrev} * 32768;
                        break;
                }
                psx[n] = add16(ps, w.d[x]);
            }
            n = 0;
            for (int y = ty; y < L; y += T, ++n) {
                Kvo64s C = 0;
                for (int q = 0; q < nfix; ++q) C += w.rr[y][cur[q]];
                const Kvo64s D = w.rr[y][y];
                switch (lev) {
                    case 1:
                        Ay[n] = ((C * 8192 + D * 4096 + 16384) >> 15) * 32768;
                        break;
                    case 2:
                        Ay[n] = ((C + (D >> 1) + 2) & -4) * 4096;
                        break;
                    case 3:
                        Ay[n] = ((C + (D >> 1) + 4) & -8) * 2048;
                        break;
                    default:
                        Ay[n] = ((C + (D >> 1) + 4) & -8) * 1024;
                        break;
                }
            }
            const int sh = 14 - lev;  // 13, 12, 11, 10
            const int rs = lev + 2;   // 3, 4, 5, 6
            const Kvo64s rnd = Kvo64s{1} << (rs - 1);
            Kvo16s sqk = -1, ak = 1;
            int bx = tx, by = ty;
            int nx = 0;
            for (int x = tx; x < L; x += T, ++nx) {
                int ny = 0;
                for (int y = ty; y < L; y += T, ++ny) {
                    const Kvo16s ps2 = add16(psx[nx], w.d[y]);
                    const Kvo16s alp =
                        sat16((Kvo64s{w.rr[x][y]} + ((Ax[nx] + Ay[ny]) >> sh) + rnd) >> rs);
                    const Kvo16s sq = sqOf(ps2);
                    if (beats(sq, alp, sqk, ak)) {
                        sqk = sq;
                        ak = alp;
                        bx = x;
                        by = y;
                    }
                }
            }
            cur[nfix] = bx;
            cur[nfix + 1] = by;
            ps = add16(add16(ps, w.d[bx]), w.d[by]);
            alpPrev = ak;
            sqLev = sqk;
            alpLev = ak;
        }
        if (beats(sqLev, alpLev, psk, alpk)) {
            psk = sqLev;
            alpk = alpLev;
            for (int k = 0; k < pulses; ++k) best[k] = cur[k];
        }
        // Rotation of the track order.
        const int saved = ipos[1];
        for (int j = 1; j < pulses - 1; ++j) ipos[j] = ipos[j + 1];
        ipos[pulses - 1] = saved;
    }
}

// ---- code vectors and index words -----------------------------------------------------------

void buildLowRate(const Work& w, const int* pos, int n, KvoSpeechRate mode, int subframe,
                  Kvo16s* code, Kvo16s* y, Kvo16s* idx) {
    std::memset(code, 0, L * sizeof(Kvo16s));
    Kvo16s s[4];
    bool positive[4] = {false, false, false, false};
    for (int k = 0; k < n; ++k) {
        positive[k] = w.sign[pos[k]] > 0;
        code[pos[k]] = positive[k] ? Kvo16s{8191} : Kvo16s{-8192};
        s[k] = positive[k] ? Kvo16s{32767} : Kvo16s{-32768};
    }
    filteredCode(w.h, pos, s, n, y);
    int w0 = 0, w1 = 0;
    switch (mode) {
        case 0:
        case 1: {
            const int t0 = pos[0] % 5;
            w0 = pos[0] / 5 + ((pos[1] / 5) << 3);
            if (kTrackTable[subframe * 5 + t0] != 0) w0 += 64;
            w1 = (positive[0] ? 1 : 0) | (positive[1] ? 2 : 0);
            break;
        }
        case 3:
            for (int k = 0; k < 2; ++k) {
                const int t = pos[k] % 5, i = pos[k] / 5;
                bool shortForm = false;  // index in the <<1 form: sign in bit 0
                switch (t) {
                    case 0:
                        w0 += i << 6;
                        break;
                    case 1:
                        if (k == 0) {
                            w0 += i << 1;
                            shortForm = true;
                        } else {
                            w0 += (i << 6) | 16;
                        }
                        break;
                    case 2:
                        w0 += (i << 6) | 32;
                        break;
                    case 3:
                        w0 += (i << 1) | 1;
                        shortForm = true;
                        break;
                    default:
                        w0 += (i << 6) | 48;
                        break;
                }
                if (positive[k]) w1 |= shortForm ? 1 : 2;
            }
            break;
        case 6:
            for (int k = 0; k < 3; ++k) {
                const int t = pos[k] % 5, i = pos[k] / 5;
                static constexpr int kAdd[5][2] = {{0, 0}, {4, 0}, {8, 0}, {4, 8}, {8, 128}};
                w0 += (i << kAdd[t][0]) | kAdd[t][1];
                if (positive[k]) w1 |= t == 0 ? 1 : ((t == 1 || t == 3) ? 2 : 4);
            }
            break;
        default:  // 7.40, 7.95
            for (int k = 0; k < 4; ++k) {
                const int t = pos[k] % 5, g = kGray[pos[k] / 5];
                static constexpr int kShift[5] = {0, 3, 6, 10, 10};
                w0 += (g << kShift[t]) | (t == 4 ? 0x200 : 0);
                if (positive[k]) w1 |= 1 << (t == 4 ? 3 : t);
            }
            break;
    }
    idx[0] = static_cast<Kvo16s>(w0);
    idx[1] = static_cast<Kvo16s>(w1);
}

void build122(const Work& w, const int* pos, Kvo16s* code, Kvo16s* y, Kvo16s* idx) {
    std::memset(code, 0, L * sizeof(Kvo16s));
    int words[10];
    for (int k = 0; k < 10; ++k) words[k] = -1;
    Kvo16s s[10];
    for (int k = 0; k < 10; ++k) {
        const int p = pos[k];
        const int t = p % 5;
        int v = p / 5;
        if (w.sign[p] > 0) {
            code[p] = static_cast<Kvo16s>(code[p] + 4096);
            s[k] = 8192;
        } else {
            code[p] = static_cast<Kvo16s>(code[p] - 4096);
            s[k] = -8192;
            v += 8;
        }
        if (words[t] < 0) {
            words[t] = v;
        } else {
            const int wv = words[t];
            const bool differ = ((wv ^ v) & 8) != 0;
            if ((differ && (wv & 7) <= (v & 7)) || (!differ && wv > v)) {
                words[t + 5] = wv;
                words[t] = v;
            } else {
                words[t + 5] = v;
            }
        }
    }
    filteredCode(w.h, pos, s, 10, y);
    for (int k = 0; k < 5; ++k) idx[k] = static_cast<Kvo16s>((words[k] & 8) | kGray[words[k] & 7]);
    for (int k = 5; k < 10; ++k) idx[k] = kGray[words[k] & 7];
}

void build102(const Work& w, const int* pos, Kvo16s* code, Kvo16s* y, Kvo16s* idx) {
    std::memset(code, 0, L * sizeof(Kvo16s));
    int q[8] = {}, flag[4] = {};
    bool have[4] = {false, false, false, false};
    Kvo16s s[8];
    for (int k = 0; k < 8; ++k) {
        const int p = pos[k];
        const int t = p & 3, i = p >> 2;
        int f = 0;
        if (w.sign[p] > 0) {
            code[p] = static_cast<Kvo16s>(code[p] + 8191);
            s[k] = 32767;
        } else {
            code[p] = static_cast<Kvo16s>(code[p] - 8191);
            s[k] = -32768;
            f = 1;
        }
        if (!have[t]) {
            have[t] = true;
            q[t] = i;
            flag[t] = f;
        } else {
            const bool newFirst = flag[t] != f ? q[t] <= i : q[t] > i;
            if (newFirst) {
                q[t + 4] = q[t];
                q[t] = i;
                flag[t] = f;
            } else {
                q[t + 4] = i;
            }
        }
    }
    filteredCode(w.h, pos, s, 8, y);
    auto A = [](int a, int b, int c) {
        return (a & 1) + 2 * (b & 1) + 4 * (c & 1) + 8 * ((a >> 1) + 5 * (b >> 1) + 25 * (c >> 1));
    };
    for (int t = 0; t < 4; ++t) idx[t] = static_cast<Kvo16s>(flag[t]);
    idx[4] = static_cast<Kvo16s>(A(q[0], q[4], q[1]));
    idx[5] = static_cast<Kvo16s>(A(q[2], q[6], q[5]));
    const int u = q[7], wq = q[3];
    const int m = (u & 2) == 0 ? 5 * (u >> 1) + (wq >> 1) : 5 * (u >> 1) + 4 - (wq >> 1);
    idx[6] = static_cast<Kvo16s>(2 * (u & 1) + (wq & 1) + ((((m << 5) + 12) * 1311 >> 13) & ~3));
}

}  // namespace
}  // namespace amr

namespace impl {

KvoStatus kvosAlgebraicCodebookSearch_GSMAMR_16s(Kvo16s pitchLag, Kvo16s pitchGain,
                                                 const Kvo16s* pTarget, const Kvo16s* pLtpResidual,
                                                 Kvo16s* pImpulse, Kvo16s* pCode,
                                                 Kvo16s* pFilteredCode, Kvo16s* pIndices,
                                                 Kvo16s subframe, KvoSpeechRate mode) {
    using namespace amr;
    if (!pTarget || !pLtpResidual || !pImpulse || !pCode || !pFilteredCode || !pIndices)
        return kvoErrNullPtr;
    if (subframe < 0 || subframe > 3) return kvoErrRange;
    if (pitchLag < 17 || pitchLag > 144) return kvoErrRange;
    if (!cbModeValid(mode)) return kvoErrRange;

    Work w;
    // Sharpening of the response (saturating doubling of the pitch gain).
    const Kvo16s sharp = sat16(2 * Kvo32s{pitchGain});
    if (pitchLag < L) kvosHarmonicFilter_16s_I(sharp, pitchLag, pImpulse + pitchLag, L - pitchLag);
    std::memcpy(w.h, pImpulse, sizeof(w.h));

    const bool pairs = mode == 11 || mode == 12 || mode == 25;
    targetCorrelation(w, pTarget, mode == 11 ? 4 : 5, pairs ? 2 : 1);
    if (pairs)
        signsFromResidual(w, pLtpResidual);
    else
        signsFromTarget(w);
    correlationMatrix(w);

    int pos[10];
    switch (mode) {
        case 0:
        case 1: {
            Kvo16s psk = -1, alpk = 1;
            pos[0] = 0;
            pos[1] = 1;
            for (int g = 0; g < 2; ++g)
                searchPair(w, kStartPos[g * 8 + subframe * 2], kStartPos[g * 8 + subframe * 2 + 1],
                           false, psk, alpk, pos);
            buildLowRate(w, pos, 2, mode, subframe, pCode, pFilteredCode, pIndices);
            break;
        }
        case 3: {
            Kvo16s psk = -1, alpk = 1;
            pos[0] = 0;
            pos[1] = 1;
            for (int c = 0; c < 8; ++c)
                searchPair(w, kStartPos1R59[c], kStartPos2R59[c], true, psk, alpk, pos);
            buildLowRate(w, pos, 2, mode, subframe, pCode, pFilteredCode, pIndices);
            break;
        }
        case 6:
            searchMulti(w, 3, pos);
            buildLowRate(w, pos, 3, mode, subframe, pCode, pFilteredCode, pIndices);
            break;
        case 7:
        case 8:
            searchMulti(w, 4, pos);
            buildLowRate(w, pos, 4, mode, subframe, pCode, pFilteredCode, pIndices);
            break;
        case 11:
            searchPairs(w, 4, pos);
            build102(w, pos, pCode, pFilteredCode, pIndices);
            break;
        default:
            searchPairs(w, 5, pos);
            build122(w, pos, pCode, pFilteredCode, pIndices);
            break;
    }
    if (pitchLag < L) kvosHarmonicFilter_16s_I(sharp, pitchLag, pCode + pitchLag, L - pitchLag);
    return kvoOk;
}

KvoStatus kvosAlgebraicCodebookSearchEX_GSMAMR_16s(Kvo16s pitchLag, Kvo16s pitchGain,
                                                   const Kvo16s* pTarget,
                                                   const Kvo16s* pLtpResidual, Kvo16s* pImpulse,
                                                   Kvo16s* pCode, Kvo16s* pFilteredCode,
                                                   Kvo16s* pIndices, Kvo16s subframe,
                                                   KvoSpeechRate mode, Kvo8u* pBuffer) {
    if (!pBuffer) return kvoErrNullPtr;
    return kvosAlgebraicCodebookSearch_GSMAMR_16s(pitchLag, pitchGain, pTarget, pLtpResidual,
                                                  pImpulse, pCode, pFilteredCode, pIndices,
                                                  subframe, mode);
}

}  // namespace impl
}  // namespace kvo
