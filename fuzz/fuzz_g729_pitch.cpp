// Fuzz target of the G.729 pitch and gain decoders, and of the searches that build on them:
// arbitrary delays, indices, energies and buffer contents, each buffer on the heap at exactly the
// size the call may touch.  Checked: refused calls write nothing; the past of the excitation is
// never written; the adaptive vector equals the ordered saturating chain (so the plain-sum
// short cut never changes a result); search results stay in their windows; gain indices stay in
// their tables.
#include <cstdint>
#include <cstring>

#include "common.h"
#include "g729/pitch_tables.h"
#include "kvosc.h"
#include "numeric/fixed.h"

namespace {

using kvosc::fuzz::HeapBuf;

// The reference order of the adaptive vector, written out on its own.
void orderedVector(int16_t* exc, int lag, int frac) {
    const int16_t* x0 = exc - lag;
    int t = -frac;
    if (t < 0) t += 3, --x0;
    for (int j = 0; j < 40; ++j) {
        int32_t s = 0;
        for (int i = 0; i < 10; ++i) {
            const int16_t pairs[2][2] = {{x0[j - i], kvo::tab::inter_3l[t + 3 * i]},
                                         {x0[j + 1 + i], kvo::tab::inter_3l[3 - t + 3 * i]}};
            for (const auto& p : pairs) {
                int64_t prod = 2 * int64_t{p[0]} * p[1];
                if (prod > INT32_MAX) prod = INT32_MAX;
                s = kvo::sat32(int64_t{s} + prod);
            }
        }
        exc[j] = kvo::round16(s);
    }
}

void decodeVector(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> exc(fdp, 194);
    const int16_t d[2] = {fdp.ConsumeIntegralInRange<int16_t>(10, 150),
                          fdp.ConsumeIntegralInRange<int16_t>(-2, 2)};
    const bool copy = fdp.ConsumeBool();
    HeapBuf<int16_t> out(40);
    const auto before = exc.snapshot();
    std::vector<int16_t> model(exc.data(), exc.data() + 194);
    const KvoStatus st = copy ? kvosDecodeAdaptiveVector_G729_16s(d, exc.data(), out.data())
                              : kvosDecodeAdaptiveVector_G729_16s_I(d, exc.data());
    const bool valid = d[0] >= 18 && d[0] <= 144 && d[1] >= -1 && d[1] <= 1;
    if (!valid) {
        KVOSC_FUZZ_CHECK(st == kvoErrOutOfRange);
        KVOSC_FUZZ_CHECK(exc.same_as(before));
        return;
    }
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(std::memcmp(exc.data(), before.data(), 154 * 2) == 0);
    orderedVector(model.data() + 154, d[0], d[1]);
    KVOSC_FUZZ_CHECK(std::memcmp(exc.data(), model.data(), 194 * 2) == 0);
    if (copy) KVOSC_FUZZ_CHECK(std::memcmp(out.data(), exc.data() + 154, 80) == 0);
}

void decodeGain(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> past(fdp, 4), gains(fdp, 2), idx(fdp, 2);
    const int32_t energy = fdp.ConsumeIntegral<int32_t>();
    const int16_t att = fdp.ConsumeIntegral<int16_t>();
    const bool erased = fdp.ConsumeBool();
    if (fdp.ConsumeBool()) {
        KVOSC_FUZZ_CHECK(kvosDecodeGain_G729_16s(energy, past.data(), erased ? nullptr : idx.data(),
                                                 gains.data()) == kvoOk);
        return;
    }
    const auto before = gains.snapshot();
    const KvoStatus st = kvosDecodeGain_G729I_16s(energy, att, past.data(),
                                                  erased ? nullptr : idx.data(), gains.data());
    const bool inRange = idx[0] >= 0 && idx[0] <= 7 && idx[1] >= 0 && idx[1] <= 7;
    if (erased || inRange) {
        KVOSC_FUZZ_CHECK(st == kvoOk);
    } else {
        KVOSC_FUZZ_CHECK(st == kvoErrOutOfRange);
        KVOSC_FUZZ_CHECK(gains.same_as(before));
    }
}

void search(FuzzedDataProvider& fdp) {
    HeapBuf<int16_t> exc(fdp, 194), x(fdp, 40), h(fdp, 40), vec(40), delay(2);
    const int32_t open = fdp.ConsumeIntegralInRange<int32_t>(10, 150);
    const int16_t sub = fdp.ConsumeIntegralInRange<int16_t>(-1, 2);
    const int coder = fdp.ConsumeIntegralInRange<int>(0, 2);
    const auto before = exc.snapshot();
    KvoStatus st;
    if (coder == 0)
        st = kvosAdaptiveCodebookSearch_G729_16s(open, x.data(), h.data(), exc.data(), delay.data(),
                                                 vec.data(), sub);
    else if (coder == 1)
        st = kvosAdaptiveCodebookSearch_G729A_16s(open, x.data(), h.data(), exc.data(),
                                                  delay.data(), vec.data(), sub);
    else
        st = kvosAdaptiveCodebookSearch_G729D_16s(open, x.data(), h.data(), exc.data(), sub,
                                                  delay.data());
    const bool valid = open >= 18 && open <= 145 && (sub == 0 || sub == 1);
    if (!valid) {
        KVOSC_FUZZ_CHECK(st == kvoErrRange);
        KVOSC_FUZZ_CHECK(exc.same_as(before));
        return;
    }
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(std::memcmp(exc.data(), before.data(), coder == 2 ? 388 : 308) == 0);
    const int thirds = 3 * delay[0] + delay[1];
    KVOSC_FUZZ_CHECK(delay[1] >= -1 && delay[1] <= 1);
    KVOSC_FUZZ_CHECK(thirds >= 3 * 19 + 1 && thirds <= 3 * 144 - 1);  // 19 1/3 .. 143 2/3
    if (coder != 2) KVOSC_FUZZ_CHECK(std::memcmp(vec.data(), exc.data() + 154, 80) == 0);

    // The gains of the chosen vector, then the quantiser on it.
    HeapBuf<int16_t> y(40), code(fdp, 40), y2(fdp, 40), q(2), idx(2), past(fdp, 4);
    int16_t gp = 0;
    KVOSC_FUZZ_CHECK(
        kvosAdaptiveCodebookGain_G729_16s(x.data(), h.data(), vec.data(), y.data(), &gp) == kvoOk);
    KVOSC_FUZZ_CHECK(gp >= 0 && gp <= 19661);
    const bool rate64 = fdp.ConsumeBool();
    const int16_t tame = fdp.ConsumeBool();
    st = rate64 ? kvosGainQuant_G729D_16s(x.data(), y.data(), code.data(), y2.data(), past.data(),
                                          q.data(), idx.data(), tame)
                : kvosGainQuant_G729_16s(x.data(), y.data(), code.data(), y2.data(), past.data(),
                                         q.data(), idx.data(), tame);
    KVOSC_FUZZ_CHECK(st == kvoOk);
    KVOSC_FUZZ_CHECK(idx[0] >= 0 && idx[0] < 8 && idx[1] >= 0 && idx[1] < (rate64 ? 8 : 16));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    switch (fdp.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
            decodeVector(fdp);
            break;
        case 1:
            decodeGain(fdp);
            break;
        default:
            search(fdp);
            break;
    }
    return 0;
}
