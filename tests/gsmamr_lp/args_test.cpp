// Argument checks of the GSM AMR VAD, DTX, LP and LSP exports: nulls, then
// lengths, modes and out-of-range index words; a failed call writes nothing.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

const std::initializer_list<std::pair<KvoSpeechRate, KvoStatus>> kBadModes = {
    {2, kvoErrRange},  {4, kvoErrRange},  {5, kvoErrRange},
    {13, kvoErrRange}, {-1, kvoErrRange}, {26, kvoErrRange}};

std::vector<Kvo16s> lspLike(int n) {
    std::vector<Kvo16s> v(n);
    for (int i = 0; i < n; ++i) v[i] = static_cast<Kvo16s>(30000 - 6000 * (i % 10));
    return v;
}

TEST(GsmAmrArgs, LpAnalysis) {
    {
        BadArgs t("kvosAutoCorr_GSMAMR_16s32s");
        auto s = t.in<Kvo16s>("pSrc", 240);
        auto d = t.out<Kvo32s>("pDst", 22);
        auto m = t.value<KvoSpeechRate>("mode", kvoRate12200, kBadModes);
        t.run([&](const BadArgs::Call& c) { return kvosAutoCorr_GSMAMR_16s32s(c(s), c(d), c(m)); });
    }
    {
        BadArgs t("kvosLevinsonDurbin_GSMAMR_32s16s");
        // 0.9^k: the autocorrelation of a first-order process.
        auto s =
            t.in<Kvo32s>("pSrc", 11,
                         {2147418112, 1932676300, 1739408670, 1565467803, 1408921023, 1268028920,
                          1141226028, 1027103425, 924393083, 831953775, 748758397});
        auto d = t.out<Kvo16s>("pDst", 11);
        t.run([&](const BadArgs::Call& c) { return kvosLevinsonDurbin_GSMAMR_32s16s(c(s), c(d)); });
    }
    {
        BadArgs t("kvosLPCToLSP_GSMAMR_16s");
        auto a = t.in<Kvo16s>("pLpc", 11, {4096, -3000, 1000, 0, 0, 0, 0, 0, 0, 0, 0});
        auto p = t.in<Kvo16s>("pPrevLsp", 10, lspLike(10));
        auto d = t.out<Kvo16s>("pLsp", 10);
        t.run([&](const BadArgs::Call& c) { return kvosLPCToLSP_GSMAMR_16s(c(a), c(p), c(d)); });
    }
    {
        BadArgs t("kvosLSPToLPC_GSMAMR_16s");
        auto s = t.in<Kvo16s>("pLsp", 10, lspLike(10));
        auto d = t.out<Kvo16s>("pLpc", 11);
        t.run([&](const BadArgs::Call& c) { return kvosLSPToLPC_GSMAMR_16s(c(s), c(d)); });
    }
    // The simple vector steps: null first, then the length.
    Kvo16s v[128] = {}, g = -1, mem = 0;
    EXPECT_EQ(kvosInterpolate_GSMAMR_16s(v, nullptr, v, 0), kvoErrNullPtr);
    for (Kvo32s n : {0, -5}) EXPECT_EQ(kvosInterpolate_GSMAMR_16s(v, v, v, n), kvoErrSize);
    EXPECT_EQ(kvosPreemphasize_GSMAMR_16s(1, v, v, 0, nullptr), kvoErrNullPtr);
    for (Kvo32s n : {0, -1}) EXPECT_EQ(kvosPreemphasize_GSMAMR_16s(1, v, v, n, &mem), kvoErrSize);
    EXPECT_EQ(kvosAdaptiveCodebookGain_GSMAMR_16s(v, nullptr, &g), kvoErrNullPtr);
    EXPECT_EQ(kvosAdaptiveCodebookGainCoeffs_GSMAMR_16s(v, v, &g, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosFFTFwd_RToPerm_GSMAMR_16s_I(nullptr), kvoErrNullPtr);
    EXPECT_EQ(g, -1);
}

TEST(GsmAmrArgs, LspQuantiser) {
    for (KvoSpeechRate good : {kvoRate4750, kvoRate12200}) {
        BadArgs t("kvosLSPQuant_GSMAMR_16s");
        auto s = t.in<Kvo16s>("pLsp", 20, lspLike(20));
        auto p = t.inout<Kvo16s>("pPastResid", 10);
        auto q = t.out<Kvo16s>("pLspQ", 20);
        auto i = t.out<Kvo16s>("pIndices", 5);
        auto m = t.value<KvoSpeechRate>("mode", good, kBadModes);
        t.run([&](const BadArgs::Call& c) {
            return kvosLSPQuant_GSMAMR_16s(c(s), c(p), c(q), c(i), c(m));
        });
    }
    // Decoder: modes, then index words outside the codebooks (mode 7.4: 256,
    // 512, 512 rows), which the quantiser never produces.
    struct Words {
        std::vector<Kvo16s> w;
        KvoSpeechRate mode;
        KvoStatus want;
    };
    const Words cases[] = {
        {{1, 2, -1, 0, 0}, kvoRate7400, kvoErrRange},
        {{1, 256, 3, 0, 0}, kvoRate4750, kvoErrRange},
        {{1, 255, 127, 0, 0}, kvoRate5150, kvoOk},
        {{511, 511, 511, 0, 0}, kvoRate7950, kvoOk},
        {{127, 255, 511, 255, 63}, kvoRate12200, kvoOk},
        {{128, 255, 511, 255, 63}, kvoRate12200, kvoErrRange},
        {{127, 255, 511, 255, 64}, kvoRate12200, kvoErrRange},
        {{8, 255, 511, 511, 0}, kvoRateSID, kvoErrRange},
    };
    for (const auto& k : cases) {
        for (Kvo16s bad : {Kvo16s(0), Kvo16s(1)}) {
            SCOPED_TRACE(::testing::Message() << "mode " << k.mode << " bad " << bad);
            BadArgs t("kvosQuantLSPDecode_GSMAMR_16s");
            auto i = t.in<Kvo16s>("pIndices", 5, k.w);
            auto p = t.inout<Kvo16s>("pPastResid", 10);
            auto lsf = t.inout<Kvo16s>("pPrevLsf", 10, lspLike(10));
            auto lsp = t.inout<Kvo16s>("pPrevLsp", 10, lspLike(10));
            auto q = t.out<Kvo16s>("pLspQ", 40);
            auto b = t.value<Kvo16s>("badFrame", bad);
            auto m = t.value<KvoSpeechRate>("mode", k.mode, kBadModes);
            // A bad frame reads no index word.
            t.valid_status(bad ? kvoOk : k.want);
            t.run([&](const BadArgs::Call& c) {
                return kvosQuantLSPDecode_GSMAMR_16s(c(i), c(p), c(lsf), c(lsp), c(q), c(b), c(m));
            });
        }
    }
}

TEST(GsmAmrArgs, Dtx) {
    for (int enc = 0; enc < 2; ++enc) {
        BadArgs t(enc ? "kvosEncDTXBuffer_GSMAMR_16s" : "kvosDecDTXBuffer_GSMAMR_16s");
        auto s = t.in<Kvo16s>("pSpeech", 160);
        auto l = t.in<Kvo16s>("pLsp", 10);
        auto x = t.inout<Kvo16s>("pHistIndex", 1, {7});
        auto h = t.inout<Kvo16s>("pLspHistory", 80);
        auto e = t.inout<Kvo16s>("pLogEnHistory", 8);
        t.run([&](const BadArgs::Call& c) {
            return enc ? kvosEncDTXBuffer_GSMAMR_16s(c(s), c(l), c(x), c(h), c(e))
                       : kvosDecDTXBuffer_GSMAMR_16s(c(s), c(l), c(x), c(h), c(e));
        });
    }
    for (Kvo16s badIndex : {Kvo16s(8), Kvo16s(-1)}) {
        std::vector<Kvo16s> s(160, 100), l(10, 5), h(80, 0), e(8, 0);
        Kvo16s idx = badIndex;
        EXPECT_EQ(kvosEncDTXBuffer_GSMAMR_16s(s.data(), l.data(), &idx, h.data(), e.data()),
                  kvoErrRange);
        EXPECT_EQ(idx, badIndex);
    }
    {
        BadArgs t("kvosEncDTXHandler_GSMAMR_16s");
        auto hg = t.inout<Kvo16s>("pHangover", 1, {3});
        auto el = t.inout<Kvo16s>("pAnaElapsed", 1, {12});
        auto m = t.inout<KvoSpeechRate>("pMode", 1, {kvoRate7400});
        auto su = t.out<Kvo16s>("pSidUpdate", 1);
        auto v = t.value<Kvo16s>("vadFlag", 0);
        t.run([&](const BadArgs::Call& c) {
            return kvosEncDTXHandler_GSMAMR_16s(c(hg), c(el), c(m), c(su), c(v));
        });
    }
    {
        BadArgs t("kvosEncDTXSID_GSMAMR_16s");
        auto h = t.in<Kvo16s>("pLspHistory", 80, lspLike(80));
        auto e = t.in<Kvo16s>("pLogEnHistory", 8);
        auto ei = t.out<Kvo16s>("pLogEnergyIndex", 1);
        auto ii = t.out<Kvo16s>("pInitLsfIndex", 1);
        auto li = t.out<Kvo16s>("pLsfIndices", 3);
        auto pe = t.out<Kvo16s>("pPredErr", 4);
        auto pe2 = t.out<Kvo16s>("pPredErrMR122", 4);
        auto u = t.value<Kvo16s>("sidUpdate", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosEncDTXSID_GSMAMR_16s(c(h), c(e), c(ei), c(ii), c(li), c(pe), c(pe2), c(u));
        });
    }
}

TEST(GsmAmrArgs, Vad) {
    KvoVAD1State_GSMAMR s1{};
    KvoVAD2State_GSMAMR s2{};
    const KvoVAD1State_GSMAMR k1{};
    Kvo16s f = -1, x[200] = {};
    EXPECT_EQ(kvosVAD1_GSMAMR_16s(nullptr, &s1, &f, 0, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosVAD1_GSMAMR_16s(x, nullptr, &f, 0, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosVAD1_GSMAMR_16s(x, &s1, nullptr, 0, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosVAD2_GSMAMR_16s(nullptr, &s2, &f, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosVAD2_GSMAMR_16s(x, nullptr, &f, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosVAD2_GSMAMR_16s(x, &s2, nullptr, 0), kvoErrNullPtr);
    EXPECT_EQ(f, -1);
    EXPECT_EQ(std::memcmp(&s1, &k1, sizeof s1), 0) << "state untouched on a refused call";
}

}  // namespace
