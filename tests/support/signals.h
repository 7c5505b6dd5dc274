// Generated test signals shared by the coder tests.
#pragma once

#include <cstdint>
#include <vector>

namespace kvosc::test {

// Speech-like signal: pitch pulses with a wandering pitch through two moving
// formant resonators, a syllable envelope and a little noise, scaled so that
// its largest magnitude is `peak`.  Deterministic for a given seed and rate.
std::vector<int16_t> speech_like(int n, uint32_t seed, double peak, double rate);

}  // namespace kvosc::test
