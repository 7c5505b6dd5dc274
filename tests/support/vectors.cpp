#include "support/vectors.h"

#include <fstream>
#include <iterator>

namespace kvosc::test {

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
    VectorFile<uint8_t> raw = read_bytes(path);
    if (!raw.ok() || raw.items.size() % 2) {
        f.error =
            raw.ok() ? path + ": odd byte count " + std::to_string(raw.items.size()) : raw.error;
        return f;
    }
    f.items.resize(raw.items.size() / 2);
    for (size_t i = 0; i < f.items.size(); ++i)
        f.items[i] = static_cast<int16_t>(raw.items[2 * i] | (raw.items[2 * i + 1] << 8));
    return f;
}

}  // namespace kvosc::test
