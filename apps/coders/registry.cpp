#include <fstream>
#include <iterator>

#include "coders/coder.h"

namespace kvosc::coders {

// Each assembled coder defines its record in its own file; list it here.
extern const Coder kG729;
extern const Coder kG729A;
extern const Coder kG729D;
extern const Coder kG729E;
extern const Coder kG729I;
extern const Coder kG726;
extern const Coder kG722;
extern const Coder kG728;
extern const Coder kGsmFr;
extern const Coder kG729AB;
extern const Coder kG729B;
extern const Coder kG723;

const std::vector<const Coder*>& all_coders() {
    static const std::vector<const Coder*> list = {
        &kG729,
        &kG729A,
        &kG729D,
        &kG729E,
        &kG729I,
        &kG726,
        &kG722,
        &kG728,
        &kGsmFr,
        &kG729AB,
        &kG729B,
        &kG723,
    };
    return list;
}

const Coder* find_coder(const std::string& name) {
    for (const Coder* c : all_coders())
        if (name == c->name) return c;
    return nullptr;
}

std::vector<int16_t> words_from_bytes(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> w(bytes.size() / 2);
    for (size_t i = 0; i < w.size(); ++i)
        w[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return w;
}

std::vector<uint8_t> bytes_from_words(const std::vector<int16_t>& words) {
    std::vector<uint8_t> b(words.size() * 2);
    for (size_t i = 0; i < words.size(); ++i) {
        b[2 * i] = static_cast<uint8_t>(words[i] & 0xff);
        b[2 * i + 1] = static_cast<uint8_t>((words[i] >> 8) & 0xff);
    }
    return b;
}

bool read_file(const std::string& path, std::vector<uint8_t>& bytes) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    bytes.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    return true;
}

}  // namespace kvosc::coders
