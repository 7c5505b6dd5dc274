// Argument checks of every LPC export: each combination of null pointers gives kvoErrNullPtr
// before any other check, the G.729 order is checked after the pointers, and a refused call
// writes nothing; a valid order writes exactly order + 1 coefficients and order reflections.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "kvosc.h"

namespace {

constexpr Kvo16s kCanary = 0x3c3c;

struct Buffers {
    Kvo32s r32[32];
    Kvo16s in1[32], in2[32], out1[32], out2[32], out3[32];
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

// call(b, m, order) passes null for every pointer whose bit is set in m.
struct Export {
    std::string name;
    int pointers;
    std::function<KvoStatus(Buffers&, unsigned, Kvo32s)> call;
};
// clang-format off
#define P(i, p) (((m >> i) & 1) ? nullptr : (p))
#define EXPORT(name, n, ...) Export{#name, n, [](Buffers& b, unsigned m, Kvo32s order) { (void)order; return kvos##name(__VA_ARGS__); }}
const std::vector<Export> kExports = {
    EXPORT(LevinsonDurbin_G729_32s16s, 4, P(0, b.r32), order, P(1, b.out1), P(2, b.out2), P(3, b.out3)),
    EXPORT(LevinsonDurbin_G729B, 4, P(0, b.r32), P(1, b.out1), P(2, b.out2), P(3, b.out3)),
    EXPORT(LevinsonDurbin_G723_16s, 4, P(0, b.in2), P(1, b.out1), P(2, b.out2), P(3, b.out3)),
    EXPORT(LPCToLSP_G729_16s, 3, P(0, b.in2), P(1, b.in1), P(2, b.out1)),
    EXPORT(LPCToLSP_G729A_16s, 3, P(0, b.in2), P(1, b.in1), P(2, b.out1)),
    EXPORT(LSPToLPC_G729_16s, 2, P(0, b.in1), P(1, b.out1)),
    EXPORT(LSFToLSP_G729_16s, 2, P(0, b.in2), P(1, b.out1)),
    EXPORT(LSFToLSP_GSMAMR_16s, 2, P(0, b.in2), P(1, b.out1)),
    EXPORT(LSPToLSF_G729_16s, 2, P(0, b.in1), P(1, b.out1)),
    EXPORT(LSPToLSF_Norm_G729_16s, 2, P(0, b.in1), P(1, b.out1)),
    EXPORT(LSFToLPC_G723_16s_I, 1, P(0, b.out1)),
    EXPORT(LSFToLPC_G723_16s, 2, P(0, b.in2), P(1, b.out1)),
    EXPORT(LPCToLSF_G723_16s, 3, P(0, b.in1), P(1, b.in2), P(2, b.out1)),
};
#undef EXPORT
#undef P
// clang-format on

TEST(LpcArgs, NullsThenOrderWithNothingWritten) {
    for (const auto& e : kExports) {
        // Bad orders only matter to the first; the null must win over them.
        for (Kvo32s order : {10, -1, 0, 31, 1000})
            for (unsigned mask = 1; mask < (1u << e.pointers); ++mask) {
                SCOPED_TRACE(e.name + " null mask " + std::to_string(mask));
                Buffers b;
                EXPECT_EQ(kvoErrNullPtr, e.call(b, mask, order));
                EXPECT_TRUE(b.untouched());
            }
        Buffers b;
        EXPECT_LE(0, e.call(b, 0, 10)) << e.name << " with all pointers valid";
    }
    const Export& g729 = kExports[0];
    for (Kvo32s order : {-1, 0, 31, 1000}) {
        Buffers b;
        EXPECT_EQ(kvoErrRange, g729.call(b, 0, order));
        EXPECT_TRUE(b.untouched());
    }
    for (Kvo32s order : {1, 10, 30}) {
        Buffers c;
        EXPECT_EQ(kvoOk, g729.call(c, 0, order));
        EXPECT_NE(kCanary, c.out1[order]);
        EXPECT_EQ(kCanary, c.out1[order + 1]);
        EXPECT_NE(kCanary, c.out2[order - 1]);
        EXPECT_EQ(kCanary, c.out2[order]);
        EXPECT_NE(kCanary, c.out3[0]);
        EXPECT_EQ(kCanary, c.out3[1]);
    }
}

}  // namespace
