// GSM AMR decoder post filter (TS 26.090): per 40-sample subframe the formant filter
// A(z/g3)/A(z/g4) (LP sets Q12), the tilt compensation 1 - mu z^-1 with mu from the first two
// autocorrelations of the filter's truncated response, and the adaptive gain control that
// brings the output energy to that of the input (smoothing 0.9, gain Q12).
//
// Arithmetic is that of the reference coder: filters saturate; the energy of a subframe is
// taken on the samples shifted right by 2 only when the plain doubled sum saturates; the gain
// ratio is 32767 where the two rounded energies are equal; the inverse root term is rounded
// out of a saturating shift; gains and outputs saturate.
#include <cstring>

#include "frame/impl.h"
#include "gsmamr/pitch.h"
#include "kernels/filter.h"

namespace kvo {
namespace amr {
namespace {

constexpr int L = 40;

constexpr Kvo16s kGamma3[10] = {18022, 9912, 5451, 2998, 1649, 907, 499, 274, 151, 83};
constexpr Kvo16s kGamma3MR122[10] = {22938, 16057, 11240, 7868, 5508, 3856, 2699, 1889, 1322, 925};
constexpr Kvo16s kGamma4MR122[10] = {24576, 18432, 13824, 10368, 7776,
                                     5832,  4374,  3281,  2461,  1846};

void weight(const Kvo16s* a, const Kvo16s* g, Kvo16s* out) {
    out[0] = a[0];
    for (int i = 1; i <= 10; ++i) out[i] = sat16(mulQ15R(a[i], g[i - 1]));
}

// Energy of a subframe, scaled: the doubled sum >> 4 when it does not saturate, else the
// doubled saturated sum of the samples shifted right by 2.
Kvo32s energy(const Kvo16s* x) {
    Kvo64s e = 0;
    for (int i = 0; i < L; ++i) e += Kvo32s{x[i]} * x[i];
    if (2 * e <= INT32_MAX) return static_cast<Kvo32s>(e >> 3);
    e = 0;
    for (int i = 0; i < L; ++i) {
        const Kvo32s v = x[i] >> 2;
        e += v * v;
    }
    return sat32(2 * e);
}

// g0 = (1 - 0.9) sqrt(Ei / Eo) in Q12 form.
Kvo16s calcG0(Kvo32s eo, Kvo32s ei) {
    if (ei == 0) return 0;
    Kvo32s on = eo;
    const int a = Norm_32s_I(&on);
    const Kvo16s gOut = round16(on >> 1);
    Kvo32s in = ei;
    const int b = Norm_32s_I(&in);
    const Kvo16s gIn = round16(in);
    Kvo32s r = gOut >= gIn ? 32767 : (Kvo32s{gOut} << 15) / gIn;
    const int u = b - a;
    if (u < -7) {
        const int sh = -8 - u;
        r = sh >= 31 ? 0 : r >> sh;
    } else {
        r = ShiftLSat_32s(r, u + 8);
    }
    impl::kvosInvSqrt_32s_I(&r, 1);
    const Kvo16s i = round16(ShiftL_32s(r, 9));
    return sat16(mulQ15(i, 3276));
}

}  // namespace
}  // namespace amr

namespace impl {

KvoStatus kvosPostFilter_GSMAMR_16s(const Kvo16s* pLpc, const Kvo16s* pSynth, Kvo16s* pTiltMem,
                                    Kvo16s* pPastGain, Kvo16s* pSpeechHistory, Kvo16s* pSynthMem,
                                    Kvo16s* pDst, KvoSpeechRate mode) {
    using namespace amr;
    if (!pLpc || !pSynth || !pTiltMem || !pPastGain || !pSpeechHistory || !pSynthMem || !pDst)
        return kvoErrNullPtr;
    if (!pitchModeValid(mode)) return kvoErrRange;

    Kvo16s work[10 + 160];
    std::memcpy(work, pSpeechHistory, 10 * sizeof(Kvo16s));
    std::memcpy(work + 10, pSynth, 160 * sizeof(Kvo16s));
    const bool hiRate = mode == 11 || mode == 12;
    Kvo16s out[160];
    Kvo16s synMem[10];
    std::memcpy(synMem, pSynthMem, sizeof synMem);
    Kvo16s tiltMem = *pTiltMem;
    Kvo16s gain = *pPastGain;
    const Kvo16s zero[10] = {};
    for (int s = 0; s < 4; ++s) {
        const Kvo16s* a = pLpc + 11 * s;
        Kvo16s ap3[11], ap4[11];
        weight(a, hiRate ? kGamma3MR122 : kGamma3, ap3);
        weight(a, hiRate ? kGamma4MR122 : kGamma3MR122, ap4);
        const Kvo16s* x = work + 10 + L * s;
        Kvo16s res[L];
        residual_sat(ap3, 10, x, res, L);
        // Tilt factor from the truncated response of the formant filter.
        Kvo16s h[22] = {};
        std::memcpy(h, ap3, sizeof ap3);
        synth_sat(ap4, 10, h, h, 22, zero, 12);
        const Kvo16s r0 = hi(macChain(h, h, 22));
        const Kvo16s r1 = hi(macChain(h, h + 1, 21));
        Kvo16s mu;
        if (r1 <= 0) {
            mu = 0;
        } else {
            const Kvo16s num = static_cast<Kvo16s>(mulQ15(r1, 26214));
            mu = num >= r0 ? Kvo16s{32767} : static_cast<Kvo16s>((Kvo32s{num} << 15) / r0);
        }
        kvosPreemphasize_G729A_16s_I(mu, res, L, &tiltMem);
        Kvo16s* y = out + L * s;
        synth_sat(ap4, 10, res, y, L, synMem, 12);
        std::memcpy(synMem, y + L - 10, sizeof synMem);
        // Gain control.
        const Kvo32s eo = energy(y);
        if (eo == 0) {
            gain = 0;
            continue;
        }
        const Kvo16s g0 = calcG0(eo, energy(x));
        for (int n = 0; n < L; ++n) {
            gain = sat16(mulQ15(gain, 29491) + g0);
            y[n] = sat16((Kvo32s{y[n]} * gain) >> 12);
        }
    }
    std::memcpy(pDst, out, sizeof out);
    std::memcpy(pSynthMem, synMem, sizeof synMem);
    *pTiltMem = tiltMem;
    *pPastGain = gain;
    std::memcpy(pSpeechHistory, pSynth + 150, 10 * sizeof(Kvo16s));
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
