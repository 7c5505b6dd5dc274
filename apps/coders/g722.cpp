// ITU-T G.722 7 kHz wideband coder at 64, 56 and 48 kbit/s, assembled from
// the library's exports as in the Recommendation's block diagram:
//
//   encoder: 16 kHz PCM -> transmit QMF -> SB-ADPCM encoder -> codes
//   decoder: codes -> SB-ADPCM decoder (mode 1, 2, 3) -> receive QMF -> PCM
//
// One 8-bit code per pair of samples: IH in the two high bits, IL in the six
// low bits.  --format packed (default) writes one octet per code, as RTP
// carries them; --format itu one code per 16-bit little-endian word, as the
// ITU test files do.  The encoder always sends 6-bit IL; --mode tells the
// decoder how many of its bits to use (1: 6, 64 kbit/s; 2: 5, 56; 3: 4, 48).
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "kvosc.h"

namespace kvosc::coders {
namespace {

constexpr int kFrame = 160;  // samples per call: 10 ms at 16 kHz

struct Config {
    int mode = 1;
    bool itu = false;
};

bool parse(const Options& opt, Config& cfg, std::string& error) {
    const std::string mode = opt.get("mode", "1");
    if (mode == "1" || mode == "2" || mode == "3") {
        cfg.mode = mode[0] - '0';
    } else {
        error = "g722: --mode must be 1, 2 or 3, not '" + mode + "'";
        return false;
    }
    const std::string format = opt.get("format", "packed");
    if (format == "itu" || format == "packed") {
        cfg.itu = format == "itu";
    } else {
        error = "g722: --format must be packed or itu, not '" + format + "'";
        return false;
    }
    return true;
}

// State block of the SB-ADPCM coder (aligned inside by the library) and the
// QMF delay line of one direction.
struct Channel {
    std::vector<Kvo8u> mem;
    Kvo16s qmf[24] = {};
};

bool open_encoder(Channel& ch) {
    Kvo32s size = 0;
    if (kvosSBADPCMEncodeStateSize_G722_16s(&size) != kvoOk) return false;
    ch.mem.assign(size, 0);
    return kvosSBADPCMEncodeInit_G722_16s(ch.mem.data()) == kvoOk;
}

bool open_decoder(Channel& ch) {
    Kvo32s size = 0;
    if (kvosSBADPCMDecodeStateSize_G722_16s(&size) != kvoOk) return false;
    ch.mem.assign(size, 0);
    return kvosSBADPCMDecodeInit_G722_16s(ch.mem.data()) == kvoOk;
}

// PCM (even length) to codes, one per pair of samples.
bool encode_codes(const std::vector<int16_t>& pcm, std::vector<uint8_t>& codes,
                  const Options* opt = nullptr) {
    Channel ch;
    if (!open_encoder(ch)) return false;
    codes.resize(pcm.size() / 2);
    Kvo16s band[kFrame], code[kFrame];
    for (size_t at = 0; at < pcm.size(); at += kFrame) {
        const Kvo32s n = static_cast<Kvo32s>(std::min<size_t>(kFrame, pcm.size() - at));
        if (kvosQMFEncode_G722_16s(pcm.data() + at, band, n, ch.qmf) != kvoOk) return false;
        if (kvosSBADPCMEncode_G722_16s(band, code, n, ch.mem.data()) != kvoOk) return false;
        for (Kvo32s i = 0; i < n / 2; ++i)
            codes[at / 2 + i] = static_cast<uint8_t>((code[2 * i + 1] << 6) | code[2 * i]);
        if (opt) opt->tick(at + static_cast<size_t>(n), pcm.size());
    }
    return true;
}

// Codes to PCM, two samples per code.
bool decode_codes(const std::vector<uint8_t>& codes, int mode, std::vector<int16_t>& pcm,
                  const Options* opt = nullptr) {
    Channel ch;
    if (!open_decoder(ch)) return false;
    pcm.resize(codes.size() * 2);
    Kvo16s code[kFrame], band[kFrame];
    for (size_t at = 0; at < codes.size(); at += kFrame / 2) {
        const size_t pairs = std::min<size_t>(kFrame / 2, codes.size() - at);
        for (size_t i = 0; i < pairs; ++i) {
            code[2 * i] = codes[at + i] & 63;
            code[2 * i + 1] = codes[at + i] >> 6;
        }
        const Kvo32s n = static_cast<Kvo32s>(2 * pairs);
        if (kvosSBADPCMDecode_G722_16s(code, band, n, mode, ch.mem.data()) != kvoOk) return false;
        if (kvosQMFDecode_G722_16s(band, pcm.data() + 2 * at, n, ch.qmf) != kvoOk) return false;
        if (opt) opt->tick(at + pairs, codes.size());
    }
    return true;
}

bool encode(const Options& opt, const std::vector<int16_t>& pcm, std::vector<uint8_t>& stream,
            std::string& error) {
    Config cfg;
    if (!parse(opt, cfg, error)) return false;
    std::vector<int16_t> in = pcm;
    if (in.size() % 2) in.push_back(0);
    std::vector<uint8_t> codes;
    if (!encode_codes(in, codes, &opt)) {
        error = "g722: encoder call failed";
        return false;
    }
    if (cfg.itu) {
        stream.clear();
        for (uint8_t c : codes) {
            stream.push_back(c);
            stream.push_back(0);
        }
    } else {
        stream = std::move(codes);
    }
    return true;
}

bool decode(const Options& opt, const std::vector<uint8_t>& stream, std::vector<int16_t>& pcm,
            std::string& error) {
    Config cfg;
    if (!parse(opt, cfg, error)) return false;
    std::vector<uint8_t> codes;
    if (cfg.itu) {
        for (int16_t w : words_from_bytes(stream)) codes.push_back(static_cast<uint8_t>(w & 0xff));
    } else {
        codes = stream;
    }
    if (!decode_codes(codes, cfg.mode, pcm, &opt)) {
        error = "g722: decoder call failed";
        return false;
    }
    return true;
}

// Compares two word sequences frame by frame; frames of `frame` words.
VerifyRow compare(const std::string& set, const std::vector<int16_t>& got,
                  const std::vector<int16_t>& want, size_t frame) {
    VerifyRow row;
    row.set = set;
    row.frames = static_cast<long>((want.size() + frame - 1) / frame);
    if (got.size() != want.size())
        row.note =
            "length " + std::to_string(got.size()) + ", expected " + std::to_string(want.size());
    for (size_t f = 0; f * frame < want.size(); ++f) {
        for (size_t i = f * frame; i < std::min(want.size(), (f + 1) * frame); ++i) {
            if (i >= got.size() || got[i] != want[i]) {
                if (row.mismatched == 0 && row.note.empty())
                    row.note = "first difference at word " + std::to_string(i) + ": " +
                               (i < got.size() ? std::to_string(got[i]) : "missing") +
                               " instead of " + std::to_string(want[i]);
                ++row.mismatched;
                break;
            }
        }
    }
    if (got.size() != want.size() && row.mismatched == 0) row.mismatched = 1;
    return row;
}

VerifyRow skipped(const std::string& set, const std::string& why) {
    VerifyRow row;
    row.set = set;
    row.skipped = true;
    row.note = why;
    return row;
}

std::vector<VerifyRow> verify(const std::string& dir) {
    std::vector<VerifyRow> rows;
    std::vector<uint8_t> in_b, codes_b;
    const bool have_in = read_file(dir + "/inpsp.bin", in_b);
    const bool have_codes = read_file(dir + "/codspw.cod", codes_b);
    std::vector<int16_t> want_codes = words_from_bytes(codes_b);

    // Encoder: inpsp.bin -> codspw.cod, compared per 10 ms (80 codes).
    if (!have_in || !have_codes) {
        rows.push_back(skipped("encoder", "inpsp.bin or codspw.cod missing in " + dir));
    } else {
        std::vector<int16_t> pcm = words_from_bytes(in_b);
        std::vector<uint8_t> codes;
        std::vector<int16_t> got;
        if (encode_codes(pcm, codes))
            for (uint8_t c : codes) got.push_back(c);
        rows.push_back(compare("encoder inpsp -> codspw", got, want_codes, kFrame / 2));
    }

    // The same codes two to a word (the first in the high byte): codsp.cod.
    std::vector<uint8_t> packed_b;
    if (!have_in || !read_file(dir + "/codsp.cod", packed_b)) {
        rows.push_back(skipped("encoder inpsp -> codsp", "inpsp.bin or codsp.cod missing"));
    } else {
        std::vector<uint8_t> codes;
        std::vector<int16_t> got;
        if (encode_codes(words_from_bytes(in_b), codes))
            for (size_t i = 0; i + 1 < codes.size(); i += 2)
                got.push_back(static_cast<int16_t>((codes[i] << 8) | codes[i + 1]));
        rows.push_back(
            compare("encoder inpsp -> codsp", got, words_from_bytes(packed_b), kFrame / 4));
    }

    // Decoder at each mode: codspw.cod -> outspM.bin, compared per 10 ms.
    for (int mode = 1; mode <= 3; ++mode) {
        const std::string out = "outsp" + std::to_string(mode) + ".bin";
        const std::string set = "decoder mode " + std::to_string(mode) + " codspw -> " + out;
        std::vector<uint8_t> out_b;
        if (!have_codes || !read_file(dir + "/" + out, out_b)) {
            rows.push_back(skipped(set, "codspw.cod or " + out + " missing in " + dir));
            continue;
        }
        std::vector<uint8_t> codes;
        for (int16_t w : want_codes) codes.push_back(static_cast<uint8_t>(w & 0xff));
        std::vector<int16_t> pcm;
        if (!decode_codes(codes, mode, pcm)) pcm.clear();
        rows.push_back(compare(set, pcm, words_from_bytes(out_b), kFrame));
    }
    return rows;
}

}  // namespace

extern const Coder kG722 = {
    "g722",
    "ITU-T G.722 7 kHz SB-ADPCM, 64/56/48 kbit/s",
    "--mode 1|2|3 (64, 56, 48 kbit/s at the decoder)  --format packed|itu",
    16000,
    64.0,
    encode,
    decode,
    verify,
};

}  // namespace kvosc::coders
