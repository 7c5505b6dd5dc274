// Fuzz target of the G.729 algebraic codebook searches: status, pulse count
// and amplitudes, and the main search's index words decoding to its vector.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

// 40 samples: raw words, scaled down, a decaying response, or tiny values.
void fill40(FuzzedDataProvider& fdp, Kvo16s* v) {
    const int kind = fdp.ConsumeIntegralInRange(0, 3);
    for (int i = 0; i < 40; ++i) {
        const Kvo16s w = fdp.ConsumeIntegral<Kvo16s>();
        const int shift[4] = {0, 4, 2 + i / 4, 12};
        v[i] = Kvo16s(kind == 2 && i == 0 ? 4096 : w >> shift[kind]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int which = fdp.ConsumeIntegralInRange(0, 7);
    HeapBuf<Kvo16s> corr(40), imp(40), tgt(40), res(40), code(40), flt(40), idx(5), m16(616);
    HeapBuf<Kvo16s> times(1), sign(1), index(1);
    HeapBuf<Kvo32s> m32(616);
    fill40(fdp, corr);
    fill40(fdp, imp);
    times[0] = fdp.ConsumeIntegral<Kvo16s>();
    if (fdp.ConsumeBool()) {
        for (int i = 0; i < 616; ++i)
            m32[i] = fdp.ConsumeIntegral<Kvo32s>(), m16[i] = fdp.ConsumeIntegral<Kvo16s>();
    } else {
        KVOSC_FUZZ_CHECK(kvosToeplizMatrix_G729_16s32s(imp, m32) == kvoOk);
        KVOSC_FUZZ_CHECK(kvosToeplizMatrix_G729_16s(imp, m16) == kvoOk);
        for (int i = 0; i < 616; ++i)
            KVOSC_FUZZ_CHECK(m16[i] == (m32[i] >> 15 > 32767 ? 32767 : m32[i] >> 15));
    }
    const Kvo32s sub = fdp.ConsumeBool() ? fdp.ConsumeIntegral<Kvo32s>() : fdp.ConsumeBool();
    if (which < 2) {
        const KvoStatus st =
            which == 0 ? kvosFixedCodebookSearch_G729_32s16s(corr, m32, code, idx, times, sub)
                       : kvosFixedCodebookSearch_G729_16s(corr, m16, code, idx, times, sub);
        KVOSC_FUZZ_CHECK(st == kvoOk || st == kvoErrRange);
        if (st != kvoOk) return 0;
        // four pulses of 8191 or -8192, one on each of tracks 0..2 and one on 3 or 4
        Kvo16s want[40] = {};
        const int pos = idx[1];
        const int p[4] = {pos & 7, (pos >> 3) & 7, (pos >> 6) & 7, (pos >> 9) & 15};
        const int q[4] = {5 * p[0], 1 + 5 * p[1], 2 + 5 * p[2], 3 + (p[3] & 1) + 5 * (p[3] >> 1)};
        for (int k = 0; k < 4; ++k) want[q[k]] = (idx[0] >> k) & 1 ? 8191 : -8192;
        KVOSC_FUZZ_CHECK((idx[0] & ~15) == 0 && (pos & ~8191) == 0);
        KVOSC_FUZZ_CHECK(std::memcmp(want, code, sizeof want) == 0);
    } else if (which < 4) {
        KVOSC_FUZZ_CHECK((which == 2
                              ? kvosFixedCodebookSearch_G729A_32s16s(corr, m32, code, idx)
                              : kvosFixedCodebookSearch_G729A_16s(corr, m16, code, idx)) == kvoOk);
        for (int i = 0; i < 40; ++i)
            KVOSC_FUZZ_CHECK(code[i] == 0 || code[i] == 8191 || code[i] == -8192);
    } else if (which == 4) {
        KVOSC_FUZZ_CHECK(kvosFixedCodebookSearch_G729D_16s(corr, imp, code, flt, sign, index) ==
                         kvoOk);
        int n = 0;
        for (int i = 0; i < 40; ++i) {
            const int c = code[i];
            KVOSC_FUZZ_CHECK(c % 8192 == 0 || c == 8191 || c == 16382);
            n += c == 8191 ? 1 : c == 16382 ? 2 : std::abs(c / 8192);
        }
        KVOSC_FUZZ_CHECK(n == 2 && (sign[0] & ~3) == 0 && (index[0] & ~511) == 0);
    } else {
        fill40(fdp, tgt);
        fill40(fdp, res);
        const Kvo16s mode = Kvo16s(which - 5);
        KVOSC_FUZZ_CHECK(kvosFixedCodebookSearch_G729E_16s(mode, tgt, res, imp, code, flt, idx) ==
                         kvoOk);
        int n = 0;  // pulses of opposite signs never share a position
        for (int i = 0; i < 40; ++i) n += code[i] % 4096 ? 99 : std::abs(code[i] / 4096);
        KVOSC_FUZZ_CHECK(n == (mode ? 12 : 10));
    }
    return 0;
}
