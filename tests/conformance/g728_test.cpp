// G.728 assembled from the exports: round-trip properties on generated
// signals (no open peer implementation exists; the vectors are checked with
// the other coders').
#include <gtest/gtest.h>

#include "conformance/coding.h"
#include "support/signals.h"

namespace {

using kvosc::coders::Options;
using namespace kvosc::conformance;

TEST(G728Coder, RoundTripQualityAndFormats) {
    const Options packed, itu{{{"format", "itu"}}}, raw{{{"postfilter", "off"}}};
    for (double peak : {2000.0, 12000.0}) {
        SCOPED_TRACE(peak);
        const auto pcm = kvosc::test::speech_like(16000, 4, peak, 8000);
        const auto sp = encode("g728", packed, pcm), si = encode("g728", itu, pcm);
        EXPECT_EQ(sp.size(), pcm.size() / 5 * 10 / 8);  // 16 kbit/s
        EXPECT_EQ(si.size(), pcm.size() / 5 * 2);
        const auto out = decode("g728", packed, sp);
        EXPECT_EQ(out, decode("g728", itu, si));  // the two formats carry the same indices
        // Waveform-matching coder: a clear SNR without post filter.
        EXPECT_GT(kvosc::test::snr_db(pcm, decode("g728", raw, sp)), 10.0);
        EXPECT_GT(kvosc::test::snr_db(pcm, out), 6.0);
    }
}

}  // namespace
