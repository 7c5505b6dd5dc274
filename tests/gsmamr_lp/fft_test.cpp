// The 128-point real FFT of VAD option 2 against a double-precision DFT of
// its definition: X[k] = DFT128(x)[k] / 64 in Perm order (DC, Nyquist, then
// real and imaginary parts of bins 1 .. 63).
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kvosc.h"

namespace {

// Largest distance of the fixed-point result from the scaled exact DFT.
double fftError(const std::vector<int16_t>& x) {
    std::vector<int16_t> y(x);
    EXPECT_EQ(kvosFFTFwd_RToPerm_GSMAMR_16s_I(y.data()), kvoOk);
    double worst = 0;
    for (int k = 0; k <= 64; ++k) {
        double re = 0, im = 0;
        for (int n = 0; n < 128; ++n) {
            re += x[n] * std::cos(2 * M_PI * k * n / 128);
            im -= x[n] * std::sin(2 * M_PI * k * n / 128);
        }
        if (k == 0 || k == 64) {
            worst = std::max(worst, std::fabs(re / 64 - y[k == 0 ? 0 : 1]));
        } else {
            worst = std::max(worst, std::fabs(re / 64 - y[2 * k]));
            worst = std::max(worst, std::fabs(im / 64 - y[2 * k + 1]));
        }
    }
    return worst;
}

struct FftCase {
    const char* name;
    int amplitude;
    int kind;  // 0 white noise, 1 sum of tones, 2 impulse train
};

class FftVsDft : public ::testing::TestWithParam<FftCase> {};

// Six halving stages of rounding (at most 3 units) plus the unpacking sum: 6 units.
TEST_P(FftVsDft, WithinSixUnits) {
    const FftCase c = GetParam();
    std::mt19937 rng(77);
    for (int t = 0; t < 40; ++t) {
        SCOPED_TRACE(::testing::Message() << c.name << " seed 77 frame " << t);
        std::vector<int16_t> x(128);
        std::uniform_int_distribution<int> u(-c.amplitude, c.amplitude);
        std::uniform_real_distribution<double> ph(0, 2 * M_PI);
        const double p1 = ph(rng), p2 = ph(rng);
        const int f1 = 1 + t % 60, f2 = 3 + (7 * t) % 55;
        for (int n = 0; n < 128; ++n) {
            if (c.kind == 0) x[n] = static_cast<int16_t>(u(rng));
            if (c.kind == 1)
                x[n] = static_cast<int16_t>(std::lround(c.amplitude * 0.5 *
                                                        (std::sin(2 * M_PI * f1 * n / 128 + p1) +
                                                         std::sin(2 * M_PI * f2 * n / 128 + p2))));
            if (c.kind == 2) x[n] = static_cast<int16_t>(n % (1 + t % 16) == 0 ? c.amplitude : 0);
        }
        ASSERT_LE(fftError(x), 6.0);
    }
}

INSTANTIATE_TEST_SUITE_P(Signals, FftVsDft,
                         ::testing::Values(FftCase{"noise", 12000, 0}, FftCase{"tones", 12000, 1},
                                           FftCase{"pulses", 4000, 2}),
                         [](const ::testing::TestParamInfo<FftCase>& i) {
                             return std::string(i.param.name);
                         });

// Full-scale data saturates the 16-bit sums instead of wrapping: a constant
// -32768 frame keeps its DC term at the negative limit.
TEST(FftSaturation, FullScaleDcStaysNegative) {
    std::vector<int16_t> x(128, -32768);
    ASSERT_EQ(kvosFFTFwd_RToPerm_GSMAMR_16s_I(x.data()), kvoOk);
    EXPECT_EQ(x[0], -32768);
    EXPECT_EQ(x[1], 0);
    for (int k = 2; k < 128; ++k) EXPECT_LE(std::abs(x[k]), 3) << k;
}

}  // namespace
