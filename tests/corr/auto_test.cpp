// Autocorrelation exports against the int64 models, on random and full-scale
// data, with worked values for the documented corner cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "corr_model.h"
#include "kernels/corr.h"
#include "kernels/kernel_tables.h"
#include "kvosc.h"
#include "numeric/numeric_tables.h"

using namespace corrmodel;

namespace {

constexpr int kLens[] = {1, 2, 3, 7, 8, 9, 17, 40, 80, 143, 240};

// Data of each kind at several levels: the right shifts bring loud vectors
// into the range where the G.729 form does not overflow.
template <class F>
void forEachVector(uint32_t seed, F&& f) {
    std::mt19937 g(seed);
    for (Kind kind : kAllKinds)
        for (int len : kLens)
            for (int down : {0, 3, 6, 9}) {
                V16 x = make(kind, len, g);
                for (auto& s : x) s = static_cast<int16_t>(s >> down);
                SCOPED_TRACE(::testing::Message() << "seed " << seed << " kind " << int(kind)
                                                  << " len " << len << " down " << down);
                f(x);
            }
}

}  // namespace

TEST(AutoCorr, NormE32MatchesModelOrReportsOverflowUntouched) {
    int overflows = 0, normal = 0;
    forEachVector(11, [&](const V16& x) {
        const int len = static_cast<int>(x.size());
        for (int lags : {1, 2, 11, 13, len + 2}) {
            std::vector<int32_t> want;
            int wantNorm = 0;
            bool ok = autoNormE32(x, lags, want, wantNorm);
            std::vector<int32_t> got(lags, 0x5a5a5a5a);
            Kvo32s n = -77;
            KvoStatus st = kvosAutoCorr_NormE_16s32s(x.data(), len, got.data(), lags, &n);
            if (!ok) {
                ++overflows;
                EXPECT_EQ(st, kvoWarnOverflow);
                EXPECT_EQ(n, -77);
                for (auto v : got) ASSERT_EQ(v, 0x5a5a5a5a);
            } else {
                ++normal;
                ASSERT_EQ(st, kvoOk);
                EXPECT_EQ(n, wantNorm);
                EXPECT_EQ(got, want) << "lags " << lags;
            }
        }
    });
    EXPECT_GT(overflows, 20);
    EXPECT_GT(normal, 20);
}

TEST(AutoCorr, NormE32WorkedValues) {
    // Silence: energy 0 plus the start value 1, normalised to bit 30.
    V16 z(240, 0);
    Kvo32s d[11], n = 0;
    ASSERT_EQ(kvosAutoCorr_NormE_16s32s(z.data(), 240, d, 11, &n), kvoOk);
    EXPECT_EQ(n, 30);
    EXPECT_EQ(d[0], 0x40000000);
    for (int k = 1; k < 11; ++k) EXPECT_EQ(d[k], 0);
    // One sample of 1: v = 3, norm 29.  Largest energy that passes: 0x3fffffff.
    V16 one{1};
    ASSERT_EQ(kvosAutoCorr_NormE_16s32s(one.data(), 1, d, 2, &n), kvoOk);
    EXPECT_EQ(n, 29);
    EXPECT_EQ(d[0], 3 << 29);
    EXPECT_EQ(d[1], 0);
    // A single -32768 has energy 2^30, one above the largest that passes.
    V16 big{-32768};
    EXPECT_EQ(kvosAutoCorr_NormE_16s32s(big.data(), 1, d, 1, &n), kvoWarnOverflow);
    V16 fits{32767, 181};
    ASSERT_LE(32767LL * 32767 + 181 * 181, 0x3fffffffLL);
    EXPECT_EQ(kvosAutoCorr_NormE_16s32s(fits.data(), 2, d, 2, &n), kvoOk);
    EXPECT_EQ(n, 0);
    // Energy exactly 0x3fffffff passes: 2 E + 1 = 0x7fffffff, norm 0.
    V16 top{32767, 255, 22, 5};
    ASSERT_EQ(kvosAutoCorr_NormE_16s32s(top.data(), 4, d, 1, &n), kvoOk);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(d[0], 0x7fffffff);
}

TEST(AutoCorr, NormENRMatchesModel) {
    forEachVector(12, [&](const V16& x) {
        const int len = static_cast<int>(x.size());
        for (int lags : {1, 3, 11, len + 1}) {
            std::vector<int16_t> want, got(lags, 0x5a5a);
            int wantNorm = 0;
            autoNormENR(x, lags, 1, false, want, wantNorm);
            Kvo32s n = -1;
            ASSERT_EQ(kvosAutoCorr_NormE_NR_16s(x.data(), len, got.data(), lags, &n), kvoOk);
            EXPECT_EQ(n, wantNorm);
            EXPECT_EQ(got, want) << "lags " << lags;
        }
    });
}

TEST(AutoCorr, NormENRWorkedValues) {
    V16 loud(240, 32767), z(240, 0);
    Kvo16s d[4];
    Kvo32s n = -1;
    ASSERT_EQ(kvosAutoCorr_NormE_NR_16s(loud.data(), 240, d, 4, &n), kvoOk);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(d[0], 32767);  // saturated energy
    EXPECT_EQ(d[1], 32767);  // lag sums beyond 2^31 clamp
    ASSERT_EQ(kvosAutoCorr_NormE_NR_16s(z.data(), 240, d, 4, &n), kvoOk);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(d[0], 0);
    // Alternating full scale: odd lags strongly negative, clamped to -32768.
    std::mt19937 g(1);
    V16 alt = make(Kind::Alternate, 64, g);
    ASSERT_EQ(kvosAutoCorr_NormE_NR_16s(alt.data(), 64, d, 2, &n), kvoOk);
    EXPECT_EQ(d[1], -32768);
}

TEST(AutoCorr, StepNRMatchesModelWithHeldEnergy) {
    forEachVector(13, [&](const V16& x) {
        const int len = static_cast<int>(x.size());
        for (int step : {1, 2, 3, 5}) {
            const int lags = 6;
            std::vector<int16_t> want, got(lags);
            int wantNorm = 0;
            autoNormENR(x, lags, step, true, want, wantNorm);
            Kvo32s n = -1;
            kvo::kvosAutoCorr_NormE_Step_NR_16s_(x.data(), len, step, got.data(), lags, &n);
            EXPECT_EQ(n, wantNorm);
            EXPECT_EQ(got, want) << "step " << step;
        }
    });
}

TEST(AutoCorr, Plain32AndPrivateLagKernels) {
    forEachVector(14, [&](const V16& x) {
        const int len = static_cast<int>(x.size());
        const int lags = len + 3;
        std::vector<int32_t> got(lags), want(lags);
        for (int k = 0; k < lags; ++k) want[k] = wrap32(tri(x.data(), x.data(), len, k));
        ASSERT_EQ(kvosAutoCorr_16s32s(x.data(), len, got.data(), lags), kvoOk);
        EXPECT_EQ(got, want);
        // Saturating left shift of the 32-bit lag sums from a chosen first lag.
        for (int shift : {0, 1, 5, 17, 31})
            for (int first : {0, 1, 4}) {
                std::vector<int32_t> g2(5), w2(5);
                for (int j = 0; j < 5; ++j)
                    w2[j] = s32(i64{wrap32(tri(x.data(), x.data(), len, first + j))} << shift);
                kvo::kvosAutoCorr_G729_16s32s_Sfs_(x.data(), len, g2.data(), 5, shift, first);
                EXPECT_EQ(g2, w2) << "shift " << shift << " first " << first;
            }
        // Backward form: reads history before the pointer.
        const int count = 4;
        std::mt19937 g(len);
        V16 buf = make(Kind::Random, count - 1, g);
        buf.insert(buf.end(), x.begin(), x.end());
        const int16_t* p = buf.data() + count - 1;
        std::vector<int32_t> g3(count), w3(count);
        for (int k = 0; k < count; ++k) w3[k] = s32(dot(p, p - k, len));
        kvo::kvosAutoCorr_Inv_16s32s_(p, len, g3.data(), count);
        EXPECT_EQ(g3, w3);
    });
}

TEST(AutoCorr, G723NormEMatchesModel) {
    std::mt19937 g(15);
    for (Kind kind : kAllKinds)
        for (int down : {0, 2, 4, 8, 12, 15}) {
            V16 x = make(kind, 180, g);
            for (auto& s : x) s = static_cast<int16_t>(s >> down);
            SCOPED_TRACE(::testing::Message() << "kind " << int(kind) << " down " << down);
            std::vector<int16_t> want, got(11, 0x5a5a);
            int wantNorm = 0;
            autoNormEG723(x, kvo::tab::BinomWindowCoeffTbl_G723, want, wantNorm);
            Kvo32s n = -1;
            ASSERT_EQ(kvosAutoCorr_NormE_G723_16s(x.data(), got.data(), &n), kvoOk);
            EXPECT_EQ(n, wantNorm);
            EXPECT_EQ(got, want);
        }
    V16 z(180, 0);
    std::vector<int16_t> d(11, 7);
    Kvo32s n = -1;
    ASSERT_EQ(kvosAutoCorr_NormE_G723_16s(z.data(), d.data(), &n), kvoOk);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(d, std::vector<int16_t>(11, 0));
}

// G.723.1 subframe: block normalisation with three bits of headroom, Q15
// Hamming window, then the corrected and lag-windowed autocorrelation.
TEST(AutoCorr, G723SubframeMatchesModel) {
    std::mt19937 g(16);
    for (Kind kind : kAllKinds)
        for (int down : {0, 5, 10, 14, 16}) {
            V16 x = make(kind, 180, g);
            for (auto& s : x) s = static_cast<int16_t>(down == 16 ? 0 : s >> down);
            SCOPED_TRACE(::testing::Message() << "kind " << int(kind) << " down " << down);
            i64 m = 0;
            for (auto s : x) m = std::max<i64>(m, s == -32768 ? 32767 : std::abs(int(s)));
            int dbl = 0;
            while (m != 0 && (m << dbl) < 16384) ++dbl;
            const int sc = m == 0 ? 16 - 3 : dbl - 3;
            V16 w(180);
            for (int i = 0; i < 180; ++i) {
                int16_t scaled = static_cast<int16_t>((i64{x[i]} << dbl) >> 3);
                if (m == 0) scaled = 0;
                w[i] = s16((i64{scaled} * kvo::tab::HammingWindowTbl_G723[i] + 16384) >> 15);
            }
            std::vector<int16_t> want, got(11);
            int nrm = 0;
            autoNormEG723(w, kvo::tab::BinomWindowCoeffTbl_G723, want, nrm);
            Kvo16s scale = -1;
            ASSERT_EQ(kvosAutoCorr_G723_16s(x.data(), &scale, got.data()), kvoOk);
            EXPECT_EQ(got, want);
            EXPECT_EQ(scale, want[0] == 0 ? 40 : nrm + 2 * sc);
        }
}

// G.729 Annex B: window, then retry at a quarter of the level while the
// energy overflows.  The loud inputs are checked to need one and two retries.
TEST(AutoCorr, G729BRetriesAtReducedLevel) {
    std::mt19937 g(17);
    struct Case {
        int amp, retries;
    };
    for (Case c : {Case{0, 0}, Case{100, 0}, Case{8000, 1}, Case{32767, 2}})
        for (Kind kind : {Kind::Random, Kind::Alternate, Kind::FullNeg}) {
            V16 x = make(kind, 240, g);
            for (auto& s : x) s = static_cast<int16_t>(i64{s} * c.amp / 32768);
            SCOPED_TRACE(::testing::Message() << "amp " << c.amp << " kind " << int(kind));
            V16 w(240);
            for (int i = 0; i < 240; ++i)
                w[i] = s16((i64{x[i]} * kvo::tab::hamwindow[i] + 16384) >> 15);
            std::vector<int32_t> want;
            int nrm = 0, exp = 1, retries = 0;
            while (!autoNormE32(w, 13, want, nrm)) {
                for (auto& s : w) s = static_cast<int16_t>(s >> 2);
                exp += 4;
                ++retries;
            }
            if (kind != Kind::Random || c.amp == 0) {
                EXPECT_EQ(retries, c.retries);
            }
            std::vector<int32_t> got(13);
            Kvo16s n = -99;
            ASSERT_EQ(kvosAutoCorr_G729B(x.data(), &n, got.data()), kvoOk);
            EXPECT_EQ(got, want);
            EXPECT_EQ(n, exp - nrm);
        }
}
