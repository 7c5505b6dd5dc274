// Exported arithmetic against wide-integer and double models: every 16-bit
// operand for the element-wise products, closed-form expectations for the
// block scaling and dot products, worked values of the coders.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kvosc.h"
#include "model.h"
#include "numeric/fixed.h"
#include "numeric/numeric_tables.h"

using model::i128;

namespace {

constexpr uint32_t kSeed = 7291;
const int kScales[] = {0, 1, 2, 7, 14, 15, 16, 29, 30, 31};

std::vector<Kvo16s> factorSet() {
    std::mt19937 g(kSeed);
    std::vector<Kvo16s> bs(model::edges16());
    for (int k = 0; k < 6; ++k) bs.push_back(Kvo16s(uint16_t(g())));
    return bs;
}

}  // namespace

TEST(ArithExport, MulNRAllOperands) {
    const auto a = model::all16();
    std::vector<Kvo16s> b(a.size()), d(a.size()), d2(a.size());
    for (Kvo16s bv : factorSet())
        for (int sf : kScales) {
            std::fill(b.begin(), b.end(), bv);
            ASSERT_EQ(kvosMul_NR_16s_Sfs(a.data(), b.data(), d.data(), 65536, sf), kvoOk);
            ASSERT_EQ(kvosMulC_NR_16s_Sfs(a.data(), bv, d2.data(), 65536, sf), kvoOk);
            for (size_t i = 0; i < a.size(); ++i) {
                Kvo16s want = model::c16(model::roundHalfUp(i128{a[i]} * bv, sf));
                ASSERT_EQ(d[i], want) << a[i] << "*" << bv << " sf " << sf;
                ASSERT_EQ(d2[i], want) << a[i] << "*" << bv << " sf " << sf;
            }
            // In-place forms give the same.
            std::vector<Kvo16s> io(a);
            ASSERT_EQ(kvosMul_NR_16s_ISfs(b.data(), io.data(), 65536, sf), kvoOk);
            ASSERT_EQ(io, d);
            io = a;
            ASSERT_EQ(kvosMulC_NR_16s_ISfs(bv, io.data(), 65536, sf), kvoOk);
            ASSERT_EQ(io, d2);
        }
}

TEST(ArithExport, MulNRWorkedValues) {
    struct Row {
        Kvo16s a, b;
        int sf;
        Kvo16s want;
    } rows[] = {
        {-32768, -32768, 15, 32767}, {-32768, -32768, 0, 32767}, {3, 1, 1, 2},  {-3, 1, 1, -1},
        {-32768, 32767, 15, -32767}, {16384, 16384, 15, 8192},   {-1, 1, 1, 0}, {1, 1, 1, 1},
        {-32768, -32768, 31, 1},     {-32768, 32767, 31, 0},
    };
    for (const Row& r : rows) {
        Kvo16s d = 0;
        ASSERT_EQ(kvosMul_NR_16s_Sfs(&r.a, &r.b, &d, 1, r.sf), kvoOk);
        EXPECT_EQ(d, r.want) << r.a << "*" << r.b << " sf " << r.sf;
    }
    // A scale above 31 is taken modulo 32.
    Kvo16s a = 3, b = 1, d = 0;
    ASSERT_EQ(kvosMul_NR_16s_Sfs(&a, &b, &d, 1, 33), kvoOk);
    EXPECT_EQ(d, 2);
}

TEST(ArithExport, MulPowerCWeighting) {
    std::mt19937 g(kSeed);
    const auto src = model::random16(41, g);
    std::vector<Kvo16s> d(41);
    for (Kvo16s val :
         {Kvo16s(32767), Kvo16s(-32768), Kvo16s(29491), Kvo16s(-3), Kvo16s(7), Kvo16s(300)})
        for (int sf : {0, 1, 12, 15, 31}) {
            SCOPED_TRACE(testing::Message() << "val " << val << " sf " << sf);
            ASSERT_EQ(kvosMulPowerC_NR_16s_Sfs(src.data(), val, d.data(), 41, sf), kvoOk);
            EXPECT_EQ(d[0], src[0]);
            // Model: the same recurrence written with exact rounding.
            i128 p = val;
            for (int i = 1; i < 41; ++i) {
                auto scale = [&](i128 prod) -> Kvo16s {
                    if (sf == 15) return model::low16(model::roundHalfUp(prod, 15));
                    if (sf == 0) return model::c16(prod);
                    return model::c16(
                        model::floorShift(model::c32(prod + (i128{1} << (sf - 1))), sf));
                };
                ASSERT_EQ(d[size_t(i)], scale(i128{src[size_t(i)]} * p)) << i;
                p = scale(p * val);
            }
        }
    // The Q15 weighting follows val^i: gamma = 0.9 on a unit vector.
    std::vector<Kvo16s> ones(11, 16384), w(11);
    ASSERT_EQ(kvosMulPowerC_NR_16s_Sfs(ones.data(), 29491, w.data(), 11, 15), kvoOk);
    for (int i = 0; i < 11; ++i) EXPECT_NEAR(w[size_t(i)], 16384 * std::pow(0.9, i), 4.0) << i;
    // len 1 copies the first element whatever the scale.
    Kvo16s one = -32768, out = 0;
    ASSERT_EQ(kvosMulPowerC_NR_16s_Sfs(&one, 5, &out, 1, 3), kvoOk);
    EXPECT_EQ(out, -32768);
}

TEST(ArithExport, AutoScaleMatchesModel) {
    std::mt19937 g(kSeed);
    for (int trial = 0; trial < 4000; ++trial) {
        int len = 1 + int(g() % 24);
        int bits = int(g() % 17);  // magnitude range of the block
        std::vector<Kvo16s> src(size_t(len), 0);
        for (auto& x : src) x = bits == 0 ? 0 : Kvo16s(int32_t(g()) >> (16 + 16 - bits));
        if (trial % 50 == 1) src[0] = -32768;
        Kvo32s s = Kvo32s(g() % 5);
        if (trial % 97 == 3) s = 40;
        // Model: largest magnitude, -32768 as 32767; doublings to reach 16384.
        int64_t m = 0;
        for (Kvo16s x : src)
            m = std::max<int64_t>(m, std::min<int64_t>(std::abs(int64_t{x}), 32767));
        int n = 0;
        while (m != 0 && (m << n) < 16384) ++n;
        std::vector<Kvo16s> d(size_t(len), 123);
        Kvo32s sc = s;
        ASSERT_EQ(kvosAutoScale_16s(src.data(), d.data(), len, &sc), kvoOk);
        std::vector<Kvo16s> io(src);
        Kvo32s sc2 = s;
        ASSERT_EQ(kvosAutoScale_16s_I(io.data(), len, &sc2), kvoOk);
        EXPECT_EQ(io, d);
        EXPECT_EQ(sc2, sc);
        if (m == 0) {
            EXPECT_EQ(sc, 16 - s);
            for (Kvo16s x : d) EXPECT_EQ(x, 0);
            continue;
        }
        EXPECT_EQ(sc, n - s);
        for (int i = 0; i < len; ++i)
            ASSERT_EQ(d[size_t(i)], model::low16(model::floorShift(i128{src[size_t(i)]} << n, s)))
                << "trial " << trial << " i " << i;
    }
}

TEST(ArithExport, AutoScaleWorkedValues) {
    Kvo16s big[3] = {100, -20000, 5}, d[3];
    Kvo32s s = 0;
    ASSERT_EQ(kvosAutoScale_16s(big, d, 3, &s), kvoOk);
    EXPECT_EQ(s, 0);  // already 16384 or more: no left shift
    EXPECT_EQ(d[1], -20000);
    Kvo16s minv[2] = {-32768, 1};
    s = 1;
    ASSERT_EQ(kvosAutoScale_16s(minv, d, 2, &s), kvoOk);
    EXPECT_EQ(s, -1);
    EXPECT_EQ(d[0], -16384);
    Kvo16s small[2] = {1, -1};
    s = 0;
    ASSERT_EQ(kvosAutoScale_16s(small, d, 2, &s), kvoOk);
    EXPECT_EQ(s, 14);
    EXPECT_EQ(d[0], 16384);
    EXPECT_EQ(d[1], -16384);
}

TEST(ArithExport, DotProdAutoScaleIsTheFirstFittingShiftPair) {
    std::mt19937 g(kSeed);
    for (int trial = 0; trial < 600; ++trial) {
        int len = 1 + int(g() % 200);
        int kind = trial % 4;
        std::vector<Kvo16s> a(static_cast<size_t>(len)), b(static_cast<size_t>(len));
        for (int i = 0; i < len; ++i) {
            a[size_t(i)] = kind == 0 ? Kvo16s(-32768) : Kvo16s(uint16_t(g()));
            b[size_t(i)] =
                kind == 0 ? Kvo16s(-32768) : (kind == 1 ? a[size_t(i)] : Kvo16s(uint16_t(g())));
            if (kind == 3) a[size_t(i)] >>= 8;
        }
        // Closed form of the alternation: after k overflows s2 = ceil(k/2), s1 = floor(k/2).
        int k = 0;
        i128 want = 0;
        for (;; ++k) {
            int s1 = k / 2, s2 = (k + 1) / 2;
            want = i128{a[0] >> s1} * (b[0] >> s2);
            for (int i = 1; i < len; ++i)
                want += 2 * i128{a[size_t(i)] >> s1} * (b[size_t(i)] >> s2);
            if (want >= INT32_MIN && want <= INT32_MAX) break;
        }
        Kvo32s dst = 0, sfs = -1;
        ASSERT_EQ(kvosDotProdAutoScale_16s32s_Sfs(a.data(), b.data(), len, &dst, &sfs), kvoOk);
        EXPECT_EQ(dst, Kvo32s(want)) << "trial " << trial;
        EXPECT_EQ(sfs, k) << "trial " << trial;
    }
    // len 1: the single undoubled product, no shift.
    Kvo16s m = -32768;
    Kvo32s dst = 0, sfs = -1;
    ASSERT_EQ(kvosDotProdAutoScale_16s32s_Sfs(&m, &m, 1, &dst, &sfs), kvoOk);
    EXPECT_EQ(dst, 0x40000000);
    EXPECT_EQ(sfs, 0);
}

TEST(ArithExport, DotProdG729AEvenTerms) {
    std::mt19937 g(kSeed);
    for (int len = 1; len <= 81; ++len) {
        auto a = model::random16(size_t(len), g), b = model::random16(size_t(len), g);
        i128 want = 0;
        for (int i = 0; 2 * i < len; ++i) want += i128{a[size_t(2 * i)]} * b[size_t(2 * i)];
        want *= 2;
        Kvo32s d = 0;
        KvoStatus st = kvosDotProd_G729A_16s32s(a.data(), b.data(), len, &d);
        EXPECT_EQ(d, model::c32(want)) << len;
        EXPECT_EQ(st, (want > INT32_MAX || want < INT32_MIN) ? kvoWarnOverflow : kvoOk) << len;
    }
    // Term counts: len 1 and 2 use index 0 only, len 3 adds index 2.
    Kvo16s a[3] = {1000, 30000, 7}, b[3] = {3, 30000, 11};
    Kvo32s d;
    for (int len : {1, 2}) {
        ASSERT_EQ(kvosDotProd_G729A_16s32s(a, b, len, &d), kvoOk);
        EXPECT_EQ(d, 6000);
    }
    ASSERT_EQ(kvosDotProd_G729A_16s32s(a, b, 3, &d), kvoOk);
    EXPECT_EQ(d, 6154);
    // Two extreme products overflow upwards; two opposite ones downwards.
    Kvo16s m[3] = {-32768, 0, -32768}, p[3] = {32767, 0, 32767};
    EXPECT_EQ(kvosDotProd_G729A_16s32s(m, m, 3, &d), kvoWarnOverflow);
    EXPECT_EQ(d, INT32_MAX);
    EXPECT_EQ(kvosDotProd_G729A_16s32s(m, p, 3, &d), kvoWarnOverflow);
    EXPECT_EQ(d, INT32_MIN);
}

namespace {
// The G.729 reference inverse square root in its own basic-operator form,
// on the published 16-bit table (the top half of tabsqr).
Kvo32s invSqrtReference(Kvo32s x) {
    if (x <= 0) return 0x3fffffff;
    int e = 0;
    int64_t v = x;
    while (v < 0x40000000) {
        v <<= 1;
        ++e;
    }
    e = 30 - e;
    if ((e & 1) == 0) v >>= 1;
    e = (e >> 1) + 1;
    v >>= 9;
    int i = int(v >> 16);
    v >>= 1;
    int a = int(v & 0x7fff);
    i -= 16;
    int64_t t0 = kvo::tab::tabsqr[i] >> 16, t1 = kvo::tab::tabsqr[i + 1] >> 16;
    int64_t y = (t0 << 16) - 2 * (t0 - t1) * a;
    return Kvo32s(y >> e);
}
}  // namespace

TEST(ArithExport, InvSqrtMatchesReferenceAndRealRoot) {
    auto xs = model::operands32(400000, kSeed);
    std::vector<Kvo32s> io(xs);
    ASSERT_EQ(kvosInvSqrt_32s_I(io.data(), Kvo32s(io.size())), kvoOk);
    for (size_t k = 0; k < xs.size(); ++k) {
        ASSERT_EQ(io[k], invSqrtReference(xs[k])) << xs[k];
        if (xs[k] > 0) {
            // About 2^30 / sqrt(x), within the table's interpolation error.
            double want = 1073741824.0 / std::sqrt(double(xs[k]));
            ASSERT_NEAR(io[k] / want, 1.0, 5e-4 + 2.0 / want) << xs[k];
        }
    }
    Kvo32s z[3] = {0, -5, INT32_MIN};
    ASSERT_EQ(kvosInvSqrt_32s_I(z, 3), kvoOk);
    for (Kvo32s v : z) EXPECT_EQ(v, 0x3fffffff);
}

TEST(ArithExport, InterpolationsAllOperands) {
    const auto a = model::all16();
    std::mt19937 g(kSeed);
    std::vector<Kvo16s> b(a.size()), d(a.size());
    for (size_t i = 0; i < a.size(); ++i)
        b[i] = (i % 3 == 0) ? a[a.size() - 1 - i] : Kvo16s(uint16_t(g()));
    ASSERT_EQ(kvosInterpolate_G729_16s(a.data(), b.data(), d.data(), 65536), kvoOk);
    for (size_t i = 0; i < a.size(); ++i)
        ASSERT_EQ(d[i], Kvo16s(model::floorShift(a[i], 1) + model::floorShift(b[i], 1)));
    const std::pair<Kvo16s, Kvo16s> weights[] = {{16384, 16384}, {-32768, -32768}, {32767, -32768},
                                                 {29491, 3277},  {-5, 1234},       {0, 32767}};
    for (auto [v1, v2] : weights)
        for (int sf : kScales) {
            SCOPED_TRACE(testing::Message() << v1 << "," << v2 << " sf " << sf);
            ASSERT_EQ(
                kvosInterpolateC_G729_16s_Sfs(a.data(), v1, b.data(), v2, d.data(), 65536, sf),
                kvoOk);
            for (size_t i = 0; i < a.size(); ++i)
                ASSERT_EQ(d[i], model::c16(model::floorShift(i128{a[i]} * v1, sf) +
                                           model::floorShift(i128{b[i]} * v2, sf)))
                    << i;
            ASSERT_EQ(
                kvosInterpolateC_NR_G729_16s_Sfs(a.data(), v1, b.data(), v2, d.data(), 65536, sf),
                kvoOk);
            for (size_t i = 0; i < a.size(); ++i)
                ASSERT_EQ(d[i],
                          model::c16(model::roundHalfUp(i128{a[i]} * v1 + i128{b[i]} * v2, sf)))
                    << i;
        }
}

TEST(ArithExport, LagWindowTableAndProduct) {
    // The packed table follows 0.9999 exp(-(2 pi 60 k / 8000)^2 / 2), lag k from 1.
    for (int k = 1; k <= 12; ++k) {
        double w = 0.9999 * std::exp(-0.5 * std::pow(2 * M_PI * 60 * k / 8000.0, 2));
        EXPECT_NEAR(kvo::tab::wlag[k - 1] / 2147483648.0, w, 2e-5) << k;
        EXPECT_EQ(kvo::tab::wlag[k - 1] & 1, 0);
    }
    auto xs = model::operands32(12 * 2000, kSeed);
    for (size_t off = 0; off < xs.size(); off += 12) {
        Kvo32s r[12];
        std::memcpy(r, &xs[off], sizeof r);
        ASSERT_EQ(kvosLagWindow_G729_32s_I(r, 12), kvoOk);
        for (int i = 0; i < 12; ++i) {
            // Double precision product of the two Q31 values, within mpy32's truncations.
            double want = double(xs[off + size_t(i)]) * kvo::tab::wlag[i] / 2147483648.0;
            ASSERT_NEAR(r[i], want, 8.0) << xs[off + size_t(i)];
        }
    }
    Kvo32s r[13] = {};
    EXPECT_EQ(kvosLagWindow_G729_32s_I(r, 12), kvoOk);
    EXPECT_EQ(kvosLagWindow_G729_32s_I(r, 13), kvoErrRange);
}

TEST(ArithExport, RandomNoiseExcitationIsTheSerialGenerator) {
    for (Kvo16s seed0 : {Kvo16s(11111), Kvo16s(0), Kvo16s(-1), Kvo16s(-32768), Kvo16s(21845)})
        for (int len = 1; len <= 42; ++len) {
            // Serial model: 12 draws of s = 31821 s + 13849 (mod 2^16) per output.
            uint32_t s = uint16_t(seed0);
            std::vector<Kvo16s> want(static_cast<size_t>(len));
            for (auto& w : want) {
                int32_t acc = 0;
                for (int k = 0; k < 12; ++k) {
                    s = (s * 31821u + 13849u) & 0xffffu;
                    acc += int16_t(uint16_t(s));
                }
                w = Kvo16s(acc >> 7);
            }
            Kvo16s seed = seed0;
            std::vector<Kvo16s> d(static_cast<size_t>(len));
            ASSERT_EQ(kvosRandomNoiseExcitation_G729B_16s(&seed, d.data(), len), kvoOk);
            ASSERT_EQ(d, want) << "seed " << seed0 << " len " << len;
            ASSERT_EQ(seed, Kvo16s(uint16_t(s))) << "seed " << seed0 << " len " << len;
        }
}
