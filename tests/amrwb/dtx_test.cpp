// AMR-WB DTX histories: the ring of eight and the frame log energy against log2 in double.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "kvosc.h"

namespace {

TEST(AmrwbDtx, RingAndLogEnergy) {
    std::vector<Kvo16s> frame(256), isf(16), hist(8 * 16, 0), logEn(8, 0);
    for (int i = 0; i < 16; ++i) isf[i] = static_cast<Kvo16s>(100 * i);
    Kvo16s at = 7;
    // Silence: energy 0 logs as 0, so -8.0 in Q7 (and the encoder's rate term below that).
    ASSERT_EQ(kvosDecDTXBuffer_AMRWB_16s(frame.data(), isf.data(), &at, hist.data(), logEn.data()),
              kvoOk);
    EXPECT_EQ(at, 0);
    EXPECT_EQ(logEn[0], -1024);
    EXPECT_EQ(hist[15], 1500);
    const std::pair<Kvo32s, int> rates[] = {{5, 230},  {9, 179},  {13, 141}, {15, 128},
                                            {16, 122}, {18, 115}, {21, 115}, {25, 115}};
    for (auto [mode, term] : rates) {
        ASSERT_EQ(kvosEncDTXBuffer_AMRWB_16s(frame.data(), isf.data(), &at, hist.data(),
                                             logEn.data(), mode),
                  kvoOk);
        EXPECT_EQ(logEn[at], -1024 - term) << mode;
    }
    EXPECT_EQ(at, 0) << "eight stores after 0 come round to 0";
    // Sines of known energy: log2(E) in Q7, less 8.0, within the table's interpolation error.
    for (double amp : {30.0, 1000.0, 20000.0}) {
        double e = 0;
        for (int n = 0; n < 256; ++n) {
            frame[n] = static_cast<Kvo16s>(std::lround(amp * std::sin(0.3 * n)));
            e += double(frame[n]) * frame[n];
        }
        ASSERT_EQ(
            kvosDecDTXBuffer_AMRWB_16s(frame.data(), isf.data(), &at, hist.data(), logEn.data()),
            kvoOk);
        e = std::min(e, 2147483647.0);  // the 32-bit energy saturates on loud frames
        EXPECT_NEAR(logEn[at], 128 * std::log2(e) - 1024, 1.5) << amp;
    }
    Kvo16s v[256] = {};
    EXPECT_EQ(kvosEncDTXBuffer_AMRWB_16s(v, v, &at, v, v, 6), kvoErrRange);
    EXPECT_EQ(kvosEncDTXBuffer_AMRWB_16s(v, v, nullptr, v, v, 5), kvoErrNullPtr);
    EXPECT_EQ(kvosDecDTXBuffer_AMRWB_16s(v, v, &at, v, nullptr), kvoErrNullPtr);
}

}  // namespace
