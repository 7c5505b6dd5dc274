#include "support/vectors.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kvosc::test {

namespace {

std::string hex4(unsigned v) {
    char b[8];
    std::snprintf(b, sizeof b, "0x%04x", v & 0xffffu);
    return b;
}

// Raw little-endian words, or an error text.
bool load_words(const std::string& path, std::vector<uint16_t>& w, std::string& err) {
    VectorFile<uint8_t> raw = read_bytes(path);
    if (!raw.ok()) {
        err = raw.error;
        return false;
    }
    if (raw.items.size() % 2) {
        err = path + ": odd byte count " + std::to_string(raw.items.size());
        return false;
    }
    w.resize(raw.items.size() / 2);
    for (size_t i = 0; i < w.size(); ++i)
        w[i] = static_cast<uint16_t>(raw.items[2 * i] | (raw.items[2 * i + 1] << 8));
    return true;
}

std::string at(const std::string& path, size_t frame, size_t word) {
    return path + ": frame " + std::to_string(frame) + ", word " + std::to_string(word);
}

}  // namespace

VectorFile<uint8_t> read_bytes(const std::string& path) {
    VectorFile<uint8_t> f;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        f.error = path + ": cannot open";
        return f;
    }
    f.items.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return f;
}

VectorFile<int16_t> read_words(const std::string& path) {
    VectorFile<int16_t> f;
    std::vector<uint16_t> w;
    if (!load_words(path, w, f.error)) return f;
    f.items.assign(w.begin(), w.end());
    for (size_t i = 0; i < w.size(); ++i) f.items[i] = static_cast<int16_t>(w[i]);
    return f;
}

uint32_t BitFrame::field(size_t first, size_t count) const {
    uint32_t v = 0;
    for (size_t i = first; i < first + count && i < bits.size(); ++i) v = (v << 1) | bits[i];
    return v;
}

VectorFile<BitFrame> read_itu_bitstream(const std::string& path) {
    VectorFile<BitFrame> f;
    std::vector<uint16_t> w;
    if (!load_words(path, w, f.error)) return f;
    size_t i = 0;
    while (i < w.size()) {
        size_t frame = f.items.size();
        if (w[i] != 0x6b21 && w[i] != 0x6b20) {
            f.error = at(path, frame, i) + ": sync word " + hex4(w[i]) + ", want 0x6b21/0x6b20";
            return f;
        }
        if (i + 1 >= w.size()) {
            f.error = at(path, frame, i) + ": size word missing";
            return f;
        }
        BitFrame fr;
        fr.sync = w[i];
        size_t n = w[i + 1];
        if (i + 2 + n > w.size()) {
            f.error = at(path, frame, i) + ": size word " + std::to_string(n) +
                      " runs past the end of the file";
            return f;
        }
        fr.bits.resize(n);
        bool all_zero = true;
        for (size_t k = 0; k < n; ++k) {
            uint16_t b = w[i + 2 + k];
            if (b == 0x0081) {
                fr.bits[k] = 1;
                all_zero = false;
            } else if (b == 0x007f) {
                fr.bits[k] = 0;
                all_zero = false;
            } else if (b != 0) {
                f.error = at(path, frame, i + 2 + k) + ": bit word " + hex4(b) +
                          ", want 0x007f/0x0081 (or 0 in an erased frame)";
                return f;
            }
        }
        // An erased frame holds only zero words; a mix of zero and bit words
        // is not a layout the streams use.
        if (!all_zero) {
            for (size_t k = 0; k < n; ++k)
                if (w[i + 2 + k] == 0) {
                    f.error = at(path, frame, i + 2 + k) + ": zero word in a frame of bits";
                    return f;
                }
        }
        fr.erased = fr.sync == 0x6b20 || (n > 0 && all_zero);
        f.items.push_back(std::move(fr));
        i += 2 + n;
    }
    return f;
}

VectorFile<uint8_t> read_byte_words(const std::string& path) {
    VectorFile<uint8_t> f;
    std::vector<uint16_t> w;
    if (!load_words(path, w, f.error)) return f;
    f.items.resize(w.size());
    for (size_t i = 0; i < w.size(); ++i) {
        if (w[i] > 0xff) {
            f.error =
                path + ": word " + std::to_string(i) + " is " + hex4(w[i]) + ", more than one byte";
            f.items.clear();
            return f;
        }
        f.items[i] = static_cast<uint8_t>(w[i]);
    }
    return f;
}

VectorFile<GsmFrFrame> read_gsmfr_cod(const std::string& path) {
    VectorFile<GsmFrFrame> f;
    VectorFile<int16_t> w = read_words(path);
    if (!w.ok()) {
        f.error = w.error;
        return f;
    }
    if (w.items.size() % kGsmFrCodWords) {
        f.error = path + ": " + std::to_string(w.items.size()) + " words, not a multiple of 76";
        return f;
    }
    // Bit widths of the parameters, to reject words that cannot be codes.
    static const int kLarBits[8] = {6, 6, 5, 5, 4, 4, 3, 3};
    for (size_t k = 0; k < w.items.size() / kGsmFrCodWords; ++k) {
        const int16_t* p = &w.items[k * kGsmFrCodWords];
        GsmFrFrame fr;
        size_t j = 0;
        auto take = [&](int bits, int16_t& dst) {
            int16_t v = p[j];
            if (v < 0 || v >= (1 << bits)) {
                if (f.error.empty())
                    f.error = at(path, k, k * kGsmFrCodWords + j) + ": value " + std::to_string(v) +
                              " exceeds " + std::to_string(bits) + " bits";
            }
            dst = v;
            ++j;
        };
        for (int i = 0; i < 8; ++i) take(kLarBits[i], fr.LARc[i]);
        for (auto& s : fr.sub) {
            take(7, s.Nc);
            take(2, s.bc);
            take(2, s.Mc);
            take(6, s.xmaxc);
            for (auto& x : s.xmc) take(3, x);
        }
        if (!f.error.empty()) {
            f.items.clear();
            return f;
        }
        f.items.push_back(fr);
    }
    return f;
}

VectorFile<std::vector<int16_t>> read_gsmfr_samples(const std::string& path) {
    VectorFile<std::vector<int16_t>> f;
    VectorFile<int16_t> w = read_words(path);
    if (!w.ok()) {
        f.error = w.error;
        return f;
    }
    if (w.items.size() % kGsmFrFrameSamples) {
        f.error = path + ": " + std::to_string(w.items.size()) + " samples, not whole frames";
        return f;
    }
    for (size_t i = 0; i < w.items.size(); ++i)
        if (w.items[i] & 7) {
            f.error = at(path, i / kGsmFrFrameSamples, i) + ": low 3 bits set in a 13-bit sample";
            return f;
        }
    for (size_t k = 0; k < w.items.size(); k += kGsmFrFrameSamples)
        f.items.emplace_back(w.items.begin() + k, w.items.begin() + k + kGsmFrFrameSamples);
    return f;
}

int amrwb_frame_bits(int type, int mode) {
    if (type < 0 || type > 3) return -1;
    if (type != 0) return kAmrWbSidBits;  // SID_FIRST, SID_UPDATE and NO_DATA carry 35 words
    return mode >= 0 && mode <= 8 ? kAmrWbModeBits[mode] : -1;
}

VectorFile<AmrWbFrame> read_amrwb_cod(const std::string& path) {
    VectorFile<AmrWbFrame> f;
    std::vector<uint16_t> w;
    if (!load_words(path, w, f.error)) return f;
    size_t i = 0;
    while (i < w.size()) {
        size_t frame = f.items.size();
        if (i + 3 > w.size()) {
            f.error = at(path, frame, i) + ": truncated frame header";
            return f;
        }
        if (w[i] != 0x6b21 && w[i] != 0x6b20) {
            f.error = at(path, frame, i) + ": flag word " + hex4(w[i]) + ", want 0x6b21/0x6b20";
            return f;
        }
        AmrWbFrame fr;
        fr.good = w[i] == 0x6b21;
        fr.type = w[i + 1];
        fr.mode = w[i + 2];
        int n = amrwb_frame_bits(fr.type, fr.mode);
        if (n < 0) {
            f.error = at(path, frame, i) + ": frame type " + std::to_string(fr.type) +
                      " with mode " + std::to_string(fr.mode) + " is not a frame layout";
            return f;
        }
        if (i + 3 + n > w.size()) {
            f.error = at(path, frame, i) + ": frame runs past the end of the file";
            return f;
        }
        fr.bits.resize(n);
        for (int k = 0; k < n; ++k) {
            uint16_t b = w[i + 3 + k];
            if (b != 0x007f && b != 0xff81) {
                f.error =
                    at(path, frame, i + 3 + k) + ": bit word " + hex4(b) + ", want 0xff81/0x007f";
                return f;
            }
            fr.bits[k] = b == 0x007f;
        }
        f.items.push_back(std::move(fr));
        i += 3 + n;
    }
    return f;
}

std::string describe_mismatch(const std::vector<int16_t>& got, const std::vector<int16_t>& want,
                              size_t frame_len) {
    long i = first_mismatch(got, want);
    if (i < 0) return "identical";
    std::ostringstream s;
    size_t n = got.size() < want.size() ? got.size() : want.size();
    size_t differ = 0;
    for (size_t k = 0; k < n; ++k) differ += got[k] != want[k];
    if (frame_len == 0) frame_len = 1;
    s << "first difference at sample " << i << " (frame " << static_cast<size_t>(i) / frame_len
      << ", offset " << static_cast<size_t>(i) % frame_len << ")";
    if (static_cast<size_t>(i) < n) s << ": got " << got[i] << ", want " << want[i];
    s << "; " << differ << " of " << n << " samples differ";
    if (got.size() != want.size()) s << "; lengths " << got.size() << " and " << want.size();
    return s.str();
}

bool write_words(const std::string& path, const std::vector<int16_t>& words) {
    std::ofstream out(path, std::ios::binary);
    for (int16_t v : words) {
        uint16_t u = static_cast<uint16_t>(v);
        char b[2] = {static_cast<char>(u & 0xff), static_cast<char>(u >> 8)};
        out.write(b, 2);
    }
    return static_cast<bool>(out);
}

}  // namespace kvosc::test
