// GSM AMR DTX steps: history buffers against a double log-energy model and
// worked values, the hangover handler through whole speech/pause runs, and
// the SID parameters against a brute-force search and the decoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "gsmamr/gsmamr_lp_tables.h"
#include "gsmamr/lsp_shared.h"
#include "kvosc.h"
#include "support/signals.h"

namespace {

TEST(DtxBuffer, RowsWrapAndLogEnergy) {
    Kvo16s idxE = 6, idxD = 6;
    std::vector<Kvo16s> lspE(80, 0), lspD(80, 0), enE(8, 0), enD(8, 0);
    for (int f = 0; f < 12; ++f) {
        SCOPED_TRACE(f);
        auto x = kvosc::test::speech_like(160, 40 + f, 200.0 * (f + 1) * (f + 1), 8000);
        Kvo16s vec[10];
        for (int i = 0; i < 10; ++i) vec[i] = static_cast<Kvo16s>(100 * f + i);
        ASSERT_EQ(kvosEncDTXBuffer_GSMAMR_16s(x.data(), vec, &idxE, lspE.data(), enE.data()),
                  kvoOk);
        ASSERT_EQ(kvosDecDTXBuffer_GSMAMR_16s(x.data(), vec, &idxD, lspD.data(), enD.data()),
                  kvoOk);
        const int row = (7 + f) % 8;  // 6 -> 7 -> 0 -> 1 ...
        EXPECT_EQ(idxE, row);
        EXPECT_EQ(idxD, row);
        EXPECT_TRUE(std::equal(vec, vec + 10, lspE.begin() + 10 * row));
        EXPECT_TRUE(std::equal(vec, vec + 10, lspD.begin() + 10 * row));
        double e = 0;
        for (int16_t v : x) e += 2.0 * v * v;
        e = std::min(e, 2147483647.0);
        const double model = std::log2(e) * 1024 - 8521;
        EXPECT_NEAR(enD[row], model, 2.0);
        EXPECT_EQ(enE[row], enD[row] >> 1);  // the encoder stores half
    }
    // Worked values: silence has log2 taken as 0; full scale saturates at 2^31 - 1.
    std::vector<Kvo16s> zero(160, 0), full(160, -32768);
    Kvo16s vec[10] = {};
    Kvo16s idx = 0;
    ASSERT_EQ(kvosDecDTXBuffer_GSMAMR_16s(zero.data(), vec, &idx, lspD.data(), enD.data()), kvoOk);
    EXPECT_EQ(enD[1], -8521);
    ASSERT_EQ(kvosEncDTXBuffer_GSMAMR_16s(full.data(), vec, &idx, lspE.data(), enE.data()), kvoOk);
    EXPECT_EQ(enE[2], (30 * 1024 + 1023 - 8521) >> 1);
}

struct HandlerCase {
    Kvo16s hang, elapsed, vad;
    Kvo16s wantHang, wantElapsed, wantSid;
    KvoSpeechRate wantMode;
};

TEST(DtxHandler, WorkedCases) {
    const HandlerCase cases[] = {
        {1, 28, 0, 0, 29, 0, kvoRateSID},         // 0 + 29 < 30
        {1, 29, 0, 0, 30, 0, kvoRate6700},        // 0 + 30: normal coding
        {5, 100, 0, 4, 101, 0, kvoRate6700},      // hangover frames are coded normally
        {3, 32767, 1, 7, 32767, 0, kvoRate6700},  // saturates, speech leaves the mode
        {0, 32767, 0, 0, 0, 1, kvoRateSID},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.hang << " " << c.elapsed << " " << c.vad);
        Kvo16s hang = c.hang, el = c.elapsed, sid = -1;
        KvoSpeechRate mode = kvoRate6700;
        ASSERT_EQ(kvosEncDTXHandler_GSMAMR_16s(&hang, &el, &mode, &sid, c.vad), kvoOk);
        EXPECT_EQ(hang, c.wantHang);
        EXPECT_EQ(el, c.wantElapsed);
        EXPECT_EQ(sid, c.wantSid);
        EXPECT_EQ(mode, c.wantMode);
    }
}

// SID parameters of a history of real analysis frames: energy index and
// predictor memories against the worked formulas, the start residual and
// the three splits against brute force, and the decoder's comfort-noise
// LSFs close to the history's mean.
TEST(DtxSid, AgainstBruteForceAndDecoder) {
    auto x = kvosc::test::speech_like(160 * 8 + 80, 21, 3000, 8000);
    std::vector<Kvo16s> hist(80), en(8);
    Kvo16s idx = 7;
    Kvo16s prev[10] = {30000, 26000, 21000, 15000, 8000, 0, -8000, -15000, -21000, -26000};
    for (int f = 0; f < 8; ++f) {
        Kvo32s r[11];
        Kvo16s a[11], lsp[10];
        kvosAutoCorr_GSMAMR_16s32s(x.data() + 160 * f, r, kvoRate5900);
        ASSERT_EQ(kvosLevinsonDurbin_GSMAMR_32s16s(r, a), kvoOk);
        kvosLPCToLSP_GSMAMR_16s(a, prev, lsp);
        ASSERT_EQ(
            kvosEncDTXBuffer_GSMAMR_16s(x.data() + 160 * f + 80, lsp, &idx, hist.data(), en.data()),
            kvoOk);
    }
    Kvo16s eIdx = -1, init = -1, li[3], pe[4], pe122[4];
    ASSERT_EQ(kvosEncDTXSID_GSMAMR_16s(hist.data(), en.data(), &eIdx, &init, li, pe, pe122, 1),
              kvoOk);
    int sum = 0;
    for (int r = 0; r < 8; ++r) sum += en[r] >> 2;
    const int wantIdx = std::clamp(((sum >> 1) + 2688) >> 8, 0, 63);
    EXPECT_EQ(eIdx, wantIdx);
    const int e = std::clamp((wantIdx << 8) - 11560, -14436, 0);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(pe[i], e);
        EXPECT_EQ(pe122[i], (e * 5443) >> 15);
    }

    // Mean LSF (through the library's conversions) and the brute force.
    Kvo16s mean[10], lsf[10];
    for (int j = 0; j < 10; ++j) {
        int s = 0;
        for (int r = 0; r < 8; ++r) s += hist[10 * r + j];
        mean[j] = static_cast<Kvo16s>(s >> 3);
    }
    kvosLSPToLSF_Norm_G729_16s(mean, lsf);
    int lo = 205;
    for (int i = 0; i < 10; ++i) {
        lsf[i] = static_cast<Kvo16s>(std::max<int>(lsf[i], lo));
        lo = lsf[i] + 205;
    }
    kvosLSFToLSP_GSMAMR_16s(lsf, mean);
    kvosLSPToLSF_Norm_G729_16s(mean, lsf);
    int64_t best = INT64_MAX;
    int wantInit = 0;
    for (int j = 0; j < 8; ++j) {
        int64_t d = 0;
        for (int i = 0; i < 10; ++i) {
            const int64_t t = lsf[i] - kvo::TableMeanLsf2[i] - kvo::tab::past_rq_init[j][i];
            d += t * t;
        }
        if (d < best) best = d, wantInit = j;
    }
    EXPECT_EQ(init, wantInit);

    // The decoder rebuilds LSFs within the codebooks' reach of the target.
    const Kvo16s words[4] = {init, li[0], li[1], li[2]};
    Kvo16s past[10], prevLsf[10], prevLsp[10] = {}, sub[40];
    ASSERT_EQ(kvosQuantLSPDecode_GSMAMR_16s(words, past, prevLsf, prevLsp, sub, 0, kvoRateSID),
              kvoOk);
    double err = 0;
    for (int i = 0; i < 10; ++i) err += std::abs(prevLsf[i] - lsf[i]);
    EXPECT_LT(err / 10, 250.0);  // about 30 Hz
    // Quantising the same LSPs with the comfort-noise quantiser from the
    // same start residual gives the same three indices.
    Kvo16s encPast[10], q[10], idx3[3];
    std::memcpy(encPast, kvo::tab::past_rq_init[init], sizeof encPast);
    ASSERT_EQ(kvosLSPQuant_GSMAMR_16s(mean, encPast, q, idx3, kvoRateSID), kvoOk);
    EXPECT_TRUE(std::equal(idx3, idx3 + 3, li));

    // No update requested: nothing changes.
    Kvo16s keep = 99;
    ASSERT_EQ(kvosEncDTXSID_GSMAMR_16s(hist.data(), en.data(), &keep, &keep, li, pe, pe122, 0),
              kvoOk);
    EXPECT_EQ(keep, 99);
}

}  // namespace
