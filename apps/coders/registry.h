// The coders that the kvosc tool assembles from the library's exports.
//
// Each coder is one entry: its name on the command line, its bit rate, its
// sampling rate and frame length, whole-buffer encode and decode functions on
// 16-bit words, and a verify function that runs the coder over a folder of
// the standard's test vectors.  A coder lives in apps/coders/<name>.cpp and
// adds itself to all_coders() in registry.cpp.
//
// Buffers: encode takes 16-bit samples (a whole number of frames) and gives
// the coder's bit-stream words (the ITU serial layout where the standard
// has one); decode is the reverse.  They return false and set `error` on a
// malformed input or a failed library call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvosc::coders {

// One line of a verification: a vector set, frames compared, frames that
// differ (0 = bit-exact), and a note (first difference, or why skipped).
struct VerifyRow {
    std::string set;
    long frames = 0;
    long mismatched = 0;
    std::string note;
};

struct Coder {
    const char* name;   // "g729", "gsmfr" ...
    double kbps;        // bit rate of the default mode
    int sample_rate;    // Hz
    int frame_samples;  // samples per frame
    bool (*encode)(const std::vector<int16_t>& pcm, std::vector<int16_t>& bits, std::string& error);
    bool (*decode)(const std::vector<int16_t>& bits, std::vector<int16_t>& pcm, std::string& error);
    std::vector<VerifyRow> (*verify)(const std::string& dir);
};

// Every assembled coder, in display order.
const std::vector<const Coder*>& all_coders();
// The coder of that name, or null.
const Coder* find_coder(const std::string& name);

}  // namespace kvosc::coders
