// GSM 06.10 full-rate speech coder (RPE-LTP, 13 kbit/s) assembled from the
// library's GSM full-rate steps, with the codec homing of the standard.
//
// Encoder, per 20 ms frame of 160 samples (13-bit samples left-justified in
// 16-bit words; plain 16-bit PCM is taken the same way, its three low bits
// being dropped by the offset compensation):
//   preprocessing     offset compensation, preemphasis
//   LPC analysis      autocorrelation, Schur recursion, LAR transformation
//                     and coding (LARc[1..8])
//   short-term analysis filtering, with the LARs interpolated in 4 sections
//   per subframe of 40 samples:
//     long-term analysis    lag Nc and gain bc, LTP filtering
//     RPE encoding          weighting filter, grid selection (Mc), APCM
//                           quantisation (xmaxc, xmc[0..12]), inverse APCM
//     update of the reconstructed short-term residual
// Decoder: RPE decoding, long-term synthesis, short-term synthesis filtering,
// postprocessing (deemphasis, upscaling, truncation).
//
// Homing: an encoder that has just coded an encoder homing frame (160 samples
// of 0x0008 on the 13-bit grid, i.e. with their three low bits ignored)
// returns to its start state; a decoder that receives a decoder
// homing frame (the encoder's output for the encoder homing frame from the
// start state) returns to its start state, and outputs the encoder homing
// frame when it was already in its start state.
//
// Stream formats (--format): etsi (76 parameter words per frame, the test
// sequences' layout; words are cut to their field widths on decoding), rtp (33 octets, signature nibble 0xD, fields MSB
// first; the default) and wav49 (two frames in 65 octets, fields LSB first).
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "coders/coder.h"
#include "coders/gsmfr_coder_tables.h"
#include "kvosc.h"

namespace kvosc::coders {

namespace {

using kvo::tab::coder_gsm_A;
using kvo::tab::coder_gsm_B;
using kvo::tab::coder_gsm_DLB;
using kvo::tab::coder_gsm_FAC;
using kvo::tab::coder_gsm_INVA;
using kvo::tab::coder_gsm_MAC;
using kvo::tab::coder_gsm_MIC;
using kvo::tab::coder_gsm_NRFAC;
using kvo::tab::coder_gsm_QLB;

constexpr int kFrame = 160, kSub = 40, kParams = 76;
using Params = std::array<int16_t, kParams>;  // LARc[8], then 4 x (Nc, bc, Mc, xmaxc, xmc[13])
constexpr int kWidth[17] = {7, 2, 2, 6, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};  // subframe fields
constexpr int kLarWidth[8] = {6, 6, 5, 5, 4, 4, 3, 3};
constexpr int16_t kEhfSample = 0x0008;

// ---- the caller's share of the arithmetic (16-bit basic operations) ------
int16_t sat(int32_t x) {
    return static_cast<int16_t>(std::clamp(x, -32768, 32767));
}
int16_t add(int32_t a, int32_t b) {
    return sat(a + b);
}
int16_t mult(int32_t a, int32_t b) {
    return static_cast<int16_t>((a * b) >> 15);
}
int16_t mult_r(int32_t a, int32_t b) {
    return static_cast<int16_t>((a * b + 16384) >> 15);
}
int16_t abs_s(int16_t a) {
    return a == -32768 ? 32767 : static_cast<int16_t>(a < 0 ? -a : a);
}
// Left shifts that bring a nonzero 32-bit value's top bit to bit 30.
int norm(int32_t a) {
    return __builtin_clz(static_cast<uint32_t>(a < 0 ? ~a : a)) - 1;
}
// Largest |x[k]| (|-32768| taken as 32767), as max and min so that it vectorises.
int16_t maxAbs(const int16_t* x, int n) {
    int16_t hi = 0, lo = 0;
    for (int k = 0; k < n; ++k) {
        hi = std::max(hi, x[k]);
        lo = std::min(lo, x[k]);
    }
    return std::max(hi, abs_s(lo));
}
int32_t shl32(int32_t x, int n) {
    return static_cast<int32_t>(static_cast<uint32_t>(x) << n);
}

void check(KvoStatus st) {
    // The arguments are fixed by construction; a failure is a programming error.
    if (st != kvoOk) std::abort();
}

// LARc -> LARpp (decoding of the coded log-area ratios).
void decodeLar(const int16_t* LARc, int16_t* LARpp) {
    for (int i = 0; i < 8; ++i) {
        int16_t t = static_cast<int16_t>(add(LARc[i], coder_gsm_MIC[i]) * 1024);
        t = add(t, -(coder_gsm_B[i] * 2));
        t = mult_r(coder_gsm_INVA[i], t);
        LARpp[i] = add(t, t);
    }
}

// Reflection coefficients of one interpolation section: 0 for samples 0..12,
// 1 for 13..26, 2 for 27..39, 3 for 40..159.
void sectionRc(const int16_t* prev, const int16_t* cur, int section, int16_t* rp) {
    for (int i = 0; i < 8; ++i) {
        int16_t lar;
        switch (section) {
            case 0:
                lar = add(add(prev[i] >> 2, cur[i] >> 2), prev[i] >> 1);
                break;
            case 1:
                lar = add(prev[i] >> 1, cur[i] >> 1);
                break;
            case 2:
                lar = add(add(prev[i] >> 2, cur[i] >> 2), cur[i] >> 1);
                break;
            default:
                lar = cur[i];
        }
        int16_t t = abs_s(lar);
        if (t < 11059)
            t = static_cast<int16_t>(t << 1);
        else if (t < 20070)
            t = static_cast<int16_t>(t + 11059);
        else
            t = add(t >> 2, 26112);
        rp[i] = lar < 0 ? static_cast<int16_t>(-t) : t;
    }
}
constexpr int kSectionStart[5] = {0, 13, 27, 40, 160};

// APCM: xmaxc -> exponent and mantissa.
void expMant(int16_t xmaxc, int16_t& exp, int16_t& mant) {
    exp = xmaxc > 15 ? static_cast<int16_t>((xmaxc >> 3) - 1) : 0;
    mant = static_cast<int16_t>(xmaxc - (exp << 3));
    if (mant == 0) {
        exp = -4;
        mant = 7;
    } else {
        while (mant <= 7) {
            mant = static_cast<int16_t>(mant << 1 | 1);
            --exp;
        }
        mant = static_cast<int16_t>(mant - 8);
    }
}

// APCM inverse quantisation and RPE grid positioning: the 40-sample excitation.
void rpeDecode(int16_t xmaxc, int16_t Mc, const int16_t* xmc, int16_t* ep) {
    int16_t exp, mant, xMp[13];
    expMant(xmaxc, exp, mant);
    check(
        kvosRPEQuantDecode_GSMFR_16s(xmc, coder_gsm_FAC[mant], static_cast<int16_t>(6 - exp), xMp));
    std::fill(ep, ep + kSub, int16_t{0});
    for (int i = 0; i < 13; ++i) ep[Mc + 3 * i] = xMp[i];
}

// ---- encoder -------------------------------------------------------------
struct Encoder {
    KvoHighPassState_GSMFR hp{};
    int16_t mp = 0;               // preemphasis memory
    int16_t LARpp[2][8]{};        // decoded LARs of the previous and this frame
    int j = 0;                    // which of LARpp is this frame's
    int16_t u[8]{};               // short-term analysis lattice
    int16_t dp0[120 + kFrame]{};  // reconstructed short-term residual

    void reset() { *this = Encoder{}; }

    // Autocorrelation of the frame scaled to fit, with the reference's
    // rescaling of the array in place (its low bits are lost).
    void autocorrelation(int16_t* s, int32_t* acf) {
        const int16_t smax = maxAbs(s, kFrame);
        const int scalauto = smax == 0 ? 0 : 4 - norm(int32_t{smax} << 16);
        if (scalauto > 0)
            for (int k = 0; k < kFrame; ++k) s[k] = mult_r(s[k], 16384 >> (scalauto - 1));
        check(kvosAutoCorr_16s32s(s, kFrame, acf, 9));
        for (int k = 0; k < 9; ++k) acf[k] = shl32(acf[k], 1);
        if (scalauto > 0)
            for (int k = 0; k < kFrame; ++k) s[k] = static_cast<int16_t>(s[k] << scalauto);
    }

    // Reflection coefficients -> coded log-area ratios.
    static void codeLar(const int16_t* r, int16_t* LARc) {
        for (int i = 0; i < 8; ++i) {
            int16_t t = abs_s(r[i]);
            if (t < 22118)
                t = static_cast<int16_t>(t >> 1);
            else if (t < 31130)
                t = static_cast<int16_t>(t - 11059);
            else
                t = static_cast<int16_t>((t - 26112) << 2);
            const int16_t lar = r[i] < 0 ? static_cast<int16_t>(-t) : t;
            int16_t q = mult(coder_gsm_A[i], lar);
            q = add(q, coder_gsm_B[i]);
            q = add(q, 256);
            q = static_cast<int16_t>(q >> 9);
            LARc[i] =
                static_cast<int16_t>(q > coder_gsm_MAC[i]   ? coder_gsm_MAC[i] - coder_gsm_MIC[i]
                                     : q < coder_gsm_MIC[i] ? 0
                                                            : q - coder_gsm_MIC[i]);
        }
    }

    // LTP lag and gain of one subframe.
    static void ltpParameters(const int16_t* d, const int16_t* dp, int16_t& Nc, int16_t& bc) {
        const int16_t dmax = maxAbs(d, kSub);
        const int t = dmax == 0 ? 0 : norm(int32_t{dmax} << 16);
        const int scal = t > 6 ? 0 : 6 - t;
        int16_t wt[kSub];
        for (int k = 0; k < kSub; ++k) wt[k] = static_cast<int16_t>(d[k] >> scal);
        // Lags 40..120: dp[k - lambda] = (dp - 120)[k + (120 - lambda)].
        int32_t cmax, idx;
        check(kvosCrossCorrLagMax_16s(wt, dp - 120, kSub, 80, &cmax, &idx));
        Nc = static_cast<int16_t>(120 - idx);
        const int32_t L_max = shl32(cmax, 1) >> (6 - scal);
        int32_t L_power = 0;
        for (int k = 0; k < kSub; ++k) {
            const int32_t v = dp[k - Nc] >> 3;
            L_power += 2 * v * v;
        }
        if (L_max <= 0) {
            bc = 0;
            return;
        }
        if (L_max >= L_power) {
            bc = 3;
            return;
        }
        const int n = norm(L_power);
        const int16_t R = static_cast<int16_t>(shl32(L_max, n) >> 16);
        const int16_t S = static_cast<int16_t>(shl32(L_power, n) >> 16);
        for (bc = 0; bc <= 2; ++bc)
            if (R <= mult(S, coder_gsm_DLB[bc])) break;
    }

    // RPE encoding of one LTP residual subframe; ep gets the decoded excitation.
    static void rpeEncode(const int16_t* e, int16_t& Mc, int16_t& xmaxc, int16_t* xmc,
                          int16_t* ep) {
        int16_t pad[kSub + 10] = {};
        std::copy(e, e + kSub, pad + 5);
        int16_t x[kSub];
        check(kvosWeightingFilter_GSMFR_16s(pad + 5, x, kSub));  // weighting filter
        int32_t EM = 0;                                          // grid selection
        Mc = 0;
        for (int m = 0; m < 4; ++m) {
            int32_t L = 0;
            for (int i = 0; i < 13; ++i) {
                const int32_t v = x[m + 3 * i] >> 2;
                L += 2 * v * v;
            }
            if (L > EM) {
                Mc = static_cast<int16_t>(m);
                EM = L;
            }
        }
        int16_t xM[13], xmax = 0;
        for (int i = 0; i < 13; ++i) {
            xM[i] = x[Mc + 3 * i];
            xmax = std::max(xmax, abs_s(xM[i]));
        }
        int16_t exp = 0;  // APCM quantisation of xmax
        int16_t t = static_cast<int16_t>(xmax >> 9);
        bool itest = false;
        for (int i = 0; i <= 5; ++i) {
            itest = itest || t <= 0;
            t = static_cast<int16_t>(t >> 1);
            if (!itest) ++exp;
        }
        xmaxc = add(xmax >> (exp + 5), exp << 3);
        int16_t mant;
        expMant(xmaxc, exp, mant);
        const int shift = 6 - exp;
        for (int i = 0; i < 13; ++i) {
            const int16_t v = static_cast<int16_t>(xM[i] << shift);
            xmc[i] = static_cast<int16_t>((mult(v, coder_gsm_NRFAC[mant]) >> 12) + 4);
        }
        rpeDecode(xmaxc, Mc, xmc, ep);
    }

    void frame(const int16_t* in, int16_t* prm) {
        int16_t s[kFrame];
        check(kvosHighPassFilter_GSMFR_16s(in, s, kFrame, &hp));  // preprocessing
        check(kvosPreemphasize_GSMFR_16s(s, s, kFrame, &mp));

        int32_t acf[9];  // LPC analysis
        autocorrelation(s, acf);
        int16_t r[8];
        check(kvosSchur_GSMFR_32s16s(acf, r, 8));
        codeLar(r, prm);

        const int16_t* prev = LARpp[j];  // short-term analysis filtering
        j ^= 1;
        decodeLar(prm, LARpp[j]);
        for (int sec = 0; sec < 4; ++sec) {
            int16_t rp[8];
            sectionRc(prev, LARpp[j], sec, rp);
            check(kvosShortTermAnalysisFilter_GSMFR_16s_I(
                rp, s + kSectionStart[sec], kSectionStart[sec + 1] - kSectionStart[sec], u));
        }

        for (int sub = 0; sub < 4; ++sub) {
            int16_t* p = prm + 8 + 17 * sub;
            const int16_t* d = s + sub * kSub;
            int16_t* dp = dp0 + 120 + sub * kSub;
            ltpParameters(d, dp, p[0], p[1]);  // long-term analysis
            int16_t e[kSub], dpp[kSub], ep[kSub];
            const int16_t bp = coder_gsm_QLB[p[1]];
            for (int k = 0; k < kSub; ++k) {
                dpp[k] = mult_r(bp, dp[k - p[0]]);
                e[k] = add(d[k], -dpp[k]);
            }
            rpeEncode(e, p[2], p[3], p + 4, ep);
            for (int k = 0; k < kSub; ++k) dp[k] = add(ep[k], dpp[k]);
        }
        std::copy(dp0 + kFrame, dp0 + kFrame + 120, dp0);
    }
};

// ---- decoder -------------------------------------------------------------
struct Decoder {
    int16_t LARpp[2][8]{};
    int j = 0;
    int16_t v[9]{};                // short-term synthesis lattice
    int16_t nrp = 40;              // last valid LTP lag
    int16_t drp0[120 + kFrame]{};  // reconstructed short-term residual
    int16_t msr = 0;               // deemphasis memory

    void reset() { *this = Decoder{}; }

    void frame(const int16_t* prm, int16_t* out) {
        int16_t* wt = drp0 + 120;
        for (int sub = 0; sub < 4; ++sub) {
            const int16_t* p = prm + 8 + 17 * sub;
            int16_t erp[kSub];
            rpeDecode(p[3], p[2], p + 4, erp);  // RPE decoding
            // Long-term synthesis; a lag outside 40..120 repeats the last one.
            const int16_t Nr = (p[0] < 40 || p[0] > 120) ? nrp : p[0];
            nrp = Nr;
            const int16_t brp = coder_gsm_QLB[p[1]];
            int16_t* drp = wt + sub * kSub;
            const int16_t* past = drp - Nr;  // at least 40 back: no overlap with drp[0..39]
            for (int k = 0; k < kSub; ++k) drp[k] = add(erp[k], mult_r(brp, past[k]));
        }
        const int16_t* prev = LARpp[j];  // short-term synthesis filtering
        j ^= 1;
        decodeLar(prm, LARpp[j]);
        for (int sec = 0; sec < 4; ++sec) {
            int16_t rrp[8];
            sectionRc(prev, LARpp[j], sec, rrp);
            const int at = kSectionStart[sec];
            check(kvosShortTermSynthesisFilter_GSMFR_16s(rrp, wt + at, out + at,
                                                         kSectionStart[sec + 1] - at, v));
        }
        check(kvosDeemphasize_GSMFR_16s_I(out, kFrame, &msr));  // postprocessing
        std::copy(drp0 + kFrame, drp0 + kFrame + 120, drp0);
    }
};

// Parameter words as the bit fields hold them: each masked to its width.
void maskParams(Params& p) {
    for (int i = 0; i < 8; ++i) p[i] &= (1 << kLarWidth[i]) - 1;
    for (int s = 0; s < 4; ++s)
        for (int f = 0; f < 17; ++f) p[8 + 17 * s + f] &= (1 << kWidth[f]) - 1;
}

bool isEncoderHomingFrame(const int16_t* in) {
    for (int i = 0; i < kFrame; ++i)
        if ((in[i] & 0xfff8) != kEhfSample) return false;
    return true;
}

// The decoder homing frame: what the encoder in its start state makes of the
// encoder homing frame.
const Params& decoderHomingFrame() {
    static const Params dhf = [] {
        int16_t ehf[kFrame];
        std::fill(ehf, ehf + kFrame, kEhfSample);
        Encoder enc;
        Params p{};
        enc.frame(ehf, p.data());
        return p;
    }();
    return dhf;
}

// Encoder with homing: codes the frame, then returns to the start state
// after an encoder homing frame.
struct HomingEncoder {
    Encoder enc;
    void frame(const int16_t* in, Params& p) {
        enc.frame(in, p.data());
        if (isEncoderHomingFrame(in)) enc.reset();
    }
};

// Decoder with homing.  In its start state the decoder compares the first
// subframe's parameters with the homing frame's, otherwise the whole frame.
struct HomingDecoder {
    Decoder dec;
    bool homed = true;
    static bool matches(const Params& p, int count) {
        const Params& h = decoderHomingFrame();
        return std::equal(p.begin(), p.begin() + count, h.begin());
    }
    void frame(const Params& p, int16_t* out) {
        bool reset = homed && matches(p, 8 + 17);
        if (reset && homed)
            std::fill(out, out + kFrame, kEhfSample);
        else
            dec.frame(p.data(), out);
        if (!homed) reset = matches(p, kParams);
        if (reset) dec.reset();
        homed = reset;
    }
};

// ---- stream formats ------------------------------------------------------
enum class Format { Etsi, Rtp, Wav49 };

bool parseFormat(const Options& opt, Format& f, std::string& error) {
    const std::string s = opt.get("format", "rtp");
    if (s == "etsi")
        f = Format::Etsi;
    else if (s == "rtp")
        f = Format::Rtp;
    else if (s == "wav49")
        f = Format::Wav49;
    else {
        error = "gsmfr: unknown --format '" + s + "' (etsi, rtp or wav49)";
        return false;
    }
    return true;
}

constexpr std::array<int, kParams> kFieldWidth = [] {
    std::array<int, kParams> w{};
    for (int i = 0; i < kParams; ++i) w[i] = i < 8 ? kLarWidth[i] : kWidth[(i - 8) % 17];
    return w;
}();
int fieldWidth(int i) {
    return kFieldWidth[i];
}

// RTP / .gsm frame: signature nibble 0xD, then the fields MSB first.
void packRtp(const Params& p, uint8_t* out) {
    uint32_t acc = 0xD;
    int bits = 4, o = 0;
    for (int i = 0; i < kParams; ++i) {
        acc = (acc << fieldWidth(i)) | static_cast<uint32_t>(p[i] & ((1 << fieldWidth(i)) - 1));
        bits += fieldWidth(i);
        while (bits >= 8) {
            bits -= 8;
            out[o++] = static_cast<uint8_t>(acc >> bits);
        }
    }
}
bool unpackRtp(const uint8_t* in, Params& p) {
    if ((in[0] >> 4) != 0xD) return false;
    uint64_t acc = in[0] & 0xF;
    int bits = 4, o = 1;
    for (int i = 0; i < kParams; ++i) {
        const int n = fieldWidth(i);
        while (bits < n) {
            acc = (acc << 8) | in[o++];
            bits += 8;
        }
        bits -= n;
        p[i] = static_cast<int16_t>((acc >> bits) & ((1u << n) - 1));
    }
    return true;
}

// WAV #49: two frames in 65 octets, 260 bits each, fields LSB first.
void packWav49(const Params& a, const Params& b, uint8_t* out) {
    std::fill(out, out + 65, uint8_t{0});
    int bit = 0;
    for (const Params* p : {&a, &b})
        for (int i = 0; i < kParams; ++i)
            for (int k = 0; k < fieldWidth(i); ++k, ++bit)
                out[bit >> 3] |= static_cast<uint8_t>(((*p)[i] >> k & 1) << (bit & 7));
}
void unpackWav49(const uint8_t* in, Params& a, Params& b) {
    int bit = 0;
    for (Params* p : {&a, &b})
        for (int i = 0; i < kParams; ++i) {
            int v = 0;
            for (int k = 0; k < fieldWidth(i); ++k, ++bit)
                v |= ((in[bit >> 3] >> (bit & 7)) & 1) << k;
            (*p)[i] = static_cast<int16_t>(v);
        }
}

bool encode(const Options& opt, const std::vector<int16_t>& pcm, std::vector<uint8_t>& stream,
            std::string& error) {
    Format fmt;
    if (!parseFormat(opt, fmt, error)) return false;
    size_t frames = (pcm.size() + kFrame - 1) / kFrame;
    if (fmt == Format::Wav49) frames += frames & 1;
    std::vector<int16_t> in(pcm);
    in.resize(frames * kFrame, 0);
    HomingEncoder enc;
    std::vector<Params> prm(frames);
    for (size_t f = 0; f < frames; ++f) enc.frame(&in[f * kFrame], prm[f]);
    stream.clear();
    if (fmt == Format::Etsi) {
        std::vector<int16_t> words;
        for (const Params& p : prm) words.insert(words.end(), p.begin(), p.end());
        stream = bytes_from_words(words);
    } else if (fmt == Format::Rtp) {
        stream.resize(frames * 33);
        for (size_t f = 0; f < frames; ++f) packRtp(prm[f], &stream[f * 33]);
    } else {
        stream.resize(frames / 2 * 65);
        for (size_t f = 0; f < frames; f += 2) packWav49(prm[f], prm[f + 1], &stream[f / 2 * 65]);
    }
    return true;
}

bool decode(const Options& opt, const std::vector<uint8_t>& stream, std::vector<int16_t>& pcm,
            std::string& error) {
    Format fmt;
    if (!parseFormat(opt, fmt, error)) return false;
    std::vector<Params> prm;
    if (fmt == Format::Etsi) {
        if (stream.size() % (2 * kParams)) {
            error = "gsmfr: etsi stream is not a whole number of 76-word frames";
            return false;
        }
        const std::vector<int16_t> w = words_from_bytes(stream);
        prm.resize(w.size() / kParams);
        for (size_t f = 0; f < prm.size(); ++f)
            std::copy(&w[f * kParams], &w[f * kParams] + kParams, prm[f].begin());
    } else if (fmt == Format::Rtp) {
        if (stream.size() % 33) {
            error = "gsmfr: rtp stream is not a whole number of 33-octet frames";
            return false;
        }
        prm.resize(stream.size() / 33);
        for (size_t f = 0; f < prm.size(); ++f)
            if (!unpackRtp(&stream[f * 33], prm[f])) {
                error = "gsmfr: frame " + std::to_string(f) + " lacks the 0xD signature";
                return false;
            }
    } else {
        if (stream.size() % 65) {
            error = "gsmfr: wav49 stream is not a whole number of 65-octet blocks";
            return false;
        }
        prm.resize(stream.size() / 65 * 2);
        for (size_t f = 0; f < prm.size(); f += 2)
            unpackWav49(&stream[f / 2 * 65], prm[f], prm[f + 1]);
    }
    HomingDecoder dec;
    pcm.assign(prm.size() * kFrame, 0);
    for (size_t f = 0; f < prm.size(); ++f) {
        maskParams(prm[f]);
        dec.frame(prm[f], &pcm[f * kFrame]);
    }
    return true;
}

// ---- conformance ---------------------------------------------------------
// Compares frame by frame; the first `skip` frames are not compared.
template <typename T>
void compareFrames(const std::vector<T>& got, const std::vector<int16_t>& want, int frameLen,
                   int skip, const char* side, VerifyRow& row) {
    const long frames = static_cast<long>(want.size() / frameLen);
    for (long f = 0; f < frames; ++f) {
        if (f < skip) continue;
        ++row.frames;
        for (int i = 0; i < frameLen; ++i) {
            const size_t at = static_cast<size_t>(f) * frameLen + i;
            if (at >= got.size() || got[at] != want[at]) {
                if (row.mismatched++ == 0)
                    row.note = std::string(side) + " frame " + std::to_string(f) + " word " +
                               std::to_string(i) + ": got " +
                               (at < got.size() ? std::to_string(got[at]) : "nothing") + ", want " +
                               std::to_string(want[at]);
                break;
            }
        }
    }
}

std::vector<VerifyRow> verify(const std::string& dir) {
    static const char* const kSets[] = {"Seq01",  "Seq02",  "Seq03",  "Seq04",
                                        "Seq05",  "Seq01h", "Seq02h", "Seq03h",
                                        "Seq04h", "Seq05h", "Seq06h", "Homing01"};
    std::vector<VerifyRow> rows;
    for (const char* set : kSets) {
        VerifyRow row;
        row.set = set;
        const std::string base = dir + "/" + set;
        std::vector<uint8_t> inp, cod, out;
        const bool hasInp = read_file(base + ".inp", inp), hasCod = read_file(base + ".cod", cod),
                   hasOut = read_file(base + ".out", out);
        if (!hasCod || (!hasInp && !hasOut)) {
            row.skipped = true;
            row.note = "files missing";
            rows.push_back(row);
            continue;
        }
        const std::vector<int16_t> codWords = words_from_bytes(cod);
        const bool homingSet = std::string(set).back() == 'h';
        if (hasInp) {  // encoder: .inp -> .cod
            const std::vector<int16_t> pcm = words_from_bytes(inp);
            HomingEncoder enc;
            std::vector<int16_t> got;
            Params p;
            for (size_t f = 0; f + kFrame <= pcm.size(); f += kFrame) {
                enc.frame(&pcm[f], p);
                got.insert(got.end(), p.begin(), p.end());
            }
            compareFrames(got, codWords, kParams, 0, "encoder", row);
        }
        if (hasOut) {  // decoder: .cod -> .out
            HomingDecoder dec;
            std::vector<int16_t> got(codWords.size() / kParams * kFrame);
            for (size_t f = 0; f < codWords.size() / kParams; ++f) {
                Params p;
                std::copy(&codWords[f * kParams], &codWords[f * kParams] + kParams, p.begin());
                maskParams(p);
                dec.frame(p, &got[f * kFrame]);
            }
            // The first output frame of a homing set depends on the decoder's
            // state before homing and is not compared.
            compareFrames(got, words_from_bytes(out), kFrame, homingSet ? 1 : 0, "decoder", row);
        }
        rows.push_back(row);
    }
    return rows;
}

}  // namespace

extern const Coder kGsmFr = {
    "gsmfr",
    "GSM 06.10 full rate (RPE-LTP) with codec homing",
    "--format rtp|etsi|wav49",
    8000,
    13.2,
    encode,
    decode,
    verify,
};

}  // namespace kvosc::coders
