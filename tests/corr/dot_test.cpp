// The SSE2 dot products against their scalar twins (memcmp of whole result
// vectors) over every length and misalignment, on random and extreme data,
// and the exact sum against a 128-bit-safe model past its block size.
#include <gtest/gtest.h>

#include <cstring>

#include "corr_model.h"
#include "kernels/corr.h"

using namespace corrmodel;

TEST(CorrDot, SimdMatchesScalarBitForBit) {
    std::mt19937 g(41);
    for (Kind ka : kAllKinds)
        for (Kind kb : kAllKinds) {
            V16 a = make(ka, 200, g), b = make(kb, 200, g);
            SCOPED_TRACE(::testing::Message() << "kinds " << int(ka) << "/" << int(kb));
            std::vector<int32_t> w1, w2;
            std::vector<int64_t> e1, e2;
            for (int offA = 0; offA < 3; ++offA)
                for (int offB = 0; offB < 9; ++offB)
                    for (int n = -1; n <= 150; ++n) {
                        const int16_t* pa = a.data() + offA;
                        const int16_t* pb = b.data() + offB;
                        w1.push_back(kvo::corrDotWrap(pa, pb, n));
                        w2.push_back(kvo::corrDotWrapScalar(pa, pb, n));
                        e1.push_back(kvo::corrDotExact(pa, pb, n));
                        e2.push_back(kvo::corrDotExactScalar(pa, pb, n));
                    }
            ASSERT_EQ(std::memcmp(w1.data(), w2.data(), w1.size() * sizeof w1[0]), 0);
            ASSERT_EQ(std::memcmp(e1.data(), e2.data(), e1.size() * sizeof e1[0]), 0);
        }
}

TEST(CorrDot, LongSumsAreExact) {
    // Past the 131072-sample block of the exact sum, and the pairs of
    // (-32768)^2 products that the 16-bit multiply-add wraps.
    for (int n : {131071, 131072, 131080, 300007}) {
        V16 m(n, -32768);
        EXPECT_EQ(kvo::corrDotExact(m.data(), m.data(), n), i64{n} << 30) << n;
        EXPECT_EQ(kvo::corrDotWrap(m.data(), m.data(), n), wrap32(i64{n} << 30)) << n;
    }
    std::mt19937 g(42);
    V16 a = make(Kind::Bursts, 280000, g), b = make(Kind::Random, 280000, g);
    EXPECT_EQ(kvo::corrDotExact(a.data(), b.data(), 280000), dot(a.data(), b.data(), 280000));
    EXPECT_EQ(kvo::corrDotWrap(a.data(), b.data(), 280000),
              wrap32(dot(a.data(), b.data(), 280000)));
}
