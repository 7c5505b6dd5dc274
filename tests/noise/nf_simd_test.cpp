// The SSE2 kernels of the noise filter against their scalar twins, bit for bit, on
// random, integer-valued and extreme data (NaN, infinities, signed zeros, edges of the
// dead zone and of the saturation).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

#include "noise/nf_ec.h"
#include "numeric/cpu.h"

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
const float kExtremes[] = {0.0f,   -0.0f,    0.5f,     -0.5f,     0.49999997f, -0.49999997f, 0.05f,
                           -0.05f, 32767.0f, 32767.5f, -32768.0f, -32768.5f,   1e30f,        -1e30f,
                           kInf,   -kInf,    kNan,     1e-40f,    -1e-40f};

float draw(std::mt19937& g, int mode) {
    switch (mode) {
        case 0:
            return std::uniform_real_distribution<float>(-40000.0f, 40000.0f)(g);
        case 1:
            return static_cast<float>(std::uniform_int_distribution<int>(-32768, 32767)(g));
        case 2:
            return std::uniform_real_distribution<float>(-1.0f, 1.0f)(g);
        default:
            return kExtremes[g() % (sizeof(kExtremes) / sizeof(float))];
    }
}

TEST(NoiseSimdTwins, KernelsMatchTheirScalarForms) {
    for (int mode = 0; mode < 4; ++mode) {
        for (unsigned seed = 1; seed <= 40; ++seed) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << " seed " << seed);
            std::mt19937 g(seed);
            float x[4099];
            for (float& v : x) v = draw(g, mode);
            for (int n : {0, 1, 3, 4, 7, 128, 256, 4096, 4099}) {
                const double a = kvo::nf::sumSquares(x, n), b = kvo::nf::sumSquaresScalar(x, n);
                const double c = kvo::nf::sumSquaresSse2(x, n);
                EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << n;
                EXPECT_EQ(std::memcmp(&c, &b, sizeof c), 0) << n;
                if (kvo::cpuHasAvx2()) {
                    const double d = kvo::nf::sumSquaresAvx2(x, n);
                    EXPECT_EQ(std::memcmp(&d, &b, sizeof d), 0) << n;
                }
                if (mode == 1) {  // 16-bit values: the exact sum whatever the order
                    int64_t e = 0;
                    for (int i = 0; i < n; ++i) e += static_cast<int64_t>(x[i]) * int64_t(x[i]);
                    EXPECT_EQ(a, static_cast<double>(e)) << n;
                }
            }
            for (float off : {0.0f, 37.5f, -1e-40f, kNan}) {
                for (int n : {0, 1, 2, 4, 5, 8, 127, 128, 512}) {
                    int want = 0;  // the product of neighbours below zero
                    for (int i = 1; i < n; ++i)
                        want += double(x[i - 1] - off) * double(x[i] - off) < 0.0 ? 1 : 0;
                    EXPECT_EQ(kvo::nf::zeroCrossings(x, n, off), want) << n << " " << off;
                    EXPECT_EQ(kvo::nf::zeroCrossingsScalar(x, n, off), want) << n << " " << off;
                }
            }
            for (bool high : {false, true}) {
                float p[64], q[64];
                for (float& v : p) v = draw(g, mode) * (mode == 2 ? 0.6f : 1.0f);
                std::memcpy(q, p, sizeof p);
                kvo::nf::finishOlaTwins(p, high, true);
                kvo::nf::finishOlaTwins(q, high, false);
                EXPECT_EQ(std::memcmp(p, q, sizeof p), 0) << high;
            }
            // Gains from powers spread over the whole clamp range, with extreme records.
            static KvoFilterNoise32fState s1, s2;
            std::memset(&s1, 0, sizeof s1);
            for (int k = 0; k < 65; ++k) {
                s1.powerSpec[k] = std::ldexp(std::fabs(static_cast<double>(draw(g, 1))), g() % 30);
                s1.invNoiseSpec[k] = mode == 3 ? draw(g, 3) : std::ldexp(1.0, -int(g() % 40));
                s1.snrAvg[k] = std::fabs(draw(g, mode == 3 ? 3 : 0));
            }
            s1.strength = mode == 3 ? 1.0f / 8 : 0.03125f;
            s1.floorLow = 0.003f;
            s1.floorHigh = mode == 2 ? 1.5f : 0.275f;
            std::memcpy(&s2, &s1, sizeof s1);
            float G1[65], G2[65];
            for (int rep = 0; rep < 3; ++rep) {
                kvo::nf::lowGains(&s1, G1);
                kvo::nf::lowGainsScalar(&s2, G2);
                EXPECT_EQ(std::memcmp(G1, G2, sizeof G1), 0);
                EXPECT_EQ(std::memcmp(s1.snrAvg, s2.snrAvg, sizeof s1.snrAvg), 0);
            }
        }
    }
}

}  // namespace
