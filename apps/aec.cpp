// Assembled echo cancellers (see aec.h).  Every library call goes through an
// exported name; the chains follow the frame order of the echo-cancellation steps:
// analysis of the far and the near block, subband FIR with the adaptive and the fixed
// rows, the controller and its step update, the coefficient update, synthesis.
//
// Geometry.  Subband kinds use the built-in prototypes: at 8 kHz 24-sample blocks,
// a 32-point transform and 17 subbands; at 16 kHz 44-sample blocks, 64 points and 33
// subbands, so the controllers' smoothing factors stay well inside their range
// (frames under 0.009 s).  The fullband kinds work on 5 ms frames (40 or 80 samples):
// the Q14 smoothing factors reach 0 at 10 ms.
//
// Integer subband scaling.  Coefficients are held with 16 fraction bits (the FIR divides
// by 2^16 and the update multiplies its step by 2^16), which keeps the controller's
// coefficient energy (a 32-bit sum of |H|^2 / 2^10) unsaturated.  Steps at the energy
// floor of the integer controllers are below one coefficient unit; the update then
// does not move the coefficients at all.
#include "aec.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kvosc.h"

namespace kvosc::aec {

namespace {

constexpr int kCoefScale = 16;  // fraction bits of the integer subband coefficients
// Analysis scale of the integer bank (synthesis multiplies back).  Unscaled, the
// running reference energy of the plain 16-bit update (a 32-bit sum of |X|^2 / 2^10
// over the rows) saturates on loud far-end speech near full scale; the update's clamp
// at 0 absorbs the lost amount.  A scale of 1 avoids that at the cost of about 0.5 dB
// of converged ERLE on speech at -8 dBFS peak.

// Caller memory of a record, 16-byte aligned storage (records align themselves anyway).
struct Mem {
    std::vector<uint64_t> words;
    void* get(Kvo32s bytes) {
        words.assign((static_cast<size_t>(bytes) + 7) / 8 + 2, 0);
        return words.data();
    }
    template <class T>
    T* as() {
        return reinterpret_cast<T*>(words.data());
    }
};

int16_t to_pcm(float v) {
    const float r = std::nearbyint(v);
    return static_cast<int16_t>(r > 32767.0f ? 32767.0f : (r < -32768.0f ? -32768.0f : r));
}

Kvo32s sat32(int64_t v) {
    return static_cast<Kvo32s>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}

// Rows of a subband history or coefficient set, with their pointer array.
template <class C>
struct RowSet {
    std::vector<C> store;
    std::vector<C*> rows;
    void init(int count, int n) {
        store.assign(static_cast<size_t>(count) * n, C{});
        rows.resize(count);
        for (int r = 0; r < count; ++r) rows[r] = &store[static_cast<size_t>(r) * n];
    }
    // The oldest row becomes row 0 (to be overwritten with the newest frame).
    C* rotate() {
        std::rotate(rows.rbegin(), rows.rbegin() + 1, rows.rend());
        return rows[0];
    }
    const C** cptr() { return const_cast<const C**>(rows.data()); }
};

// 2100 Hz disabling-tone detector on the far end with its release after 250 ms quiet.
template <bool Fixed>
struct ToneGate {
    Mem mem;
    int rate = 8000, quiet = 0;
    bool bypass = false, on = true;
    bool init(int r, bool enabled) {
        rate = r;
        on = enabled;
        Kvo32s bytes = 0;
        if constexpr (Fixed) {
            if (kvosToneDetectGetStateSize_EC_16s(r, &bytes) != kvoOk) return false;
            mem.get(bytes);
            return kvosToneDetectInit_EC_16s(mem.as<KvoToneDetect16sState>(), r) == kvoOk;
        } else {
            if (kvosToneDetectGetStateSize_EC_32f(r, &bytes) != kvoOk) return false;
            mem.get(bytes);
            return kvosToneDetectInit_EC_32f(mem.as<KvoToneDetect32fState>(), r) == kvoOk;
        }
    }
    bool step(const int16_t* far, int n) {
        if (!on) return true;
        Kvo32s hit = 0;
        if constexpr (Fixed) {
            if (kvosToneDetect_EC_16s(far, n, &hit, mem.as<KvoToneDetect16sState>()) != kvoOk)
                return false;
        } else {
            float x[128] = {};
            if (n > 128) return false;
            for (int i = 0; i < n; ++i) x[i] = far[i];
            if (kvosToneDetect_EC_32f(x, n, &hit, mem.as<KvoToneDetect32fState>()) != kvoOk)
                return false;
        }
        double p = 0;
        for (int i = 0; i < n; ++i) p += double(far[i]) * far[i];
        if (hit) {
            bypass = true;
            quiet = 0;
        } else if (bypass) {
            // Release after 250 ms below about -36 dBm0.
            quiet = p < 100.0 * 100.0 * n ? quiet + n : 0;
            if (quiet >= rate / 4) bypass = false;
        }
        return true;
    }
};

struct BankGeometry {
    int order, block, window, subbands;
};
BankGeometry bank_for(int rate) {
    return rate == 8000 ? BankGeometry{5, 24, 128, 17} : BankGeometry{6, 44, 256, 33};
}

int segments_for(const Config& c, int block) {
    const int tail = c.tailMs * c.rate / 1000;
    return (tail + block - 1) / block + 2;
}

// ---- float subband ---------------------------------------------------------------------

class SubbandFloat final : public Canceller {
  public:
    bool init(const Config& c, std::string& err) {
        cfg_ = c;
        g_ = bank_for(c.rate);
        segs_ = segments_for(c, g_.block);
        Kvo32s size = 0, initBytes = 0, workBytes = 0;
        if (kvosSubbandProcessGetSize_32f(g_.order, g_.window, &size, &initBytes, &workBytes) !=
            kvoOk)
            return fail(err, "filter bank size query");
        std::vector<uint8_t> initBuf(static_cast<size_t>(initBytes) + 16);
        work_.assign(static_cast<size_t>(workBytes) + 16, 0);
        for (Mem* m : {&anaRef_, &anaMic_, &syn_}) {
            m->get(size);
            if (kvosSubbandProcessInit_32f(m->as<KvoSubbandProcess32fState>(), g_.order, g_.block,
                                           g_.window, nullptr, initBuf.data()) != kvoOk)
                return fail(err, "filter bank init");
        }
        Kvo32s ctl = 0;
        if (kvosSubbandControllerGetSize_EC_32f(g_.subbands, g_.block, segs_, c.rate, &ctl) !=
            kvoOk)
            return fail(err, "controller size query");
        ctl_.get(ctl);
        if (kvosSubbandControllerInit_EC_32f(ctl_.as<KvoSubbandController32fState>(), g_.subbands,
                                             g_.block, segs_, c.rate) != kvoOk)
            return fail(err, "controller init");
        ref_.init(segs_, g_.subbands);
        ad_.init(segs_, g_.subbands);
        fx_.init(segs_, g_.subbands);
        for (auto* v : {&mic_, &ya_, &yf_, &ea_, &ef_, &eo_}) v->assign(g_.subbands, Kvo32fc{});
        step_.assign(g_.subbands, 0.0);
        return tone_.init(c.rate, c.toneDisable) || fail(err, "tone detector init");
    }
    int frameSize() const override { return g_.block; }
    int latency() const override { return g_.window - g_.block; }
    bool process(const int16_t* far, const int16_t* nearEnd, int16_t* out,
                 FrameInfo& info) override {
        const int n = g_.subbands, B = g_.block;
        float x[64], m[64], y[64];
        for (int i = 0; i < B; ++i) {
            x[i] = far[i];
            m[i] = nearEnd[i];
        }
        if (!tone_.step(far, B)) return false;
        auto* ctl = ctl_.as<KvoSubbandController32fState>();
        Kvo32fc* newest = ref_.rotate();
        Kvo32f gain = 1.0f;
        bool ok =
            kvosSubbandAnalysis_32f32fc(x, newest, anaRef_.as<KvoSubbandProcess32fState>(),
                                        work_.data()) == kvoOk &&
            kvosSubbandAnalysis_32f32fc(m, mic_.data(), anaMic_.as<KvoSubbandProcess32fState>(),
                                        work_.data()) == kvoOk &&
            kvosFIRSubband_EC_32fc(ref_.cptr(), ad_.cptr(), ya_.data(), segs_, n) == kvoOk &&
            kvosFIRSubband_EC_32fc(ref_.cptr(), fx_.cptr(), yf_.data(), segs_, n) == kvoOk;
        if (!ok) return false;
        for (int k = 0; k < n; ++k) {
            ea_[k] = {mic_[k].re - ya_[k].re, mic_[k].im - ya_[k].im};
            ef_[k] = {mic_[k].re - yf_[k].re, mic_[k].im - yf_[k].im};
            const float pa = ea_[k].re * ea_[k].re + ea_[k].im * ea_[k].im;
            const float pf = ef_[k].re * ef_[k].re + ef_[k].im * ef_[k].im;
            eo_[k] = tone_.bypass ? mic_[k] : (pa < pf ? ea_[k] : ef_[k]);
        }
        ok = kvosSubbandController_EC_32f(ea_.data(), ef_.data(), ad_.rows.data(), fx_.rows.data(),
                                          &gain, ctl) == kvoOk &&
             kvosSubbandControllerUpdate_EC_32f(x, m, ref_.cptr(), mic_.data(), step_.data(),
                                                ctl) == kvoOk;
        if (ok && !tone_.bypass)
            ok = kvosFIRSubbandCoeffUpdate_EC_32fc_I(step_.data(), ref_.cptr(), ea_.data(),
                                                     ad_.rows.data(), segs_, n) == kvoOk;
        ok = ok && kvosSubbandSynthesis_32fc32f(eo_.data(), y, syn_.as<KvoSubbandProcess32fState>(),
                                                work_.data()) == kvoOk;
        if (!ok) return false;
        const float g = cfg_.applyGain && !tone_.bypass ? gain : 1.0f;
        for (int i = 0; i < B; ++i) out[i] = to_pcm(y[i] * g);
        info = FrameInfo{gain, false, tone_.bypass, 0};
        return true;
    }

  private:
    static bool fail(std::string& err, const char* what) {
        err = std::string("subband canceller: ") + what + " failed";
        return false;
    }
    Config cfg_;
    BankGeometry g_{};
    int segs_ = 0;
    Mem anaRef_, anaMic_, syn_, ctl_;
    std::vector<uint8_t> work_;
    RowSet<Kvo32fc> ref_, ad_, fx_;
    std::vector<Kvo32fc> mic_, ya_, yf_, ea_, ef_, eo_;
    std::vector<Kvo64f> step_;
    ToneGate<false> tone_;
};

// ---- integer subband, with the plain or the double-talk controller --------------------

class SubbandInt final : public Canceller {
  public:
    bool init(const Config& c, bool doubleTalk, std::string& err) {
        cfg_ = c;
        dt_ = doubleTalk;
        g_ = bank_for(c.rate);
        segs_ = segments_for(c, g_.block);
        Kvo32s size = 0, initBytes = 0, workBytes = 0;
        if (kvosSubbandProcessGetSize_16s(g_.order, g_.window, &size, &initBytes, &workBytes) !=
            kvoOk)
            return fail(err, "filter bank size query");
        std::vector<uint8_t> initBuf(static_cast<size_t>(initBytes) + 16);
        work_.assign(static_cast<size_t>(workBytes) + 16, 0);
        for (Mem* m : {&anaRef_, &anaMic_, &syn_}) {
            m->get(size);
            if (kvosSubbandProcessInit_16s(m->as<KvoSubbandProcess16sState>(), g_.order, g_.block,
                                           g_.window, nullptr, initBuf.data()) != kvoOk)
                return fail(err, "filter bank init");
        }
        Kvo32s ctl = 0;
        if (dt_) {
            if (kvosSubbandControllerDTGetSize_EC_16s(g_.subbands, g_.block, segs_, c.rate, &ctl) !=
                kvoOk)
                return fail(err, "controller size query");
            ctl_.get(ctl);
            if (kvosSubbandControllerDTInit_EC_16s(ctl_.as<KvoSubbandControllerDT16sState>(),
                                                   g_.subbands, g_.block, segs_,
                                                   c.rate) != kvoOk)
                return fail(err, "controller init");
        } else {
            if (kvosSubbandControllerGetSize_EC_16s(g_.subbands, g_.block, segs_, c.rate, &ctl) !=
                kvoOk)
                return fail(err, "controller size query");
            ctl_.get(ctl);
            if (kvosSubbandControllerInit_EC_16s(ctl_.as<KvoSubbandController16sState>(),
                                                 g_.subbands, g_.block, segs_, c.rate) != kvoOk)
                return fail(err, "controller init");
        }
        ref_.init(segs_, g_.subbands);
        ad_.init(segs_, g_.subbands);
        fx_.init(segs_, g_.subbands);
        for (auto* v : {&mic_, &ya_, &yf_, &ea_, &ef_, &eo_}) v->assign(g_.subbands, Kvo32sc{});
        step_.assign(g_.subbands, KvoStepPair{});
        return tone_.init(c.rate, c.toneDisable) || fail(err, "tone detector init");
    }
    int frameSize() const override { return g_.block; }
    int latency() const override { return g_.window - g_.block; }
    bool process(const int16_t* far, const int16_t* nearEnd, int16_t* out,
                 FrameInfo& info) override {
        const int n = g_.subbands, B = g_.block;
        Kvo16s y[64];
        if (!tone_.step(far, B)) return false;
        Kvo32sc* newest = ref_.rotate();
        bool ok = kvosSubbandAnalysis_16s32sc_Sfs(far, newest,
                                                  anaRef_.as<KvoSubbandProcess16sState>(), bankScale_,
                                                  work_.data()) == kvoOk &&
                  kvosSubbandAnalysis_16s32sc_Sfs(nearEnd, mic_.data(),
                                                  anaMic_.as<KvoSubbandProcess16sState>(), bankScale_,
                                                  work_.data()) == kvoOk &&
                  kvosFIRSubband_EC_32sc_Sfs(ref_.cptr(), ad_.cptr(), ya_.data(), segs_, n,
                                             kCoefScale) == kvoOk &&
                  kvosFIRSubband_EC_32sc_Sfs(ref_.cptr(), fx_.cptr(), yf_.data(), segs_, n,
                                             kCoefScale) == kvoOk;
        if (!ok) return false;
        int64_t micPow = 0, errPow = 0, refPow = 0;
        for (int k = 0; k < n; ++k) {
            ea_[k] = {sat32(int64_t{mic_[k].re} - ya_[k].re), sat32(int64_t{mic_[k].im} - ya_[k].im)};
            ef_[k] = {sat32(int64_t{mic_[k].re} - yf_[k].re), sat32(int64_t{mic_[k].im} - yf_[k].im)};
            const double pa = double(ea_[k].re) * ea_[k].re + double(ea_[k].im) * ea_[k].im;
            const double pf = double(ef_[k].re) * ef_[k].re + double(ef_[k].im) * ef_[k].im;
            eo_[k] = tone_.bypass ? mic_[k] : (pa < pf ? ea_[k] : ef_[k]);
            // Neither filter may add echo: a subband where both errors exceed the
            // microphone (a changed echo path) passes the microphone.
            const double pm = double(mic_[k].re) * mic_[k].re + double(mic_[k].im) * mic_[k].im;
            if (pm < std::min(pa, pf)) eo_[k] = mic_[k];
            micPow += static_cast<int64_t>(
                (double(mic_[k].re) * mic_[k].re + double(mic_[k].im) * mic_[k].im) / 16384.0);
            errPow += static_cast<int64_t>(pa / 16384.0);
            refPow += static_cast<int64_t>(
                (double(newest[k].re) * newest[k].re + double(newest[k].im) * newest[k].im) /
                16384.0);
        }
        info = FrameInfo{};
        if (dt_) {
            auto* st = ctl_.as<KvoSubbandControllerDT16sState>();
            Kvo32s low = 0;
            // An echo path change looks like double talk to the detector, whose lowered
            // step (and, after a long calm, the step divided by 4 or 8) would then keep
            // the old filter for seconds.  While the far end dominates and the adaptive
            // error is less than 6 dB under the microphone, the frame enters the update as
            // double talk: the flagged subbands keep the full step and the calm count
            // falls, so the new path is learnt at the full rate.
            if (refPow > micPow && errPow * 4 > micPow) dtFlag_ = 1;
            ok = kvosSubbandControllerDTUpdate_EC_16s(ref_.cptr(), mic_.data(), ea_.data(),
                                                      step_.data(), &dtFlag_, &low, 0,
                                                      st) == kvoOk;
            if (ok && !tone_.bypass)
                ok = kvosFIRSubbandCoeffUpdate_EC_32sc_I(step_.data(), ref_.cptr(), ea_.data(),
                                                         ad_.rows.data(), segs_, n,
                                                         kCoefScale) == kvoOk;
            // Tracked power 2^10 times the microphone power: "high" (restore after 10
            // frames) is an error 9 dB above the microphone, "low" (save after 100 frames)
            // an error 9 dB under it, and the timed save in calm frames wants an error
            // under the microphone.  The filter keeps its changes in double talk
            // (keepChanges 1): the detector lowers the step instead, so that a change of
            // the echo path, which the detector also flags, is still learnt.  The error
            // powers count only while the far end is louder than the microphone: in far-end
            // pauses both errors are the near-end noise and their comparison is a coin
            // toss that would restore the saved filter half the time.
            Kvo64s tracked = micPow << 10;
            Kvo32s action = 0;
            ok = ok && kvosSubbandControllerDT_EC_16s(ea_.data(), ef_.data(), ad_.rows.data(),
                                                      fx_.rows.data(), &tracked, &action, errPow,
                                                      refPow > micPow && dtFlag_ == 0 ? 1 : 0, 1, 0,
                                                      st) == kvoOk;
            info.doubleTalk = dtFlag_ != 0;
            info.action = action;
        } else {
            auto* st = ctl_.as<KvoSubbandController16sState>();
            Kvo16s gain = 32767;
            ok = kvosSubbandController_EC_16s(ea_.data(), ef_.data(), ad_.rows.data(),
                                              fx_.rows.data(), &gain, st) == kvoOk &&
                 kvosSubbandControllerUpdate_EC_16s(far, nearEnd, ref_.cptr(), mic_.data(),
                                                    step_.data(), st) == kvoOk;
            if (ok && !tone_.bypass)
                ok = kvosFIRSubbandCoeffUpdate_EC_32sc_I(step_.data(), ref_.cptr(), ea_.data(),
                                                         ad_.rows.data(), segs_, n,
                                                         kCoefScale) == kvoOk;
            info.gain = gain / 32768.0f;
        }
        ok = ok && kvosSubbandSynthesis_32sc16s_Sfs(eo_.data(), y,
                                                    syn_.as<KvoSubbandProcess16sState>(), -bankScale_,
                                                    work_.data()) == kvoOk;
        if (!ok) return false;
        const float g = cfg_.applyGain && !tone_.bypass ? info.gain : 1.0f;
        for (int i = 0; i < B; ++i) out[i] = g == 1.0f ? y[i] : to_pcm(y[i] * g);
        info.toneBypass = tone_.bypass;
        return true;
    }

  private:
    static bool fail(std::string& err, const char* what) {
        err = std::string("integer subband canceller: ") + what + " failed";
        return false;
    }
    Config cfg_;
    bool dt_ = false;
    static constexpr int bankScale_ = 0;
    BankGeometry g_{};
    int segs_ = 0;
    Kvo32s dtFlag_ = 0;
    Mem anaRef_, anaMic_, syn_, ctl_;
    std::vector<uint8_t> work_;
    RowSet<Kvo32sc> ref_, ad_, fx_;
    std::vector<Kvo32sc> mic_, ya_, yf_, ea_, ef_, eo_;
    std::vector<KvoStepPair> step_;
    ToneGate<true> tone_;
};

// ---- fullband, float and 16-bit -------------------------------------------------------

template <bool Fixed>
class Fullband final : public Canceller {
    using T = std::conditional_t<Fixed, Kvo16s, Kvo32f>;
    using StepT = std::conditional_t<Fixed, Kvo32s, Kvo32f>;
    using GainT = std::conditional_t<Fixed, Kvo16s, Kvo32f>;

  public:
    bool init(const Config& c, std::string& err) {
        cfg_ = c;
        frame_ = c.rate / 200;  // 5 ms
        taps_ = std::max(1, c.tailMs * c.rate / 1000);
        Kvo32s bytes = 0;
        KvoStatus st;
        if constexpr (Fixed)
            st = kvosFullbandControllerGetSize_EC_16s(frame_, taps_, c.rate, &bytes);
        else
            st = kvosFullbandControllerGetSize_EC_32f(frame_, taps_, c.rate, &bytes);
        if (st != kvoOk) {
            err = "fullband canceller: controller size query failed";
            return false;
        }
        ctl_.get(bytes);
        if constexpr (Fixed)
            st = kvosFullbandControllerInit_EC_16s(ctl_.as<KvoFullbandController16sState>(), frame_,
                                                   taps_, c.rate);
        else
            st = kvosFullbandControllerInit_EC_32f(ctl_.as<KvoFullbandController32fState>(), frame_,
                                                   taps_, c.rate);
        if (st != kvoOk) {
            err = "fullband canceller: controller init failed";
            return false;
        }
        ref_.assign(static_cast<size_t>(taps_ + frame_), T{});
        ad_.assign(taps_, T{});
        fx_.assign(taps_, T{});
        mic_.assign(frame_, T{});
        ea_.assign(frame_, T{});
        ef_.assign(frame_, T{});
        step_.assign(frame_, StepT{});
        if (!tone_.init(c.rate, c.toneDisable)) {
            err = "fullband canceller: tone detector init failed";
            return false;
        }
        return true;
    }
    int frameSize() const override { return frame_; }
    int latency() const override { return 0; }
    bool process(const int16_t* far, const int16_t* nearEnd, int16_t* out,
                 FrameInfo& info) override {
        const int N = frame_;
        if (!tone_.step(far, N)) return false;
        std::memmove(ref_.data(), ref_.data() + N, sizeof(T) * static_cast<size_t>(taps_));
        T* x = ref_.data() + taps_;
        for (int i = 0; i < N; ++i) {
            x[i] = emphasis(far[i], farPrev_);
            mic_[i] = emphasis(nearEnd[i], nearPrev_);
        }
        GainT gain{};
        bool ok;
        if constexpr (Fixed) {
            auto* st = ctl_.as<KvoFullbandController16sState>();
            ok = kvosFullbandControllerUpdate_EC_16s(x, mic_.data(), step_.data(), st) == kvoOk;
            if (tone_.bypass) std::fill(step_.begin(), step_.end(), 0);
            ok = ok &&
                 kvosNLMS_EC_16s(x, mic_.data(), step_.data(), ea_.data(), N, ad_.data(), taps_,
                                 &mu_) == kvoOk &&
                 kvosFIR_EC_16s(x, mic_.data(), ef_.data(), N, fx_.data(), taps_) == kvoOk &&
                 kvosFullbandController_EC_16s(ea_.data(), ef_.data(), ad_.data(), fx_.data(),
                                               &gain, st) == kvoOk;
            info.gain = gain / 32768.0f;
        } else {
            auto* st = ctl_.as<KvoFullbandController32fState>();
            ok = kvosFullbandControllerUpdate_EC_32f(x, mic_.data(), step_.data(), st) == kvoOk;
            if (tone_.bypass) std::fill(step_.begin(), step_.end(), 0.0f);
            ok = ok &&
                 kvosNLMS_EC_32f(x, mic_.data(), step_.data(), ea_.data(), N, ad_.data(), taps_,
                                 &mu_) == kvoOk &&
                 kvosFIR_EC_32f(x, mic_.data(), ef_.data(), N, fx_.data(), taps_) == kvoOk &&
                 kvosFullbandController_EC_32f(ea_.data(), ef_.data(), ad_.data(), fx_.data(),
                                               &gain, st) == kvoOk;
            info.gain = gain;
        }
        if (!ok) return false;
        double pa = 0, pf = 0;
        for (int i = 0; i < N; ++i) {
            pa += double(ea_[i]) * ea_[i];
            pf += double(ef_[i]) * ef_[i];
        }
        const T* e = tone_.bypass ? mic_.data() : (pa < pf ? ea_.data() : ef_.data());
        const float g = cfg_.applyGain && !tone_.bypass ? info.gain : 1.0f;
        for (int i = 0; i < N; ++i) out[i] = to_pcm(deemphasis(e[i], outPrev_) * g);
        info.doubleTalk = false;
        info.toneBypass = tone_.bypass;
        info.action = 0;
        return true;
    }

  private:
    // First-order pre-emphasis 1 - 0.8/z on both inputs whitens speech for the NLMS
    // (the echo path is linear, so both sides see the same filter), and the output
    // goes through the inverse 1 / (1 - 0.8/z).  16-bit: Q15 factor 26214, saturated.
    static T emphasis(int16_t v, int16_t& prev) {
        T r;
        if constexpr (Fixed)
            r = static_cast<T>(std::clamp(v - ((26214 * prev + 16384) >> 15), -32768, 32767));
        else
            r = static_cast<T>(v - 0.8f * prev);
        prev = v;
        return r;
    }
    float deemphasis(T e, T& prev) {
        T r;
        if constexpr (Fixed)
            r = static_cast<T>(std::clamp(e + ((26214 * prev + 16384) >> 15), -32768, 32767));
        else
            r = e + 0.8f * prev;
        prev = r;
        return static_cast<float>(r);
    }
    int16_t farPrev_ = 0, nearPrev_ = 0;
    T outPrev_{};
    Config cfg_;
    int frame_ = 0, taps_ = 0;
    Mem ctl_;
    std::vector<T> ref_, ad_, fx_, mic_, ea_, ef_;
    std::vector<StepT> step_;
    T mu_{};
    ToneGate<Fixed> tone_;
};

}  // namespace

bool parse_kind(const std::string& name, Kind& kind) {
    static const struct {
        const char* name;
        Kind kind;
    } kKinds[] = {{"subband", Kind::Subband},     {"subband16", Kind::Subband16},
                  {"dt16", Kind::DoubleTalk16},   {"fullband", Kind::Fullband},
                  {"fullband16", Kind::Fullband16}};
    for (const auto& k : kKinds)
        if (name == k.name) {
            kind = k.kind;
            return true;
        }
    return false;
}

const char* kind_name(Kind kind) {
    switch (kind) {
    case Kind::Subband: return "subband";
    case Kind::Subband16: return "subband16";
    case Kind::DoubleTalk16: return "dt16";
    case Kind::Fullband: return "fullband";
    case Kind::Fullband16: return "fullband16";
    }
    return "?";
}

std::unique_ptr<Canceller> make_canceller(const Config& cfg, std::string& error) {
    if (cfg.rate != 8000 && cfg.rate != 16000) {
        error = "the echo canceller runs at 8000 or 16000 Hz";
        return nullptr;
    }
    if (cfg.tailMs < 1 || cfg.tailMs > 500) {
        error = "the tail must be 1 to 500 ms";
        return nullptr;
    }
    switch (cfg.kind) {
    case Kind::Subband: {
        auto c = std::make_unique<SubbandFloat>();
        if (!c->init(cfg, error)) return nullptr;
        return c;
    }
    case Kind::Subband16:
    case Kind::DoubleTalk16: {
        auto c = std::make_unique<SubbandInt>();
        if (!c->init(cfg, cfg.kind == Kind::DoubleTalk16, error)) return nullptr;
        return c;
    }
    case Kind::Fullband: {
        auto c = std::make_unique<Fullband<false>>();
        if (!c->init(cfg, error)) return nullptr;
        return c;
    }
    case Kind::Fullband16: {
        auto c = std::make_unique<Fullband<true>>();
        if (!c->init(cfg, error)) return nullptr;
        return c;
    }
    }
    error = "unknown canceller kind";
    return nullptr;
}

bool run(const Config& cfg, const std::vector<int16_t>& far, const std::vector<int16_t>& nearEnd,
         std::vector<int16_t>& out, std::string& error, std::vector<FrameInfo>* frames,
         void (*progress)(double)) {
    auto c = make_canceller(cfg, error);
    if (!c) return false;
    const size_t n = std::max(far.size(), nearEnd.size());
    const size_t N = static_cast<size_t>(c->frameSize());
    const size_t lat = static_cast<size_t>(c->latency());
    const size_t count = (n + lat + N - 1) / N;
    std::vector<int16_t> x(count * N, 0), m(count * N, 0), y(count * N, 0);
    std::copy(far.begin(), far.end(), x.begin());
    std::copy(nearEnd.begin(), nearEnd.end(), m.begin());
    if (frames) frames->clear();
    for (size_t f = 0; f < count; ++f) {
        FrameInfo info;
        if (!c->process(&x[f * N], &m[f * N], &y[f * N], info)) {
            error = "a library call failed in frame " + std::to_string(f);
            return false;
        }
        if (frames) frames->push_back(info);
        if (progress && f % 500 == 0) progress(double(f) / count);
    }
    out.assign(y.begin() + static_cast<long>(lat), y.begin() + static_cast<long>(lat + n));
    return true;
}

}  // namespace kvosc::aec
