// Audio files for the kvosc tool: 16-bit PCM WAV (recognised by its header)
// or raw 16-bit little-endian samples.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvosc {

struct Audio {
    std::vector<int16_t> samples;  // mono
    int rate = 0;                  // 0 for raw files: unknown
};

// Reads a WAV file (16-bit PCM, mono; stereo is mixed down) or raw samples.
bool read_audio(const std::string& path, Audio& audio, std::string& error);
// Writes WAV when the name ends in .wav, raw samples otherwise.
bool write_audio(const std::string& path, const std::vector<int16_t>& samples, int rate,
                 std::string& error);
bool write_bytes(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error);

}  // namespace kvosc
