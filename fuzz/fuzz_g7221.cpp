// Fuzz target of the G.722.1 steps: the region coder with arbitrary category,
// power index and coefficients (valid calls write no more words than their
// bit count needs, refused ones nothing), and the transforms at either length.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    if (fdp.ConsumeBool()) {
        const int len = fdp.ConsumeBool() ? 640 : 320;
        HeapBuf<Kvo16s> x(fdp, len), memF(fdp, len), memI(fdp, len / 2), y(len), z(len);
        KVOSC_FUZZ_CHECK(kvosDecomposeMLTToDCT_G7221_16s(x, memF, y, len) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosDCTFwd_G7221_16s(y, z, len) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosDCTInv_G7221_16s(x, y, len) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosDecomposeDCTToMLT_G7221_16s(y, memI, z, len) == kvoOk);
        KVOSC_FUZZ_CHECK(std::memcmp(memI, y + len / 2, len) == 0);  // keeps the second half
        return 0;
    }
    while (fdp.remaining_bytes() >= 2) {  // mostly valid values, sometimes anything
        const Kvo32s cat =
            fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange(0, 6) : fdp.ConsumeIntegral<Kvo32s>();
        const Kvo32s power =
            fdp.ConsumeBool() ? fdp.ConsumeIntegralInRange(0, 63) : fdp.ConsumeIntegral<Kvo32s>();
        HeapBuf<Kvo16s> src(fdp, 20);
        HeapBuf<Kvo32u> dst(6);
        std::memset(dst, 0xEE, dst.bytes());
        const auto before = dst.snapshot();
        Kvo32s bits = -12345;
        const KvoStatus st = kvosHuffmanEncode_G722_16s32u(cat, power, src, dst, &bits);
        const bool valid = cat >= 0 && cat <= 6 && power >= 0 && power <= 63;
        if (!valid) KVOSC_FUZZ_CHECK(st == kvoErrScaleRange);
        if (st != kvoOk) {
            KVOSC_FUZZ_CHECK(st == kvoErrScaleRange);
            KVOSC_FUZZ_CHECK(bits == -12345 && dst.same_as(before));
            continue;
        }
        KVOSC_FUZZ_CHECK(bits >= 4 && bits <= 180);
        const int words = (bits + 31) / 32;
        for (int w = words; w < 6; ++w) KVOSC_FUZZ_CHECK(dst[w] == 0xEEEEEEEEu);
        if (bits % 32) KVOSC_FUZZ_CHECK((dst[words - 1] & ((1u << (32 - bits % 32)) - 1)) == 0);
    }
    return 0;
}
