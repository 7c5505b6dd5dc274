// The fixed-point vocabulary against wide-integer models: exhaustive over
// 16-bit domains, a million operands with the edges forced in for 32-bit ones.
#include <gtest/gtest.h>

#include <cmath>

#include "model.h"
#include "numeric/fixed.h"

using namespace kvo;
using model::i128;

namespace {

constexpr uint32_t kSeed = 20261123;
constexpr size_t kN = 1000000;

// Number of left shifts that bring the top significant bit of x to bit 30,
// counted by shifting; negative values by their complement.
int normModel(Kvo32s x) {
    int64_t v = x < 0 ? ~int64_t{x} : x;
    if (v == 0) return 0;
    int n = 0;
    while (v < (int64_t{1} << 30)) {
        v <<= 1;
        ++n;
    }
    return n;
}

// mpy32 from its defining sum, exact; the only saturating step of the
// reference chain is the product of two -32768 high halves, whose doubled
// value 2^31 becomes 0x7fffffff before the (non-positive) cross terms.
Kvo32s mpy32Model(Kvo32s x, Kvo32s y) {
    i128 xh = model::floorShift(x, 16), yh = model::floorShift(y, 16);
    i128 xl = model::floorShift(x, 1) & 0x7fff, yl = model::floorShift(y, 1) & 0x7fff;
    i128 c = 2 * model::floorShift(xh * yl, 15) + 2 * model::floorShift(xl * yh, 15);
    i128 h = (xh == -32768 && yh == -32768) ? i128{INT32_MAX} : 2 * xh * yh;
    return model::c32(h + c);
}

}  // namespace

TEST(Fixed, NormTablesAreFloorLog2) {
    for (int i = 1; i < 256; ++i) {
        int l = int(std::floor(std::log2(double(i))));
        EXPECT_EQ(NormTable[i], 6 - l) << i;
        EXPECT_EQ(NormTable2[i], 14 - l) << i;
    }
    EXPECT_EQ(NormTable[0], 7);
    EXPECT_EQ(NormTable2[0], 15);
}

TEST(Fixed, Exhaustive16BitTerms) {
    // Every 16-bit a against edge and random b: mulQ15, mulQ15R, sat16 of the product.
    std::mt19937 g(kSeed);
    std::vector<Kvo16s> bs(model::edges16());
    for (int k = 0; k < 16; ++k) bs.push_back(Kvo16s(uint16_t(g())));
    for (Kvo16s b : bs) {
        for (int a = -32768; a < 32768; ++a) {
            i128 p = i128{a} * b;
            ASSERT_EQ(mulQ15(Kvo16s(a), b), Kvo32s(model::floorShift(p, 15))) << a << " " << b;
            ASSERT_EQ(mulQ15R(Kvo16s(a), b), Kvo32s(model::roundHalfUp(p, 15))) << a << " " << b;
            ASSERT_EQ(sat16(Kvo32s(p)), model::c16(p));
        }
    }
}

TEST(Fixed, Scalar32BitTermsAgainstModels) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    const auto xs = model::operands32(kN, kSeed);
    const auto ys = model::operands32(kN, kSeed + 1);
    const auto& e = model::edges32();
    auto check = [](Kvo32s x, Kvo32s y) {
        // round16: nearest, ties up, top clamped.
        ASSERT_EQ(round16(x), model::c16(model::roundHalfUp(x, 16))) << x;
        ASSERT_EQ(double32(x), model::c32(i128{2} * x)) << x;
        ASSERT_EQ(Add_32s(x, y), model::c32(i128{x} + y)) << x << " " << y;
        ASSERT_EQ(norm32(x), normModel(x)) << x;
        ASSERT_EQ(mpy32(x, y), mpy32Model(x, y)) << x << " " << y;
        ASSERT_EQ(hi(x), Kvo16s(model::floorShift(x, 16)));
        ASSERT_EQ(lo(x), Kvo16s(model::floorShift(x, 1) & 0x7fff));
        int n = int(uint32_t(y) % 32);
        ASSERT_EQ(ShiftL_32s(x, n), model::c32(i128{x} * (i128{1} << n))) << x << " " << n;
        Kvo32s z = x;
        int nz = Norm_32s_I(&z);
        if (x == -1) {
            ASSERT_EQ(nz, 31);
            ASSERT_EQ(z, INT32_MIN);
        } else {
            ASSERT_EQ(nz, normModel(x)) << x;
            ASSERT_EQ(i128{z}, i128{x} * (i128{1} << nz)) << x;
            if (x > 0) {
                ASSERT_GE(z, 0x40000000);
            }
            if (x < 0) {
                ASSERT_LT(z, -0x40000000 + 1);
            }
        }
    };
    for (size_t i = 0; i < xs.size(); ++i) {
        check(xs[i], ys[i]);
        if (HasFatalFailure()) return;
    }
    for (Kvo32s x : e)
        for (Kvo32s y : e) {
            check(x, y);
            if (HasFatalFailure()) return;
        }
}

TEST(Fixed, WorkedValues) {
    EXPECT_EQ(round16(0x7fff8000), 32767);
    EXPECT_EQ(round16(0x7fff7fff), 32767);  // (x + 0x8000) >> 16 without the test
    EXPECT_EQ(round16(0x00018000), 2);      // tie goes up
    EXPECT_EQ(round16(-0x00018000), -1);
    EXPECT_EQ(round16(INT32_MIN), -32768);
    EXPECT_EQ(mpy32(INT32_MIN, INT32_MIN), INT32_MAX);     // saturated, not wrapped
    EXPECT_EQ(mpy32(0x40000000, 0x40000000), 0x20000000);  // 0.5 * 0.5
    EXPECT_EQ(mpy32(INT32_MIN, 0x40000000), -0x40000000);  // -1 * 0.5
    EXPECT_EQ(norm32(0), 0);
    EXPECT_EQ(norm32(1), 30);
    EXPECT_EQ(norm32(-1), 0);
    EXPECT_EQ(norm32(INT32_MIN), 0);
    EXPECT_EQ(norm32(0x40000000), 0);
    EXPECT_EQ(norm32(0x3fffffff), 1);
    EXPECT_EQ(double32(0x40000000), INT32_MAX);
    EXPECT_EQ(double32(-0x40000000), INT32_MIN);
    EXPECT_EQ(double32(-0x40000001), INT32_MIN);
}

TEST(Fixed, Mpy32IsCloseToTheRealProduct) {
    // |mpy32(x, y) - x y / 2^31| stays within a few units away from the corner.
    const auto xs = model::operands32(200000, kSeed + 2);
    const auto ys = model::operands32(200000, kSeed + 3);
    for (size_t i = 0; i < xs.size(); ++i) {
        if (xs[i] == INT32_MIN && ys[i] == INT32_MIN) continue;
        double exact = double(xs[i]) * double(ys[i]) / 2147483648.0;
        ASSERT_NEAR(double(mpy32(xs[i], ys[i])), exact, 8.0) << xs[i] << " " << ys[i];
    }
}
