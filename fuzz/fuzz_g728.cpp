// Fuzz target of the G.728 decoder path: arbitrary 10-bit indices drive the
// excitation (shape row, signed gain, a fuzzed gain exponent) through the
// order-50 synthesis filter, and every 20 samples the block hybrid window and
// the Levinson-Durbin recursion adapt the filter from the decoded signal; the
// post-filter adapter runs on the same signal.  Arbitrary raw words also go
// straight into the search and into a filter state with arbitrary exponents.
#include <cstdint>
#include <cstring>
#include <vector>

#include "g728/g728_tables.h"
#include "kvosc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    std::vector<Kvo16s> win(105);
    for (int i = 0; i < 105; ++i) win[i] = static_cast<Kvo16s>(12000 + 150 * i);
    Kvo32s bytes = 0;
    if (kvosWinHybridGetStateSize_G728_16s(50, 20, 35, 5, &bytes) != kvoOk) __builtin_trap();
    std::vector<Kvo8u> mem(bytes + 15);
    Kvo8u* wst = mem.data() + (data[0] & 15);
    if (kvosWinHybridInit_G728_16s(win.data(), 50, 20, 35, 5, 12288, wst) != kvoOk)
        __builtin_trap();
    KvoG728SynthesisState syn;
    KvoG728PostFilterAdapterState ad;
    kvosSynthesisFilterInit_G728_16s(&syn);
    kvosPostFilterAdapterStateInit_G728(&ad);
    Kvo16s a[50] = {}, a10[10] = {}, cyc[20], cexp[4], resid[240] = {};
    Kvo32s pitch = 50;
    const size_t n = (size - 1) / 2;
    for (size_t v = 0; v < n; ++v) {
        const int word = data[1 + 2 * v] | (data[2 + 2 * v] << 8);
        const int idx = word & 1023, shift = (word >> 10) & 31;
        Kvo16s e[5], y[5], yexp;
        for (int j = 0; j < 5; ++j) {
            const Kvo32s s = kvo::tab::shape_all[idx >> 3][4 - j] * kvo::tab::g2[idx & 7];
            e[j] = static_cast<Kvo16s>(s >> 14);
        }
        if (kvosSyntesisFilterZeroInput_G728_16s(a, e, shift - 8, y, &yexp, &syn) != kvoOk)
            __builtin_trap();
        const int k = v % 4;
        std::memcpy(cyc + 5 * k, y, sizeof y);
        cexp[k] = yexp;
        Kvo16s r[5];
        kvosLPCInverseFilter_G728_16s(y, a10, r, &ad);
        std::memmove(resid, resid + 5, sizeof(Kvo16s) * 235);
        std::memcpy(resid + 235, r, sizeof r);
        if (k == 3) {
            Kvo16s R[51], lpc[50], rc, res, sc;
            kvosWinHybridBlock_G728_16s(0, cyc, cexp, R, wst);
            if (R[0] > 0 && kvosLevinsonDurbin_G728_16s_Sfs(R, 10, lpc, &rc, &res, &sc) == kvoOk) {
                std::memcpy(a10, lpc, sizeof a10);
                if (kvosLevinsonDurbin_G728_16s_ISfs(R, 10, 50, lpc, &res, &sc) == kvoOk)
                    for (int i = 0; i < 50; ++i) a[i] = static_cast<Kvo16s>(lpc[i] >> (sc - 13));
            }
            kvosPitchPeriodExtraction_G728_16s(resid + 140, &pitch, &ad);
            if (pitch < 20 || pitch > 140) __builtin_trap();
        }
    }
    if (size >= 1 + 2 * 80) {
        Kvo16s w[80];
        std::memcpy(w, data + 1, sizeof w);
        KvoG728SynthesisState st;
        kvosSynthesisFilterInit_G728_16s(&st);
        std::memcpy(st.exponents, w + 60, sizeof st.exponents);
        Kvo16s y[5], ye, en[128];
        kvosSyntesisFilterZeroInput_G728_16s(w, w + 50, w[70], y, &ye, &st);
        kvosImpulseResponseEnergy_G728_16s(w, en);
        Kvo32s sh, g;
        Kvo16s code;
        if (kvosCodebookSearch_G728_16s(w + 5, en, &sh, &g, &code, 17) != kvoOk) __builtin_trap();
        if (sh < 0 || sh > 127) __builtin_trap();
    }
    return 0;
}
