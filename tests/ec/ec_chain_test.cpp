// The kernels strung into a plain subband canceller (analysis of far and near end, FIR
// with the adaptive rows, error, NLMS update with steps mu / reference power, synthesis of
// the error) and a plain fullband NLMS canceller, on a generated scene: speech and
// coloured noise as far end, a 5 ms + 24 ms decaying echo path of 10 dB ERL, near-end
// noise at -60 dBFS.  Measured: converged ERLE of the second half, float and 16-bit
// subband chains, against speexdsp's canceller on the same scene where it is present.
// The subband figure is bounded by the aliasing of the cut-off prototype windows.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "../support/signals.h"
#include "ec_util.h"
#include "kvosc.h"

#ifdef KVOSC_HAVE_SPEEXDSP
#include <speex/speex_echo.h>
#endif

using namespace ectest;

namespace {

struct Scene {
    std::vector<Kvo16s> far, near;
};

// Far end: speech-like signal plus low-passed noise; near end: echo plus -60 dBFS noise.
Scene make_scene(int rate, double seconds, uint32_t seed) {
    const int n = static_cast<int>(seconds * rate);
    const auto sp = kvosc::test::speech_like(n, seed, 30000, rate);
    const auto wn = white(static_cast<size_t>(n), 7000.0, seed + 1);
    const auto nn = white(static_cast<size_t>(n), 32768.0 * 1e-3, seed + 2);
    Scene s;
    s.far.resize(static_cast<size_t>(n));
    double lp = 0;
    for (int i = 0; i < n; ++i) {
        lp = 0.7 * lp + 0.3 * wn[static_cast<size_t>(i)];
        s.far[static_cast<size_t>(i)] = static_cast<Kvo16s>(
            std::lround(std::clamp(0.8 * sp[static_cast<size_t>(i)] + lp, -32768.0, 32767.0)));
    }
    // Echo path: 5 ms of pure delay, then a 24 ms exponentially decaying random tail,
    // scaled to 10 dB of echo return loss.
    std::mt19937 g(seed + 3);
    std::normal_distribution<double> nd(0, 1);
    const int delay = rate / 200, tail = rate * 24 / 1000;
    std::vector<double> h(static_cast<size_t>(delay + tail), 0.0);
    double e2 = 0;
    for (int t = 0; t < tail; ++t) {
        h[static_cast<size_t>(delay + t)] = nd(g) * std::exp(-4.0 * t / tail);
        e2 += h[static_cast<size_t>(delay + t)] * h[static_cast<size_t>(delay + t)];
    }
    for (auto& v : h) v *= std::sqrt(0.1 / e2);
    s.near.resize(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        double y = nn[static_cast<size_t>(i)];
        for (size_t t = 0; t < h.size() && t <= static_cast<size_t>(i); ++t)
            y += h[t] * s.far[static_cast<size_t>(i) - t];
        s.near[static_cast<size_t>(i)] =
            static_cast<Kvo16s>(std::lround(std::clamp(y, -32768.0, 32767.0)));
    }
    return s;
}

// ERLE (dB) of the second half; out may lag near by `lag` samples.
double erle(const Scene& s, const std::vector<double>& out, int lag) {
    const size_t n = s.near.size();
    double pn = 0, po = 0;
    for (size_t i = n / 2; i + static_cast<size_t>(lag) < n; ++i) {
        pn += double(s.near[i]) * s.near[i];
        po += out[i + static_cast<size_t>(lag)] * out[i + static_cast<size_t>(lag)];
    }
    return db(pn / po);
}

// Plain subband NLMS canceller on the (6, 44, 256) bank; numSegments rows.
template <bool kFixed>
std::vector<double> subband_chain(const Scene& s, int segs) {
    constexpr int order = 6, B = 44, W = 256, K = 33;
    using C = std::conditional_t<kFixed, Kvo32sc, Kvo32fc>;
    Bank<kFixed> af(order, B, W), an(order, B, W), sy(order, B, W);
    EXPECT_TRUE(af.ok && an.ok && sy.ok);
    Rows<C> X(segs, K), H(segs, K);
    std::vector<C> mic(K), y(K), e(K);
    std::vector<Kvo64f> stepF(K);
    std::vector<KvoStepPair> stepI(K);
    std::vector<double> pow(K, 0.0), out;
    constexpr int kCoefQ = 24;  // fixed-point coefficients: Q24
    for (size_t p = 0; p + B <= s.far.size(); p += B) {
        X.rotate();
        if constexpr (kFixed) {
            EXPECT_EQ(kvosSubbandAnalysis_16s32sc_Sfs(&s.far[p], X.ptr[0], af.st, 0, af.work.p),
                      kvoOk);
            EXPECT_EQ(kvosSubbandAnalysis_16s32sc_Sfs(&s.near[p], mic.data(), an.st, 0, an.work.p),
                      kvoOk);
            EXPECT_EQ(
                kvosFIRSubband_EC_32sc_Sfs(X.cptr.data(), H.cptr.data(), y.data(), segs, K, kCoefQ),
                kvoOk);
        } else {
            std::vector<Kvo32f> f(s.far.begin() + static_cast<long>(p),
                                  s.far.begin() + static_cast<long>(p) + B);
            std::vector<Kvo32f> m(s.near.begin() + static_cast<long>(p),
                                  s.near.begin() + static_cast<long>(p) + B);
            EXPECT_EQ(kvosSubbandAnalysis_32f32fc(f.data(), X.ptr[0], af.st, af.work.p), kvoOk);
            EXPECT_EQ(kvosSubbandAnalysis_32f32fc(m.data(), mic.data(), an.st, an.work.p), kvoOk);
            EXPECT_EQ(kvosFIRSubband_EC_32fc(X.cptr.data(), H.cptr.data(), y.data(), segs, K),
                      kvoOk);
        }
        for (int k = 0; k < K; ++k) {
            if constexpr (kFixed) {
                e[k].re = static_cast<Kvo32s>(
                    std::clamp<Kvo64s>(Kvo64s{mic[k].re} - y[k].re, INT32_MIN, INT32_MAX));
                e[k].im = static_cast<Kvo32s>(
                    std::clamp<Kvo64s>(Kvo64s{mic[k].im} - y[k].im, INT32_MIN, INT32_MAX));
            } else {
                e[k].re = mic[k].re - y[k].re;
                e[k].im = mic[k].im - y[k].im;
            }
            double pk = 0;
            for (int r = 0; r < segs; ++r)
                pk += double(X.ptr[r][k].re) * X.ptr[r][k].re +
                      double(X.ptr[r][k].im) * X.ptr[r][k].im;
            const double step = 0.4 / (pk + 1e6);
            stepF[static_cast<size_t>(k)] = step;
            const int ex = 30 - static_cast<int>(std::floor(std::log2(step)));
            stepI[static_cast<size_t>(k)] = {static_cast<Kvo32s>(std::ldexp(step, ex)), ex};
        }
        std::vector<Kvo16s> o16(B);
        std::vector<Kvo32f> of(B);
        if constexpr (kFixed) {
            EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32sc_I(stepI.data(), X.cptr.data(), e.data(),
                                                          H.ptr.data(), segs, K, kCoefQ),
                      kvoOk);
            EXPECT_EQ(kvosSubbandSynthesis_32sc16s_Sfs(e.data(), o16.data(), sy.st, 0, sy.work.p),
                      kvoOk);
            out.insert(out.end(), o16.begin(), o16.end());
        } else {
            EXPECT_EQ(kvosFIRSubbandCoeffUpdate_EC_32fc_I(stepF.data(), X.cptr.data(), e.data(),
                                                          H.ptr.data(), segs, K),
                      kvoOk);
            EXPECT_EQ(kvosSubbandSynthesis_32fc32f(e.data(), of.data(), sy.st, sy.work.p), kvoOk);
            out.insert(out.end(), of.begin(), of.end());
        }
    }
    return out;
}

TEST(CancellerChain, SubbandKernelsReachTheFilterBankCeilingAtBothRates) {
    for (int rate : {8000, 16000}) {
        SCOPED_TRACE(rate);
        const std::string r = std::to_string(rate);
        const Scene s = make_scene(rate, rate == 8000 ? 16.0 : 10.0, 41);
        const double f = erle(s, subband_chain<false>(s, 30), 212);
        const double i = erle(s, subband_chain<true>(s, 30), 212);
        RecordProperty("subband_float_erle_dB_" + r, std::to_string(f));
        RecordProperty("subband_16s_erle_dB_" + r, std::to_string(i));
        double pn = 0;
        for (size_t k = s.near.size() / 2; k < s.near.size(); ++k)
            pn += double(s.near[k]) * s.near[k];
        const double pe = double(s.near.size() / 2) * 32.768 * 32.768;
        RecordProperty("noise_limited_erle_dB_" + r, std::to_string(db(pn / pe)));
        // The aliasing of the prototype (about -24 dB on white noise) caps the figure.
        EXPECT_GT(f, 20.0);
        EXPECT_LT(f, 30.0);
        EXPECT_NEAR(i, f, 2.0);
    }
}

TEST(CancellerChain, FullbandNlmsAgainstSpeexdsp) {
    const Scene s = make_scene(8000, 16.0, 41);
    const int taps = 1024, n = static_cast<int>(s.near.size());
    // Fullband NLMS, float: step 0.5 / (tap energy), 80-sample calls.
    std::vector<Kvo32f> ref(static_cast<size_t>(taps), 0.0f), mic(s.near.begin(), s.near.end()),
        out(static_cast<size_t>(n)), coef(static_cast<size_t>(taps), 0.0f),
        step(static_cast<size_t>(n));
    ref.insert(ref.end(), s.far.begin(), s.far.end());
    double en = 0;
    for (int i = 0; i < n; ++i) {
        en += double(ref[static_cast<size_t>(i + taps)]) * ref[static_cast<size_t>(i + taps)] -
              double(ref[static_cast<size_t>(i)]) * ref[static_cast<size_t>(i)];
        step[static_cast<size_t>(i)] = static_cast<Kvo32f>(0.5 / (std::max(en, 0.0) + 1e7));
    }
    Kvo32f mu = 0;
    for (int p = 0; p < n; p += 80)
        ASSERT_EQ(kvosNLMS_EC_32f(&ref[static_cast<size_t>(taps + p)], &mic[static_cast<size_t>(p)],
                                  &step[static_cast<size_t>(p)], &out[static_cast<size_t>(p)],
                                  std::min(80, n - p), coef.data(), taps, &mu),
                  kvoOk);
    const double ours = erle(s, std::vector<double>(out.begin(), out.end()), 0);
    RecordProperty("fullband_nlms_erle_dB", std::to_string(ours));
    EXPECT_GT(ours, 25.0);
#ifdef KVOSC_HAVE_SPEEXDSP
    SpeexEchoState* st = speex_echo_state_init(80, taps);
    int rate = 8000;
    speex_echo_ctl(st, SPEEX_ECHO_SET_SAMPLING_RATE, &rate);
    std::vector<spx_int16_t> o(static_cast<size_t>(n));
    for (int p = 0; p + 80 <= n; p += 80)
        speex_echo_cancellation(st, &s.near[static_cast<size_t>(p)], &s.far[static_cast<size_t>(p)],
                                &o[static_cast<size_t>(p)]);
    speex_echo_state_destroy(st);
    const double peer = erle(s, std::vector<double>(o.begin(), o.end()), 0);
    RecordProperty("speexdsp_erle_dB", std::to_string(peer));
    // A plain NLMS with an exact step is not worse than the peer's canceller here.
    EXPECT_GT(ours, peer - 3.0);
#endif
}

}  // namespace
