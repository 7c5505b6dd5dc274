// Fuzz target of the G.722 decoder path: arbitrary codes (all 16 bits), any
// mode, any split into calls, through SB-ADPCM decoding, the receive QMF and
// the concealment helpers, on exactly sized heap vectors; then the same words
// as PCM through the encoder.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kvosc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const Kvo32s mode = static_cast<int8_t>(data[0]);
    const int offset = data[1] & 15;  // state block placement
    const int chunk = 2 * (1 + data[2] % 64);
    const int period = data[3] % 150;
    data += 4;
    size -= 4;

    const size_t n = size / 2 & ~size_t{1};
    if (n == 0) return 0;
    std::vector<Kvo16s> code(n);
    std::memcpy(code.data(), data, 2 * n);

    Kvo32s bytes = 0;
    if (kvosSBADPCMDecodeStateSize_G722_16s(&bytes) != kvoOk) __builtin_trap();
    std::vector<Kvo8u> mem(bytes + offset);
    Kvo8u* st = mem.data() + offset;
    if (kvosSBADPCMDecodeInit_G722_16s(st) != kvoOk) __builtin_trap();
    Kvo16s qmf[24] = {}, hb[2] = {};
    std::vector<Kvo16s> band(n), pcm(n);
    for (size_t at = 0; at < n; at += chunk) {
        const Kvo32s len = static_cast<Kvo32s>(std::min<size_t>(chunk, n - at));
        std::vector<Kvo16s> in(code.begin() + at, code.begin() + at + len), out(len);
        if (kvosSBADPCMDecode_G722_16s(in.data(), out.data(), len, mode, st) != kvoOk)
            __builtin_trap();
        std::memcpy(&band[at], out.data(), 2 * len);
    }
    std::vector<Kvo16s> b2 = band;
    if (kvosQMFDecode_G722_16s(b2.data(), pcm.data(), static_cast<Kvo32s>(n), qmf) != kvoOk)
        __builtin_trap();
    kvosFilterHighband_G722_16s_I(b2.data(), static_cast<Kvo32s>(n), hb);

    // concealment helpers on the decoded signal, with their history before it
    std::vector<Kvo16s> x(5 + n);
    std::memcpy(x.data() + 5, pcm.data(), 2 * n);
    std::vector<Kvo16s> low(n / 4 + 1);
    kvosDownsampleFilter_G722_16s(x.data() + 5, static_cast<Kvo32s>(n), low.data());
    if (n >= static_cast<size_t>(2 * period + 3)) {
        Kvo32s cls = data[0] % 5;
        kvosClassifyFrame_G722_16s_I(x.data() + 5, period, &cls, st);
    }
    kvosSBADPCMDecodeStateUpdate_G722_16s(x.data() + 5, pcm[0], data[0] & 1, st);
    // the same words as 16 kHz PCM through the encoder, from a fresh record
    if (kvosSBADPCMEncodeInit_G722_16s(st) != kvoOk) __builtin_trap();
    Kvo16s qmf_tx[24] = {};
    if (kvosQMFEncode_G722_16s(code.data(), band.data(), static_cast<Kvo32s>(n), qmf_tx) != kvoOk ||
        kvosSBADPCMEncode_G722_16s(band.data(), b2.data(), static_cast<Kvo32s>(n), st) != kvoOk)
        __builtin_trap();
    Kvo16s more[2];
    kvosSBADPCMDecode_G722_16s(code.data(), more, 2, mode, st);
    return 0;
}
