// G.722.1 transform steps beyond the recorded data: full-scale, saturating and zero frames
// against an operator-by-operator model of the fixed-point arithmetic (saturating add,
// negate, doubled multiply-accumulate, shift, round), and the synthesis windowing at full
// scale against a 64-bit model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "g72x/g7221.h"
#include "g72x/g7221_tables.h"
#include "kvosc.h"

namespace {

namespace op {
int16_t sat(int64_t v) {
    return static_cast<int16_t>(std::clamp<int64_t>(v, -32768, 32767));
}
int32_t Lsat(int64_t v, int& hits) {
    const int64_t c = std::clamp<int64_t>(v, INT32_MIN, INT32_MAX);
    hits += c != v;
    return static_cast<int32_t>(c);
}
int16_t negate(int16_t a) {
    return sat(-int32_t{a});
}
int32_t mac(int32_t acc, int16_t a, int16_t b, int& hits, int sign = 1) {
    return Lsat(acc + sign * 2 * int64_t{a} * b, hits);
}
int16_t round(int32_t x) {
    return sat((int64_t{x} + 32768) >> 16);
}
}  // namespace op

// Saturation events of the model: later folds, ten-point sums, rotations.
struct Hits {
    int fold = 0, core = 0, rotation = 0;
};

// Type IV transform in basic operators.  inverse selects the decoder's form.
std::vector<int16_t> modelDct(std::vector<int16_t> x, bool inverse, Hits& hits) {
    const int len = static_cast<int>(x.size()), D = len == 320 ? 6 : 7;
    const int16_t* dither =
        len == 320 ? kvo::tab::cnstDither_G722_7kHz : kvo::tab::cnstDither_G722_14kHz;
    if (!inverse && len == 320)
        for (int i = 0; i < len; ++i) x[i] = op::sat(x[i] + kvo::tab::cnstAnalBias_G722[i]);
    std::vector<int16_t> y(len);
    for (int s = 0; s <= D - 2; ++s) {
        const int z = len >> s;
        for (int base = 0; base < len; base += z)
            for (int i = 0; i < z / 2; ++i) {
                const int16_t a = x[base + 2 * i], b = x[base + 2 * i + 1];
                int16_t lo, hi;
                if (!inverse) {
                    lo = static_cast<int16_t>((int32_t{a} + b) >> 1);
                    hi = static_cast<int16_t>((int32_t{a} - b) >> 1);
                } else if (s == 0) {
                    lo = static_cast<int16_t>((int32_t{op::sat(a + dither[2 * i])} + b) >> 1);
                    hi = static_cast<int16_t>((int32_t{op::sat(a + dither[2 * i + 1])} - b) >> 1);
                } else {
                    const int16_t nb = op::negate(b);
                    hits.fold += (a + b != op::sat(a + b)) + (a + nb != op::sat(a + nb));
                    lo = op::sat(a + b);
                    hi = op::sat(a + nb);
                }
                y[base + i] = lo;
                y[base + z - 1 - i] = hi;
            }
        x.swap(y);
    }
    const auto& m = inverse ? kvo::tab::cnstDct10Inv_G722 : kvo::tab::cnstDct10Fwd_G722;
    for (int base = 0; base < len; base += 10)
        for (int k = 0; k < 10; ++k) {
            int32_t acc = 0;
            for (int j = 0; j < 10; ++j) acc = op::mac(acc, x[base + j], m[k][j], hits.core);
            y[base + k] = op::round(acc);
        }
    x.swap(y);
    const auto& cs = inverse ? kvo::tab::cosTable : kvo::tab::cnstCosSinFwd_G722;
    for (int v = D - 2; v >= 0; --v) {
        const int z = len >> v, h = z / 2;
        int first = 0;  // pair offset of this stage: the smaller stages precede it
        for (int zz = 20; zz < z; zz *= 2) first += zz / 2;
        for (int base = 0; base < len; base += z)
            for (int k = 0; k < h; ++k) {
                const int16_t c = cs[first + k][0], s = cs[first + k][1];
                const int16_t a = x[base + k], b = x[base + h + k];
                const int sg = k % 2 ? 1 : -1;  // even pairs subtract in p, odd ones in q
                int32_t p = op::mac(op::mac(0, a, c, hits.rotation), b, s, hits.rotation, sg);
                int32_t q = op::mac(op::mac(0, a, s, hits.rotation), b, c, hits.rotation, -sg);
                if (inverse) {
                    p = op::Lsat(2 * int64_t{p}, hits.rotation);
                    q = op::Lsat(2 * int64_t{q}, hits.rotation);
                }
                y[base + k] = op::round(p);
                y[base + z - 1 - k] = op::round(q);
            }
        x.swap(y);
    }
    if (inverse && len == 320)
        for (int i = 0; i < len; ++i)
            x[i] = op::sat(x[i] + kvo::tab::cnstSynthesisBias7khz_G722[i]);
    return x;
}

std::vector<int16_t> run(bool inverse, const std::vector<int16_t>& x) {
    std::vector<int16_t> y(x.size());
    const Kvo32s len = static_cast<Kvo32s>(x.size());
    EXPECT_EQ(inverse ? kvosDCTInv_G7221_16s(x.data(), y.data(), len)
                      : kvosDCTFwd_G7221_16s(x.data(), y.data(), len),
              kvoOk);
    return y;
}

// Full-scale frames: constant and alternating extremes, a fold case (the inverse's later
// folds add negate(b): a = -1 from the pair -2, 0 and b = -32768 give 32766, not 32767),
// random signs of full scale and random words.
std::vector<std::vector<int16_t>> fullScaleFrames(int len, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<std::vector<int16_t>> frames(5, std::vector<int16_t>(len, 0));
    for (int i = 0; i < len; ++i) {
        frames[0][i] = 32767;
        frames[1][i] = -32768;
        frames[2][i] = (i & 1) ? 32767 : -32768;
        frames[3][i] = (i & 2) ? -32768 : 32767;
    }
    frames[4][0] = -2, frames[4][2] = frames[4][3] = -32768;
    for (int r = 0; r < 16; ++r) {
        std::vector<int16_t> f(len);
        for (auto& v : f) v = r % 2 ? static_cast<int16_t>(rng()) : ((rng() & 1) ? 32767 : -32768);
        frames.push_back(f);
    }
    return frames;
}

// The frames reach the saturating paths that the coder's data never reaches: the
// inverse's later folds, its ten-point sums and its rotations.
TEST(G7221Transform, FullScaleAndZeroFramesMatchOperatorModel) {
    for (bool inverse : {false, true})
        for (int len : {320, 640}) {
            Hits hits;
            auto frames = fullScaleFrames(len, 7u + len + inverse);
            frames.emplace_back(len, 0);  // at 320 the biases are all that is left
            for (size_t f = 0; f < frames.size(); ++f) {
                SCOPED_TRACE(testing::Message() << inverse << " len " << len << " frame " << f);
                ASSERT_EQ(run(inverse, frames[f]), modelDct(frames[f], inverse, hits));
            }
            EXPECT_TRUE(!inverse || (hits.fold > 0 && hits.core > 0 && hits.rotation > 0)) << len;
        }
}

// Synthesis windowing saturates at full scale (the window pairs sum to about
// 0.78 in Q15 and the sum is scaled by 8): 64-bit model with clamping.
TEST(G7221Windowing, SynthesisSaturatesAtFullScale) {
    std::mt19937 rng(17);
    for (int len : {320, 640}) {
        const int h = len / 2;
        const int16_t* w = len == 320 ? &kvo::tab::cnstMLT2Samples_G722_7kHz[0][0]
                                      : &kvo::tab::cnstMLT2Samples_G722_14kHz[0][0];
        int clamped = 0;
        for (int r = 0; r < 20; ++r) {
            std::vector<int16_t> x(len), mem(h), y(len);
            for (auto& v : x) v = (rng() & 1) ? int16_t{32767} : int16_t{-32768};
            for (auto& v : mem) v = static_cast<int16_t>(rng());
            const auto mem0 = mem;
            ASSERT_EQ(kvosDecomposeDCTToMLT_G7221_16s(x.data(), mem.data(), y.data(), len), kvoOk);
            for (int k = 0; k < len; ++k) {
                const int64_t v =
                    k < h
                        ? int64_t{w[2 * k]} * x[h - 1 - k] + int64_t{w[2 * k + 1]} * mem0[k]
                        : int64_t{w[2 * k]} * mem0[len - 1 - k] + int64_t{w[2 * k + 1]} * x[k - h];
                const int64_t r16 = (8 * v + 32768) >> 16;  // round16(8 v) exactly, then clamped
                clamped += r16 != std::clamp<int64_t>(r16, -32768, 32767);
                ASSERT_EQ(y[k], std::clamp<int64_t>(r16, -32768, 32767)) << len << " k " << k;
            }
            EXPECT_EQ(std::vector<int16_t>(x.begin() + h, x.end()), mem);
        }
        EXPECT_GT(clamped, 0);
    }
}

}  // namespace
