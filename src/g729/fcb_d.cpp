// G.729 annex D (6.4 kbit/s) algebraic codebook: two pulses, 11 bits.
//
// The first pulse lies on tracks 1 or 3 (trackTable0, 16 positions), the
// second on tracks 0, 2, 4 or 1 (trackTable1, 32 positions).  The search runs
// over the eight track pairs of the annex D matrix (layout in fcb.h), in the
// order (0,1) (1,1) (0,3) (3,4) (1,2) (1,3) (1,4) (2,3), i over the positions
// of the first track of the pair, j over the second.  Arithmetic as in the
// G.729 reference: magnitudes of d with -32768 as 32767, main-body sign
// factors, energy = low 16 bits of (sum >> 4), strict cross-multiplied
// comparison starting from (0, 32767).
//
// Outputs: code vector (Q13, 8191 / -8192, summed where both pulses share a
// position), filtered code vector (the input h placed at each pulse with its
// sign, saturating), sign word (bit 0 first pulse, bit 1 second, 1 = plus) and
// position index grayEncode[i0] + 16 grayEncode[i1].
#include <algorithm>
#include <cstring>

#include "g729/fcb.h"
#include "g729/fcb_tables.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int L = kFcbSubframe;

// For each block of kFcbPairsD: whether its column track carries the first
// pulse (the trackTable0 one); otherwise its row track does.
struct PairD {
    int block;
    bool firstIsColumn;
};
constexpr PairD kPairsD[8] = {{0, true},  {1, false}, {2, true}, {3, false},
                              {4, false}, {5, true},  {6, false}, {7, true}};

int indexIn(const Kvo16s* table, int n, int pos) {
    for (int i = 0; i < n; ++i)
        if (table[i] == pos) return i;
    return 0;
}

}  // namespace

void ownFixedCodebookSearch_G729D(const Kvo16s* pCorr, const Kvo16s* pImpulse, Kvo32s* pMatrix,
                                  Kvo16s* pCode, Kvo16s* pFltCode, Kvo16s* pSign,
                                  Kvo16s* pIndex) {
    constexpr int kUsed = kFcbBlockBase + 8 * 64;
    for (int k = 0; k < kUsed; ++k) pMatrix[k] >>= 15;

    alignas(16) Kvo16s sign[L];
    alignas(16) Kvo16s dn[L];
    for (int i = 0; i < L; ++i) {
        const Kvo16s d = pCorr[i];
        sign[i] = d >= 0 ? Kvo16s{32767} : Kvo16s{-32768};
        dn[i] = d >= 0 ? d : (d == -32768 ? Kvo16s{32767} : static_cast<Kvo16s>(-d));
    }
    // Main-body sign factors: 32766 (+ +), 32767 (- -), -32767 (mixed), as
    // (r f) >> 15 = r + ((-(32768 - f) r) >> 15) without multiplies.
    for (int k = 0; k < 8; ++k) {
        Kvo32s* b = pMatrix + kFcbBlockBase + 64 * k;
        const int t1 = kFcbPairsD[k][0], t2 = kFcbPairsD[k][1];
        Kvo32s pb[8];
        for (int j = 0; j < 8; ++j) pb[j] = sign[t2 + 5 * j] > 0;
        for (int i = 0; i < 8; ++i) {
            const Kvo32s pa = sign[t1 + 5 * i] > 0;
            Kvo32s* row = b + 8 * i;
            for (int j = 0; j < 8; ++j) {
                const Kvo32s r = row[j];
                const Kvo32s both = r + ((-2 * r) >> 15);
                const Kvo32s none = r + ((-r) >> 15);
                const Kvo32s mixed = (r >> 15) - r;
                row[j] = pa != pb[j] ? mixed : (pa ? both : none);
            }
        }
    }

    Kvo32s dt[5][8];
    for (int p = 0; p < L; ++p) dt[p % 5][p / 5] = dn[p];

    Kvo32s psc = 0, alpha = 32767;
    int first = 1, second = 0;
    for (int k = 0; k < 8; ++k) {
        const int t1 = kFcbPairsD[k][0], t2 = kFcbPairsD[k][1];
        const Kvo32s* blk = pMatrix + kFcbBlockBase + 64 * k;
        const Kvo32s* d1 = pMatrix + 8 * t1;
        const Kvo32s* d2 = pMatrix + 8 * t2;
        for (int i = 0; i < 8; ++i) {
            const int a = t1 + 5 * i;
            const Kvo32s* row = blk + 8 * i;
            const Kvo32s* d2n = dt[t2];
            const Kvo32s da = dn[a];
            Kvo32s sqv[8], alpv[8];
            for (int j = 0; j < 8; ++j) {
                // Magnitudes are at most 32767: the sum saturates at 32767.
                const Kvo32s ps = std::min(da + d2n[j], 32767);
                sqv[j] = (ps * ps) >> 15;
                alpv[j] = lo16((d1[i] + d2[j] + 2 * row[j]) >> 4);
            }
            const int w = ownScanBest8(sqv, alpv, psc, alpha);
            if (w >= 0) {
                const int b = t2 + 5 * w;
                first = kPairsD[k].firstIsColumn ? b : a;
                second = kPairsD[k].firstIsColumn ? a : b;
            }
        }
    }

    const bool plus0 = sign[first] > 0, plus1 = sign[second] > 0;
    std::memset(pCode, 0, L * sizeof(Kvo16s));
    pCode[first] = static_cast<Kvo16s>(sign[first] >> 2);
    pCode[second] = static_cast<Kvo16s>(pCode[second] + (sign[second] >> 2));

    std::memset(pFltCode, 0, L * sizeof(Kvo16s));
    for (int i = first, j = 0; i < L; ++i, ++j)
        pFltCode[i] = plus0 ? pImpulse[j] : sat16(-Kvo32s{pImpulse[j]});
    for (int i = second, j = 0; i < L; ++i, ++j)
        pFltCode[i] = sat16(plus1 ? Kvo32s{pFltCode[i]} + pImpulse[j]
                                  : Kvo32s{pFltCode[i]} - pImpulse[j]);

    const int i0 = indexIn(tab::trackTable0, 16, first);
    const int i1 = indexIn(tab::trackTable1, 32, second);
    *pIndex = static_cast<Kvo16s>(tab::grayEncode[i0] + 16 * tab::grayEncode[i1]);
    *pSign = static_cast<Kvo16s>((plus0 ? 1 : 0) + (plus1 ? 2 : 0));
}

}  // namespace kvo
