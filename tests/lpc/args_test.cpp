// Argument checks of every LPC export: each null pointer gives kvoErrNullPtr
// before any other check, and a failed call writes nothing.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "kvosc.h"

namespace {

constexpr Kvo16s kCanary = 0x3c3c;

// Input and output buffers large enough for any of the exports, outputs
// filled with a canary.
struct Buffers {
    Kvo32s r32[32];
    Kvo16s in1[32], in2[32];
    Kvo16s out1[32], out2[32], out3[32];
    Buffers() {
        for (int i = 0; i < 32; ++i) {
            r32[i] = i == 0 ? 0x40000000 : 0x1000000 >> i;
            in1[i] = Kvo16s(30000 - 2500 * (i % 10));  // ordered LSP-like values
            in2[i] = Kvo16s(1000 + 3000 * (i % 10));   // ordered LSF-like values
            out1[i] = out2[i] = out3[i] = kCanary;
        }
    }
    bool untouched() const {
        for (int i = 0; i < 32; ++i)
            if (out1[i] != kCanary || out2[i] != kCanary || out3[i] != kCanary) return false;
        return true;
    }
};

// One export with n pointer arguments; call(b, mask) passes null for every
// pointer whose bit is set in mask.
struct Export {
    std::string name;
    int pointers;
    std::function<KvoStatus(Buffers&, unsigned)> call;
};

template <typename T>
T* pick(T* p, unsigned mask, int bit) {
    return (mask >> bit) & 1 ? nullptr : p;
}

std::vector<Export> exports() {
    return {
        {"LevinsonDurbin_G729", 4,
         [](Buffers& b, unsigned m) {
             return kvosLevinsonDurbin_G729_32s16s(pick(b.r32, m, 0), 10, pick(b.out1, m, 1),
                                                   pick(b.out2, m, 2), pick(b.out3, m, 3));
         }},
        {"LevinsonDurbin_G729B", 4,
         [](Buffers& b, unsigned m) {
             return kvosLevinsonDurbin_G729B(pick(b.r32, m, 0), pick(b.out1, m, 1),
                                             pick(b.out2, m, 2), pick(b.out3, m, 3));
         }},
        {"LevinsonDurbin_G723", 4,
         [](Buffers& b, unsigned m) {
             return kvosLevinsonDurbin_G723_16s(pick(b.in2, m, 0), pick(b.out1, m, 1),
                                                pick(b.out2, m, 2), pick(b.out3, m, 3));
         }},
        {"LPCToLSP_G729", 3,
         [](Buffers& b, unsigned m) {
             return kvosLPCToLSP_G729_16s(pick(b.in2, m, 0), pick(b.in1, m, 1), pick(b.out1, m, 2));
         }},
        {"LPCToLSP_G729A", 3,
         [](Buffers& b, unsigned m) {
             return kvosLPCToLSP_G729A_16s(pick(b.in2, m, 0), pick(b.in1, m, 1),
                                           pick(b.out1, m, 2));
         }},
        {"LSPToLPC_G729", 2,
         [](Buffers& b, unsigned m) {
             return kvosLSPToLPC_G729_16s(pick(b.in1, m, 0), pick(b.out1, m, 1));
         }},
        {"LSFToLSP_G729", 2,
         [](Buffers& b, unsigned m) {
             return kvosLSFToLSP_G729_16s(pick(b.in2, m, 0), pick(b.out1, m, 1));
         }},
        {"LSFToLSP_GSMAMR", 2,
         [](Buffers& b, unsigned m) {
             return kvosLSFToLSP_GSMAMR_16s(pick(b.in2, m, 0), pick(b.out1, m, 1));
         }},
        {"LSPToLSF_G729", 2,
         [](Buffers& b, unsigned m) {
             return kvosLSPToLSF_G729_16s(pick(b.in1, m, 0), pick(b.out1, m, 1));
         }},
        {"LSPToLSF_Norm_G729", 2,
         [](Buffers& b, unsigned m) {
             return kvosLSPToLSF_Norm_G729_16s(pick(b.in1, m, 0), pick(b.out1, m, 1));
         }},
        {"LSFToLPC_G723_I", 1,
         [](Buffers& b, unsigned m) { return kvosLSFToLPC_G723_16s_I(pick(b.out1, m, 0)); }},
        {"LSFToLPC_G723", 2,
         [](Buffers& b, unsigned m) {
             return kvosLSFToLPC_G723_16s(pick(b.in2, m, 0), pick(b.out1, m, 1));
         }},
        {"LPCToLSF_G723", 3,
         [](Buffers& b, unsigned m) {
             return kvosLPCToLSF_G723_16s(pick(b.in1, m, 0), pick(b.in2, m, 1), pick(b.out1, m, 2));
         }},
    };
}

TEST(LpcArgs, EveryNullPointerIsRefusedWithNothingWritten) {
    for (const auto& e : exports()) {
        for (unsigned mask = 1; mask < (1u << e.pointers); ++mask) {
            SCOPED_TRACE(e.name + " null mask " + std::to_string(mask));
            Buffers b;
            EXPECT_EQ(kvoErrNullPtr, e.call(b, mask));
            // The in-place form's buffer is its output: only a non-null call
            // may change it.
            EXPECT_TRUE(b.untouched());
        }
        Buffers b;
        EXPECT_LE(0, e.call(b, 0)) << e.name << " with all pointers valid";
    }
}

TEST(LpcArgs, LevinsonOrderIsCheckedAfterPointers) {
    Buffers b;
    for (Kvo32s order : {-1, 0, 31, 1000}) {
        EXPECT_EQ(kvoErrRange,
                  kvosLevinsonDurbin_G729_32s16s(b.r32, order, b.out1, b.out2, b.out3));
        EXPECT_EQ(kvoErrNullPtr,
                  kvosLevinsonDurbin_G729_32s16s(nullptr, order, b.out1, b.out2, b.out3));
    }
    EXPECT_TRUE(b.untouched());
    for (Kvo32s order : {1, 10, 30}) {
        Buffers c;
        EXPECT_EQ(kvoOk, kvosLevinsonDurbin_G729_32s16s(c.r32, order, c.out1, c.out2, c.out3));
        // Exactly order + 1 coefficients and order reflection coefficients.
        EXPECT_EQ(kCanary, c.out1[order + 1]);
        EXPECT_NE(kCanary, c.out1[order]);
        EXPECT_EQ(kCanary, c.out2[order]);
        EXPECT_NE(kCanary, c.out2[order - 1]);
        EXPECT_NE(kCanary, c.out3[0]);
        EXPECT_EQ(kCanary, c.out3[1]);
    }
}

}  // namespace
