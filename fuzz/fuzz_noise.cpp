// Fuzz target of the echo-path noise filter: a block at an arbitrary offset,
// then a sequence of per-frame calls chosen by the input (detector, moderate
// detector, suppressor in and out of place with any noise flag, level and
// smoothing-mode changes with any value), on frames of arbitrary floats or of
// samples held to 16-bit amplitude.  Each frame sits in its own exact heap
// block.  Invariants: every call returns its documented status; the level
// and mode setters refuse out-of-range values (the level is stored, and the
// suppressor then refuses the record until a valid level is set, or until a
// first noise frame resolves level 5 after such a value); with finite
// 16-bit input the outputs are finite and the reported power is at least 1.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

constexpr int kRates[4] = {8000, 16000, 22050, 32000};

void frame_from(FuzzedDataProvider& fdp, HeapBuf<Kvo32f>& x, bool raw) {
    for (int i = 0; i < 16; ++i) {
        if (raw) {
            const uint32_t bits = fdp.ConsumeIntegral<uint32_t>();
            std::memcpy(&x[i], &bits, 4);
        } else {
            x[i] = static_cast<Kvo32f>(fdp.ConsumeIntegralInRange<int32_t>(-32768, 32767)) +
                   fdp.ConsumeIntegralInRange<int>(0, 3) * 0.25f;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int rate = kRates[fdp.ConsumeIntegralInRange<int>(0, 3)];
    const size_t offset = fdp.ConsumeIntegralInRange<size_t>(0, 15);
    const bool raw = fdp.ConsumeBool();  // arbitrary bit patterns, NaN and infinities included
    Kvo32s bytes = 0;
    KVOSC_FUZZ_CHECK(kvosFilterNoiseGetStateSize_EC_32f(rate, &bytes) == kvoOk);
    HeapBuf<uint8_t> mem(static_cast<size_t>(bytes) + offset);
    auto* st = reinterpret_cast<KvoFilterNoise32fState*>(mem.data() + offset);
    // The block of exactly the reported size, at any address.
    HeapBuf<uint8_t> exact(static_cast<size_t>(bytes));
    if (fdp.ConsumeBool()) st = reinterpret_cast<KvoFilterNoise32fState*>(exact.data());
    KVOSC_FUZZ_CHECK(kvosFilterNoiseInit_EC_32f(rate, st) == kvoOk);

    // The record sits at the block's first 8-byte boundary.
    const auto* rec = reinterpret_cast<const KvoFilterNoise32fState*>(
        (reinterpret_cast<uintptr_t>(st) + 7) & ~uintptr_t{7});
    int frames = 0;
    while (fdp.remaining_bytes() > 0 && frames < 4000) {
        HeapBuf<Kvo32f> x(16), ref(16), y(16);
        Kvo64f np = 0;
        Kvo32f nm = 0;
        Kvo32s flag = -5;
        switch (fdp.ConsumeIntegralInRange<int>(0, 7)) {
            case 7: {
                // A burst of generated frames (low-pass noise of a chosen level, or silence)
                // through the detector and the suppressor, to reach long-run states cheaply.
                const int count = fdp.ConsumeIntegralInRange<int>(1, 300);
                const float amp = static_cast<float>(fdp.ConsumeIntegralInRange<int>(0, 30000));
                uint32_t seed = fdp.ConsumeIntegral<uint32_t>();
                float acc = 0.0f;
                for (int f = 0; f < count; ++f) {
                    for (int i = 0; i < 16; ++i) {
                        seed = seed * 1664525u + 1013904223u;
                        acc =
                            0.8f * acc + 0.2f * (static_cast<float>(seed >> 8) / 8388608.0f - 1.0f);
                        x[i] = amp * acc;
                    }
                    KVOSC_FUZZ_CHECK(
                        kvosFilterNoiseDetect_EC_32f64f(x.data(), &np, &nm, &flag, st) == kvoOk);
                    // (a noise frame may have just resolved a stored level 5 or worse)
                    const bool level_ok = rec->level >= 0 && rec->level <= 5;
                    KVOSC_FUZZ_CHECK(kvosFilterNoise_EC_32f(x.data(), y.data(), -1, st) ==
                                     (level_ok ? kvoOk : kvoErrOutOfRange));
                }
                frames += count;
                break;
            }
            case 0: {
                const Kvo32s level = fdp.ConsumeIntegralInRange<Kvo32s>(-2, 7);
                const KvoStatus s = kvosFilterNoiseLevel_EC_32f(level, st);
                KVOSC_FUZZ_CHECK(s == (level >= 0 && level <= 5 ? kvoOk : kvoErrRange));
                KVOSC_FUZZ_CHECK(rec->level == level);
                break;
            }
            case 1: {
                const Kvo32s mode = fdp.ConsumeIntegralInRange<Kvo32s>(-3, 3);
                const KvoStatus s = kvosFilterNoiseSetMode_EC_32f(mode, st);
                KVOSC_FUZZ_CHECK(s == (mode >= -1 && mode <= 1 ? kvoOk : kvoErrBadArg));
                break;
            }
            case 2:
            case 3: {
                frame_from(fdp, x, raw);
                KvoStatus s;
                if (fdp.ConsumeBool()) {
                    frame_from(fdp, ref, raw);
                    s = kvosFilterNoiseDetectModerate_EC_32f64f(x.data(), ref.data(), &np, &nm,
                                                                &flag, st);
                } else {
                    s = kvosFilterNoiseDetect_EC_32f64f(x.data(), &np, &nm, &flag, st);
                }
                KVOSC_FUZZ_CHECK(s == kvoOk);
                KVOSC_FUZZ_CHECK(flag == 0 || flag == 1);
                if (!raw) KVOSC_FUZZ_CHECK(np == 0.0 || np >= 1.0);
                ++frames;
                break;
            }
            default: {
                frame_from(fdp, x, raw);
                const Kvo32s noiseFlag = fdp.ConsumeIntegralInRange<Kvo32s>(-2, 2);
                const bool level_ok = rec->level >= 0 && rec->level <= 5;
                KvoStatus s;
                if (fdp.ConsumeBool()) {
                    std::memcpy(y.data(), x.data(), 64);
                    s = kvosFilterNoise_EC_32f_I(y.data(), noiseFlag, st);
                } else {
                    s = kvosFilterNoise_EC_32f(x.data(), y.data(), noiseFlag, st);
                }
                KVOSC_FUZZ_CHECK(s == (level_ok ? kvoOk : kvoErrOutOfRange));
                if (s == kvoOk && !raw)
                    for (int i = 0; i < 16; ++i) KVOSC_FUZZ_CHECK(std::isfinite(y[i]));
                ++frames;
                break;
            }
        }
    }
    return 0;
}
