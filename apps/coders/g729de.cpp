// The multi-rate G.729 coders of the kvosc tool: Annex D (6.4 kbit/s), Annex E
// (11.8 kbit/s) and the rate-switching coder that moves between 6.4, 8 and
// 11.8 kbit/s frame by frame.  All frames run the main-body encoder and
// decoder of g729.cpp at the frame's rate; the decoder takes each frame's
// rate from its length.  The 11.8 kbit/s mode is incomplete: the encoder
// codes every frame in forward mode (the 10th-order filter of the frame, 35
// pulse bits per subframe), which is a valid Annex E stream and the
// reference's own choice on many signals, but it never takes the
// backward-adaptive filter; the decoder reads forward-mode frames only and
// has no Annex E post filter (verify reports these sets as mismatches).
//
// Streams: `itu` is the ITU serial form (sync word 0x6b21, a size word 64,
// 80 or 118, then one word per bit, 0x0081 for 1 and 0x007f for 0; a frame
// with a zero bit word or the sync word 0x6b20 is erased).  `packed` gives
// each frame one octet with its payload length (8, 10 or 15 octets) followed
// by the payload, bits MSB first in transmission order.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "coders/g729.h"

namespace kvosc::coders {
namespace {

using g729::kFrame;
using g729::kParams;
using g729::Rate;

// Rates a stream may hold.
enum class StreamRate { k6k4, k8k, k11k8 };

int frame_bits(StreamRate r) {
    return r == StreamRate::k6k4 ? 64 : r == StreamRate::k8k ? 80 : 118;
}

// 11.8 kbit/s forward mode: mode (2), L0|L1, L2|L3, P1, P0, five 7-bit track
// words, GA1|GB1, P2, five track words, GA2|GB2.
constexpr int kParams11k8 = g729::kParamsMax;
const int kParamBits11k8[kParams11k8] = {2, 8, 10, 8, 1, 7, 7, 7, 7, 7, 7, 5, 7, 7, 7, 7, 7, 7};

const int* param_bits(StreamRate r) {
    return r == StreamRate::k6k4  ? g729::kParamBits6k
           : r == StreamRate::k8k ? g729::kParamBits
                                  : kParamBits11k8;
}

int param_count(StreamRate r) {
    return r == StreamRate::k11k8 ? kParams11k8 : kParams;
}

bool rate_of_bits(int bits, StreamRate* r) {
    if (bits == 64)
        *r = StreamRate::k6k4;
    else if (bits == 80)
        *r = StreamRate::k8k;
    else if (bits == 118)
        *r = StreamRate::k11k8;
    else
        return false;
    return true;
}

Rate core_rate(StreamRate r) {
    return r == StreamRate::k6k4 ? Rate::k6k4 : r == StreamRate::k8k ? Rate::k8k : Rate::k11k8;
}

// Parameter words <-> bit sequence (one int per bit, transmission order).
void params_to_bits(const int16_t* prm, StreamRate r, std::vector<int>& bits) {
    bits.clear();
    const int* w = param_bits(r);
    for (int p = 0; p < param_count(r); ++p)
        for (int b = w[p] - 1; b >= 0; --b) bits.push_back((prm[p] >> b) & 1);
}

void bits_to_params(const int* bits, StreamRate r, int16_t* prm) {
    const int* w = param_bits(r);
    for (int p = 0, at = 0; p < param_count(r); ++p) {
        int v = 0;
        for (int b = 0; b < w[p]; ++b) v = (v << 1) | bits[at++];
        prm[p] = static_cast<int16_t>(v);
    }
}

bool pick_format(const Options& opt, const char* dflt, std::string& format, std::string& error) {
    format = opt.get("format", dflt);
    if (format == "itu" || format == "packed") return true;
    error = "unknown --format '" + format + "' (itu or packed)";
    return false;
}

bool parse_rate(const std::string& s, StreamRate* r) {
    if (s == "6.4")
        *r = StreamRate::k6k4;
    else if (s == "8")
        *r = StreamRate::k8k;
    else if (s == "11.8")
        *r = StreamRate::k11k8;
    else
        return false;
    return true;
}

// Encodes with one rate per frame (the last entry repeats).
bool encode_rates(const std::string& format, const std::vector<StreamRate>& rates,
                  const std::vector<int16_t>& pcm, std::vector<uint8_t>& stream,
                  std::string& error) {
    g729::Encoder enc(false);
    std::vector<int16_t> words;
    std::vector<int> bits;
    stream.clear();
    for (size_t at = 0, f = 0; at < pcm.size(); at += kFrame, ++f) {
        const StreamRate r = rates[std::min(f, rates.size() - 1)];
        int16_t in[kFrame] = {}, prm[kParams11k8] = {};
        std::copy(pcm.begin() + at, pcm.begin() + std::min(at + kFrame, pcm.size()), in);
        if (!enc.frame(in, prm, core_rate(r))) {
            error = "encoder failed at frame " + std::to_string(f);
            return false;
        }
        params_to_bits(prm, r, bits);
        if (format == "itu") {
            words.push_back(0x6b21);
            words.push_back(static_cast<int16_t>(bits.size()));
            for (int b : bits) words.push_back(b ? 0x0081 : 0x007f);
        } else {
            const size_t n = (bits.size() + 7) / 8;
            stream.push_back(static_cast<uint8_t>(n));
            const size_t base = stream.size();
            stream.resize(base + n, 0);
            for (size_t i = 0; i < bits.size(); ++i)
                if (bits[i]) stream[base + i / 8] |= static_cast<uint8_t>(0x80 >> (i % 8));
        }
    }
    if (format == "itu") stream = bytes_from_words(words);
    return true;
}

bool decode_any(const Options& opt, const std::vector<uint8_t>& stream, std::vector<int16_t>& pcm,
                std::string& error) {
    std::string format;
    if (!pick_format(opt, "packed", format, error)) return false;
    g729::Decoder dec(false);
    pcm.clear();
    const std::vector<int16_t> words =
        format == "itu" ? words_from_bytes(stream) : std::vector<int16_t>();
    size_t at = 0;
    const size_t end = format == "itu" ? words.size() : stream.size();
    std::vector<int> bits;
    for (long f = 0; at < end; ++f) {
        StreamRate r;
        bool erased = false;
        bits.clear();
        if (format == "itu") {
            if (at + 2 > end || (words[at] != 0x6b21 && words[at] != 0x6b20) ||
                !rate_of_bits(words[at + 1], &r) || at + 2 + words[at + 1] > end) {
                error = "frame " + std::to_string(f) + ": not a 64, 80 or 118-bit serial frame";
                return false;
            }
            erased = words[at] == 0x6b20;
            const int n = words[at + 1];
            for (int i = 0; i < n; ++i) {
                const int16_t w = words[at + 2 + i];
                erased |= w == 0;
                bits.push_back(w == 0x0081 ? 1 : 0);
            }
            at += 2 + n;
        } else {
            const int n = stream[at];
            if (!rate_of_bits(n == 15 ? 118 : 8 * n, &r) || at + 1 + n > end) {
                error = "frame " + std::to_string(f) + ": bad packed frame length";
                return false;
            }
            for (int i = 0; i < frame_bits(r); ++i)
                bits.push_back((stream[at + 1 + i / 8] >> (7 - i % 8)) & 1);
            at += 1 + n;
        }
        int16_t prm[kParams11k8], out[kFrame];
        bits_to_params(bits.data(), r, prm);
        if (!dec.frame(prm, erased, out, core_rate(r))) {
            error =
                "decoder failed at frame " + std::to_string(f) +
                (r == StreamRate::k11k8 ? " (11.8 kbit/s backward mode is not available yet)" : "");
            return false;
        }
        pcm.insert(pcm.end(), out, out + kFrame);
    }
    return true;
}

// The size word of each frame of an ITU serial stream.
std::vector<StreamRate> stream_rates(const std::vector<int16_t>& words) {
    std::vector<StreamRate> rates;
    for (size_t at = 0; at + 1 < words.size(); at += 2 + std::max<int>(words[at + 1], 0)) {
        StreamRate r;
        if (!rate_of_bits(words[at + 1], &r)) break;
        rates.push_back(r);
    }
    return rates;
}

// Frames that differ between two serial streams (frame by frame, any length).
VerifyRow compare_serial(const std::string& name, const std::vector<int16_t>& got,
                         const std::vector<int16_t>& want) {
    VerifyRow row;
    row.set = name;
    size_t a = 0, b = 0;
    for (long f = 0; b + 1 < want.size(); ++f) {
        const size_t n = 2 + std::max<int>(want[b + 1], 0);
        ++row.frames;
        bool same = a + n <= got.size() &&
                    std::equal(want.begin() + b, want.begin() + b + n, got.begin() + a);
        if (!same && row.mismatched++ == 0) {
            size_t i = 0;
            while (a + i < got.size() && i < n && got[a + i] == want[b + i]) ++i;
            row.note =
                "first difference: frame " + std::to_string(f) + ", word " + std::to_string(i);
        }
        a += a + 1 < got.size() ? 2 + std::max<int>(got[a + 1], 0) : n;
        b += n;
    }
    return row;
}

VerifyRow compare_pcm(const std::string& name, const std::vector<int16_t>& got,
                      const std::vector<int16_t>& want) {
    VerifyRow row;
    row.set = name;
    row.frames = static_cast<long>(want.size() / kFrame);
    for (long f = 0; f < row.frames; ++f) {
        for (int i = 0; i < kFrame; ++i) {
            const size_t at = f * kFrame + i;
            if (at < got.size() && got[at] == want[at]) continue;
            if (row.mismatched++ == 0)
                row.note = "first difference: frame " + std::to_string(f) + ", sample " +
                           std::to_string(i) +
                           (at < got.size() ? " (" + std::to_string(got[at]) + " vs " +
                                                  std::to_string(want[at]) + ")"
                                            : " (output shorter)");
            break;
        }
    }
    return row;
}

// The file of a set in a folder, the name as given, in capitals or in lower case.
std::string find_file(const std::string& dir, std::string name) {
    std::vector<uint8_t> probe;
    for (int pass = 0; pass < 3; ++pass) {
        if (read_file(dir + "/" + name, probe)) return dir + "/" + name;
        for (char& c : name)
            c = static_cast<char>(pass == 0 ? std::toupper(static_cast<unsigned char>(c))
                                            : std::tolower(static_cast<unsigned char>(c)));
    }
    return "";
}

// One encoder row (input with the reference stream's rate sequence) and one
// decoder row (reference stream to reference output) per set.
void verify_set(const std::string& dir, const std::string& set, const std::string& input,
                const std::string& bitName, const std::string& outName,
                std::vector<VerifyRow>& rows) {
    const std::string bitPath = find_file(dir, bitName), outPath = find_file(dir, outName);
    if (bitPath.empty()) {
        rows.push_back({set, 0, 0, "no bit stream " + bitName, true});
        return;
    }
    std::vector<uint8_t> bit, in, out;
    read_file(bitPath, bit);
    const std::vector<int16_t> bitWords = words_from_bytes(bit);
    Options itu;
    itu.values.push_back({"format", "itu"});
    std::string error;
    const std::string inPath = input.empty() ? "" : find_file(dir, input);
    if (!inPath.empty() && read_file(inPath, in)) {
        std::vector<int16_t> pcm = words_from_bytes(in);
        pcm.resize(pcm.size() / kFrame * kFrame);  // the reference codes whole frames only
        std::vector<uint8_t> got;
        const std::vector<StreamRate> rates = stream_rates(bitWords);
        if (!rates.empty() && encode_rates("itu", rates, pcm, got, error))
            rows.push_back(compare_serial(set + " encoder", words_from_bytes(got), bitWords));
        else
            rows.push_back({set + " encoder", static_cast<long>(rates.size()),
                            static_cast<long>(rates.size()), error});
    }
    if (outPath.empty() || !read_file(outPath, out)) {
        rows.push_back({set + " decoder", 0, 0, "no output file " + outName, true});
        return;
    }
    std::vector<int16_t> pcm;
    const std::vector<int16_t> want = words_from_bytes(out);
    if (decode_any(itu, bit, pcm, error))
        rows.push_back(compare_pcm(set + " decoder", pcm, want));
    else
        rows.push_back({set + " decoder", static_cast<long>(want.size() / kFrame),
                        static_cast<long>(want.size() / kFrame), error});
}

std::vector<VerifyRow> verify_d(const std::string& dir) {
    std::vector<VerifyRow> rows;
    for (int n = 1; n <= 3; ++n)
        verify_set(dir, "testmid." + std::to_string(n), "testfile.raw",
                   "testmid." + std::to_string(n), "testout." + std::to_string(n), rows);
    return rows;
}

std::vector<VerifyRow> verify_e(const std::string& dir) {
    static const char* const kSets[] = {"algthme", "erasuree", "fixed35", "fixed44", "lspe",
                                        "ovpitch", "pitche",   "speeche", "stabilit"};
    std::vector<VerifyRow> rows;
    for (const char* set : kSets) {
        const std::string s = set;
        if (find_file(dir, s + ".bit").empty()) continue;
        verify_set(dir, s, s + ".118", s + ".bit", s + ".pst", rows);
    }
    verify_set(dir, "switch", "switch.xxx", "switch.bit", "switch.pst", rows);
    return rows;
}

std::vector<VerifyRow> verify_both(const std::string& dir) {
    // A folder of either annex: the set names tell which.
    if (!find_file(dir, "testmid.1").empty()) return verify_d(dir);
    return verify_e(dir);
}

bool encode_at(const Options& opt, StreamRate dflt, const std::vector<int16_t>& pcm,
               std::vector<uint8_t>& stream, std::string& error) {
    std::string format;
    if (!pick_format(opt, "packed", format, error)) return false;
    StreamRate r = dflt;
    const std::string rate = opt.get("rate", "");
    if (!rate.empty() && !parse_rate(rate, &r)) {
        error = "unknown --rate '" + rate + "' (6.4, 8 or 11.8)";
        return false;
    }
    return encode_rates(format, {r}, pcm, stream, error);
}

}  // namespace

extern const Coder kG729D = {
    "g729d",
    "ITU-T G.729 Annex D, 6.4 kbit/s",
    "--format packed|itu (packed: a length octet, then 8 or 10 octets; itu: serial words)",
    8000,
    6.4,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encode_at(o, StreamRate::k6k4, p, s, e);
    },
    decode_any,
    verify_d,
};

extern const Coder kG729E = {
    "g729e",
    "ITU-T G.729 Annex E, 11.8 kbit/s (forward mode only; incomplete)",
    "--format packed|itu (packed: a length octet, then 10 or 15 octets; itu: serial words)",
    8000,
    11.8,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encode_at(o, StreamRate::k11k8, p, s, e);
    },
    decode_any,
    verify_e,
};

extern const Coder kG729I = {
    "g729i",
    "ITU-T G.729 multi-rate 6.4/8/11.8 kbit/s",
    "--rate 6.4|8|11.8 (encoder; default 8) --format packed|itu (packed: a length octet, then "
    "8, 10 or 15 octets; itu: serial words with size words 64, 80, 118)",
    8000,
    8.0,
    [](const Options& o, const std::vector<int16_t>& p, std::vector<uint8_t>& s, std::string& e) {
        return encode_at(o, StreamRate::k8k, p, s, e);
    },
    decode_any,
    verify_both,
};

}  // namespace kvosc::coders
