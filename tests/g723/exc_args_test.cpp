// Argument tests of the G.723.1 excitation exports: every null pointer, every
// bad length or range, in the documented order; a failed call writes nothing.
#include <gtest/gtest.h>

#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

using kvosc::test::BadArgs;

namespace {

TEST(G723ExcArgs, PitchSearches) {
    {
        BadArgs t("kvosOpenLoopPitchSearch_G723_16s");
        auto src = t.in<Kvo16s>("pSrc", 120, {}, 142);
        auto lag = t.out<Kvo16s>("pDstLag", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosOpenLoopPitchSearch_G723_16s(c(src), c(lag));
        });
    }
    {
        BadArgs t("kvosHarmonicSearch_G723_16s");
        auto pl = t.value<Kvo16s>("pitchLag", 145, {{17, kvoErrSize}, {146, kvoErrSize}});
        auto src = t.in<Kvo16s>("pSrc", 60, {}, 148);
        auto lag = t.out<Kvo16s>("pDstLag", 1);
        auto gain = t.out<Kvo16s>("pDstGain", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosHarmonicSearch_G723_16s(c(pl), c(src), c(lag), c(gain));
        });
    }
}

TEST(G723ExcArgs, AdaptiveCodebook) {
    for (Kvo16s sf : {0, 1}) {
        BadArgs t("kvosAdaptiveCodebookSearch_G723");
        auto pl = t.value<Kvo16s>("pitchLag", Kvo16s(sf ? 141 : 142),
                                  {{17, kvoErrRange}, {Kvo16s(sf ? 142 : 143), kvoErrRange}});
        auto x = t.in<Kvo16s>("pTarget", 60);
        auto h = t.in<Kvo16s>("pImpulse", 60);
        auto ex = t.in<Kvo16s>("pPrevExcitation", 145);
        auto err = t.in<Kvo32s>("pErrorBuffer", 5, std::vector<Kvo32s>(5, 0x100000));
        auto d = t.out<Kvo16s>("pDstLagDelta", 1);
        auto g = t.out<Kvo16s>("pDstGainIndex", 1);
        auto sub = t.value<Kvo16s>("subframe", sf, {{-1, kvoErrRange}, {5, kvoErrRange}});
        auto sine = t.value<Kvo16s>("sineDetector", 0);
        auto rate = t.value<KvoSpeechRate>("rate", 4, {{3, kvoErrRange}, {0, kvoErrRange}});
        t.run([&](const BadArgs::Call& c) {
            return kvosAdaptiveCodebookSearch_G723(c(pl), c(x), c(h), c(ex), c(err), c(d), c(g),
                                                   c(sub), c(sine), c(rate));
        });
    }
    {
        BadArgs t("kvosDecodeAdaptiveVector_G723_16s");
        auto pl =
            t.value<Kvo16s>("pitchLag", 143, {{17, kvoErrOutOfRange}, {144, kvoErrOutOfRange}});
        auto ld = t.value<Kvo16s>("lagDelta", 3, {{-1, kvoErrOutOfRange}, {4, kvoErrOutOfRange}});
        auto gi =
            t.value<Kvo16s>("gainIndex", 169, {{-1, kvoErrOutOfRange}, {170, kvoErrOutOfRange}});
        auto ex = t.in<Kvo16s>("pPrevExcitation", 145, {}, 2);
        auto dst = t.out<Kvo16s>("pDst", 60);
        auto rate = t.value<KvoSpeechRate>("rate", 2, {{4 + 1, kvoErrRange}, {6, kvoErrRange}});
        t.run([&](const BadArgs::Call& c) {
            return kvosDecodeAdaptiveVector_G723_16s(c(pl), c(ld), c(gi), c(ex), c(dst), c(rate));
        });
    }
}

}  // namespace

namespace {

TEST(G723ExcArgs, AlgebraicCodebook) {
    {
        BadArgs t("kvosToeplizMatrix_G723_16s32s");
        auto h = t.in<Kvo16s>("pImpulse", 60);
        auto m = t.out<Kvo32s>("pDst", 416);
        t.run([&](const BadArgs::Call& c) { return kvosToeplizMatrix_G723_16s32s(c(h), c(m)); });
    }
    {
        BadArgs t("kvosToeplizMatrix_G723_16s");
        auto h = t.in<Kvo16s>("pImpulse", 60);
        auto m = t.out<Kvo16s>("pDst", 416);
        t.run([&](const BadArgs::Call& c) { return kvosToeplizMatrix_G723_16s(c(h), c(m)); });
    }
    {
        BadArgs t("kvosACELPFixedCodebookSearch_G723_32s16s");
        auto x = t.in<Kvo16s>("pCorr", 60);
        auto m = t.inout<Kvo32s>("pMatrix", 416);
        auto s = t.out<Kvo16s>("pDstSigns", 4);
        auto p = t.out<Kvo16s>("pDstPositions", 4);
        auto g = t.out<Kvo16s>("pDstGrid", 1);
        auto code = t.out<Kvo16s>("pCode", 60);
        auto b = t.inout<Kvo16s>("pSearchBudget", 1, std::vector<Kvo16s>{120});
        t.run([&](const BadArgs::Call& c) {
            return kvosACELPFixedCodebookSearch_G723_32s16s(c(x), c(m), c(s), c(p), c(g), c(code),
                                                            c(b));
        });
    }
    {
        BadArgs t("kvosACELPFixedCodebookSearch_G723_16s");
        auto x = t.in<Kvo16s>("pCorr", 60);
        auto m = t.in<Kvo16s>("pMatrix", 416);
        auto s = t.out<Kvo16s>("pDstSigns", 4);
        auto p = t.out<Kvo16s>("pDstPositions", 4);
        auto g = t.out<Kvo16s>("pDstGrid", 1);
        auto code = t.out<Kvo16s>("pCode", 60);
        auto b = t.inout<Kvo16s>("pSearchBudget", 1, std::vector<Kvo16s>{120});
        t.run([&](const BadArgs::Call& c) {
            return kvosACELPFixedCodebookSearch_G723_16s(c(x), c(m), c(s), c(p), c(g), c(code),
                                                         c(b));
        });
    }
}

}  // namespace

namespace {

TEST(G723ExcArgs, Multipulse) {
    {
        BadArgs t("kvosMPMLQFixedCodebookSearch_G723");
        auto pl = t.value<Kvo16s>("pitchLag", 40, {{17, kvoErrRange}, {146, kvoErrRange}});
        auto h = t.in<Kvo16s>("pImpulse", 60);
        auto x = t.in<Kvo16s>("pTarget", 60);
        auto code = t.out<Kvo16s>("pCode", 60);
        auto g = t.out<Kvo16s>("pDstGrid", 1);
        auto tr = t.out<Kvo16s>("pDstTrainFlag", 1);
        auto a = t.out<Kvo16s>("pDstAmpIndex", 1);
        auto s = t.out<Kvo16s>("pDstSignMask", 1);
        auto p = t.out<Kvo32s>("pDstPosition", 1);
        auto sf = t.value<Kvo16s>("subframe", 3, {{-1, kvoErrRange}, {4, kvoErrRange}});
        t.run([&](const BadArgs::Call& c) {
            return kvosMPMLQFixedCodebookSearch_G723(c(pl), c(h), c(x), c(code), c(g), c(tr), c(a),
                                                     c(s), c(p), c(sf));
        });
    }
    {
        BadArgs t("kvosGainQuant_G723_16s");
        auto h = t.in<Kvo16s>("pImpulse", 60);
        auto x = t.in<Kvo16s>("pTarget", 60);
        auto pos = t.inout<Kvo16s>("pDstPositions", 6);
        auto amp = t.inout<Kvo16s>("pDstAmplitudes", 6);
        auto err = t.inout<Kvo32s>("pMaxError", 1, std::vector<Kvo32s>{-0x40000000});
        auto g = t.inout<Kvo16s>("pDstGrid", 1);
        auto a = t.inout<Kvo16s>("pDstAmpIndex", 1);
        auto np = t.value<Kvo32s>("pulses", 6, {{4, kvoErrBadArg}, {7, kvoErrBadArg}});
        auto imp = t.out<Kvo32s>("pImproved", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosGainQuant_G723_16s(c(h), c(x), c(pos), c(amp), c(err), c(g), c(a), c(np),
                                          c(imp));
        });
    }
}

}  // namespace
