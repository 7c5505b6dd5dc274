// GSM AMR pitch steps and post filter against 64-bit and double models: the 61-point
// interpolator, the search against the decoder, open-loop lags of periodic frames, the impulse
// response and target, the post filter's gain control, and argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "amr_pitch_test_tables.h"
#include "kvosc.h"
#include "support/badargs.h"

namespace {

constexpr int L = 40;
constexpr int kExc = 154 + L;
using Exc = std::array<Kvo16s, kExc>;

Exc randomExc(std::mt19937& g, int amp) {
    std::uniform_int_distribution<int> u(-amp, amp);
    Exc e{};
    for (int i = 0; i < 154; ++i) e[i] = static_cast<Kvo16s>(u(g));
    return e;
}

// 64-bit model of the adaptive vector with the 61-point filter in its published order.
std::array<Kvo16s, L> predModel(Exc e, int lag, int frac, bool thirds) {
    int g = thirds ? -2 * frac : -frac;
    int base = 154 - lag;
    if (g < 0) {
        g += 6;
        --base;
    }
    std::array<Kvo16s, L> v{};
    for (int n = 0; n < L; ++n) {
        int64_t s = 0;
        for (int i = 0; i < 10; ++i) {
            s += int64_t{e[base + n - i]} * kvo::tab::inter61[g + 6 * i];
            s += int64_t{e[base + n + 1 + i]} * kvo::tab::inter61[6 - g + 6 * i];
        }
        e[154 + n] = v[n] =
            static_cast<Kvo16s>(std::clamp<int64_t>((2 * s + 32768) >> 16, -32768, 32767));
    }
    return v;
}

struct Dec {
    Kvo16s lag, lagBuf, prevGood;
    std::array<Kvo16s, L> v;
};

Dec decode(int mode, int index, int sf, Kvo16s prevGood, Kvo16s lag, Exc e, int bad = 0,
           int bgNoise = 0, int hangover = 0) {
    Dec d{};
    d.prevGood = prevGood;
    d.lag = lag;
    d.lagBuf = -1;
    EXPECT_EQ(kvosAdaptiveCodebookDecode_GSMAMR_16s(
                  index, &d.prevGood, &d.lagBuf, e.data(), &d.lag, d.v.data(),
                  static_cast<Kvo16s>(sf), static_cast<Kvo16s>(bad), static_cast<Kvo16s>(bgNoise),
                  static_cast<Kvo16s>(hangover), mode),
              kvoOk);
    return d;
}

TEST(GsmAmrPitch, DecodedVectorsMatchTheInterpolatorModel) {
    std::mt19937 g(3);
    const Exc e = randomExc(g, 4000);
    struct Case {
        int mode, index, sf, lag, frac;
    };
    const Case cases[] = {
        {0, 100, 0, 53, -1},                        // q3 = 34: 19 + 34, 100 - 102 + 1
        {7, 101, 0, 53, 0},                         // 3 lag + frac = index + 58
        {6, 102, 2, 53, 1},  {3, 197, 0, 85, 0},    // from 197 on: index - 112, integer
        {8, 255, 0, 143, 0}, {12, 200, 0, 51, -1},  // 6 lag + frac = index + 105
        {12, 463, 0, 95, 0},                        // from 463 on: index - 368
        {12, 17, 0, 20, 2},                         // q6 = 3
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << " index " << c.index);
        const Dec d = decode(c.mode, c.index, c.sf, 60, 60, e);
        EXPECT_EQ(d.lag, c.lag);
        EXPECT_EQ(d.v, predModel(e, c.lag, c.frac, c.mode != 12));
    }
    // Short lags read the samples just written.
    EXPECT_EQ(decode(12, 12, 0, 60, 60, e).v, predModel(e, 19, 3, false));
}

TEST(GsmAmrPitch, LagDecoderBadFrameRules) {
    std::mt19937 g(5);
    const Exc e = randomExc(g, 3000);
    // 12.2: a bad frame falls back to the previous good lag with fraction 0, whatever the index;
    // so does a good delta subframe with an index of 61 or more.
    Dec d = decode(12, 200, 0, 77, 60, e, 1);
    EXPECT_EQ(d.lag, 77);
    EXPECT_EQ(d.lagBuf, 51);
    EXPECT_EQ(d.v, predModel(e, 77, 0, false));
    d = decode(12, 10, 1, 77, 60, e, 1);
    EXPECT_EQ(d.lag, 77);
    d = decode(12, 61, 1, 77, 60, e, 0);
    EXPECT_EQ(d.lag, 77);
    d = decode(12, 60, 1, 77, 60, e, 0);  // t0 = 55; q6 = 10: 64
    EXPECT_EQ(d.lag, 64);
    EXPECT_EQ(d.lagBuf, -1);
    // Other modes: the previous good lag rises by 1 up to 143 and becomes the lag.
    for (int mode : {6, 7, 8, 11, 25}) {
        d = decode(mode, 100, 0, 90, 60, e, 1);
        EXPECT_EQ(d.prevGood, 91);
        EXPECT_EQ(d.lag, 91);
        EXPECT_EQ(d.v, predModel(e, 91, 0, true));
        d = decode(mode, 100, 0, 143, 60, e, 1);
        EXPECT_EQ(d.prevGood, 143);
        EXPECT_EQ(d.lag, 143);
    }
    // In background noise with a long voiced hangover, 4.75 to 5.90 keep the decoded lag.
    d = decode(0, 100, 0, 90, 60, e, 1, 1, 5);
    EXPECT_EQ(d.lag, 53);
    EXPECT_EQ(d.prevGood, 91);
    d = decode(3, 100, 0, 90, 60, e, 1, 1, 4);
    EXPECT_EQ(d.lag, 91);
    // 12.2 indices far outside the 9-bit field are held to lag 17..143 and fraction -2..3.
    d = decode(12, -32768, 0, 60, 60, e);
    EXPECT_EQ(d.lag, 17);
    EXPECT_EQ(d.v, predModel(e, 17, 3, false));
    d = decode(12, 32767, 0, 60, 60, e);
    EXPECT_EQ(d.lag, 143);
}

// Convolution of a vector with a Q12 response, rounded.
std::array<Kvo16s, L> convolve(const Kvo16s* v, const Kvo16s* h) {
    std::array<Kvo16s, L> y{};
    for (int n = 0; n < L; ++n) {
        int64_t s = 0;
        for (int i = 0; i <= n; ++i) s += int64_t{v[i]} * h[n - i];
        y[n] = static_cast<Kvo16s>(std::clamp<int64_t>((s + 2048) >> 12, -32768, 32767));
    }
    return y;
}

std::array<Kvo16s, L> decayingImpulse(std::mt19937& g) {
    std::uniform_real_distribution<double> u(-1, 1);
    std::array<Kvo16s, L> h{};
    double a = 4096;
    for (int i = 0; i < L; ++i, a *= 0.8)
        h[i] = static_cast<Kvo16s>(std::lround(a * (i ? 0.6 * u(g) : 1)));
    return h;
}

const int kSearchModes[] = {0, 1, 3, 6, 7, 8, 11, 12};

// Target = filtered past excitation at a known integer lag: the search returns that lag, its
// index decodes to the same lag and vector, in every mode and subframe.
TEST(GsmAmrPitch, SearchFindsTheLagAndItsIndexDecodes) {
    std::mt19937 g(11);
    for (int mode : kSearchModes) {
        int exact = 0, total = 0;
        for (int r = 0; r < 48; ++r) {
            const int sf = r % 4;
            SCOPED_TRACE(testing::Message() << "mode " << mode << " trial " << r);
            Exc e = randomExc(g, 3000);
            const auto h = decayingImpulse(g);
            const int ol = 45 + static_cast<int>(g() % 90);
            const Kvo16s prev = static_cast<Kvo16s>(ol);
            const int T = std::clamp(ol + static_cast<int>(g() % 5) - 2, 41, 143);
            const auto tgt = convolve(e.data() + 154 - T, h.data());
            const Kvo16s ols[2] = {static_cast<Kvo16s>(ol), static_cast<Kvo16s>(ol)};
            Kvo16s lag = prev, frac = 99, index = -1;
            std::array<Kvo16s, L> v{};
            Exc es = e;
            ASSERT_EQ(kvosAdaptiveCodebookSearch_GSMAMR_16s(tgt.data(), h.data(), ols, &lag,
                                                            es.data(), &frac, &index, v.data(),
                                                            static_cast<Kvo16s>(sf), mode),
                      kvoOk);
            ++total;
            exact += lag == T && frac == 0;
            const bool thirds = mode != 12;
            if (thirds)
                EXPECT_TRUE(frac >= -1 && frac <= 1);
            else
                EXPECT_TRUE(frac >= -2 && frac <= 3);
            EXPECT_EQ(v, predModel(e, lag, frac, thirds));
            EXPECT_TRUE(std::equal(v.begin(), v.end(), es.begin() + 154));
            // The decoder, with the same previous lag, gives the same lag and vector.
            const Dec d = decode(mode, index, sf, prev, prev, e);
            EXPECT_EQ(d.lag, lag);
            EXPECT_EQ(d.v, v);
        }
        EXPECT_GE(exact * 10, total * 8) << "mode " << mode;
    }
}

// Open loop with identity weighting filters: the weighted speech is the speech.
struct OlOut {
    Kvo16s lags[2] = {}, flags[2] = {-9, -9};
    Kvo16s tone = 0, hp = 0, median = 60, wgain = 0;
    Kvo16s hist[5] = {40, 41, 42, 43, 44};
    Kvo32s corr = 0, ener = 0;
    std::array<Kvo16s, 143> oldW{};
};

std::vector<Kvo16s> identitySets() {
    std::vector<Kvo16s> a(44, 0);
    for (int s = 0; s < 4; ++s) a[11 * s] = 4096;
    return a;
}

OlOut openLoop(int form, int mode, const std::vector<Kvo16s>& speech,
               const std::array<Kvo16s, 143>& oldW, Kvo16s wgain = 0, Kvo16s median = 0) {
    const auto a = identitySets();
    OlOut o;
    o.oldW = oldW;
    o.wgain = wgain;
    if (median > 0) {
        o.median = median;
        for (auto& v : o.hist) v = median;
    }
    KvoStatus st;
    if (form == 0)
        st = kvosOpenLoopPitchSearchNonDTX_GSMAMR_16s(a.data(), a.data(), speech.data(), &o.median,
                                                      &o.wgain, o.hist, o.oldW.data(), o.lags,
                                                      o.flags, mode);
    else if (form == 1)
        st = kvosOpenLoopPitchSearchDTXVAD1_GSMAMR_16s(a.data(), a.data(), speech.data(), &o.tone,
                                                       &o.median, &o.wgain, o.hist, o.oldW.data(),
                                                       &o.hp, o.lags, o.flags, mode);
    else
        st = kvosOpenLoopPitchSearchDTXVAD2_GSMAMR_16s32s(
            a.data(), a.data(), speech.data(), &o.median, &o.wgain, o.hist, o.oldW.data(), &o.corr,
            &o.ener, o.lags, o.flags, mode);
    EXPECT_EQ(st, kvoOk);
    return o;
}

// Periodic signal: one random period of P samples repeated, 143 + 160 samples.
std::vector<Kvo16s> periodic(int P, int amp, int n) {
    std::mt19937 g(static_cast<uint32_t>(P));
    std::uniform_int_distribution<int> u(-amp, amp);
    std::vector<Kvo16s> period(P);
    for (auto& v : period) v = static_cast<Kvo16s>(u(g));
    std::vector<Kvo16s> y(n);
    for (int i = 0; i < n; ++i) y[i] = period[i % P];
    return y;
}

TEST(GsmAmrPitch, OpenLoopFindsThePeriod) {
    for (int P : {37, 57, 101}) {
        const auto all = periodic(P, 3000, 143 + 160);
        std::array<Kvo16s, 143> oldW{};
        std::copy(all.begin(), all.begin() + 143, oldW.begin());
        const std::vector<Kvo16s> speech(all.begin() + 133, all.end());  // 10 history + 160
        for (int mode : {0, 6, 11, 12}) {
            SCOPED_TRACE(testing::Message() << "P " << P << " mode " << mode);
            for (int form = 0; form < 3; ++form) {
                const OlOut o = openLoop(form, mode, speech, oldW, 32767, static_cast<Kvo16s>(P));
                EXPECT_EQ(o.lags[0], P);
                EXPECT_EQ(o.lags[1], P);
                // The memory takes the last 143 weighted (= speech) samples.
                EXPECT_TRUE(std::equal(o.oldW.begin(), o.oldW.end(), all.end() - 143));
                if (mode == 11) {
                    EXPECT_GE(o.flags[0], 1);
                    EXPECT_GE(o.flags[1], 1);
                    EXPECT_EQ(o.median, P);
                    EXPECT_EQ(o.wgain, 32767);
                } else {
                    EXPECT_EQ(o.flags[0], 0);
                    EXPECT_EQ(o.flags[1], 0);
                }
                if (form == 1) {
                    // Strongly periodic: the tone bit; 4.75 and 5.15 also set 0x2000.
                    EXPECT_EQ(o.tone, 0x6000);
                    EXPECT_GT(o.hp, 0);
                }
                if (form == 2 && mode != 0 && mode != 1 && mode != 11) {
                    // Doubled correlation and energy at the chosen lags (block energy in the
                    // unscaled range).
                    int64_t c = 0, e = 0;
                    for (int h = 0; h < 2; ++h)
                        for (int j = 0; j < 80; ++j) {
                            const int n = 143 + 80 * h + j;
                            c += int64_t{all[n]} * all[n - P];
                            e += int64_t{all[n - P]} * all[n - P];
                        }
                    EXPECT_EQ(o.corr, 2 * c);
                    EXPECT_EQ(o.ener, 2 * e);
                }
            }
        }
    }
}

// 64-bit model of VAD option 1's high-pass correlation maximum on the second half frame:
// M = max |2 c(l) - c(l+1) - c(l-1)|, D = |4 r0 - 4 r1|, q = ((M' >> 17) << 15) / (D' >> 16)
// with M', D' normalised, shifted by a - 1 - b.
TEST(GsmAmrPitch, HighPassCorrelationMatchesModel) {
    std::mt19937 g(77);
    for (int r = 0; r < 40; ++r) {
        SCOPED_TRACE(r);
        std::uniform_int_distribution<int> u(-2500, 2500);
        std::vector<Kvo16s> all(303);
        int acc = 0;
        for (auto& v : all) v = static_cast<Kvo16s>(acc = (r % 2 ? acc / 2 : 0) + u(g));
        std::array<Kvo16s, 143> oldW{};
        std::copy(all.begin(), all.begin() + 143, oldW.begin());
        const OlOut o = openLoop(1, 7, std::vector<Kvo16s>(all.begin() + 133, all.end()), oldW);
        const int b0 = 223;  // second half block
        int64_t en = 0;
        for (int n = b0 - 143; n < b0 + 80; ++n) en += int64_t{all[n]} * all[n];
        ASSERT_TRUE(en >= 0x80000 && en < 0x40000000);
        auto c = [&](int lag) {
            int64_t s = 0;
            for (int j = 0; j < 80; ++j) s += int64_t{all[b0 + j]} * all[b0 + j - lag];
            return 2 * s;
        };
        auto s32 = [](int64_t v) { return std::clamp<int64_t>(v, INT32_MIN, INT32_MAX); };
        int64_t M = INT32_MIN;
        for (int l = 21; l <= 142; ++l)
            M = std::max(M, std::abs(s32(s32(s32(2 * c(l)) - c(l + 1)) - c(l - 1))));
        const int64_t D = std::abs(s32(2 * c(0)) - s32(2 * c(1)));
        auto norm = [](int64_t v) {
            int n = 0;
            while (v != 0 && (v << n) < (int64_t{1} << 30)) ++n;
            return n;
        };
        const int a = norm(M), b = norm(D);
        const int64_t den = (D << b) >> 16;
        const int64_t q = den == 0 ? 0 : ((((M << a) >> 17) << 15) / den);
        const int sh = a - 1 - b;
        const int64_t want = sh >= 0 ? q >> sh : std::min<int64_t>(q << -sh, 32767);
        EXPECT_EQ(o.hp, want);
    }
}

// Stable order-10 LP set (Q12) from five pole pairs.
std::vector<double> lpcFromPoles(std::mt19937& g, double rmax) {
    std::uniform_real_distribution<double> u(0.1, 3.0), r(0.5, rmax);
    std::vector<double> a = {1};
    for (int k = 0; k < 5; ++k) {
        const double rad = r(g), th = u(g);
        const double c1 = -2 * rad * std::cos(th), c2 = rad * rad;
        std::vector<double> b(a.size() + 2, 0);
        for (size_t i = 0; i < a.size(); ++i) {
            b[i] += a[i];
            b[i + 1] += c1 * a[i];
            b[i + 2] += c2 * a[i];
        }
        a = b;
    }
    return a;
}
std::vector<Kvo16s> q12(const std::vector<double>& a, double gamma = 1) {
    std::vector<Kvo16s> o(11);
    double p = 1;
    for (int i = 0; i < 11; ++i, p *= gamma)
        o[i] = static_cast<Kvo16s>(std::lround(a[i] * p * 4096));
    return o;
}
// Direct-form filter num/den (Q12 integer coefficients), double precision, zero state.
std::vector<double> iir(const std::vector<Kvo16s>& num, const std::vector<Kvo16s>& den,
                        const std::vector<double>& x) {
    std::vector<double> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        double s = 0;
        for (int k = 0; k <= 10 && k <= static_cast<int>(n); ++k) s += num[k] / 4096.0 * x[n - k];
        for (int k = 1; k <= 10 && k <= static_cast<int>(n); ++k) s -= den[k] / 4096.0 * y[n - k];
        y[n] = s;
    }
    return y;
}

TEST(GsmAmrPitch, ImpulseResponseResidualAndTargetFollowTheFilters) {
    std::mt19937 g(31);
    std::uniform_int_distribution<int> u(-3000, 3000);
    const std::vector<Kvo16s> one = {4096, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (int r = 0; r < 20; ++r) {
        SCOPED_TRACE(r);
        const auto a = lpcFromPoles(g, 0.75);  // gains that keep every stage in 16 bits
        const auto aq = q12(a), w1 = q12(a, 0.9), w2 = q12(a, 0.6);
        // Speech made by 1/Aq from zero state, with zero history.
        std::vector<double> ex(40);
        for (auto& v : ex) v = u(g) / 4.0;
        const auto sp = iir(one, aq, ex);
        std::vector<Kvo16s> speech(50, 0);
        for (int i = 0; i < 40; ++i)
            speech[10 + i] = static_cast<Kvo16s>(std::lround(std::clamp(sp[i], -32768.0, 32767.0)));
        std::vector<double> spd(speech.begin() + 10, speech.end());
        const Kvo16s zero[10] = {};
        std::array<Kvo16s, L> h{}, res{}, tgt{};
        ASSERT_EQ(
            kvosImpulseResponseTarget_GSMAMR_16s(speech.data(), w1.data(), w2.data(), aq.data(),
                                                 zero, zero, h.data(), res.data(), tgt.data()),
            kvoOk);
        // Residual: A(z) applied to the speech.
        const auto resd = iir(aq, one, spd);
        // Impulse response of A1 / (Aq A2), and target A1/A2 of the speech (zero memories).
        std::vector<double> d(40, 0);
        d[0] = 1;
        const auto hd = iir(w1, w2, iir(one, aq, d));
        const auto td = iir(w1, w2, iir(one, aq, resd));
        // Rounding of two recursive filters in 16 bits: a few units per thousand of the peak.
        double hmax = 0, tmax = 0;
        for (int i = 0; i < L; ++i) {
            hmax = std::max(hmax, std::abs(4096 * hd[i]));
            tmax = std::max(tmax, std::abs(td[i]));
        }
        for (int i = 0; i < L; ++i) {
            EXPECT_NEAR(res[i], resd[i], 1.0) << i;
            EXPECT_NEAR(h[i], 4096 * hd[i], 4.0 + 0.005 * hmax) << i;
            EXPECT_NEAR(tgt[i], td[i], 4.0 + 0.005 * tmax) << i;
        }
    }
}

struct PostState {
    Kvo16s tilt = 0, gain = 4096;
    std::array<Kvo16s, 10> hist{}, mem{};
};

std::array<Kvo16s, 160> post(PostState& s, const std::vector<Kvo16s>& lpc,
                             const std::vector<Kvo16s>& x, int mode) {
    std::array<Kvo16s, 160> y{};
    EXPECT_EQ(kvosPostFilter_GSMAMR_16s(lpc.data(), x.data(), &s.tilt, &s.gain, s.hist.data(),
                                        s.mem.data(), y.data(), mode),
              kvoOk);
    return y;
}

// 64-bit model of the gain control.  With A(z) = a0 alone (a0 = 2048, 4096 or 8192) the
// formant stages reduce to two rounded, saturated scalings and the tilt factor is 0, so the
// whole post filter has an exact model.
int64_t sat(int64_t v, int64_t lo, int64_t hi) {
    return std::clamp(v, lo, hi);
}
int64_t agcEnergy(const Kvo16s* x) {
    int64_t e = 0;
    for (int i = 0; i < 40; ++i) e += int64_t{x[i]} * x[i];
    if (2 * e <= INT32_MAX) return e >> 3;
    e = 0;
    for (int i = 0; i < 40; ++i) e += int64_t{x[i] >> 2} * (x[i] >> 2);
    return std::min<int64_t>(2 * e, INT32_MAX);
}
int normOf(int64_t v) {
    int n = 0;
    while ((v << n) < (int64_t{1} << 30)) ++n;
    return n;
}
std::array<Kvo16s, 160> postModel(const std::vector<Kvo16s>& x, int a0, Kvo16s& gain) {
    auto scale = [a0](int64_t v) {  // round16(sat32((2 a0 v) << 3))
        const int64_t t = sat(2 * a0 * v * 8, INT32_MIN, INT32_MAX);
        return t >= 0x7fff8000 ? int64_t{32767} : (t + 32768) >> 16;
    };
    std::array<Kvo16s, 160> y{};
    for (int s = 0; s < 4; ++s) {
        const Kvo16s* in = x.data() + 40 * s;
        Kvo16s* out = y.data() + 40 * s;
        for (int i = 0; i < 40; ++i) out[i] = static_cast<Kvo16s>(scale(scale(in[i])));
        const int64_t eo = agcEnergy(out);
        if (eo == 0) {
            gain = 0;
            continue;
        }
        const int64_t ei = agcEnergy(in);
        int64_t g0 = 0;
        if (ei != 0) {
            const int a = normOf(eo), b = normOf(ei);
            const int64_t gOut = (((eo << a) >> 1) + 32768) >> 16;
            const int64_t gIn = std::min<int64_t>(((ei << b) + 32768) >> 16, 32767);
            int64_t r = gOut >= gIn ? 32767 : (gOut << 15) / gIn;
            const int u = b - a;
            r = u < -7 ? r >> (-8 - u) : std::min<int64_t>(r << (u + 8), INT32_MAX);
            Kvo32s rr = static_cast<Kvo32s>(r);
            kvosInvSqrt_32s_I(&rr, 1);
            const int64_t t = std::min<int64_t>(int64_t{rr} << 9, INT32_MAX);
            const int64_t i16 = t >= 0x7fff8000 ? 32767 : (t + 32768) >> 16;
            g0 = (i16 * 3276) >> 15;
        }
        int64_t g = gain;
        for (int i = 0; i < 40; ++i) {
            g = sat(((g * 29491) >> 15) + g0, -32768, 32767);
            out[i] = static_cast<Kvo16s>(sat((int64_t{out[i]} * g) >> 12, -32768, 32767));
        }
        gain = static_cast<Kvo16s>(g);
    }
    return y;
}

TEST(GsmAmrPostFilter, MatchesTheGainControlModel) {
    std::mt19937 g(2024);
    for (int r = 0; r < 300; ++r) {
        SCOPED_TRACE(r);
        const int a0 = r % 3 == 0 ? 2048 : (r % 3 == 1 ? 4096 : 8192);
        const int amp = r % 4 == 0 ? 32767 : (r % 4 == 1 ? 40 : (r % 4 == 2 ? 3000 : 12000));
        std::uniform_int_distribution<int> u(-amp - (amp == 32767), amp);
        std::vector<Kvo16s> x(160);
        for (auto& v : x) v = static_cast<Kvo16s>(u(g));
        if (r % 10 == 3) std::fill(x.begin() + 40, x.begin() + 80, Kvo16s{0});
        std::vector<Kvo16s> lpc(44, 0);
        for (int s = 0; s < 4; ++s) lpc[11 * s] = static_cast<Kvo16s>(a0);
        PostState st;
        st.gain = static_cast<Kvo16s>(r % 5 == 0 ? 32767 : static_cast<int>(g() % 8192));
        Kvo16s mg = st.gain;
        const auto y = post(st, lpc, x, r % 2 ? 12 : 7);
        EXPECT_EQ(y, postModel(x, a0, mg));
        EXPECT_EQ(st.gain, mg);
    }
}

TEST(GsmAmrPitch, ArgumentChecks) {
    using kvosc::test::BadArgs;
    const auto sets = identitySets();
    {
        BadArgs t("kvosOpenLoopPitchSearchNonDTX_GSMAMR_16s");
        auto w1 = t.in<Kvo16s>("pWeighted1", 44, sets), w2 = t.in<Kvo16s>("pWeighted2", 44, sets);
        auto sp = t.in<Kvo16s>("pSpeech", 170);
        auto med = t.inout<Kvo16s>("pMedianLag", 1), wg = t.inout<Kvo16s>("pWeightGain", 1);
        auto hist = t.inout<Kvo16s>("pLagHistory", 5), old = t.inout<Kvo16s>("pOldWeighted", 143);
        auto lags = t.out<Kvo16s>("pDstLags", 2), fl = t.out<Kvo16s>("pDstGainFlags", 2);
        auto m = t.value<KvoSpeechRate>("mode", 11, {{2, kvoErrRange}, {26, kvoErrRange}});
        t.run([&](const BadArgs::Call& c) {
            return kvosOpenLoopPitchSearchNonDTX_GSMAMR_16s(c(w1), c(w2), c(sp), c(med), c(wg),
                                                            c(hist), c(old), c(lags), c(fl), c(m));
        });
    }
    // The DTX forms: nulls, then the mode.
    std::vector<Kvo16s> speech(170, 100), old(143, 0), pair(2, -1), five(5, 40);
    Kvo16s one = 0, med = 40, wg = 0;
    Kvo32s cs = 0, es = 0;
    auto vad1 = [&](Kvo16s* pHp, KvoSpeechRate m) {
        return kvosOpenLoopPitchSearchDTXVAD1_GSMAMR_16s(sets.data(), sets.data(), speech.data(),
                                                         &one, &med, &wg, five.data(), old.data(),
                                                         pHp, pair.data(), pair.data(), m);
    };
    auto vad2 = [&](Kvo32s* pEs, KvoSpeechRate m) {
        return kvosOpenLoopPitchSearchDTXVAD2_GSMAMR_16s32s(sets.data(), sets.data(), speech.data(),
                                                            &med, &wg, five.data(), old.data(), &cs,
                                                            pEs, pair.data(), pair.data(), m);
    };
    EXPECT_EQ(vad1(nullptr, 4), kvoErrNullPtr);
    EXPECT_EQ(vad1(&one, 4), kvoErrRange);
    EXPECT_EQ(vad2(nullptr, 9), kvoErrNullPtr);
    EXPECT_EQ(vad2(&es, 9), kvoErrRange);
    EXPECT_EQ(pair[0], -1) << "nothing written on a refused call";
    Kvo16s hOut[40], xOut[40];
    EXPECT_EQ(
        kvosImpulseResponseTarget_GSMAMR_16s(speech.data(), sets.data(), sets.data(), sets.data(),
                                             old.data(), old.data(), hOut, nullptr, xOut),
        kvoErrNullPtr);
    {
        BadArgs t("kvosAdaptiveCodebookSearch_GSMAMR_16s");
        auto x = t.in<Kvo16s>("pTarget", 40), h = t.in<Kvo16s>("pImpulse", 40);
        auto ol = t.in<Kvo16s>("pOpenLoopLags", 2, {60, 70});
        auto lag = t.inout<Kvo16s>("pLag", 1, {65});
        auto e = t.inout<Kvo16s>("pExcitation", kExc);
        auto fr = t.out<Kvo16s>("pDstFraction", 1), ix = t.out<Kvo16s>("pDstIndex", 1);
        auto v = t.out<Kvo16s>("pDstVector", 40);
        auto sf = t.value<Kvo16s>("subframe", 1, {{-1, kvoErrSize}, {4, kvoErrSize}});
        auto m = t.value<KvoSpeechRate>("mode", 8, {{25, kvoErrRange}, {2, kvoErrRange}});
        t.combo(kvoErrSize, {t.bad(sf, 1), t.bad(m, 0)});
        t.run([&](const BadArgs::Call& c) {
            return kvosAdaptiveCodebookSearch_GSMAMR_16s(c(x), c(h), c(ol), c(lag), c(e), c(fr),
                                                         c(ix), c(v), c(sf), c(m));
        });
    }
    {
        BadArgs t("kvosAdaptiveCodebookDecode_GSMAMR_16s");
        auto pg = t.inout<Kvo16s>("pPrevGoodLag", 1, {60});
        auto lb = t.inout<Kvo16s>("pLagBuffer", 1, {60});
        auto e = t.inout<Kvo16s>("pExcitation", kExc);
        auto lag = t.inout<Kvo16s>("pLag", 1, {60});
        auto v = t.out<Kvo16s>("pDstVector", 40);
        auto idx = t.value<Kvo32s>("index", 100, {{512, kvoErrRange}, {-1, kvoErrRange}});
        auto sf = t.value<Kvo16s>("subframe", 2, {{4, kvoErrSize}});
        auto m = t.value<KvoSpeechRate>("mode", 7, {{5, kvoErrRange}});
        t.combo(kvoErrSize, {t.bad(sf, 0), t.bad(m, 0)});
        t.combo(kvoErrRange, {t.bad(m, 0), t.bad(idx, 0)});
        t.run([&](const BadArgs::Call& c) {
            return kvosAdaptiveCodebookDecode_GSMAMR_16s(c(idx), c(pg), c(lb), c(e), c(lag), c(v),
                                                         c(sf), 0, 0, 0, c(m));
        });
    }
    Kvo16s tilt = 0, gain = 4096, y[160];
    for (KvoSpeechRate bad : {10, -3}) {
        EXPECT_EQ(kvosPostFilter_GSMAMR_16s(sets.data(), speech.data(), &tilt, &gain, old.data(),
                                            old.data(), y, bad),
                  kvoErrRange);
        EXPECT_EQ(kvosPostFilter_GSMAMR_16s(sets.data(), speech.data(), &tilt, &gain, old.data(),
                                            nullptr, y, bad),
                  kvoErrNullPtr);
    }
    EXPECT_EQ(gain, 4096);
}

}  // namespace
