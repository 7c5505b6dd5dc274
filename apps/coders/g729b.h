// ITU-T G.729 Annex B (VAD, DTX, comfort noise) over the G.729 main body or
// Annex A: one encoder and one decoder object per stream, one 10 ms frame per
// call.  A frame has a type: 1 speech (11 parameter words, as G.729), 2 SID
// (4 words: MA predictor, first and second LSF stage, energy: 1+5+4+5 bits),
// 0 untransmitted (no words).
#pragma once

#include <cstdint>

#include "coders/g729.h"

namespace kvosc::coders::g729b {

constexpr int kSidParams = 4;
constexpr int kSidBytes = 2;  // 15 bits and a zero pad bit
extern const int kSidBits[kSidParams];

class EncoderB {
  public:
    explicit EncoderB(bool annexA);
    ~EncoderB();
    EncoderB(const EncoderB&) = delete;
    EncoderB& operator=(const EncoderB&) = delete;
    // One frame of PCM to its type and parameter words; false if a library call failed.
    bool frame(const int16_t* pcm, int16_t* prm, int* type);

  private:
    struct Vad;
    struct Dtx;
    bool detect(const Kvo16s* lsf);
    void updateCng(bool voice);
    void updateSumAcf();
    bool codeInactive(int16_t* prm, int* type, Kvo16s* aq);
    void levinson(const Kvo16s* r16, Kvo16s* a, Kvo16s* err);
    g729::Encoder enc_;
    Vad* v_;
    Dtx* d_;
};

class DecoderB {
  public:
    explicit DecoderB(bool annexA);
    ~DecoderB();
    DecoderB(const DecoderB&) = delete;
    DecoderB& operator=(const DecoderB&) = delete;
    // One frame of the given type (parameters ignored when erased) to 80 samples.
    bool frame(const int16_t* prm, int type, bool erased, int16_t* pcm);

  private:
    struct Cng;
    g729::Decoder dec_;
    Cng* c_;
};

// SID parameter words <-> 2 octets, MSB first, the last bit zero.
void packSid(const int16_t* prm, uint8_t* bytes);
void unpackSid(const uint8_t* bytes, int16_t* prm);

}  // namespace kvosc::coders::g729b
