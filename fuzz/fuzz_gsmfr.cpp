// Fuzz target of the GSM full-rate steps, driven as a decoder by arbitrary
// parameter words, then the encoder-side steps on the decoded frame; the SIMD
// kernels are checked against their plain twins.
#include "common.h"
#include "gsmfr/gsmfr.h"
#include "gsmfr/gsmfr_tables.h"
#include "kvosc.h"
#include "numeric/fixed.h"

using kvosc::fuzz::HeapBuf;
using B = HeapBuf<Kvo16s>;
namespace g = kvo::gsmfr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    B drp(160), frame(160), v(9), v2(9), msr(1);  // drp: 120 history + 40
    while (fdp.remaining_bytes() >= 2) {
        B prm(fdp, 76), xmp(13), ref(160);
        for (int sub = 0; sub < 4; ++sub) {
            const Kvo16s* p = prm + 8 + 17 * sub;
            B codes(13);
            std::memcpy(codes, p + 4, 26);
            const KvoStatus st =
                kvosRPEQuantDecode_GSMFR_16s(codes, kvo::tab::gsm_FAC[p[3] & 7], p[3], xmp);
            KVOSC_FUZZ_CHECK(st == (p[3] < 0 ? kvoErrScaleRange : kvoOk));
            if (st != kvoOk) std::memset(xmp, 0, 26);
            const int lag = 40 + (p[0] & 0x7f) % 81, grid = p[2] & 3;
            const Kvo16s b = kvo::tab::gsm_QLB[p[1] & 3];
            for (int k = 0; k < 40; ++k) {
                const int e =
                    k >= grid && (k - grid) % 3 == 0 && k - grid < 39 ? xmp[(k - grid) / 3] : 0;
                drp[120 + k] = kvo::sat16(e + ((b * drp[120 + k - lag] + 16384) >> 15));
            }
            std::memcpy(frame + 40 * sub, drp + 120, 80);
            std::memmove(drp, drp + 40, 240);
        }
        B rc(8);
        std::memcpy(rc, prm, 16);
        std::memcpy(v2, v, 18);
        g::synthesisLatticeScalar(rc, frame, ref, 160, v2);
        KVOSC_FUZZ_CHECK(kvosShortTermSynthesisFilter_GSMFR_16s(rc, frame, frame, 160, v) == kvoOk);
        KVOSC_FUZZ_CHECK(ref.same_as(frame, 160) && v.same_as(v2, 9));
        Kvo16s m2 = msr[0];
        g::deemphasisScalar(ref, 160, &m2);
        KVOSC_FUZZ_CHECK(kvosDeemphasize_GSMFR_16s_I(frame, 160, msr) == kvoOk);
        KVOSC_FUZZ_CHECK(ref.same_as(frame, 160) && m2 == msr[0]);

        // Encoder-side steps on the decoded frame.
        auto pair32 = [&](int i) {
            return Kvo32s(Kvo32u(Kvo16u(prm[i])) << 16 | Kvo16u(prm[i + 1]));
        };
        HeapBuf<KvoHighPassState_GSMFR> hp(1);
        hp[0] = {pair32(0), prm[2]};
        B s(160), mp(1), r(8), u(8), u2(8), a(160), x(40);
        KVOSC_FUZZ_CHECK(kvosHighPassFilter_GSMFR_16s(frame, s, 160, hp) == kvoOk);
        mp[0] = prm[3];
        KVOSC_FUZZ_CHECK(kvosPreemphasize_GSMFR_16s(s, s, 160, mp) == kvoOk);
        HeapBuf<Kvo32s> acf(9);
        for (int k = 0; k < 9; ++k) acf[k] = pair32(10 + 2 * k);
        KVOSC_FUZZ_CHECK(kvosSchur_GSMFR_32s16s(acf, r, 1 + (prm[9] & 7)) == kvoOk);
        std::memcpy(u, prm + 30, 16);
        std::memcpy(u2, u, 16);
        std::memcpy(a, s, 320);
        g::analysisLatticeScalar(rc, a, 160, u2);
        KVOSC_FUZZ_CHECK(kvosShortTermAnalysisFilter_GSMFR_16s_I(rc, s, 160, u) == kvoOk);
        KVOSC_FUZZ_CHECK(a.same_as(s, 160) && u.same_as(u2, 8));
        KVOSC_FUZZ_CHECK(kvosWeightingFilter_GSMFR_16s(s + 5, x, 40) == kvoOk);
        const int maxLag = prm[40] & 0x7f;
        B y(size_t(40 + maxLag));
        for (int i = 0; i < 40 + maxLag; ++i) y[i] = s[i % 160];
        Kvo32s mx, lg, mx2, lg2;
        KVOSC_FUZZ_CHECK(kvosCrossCorrLagMax_16s(x, y, 40, maxLag, &mx, &lg) == kvoOk);
        g::crossCorrLagMaxScalar(x, y, 40, maxLag, &mx2, &lg2);
        KVOSC_FUZZ_CHECK(mx == mx2 && lg == lg2 && lg >= 0 && lg <= maxLag && mx >= 0);
    }
    return 0;
}
