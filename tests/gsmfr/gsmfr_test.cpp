// GSM full-rate steps through the exports. The coder assembled from them is
// proven bit for bit by the vector sets and the peer library (tests/conformance);
// here: worked values at the rails, streaming, the steps at lengths, orders and
// lags the coder does not use (against int64 models), and the argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "gsmfr/gsmfr.h"
#include "kvosc.h"
#include "support/badargs.h"

namespace {

using kvosc::test::BadArgs;

std::vector<Kvo16s> randomSignal(int n, uint32_t seed, int amp) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-amp, amp - 1);
    std::vector<Kvo16s> v(n);
    for (auto& x : v) x = static_cast<Kvo16s>(d(rng));
    return v;
}

TEST(GsmFrFilters, WorkedValuesAtTheRails) {
    // offset compensation: -1 drops to -8 on the 13-bit grid, (-8 / 2) << 15 rounds to -4
    KvoHighPassState_GSMFR st{0, 0};
    Kvo16s x = -1, y = 0;
    ASSERT_EQ(kvosHighPassFilter_GSMFR_16s(&x, &y, 1, &st), kvoOk);
    EXPECT_TRUE(y == -4 && st.z1 == -4 && st.z2 == -4 << 15);
    // preemphasis y = x + mult_r(x[-1], -28180), saturated
    Kvo16s p[3] = {1000, -32768, 32767}, q[3], mem = 32767;
    ASSERT_EQ(kvosPreemphasize_GSMFR_16s(p, q, 3, &mem), kvoOk);
    EXPECT_TRUE(q[0] == 1000 - 28179 && q[1] == -32768 && q[2] == 32767 && mem == 32767);
    // deemphasis: 2x onto the 13-bit grid, memory kept before doubling
    Kvo16s d[3] = {30000, 30000, -3}, m = 0;
    ASSERT_EQ(kvosDeemphasize_GSMFR_16s_I(d, 2, &m), kvoOk);
    EXPECT_TRUE(d[0] == 32760 && d[1] == 32760 && m == 32767);
    m = 0;
    ASSERT_EQ(kvosDeemphasize_GSMFR_16s_I(d + 2, 1, &m), kvoOk);
    EXPECT_TRUE(d[2] == -8 && m == -3);
    // lattices with every coefficient -32768: mult_r(-32768, -32768) keeps its
    // low 16 bits (-32768), every sum saturates
    Kvo16s rc[8], a[2] = {32767, -32768}, u[8] = {};
    std::fill(rc, rc + 8, Kvo16s{-32768});
    ASSERT_EQ(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, a, 1, u), kvoOk);
    EXPECT_TRUE(a[0] == 32767 && u[0] == 32767);
    for (int i = 1; i < 8; ++i) EXPECT_EQ(u[i], -32767) << i;
    ASSERT_EQ(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, a + 1, 1, u), kvoOk);
    EXPECT_EQ(u[0], -32768);
    EXPECT_EQ(u[1], -1);      // 32767 + mult_r(-32768, -32768)
    EXPECT_EQ(u[2], -32768);  // -32767 - 32768 saturates
    Kvo16s s = 32767, r = 0, v[9] = {};
    ASSERT_EQ(kvosShortTermSynthesisFilter_GSMFR_16s(rc, &s, &r, 1, v), kvoOk);
    EXPECT_EQ(r, 32767);
    for (int i = 1; i < 9; ++i) EXPECT_EQ(v[i], -32767) << i;
}

// Whole runs equal runs cut into pieces, in place.
TEST(GsmFrFilters, ChunkedInPlaceRunsAgree) {
    const auto x = randomSignal(480, 5, 32768);
    const Kvo16s rc[8] = {-29000, 26000, -12000, 9000, -3000, 2500, -700, 300};
    const int cuts[] = {1, 13, 14, 13, 120, 2, 157, 160};
    for (int which = 0; which < 5; ++which) {
        SCOPED_TRACE(which);
        auto run = [&](Kvo16s* b, int n, KvoHighPassState_GSMFR& hp, Kvo16s* mem) {
            return which == 0   ? kvosHighPassFilter_GSMFR_16s(b, b, n, &hp)
                   : which == 1 ? kvosPreemphasize_GSMFR_16s(b, b, n, mem)
                   : which == 2 ? kvosDeemphasize_GSMFR_16s_I(b, n, mem)
                   : which == 3 ? kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, b, n, mem)
                                : kvosShortTermSynthesisFilter_GSMFR_16s(rc, b, b, n, mem);
        };
        std::vector<Kvo16s> whole = x, pieces = x;
        KvoHighPassState_GSMFR h1{12345, -20}, h2 = h1;
        Kvo16s m1[9] = {100, -200, 300, -400, 500, -600, 700, -800, 0}, m2[9];
        std::copy(m1, m1 + 9, m2);
        ASSERT_EQ(run(whole.data(), 480, h1, m1), kvoOk);
        int at = 0;
        for (int c : cuts) {
            ASSERT_EQ(run(pieces.data() + at, c, h2, m2), kvoOk);
            at += c;
        }
        EXPECT_EQ(whole, pieces);
        EXPECT_TRUE(std::equal(m1, m1 + 9, m2) && h1.z1 == h2.z1 && h1.z2 == h2.z2);
    }
}

TEST(GsmFrSchur, EdgeStagesAndLowerOrders) {
    Kvo16s rc[8];
    const Kvo32s zero[9] = {};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(zero, rc, 8), kvoOk);
    for (Kvo16s v : rc) EXPECT_EQ(v, 0);
    // |P[1]| = P[0] twice gives -32767, -32767 and leaves P[0] = P[1] = 0: the
    // third quotient has a zero numerator (0, not the 32767 of equal terms) and
    // the recursion stops as unstable
    const Kvo32s equal[9] = {1 << 20, 1 << 20, 1 << 20, 1 << 20};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(equal, rc, 8), kvoOk);
    const Kvo16s wantEqual[8] = {-32767, -32767, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(std::equal(rc, rc + 8, wantEqual));
    const Kvo32s negative[3] = {1000, -1000, 0};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(negative, rc, 2), kvoOk);
    EXPECT_EQ(rc[0], 32767);
    // stage 2: P0 = 16384 + mult_r(8192, -16384) = 12288 < |P1| = 20480: zeroes
    const Kvo32s unstable[9] = {1 << 24, 1 << 23, -(1 << 24) + 1, 5, 5, 5, 5, 5, 5};
    ASSERT_EQ(kvosSchur_GSMFR_32s16s(unstable, rc, 8), kvoOk);
    const Kvo16s wantUnstable[8] = {-16384, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(std::equal(rc, rc + 8, wantUnstable));
    // lower orders give the first coefficients of order 8
    std::mt19937 rng(31);
    for (int trial = 0; trial < 20; ++trial) {
        const auto s = randomSignal(160, trial, 2000);
        Kvo32s acf[9];
        for (int k = 0; k < 9; ++k) {
            Kvo64s sum = 0;
            for (int i = k; i < 160; ++i) sum += s[i] * s[i - k];
            acf[k] = static_cast<Kvo32s>(sum * 2);
        }
        ASSERT_EQ(kvosSchur_GSMFR_32s16s(acf, rc, 8), kvoOk);
        for (int order = 1; order < 8; ++order) {
            Kvo16s lo[8];
            ASSERT_EQ(kvosSchur_GSMFR_32s16s(acf, lo, order), kvoOk);
            EXPECT_TRUE(std::equal(lo, lo + order, rc)) << order;
        }
    }
}

// Any length and lag range against an int64 model (ascending, ties to the
// larger lag, nothing positive gives 0 at maxLag, sums saturate), and the plain
// loop; the AVX2 40-sample kernel against the plain loop.
TEST(GsmFrLagSearch, MatchesModelAndTwins) {
    std::mt19937 rng(4242);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int len = trial % 3 == 0 ? 40 : 1 + static_cast<int>(rng() % 70);
        const int maxLag = static_cast<int>(rng() % 100);
        const int amp = trial % 5 == 0 ? 32768 : (trial % 5 == 1 ? 3 : 600);
        std::uniform_int_distribution<int> d(-amp, amp - 1);
        std::vector<Kvo16s> x(len), y(len + maxLag);
        for (auto& v : x) v = static_cast<Kvo16s>(d(rng));
        for (auto& v : y) v = static_cast<Kvo16s>(trial % 7 == 0 ? -32768 : d(rng));
        if (trial % 11 == 0) std::fill(y.begin(), y.end(), 100);  // every lag ties
        Kvo32s mx = 0, lag = maxLag, m2, l2, m3, l3;
        for (int k = 0; k <= maxLag; ++k) {
            Kvo64s s = 0;
            for (int i = 0; i < len; ++i) s += Kvo64s{x[i]} * y[i + k];
            const Kvo32s c = static_cast<Kvo32s>(std::clamp<Kvo64s>(s, INT32_MIN, INT32_MAX));
            if (c > mx || (c == mx && c > 0)) mx = c, lag = k;
        }
        ASSERT_EQ(kvosCrossCorrLagMax_16s(x.data(), y.data(), len, maxLag, &m2, &l2), kvoOk);
        kvo::gsmfr::crossCorrLagMaxScalar(x.data(), y.data(), len, maxLag, &m3, &l3);
        EXPECT_TRUE(m2 == mx && l2 == lag && m3 == mx && l3 == lag);
        if (len == 40 && amp == 600 && kvo::gsmfr::hasAvx2()) {  // products below 2^31
            kvo::gsmfr::lagMax40Avx2(x.data(), y.data(), maxLag, &m3, &l3);
            EXPECT_TRUE(m3 == mx && l3 == lag) << "AVX2";
        }
    }
}

TEST(GsmFrWeighting, ElevenTapModelAndScalarTwin) {
    static const int H[11] = {-134, -374, 0, 2054, 5741, 8192, 5741, 2054, 0, -374, -134};
    std::mt19937 rng(8);
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        const int len = trial < 20 ? 40 : 1 + static_cast<int>(rng() % 60);
        const int amp = trial % 3 == 0 ? 32768 : 5000;
        std::uniform_int_distribution<int> d(-amp, amp - 1);
        std::vector<Kvo16s> buf(len + 10);
        for (auto& v : buf)
            v = static_cast<Kvo16s>(trial % 4 == 1 ? (d(rng) > 0 ? 32767 : -32768) : d(rng));
        std::vector<Kvo16s> y(len), z(len);
        ASSERT_EQ(kvosWeightingFilter_GSMFR_16s(buf.data() + 5, y.data(), len), kvoOk);
        kvo::gsmfr::weightingScalar(buf.data() + 5, z.data(), len);
        EXPECT_EQ(y, z);
        for (int i = 0; i < len; ++i) {
            Kvo64s s = 4096;
            for (int t = 0; t < 11; ++t) s += Kvo64s{H[t]} * buf[i + t];
            ASSERT_EQ(y[i], std::clamp<Kvo64s>(s >> 13, -32768, 32767)) << i;
        }
    }
}

// The standard's form: mult_r(FAC, (2c - 7) << 12), plus 2^(e-1), shifted by e.
TEST(GsmFrApcm, EqualsTheStandardsForm) {
    static const Kvo16s kFac[9] = {-32768, 18431, 20479, 22527, 24575, 26623, 28671, 30719, 32767};
    Kvo16s codes[13], out[13];
    for (int i = 0; i < 13; ++i) codes[i] = static_cast<Kvo16s>(i % 8);
    for (Kvo16s m : kFac)
        for (Kvo16s e : {0, 1, 5, 10, 16, 32767}) {
            ASSERT_EQ(kvosRPEQuantDecode_GSMFR_16s(codes, m, e, out), kvoOk);
            for (int i = 0; i < 13; ++i) {
                const int t = (m * ((2 * codes[i] - 7) * 4096) + 16384) >> 15;
                EXPECT_EQ(out[i], e >= 16 ? 0 : (t + (e ? 1 << (e - 1) : 0)) >> e) << m << " " << e;
            }
        }
}

// Random, alternating rails, small, or random with many -32768.
Kvo16s draw(std::mt19937& rng, int kind) {
    return static_cast<Kvo16s>(kind == 0   ? rng()
                               : kind == 1 ? (rng() & 1 ? -32768 : 32767)
                               : kind == 2 ? static_cast<int>(rng() % 2001) - 1000
                                           : (rng() % 3 == 0 ? -32768 : rng()));
}

TEST(GsmFrSimd, LatticesAndEmphasisEqualThePlainLoops) {
    if (!kvo::gsmfr::hasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    namespace g = kvo::gsmfr;
    std::mt19937 rng(2026);
    for (int trial = 0; trial < 400; ++trial) {
        SCOPED_TRACE(trial);
        const int kind = trial % 4, len = 1 + static_cast<int>(rng() % 170);
        Kvo16s rc[8], mem[9], ma[9], mb[9];
        for (auto& v : rc) v = draw(rng, kind == 2 ? 0 : kind);
        for (auto& v : mem) v = draw(rng, kind);
        std::vector<Kvo16s> x(len);
        for (auto& v : x) v = draw(rng, kind);
        for (int k = 0; k < 4; ++k) {
            std::vector<Kvo16s> a = x, b = x;
            std::memcpy(ma, mem, sizeof mem);
            std::memcpy(mb, mem, sizeof mem);
            if (k == 0) g::analysisLatticeScalar(rc, a.data(), len, ma);
            if (k == 0) g::analysisLatticeAvx2(rc, b.data(), len, mb);
            if (k == 1) g::synthesisLatticeScalar(rc, x.data(), a.data(), len, ma);
            if (k == 1) g::synthesisLatticeAvx2(rc, x.data(), b.data(), len, mb);
            if (k == 2) g::preemphasisScalar(a.data(), a.data(), len, ma);
            if (k == 2) g::preemphasisAvx2(b.data(), b.data(), len, mb);
            if (k == 3) g::deemphasisScalar(a.data(), len, ma);
            if (k == 3) g::deemphasisAvx2(b.data(), len, mb);
            ASSERT_EQ(a, b) << k;
            ASSERT_EQ(0, std::memcmp(ma, mb, (k == 1 ? 9 : k == 0 ? 8 : 1) * sizeof(Kvo16s))) << k;
        }
    }
}

TEST(GsmFrArgs, EveryExport) {
    auto len4 = [](BadArgs& t) {
        return t.value<Kvo32s>("len", 4, {{0, kvoErrSize}, {-1, kvoErrSize}});
    };
    {
        BadArgs t("kvosHighPassFilter_GSMFR_16s");
        auto s = t.in<Kvo16s>("pSrc", 4);
        auto d = t.out<Kvo16s>("pDst", 4);
        auto n = len4(t);
        auto st = t.inout<KvoHighPassState_GSMFR>("pState", 1);
        t.run([&](const BadArgs::Call& c) {
            return kvosHighPassFilter_GSMFR_16s(c(s), c(d), c(n), c(st));
        });
    }
    for (int inPlace = 0; inPlace < 2; ++inPlace) {
        BadArgs t(inPlace ? "kvosDeemphasize_GSMFR_16s_I" : "kvosPreemphasize_GSMFR_16s");
        auto s = t.in<Kvo16s>("pSrc", 4);
        auto d = t.inout<Kvo16s>(inPlace ? "pSrcDst" : "pDst", 4);
        auto n = len4(t);
        auto m = t.inout<Kvo16s>("pMem", 1);
        if (inPlace) t.optional(s);  // not an argument of the in-place form
        t.run([&](const BadArgs::Call& c) {
            return inPlace ? kvosDeemphasize_GSMFR_16s_I(c(d), c(n), c(m))
                           : kvosPreemphasize_GSMFR_16s(c(s), c(d), c(n), c(m));
        });
    }
    {
        BadArgs t("kvosSchur_GSMFR_32s16s");
        auto s = t.in<Kvo32s>("pSrc", 9);
        auto d = t.out<Kvo16s>("pDst", 8);
        auto o = t.value<Kvo32s>("order", 8, {{0, kvoErrSize}, {9, kvoErrSize}, {-1, kvoErrSize}});
        t.run([&](const BadArgs::Call& c) { return kvosSchur_GSMFR_32s16s(c(s), c(d), c(o)); });
    }
    {
        BadArgs t("kvosShortTermAnalysisFilter_GSMFR_16s_I");
        auto rc = t.in<Kvo16s>("pRc", 8);
        auto x = t.inout<Kvo16s>("pSrcDst", 4);
        auto n = len4(t);
        auto m = t.inout<Kvo16s>("pMem", 8);
        t.run([&](const BadArgs::Call& c) {
            return kvosShortTermAnalysisFilter_GSMFR_16s_I(c(rc), c(x), c(n), c(m));
        });
    }
    {
        BadArgs t("kvosShortTermSynthesisFilter_GSMFR_16s");
        auto rc = t.in<Kvo16s>("pRc", 8);
        auto s = t.in<Kvo16s>("pSrc", 4);
        auto d = t.out<Kvo16s>("pDst", 4);
        auto n = len4(t);
        auto m = t.inout<Kvo16s>("pMem", 9);
        t.run([&](const BadArgs::Call& c) {
            return kvosShortTermSynthesisFilter_GSMFR_16s(c(rc), c(s), c(d), c(n), c(m));
        });
    }
    {
        BadArgs t("kvosWeightingFilter_GSMFR_16s");
        auto s = t.in<Kvo16s>("pSrc", 9, {}, 5);
        auto d = t.out<Kvo16s>("pDst", 4);
        auto n = len4(t);
        t.run([&](const BadArgs::Call& c) {
            return kvosWeightingFilter_GSMFR_16s(c(s), c(d), c(n));
        });
    }
    {
        BadArgs t("kvosRPEQuantDecode_GSMFR_16s");
        auto s = t.in<Kvo16s>("pSrc", 13, {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4});
        auto e = t.value<Kvo16s>("exponent", 2, {{-1, kvoErrScaleRange}});
        auto d = t.out<Kvo16s>("pDst", 13);
        t.run([&](const BadArgs::Call& c) {
            return kvosRPEQuantDecode_GSMFR_16s(c(s), 100, c(e), c(d));
        });
    }
    {
        BadArgs t("kvosCrossCorrLagMax_16s");
        auto a = t.in<Kvo16s>("pSrc1", 8);
        auto b = t.in<Kvo16s>("pSrc2", 12);
        auto n = t.value<Kvo32s>("len", 8, {{0, kvoErrSize}});
        auto l = t.value<Kvo32s>("maxLag", 4, {{-1, kvoErrRange}});
        auto mx = t.out<Kvo32s>("pMax", 1);
        auto lag = t.out<Kvo32s>("pLag", 1);
        t.combo(kvoErrSize, {t.bad(n, 0), t.bad(l, 0)});
        t.run([&](const BadArgs::Call& c) {
            return kvosCrossCorrLagMax_16s(c(a), c(b), c(n), c(l), c(mx), c(lag));
        });
    }
}

}  // namespace
