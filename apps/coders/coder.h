// The coder interface of the kvosc tool: every coder that the tool assembles
// from the library's exports is one `Coder` record in apps/coders/<name>.cpp.
//
// A coder works on whole buffers: encode turns 16-bit PCM at its sampling
// rate into a byte stream in the format its options select (--format ...),
// decode turns such a stream back into PCM.  The tool reads and writes the
// audio (WAV or raw 16-bit little-endian PCM) around them.  verify runs the
// coder over every vector set of its standard found in a folder and returns
// one row per set.  Coders call the library only through its exported names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kvosc::coders {

// Options given after the coder name on the command line: "--key value".
struct Options {
    Options() = default;
    Options(std::vector<std::pair<std::string, std::string>> v) : values(std::move(v)) {}  // NOLINT
    std::vector<std::pair<std::string, std::string>> values;
    // The value of --key, or dflt when absent.
    std::string get(const std::string& key, const std::string& dflt) const {
        for (const auto& [k, v] : values)
            if (k == key) return v;
        return dflt;
    }
    // Set by the tool for long jobs: a coder calls tick(done, total) as its
    // frames advance (any unit, total > 0) and the tool draws a progress line.
    std::function<void(size_t done, size_t total)> progress;
    void tick(size_t done, size_t total) const {
        if (progress) progress(done, total);
    }
};

// One line of a verification: a vector set, frames compared, frames that
// differ (0 = bit-exact), and a note (the first difference, or why skipped).
struct VerifyRow {
    std::string set;
    long frames = 0;
    long mismatched = 0;
    std::string note;
    bool skipped = false;
};

struct Coder {
    const char* name;         // on the command line: "gsmfr", "g726" ...
    const char* description;  // one line: "GSM 06.10 full rate"
    const char* options;      // option help: "--format etsi|rtp|wav49"
    int sample_rate;          // Hz
    double kbps;              // bit rate of the default options
    bool (*encode)(const Options& opt, const std::vector<int16_t>& pcm,
                   std::vector<uint8_t>& stream, std::string& error);
    bool (*decode)(const Options& opt, const std::vector<uint8_t>& stream,
                   std::vector<int16_t>& pcm, std::string& error);
    std::vector<VerifyRow> (*verify)(const std::string& dir);
};

// Every assembled coder, in display order, and lookup by name.
const std::vector<const Coder*>& all_coders();
const Coder* find_coder(const std::string& name);

// Shared stream helpers for the coders.
// 16-bit little-endian words <-> bytes.
std::vector<int16_t> words_from_bytes(const std::vector<uint8_t>& bytes);
std::vector<uint8_t> bytes_from_words(const std::vector<int16_t>& words);
// Whole file as bytes; false when it cannot be read.
bool read_file(const std::string& path, std::vector<uint8_t>& bytes);

}  // namespace kvosc::coders
