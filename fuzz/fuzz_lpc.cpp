// Fuzz target for the LPC recursions and spectral conversions: arbitrary
// coefficient, line and autocorrelation vectors, including disordered,
// negative and saturating values.  Checks memory safety and that the
// conversions that cannot fail return kvoOk.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kvosc.h"

namespace {

struct Reader {
    const uint8_t* p;
    size_t n;
    template <typename T>
    T get() {
        T v{};
        const size_t k = n < sizeof v ? n : sizeof v;
        std::memcpy(&v, p, k);
        p += k;
        n -= k;
        return v;
    }
};

void require(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader r{data, size};
    Kvo16s a[11], prev[10], out[11], out2[11];
    Kvo32s R[31];
    for (auto& v : a) v = r.get<Kvo16s>();
    for (auto& v : prev) v = r.get<Kvo16s>();
    for (auto& v : R) v = r.get<Kvo32s>();
    const Kvo32s order = r.get<uint8_t>() % 32;

    require(kvosLPCToLSP_G729_16s(a, prev, out) == kvoOk);
    require(kvosLPCToLSP_G729A_16s(a, prev, out) == kvoOk);
    require(kvosLSPToLPC_G729_16s(a, out) == kvoOk && out[0] == 4096);
    require(kvosLSPToLSF_G729_16s(a, out) == kvoOk);
    require(kvosLSPToLSF_Norm_G729_16s(a, out) == kvoOk);
    const KvoStatus s1 = kvosLSFToLSP_G729_16s(a, out);
    const KvoStatus s2 = kvosLSFToLSP_GSMAMR_16s(a, out);
    require(s1 == kvoOk || s1 == kvoErrNegativeFreq);
    require(s2 == kvoOk || s2 == kvoErrNegativeFreq);
    require(kvosLSFToLPC_G723_16s(a, out) == kvoOk);
    std::memcpy(out2, a, sizeof a);
    require(kvosLSFToLPC_G723_16s_I(out2) == kvoOk);
    require(std::memcmp(out, out2, 10 * sizeof(Kvo16s)) == 0);
    require(kvosLPCToLSF_G723_16s(a, prev, out) == kvoOk);

    Kvo16s lpc[31], rc[30], res, sine = prev[0];
    const KvoStatus s3 = kvosLevinsonDurbin_G729_32s16s(R, order, lpc, rc, &res);
    require(order < 1 || order > 30 ? s3 == kvoErrRange : (s3 == kvoOk || s3 == kvoWarnOverflow));
    const KvoStatus s4 = kvosLevinsonDurbin_G729B(R, lpc, rc, &res);
    require(s4 == kvoOk || s4 == kvoWarnOverflow);
    require(kvosLevinsonDurbin_G723_16s(a, &sine, &res, lpc) == kvoOk);
    return 0;
}
