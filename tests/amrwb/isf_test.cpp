// AMR-WB ISF/ISP: conversions against a worked value and round trips, the quantiser's
// searches against a double-precision model of their criterion, encoder/decoder agreement,
// concealment and the comfort-noise quantiser.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "amrwb/isf_tables.h"
#include "kvosc.h"

namespace {

const Kvo16s kMean[16] = {738,  1326, 2336,  3578,  4596,  5662,  6711,  7730,
                          8750, 9753, 10705, 11728, 12833, 13971, 15043, 4037};

// A plausible ISF vector: the mean moved by up to +-spread, kept ordered.
std::vector<Kvo16s> isf_near_mean(std::mt19937& g, int spread) {
    std::uniform_int_distribution<int> d(-spread, spread);
    std::vector<Kvo16s> f(16);
    for (int i = 0; i < 16; ++i) f[i] = static_cast<Kvo16s>(kMean[i] + d(g));
    std::sort(f.begin(), f.begin() + 15);
    return f;
}

TEST(AmrwbIsp, MeanIsfGivesTheWorkedFilterAndConversionsRoundTrip) {
    Kvo16s isp[16], a[17];
    ASSERT_EQ(kvosISFToISP_AMRWB_16s(kMean, isp, 16), kvoOk);
    ASSERT_EQ(kvosISPToLPC_AMRWB_16s(isp, a, 16), kvoOk);
    const Kvo16s head[4] = {4096, -3985, 1603, -1728};
    EXPECT_EQ(0, std::memcmp(a, head, sizeof head))
        << a[0] << " " << a[1] << " " << a[2] << " " << a[3];
    // LPC -> ISP finds every root again, close to where they started.
    Kvo16s back[16], old[16] = {};
    ASSERT_EQ(kvosLPCToISP_AMRWB_16s(a, back, old), kvoOk);
    for (int i = 0; i < 15; ++i) EXPECT_NEAR(back[i], isp[i], 40) << i;
    EXPECT_EQ(back[15], static_cast<Kvo16s>(a[16] * 8));
    // ISP -> ISF -> ISP within the table's interpolation error.
    Kvo16s f[16], again[16];
    ASSERT_EQ(kvosISPToISF_Norm_AMRWB_16s(isp, f, 16), kvoOk);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(f[i], kMean[i], 3) << i;
    ASSERT_EQ(kvosISFToISP_AMRWB_16s(f, again, 16), kvoOk);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(again[i], isp[i], 8) << i;
}

// Doubled squared distance in 64 bits (the criterion without saturation).
long long dist(const Kvo16s* x, const Kvo16s* row, int n) {
    long long s = 0;
    for (int j = 0; j < n; ++j) s += 2LL * (x[j] - row[j]) * (x[j] - row[j]);
    return s;
}

TEST(AmrwbIsfQuant, SearchesAreOptimalAndDecoderAgrees) {
    std::mt19937 g(3);
    for (Kvo32s mode : {21, 9, 5, 25}) {
        const bool narrow = mode == 5 || mode == 25;
        Kvo16s encMem[16] = {}, decMem[16] = {}, hist[48] = {}, prev[16];
        std::memcpy(prev, kMean, sizeof prev);
        double err = 0;
        for (int frame = 0; frame < 30; ++frame) {
            const auto isf = isf_near_mean(g, 500);
            Kvo16s q[16], idx[7], dq[16];
            std::fill(idx, idx + 7, Kvo16s{-7});
            Kvo16s memBefore[16];
            std::memcpy(memBefore, encMem, sizeof memBefore);
            ASSERT_EQ(kvosISFQuant_AMRWB_16s(isf.data(), encMem, q, idx, mode), kvoOk);
            if (narrow) {
                EXPECT_EQ(idx[5], -7);
                EXPECT_EQ(idx[6], -7);
            }
            ASSERT_EQ(kvosISFQuantDecode_AMRWB_16s(idx, dq, decMem, prev, hist, 0, mode), kvoOk);
            ASSERT_EQ(0, std::memcmp(q, dq, sizeof q)) << "mode " << mode << " frame " << frame;
            ASSERT_EQ(0, std::memcmp(encMem, decMem, sizeof q));
            std::memcpy(prev, dq, sizeof prev);
            // Each stage-2 index is the best row for the chosen stage-1 rows.
            Kvo16s r[16];
            for (int i = 0; i < 16; ++i)
                r[i] = static_cast<Kvo16s>(isf[i] - kMean[i] - ((memBefore[i] * 10923) >> 15));
            for (int j = 0; j < 9; ++j) r[j] -= kvo::tab::QCdbk1ISFTbl[idx[0]][j];
            for (int j = 0; j < 7; ++j) r[9 + j] -= kvo::tab::QCdbk2ISFTbl[idx[1]][j];
            struct P {
                int first, dim, rows, width;
                const Kvo16s* t;
            };
            const std::vector<P> parts =
                narrow ? std::vector<P>{{0, 5, 128, 8, &kvo::tab::QCdbk21ISF36bTbl[0][0]},
                                        {5, 4, 128, 4, &kvo::tab::QCdbk22ISF36bTbl[0][0]},
                                        {9, 7, 64, 8, &kvo::tab::QCdbk23ISF36bTbl[0][0]}}
                       : std::vector<P>{{0, 3, 64, 4, &kvo::tab::QCdbk21ISFTbl[0][0]},
                                        {3, 3, 128, 4, &kvo::tab::QCdbk22ISFTbl[0][0]},
                                        {6, 3, 128, 4, &kvo::tab::QCdbk23ISFTbl[0][0]},
                                        {9, 3, 32, 4, &kvo::tab::QCdbk24ISFTbl[0][0]},
                                        {12, 4, 32, 4, &kvo::tab::QCdbk25ISFTbl[0][0]}};
            for (size_t p = 0; p < parts.size(); ++p) {
                const P& s = parts[p];
                int best = 0;
                for (int row = 1; row < s.rows; ++row)
                    if (dist(r + s.first, s.t + row * s.width, s.dim) <
                        dist(r + s.first, s.t + best * s.width, s.dim))
                        best = row;
                EXPECT_EQ(idx[2 + p], best) << "mode " << mode << " part " << p;
            }
            for (int i = 0; i < 15; ++i) err += std::fabs(q[i] - isf[i]);
        }
        EXPECT_LT(err / (30 * 15), narrow ? 120 : 80) << "mode " << mode;
    }
}

TEST(AmrwbIsfQuant, ConcealmentAndLostParts) {
    Kvo16s mem[16], hist[48], prev[16], q[16];
    for (int i = 0; i < 16; ++i) {
        mem[i] = static_cast<Kvo16s>(30 * i - 200);
        prev[i] = static_cast<Kvo16s>(kMean[i] + 50);
        for (int r = 0; r < 3; ++r) hist[16 * r + i] = static_cast<Kvo16s>(kMean[i] + 40 * r);
    }
    Kvo16s hist0[48], mem0[16];
    std::memcpy(hist0, hist, sizeof hist);
    std::memcpy(mem0, mem, sizeof mem);
    const Kvo16s idx[7] = {1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(kvosISFQuantDecode_AMRWB_16s(idx, q, mem, prev, hist, 1, 21), kvoOk);
    EXPECT_EQ(0, std::memcmp(hist, hist0, sizeof hist)) << "history kept on a lost frame";
    for (int i = 0; i < 15; ++i) {
        const double m = (kMean[i] + 3.0 * kMean[i] + 120) / 4;
        EXPECT_NEAR(q[i], 0.9 * prev[i] + 0.1 * m, 1.5) << i;
        const int want =
            (q[i] - (static_cast<int>(std::floor(
                         (kMean[i] + hist0[i] + hist0[16 + i] + hist0[32 + i] + 2) / 4.0)) +
                     ((mem0[i] * 10923) >> 15))) >>
            1;
        EXPECT_EQ(mem[i], want) << i;
    }
    // Every stage-2 part lost: stage 1 alone.
    Kvo16s m2[16] = {}, h2[48] = {};
    ASSERT_EQ(kvosISFQuantDecode_AMRWBE_16s(idx, q, m2, prev, h2, 0, 31), kvoOk);
    for (int j = 0; j < 9; ++j) EXPECT_EQ(m2[j], kvo::tab::QCdbk1ISFTbl[1][j]);
    for (int j = 0; j < 7; ++j) EXPECT_EQ(m2[9 + j], kvo::tab::QCdbk2ISFTbl[2][j]);
    EXPECT_EQ(h2[0], kMean[0] + kvo::tab::QCdbk1ISFTbl[1][0]);
}

TEST(AmrwbIsfQuant, ComfortNoiseQuantiser) {
    std::mt19937 g(8);
    const Kvo16s meanNoise[16] = {478,  1100, 2213,  3267,  4219,  5222,  6198,  7240,
                                  8229, 9153, 10098, 11108, 12144, 13184, 14165, 3803};
    for (int t = 0; t < 20; ++t) {
        std::uniform_int_distribution<int> d(-300, 300);
        Kvo16s isf[16], q[16], dq[16], idx[5];
        for (int i = 0; i < 16; ++i) isf[i] = static_cast<Kvo16s>(meanNoise[i] + d(g));
        std::sort(isf, isf + 15);
        ASSERT_EQ(kvosISFQuantDTX_AMRWB_16s(isf, q, idx), kvoOk);
        ASSERT_EQ(kvosISFQuantDecodeDTX_AMRWB_16s(idx, dq), kvoOk);
        EXPECT_EQ(0, std::memcmp(q, dq, sizeof q));
        // The first part is the nearest of its 64 rows.
        const Kvo16s r[2] = {static_cast<Kvo16s>(isf[0] - meanNoise[0]),
                             static_cast<Kvo16s>(isf[1] - meanNoise[1])};
        int best = 0;
        for (int row = 1; row < 64; ++row)
            if (dist(r, kvo::tab::QCdbk1ISFnoiseTbl[row], 2) <
                dist(r, kvo::tab::QCdbk1ISFnoiseTbl[best], 2))
                best = row;
        EXPECT_EQ(idx[0], best);
        for (int i = 1; i < 15; ++i) EXPECT_GE(q[i] - q[i - 1], 128) << "stability gap";
    }
}

TEST(AmrwbIsf, ArgumentChecks) {
    Kvo16s v[48] = {}, w[21] = {};
    EXPECT_EQ(kvosISFQuant_AMRWB_16s(v, v, w, w, 6), kvoErrRange);
    EXPECT_EQ(kvosISFQuant_AMRWB_16s(v, nullptr, w, w, 6), kvoErrNullPtr);
    EXPECT_EQ(kvosISFQuantDecode_AMRWB_16s(v, w, v, v, v, 0, 22), kvoErrRange);
    EXPECT_EQ(kvosISFQuantDecode_AMRWB_16s(v, w, v, v, nullptr, 0, 22), kvoErrNullPtr);
    EXPECT_EQ(kvosISFQuantDecode_AMRWBE_16s(v, w, nullptr, v, v, 0, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosISFQuantDTX_AMRWB_16s(v, w, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosISFQuantDecodeDTX_AMRWB_16s(nullptr, w), kvoErrNullPtr);
    EXPECT_EQ(kvosISPToISF_Norm_AMRWB_16s(v, w, 0), kvoErrSize);
    EXPECT_EQ(kvosISFToISP_AMRWB_16s(v, nullptr, 0), kvoErrNullPtr);
    EXPECT_EQ(kvosISFToISP_AMRWB_16s(v, w, 0), kvoErrSize);
    EXPECT_EQ(kvosLPCToISP_AMRWBE_16s(v, v, w, 0), kvoErrSize);
    EXPECT_EQ(kvosLPCToISP_AMRWB_16s(v, w, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosISPToLPC_AMRWB_16s(v, w, 21), kvoErrSize);
    EXPECT_EQ(kvosISPToLPC_AMRWB_16s(v, w, 0), kvoErrSize);
    for (Kvo16s x : w) EXPECT_EQ(x, 0) << "nothing written on a refused call";
}

}  // namespace
