// Exported arithmetic against wide-integer and double models, and the
// argument checks of every export (null, length, scale, in that order; a
// refused call writes nothing).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kvosc.h"
#include "model.h"
#include "numeric/numeric_tables.h"

using model::i128;

namespace {

const int kScales[] = {0, 1, 15, 16, 31};

struct Args {  // canary-filled buffers of one call, compared whole with memcmp
    Kvo16s in1[16], in2[16], out16[16], io16[16];
    Kvo32s out32[16], io32[16], scale, sfs;
    Kvo16s seed, pad = 0;
    Args() { std::memset(this, 0x5a, sizeof *this); }
};
struct Bad {
    int nullAt;
    Kvo32s len, sf;
    template <class T>
    T* p(int i, T* ptr) const {
        return i == nullAt ? nullptr : ptr;
    }
};

// Each pointer null (alone and with a bad length and scale), lengths 0 and -1,
// a negative scale, and length 0 with a negative scale (scaleFirst: which wins).
template <class Call>
void checkArgs(const char* fn, int nPtr, bool hasScale, bool scaleFirst, Call call) {
    std::vector<std::pair<Bad, KvoStatus>> rows = {{{-1, 0, 1}, kvoErrSize},
                                                   {{-1, -1, 1}, kvoErrSize}};
    for (int i = 0; i < nPtr; ++i) {
        rows.push_back({{i, 4, 1}, kvoErrNullPtr});
        rows.push_back({{i, 0, -1}, kvoErrNullPtr});
    }
    if (hasScale) {
        rows.push_back({{-1, 4, -1}, kvoErrScaleRange});
        rows.push_back({{-1, 0, -1}, scaleFirst ? kvoErrScaleRange : kvoErrSize});
    }
    for (const auto& [b, want] : rows) {
        SCOPED_TRACE(testing::Message()
                     << fn << ": null " << b.nullAt << " len " << b.len << " sf " << b.sf);
        Args a;
        a.scale = b.sf;
        const Args before = a;
        EXPECT_EQ(call(a, b), want);
        EXPECT_EQ(std::memcmp(&a, &before, sizeof a), 0) << "a buffer was written";
    }
}

}  // namespace

TEST(ArithExport, BadArguments) {
    checkArgs("Mul_NR_Sfs", 3, true, false, [](Args& a, const Bad& b) {
        return kvosMul_NR_16s_Sfs(b.p(0, a.in1), b.p(1, a.in2), b.p(2, a.out16), b.len, b.sf);
    });
    checkArgs("Mul_NR_ISfs", 2, true, false, [](Args& a, const Bad& b) {
        return kvosMul_NR_16s_ISfs(b.p(0, a.in1), b.p(1, a.io16), b.len, b.sf);
    });
    checkArgs("MulC_NR_Sfs", 2, true, false, [](Args& a, const Bad& b) {
        return kvosMulC_NR_16s_Sfs(b.p(0, a.in1), 3, b.p(1, a.out16), b.len, b.sf);
    });
    checkArgs("MulC_NR_ISfs", 1, true, false, [](Args& a, const Bad& b) {
        return kvosMulC_NR_16s_ISfs(3, b.p(0, a.io16), b.len, b.sf);
    });
    checkArgs("MulPowerC_NR", 2, true, true, [](Args& a, const Bad& b) {
        return kvosMulPowerC_NR_16s_Sfs(b.p(0, a.in1), 3, b.p(1, a.out16), b.len, b.sf);
    });
    checkArgs("AutoScale", 3, true, false, [](Args& a, const Bad& b) {
        return kvosAutoScale_16s(b.p(0, a.in1), b.p(1, a.out16), b.len, b.p(2, &a.scale));
    });
    checkArgs("AutoScale_I", 2, true, false, [](Args& a, const Bad& b) {
        return kvosAutoScale_16s_I(b.p(0, a.io16), b.len, b.p(1, &a.scale));
    });
    checkArgs("DotProdAutoScale", 4, false, false, [](Args& a, const Bad& b) {
        return kvosDotProdAutoScale_16s32s_Sfs(b.p(0, a.in1), b.p(1, a.in2), b.len, b.p(2, a.out32),
                                               b.p(3, &a.sfs));
    });
    checkArgs("DotProd_G729A", 3, false, false, [](Args& a, const Bad& b) {
        return kvosDotProd_G729A_16s32s(b.p(0, a.in1), b.p(1, a.in2), b.len, b.p(2, a.out32));
    });
    checkArgs("InvSqrt", 1, false, false,
              [](Args& a, const Bad& b) { return kvosInvSqrt_32s_I(b.p(0, a.io32), b.len); });
    checkArgs("Interpolate", 3, false, false, [](Args& a, const Bad& b) {
        return kvosInterpolate_G729_16s(b.p(0, a.in1), b.p(1, a.in2), b.p(2, a.out16), b.len);
    });
    checkArgs("InterpolateC", 3, true, true, [](Args& a, const Bad& b) {
        return kvosInterpolateC_G729_16s_Sfs(b.p(0, a.in1), 1, b.p(1, a.in2), 1, b.p(2, a.out16),
                                             b.len, b.sf);
    });
    checkArgs("InterpolateC_NR", 3, true, true, [](Args& a, const Bad& b) {
        return kvosInterpolateC_NR_G729_16s_Sfs(b.p(0, a.in1), 1, b.p(1, a.in2), 1, b.p(2, a.out16),
                                                b.len, b.sf);
    });
    checkArgs("LagWindow", 1, false, false, [](Args& a, const Bad& b) {
        return kvosLagWindow_G729_32s_I(b.p(0, a.io32), b.len);
    });
    checkArgs("RandomNoiseExcitation", 2, false, false, [](Args& a, const Bad& b) {
        return kvosRandomNoiseExcitation_G729B_16s(b.p(0, &a.seed), b.p(1, a.out16), b.len);
    });
    Args a;  // 12 lags at most, tested after the pointer
    const Args before = a;
    EXPECT_EQ(kvosLagWindow_G729_32s_I(a.io32, 13), kvoErrRange);
    EXPECT_EQ(kvosLagWindow_G729_32s_I(nullptr, 13), kvoErrNullPtr);
    EXPECT_EQ(std::memcmp(&a, &before, sizeof a), 0);
}

TEST(ArithExport, ProductsAndInterpolationsAllOperands) {
    const auto a = model::all16();
    std::mt19937 g(7291);
    std::vector<Kvo16s> b(a.size()), d(a.size()), d2(a.size()), io;
    for (size_t i = 0; i < a.size(); ++i) b[i] = (i % 3 == 0) ? a[a.size() - 1 - i] : Kvo16s(g());
    for (Kvo16s v : {-32768, -1, 1, 32767, 29491})
        for (int sf : kScales) {
            SCOPED_TRACE(testing::Message() << "v " << v << " sf " << sf);
            ASSERT_EQ(kvosMulC_NR_16s_Sfs(a.data(), v, d2.data(), 65536, sf), kvoOk);
            io = a;
            ASSERT_EQ(kvosMulC_NR_16s_ISfs(v, io.data(), 65536, sf), kvoOk);
            ASSERT_EQ(io, d2);
            ASSERT_EQ(kvosMul_NR_16s_Sfs(a.data(), b.data(), d.data(), 65536, sf), kvoOk);
            io = a;
            ASSERT_EQ(kvosMul_NR_16s_ISfs(b.data(), io.data(), 65536, sf), kvoOk);
            ASSERT_EQ(io, d);
            for (size_t i = 0; i < a.size(); ++i) {
                ASSERT_EQ(d2[i], model::c16(model::roundHalfUp(i128{a[i]} * v, sf))) << a[i];
                ASSERT_EQ(d[i], model::c16(model::roundHalfUp(i128{a[i]} * b[i], sf))) << a[i];
            }
            const Kvo16s v2 = Kvo16s(~v);
            ASSERT_EQ(kvosInterpolateC_G729_16s_Sfs(a.data(), v, b.data(), v2, d.data(), 65536, sf),
                      kvoOk);
            ASSERT_EQ(
                kvosInterpolateC_NR_G729_16s_Sfs(a.data(), v, b.data(), v2, d2.data(), 65536, sf),
                kvoOk);
            for (size_t i = 0; i < a.size(); ++i) {
                ASSERT_EQ(d[i], model::c16(model::floorShift(i128{a[i]} * v, sf) +
                                           model::floorShift(i128{b[i]} * v2, sf)));
                ASSERT_EQ(d2[i],
                          model::c16(model::roundHalfUp(i128{a[i]} * v + i128{b[i]} * v2, sf)));
            }
        }
    ASSERT_EQ(kvosInterpolate_G729_16s(a.data(), b.data(), d.data(), 65536), kvoOk);
    for (size_t i = 0; i < a.size(); ++i)
        ASSERT_EQ(d[i], Kvo16s(model::floorShift(a[i], 1) + model::floorShift(b[i], 1)));
    Kvo16s x = 3, y = 1;  // a scale above 31 is taken modulo 32
    ASSERT_EQ(kvosMul_NR_16s_Sfs(&x, &y, d.data(), 1, 33), kvoOk);
    EXPECT_EQ(d[0], 2);
}

TEST(ArithExport, MulPowerCWeighting) {
    std::mt19937 g(1);
    const auto src = model::random16(41, g);
    std::vector<Kvo16s> d(41);
    for (Kvo16s val : {32767, -32768, 29491, -3, 300})
        for (int sf : {0, 1, 15, 31}) {
            SCOPED_TRACE(testing::Message() << "val " << val << " sf " << sf);
            ASSERT_EQ(kvosMulPowerC_NR_16s_Sfs(src.data(), val, d.data(), 41, sf), kvoOk);
            EXPECT_EQ(d[0], src[0]);
            auto scale = [&](i128 prod) -> Kvo16s {  // Q15 keeps the low 16 bits
                if (sf == 15) return model::low16(model::roundHalfUp(prod, 15));
                if (sf == 0) return model::c16(prod);
                return model::c16(model::floorShift(model::c32(prod + (i128{1} << (sf - 1))), sf));
            };
            i128 p = val;
            for (size_t i = 1; i < 41; ++i, p = scale(p * val))
                ASSERT_EQ(d[i], scale(i128{src[i]} * p)) << i;
        }
}

TEST(ArithExport, AutoScale) {
    std::mt19937 g(2);
    for (int trial = 0; trial < 1000; ++trial) {
        int len = 1 + int(g() % 24), bits = int(g() % 17);
        std::vector<Kvo16s> src(static_cast<size_t>(len), 0), d(src.size());
        for (auto& x : src) x = bits == 0 ? 0 : Kvo16s(int32_t(g()) >> (32 - bits));
        if (trial % 50 == 1) src[0] = -32768;
        Kvo32s s = trial % 97 == 3 ? 40 : Kvo32s(g() % 5), s2 = s, sc = s;
        int64_t m = 0;  // largest magnitude (-32768 counts as 32767), doublings to 16384
        for (Kvo16s x : src)
            m = std::max<int64_t>(m, std::min<int64_t>(std::abs(int64_t{x}), 32767));
        int n = 0;
        while (m != 0 && (m << n) < 16384) ++n;
        std::vector<Kvo16s> io(src);
        ASSERT_EQ(kvosAutoScale_16s(src.data(), d.data(), len, &sc), kvoOk);
        ASSERT_EQ(kvosAutoScale_16s_I(io.data(), len, &s2), kvoOk);
        EXPECT_TRUE(io == d && s2 == sc);
        EXPECT_EQ(sc, (m == 0 ? 16 : n) - s);
        for (size_t i = 0; i < d.size(); ++i)
            ASSERT_EQ(d[i], model::low16(model::floorShift(i128{src[i]} << n, s))) << trial;
    }
}

TEST(ArithExport, DotProducts) {
    std::mt19937 g(3);
    for (int trial = 0; trial < 300; ++trial) {
        int len = 1 + int(g() % 200), kind = trial % 4;
        std::vector<Kvo16s> a(static_cast<size_t>(len)), b(a.size());
        for (size_t i = 0; i < a.size(); ++i) {
            a[i] = kind == 0 ? Kvo16s(-32768) : Kvo16s(g());
            b[i] = kind == 0 ? Kvo16s(-32768) : (kind == 1 ? a[i] : Kvo16s(g()));
            if (kind == 3) a[i] >>= 8;
        }
        // Auto-scaled: after k overflows the operands are shifted by floor(k/2), ceil(k/2);
        // the first product is not doubled.
        int k = 0;
        i128 want = 0;
        for (;; ++k) {
            want = i128{a[0] >> (k / 2)} * (b[0] >> ((k + 1) / 2));
            for (size_t i = 1; i < a.size(); ++i)
                want += 2 * i128{a[i] >> (k / 2)} * (b[i] >> ((k + 1) / 2));
            if (want >= INT32_MIN && want <= INT32_MAX) break;
        }
        Kvo32s dst = 0, sfs = -1;
        ASSERT_EQ(kvosDotProdAutoScale_16s32s_Sfs(a.data(), b.data(), len, &dst, &sfs), kvoOk);
        EXPECT_EQ(dst, Kvo32s(want)) << trial;
        EXPECT_EQ(sfs, k) << trial;
        // G.729A: even-index terms only, doubled, saturated once with a warning.
        want = 0;
        for (size_t i = 0; i < a.size(); i += 2) want += 2 * i128{a[i]} * b[i];
        KvoStatus st = kvosDotProd_G729A_16s32s(a.data(), b.data(), len, &dst);
        EXPECT_EQ(dst, model::c32(want)) << trial;
        EXPECT_EQ(st, want == model::c32(want) ? kvoOk : kvoWarnOverflow) << trial;
    }
    Kvo16s m[3] = {-32768, 0, -32768}, p[3] = {32767, 0, 32767};
    Kvo32s d = 0;
    EXPECT_EQ(kvosDotProd_G729A_16s32s(m, p, 3, &d), kvoWarnOverflow);
    EXPECT_EQ(d, INT32_MIN);
}
