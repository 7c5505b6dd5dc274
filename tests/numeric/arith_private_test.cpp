// Private arithmetic: log2 and power of two against the reference table
// interpolation and double precision, inverse root, gain history, vector
// workers against wide-integer models, and the vector paths against their
// scalar twins (memcmp with guard elements, every length and phase).
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

namespace {

int normModel(Kvo32s x) {
    int n = 0;
    while (x > 0 && (int64_t{x} << n) < 0x40000000) ++n;
    return n;
}
// Table interpolation of the reference: t[i] << 16 - (t[i] - t[i+1]) * a * 2, saturated.
Kvo32s interp(const Kvo16s* t, int i, Kvo32s a) {
    return model::c32((i128{t[i]} << 16) - 2 * i128{t[i] - t[i + 1]} * a);
}
void log2Ref(Kvo32s x, Kvo16s* e, Kvo16s* f) {
    *e = *f = 0;
    if (x <= 0) return;
    int n = normModel(x);
    Kvo32s m = Kvo32s(int64_t{x} << n);
    *e = Kvo16s(30 - n);
    *f = Kvo16s(interp(tab::Log2Table, (m >> 25) - 32, (m >> 10) & 0x7fff) >> 16);
}
Kvo32s pow2Ref(Kvo16s e, Kvo16s f) {
    Kvo32s x = interp(tab::tabpow, f >> 10, (f << 5) & 0x7fff);
    int n = 30 - e;
    if (n < 0) return model::c32(i128{x} << std::min(-n, 40));
    if (n > 31) return 0;
    return n == 0 ? x : Kvo32s(model::roundHalfUp(x, n));
}

}  // namespace

TEST(ArithPrivate, Log2AndPow2) {
    for (Kvo32s x : model::operands32(200000, 1)) {
        Kvo16s e, f, re, rf;
        ownLog2(x, &e, &f);
        log2Ref(x, &re, &rf);
        ASSERT_EQ(e, re) << x;
        ASSERT_EQ(f, rf) << x;
        if (x > 0) ASSERT_NEAR(e + f / 32768.0, std::log2(double(x)), 4e-4) << x;
    }
    for (int e = -3; e <= 33; ++e)
        for (int f = 0; f < 32768; f += 7) {
            Kvo32s v = ownPow2(Kvo16s(e), Kvo16s(f));
            ASSERT_EQ(v, pow2Ref(Kvo16s(e), Kvo16s(f))) << e << " " << f;
            double want = std::exp2(e + f / 32768.0);
            if (e >= 0 && e <= 30) ASSERT_NEAR(v, want, want * 1e-4 + 1.0) << e << " " << f;
        }
    // Shift 31 leaves only the rounding bit, above 31 gives 0, a left shift saturates.
    EXPECT_EQ(ownPow2(30, 0), 0x40000000);
    EXPECT_EQ(ownPow2(-1, 0), 1);
    EXPECT_EQ(ownPow2(-2, 0), 0);
    EXPECT_EQ(ownPow2(31, 0), INT32_MAX);
}

TEST(ArithPrivate, InvSqrtNormalisedMantissa) {
    std::mt19937 g(2);
    for (int k = 0; k < 50000; ++k) {
        Kvo32s x = k == 0 ? 0x40000000 : (k == 1 ? INT32_MAX : Kvo32s(0x40000000u | (g() >> 2)));
        Kvo16s e = Kvo16s(int(g() % 61) - 30), re = e;
        Kvo32s r = x;
        ownInvSqrt_32s16s_I(&r, &re);
        double in = x / 2147483648.0 * std::exp2(e), out = r / 2147483648.0 * std::exp2(re);
        ASSERT_NEAR(out * std::sqrt(in), 1.0, 5e-4) << x << " " << e;
    }
    Kvo32s z = 0;
    Kvo16s e = 9;
    ownInvSqrt_32s16s_I(&z, &e);
    EXPECT_EQ(z, INT32_MAX);
    EXPECT_EQ(e, 0);
}

TEST(ArithPrivate, GainHistorySmoke) {
    // The coders' vectors prove the gain predictor bit for bit; here the fixed points:
    // a squared gain of 2^13 is 0 dB, 2^23 saturates at +8 (24659 in Q10).
    Kvo16s p[4] = {};
    ownGainUpdate(p, 1 << 13);
    EXPECT_EQ(p[0], 0);
    ownGainUpdate(p, 1 << 23);
    EXPECT_EQ(p[0], 24659);
    EXPECT_EQ(p[1], 0);
    // Erasure: mean of four minus 4 dB, floored at -14 dB, history shifted.
    const std::pair<std::array<Kvo16s, 4>, Kvo16s> rows[] = {
        {{0, 0, 0, 0}, -4096},
        {{-10240, -10240, -10240, -10241}, -14336},
        {{8192, 4096, 1, 0}, 3072 - 4096},
        {{32767, 32767, 32767, 32767}, 32767 - 4096},
    };
    for (const auto& [in, want] : rows) {
        std::array<Kvo16s, 4> q = in;
        ownGainUpdateErasure(q.data());
        EXPECT_EQ(q, (std::array<Kvo16s, 4>{want, in[0], in[1], in[2]}));
    }
}

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
    const auto ys = model::operands32(20000, 4);
    ownMul_32s16s(xs.data(), ys.data(), d.data(), n);
    for (size_t i = 0; i < xs.size(); ++i) ASSERT_EQ(d[i], model::low16(mpy32(xs[i], ys[i])));
}

TEST(ArithPrivate, AutoScaleNR32sFills15Bits) {
    std::mt19937 g(5);
    for (int trial = 0; trial < 1000; ++trial) {
        std::vector<Kvo32s> src(1 + g() % 20);
        const int shift = int(g() % 32);
        for (auto& v : src) v = Kvo32s(g()) >> shift;
        if (trial % 100 == 7) src[g() % src.size()] = INT32_MIN;
        if (trial % 100 == 8) std::fill(src.begin(), src.end(), 0);
        int64_t m = 0;
        for (Kvo32s v : src) m = std::max<int64_t>(m, std::min<int64_t>(std::llabs(v), INT32_MAX));
        const int nm = normModel(Kvo32s(m));
        std::vector<Kvo16s> d(src.size());
        ownAutoScale_NR_32s16s(src.data(), d.data(), int(src.size()));
        for (size_t i = 0; i < src.size(); ++i) {
            i128 x = src[i];
            Kvo16s want = nm > 16          ? Kvo16s(x << (nm - 16))
                          : nm > 0         ? model::c16(model::roundHalfUp(x, 16 - nm))
                          : x > 0x7fff7fff ? Kvo16s(32767)
                                           : Kvo16s(model::roundHalfUp(x, 16));
            ASSERT_EQ(d[i], want) << "trial " << trial;
        }
    }
}

TEST(ArithPrivate, EnergyBlockProductsAndMedian) {
    std::mt19937 g(6);
    const auto s = model::random16(400, g);
    std::vector<Kvo32s> e(100);
    ownEnergy_16s32s(s.data(), 120, e.data(), 100);
    for (size_t k = 0; k < 100; ++k) {
        int64_t sum = 0;
        for (size_t i = 0; i < 120; ++i) sum += int64_t{s[k + i]} * s[k + i];
        ASSERT_EQ(e[k], Kvo32s(uint32_t(uint64_t(sum)))) << k;  // held modulo 2^32
    }
    const int rows = 5, rl = 37;
    auto dot = [](const Kvo16s* a, const Kvo16s* b, int n) {
        i128 acc = 0;
        for (int i = 0; i < n; ++i) acc += i128{a[i]} * b[i];
        return model::c32(acc);
    };
    std::vector<Kvo16s> m(s.begin(), s.begin() + rows * rl);
    std::fill(m.begin(), m.begin() + rl, Kvo16s(-32768));  // a saturating energy row
    const Kvo16s* v = s.data() + 300;
    std::vector<Kvo32s> out(rows * (rows + 1) / 2);
    kvosSumSquare_D2_16s32s_(m.data(), rows, rl, out.data());
    for (int r = 0; r < rows; ++r)
        EXPECT_EQ(out[size_t(r)], dot(&m[size_t(r * rl)], &m[size_t(r * rl)], rl));
    kvosMul_D2D1_16s32s_(m.data(), rows, v, out.data(), rl);
    for (int r = 0; r < rows; ++r) EXPECT_EQ(out[size_t(r)], dot(&m[size_t(r * rl)], v, rl));
    kvosMul_D2D1Step_16s32s_(s.data(), rows, v, out.data(), 20, 41);
    for (int r = 0; r < rows; ++r) EXPECT_EQ(out[size_t(r)], dot(&s[size_t(r * 41)], v, 20));
    kvosMul_D2_16s32s_(m.data(), rows, out.data(), rl);
    size_t k = rows;  // the energies, then the lower triangle row by row
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j <= i; ++j)
            EXPECT_EQ(out[i == j ? size_t(i) : k++],
                      dot(&m[size_t(i * rl)], &m[size_t(j * rl)], rl));
    for (int trial = 0; trial < 50; ++trial) {
        Kvo16s p[5];
        for (auto& x : p) x = Kvo16s(int(g() % 65535) - 32767);
        if (trial % 3 == 0) p[1] = p[3];
        std::sort(p, p + 5);
        const Kvo16s med = p[2];
        do ASSERT_EQ(ownGmed_n(p, 5), med);
        while (std::next_permutation(p, p + 5));
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
