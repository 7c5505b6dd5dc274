#include "audio.h"

#include <cstring>
#include <fstream>
#include <iterator>

namespace kvosc {

namespace {

uint32_t le32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t(p[3]) << 24); }
uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

void put32(std::vector<uint8_t>& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void put16(std::vector<uint8_t>& b, uint16_t v) {
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
}

bool ends_with(const std::string& s, const char* suffix) {
    size_t n = std::strlen(suffix);
    if (s.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (std::tolower(static_cast<unsigned char>(s[s.size() - n + i])) != suffix[i]) return false;
    return true;
}

bool parse_wav(const std::vector<uint8_t>& b, Audio& a, std::string& error) {
    size_t pos = 12;
    int channels = 0, bits = 0, format = 0;
    while (pos + 8 <= b.size()) {
        uint32_t id = le32(&b[pos]), len = le32(&b[pos + 4]);
        size_t body = pos + 8;
        if (id == 0x20746d66 /* "fmt " */ && len >= 16 && body + 16 <= b.size()) {
            format = le16(&b[body]);
            channels = le16(&b[body + 2]);
            a.rate = static_cast<int>(le32(&b[body + 4]));
            bits = le16(&b[body + 14]);
        } else if (id == 0x61746164 /* "data" */) {
            if (format != 1 || bits != 16 || channels < 1) {
                error = "only 16-bit PCM WAV files are supported";
                return false;
            }
            size_t n = std::min<size_t>(len, b.size() - body) / (2 * channels);
            a.samples.resize(n);
            for (size_t i = 0; i < n; ++i) {
                int sum = 0;
                for (int c = 0; c < channels; ++c)
                    sum += static_cast<int16_t>(le16(&b[body + 2 * (i * channels + c)]));
                a.samples[i] = static_cast<int16_t>(sum / channels);
            }
            return true;
        }
        pos = body + len + (len & 1);
    }
    error = "WAV file without a data chunk";
    return false;
}

}  // namespace

bool read_audio(const std::string& path, Audio& a, std::string& error) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        error = "cannot read '" + path + "'";
        return false;
    }
    std::vector<uint8_t> b((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    a = Audio{};
    if (b.size() >= 12 && std::memcmp(b.data(), "RIFF", 4) == 0 &&
        std::memcmp(b.data() + 8, "WAVE", 4) == 0)
        return parse_wav(b, a, error);
    a.samples.resize(b.size() / 2);
    for (size_t i = 0; i < a.samples.size(); ++i)
        a.samples[i] = static_cast<int16_t>(le16(&b[2 * i]));
    return true;
}

bool write_bytes(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error) {
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!f) error = "cannot write '" + path + "'";
    return static_cast<bool>(f);
}

bool write_audio(const std::string& path, const std::vector<int16_t>& s, int rate,
                 std::string& error) {
    std::vector<uint8_t> b;
    if (ends_with(path, ".wav")) {
        uint32_t data = static_cast<uint32_t>(s.size() * 2);
        b.insert(b.end(), {'R', 'I', 'F', 'F'});
        put32(b, 36 + data);
        b.insert(b.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
        put32(b, 16);
        put16(b, 1);
        put16(b, 1);
        put32(b, static_cast<uint32_t>(rate));
        put32(b, static_cast<uint32_t>(rate * 2));
        put16(b, 2);
        put16(b, 16);
        b.insert(b.end(), {'d', 'a', 't', 'a'});
        put32(b, data);
    }
    for (int16_t v : s) put16(b, static_cast<uint16_t>(v));
    return write_bytes(path, b, error);
}

}  // namespace kvosc
