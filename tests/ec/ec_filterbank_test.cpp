// Subband filter bank: analysis and synthesis against double-precision DFT models, the
// built-in prototypes' reconstruction (delay, gain, aliasing residual) in both families,
// placement of the record at any address, and the argument tests.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <string>

#include "../support/badargs.h"
#include "ec_util.h"

using namespace ectest;

namespace {

using cd = std::complex<double>;
constexpr double kPi = 3.14159265358979323846;

struct Geometry {
    int order, block, win, delay;
    double gain, residual;  // power gain of the in-phase part; aliasing residual (dB, white noise)
};
const Geometry kBuiltin[] = {{5, 24, 128, 104, 0.977, -16.0}, {6, 44, 256, 212, 1.000, -24.0}};

TEST(SubbandBank, AnalysisAndSynthesisMatchDoubleModels) {
    // Caller windows, with windowLen == fftLen (no folding) and blockLen == fftLen among them.
    const Geometry cases[] = {
        {3, 5, 24, 0, 0, 0}, {4, 16, 16, 0, 0, 0}, {5, 7, 96, 0, 0, 0}, {1, 2, 6, 0, 0, 0}};
    for (const Geometry& g : cases) {
        SCOPED_TRACE(testing::Message() << g.order << "/" << g.block << "/" << g.win);
        const int N = 1 << g.order;
        const auto W = static_cast<size_t>(g.win), B = static_cast<size_t>(g.block);
        std::vector<double> wd = white(W, 0.5, 5);
        std::vector<Kvo32f> wf(wd.begin(), wd.end());
        wd.assign(wf.begin(), wf.end());
        Bank<false> a(g.order, g.block, g.win, wf.data()), s(g.order, g.block, g.win, wf.data());
        ASSERT_TRUE(a.ok && s.ok);
        std::vector<double> hist(W, 0.0), ola(W, 0.0);
        std::vector<Kvo32fc> X(static_cast<size_t>(a.bands));
        std::vector<Kvo32f> out(B);
        for (int f = 0; f < 12; ++f) {
            const std::vector<double> xd = white(B, 1000.0, 6 + f);
            const std::vector<Kvo32f> in(xd.begin(), xd.end());
            ASSERT_EQ(kvosSubbandAnalysis_32f32fc(in.data(), X.data(), a.st, a.wb), kvoOk);
            // Model: fold the last W samples with the window onto N, real DFT.
            hist.erase(hist.begin(), hist.begin() + g.block);
            hist.insert(hist.end(), in.begin(), in.end());
            std::vector<double> t(static_cast<size_t>(N), 0.0);
            for (size_t i = 0; i < W; ++i) t[i % t.size()] += hist[i] * wd[i];
            double err = 0, ref = 1e-9;
            for (int k = 0; k < a.bands; ++k) {
                cd m = 0;
                for (int n = 0; n < N; ++n)
                    m += t[size_t(n)] * std::polar(1.0, -2 * kPi * k * n / N);
                err += std::norm(cd(X[size_t(k)].re, X[size_t(k)].im) - m);
                ref += std::norm(m);
            }
            EXPECT_LT(std::sqrt(err / ref), 2e-6) << "frame " << f;

            // Synthesis of a random vector (imaginary parts of bins 0 and N/2 unused):
            // inverse real DFT / N, reversed window, overlap-add.
            const auto re = white(X.size(), 100.0, 100 + f), im = white(X.size(), 100.0, 200 + f);
            for (size_t k = 0; k < X.size(); ++k)
                X[k] = {static_cast<Kvo32f>(re[k]), static_cast<Kvo32f>(im[k])};
            ASSERT_EQ(kvosSubbandSynthesis_32fc32f(X.data(), out.data(), s.st, s.wb), kvoOk);
            ola.erase(ola.begin(), ola.begin() + g.block);
            ola.insert(ola.end(), B, 0.0);
            for (int n = 0; n < N; ++n) {
                double v = X[0].re + X[size_t(N / 2)].re * ((n & 1) ? -1 : 1);
                for (int k = 1; k < N / 2; ++k)
                    v += 2 * (cd(X[size_t(k)].re, X[size_t(k)].im) *
                              std::polar(1.0, 2 * kPi * k * n / N))
                                 .real();
                for (int i = n; i < g.win; i += N) ola[size_t(i)] += v / N * wd[W - 1 - size_t(i)];
            }
            for (size_t i = 0; i < B; ++i)
                EXPECT_NEAR(out[i], ola[i], 1e-2 * g.win / N) << "frame " << f << " sample " << i;
        }
    }
}

// Gain and residual (dB below the input) of y against x delayed by D.
std::pair<double, double> fit(const std::vector<double>& x, const std::vector<double>& y, int D) {
    double xy = 0, xx = 0, ee = 0;
    for (size_t n = 400; n + size_t(D) < y.size(); ++n)
        xy += x[n] * y[n + size_t(D)], xx += x[n] * x[n];
    for (size_t n = 400; n + size_t(D) < y.size(); ++n)
        ee += std::pow(y[n + size_t(D)] - xy / xx * x[n], 2);
    return {xy / xx, db(ee / xx)};
}

TEST(SubbandBank, BuiltinPrototypesReconstructInBothFamilies) {
    for (const Geometry& g : kBuiltin) {
        SCOPED_TRACE(testing::Message() << "order " << g.order);
        const auto B = static_cast<size_t>(g.block);
        std::vector<double> x = white(60000, 3000.0, 11), yf, y16;
        for (auto& v : x) v = std::clamp(std::round(v), -32768.0, 32767.0);
        // Float round trip, and the 16-bit one (records at odd addresses) on the same input.
        Bank<false> a(g.order, g.block, g.win, nullptr, 13), s(g.order, g.block, g.win);
        Bank<true> a16(g.order, g.block, g.win, nullptr, 5),
            s16(g.order, g.block, g.win, nullptr, 7);
        ASSERT_TRUE(a.ok && s.ok && a16.ok && s16.ok);
        std::vector<Kvo32fc> X(size_t(a.bands));
        std::vector<Kvo32sc> X16(X.size());
        std::vector<Kvo32f> out(B);
        std::vector<Kvo16s> out16(B);
        double err16 = 0, ref16 = 0;
        for (size_t p = 0; p + B <= x.size(); p += B) {
            const std::vector<Kvo32f> in(x.begin() + long(p), x.begin() + long(p + B));
            const std::vector<Kvo16s> in16(in.begin(), in.end());
            ASSERT_EQ(kvosSubbandAnalysis_32f32fc(in.data(), X.data(), a.st, a.wb), kvoOk);
            ASSERT_EQ(kvosSubbandAnalysis_16s32sc_Sfs(in16.data(), X16.data(), a16.st, 0, a16.wb),
                      kvoOk);
            for (size_t k = 0; k < X.size(); ++k) {
                err16 += std::norm(cd(X16[k].re - X[k].re, X16[k].im - X[k].im));
                ref16 += std::norm(cd(X[k].re, X[k].im));
            }
            ASSERT_EQ(kvosSubbandSynthesis_32fc32f(X.data(), out.data(), s.st, s.wb), kvoOk);
            // Scale 1 on the way back halves the 16-bit output and keeps it in range.
            ASSERT_EQ(kvosSubbandSynthesis_32sc16s_Sfs(X16.data(), out16.data(), s16.st, 1, s16.wb),
                      kvoOk);
            yf.insert(yf.end(), out.begin(), out.end());
            for (Kvo16s v : out16) y16.push_back(2.0 * v);
        }
        // Delay windowLen - blockLen: at any other lag the residual is near 0 dB.
        const auto [gain, res] = fit(x, yf, g.delay);
        RecordProperty("gain_" + std::to_string(g.win), std::to_string(gain));
        RecordProperty("residual_dB_" + std::to_string(g.win), std::to_string(res));
        // The cut-off prototypes set an aliasing ceiling; a damaged tap or fold moves it.
        EXPECT_NEAR(gain * gain, g.gain, 0.005);
        EXPECT_NEAR(res, g.residual, 2.0);
        // 16-bit: rounding of each window product to an integer, far below the signal.
        EXPECT_LT(db(err16 / ref16), -55.0);
        const auto [gain16, res16] = fit(x, y16, g.delay);
        EXPECT_NEAR(gain16 * gain16, g.gain, 0.02);
        EXPECT_LT(res16, g.residual + 3.0);
    }
}

TEST(SubbandBank, GeometryAndSizeTests) {
    struct Row {
        int order, block, win;
        bool callerWindow;
        KvoStatus want;
    };
    const Row rows[] = {
        {5, 24, 128, false, kvoOk},        {6, 44, 256, false, kvoOk},
        {5, 24, 256, false, kvoErrBadArg},  // built-in needs the exact triple
        {6, 44, 128, false, kvoErrBadArg}, {5, 24, 256, true, kvoOk},
        {6, 44, 128, true, kvoOk},         {5, 32, 128, true, kvoOk},  // blockLen == fftLen
        {5, 33, 128, true, kvoErrBadArg},  {5, 24, 100, true, kvoErrBadArg},
        {0, 1, 8, true, kvoErrBadArg},     {3, 0, 8, true, kvoErrBadArg},
        {3, 4, 0, true, kvoErrBadArg},     {31, 4, 1 << 30, true, kvoErrBadArg},
    };
    std::vector<Kvo32f> wf(256, 0.5f);
    std::vector<Kvo16s> w16(256, 4096);
    std::vector<uint8_t> mem(40000), ib(4096);
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.order << "/" << r.block << "/" << r.win);
        EXPECT_EQ(kvosSubbandProcessInit_32f(
                      reinterpret_cast<KvoSubbandProcess32fState*>(mem.data()), r.order, r.block,
                      r.win, r.callerWindow ? wf.data() : nullptr, ib.data()),
                  r.want);
        EXPECT_EQ(kvosSubbandProcessInit_16s(
                      reinterpret_cast<KvoSubbandProcess16sState*>(mem.data()), r.order, r.block,
                      r.win, r.callerWindow ? w16.data() : nullptr, ib.data()),
                  r.want);
        // Configuration comes before the pointer, except the window multiple and the
        // built-in triple, which come after it.
        const bool early =
            r.order < 1 || r.block < 1 || r.win < 1 || (r.order < 31 && r.block > (1 << r.order));
        if (r.want != kvoOk) {
            EXPECT_EQ(
                kvosSubbandProcessInit_32f(nullptr, r.order, r.block, r.win, nullptr, nullptr),
                early ? kvoErrBadArg : kvoErrNullPtr);
        }
    }
    // Size queries: configuration, then pointers, then the multiple and the FFT's limits.
    Kvo32s a = 0, b = 0, c = 0;
    EXPECT_EQ(kvosSubbandProcessGetSize_32f(0, 128, nullptr, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_16s(5, 0, &a, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_32f(5, 100, &a, nullptr, &c), kvoErrNullPtr);
    EXPECT_EQ(kvosSubbandProcessGetSize_16s(5, 100, &a, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_16s(29, 1 << 29, &a, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_32f(30, 1 << 30, &a, &b, &c), kvoErrBadArg);
}

// Pointer tests of one frame call on the (5, 24, 128) built-in bank.
template <bool kFixed, class In, class Out, class Fn>
void frame_args(const char* name, size_t nIn, In fill, size_t nOut, Fn fn) {
    using kvosc::test::BadArgs;
    using St = typename Bank<kFixed>::St;
    Kvo32s sz = 0, isz = 0, wsz = 0;
    (kFixed ? kvosSubbandProcessGetSize_16s : kvosSubbandProcessGetSize_32f)(5, 128, &sz, &isz,
                                                                             &wsz);
    BadArgs t(name);
    auto x = t.in<In>("pSrc", nIn, std::vector<In>(nIn, fill));
    auto y = t.out<Out>("pDst", nOut);
    auto st = t.state("pState", size_t(sz), [](void* p) {
        if constexpr (kFixed) {
            kvosSubbandProcessInit_16s(static_cast<St*>(p), 5, 24, 128, nullptr, nullptr);
        } else {
            kvosSubbandProcessInit_32f(static_cast<St*>(p), 5, 24, 128, nullptr, nullptr);
        }
    });
    auto wb = t.inout<uint8_t>("pWorkBuf", size_t(wsz));
    t.run([&](const BadArgs::Call& c) {
        if constexpr (kFixed)
            return fn(c(x), c(y), static_cast<St*>(c(st)), 2, c(wb));
        else
            return fn(c(x), c(y), static_cast<St*>(c(st)), c(wb));
    });
}

TEST(SubbandBank, FrameCallsTestEveryPointer) {
    frame_args<false, Kvo32f, Kvo32fc>("kvosSubbandAnalysis_32f32fc", 24, {0.25f}, 17,
                                       kvosSubbandAnalysis_32f32fc);
    frame_args<false, Kvo32fc, Kvo32f>("kvosSubbandSynthesis_32fc32f", 17, {1.0f, 0.5f}, 24,
                                       kvosSubbandSynthesis_32fc32f);
    frame_args<true, Kvo16s, Kvo32sc>("kvosSubbandAnalysis_16s32sc_Sfs", 24, {1234}, 17,
                                      kvosSubbandAnalysis_16s32sc_Sfs);
    frame_args<true, Kvo32sc, Kvo16s>("kvosSubbandSynthesis_32sc16s_Sfs", 17, {100, -50}, 24,
                                      kvosSubbandSynthesis_32sc16s_Sfs);
}

}  // namespace
