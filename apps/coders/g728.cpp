// ITU-T G.728 LD-CELP at 16 kbit/s, assembled from the library's block
// floating point steps as in the Recommendation's block diagram:
//
//   encoder: PCM -> perceptual weighting filter -> minus zero-input response of
//            synthesis + weighting filter -> target -> shape/gain codebook search
//            -> excitation (gain-scaled code vector) -> zero-state update
//   decoder: index -> excitation -> order-50 synthesis filter -> [post filter]
//   both:    backward adaptation every 2.5 ms: order-50 synthesis predictor from
//            decoded speech (hybrid window, Levinson-Durbin, bandwidth
//            expansion), order-10 log-gain predictor from past excitation gains;
//            the encoder also adapts its weighting filter from the input.
//
// Vectors of 5 samples, adaptation cycles of 4 vectors: the synthesis and
// weighting filters computed from the previous cycle take over at the third
// vector, the log-gain predictor (from the four newest log gains) at the
// second.  The log-gain predictor starts by repeating the last log gain, so the
// first vectors run at 0 dB.  Samples are 16-bit PCM, 8 times the coder's
// 13-bit linear scale; the weighting filter runs at exponent 2 (4 times that
// scale).  The excitation gain, the log gains (Q9 dB) and the post filter's
// pitch tap and level control are computed here in double precision.
// --format packed (default): 10-bit indices packed MSB first; --format itu:
// one index per 16-bit little-endian word, as the ITU test files.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "coders/g728_coder_tables.h"
#include "kvosc.h"

namespace kvosc::coders {
namespace {

using namespace kvo::tab;

constexpr int kVec = 5;
constexpr int kCycle = 20;
constexpr double kOffset = 32.0;

struct Config {
    bool itu = false;
    bool postfilter = true;
};

bool parse(const Options& opt, Config& cfg, std::string& error) {
    const std::string format = opt.get("format", "packed");
    if (format != "itu" && format != "packed") {
        error = "g728: --format must be itu or packed, not '" + format + "'";
        return false;
    }
    cfg.itu = format == "itu";
    const std::string pf = opt.get("postfilter", "on");
    if (pf != "on" && pf != "off") {
        error = "g728: --postfilter must be on or off, not '" + pf + "'";
        return false;
    }
    cfg.postfilter = pf == "on";
    return true;
}

int16_t sat16(double v) {
    return static_cast<int16_t>(std::clamp(std::lround(v), -32768L, 32767L));
}

// One hybrid-window analysis: its state block (address fixed after Init).
struct Window {
    std::vector<uint8_t> mem;
    bool init(const int16_t* win, int m, int l, int n, int block, int decay) {
        Kvo32s size = 0;
        if (kvosWinHybridGetStateSize_G728_16s(m, l, n, block, &size) != kvoOk) return false;
        mem.assign(size, 0);
        return kvosWinHybridInit_G728_16s(win, m, l, n, block, decay, mem.data()) == kvoOk;
    }
};

// Levinson-Durbin of order `order` from lags R; coefficients to Q14 with the
// bandwidth expansion table bw (Q14).  False keeps the caller's old filter.
bool lpc(const Kvo16s* R, int order, const int16_t* bw, int16_t* out, int16_t* rc10 = nullptr,
         int16_t* a10 = nullptr) {
    Kvo16s a[50], rc, res, scale;
    const int first = order > 10 ? 10 : order;
    if (kvosLevinsonDurbin_G728_16s_Sfs(R, first, a, &rc, &res, &scale) != kvoOk) return false;
    if (a10) {
        for (int i = 0; i < 10; ++i) a10[i] = sat16(std::ldexp(a[i], 13 - scale));
        *rc10 = rc;
    }
    if (order > 10 && kvosLevinsonDurbin_G728_16s_ISfs(R, 10, order, a, &res, &scale) != kvoOk)
        return false;
    for (int i = 0; i < order; ++i)
        out[i] = sat16(std::ldexp(static_cast<double>(a[i]) * bw[i], -scale));
    return true;
}

// State shared by encoder and decoder: the backward-adapted predictors.
struct Backward {
    Window synWin, gainWin;
    int16_t a50[50] = {}, a50Next[50] = {};  // synthesis predictor, Q14
    int16_t gainCoef[10] = {-16384};         // log-gain predictor, Q14
    int16_t a10[10] = {}, rc1 = 0;           // order-10 predictor (Q13) and k1 (Q15)
    bool havePost = false;
    double logGain[10];  // offset-removed log gains (dB), newest first
    int16_t cycleSpeech[kCycle] = {}, cycleExp[4] = {};
    bool ok = true;

    Backward() {
        std::fill(logGain, logGain + 10, -kOffset);
        ok = synWin.init(coder_g728_wnr, 50, 20, 35, 5, 12288) &&
             gainWin.init(coder_g728_wnrg, 10, 4, 20, 0, 12288);
    }

    // Start of a cycle: the synthesis predictor from what the last cycle decoded.
    void adapt_synthesis() {
        Kvo16s R[51];
        KvoStatus s = kvosWinHybridBlock_G728_16s(0, cycleSpeech, cycleExp, R, synWin.mem.data());
        if (s == kvoOk && lpc(R, 50, coder_g728_iw, a50Next, &rc1, a10)) havePost = true;
    }

    // Second vector of a cycle: the log-gain predictor from the four newest log gains.
    void adapt_gain() {
        int16_t last[4];
        for (int i = 0; i < 4; ++i) last[i] = sat16(logGain[3 - i] * 512.0);
        Kvo16s G[11];
        const KvoStatus s = kvosWinHybrid_G728_16s(0, last, G, gainWin.mem.data());
        int16_t g[10];
        if (s == kvoOk && lpc(G, 10, coder_g728_iwg, g)) std::memcpy(gainCoef, g, sizeof g);
    }

    // Excitation gain of the next vector, linear in the 14-bit scale.
    double sigma() const {
        double p = 0;
        for (int i = 0; i < 10; ++i) p -= gainCoef[i] / 16384.0 * logGain[i];
        const double lg = std::clamp(std::floor(p * 512.0) / 512.0 + kOffset, 0.0, 60.0);
        return std::pow(10.0, lg / 20.0);
    }

    // Gain-scaled excitation of code `index` as 16-bit words with an exponent.
    int excitation(int index, double sig, int16_t* e) const {
        const int shape = index >> 3, g = index & 7;
        const double gain = (g & 4 ? -1 : 1) * coder_g728_g2[g & 3] / 8192.0;
        double v[kVec], mx = 0;
        for (int j = 0; j < kVec; ++j) {
            v[j] = sig * gain * coder_g728_shape[shape][4 - j] / 2048.0;
            mx = std::max(mx, std::fabs(v[j]));
        }
        int exp = 0;
        if (mx > 0)
            while (mx * std::ldexp(1.0, exp) < 4096.0 && exp < 30) ++exp;
        while (mx * std::ldexp(1.0, exp) >= 8192.0) --exp;
        for (int j = 0; j < kVec; ++j) e[j] = sat16(std::ldexp(v[j], exp));
        return exp;
    }

    // After a vector: record its gain and decoded speech.
    void finish_vector(int k, const int16_t* e, int eExp, const int16_t* y, int yExp) {
        double ms = 0;
        for (int j = 0; j < kVec; ++j) {
            const double x = std::ldexp(e[j], -eExp);
            ms += x * x;
        }
        ms /= kVec;
        const double lg = 10.0 * std::log10(std::max(ms, 1.0)) - kOffset;
        std::memmove(logGain + 1, logGain, sizeof(double) * 9);
        logGain[0] = std::round(lg * 512.0) / 512.0;
        std::memcpy(cycleSpeech + kVec * k, y, sizeof(int16_t) * kVec);
        cycleExp[k] = static_cast<int16_t>(yExp);
    }
};

int16_t to_pcm(int16_t v, int exp) {
    return sat16(std::floor(std::ldexp(v, 3 - exp) + 0.5));  // PCM: 8 times the 13-bit scale
}

// ---- decoder --------------------------------------------------------------

struct PostFilter {
    KvoG728PostFilterState pf;
    KvoG728PostFilterAdapterState ad;
    std::vector<int16_t> speech = std::vector<int16_t>(240, 0);  // decoded, oldest first
    std::vector<int16_t> resid = std::vector<int16_t>(240, 0);
    Kvo32s pitch = 50;
    int16_t coef[20] = {}, invCoef[10] = {}, tilt = 0, gain = 16384, gainLag = 0;
    double agc = 1.0;
    PostFilter() {
        kvosPostFilterInit_G728_16s(&pf);
        kvosPostFilterAdapterStateInit_G728(&ad);
    }
    void adapt(const Backward& b) {
        kvosPitchPeriodExtraction_G728_16s(resid.data() + 140, &pitch, &ad);
        double c = 0, e = 0;
        for (int n = 140; n < 240; ++n) {
            c += double(speech[n]) * speech[n - pitch];
            e += double(speech[n - pitch]) * speech[n - pitch];
        }
        double tap = e > 0 ? c / e : 0;
        if (tap < 0.6) tap = 0;
        tap = std::min(tap, 1.0);
        const double bl = 0.15 * tap, gl = 1.0 / (1.0 + bl);
        gain = sat16(gl * 16384);
        gainLag = sat16(gl * bl * 16384);
        if (b.havePost) {
            for (int i = 0; i < 10; ++i) {
                invCoef[i] = b.a10[i];
                coef[i] = sat16(b.a10[i] * 2.0 * coder_g728_iwpfz[i] / 16384.0);
                coef[10 + i] = sat16(b.a10[i] * 2.0 * coder_g728_iwpfp[i] / 16384.0);
            }
            tilt = sat16(0.15 * b.rc1 / 2.0);
        }
    }
    void run(int k, const int16_t* y, int16_t* out) {
        int16_t r[kVec];
        kvosLPCInverseFilter_G728_16s(y, invCoef, r, &ad);
        std::memmove(speech.data(), speech.data() + kVec, sizeof(int16_t) * 235);
        std::memcpy(speech.data() + 235, y, sizeof(int16_t) * kVec);
        std::memmove(resid.data(), resid.data() + kVec, sizeof(int16_t) * 235);
        std::memcpy(resid.data() + 235, r, sizeof(int16_t) * kVec);
        int16_t p[kVec];
        kvosPostFilter_G728_16s(gain, gainLag, static_cast<int16_t>(pitch), tilt, coef,
                                speech.data() + 235, p, &pf);
        double si = 0, so = 0;
        for (int j = 0; j < kVec; ++j) {
            si += std::abs(y[j]);
            so += std::abs(p[j]);
        }
        const double ratio = so > 0 ? si / so : 1.0;
        for (int j = 0; j < kVec; ++j) {
            agc = 0.99 * agc + 0.01 * ratio;
            out[j] = sat16(p[j] * agc);
        }
    }
};

bool decode_indices(const std::vector<int>& idx, bool post, std::vector<int16_t>& pcm,
                    std::string& error) {
    Backward b;
    KvoG728SynthesisState syn;
    PostFilter pf;
    if (!b.ok || kvosSynthesisFilterInit_G728_16s(&syn) != kvoOk) {
        error = "g728: state initialisation failed";
        return false;
    }
    pcm.assign(idx.size() * kVec, 0);
    for (size_t v = 0; v < idx.size(); ++v) {
        const int k = static_cast<int>(v % 4);
        if (k == 0 && v > 0) {
            b.adapt_synthesis();
            if (post) pf.adapt(b);
        }
        if (k == 1) b.adapt_gain();
        if (k == 2) std::memcpy(b.a50, b.a50Next, sizeof b.a50);
        int16_t e[kVec], y[kVec], yExp;
        const int eExp = b.excitation(idx[v] & 1023, b.sigma(), e);
        int16_t e0[kVec];
        std::memcpy(e0, e, sizeof e);
        if (kvosSyntesisFilterZeroInput_G728_16s(b.a50, e, eExp, y, &yExp, &syn) != kvoOk) {
            error = "g728: synthesis filter failed";
            return false;
        }
        b.finish_vector(k, e0, eExp, y, yExp);
        int16_t s[kVec];
        for (int j = 0; j < kVec; ++j) s[j] = to_pcm(y[j], yExp);
        if (post)
            pf.run(k, s, &pcm[v * kVec]);
        else
            std::memcpy(&pcm[v * kVec], s, sizeof s);
    }
    return true;
}

// ---- encoder --------------------------------------------------------------

struct Encoder {
    Backward b;
    Window wWin;
    KvoG728CombinedState comb;
    KvoG728IIRState weightIn;
    int16_t weight[20] = {}, weightNext[20] = {};
    int16_t h[kVec] = {8192}, energy[128] = {};
    int16_t cycleIn[kCycle] = {};
    bool ok;
    Encoder() {
        ok = b.ok && wWin.init(coder_g728_wnrw, 10, 20, 30, 0, 8192) &&
             kvosCombinedFilterInit_G728_16s(&comb) == kvoOk &&
             kvosIIR16sInit_G728_16s(&weightIn) == kvoOk;
        update_impulse();
    }
    void adapt_weight() {
        Kvo16s R[11];
        int16_t a[10];
        if (kvosWinHybrid_G728_16s(0, cycleIn, R, wWin.mem.data()) != kvoOk) return;
        if (!lpc(R, 10, coder_g728_iwwz, a)) return;
        int16_t p[10];
        lpc(R, 10, coder_g728_iwwp, p);
        std::memcpy(weightNext, a, sizeof a);
        std::memcpy(weightNext + 10, p, sizeof p);
    }
    // Impulse response of synthesis and weighting filter (Q13), codebook energies.
    void update_impulse() {
        double s[kVec], w[kVec];
        for (int n = 0; n < kVec; ++n) {
            double v = n == 0 ? 1.0 : 0.0;
            for (int i = 0; i < n; ++i) v -= b.a50[i] / 16384.0 * s[n - 1 - i];
            s[n] = v;
            double u = s[n];
            for (int i = 0; i < n; ++i)
                u += weight[i] / 16384.0 * s[n - 1 - i] - weight[10 + i] / 16384.0 * w[n - 1 - i];
            w[n] = u;
            h[n] = sat16(w[n] * 8192.0);
        }
        kvosImpulseResponseEnergy_G728_16s(h, energy);
    }
    int vector(int k, const int16_t* in) {
        int16_t v[kVec], r[kVec], half[kVec];
        for (int j = 0; j < kVec; ++j) half[j] = static_cast<int16_t>(in[j] >> 1);  // exponent 2
        kvosIIR16s_G728_16s(weight, half, v, kVec, &weightIn);
        kvosCombinedFilterZeroInput_G728_16s(b.a50, weight, r, &comb);
        const double sig = b.sigma();
        double x[kVec];
        for (int j = 0; j < kVec; ++j) x[j] = (double(v[j]) - r[j]) / 4.0 / sig;
        int16_t p[kVec];
        for (int j = 0; j < kVec; ++j) {
            double c = 0;
            for (int n = j; n < kVec; ++n) c += x[n] * h[n - j] / 8192.0;
            p[j] = sat16(c * 128.0);
        }
        Kvo32s shape, gain;
        Kvo16s code;
        kvosCodebookSearch_G728_16s(p, energy, &shape, &gain, &code, 17);
        int16_t e[kVec], e0[kVec], y[kVec], yExp;
        const int eExp = b.excitation(code, sig, e);
        std::memcpy(e0, e, sizeof e);
        kvosCombinedFilterZeroState_G728_16s(b.a50, weight, e, eExp, y, &yExp, &comb);
        b.finish_vector(k, e0, eExp, y, yExp);
        std::memcpy(cycleIn + kVec * k, in, sizeof(int16_t) * kVec);
        return code;
    }
};

bool encode_indices(const std::vector<int16_t>& pcm, std::vector<int>& idx, std::string& error) {
    Encoder enc;
    if (!enc.ok) {
        error = "g728: state initialisation failed";
        return false;
    }
    const size_t nv = (pcm.size() + kVec - 1) / kVec;
    idx.assign(nv, 0);
    for (size_t v = 0; v < nv; ++v) {
        const int k = static_cast<int>(v % 4);
        if (k == 0 && v > 0) {
            enc.b.adapt_synthesis();
            enc.adapt_weight();
        }
        if (k == 1) enc.b.adapt_gain();
        if (k == 2) {
            std::memcpy(enc.b.a50, enc.b.a50Next, sizeof enc.b.a50);
            std::memcpy(enc.weight, enc.weightNext, sizeof enc.weight);
            enc.update_impulse();
        }
        int16_t in[kVec] = {};
        for (int j = 0; j < kVec && v * kVec + j < pcm.size(); ++j) in[j] = pcm[v * kVec + j];
        idx[v] = enc.vector(k, in);
    }
    return true;
}

// ---- streams --------------------------------------------------------------

bool encode(const Options& opt, const std::vector<int16_t>& pcm, std::vector<uint8_t>& stream,
            std::string& error) {
    Config cfg;
    if (!parse(opt, cfg, error)) return false;
    std::vector<int> idx;
    if (!encode_indices(pcm, idx, error)) return false;
    stream.clear();
    if (cfg.itu) {
        std::vector<int16_t> w(idx.begin(), idx.end());
        stream = bytes_from_words(w);
        return true;
    }
    uint32_t acc = 0;
    int bits = 0;
    for (int i : idx) {
        acc = (acc << 10) | (i & 1023);
        bits += 10;
        while (bits >= 8) {
            stream.push_back(static_cast<uint8_t>(acc >> (bits - 8)));
            bits -= 8;
        }
    }
    if (bits > 0) stream.push_back(static_cast<uint8_t>(acc << (8 - bits)));
    return true;
}

bool decode(const Options& opt, const std::vector<uint8_t>& stream, std::vector<int16_t>& pcm,
            std::string& error) {
    Config cfg;
    if (!parse(opt, cfg, error)) return false;
    std::vector<int> idx;
    if (cfg.itu) {
        for (int16_t w : words_from_bytes(stream)) idx.push_back(w & 1023);
    } else {
        const size_t n = stream.size() * 8 / 10;
        for (size_t i = 0; i < n; ++i) {
            int v = 0;
            for (int b = 0; b < 10; ++b) {
                const size_t bit = i * 10 + b;
                v = (v << 1) | ((stream[bit / 8] >> (7 - bit % 8)) & 1);
            }
            idx.push_back(v);
        }
    }
    return decode_indices(idx, cfg.postfilter, pcm, error);
}

VerifyRow compare(const std::string& set, const std::vector<int16_t>& got,
                  const std::vector<int16_t>& want, int per) {
    VerifyRow row;
    row.set = set;
    row.frames = static_cast<long>(want.size() / per);
    for (long f = 0; f < row.frames; ++f) {
        bool diff = false;
        for (int j = 0; j < per; ++j) {
            const size_t i = f * per + j;
            if (i >= got.size() || got[i] != want[i]) {
                if (row.note.empty())
                    row.note = "first difference: frame " + std::to_string(f) + " word " +
                               std::to_string(j) + ": " +
                               (i < got.size() ? std::to_string(got[i]) : "missing") +
                               " instead of " + std::to_string(want[i]);
                diff = true;
            }
        }
        row.mismatched += diff;
    }
    return row;
}

std::vector<VerifyRow> verify(const std::string& dir) {
    std::vector<VerifyRow> rows;
    auto load = [&](const std::string& name, std::vector<int16_t>& w) {
        std::vector<uint8_t> b;
        if (!read_file(dir + "/" + name, b)) return false;
        w = words_from_bytes(b);
        return true;
    };
    // Frames are 2.5 ms: 20 samples, 4 indices.
    for (int n : {1, 2, 3, 4, 6}) {
        const std::string s = std::to_string(n);
        std::vector<int16_t> in, want, cw;
        VerifyRow row;
        if (load("in" + s + ".bin", in) && load("incw" + s + "g.bin", want)) {
            std::vector<int> idx;
            std::string err;
            encode_indices(in, idx, err);
            std::vector<int16_t> got(idx.begin(), idx.end());
            row = compare("encoder in" + s + " -> incw" + s + "g", got, want, 4);
        } else {
            row.set = "encoder in" + s;
            row.skipped = true;
            row.note = "files missing";
        }
        rows.push_back(row);
        row = VerifyRow{};
        if (load("cw" + s + ".bin", cw) && load("outa" + s + "g.bin", want)) {
            std::vector<int> idx(cw.begin(), cw.end());
            std::vector<int16_t> got;
            std::string err;
            for (auto& i : idx) i &= 1023;
            decode_indices(idx, false, got, err);
            row = compare("decoder cw" + s + " -> outa" + s + "g", got, want, 20);
        } else {
            row.set = "decoder cw" + s;
            row.skipped = true;
            row.note = "files missing";
        }
        rows.push_back(row);
    }
    std::vector<int16_t> cw, want;
    VerifyRow row;
    if (load("cw4.bin", cw) && load("outb4g.bin", want)) {
        std::vector<int> idx(cw.begin(), cw.end());
        for (auto& i : idx) i &= 1023;
        std::vector<int16_t> got;
        std::string err;
        decode_indices(idx, true, got, err);
        row = compare("decoder+postfilter cw4 -> outb4g", got, want, 20);
    } else {
        row.set = "decoder+postfilter cw4";
        row.skipped = true;
        row.note = "files missing";
    }
    rows.push_back(row);
    return rows;
}

}  // namespace

extern const Coder kG728 = {
    "g728",
    "ITU-T G.728 LD-CELP 16 kbit/s",
    "--format packed|itu --postfilter on|off",
    8000,
    16.0,
    encode,
    decode,
    verify,
};

}  // namespace kvosc::coders
