// Private vector workers against wide-integer models, and the vector paths
// against their scalar twins (memcmp with guard elements, every length and phase).
// The G.729 helpers (log2, pow2, gain history, energies) are proven by the coders' vectors.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>

#include "model.h"
#include "numeric/arith.h"
#include "numeric/numeric_tables.h"

using namespace kvo;
using model::i128;

TEST(ArithPrivate, ConversionsAndProducts) {
    const auto xs = model::operands32(20000, 3);
    const int n = int(xs.size());
    std::vector<Kvo16s> d(xs.size());
    for (int sf : {-33, -31, -16, -1, 0, 1, 15, 16, 31, 33}) {
        kvosConvert_NR_32s16s_Sfs_(xs.data(), d.data(), n, sf);
        for (int i = 0; i < n; ++i) {
            Kvo32s x = xs[size_t(i)];
            ASSERT_EQ(d[size_t(i)], sf > 0 ? model::c16(model::roundHalfUp(x, std::min(sf, 31)))
                                           : model::c16(Kvo32s(uint32_t(x) << std::min(-sf, 31))))
                << x << " sf " << sf;
        }
        if (sf < 0) continue;
        ownConvert_32s16s_sfs(xs.data(), d.data(), n, sf);
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(d[size_t(i)], model::c16(model::floorShift(xs[size_t(i)], std::min(sf, 31))));
    }
    std::mt19937 g(3);
    const auto a = model::random16(20000, g), b = model::random16(20000, g);
    for (int sf : {0, 1, 15, 16, 31}) {
        ownMul_16s_NoS_Sfs(a.data(), b.data(), d.data(), n, sf);
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(d[size_t(i)],
                      model::low16(model::floorShift(i128{a[size_t(i)]} * b[size_t(i)], sf)));
    }
}

// ---- vector paths against the scalar twins ----------------------------------
namespace {
using Op = std::function<void(int stage, bool simd, const Kvo16s*, const Kvo16s*, Kvo16s*, int)>;
void compareTwins(int stages, const Op& op) {
    std::mt19937 g(424242);
    alignas(16) Kvo16s a[64], b[64], d1[64], d2[64];
    for (int stage = 0; stage < stages; ++stage)
        for (int fill = 0; fill < 4; ++fill)
            for (int len = 1; len <= 25; ++len)
                for (int od = -3; od < 16; ++od) {
                    for (int i = 0; i < 64; ++i) {
                        a[i] = fill == 0
                                   ? Kvo16s(g())
                                   : Kvo16s(fill == 1 || (fill == 3 && i & 1) ? -32768 : 32767);
                        b[i] = fill == 3 ? a[i] : Kvo16s(g());
                    }
                    std::memcpy(d1, a, sizeof a);
                    std::memcpy(d2, a, sizeof a);
                    // od < 0: in place on a shifted overlap of the first operand.
                    const int oa = od < 0 ? 8 : (od * 7 + len) % 16;
                    op(stage, true, (od < 0 ? d1 : a) + oa, b + (od & 15), d1 + 8 + od, len);
                    op(stage, false, (od < 0 ? d2 : a) + oa, b + (od & 15), d2 + 8 + od, len);
                    ASSERT_EQ(std::memcmp(d1, d2, sizeof d1), 0)
                        << "stage " << stage << " fill " << fill << " len " << len << " phase "
                        << od;
                }
}
}  // namespace

TEST(ArithPrivate, SimdMatchesScalar) {
    for (int sf : {0, 1, 2, 15, 16, 17, 31})
        for (Kvo16s v : {-32768, 32767, -1, 29491})
            for (Kvo16s v2 : {-32768, 3277}) {
                SCOPED_TRACE(testing::Message() << "sf " << sf << " v " << v << "," << v2);
                compareTwins(
                    5, [&](int st, bool simd, const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
                        if (st == 0) (simd ? mulNR_16s : mulNR_16s_scalar)(a, b, d, n, sf);
                        if (st == 1) (simd ? mulCNR_16s : mulCNR_16s_scalar)(a, v, d, n, sf);
                        if (st == 2)
                            (simd ? interpC_16s : interpC_16s_scalar)(a, v, b, v2, d, n, sf);
                        if (st == 3)
                            (simd ? interpCNR_16s : interpCNR_16s_scalar)(a, v, b, v2, d, n, sf);
                        if (st == 4) (simd ? interp_16s : interp_16s_scalar)(a, b, d, n);
                    });
                if (HasFatalFailure()) return;
            }
}
