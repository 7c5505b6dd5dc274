// Adaptive filter kernels: the subband FIR against exact (128-bit integer or double) sums,
// the coefficient updates against step * E * conj(X) * 2^scaleFactor, worked values of the
// fixed-point corners (saturation, truncation, the -2^31 negation, the shift limits), the
// fullband FIR and NLMS against their sums and on a known echo path, the vector paths
// against the scalar cores bit for bit, and the argument tests.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>

#include "../support/signals.h"
#include "ec/ec_common.h"
#include "ec_util.h"
#include "numeric/cpu.h"

using namespace ectest;

namespace {

using cd = std::complex<double>;
constexpr Kvo32s kMin = INT32_MIN, kMax = INT32_MAX;

template <class C>
C rnd(std::mt19937& g, double amp) {
    std::uniform_real_distribution<double> u(-amp, amp);
    return C{static_cast<decltype(C::re)>(u(g)), static_cast<decltype(C::re)>(u(g))};
}
template <class C>
cd z(C v) {
    return {double(v.re), double(v.im)};
}
template <class C>
void fill(Rows<C>& rows, std::mt19937& g, double amp) {
    for (auto& r : rows.data)
        for (auto& v : r) v = rnd<C>(g, amp);
}
template <class C>
bool same_bytes(const Rows<C>& a, const Rows<C>& b) {
    for (size_t r = 0; r < a.data.size(); ++r)
        if (std::memcmp(a.data[r].data(), b.data[r].data(), a.data[r].size() * sizeof(C)))
            return false;
    return true;
}
Kvo32s clamp32(__int128 v) {
    return v > kMax ? kMax : (v < kMin ? kMin : static_cast<Kvo32s>(v));
}

TEST(SubbandFIR, FloatMatchesDoubleSumAndFixedMatchesExactSum) {
    std::mt19937 g(21);
    for (int trial = 0; trial < 40; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + int(g() % 24), K = 1 + int(g() % 70), sf = int(g() % 63) - 31;
        Rows<Kvo32fc> X(S, K), H(S, K);
        Rows<Kvo32sc> Xi(S, K), Hi(S, K);
        fill(X, g, 1000.0), fill(H, g, 1.0), fill(Xi, g, 1 << 30), fill(Hi, g, 1 << 24);
        std::vector<Kvo32fc> y(static_cast<size_t>(K));
        std::vector<Kvo32sc> yi(static_cast<size_t>(K));
        ASSERT_EQ(kvosFIRSubband_EC_32fc(X.cptr.data(), H.cptr.data(), y.data(), S, K), kvoOk);
        ASSERT_EQ(kvosFIRSubband_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), yi.data(), S, K, sf),
                  kvoOk);
        // Fixed point: exact sum, division toward zero or a left shift, then saturation.
        auto scale = [sf](__int128 v) {
            return clamp32(sf >= 0 ? v / (__int128{1} << sf) : v * (__int128{1} << -sf));
        };
        for (int k = 0; k < K; ++k) {
            cd m = 0;
            double mag = 1e-6;
            __int128 re = 0, im = 0;
            for (int r = 0; r < S; ++r) {
                m += z(X.data[r][k]) * z(H.data[r][k]);
                mag += std::abs(z(X.data[r][k]) * z(H.data[r][k]));
                const __int128 a = Xi.data[r][k].re, b = Xi.data[r][k].im, c = Hi.data[r][k].re,
                               d = Hi.data[r][k].im;
                re += a * c - b * d;
                im += a * d + b * c;
            }
            EXPECT_NEAR(y[k].re, m.real(), 1e-6 * mag);
            EXPECT_NEAR(y[k].im, m.imag(), 1e-6 * mag);
            EXPECT_EQ(yi[k].re, scale(re)) << "k " << k << " sf " << sf;
            EXPECT_EQ(yi[k].im, scale(im)) << "k " << k << " sf " << sf;
        }
    }
}

TEST(SubbandFIR, FixedPointCorners) {
    struct Case {
        std::vector<Kvo32sc> x, h;  // one element per row
        int sf;
        Kvo32sc want, wantLow;  // saturating form; wrapping cheap form (sf >= 0 only)
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
        const int S = int(c.x.size());
        std::vector<const Kvo32sc*> xr, hr;
        for (int r = 0; r < S; ++r) xr.push_back(&c.x[size_t(r)]), hr.push_back(&c.h[size_t(r)]);
        Kvo32sc y{7, 7};
        ASSERT_EQ(kvosFIRSubband_EC_32sc_Sfs(xr.data(), hr.data(), &y, S, 1, c.sf), kvoOk);
        EXPECT_EQ(y.re, c.want.re);
        EXPECT_EQ(y.im, c.want.im);
        if (c.sf < 0 || (!c.wantLow.re && !c.wantLow.im && c.sf != 31)) continue;
        ASSERT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(xr.data(), hr.data(), S, &y, 0, 1, c.sf), kvoOk);
        EXPECT_EQ(y.re, c.wantLow.re);
        EXPECT_EQ(y.im, c.wantLow.im);
    }
    // The cheap form leaves the subbands below startSubband (all of them at start == count).
    Rows<Kvo32sc> X(2, 5), H(2, 5);
    for (int r = 0; r < 2; ++r) X.data[r].assign(5, {3, 1}), H.data[r].assign(5, {2, -1});
    X.refresh(), H.refresh();
    std::vector<Kvo32sc> y(5, Kvo32sc{-9, -9});
    ASSERT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(X.cptr.data(), H.cptr.data(), 2, y.data(), 5, 5, 0),
              kvoOk);
    ASSERT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(X.cptr.data(), H.cptr.data(), 2, y.data(), 3, 5, 0),
              kvoOk);
    EXPECT_EQ(y[2].re, -9);
    EXPECT_EQ(y[3].re, 14);  // 2 * (3+j)(2-j) = 2 * (7 - j)
    EXPECT_EQ(y[4].im, -2);
}

TEST(SubbandUpdate, FloatUpdatesAddTheMeanOfStepTimesErrorTimesConjugateReference) {
    std::mt19937 g(5);
    for (int trial = 0; trial < 20; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + int(g() % 12), K = 1 + int(g() % 40), P = 1 + int(g() % 4);
        Rows<Kvo32fc> X(S + P - 1, K), H(S, K), E(P, K);
        fill(X, g, 100.0), fill(H, g, 1.0), fill(E, g, 10.0);
        Rows<Kvo64f> M(P, K);
        for (auto& r : M.data)
            for (auto& v : r) v = std::uniform_real_distribution<double>(0, 1e-4)(g);
        const auto H0 = H.data;
        // The plain update is the affine projection of order 1 along the first step and error.
        for (int order : {1, P}) {
            H.data = H0;
            H.refresh();
            if (order == 1 && trial % 2 == 0)
                ASSERT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(M.data[0].data(), X.cptr.data(),
                                                              E.data[0].data(), H.ptr.data(), S, K),
                          kvoOk);
            else
                ASSERT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(
                              M.cptr.data(), X.cptr.data(), E.cptr.data(), H.ptr.data(), Kvo32u(S),
                              Kvo32u(K), Kvo32u(order)),
                          kvoOk);
            for (int s = 0; s < S; ++s)
                for (int k = 0; k < K; ++k) {
                    cd acc = 0;
                    for (int j = 0; j < order; ++j)
                        acc += M.data[j][k] * z(E.data[j][k]) * std::conj(z(X.data[s + j][k]));
                    const cd want = z(H0[s][k]) + acc / double(order);
                    EXPECT_NEAR(H.data[s][k].re, want.real(), 1e-6 + 1e-6 * std::abs(want));
                    EXPECT_NEAR(H.data[s][k].im, want.imag(), 1e-6 + 1e-6 * std::abs(want));
                }
        }
    }
}

// Fixed-point update of one coefficient (plain or cheap form): the new coefficient.
Kvo32sc fixed_update(Kvo32sc h, Kvo32sc e, Kvo32sc x, KvoStepPair st, int sf, bool low) {
    const Kvo32sc* xr[1] = {&x};
    Kvo32sc* hr[1] = {&h};
    Kvo32sc scaled{};
    EXPECT_EQ(low ? kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(xr, &e, hr, 1, &scaled, &st, 0, 1, sf)
                  : kvosFIRSubbandCoeffUpdate_EC_32sc_I(&st, xr, &e, hr, 1, 1, sf),
              kvoOk);
    return h;
}

TEST(SubbandUpdate, FixedPointCorners) {
    const struct {
        Kvo32sc h, e, x;
        KvoStepPair st;
        bool low;
        Kvo32sc want;
    } cases[] = {
        // Scaled error 65536 (E = 2^16, mantissa 2^31 - 1), X = -2^31 j, shift 16: the plain
        // update negates -2^31 to 2^31 - 1, the cheap one keeps -2^31 and wraps.
        {{0, 0}, {65536, 0}, {0, kMin}, {kMax, 47}, false, {0, kMax}},
        {{0, 0}, {65536, 0}, {0, kMin}, {kMax, 47}, true, {0, kMin}},
        // Saturating sum of the plain update against the wrap of the cheap one.
        {{0, kMax}, {65536, 0}, {0, -1}, {kMax, 31}, false, {0, kMax}},
        {{0, kMax}, {65536, 0}, {0, -1}, {kMax, 31}, true, {0, kMin + 65535}},
        // Left shift beyond the range: the addend 4294967294 or -4294967296, saturated.
        {{-7, 0}, {1 << 30, 0}, {1 << 30, 0}, {kMax, -9}, false, {kMax, 0}},
        {{7, 0}, {1 << 30, 0}, {-(1 << 30), 0}, {kMax, -9}, true, {kMin, 0}},
    };
    for (const auto& c : cases) {
        const Kvo32sc h = fixed_update(c.h, c.e, c.x, c.st, 0, c.low);
        EXPECT_TRUE(h.re == c.want.re && h.im == c.want.im)
            << &c - cases << ": " << h.re << " " << h.im;
    }
    // Shift 63 on a product above 2^62 still rounds to one unit; a shift of 64 or more
    // (step exponents from 95 + scaleFactor up, the controllers' floors 102..112 among
    // them) leaves the coefficient alone.
    const Kvo32sc eBig{kMin, kMin}, xBig{kMin, kMax};
    for (int sf : {0, 3, 7}) {
        EXPECT_EQ(fixed_update({5, 5}, eBig, xBig, {kMax, 31 + 63 + sf}, sf, false).im, 6) << sf;
        for (int ex : {95 + sf, 102, 112})
            for (bool low : {false, true}) {
                const Kvo32sc h = fixed_update({5, -5}, eBig, xBig, {kMax, ex}, sf, low);
                EXPECT_TRUE(h.re == 5 && h.im == -5) << "exponent " << ex << " sf " << sf;
            }
    }
    // The cheap update writes its scaled errors.
    Kvo32sc h{0, 0}, xs{1, 0}, err{1 << 20, -(1 << 21)}, scaled{};
    const Kvo32sc* xr[1] = {&xs};
    Kvo32sc* hr[1] = {&h};
    const KvoStepPair s{1 << 30, 40};
    ASSERT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(xr, &err, hr, 1, &scaled, &s, 0, 1, 0), kvoOk);
    EXPECT_EQ(scaled.re, 1 << 19);
    EXPECT_EQ(scaled.im, -(1 << 20));
}

// ---- fullband ----------------------------------------------------------------------

// Reference (speech-like plus noise, `taps` samples of history in front), a decaying path,
// and the microphone it gives.
struct Scene {
    std::vector<double> ref, mic, path;
    Scene(int n, int taps, uint32_t seed) : path(white(size_t(taps), 0.4, seed)) {
        const auto wn = white(size_t(n + taps), 1500.0, seed + 1);
        const auto sp = kvosc::test::speech_like(n + taps, seed, 8000, 8000);
        for (size_t t = 0; t < path.size(); ++t) path[t] *= std::exp(-double(t) / (taps / 5.0));
        for (size_t i = 0; i < wn.size(); ++i) ref.push_back(std::round(0.5 * sp[i] + wn[i]));
        for (size_t i = 0; i < size_t(n); ++i) {
            double y = 0;
            for (size_t t = 0; t < path.size(); ++t) y += path[t] * ref[i + path.size() - t];
            mic.push_back(std::round(y));
        }
    }
};

// NLMS on the scene's path in `chunk`-sample calls, step 0.5 / (energy of the taps'
// reference) (the 16-bit step carries 2^38: Q15 coefficients, shifts 11 and 13 in the
// kernel); returns the errors and the ERLE (dB) over the last quarter.
template <bool kFixed>
double nlms_erle(const Scene& s, int chunk, std::vector<double>* err = nullptr) {
    using T = std::conditional_t<kFixed, Kvo16s, Kvo32f>;
    const size_t n = s.mic.size(), L = s.path.size();
    std::vector<T> ref(s.ref.begin(), s.ref.end()), mic(s.mic.begin(), s.mic.end()), out(n),
        coef(L, 0);
    std::vector<std::conditional_t<kFixed, Kvo32s, Kvo32f>> step(n);
    for (size_t i = 0; i < n; ++i) {
        double en = 1000.0;
        for (size_t t = 0; t < L; ++t) en += s.ref[i + L - t] * s.ref[i + L - t];
        step[i] = static_cast<decltype(step[0] + 0)>((kFixed ? std::ldexp(0.5, 38) : 0.5) / en);
    }
    constexpr auto nlms = [] {
        if constexpr (kFixed)
            return kvosNLMS_EC_16s;
        else
            return kvosNLMS_EC_32f;
    }();
    T mu = 0;
    for (size_t p = 0; p < n; p += size_t(chunk))
        EXPECT_EQ(nlms(&ref[L + p], &mic[p], &step[p], &out[p], std::min(chunk, int(n - p)),
                       coef.data(), int(L), &mu),
                  kvoOk);
    if (err) err->assign(out.begin(), out.end());
    double ee = 0, mm = 0;
    for (size_t i = 3 * n / 4; i < n; ++i)
        ee += double(out[i]) * out[i] + 0.25, mm += s.mic[i] * s.mic[i];
    return db(mm / ee);
}

TEST(Fullband, FirMatchesItsSumAndNlmsConvergesWhereverTheCallsCut) {
    const Scene s(4000, 32, 4);
    std::vector<Kvo32f> rf(s.ref.begin(), s.ref.end()), mf(s.mic.begin(), s.mic.end()), cf(32),
        of(4000);
    std::vector<Kvo16s> r16(s.ref.begin(), s.ref.end()), m16(s.mic.begin(), s.mic.end()), c16(32),
        o16(4000);
    for (size_t t = 0; t < 32; ++t) {
        c16[t] = static_cast<Kvo16s>(std::lround(s.path[t] * 32768.0));
        cf[t] = static_cast<Kvo32f>(c16[t] / 32768.0);
    }
    ASSERT_EQ(kvosFIR_EC_32f(&rf[32], mf.data(), of.data(), 4000, cf.data(), 32), kvoOk);
    ASSERT_EQ(kvosFIR_EC_16s(&r16[32], m16.data(), o16.data(), 4000, c16.data(), 32), kvoOk);
    for (size_t i = 0; i < 4000; ++i) {
        double y = 0;
        for (size_t t = 0; t < 32; ++t) y += double(rf[i + 32 - t]) * cf[t];
        EXPECT_NEAR(of[i], s.mic[i] - y, 1e-2) << i;
        // Each of the 32 products is rounded on its own: at most half a unit each.
        EXPECT_LE(std::fabs(o16[i] - std::clamp(s.mic[i] - y, -32768.0, 32767.0)), 16.5) << i;
    }
    Kvo16s ref[2] = {32767, 32767}, mic = -32768, h[2] = {32767, 32767}, out = 0, mu16 = 0;
    ASSERT_EQ(kvosFIR_EC_16s(&ref[1], &mic, &out, 1, h, 2), kvoOk);
    EXPECT_EQ(out, -32768);  // the error saturates
    // 16-bit NLMS: mu is kept whole inside the call and saturated when stored.
    const Kvo32s big = 1 << 20;
    Kvo16s r3[3] = {0, 0, 0}, m3 = 32767, h3[2] = {0, 0};  // the update reads taps + 1 samples
    ASSERT_EQ(kvosNLMS_EC_16s(&r3[2], &m3, &big, &out, 1, h3, 2, &mu16), kvoOk);
    EXPECT_EQ(mu16, 32767);

    // The error carried between calls makes the cut invisible.
    std::vector<double> a, b, c, d;
    nlms_erle<false>(s, 4000, &a), nlms_erle<false>(s, 37, &b);
    nlms_erle<true>(s, 4000, &c), nlms_erle<true>(s, 1, &d);
    EXPECT_EQ(a, b);
    EXPECT_EQ(c, d);
    const Scene s8(32000, 64, 8);  // 4 s at 8 kHz, 64-tap path
    const double f = nlms_erle<false>(s8, 80), i = nlms_erle<true>(s8, 80);
    RecordProperty("float_erle_dB", std::to_string(f));
    RecordProperty("fixed_erle_dB", std::to_string(i));
    EXPECT_GT(f, 45.0);
    EXPECT_GT(i, 30.0);
}

// ---- argument tests -----------------------------------------------------------------

TEST(AdaptiveKernels, CountsRangesAndStepsInTheirOrder) {
    Rows<Kvo32fc> X(255, 4097), H(255, 4097);
    Rows<Kvo32sc> Xi(255, 4097), Hi(255, 4097);
    std::vector<Kvo32fc> y(4097);
    std::vector<Kvo32sc> yi(4097), sc(4097);
    std::vector<Kvo64f> step(4097, 0.0);
    std::vector<KvoStepPair> sp(4097, KvoStepPair{0, 40});
    constexpr KvoStatus ok = kvoOk, len = kvoErrFilterLen, rng = kvoErrRange;
    // Segments, subbands, scale: FIR float, FIR fixed, update float, update fixed.
    const struct {
        int segs, bands, sf;
        KvoStatus want[4];
    } rows[] = {{255, 4097, 0, {ok, ok, ok, ok}},     {255, 4098, 0, {len, len, len, len}},
                {256, 4097, 0, {rng, rng, rng, rng}}, {1, 0, 0, {len, len, len, len}},
                {0, 0, 0, {len, len, len, len}},      {0, 3, 0, {rng, rng, rng, rng}},
                {2, 3, -31, {ok, ok, ok, rng}},       {2, 3, -32, {ok, rng, ok, rng}},
                {2, 3, 32, {ok, rng, ok, rng}}};
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.segs << " " << r.bands << " " << r.sf);
        const KvoStatus got[4] = {
            kvosFIRSubband_EC_32fc(X.cptr.data(), H.cptr.data(), y.data(), r.segs, r.bands),
            kvosFIRSubband_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), yi.data(), r.segs, r.bands,
                                       r.sf),
            kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), X.cptr.data(), y.data(), H.ptr.data(),
                                                r.segs, r.bands),
            kvosFIRSubbandCoeffUpdate_EC_32sc_I(sp.data(), Xi.cptr.data(), yi.data(), Hi.ptr.data(),
                                                r.segs, r.bands, r.sf)};
        for (int k = 0; k < 4; ++k) EXPECT_EQ(got[k], r.want[k]) << "kernel " << k;
    }
    // Cheap forms: segments and start before the count; start above the count is a range error.
    const struct {
        int segs, start, bands, sf;
        KvoStatus fir, upd;
    } low[] = {{256, 0, 4098, 0, rng, rng}, {1, 5, 4, 0, rng, rng},  {1, -1, 4, 0, rng, rng},
               {1, 0, 4098, 0, len, len},   {1, 0, 4, -1, rng, rng}, {1, 4, 4, 32, rng, rng},
               {1, 4, 4, 0, ok, ok}};
    for (const auto& r : low) {
        SCOPED_TRACE(testing::Message() << r.segs << " " << r.start << " " << r.bands);
        EXPECT_EQ(kvosFIRSubbandLow_EC_32sc_Sfs(Xi.cptr.data(), Hi.cptr.data(), r.segs, yi.data(),
                                                r.start, r.bands, r.sf),
                  r.fir);
        EXPECT_EQ(
            kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(Xi.cptr.data(), yi.data(), Hi.ptr.data(), r.segs,
                                                   sc.data(), sp.data(), r.start, r.bands, r.sf),
            r.upd);
    }
    // Affine projection: unsigned counts, the order after the segments.
    std::vector<const Kvo64f*> mp(2, step.data());
    std::vector<const Kvo32fc*> ep(2, y.data());
    auto ap = [&](Kvo32u segs, Kvo32u bands, Kvo32u order) {
        return kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(mp.data(), X.cptr.data(), ep.data(),
                                                     H.ptr.data(), segs, bands, order);
    };
    EXPECT_EQ(kvosFIRSubbandAPCoeffUpdate_EC_32fc_I(nullptr, nullptr, nullptr, nullptr, 0, 0, 0),
              kvoErrNullPtr);
    EXPECT_TRUE(ap(1, ~0u, 2) == len && ap(0, 4, 2) == rng && ap(1, 4, 0) == rng &&
                ap(254, 4, 2) == ok);
    // A null row among those the call reads.
    std::vector<const Kvo32fc*> holed = X.cptr;
    holed[3] = nullptr;
    EXPECT_EQ(kvosFIRSubband_EC_32fc(holed.data(), H.cptr.data(), y.data(), 4, 8), kvoErrNullPtr);
    EXPECT_EQ(kvosFIRSubband_EC_32fc(holed.data(), H.cptr.data(), y.data(), 3, 8), ok);
    // A negative step anywhere is refused before any row changes (-0.0 passes).
    for (auto& r : X.data) r.assign(6, {1, 1});
    for (auto& r : Xi.data) r.assign(6, {1000, 1000});
    X.refresh(), Xi.refresh();
    step.assign(6, 0.1), step[0] = -0.0, step[5] = -1e-300;
    sp.assign(6, KvoStepPair{1 << 30, 31}), sp[5].mantissa = -1;
    std::vector<Kvo32fc> e(6, Kvo32fc{1, 0});
    std::vector<Kvo32sc> ei(6, Kvo32sc{1 << 20, 0});
    EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), X.cptr.data(), e.data(),
                                                  H.ptr.data(), 3, 6),
              kvoErrSize);
    EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32sc_I(sp.data(), Xi.cptr.data(), ei.data(),
                                                  Hi.ptr.data(), 3, 6, 0),
              kvoErrSize);
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 6; ++k) EXPECT_TRUE(H.data[r][k].re == 0 && Hi.data[r][k].re == 0);
    step[5] = 0.1;  // -0.0 passes and leaves its subband
    ASSERT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(step.data(), X.cptr.data(), e.data(),
                                                  H.ptr.data(), 3, 6),
              ok);
    EXPECT_TRUE(H.data[0][0].re == 0.0f && H.data[0][1].re != 0.0f);
    EXPECT_EQ(kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(Xi.cptr.data(), ei.data(), Hi.ptr.data(), 3,
                                                     sc.data(), sp.data(), 0, 6, 0),
              ok);  // the cheap update does not test mantissas
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

// ---- vector paths against the scalar cores --------------------------------------------

// Signed zeros, huge and subnormal values among ordinary ones.
float extreme(std::mt19937& g) {
    const float v[4] = {0.0f, -0.0f, 3.0e38f, 1.0e-40f};
    const unsigned k = g() % 8;
    if (k < 4) return g() & 1 ? v[k] : -v[k];
    return std::uniform_real_distribution<float>(-1e4f, 1e4f)(g);
}

TEST(SubbandTwins, FloatFirAndUpdateMatchTheScalarCoresBitForBit) {
    std::mt19937 g(2024);
    for (int trial = 0; trial < 200; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + int(g() % 20), K = 1 + int(g() % 67);
        const bool wild = trial % 3 == 0;
        auto val = [&](float a) {
            return wild ? extreme(g) : std::uniform_real_distribution<float>(-a, a)(g);
        };
        Rows<Kvo32fc> X(S, K), H(S, K);
        std::vector<Kvo32fc> e(static_cast<size_t>(K)), y1(e.size()), y2(e.size());
        std::vector<Kvo64f> step(e.size());
        for (auto& r : X.data)
            for (auto& v : r) v = {val(1000), val(1000)};
        for (auto& r : H.data)
            for (auto& v : r) v = {val(1), val(1)};
        for (auto& v : e) v = {val(100), val(100)};
        for (auto& v : step)
            v = wild && g() % 4 == 0 ? 1e30 : std::uniform_real_distribution<double>(0, 1e-3)(g);
        const bool avx2 = kvo::cpuHasAvx2();
        kvo::ec::firSubband32fcScalar(X.cptr.data(), H.cptr.data(), y1.data(), S, K);
        for (auto fir : {kvo::ec::firSubband32fcSse2,
                         avx2 ? kvo::ec::firSubband32fcAvx2 : kvo::ec::firSubband32fcSse2}) {
            fir(X.cptr.data(), H.cptr.data(), y2.data(), S, K);
            EXPECT_EQ(std::memcmp(y1.data(), y2.data(), y1.size() * sizeof(Kvo32fc)), 0);
        }
        Rows<Kvo32fc> H1 = H;
        H1.refresh();
        kvo::ec::coeffUpdate32fcScalar(step.data(), X.cptr.data(), e.data(), H1.ptr.data(), S, K);
        for (auto upd : {kvo::ec::coeffUpdate32fcSse2,
                         avx2 ? kvo::ec::coeffUpdate32fcAvx2 : kvo::ec::coeffUpdate32fcSse2}) {
            Rows<Kvo32fc> H2 = H;
            H2.refresh();
            upd(step.data(), X.cptr.data(), e.data(), H2.ptr.data(), S, K);
            EXPECT_TRUE(same_bytes(H1, H2));
        }
    }
}

// The fixed-point updates over many subbands (vector path where the CPU has it) against
// step * E * conj(X) * 2^scaleFactor on moderate data, and against the same updates made one
// subband at a time (scalar path) bit for bit on moderate and extreme data.
TEST(SubbandUpdate, FixedPointUpdatesMatchTheModelAndOneSubbandCalls) {
    std::mt19937 g(31);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int S = 1 + int(g() % 5), K = 1 + int(g() % 140), sf = int(g() % 32);
        const bool low = trial % 3 == 0, wild = trial % 2 == 0;
        auto v32 = [&](double amp) -> Kvo32s {  // wild: mostly the extremes and tiny values
            const unsigned k = wild ? g() % 4 : 4;
            return k == 0   ? kMin
                   : k == 1 ? kMax
                   : k == 2 ? Kvo32s(g() % 7) - 3
                            : rnd<Kvo32sc>(g, amp).re;
        };
        Rows<Kvo32sc> X(S, K), H(S, K);
        std::vector<Kvo32sc> e(static_cast<size_t>(K)), se1(e.size()), se2(e.size());
        std::vector<KvoStepPair> st(e.size());
        for (int k = 0; k < K; ++k) {
            e[k] = {v32(1 << 20), v32(1 << 20)};
            for (int r = 0; r < S; ++r)
                X.data[r][k] = {v32(1 << 20), v32(1 << 20)},
                H.data[r][k] = {v32(1 << 28), v32(1 << 28)};
            // Shift exponent - sf - 31: -8..31 (moderate) or 0..63, now and then one beyond
            // that sends its chunk to the scalar path.
            const int d = wild ? (g() % 50 == 0 ? 70 : int(g() % 64)) : int(g() % 40) - 8;
            st[k] = {Kvo32s(wild ? g() & 0x7fffffff : (1u << 30) + g() % (1u << 30)), d + sf + 31};
        }
        Rows<Kvo32sc> H0 = H, H1 = H;
        H1.refresh();
        auto update = [&](const Kvo32sc** x, Kvo32sc* ee, Kvo32sc** h, Kvo32sc* se, KvoStepPair* s,
                          int bands) {
            return low ? kvosFIRSubbandLowCoeffUpdate_EC_32sc_I(x, ee, h, S, se, s, 0, bands, sf)
                       : kvosFIRSubbandCoeffUpdate_EC_32sc_I(s, x, ee, h, S, bands, sf);
        };
        ASSERT_EQ(update(X.cptr.data(), e.data(), H.ptr.data(), se2.data(), st.data(), K), kvoOk);
        for (int k = 0; k < K; ++k) {
            std::vector<const Kvo32sc*> xr;
            std::vector<Kvo32sc*> hr;
            for (int r = 0; r < S; ++r) xr.push_back(&X.data[r][k]), hr.push_back(&H1.data[r][k]);
            ASSERT_EQ(update(xr.data(), &e[k], hr.data(), &se1[k], &st[k], 1), kvoOk);
            for (int r = 0; r < S && !wild; ++r) {
                const cd want =
                    z(H0.data[r][k]) + std::ldexp(double(st[k].mantissa), sf - st[k].exponent) *
                                           z(e[k]) * std::conj(z(X.data[r][k]));
                // Rounding of the scaled error (one unit times |X| after the shift) and of the
                // addend; the cheap form wraps where the sum leaves 32 bits.
                const double tol =
                    1.0 + std::ldexp(std::abs(z(X.data[r][k])), sf + 31 - st[k].exponent);
                if (low && std::max(std::fabs(want.real()), std::fabs(want.imag())) > kMax)
                    continue;
                EXPECT_NEAR(H.data[r][k].re, std::clamp(want.real(), double(kMin), double(kMax)),
                            tol);
                EXPECT_NEAR(H.data[r][k].im, std::clamp(want.imag(), double(kMin), double(kMax)),
                            tol);
            }
        }
        EXPECT_TRUE(same_bytes(H, H1));
        if (low) {
            EXPECT_EQ(std::memcmp(se1.data(), se2.data(), K * sizeof(Kvo32sc)), 0);
        }
    }
}

TEST(FullbandTwins, VectorNlmsAndFirMatchTheScalarCoresBitForBit) {
    if (!kvo::cpuHasAvx2()) GTEST_SKIP() << "no AVX2";
    std::mt19937 g(77);
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const int taps = 1 + int(g() % 70), len = 1 + int(g() % 50);
        const int kind = trial % 4;  // 0 speech-sized, 1 full scale, 2 huge steps, 3 mixed
        auto sample = [&]() -> Kvo16s {
            if (kind == 1) return g() & 1 ? 32767 : -32768;
            return Kvo16s(int(g() % 20001) - 10000);
        };
        std::vector<Kvo16s> ref(static_cast<size_t>(taps + len)), mic(static_cast<size_t>(len)),
            c1(static_cast<size_t>(taps)), o1(mic.size()), o2(mic.size());
        for (auto& v : ref) v = sample();
        for (auto& v : mic) v = sample();
        for (auto& v : c1) v = Kvo16s(g());
        std::vector<Kvo32s> step(mic.size());
        for (auto& v : step)
            v = kind == 2 ? Kvo32s(g()) : Kvo32s(g() % (kind == 3 ? 200000 : 3000));
        // NLMS, then the FIR with the coefficients it leaves.
        std::vector<Kvo16s> c2 = c1;
        Kvo16s mu1 = Kvo16s(g()), mu2 = mu1;
        const Kvo16s* r = &ref[size_t(taps)];
        kvo::ec::nlms16sScalar(r, mic.data(), step.data(), o1.data(), len, c1.data(), taps, &mu1);
        kvo::ec::nlms16sAvx2(r, mic.data(), step.data(), o2.data(), len, c2.data(), taps, &mu2);
        EXPECT_TRUE(o1 == o2 && c1 == c2 && mu1 == mu2);
        kvo::ec::fir16sScalar(r, mic.data(), o1.data(), len, c1.data(), taps);
        kvo::ec::fir16sAvx2(r, mic.data(), o2.data(), len, c1.data(), taps);
        EXPECT_EQ(o1, o2);
        std::vector<Kvo32f> rf(ref.size()), mf(mic.begin(), mic.end()), cf(c1.size()),
            f1(o1.size()), f2(o1.size());
        for (size_t k = 0; k < rf.size(); ++k) rf[k] = kind == 1 ? extreme(g) : ref[k] * 0.37f;
        for (auto& v : cf) v = std::uniform_real_distribution<float>(-1, 1)(g);
        kvo::ec::fir32fScalar(&rf[size_t(taps)], mf.data(), f1.data(), len, cf.data(), taps);
        kvo::ec::fir32fAvx2(&rf[size_t(taps)], mf.data(), f2.data(), len, cf.data(), taps);
        EXPECT_EQ(std::memcmp(f1.data(), f2.data(), f1.size() * sizeof(Kvo32f)), 0);
    }
}

}  // namespace
