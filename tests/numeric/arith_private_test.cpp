// Private arithmetic: log2, power of two and inverse root against the G.729
// reference arithmetic written with basic saturating operators and against
// double precision; the gain predictor in its unfolded Q24 form; the vector
// workers against wide-integer models.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "model.h"
#include "numeric/arith.h"
#include "numeric/numeric_tables.h"

using namespace kvo;
using model::i128;

namespace {

constexpr uint32_t kSeed = 16384;

// ---- basic saturating operators of the reference coders ------------------------
Kvo32s L_mult(Kvo32s a, Kvo32s b) {
    return model::c32(i128{2} * a * b);
}
Kvo32s L_add(Kvo32s a, Kvo32s b) {
    return model::c32(i128{a} + b);
}
Kvo32s L_mac(Kvo32s l, Kvo32s a, Kvo32s b) {
    return L_add(l, L_mult(a, b));
}
Kvo32s L_msu(Kvo32s l, Kvo32s a, Kvo32s b) {
    return model::c32(i128{l} - L_mult(a, b));
}
Kvo32s L_shl(Kvo32s l, int n) {
    return model::c32(i128{l} * (i128{1} << std::min(n, 40)));
}
Kvo32s L_shr(Kvo32s l, int n) {
    return n < 0 ? L_shl(l, -n) : (n > 31 ? (l < 0 ? -1 : 0) : l >> n);
}
Kvo32s L_shr_r(Kvo32s l, int n) {
    if (n > 31) return 0;
    Kvo32s r = L_shr(l, n);
    if (n > 0 && (l & (Kvo32s{1} << (n - 1)))) ++r;
    return r;
}
Kvo16s extract_h(Kvo32s l) {
    return Kvo16s(l >> 16);
}
Kvo16s extract_l(Kvo32s l) {
    return Kvo16s(uint16_t(uint32_t(l)));
}
Kvo16s mult(Kvo32s a, Kvo32s b) {
    return model::c16(model::floorShift(i128{a} * b, 15));
}
int norm_l(Kvo32s x) {
    if (x == 0) return 0;
    if (x == -1) return 31;
    int64_t v = x < 0 ? ~int64_t{x} : x;
    int n = 0;
    while (v < 0x40000000) {
        v <<= 1;
        ++n;
    }
    return n;
}

void log2Ref(Kvo32s x, Kvo16s* e, Kvo16s* f) {
    if (x <= 0) {
        *e = 0;
        *f = 0;
        return;
    }
    int n = norm_l(x);
    x = L_shl(x, n);
    *e = Kvo16s(30 - n);
    x = L_shr(x, 9);
    int i = extract_h(x);
    x = L_shr(x, 1);
    Kvo32s a = extract_l(x) & 0x7fff;
    i -= 32;
    Kvo32s y = Kvo32s{tab::Log2Table[i]} << 16;
    y = L_msu(y, tab::Log2Table[i] - tab::Log2Table[i + 1], a);
    *f = extract_h(y);
}

Kvo32s pow2Ref(Kvo16s e, Kvo16s f) {
    Kvo32s x = L_mult(f, 32);
    int i = extract_h(x);
    x = L_shr(x, 1);
    Kvo32s a = extract_l(x) & 0x7fff;
    x = Kvo32s{tab::tabpow[i]} << 16;
    x = L_msu(x, tab::tabpow[i] - tab::tabpow[i + 1], a);
    return L_shr_r(x, 30 - e);
}

void gainPredictRef(const Kvo16s* past, Kvo32s energy, Kvo16s* gain, Kvo16s* ex) {
    static const Kvo16s pred[4] = {5571, 4751, 2785, 1556};
    Kvo16s e, f;
    log2Ref(L_shl(energy, 1), &e, &f);
    Kvo32s l = L_mac(L_mult(e, -24660), mult(f, -24660), 1);  // Q14 energy in dB
    l = L_mac(l, 32588, 32);
    l = L_shl(l, 10);  // Q24
    for (int i = 0; i < 4; ++i) l = L_mac(l, pred[i], past[i]);
    Kvo16s g = extract_h(l);  // Q8
    l = L_shr(L_mult(g, 5439), 8);
    Kvo16s hi16 = extract_h(l);
    Kvo16s lo16 = extract_l(L_msu(L_shr(l, 1), hi16, 16384));
    *gain = extract_l(pow2Ref(14, lo16));
    *ex = Kvo16s(14 - hi16);
}

}  // namespace

TEST(ArithPrivate, Log2AgainstReferenceAndDouble) {
    const auto xs = model::operands32(1000000, kSeed);
    for (Kvo32s x : xs) {
        Kvo16s e, f, re, rf;
        ownLog2(x, &e, &f);
        log2Ref(x, &re, &rf);
        ASSERT_EQ(e, re) << x;
        ASSERT_EQ(f, rf) << x;
        if (x > 0) {
            ASSERT_NEAR(e + f / 32768.0, std::log2(double(x)), 4e-4) << x;
        }
    }
    Kvo16s e, f;
    ownLog2(1, &e, &f);
    EXPECT_EQ(e, 0);
    EXPECT_EQ(f, 0);
    ownLog2(0x40000000, &e, &f);
    EXPECT_EQ(e, 30);
    EXPECT_EQ(f, 0);
    ownLog2(-7, &e, &f);
    EXPECT_EQ(e, 0);
    EXPECT_EQ(f, 0);
}

TEST(ArithPrivate, Pow2AllFractionsAndShifts) {
    for (int e = -3; e <= 33; ++e) {
        Kvo32s prev = INT32_MIN;
        for (int f = 0; f < 32768; ++f) {
            Kvo32s v = ownPow2(Kvo16s(e), Kvo16s(f));
            ASSERT_EQ(v, pow2Ref(Kvo16s(e), Kvo16s(f))) << e << " " << f;
            ASSERT_GE(v, prev) << e << " " << f;  // monotonic in the fraction
            prev = v;
            if (e >= 0 && e <= 30) {
                double want = std::exp2(e + f / 32768.0);
                ASSERT_NEAR(v, want, want * 1e-4 + 1.0) << e << " " << f;
            }
        }
    }
    EXPECT_EQ(ownPow2(30, 0), 0x40000000);
    EXPECT_EQ(ownPow2(14, 0), 16384);
    EXPECT_EQ(ownPow2(0, 0), 1);
    EXPECT_EQ(ownPow2(-1, 0), 1);          // shift 31: only the rounding bit remains
    EXPECT_EQ(ownPow2(-2, 0), 0);          // shift counts above 31 give 0
    EXPECT_EQ(ownPow2(31, 0), INT32_MAX);  // left shift saturates
    EXPECT_EQ(ownPow2(100, 0), INT32_MAX);
}

TEST(ArithPrivate, InvSqrtNormalisedMantissa) {
    std::mt19937 g(kSeed);
    for (int k = 0; k < 200000; ++k) {
        Kvo32s x = Kvo32s(0x40000000u | (g() & 0x3fffffffu));
        if (k == 0) x = 0x40000000;
        if (k == 1) x = INT32_MAX;
        Kvo16s e = Kvo16s(int(g() % 61) - 30);
        Kvo32s r = x;
        Kvo16s re = e;
        ownInvSqrt_32s16s_I(&r, &re);
        // Basic-operator form.
        Kvo32s m = x;
        if (e & 1) m >>= 1;
        int i = (m >> 25) - 16;
        Kvo32s a = (m >> 10) & 0x7fff;
        Kvo32s t0 = tab::tabsqr[i] >> 16, t1 = tab::tabsqr[i + 1] >> 16;
        ASSERT_EQ(r, L_msu(t0 << 16, t0 - t1, a)) << x << " " << e;
        ASSERT_EQ(re, -((e - 1) >> 1)) << e;
        double in = x / 2147483648.0 * std::exp2(e), out = r / 2147483648.0 * std::exp2(re);
        ASSERT_NEAR(out * std::sqrt(in), 1.0, 5e-4) << x << " " << e;
    }
    Kvo32s z = 0;
    Kvo16s e = 9;
    ownInvSqrt_32s16s_I(&z, &e);
    EXPECT_EQ(z, INT32_MAX);
    EXPECT_EQ(e, 0);
}

TEST(ArithPrivate, GainPredictMatchesUnfoldedReference) {
    std::mt19937 g(kSeed);
    for (int k = 0; k < 200000; ++k) {
        Kvo16s past[4];
        // Past energies as the quantiser leaves them: -14 dB .. +18 dB in Q10.
        for (auto& p : past) p = Kvo16s(int(g() % 32769) - 14336);
        // Energies of codebook vectors (at least one Q13 pulse): 2^20 and up.
        // Below that the unfolded Q24 sum saturates while the folded Q23 sum
        // does not, and the two forms part.
        Kvo32s energy = Kvo32s(g() >> (1 + g() % 11));
        Kvo16s gain, ex, rg, rex;
        ownGainPredict(past, energy, &gain, &ex);
        gainPredictRef(past, energy, &rg, &rex);
        ASSERT_EQ(gain, rg) << energy;
        ASSERT_EQ(ex, rex) << energy;
    }
}

TEST(ArithPrivate, GainUpdateAndErasure) {
    const auto xs = model::operands32(200000, kSeed);
    for (Kvo32s x : xs) {
        Kvo16s p[4] = {1, 2, 3, 4};
        ownGainUpdate(p, x);
        Kvo16s e, f;
        log2Ref(x, &e, &f);
        Kvo32s acc = L_mac(Kvo32s{Kvo16s(e - 13)} << 16, f, 1);
        ASSERT_EQ(p[0], mult(extract_h(L_shl(acc, 13)), 24660)) << x;
        ASSERT_EQ(p[1], 1);
        ASSERT_EQ(p[3], 3);
    }
    // A squared gain of 2^13 is 0 dB; 2^23 saturates the Q12 log at +8 (24659 in Q10).
    Kvo16s p[4] = {};
    ownGainUpdate(p, 1 << 13);
    EXPECT_EQ(p[0], 0);
    ownGainUpdate(p, 1 << 23);
    EXPECT_EQ(p[0], 24659);

    struct Row {
        Kvo16s in[4];
        Kvo16s want;
    } rows[] = {
        {{0, 0, 0, 0}, -4096},
        {{-32768, -32768, -32768, -32768}, -14336},
        {{-10240, -10240, -10240, -10241}, -14336},
        {{8192, 4096, 1, 0}, 3072 - 4096},
        {{32767, 32767, 32767, 32767}, 32767 - 4096},
    };
    for (const Row& r : rows) {
        Kvo16s q[4] = {r.in[0], r.in[1], r.in[2], r.in[3]};
        ownGainUpdateErasure(q);
        EXPECT_EQ(q[0], r.want);
        EXPECT_EQ(q[1], r.in[0]);
        EXPECT_EQ(q[2], r.in[1]);
        EXPECT_EQ(q[3], r.in[2]);
    }
}

TEST(ArithPrivate, ConversionsAgainstModels) {
    const auto xs = model::operands32(100000, kSeed);
    const int n = int(xs.size());
    std::vector<Kvo16s> d(xs.size());
    for (int sf = -33; sf <= 33; ++sf) {
        SCOPED_TRACE(sf);
        kvosConvert_NR_32s16s_Sfs_(xs.data(), d.data(), n, sf);
        for (int i = 0; i < n; ++i) {
            Kvo32s x = xs[size_t(i)];
            Kvo16s want = sf > 0 ? model::c16(model::roundHalfUp(x, std::min(sf, 31)))
                                 : model::c16(Kvo32s(uint32_t(x) << std::min(-sf, 31)));
            ASSERT_EQ(d[size_t(i)], want) << x;
        }
        if (sf < 0) continue;
        ownConvert_32s16s_sfs(xs.data(), d.data(), n, sf);
        for (int i = 0; i < n; ++i)
            ASSERT_EQ(d[size_t(i)], model::c16(model::floorShift(xs[size_t(i)], std::min(sf, 31))));
    }
    std::vector<Kvo32s> w(xs.size());
    kvosCopy_16s32s_(model::all16().data(), w.data(), 65536);
    for (int i = 0; i < 65536; ++i) ASSERT_EQ(w[size_t(i)], i - 32768);
}

TEST(ArithPrivate, ProductsWithoutSaturation) {
    const auto a = model::all16();
    std::mt19937 g(kSeed);
    const auto b = model::random16(a.size(), g);
    std::vector<Kvo16s> d(a.size());
    for (int sf : {0, 1, 15, 16, 31}) {
        ownMul_16s_NoS_Sfs(a.data(), b.data(), d.data(), 65536, sf);
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_EQ(d[i], model::low16(model::floorShift(i128{a[i]} * b[i], sf))) << sf;
    }
    const auto x = model::operands32(10000, kSeed), y = model::operands32(10000, kSeed + 9);
    std::vector<Kvo16s> m(x.size());
    ownMul_32s16s(x.data(), y.data(), m.data(), int(x.size()));
    for (size_t i = 0; i < x.size(); ++i) ASSERT_EQ(m[i], model::low16(mpy32(x[i], y[i])));
}

TEST(ArithPrivate, AutoScaleNR32sFills15Bits) {
    std::mt19937 g(kSeed);
    for (int trial = 0; trial < 3000; ++trial) {
        int len = 1 + int(g() % 20);
        int shift = int(g() % 32);
        std::vector<Kvo32s> src(static_cast<size_t>(len));
        for (auto& v : src) v = Kvo32s(g()) >> shift;
        if (trial % 100 == 7) src[g() % size_t(len)] = INT32_MIN;
        if (trial % 100 == 8) std::fill(src.begin(), src.end(), 0);
        int64_t m = 0;
        for (Kvo32s v : src) m = std::max<int64_t>(m, std::min<int64_t>(std::llabs(v), INT32_MAX));
        int n = norm_l(Kvo32s(m));
        std::vector<Kvo16s> d(src.size());
        ownAutoScale_NR_32s16s(src.data(), d.data(), len);
        for (size_t i = 0; i < src.size(); ++i) {
            i128 x = src[i];
            Kvo16s want;
            if (n == 0)
                want = x > 0x7fff7fff ? 32767 : Kvo16s(model::roundHalfUp(x, 16));
            else if (n <= 16)
                want = model::c16(model::roundHalfUp(x, 16 - n));
            else
                want = Kvo16s(x * (i128{1} << (n - 16)));
            ASSERT_EQ(d[i], want) << "trial " << trial;
        }
        // The block's largest output magnitude lands in 16383 .. 32767 unless all zero.
        if (m > 0 && m < 0x7fff7fff) {
            int big = 0;
            for (Kvo16s v : d) big = std::max(big, std::abs(int(v)));
            EXPECT_GE(big, 16383);
        }
    }
}

TEST(ArithPrivate, SlidingEnergyAndBlockProducts) {
    std::mt19937 g(kSeed);
    const auto s = model::random16(400, g);
    std::vector<Kvo32s> e(100);
    ownEnergy_16s32s(s.data(), 120, e.data(), 100);
    for (int k = 0; k < 100; ++k) {
        int64_t sum = 0;
        for (int i = 0; i < 120; ++i) sum += int64_t{s[size_t(k + i)]} * s[size_t(k + i)];
        ASSERT_EQ(e[size_t(k)], Kvo32s(uint32_t(uint64_t(sum)))) << k;  // held modulo 2^32
    }
    const int rows = 5, rowLen = 37;
    auto dot = [&](const Kvo16s* a, const Kvo16s* b, int n) {
        i128 acc = 0;
        for (int i = 0; i < n; ++i) acc += i128{a[i]} * b[i];
        return model::c32(acc);
    };
    std::vector<Kvo16s> m(s.begin(), s.begin() + rows * rowLen);
    std::fill(m.begin(), m.begin() + rowLen, Kvo16s(-32768));  // a saturating energy row
    const Kvo16s* v = s.data() + 300;
    std::vector<Kvo32s> out(rows + rows * (rows - 1) / 2);
    kvosSumSquare_D2_16s32s_(m.data(), rows, rowLen, out.data());
    EXPECT_EQ(out[0], INT32_MAX);
    for (int r = 0; r < rows; ++r)
        EXPECT_EQ(out[size_t(r)], dot(&m[size_t(r * rowLen)], &m[size_t(r * rowLen)], rowLen));
    kvosMul_D2D1_16s32s_(m.data(), rows, v, out.data(), rowLen);
    for (int r = 0; r < rows; ++r)
        EXPECT_EQ(out[size_t(r)], dot(&m[size_t(r * rowLen)], v, rowLen));
    kvosMul_D2D1Step_16s32s_(s.data(), rows, v, out.data(), 20, 41);
    for (int r = 0; r < rows; ++r) EXPECT_EQ(out[size_t(r)], dot(&s[size_t(r * 41)], v, 20));
    kvosMul_D2_16s32s_(m.data(), rows, out.data(), rowLen);
    size_t k = 0;
    for (int r = 0; r < rows; ++r, ++k)
        EXPECT_EQ(out[k], dot(&m[size_t(r * rowLen)], &m[size_t(r * rowLen)], rowLen));
    for (int i = 1; i < rows; ++i)
        for (int j = 0; j < i; ++j, ++k)
            EXPECT_EQ(out[k], dot(&m[size_t(i * rowLen)], &m[size_t(j * rowLen)], rowLen))
                << i << j;
}

TEST(ArithPrivate, MedianOfFive) {
    std::mt19937 g(kSeed);
    for (int trial = 0; trial < 200; ++trial) {
        Kvo16s v[5];
        for (auto& x : v) x = Kvo16s(int(g() % 65535) - 32767);  // -32767 .. 32767
        if (trial % 3 == 0) v[1] = v[3];                         // ties
        if (trial % 5 == 0) v[0] = v[2] = v[4] = -32767;
        Kvo16s perm[5];
        std::copy(v, v + 5, perm);
        std::sort(perm, perm + 5);
        do {
            Kvo16s sorted[5];
            std::copy(perm, perm + 5, sorted);
            std::sort(sorted, sorted + 5);
            ASSERT_EQ(ownGmed_n(perm, 5), sorted[2]);
        } while (std::next_permutation(perm, perm + 5));
    }
    Kvo16s same[5] = {77, 77, 77, 77, 77};
    EXPECT_EQ(ownGmed_n(same, 5), 77);
    Kvo16s three[3] = {5, -2, 9};
    EXPECT_EQ(ownGmed_n(three, 3), 5);
}
