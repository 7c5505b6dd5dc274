// Private workers of the GSM AMR pitch steps (TS 26.090 fixed-point arithmetic): the
// saturating basic-operation chains they share, the adaptive-vector interpolator and the
// mode checks.
#pragma once

#include "kvosc_types.h"
#include "numeric/fixed.h"

namespace kvo::amr {

// Modes of the pitch and post-filter steps with the comfort-noise marker.
constexpr bool pitchModeValid(KvoSpeechRate m) {
    return m == 0 || m == 1 || m == 3 || m == 6 || m == 7 || m == 8 || m == 11 || m == 12 ||
           m == 25;
}

// Saturating chain of doubled products from 0: acc = sat32(acc + sat32(2 a[i] b[i])) in index
// order.  When the doubled magnitudes add up to no more than INT32_MAX no partial sum can
// saturate and the exact sum is the chain's result; otherwise the chain runs in order.
inline Kvo32s macChain(const Kvo16s* a, const Kvo16s* b, int n) {
    Kvo64s sum = 0, mag = 0;
    for (int i = 0; i < n; ++i) {
        const Kvo32s p = Kvo32s{a[i]} * b[i];
        sum += p;
        mag += p < 0 ? -Kvo64s{p} : p;
    }
    if (2 * mag <= INT32_MAX) return static_cast<Kvo32s>(2 * sum);
    Kvo32s acc = 0;
    for (int i = 0; i < n; ++i) acc = FMac_16s32s(acc, a[i], b[i]);
    return acc;
}

// Largest magnitude of n samples (32768 for -32768).
inline Kvo32s maxAbs16(const Kvo16s* x, int n) {
    Kvo32s m = 0;
    for (int i = 0; i < n; ++i) {
        const Kvo32s v = x[i] < 0 ? -Kvo32s{x[i]} : x[i];
        if (v > m) m = v;
    }
    return m;
}
// Sum of the magnitudes of n samples.
inline Kvo32s sumAbs16(const Kvo16s* x, int n) {
    Kvo32s s = 0;
    for (int i = 0; i < n; ++i) s += x[i] < 0 ? -Kvo32s{x[i]} : x[i];
    return s;
}

// The adaptive vector at lag + fraction, built in place at e[0 .. len-1] from e[-lag - 10 ..]:
// 1/3 resolution (fraction -1..1, phase -2f) or 1/6 (fraction -2..3, phase -f), 61-point
// interpolation, saturating chain, rounded.  Later samples read those just written when the
// lag is shorter than len.
void predLT3or6(Kvo16s* e, int lag, int frac, int len, bool thirds);

}  // namespace kvo::amr
