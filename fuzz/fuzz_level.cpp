// Fuzz target of the G.169 level control: arbitrary settings, lengths and
// samples, in place or not.  No output sample may exceed maxLevel.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    KvoALCState st;
    KVOSC_FUZZ_CHECK(kvosALCInit_G169_16s(&st) == kvoOk);
    const float target = fdp.ConsumeIntegral<uint8_t>() * 0.25f - 4.0f;  // some below 0
    const float maxDb = fdp.ConsumeIntegral<uint8_t>() * 0.125f - 2.0f;
    const float gainDb = fdp.ConsumeIntegral<uint8_t>() * 0.25f - 4.0f;
    const bool inPlace = fdp.ConsumeBool();
    KVOSC_FUZZ_CHECK((kvosALCSetLevel_G169_16s(&st, target, maxDb) == kvoOk) ==
                     (target >= 0 && maxDb >= 0));
    KVOSC_FUZZ_CHECK((kvosALCSetGain_G169_16s(&st, gainDb) == kvoOk) == (gainDb >= 0));
    const size_t n = fdp.remaining_bytes() / 2;
    HeapBuf<Kvo16s> x(fdp, n), out(n);
    Kvo16s* y = inPlace ? x.data() : out.data();
    for (size_t at = 0; at < n;) {  // calls of 8 to 64 samples, as the input's own words say
        const int len = int(std::min<size_t>(8 * (1 + (x[at] & 7)), n - at));
        const KvoStatus s = kvosALC_G169_16s(x + at, y + at, len, &st);
        KVOSC_FUZZ_CHECK((len % 8 == 0) == (s == kvoOk));
        for (int i = 0; s == kvoOk && i < len; ++i)
            KVOSC_FUZZ_CHECK(std::abs(int(y[at + i])) <= st.maxLevel + 1.0f);
        at += size_t(len);
    }
    return 0;
}
