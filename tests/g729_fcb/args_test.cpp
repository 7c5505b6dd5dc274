// Argument checks of the codebook exports: each null pointer, the subframe
// number, nothing written on a failure.
#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>
#include <vector>

#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

std::vector<Kvo16s> impulse() {
    std::vector<Kvo16s> h(40);
    for (int i = 0; i < 40; ++i) h[i] = static_cast<Kvo16s>(4096 >> (i / 4));
    return h;
}

template <class M, class F>
void toeplitz(const char* name, F f) {
    BadArgs t(name);
    auto h = t.in<Kvo16s>("pImp", 40, impulse());
    auto m = t.out<M>("pMatrix", 616);
    t.run([&](const BadArgs::Call& c) { return f(c(h), c(m)); });
}

template <class M, class F>
void search(const char* name, F f, std::initializer_list<std::pair<Kvo32s, KvoStatus>> bad) {
    BadArgs t(name);
    auto d = t.in<Kvo16s>("pCorr", 40);
    auto m = t.inout<M>("pMatrix", 616);
    auto v = t.out<Kvo16s>("pVec", 40);
    auto i = t.out<Kvo16s>("pIdx", 4);
    auto n = t.inout<Kvo16s>("pTimes", 1, {31});
    auto sf = t.value<Kvo32s>("subframe", 0, bad);
    t.run([&](const BadArgs::Call& c) { return f(c(d), c(m), c(v), c(i), c(n), c(sf)); });
}

template <class M, class F>
void searchA(const char* name, F f) {
    BadArgs t(name);
    auto d = t.in<Kvo16s>("pCorr", 40);
    auto m = t.inout<M>("pMatrix", 616);
    auto v = t.out<Kvo16s>("pVec", 40);
    auto i = t.out<Kvo16s>("pIdx", 4);
    t.run([&](const BadArgs::Call& c) { return f(c(d), c(m), c(v), c(i)); });
}

TEST(G729FcbArgs, MatricesAndSearches) {
    toeplitz<Kvo32s>("kvosToeplizMatrix_G729_16s32s", kvosToeplizMatrix_G729_16s32s);
    toeplitz<Kvo16s>("kvosToeplizMatrix_G729_16s", kvosToeplizMatrix_G729_16s);
    search<Kvo32s>("kvosFixedCodebookSearch_G729_32s16s", kvosFixedCodebookSearch_G729_32s16s,
                   {{-1, kvoErrRange}, {0x8000, kvoErrRange}, {-32768, kvoErrRange}});
    search<Kvo16s>("kvosFixedCodebookSearch_G729_16s", kvosFixedCodebookSearch_G729_16s,
                   {{2, kvoErrRange}, {-1, kvoErrRange}, {0xffff, kvoErrRange}});
    searchA<Kvo32s>("kvosFixedCodebookSearch_G729A_32s16s", kvosFixedCodebookSearch_G729A_32s16s);
    searchA<Kvo16s>("kvosFixedCodebookSearch_G729A_16s", kvosFixedCodebookSearch_G729A_16s);
}

TEST(G729FcbArgs, AnnexSearches) {
    {
        BadArgs t("kvosFixedCodebookSearch_G729D_16s");
        auto d = t.in<Kvo16s>("pCorr", 40);
        auto h = t.in<Kvo16s>("pImp", 40, impulse());
        auto v = t.out<Kvo16s>("pVec", 40);
        auto f = t.out<Kvo16s>("pFlt", 40);
        auto s = t.out<Kvo16s>("pSign", 1);
        auto i = t.out<Kvo16s>("pIndex", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosFixedCodebookSearch_G729D_16s(c(d), c(h), c(v), c(f), c(s), c(i));
        });
    }
    for (Kvo16s mode : std::initializer_list<Kvo16s>{0, 1}) {
        BadArgs t("kvosFixedCodebookSearch_G729E_16s");
        auto md = t.value<Kvo16s>("mode", mode);
        auto x = t.in<Kvo16s>("pTarget", 40);
        auto r = t.in<Kvo16s>("pRes", 40);
        auto h = t.in<Kvo16s>("pImp", 40, impulse());
        auto v = t.out<Kvo16s>("pVec", 40);
        auto f = t.out<Kvo16s>("pFlt", 40);
        auto i = t.out<Kvo16s>("pIdx", 5);
        t.run([&](const BadArgs::Call& c) {
            return kvosFixedCodebookSearch_G729E_16s(c(md), c(x), c(r), c(h), c(v), c(f), c(i));
        });
    }
}

}  // namespace
