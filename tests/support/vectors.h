// Readers of the standards' vector files (16-bit little-endian words or raw
// bytes) and a comparison helper.  A reader throws nothing: its `error` names
// the file and the fault, so a test can `ASSERT_TRUE(f.ok()) << f.error`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kvosc::test {

template <class T>
struct VectorFile {
    std::vector<T> items;  // samples or bytes
    std::string error;     // empty when the file was read and matched its layout
    bool ok() const { return error.empty(); }
};

// Whole file as 16-bit little-endian words.  An odd byte count is an error.
VectorFile<int16_t> read_words(const std::string& path);
// Whole file as raw bytes.
VectorFile<uint8_t> read_bytes(const std::string& path);

// Index of the first element where a and b differ, or -1 when equal in
// length and content (a length difference reports min(size)).
template <class T>
long first_mismatch(const std::vector<T>& a, const std::vector<T>& b) {
    size_t n = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < n; ++i)
        if (!(a[i] == b[i])) return static_cast<long>(i);
    return a.size() == b.size() ? -1 : static_cast<long>(n);
}

}  // namespace kvosc::test
