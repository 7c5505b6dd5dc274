// Fuzz target of the G.169 level control: arbitrary settings, lengths and
// samples, buffers on the heap at exactly their length, in place or not.
// Checks the ceiling: no output sample above maxLevel.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kvosc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    KvoALCState st;
    if (kvosALCInit_G169_16s(&st) != kvoOk) std::abort();
    const float targetDb = static_cast<float>(data[0]) * 0.25f - 4.0f;  // some below 0
    const float maxDb = static_cast<float>(data[1]) * 0.125f - 2.0f;
    const float gainDb = static_cast<float>(data[2]) * 0.25f - 4.0f;
    const bool inPlace = data[3] & 1;
    const KvoStatus sl = kvosALCSetLevel_G169_16s(&st, targetDb, maxDb);
    if ((sl == kvoOk) != (targetDb >= 0.0f && maxDb >= 0.0f)) std::abort();
    const KvoStatus sg = kvosALCSetGain_G169_16s(&st, gainDb);
    if ((sg == kvoOk) != (gainDb >= 0.0f)) std::abort();
    data += 4;
    size -= 4;

    const int n = static_cast<int>(size / 2);
    auto* x = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * (n ? n : 1)));
    auto* y = inPlace ? x : static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * (n ? n : 1)));
    std::memcpy(x, data, sizeof(Kvo16s) * n);
    // Calls of 8 to 64 samples, as the input's own lengths say.
    int at = 0;
    while (at < n) {
        const int want = 8 * (1 + (x[at] & 7));
        const int len = want <= n - at ? want : n - at;
        const KvoStatus s = kvosALC_G169_16s(x + at, y + at, len, &st);
        if ((len % 8 == 0) != (s == kvoOk)) std::abort();
        if (s == kvoOk) {
            for (int i = at; i < at + len; ++i)
                if (std::abs(static_cast<int>(y[i])) > st.maxLevel + 1.0f) std::abort();
        }
        at += len;
    }
    if (!inPlace) std::free(y);
    std::free(x);
    return 0;
}
