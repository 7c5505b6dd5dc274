// G.728 backward adaptation in block floating point: the recursive hybrid
// window (Barnwell window: a recursive section with a decaying memory and a
// non-recursive section of the newest samples) and the Levinson-Durbin
// recursion of order up to 50.
//
// Data: samples are Kvo16s (plain, or with one exponent per block of 5 in the
// block form); the window is Q15; the recursive memory is a 16-bit vector
// with one shared exponent E (its real value is m * 2^(16 - E)).  The
// autocorrelation leaves normalised (no scale reported).  The recursion keeps
// coefficients in Q15 and halves them all when a partial result leaves 32
// bits, reporting the fraction bits (13 to 15).
//
// Deliberate behaviour: shifted values saturate to 32 bits before rounding;
// the exponent cap at 41 applies only to a state with decay one half (the
// weighting-filter analysis); the Levinson inner sum is formed exactly and
// a sum beyond 32 bits stops the recursion.  Init refuses sizes that the
// fixed scratch bounds cannot hold (order above 50, or M + L + N above 105).
#include <cstring>

#include "frame/impl.h"
#include "g728/g728.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr int kMaxLen = 105;  // longest signal buffer: the order-50 analysis
constexpr int kMaxLag = 52;

KvoG728WinHybridState* align_state(Kvo8u* p) {
    auto a = reinterpret_cast<uintptr_t>(p);
    return reinterpret_cast<KvoG728WinHybridState*>(p + ((0 - a) & 15u));
}

// Saturating left shift of a 32-bit value (0 <= n <= 31).
Kvo32s shl_sat(Kvo32s x, int n) {
    return sat32(Kvo64s{x} << n);
}

// Arithmetic right shift by n, n capped at 31.
Kvo32s shr_cap(Kvo32s x, int n) {
    return x >> (n > 31 ? 31 : n);
}

void autocorr(const Kvo16s* ws, int start, int count, int lags, Kvo32s* r) {
    for (int k = 0; k <= lags; ++k) {
        Kvo64s acc = 0;
        for (int i = 0; i < count; ++i) acc += Kvo32s{ws[start + i]} * ws[start + i - k];
        r[k] = sat32(acc);
    }
}

// Steps shared by both forms once the windowed buffer ws and nls are known.
KvoStatus merge_and_output(KvoG728WinHybridState* st, const Kvo16s* ws, int nls, int shortLags,
                           Kvo16s* pDst, bool cap) {
    const int M = st->order, L = st->frameLen;
    Kvo16s* m = st->pArrays;
    Kvo16s& E = m[M + 1];
    Kvo32s r[kMaxLag], t[kMaxLag], u[kMaxLag];

    // Recursive section: the L samples leaving the non-recursive part.
    autocorr(ws, M, L, M, r);
    const int P = 2 * nls;
    int a = 1, b = 1;
    if (E > P)
        b = E - P + 1;
    else if (E < P)
        a = P - E + 1;
    if (a > 31) a = 31;
    if (b > 31) b = 31;
    for (int k = 0; k <= M; ++k) {
        Kvo64s dec = (Kvo64s{m[k]} << 16) - (Kvo64s{m[k]} << st->decayShift);
        t[k] = sat32(Kvo64s{r[k] >> a} + (lo32(dec) >> b));
    }
    int sh = g728_norm30(&t[0]);
    E = static_cast<Kvo16s>(sh + (E < P ? E : P) - 1);
    m[0] = g728_round16(t[0]);
    for (int k = 1; k <= M; ++k) m[k] = g728_round16(shl_sat(t[k], sh));

    // Non-recursive section: the N newest samples.
    const int Q = shortLags == 1 ? (M < 10 ? M : 10) : M;
    autocorr(ws, M + L, st->nonRecLen, Q, r);
    for (int k = 0; k <= Q; ++k) {
        Kvo64s v;
        if (E <= P)
            v = Kvo64s{shr_cap(r[k], P - E + 1)} + (Kvo64s{m[k]} << 15);
        else if (E <= P + 15)
            v = Kvo64s{r[k] >> 1} + (Kvo64s{m[k]} << (P - E + 15));
        else
            v = Kvo64s{r[k] >> 1} + shr_cap(m[k], E - P - 15);
        u[k] = sat32(v);
    }
    // White noise correction, 257/256.
    Kvo32s u0 = sat32(Kvo64s{u[0]} + (u[0] >> 8));
    int sh2 = g728_norm30(&u0);
    pDst[0] = g728_round16(u0);
    for (int k = 1; k <= Q; ++k) pDst[k] = g728_round16(shl_sat(u[k], sh2));
    if (cap && E > 41) E = 41;
    return u[Q] == 0 ? kvoWarnZeroEnergy : kvoOk;
}

}  // namespace

int g728_norm30(Kvo32s* x) {
    Kvo32s v = *x;
    if (v == 0) return 31;
    int n = 0;
    if (v > 0) {
        while (v < 0x40000000) {
            v = static_cast<Kvo32s>(static_cast<Kvo32u>(v) << 1);
            ++n;
        }
    } else {
        while (v >= -0x40000000) {
            v = static_cast<Kvo32s>(static_cast<Kvo32u>(v) << 1);
            ++n;
        }
    }
    *x = v;
    return n;
}

}  // namespace kvo

namespace kvo::impl {

KvoStatus kvosWinHybridGetStateSize_G728_16s(Kvo32s order, Kvo32s frameLen, Kvo32s nonRecLen,
                                             Kvo32s blockLen, Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    if (order < 1 || frameLen < 1 || nonRecLen < 1) return kvoErrSize;
    Kvo64s n = 32 + 2 * (Kvo64s{2} * order + frameLen + nonRecLen + 2) + 16;
    if (blockLen > 0) n += 2 * ((Kvo64s{order} + frameLen + nonRecLen) / blockLen);
    if (n > INT32_MAX) return kvoErrSize;
    *pSize = static_cast<Kvo32s>(n);
    return kvoOk;
}

KvoStatus kvosWinHybridInit_G728_16s(const Kvo16s* pWindow, Kvo32s order, Kvo32s frameLen,
                                     Kvo32s nonRecLen, Kvo32s blockLen, Kvo32s decay,
                                     Kvo8u* pState) {
    if (!pWindow || !pState) return kvoErrNullPtr;
    if (order < 1 || frameLen < 1 || nonRecLen < 1 || order > 50 ||
        Kvo64s{order} + frameLen + nonRecLen > kMaxLen)
        return kvoErrSize;
    KvoG728WinHybridState* st = align_state(pState);
    const int T = order + frameLen + nonRecLen;
    st->pWindow = pWindow;
    st->order = static_cast<Kvo16s>(order);
    st->frameLen = static_cast<Kvo16s>(frameLen);
    st->nonRecLen = static_cast<Kvo16s>(nonRecLen);
    st->blocksPerCall = static_cast<Kvo16s>(blockLen > 0 ? frameLen / blockLen : 0);
    st->blocksKept = static_cast<Kvo16s>(blockLen > 0 ? (order + nonRecLen) / blockLen : 0);
    st->blocksTotal = static_cast<Kvo16s>(blockLen > 0 ? T / blockLen : 0);
    if (decay == 12288)
        st->decayShift = 14;
    else if (decay == 8192)
        st->decayShift = 15;
    st->reserved = 0;
    st->pArrays = reinterpret_cast<Kvo16s*>(reinterpret_cast<Kvo8u*>(st) + 32);
    Kvo16s* a = st->pArrays;
    std::memset(a, 0, sizeof(Kvo16s) * (order + 1));
    a[order + 1] = 31;
    std::memset(a + order + 2, 0, sizeof(Kvo16s) * T);
    for (int i = 0; i < st->blocksTotal; ++i) a[order + 2 + T + i] = 16;
    return kvoOk;
}

KvoStatus kvosWinHybrid_G728_16s(Kvo32s shortLags, const Kvo16s* pSrc, Kvo16s* pDst,
                                 Kvo8u* pState) {
    if (!pSrc || !pDst || !pState) return kvoErrNullPtr;
    KvoG728WinHybridState* st = align_state(pState);
    const int M = st->order, L = st->frameLen, N = st->nonRecLen, T = M + L + N;
    Kvo16s* x = st->pArrays + M + 2;
    std::memmove(x, x + L, sizeof(Kvo16s) * (M + N));
    std::memcpy(x + M + N, pSrc, sizeof(Kvo16s) * L);

    // Block exponent of the whole buffer, one bit of head room kept.
    Kvo16s mx = x[0], mn = x[0];
    for (int j = 1; j < T; ++j) {
        if (x[j] > mx) mx = x[j];
        if (x[j] < mn) mn = x[j];
    }
    int c = 0;
    if (mx == 0 && mn == 0) {
        c = 15;
    } else if (mx >= 0 && mn >= -mx) {
        for (Kvo32s v = mx; v < 16384; v <<= 1) ++c;
    } else {
        for (Kvo32s v = mn; v >= -16384; v <<= 1) ++c;
    }
    const int nls = c - 1;
    Kvo16s ws[kMaxLen];
    const Kvo16s* w = st->pWindow;
    for (int j = 0; j < T; ++j) {
        Kvo32s p = Kvo32s{x[j]} * w[T - 1 - j];
        if (nls >= 1)
            ws[j] = g728_round16(shl_sat(p, nls));
        else
            ws[j] = static_cast<Kvo16s>(((p >> -nls) + 32768) >> 16);
    }
    return merge_and_output(st, ws, nls, shortLags, pDst, st->decayShift == 15);
}

KvoStatus kvosWinHybridBlock_G728_16s(Kvo32s shortLags, const Kvo16s* pSrc, const Kvo16s* pExp,
                                      Kvo16s* pDst, Kvo8u* pState) {
    if (!pSrc || !pExp || !pDst || !pState) return kvoErrNullPtr;
    KvoG728WinHybridState* st = align_state(pState);
    const int M = st->order, L = st->frameLen, N = st->nonRecLen, T = M + L + N;
    Kvo16s* x = st->pArrays + M + 2;
    Kvo16s* be = x + T;
    const int nb = st->blocksTotal, per = st->blocksPerCall, kept = st->blocksKept;
    std::memmove(x, x + L, sizeof(Kvo16s) * (M + N));
    std::memcpy(x + M + N, pSrc, sizeof(Kvo16s) * L);
    if (nb > 0) {
        std::memmove(be, be + per, sizeof(Kvo16s) * kept);
        std::memcpy(be + kept, pExp, sizeof(Kvo16s) * per);
    }
    int emin = nb > 0 ? be[0] : 0;
    for (int b = 1; b < nb; ++b)
        if (be[b] < emin) emin = be[b];
    Kvo16s ws[kMaxLen];
    const Kvo16s* w = st->pWindow;
    for (int j = 0; j < T; ++j) {
        const int b = j / 5;
        int d = (b < nb ? be[b] : emin) - emin - 1;
        Kvo32s p = Kvo32s{x[j]} * w[T - 1 - j];
        if (d > 0)
            ws[j] = static_cast<Kvo16s>(((p >> (d > 31 ? 31 : d)) + 32768) >> 16);
        else
            ws[j] = g728_round16(shl_sat(p, -d));
    }
    return merge_and_output(st, ws, emin, shortLags, pDst, false);
}

namespace {

// Status of a stop in the recursion at stage c (steps 3 and 5).
KvoStatus stage_stop(int c) {
    return c < 12 ? kvoErrFilterUnstable : kvoWarnOverflow;
}

}  // namespace

KvoStatus kvosLevinsonDurbin_G728_16s_ISfs(const Kvo16s* pSrc, Kvo32s startOrder, Kvo32s endOrder,
                                           Kvo16s* pSrcDstLPC, Kvo16s* pResidual, Kvo16s* pScale) {
    if (!pSrc || !pSrcDstLPC || !pResidual || !pScale) return kvoErrNullPtr;
    if (startOrder < 0 || endOrder < startOrder) return kvoErrRange;
    if (static_cast<Kvo16u>(*pScale) > 15) return kvoErrScaleRange;
    if (startOrder == 0) {
        Kvo16s rc;
        return kvo::impl::kvosLevinsonDurbin_G728_16s_Sfs(pSrc, endOrder, pSrcDstLPC, &rc,
                                                          pResidual, pScale);
    }
    Kvo16s* a = pSrcDstLPC;
    const Kvo16s* R = pSrc;
    Kvo32s alpha = *pResidual;
    int v = 15 - *pScale;
    for (int m = startOrder; m < endOrder; ++m) {
        const int c = m + 1;
        Kvo64s s = 0;
        for (int i = 0; i < m; ++i) s += Kvo32s{a[i]} * R[m - i];
        if (s != sat32(s)) return stage_stop(c);
        Kvo64s d = Kvo64s{shl_sat(static_cast<Kvo32s>(s), v + 1)} + (Kvo64s{R[m + 1]} << 16);
        Kvo16s g;
        if (d < INT32_MIN)
            g = -32768;
        else if (d > INT32_MAX)
            g = 32767;
        else
            g = g728_round16(static_cast<Kvo32s>(d));
        Kvo32s ag = g == -32768 ? 32767 : (g < 0 ? -g : g);
        if (ag >= alpha) return stage_stop(c);
        Kvo32s q = static_cast<Kvo32s>((Kvo64s{ag} << 16) / alpha);
        Kvo32s kq = q << 15;
        Kvo16s kk = g728_round16(kq);
        Kvo16s k = g > 0 ? static_cast<Kvo16s>(-kk) : kk;
        Kvo64s A = (Kvo64s{alpha} << 16) + 2 * Kvo64s{g} * k;
        if (A < INT32_MIN || A < 1) return stage_stop(c);
        alpha = A > INT32_MAX ? 32767 : g728_round16(static_cast<Kvo32s>(A));
        for (int i = 0; i < (m + 1) / 2; ++i) {
            const int j = m - 1 - i;
            auto upd = [&](int p, int o) { return (Kvo64s{a[p]} << 16) + 2 * Kvo64s{k} * a[o]; };
            auto halve = [&]() {
                for (int n = 0; n < m; ++n) a[n] = static_cast<Kvo16s>(a[n] >> 1);
                ++v;
            };
            Kvo64s U = upd(i, j);
            if (U != sat32(U)) {
                halve();
                U = sat32(upd(i, j));
            }
            Kvo64s W = upd(j, i);
            if (W != sat32(W)) {
                halve();
                U = sat32(upd(i, j));
                W = sat32(upd(j, i));
            }
            a[i] = g728_round16(static_cast<Kvo32s>(U));
            a[j] = g728_round16(static_cast<Kvo32s>(W));
        }
        Kvo16s am = g728_round16(kq >> (v > 31 ? 31 : v));
        a[m] = g > 0 ? static_cast<Kvo16s>(-am) : am;
    }
    *pScale = static_cast<Kvo16s>(15 - v);
    if (15 - v < 13) return endOrder + 1 < 11 ? kvoErrFilterUnstable : kvoWarnOverflow;
    *pResidual = static_cast<Kvo16s>(alpha);
    return kvoOk;
}

KvoStatus kvosLevinsonDurbin_G728_16s_Sfs(const Kvo16s* pSrc, Kvo32s order, Kvo16s* pDstLPC,
                                          Kvo16s* pDstRC, Kvo16s* pResidual, Kvo16s* pScale) {
    if (!pSrc || !pDstLPC || !pDstRC || !pResidual || !pScale) return kvoErrNullPtr;
    if (order < 0) return kvoErrRange;
    if (pSrc[0] < 1) return kvoErrRange;
    *pScale = 15;
    const Kvo32s r1 = pSrc[1];
    const Kvo32s ar1 = r1 < 0 ? -r1 : r1;
    const Kvo64s q = (Kvo64s{ar1} << 16) / pSrc[0];
    Kvo16s kk = q >= 65536 ? 32767 : g728_round16(static_cast<Kvo32s>(q << 15));
    Kvo16s k = r1 > 0 ? static_cast<Kvo16s>(-kk) : kk;
    pDstRC[0] = k;
    pDstLPC[0] = k;
    Kvo32s A = sat32((Kvo64s{pSrc[0]} << 16) + 2 * Kvo64s{r1} * k);
    *pResidual = g728_round16(A);
    return kvo::impl::kvosLevinsonDurbin_G728_16s_ISfs(pSrc, 1, order, pDstLPC, pResidual, pScale);
}

}  // namespace kvo::impl
