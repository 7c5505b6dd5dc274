// Fuzz target of the G.722 coder: arbitrary codes (all 16 bits) and modes, in
// chunks, through SB-ADPCM decoding, the receive QMF and the concealment
// helpers; then the same words as PCM through the encoder.
#include <algorithm>

#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const Kvo32s mode = fdp.ConsumeIntegral<int8_t>(), period = fdp.ConsumeIntegralInRange(0, 149);
    const size_t offset = fdp.ConsumeIntegralInRange(0, 15),
                 chunk = 2 * fdp.ConsumeIntegralInRange(1, 64);
    const Kvo32s cls0 = fdp.ConsumeIntegralInRange(0, 4), reset = fdp.ConsumeBool();
    const size_t n = fdp.remaining_bytes() / 4 * 2;
    if (n == 0) return 0;
    HeapBuf<Kvo16s> code(fdp, n), band(n), pcm(n), x(5 + n), low(n / 4 + 1), qmf(24), hb(2);
    Kvo32s bytes = 0;
    KVOSC_FUZZ_CHECK(kvosSBADPCMDecodeStateSize_G722_16s(&bytes) == kvoOk);
    HeapBuf<Kvo8u> mem(size_t(bytes) + offset);
    Kvo8u* st = mem + offset;
    KVOSC_FUZZ_CHECK(kvosSBADPCMDecodeInit_G722_16s(st) == kvoOk);
    for (size_t at = 0; at < n; at += chunk) {
        const size_t len = std::min(chunk, n - at);
        HeapBuf<Kvo16s> in(len), out(len);
        std::memcpy(in, code + at, 2 * len);
        KVOSC_FUZZ_CHECK(kvosSBADPCMDecode_G722_16s(in, out, Kvo32s(len), mode, st) == kvoOk);
        std::memcpy(band + at, out, 2 * len);
    }
    KVOSC_FUZZ_CHECK(kvosQMFDecode_G722_16s(band, pcm, Kvo32s(n), qmf) == kvoOk);
    kvosFilterHighband_G722_16s_I(band, Kvo32s(n), hb);
    // concealment helpers on the decoded signal, with history before it
    std::memcpy(x + 5, pcm, 2 * n);
    kvosDownsampleFilter_G722_16s(x + 5, Kvo32s(n), low);
    Kvo32s cls = cls0;
    if (n >= size_t(2 * period + 3)) kvosClassifyFrame_G722_16s_I(x + 5, period, &cls, st);
    kvosSBADPCMDecodeStateUpdate_G722_16s(x + 5, pcm[0], reset, st);
    // the same words as 16 kHz PCM through the encoder, from a fresh record
    KVOSC_FUZZ_CHECK(kvosSBADPCMEncodeInit_G722_16s(st) == kvoOk);
    HeapBuf<Kvo16s> qmf_tx(24);
    KVOSC_FUZZ_CHECK(kvosQMFEncode_G722_16s(code, band, Kvo32s(n), qmf_tx) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosSBADPCMEncode_G722_16s(band, pcm, Kvo32s(n), st) == kvoOk);
    return 0;
}
