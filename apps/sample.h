// The built-in speech-like sample: a deterministic synthetic voice, so the
// demo needs no file.
#pragma once

#include <cstdint>
#include <vector>

namespace kvosc {

// `seconds` of 16-bit speech-like signal at `rate` Hz: voiced syllables of
// a glottal pulse train (pitch gliding between about 95 and 150 Hz) through
// three formant resonators moving between the vowels /a/, /i/ and /u/, with
// short pauses of low noise between syllables.  Peak about -8 dBFS.  The same
// arguments always give the same samples.
std::vector<int16_t> synth_speech(double seconds, int rate);

}  // namespace kvosc
