// Argument checks of the codebook exports: each null pointer, then the
// subframe number, every failure leaving the canary-filled outputs, the
// matrix and the budget word as they were.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "kvosc.h"

namespace {

struct Bufs {
    Kvo16s corr[40], imp[40], target[40], res[40];
    Kvo32s m32[616];
    Kvo16s m16[616];
    Kvo16s vec[40], flt[40], idx[5], sign, index, times;
    void fill() {
        for (int i = 0; i < 40; ++i) {
            corr[i] = static_cast<Kvo16s>(i * 211 - 4000);
            imp[i] = static_cast<Kvo16s>(4096 >> (i / 4));
            target[i] = res[i] = static_cast<Kvo16s>(i * 97 - 2000);
        }
        for (int i = 0; i < 616; ++i) {
            m32[i] = 1000 * i + 7;
            m16[i] = static_cast<Kvo16s>(i * 13);
        }
        std::memset(vec, 0xa5, sizeof vec);
        std::memset(flt, 0xa5, sizeof flt);
        std::memset(idx, 0xa5, sizeof idx);
        std::memset(&sign, 0xa5, sizeof sign);
        std::memset(&index, 0xa5, sizeof index);
        times = 31;
    }
    bool untouched() const {
        Bufs ref;
        ref.fill();
        return std::memcmp(this, &ref, sizeof ref) == 0;
    }
};

template <class T>
T* np(T* p, unsigned mask, int bit) {
    return (mask >> bit) & 1 ? nullptr : p;
}

struct Export {
    std::string name;
    int pointers;
    // Calls the export with the pointers of mask nulled and the given subframe.
    std::function<KvoStatus(Bufs&, unsigned, Kvo32s)> call;
    std::vector<Kvo32s> badSubframes, goodSubframes;
};

std::vector<Export> exportsList() {
    return {
        {"ToeplizMatrix_G729_16s32s", 2,
         [](Bufs& b, unsigned m, Kvo32s) {
             return kvosToeplizMatrix_G729_16s32s(np(b.imp, m, 0), np(b.m32, m, 1));
         },
         {},
         {0}},
        {"ToeplizMatrix_G729_16s", 2,
         [](Bufs& b, unsigned m, Kvo32s) {
             return kvosToeplizMatrix_G729_16s(np(b.imp, m, 0), np(b.m16, m, 1));
         },
         {},
         {0}},
        {"FixedCodebookSearch_G729_32s16s", 5,
         [](Bufs& b, unsigned m, Kvo32s sf) {
             return kvosFixedCodebookSearch_G729_32s16s(np(b.corr, m, 0), np(b.m32, m, 1),
                                                        np(b.vec, m, 2), np(b.idx, m, 3),
                                                        np(&b.times, m, 4), sf);
         },
         {-1, 0x8000, -32768},
         {0, 1, 2, 0x7fff, 0x10000}},
        {"FixedCodebookSearch_G729_16s", 5,
         [](Bufs& b, unsigned m, Kvo32s sf) {
             return kvosFixedCodebookSearch_G729_16s(np(b.corr, m, 0), np(b.m16, m, 1),
                                                     np(b.vec, m, 2), np(b.idx, m, 3),
                                                     np(&b.times, m, 4), sf);
         },
         {2, -1, 0xffff, 100},
         {0, 1, 0x10000, 0x10001}},
        {"FixedCodebookSearch_G729A_32s16s", 4,
         [](Bufs& b, unsigned m, Kvo32s) {
             return kvosFixedCodebookSearch_G729A_32s16s(np(b.corr, m, 0), np(b.m32, m, 1),
                                                         np(b.vec, m, 2), np(b.idx, m, 3));
         },
         {},
         {0}},
        {"FixedCodebookSearch_G729A_16s", 4,
         [](Bufs& b, unsigned m, Kvo32s) {
             return kvosFixedCodebookSearch_G729A_16s(np(b.corr, m, 0), np(b.m16, m, 1),
                                                      np(b.vec, m, 2), np(b.idx, m, 3));
         },
         {},
         {0}},
        {"FixedCodebookSearch_G729D_16s", 6,
         [](Bufs& b, unsigned m, Kvo32s) {
             return kvosFixedCodebookSearch_G729D_16s(np(b.corr, m, 0), np(b.imp, m, 1),
                                                      np(b.vec, m, 2), np(b.flt, m, 3),
                                                      np(&b.sign, m, 4), np(&b.index, m, 5));
         },
         {},
         {0}},
        {"FixedCodebookSearch_G729E_16s", 6,
         [](Bufs& b, unsigned m, Kvo32s sf) {
             return kvosFixedCodebookSearch_G729E_16s(
                 static_cast<Kvo16s>(sf), np(b.target, m, 0), np(b.res, m, 1), np(b.imp, m, 2),
                 np(b.vec, m, 3), np(b.flt, m, 4), np(b.idx, m, 5));
         },
         {},
         {0, 1}},
    };
}

TEST(G729FcbArgs, EveryNullPointerIsRefusedWithNothingWritten) {
    for (const Export& e : exportsList()) {
        for (unsigned mask = 1; mask < (1u << e.pointers); ++mask) {
            Bufs b;
            b.fill();
            // A null pointer wins over a bad subframe.
            const Kvo32s sf = e.badSubframes.empty() ? 0 : e.badSubframes[0];
            EXPECT_EQ(e.call(b, mask, sf), kvoErrNullPtr) << e.name << " mask " << mask;
            EXPECT_TRUE(b.untouched()) << e.name << " mask " << mask;
        }
    }
}

TEST(G729FcbArgs, SubframeRange) {
    for (const Export& e : exportsList()) {
        for (Kvo32s sf : e.badSubframes) {
            Bufs b;
            b.fill();
            EXPECT_EQ(e.call(b, 0, sf), kvoErrRange) << e.name << " " << sf;
            EXPECT_TRUE(b.untouched()) << e.name << " " << sf;
        }
        for (Kvo32s sf : e.goodSubframes) {
            Bufs b;
            b.fill();
            EXPECT_EQ(e.call(b, 0, sf), kvoOk) << e.name << " " << sf;
        }
    }
}

}  // namespace
