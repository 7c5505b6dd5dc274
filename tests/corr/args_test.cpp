// Argument checks of every correlation export: each null pointer, then the
// lengths, then the scale, each failure leaving canary-filled outputs as
// they were.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "kvosc.h"

namespace {

constexpr int kBuf = 512;

struct Bufs {
    Kvo16s src1[kBuf], src2[kBuf], d16[kBuf];
    Kvo32s d32[kBuf], norm32;
    Kvo16s norm16;
    void fill() {
        for (int i = 0; i < kBuf; ++i) src1[i] = src2[i] = static_cast<Kvo16s>(i * 37 - 900);
        std::memset(d16, 0xa5, sizeof d16);
        std::memset(d32, 0xa5, sizeof d32);
        std::memset(&norm32, 0xa5, sizeof norm32);
        std::memset(&norm16, 0xa5, sizeof norm16);
    }
    bool untouched() const {
        Bufs ref;
        ref.fill();
        return std::memcmp(d16, ref.d16, sizeof d16) == 0 &&
               std::memcmp(d32, ref.d32, sizeof d32) == 0 && norm32 == ref.norm32 &&
               norm16 == ref.norm16;
    }
};

// One call of an export: the mask selects which pointers are nulled (bit i
// nulls pointer argument i), len and lags are passed where the export has them.
using Call = std::function<KvoStatus(Bufs&, unsigned nullMask, Kvo32s len, Kvo32s lags, Kvo32s sf)>;

struct Export {
    std::string name;
    int pointers;  // number of pointer arguments
    bool hasLen, hasLags, hasScale;
    Call call;
};

template <class T>
T* np(T* p, unsigned mask, int bit) {
    return (mask >> bit) & 1 ? nullptr : p;
}

// P(i, ptr): pointer argument i, nulled when bit i of the mask is set.
#define P(i, ptr) np(ptr, m, i)
#define EXPORT(name, ptrs, hasLen, hasLags, hasScale, ...)                            \
    Export {                                                                          \
#name, ptrs, hasLen, hasLags, hasScale,                                             \
            [](Bufs& b, unsigned m, Kvo32s len, Kvo32s lags, Kvo32s sf) -> KvoStatus {      \
                (void)len, (void)lags, (void)sf;                                            \
                return name(__VA_ARGS__);                                                   \
            } \
    }

const std::vector<Export>& exports() {
    static const std::vector<Export> list = {
        EXPORT(kvosAutoCorr_NormE_16s32s, 3, true, true, false, P(0, b.src1), len, P(1, b.d32),
               lags, P(2, &b.norm32)),
        EXPORT(kvosAutoCorr_NormE_NR_16s, 3, true, true, false, P(0, b.src1), len, P(1, b.d16),
               lags, P(2, &b.norm32)),
        EXPORT(kvosAutoCorr_16s32s, 2, true, true, false, P(0, b.src1), len, P(1, b.d32), lags),
        EXPORT(kvosAutoCorr_NormE_G723_16s, 3, false, false, false, P(0, b.src1), P(1, b.d16),
               P(2, &b.norm32)),
        EXPORT(kvosAutoCorr_G723_16s, 3, false, false, false, P(0, b.src1), P(1, &b.norm16),
               P(2, b.d16)),
        EXPORT(kvosAutoCorr_G729B, 3, false, false, false, P(0, b.src1), P(1, &b.norm16),
               P(2, b.d32)),
        EXPORT(kvosCrossCorr_NR_16s, 3, true, true, false, P(0, b.src1), P(1, b.src2), len,
               P(2, b.d16), lags),
        EXPORT(kvosCrossCorr_NR_16s_Sfs, 3, true, true, false, P(0, b.src1), P(1, b.src2), len,
               P(2, b.d16), lags, sf),
        EXPORT(kvosCrossCorr_NR_16s32s, 3, true, true, false, P(0, b.src1), P(1, b.src2), len,
               P(2, b.d32), lags),
        EXPORT(kvosCrossCorr_16s32s_Sfs, 3, true, false, false, P(0, b.src1), P(1, b.src2), len,
               P(2, b.d32), sf),
        EXPORT(kvosCrossCorr_NormM_16s, 3, true, false, false, P(0, b.src1), P(1, b.src2), len,
               P(2, b.d16)),
        EXPORT(kvosConvPartial_16s_Sfs, 3, true, false, true, P(0, b.src1), P(1, b.src2),
               P(2, b.d16), len, sf),
        EXPORT(kvosConvPartial_16s32s, 3, true, false, false, P(0, b.src1), P(1, b.src2),
               P(2, b.d32), len),
        EXPORT(kvosConvPartial_NR_16s, 3, true, false, false, P(0, b.src1), P(1, b.src2),
               P(2, b.d16), len),
        EXPORT(kvosConvPartial_NR_Low_16s, 3, true, false, false, P(0, b.src1), P(1, b.src2),
               P(2, b.d16), len),
    };
    return list;
}
#undef EXPORT
#undef P

}  // namespace

TEST(CorrArgs, EveryExportRejectsBadArgumentsWithoutWriting) {
    ASSERT_EQ(exports().size(), 15u);
    static Bufs b;  // large: keep it off the test's stack
    for (const Export& e : exports()) {
        SCOPED_TRACE(e.name);
        auto check = [&](unsigned mask, Kvo32s len, Kvo32s lags, Kvo32s sf, KvoStatus want) {
            b.fill();
            EXPECT_EQ(e.call(b, mask, len, lags, sf), want)
                << "mask " << mask << " len " << len << " lags " << lags << " sf " << sf;
            EXPECT_TRUE(b.untouched());
        };
        // Each pointer alone, and nulls together with bad lengths: nulls come first.
        for (int p = 0; p < e.pointers; ++p) {
            check(1u << p, 8, 4, 0, kvoErrNullPtr);
            check(1u << p, 0, 0, -1, kvoErrNullPtr);
        }
        if (e.hasLen)
            for (Kvo32s len : {0, -1, -2147483647 - 1}) check(0, len, 4, 0, kvoErrSize);
        if (e.hasLags)
            for (Kvo32s lags : {0, -1}) check(0, 8, lags, 0, kvoErrSize);
        if (e.hasScale) {
            // The convolution tests its scale before its length.
            check(0, 8, 4, -1, kvoErrBadArg);
            check(0, 0, 4, -1, kvoErrBadArg);
        }
        // And a good call succeeds.
        b.fill();
        EXPECT_GE(e.call(b, 0, 8, 4, 1), kvoOk);
    }
}

TEST(CorrArgs, UncheckedScalesStillSucceed) {
    // Only the convolution tests its scale; the triangular correlation takes
    // negative scales as left shifts, the rounded one does not test it.
    static Bufs b;
    b.fill();
    EXPECT_EQ(kvosCrossCorr_16s32s_Sfs(b.src1, b.src2, 8, b.d32, -5), kvoOk);
    EXPECT_EQ(kvosCrossCorr_NR_16s_Sfs(b.src1, b.src2, 8, b.d16, 4, 40), kvoOk);
}
