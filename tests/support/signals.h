// Generated test signals shared by the coder tests, and a signal-to-noise
// measure for comparisons that are not bit-exact.
#pragma once

#include <cstdint>
#include <vector>

namespace kvosc::test {

// Speech-like signal: pitch pulses with a wandering pitch through two moving
// formant resonators, a syllable envelope and a little noise, scaled so that
// its largest magnitude is `peak`.  Deterministic for a given seed and rate.
std::vector<int16_t> speech_like(int n, uint32_t seed, double peak, double rate);
// Uniform integer noise in [-amp, amp], clamped to 16 bits.
std::vector<int16_t> white_noise(int n, int amp, uint32_t seed);
// Square wave of `period` samples between amp and -amp - 1.
std::vector<int16_t> square(int n, int period, int amp);
// Sine sweep from 50 Hz to 50 Hz below the Nyquist frequency, rounded and clamped.
std::vector<int16_t> sweep(int n, double amp, double rate);
// 10 log10(|ref|^2 / |ref - x|^2) over the common length (200 when equal).
double snr_db(const std::vector<int16_t>& ref, const std::vector<int16_t>& x);

}  // namespace kvosc::test
