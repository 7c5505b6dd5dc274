// The kernels strung into plain cancellers on a generated scene (speech and coloured noise
// as far end, a 5 ms + 24 ms decaying echo path of 10 dB ERL, near-end noise at -60 dBFS):
// a subband NLMS canceller (analysis of both ends, FIR over the adaptive rows, error,
// update with steps mu / reference power, synthesis of the error) in both families at both
// rates, and a fullband NLMS canceller beside speexdsp's canceller where it is present.
// Measured: ERLE of the second half.  The subband figure is capped by the aliasing of the
// cut-off prototype window.
#include <gtest/gtest.h>

#include <string>

#include "../support/signals.h"
#include "ec_util.h"

#ifdef KVOSC_HAVE_SPEEXDSP
#include <speex/speex_echo.h>
#endif

using namespace ectest;

namespace {

struct Scene {
    std::vector<Kvo16s> far, near;
};

Kvo16s pcm(double v) {
    return static_cast<Kvo16s>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

Scene make_scene(int rate, double seconds, uint32_t seed) {
    const auto n = static_cast<size_t>(seconds * rate);
    const auto sp = kvosc::test::speech_like(int(n), seed, 30000, rate);
    const auto wn = white(n, 7000.0, seed + 1), nn = white(n, 32.768, seed + 2);
    Scene s;
    double lp = 0;
    for (size_t i = 0; i < n; ++i)
        s.far.push_back(pcm(0.8 * sp[i] + (lp = 0.7 * lp + 0.3 * wn[i])));
    std::mt19937 g(seed + 3);
    std::normal_distribution<double> nd(0, 1);
    const size_t delay = size_t(rate / 200), tail = size_t(rate * 24 / 1000);
    std::vector<double> h(delay + tail, 0.0);
    double e2 = 0;
    for (size_t t = 0; t < tail; ++t) {
        h[delay + t] = nd(g) * std::exp(-4.0 * double(t) / double(tail));
        e2 += h[delay + t] * h[delay + t];
    }
    for (auto& v : h) v *= std::sqrt(0.1 / e2);
    for (size_t i = 0; i < n; ++i) {
        double y = nn[i];
        for (size_t t = 0; t < h.size() && t <= i; ++t) y += h[t] * s.far[i - t];
        s.near.push_back(pcm(y));
    }
    return s;
}

// ERLE (dB) of the second half; out lags near by `lag` samples.
template <class T>
double erle(const Scene& s, const std::vector<T>& out, size_t lag) {
    double pn = 0, po = 0;
    for (size_t i = s.near.size() / 2; i + lag < s.near.size(); ++i)
        pn += double(s.near[i]) * s.near[i], po += double(out[i + lag]) * out[i + lag];
    return db(pn / po);
}

// Subband NLMS canceller on the (6, 44, 256) bank; fixed-point coefficients in Q24.
template <bool kFixed>
std::vector<double> subband_chain(const Scene& s, int segs) {
    constexpr int order = 6, B = 44, W = 256, K = 33, kCoefQ = 24;
    using C = std::conditional_t<kFixed, Kvo32sc, Kvo32fc>;
    Bank<kFixed> af(order, B, W), an(order, B, W), sy(order, B, W);
    EXPECT_TRUE(af.ok && an.ok && sy.ok);
    Rows<C> X(segs, K), H(segs, K);
    std::vector<C> mic(K), y(K), e(K);
    std::vector<Kvo64f> stepF(K);
    std::vector<KvoStepPair> stepI(K);
    std::vector<double> out;
    auto sub = [](double a, double b) {  // the error, saturated to 32 bits in the 16-bit chain
        return static_cast<decltype(C::re)>(std::clamp(a - b, -2147483648.0, 2147483647.0));
    };
    for (size_t p = 0; p + B <= s.far.size(); p += B) {
        X.rotate();
        if constexpr (kFixed) {
            kvosSubbandAnalysis_16s32sc_Sfs(&s.far[p], X.ptr[0], af.st, 0, af.wb);
            kvosSubbandAnalysis_16s32sc_Sfs(&s.near[p], mic.data(), an.st, 0, an.wb);
            kvosFIRSubband_EC_32sc_Sfs(X.cptr.data(), H.cptr.data(), y.data(), segs, K, kCoefQ);
        } else {
            const std::vector<Kvo32f> f(&s.far[p], &s.far[p] + B), m(&s.near[p], &s.near[p] + B);
            kvosSubbandAnalysis_32f32fc(f.data(), X.ptr[0], af.st, af.wb);
            kvosSubbandAnalysis_32f32fc(m.data(), mic.data(), an.st, an.wb);
            kvosFIRSubband_EC_32fc(X.cptr.data(), H.cptr.data(), y.data(), segs, K);
        }
        for (size_t k = 0; k < K; ++k) {
            e[k] = {sub(mic[k].re, y[k].re), sub(mic[k].im, y[k].im)};
            double pk = 0;
            for (int r = 0; r < segs; ++r)
                pk += double(X.ptr[r][k].re) * X.ptr[r][k].re +
                      double(X.ptr[r][k].im) * X.ptr[r][k].im;
            stepF[k] = 0.4 / (pk + 1e6);
            const int ex = 30 - static_cast<int>(std::floor(std::log2(stepF[k])));
            stepI[k] = {static_cast<Kvo32s>(std::ldexp(stepF[k], ex)), ex};
        }
        std::vector<std::conditional_t<kFixed, Kvo16s, Kvo32f>> o(B);
        if constexpr (kFixed) {
            kvosFIRSubbandCoeffUpdate_EC_32sc_I(stepI.data(), X.cptr.data(), e.data(), H.ptr.data(),
                                                segs, K, kCoefQ);
            kvosSubbandSynthesis_32sc16s_Sfs(e.data(), o.data(), sy.st, 0, sy.wb);
        } else {
            kvosFIRSubbandCoeffUpdate_EC_32fc_I(stepF.data(), X.cptr.data(), e.data(), H.ptr.data(),
                                                segs, K);
            kvosSubbandSynthesis_32fc32f(e.data(), o.data(), sy.st, sy.wb);
        }
        out.insert(out.end(), o.begin(), o.end());
    }
    return out;
}

TEST(CancellerChain, SubbandAndFullbandErleBesideSpeexdsp) {
    for (int rate : {8000, 16000}) {
        SCOPED_TRACE(rate);
        const std::string r = std::to_string(rate);
        const Scene s = make_scene(rate, rate == 8000 ? 16.0 : 10.0, 41);
        const double f = erle(s, subband_chain<false>(s, 30), 212);
        const double i = erle(s, subband_chain<true>(s, 30), 212);
        RecordProperty("subband_float_erle_dB_" + r, std::to_string(f));
        RecordProperty("subband_16s_erle_dB_" + r, std::to_string(i));
        EXPECT_GT(f, 19.0);  // the prototype's aliasing (about -24 dB on white noise) caps it
        EXPECT_LT(f, 30.0);
        EXPECT_NEAR(i, f, 2.0);
        if (rate != 8000) continue;

        // Fullband NLMS, float, 1024 taps: step 0.5 / (tap energy), 80-sample calls.
        const int taps = 1024, n = static_cast<int>(s.near.size());
        std::vector<Kvo32f> ref(taps, 0.0f), mic(s.near.begin(), s.near.end()), out(n),
            coef(taps, 0.0f), step(n);
        ref.insert(ref.end(), s.far.begin(), s.far.end());
        double en = 0;
        for (size_t k = 0; k < size_t(n); ++k) {
            en += double(ref[k + taps]) * ref[k + taps] - double(ref[k]) * ref[k];
            step[k] = static_cast<Kvo32f>(0.5 / (std::max(en, 0.0) + 1e7));
        }
        Kvo32f mu = 0;
        for (int p = 0; p < n; p += 80)
            ASSERT_EQ(kvosNLMS_EC_32f(&ref[size_t(taps + p)], &mic[size_t(p)], &step[size_t(p)],
                                      &out[size_t(p)], std::min(80, n - p), coef.data(), taps, &mu),
                      kvoOk);
        const double ours = erle(s, out, 0);
        RecordProperty("fullband_nlms_erle_dB", std::to_string(ours));
        EXPECT_GT(ours, 25.0);
#ifdef KVOSC_HAVE_SPEEXDSP
        SpeexEchoState* st = speex_echo_state_init(80, taps);
        speex_echo_ctl(st, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
        std::vector<spx_int16_t> o(static_cast<size_t>(n));
        for (size_t p = 0; p + 80 <= size_t(n); p += 80)
            speex_echo_cancellation(st, &s.near[p], &s.far[p], &o[p]);
        speex_echo_state_destroy(st);
        const double peer = erle(s, o, 0);
        RecordProperty("speexdsp_erle_dB", std::to_string(peer));
        EXPECT_GT(ours, peer - 3.0);  // a plain NLMS with an exact step keeps up with the peer
#endif
    }
}

}  // namespace
