// Fuzz target of the GSM full-rate steps, driven as a decoder by arbitrary
// parameter words (76 a frame, not limited to their field widths): APCM
// inverse quantisation with any mantissa, exponent and codes, long-term
// synthesis from the result, the short-term synthesis lattice with
// arbitrary coefficients and memory, deemphasis; then the encoder-side
// steps on the decoded frame (offset compensation, preemphasis, Schur on
// arbitrary correlations, analysis lattice, weighting filter, lag search).
// Every buffer is on the heap at exactly the size the call may touch, and
// the AVX2 kernels are checked against their plain twins.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "gsmfr/gsmfr.h"
#include "gsmfr/gsmfr_tables.h"
#include "kvosc.h"

namespace {

struct Input {
    const uint8_t* p;
    size_t n;
    uint8_t byte() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
    Kvo16s word() { return static_cast<Kvo16s>(byte() | (byte() << 8)); }
};

template <typename T>
T* heap(int n) {
    return static_cast<T*>(std::malloc(sizeof(T) * (n > 0 ? n : 1)));
}

Kvo32s pair32(Kvo16s hi, Kvo16s lo) {
    return static_cast<Kvo32s>((static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16) |
                               static_cast<uint16_t>(lo));
}

void require(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    Kvo16s* drp = heap<Kvo16s>(160);  // 120 history + 40
    Kvo16s* frame = heap<Kvo16s>(160);
    Kvo16s* v = heap<Kvo16s>(9);
    Kvo16s* v2 = heap<Kvo16s>(9);
    Kvo16s* rc = heap<Kvo16s>(8);
    Kvo16s* codes = heap<Kvo16s>(13);
    Kvo16s* xmp = heap<Kvo16s>(13);
    Kvo16s* msr = heap<Kvo16s>(1);
    std::memset(drp, 0, 160 * sizeof(Kvo16s));
    std::memset(v, 0, 9 * sizeof(Kvo16s));
    *msr = 0;
    while (in.n >= 2) {
        Kvo16s prm[76];
        for (auto& w : prm) w = in.word();
        for (int i = 0; i < 8; ++i) rc[i] = prm[i];
        for (int sub = 0; sub < 4; ++sub) {
            const Kvo16s* p = prm + 8 + 17 * sub;
            std::memcpy(codes, p + 4, 13 * sizeof(Kvo16s));
            const KvoStatus st =
                kvosRPEQuantDecode_GSMFR_16s(codes, kvo::tab::gsm_FAC[p[3] & 7], p[3], xmp);
            require(st == (p[3] < 0 ? kvoErrScaleRange : kvoOk));
            if (st != kvoOk) std::memset(xmp, 0, 13 * sizeof(Kvo16s));
            const int lag = 40 + (p[0] & 0x7f) % 81;
            const Kvo16s b = kvo::tab::gsm_QLB[p[1] & 3];
            const int grid = p[2] & 3;
            for (int k = 0; k < 40; ++k) {
                const int e =
                    k >= grid && (k - grid) % 3 == 0 && k - grid < 39 ? xmp[(k - grid) / 3] : 0;
                const int s = e + ((b * drp[120 + k - lag] + 16384) >> 15);
                drp[120 + k] = static_cast<Kvo16s>(s > 32767 ? 32767 : (s < -32768 ? -32768 : s));
            }
            std::memcpy(frame + 40 * sub, drp + 120, 40 * sizeof(Kvo16s));
            std::memmove(drp, drp + 40, 120 * sizeof(Kvo16s));
        }
        // Short-term synthesis in place, against the plain twin.
        Kvo16s* ref = heap<Kvo16s>(160);
        std::memcpy(v2, v, 9 * sizeof(Kvo16s));
        kvo::gsmfr::synthesisLatticeScalar(rc, frame, ref, 160, v2);
        require(kvosShortTermSynthesisFilter_GSMFR_16s(rc, frame, frame, 160, v) == kvoOk);
        require(!std::memcmp(ref, frame, 160 * sizeof(Kvo16s)) &&
                !std::memcmp(v, v2, 9 * sizeof(Kvo16s)));
        Kvo16s m2 = *msr;
        kvo::gsmfr::deemphasisScalar(ref, 160, &m2);
        require(kvosDeemphasize_GSMFR_16s_I(frame, 160, msr) == kvoOk);
        require(!std::memcmp(ref, frame, 160 * sizeof(Kvo16s)) && m2 == *msr);
        std::free(ref);

        // Encoder-side steps on the decoded frame.
        KvoHighPassState_GSMFR hp{pair32(prm[0], prm[1]), prm[2]};
        Kvo16s* s = heap<Kvo16s>(160);
        require(kvosHighPassFilter_GSMFR_16s(frame, s, 160, &hp) == kvoOk);
        Kvo16s* mp = heap<Kvo16s>(1);
        *mp = prm[3];
        require(kvosPreemphasize_GSMFR_16s(s, s, 160, mp) == kvoOk);
        Kvo32s* acf = heap<Kvo32s>(9);
        for (int k = 0; k < 9; ++k) acf[k] = pair32(prm[10 + 2 * k], prm[11 + 2 * k]);
        Kvo16s* r = heap<Kvo16s>(8);
        require(kvosSchur_GSMFR_32s16s(acf, r, 1 + (prm[9] & 7)) == kvoOk);
        Kvo16s* u = heap<Kvo16s>(8);
        Kvo16s* u2 = heap<Kvo16s>(8);
        std::memcpy(u, prm + 30, 8 * sizeof(Kvo16s));
        std::memcpy(u2, u, 8 * sizeof(Kvo16s));
        Kvo16s* a = heap<Kvo16s>(160);
        std::memcpy(a, s, 160 * sizeof(Kvo16s));
        kvo::gsmfr::analysisLatticeScalar(rc, a, 160, u2);
        require(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, s, 160, u) == kvoOk);
        require(!std::memcmp(a, s, 160 * sizeof(Kvo16s)) &&
                !std::memcmp(u, u2, 8 * sizeof(Kvo16s)));
        Kvo16s* x = heap<Kvo16s>(40);
        require(kvosWeightingFilter_GSMFR_16s(s + 5, x, 40) == kvoOk);
        Kvo32s mx, lg, mx2, lg2;
        const int maxLag = prm[40] & 0x7f;
        Kvo16s* y = heap<Kvo16s>(40 + maxLag);
        for (int i = 0; i < 40 + maxLag; ++i) y[i] = s[i % 160];
        require(kvosCrossCorrLagMax_16s(x, y, 40, maxLag, &mx, &lg) == kvoOk);
        kvo::gsmfr::crossCorrLagMaxScalar(x, y, 40, maxLag, &mx2, &lg2);
        require(mx == mx2 && lg == lg2 && lg >= 0 && lg <= maxLag && mx >= 0);
        for (Kvo16s* q : {s, mp, r, u, u2, a, x, y}) std::free(q);
        std::free(acf);
    }
    for (Kvo16s* q : {drp, frame, v, v2, rc, codes, xmp, msr}) std::free(q);
    return 0;
}
