// G.722.1 transform steps beyond the recorded data: full-scale and saturating
// inputs against an operator-by-operator model of the fixed-point arithmetic
// (saturating add, negate, doubled multiply-accumulate, shift, round), the
// zero frames, and the synthesis windowing at full scale against a 64-bit model.
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
    return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}
int32_t Lsat(int64_t v, int& hits) {
    if (v > INT32_MAX || v < INT32_MIN) ++hits;
    return static_cast<int32_t>(v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : v));
}
int16_t negate(int16_t a) {
    return a == -32768 ? 32767 : static_cast<int16_t>(-a);
}
int32_t mac(int32_t acc, int16_t a, int16_t b, int& hits) {
    return Lsat(int64_t{acc} + 2 * int64_t{a} * b, hits);
}
int32_t msu(int32_t acc, int16_t a, int16_t b, int& hits) {
    return Lsat(int64_t{acc} - 2 * int64_t{a} * b, hits);
}
int32_t shl(int32_t x, int n, int& hits) {
    return Lsat(int64_t{x} * (int64_t{1} << n), hits);
}
int16_t round(int32_t x) {
    return x >= 0x7fff8000 ? 32767 : static_cast<int16_t>((int64_t{x} + 32768) >> 16);
}
}  // namespace op

// Saturation events of the model, per phase.
struct Hits {
    int fold = 0, core = 0, rotation = 0;
};

int stagesOf(int len) {
    return len == 320 ? 6 : 7;
}

// Type IV transform in basic operators.  inverse selects the decoder's form.
std::vector<int16_t> modelDct(std::vector<int16_t> x, bool inverse, Hits& hits) {
    const int len = static_cast<int>(x.size()), D = stagesOf(len);
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
                int32_t p, q;
                if (k % 2 == 0) {
                    p = op::msu(op::mac(0, a, c, hits.rotation), b, s, hits.rotation);
                    q = op::mac(op::mac(0, a, s, hits.rotation), b, c, hits.rotation);
                } else {
                    p = op::mac(op::mac(0, a, c, hits.rotation), b, s, hits.rotation);
                    q = op::msu(op::mac(0, a, s, hits.rotation), b, c, hits.rotation);
                }
                if (inverse) {
                    p = op::shl(p, 1, hits.rotation);
                    q = op::shl(q, 1, hits.rotation);
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

// Full-scale frames: constant extremes, alternating extremes, random signs of
// full scale, random words.
std::vector<std::vector<int16_t>> fullScaleFrames(int len, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<std::vector<int16_t>> frames;
    for (int16_t c : {int16_t{32767}, int16_t{-32768}}) frames.emplace_back(len, c);
    std::vector<int16_t> alt(len), pairs(len);
    for (int i = 0; i < len; ++i) {
        alt[i] = (i & 1) ? 32767 : -32768;
        pairs[i] = (i & 2) ? -32768 : 32767;
    }
    frames.push_back(alt);
    frames.push_back(pairs);
    // the inverse's later folds add negate(b): a = -1 (from the pair -2, 0) and
    // b = -32768 (from -32768, -32768) give 32766, not 32767
    std::vector<int16_t> fold(len, 0);
    fold[0] = -2, fold[2] = fold[3] = -32768;
    frames.push_back(fold);
    for (int r = 0; r < 24; ++r) {
        std::vector<int16_t> f(len);
        for (auto& v : f)
            v = r % 2 ? static_cast<int16_t>(rng())
                      : ((rng() & 1) ? int16_t{32767} : int16_t{-32768});
        frames.push_back(f);
    }
    return frames;
}

TEST(G7221Transform, FullScaleMatchesOperatorModel) {
    for (bool inverse : {false, true})
        for (int len : {320, 640}) {
            Hits total;
            const auto frames = fullScaleFrames(len, 7u + len + inverse);
            for (size_t f = 0; f < frames.size(); ++f) {
                SCOPED_TRACE(::testing::Message() << (inverse ? "inverse" : "forward") << " len "
                                                  << len << " frame " << f);
                Hits h;
                const auto want = modelDct(frames[f], inverse, h);
                ASSERT_EQ(run(inverse, frames[f]), want);
                total.fold += h.fold;
                total.core += h.core;
                total.rotation += h.rotation;
            }
            // The frames must reach the saturating paths that the coder's data
            // never reaches: the inverse's later folds, its ten-point sums and
            // its rotations.
            if (inverse) {
                EXPECT_GT(total.fold, 0) << len;
                EXPECT_GT(total.core, 0) << len;
                EXPECT_GT(total.rotation, 0) << len;
            }
        }
}

TEST(G7221Transform, ZeroFrames) {
    const std::vector<int16_t> z320(320, 0), z640(640, 0);
    // the dither bit alone shifts out of (d + 0) >> 1: only the bias is left
    const std::vector<int16_t> bias(kvo::tab::cnstSynthesisBias7khz_G722,
                                    kvo::tab::cnstSynthesisBias7khz_G722 + 320);
    EXPECT_EQ(run(true, z320), bias);
    EXPECT_EQ(run(true, z640), z640);
    EXPECT_EQ(run(false, z640), z640);
    // at 320 the forward transform of a zero frame is that of the analysis bias
    std::vector<int16_t> y(320);
    ASSERT_EQ(kvosDCTFwd_G722_16s(z320.data(), y.data()), kvoOk);
    Hits h;
    auto want = modelDct(z320, false, h);
    EXPECT_EQ(y, want);
    EXPECT_NE(y, z320);
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
                // round16(8 v) in exact arithmetic, then clamped
                int64_t r16 = (8 * v + 32768) >> 16;
                if (r16 > 32767 || r16 < -32768) ++clamped;
                r16 = r16 > 32767 ? 32767 : (r16 < -32768 ? -32768 : r16);
                ASSERT_EQ(y[k], r16) << "len " << len << " k " << k;
            }
            EXPECT_EQ(std::vector<int16_t>(x.begin() + h, x.end()), mem);
        }
        EXPECT_GT(clamped, 0);
    }
}

}  // namespace
