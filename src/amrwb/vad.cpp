// AMR-WB voice activity detector (3GPP TS 26.194 fixed point): the 12-band form of the
// sub-band detector of AMR.  Per 256-sample frame at 12.8 kHz: frame power, a five-stage
// filter bank of 5th- and 3rd-order all-pass sections (every section halves its outputs),
// band levels with the carry into the next frame, per-band energies normalised by the band
// widths, an SNR sum against the background estimates, a threshold adapted from the noise
// and speech levels in the log domain, the noise-estimate update, the hangover decision and
// the running speech-level estimate.  Levels are 16-bit magnitudes; all basic operations
// saturate as in the published fixed-point detector.
#include <cstring>

#include "impl.h"
#include "numeric/fixed.h"
#include "numeric/vector.h"

namespace kvo {
namespace {

constexpr int kBands = 12, kFrame = 256;
constexpr Kvo16s kC5a = 21955, kC5b = 6390, kC3 = 13363;
constexpr Kvo16s kBwInv[kBands] = {20972, 20972, 20972, 20972, 10486, 10486,
                                   10486, 10486, 5243,  5243,  5243,  2621};

// 5th-order section on a pair, both outputs halved.
inline void section5(Kvo16s& a, Kvo16s& b, Kvo16s* d) {
    Kvo16s s = sub16(a, mult16(kC5a, d[0]));
    const Kvo16s u = add16(d[0], mult16(kC5a, s));
    d[0] = s;
    s = add16(b, -Kvo32s{mult16(kC5b, d[1])});
    const Kvo16s v = add16(d[1], mult16(kC5b, s));
    d[1] = s;
    a = static_cast<Kvo16s>((Kvo32s{u} + v) >> 1);
    b = static_cast<Kvo16s>((Kvo32s{u} - v) >> 1);
}

// 3rd-order section on a pair, both outputs halved.
inline void section3(Kvo16s& a, Kvo16s& b, Kvo16s& d) {
    const Kvo16s s = add16(b, -Kvo32s{mult16(kC3, d)});
    const Kvo16s u = add16(d, mult16(kC3, s));
    d = s;
    b = static_cast<Kvo16s>((Kvo32s{a} - u) >> 1);
    a = static_cast<Kvo16s>((Kvo32s{a} + u) >> 1);
}

struct BandRow {
    int count1, count2, stride, offset, scale;
};
constexpr BandRow kBandRows[kBands] = {  // by band 0 .. 11
    {2, 8, 32, 0, 17},   {2, 8, 32, 16, 17}, {2, 8, 32, 24, 17}, {2, 8, 32, 8, 17},
    {4, 16, 16, 12, 16}, {4, 16, 16, 4, 16}, {4, 16, 16, 6, 16}, {4, 16, 16, 14, 16},
    {8, 32, 8, 2, 15},   {8, 32, 8, 3, 15},  {8, 32, 8, 7, 15},  {16, 64, 4, 1, 14}};

// Band level with the part that belongs to the next frame carried over, and the band energy.
Kvo16s band_level(const Kvo16s* w, const BandRow& r, Kvo16s& carry, Kvo16s w_inv, Kvo16s& energy) {
    Kvo32s next = 0;
    for (int i = r.count1; i < r.count2; ++i)
        next = Add_32s(next, 2 * Kvo32s{Abs_16s(w[r.stride * i + r.offset])});
    Kvo32s total = Add_32s(next, shl32(carry, 16 - r.scale));
    carry = hi(shl32(next, r.scale));
    Kvo32s now = 0;
    for (int i = 0; i < r.count1; ++i)
        now = Add_32s(now, 2 * Kvo32s{Abs_16s(w[r.stride * i + r.offset])});
    total = Add_32s(total, now);
    const Kvo32s t = shl32(now, r.scale - 4);
    const Kvo32s p = (t >> 16) * Kvo32s{w_inv} + ((Kvo32s{w_inv} * ((t >> 1) & 0x7fff)) >> 15);
    energy = static_cast<Kvo16s>(sat32(8 * Kvo64s{p}) >> 16);
    return hi(shl32(total, r.scale));
}

void filter_bank(const Kvo16s* src, KvoVADState_AMRWB& st, Kvo16s level[kBands]) {
    Kvo16s x[kFrame];
    for (int i = 0; i < kFrame; ++i) x[i] = static_cast<Kvo16s>(src[i] >> 1);
    Kvo16s* m5 = st.mem5;
    Kvo16s* m3 = st.mem3;
    for (int i = 0; i < 128; ++i) section5(x[2 * i], x[2 * i + 1], m5);
    for (int i = 0; i < 64; ++i) {
        section5(x[4 * i], x[4 * i + 2], m5 + 2);
        section5(x[4 * i + 1], x[4 * i + 3], m5 + 4);
    }
    for (int i = 0; i < 32; ++i) {
        section5(x[8 * i], x[8 * i + 4], m5 + 6);
        section5(x[8 * i + 2], x[8 * i + 6], m5 + 8);
        section3(x[8 * i + 3], x[8 * i + 7], m3[0]);
    }
    for (int i = 0; i < 16; ++i) {
        section3(x[16 * i], x[16 * i + 8], m3[1]);
        section3(x[16 * i + 4], x[16 * i + 12], m3[2]);
        section3(x[16 * i + 6], x[16 * i + 14], m3[3]);
    }
    for (int i = 0; i < 8; ++i) {
        section3(x[32 * i], x[32 * i + 16], m3[4]);
        section3(x[32 * i + 8], x[32 * i + 24], m3[5]);
    }
    for (int b = kBands - 1; b >= 0; --b)
        level[b] = band_level(x, kBandRows[b], st.subLevel[b], kBwInv[b], st.bandEnergy[b]);
}

// A fixed-point log of a level (x >= 1), as the threshold adaptation uses it.
Kvo16s ilog(Kvo16s x) {
    if (x < 1) x = 1;
    const int n = norm16(x);
    Kvo32s y = Kvo32s{x} << n;
    for (int k = 0; k < 3; ++k) y = (y * y) >> 15;
    Kvo32s l = y * y;
    const int m = norm32(l);
    l <<= m;
    const Kvo16s a = add16(lo16(Kvo32s{n + 16} << 10), lo16(Kvo32s{m - 1} * 64));
    return lo16(Kvo32s{add16(a, 127)} - (l >> 24));
}

// Background noise estimate, average level and stationarity count.
void noise_update(KvoVADState_AMRWB& st, const Kvo16s level[kBands], Kvo16s tone) {
    const Kvo16s reg = st.vadReg;
    if ((tone & 0x7c00) == 0x7c00 || (reg & 0x7f80) == 0) {
        st.statCount = 20;
    } else {
        Kvo32s sum = 0;
        for (int b = 0; b < kBands; ++b) {
            Kvo16s hiL = level[b] > st.aveLevel[b] ? level[b] : st.aveLevel[b];
            Kvo16s loL = level[b] > st.aveLevel[b] ? st.aveLevel[b] : level[b];
            if (hiL < 184) hiL = 184;
            if (loL < 184) loL = 184;
            const int n = norm16(loL);
            const Kvo16s r = lo16((Kvo32s{hiL & ~1} << 14) / (Kvo32s{loL} << n));
            sum = Add_32s(sum, shl32(r, n - 8));
        }
        if (sum > 1000)
            st.statCount = 20;
        else if ((reg & 0x4000) && st.statCount != 0)
            --st.statCount;
    }
    const Kvo16s alpha = st.statCount == 20 ? 32767 : ((reg & 0x4000) == 0 ? 16383 : 3276);
    for (int b = 0; b < kBands; ++b)
        st.aveLevel[b] =
            add16(st.aveLevel[b], multR16(add16(level[b], -Kvo32s{st.aveLevel[b]}), alpha));
    Kvo16s up, down, add;
    if ((reg & 0x7800) == 0) {
        up = 1638, down = 2097, add = 2;
    } else if (st.statCount == 0) {
        up = 491, down = 1867, add = 2;
    } else {
        up = 0, down = 1638, add = 0;
    }
    for (int b = 0; b < kBands; ++b) {
        const Kvo16s e = add16(st.oldLevel[b], -Kvo32s{st.bckrEst[b]});
        Kvo16s v = e < 0 ? add16(add16(st.bckrEst[b], multR16(down, e)), -2)
                         : add16(add16(st.bckrEst[b], multR16(up, e)), add);
        st.bckrEst[b] = v < 40 ? Kvo16s{40} : (v > 20000 ? Kvo16s{20000} : v);
    }
    std::memcpy(st.oldLevel, level, sizeof st.oldLevel);
}

}  // namespace

namespace impl {

KvoStatus kvosVADGetSize_AMRWB_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoVADState_AMRWB));
    return kvoOk;
}

KvoStatus kvosVADInit_AMRWB_16s(KvoVADState_AMRWB* pState) {
    if (!pState) return kvoErrNullPtr;
    std::memset(pState, 0, sizeof *pState);
    for (int b = 0; b < kBands; ++b)
        pState->bckrEst[b] = pState->aveLevel[b] = pState->oldLevel[b] = 150;
    pState->speechLevel = 2050;
    return kvoOk;
}

KvoStatus kvosVADGetEnergyLevel_AMRWB_16s(const KvoVADState_AMRWB* pState, Kvo16s* pDst) {
    if (!pState || !pDst) return kvoErrNullPtr;
    std::memcpy(pDst, pState->bandEnergy, sizeof pState->bandEnergy);
    return kvoOk;
}

KvoStatus kvosVAD_AMRWB_16s(const Kvo16s* pSrc, KvoVADState_AMRWB* pState, Kvo16s* pToneRegister,
                            Kvo16s* pVadFlag) {
    if (!pSrc || !pState || !pToneRegister || !pVadFlag) return kvoErrNullPtr;
    KvoVADState_AMRWB& st = *pState;
    // 1. Frame power over this frame and the last.
    Kvo32s p = 0;
    kvosDotProd_16s32s_Sfs(pSrc, pSrc, kFrame, &p, -1);
    const Kvo32s power = Add_32s(p, st.prevPower);
    st.prevPower = p;
    if (power < 686080) *pToneRegister = static_cast<Kvo16s>(*pToneRegister & 0x1fff);
    // 2-3. Band levels.
    Kvo16s level[kBands];
    filter_bank(pSrc, st, level);
    // 4. SNR sum against the background.
    Kvo32s snr = 0;
    for (int b = 0; b < kBands; ++b) {
        const int n = norm16(st.bckrEst[b]);
        const Kvo32s den = Kvo32s{st.bckrEst[b]} << n;
        Kvo16s r = den > 0 ? lo16((Kvo32s{level[b] & ~1} << 14) / den) : Kvo16s{32767};
        r = n <= 6 ? static_cast<Kvo16s>(r >> (6 - n)) : shl16(r, n - 6);
        snr = Add_32s(snr, 2 * Kvo32s{r} * r);
    }
    // 5-6. Threshold from the noise and speech levels.
    Kvo32s bsum = 0;
    for (int b = 1; b < kBands; ++b) bsum += st.bckrEst[b];
    const Kvo16s noise = lo16(bsum >> 4);
    const Kvo16s floor = static_cast<Kvo16s>(noise & ~7);
    if (st.speechLevel < floor) st.speechLevel = floor;
    const Kvo16s a = lo16(Kvo32s{ilog(noise)} - 31744);
    const Kvo16s diff = lo16(Kvo32s{st.speechLevel} - floor);
    const Kvo16s b = lo16(Kvo32s{ilog(diff > 0 ? diff : Kvo16s{1})} - 22527);
    Kvo32s u = ((Kvo32s{b} * -1339) >> 15) - 96;
    u = u < -96 ? -96 : (u > 96 ? 96 : u);
    Kvo16s thr = lo16(u + ((Kvo32s{a} * 1509) >> 15) + 768);
    if (thr < 204) thr = 204;
    // 7. Primary decision.
    st.vadReg = static_cast<Kvo16s>(st.vadReg >> 1);
    if (snr > 12288 * Kvo32s{thr}) st.vadReg = static_cast<Kvo16s>(st.vadReg | 0x4000);
    // 8. Noise estimate.
    noise_update(st, level, *pToneRegister);
    // 9. Hangover.
    Kvo16s flag;
    if (power < 30000) {
        st.burstCount = st.hangCount = 0;
        flag = 0;
    } else if (st.vadReg & 0x4000) {
        st.burstCount = add16(st.burstCount, 1);
        if (st.burstCount >= ((Kvo32s{thr} - 768) * 297 >> 15) + 8) {
            const Kvo32s h = (((Kvo32s{thr} - 217) * -1110) >> 15) + 12;
            st.hangCount = static_cast<Kvo16s>(h < 2 ? 2 : h);
        }
        flag = 1;
    } else {
        st.burstCount = 0;
        flag = st.hangCount > 0 ? 1 : 0;
        if (st.hangCount > 0) --st.hangCount;
    }
    *pVadFlag = flag;
    // 10. Running speech-level estimate.
    Kvo32s lsum = 0;
    for (int bnd = 1; bnd < kBands; ++bnd) lsum += level[bnd];
    const Kvo16s v = hi(ShiftLSat_32s(lsum, 12));
    if (st.spEstCnt - st.spMaxCnt > 55) st.spEstCnt = st.spMaxCnt = st.spMax = 0;
    ++st.spEstCnt;
    if ((!(st.vadReg & 0x4000) && v <= st.speechLevel) || v <= 129) return kvoOk;
    ++st.spMaxCnt;
    if (v > st.spMax) st.spMax = v;
    if (st.spMaxCnt < 25) return kvoOk;
    const Kvo16s m = static_cast<Kvo16s>(st.spMax >> 1);
    if (m >= 411)
        st.speechLevel = add16(st.speechLevel, multR16(add16(m, -Kvo32s{st.speechLevel}), 4915));
    st.spEstCnt = st.spMaxCnt = st.spMax = 0;
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
