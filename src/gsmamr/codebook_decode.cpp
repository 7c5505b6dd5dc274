// GSM AMR fixed-codebook decoder (TS 26.090): index words of one 40-sample subframe to the
// algebraic code vector.  Pulse amplitudes: +8191 / -8192 (4.75 to 7.95), +-8191 (10.2),
// +-4096 (12.2 and the comfort-noise marker, which takes the 12.2 path).  Indices outside the
// range an encoder produces are decoded by the same bit arithmetic, with the 10.2 base-5
// groups held at their largest value (124 in words 4 and 5, 24 in word 6), so every word gives
// positions inside the subframe.
#include <cstring>

#include "frame/impl.h"
#include "gsmamr/codebook.h"

namespace kvo {
namespace amr {

namespace {

inline Kvo16s lowAmp(int bit) {
    return bit ? Kvo16s{8191} : Kvo16s{-8192};
}

// Two positions of one track: the first takes s, the second adds s, negated when the second
// position lies below the first.
inline void placePair(Kvo16s* code, int p1, int p2, Kvo16s s) {
    code[p1] = s;
    if (p2 < p1) s = static_cast<Kvo16s>(-s);
    code[p2] = static_cast<Kvo16s>(code[p2] + s);
}

}  // namespace

void fixedCodebookDecode(const Kvo16s* idx, Kvo16s* code, int subframe, KvoSpeechRate mode) {
    std::memset(code, 0, kSubfr * sizeof(Kvo16s));
    const int w0 = static_cast<Kvo16u>(idx[0]);
    switch (mode) {
        case 0:
        case 1: {
            const int w1 = idx[1];
            const int g = (w0 >> 6) & 1;
            const int p0 = (w0 & 7) * 5 + kStartPos[g * 8 + subframe * 2];
            const int p1 = ((w0 >> 3) & 7) * 5 + kStartPos[g * 8 + subframe * 2 + 1];
            code[p0] = lowAmp(w1 & 1);
            code[p1] = lowAmp((w1 >> 1) & 1);
            break;
        }
        case 3: {
            const int w1 = idx[1];
            const int p0 = ((w0 >> 1) & 7) * 5 + (w0 & 1) * 2 + 1;
            int t = (w0 >> 4) & 3;
            if (t == 3) t = 4;
            const int p1 = ((w0 >> 6) & 7) * 5 + t;
            code[p0] = lowAmp(w1 & 1);
            code[p1] = lowAmp((w1 >> 1) & 1);
            break;
        }
        case 6: {
            const int w1 = idx[1];
            const int p0 = (w0 & 7) * 5;
            const int p1 = ((w0 >> 4) & 7) * 5 + 1 + 2 * ((w0 >> 3) & 1);
            const int p2 = ((w0 >> 8) & 7) * 5 + 2 + 2 * ((w0 >> 7) & 1);
            code[p0] = lowAmp(w1 & 1);
            code[p1] = lowAmp((w1 >> 1) & 1);
            code[p2] = lowAmp((w1 >> 2) & 1);
            break;
        }
        case 7:
        case 8: {
            const int w1 = idx[1];
            const int p0 = kDgray[w0 & 7] * 5;
            const int p1 = kDgray[(w0 >> 3) & 7] * 5 + 1;
            const int p2 = kDgray[(w0 >> 6) & 7] * 5 + 2;
            const int p3 = kDgray[(w0 >> 10) & 7] * 5 + 3 + ((w0 >> 9) & 1);
            code[p0] = lowAmp(w1 & 1);
            code[p1] = lowAmp((w1 >> 1) & 1);
            code[p2] = lowAmp((w1 >> 2) & 1);
            code[p3] = lowAmp((w1 >> 3) & 1);
            break;
        }
        case 11: {
            Kvo16s s[4];
            for (int t = 0; t < 4; ++t) s[t] = idx[t] == 0 ? Kvo16s{8191} : Kvo16s{-8191};
            // Words 4 and 5: three position indices each, two 1-bit parts and a base-5 triple.
            int first[4], second[4];
            for (int k = 0; k < 2; ++k) {
                const int w = static_cast<Kvo16u>(idx[4 + k]);
                int a = w >> 3;
                if (a > 124) a = 124;
                const int c = a / 25, b = (a % 25) / 5, e = a % 5;
                const int tA = k == 0 ? 0 : 2;  // track with both pulses in this word
                first[tA] = 4 * ((w & 1) + 2 * e) + tA;
                second[tA] = 4 * (((w & 3) >> 1) + 2 * b) + tA;
                const int p1 = 4 * (((w & 7) >> 2) + 2 * c) + 1;
                if (k == 0)
                    first[1] = p1;
                else
                    second[1] = p1;
            }
            // Word 6: the two position indices of track 3.
            const int w6 = static_cast<Kvo16u>(idx[6]);
            int n = (((w6 >> 2) * 25 + 12) >> 5);
            if (n > 24) n = 24;  // words above the 7-bit range: held like words 4 and 5
            const int c = n / 5;
            int e = n % 5;
            if (c & 1) e = 4 - e;
            first[3] = 4 * ((w6 & 1) + 2 * e) + 3;
            second[3] = 4 * (((w6 & 3) >> 1) + 2 * c) + 3;
            for (int t = 0; t < 4; ++t) placePair(code, first[t], second[t], s[t]);
            break;
        }
        default: {  // 12.2 and the comfort-noise marker
            for (int j = 0; j < 5; ++j) {
                const int i = idx[j];
                const Kvo16s s = (i & 8) ? Kvo16s{-4096} : Kvo16s{4096};
                const int p1 = kDgray[i & 7] * 5 + j;
                const int p2 = kDgray[idx[j + 5] & 7] * 5 + j;
                placePair(code, p1, p2, s);
            }
            break;
        }
    }
}

}  // namespace amr

namespace impl {

KvoStatus kvosFixedCodebookDecode_GSMAMR_16s(const Kvo16s* pIndices, Kvo16s* pCode, Kvo16s subframe,
                                             KvoSpeechRate mode) {
    if (!pIndices || !pCode) return kvoErrNullPtr;
    if (subframe < 0 || subframe > 3 || !amr::cbModeValid(mode)) return kvoErrRange;
    amr::fixedCodebookDecode(pIndices, pCode, subframe, mode);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
