// Fuzz target of the G.729 pitch and gain decoders and the searches built on
// them (the adaptive vector's arithmetic is checked against its twin in the unit tests).
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

void decodeVector(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> exc(fdp, 194), out(40);
    const int16_t d[2] = {fdp.ConsumeIntegralInRange<int16_t>(10, 150),
                          fdp.ConsumeIntegralInRange<int16_t>(-2, 2)};
    const bool copy = fdp.ConsumeBool();
    const auto before = exc.snapshot();
    const KvoStatus st = copy ? kvosDecodeAdaptiveVector_G729_16s(d, exc, out)
                              : kvosDecodeAdaptiveVector_G729_16s_I(d, exc);
    if (d[0] < 18 || d[0] > 144 || d[1] < -1 || d[1] > 1)
        return KVOSC_FUZZ_CHECK(st == kvoErrOutOfRange && exc.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(std::memcmp(exc, before.data(), 308) == 0);  // the past is untouched
    if (copy) KVOSC_FUZZ_CHECK(std::memcmp(out, exc + 154, 80) == 0);
}

void decodeGain(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> past(fdp, 4), gains(fdp, 2), idx(fdp, 2);
    const int32_t energy = fdp.ConsumeIntegral<int32_t>();
    const int16_t att = fdp.ConsumeIntegral<int16_t>();
    int16_t* ix = fdp.ConsumeBool() ? nullptr : idx.data();  // null: erased frame
    if (fdp.ConsumeBool())
        return KVOSC_FUZZ_CHECK(kvosDecodeGain_G729_16s(energy, past, ix, gains) == kvoOk);
    const auto before = gains.snapshot();
    const KvoStatus st = kvosDecodeGain_G729I_16s(energy, att, past, ix, gains);
    if (!ix || (idx[0] >= 0 && idx[0] <= 7 && idx[1] >= 0 && idx[1] <= 7))
        KVOSC_FUZZ_CHECK(st == kvoOk);
    else
        KVOSC_FUZZ_CHECK(st == kvoErrOutOfRange && gains.same_as(before));
}

void search(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> exc(fdp, 194), x(fdp, 40), h(fdp, 40), vec(40), delay(2);
    const int32_t open = fdp.ConsumeIntegralInRange<int32_t>(10, 150);
    const int16_t sub = fdp.ConsumeIntegralInRange<int16_t>(-1, 2);
    const int coder = fdp.ConsumeIntegralInRange(0, 2);
    const auto before = exc.snapshot();
    const KvoStatus st =
        coder == 0   ? kvosAdaptiveCodebookSearch_G729_16s(open, x, h, exc, delay, vec, sub)
        : coder == 1 ? kvosAdaptiveCodebookSearch_G729A_16s(open, x, h, exc, delay, vec, sub)
                     : kvosAdaptiveCodebookSearch_G729D_16s(open, x, h, exc, sub, delay);
    if (open < 18 || open > 145 || (sub != 0 && sub != 1))
        return KVOSC_FUZZ_CHECK(st == kvoErrRange && exc.same_as(before));
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(std::memcmp(exc, before.data(), coder == 2 ? 388 : 308) == 0);
    const int thirds = 3 * delay[0] + delay[1];
    KVOSC_FUZZ_CHECK(delay[1] >= -1 && delay[1] <= 1);
    KVOSC_FUZZ_CHECK(thirds >= 3 * 19 + 1 && thirds <= 3 * 144 - 1);  // 19 1/3 .. 143 2/3
    if (coder != 2) KVOSC_FUZZ_CHECK(std::memcmp(vec, exc + 154, 80) == 0);
    // The gains of the chosen vector, then the quantiser on it.
    HeapBuf<int16_t> y(40), code(fdp, 40), y2(fdp, 40), q(2), idx(2), past(fdp, 4);
    int16_t gp = 0;
    KVOSC_FUZZ_CHECK(kvosAdaptiveCodebookGain_G729_16s(x, h, vec, y, &gp) == kvoOk);
    KVOSC_FUZZ_CHECK(gp >= 0 && gp <= 19661);
    const bool rate64 = fdp.ConsumeBool();
    const int16_t tame = fdp.ConsumeBool();
    KVOSC_FUZZ_CHECK((rate64 ? kvosGainQuant_G729D_16s : kvosGainQuant_G729_16s)(
                         x, y, code, y2, past, q, idx, tame) == kvoOk);
    KVOSC_FUZZ_CHECK(idx[0] >= 0 && idx[0] < 8 && idx[1] >= 0 && idx[1] < (rate64 ? 8 : 16));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    void (*const steps[])(FuzzedDataProvider&) = {decodeVector, decodeGain, search};
    steps[fdp.ConsumeIntegralInRange(0, 2)](fdp);
    return 0;
}
