// Fuzz target of the GSM AMR LSP decoder, LSP quantiser, DTX steps and voice
// activity detectors: arbitrary index words, memories, histories and states.
#include "common.h"
#include "kvosc.h"

using kvosc::fuzz::HeapBuf;

namespace {

const KvoSpeechRate kModes[] = {0, 1, 3, 6, 7, 8, 11, 12, 25, 2, -7};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    const int which = fdp.ConsumeIntegralInRange(0, 6);
    const KvoSpeechRate mode = kModes[fdp.ConsumeIntegralInRange<size_t>(0, 10)];
    const Kvo16s flag = fdp.ConsumeIntegral<Kvo16s>();
    HeapBuf<Kvo16s> idx(fdp, 5), past(fdp, 10), prevLsf(fdp, 10), prevLsp(fdp, 10);
    HeapBuf<Kvo16s> lsp(fdp, 20), q(40), words(5);
    HeapBuf<Kvo16s> speech(fdp, 200), hist(fdp, 80), logEn(fdp, 8), histIdx(fdp, 1);
    if (which == 0) {
        const auto before = past.snapshot();
        const KvoStatus st =
            kvosQuantLSPDecode_GSMAMR_16s(idx, past, prevLsf, prevLsp, q, flag, mode);
        KVOSC_FUZZ_CHECK(st == kvoOk || past.same_as(before));
        if (st == kvoOk && !flag) {
            // Good frame: the stored LSFs keep the minimum gap from 205 up.
            int lo = 205;
            for (int i = 0; i < 10; ++i) {
                KVOSC_FUZZ_CHECK(prevLsf[i] >= lo || lo > 32767);
                lo = prevLsf[i] + 205;
            }
        }
    }
    if (which == 1) {
        const KvoStatus st = kvosLSPQuant_GSMAMR_16s(lsp, past, q, words, mode);
        if (st == kvoOk) {
            // Every index inside its codebook.
            const int limits[5] = {mode == 12 ? 128 : (mode == 8 ? 512 : 256),
                                   mode == 12 ? 256 : (mode <= 1 ? 256 : 512),
                                   mode == 12 ? 512 : (mode <= 1 ? 128 : 512), 256, 64};
            for (int s = 0; s < (mode == 12 ? 5 : 3); ++s)
                KVOSC_FUZZ_CHECK(words[s] >= 0 && words[s] < limits[s]);
        }
    }
    if (which == 2 || which == 3) {
        const auto before = histIdx.snapshot();
        const KvoStatus st = which == 2
                                 ? kvosEncDTXBuffer_GSMAMR_16s(speech, lsp, histIdx, hist, logEn)
                                 : kvosDecDTXBuffer_GSMAMR_16s(speech, lsp, histIdx, hist, logEn);
        KVOSC_FUZZ_CHECK(st == kvoOk ? (histIdx[0] >= 0 && histIdx[0] <= 7)
                                     : histIdx.same_as(before));
    }
    if (which == 4) {
        Kvo16s sidUpdate = -1;
        KvoSpeechRate m = mode;
        KVOSC_FUZZ_CHECK(kvosEncDTXHandler_GSMAMR_16s(&idx[0], &idx[1], &m, &sidUpdate, flag) ==
                         kvoOk);
        KVOSC_FUZZ_CHECK(sidUpdate == 0 || sidUpdate == 1);
        Kvo16s e, init, li[3], pe[4], pe2[4];
        KVOSC_FUZZ_CHECK(kvosEncDTXSID_GSMAMR_16s(hist, logEn, &e, &init, li, pe, pe2, 1) == kvoOk);
        KVOSC_FUZZ_CHECK(e >= 0 && e <= 63 && init >= 0 && init <= 7);
        KVOSC_FUZZ_CHECK(li[0] >= 0 && li[0] < 256 && li[1] >= 0 && li[1] < 512 && li[2] >= 0 &&
                         li[2] < 512);
        // The comfort-noise decoder accepts what the SID step produces.
        const Kvo16s w[4] = {init, li[0], li[1], li[2]};
        KVOSC_FUZZ_CHECK(kvosQuantLSPDecode_GSMAMR_16s(w, past, prevLsf, prevLsp, q, 0, 25) ==
                         kvoOk);
    }
    if (which >= 5) {  // arbitrary detector states
        KvoVAD1State_GSMAMR st1;
        KvoVAD2State_GSMAMR st2;
        const size_t n = which == 5 ? sizeof st1 : sizeof st2;
        std::vector<uint8_t> b = fdp.ConsumeBytes<uint8_t>(n);
        b.resize(n);
        std::memcpy(which == 5 ? static_cast<void*>(&st1) : static_cast<void*>(&st2), b.data(), n);
        Kvo16s f = -1;
        for (int k = 0; k < 3; ++k) {
            KVOSC_FUZZ_CHECK((which == 5 ? kvosVAD1_GSMAMR_16s(speech, &st1, &f, flag, idx[0])
                                         : kvosVAD2_GSMAMR_16s(speech, &st2, &f, flag)) == kvoOk);
            KVOSC_FUZZ_CHECK(f == 0 || f == 1);
        }
    }
    return 0;
}
