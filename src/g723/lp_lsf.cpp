// G.723.1 LSF quantisation and decoding: the split vector quantiser of the
// encoder and the LSP decoder of both sides.
//
// Formats: LSFs are positions on the 256-step cosine grid from 0 to pi in Q7
// (0 .. 32767).  The three band tables hold residuals in the same units; the
// residual is the LSF minus the mean vector minus the first-order prediction
// from the previous frame's quantised LSFs (factor 3/8 normally, 23/32 for an
// erased frame).
//
// Index word: band 0 in bits 23-16, band 1 in bits 15-8, band 2 in bits 7-0.
// The decoder's stability passes follow the G.723.1 decoder: at most ten
// passes that clamp the ends and push close neighbours apart; when the tenth
// does not settle, the previous LSFs stand and kvoWarnLsfLow is returned.
#include "g723/lp_lsf.h"

#include "g723/lp_lsf_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int kBandOffset[3] = {0, 3, 6};
constexpr int kBandSize[3] = {3, 3, 4};

const Kvo16s* band_row(int band, int row) {
    switch (band) {
        case 0: return tab::LSPCdbkFirstBand[row];
        case 1: return tab::LSPCdbkSecondBand[row];
        default: return tab::LSPCdbkThirdBand[row];
    }
}


}  // namespace

const Kvo16s kG723LsfMean[10] = {3131, 4721, 7690, 10806, 13872, 16495, 19752, 22260, 25484, 27718};

namespace impl {

KvoStatus kvosLSFQuant_G723_16s32s(const Kvo16s* pLSF, const Kvo16s* pPrevLSF, Kvo32s* pIndex) {
    if (!pLSF || !pPrevLSF || !pIndex) return kvoErrNullPtr;
    const Kvo16s* f = pLSF;

    // Weights: the inverse of the distance to the nearer neighbour.
    Kvo32s w[10];
    for (int i = 0; i < 10; ++i) {
        Kvo32s d;
        if (i == 0) {
            d = f[1] - f[0];
        } else if (i == 9) {
            d = f[9] - f[8];
        } else {
            const Kvo32s up = f[i + 1] - f[i], down = f[i] - f[i - 1];
            d = up < down ? up : down;
        }
        d = sat16(d);
        w[i] = d > 32 ? 0x100000 / d : 32767;
    }
    Kvo32s wmax = 0;
    for (int i = 0; i < 10; ++i) wmax = w[i] > wmax ? w[i] : wmax;
    int sh = 0;
    while (sh < 15 && (wmax << (sh + 1)) <= 32767 && wmax != 0) ++sh;
    Kvo16s wn[10];
    for (int i = 0; i < 10; ++i) wn[i] = static_cast<Kvo16s>(w[i] << sh);

    // Residual after removal of the mean and the prediction.
    Kvo16s r[10];
    for (int i = 0; i < 10; ++i) {
        const Kvo16s pm = sub16(pPrevLSF[i], kG723LsfMean[i]);
        const Kvo16s pred = static_cast<Kvo16s>(mulQ15R(pm, 12288));
        r[i] = sub16(sub16(f[i], kG723LsfMean[i]), pred);
    }

    Kvo32s index = 0;
    for (int b = 0; b < 3; ++b) {
        const int off = kBandOffset[b], n = kBandSize[b];
        Kvo16s wc[4], r2[4];
        for (int j = 0; j < n; ++j) {
            wc[j] = wn[off + j];
            r2[j] = r[off + j];
        }
        Kvo64s best = -1;
        int bestRow = 0;
        for (int row = 0; row < 256; ++row) {
            const Kvo16s* c = band_row(b, row);
            Kvo64s m = 0;
            for (int j = 0; j < n; ++j) {
                const Kvo32s wt = mulQ15R(wc[j], c[j]);
                m += Kvo64s{wt} * (2 * Kvo32s{r2[j]} - c[j]);
            }
            if (m > best) {
                best = m;
                bestRow = row;
            }
        }
        index = (index << 8) | bestRow;
    }
    *pIndex = index;
    return kvoOk;
}

KvoStatus kvosLSFDecode_G723_16s(Kvo32s index, const Kvo16s* pPrevLSF, Kvo32s erasure,
                                 Kvo16s* pLSF) {
    if (!pPrevLSF || !pLSF) return kvoErrNullPtr;
    Kvo16s gap = 0x100, pred = 12288;
    if (erasure != 0) {
        index = 0;
        gap = 0x200;
        pred = 23552;
    }
    Kvo16s v[10];
    for (int b = 2; b >= 0; --b) {
        const int row = index & 0xff;
        index >>= 8;
        const Kvo16s* c = band_row(b, row);
        for (int j = 0; j < kBandSize[b]; ++j) v[kBandOffset[b] + j] = c[j];
    }
    for (int i = 0; i < 10; ++i) {
        const Kvo16s pm = sub16(pPrevLSF[i], kG723LsfMean[i]);
        v[i] = add16(v[i], mulQ15R(pm, pred));
        v[i] = add16(v[i], kG723LsfMean[i]);
    }

    bool unstable = true;
    for (int pass = 0; pass < 10 && unstable; ++pass) {
        if (v[0] < 0x180) v[0] = 0x180;
        if (v[9] > 0x7e00) v[9] = 0x7e00;
        for (int j = 1; j < 10; ++j) {
            Kvo16s t = sub16(add16(gap, v[j - 1]), v[j]);
            if (t > 0) {
                t = static_cast<Kvo16s>(t >> 1);
                v[j - 1] = sub16(v[j - 1], t);
                v[j] = add16(v[j], t);
            }
        }
        unstable = false;
        for (int j = 1; j < 10; ++j)
            if (sub16(sub16(add16(v[j - 1], gap), 4), v[j]) > 0) unstable = true;
    }
    if (unstable) {
        for (int i = 0; i < 10; ++i) pLSF[i] = pPrevLSF[i];
        return kvoWarnLsfLow;
    }
    for (int i = 0; i < 10; ++i) pLSF[i] = v[i];
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
