// G.729 LSF quantisers (main body, annex B, annex E, the LSP forms) on LSF
// tracks of stable LP filters: round trip through the decoders, quantisation
// error, the annex B search against a wide-integer model, and the equivalence
// of the LSP forms with the LSF path.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "g729/lsp.h"
#include "kvosc.h"
#include "lsp_model.h"

using namespace kvo::tab;

namespace {

// A slowly moving LSF track: straight lines between the LSF sets of random
// stable filters (ordered LSF sets stay ordered on the line, so every frame is
// a stable filter too), 16 frames per segment.
std::vector<std::vector<Kvo16s>> lsfTrack(unsigned seed, int frames) {
    std::mt19937 rng(seed);
    std::vector<std::vector<Kvo16s>> out;
    std::vector<Kvo16s> a = lspmodel::stableLsf(rng), b = lspmodel::stableLsf(rng);
    for (int f = 0; f < frames; ++f) {
        const int t = f % 16;
        if (t == 0 && f) {
            a = b;
            b = lspmodel::stableLsf(rng);
        }
        std::vector<Kvo16s> v(10);
        for (int j = 0; j < 10; ++j) v[j] = static_cast<Kvo16s>((a[j] * (16 - t) + b[j] * t) / 16);
        out.push_back(v);
    }
    return out;
}

double sqErr(const Kvo16s* q, const std::vector<Kvo16s>& x) {
    double e = 0;
    for (int j = 0; j < 10; ++j) e += double(q[j] - x[j]) * (q[j] - x[j]);
    return e / 10;
}

// Annex B search written out in wide integers: the Mp-weighted first-stage
// distances over the 32 PtrTab_1 rows of both predictors, four survivors
// (lower predictor, then lower row, on ties), then the weighted second stage
// over the 16 PtrTab_2 pairs; smallest strictly wins.
void modelSearchB(const Kvo16s* x, const Kvo16s* hist, Kvo16s* idx) {
    Kvo16s w[10];
    kvo::ownLspWeights(x, w);
    int r[2][10];
    for (int p = 0; p < 2; ++p)
        for (int j = 0; j < 10; ++j) {
            int64_t s = int64_t{x[j]} << 15;
            for (int k = 0; k < 4; ++k) s -= int64_t{hist[10 * k + j]} * noise_fg[p][k][j];
            // The target is saturated to 16 bits.
            r[p][j] = static_cast<int>(
                std::clamp<int64_t>(((s >> 15) * noise_fg_sum_inv[p][j]) >> 12, -32768, 32767));
        }
    const int mp[2] = {8644, 16572};
    int e[2][32];
    for (int p = 0; p < 2; ++p)
        for (int m = 0; m < 32; ++m) {
            int64_t d = 0;
            for (int j = 0; j < 10; ++j) {
                const int t = r[p][j] - LSPCode1[PtrTab_1[m]][j];
                d += int64_t{t} * t;
            }
            e[p][m] = static_cast<int>((std::min<int64_t>(d >> 15, 32767) * mp[p]) >> 15);
        }
    int sp[4], sm[4];
    for (int q = 0; q < 4; ++q) {
        int best = 1 << 30;
        for (int p = 0; p < 2; ++p)
            for (int m = 0; m < 32; ++m)
                if (e[p][m] < best) best = e[p][m], sp[q] = p, sm[q] = m;
        e[sp[q]][sm[q]] = 1 << 30;
    }
    int64_t best = INT64_MAX;
    for (int q = 0; q < 4; ++q) {
        for (int i = 0; i < 16; ++i) {
            int64_t d = 0;
            for (int j = 0; j < 10; ++j) {
                const int s = noise_fg_sum[sp[q]][j];
                const int W = (((s * s) >> 13) * w[j]) >> 15;
                const int v = r[sp[q]][j] - LSPCode1[PtrTab_1[sm[q]]][j] -
                              LSPCode2[PtrTab_2[j < 5 ? 0 : 1][i]][j];
                d += int64_t{(W * v) >> 12} * v;
            }
            if ((d >> 15) < best) {
                best = d >> 15;
                idx[0] = static_cast<Kvo16s>(sp[q]);
                idx[1] = static_cast<Kvo16s>(sm[q]);
                idx[2] = static_cast<Kvo16s>(i);
            }
        }
    }
}

}  // namespace

// Quantiser and decoder, each with its own history, stay in step; the error
// is small, and falls as the codebooks get better: a random second stage,
// the 9-bit annex B codebook, the 17-bit main codebook.
TEST(LsfQuant, RoundTripAndErrorOrdering) {
    const unsigned seed = 20061;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto track = lsfTrack(seed, 400);
    std::mt19937 rng(seed);
    Kvo16s hq[40], hd[40], hb[40], hbd[40], hr[40];
    lspmodel::resetHistory(hq);
    lspmodel::resetHistory(hd);
    lspmodel::resetHistory(hb);
    lspmodel::resetHistory(hbd);
    lspmodel::resetHistory(hr);
    double errMain = 0, errB = 0, errRand = 0;
    int n = 0;
    for (size_t f = 0; f < track.size(); ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        const std::vector<Kvo16s>& x = track[f];
        Kvo16s q[10], qd[10], idx[4];
        const KvoStatus st = kvosLSFQuant_G729_16s(x.data(), hq, q, idx);
        ASSERT_GE(st, 0);
        ASSERT_TRUE(idx[0] == 0 || idx[0] == 1);
        ASSERT_TRUE(idx[1] >= 0 && idx[1] < 128 && idx[2] >= 0 && idx[2] < 32 && idx[3] >= 0 &&
                    idx[3] < 32);
        ASSERT_EQ(kvosLSFDecode_G729_16s(idx, hd, qd), st);
        ASSERT_EQ(0, std::memcmp(q, qd, sizeof q));
        ASSERT_EQ(0, std::memcmp(hq, hd, sizeof hq));

        Kvo16s qb[10], qbd[10], bidx[3];
        const KvoStatus bst = kvosLSFQuant_G729B_16s(x.data(), hb, qb, bidx);
        ASSERT_TRUE(bidx[0] >= 0 && bidx[0] < 2 && bidx[1] >= 0 && bidx[1] < 32 && bidx[2] >= 0 &&
                    bidx[2] < 16);
        ASSERT_EQ(kvosLSFDecode_G729B_16s(bidx, hbd, qbd), bst);
        ASSERT_EQ(0, std::memcmp(qb, qbd, sizeof qb));
        ASSERT_EQ(0, std::memcmp(hb, hbd, sizeof hb));

        // The same first stage with the second-stage indices drawn at random.
        Kvo16s ridx[4], qr[10], scratch[40];
        std::memcpy(scratch, hr, sizeof hr);
        kvosLSFQuant_G729_16s(x.data(), scratch, qr, ridx);
        ridx[2] = static_cast<Kvo16s>(rng() & 31);
        ridx[3] = static_cast<Kvo16s>(rng() & 31);
        kvosLSFDecode_G729_16s(ridx, hr, qr);

        if (f >= 8) {
            errMain += sqErr(q, x);
            errB += sqErr(qb, x);
            errRand += sqErr(qr, x);
            ++n;
        }
    }
    errMain /= n;
    errB /= n;
    errRand /= n;
    // RMS error in Q13 radians: 8192 is 1 rad, about 1300 Hz.
    // Measured: 118 main, 310 annex B, 506 random second stage (Q13).
    EXPECT_LT(std::sqrt(errMain), 160.0);
    EXPECT_LT(errMain, errB);
    EXPECT_LT(errMain, errRand);
    RecordProperty("rmsMain", std::to_string(std::sqrt(errMain)));
    RecordProperty("rmsB", std::to_string(std::sqrt(errB)));
    RecordProperty("rmsRand", std::to_string(std::sqrt(errRand)));
}

// The annex B search equals the wide-integer model on realistic data.
TEST(LsfQuantB, SearchMatchesModel) {
    const auto track = lsfTrack(1996, 300);
    Kvo16s h[40], hm[40];
    lspmodel::resetHistory(h);
    lspmodel::resetHistory(hm);
    for (size_t f = 0; f < track.size(); ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        Kvo16s want[3], idx[3], q[10], qm[10];
        modelSearchB(track[f].data(), hm, want);
        kvosLSFQuant_G729B_16s(track[f].data(), h, q, idx);
        ASSERT_EQ(idx[0], want[0]);
        ASSERT_EQ(idx[1], want[1]);
        ASSERT_EQ(idx[2], want[2]);
        kvosLSFDecode_G729B_16s(want, hm, qm);
        ASSERT_EQ(0, std::memcmp(q, qm, sizeof q));
    }
}

// The LSP forms are the LSF path between the two conversions; annex E leaves
// the history alone and hands out the row that the main form pushes.
TEST(LspQuant, LspFormsEqualTheLsfPath) {
    const auto track = lsfTrack(118, 120);
    Kvo16s hA[40], hB[40], hE[40];
    lspmodel::resetHistory(hA);
    lspmodel::resetHistory(hB);
    lspmodel::resetHistory(hE);
    for (size_t f = 0; f < track.size(); ++f) {
        SCOPED_TRACE("frame " + std::to_string(f));
        Kvo16s lsp[10];
        ASSERT_EQ(kvosLSFToLSP_G729_16s(track[f].data(), lsp), kvoOk);

        Kvo16s lsf[10], ql[10], idx[4], want[10];
        kvosLSPToLSF_G729_16s(lsp, lsf);
        kvosLSFQuant_G729_16s(lsf, hA, ql, idx);
        kvosLSFToLSP_G729_16s(ql, want);

        Kvo16s qlsp[10], code[2];
        ASSERT_EQ(kvosLSPQuant_G729_16s(lsp, hB, qlsp, code), kvoOk);
        EXPECT_EQ(0, std::memcmp(qlsp, want, sizeof want));
        EXPECT_EQ(code[0], (idx[0] << 7) | idx[1]);
        EXPECT_EQ(code[1], (idx[2] << 5) | idx[3]);
        EXPECT_EQ(0, std::memcmp(hA, hB, sizeof hA));

        Kvo16s before[40], freq[10], qe[10], codeE[2];
        std::memcpy(before, hE, sizeof hE);
        ASSERT_EQ(kvosLSPQuant_G729E_16s(lsp, hE, freq, qe, codeE), kvoOk);
        EXPECT_EQ(0, std::memcmp(hE, before, sizeof hE));
        EXPECT_EQ(0, std::memcmp(freq, hB, sizeof freq));
        EXPECT_EQ(0, std::memcmp(qe, qlsp, sizeof qe));
        EXPECT_EQ(codeE[0], code[0]);
        EXPECT_EQ(codeE[1], code[1]);
        kvo::ownLspPushHistory(hE, freq);  // the caller's shift
    }
}

// Quantising with a history that drags the first LSF below its limit: the LSF
// quantiser reports the decoder's warning, the LSP forms drop it.
TEST(LspQuant, WarningsReportedByLsfFormDroppedByLspForms) {
    Kvo16s base[40];
    lspmodel::resetHistory(base);
    for (int k = 0; k < 4; ++k) base[10 * k] = -8000;
    const Kvo16s x[10] = {20, 4679, 7018, 9358, 11698, 14037, 16377, 18717, 21056, 23396};
    Kvo16s h[40], q[10], idx[4];
    std::memcpy(h, base, sizeof h);
    EXPECT_EQ(kvosLSFQuant_G729_16s(x, h, q, idx), kvoWarnLsfLow);
    EXPECT_EQ(q[0], 40);

    Kvo16s lsp[10], qlsp[10], code[2], freq[10];
    kvosLSFToLSP_G729_16s(x, lsp);
    std::memcpy(h, base, sizeof h);
    EXPECT_EQ(kvosLSPQuant_G729_16s(lsp, h, qlsp, code), kvoOk);
    EXPECT_EQ(kvosLSPQuant_G729E_16s(lsp, base, freq, qlsp, code), kvoOk);
    std::memcpy(h, base, sizeof h);
    EXPECT_EQ(kvosLSFQuant_G729B_16s(x, h, q, idx), kvoWarnLsfLow);
}
