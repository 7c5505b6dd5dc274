// Fuzz target of the G.726 coder: arbitrary records (in range or not), rates,
// laws, codes and samples.  A record the coder accepts must give the same
// result as the plain-C twin of the predictor.
#include "common.h"
#include "g72x/g726.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    KvoG726DecodeState st{};
    if (fdp.ConsumeBool()) {  // a raw record from the input
        auto raw = fdp.ConsumeBytes<uint8_t>(sizeof st);
        if (!raw.empty()) std::memcpy(&st, raw.data(), raw.size());
    } else {
        const KvoSpeechRate rates[4] = {kvoRate16000, kvoRate24000, kvoRate32000, kvoRate40000};
        KVOSC_FUZZ_CHECK(kvosDecodeInit_G726_8u16s(&st, rates[fdp.ConsumeIntegralInRange(0, 3)],
                                                   fdp.ConsumeIntegralInRange(0, 2)) == kvoOk);
    }
    const size_t n = fdp.remaining_bytes() / 3, m = n;
    HeapBuf<Kvo8u> codes(fdp, n), c1(m), c2(m);
    HeapBuf<Kvo16s> out(n), out2(n), pcm(fdp, m);
    KvoG726DecodeState twin = st;
    const KvoStatus s = kvosDecode_G726_8u16s(&st, codes, out, Kvo32s(n));
    if (s == kvoOk && n > 0) {
        kvo::g726::decodeScalar(twin, codes, out2, int(n));
        KVOSC_FUZZ_CHECK(out.same_as(out2, n));
        KVOSC_FUZZ_CHECK(std::memcmp(&st.core, &twin.core, sizeof st.core) == 0);
    } else if (n > 0) {
        KVOSC_FUZZ_CHECK(s == kvoErrOutOfRange);
    }
    // Samples through the encoder with the decoder's record.
    KvoG726EncodeState e = twin.core, e2 = twin.core;
    if (m > 0 && kvosEncode_G726_16s8u(&e, pcm, c1, Kvo32s(m)) == kvoOk) {
        kvo::g726::encodeScalar(e2, pcm, c2, int(m));
        KVOSC_FUZZ_CHECK(c1.same_as(c2, m) && std::memcmp(&e, &e2, sizeof e) == 0);
    }
    return 0;
}
