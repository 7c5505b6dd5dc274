// Fuzz target of the G.723.1 excitation steps with arbitrary indices and
// data: the decoder's adaptive vector (checked against the five-tap sum over
// the periodically extended excitation, and for nothing written on a rejected
// index), and the searches, whose outputs must stay in their ranges.
#include "common.h"
#include "g723/g723_exc_tables.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

int16_t clamp16(int64_t v) {
    return int16_t(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

void decodeVector(FuzzedDataProvider& fdp) {
    // 145 samples of history and the two before them (lags up to 145).
    HeapBuf<int16_t> hist(fdp, 147), out(60);
    const int16_t lag = fdp.ConsumeIntegralInRange<int16_t>(10, 160);
    const int16_t delta = fdp.ConsumeIntegralInRange<int16_t>(-2, 5);
    const int16_t gain = fdp.ConsumeIntegralInRange<int16_t>(-3, 180);
    const int32_t rate = fdp.ConsumeIntegralInRange<int32_t>(1, 5);
    const auto before = out.snapshot();
    const KvoStatus st = kvosDecodeAdaptiveVector_G723_16s(lag, delta, gain, hist + 2, out, rate);
    if (delta < 0 || delta > 3 || lag < 18 || lag + delta > 146 || gain < 0 || gain > 169)
        return KVOSC_FUZZ_CHECK(st == kvoErrOutOfRange && out.same_as(before));
    if (rate != 2 && rate != 4) return KVOSC_FUZZ_CHECK(st == kvoErrRange && out.same_as(before));
    const bool high = rate == 4 && lag < 58;
    if (high && gain > 84) return KVOSC_FUZZ_CHECK(st == kvoErrOutOfRange && out.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    const int16_t* row =
        high ? kvo::tab::AdCdbkGainTblHighRate[gain] : kvo::tab::AdCdbkGainTblLowRate[gain];
    const int L = lag + delta - 1;
    for (int i = 0; i < 60; ++i) {
        int64_t s = 0;
        for (int k = 0; k < 5; ++k) {
            int tau = i + k - 2 - L;
            while (tau >= 0) tau -= L;
            s += int64_t(row[k]) * hist[2 + 145 + tau];
        }
        KVOSC_FUZZ_CHECK(out[i] == clamp16((4 * s + 32768) >> 16));
    }
}

void searches(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> h(fdp, 60), x(fdp, 60), hist(fdp, 145), code(60);
    HeapBuf<int32_t> err(fdp, 5);
    const int16_t lag = fdp.ConsumeIntegralInRange<int16_t>(18, 145);
    const int16_t sf = fdp.ConsumeIntegralInRange<int16_t>(0, 3);
    switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
        case 0: {
            int16_t d = -1, g = -1;
            const int16_t centre = int16_t(lag > 141 ? 141 : lag);
            const KvoStatus st = kvosAdaptiveCodebookSearch_G723(centre, x, h, hist, err, &d, &g,
                                                                 sf, fdp.ConsumeIntegral<int16_t>(),
                                                                 fdp.ConsumeBool() ? 2 : 4);
            KVOSC_FUZZ_CHECK(st == kvoOk && d >= 0 && d <= 3 && g >= 0 && g < 170);
            break;
        }
        case 1: {
            HeapBuf<int16_t> m(fdp, 416);
            int16_t signs[4], pos[4], grid = -1;
            int16_t budget = fdp.ConsumeIntegralInRange<int16_t>(-200, 400);
            const KvoStatus st =
                kvosACELPFixedCodebookSearch_G723_16s(x, m, signs, pos, &grid, code, &budget);
            KVOSC_FUZZ_CHECK(st == kvoOk && (grid == 0 || grid == 1));
            for (int k = 0; k < 4; ++k)
                KVOSC_FUZZ_CHECK(pos[k] >= 0 && pos[k] < 64 && pos[k] % 8 == 2 * k + grid &&
                                 (signs[k] == 1 || signs[k] == -1));
            break;
        }
        default: {
            int16_t grid, train, amp, mask;
            int32_t position;
            const KvoStatus st = kvosMPMLQFixedCodebookSearch_G723(lag, h, x, code, &grid, &train,
                                                                   &amp, &mask, &position, sf);
            KVOSC_FUZZ_CHECK(st == kvoOk && (grid == 0 || grid == 1) && amp >= 0 && amp < 24 &&
                             position >= 0 && position < (sf % 2 ? 142506 : 593775) &&
                             (train == 0 || lag < 58));
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    if (fdp.ConsumeBool())
        decodeVector(fdp);
    else
        searches(fdp);
    return 0;
}
