// The assembled noise suppressor: the echo-path noise filter driven by its own
// voice-activity decision (see denoiser.h for what it does and why).
#include "denoiser.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kvosc {

namespace {

// Root mean square of the synthesis window's overlap sums at a hop of 16: taps
// trunc(8192 sin^2(pi i / 63)) / div, div 12288 (levels 1, 2, 5) or 16384 (3, 4).
double overlap_gain(double div) {
    double w[64];
    for (int i = 0; i < 64; ++i) {
        const double s = std::sin(3.14159265358979323846 * i / 63.0);
        w[i] = std::floor(8192.0 * s * s + 1e-9) / div;
    }
    double e = 0;
    for (int j = 0; j < 16; ++j) {
        const double sum = w[j] + w[j + 16] + w[j + 32] + w[j + 48];
        e += sum * sum;
    }
    return std::sqrt(e / 16.0);
}

constexpr double kBlockOverBase = 1.6;      // block power over the noise power (start-up)
constexpr double kFloorBias = 1.3;          // noise power over the tracked minimum
constexpr double kSpectralOverNoise = 1.3;  // mean bin power over the noise spectrum
constexpr double kOnsetOverNoise = 2.5;     // block power over the noise power (onsets)
constexpr double kStrength = 0.125;         // gain 1 from a power 9 dB above the noise
constexpr double kMaxEmph = 0.98;           // largest whitening coefficient
constexpr double kEmphStep = 0.002;         // its largest change per frame
constexpr double kNoiseTime = 0.2;          // seconds, running mean of the noise spectrum

}  // namespace

bool Denoiser::init(int rate, int level) {
    Kvo32s bytes = 0;
    if (level < 1 || level > 5 || kvosFilterNoiseGetStateSize_EC_32f(rate, &bytes) != kvoOk)
        return false;
    mem_.assign((static_cast<size_t>(bytes) + 7) / 8, 0);
    st_ = reinterpret_cast<KvoFilterNoise32fState*>(mem_.data());
    if (kvosFilterNoiseInit_EC_32f(rate, st_) != kvoOk ||
        kvosFilterNoiseLevel_EC_32f(level, st_) != kvoOk)
        return false;
    st_->strength = static_cast<float>(kStrength);
    declared_ = 0;
    since_ = 0;
    beta_ = 1.0 - std::exp(-kFrame / (kNoiseTime * rate));
    std::memset(spec_, 0, sizeof spec_);
    rate_ = rate;
    pre_ = static_cast<float>(1.0 / overlap_gain(level == 3 || level == 4 ? 16384.0 : 12288.0));
    std::memset(frame_e_, 0, sizeof frame_e_);
    frame_at_ = 0;
    es_ = 0;
    a_ = 1.0 - std::exp(-kFrame / (0.03 * rate));
    cur_min_ = 0;
    n_mins_ = 0;
    sub_len_ = rate / 4 / kFrame;  // 0.25 s per sub-window, six of them
    sub_at_ = 0;
    run_ = 0;
    need_run_ = rate * 24 / 1000 / kFrame;  // 24 ms
    frames_ = 0;
    noise_est_ = 0;
    raw_est_ = 0;
    std::memset(hold_, 0, sizeof hold_);
    last_in_ = 0;
    last_out_ = 0;
    emph_ = 0;
    r0_ = r1_ = 0;
    std::memset(emph_hist_, 0, sizeof emph_hist_);
    return true;
}

int Denoiser::working_level() const {
    return st_ ? st_->level : 0;
}

double Denoiser::noise_power() const {
    return raw_est_;
}

bool Denoiser::step(const float* in, float* out) {
    float x[kFrame];
    double e = 0;
    // The whitening coefficient of this frame, kept for the matching output frame.
    const double emph = emph_;
    emph_hist_[frames_ & 7] = emph;
    double c0 = 0, c1 = 0;
    for (int i = 0; i < kFrame; ++i) {
        c0 += double(in[i]) * in[i];
        c1 += double(in[i]) * last_in_;
        // Pre-emphasis at half scale (the filter saturates at 16-bit amplitude).
        x[i] = static_cast<float>(0.5 * pre_ * (in[i] - emph * last_in_));
        last_in_ = in[i];
        e += double(x[i]) * x[i];
    }
    // Power of the last 128 samples, and its smoothed form.
    frame_e_[frame_at_] = e;
    frame_at_ = (frame_at_ + 1) & 7;
    double eb = 0;
    for (double v : frame_e_) eb += v;
    eb /= 128.0;
    // The first 8 frames fill the block; the tracking starts with a full block.
    if (++frames_ <= 8) {
        es_ = eb;
        float y[kFrame];
        kvosFilterNoise_EC_32f(x, y, 0, st_);
        emit(y, out);
        return false;
    }
    es_ += a_ * (eb - es_);

    // Minimum statistics of the smoothed power over six sub-windows of 0.25 s.
    if (sub_at_ == 0 || es_ < cur_min_) cur_min_ = es_;
    if (++sub_at_ == sub_len_) {
        for (int k = 5; k > 0; --k) mins_[k] = mins_[k - 1];
        mins_[0] = cur_min_;
        if (n_mins_ < 6) ++n_mins_;
        sub_at_ = 0;
    }
    double floor_ = cur_min_;
    for (int k = 0; k < n_mins_; ++k) floor_ = mins_[k] < floor_ ? mins_[k] : floor_;

    // The reference: the mean power of the frames declared so far, or the tracked floor
    // with its bias made up for, whichever is higher (the floor lifts it after a rise).
    const double base = std::max(noise_est_, kFloorBias * floor_) + 1.0;
    // Once the noise spectrum is a mean over enough frames: the mean over the bins of the last
    // analysed block's power over that spectrum, which is near 1 for noise of any colour.  Before
    // that, or when nothing has been declared for a second (the noise has risen), the block power
    // against the tracked floor.
    bool quiet;
    double r = 0;
    // (invNoiseSpec holds the inverse of the running mean once that is in use)
    for (int k = 2; k < 63; ++k) r += st_->powerSpec[k] * st_->invNoiseSpec[k];
    r_hist_[r_at_] = r / 61.0;
    r_at_ = (r_at_ + 1) & 7;
    if (declared_ >= static_cast<long>(1.0 / beta_) && since_ < rate_ / kFrame) {
        // The ratio of the block before this one's (no sample in common with the block
        // the filter will take as noise, so that the choice does not favour low
        // periodograms), and the present block's power, which catches an onset.
        quiet = r_hist_[r_at_] <= kSpectralOverNoise && eb <= kOnsetOverNoise * noise_est_;
    } else {
        quiet = eb <= kBlockOverBase * base;
    }
    run_ = quiet ? run_ + 1 : 0;
    // The filter's start-up attenuation and ramp must have run out before the first
    // declaration (the ramp of a declared stream starts with a negative factor).
    const bool settled = st_->startCount < 1 && st_->rampCount < 1;
    const bool noise = settled && run_ >= need_run_;
    since_ = noise ? 0 : since_ + 1;
    if (noise) {
        // Lag-one correlation of the noise: the first-order whitening filter.
        r0_ += beta_ * (c0 - r0_);
        r1_ += beta_ * (c1 - r1_);
        const double target = r0_ > 0 ? std::min(kMaxEmph, std::max(0.0, r1_ / r0_)) : 0.0;
        emph_ += std::max(-kEmphStep, std::min(kEmphStep, target - emph_));
    }
    if (noise) {
        noise_est_ = noise_est_ == 0 ? eb : noise_est_ + 0.05 * (eb - noise_est_);
        // The input's noise power, with the time constant of the noise spectrum's mean.
        const double b = std::max(1.0 / static_cast<double>(declared_ + 1), beta_);
        raw_est_ += b * (c0 / kFrame - raw_est_);
    }

    // Every other noise frame goes to the filter as noise (taking a noise spectrum costs
    // the filter more than the frame itself); the running mean takes them all.
    const bool declare = noise && (declared_ < 16 || (frames_ & 1) == 0);
    float y[kFrame];
    kvosFilterNoise_EC_32f(x, y, declare ? 1 : 0, st_);
    if (noise) smooth_noise_spectrum(declare);
    emit(y, out);
    return noise;
}

// The filter has just taken this frame's power spectrum as the noise spectrum; for the
// frames that follow it gets the running mean of the declared frames' spectra instead
// (the record is the caller's, and these are its noise fields): one periodogram has the
// spread of a chi-square of two degrees of freedom, so that bins where it happened to be
// low would open for a whole syllable.
void Denoiser::smooth_noise_spectrum(bool declared) {
    // A plain mean over the first frames, then the running mean.
    ++declared_;
    const double b = std::max(1.0 / static_cast<double>(declared_), beta_);
    for (int k = 0; k < 65; ++k) spec_[k] += b * (st_->powerSpec[k] - spec_[k]);
    // The inverses move slowly: renewed every fourth noise frame, copied every time.
    if ((declared_ & 3) == 1 || declared_ < 16) {
        for (int k = 0; k < 65; ++k) inv_[k] = 1.0 / std::max(spec_[k], 1.0);
        // Running sum of width bandSumWin, the last places repeating the block before.
        const int W = st_->bandSumWin;
        double S[65];
        S[0] = 0;
        for (int k = 0; k < W; ++k) S[0] += spec_[k];
        for (int k = 1; k <= 65 - W; ++k) S[k] = S[k - 1] + spec_[k + W - 1] - spec_[k - 1];
        for (int k = 66 - W; k < 65; ++k) S[k] = S[k - (W - 1)];
        for (int k = 0; k < 65; ++k) inv_band_[k] = 1.0 / std::max(S[k], 1.0);
    }
    if (!declared && (declared_ & 3) != 1) return;  // the record still holds them
    std::memcpy(st_->noiseSpec, spec_, sizeof spec_);
    std::memcpy(st_->invNoiseSpec, inv_, sizeof inv_);
    std::memcpy(st_->invNoiseBand, inv_band_, sizeof inv_band_);
}

void Denoiser::emit(const float* y, float* out) {
    float z[kFrame];
    const bool delayed = st_->level != 0;
    for (int i = 0; i < kFrame; ++i) {
        // De-emphasis with the coefficient its input sample had (kDelay back, but for
        // level 0), and the half scale undone.
        const long src = (frames_ - 1) * kFrame + i - (delayed ? kDelay : 0);
        const double a = src >= 0 ? emph_hist_[(src / kFrame) & 7] : 0.0;
        last_out_ = 2.0 * y[i] + a * last_out_;
        z[i] = static_cast<float>(last_out_);
    }
    if (delayed) {
        std::memcpy(out, z, sizeof z);
        return;
    }
    // Level 0 runs without delay and without the window's gain: hold the block back by
    // the filter's delay and undo the input scale.
    for (int i = 0; i < kFrame; ++i) hold_[kDelay + i] = z[i] / pre_;
    std::memcpy(out, hold_, kFrame * sizeof(float));
    std::memmove(hold_, hold_ + kFrame, kDelay * sizeof(float));
}

}  // namespace kvosc
