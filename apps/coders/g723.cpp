// ITU-T G.723.1 dual-rate speech coder (6.3 kbit/s MP-MLQ, 5.3 kbit/s ACELP)
// assembled from the library's G.723.1 steps.
//
// Encoder, per 30 ms frame of 240 samples:
//   high-pass filter (optional)
//   LPC analysis        4 x (window of 180, autocorrelation, Levinson-Durbin),
//                       sine detector
//   LSP                 conversion of the last subframe's filter, split VQ
//   perceptual weighting  W(z) = A(z/0.9) / A(z/0.5) per subframe
//   open-loop pitch     twice per frame on the normalised weighted speech
//   harmonic noise shaping  per subframe (lag and gain), then filtering
//   LSP decoding and interpolation, LSP to LPC per subframe
//   per subframe: impulse response of the combined filter, ringing
//                 subtraction, adaptive codebook (5 taps), fixed codebook
//                 (MP-MLQ or ACELP), excitation, error and memory updates
// Decoder: LSP decoding and interpolation, adaptive and fixed excitation,
// frame erasure concealment, pitch post filter (optional), synthesis and
// formant post filter with gain control (optional).
//
// Stream: the Recommendation's packed frames, bits LSB first: 24 octets at
// 6.3 kbit/s, 20 at 5.3 kbit/s; the two low bits of the first octet give the
// frame type (0 = 6.3, 1 = 5.3, 2 = SID of 4 octets, 3 = untransmitted, 1
// octet).
//
// Not assembled: the comfort-noise generator of Annex A (its SID gain and
// excitation tables are not among the published tables this project holds);
// --vad on is refused, and the decoder treats SID and untransmitted frames
// as erased frames.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "coders/g723_coder_tables.h"
#include "kvosc.h"

namespace kvosc::coders {

namespace {

using namespace kvo::tab;

constexpr int kFrame = 240, kSub = 60, kOrder = 10, kPitchMax = 145, kLpcFrame = 180;
constexpr KvoSpeechRate kRate53 = 2, kRate63 = 4;
// Lags of 144 and more read up to four samples before the 145 of the history.
constexpr int kOlder = 4;

// Fixed-codebook gain levels of the Recommendation (24 values).
constexpr int16_t kFcbkGain[24] = {1,   2,   3,   4,    6,    9,    13,   18,   26,   38,   55,   80,
                                   115, 166, 240, 348,  502,  726,  1050, 1517, 2193, 3170, 4582, 6623};
// Mean LSF vector (Q7 grid positions): the start value of the previous LSFs.
constexpr int16_t kLsfMean[10] = {3131,  4721,  7690,  10806, 13872,
                                  16495, 19752, 22260, 25484, 27718};
constexpr int kPulses[4] = {6, 5, 6, 5};

// ---- the caller's share of the arithmetic (basic operations) --------------
int16_t sat16(int64_t x) {
    return static_cast<int16_t>(x > 32767 ? 32767 : (x < -32768 ? -32768 : x));
}
int32_t sat32(int64_t x) {
    return static_cast<int32_t>(x > INT32_MAX ? INT32_MAX : (x < INT32_MIN ? INT32_MIN : x));
}
int16_t add(int32_t a, int32_t b) { return sat16(int64_t{a} + b); }
int16_t mult(int32_t a, int32_t b) { return sat16((int64_t{a} * b) >> 15); }
int16_t mult_r(int32_t a, int32_t b) { return sat16((int64_t{a} * b + 16384) >> 15); }
int32_t L_mac(int32_t acc, int16_t a, int16_t b) { return sat32(int64_t{acc} + 2 * int64_t{a} * b); }
int32_t L_msu(int32_t acc, int16_t a, int16_t b) { return sat32(int64_t{acc} - 2 * int64_t{a} * b); }
int16_t round16(int32_t x) { return x >= 0x7fff8000 ? int16_t{32767} : int16_t((x + 32768) >> 16); }
int16_t shl1(int16_t x) { return sat16(int64_t{x} * 2); }
// 32 x 16 product of the G.723.1 arithmetic.
int32_t L_mls(int32_t x, int16_t v) {
    const int32_t low = static_cast<int32_t>((int64_t{x & 0xffff} * v) >> 15);
    return sat32(int64_t{low} + sat32(2 * int64_t{x >> 16} * v));
}
int norm_l(int32_t x) {
    if (x == 0) return 0;
    const uint32_t u = static_cast<uint32_t>(x < 0 ? ~x : x);
    return u == 0 ? 31 : __builtin_clz(u) - 1;
}
// 32 / 16 division of the reference (L_num < den << 16, both positive): Q15 quotient.
int16_t div_l(int32_t num, int16_t den) {
    const int64_t d = int64_t{den} << 16;
    if (num >= d) return 32767;
    return static_cast<int16_t>((int64_t{num} << 15) / d);
}
// C(n, k) for the multipulse position code.
int32_t binom(int n, int k) {
    if (k < 0 || n < k) return 0;
    int64_t r = 1;
    for (int i = 1; i <= k; ++i) r = r * (n - k + i) / i;
    return static_cast<int32_t>(r);
}

// ---- frame parameters and the bit stream -----------------------------------
struct SubParams {
    int16_t acLg = 1, acGn = 0, mamp = 0, grid = 0, tran = 0, pamp = 0;
    int32_t ppos = 0;
};
struct FrameParams {
    int type = 0;  // 0 = 6.3, 1 = 5.3, 2 = SID, 3 = untransmitted
    int32_t lspId = 0;
    int16_t olp[2] = {kPitchMax - 3, kPitchMax - 3};
    SubParams sub[4];
    bool bad = false;  // invalid gain index found while unpacking
};

int frame_octets(int type) {
    static const int n[4] = {24, 20, 4, 1};
    return n[type & 3];
}

class BitWriter {
  public:
    explicit BitWriter(uint8_t* p) : p_(p) {}
    void put(uint32_t v, int bits) {
        for (int i = 0; i < bits; ++i, ++pos_)
            if ((v >> i) & 1) p_[pos_ >> 3] = static_cast<uint8_t>(p_[pos_ >> 3] | (1 << (pos_ & 7)));
    }

  private:
    uint8_t* p_;
    int pos_ = 0;
};

class BitReader {
  public:
    BitReader(const uint8_t* p, int n) : p_(p), n_(n * 8) {}
    uint32_t get(int bits) {
        uint32_t v = 0;
        for (int i = 0; i < bits; ++i, ++pos_)
            if (pos_ < n_ && ((p_[pos_ >> 3] >> (pos_ & 7)) & 1)) v |= 1u << i;
        return v;
    }

  private:
    const uint8_t* p_;
    int n_;
    int pos_ = 0;
};

void pack(const FrameParams& f, uint8_t* out) {
    std::memset(out, 0, static_cast<size_t>(frame_octets(f.type)));
    BitWriter w(out);
    w.put(static_cast<uint32_t>(f.type), 2);
    if (f.type >= 2) return;
    const bool hi = f.type == 0;
    w.put(static_cast<uint32_t>(f.lspId), 24);
    w.put(static_cast<uint32_t>(f.olp[0] - 18), 7);
    w.put(static_cast<uint32_t>(f.sub[1].acLg), 2);
    w.put(static_cast<uint32_t>(f.olp[1] - 18), 7);
    w.put(static_cast<uint32_t>(f.sub[3].acLg), 2);
    for (const SubParams& s : f.sub) {
        uint32_t g = static_cast<uint32_t>(s.acGn * 24 + s.mamp);
        if (hi) g += static_cast<uint32_t>(s.tran) << 11;
        w.put(g, 12);
    }
    for (const SubParams& s : f.sub) w.put(static_cast<uint32_t>(s.grid), 1);
    if (hi) {
        w.put(0, 1);
        uint32_t t = static_cast<uint32_t>((f.sub[0].ppos >> 16) * 9 + (f.sub[1].ppos >> 14)) * 90;
        t += static_cast<uint32_t>((f.sub[2].ppos >> 16) * 9 + (f.sub[3].ppos >> 14));
        w.put(t, 13);
        w.put(static_cast<uint32_t>(f.sub[0].ppos & 0xffff), 16);
        w.put(static_cast<uint32_t>(f.sub[1].ppos & 0x3fff), 14);
        w.put(static_cast<uint32_t>(f.sub[2].ppos & 0xffff), 16);
        w.put(static_cast<uint32_t>(f.sub[3].ppos & 0x3fff), 14);
        w.put(static_cast<uint32_t>(f.sub[0].pamp), 6);
        w.put(static_cast<uint32_t>(f.sub[1].pamp), 5);
        w.put(static_cast<uint32_t>(f.sub[2].pamp), 6);
        w.put(static_cast<uint32_t>(f.sub[3].pamp), 5);
    } else {
        for (const SubParams& s : f.sub) w.put(static_cast<uint32_t>(s.ppos), 12);
        for (const SubParams& s : f.sub) w.put(static_cast<uint32_t>(s.pamp), 4);
    }
}

FrameParams unpack(const uint8_t* in, int n) {
    FrameParams f;
    BitReader r(in, n);
    f.type = static_cast<int>(r.get(2));
    if (f.type == 3) return f;
    if (f.type == 2) {
        f.lspId = static_cast<int32_t>(r.get(24));
        f.sub[0].mamp = static_cast<int16_t>(r.get(6));
        return f;
    }
    const bool hi = f.type == 0;
    f.lspId = static_cast<int32_t>(r.get(24));
    f.olp[0] = static_cast<int16_t>(r.get(7) + 18);
    f.sub[1].acLg = static_cast<int16_t>(r.get(2));
    f.olp[1] = static_cast<int16_t>(r.get(7) + 18);
    f.sub[3].acLg = static_cast<int16_t>(r.get(2));
    f.sub[0].acLg = f.sub[2].acLg = 1;
    // Lag codes above 142 are not used by the encoder: such a frame is treated as erased.
    if (f.olp[0] > kPitchMax - 3 || f.olp[1] > kPitchMax - 3) {
        f.bad = true;
        return f;
    }
    for (int i = 0; i < 4; ++i) {
        int32_t g = static_cast<int32_t>(r.get(12));
        int bound = 170;
        if (hi && f.olp[i >> 1] < kSub - 2) {
            f.sub[i].tran = static_cast<int16_t>(g >> 11);
            g &= 0x7ff;
            bound = 85;
        }
        f.sub[i].acGn = static_cast<int16_t>(g / 24);
        if (f.sub[i].acGn >= bound) {
            f.bad = true;
            return f;
        }
        f.sub[i].mamp = static_cast<int16_t>(g % 24);
    }
    for (SubParams& s : f.sub) s.grid = static_cast<int16_t>(r.get(1));
    if (hi) {
        r.get(1);
        const int32_t t = static_cast<int32_t>(r.get(13));
        f.sub[0].ppos = ((t / 90) / 9) << 16;
        f.sub[1].ppos = ((t / 90) % 9) << 14;
        f.sub[2].ppos = ((t % 90) / 9) << 16;
        f.sub[3].ppos = ((t % 90) % 9) << 14;
        f.sub[0].ppos += static_cast<int32_t>(r.get(16));
        f.sub[1].ppos += static_cast<int32_t>(r.get(14));
        f.sub[2].ppos += static_cast<int32_t>(r.get(16));
        f.sub[3].ppos += static_cast<int32_t>(r.get(14));
        f.sub[0].pamp = static_cast<int16_t>(r.get(6));
        f.sub[1].pamp = static_cast<int16_t>(r.get(5));
        f.sub[2].pamp = static_cast<int16_t>(r.get(6));
        f.sub[3].pamp = static_cast<int16_t>(r.get(5));
    } else {
        for (SubParams& s : f.sub) s.ppos = static_cast<int32_t>(r.get(12));
        for (SubParams& s : f.sub) s.pamp = static_cast<int16_t>(r.get(4));
    }
    return f;
}

// ---- steps shared by both sides ----------------------------------------------

// LSP interpolation over the four subframes (weights 1/4 .. 1 of the current
// vector) and conversion to LPC (Q13).
void interpolate_lpc(const int16_t* cur, const int16_t* prev, int16_t* lpc) {
    for (int i = 0; i < 4; ++i) {
        int16_t* a = lpc + kOrder * i;
        for (int j = 0; j < kOrder; ++j)
            a[j] = round16(static_cast<int32_t>(((i + 1) * int64_t{cur[j]} + (3 - i) * int64_t{prev[j]}) * 16384));
        kvosLSFToLPC_G723_16s_I(a);
    }
}

// Pulse train of the lag: every pulse repeated at multiples of the lag.
void pulse_train(int16_t* v, int lag) {
    int16_t t[kSub];
    std::memcpy(t, v, sizeof t);
    for (int l = lag; l < kSub; l += lag)
        for (int i = l; i < kSub; ++i) v[i] = add(v[i], t[i - l]);
}

// ACELP pitch contribution of the 5.3 kbit/s code vector.
void acelp_pitch_sharpen(int16_t* v, int lag, int gainRow) {
    const int t0 = lag + coder_g723_epsi170[gainRow];
    const int16_t g = coder_g723_gain170[gainRow];
    if (t0 < kSub - 2)
        for (int i = t0; i < kSub; ++i) v[i] = add(v[i], mult(v[i - t0], g));
}

// Fixed codebook vector of one subframe from its parameters.
void fixed_vector(const SubParams& s, int16_t olp, int sf, bool hi, int16_t* v) {
    std::memset(v, 0, sizeof(int16_t) * kSub);
    const int16_t gain = kFcbkGain[s.mamp];
    if (hi) {
        if (s.ppos < binom(30, kPulses[sf])) {
            int j = 6 - kPulses[sf];
            int32_t acc = s.ppos;
            for (int i = 0; i < kSub / 2; ++i) {
                const int32_t c = binom(29 - i, 5 - j);
                acc -= c;
                if (acc < 0) {
                    acc += c;
                    ++j;
                    v[s.grid + 2 * i] = (s.pamp & (1 << (6 - j))) ? int16_t(-gain) : gain;
                    if (j == 6) break;
                }
            }
        }
        if (s.tran == 1) pulse_train(v, olp);
    } else {
        for (int k = 0; k < 4; ++k) {
            const int pos = 8 * ((s.ppos >> (3 * k)) & 7) + 2 * k + s.grid;
            if (pos < kSub) v[pos] = (s.pamp >> k) & 1 ? gain : int16_t(-gain);
        }
        acelp_pitch_sharpen(v, olp - 1 + s.acLg, s.acGn);
    }
}

// ---- decoder -------------------------------------------------------------------
struct Decoder {
    bool postfilter = true;
    int16_t prevLsp[10];
    int16_t prevExc[kOlder + kPitchMax] = {};  // four older samples for the longest lags
    int16_t synMem[10] = {};
    KvoIIRMemG723 postMem = {};
    int32_t postLast = 0;
    int16_t park = 0, gain = 0x1000;
    int16_t ecount = 0, interGain = 0, interIndx = 0, seed = 0;
    bool pastActive = true;
    KvoSpeechRate rate = kRate63;
    Decoder() { std::memcpy(prevLsp, kLsfMean, sizeof prevLsp); }
};

// Voicing of the frame for concealment: the lag of the best correlation of the
// last 120 excitation samples near the open-loop lag, when the prediction gain
// is high enough; 0 otherwise.  Works on the normalised excitation.
int16_t voicing_lag(int16_t* buf, int16_t olp) {
    int32_t sc = 3;
    kvosAutoScale_16s_I(buf, kPitchMax + kFrame, &sc);
    if (olp > kPitchMax - 3) olp = kPitchMax - 3;
    const int16_t* x = buf + kPitchMax + kFrame - 2 * kSub;
    int16_t indx = olp;
    int32_t best = 0;
    for (int i = olp - 3; i <= olp + 3; ++i) {
        int32_t acc = 0;
        for (int j = 0; j < 2 * kSub; ++j) acc = L_mac(acc, x[j], x[j - i]);
        if (acc > best) {
            best = acc;
            indx = static_cast<int16_t>(i);
        }
    }
    int32_t acc = 0;
    for (int j = 0; j < 2 * kSub; ++j) acc = L_mac(acc, x[j], x[j]);
    const int16_t tenr = round16(acc);
    acc = 0;
    for (int j = 0; j < 2 * kSub; ++j) acc = L_mac(acc, x[j - indx], x[j - indx]);
    const int16_t ccr = round16(best);
    if (ccr <= 0) return 0;
    const int16_t enr = round16(acc);
    int32_t t = sat32(2 * int64_t{enr} * tenr) >> 3;
    t = L_msu(t, ccr, ccr);
    return t < 0 ? indx : 0;
}

// Formant post filter with tilt compensation and gain control, in place.
void formant_postfilter(Decoder& d, const int16_t* lpc, int16_t* v) {
    int16_t coef[20];
    for (int i = 0; i < kOrder; ++i) {
        coef[i] = mult_r(lpc[i], coder_g723_PostFiltZero[i]);
        coef[10 + i] = mult_r(lpc[i], coder_g723_PostFiltPole[i]);
    }
    // First reflection coefficient of the input, smoothed.
    int16_t t[kSub];
    std::memcpy(t, v, sizeof t);
    int32_t sc = 3;
    kvosAutoScale_16s_I(t, kSub, &sc);
    int32_t a0 = 0, a1 = 0;
    for (int i = 1; i < kSub; ++i) a0 = L_mac(a0, t[i], t[i - 1]);
    for (int i = 0; i < kSub; ++i) a1 = L_mac(a1, t[i], t[i]);
    const int16_t den = static_cast<int16_t>(a1 >> 16);
    a0 >>= 1;
    const int32_t num = a0 < 0 ? (a0 == INT32_MIN ? INT32_MAX : -a0) : a0;
    int16_t k = den > 0 ? div_l(num, den) : 0;
    if (a0 < 0) k = static_cast<int16_t>(-k);
    // 3/4 of the old value plus 1/4 of the new one, rounded once.
    d.park = round16(L_mac(sat32(2 * int64_t{d.park} * 0x6000), k, 0x2000));
    const int16_t tilt = static_cast<int16_t>(mult(d.park, -16384) & 0xfffc);
    // Input energy for the gain control, from the normalised vector's energy
    // brought back to the scale of the gain control's (x >> 2)^2 sums.
    const int sh = 2 * sc + 4;
    const int32_t sen = sh >= 0 ? (sh > 31 ? 0 : a1 >> sh) : sat32(int64_t{a1} << -sh);
    int32_t y[kSub + 1];
    y[0] = d.postLast;
    kvosIIR16s_G723_16s32s(coef, v, y + 1, &d.postMem);
    d.postLast = y[kSub];
    kvosTiltCompensation_G723_32s16s(tilt, y, v);
    kvosGainControl_G723_16s_I(sen, v, &d.gain);
}

bool decode_frame(Decoder& d, const FrameParams& f, bool erased, int16_t* out) {
    int16_t lsp[10], lpc[40];
    bool active = f.type < 2;
    bool bad = erased || f.bad;
    if (bad) active = d.pastActive;
    if (!active) bad = true, active = true;  // no comfort noise: conceal instead
    if (!bad) d.rate = f.type == 0 ? kRate63 : kRate53;
    const bool hi = d.rate == kRate63;

    d.ecount = bad ? static_cast<int16_t>(d.ecount < 3 ? d.ecount + 1 : 3) : 0;
    if (kvosLSFDecode_G723_16s(bad ? 0 : f.lspId, d.prevLsp, bad ? 1 : 0, lsp) < 0) return false;
    interpolate_lpc(lsp, d.prevLsp, lpc);
    std::memcpy(d.prevLsp, lsp, sizeof lsp);

    if (d.ecount == 0)
        d.interGain = kFcbkGain[(f.sub[2].mamp + f.sub[3].mamp) >> 1];
    else
        d.interGain = mult_r(d.interGain, 0x6000);

    int16_t full[kOlder + kPitchMax + kFrame];
    int16_t* const buf = full + kOlder;
    std::memcpy(full, d.prevExc, sizeof d.prevExc);
    if (d.ecount == 0) {
        for (int i = 0; i < 4; ++i) {
            int16_t* e = buf + kPitchMax + kSub * i;
            int16_t acb[kSub];
            fixed_vector(f.sub[i], f.olp[i >> 1], i, hi, e);
            // Lags of 147 and 148 (odd subframes) reach into the previous subframe: the
            // history is taken that much earlier and the lag shortened to match.
            const int over = std::max(0, f.olp[i >> 1] + f.sub[i].acLg - 146);
            if (kvosDecodeAdaptiveVector_G723_16s(static_cast<int16_t>(f.olp[i >> 1] - over),
                                                  f.sub[i].acLg, f.sub[i].acGn,
                                                  buf + kSub * i - over, acb, d.rate) != kvoOk)
                return false;
            for (int j = 0; j < kSub; ++j) e[j] = add(shl1(e[j]), acb[j]);
        }
        std::memcpy(out, buf + kPitchMax, sizeof(int16_t) * kFrame);
        int16_t norm[kPitchMax + kFrame];
        std::memcpy(norm, buf, sizeof(int16_t) * (kPitchMax + kFrame));
        d.interIndx = voicing_lag(norm, f.olp[1]);
        if (d.postfilter) {
            int16_t delay[4], pg[4], ps[4];
            for (int i = 0; i < 4; ++i)
                if (kvosPitchPostFilter_G723_16s(f.olp[i >> 1], norm + kPitchMax, &delay[i], &pg[i],
                                                 &ps[i], i, d.rate) != kvoOk)
                    return false;
            for (int i = 0; i < 4; ++i) {
                const int16_t* x = buf + kPitchMax + kSub * i;
                for (int j = 0; j < kSub; ++j) {
                    int32_t acc = sat32(2 * int64_t{x[j]} * ps[i]);
                    acc = L_mac(acc, x[j + delay[i]], pg[i]);
                    out[kSub * i + j] = round16(acc);
                }
            }
        }
    } else if (d.ecount >= 3) {
        std::memset(out, 0, sizeof(int16_t) * kFrame);
        std::memset(full, 0, sizeof full);
    } else if (d.interIndx != 0) {
        // The periodic extension, attenuated by 3/4, is also the new history.
        for (int i = 0; i < kFrame; ++i) buf[kPitchMax + i] = buf[kPitchMax - d.interIndx + i];
        for (int i = 0; i < kFrame; ++i) {
            buf[kPitchMax + i] = mult(buf[kPitchMax + i], 0x6000);
            out[i] = buf[kPitchMax + i];
        }
    } else {
        for (int i = 0; i < kFrame; ++i) {
            d.seed = static_cast<int16_t>((int32_t{static_cast<uint16_t>(d.seed)} * 521 + 259) & 0xffff);
            out[i] = mult(d.interGain, d.seed);
        }
        std::memset(full, 0, sizeof full);
    }
    std::memcpy(d.prevExc, full + kFrame, sizeof d.prevExc);
    d.pastActive = true;

    for (int i = 0; i < 4; ++i) {
        int16_t* v = out + kSub * i;
        kvosSynthesisFilter_G723_16s(lpc + kOrder * i, v, d.synMem, v);
        if (d.postfilter) formant_postfilter(d, lpc + kOrder * i, v);
        if (!d.postfilter)
            for (int j = 0; j < kSub; ++j) v[j] = shl1(v[j]);
    }
    return true;
}

bool parse_flag(const Options& opt, const char* key, bool dflt, bool& v, std::string& error) {
    const std::string s = opt.get(key, dflt ? "on" : "off");
    if (s == "on" || s == "1" || s == "yes") {
        v = true;
    } else if (s == "off" || s == "0" || s == "no") {
        v = false;
    } else {
        error = std::string("g723: --") + key + " takes on or off";
        return false;
    }
    return true;
}

bool g723_decode(const Options& opt, const std::vector<uint8_t>& stream, std::vector<int16_t>& pcm,
                 std::string& error) {
    Decoder d;
    if (!parse_flag(opt, "postfilter", true, d.postfilter, error)) return false;
    pcm.clear();
    size_t pos = 0;
    int16_t out[kFrame];
    while (pos < stream.size()) {
        const int n = frame_octets(stream[pos] & 3);
        if (pos + static_cast<size_t>(n) > stream.size()) {
            error = "g723: truncated frame at the end of the stream";
            return false;
        }
        const FrameParams f = unpack(&stream[pos], n);
        if (!decode_frame(d, f, false, out)) {
            error = "g723: a library step failed";
            return false;
        }
        pcm.insert(pcm.end(), out, out + kFrame);
        pos += static_cast<size_t>(n);
    }
    return true;
}

// ---- encoder -------------------------------------------------------------------
struct Encoder {
    bool hpf = true;
    KvoSpeechRate rate = kRate63;
    KvoHighPassStateG723 hp = {};
    int16_t prevDat[kLpcFrame - kSub] = {};
    int16_t prevLsp[10];
    int16_t sinDet = 0;
    KvoIIRMemG723 wght = {};
    int16_t prevWgt[kPitchMax] = {};
    int16_t excHist[kOlder + kPitchMax] = {};
    int16_t* prevExc = excHist + kOlder;
    int16_t prevErr[kPitchMax] = {};
    KvoIIRMemG723 ring = {};
    int32_t err[5] = {4, 4, 4, 4, 4};
    Encoder() { std::memcpy(prevLsp, kLsfMean, sizeof prevLsp); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
};

// Weighted synthesis chain 1/A(z) W(z) of one subframe: synthesis to 32-bit
// sums, then the pole-zero weighting filter on them; mem carries the synthesis
// outputs (the filter's inputs) and the weighted outputs.  At scale 0 the
// output is at half the excitation's scale, as the ringing and error memories
// are kept; the impulse response doubles the weighting stage (scale 1) on the
// synthesis of an impulse of 8192, so that its rounding matches the standard's.
void weighted_synthesis(const int16_t* qlpc, const int16_t* per, const int16_t* x,
                        KvoIIRMemG723& mem, int16_t* w, int scale = 0) {
    int16_t coef[11];
    coef[0] = 4096;
    std::memcpy(coef + 1, qlpc, sizeof(int16_t) * kOrder);
    int16_t synMem[10];
    std::memcpy(synMem, mem.x, sizeof synMem);
    int32_t s[kSub];
    kvosSynthesisFilter_G723_16s32s(coef, x, s, synMem);
    kvosIIR16s_G723_32s16s_Sfs(per, s, scale, w, &mem);
}

// Harmonic noise shaping y[n] - g y[n - lag] on a history of 145 + 60 samples.
void harmonic(const int16_t* hist, int16_t lag, int16_t g, int16_t* out) {
    for (int i = 0; i < kSub; ++i) {
        int32_t acc = int32_t{hist[kPitchMax + i]} << 16;
        acc = L_msu(acc, g, hist[kPitchMax + i - lag]);
        out[i] = round16(acc);
    }
}

// Error of the excitation for the adaptive codebook's error test.
void update_error(Encoder& e, int16_t olp, int16_t acLg, int16_t acGn) {
    const int lag = olp - 1 + acLg;
    const int16_t* tab = coder_g723_tabgain170;
    if (e.rate == kRate63 && olp < kSub - 2) tab = coder_g723_tabgain85;
    const int16_t beta = tab[acGn];
    auto worst = [&](int k) { return sat32(int64_t{4} + sat32(int64_t{L_mls(e.err[k], beta)} * 4)); };
    int32_t w0, w1;
    if (lag <= kSub / 2) {
        w0 = w1 = worst(0);
    } else {
        const int iz = (lag * 1092) >> 15;
        if (30 * (iz + 1) != lag) {
            if (iz == 1) {
                w0 = worst(0);
                w1 = worst(1);
                if (w0 > w1) w1 = w0; else w0 = w1;
            } else {
                w0 = worst(iz - 2);
                const int32_t t = worst(iz - 1);
                if (t > w0) w0 = t;
                w1 = worst(iz);
                if (t > w1) w1 = t;
            }
        } else {
            w0 = worst(iz - 1);
            w1 = worst(iz);
        }
    }
    for (int i = 4; i >= 2; --i) e.err[i] = e.err[i - 2];
    e.err[0] = w0;
    e.err[1] = w1;
}

// Fixed-codebook gain level of the ACELP code: the nearest level to <x, y> / <y, y>.
int16_t acelp_gain_index(const int16_t* x, const int16_t* yIn) {
    // The filtered code is scaled down by 8 so that its energy cannot saturate.
    int16_t y[kSub];
    for (int i = 0; i < kSub; ++i) y[i] = static_cast<int16_t>(yIn[i] >> 3);
    int32_t xy = 0, yy = 0;
    for (int i = 0; i < kSub; ++i) xy = L_mac(xy, x[i], y[i]);
    if (xy <= 0) return 0;
    const int exy = norm_l(xy);
    for (int i = 0; i < kSub; ++i) yy = L_mac(yy, y[i], y[i]);
    if (yy <= 0) return 0;
    const int eyy = norm_l(yy);
    const int16_t a = static_cast<int16_t>(static_cast<int16_t>((xy << exy) >> 16) >> 1);
    const int16_t b = static_cast<int16_t>((yy << eyy) >> 16);
    int16_t g = a >= b ? int16_t{32767} : static_cast<int16_t>((int32_t{a} << 15) / b);
    const int sh = exy + 5 - eyy;
    g = sh >= 0 ? static_cast<int16_t>(sh > 15 ? 0 : g >> sh) : sat16(int32_t{g} << std::min(-sh, 16));
    int best = 0;
    int dmin = std::abs(g - kFcbkGain[0]);
    for (int i = 1; i < 24; ++i) {
        const int dd = std::abs(g - kFcbkGain[i]);
        if (dd < dmin) {
            dmin = dd;
            best = i;
        }
    }
    return static_cast<int16_t>(best);
}

bool encode_frame(Encoder& e, const int16_t* in, uint8_t* out) {
    FrameParams f;
    f.type = e.rate == kRate63 ? 0 : 1;
    int16_t data[kFrame];
    if (e.hpf)
        kvosHighPassFilter_G723_16s(in, data, &e.hp);
    else
        std::memcpy(data, in, sizeof data);

    // LPC analysis: four windows of 180 samples centred on the subframes.
    int16_t lpcBuf[kLpcFrame - kSub + kFrame];
    std::memcpy(lpcBuf, e.prevDat, sizeof e.prevDat);
    std::memcpy(lpcBuf + kLpcFrame - kSub, data, sizeof data);
    int16_t unq[40];
    for (int i = 0; i < 4; ++i) {
        int16_t acf[11], scale = 0, err = 0;
        kvosAutoCorr_G723_16s(lpcBuf + kSub * i, &scale, acf);
        kvosLevinsonDurbin_G723_16s(acf, &e.sinDet, &err, unq + kOrder * i);
    }
    {
        e.sinDet = static_cast<int16_t>(e.sinDet & 0x7fff);
        int bits = 0;
        for (int i = 0; i < 15; ++i) bits += (e.sinDet >> i) & 1;
        if (bits >= 14) e.sinDet = static_cast<int16_t>(e.sinDet | 0x8000);
    }
    int16_t lsp[10];
    kvosLPCToLSF_G723_16s(unq + 30, e.prevLsp, lsp);
    kvosLSFQuant_G723_16s32s(lsp, e.prevLsp, &f.lspId);
    // The coded frame lags the input by one subframe (the analysis look-ahead).
    std::memcpy(e.prevDat, data + kFrame - (kLpcFrame - kSub), sizeof e.prevDat);
    std::memcpy(data, lpcBuf + (kLpcFrame - kSub) / 2, sizeof data);

    // Perceptual weighting.
    int16_t per[80];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < kOrder; ++j) {
            per[20 * i + j] = mult_r(unq[kOrder * i + j], coder_g723_PerFiltZero[j]);
            per[20 * i + 10 + j] = mult_r(unq[kOrder * i + j], coder_g723_PerFiltPole[j]);
        }
    for (int i = 0; i < 4; ++i) {
        int32_t w32[kSub];
        kvosIIR16s_G723_16s32s(per + 20 * i, data + kSub * i, w32, &e.wght);
        for (int j = 0; j < kSub; ++j) data[kSub * i + j] = round16(w32[j]);
    }

    // Open-loop pitch and harmonic noise weighting on the normalised buffer.
    int16_t raw[kPitchMax + kFrame], nrm[kPitchMax + kFrame];
    std::memcpy(raw, e.prevWgt, sizeof e.prevWgt);
    std::memcpy(raw + kPitchMax, data, sizeof data);
    int32_t sc = 3;
    kvosAutoScale_16s(raw, nrm, kPitchMax + kFrame, &sc);
    for (int i = 0; i < 2; ++i) kvosOpenLoopPitchSearch_G723_16s(nrm + kPitchMax + 120 * i, &f.olp[i]);
    int16_t pwLag[4], pwGain[4];
    for (int i = 0; i < 4; ++i)
        kvosHarmonicSearch_G723_16s(f.olp[i >> 1], nrm + kPitchMax + kSub * i, &pwLag[i], &pwGain[i]);
    std::memcpy(e.prevWgt, raw + kFrame, sizeof e.prevWgt);
    for (int i = 0; i < 4; ++i) harmonic(raw + kSub * i, pwLag[i], pwGain[i], data + kSub * i);

    // Quantised LPC per subframe.
    int16_t qlsp[10], qlpc[40];
    kvosLSFDecode_G723_16s(f.lspId, e.prevLsp, 0, qlsp);
    interpolate_lpc(qlsp, e.prevLsp, qlpc);
    std::memcpy(e.prevLsp, qlsp, sizeof qlsp);

    int16_t budget = 0;
    for (int i = 0; i < 4; ++i) {
        SubParams& s = f.sub[i];
        const int16_t* a = qlpc + kOrder * i;
        const int16_t* w = per + 20 * i;
        int16_t* tv = data + kSub * i;

        // Impulse response of the combined filter in Q13 (h[0] = 8192).
        int16_t h[kSub];
        {
            int16_t imp[kSub] = {8192};
            KvoIIRMemG723 zero = {};
            int16_t hist[kPitchMax + kSub] = {};
            weighted_synthesis(a, w, imp, zero, hist + kPitchMax, 1);
            harmonic(hist, pwLag[i], pwGain[i], h);
        }
        // Ringing of the previous subframes, removed from the target.
        {
            int16_t zeroIn[kSub] = {};
            KvoIIRMemG723 mem = e.ring;
            int16_t hist[kPitchMax + kSub];
            std::memcpy(hist, e.prevErr, sizeof e.prevErr);
            weighted_synthesis(a, w, zeroIn, mem, hist + kPitchMax);
            kvosHarmonicNoiseSubtract_G723_16s_I(pwGain[i], pwLag[i], hist + kPitchMax, tv);
        }
        // Adaptive codebook.
        int16_t& olp = f.olp[i >> 1];
        int16_t lagDelta = 1, gainIndex = 0;
        if (kvosAdaptiveCodebookSearch_G723(olp, tv, h, e.prevExc, e.err, &lagDelta, &gainIndex,
                                            static_cast<int16_t>(i), e.sinDet, e.rate) != kvoOk)
            return false;
        if ((i & 1) == 0) {
            int16_t c = olp;
            if (c == 18) c = 19;
            if (c > kPitchMax - 5) c = kPitchMax - 5;
            olp = static_cast<int16_t>(c - 1 + lagDelta);
            s.acLg = 1;
        } else {
            s.acLg = lagDelta;
        }
        s.acGn = gainIndex;
        int16_t acb[kSub];
        if (kvosDecodeAdaptiveVector_G723_16s(olp, s.acLg, s.acGn, e.prevExc, acb, e.rate) != kvoOk)
            return false;
        for (int n = 0; n < kSub; ++n) {
            int32_t acc = (int32_t{tv[n]} << 16) >> 1;
            for (int j = 0; j <= n; ++j) acc = L_msu(acc, acb[j], h[n - j]);
            tv[n] = round16(sat32(int64_t{acc} << 1));
        }

        // Fixed codebook.
        if (e.rate == kRate63) {
            int16_t code[kSub];
            if (kvosMPMLQFixedCodebookSearch_G723(olp, h, tv, code, &s.grid, &s.tran, &s.mamp,
                                                  &s.pamp, &s.ppos, static_cast<int16_t>(i)) != kvoOk)
                return false;
        } else {
            const int t0 = olp - 1 + s.acLg + coder_g723_epsi170[s.acGn];
            const int16_t g0 = coder_g723_gain170[s.acGn];
            // The codebook works on the response at half scale (Q12).
            int16_t h2[kSub];
            for (int n = 0; n < kSub; ++n) h2[n] = static_cast<int16_t>(h[n] >> 1);
            if (t0 < kSub - 2)
                for (int n = t0; n < kSub; ++n) h2[n] = add(h2[n], mult(h2[n - t0], g0));
            int32_t rr[416];
            int16_t dn[kSub], signs[4], pos[4], grid = 0, code[kSub];
            kvosCrossCorr_NormM_16s(h2, tv, kSub, dn);
            if (i == 0) budget = 120;
            kvosToeplizMatrix_G723_16s32s(h2, rr);
            kvosACELPFixedCodebookSearch_G723_32s16s(dn, rr, signs, pos, &grid, code, &budget);
            int16_t y[kSub] = {};
            s.ppos = 0;
            s.pamp = 0;
            for (int k = 0; k < 4; ++k) {
                if (pos[k] < kSub)
                    for (int n = pos[k]; n < kSub; ++n)
                        y[n] = signs[k] > 0 ? add(y[n], h2[n - pos[k]]) : add(y[n], -h2[n - pos[k]]);
                s.ppos |= (pos[k] >> 3) << (3 * k);
                if (signs[k] > 0) s.pamp = static_cast<int16_t>(s.pamp | (1 << k));
            }
            s.grid = grid;
            s.mamp = acelp_gain_index(tv, y);
        }
        int16_t fixed[kSub];
        fixed_vector(s, olp, i, e.rate == kRate63, fixed);

        // Excitation and memories.
        int16_t exc[kSub];
        for (int n = 0; n < kSub; ++n) exc[n] = add(shl1(fixed[n]), acb[n]);
        std::memmove(e.excHist, e.excHist + kSub, sizeof(int16_t) * (kOlder + kPitchMax - kSub));
        std::memcpy(e.prevExc + kPitchMax - kSub, exc, sizeof exc);
        update_error(e, olp, s.acLg, s.acGn);
        std::memmove(e.prevErr, e.prevErr + kSub, sizeof(int16_t) * (kPitchMax - kSub));
        weighted_synthesis(a, w, exc, e.ring, e.prevErr + kPitchMax - kSub);
    }
    pack(f, out);
    return true;
}

bool g723_encode(const Options& opt, const std::vector<int16_t>& pcm, std::vector<uint8_t>& stream,
                 std::string& error) {
    Encoder e;
    const std::string r = opt.get("rate", "6.3");
    if (r == "6.3") {
        e.rate = kRate63;
    } else if (r == "5.3") {
        e.rate = kRate53;
    } else {
        error = "g723: --rate takes 6.3 or 5.3";
        return false;
    }
    if (!parse_flag(opt, "hpf", true, e.hpf, error)) return false;
    bool vad = false;
    if (!parse_flag(opt, "vad", false, vad, error)) return false;
    if (vad) {
        error = "g723: --vad on needs the Annex A comfort-noise tables, which this build lacks";
        return false;
    }
    stream.clear();
    int16_t frame[kFrame];
    uint8_t out[24];
    for (size_t p = 0; p < pcm.size(); p += kFrame) {
        const size_t n = std::min<size_t>(kFrame, pcm.size() - p);
        std::memset(frame, 0, sizeof frame);
        std::memcpy(frame, &pcm[p], n * sizeof(int16_t));
        if (!encode_frame(e, frame, out)) {
            error = "g723: a library step failed";
            return false;
        }
        stream.insert(stream.end(), out, out + frame_octets(out[0] & 3));
    }
    return true;
}

// ---- verification over the ITU test vectors ----------------------------------------
struct EncSet {
    const char* name;
    const char* in;
    const char* ref;
    KvoSpeechRate rate;
    bool hpf;
};
struct DecSet {
    const char* name;
    const char* in;
    const char* crc;
    const char* ref;
    bool postfilter;
};

VerifyRow run_encoder_set(const std::string& dir, const EncSet& s) {
    VerifyRow row;
    row.set = s.name;
    std::vector<uint8_t> inb, ref;
    if (!read_file(dir + "/" + s.in, inb) || !read_file(dir + "/" + s.ref, ref)) {
        row.skipped = true;
        row.note = "vector files missing";
        return row;
    }
    const std::vector<int16_t> pcm = words_from_bytes(inb);
    Encoder e;
    e.rate = s.rate;
    e.hpf = s.hpf;
    uint8_t out[24];
    size_t rp = 0;
    for (size_t p = 0; p + kFrame <= pcm.size(); p += kFrame) {
        if (!encode_frame(e, &pcm[p], out)) {
            row.note = "library step failed";
            ++row.mismatched;
            break;
        }
        const int n = frame_octets(out[0] & 3);
        const bool differ = rp + static_cast<size_t>(n) > ref.size() ||
                            std::memcmp(out, &ref[rp], static_cast<size_t>(n)) != 0;
        if (differ && row.mismatched++ == 0) {
            int b = 0;
            while (rp + static_cast<size_t>(b) < ref.size() && b < n && out[b] == ref[rp + b]) ++b;
            row.note = "first difference in frame " + std::to_string(row.frames) + ", octet " +
                       std::to_string(b);
        }
        rp += static_cast<size_t>(n);
        ++row.frames;
    }
    if (row.mismatched == 0 && rp != ref.size()) {
        row.mismatched = 1;
        row.note = "stream length differs";
    }
    return row;
}

VerifyRow run_decoder_set(const std::string& dir, const DecSet& s) {
    VerifyRow row;
    row.set = s.name;
    std::vector<uint8_t> in, crcb, refb;
    if (!read_file(dir + "/" + s.in, in) || !read_file(dir + "/" + s.ref, refb) ||
        (s.crc && !read_file(dir + "/" + s.crc, crcb))) {
        row.skipped = true;
        row.note = "vector files missing";
        return row;
    }
    const std::vector<int16_t> ref = words_from_bytes(refb);
    const std::vector<int16_t> crc = words_from_bytes(crcb);
    Decoder d;
    d.postfilter = s.postfilter;
    int16_t out[kFrame];
    size_t pos = 0;
    while (pos < in.size()) {
        const int n = frame_octets(in[pos] & 3);
        if (pos + static_cast<size_t>(n) > in.size()) break;
        const FrameParams f = unpack(&in[pos], n);
        const size_t k = static_cast<size_t>(row.frames);
        const bool erased = k < crc.size() && crc[k] != 0;
        if (!decode_frame(d, f, erased, out)) {
            row.note = "library step failed";
            ++row.mismatched;
            break;
        }
        const size_t o = k * kFrame;
        const bool differ = o + kFrame > ref.size() ||
                            std::memcmp(out, &ref[o], kFrame * sizeof(int16_t)) != 0;
        if (differ && row.mismatched++ == 0) {
            int j = 0;
            while (o + static_cast<size_t>(j) < ref.size() && j < kFrame && out[j] == ref[o + j]) ++j;
            row.note = "first difference in frame " + std::to_string(k) + ", sample " +
                       std::to_string(j);
        }
        pos += static_cast<size_t>(n);
        ++row.frames;
    }
    if (row.mismatched == 0 && static_cast<size_t>(row.frames) * kFrame != ref.size()) {
        row.mismatched = 1;
        row.note = "output length differs";
    }
    return row;
}

std::vector<VerifyRow> g723_verify(const std::string& dir) {
    static const EncSet enc[] = {
        {"CODEC63 (encoder)", "CODEC63.TIN", "CODEC63.RCO", kRate63, true},
        {"INEQC53 (encoder)", "INEQC53.TIN", "INEQC53.RCO", kRate53, true},
        {"OVERC53H (encoder)", "OVERC53H.TIN", "OVERC53H.RCO", kRate53, true},
        {"OVERC63 (encoder)", "OVERC63.TIN", "OVERC63.RCO", kRate63, true},
        {"PATHC53 (encoder)", "PATHC53.TIN", "PATHC53.RCO", kRate53, true},
        {"PATHC63H (encoder)", "PATHC63H.TIN", "PATHC63H.RCO", kRate63, true},
    };
    static const DecSet dec[] = {
        {"INEQD53 (decoder)", "INEQD53.TCO", nullptr, "INEQD53.ROU", false},
        {"OVERD53 (decoder)", "OVERD53.TCO", nullptr, "OVERD53.ROU", false},
        {"OVERD63P (decoder)", "OVERD63P.TCO", nullptr, "OVERD63P.ROU", true},
        {"PATHD53 (decoder)", "PATHD53.TCO", nullptr, "PATHD53.ROU", false},
        {"PATHD63P (decoder)", "PATHD63P.TCO", "PATHD63P.CRC", "PATHD63P.ROU", true},
    };
    std::vector<VerifyRow> rows;
    for (const EncSet& s : enc) rows.push_back(run_encoder_set(dir, s));
    for (const DecSet& s : dec) rows.push_back(run_decoder_set(dir, s));
    static const char* const dtx[] = {"DTX63 (encoder, VAD)", "DTX53 (encoder, VAD)",
                                      "DTXMIX (encoder, VAD, rate switching)",
                                      "DTX63 (decoder)",      "DTX53 (decoder)",
                                      "DTXMIX (decoder)",     "DTX63B (decoder)",
                                      "DTX63E (decoder)"};
    for (const char* name : dtx) {
        VerifyRow row;
        row.set = name;
        row.skipped = true;
        row.note = "needs Annex A comfort noise, whose SID gain and excitation tables are not "
                   "among the published tables held here";
        rows.push_back(row);
    }
    return rows;
}

}  // namespace

extern const Coder kG723 = {
    "g723",
    "ITU-T G.723.1 dual-rate speech coder (6.3 / 5.3 kbit/s)",
    "--rate 6.3|5.3 --hpf on|off --postfilter on|off",
    8000,
    6.3,
    g723_encode,
    g723_decode,
    g723_verify,
};

}  // namespace kvosc::coders
