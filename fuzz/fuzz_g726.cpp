// Fuzz target of the G.726 coder: arbitrary records (in range or not), rates,
// laws, codes and samples, every buffer on the heap at exactly its length.
// A record the coder accepts must run without fault and give the same result
// as the plain-C twin of the predictor.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "g72x/g726.h"
#include "kvosc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < sizeof(KvoG726DecodeState) + 2) return 0;
    const uint8_t mode = data[0];
    KvoG726DecodeState st;
    if (mode & 1) {
        // A raw record from the input.
        std::memcpy(&st, data + 1, sizeof st);
    } else {
        const KvoSpeechRate rates[4] = {kvoRate16000, kvoRate24000, kvoRate32000, kvoRate40000};
        if (kvosDecodeInit_G726_8u16s(&st, rates[(mode >> 1) & 3], (mode >> 3) % 3) != kvoOk)
            std::abort();
    }
    data += 1 + sizeof st;
    size -= 1 + sizeof st;
    const int n = static_cast<int>(size);

    auto* codes = static_cast<Kvo8u*>(std::malloc(n ? n : 1));
    auto* out = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * (n ? n : 1)));
    auto* out2 = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * (n ? n : 1)));
    std::memcpy(codes, data, size);

    KvoG726DecodeState twin = st;
    const KvoStatus s = kvosDecode_G726_8u16s(&st, codes, out, n);
    if (s == kvoOk && n > 0) {
        kvo::g726::decodeScalar(twin, codes, out2, n);
        if (std::memcmp(out, out2, sizeof(Kvo16s) * n) != 0 ||
            std::memcmp(&st.core, &twin.core, sizeof st.core) != 0)
            std::abort();
    } else if (n > 0 && s != kvoErrOutOfRange) {
        std::abort();
    }

    // The same bytes as samples through the encoder with the decoder's record.
    const int m = n / 2;
    if (m > 0) {
        auto* pcm = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * m));
        auto* c1 = static_cast<Kvo8u*>(std::malloc(m));
        auto* c2 = static_cast<Kvo8u*>(std::malloc(m));
        std::memcpy(pcm, data, sizeof(Kvo16s) * m);
        KvoG726EncodeState e = twin.core, e2 = twin.core;
        if (kvosEncode_G726_16s8u(&e, pcm, c1, m) == kvoOk) {
            kvo::g726::encodeScalar(e2, pcm, c2, m);
            if (std::memcmp(c1, c2, m) != 0 || std::memcmp(&e, &e2, sizeof e) != 0) std::abort();
        }
        std::free(pcm);
        std::free(c1);
        std::free(c2);
    }
    std::free(codes);
    std::free(out);
    std::free(out2);
    return 0;
}
