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

constexpr int kFrame = 80;     // samples per frame
constexpr int kSubframe = 40;  // samples per subframe
constexpr int kParams = 11;    // parameter words per frame
constexpr int kPackedBytes = 10;
constexpr int kSerialWords = 82;  // sync, size, 80 bit words

// Bit width of each parameter word, in transmission order.
extern const int kParamBits[kParams];

struct EncoderState;
struct DecoderState;

class Encoder {
  public:
    explicit Encoder(bool annexA);
    ~Encoder();
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    // One frame of 16-bit PCM to 11 parameter words; false if a library call failed.
    bool frame(const int16_t* pcm, int16_t* prm);
    // The two halves of frame(), for the Annex B coder: pre-processing and LP
    // analysis giving the frame's LSPs, then the coding of an active frame.
    bool analyse(const int16_t* pcm, Kvo16s* lspNew);
    bool codeActive(const Kvo16s* lspNew, int16_t* prm);
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
    bool frame(const int16_t* prm, bool erased, int16_t* pcm);
    // The two halves of frame(), for the Annex B coder: the synthesis of an
    // active frame (az: both subframes' filters, t0: their lags), then post
    // filter and post-processing of any frame (frameType 1 active, 0 and 2
    // inactive: no long-term post filter) and the shift of the memories.
    bool synthesise(const int16_t* prm, bool erased, Kvo16s* az, int* t0);
    bool postProcess(const Kvo16s* az, const int* t0, int frameType, int16_t* pcm);
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
