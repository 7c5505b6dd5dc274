// Argument checks of the G.722.1 exports: each null pointer, lengths other
// than 320 and 640, categories and power indices outside their tables; a
// refused call writes nothing, a valid one writes only its outputs.
#include <gtest/gtest.h>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

constexpr std::initializer_list<std::pair<Kvo32s, KvoStatus>> kBadLengths = {
    {0, kvoErrSize},   {-320, kvoErrSize}, {319, kvoErrSize},
    {321, kvoErrSize}, {480, kvoErrSize},  {1280, kvoErrSize}};

// The windowing steps: pMem is len words forward, len/2 inverse.
template <class F>
void checkWindowing(const char* name, int len, bool inverse, bool withLen, F f) {
    SCOPED_TRACE(std::string(name) + " at " + std::to_string(len));
    BadArgs t(name);
    auto src = t.in<Kvo16s>("pSrc", len);
    auto mem = t.inout<Kvo16s>("pMem", inverse ? len / 2 : len);
    auto dst = t.out<Kvo16s>("pDst", len);
    auto n = withLen ? t.value<Kvo32s>("len", len, kBadLengths) : t.value<Kvo32s>("len", len);
    t.run([&](const BadArgs::Call& c) { return f(c(src), c(mem), c(dst), c(n)); });
}

template <class F>
void checkTransform(const char* name, int len, bool withLen, F f) {
    SCOPED_TRACE(std::string(name) + " at " + std::to_string(len));
    BadArgs t(name);
    auto src = t.in<Kvo16s>("pSrc", len);
    auto dst = t.out<Kvo16s>("pDst", len);
    auto n = withLen ? t.value<Kvo32s>("len", len, kBadLengths) : t.value<Kvo32s>("len", len);
    t.run([&](const BadArgs::Call& c) { return f(c(src), c(dst), c(n)); });
}

TEST(G7221Args, WindowingSteps) {
    for (int len : {320, 640}) {
        checkWindowing("kvosDecomposeMLTToDCT_G7221_16s", len, false, true,
                       kvosDecomposeMLTToDCT_G7221_16s);
        checkWindowing("kvosDecomposeDCTToMLT_G7221_16s", len, true, true,
                       kvosDecomposeDCTToMLT_G7221_16s);
    }
    checkWindowing("kvosDecomposeMLTToDCT_G722_16s", 320, false, false,
                   [](const Kvo16s* s, Kvo16s* m, Kvo16s* d, Kvo32s) {
                       return kvosDecomposeMLTToDCT_G722_16s(s, m, d);
                   });
    checkWindowing("kvosDecomposeDCTToMLT_G722_16s", 320, true, false,
                   [](const Kvo16s* s, Kvo16s* m, Kvo16s* d, Kvo32s) {
                       return kvosDecomposeDCTToMLT_G722_16s(s, m, d);
                   });
}

TEST(G7221Args, Transforms) {
    for (int len : {320, 640}) {
        checkTransform("kvosDCTFwd_G7221_16s", len, true, kvosDCTFwd_G7221_16s);
        checkTransform("kvosDCTInv_G7221_16s", len, true, kvosDCTInv_G7221_16s);
    }
    checkTransform("kvosDCTFwd_G722_16s", 320, false,
                   [](const Kvo16s* s, Kvo16s* d, Kvo32s) { return kvosDCTFwd_G722_16s(s, d); });
    checkTransform("kvosDCTInv_G722_16s", 320, false,
                   [](const Kvo16s* s, Kvo16s* d, Kvo32s) { return kvosDCTInv_G722_16s(s, d); });
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
