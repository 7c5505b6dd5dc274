// An assembled noise suppressor on the echo-path noise filter's exports.
//
// The library's filter takes a noise spectrum from any frame it is told is
// noise, and from then on gives each FFT bin a gain that follows the ratio of
// the frame's power to that spectrum.  This suppressor drives it as follows:
//
//  - Its own noise decision instead of the library's detector (which rejects
//    broadband noise above 8 kHz, analyses an older block than the filter
//    above 8 kHz, and lets its estimate only rise): a frame is noise when,
//    for 24 ms in a row, the mean over the bins of the power of the block
//    before the present one over the noise spectrum stays below 1.3 (1.1 dB)
//    and the present block's power below 2.5 times the noise power.  Before
//    the first noise frame, and after a second without one (the noise has
//    risen), the block power against a 1.5 s minimum-statistics floor
//    decides.  Every other noise frame goes to the filter with the flag 1, so
//    its noise spectrum is renewed all through a pause and follows a falling
//    level as soon as the pause comes; all other frames go with the flag 0
//    (taking a noise spectrum costs the filter more than the frame itself).
//  - After each declared frame the record's noise spectrum, its inverse and
//    its band sums (fields of the caller's record) are replaced by the running
//    mean of all noise frames' spectra over 0.2 s: a single periodogram
//    has the spread of a chi-square of two degrees of freedom, and bins where
//    it happened to be low would open for a whole syllable.
//  - The record's strength (SNR to gain) is set to 1/8: a bin passes whole
//    from 9 dB above the noise instead of 15 dB.  In noise frames the gain
//    stays the level's floor.
//  - No frame is declared noise until the filter's start-up attenuation and
//    its ramp have run out: the ramp's branch for a declared-noise stream
//    with no detector scales by a factor that starts negative at the rates
//    above 8 kHz.
//  - The input is whitened for the noise: a first-order pre-emphasis whose
//    coefficient follows the lag-one correlation of the noise frames (0 for
//    white noise, up to 0.98 for brown), undone after the filter with the
//    coefficient each sample went in with.  The filter's 128-point analysis
//    has no window, so a steep noise spectrum leaks from its low bins into all
//    others, and the leak changes from block to block.
//  - The input is scaled by half the inverse of the synthesis window's overlap
//    sum (1.31 at levels 1, 2 and 5, 0.985 at levels 3 and 4), so speech keeps
//    its level and peaks cannot clip in the filter's overlap-add.
//  - When level 5 resolves to level 0 (very quiet noise) the filter runs
//    without delay; the suppressor then delays the block itself, so the
//    output delay stays at 56 samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kvosc.h"

namespace kvosc {

class Denoiser {
  public:
    static constexpr int kFrame = 16;  // samples per step
    static constexpr int kDelay = 56;  // output delay in samples, at every level

    // False for a rate other than 8000, 16000, 22050, 32000 or a level outside 1..5.
    bool init(int rate, int level);

    // One frame of 16 samples at 16-bit amplitude; out is the input of kDelay samples
    // before, suppressed.  Returns true if the frame was declared noise.
    bool step(const float* in, float* out);

    int rate() const { return rate_; }
    // The level the filter works at (level 5 resolves to 0 or 2 at the first noise frame).
    int working_level() const;
    // Noise power of the input (mean square over the noise frames, with the time
    // constant of the filter's noise spectrum), 0 before the first noise frame.
    double noise_power() const;

  private:
    void emit(const float* y, float* out);
    void smooth_noise_spectrum(bool declared);

    std::vector<uint64_t> mem_;
    KvoFilterNoise32fState* st_ = nullptr;
    int rate_ = 0;
    float pre_ = 1.0f;  // input scale
    // Voice-activity decision.
    double frame_e_[8] = {};  // sums of squares of the last 8 frames
    int frame_at_ = 0;
    double es_ = 0;  // smoothed block power
    double a_ = 0;   // its smoothing factor
    double cur_min_ = 0, mins_[6] = {};
    int n_mins_ = 0, sub_len_ = 0, sub_at_ = 0;
    int run_ = 0, need_run_ = 0;
    long frames_ = 0;
    double noise_est_ = 0;  // block power of the noise frames (filter scale)
    double raw_est_ = 0;    // noise power of the input
    // Running mean of the declared frames' power spectra.
    double spec_[65] = {};
    double inv_[65] = {}, inv_band_[65] = {};  // its inverse and that of its band sums
    double beta_ = 0;
    long declared_ = 0;
    double r_hist_[8] = {};
    int r_at_ = 0;
    long since_ = 0;            // frames since the last declaration
    float last_in_ = 0;         // pre-emphasis memory
    double emph_ = 0;           // whitening coefficient
    double emph_hist_[8] = {};  // per input frame, for the de-emphasis
    double r0_ = 0, r1_ = 0;    // lag-0 and lag-1 correlation of the noise frames
    double last_out_ = 0;       // de-emphasis memory
    // Delay line for the filter's level 0.
    float hold_[kDelay + kFrame] = {};
};

}  // namespace kvosc
