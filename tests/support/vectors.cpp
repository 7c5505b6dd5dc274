#include "support/vectors.h"

#include <fstream>
#include <iterator>

namespace kvosc::test {

VectorFile<uint8_t> read_bytes(const std::string& path) {
    VectorFile<uint8_t> f;
    std::ifstream in(path, std::ios::binary);
    f.items.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (!in.is_open()) f.error = path + ": cannot open";
    return f;
}

VectorFile<int16_t> read_words(const std::string& path) {
    VectorFile<int16_t> f;
    const VectorFile<uint8_t> raw = read_bytes(path);
    f.error = !raw.ok() || raw.items.size() % 2 == 0
                  ? raw.error
                  : path + ": odd byte count " + std::to_string(raw.items.size());
    for (size_t i = 0; f.ok() && i + 1 < raw.items.size(); i += 2)
        f.items.push_back(static_cast<int16_t>(raw.items[i] | (raw.items[i + 1] << 8)));
    return f;
}

}  // namespace kvosc::test
