// Adaptive filter kernels: the subband FIR against exact (128-bit integer or double)
// sums, the coefficient updates against the step * E * conj(X) * 2^scaleFactor they stand
// for, worked values of the fixed-point corners (saturation, truncation, the -2^31
// negation, the shift limits), convergence on known echo paths in both domains, and the
// argument tests.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>

#include "../support/signals.h"
#include "ec/ec_common.h"
#include "ec_util.h"
#include "kvosc.h"
#include "numeric/cpu.h"

using namespace ectest;

namespace {

using cd = std::complex<double>;
constexpr Kvo32s kMin = INT32_MIN, kMax = INT32_MAX;

template <class C>
C rnd(std::mt19937& g, double amp) {
    std::uniform_real_distribution<double> u(-amp, amp);
    using E = decltype(C::re);
    return C{static_cast<E>(u(g)), static_cast<E>(u(g))};
}

// Clamp of an exact value to 32 bits.
Kvo32s clamp32(__int128 v) {
    return v > kMax ? kMax : (v < kMin ? kMin : static_cast<Kvo32s>(v));
}

TEST(SubbandFIR, FloatMatchesDoubleSumAndFixedMatchesExactSum) {
    std::mt19937 g(21);
    for (int trial = 0; trial < 40; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + static_cast<int>(g() % 24), K = 1 + static_cast<int>(g() % 70);
        Rows<Kvo32fc> X(S, K), H(S, K);
        Rows<Kvo32sc> Xi(S, K), Hi(S, K);
        for (int r = 0; r < S; ++r)
            for (int k = 0; k < K; ++k) {
                X.data[r][k] = rnd<Kvo32fc>(g, 1000.0);
                H.data[r][k] = rnd<Kvo32fc>(g, 1.0);
                Xi.data[r][k] = rnd<Kvo32sc>(g, 1 << 30);
                Hi.data[r][k] = rnd<Kvo32sc>(g, 1 << 24);
            }
        std::vector<Kvo32fc> y(static_cast<size_t>(K));
        ASSERT_EQ(kvosFIRSubband_EC_32fc(X.cptr.data(), H.cptr.data(), y.data(), S, K), kvoOk);
        const int sf = static_cast<int>(g() % 63) - 31;
        std::vector<Kvo32sc> yi(static_cast<size_t>(K));
        ASSERT_EQ(kvosFIRSubband_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), yi.data(), S, K, sf),
                  kvoOk);
        for (int k = 0; k < K; ++k) {
            cd m = 0;
            double mag = 0;
            __int128 re = 0, im = 0;
            for (int r = 0; r < S; ++r) {
                const cd t =
                    cd(X.data[r][k].re, X.data[r][k].im) * cd(H.data[r][k].re, H.data[r][k].im);
                m += t;
                mag += std::abs(t);
                const Kvo64s a = Xi.data[r][k].re, b = Xi.data[r][k].im, c = Hi.data[r][k].re,
                             d = Hi.data[r][k].im;
                re += __int128{a} * c - __int128{b} * d;
                im += __int128{a} * d + __int128{b} * c;
            }
            EXPECT_NEAR(y[k].re, m.real(), 1e-6 * mag + 1e-6);
            EXPECT_NEAR(y[k].im, m.imag(), 1e-6 * mag + 1e-6);
            // Division toward zero, or a left shift, then saturation.
            auto scale = [sf](__int128 v) {
                return sf >= 0 ? clamp32(v / (__int128{1} << sf))
                               : clamp32(v * (__int128{1} << -sf));
            };
            EXPECT_EQ(yi[k].re, scale(re)) << "k " << k << " sf " << sf;
            EXPECT_EQ(yi[k].im, scale(im)) << "k " << k << " sf " << sf;
        }
    }
}

TEST(SubbandFIR, FixedPointCorners) {
    struct Case {
        std::vector<Kvo32sc> x, h;  // one element per row
        int sf;
        Kvo32sc want, wantLow;  // saturating form, wrapping form (sf >= 0 only)
    };
    const Case cases[] = {
        // Truncation toward zero in the saturating form, floor in the wrapping form.
        {{{-3, 0}}, {{1, 0}}, 1, {-1, 0}, {-2, 0}},
        {{{3, 0}}, {{1, 0}}, 1, {1, 0}, {1, 0}},
        // Left shift by 31: 1 saturates, -1 fits exactly.
        {{{1, 0}}, {{1, 0}}, -31, {kMax, 0}, {}},
        {{{-1, 0}}, {{1, 0}}, -31, {kMin, 0}, {}},
        // Imaginary sum of four -2^31 operands reaches 2^63: saturated, not wrapped.
        {{{kMin, kMin}}, {{kMin, kMin}}, 31, {0, kMax}, {0, 0}},
        // Two rows of 2^62: the accumulator saturates; the cheap form wraps to -2^63.
        {{{kMin, 0}, {kMin, 0}}, {{kMin, 0}, {kMin, 0}}, 31, {kMax, 0}, {0, 0}},
        {{{kMin, 0}, {kMin, 0}, {kMin, 0}}, {{kMin, 0}, {kMin, 0}, {-1, 0}}, 0, {kMax, 0}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "rows " << c.x.size() << " sf " << c.sf);
        std::vector<const Kvo32sc*> xr, hr;
        for (size_t r = 0; r < c.x.size(); ++r) xr.push_back(&c.x[r]), hr.push_back(&c.h[r]);
        Kvo32sc y{7, 7};
        ASSERT_EQ(kvosFIRSubband_EC_32sc_Sfs(xr.data(), hr.data(), &y, static_cast<int>(xr.size()),
                                             1, c.sf),
                  kvoOk);
        EXPECT_EQ(y.re, c.want.re);
        EXPECT_EQ(y.im, c.want.im);
        if (c.sf >= 0 && (c.wantLow.re || c.wantLow.im || c.sf == 31)) {
            ASSERT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(xr.data(), hr.data(),
                                                    static_cast<int>(xr.size()), &y, 0, 1, c.sf),
                      kvoOk);
            EXPECT_EQ(y.re, c.wantLow.re);
            EXPECT_EQ(y.im, c.wantLow.im);
        }
    }
    // The cheap form leaves the subbands below startSubband, and everything when
    // startSubband == numSubbands.
    Rows<Kvo32sc> X(2, 5), H(2, 5);
    for (auto& r : X.data) std::fill(r.begin(), r.end(), Kvo32sc{3, 1});
    for (auto& r : H.data) std::fill(r.begin(), r.end(), Kvo32sc{2, -1});
    std::vector<Kvo32sc> y(5, Kvo32sc{-9, -9});
    ASSERT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(X.cptr.data(), H.cptr.data(), 2, y.data(), 5, 5, 0),
              kvoOk);
    for (auto v : y) EXPECT_EQ(v.re, -9);
    ASSERT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(X.cptr.data(), H.cptr.data(), 2, y.data(), 3, 5, 0),
              kvoOk);
    EXPECT_EQ(y[2].re, -9);
    EXPECT_EQ(y[3].re, 14);  // 2 * (3+j)(2-j) = 2 * (7 - j)
    EXPECT_EQ(y[4].im, -2);
}

TEST(SubbandUpdate, FloatUpdatesAddStepTimesErrorTimesConjugateReference) {
    std::mt19937 g(5);
    for (int trial = 0; trial < 20; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + static_cast<int>(g() % 12), K = 1 + static_cast<int>(g() % 40);
        const int P = 1 + static_cast<int>(g() % 4);
        Rows<Kvo32fc> X(S + P - 1, K), H(S, K), E(P, K);
        Rows<Kvo64f> M(P, K);
        for (auto& r : X.data)
            for (auto& v : r) v = rnd<Kvo32fc>(g, 100.0);
        for (auto& r : H.data)
            for (auto& v : r) v = rnd<Kvo32fc>(g, 1.0);
        for (auto& r : E.data)
            for (auto& v : r) v = rnd<Kvo32fc>(g, 10.0);
        for (auto& r : M.data)
            for (auto& v : r) v = std::uniform_real_distribution<double>(0, 1e-4)(g);
        const auto H0 = H.data;
        // Plain update with the first error and step vector.
        ASSERT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(M.data[0].data(), X.cptr.data(),
                                                      E.data[0].data(), H.ptr.data(), S, K),
                  kvoOk);
        for (int r = 0; r < S; ++r)
            for (int k = 0; k < K; ++k) {
                const cd want = cd(H0[r][k].re, H0[r][k].im) +
                                M.data[0][k] * cd(E.data[0][k].re, E.data[0][k].im) *
                                    std::conj(cd(X.data[r][k].re, X.data[r][k].im));
                EXPECT_NEAR(H.data[r][k].re, want.real(), 1e-6 + 1e-6 * std::abs(want));
                EXPECT_NEAR(H.data[r][k].im, want.imag(), 1e-6 + 1e-6 * std::abs(want));
            }
        // Affine projection: the mean of P steps, step j along reference rows s + j.
        H.data = H0;
        std::vector<const Kvo64f*> mp;
        for (auto& r : M.data) mp.push_back(r.data());
        ASSERT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(
                      mp.data(), X.cptr.data(), E.cptr.data(), H.ptr.data(), static_cast<Kvo32u>(S),
                      static_cast<Kvo32u>(K), static_cast<Kvo32u>(P)),
                  kvoOk);
        for (int s = 0; s < S; ++s)
            for (int k = 0; k < K; ++k) {
                cd acc = 0;
                for (int j = 0; j < P; ++j)
                    acc += M.data[j][k] * cd(E.data[j][k].re, E.data[j][k].im) *
                           std::conj(cd(X.data[s + j][k].re, X.data[s + j][k].im));
                const cd want = cd(H0[s][k].re, H0[s][k].im) + acc / double(P);
                EXPECT_NEAR(H.data[s][k].re, want.real(), 1e-6 + 1e-6 * std::abs(want));
                EXPECT_NEAR(H.data[s][k].im, want.imag(), 1e-6 + 1e-6 * std::abs(want));
            }
    }
}

// Fixed-point update of one coefficient: returns the new coefficient.
Kvo32sc fixed_update(Kvo32sc h, Kvo32sc e, Kvo32sc x, KvoStepPair st, int sf, bool low) {
    const Kvo32sc* xr[1] = {&x};
    Kvo32sc* hr[1] = {&h};
    Kvo32sc scaled{};
    const KvoStatus s =
        low ? kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(xr, &e, hr, 1, &scaled, &st, 0, 1, sf)
            : kvosFIRSubbandCoeffUpdate_EC_32sc_I(&st, xr, &e, hr, 1, 1, sf);
    EXPECT_EQ(s, kvoOk);
    return h;
}

TEST(SubbandUpdate, FixedPointUpdateIsStepTimesErrorTimesConjugateTimesTwoToTheScale) {
    std::mt19937 g(17);
    for (int trial = 0; trial < 400; ++trial) {
        const int sf = static_cast<int>(g() % 32);
        const int d = static_cast<int>(g() % 40) - 8;  // shift exponent - sf - 31
        const KvoStepPair st{static_cast<Kvo32s>((1u << 30) + g() % (1u << 30)), d + sf + 31};
        const Kvo32sc e = rnd<Kvo32sc>(g, 1 << 20), x = rnd<Kvo32sc>(g, 1 << 20);
        const Kvo32sc h = rnd<Kvo32sc>(g, 1 << 28);
        const cd want = cd(h.re, h.im) + std::ldexp(double(st.mantissa), -st.exponent + sf) *
                                             cd(e.re, e.im) * std::conj(cd(x.re, x.im));
        for (bool low : {false, true}) {
            const Kvo32sc got = fixed_update(h, e, x, st, sf, low);
            // Rounding of the scaled error (one unit times |X| after the shift) and of the addend.
            const double tol = 1.0 + std::ldexp(std::abs(cd(x.re, x.im)), -d);
            const double wr = std::clamp(want.real(), -2147483648.0, 2147483647.0);
            const double wi = std::clamp(want.imag(), -2147483648.0, 2147483647.0);
            if (low &&
                (std::fabs(want.real()) > 2147483647.0 || std::fabs(want.imag()) > 2147483647.0))
                continue;
            EXPECT_NEAR(got.re, wr, tol) << "d " << d << " sf " << sf << " low " << low;
            EXPECT_NEAR(got.im, wi, tol) << "d " << d << " sf " << sf << " low " << low;
        }
    }
}

TEST(SubbandUpdate, FixedPointCorners) {
    // Scaled error 65536 (E = 2^16, mantissa 2^31 - 1); X = -2^31 j; shift 16.
    const Kvo32sc e{65536, 0}, x{0, kMin};
    const KvoStepPair st{kMax, 31 + 16};
    // The plain update negates -2^31 to 2^31 - 1: the coefficient reaches 2^31 - 1.
    EXPECT_EQ(fixed_update({0, 0}, e, x, st, 0, false).im, kMax);
    // The cheap update negates in 32 bits (-2^31 stays) and wraps: -2^31.
    EXPECT_EQ(fixed_update({0, 0}, e, x, st, 0, true).im, kMin);
    // The saturating sum of the plain update against the wrap of the cheap one.
    EXPECT_EQ(fixed_update({0, kMax}, {65536, 0}, {0, -1}, {kMax, 31 + 0}, 0, false).im, kMax);
    EXPECT_EQ(fixed_update({0, kMax}, {65536, 0}, {0, -1}, {kMax, 31 + 0}, 0, true).im,
              kMin + 65535);

    // Shift 63 on a product above 2^62 still rounds to one unit (evaluated without
    // overflow); a shift of 64 or more (step exponents of about 95 + scaleFactor and up,
    // the 102 to 112 of the controllers' floors among them) leaves the coefficient alone.
    const Kvo32sc eBig{kMin, kMin}, xBig{kMin, kMax};
    for (int sf : {0, 3, 7}) {
        EXPECT_EQ(fixed_update({5, 5}, eBig, xBig, {kMax, 31 + 63 + sf}, sf, false).im, 6) << sf;
        for (int ex = 95 + sf; ex <= 112; ++ex)
            for (bool low : {false, true}) {
                const Kvo32sc h = fixed_update({5, -5}, eBig, xBig, {kMax, ex}, sf, low);
                EXPECT_EQ(h.re, 5) << "exponent " << ex << " sf " << sf;
                EXPECT_EQ(h.im, -5) << "exponent " << ex << " sf " << sf;
            }
    }
    // Left shift beyond the range: the addend is 4294967294 or -4294967296, saturated.
    EXPECT_EQ(fixed_update({-7, 0}, {1 << 30, 0}, {1 << 30, 0}, {kMax, 31 - 40}, 0, false).re,
              kMax);
    EXPECT_EQ(fixed_update({7, 0}, {1 << 30, 0}, {-(1 << 30), 0}, {kMax, 31 - 40}, 0, true).re,
              kMin);
    // The cheap update writes its scaled errors.
    {
        Kvo32sc h{0, 0}, xs{1, 0}, err{1 << 20, -(1 << 21)}, scaled{};
        const Kvo32sc* xr[1] = {&xs};
        Kvo32sc* hr[1] = {&h};
        const KvoStepPair s{1 << 30, 40};
        ASSERT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(xr, &err, hr, 1, &scaled, &s, 0, 1, 0),
                  kvoOk);
        EXPECT_EQ(scaled.re, 1 << 19);
        EXPECT_EQ(scaled.im, -(1 << 20));
    }
}

// ---- fullband -----------------------------------------------------------------------

struct Scene {
    std::vector<double> ref, mic;  // ref has `lead` samples of history in front
    std::vector<double> path;
};
Scene make_scene(int n, int taps, uint32_t seed) {
    Scene s;
    std::mt19937 g(seed);
    std::normal_distribution<double> nd(0, 1);
    s.path.resize(static_cast<size_t>(taps));
    for (int t = 0; t < taps; ++t)
        s.path[static_cast<size_t>(t)] = 0.4 * nd(g) * std::exp(-t / (taps / 5.0));
    const auto sp = kvosc::test::speech_like(n + taps, seed, 8000, 8000);
    const auto wn = white(static_cast<size_t>(n + taps), 1500.0, seed + 1);
    s.ref.resize(static_cast<size_t>(n + taps));
    for (size_t i = 0; i < s.ref.size(); ++i) s.ref[i] = std::round(0.5 * sp[i] + wn[i]);
    s.mic.resize(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        double y = 0;
        for (int t = 0; t < taps; ++t)
            y += s.path[static_cast<size_t>(t)] * s.ref[static_cast<size_t>(i + taps - t)];
        s.mic[static_cast<size_t>(i)] = std::round(y);
    }
    return s;
}

TEST(FullbandFIR, FloatAndSixteenBitAgreeWithTheSumTheyRound) {
    const Scene s = make_scene(2000, 48, 3);
    std::vector<Kvo32f> rf(s.ref.begin(), s.ref.end()), mf(s.mic.begin(), s.mic.end()), cf(48),
        of(2000);
    std::vector<Kvo16s> r16(s.ref.begin(), s.ref.end()), m16(s.mic.begin(), s.mic.end()), c16(48),
        o16(2000);
    for (int t = 0; t < 48; ++t) {
        c16[t] = static_cast<Kvo16s>(std::lround(s.path[t] * 32768.0));
        cf[t] = static_cast<Kvo32f>(c16[t] / 32768.0);
    }
    ASSERT_EQ(kvosFIR_EC_32f(&rf[48], mf.data(), of.data(), 2000, cf.data(), 48), kvoOk);
    ASSERT_EQ(kvosFIR_EC_16s(&r16[48], m16.data(), o16.data(), 2000, c16.data(), 48), kvoOk);
    for (int i = 0; i < 2000; ++i) {
        double y = 0;
        for (int t = 0; t < 48; ++t) y += double(rf[i + 48 - t]) * cf[t];
        const double e = s.mic[i] - y;
        EXPECT_NEAR(of[i], e, 1e-2) << i;
        // Each of the 48 products is rounded on its own: at most half a unit each.
        EXPECT_LE(std::fabs(o16[i] - std::clamp(e, -32768.0, 32767.0)), 24.5) << i;
    }
    // Saturation of the error.
    Kvo16s ref[2] = {32767, 32767}, mic = -32768, h[2] = {32767, 32767}, out = 0;
    ASSERT_EQ(kvosFIR_EC_16s(&ref[1], &mic, &out, 1, h, 2), kvoOk);
    EXPECT_EQ(out, -32768);
}

// NLMS echo cancellation on a known path; returns ERLE (dB) over the last quarter.
template <bool kFixed>
double nlms_erle(const Scene& s, int taps, int chunk, std::vector<double>* errOut = nullptr) {
    const int n = static_cast<int>(s.mic.size());
    using T = std::conditional_t<kFixed, Kvo16s, Kvo32f>;
    std::vector<T> ref(s.ref.begin(), s.ref.end()), mic(s.mic.begin(), s.mic.end()),
        out(static_cast<size_t>(n)), coef(static_cast<size_t>(taps), 0);
    std::vector<std::conditional_t<kFixed, Kvo32s, Kvo32f>> step(static_cast<size_t>(n));
    // Step 0.5 / (energy of the taps' reference); the 16-bit step carries 2^38 (Q15
    // coefficients, shifts 11 and 13 in the kernel).
    for (int i = 0; i < n; ++i) {
        double en = 1000.0;
        for (int t = 0; t < taps; ++t)
            en +=
                s.ref[static_cast<size_t>(i + taps - t)] * s.ref[static_cast<size_t>(i + taps - t)];
        if constexpr (kFixed)
            step[static_cast<size_t>(i)] = static_cast<Kvo32s>(std::ldexp(0.5, 38) / en);
        else
            step[static_cast<size_t>(i)] = static_cast<Kvo32f>(0.5 / en);
    }
    T mu = 0;
    for (int p = 0; p < n; p += chunk) {
        const int len = std::min(chunk, n - p);
        KvoStatus st;
        if constexpr (kFixed)
            st = kvosNLMS_EC_16s(&ref[static_cast<size_t>(taps + p)], &mic[static_cast<size_t>(p)],
                                 &step[static_cast<size_t>(p)], &out[static_cast<size_t>(p)], len,
                                 coef.data(), taps, &mu);
        else
            st = kvosNLMS_EC_32f(&ref[static_cast<size_t>(taps + p)], &mic[static_cast<size_t>(p)],
                                 &step[static_cast<size_t>(p)], &out[static_cast<size_t>(p)], len,
                                 coef.data(), taps, &mu);
        EXPECT_EQ(st, kvoOk);
    }
    if (errOut) errOut->assign(out.begin(), out.end());
    double ee = 0, mm = 0;
    for (int i = 3 * n / 4; i < n; ++i) {
        ee += double(out[static_cast<size_t>(i)]) * out[static_cast<size_t>(i)] + 0.25;
        mm += s.mic[static_cast<size_t>(i)] * s.mic[static_cast<size_t>(i)];
    }
    return db(mm / ee);
}

TEST(FullbandNLMS, ConvergesOnAKnownPathAndFamiliesAgree) {
    const Scene s = make_scene(32000, 64, 8);  // 4 s at 8 kHz, 64-tap path
    const double f = nlms_erle<false>(s, 64, 80);
    const double i = nlms_erle<true>(s, 64, 80);
    RecordProperty("float_erle_dB", std::to_string(f));
    RecordProperty("fixed_erle_dB", std::to_string(i));
    EXPECT_GT(f, 45.0);
    EXPECT_GT(i, 30.0);
}

TEST(FullbandNLMS, CarriedErrorMakesCallBoundariesInvisible) {
    const Scene s = make_scene(4000, 32, 4);
    std::vector<double> a, b, c, d;
    nlms_erle<false>(s, 32, 4000, &a);
    nlms_erle<false>(s, 32, 37, &b);
    nlms_erle<true>(s, 32, 4000, &c);
    nlms_erle<true>(s, 32, 1, &d);
    EXPECT_EQ(a, b);
    EXPECT_EQ(c, d);
    // First sample of a fresh filter: the error is the microphone, no coefficient moves.
    Kvo32f ref[3] = {1, 2, 3}, mic = 5, stp = 0.1f, out = 0, h[2] = {0, 0}, mu = 0;
    ASSERT_EQ(kvosNLMS_EC_32f(&ref[2], &mic, &stp, &out, 1, h, 2, &mu), kvoOk);
    EXPECT_EQ(out, 5.0f);
    EXPECT_EQ(h[0], 0.0f);
    EXPECT_EQ(h[1], 0.0f);
    EXPECT_FLOAT_EQ(mu, 0.5f);
    // 16-bit: mu is kept whole inside the call and saturated when stored.
    Kvo16s r16[3] = {0, 0, 0}, m16 = 32767, o16 = 0, h16[2] = {0, 0}, mu16 = 0;
    const Kvo32s big = 1 << 20;
    ASSERT_EQ(kvosNLMS_EC_16s(&r16[2], &m16, &big, &o16, 1, h16, 2, &mu16), kvoOk);
    EXPECT_EQ(mu16, 32767);
}

// ---- argument tests -----------------------------------------------------------------

TEST(AdaptiveKernels, CountsAndRangesInTheirOrder) {
    Rows<Kvo32fc> X(255, 4097), H(255, 4097);
    Rows<Kvo32sc> Xi(255, 4097), Hi(255, 4097);
    std::vector<Kvo32fc> y(4097);
    std::vector<Kvo32sc> yi(4097), sc(4097);
    std::vector<Kvo64f> step(4097, 0.0);
    std::vector<KvoStepPair> sp(4097, KvoStepPair{0, 40});
    struct Row {
        int segs, bands, sf;
        KvoStatus fir, firI, upd, updI;
    };
    const Row rows[] = {
        {255, 4097, 0, kvoOk, kvoOk, kvoOk, kvoOk},
        {255, 4098, 0, kvoErrFilterLen, kvoErrFilterLen, kvoErrFilterLen, kvoErrFilterLen},
        {256, 4097, 0, kvoErrRange, kvoErrRange, kvoErrRange, kvoErrRange},
        {1, 0, 0, kvoErrFilterLen, kvoErrFilterLen, kvoErrFilterLen, kvoErrFilterLen},
        {0, 0, 0, kvoErrFilterLen, kvoErrFilterLen, kvoErrFilterLen, kvoErrFilterLen},
        {0, 3, 0, kvoErrRange, kvoErrRange, kvoErrRange, kvoErrRange},
        {2, 3, -31, kvoOk, kvoOk, kvoOk, kvoErrRange},
        {2, 3, -32, kvoOk, kvoErrRange, kvoOk, kvoErrRange},
        {2, 3, 32, kvoOk, kvoErrRange, kvoOk, kvoErrRange},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.segs << " " << r.bands << " " << r.sf);
        EXPECT_EQ(kvosFIRSubband_EC_32fc(X.cptr.data(), H.cptr.data(), y.data(), r.segs, r.bands),
                  r.fir);
        EXPECT_EQ(kvosFIRSubband_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), yi.data(), r.segs,
                                             r.bands, r.sf),
                  r.firI);
        EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), X.cptr.data(), y.data(),
                                                      H.ptr.data(), r.segs, r.bands),
                  r.upd);
        EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32sc_I(sp.data(), Xi.cptr.data(), yi.data(),
                                                      Hi.ptr.data(), r.segs, r.bands, r.sf),
                  r.updI);
    }
    // Cheap forms: segments and start before the count; start above the count is a range error.
    EXPECT_EQ(
        kvosFIRSubbandLow_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), 256, yi.data(), 0, 4098, 0),
        kvoErrRange);
    EXPECT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), 1, yi.data(), 5, 4, 0),
              kvoErrRange);
    EXPECT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), 1, yi.data(), -1, 4, 0),
              kvoErrRange);
    EXPECT_EQ(
        kvosFIRSubbandLow_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), 1, yi.data(), 0, 4098, 0),
        kvoErrFilterLen);
    EXPECT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), 1, yi.data(), 0, 4, -1),
              kvoErrRange);
    EXPECT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(Xi.cptr.data(), yi.data(), Hi.ptr.data(), 1,
                                                     sc.data(), sp.data(), 0, 4098, 0),
              kvoErrFilterLen);
    EXPECT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(Xi.cptr.data(), yi.data(), Hi.ptr.data(), 1,
                                                     sc.data(), sp.data(), 4, 4, 32),
              kvoErrRange);
    EXPECT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(Xi.cptr.data(), yi.data(), Hi.ptr.data(), 1,
                                                     sc.data(), sp.data(), 4, 4, 0),
              kvoOk);
    // Unsigned counts of the affine-projection update.
    EXPECT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(nullptr, nullptr, nullptr, nullptr, 0, 0, 0),
              kvoErrNullPtr);
    std::vector<const Kvo64f*> mp(2, step.data());
    std::vector<const Kvo32fc*> ep(2, y.data());
    EXPECT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(mp.data(), X.cptr.data(), ep.data(),
                                                    H.ptr.data(), 1, 0xFFFFFFFFu, 2),
              kvoErrFilterLen);
    EXPECT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(mp.data(), X.cptr.data(), ep.data(),
                                                    H.ptr.data(), 0, 4, 2),
              kvoErrRange);
    EXPECT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(mp.data(), X.cptr.data(), ep.data(),
                                                    H.ptr.data(), 1, 4, 0),
              kvoErrRange);
    EXPECT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(mp.data(), X.cptr.data(), ep.data(),
                                                    H.ptr.data(), 254, 4, 2),
              kvoOk);
    // A null row among those the call reads.
    std::vector<const Kvo32fc*> holed = X.cptr;
    holed[3] = nullptr;
    EXPECT_EQ(kvosFIRSubband_EC_32fc(holed.data(), H.cptr.data(), y.data(), 4, 8), kvoErrNullPtr);
    EXPECT_EQ(kvosFIRSubband_EC_32fc(holed.data(), H.cptr.data(), y.data(), 3, 8), kvoOk);
}

TEST(AdaptiveKernels, RejectedStepsLeaveEveryRowUntouched) {
    Rows<Kvo32fc> X(3, 6), H(3, 6);
    Rows<Kvo32sc> Xi(3, 6), Hi(3, 6);
    for (auto& r : X.data) std::fill(r.begin(), r.end(), Kvo32fc{1, 1});
    for (auto& r : Xi.data) std::fill(r.begin(), r.end(), Kvo32sc{1000, 1000});
    std::vector<Kvo32fc> e(6, Kvo32fc{1, 0});
    std::vector<Kvo32sc> ei(6, Kvo32sc{1 << 20, 0});
    std::vector<Kvo64f> step(6, 0.1);
    std::vector<KvoStepPair> sp(6, KvoStepPair{1 << 30, 31});
    step[0] = -0.0;  // passes
    ASSERT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), X.cptr.data(), e.data(),
                                                  H.ptr.data(), 3, 6),
              kvoOk);
    EXPECT_EQ(H.data[0][0].re, 0.0f);
    EXPECT_NE(H.data[0][1].re, 0.0f);
    const auto H0 = H.data;
    step[5] = -1e-300;
    EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), X.cptr.data(), e.data(),
                                                  H.ptr.data(), 3, 6),
              kvoErrSize);
    EXPECT_EQ(std::memcmp(H.data[0].data(), H0[0].data(), 6 * sizeof(Kvo32fc)), 0);
    sp[5].mantissa = -1;
    EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32sc_I(sp.data(), Xi.cptr.data(), ei.data(),
                                                  Hi.ptr.data(), 3, 6, 0),
              kvoErrSize);
    for (auto& r : Hi.data)
        for (auto v : r) EXPECT_EQ(v.re | v.im, 0);
    // The cheap update does not test mantissas.
    std::vector<Kvo32sc> sc(6);
    EXPECT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(Xi.cptr.data(), ei.data(), Hi.ptr.data(), 3,
                                                     sc.data(), sp.data(), 0, 6, 0),
              kvoOk);
    // Fullband kernels: pointers, then lengths.
    Kvo32f f[4] = {};
    Kvo16s s[4] = {};
    Kvo32s si[4] = {};
    EXPECT_EQ(kvosFIR_EC_32f(f + 1, f, nullptr, 0, f, 1), kvoErrNullPtr);
    EXPECT_EQ(kvosFIR_EC_32f(f + 1, f, f, 0, f, 1), kvoErrBadArg);
    EXPECT_EQ(kvosFIR_EC_16s(s + 1, s, s, 1, s, 0), kvoErrBadArg);
    EXPECT_EQ(kvosNLMS_EC_32f(f + 1, f, f, f, 1, f, 1, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvosNLMS_EC_32f(f + 1, f, f, f, 1, f, 0, f), kvoErrBadArg);
    EXPECT_EQ(kvosNLMS_EC_16s(s + 1, s, si, s, 0, s, 1, s), kvoErrBadArg);
    EXPECT_EQ(kvosNLMS_EC_16s(s + 1, s, nullptr, s, 0, s, 1, s), kvoErrNullPtr);
}

}  // namespace

namespace {

// ---- vector twins ---------------------------------------------------------------------

float extreme(std::mt19937& g) {
    switch (g() % 8) {
        case 0:
            return 0.0f;
        case 1:
            return -0.0f;
        case 2:
            return (g() & 1 ? 1 : -1) * 3.0e38f;
        case 3:
            return (g() & 1 ? 1 : -1) * 1.0e-40f;  // subnormal
        default:
            return std::uniform_real_distribution<float>(-1e4f, 1e4f)(g);
    }
}

TEST(SubbandTwins, VectorFirAndUpdateMatchTheScalarCoresBitForBit) {
    std::mt19937 g(2024);
    for (int trial = 0; trial < 200; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + static_cast<int>(g() % 20), K = 1 + static_cast<int>(g() % 67);
        const bool wild = trial % 3 == 0;
        Rows<Kvo32fc> X(S, K), H(S, K);
        std::vector<Kvo32fc> e(static_cast<size_t>(K));
        std::vector<Kvo64f> step(static_cast<size_t>(K));
        auto val = [&](float amp) {
            return wild ? extreme(g) : std::uniform_real_distribution<float>(-amp, amp)(g);
        };
        for (auto& r : X.data)
            for (auto& v : r) v = {val(1000), val(1000)};
        for (auto& r : H.data)
            for (auto& v : r) v = {val(1), val(1)};
        for (auto& v : e) v = {val(100), val(100)};
        for (auto& v : step)
            v = wild && g() % 4 == 0 ? 1e30 : std::uniform_real_distribution<double>(0, 1e-3)(g);
        std::vector<Kvo32fc> y1(static_cast<size_t>(K)), y2(static_cast<size_t>(K));
        kvo::ec::firSubband32fcScalar(X.cptr.data(), H.cptr.data(), y1.data(), S, K);
        kvo::ec::firSubband32fcSse2(X.cptr.data(), H.cptr.data(), y2.data(), S, K);
        EXPECT_EQ(std::memcmp(y1.data(), y2.data(), y1.size() * sizeof(Kvo32fc)), 0);
        if (kvo::cpuHasAvx2()) {
            kvo::ec::firSubband32fcAvx2(X.cptr.data(), H.cptr.data(), y2.data(), S, K);
            EXPECT_EQ(std::memcmp(y1.data(), y2.data(), y1.size() * sizeof(Kvo32fc)), 0);
        }
        Rows<Kvo32fc> H2(S, K), H3(S, K);
        H2.data = H.data;
        H3.data = H.data;
        kvo::ec::coeffUpdate32fcScalar(step.data(), X.cptr.data(), e.data(), H.ptr.data(), S, K);
        kvo::ec::coeffUpdate32fcSse2(step.data(), X.cptr.data(), e.data(), H2.ptr.data(), S, K);
        if (kvo::cpuHasAvx2())
            kvo::ec::coeffUpdate32fcAvx2(step.data(), X.cptr.data(), e.data(), H3.ptr.data(), S, K);
        else
            H3.data = H.data;
        for (int r = 0; r < S; ++r) {
            EXPECT_EQ(std::memcmp(H.data[r].data(), H2.data[r].data(),
                                  static_cast<size_t>(K) * sizeof(Kvo32fc)),
                      0)
                << r;
            EXPECT_EQ(std::memcmp(H.data[r].data(), H3.data[r].data(),
                                  static_cast<size_t>(K) * sizeof(Kvo32fc)),
                      0)
                << r;
        }
    }
}

}  // namespace

namespace {

TEST(FullbandTwins, VectorNlmsAndFirMatchTheScalarCoresBitForBit) {
    if (!kvo::cpuHasAvx2()) GTEST_SKIP() << "no AVX2";
    std::mt19937 g(77);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int taps = 1 + static_cast<int>(g() % 70), len = 1 + static_cast<int>(g() % 50);
        const int kind = trial % 4;  // 0 speech-sized, 1 full scale, 2 huge steps, 3 mixed
        auto sample = [&]() -> Kvo16s {
            if (kind == 1) return g() & 1 ? 32767 : -32768;
            return static_cast<Kvo16s>(static_cast<int>(g() % 20001) - 10000);
        };
        std::vector<Kvo16s> ref(static_cast<size_t>(taps + len)), mic(static_cast<size_t>(len)),
            c1(static_cast<size_t>(taps)), o1(static_cast<size_t>(len)), o2(o1);
        for (auto& v : ref) v = sample();
        for (auto& v : mic) v = sample();
        for (auto& v : c1) v = static_cast<Kvo16s>(g());
        std::vector<Kvo32s> step(static_cast<size_t>(len));
        for (auto& v : step)
            v = kind == 2 ? static_cast<Kvo32s>(g())
                          : static_cast<Kvo32s>(g() % (kind == 3 ? 200000 : 3000));
        std::vector<Kvo16s> c2 = c1;
        Kvo16s mu1 = static_cast<Kvo16s>(g()), mu2 = mu1;
        kvo::ec::nlms16sScalar(&ref[static_cast<size_t>(taps)], mic.data(), step.data(), o1.data(),
                               len, c1.data(), taps, &mu1);
        kvo::ec::nlms16sAvx2(&ref[static_cast<size_t>(taps)], mic.data(), step.data(), o2.data(),
                             len, c2.data(), taps, &mu2);
        EXPECT_EQ(o1, o2);
        EXPECT_EQ(c1, c2);
        EXPECT_EQ(mu1, mu2);
    }
    g.seed(78);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int taps = 1 + static_cast<int>(g() % 70), len = 1 + static_cast<int>(g() % 50);
        const bool full = trial % 2;
        std::vector<Kvo16s> ref(static_cast<size_t>(taps + len)), mic(static_cast<size_t>(len)),
            c(static_cast<size_t>(taps)), o1(static_cast<size_t>(len)), o2(o1);
        for (auto& v : ref)
            v = full ? (g() & 1 ? 32767 : -32768) : static_cast<Kvo16s>(g() % 20001 - 10000);
        for (auto& v : mic) v = static_cast<Kvo16s>(g());
        for (auto& v : c) v = full ? (g() & 1 ? 32767 : -32768) : static_cast<Kvo16s>(g());
        kvo::ec::fir16sScalar(&ref[static_cast<size_t>(taps)], mic.data(), o1.data(), len, c.data(),
                              taps);
        kvo::ec::fir16sAvx2(&ref[static_cast<size_t>(taps)], mic.data(), o2.data(), len, c.data(),
                            taps);
        EXPECT_EQ(o1, o2);
        std::vector<Kvo32f> rf(ref.size()), mf(mic.size()), cf(c.size()), f1(o1.size()),
            f2(o1.size());
        for (size_t k = 0; k < rf.size(); ++k) rf[k] = full ? extreme(g) : ref[k] * 0.37f;
        for (size_t k = 0; k < mf.size(); ++k) mf[k] = mic[k];
        for (size_t k = 0; k < cf.size(); ++k)
            cf[k] = std::uniform_real_distribution<float>(-1, 1)(g);
        kvo::ec::fir32fScalar(&rf[static_cast<size_t>(taps)], mf.data(), f1.data(), len, cf.data(),
                              taps);
        kvo::ec::fir32fAvx2(&rf[static_cast<size_t>(taps)], mf.data(), f2.data(), len, cf.data(),
                            taps);
        EXPECT_EQ(std::memcmp(f1.data(), f2.data(), f1.size() * sizeof(Kvo32f)), 0);
    }
}

}  // namespace
