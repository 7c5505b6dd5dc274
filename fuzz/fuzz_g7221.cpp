// Fuzz target of the G.722.1 steps: the region coder with arbitrary category,
// power index and coefficients (valid calls must write no more words than
// their bit count needs, refused ones nothing), and the transforms and
// windowing with arbitrary frames at either length, on exactly sized heap
// vectors.
#include <cstdint>
#include <cstring>

#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const bool transforms = fdp.ConsumeBool();
    if (!transforms) {
        while (fdp.remaining_bytes() >= 2) {
            // mostly valid values, sometimes anything
            const Kvo32s category = fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange<Kvo32s>(0, 6)
                                                      : fdp.ConsumeIntegral<Kvo32s>();
            const Kvo32s power = fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange<Kvo32s>(0, 63)
                                                   : fdp.ConsumeIntegral<Kvo32s>();
            HeapBuf<Kvo16s> src(fdp, 20);
            HeapBuf<Kvo32u> dst(6);
            std::memset(dst.data(), 0xEE, dst.bytes());
            const auto before = dst.snapshot();
            Kvo32s bits = -12345;
            const KvoStatus st =
                kvosHuffmanEncode_G722_16s32u(category, power, src.data(), dst.data(), &bits);
            const bool valid = category >= 0 && category <= 6 && power >= 0 && power <= 63;
            if (!valid) KVOSC_FUZZ_CHECK(st == kvoErrScaleRange);
            if (st != kvoOk) {
                KVOSC_FUZZ_CHECK(st == kvoErrScaleRange && bits == -12345 && dst.same_as(before));
                continue;
            }
            KVOSC_FUZZ_CHECK(bits >= 4 && bits <= 180);
            const int words = (bits + 31) / 32;
            for (int w = words; w < 6; ++w) KVOSC_FUZZ_CHECK(dst[w] == 0xEEEEEEEEu);
            // unused low bits of the last word are zero
            if (bits % 32) KVOSC_FUZZ_CHECK((dst[words - 1] & ((1u << (32 - bits % 32)) - 1)) == 0);
        }
        return 0;
    }
    const int len = fdp.ConsumeBool() ? 640 : 320;
    HeapBuf<Kvo16s> x(fdp, len), memF(fdp, len), memI(fdp, len / 2), y(len), z(len);
    KVOSC_FUZZ_CHECK(kvosDecomposeMLTToDCT_G7221_16s(x.data(), memF.data(), y.data(), len) ==
                     kvoOk);
    KVOSC_FUZZ_CHECK(kvosDCTFwd_G7221_16s(y.data(), z.data(), len) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosDCTInv_G7221_16s(x.data(), y.data(), len) == kvoOk);
    KVOSC_FUZZ_CHECK(kvosDecomposeDCTToMLT_G7221_16s(y.data(), memI.data(), z.data(), len) ==
                     kvoOk);
    KVOSC_FUZZ_CHECK(std::memcmp(memI.data(), y.data() + len / 2, len) == 0);
    return 0;
}
