// ITU-T G.729 and G.729 Annex A at 8 kbit/s, assembled from the library's
// exports: one encoder and one decoder object per stream, one 10 ms frame
// (80 samples, 80 bits) per call.  The records kG729 and kG729A in g729.cpp
// wrap them for the kvosc tool; tests and benchmarks use them directly.
//
// A frame's bits are kept as 11 parameter words in the order the
// Recommendation transmits them (L0|L1, L2|L3, P1, P0, C1, S1, GA1|GB1, P2,
// C2, S2, GA2|GB2); packing to the ITU serial words or to RFC 3551 octets is
// a separate step.  Nothing on the per-frame path allocates.
#pragma once

#include <cstdint>

#include "kvosc.h"

namespace kvosc::coders::g729 {

constexpr int kFrame = 80;      // samples per frame
constexpr int kSubframe = 40;   // samples per subframe
constexpr int kParams = 11;     // parameter words per frame
constexpr int kParamsMax = 18;  // at 11.8 kbit/s: the size of a parameter buffer for any rate
constexpr int kPackedBytes = 10;
constexpr int kSerialWords = 82;  // sync, size, 80 bit words

// Bit width of each parameter word, in transmission order.
extern const int kParamBits[kParams];
// At 6.4 kbit/s (Annex D) the same 11 words carry L0|L1, L2|L3, P1, (none),
// C1 (9), S1 (2), GA1|GB1 (3+3), P2 (4), C2, S2, GA2|GB2: 64 bits.
extern const int kParamBits6k[kParams];

// Bit rate of one frame: Annex D 6.4 kbit/s, the main body's 8 kbit/s, or
// Annex E 11.8 kbit/s.  At 11.8 kbit/s only the forward mode exists (18
// parameter words: mode, L0|L1, L2|L3, P1, P0, five 7-bit track words,
// GA1|GB1, P2, five track words, GA2|GB2; the parity bit covers the seven
// most significant bits of P1): the encoder never chooses the backward mode,
// and the decoder lacks the Annex E post filter (not yet bit-exact).
enum class Rate { k6k4, k8k, k11k8 };

struct EncoderState;
struct DecoderState;

class Encoder {
  public:
    explicit Encoder(bool annexA);
    ~Encoder();
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    // One frame of 16-bit PCM to 11 parameter words (18 at 11.8 kbit/s);
    // false if a library call failed.
    bool frame(const int16_t* pcm, int16_t* prm) { return frame(pcm, prm, Rate::k8k); }
    // The same at a chosen rate (main body only: Annex A has no 6.4 kbit/s mode).
    bool frame(const int16_t* pcm, int16_t* prm, Rate rate);
    // The two halves of frame(), for the Annex B coder: pre-processing and LP
    // analysis giving the frame's LSPs (the same at every rate), then the
    // coding of an active frame at the given rate (Annex B uses 8 kbit/s).
    bool analyse(const int16_t* pcm, Kvo16s* lspNew);
    bool codeActive(const Kvo16s* lspNew, int16_t* prm, Rate rate = Rate::k8k);
    // The memories of an inactive (comfort-noise) frame whose excitation and
    // quantised filters aq the Annex B coder has set: weighted speech, filter
    // memories, pitch sharpening, then the shift to the next frame.
    void updateInactive(const Kvo16s* lspNew, const Kvo16s* aq);
    // Taming record after a subframe of pitch gain gp (Q14) and lag t0.
    void updateTamingRecord(Kvo16s gp, int t0);
    EncoderState& state() { return *s_; }

  private:
    EncoderState* s_;
};

class Decoder {
  public:
    explicit Decoder(bool annexA);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    // One frame of parameters (ignored when erased) to 80 post-processed samples.
    bool frame(const int16_t* prm, bool erased, int16_t* pcm) {
        return frame(prm, erased, pcm, Rate::k8k);
    }
    // The same at the frame's rate (an erased frame keeps the last good one).
    bool frame(const int16_t* prm, bool erased, int16_t* pcm, Rate rate);
    // The two halves of frame(), for the Annex B coder: the synthesis of an
    // active frame at its rate (az: both subframes' filters, t0: their lags),
    // then post filter and post-processing of any frame (frameType 1 active,
    // 0 and 2 inactive: no long-term post filter) and the shift of the
    // memories; postProcess takes the rate synthesise was given (at
    // 11.8 kbit/s each subframe's long-term post filter uses its own lag).
    bool synthesise(const int16_t* prm, bool erased, Kvo16s* az, int* t0, Rate rate = Rate::k8k);
    bool postProcess(const Kvo16s* az, const int* t0, int frameType, int16_t* pcm,
                     Rate rate = Rate::k8k);
    DecoderState& state() { return *s_; }

  private:
    DecoderState* s_;
};

// 11 parameter words <-> 10 octets, MSB first (RFC 3551 payload order).
void pack(const int16_t* prm, uint8_t* bytes);
void unpack(const uint8_t* bytes, int16_t* prm);
// 11 parameter words <-> ITU serial frame: 0x6b21, 80, then 0x0081 for a 1
// and 0x007f for a 0.  unpack_serial reports an erased frame (a bit word 0).
void pack_serial(const int16_t* prm, int16_t* words);
bool unpack_serial(const int16_t* words, int16_t* prm);

}  // namespace kvosc::coders::g729
