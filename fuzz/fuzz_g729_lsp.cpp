// Fuzz target of the G.729 LSP decoders and quantisers: arbitrary indices,
// histories and input vectors.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

// Limits of a decoded vector: clamped where the warning says so.
void checkOutput(const Kvo16s* q, KvoStatus st) {
    if (st < 0) return;
    if (st == kvoWarnLsfLow || st == kvoWarnLsfLowAndHigh) KVOSC_FUZZ_CHECK(q[0] == 40);
    if (st == kvoWarnLsfHigh || st == kvoWarnLsfLowAndHigh) KVOSC_FUZZ_CHECK(q[9] == 25681);
    KVOSC_FUZZ_CHECK(q[0] >= 40 && q[9] <= 25681);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int which = fdp.ConsumeIntegralInRange(0, 7);
    HeapBuf<Kvo16s> hist(fdp, 40), idx(fdp, 4), vec(fdp, 10), out(fdp, 10), out2(fdp, 10);
    HeapBuf<Kvo16s> code(fdp, 2), h2(40), q2(10);
    const auto before = hist.snapshot();
    std::memcpy(h2, hist, 80);
    if (which == 0) {
        const KvoStatus st = kvosLSFDecode_G729_16s(idx, hist, out);
        KVOSC_FUZZ_CHECK(st >= 0 || hist.same_as(before));
        checkOutput(out, st);
        if (st < 0) return 0;  // the G.729.1 decoder agrees
        KVOSC_FUZZ_CHECK(kvosLSFDecode_G7291_16s(idx, h2, q2) == st);
        KVOSC_FUZZ_CHECK(q2.same_as(out, 10) && h2.same_as(hist, 40));
    }
    if (which == 1) checkOutput(out, kvosLSFDecode_G7291_16s(idx, hist, out));
    if (which == 2) checkOutput(out, kvosLSFDecode_G729B_16s(idx, hist, out));
    const Kvo32s ma = Kvo32s(Kvo32u(idx[0]) << 16 | Kvo16u(idx[1]));
    if (which == 3)
        KVOSC_FUZZ_CHECK(kvosLSFDecodeErased_G729_16s(ma, hist, vec) >= 0 || hist.same_as(before));
    if (which == 4) {
        checkOutput(out, kvosLSFQuant_G729_16s(vec, hist, out, idx));
        KVOSC_FUZZ_CHECK(idx[0] >= 0 && idx[0] <= 1 && idx[1] >= 0 && idx[1] <= 127 &&
                         idx[2] >= 0 && idx[2] <= 31 && idx[3] >= 0 && idx[3] <= 31);
    }
    if (which == 5) {
        checkOutput(out, kvosLSFQuant_G729B_16s(vec, hist, out, idx));
        KVOSC_FUZZ_CHECK(idx[0] >= 0 && idx[0] <= 1 && idx[1] >= 0 && idx[1] <= 31 && idx[2] >= 0 &&
                         idx[2] <= 15);
    }
    if (which == 6) kvosLSPQuant_G729_16s(vec, hist, out, code);
    if (which == 7) kvosLSPQuant_G729E_16s(vec, hist, out2, out, code);
    if (which == 7) KVOSC_FUZZ_CHECK(hist.same_as(before));
    return 0;
}
