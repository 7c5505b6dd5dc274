// Subband filter bank: analysis and synthesis against double-precision DFT models,
// reconstruction of the built-in prototypes (delay, gain and the aliasing residual their
// cut-off windows allow), the 16-bit family against the float one, the record's
// placement at any caller address, and the geometry and argument tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>

#include "../support/badargs.h"
#include "../support/signals.h"
#include "ec_util.h"
#include "kvosc.h"

using namespace ectest;

namespace {

constexpr double kPi = 3.14159265358979323846;

// Double model of one analysis: fold the last W samples with the window, real DFT.
std::vector<std::complex<double>> model_analysis(const std::vector<double>& hist,
                                                 const std::vector<double>& w, int N) {
    const size_t W = w.size();
    std::vector<double> t(static_cast<size_t>(N), 0.0);
    for (size_t i = 0; i < W; ++i) t[i % static_cast<size_t>(N)] += hist[i] * w[i];
    std::vector<std::complex<double>> X(static_cast<size_t>(N / 2 + 1));
    for (int k = 0; k <= N / 2; ++k)
        for (int n = 0; n < N; ++n)
            X[static_cast<size_t>(k)] +=
                t[static_cast<size_t>(n)] * std::polar(1.0, -2.0 * kPi * k * n / N);
    return X;
}

// Double model of the inverse real DFT of a CCS vector, divided by N.
std::vector<double> model_inverse(const std::vector<std::complex<double>>& X, int N) {
    std::vector<double> t(static_cast<size_t>(N));
    for (int n = 0; n < N; ++n) {
        double s = X[0].real() + X[static_cast<size_t>(N / 2)].real() * ((n & 1) ? -1 : 1);
        for (int k = 1; k < N / 2; ++k)
            s += 2.0 * (X[static_cast<size_t>(k)] * std::polar(1.0, 2.0 * kPi * k * n / N)).real();
        t[static_cast<size_t>(n)] = s / N;
    }
    return t;
}

struct Geometry {
    int order, block, win;
    int delay;        // windowLen - blockLen
    double gain;      // reconstruction power gain (g^2 of the in-phase part) of the prototype
    double residual;  // dB of the aliasing residual on white noise
};
// Readings of the two built-in prototypes (cut-off windows, sidelobes near -33 dB).
const Geometry kBuiltin[] = {{5, 24, 128, 104, 0.977, -16.0}, {6, 44, 256, 212, 1.000, -24.0}};

// Float analysis followed at once by synthesis of the same vector.
std::vector<double> round_trip_32f(const Geometry& g, const std::vector<double>& x) {
    Bank<false> a(g.order, g.block, g.win), s(g.order, g.block, g.win);
    EXPECT_TRUE(a.ok && s.ok);
    std::vector<double> y;
    std::vector<Kvo32f> in(static_cast<size_t>(g.block)), out(in.size());
    std::vector<Kvo32fc> X(static_cast<size_t>(a.bands));
    for (size_t p = 0; p + in.size() <= x.size(); p += in.size()) {
        for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<Kvo32f>(x[p + i]);
        EXPECT_EQ(kvosSubbandAnalysis_32f32fc(in.data(), X.data(), a.st, a.work.p), kvoOk);
        EXPECT_EQ(kvosSubbandSynthesis_32fc32f(X.data(), out.data(), s.st, s.work.p), kvoOk);
        y.insert(y.end(), out.begin(), out.end());
    }
    return y;
}

// Gain and residual (dB below the input) of y against x delayed by D.
std::pair<double, double> fit(const std::vector<double>& x, const std::vector<double>& y, int D,
                              size_t skip) {
    double xy = 0, xx = 0;
    for (size_t n = skip; n + static_cast<size_t>(D) < y.size(); ++n) {
        xy += x[n] * y[n + static_cast<size_t>(D)];
        xx += x[n] * x[n];
    }
    const double g = xy / xx;
    double ee = 0;
    for (size_t n = skip; n + static_cast<size_t>(D) < y.size(); ++n) {
        const double e = y[n + static_cast<size_t>(D)] - g * x[n];
        ee += e * e;
    }
    return {g, db(ee / xx)};
}

TEST(SubbandBank, BuiltinPrototypesReconstructWithTheirDelayGainAndAliasingCeiling) {
    for (const Geometry& g : kBuiltin) {
        SCOPED_TRACE(testing::Message() << "order " << g.order << " block " << g.block);
        const std::vector<double> x = white(60000, 3000.0, 11);
        const std::vector<double> y = round_trip_32f(g, x);
        // The delay is the one that explains most of the output.
        double best = -1e9;
        int bestD = -1;
        for (int D = g.delay - 8; D <= g.delay + 8; ++D) {
            const double c = fit(x, y, D, 400).first;
            if (c > best) best = c, bestD = D;
        }
        EXPECT_EQ(bestD, g.delay);
        const auto [gain, res] = fit(x, y, g.delay, 400);
        RecordProperty("gain_" + std::to_string(g.win), std::to_string(gain));
        RecordProperty("residual_dB_" + std::to_string(g.win), std::to_string(res));
        // The known figures (0.977, 1.000) are power gains: the amplitude is 0.9885 and 1.0005.
        EXPECT_NEAR(gain * gain, g.gain, 0.005);
        // The cut-off prototypes set a ceiling; a damaged tap or fold moves it.
        EXPECT_NEAR(res, g.residual, 2.0);
    }
}

TEST(SubbandBank, AnalysisAndSynthesisMatchDoubleModelsOnCallerWindows) {
    // Caller windows of arbitrary shape, including windowLen == fftLen (no folding) and
    // blockLen == fftLen.
    const Geometry cases[] = {
        {3, 5, 24, 0, 0, 0}, {4, 16, 16, 0, 0, 0}, {5, 7, 96, 0, 0, 0}, {1, 2, 6, 0, 0, 0}};
    for (const Geometry& g : cases) {
        SCOPED_TRACE(testing::Message() << g.order << "/" << g.block << "/" << g.win);
        const int N = 1 << g.order;
        std::vector<double> wd = white(static_cast<size_t>(g.win), 0.5, 5);
        std::vector<Kvo32f> wf(wd.begin(), wd.end());
        for (size_t i = 0; i < wd.size(); ++i) wd[i] = wf[i];
        Bank<false> a(g.order, g.block, g.win, wf.data()), s(g.order, g.block, g.win, wf.data());
        ASSERT_TRUE(a.ok && s.ok);
        const std::vector<double> x = white(static_cast<size_t>(g.block * 12), 1000.0, 6);
        std::vector<double> hist(static_cast<size_t>(g.win), 0.0), ola(hist.size(), 0.0);
        for (int f = 0; f < 12; ++f) {
            std::vector<Kvo32f> in(static_cast<size_t>(g.block)), out(in.size());
            for (int i = 0; i < g.block; ++i)
                in[static_cast<size_t>(i)] =
                    static_cast<Kvo32f>(x[static_cast<size_t>(f * g.block + i)]);
            std::vector<Kvo32fc> X(static_cast<size_t>(a.bands));
            ASSERT_EQ(kvosSubbandAnalysis_32f32fc(in.data(), X.data(), a.st, a.work.p), kvoOk);
            hist.erase(hist.begin(), hist.begin() + g.block);
            hist.insert(hist.end(), in.begin(), in.end());
            const auto Xm = model_analysis(hist, wd, N);
            double err = 0, ref = 1e-9;
            for (size_t k = 0; k < Xm.size(); ++k) {
                err += std::norm(std::complex<double>(X[k].re, X[k].im) - Xm[k]);
                ref += std::norm(Xm[k]);
            }
            EXPECT_LT(std::sqrt(err / ref), 2e-6) << "frame " << f;

            // Synthesis of a random vector (the imaginary parts of bins 0 and N/2 unused).
            std::vector<double> re = white(X.size(), 100.0, 100 + f),
                                im = white(X.size(), 100.0, 200 + f);
            std::vector<std::complex<double>> Y(X.size());
            for (size_t k = 0; k < X.size(); ++k) {
                X[k] = {static_cast<Kvo32f>(re[k]), static_cast<Kvo32f>(im[k])};
                Y[k] = {X[k].re, X[k].im};
            }
            ASSERT_EQ(kvosSubbandSynthesis_32fc32f(X.data(), out.data(), s.st, s.work.p), kvoOk);
            const auto t = model_inverse(Y, N);
            ola.erase(ola.begin(), ola.begin() + g.block);
            ola.insert(ola.end(), static_cast<size_t>(g.block), 0.0);
            for (int i = 0; i < g.win; ++i)
                ola[static_cast<size_t>(i)] +=
                    t[static_cast<size_t>(i % N)] * wd[static_cast<size_t>(g.win - 1 - i)];
            for (int i = 0; i < g.block; ++i)
                EXPECT_NEAR(out[static_cast<size_t>(i)], ola[static_cast<size_t>(i)],
                            1e-4 * 100.0 * g.win / N)
                    << "frame " << f << " sample " << i;
        }
    }
}

TEST(SubbandBank, SixteenBitFamilyFollowsTheFloatOne) {
    for (const Geometry& g : kBuiltin) {
        SCOPED_TRACE(testing::Message() << "order " << g.order);
        const std::vector<int16_t> sp = kvosc::test::speech_like(g.block * 400, 7, 12000, 8000);
        Bank<false> af(g.order, g.block, g.win);
        Bank<true> a16(g.order, g.block, g.win), s16(g.order, g.block, g.win);
        ASSERT_TRUE(af.ok && a16.ok && s16.ok);
        double err = 0, ref = 0;
        std::vector<double> x, y;
        std::vector<Kvo32fc> Xf(static_cast<size_t>(af.bands));
        std::vector<Kvo32sc> X16(Xf.size());
        std::vector<Kvo16s> out(static_cast<size_t>(g.block));
        for (size_t p = 0; p + static_cast<size_t>(g.block) <= sp.size();
             p += static_cast<size_t>(g.block)) {
            std::vector<Kvo32f> inf(sp.begin() + static_cast<long>(p),
                                    sp.begin() + static_cast<long>(p) + g.block);
            ASSERT_EQ(kvosSubbandAnalysis_32f32fc(inf.data(), Xf.data(), af.st, af.work.p), kvoOk);
            ASSERT_EQ(kvosSubbandAnalysis_16s32sc_Sfs(&sp[p], X16.data(), a16.st, 0, a16.work.p),
                      kvoOk);
            for (size_t k = 0; k < Xf.size(); ++k) {
                err += std::norm(std::complex<double>(X16[k].re - Xf[k].re, X16[k].im - Xf[k].im));
                ref += std::norm(std::complex<double>(Xf[k].re, Xf[k].im));
            }
            // Scale 1 on the way back halves the output; the 16-bit overlap-add keeps it in range.
            ASSERT_EQ(
                kvosSubbandSynthesis_32sc16s_Sfs(X16.data(), out.data(), s16.st, 1, s16.work.p),
                kvoOk);
            for (int i = 0; i < g.block; ++i) {
                x.push_back(sp[p + static_cast<size_t>(i)]);
                y.push_back(2.0 * out[static_cast<size_t>(i)]);
            }
        }
        // Rounding of each window product to an integer: far below the signal.
        EXPECT_LT(db(err / ref), -55.0);
        const auto [gain, res] = fit(x, y, g.delay, 400);
        EXPECT_NEAR(gain * gain, g.gain, 0.02);
        EXPECT_LT(res, g.residual + 3.0);  // speech: the residual is not below that of noise
    }
}

TEST(SubbandBank, RecordWorksAtEveryAddressAndStaysInsideItsSize) {
    const Geometry& g = kBuiltin[0];
    const std::vector<double> x = white(24 * 20, 2000.0, 9);
    std::vector<uint8_t> first;
    for (size_t off = 0; off < 16; ++off) {
        SCOPED_TRACE(off);
        Kvo32s sz = 0, isz = 0, wsz = 0;
        ASSERT_EQ(kvosSubbandProcessGetSize_32f(g.order, g.win, &sz, &isz, &wsz), kvoOk);
        std::vector<uint8_t> mem(static_cast<size_t>(sz) + 64 + off + 64, 0xA5),
            work(static_cast<size_t>(wsz) + 64 + off + 64, 0x5A);
        auto at = [&](std::vector<uint8_t>& m) {
            auto a = reinterpret_cast<uintptr_t>(m.data());
            return reinterpret_cast<uint8_t*>(((a + 63) & ~uintptr_t{63}) + off);
        };
        uint8_t* st = at(mem);
        uint8_t* wb = at(work);
        auto* rec = reinterpret_cast<KvoSubbandProcess32fState*>(st);
        ASSERT_EQ(kvosSubbandProcessInit_32f(rec, g.order, g.block, g.win, nullptr, nullptr),
                  kvoOk);
        std::vector<uint8_t> out;
        std::vector<Kvo32fc> X(17);
        for (int f = 0; f < 20; ++f) {
            std::vector<Kvo32f> in(x.begin() + f * 24, x.begin() + f * 24 + 24);
            ASSERT_EQ(kvosSubbandAnalysis_32f32fc(in.data(), X.data(), rec, wb), kvoOk);
            const auto* b = reinterpret_cast<const uint8_t*>(X.data());
            out.insert(out.end(), b, b + sizeof(Kvo32fc) * X.size());
        }
        if (off == 0) first = out;
        EXPECT_EQ(out, first);
        for (size_t i = static_cast<size_t>(st - mem.data()) + static_cast<size_t>(sz);
             i < mem.size(); ++i)
            ASSERT_EQ(mem[i], 0xA5) << "state byte past the reported size";
        for (size_t i = static_cast<size_t>(wb - work.data()) + static_cast<size_t>(wsz);
             i < work.size(); ++i)
            ASSERT_EQ(work[i], 0x5A) << "work byte past the reported size";
    }
}

TEST(SubbandBank, GeometryTests) {
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
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.order << "/" << r.block << "/" << r.win);
        std::vector<uint8_t> mem(40000), ib(4096);
        EXPECT_EQ(kvosSubbandProcessInit_32f(
                      reinterpret_cast<KvoSubbandProcess32fState*>(mem.data()), r.order, r.block,
                      r.win, r.callerWindow ? wf.data() : nullptr, ib.data()),
                  r.want);
        EXPECT_EQ(kvosSubbandProcessInit_16s(
                      reinterpret_cast<KvoSubbandProcess16sState*>(mem.data()), r.order, r.block,
                      r.win, r.callerWindow ? w16.data() : nullptr, ib.data()),
                  r.want);
        // Configuration is judged before the pointer, except the window multiple and the
        // built-in triple, which come after it.
        const bool early =
            r.order < 1 || r.block < 1 || r.win < 1 || (r.order < 31 && r.block > (1 << r.order));
        if (r.want == kvoErrBadArg) {
            EXPECT_EQ(
                kvosSubbandProcessInit_32f(nullptr, r.order, r.block, r.win, nullptr, nullptr),
                early ? kvoErrBadArg : kvoErrNullPtr);
        }
    }
    // Size queries: configuration, then pointers, then the multiple and the FFT's own limits.
    Kvo32s a = 0, b = 0, c = 0;
    EXPECT_EQ(kvosSubbandProcessGetSize_32f(0, 128, nullptr, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_16s(5, 0, &a, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_32f(5, 100, &a, nullptr, &c), kvoErrNullPtr);
    EXPECT_EQ(kvosSubbandProcessGetSize_16s(5, 100, &a, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_16s(29, 1 << 29, &a, &b, &c), kvoErrBadArg);
    EXPECT_EQ(kvosSubbandProcessGetSize_32f(30, 1 << 30, &a, &b, &c), kvoErrBadArg);
}

TEST(SubbandBank, FrameCallsTestEveryPointer) {
    using kvosc::test::BadArgs;
    Kvo32s sz32 = 0, sz16 = 0, isz = 0, w32 = 0, w16 = 0;
    kvosSubbandProcessGetSize_32f(5, 128, &sz32, &isz, &w32);
    kvosSubbandProcessGetSize_16s(5, 128, &sz16, &isz, &w16);
    auto init32 = [](void* p) {
        kvosSubbandProcessInit_32f(static_cast<KvoSubbandProcess32fState*>(p), 5, 24, 128, nullptr,
                                   nullptr);
    };
    auto init16 = [](void* p) {
        kvosSubbandProcessInit_16s(static_cast<KvoSubbandProcess16sState*>(p), 5, 24, 128, nullptr,
                                   nullptr);
    };
    {
        BadArgs t("kvosSubbandAnalysis_32f32fc");
        auto x = t.in<Kvo32f>("pSrc", 24, std::vector<Kvo32f>(24, 0.25f));
        auto y = t.out<Kvo32fc>("pDst", 17);
        auto st = t.state("pState", static_cast<size_t>(sz32), init32);
        auto wb = t.inout<uint8_t>("pWorkBuf", static_cast<size_t>(w32));
        t.run([&](const BadArgs::Call& c) {
            return kvosSubbandAnalysis_32f32fc(
                c(x), c(y), static_cast<KvoSubbandProcess32fState*>(c(st)), c(wb));
        });
    }
    {
        BadArgs t("kvosSubbandSynthesis_32fc32f");
        auto x = t.in<Kvo32fc>("pSrc", 17, std::vector<Kvo32fc>(17, Kvo32fc{1.0f, 0.5f}));
        auto y = t.out<Kvo32f>("pDst", 24);
        auto st = t.state("pState", static_cast<size_t>(sz32), init32);
        auto wb = t.inout<uint8_t>("pWorkBuf", static_cast<size_t>(w32));
        t.run([&](const BadArgs::Call& c) {
            return kvosSubbandSynthesis_32fc32f(
                c(x), c(y), static_cast<KvoSubbandProcess32fState*>(c(st)), c(wb));
        });
    }
    {
        BadArgs t("kvosSubbandAnalysis_16s32sc_Sfs");
        auto x = t.in<Kvo16s>("pSrc", 24);
        auto y = t.out<Kvo32sc>("pDst", 17);
        auto st = t.state("pState", static_cast<size_t>(sz16), init16);
        auto sf = t.value<Kvo32s>("scaleFactor", 2);
        auto wb = t.inout<uint8_t>("pWorkBuf", static_cast<size_t>(w16));
        t.run([&](const BadArgs::Call& c) {
            return kvosSubbandAnalysis_16s32sc_Sfs(
                c(x), c(y), static_cast<KvoSubbandProcess16sState*>(c(st)), c(sf), c(wb));
        });
    }
    {
        BadArgs t("kvosSubbandSynthesis_32sc16s_Sfs");
        auto x = t.in<Kvo32sc>("pSrc", 17, std::vector<Kvo32sc>(17, Kvo32sc{100, -50}));
        auto y = t.out<Kvo16s>("pDst", 24);
        auto st = t.state("pState", static_cast<size_t>(sz16), init16);
        auto sf = t.value<Kvo32s>("scaleFactor", 2);
        auto wb = t.inout<uint8_t>("pWorkBuf", static_cast<size_t>(w16));
        t.run([&](const BadArgs::Call& c) {
            return kvosSubbandSynthesis_32sc16s_Sfs(
                c(x), c(y), static_cast<KvoSubbandProcess16sState*>(c(st)), c(sf), c(wb));
        });
    }
}

}  // namespace
