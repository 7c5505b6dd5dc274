// Whole-buffer round trips through a coder's stream interface for the
// conformance tests; a call that fails is reported with the coder's message.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "coders/coder.h"

namespace kvosc::conformance {

inline std::vector<uint8_t> encode(const char* coder, const coders::Options& opt,
                                   const std::vector<int16_t>& pcm) {
    std::vector<uint8_t> out;
    std::string err;
    EXPECT_TRUE(coders::find_coder(coder)->encode(opt, pcm, out, err)) << coder << ": " << err;
    return out;
}

inline std::vector<int16_t> decode(const char* coder, const coders::Options& opt,
                                   const std::vector<uint8_t>& stream) {
    std::vector<int16_t> out;
    std::string err;
    EXPECT_TRUE(coders::find_coder(coder)->decode(opt, stream, out, err)) << coder << ": " << err;
    return out;
}

}  // namespace kvosc::conformance
