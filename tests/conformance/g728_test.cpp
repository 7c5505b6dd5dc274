// G.728 assembled from the exports: round-trip properties on generated
// signals (no open peer implementation exists; the vectors are checked with
// the other coders').
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "support/signals.h"

namespace {

using kvosc::coders::Options;

TEST(G728Coder, RoundTripQualityAndFormats) {
    const auto& g728 = *kvosc::coders::find_coder("g728");
    const Options packed, itu{{{"format", "itu"}}}, raw{{{"postfilter", "off"}}};
    std::string err;
    for (double peak : {2000.0, 12000.0}) {
        SCOPED_TRACE(peak);
        const auto pcm = kvosc::test::speech_like(16000, 4, peak, 8000);
        std::vector<uint8_t> sp, si;
        ASSERT_TRUE(g728.encode(packed, pcm, sp, err)) << err;
        ASSERT_TRUE(g728.encode(itu, pcm, si, err)) << err;
        EXPECT_EQ(sp.size(), pcm.size() / 5 * 10 / 8);  // 16 kbit/s
        EXPECT_EQ(si.size(), pcm.size() / 5 * 2);
        std::vector<int16_t> out, out_itu, out_raw;
        ASSERT_TRUE(g728.decode(packed, sp, out, err)) << err;
        ASSERT_TRUE(g728.decode(itu, si, out_itu, err)) << err;
        ASSERT_TRUE(g728.decode(raw, sp, out_raw, err)) << err;
        EXPECT_EQ(out, out_itu);  // the two formats carry the same indices
        // Waveform-matching coder: a clear SNR without post filter.
        EXPECT_GT(kvosc::test::snr_db(pcm, out_raw), 10.0);
        EXPECT_GT(kvosc::test::snr_db(pcm, out), 6.0);
    }
}

}  // namespace
