// GSM AMR LSP quantiser and decoder: the chosen indices against a brute-force
// 64-bit search over every codebook, the decoder against the encoder in every
// mode over runs of frames, the concealment and comfort-noise paths against
// worked models.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "gsmamr/gsmamr_lp_tables.h"
#include "gsmamr/lsp_shared.h"
#include "kvosc.h"
#include "support/signals.h"

namespace {

const KvoSpeechRate kModes[] = {kvoRate4750, kvoRate5150,  kvoRate5900,  kvoRate6700, kvoRate7400,
                                kvoRate7950, kvoRate10200, kvoRate12200, kvoRateSID};

// LSP vectors of successive analysis frames of generated speech (two per
// frame for 12.2).
std::vector<std::vector<Kvo16s>> lspFrames(int frames, uint32_t seed) {
    auto x = kvosc::test::speech_like(160 * frames + 120, seed, 10000, 8000);
    std::vector<std::vector<Kvo16s>> out;
    Kvo16s prev[10] = {30000, 26000, 21000, 15000, 8000, 0, -8000, -15000, -21000, -26000};
    for (int f = 0; f < frames; ++f) {
        std::vector<Kvo16s> v;
        for (int half = 0; half < 2; ++half) {
            Kvo32s r[11];
            Kvo16s a[11], lsp[10];
            kvosAutoCorr_GSMAMR_16s32s(x.data() + 160 * f + 40 * half, r, kvoRate7400);
            if (kvosLevinsonDurbin_GSMAMR_32s16s(r, a) != kvoOk) continue;
            kvosLPCToLSP_GSMAMR_16s(a, prev, lsp);
            std::memcpy(prev, lsp, sizeof lsp);
            v.insert(v.end(), lsp, lsp + 10);
        }
        if (v.size() == 20) out.push_back(v);
    }
    return out;
}

// Independent weights: distances to the neighbours mapped by the two slopes
// and scaled by 8, in 64 bits with the final 16-bit clamp.
std::vector<int64_t> weights(const Kvo16s* lsf) {
    std::vector<int64_t> w(10);
    for (int i = 0; i < 10; ++i) {
        const int64_t d = i == 0 ? lsf[1] : (i == 9 ? 16384 - lsf[8] : lsf[i + 1] - lsf[i - 1]);
        const int64_t v =
            d < 1843 ? 3427 - ((d * 28160) >> 15) : 1843 - (((d - 1843) * 6242) >> 15);
        w[i] = std::clamp<int64_t>(v * 8, -32768, 32767);
    }
    return w;
}

// Brute-force weighted search (exact 64-bit errors) of one split: the first
// row of the smallest error.  sign: also try the negated row after each row.
int bestRow(const int64_t* r, const Kvo16s* table, int rows, int dim, int stride, const int64_t* w,
            bool sign, int* pSign = nullptr) {
    int64_t best = INT64_MAX;
    int idx = 0, sg = 0;
    for (int k = 0; k < rows; ++k)
        for (int s = 0; s < (sign ? 2 : 1); ++s) {
            int64_t e = 0;
            for (int i = 0; i < dim; ++i) {
                const int64_t row = s ? -table[k * stride + i] : table[k * stride + i];
                const int64_t t = ((r[i] - row) * w[i]) >> 15;
                e += t * t;
            }
            if (e < best) best = e, idx = k, sg = s;
        }
    if (pSign) *pSign = sg;
    return idx;
}

TEST(LspQuant, IndicesAreBruteForceOptimal) {
    const auto frames = lspFrames(12, 3);
    ASSERT_GT(frames.size(), 8u);
    for (KvoSpeechRate mode : kModes) {
        Kvo16s past[10] = {};
        for (size_t f = 0; f < frames.size(); ++f) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << " frame " << f);
            const Kvo16s* lsp = frames[f].data();
            const bool m122 = mode == kvoRate12200;
            Kvo16s lsf1[10], lsf2[10];
            kvosLSPToLSF_Norm_G729_16s(lsp, lsf1);
            kvosLSPToLSF_Norm_G729_16s(lsp + 10, lsf2);
            int64_t p[10], r1[10], r2[10];
            for (int i = 0; i < 10; ++i) {
                const int64_t pr =
                    m122 ? (int64_t(21299) * past[i]) >> 15
                         : (mode == kvoRateSID ? past[i]
                                               : (int64_t(kvo::TablePredFac[i]) * past[i]) >> 15);
                p[i] = (m122 ? kvo::TableMeanLsf1[i] : kvo::TableMeanLsf2[i]) + pr;
                r1[i] = lsf1[i] - p[i];
                r2[i] = lsf2[i] - p[i];
            }
            Kvo16s q[20], idx[5];
            ASSERT_EQ(kvosLSPQuant_GSMAMR_16s(lsp, past, q, idx, mode), kvoOk);
            const auto w1 = weights(lsf1), w2 = weights(lsf2);
            if (m122) {
                const Kvo16s* t[5] = {&kvo::tab::dico1_lsf1[0][0], &kvo::tab::dico2_lsf1[0][0],
                                      &kvo::tab::dico3_lsf1[0][0], &kvo::tab::dico4_lsf1[0][0],
                                      &kvo::tab::dico5_lsf1[0][0]};
                const int rows[5] = {128, 256, 256, 256, 64};
                for (int s = 0; s < 5; ++s) {
                    const int a = 2 * s;
                    const int64_t r[4] = {r1[a], r1[a + 1], r2[a], r2[a + 1]};
                    const int64_t w[4] = {w1[a], w1[a + 1], w2[a], w2[a + 1]};
                    int sg = 0;
                    const int k = bestRow(r, t[s], rows[s], 4, 4, w, s == 2, &sg);
                    EXPECT_EQ(idx[s], s == 2 ? 2 * k + sg : k) << "split " << s;
                }
            } else {
                const bool m475 = mode == kvoRate4750 || mode == kvoRate5150;
                const bool m795 = mode == kvoRate7950;
                EXPECT_EQ(
                    idx[0],
                    bestRow(r1, m795 ? &kvo::tab::mr795_1_lsf[0][0] : &kvo::tab::dico1_lsf2[0][0],
                            m795 ? 512 : 256, 3, 3, w1.data(), false));
                EXPECT_EQ(idx[1], bestRow(r1 + 3, &kvo::tab::dico2_lsf2[0][0], m475 ? 256 : 512, 3,
                                          m475 ? 6 : 3, w1.data() + 3, false));
                EXPECT_EQ(idx[2],
                          bestRow(r1 + 6,
                                  m475 ? &kvo::tab::mr515_3_lsf[0][0] : &kvo::tab::dico3_lsf2[0][0],
                                  m475 ? 128 : 512, 4, 4, w1.data() + 6, false));
            }
        }
    }
}

// Decoder against encoder: the same indices and memories give the encoder's
// quantised LSPs as the last subframe vector (and as subframe 1 for the
// first 12.2 vector), the same residual memory, and interpolated vectors in
// between.  The quantisation error falls as the codebooks grow: 12.2 (38
// bits) < 7.95 (27) < 7.4 (26) < 4.75 (23); mean errors printed.
TEST(LspDecode, FollowsTheEncoderInEveryMode) {
    const auto frames = lspFrames(60, 9);
    double meanErr[32] = {};
    for (KvoSpeechRate mode : kModes) {
        Kvo16s encPast[10] = {}, decPast[10] = {};
        Kvo16s prevLsf[10], prevLsp[10];
        std::memcpy(prevLsf, kvo::TableMeanLsf1, sizeof prevLsf);
        kvosLSFToLSP_GSMAMR_16s(prevLsf, prevLsp);
        double err = 0;
        int n = 0;
        for (size_t f = 0; f < frames.size(); ++f) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << " frame " << f);
            Kvo16s q[20], idx[5];
            const Kvo16s oldLsp[10] = {prevLsp[0], prevLsp[1], prevLsp[2], prevLsp[3], prevLsp[4],
                                       prevLsp[5], prevLsp[6], prevLsp[7], prevLsp[8], prevLsp[9]};
            Kvo16s words[5];
            int nw = 0;
            if (mode == kvoRateSID) {
                // Comfort noise: both sides start from row j of the start
                // residuals; the decoder loads it from the first index word.
                const int j = static_cast<int>(f % 8);
                std::memcpy(encPast, kvo::tab::past_rq_init[j], sizeof encPast);
                words[nw++] = static_cast<Kvo16s>(j);
            }
            ASSERT_EQ(kvosLSPQuant_GSMAMR_16s(frames[f].data(), encPast, q, idx, mode), kvoOk);
            for (int s = 0; s < (mode == kvoRate12200 ? 5 : 3); ++s) words[nw++] = idx[s];
            Kvo16s sub[40];
            ASSERT_EQ(kvosQuantLSPDecode_GSMAMR_16s(words, decPast, prevLsf, prevLsp, sub, 0, mode),
                      kvoOk);
            EXPECT_TRUE(std::equal(encPast, encPast + 10, decPast));
            const Kvo16s* last = mode == kvoRate12200 ? q + 10 : q;
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(sub[30 + i], last[i]) << i;
                EXPECT_EQ(prevLsp[i], last[i]) << i;
                if (mode == kvoRate12200) {
                    EXPECT_EQ(sub[10 + i], q[i]) << i;
                    EXPECT_EQ(sub[i], (oldLsp[i] >> 1) + (q[i] >> 1)) << i;
                } else {
                    EXPECT_EQ(sub[10 + i], (oldLsp[i] >> 1) + (last[i] >> 1)) << i;
                    EXPECT_NEAR(sub[i], 0.25 * last[i] + 0.75 * oldLsp[i], 1.0) << i;
                    EXPECT_NEAR(sub[20 + i], 0.75 * last[i] + 0.25 * oldLsp[i], 1.0) << i;
                }
                err += std::abs(sub[30 + i] - frames[f][(mode == kvoRate12200 ? 10 : 0) + i]);
                ++n;
            }
        }
        if (mode != kvoRateSID) {
            meanErr[mode] = err / n;
            EXPECT_LT(err / n, 700.0);
        }
    }
    EXPECT_LT(meanErr[kvoRate12200], meanErr[kvoRate7950]);
    EXPECT_LT(meanErr[kvoRate7950], meanErr[kvoRate7400]);
    EXPECT_LT(meanErr[kvoRate7400], meanErr[kvoRate4750]);
}

// Concealment: a bad frame fades the previous LSFs towards the mean, both
// 12.2 vectors alike, and keeps the residual memory consistent with that.
TEST(LspDecode, BadFrameModel) {
    for (KvoSpeechRate mode : {kvoRate12200, kvoRate4750, kvoRate10200}) {
        SCOPED_TRACE(mode);
        const bool m122 = mode == kvoRate12200;
        Kvo16s prevLsf[10], prevLsp[10], past[10], sub[40];
        for (int i = 0; i < 10; ++i) {
            prevLsf[i] = static_cast<Kvo16s>(900 + 1450 * i);
            past[i] = static_cast<Kvo16s>(37 * i - 150);
            prevLsp[i] = static_cast<Kvo16s>(30000 - 6000 * i);
        }
        Kvo16s wantLsf[10], wantPast[10];
        for (int i = 0; i < 10; ++i) {
            const int mean = m122 ? kvo::TableMeanLsf1[i] : kvo::TableMeanLsf2[i];
            const int l = m122 ? ((prevLsf[i] * 31128) >> 15) + ((mean * 1639) >> 15)
                               : ((prevLsf[i] * 29491) >> 15) + ((mean * 3277) >> 15);
            const int fac = m122 ? 21299 : kvo::TablePredFac[i];
            wantLsf[i] = static_cast<Kvo16s>(l);
            wantPast[i] = static_cast<Kvo16s>(l - (mean + ((fac * past[i]) >> 15)));
        }
        const Kvo16s junk[5] = {-1, -1, -1, -1, -1};  // not read for a bad frame
        ASSERT_EQ(kvosQuantLSPDecode_GSMAMR_16s(junk, past, prevLsf, prevLsp, sub, 1, mode), kvoOk);
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(prevLsf[i], wantLsf[i]) << i;  // well apart: no reordering
            EXPECT_EQ(past[i], wantPast[i]) << i;
            if (m122) {
                EXPECT_EQ(sub[10 + i], sub[30 + i]) << i;
            }
        }
    }
}

}  // namespace
