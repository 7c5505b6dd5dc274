// Readers for the file layouts of the standards' test vectors, and helpers to
// compare a coder's output with a reference file.
//
// Every reader throws nothing: it returns a VectorFile<...> whose `error`
// is empty on success and otherwise names the file, the frame and the word
// that broke the layout, so a test can `ASSERT_TRUE(f.ok()) << f.error`.
//
// Layouts (all words 16-bit little-endian):
//   - plain word / sample files (.IN, .PST, .inp, .out, .bin, .pcm):
//     read_words();
//   - ITU serial bit streams (G.729 .BIT, G.722.1 .itu): per frame a sync
//     word (0x6b21 good, 0x6b20 bad frame), a size word N, then N words, one
//     per bit, 0x007f for 0 and 0x0081 for 1.  N varies per frame (G.729B:
//     80 speech, 16 SID, 0 untransmitted).  A frame whose bit words are all 0
//     (or whose sync word is 0x6b20) is an erased frame: read_itu_bitstream();
//   - G.711 bytes stored one per word in the low 8 bits (G.726 .a/.m and
//     the A/mu-law .i/.o sets): read_byte_words(); ADPCM codes stored the
//     same way, right-justified: read_byte_words() as well;
//   - GSM full rate .cod: 76 parameter words per 20 ms frame:
//     read_gsmfr_cod(); .inp/.out: 160 left-justified 13-bit samples per
//     frame: read_gsmfr_samples();
//   - AMR-WB .cod: per frame a flag word (0x6b21 good, 0x6b20 bad), the
//     frame type (0 speech, 1 SID_FIRST, 2 SID_UPDATE, 3 NO_DATA), the mode
//     (0..8), then one word per bit, 0xff81 for 0 and 0x007f for 1; the bit
//     count follows from type and mode: read_amrwb_cod().
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kvosc::test {

template <class T>
struct VectorFile {
    std::vector<T> items;  // samples, bytes or frames
    std::string error;     // empty when the file was read and matched its layout
    bool ok() const { return error.empty(); }
};

// Whole file as 16-bit little-endian words.  An odd byte count is an error.
VectorFile<int16_t> read_words(const std::string& path);
// Whole file as raw bytes.
VectorFile<uint8_t> read_bytes(const std::string& path);

// One frame of an ITU serial bit stream.
struct BitFrame {
    uint16_t sync = 0;          // 0x6b21 good frame, 0x6b20 bad frame
    std::vector<uint8_t> bits;  // 0 or 1, in stream order; size = the frame's size word
    bool erased = false;        // sync 0x6b20, or every bit word 0
    // Bits [first, first + count) read MSB first as an unsigned value (count <= 32).
    uint32_t field(size_t first, size_t count) const;
};
VectorFile<BitFrame> read_itu_bitstream(const std::string& path);

// Words that each hold one byte in their low 8 bits (the high byte must be 0).
VectorFile<uint8_t> read_byte_words(const std::string& path);

// GSM 06.10 parameters of one 20 ms frame, in the order of the .cod layout.
struct GsmFrFrame {
    int16_t LARc[8];
    struct Sub {
        int16_t Nc, bc, Mc, xmaxc;
        int16_t xmc[13];
    } sub[4];
};
constexpr size_t kGsmFrCodWords = 76;
constexpr size_t kGsmFrFrameSamples = 160;
VectorFile<GsmFrFrame> read_gsmfr_cod(const std::string& path);
// 160-sample frames of 13-bit samples stored left-justified: the low 3 bits
// of every word must be 0.  Samples are returned as stored (still shifted).
VectorFile<std::vector<int16_t>> read_gsmfr_samples(const std::string& path);

// AMR-WB frame of the reference coder's .cod layout.
struct AmrWbFrame {
    bool good = true;           // flag word 0x6b21
    int type = 0;               // 0 speech, 1 SID_FIRST, 2 SID_UPDATE, 3 NO_DATA
    int mode = 0;               // 0..8 (6.60 ... 23.85 kbit/s)
    std::vector<uint8_t> bits;  // 0 or 1
};
// Bits per frame of each speech mode, and of a SID frame.
constexpr int kAmrWbModeBits[9] = {132, 177, 253, 285, 317, 365, 397, 461, 477};
constexpr int kAmrWbSidBits = 35;
// The bit count of a frame of `type` at `mode`, or -1 for an impossible pair.
int amrwb_frame_bits(int type, int mode);
VectorFile<AmrWbFrame> read_amrwb_cod(const std::string& path);

// Index of the first element where a and b differ, or -1 when equal in
// length and content (a length difference reports min(size)).
template <class T>
long first_mismatch(const std::vector<T>& a, const std::vector<T>& b) {
    size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i)
        if (!(a[i] == b[i])) return static_cast<long>(i);
    return a.size() == b.size() ? -1 : static_cast<long>(n);
}

// Text for a failed sample comparison: position (sample and frame), both
// values, and the count of differing samples.
std::string describe_mismatch(const std::vector<int16_t>& got, const std::vector<int16_t>& want,
                              size_t frame_len);

// Writes words little-endian (tests build small files of their own).
bool write_words(const std::string& path, const std::vector<int16_t>& words);

}  // namespace kvosc::test
