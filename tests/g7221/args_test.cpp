// Argument checks of the G.722.1 exports: each null pointer, lengths other than 320 and 640,
// categories and power indices outside their tables; a refused call writes nothing, a valid
// one only its outputs.
#include <gtest/gtest.h>

#include <functional>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

TEST(G7221Args, TransformSteps) {
    using Fn = std::function<KvoStatus(const Kvo16s*, Kvo16s*, Kvo16s*, Kvo32s)>;
    // mem: history words per two samples (0: no history argument); fixed: the 320-sample
    // G.722 form, without a length.
    struct Step {
        const char* name;
        int mem;
        bool fixed;
        Fn f;
    };
    const Step steps[] = {
        {"MLTToDCT_G7221", 2, false, kvosDecomposeMLTToDCT_G7221_16s},
        {"DCTToMLT_G7221", 1, false, kvosDecomposeDCTToMLT_G7221_16s},
        {"MLTToDCT_G722", 2, true,
         [](auto s, auto m, auto d, Kvo32s) { return kvosDecomposeMLTToDCT_G722_16s(s, m, d); }},
        {"DCTToMLT_G722", 1, true,
         [](auto s, auto m, auto d, Kvo32s) { return kvosDecomposeDCTToMLT_G722_16s(s, m, d); }},
        {"DCTFwd_G7221", 0, false,
         [](auto s, auto, auto d, Kvo32s n) { return kvosDCTFwd_G7221_16s(s, d, n); }},
        {"DCTInv_G7221", 0, false,
         [](auto s, auto, auto d, Kvo32s n) { return kvosDCTInv_G7221_16s(s, d, n); }},
        {"DCTFwd_G722", 0, true,
         [](auto s, auto, auto d, Kvo32s) { return kvosDCTFwd_G722_16s(s, d); }},
        {"DCTInv_G722", 0, true,
         [](auto s, auto, auto d, Kvo32s) { return kvosDCTInv_G722_16s(s, d); }},
    };
    for (const Step& st : steps)
        for (int len : {320, 640}) {
            if (st.fixed && len == 640) continue;
            SCOPED_TRACE(testing::Message() << st.name << " at " << len);
            BadArgs t(st.name);
            auto src = t.in<Kvo16s>("pSrc", len);
            auto mem = t.inout<Kvo16s>("pMem", st.mem ? st.mem * len / 2 : 1);
            if (!st.mem) t.optional(mem);  // not passed
            auto dst = t.out<Kvo16s>("pDst", len);
            auto n = st.fixed ? t.value<Kvo32s>("len", len)
                              : t.value<Kvo32s>("len", len,
                                                {{0, kvoErrSize},
                                                 {-320, kvoErrSize},
                                                 {319, kvoErrSize},
                                                 {321, kvoErrSize},
                                                 {480, kvoErrSize},
                                                 {1280, kvoErrSize}});
            t.run([&](const BadArgs::Call& c) { return st.f(c(src), c(mem), c(dst), c(n)); });
        }
}

TEST(G7221Args, HuffmanEncode) {
    BadArgs t("kvosHuffmanEncode_G722_16s32u");
    auto cat = t.value<Kvo32s>(
        "category", 3,
        {{-1, kvoErrScaleRange}, {7, kvoErrScaleRange}, {INT32_MIN, kvoErrScaleRange}});
    auto pi = t.value<Kvo32s>(
        "powerIndex", 40,
        {{-1, kvoErrScaleRange}, {64, kvoErrScaleRange}, {INT32_MAX, kvoErrScaleRange}});
    auto src = t.in<Kvo16s>("pSrc", 20);
    auto dst = t.out<Kvo32u>("pDst", 6);
    auto bits = t.out<Kvo32s>("pBits", 1);
    t.run([&](const BadArgs::Call& c) {
        return kvosHuffmanEncode_G722_16s32u(c(cat), c(pi), c(src), c(dst), c(bits));
    });
}

}  // namespace
