// G.726 ADPCM at 16, 24, 32 and 40 kbit/s, assembled from the library's exports.
//
//   encoder:  16-bit PCM >> 2 -> kvosEncode_G726_16s8u -> codes
//   decoder:  codes -> kvosDecode_G726_8u16s -> 14-bit PCM << 2
//                                             or A-law / mu-law byte -> G.711 expansion
//
// Options: --rate 16|24|32|40 (default 32), --law linear|a|u (default linear;
// the decoder's output law), --format packed|itu (default packed).
//   packed: the codes packed into octets from the least significant bit on
//           (RFC 3551 order for G.726); the PCM is padded to a multiple of 8
//           samples so that every rate fills whole octets.
//   itu:    one code per 16-bit word, as in the Recommendation's test vectors;
//           with --law a|u the PCM side is then one G.711 byte per 16-bit word
//           too (the vectors' .a/.m and .o files).
#include <algorithm>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "kvosc.h"

namespace kvosc::coders {
namespace {

struct Config {
    int kbps = 32;
    int bits = 4;
    KvoSpeechRate rate = kvoRate32000;
    int law = 2;  // decoder output law: 0 mu-law, 1 A-law, 2 linear
    bool itu = false;
};

bool parse(const Options& opt, Config& c, std::string& error) {
    static const Config rates[] = {
        {16, 2, kvoRate16000}, {24, 3, kvoRate24000}, {32, 4, kvoRate32000}, {40, 5, kvoRate40000}};
    static const char* const laws[] = {"u", "a", "linear"};  // decoder law 0, 1, 2
    const std::string r = opt.get("rate", "32"), l = opt.get("law", "linear"),
                      f = opt.get("format", "packed");
    bool found = false;
    for (const Config& rc : rates)
        if (r == std::to_string(rc.kbps)) c = rc, found = true;
    if (!found) return error = "g726: --rate must be 16, 24, 32 or 40", false;
    c.law = -1;
    for (int i = 0; i < 3; ++i)
        if (l == laws[i]) c.law = i;
    if (c.law < 0) return error = "g726: --law must be a, u or linear", false;
    if (f != "itu" && f != "packed") return error = "g726: --format must be packed or itu", false;
    c.itu = f == "itu";
    return true;
}

// G.711 expansion of a byte to 16-bit linear (law 0 mu-law, 1 A-law).
int expand(int law, int byte) {
    if (law == 1) {
        const int v = (byte ^ 0x55) & 0xFF;
        const int seg = (v >> 4) & 7, q = v & 15;
        const int mag = seg ? ((q << 4) + 0x108) << (seg - 1) : (q << 4) + 8;
        return (v & 0x80) ? mag : -mag;
    }
    const int v = ~byte & 0xFF;
    const int seg = (v >> 4) & 7, q = v & 15;
    const int mag = (((q << 3) + 0x84) << seg) - 0x84;
    return (v & 0x80) ? -mag : mag;
}

// Whole-block calls carry the state from one block to the next, so a long
// buffer goes through in blocks of a second and reports its progress.
constexpr size_t kBlock = 8000;

// The encoder over the whole buffer.
bool run_encoder(KvoSpeechRate rate, const std::vector<int16_t>& pcm14,
                 const std::vector<int16_t>* prefix, std::vector<uint8_t>& codes,
                 const Options* opt = nullptr) {
    KvoG726EncodeState st;
    if (kvosEncodeInit_G726_16s8u(&st, rate) != kvoOk) return false;
    if (prefix && !prefix->empty()) {  // homing: codes of the initialization are dropped
        std::vector<uint8_t> drop(prefix->size());
        if (kvosEncode_G726_16s8u(&st, prefix->data(), drop.data(),
                                  static_cast<Kvo32s>(prefix->size())) != kvoOk)
            return false;
    }
    codes.assign(pcm14.size(), 0);
    for (size_t at = 0; at < pcm14.size(); at += kBlock) {
        const size_t n = std::min(kBlock, pcm14.size() - at);
        if (kvosEncode_G726_16s8u(&st, pcm14.data() + at, codes.data() + at,
                                  static_cast<Kvo32s>(n)) != kvoOk)
            return false;
        if (opt) opt->tick(at + n, pcm14.size());
    }
    return true;
}

bool run_decoder(KvoSpeechRate rate, int law, const std::vector<uint8_t>& codes,
                 const std::vector<uint8_t>* prefix, std::vector<int16_t>& out,
                 const Options* opt = nullptr) {
    KvoG726DecodeState st;
    if (kvosDecodeInit_G726_8u16s(&st, rate, law) != kvoOk) return false;
    if (prefix && !prefix->empty()) {
        std::vector<int16_t> drop(prefix->size());
        if (kvosDecode_G726_8u16s(&st, prefix->data(), drop.data(),
                                  static_cast<Kvo32s>(prefix->size())) != kvoOk)
            return false;
    }
    out.assign(codes.size(), 0);
    for (size_t at = 0; at < codes.size(); at += kBlock) {
        const size_t n = std::min(kBlock, codes.size() - at);
        if (kvosDecode_G726_8u16s(&st, codes.data() + at, out.data() + at,
                                  static_cast<Kvo32s>(n)) != kvoOk)
            return false;
        if (opt) opt->tick(at + n, codes.size());
    }
    return true;
}

bool encode(const Options& opt, const std::vector<int16_t>& pcm, std::vector<uint8_t>& stream,
            std::string& error) {
    Config c;
    if (!parse(opt, c, error)) return false;
    std::vector<int16_t> x(pcm.size());
    for (size_t i = 0; i < pcm.size(); ++i) {
        const int lin = c.itu && c.law != 2 ? expand(c.law, pcm[i] & 0xFF) : pcm[i];
        x[i] = static_cast<int16_t>(lin >> 2);  // 16-bit to the 14-bit encoder input
    }
    if (!c.itu) x.resize((x.size() + 7) / 8 * 8, 0);
    std::vector<uint8_t> codes;
    if (!run_encoder(c.rate, x, nullptr, codes, &opt)) return error = "g726: encoder failed", false;
    stream.clear();
    if (c.itu) {
        for (uint8_t code : codes) {
            stream.push_back(code);
            stream.push_back(0);
        }
        return true;
    }
    uint32_t acc = 0;
    int n = 0;
    for (uint8_t code : codes) {
        acc |= static_cast<uint32_t>(code) << n;
        n += c.bits;
        while (n >= 8) {
            stream.push_back(static_cast<uint8_t>(acc));
            acc >>= 8;
            n -= 8;
        }
    }
    return true;
}

bool decode(const Options& opt, const std::vector<uint8_t>& stream, std::vector<int16_t>& pcm,
            std::string& error) {
    Config c;
    if (!parse(opt, c, error)) return false;
    std::vector<uint8_t> codes;
    if (c.itu) {
        for (int16_t w : words_from_bytes(stream)) {
            if (w < 0 || w >= (1 << c.bits)) return error = "g726: code out of range", false;
            codes.push_back(static_cast<uint8_t>(w));
        }
    } else {
        uint32_t acc = 0;
        int n = 0;
        for (uint8_t b : stream) {
            acc |= static_cast<uint32_t>(b) << n;
            n += 8;
            while (n >= c.bits) {
                codes.push_back(static_cast<uint8_t>(acc & ((1u << c.bits) - 1)));
                acc >>= c.bits;
                n -= c.bits;
            }
        }
    }
    std::vector<int16_t> out;
    if (!run_decoder(c.rate, c.law, codes, nullptr, out, &opt))
        return error = "g726: decoder failed", false;
    pcm.resize(out.size());
    for (size_t i = 0; i < out.size(); ++i) {
        if (c.law == 2)
            pcm[i] = static_cast<int16_t>(out[i] * 4);
        else
            pcm[i] = static_cast<int16_t>(c.itu ? out[i] : expand(c.law, out[i]));
    }
    return true;
}

// ---- verification against the Recommendation's test vectors -------------

// The initialization sequences of the homing sets hold 3496 values; their
// files are padded beyond that.
constexpr size_t kInitLength = 3496;
constexpr long kFrame = 80;  // samples compared per 10 ms row frame

struct Files {
    std::string dir;
    bool get(const std::string& name, std::vector<int16_t>& w) const {
        std::vector<uint8_t> b;
        if (!read_file(dir + "/" + name, b)) return false;
        w = words_from_bytes(b);
        return true;
    }
};

VerifyRow compare(const std::string& set, const std::vector<int16_t>& got,
                  const std::vector<int16_t>& want, const std::string& how) {
    VerifyRow row;
    row.set = set;
    row.frames = static_cast<long>((want.size() + kFrame - 1) / kFrame);
    long first = -1;
    for (size_t f = 0; f * kFrame < want.size(); ++f) {
        bool bad = false;
        for (size_t i = f * kFrame; i < want.size() && i < (f + 1) * kFrame; ++i) {
            if (i >= got.size() || got[i] != want[i]) {
                if (first < 0) first = static_cast<long>(i);
                bad = true;
            }
        }
        row.mismatched += bad;
    }
    row.note = how;
    if (first >= 0) {
        const size_t i = static_cast<size_t>(first);
        row.note += "; first difference at sample " + std::to_string(first) + ": " +
                    (i < got.size() ? std::to_string(got[i]) : std::string("none")) +
                    " instead of " + std::to_string(want[i]);
    }
    return row;
}

VerifyRow skipped(const std::string& set, const std::string& why) {
    VerifyRow row;
    row.set = set;
    row.skipped = true;
    row.note = why;
    return row;
}

std::vector<int16_t> to_words(const std::vector<uint8_t>& v) {
    return std::vector<int16_t>(v.begin(), v.end());
}

std::vector<uint8_t> to_codes(const std::vector<int16_t>& w) {
    std::vector<uint8_t> c(w.size());
    for (size_t i = 0; i < w.size(); ++i) c[i] = static_cast<uint8_t>(w[i]);
    return c;
}

std::vector<VerifyRow> verify(const std::string& dir) {
    const Files files{dir};
    std::vector<VerifyRow> rows;
    const struct {
        int kbps;
        KvoSpeechRate rate;
    } rates[] = {{16, kvoRate16000}, {24, kvoRate24000}, {32, kvoRate32000}, {40, kvoRate40000}};

    for (const auto& r : rates) {
        const std::string rs = std::to_string(r.kbps);
        for (const char mode : {'r', 'h'}) {
            const bool homing = mode == 'h';
            // Codes of each input law, from the file or else from the encoder.
            std::vector<uint8_t> codes[2][2];  // [law 0 mu, 1 A][0 normal, 1 overload]
            std::vector<uint8_t> init[2];      // decoder initialization codes per law
            for (int law = 0; law < 2; ++law) {
                const char lc = law ? 'a' : 'm';
                const std::string ls(1, law ? 'a' : 'm');
                std::vector<int16_t> pcmInit;
                std::vector<int16_t> ini;
                if (homing) {
                    if (!files.get("pcm_init." + ls, pcmInit) ||
                        !files.get("i_ini_" + rs + "." + ls, ini)) {
                        rows.push_back(skipped(std::string(1, mode) + "*" + rs + "f" + lc,
                                               "initialization sequences missing"));
                        continue;
                    }
                    pcmInit.resize(kInitLength);
                    ini.resize(kInitLength);
                    init[law] = to_codes(ini);
                }
                std::vector<int16_t> pre14(pcmInit.size());
                for (size_t i = 0; i < pcmInit.size(); ++i)
                    pre14[i] = static_cast<int16_t>(expand(law, pcmInit[i] & 0xFF) >> 2);
                if (homing) {  // the encoder's codes of the initialization are the decoder's
                    std::vector<uint8_t> c;
                    run_encoder(r.rate, pre14, nullptr, c);
                    rows.push_back(compare("pcm_init." + ls + " -> i_ini_" + rs + "." + ls,
                                           to_words(c), ini, "encoder, initialization"));
                }
                for (int kind = 0; kind < 2; ++kind) {
                    const std::string input = (kind ? "ovr." : "nrm.") + ls;
                    const std::string set =
                        std::string(1, mode) + (kind ? "v" : "n") + rs + "f" + lc + ".i";
                    std::vector<int16_t> in, want;
                    if (!files.get(input, in)) {
                        rows.push_back(skipped(set, input + " missing"));
                        continue;
                    }
                    std::vector<int16_t> x(in.size());
                    for (size_t i = 0; i < in.size(); ++i)
                        x[i] = static_cast<int16_t>(expand(law, in[i] & 0xFF) >> 2);
                    std::vector<uint8_t> got;
                    run_encoder(r.rate, x, homing ? &pre14 : nullptr, got);
                    if (files.get(set, want)) {
                        rows.push_back(compare(set, to_words(got), want, "encoder"));
                        codes[law][kind] = to_codes(want);
                    } else {
                        rows.push_back(skipped(set, "reference codes not present"));
                        codes[law][kind] = got;  // decoder sets below run on our codes
                    }
                }
            }
            // Decoder sets: same-law outputs (fa, fm) and cross-law (fc: mu-law
            // codes to A-law output, fx: A-law codes to mu-law output).
            for (int kind = 0; kind < 2; ++kind) {
                const std::string stem = std::string(1, mode) + (kind ? "v" : "n") + rs;
                const struct {
                    char tag;
                    int inLaw, outLaw;
                } outs[] = {{'m', 0, 0}, {'a', 1, 1}, {'c', 0, 1}, {'x', 1, 0}};
                for (const auto& o : outs) {
                    const std::string set = stem + "f" + o.tag + ".o";
                    std::vector<int16_t> want;
                    if (!files.get(set, want)) continue;
                    const auto& in = codes[o.inLaw][kind];
                    if (in.empty()) {
                        rows.push_back(skipped(set, "no input codes"));
                        continue;
                    }
                    // The homing decoder starts with the initialization codes of its
                    // output law; hn16fc.o was made from the start state.
                    const bool fromStart = !homing || set == "hn16fc.o";
                    std::vector<int16_t> got;
                    run_decoder(r.rate, o.outLaw, in, fromStart ? nullptr : &init[o.outLaw], got);
                    std::string how = "decoder";
                    std::vector<int16_t> present;
                    if (!files.get(stem + "f" + (o.inLaw ? 'a' : 'm') + ".i", present))
                        how += " on the encoder's codes";
                    if (homing && fromStart) how += " from the start state";
                    rows.push_back(compare(set, got, want, how));
                }
            }
            // Decoder on the ADPCM input sequences.
            std::vector<int16_t> iseq;
            if (!files.get("i" + rs, iseq)) continue;
            for (int law = 0; law < 2; ++law) {
                const std::string set =
                    std::string(1, mode) + "i" + rs + "f" + (law ? 'a' : 'm') + ".o";
                std::vector<int16_t> want;
                if (!files.get(set, want)) continue;
                std::vector<int16_t> got;
                run_decoder(r.rate, law, to_codes(iseq), homing ? &init[law] : nullptr, got);
                rows.push_back(compare(set, got, want, "decoder"));
            }
        }
    }
    // The variable-rate voice files belong to a software-tools demonstration
    // program, not to the Recommendation's test sequences.
    std::vector<int16_t> vbr;
    if (files.get("voicevbr.lrf", vbr))
        rows.push_back(
            skipped("voicevbr.*", "tools demonstration files, not G.726 test sequences"));
    return rows;
}

}  // namespace

extern const Coder kG726 = {
    "g726",
    "ITU-T G.726 ADPCM, 16/24/32/40 kbit/s",
    "--rate 16|24|32|40 --law linear|a|u --format packed|itu",
    8000,
    32.0,
    encode,
    decode,
    verify,
};

}  // namespace kvosc::coders
