// Vector paths of the element-wise arithmetic against their scalar twins:
// every length up to three vectors and one, every output and input phase
// within 16 bytes, random and extreme data, aliasing and shifted overlap.
// Outputs are compared with memcmp including the guard elements around them.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "numeric/arith.h"

using namespace kvo;

namespace {

constexpr int kMaxLen = 3 * 8 + 1;
constexpr int kBuf = 64;
const int kScales[] = {0, 1, 2, 3, 15, 16, 17, 30, 31};
const Kvo16s kVals[] = {-32768, 32767, -1, 0, 1, 29491, -12345};

enum Fill { kRandom, kMin, kMax, kAlternating, kFillCount };

void fill(Kvo16s* p, int n, Fill f, std::mt19937& g) {
    for (int i = 0; i < n; ++i) {
        switch (f) {
            case kRandom:
                p[i] = Kvo16s(uint16_t(g()));
                break;
            case kMin:
                p[i] = -32768;
                break;
            case kMax:
                p[i] = 32767;
                break;
            default:
                p[i] = (i & 1) ? Kvo16s(32767) : Kvo16s(-32768);
                break;
        }
    }
}

// Runs op (vector) and twin (scalar) on identical buffers for every length,
// phase and fill; op(a, b, dst, len) with a, b and dst inside the buffers.
template <class Op, class Twin>
void compareAll(Op op, Twin twin) {
    std::mt19937 g(424242);
    alignas(16) Kvo16s a[kBuf], b[kBuf], d1[kBuf], d2[kBuf];
    for (int f = 0; f < kFillCount; ++f)
        for (int len = 1; len <= kMaxLen; ++len)
            for (int od = 0; od < 16; ++od) {
                const int oa = (od * 7 + len) % 16, ob = (od * 3 + 5) % 16;
                fill(a, kBuf, Fill(f), g);
                fill(b, kBuf, f == kAlternating ? kAlternating : Fill((f + 1) % 3), g);
                std::memset(d1, 0x77, sizeof d1);
                std::memset(d2, 0x77, sizeof d2);
                op(a + oa, b + ob, d1 + od, len);
                twin(a + oa, b + ob, d2 + od, len);
                ASSERT_EQ(std::memcmp(d1, d2, sizeof d1), 0)
                    << "fill " << f << " len " << len << " dst phase " << od << " src " << oa << ","
                    << ob;
            }
}

// In place and shifted overlap: the same layout run through both paths.
template <class Op, class Twin>
void compareOverlap(Op op, Twin twin) {
    std::mt19937 g(99);
    alignas(16) Kvo16s x1[kBuf], x2[kBuf], y[kBuf];
    for (int len : {8, 9, 16, 17, 25, 40})
        for (int shift = -3; shift <= 3; ++shift) {
            fill(x1, kBuf, kRandom, g);
            std::memcpy(x2, x1, sizeof x1);
            fill(y, kBuf, kRandom, g);
            op(x1 + 8, y, x1 + 8 + shift, len);
            twin(x2 + 8, y, x2 + 8 + shift, len);
            ASSERT_EQ(std::memcmp(x1, x2, sizeof x1), 0) << "len " << len << " shift " << shift;
            op(y, x1 + 8, x1 + 8 + shift, len);  // second operand overlapped
            twin(y, x2 + 8, x2 + 8 + shift, len);
            ASSERT_EQ(std::memcmp(x1, x2, sizeof x1), 0) << "len " << len << " shift " << shift;
        }
}

}  // namespace

TEST(ArithSimd, MulNR) {
    for (int sf : kScales) {
        SCOPED_TRACE(sf);
        auto op = [sf](const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
            mulNR_16s(a, b, d, n, sf);
        };
        auto tw = [sf](const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
            mulNR_16s_scalar(a, b, d, n, sf);
        };
        compareAll(op, tw);
        compareOverlap(op, tw);
    }
}

TEST(ArithSimd, MulCNR) {
    for (int sf : kScales)
        for (Kvo16s v : kVals) {
            SCOPED_TRACE(testing::Message() << sf << " " << v);
            auto op = [=](const Kvo16s* a, const Kvo16s*, Kvo16s* d, int n) {
                mulCNR_16s(a, v, d, n, sf);
            };
            auto tw = [=](const Kvo16s* a, const Kvo16s*, Kvo16s* d, int n) {
                mulCNR_16s_scalar(a, v, d, n, sf);
            };
            compareAll(op, tw);
            compareOverlap(op, tw);
        }
}

TEST(ArithSimd, Interpolations) {
    compareAll(interp_16s, interp_16s_scalar);
    compareOverlap(interp_16s, interp_16s_scalar);
    for (int sf : kScales)
        for (Kvo16s v1 : kVals)
            for (Kvo16s v2 : {Kvo16s(-32768), Kvo16s(3277), Kvo16s(32767)}) {
                SCOPED_TRACE(testing::Message() << sf << " " << v1 << " " << v2);
                auto op = [=](const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
                    interpC_16s(a, v1, b, v2, d, n, sf);
                };
                auto tw = [=](const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
                    interpC_16s_scalar(a, v1, b, v2, d, n, sf);
                };
                compareAll(op, tw);
                auto opr = [=](const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
                    interpCNR_16s(a, v1, b, v2, d, n, sf);
                };
                auto twr = [=](const Kvo16s* a, const Kvo16s* b, Kvo16s* d, int n) {
                    interpCNR_16s_scalar(a, v1, b, v2, d, n, sf);
                };
                compareAll(opr, twr);
                compareOverlap(opr, twr);
            }
}
