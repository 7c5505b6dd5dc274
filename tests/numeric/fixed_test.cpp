// The fixed-point vocabulary against wide-integer models and worked values.
#include <gtest/gtest.h>

#include "model.h"
#include "numeric/fixed.h"

using namespace kvo;
using model::i128;

namespace {

// Left shifts that bring the top significant bit to bit 30 (negatives by complement).
int normModel(Kvo32s x) {
    int64_t v = x < 0 ? ~int64_t{x} : x;
    int n = 0;
    while (v != 0 && v < (int64_t{1} << 30)) v <<= 1, ++n;
    return n;
}

// mpy32 from its defining sum; only the product of two -32768 high halves saturates.
Kvo32s mpy32Model(Kvo32s x, Kvo32s y) {
    i128 xh = model::floorShift(x, 16), yh = model::floorShift(y, 16);
    i128 xl = model::floorShift(x, 1) & 0x7fff, yl = model::floorShift(y, 1) & 0x7fff;
    i128 c = 2 * model::floorShift(xh * yl, 15) + 2 * model::floorShift(xl * yh, 15);
    i128 h = (xh == -32768 && yh == -32768) ? i128{INT32_MAX} : 2 * xh * yh;
    return model::c32(h + c);
}

}  // namespace

TEST(Fixed, ThirtyTwoBitTerms) {
    const auto xs = model::operands32(200000, 1), ys = model::operands32(200000, 2);
    const auto& e = model::edges32();
    auto check = [](Kvo32s x, Kvo32s y) {
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
        ASSERT_EQ(nz, x == -1 ? 31 : normModel(x)) << x;
        ASSERT_EQ(i128{z}, i128{x} * (i128{1} << nz)) << x;
    };
    for (size_t i = 0; i < xs.size() && !HasFatalFailure(); ++i) check(xs[i], ys[i]);
    for (size_t i = 0; i < e.size() * e.size() && !HasFatalFailure(); ++i)
        check(e[i / e.size()], e[i % e.size()]);
}
