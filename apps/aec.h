// Assembled echo cancellers built from the library's exported steps only.
//
// Kinds:
//   subband     float subband canceller: DFT filter bank, adaptive and fixed subband FIR
//               rows, the subband controller and its normalised-step update
//   subband16   the same chain in integers (32-bit subband samples, step pairs)
//   dt16        the integer chain with the double-talk subband controller
//   fullband    float time-domain canceller: NLMS with the adaptive taps, FIR with the
//               fixed taps, the fullband controller, on pre-emphasised signals
//   fullband16  the same in 16 bits with Q15 taps
// Beside every kind a 2100 Hz tone detector watches the far end: a disabling tone with
// phase reversals (G.165/G.168) bypasses the canceller and stops adaptation until the
// far end has been quiet for 250 ms.
//
// The output of a frame is the error of the coefficient set (adaptive or fixed) with
// the smaller energy, per subband in the subband kinds and per frame in the fullband
// kinds.  The controllers' residual-echo mute gain is reported, and applied only when
// asked (Config::applyGain): the figures of the linear canceller come without it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kvosc::aec {

enum class Kind { Subband, Subband16, DoubleTalk16, Fullband, Fullband16 };

struct Config {
    Kind kind = Kind::Subband;
    int rate = 8000;      // 8000 or 16000
    int tailMs = 128;     // length of the echo path that the filter covers
    bool toneDisable = true;
    bool applyGain = false;
};

// What one frame decided.
struct FrameInfo {
    float gain = 1.0f;        // the controller's output gain (1 for dt16, which has none)
    bool doubleTalk = false;  // frame-level double-talk flag (dt16 only)
    bool toneBypass = false;  // disabled by the 2100 Hz tone
    int action = 0;           // dt16: -1 saved, 1 restored
};

class Canceller {
  public:
    virtual ~Canceller() = default;
    // Samples per call.
    virtual int frameSize() const = 0;
    // Samples by which the output trails the near-end input (the filter bank's delay).
    virtual int latency() const = 0;
    // One frame: far-end (loudspeaker) and near-end (microphone) samples in, echo-free
    // near end out.  False when a library call fails.
    virtual bool process(const int16_t* far, const int16_t* nearEnd, int16_t* out,
                         FrameInfo& info) = 0;
};

// Builds a canceller; null with a reason when the configuration is not supported.
std::unique_ptr<Canceller> make_canceller(const Config& cfg, std::string& error);

// Parses subband|subband16|dt16|fullband|fullband16.
bool parse_kind(const std::string& name, Kind& kind);
const char* kind_name(Kind kind);

// Runs a whole recording: output aligned with the near-end input (latency removed) and
// of the same length.  Optional per-frame decisions.
bool run(const Config& cfg, const std::vector<int16_t>& far, const std::vector<int16_t>& nearEnd,
         std::vector<int16_t>& out, std::string& error, std::vector<FrameInfo>* frames = nullptr,
         void (*progress)(double fraction) = nullptr);

}  // namespace kvosc::aec
