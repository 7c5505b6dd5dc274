// Readers of the G.722.1 step records: one record per call of a transform step
// or of the region coder, captured from the Recommendation's fixed-point coder
// (first 100 frames of each run).  All fields little-endian, no padding.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/vectors.h"

namespace g7221test {

// Windowing and transform records: frame, len, the frame's block-floating
// shift, then the step's vectors in file order.
struct StepRecord {
    int32_t frame = 0, len = 0, shift = 0;
    std::vector<int16_t> src, memIn, dst, memOut;
};

struct HuffRecord {
    int32_t frame, call, region, category, powerIndex;
    int16_t coef[20];
    int32_t bits, words;
    uint32_t code[6];
};

enum class Kind { Mlt2Dct, DctFwd, DctInv, Dct2Mlt };

inline std::vector<int16_t> take16(const uint8_t*& p, size_t n) {
    std::vector<int16_t> v(n);
    std::memcpy(v.data(), p, 2 * n);
    p += 2 * n;
    return v;
}

inline int32_t take32(const uint8_t*& p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    p += 4;
    return v;
}

// Records of a step file; error text on a broken layout.
inline std::vector<StepRecord> read_steps(const std::string& path, Kind kind, std::string& error) {
    std::vector<StepRecord> out;
    auto file = kvosc::test::read_bytes(path);
    if (!file.ok()) {
        error = file.error;
        return out;
    }
    const uint8_t* p = file.items.data();
    const uint8_t* end = p + file.items.size();
    while (p < end) {
        if (end - p < 12) {
            error = path + ": truncated header";
            return out;
        }
        StepRecord r;
        r.frame = take32(p);
        r.len = take32(p);
        r.shift = take32(p);
        const size_t len = static_cast<size_t>(r.len), h = len / 2;
        const size_t words = kind == Kind::Mlt2Dct   ? 3 * len
                             : kind == Kind::Dct2Mlt ? 3 * len
                                                     : 2 * len;
        if ((r.len != 320 && r.len != 640) || static_cast<size_t>(end - p) < 2 * words) {
            error = path + ": bad record after frame " + std::to_string(r.frame);
            return out;
        }
        r.src = take16(p, len);
        switch (kind) {
            case Kind::Mlt2Dct:
                r.memIn = take16(p, len);
                r.dst = take16(p, len);
                break;
            case Kind::Dct2Mlt:
                r.memIn = take16(p, h);
                r.dst = take16(p, len);
                r.memOut = take16(p, h);
                break;
            default:
                r.dst = take16(p, len);
        }
        out.push_back(std::move(r));
    }
    return out;
}

inline std::vector<HuffRecord> read_huff(const std::string& path, std::string& error) {
    std::vector<HuffRecord> out;
    auto file = kvosc::test::read_bytes(path);
    if (!file.ok()) {
        error = file.error;
        return out;
    }
    static_assert(sizeof(HuffRecord) == 92);
    if (file.items.size() % sizeof(HuffRecord) != 0) {
        error = path + ": size is not a whole number of records";
        return out;
    }
    out.resize(file.items.size() / sizeof(HuffRecord));
    std::memcpy(out.data(), file.items.data(), file.items.size());
    return out;
}

// The coder's block-floating shift with the 16-bit saturating shifts: a
// positive count shifts left (saturated), a negative one right.
inline std::vector<int16_t> shift_block(const std::vector<int16_t>& v, int n) {
    std::vector<int16_t> out(v.size());
    for (size_t i = 0; i < v.size(); ++i) {
        int32_t x = v[i];
        if (n >= 0) {
            int64_t y = static_cast<int64_t>(x) * (int64_t{1} << n);
            x = y > 32767 ? 32767 : (y < -32768 ? -32768 : static_cast<int32_t>(y));
        } else {
            x >>= -n;
        }
        out[i] = static_cast<int16_t>(x);
    }
    return out;
}

}  // namespace g7221test
