// G.722 sub-band ADPCM coder (64, 56 and 48 kbit/s): the low-band 6-bit and
// high-band 2-bit adaptive quantizers, their inverse quantizers, the scale
// factor adaptation and the pole-zero predictors of each band (blocks QUANTL,
// QUANTH, INVQAL, INVQBL, INVQAH, LOGSCL, LOGSCH, SCALEL, SCALEH, UPZERO,
// UPPOL1, UPPOL2, FILTEZ, FILTEP of the Recommendation).
//
// Data: subband samples are 15-bit values in 16-bit words, interleaved (low,
// high); codes are IL (6 bits) and IH (2 bits) in the low bits of 16-bit
// words.  Scale factors DETL and DETH are Q0 multipliers of the Q12 inverse
// quantizer outputs; predictor coefficients are Q14 (poles) and Q15 (zeros).
//
// Arithmetic follows the fixed-point reference: the encoder saturates its
// differences EL, EH and the sums PLT, RLT, PH, RH exactly as the decoder does,
// so that both sides keep the same predictor on any input, even at full scale.
// The zero section adds its six products from the oldest tap to the newest,
// saturating at every addition.  Decoder modes 0 and 1 both decode 6-bit
// codes.  The stored delayed differences are 32-bit fields that hold 16-bit
// values; they are read back as 16-bit values.
#include <cstring>

#include "g72x/g722.h"
#include "g72x/g722_tables.h"
#include "impl.h"
#include "numeric/fixed.h"

namespace kvo {

namespace {

constexpr Kvo16s kMisih[2][3] = {{0, 1, 0}, {0, 3, 2}};
constexpr Kvo16s kIh2[4] = {2, 1, 2, 1};
constexpr Kvo16s kSih[4] = {-1, -1, 0, 0};
constexpr Kvo16s kOq2[3] = {0, 202, 926};
constexpr Kvo16s kWl[8] = {-60, -30, 58, 172, 334, 538, 1198, 3042};
constexpr Kvo16s kWh[3] = {0, -214, 798};

inline int clampi(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// One band's predictor and quantizer adaptation state, in registers.
struct Band {
    int a1, a2;
    int b[6];
    int d[6];  // d[0] is the newest delayed difference (DLT1 / DH1)
    int det, nb;
    int p, r, p1, p2, r1, r2;
    int d0, sz, sp, s;
};

// Blocks UPZERO, UPPOL2, UPPOL1, FILTEZ, FILTEP and the sum of the predictor
// outputs, after the quantized difference dq of the pair is known.
inline void adaptBand(Band& z, int dq) {
    z.d0 = dq;
    z.p = sat16(z.sz + dq);
    z.r = sat16(z.s + dq);

    // Zero predictor: leak, plus or minus 128 by the sign agreement with dq
    // (a zero counts as positive), nothing when dq is 0.
    const int step = dq != 0 ? 128 : 0;
    const int sg0 = dq >> 31;
    for (int i = 0; i < 6; ++i) {
        const int wd = ((z.d[i] >> 31) == sg0) ? step : -step;
        z.b[i] = ((z.b[i] * 32640) >> 15) + wd;
    }
    for (int i = 5; i > 0; --i) z.d[i] = z.d[i - 1];
    z.d[0] = dq;

    // Pole predictor, second coefficient first; the first is bounded by the new second.
    const bool same1 = (z.p ^ z.p1) >= 0;
    const bool same2 = (z.p ^ z.p2) >= 0;
    int w = clampi(z.a1 * 4, -32768, 32767);
    if (same1) w = (w == -32768) ? 32767 : -w;
    int a2 = (w >> 7) + (same2 ? 128 : -128) + ((z.a2 * 127) >> 7);
    a2 = clampi(lo16(a2), -12288, 12288);
    int a1 = lo16(((z.a1 * 32640) >> 15) + (same1 ? 192 : -192));
    const int lim = 15360 - a2;
    z.a1 = clampi(a1, -lim, lim);
    z.a2 = a2;
    z.p2 = z.p1;
    z.p1 = z.p;

    // Zero section output: oldest tap first, saturating each addition.
    int sz = 0;
    for (int i = 5; i >= 0; --i) sz = sat16(sz + ((z.d[i] * z.b[i]) >> 14));
    z.sz = sz;

    // Pole section output on the doubled reconstructed signal.
    z.r2 = z.r1;
    z.r1 = z.r;
    const int t1 = lo16((sat16(2 * z.r1) * z.a1) >> 15);
    const int t2 = lo16((sat16(2 * z.r2) * z.a2) >> 15);
    z.sp = sat16(t1 + t2);
    z.s = sat16(z.sp + z.sz);
}

// Block INVQAL and LOGSCL/SCALEL with the 4-bit index j of the low band:
// returns DLT0 (with the scale factor before adaptation) and adapts DETL.
inline int lowDifferenceAndScale(Band& L, int j) {
    const int m = tab::table_quant_ril4[j];
    const int q = tab::table_quant_risi4[j] ? -tab::table_quant_oq4[m] : tab::table_quant_oq4[m];
    const int dq = lo16((L.det * q) >> 12);
    L.nb = clampi(lo16(((L.nb * 127) >> 7) + kWl[m]), 0, 18432);
    L.det = tab::table_ila[(L.nb >> 6) + 64] * 4 + 4;
    return dq;
}

// Blocks INVQAH and LOGSCH/SCALEH with the 2-bit code ih of the high band.
inline int highDifferenceAndScale(Band& H, int ih) {
    const int m = kIh2[ih];
    const int q = kSih[ih] ? -kOq2[m] : kOq2[m];
    const int dq = lo16((H.det * q) >> 12);
    H.nb = clampi(lo16(((H.nb * 127) >> 7) + kWh[m]), 0, 22528);
    H.det = tab::table_ila[H.nb >> 6] * 4 + 4;
    return dq;
}

void loadBands(const KvoG722State* st, Band& L, Band& H) {
    L.a1 = st->al1;
    L.a2 = st->al2;
    H.a1 = st->ah1;
    H.a2 = st->ah2;
    for (int i = 0; i < 6; ++i) {
        L.b[i] = st->bl[i];
        H.b[i] = st->bh[i];
        L.d[i] = lo16(st->dlt[i]);
        H.d[i] = lo16(st->dh[i]);
    }
    L.det = st->detl;
    H.det = st->deth;
    L.nb = st->nbl;
    H.nb = st->nbh;
    L.p = st->plt;
    H.p = st->pht;
    L.r = st->rlt;
    H.r = st->rht;
    L.p1 = st->plt1;
    L.p2 = st->plt2;
    H.p1 = st->pht1;
    H.p2 = st->pht2;
    L.r1 = st->rlt1;
    L.r2 = st->rlt2;
    H.r1 = st->rht1;
    H.r2 = st->rht2;
    L.d0 = st->dlt0;
    H.d0 = st->dht0;
    L.sz = st->szl;
    H.sz = st->szh;
    L.sp = st->spl;
    H.sp = st->sph;
    L.s = st->sl;
    H.s = st->sh;
}

void storeBands(KvoG722State* st, const Band& L, const Band& H) {
    st->al1 = static_cast<Kvo16s>(L.a1);
    st->al2 = static_cast<Kvo16s>(L.a2);
    st->ah1 = static_cast<Kvo16s>(H.a1);
    st->ah2 = static_cast<Kvo16s>(H.a2);
    for (int i = 0; i < 6; ++i) {
        st->bl[i] = static_cast<Kvo16s>(L.b[i]);
        st->bh[i] = static_cast<Kvo16s>(H.b[i]);
        st->dlt[i] = L.d[i];
        st->dh[i] = H.d[i];
    }
    st->detl = static_cast<Kvo16s>(L.det);
    st->deth = static_cast<Kvo16s>(H.det);
    st->nbl = static_cast<Kvo16s>(L.nb);
    st->nbh = static_cast<Kvo16s>(H.nb);
    st->plt = static_cast<Kvo16s>(L.p);
    st->pht = static_cast<Kvo16s>(H.p);
    st->rlt = static_cast<Kvo16s>(L.r);
    st->rht = static_cast<Kvo16s>(H.r);
    st->plt1 = static_cast<Kvo16s>(L.p1);
    st->plt2 = static_cast<Kvo16s>(L.p2);
    st->pht1 = static_cast<Kvo16s>(H.p1);
    st->pht2 = static_cast<Kvo16s>(H.p2);
    st->rlt1 = static_cast<Kvo16s>(L.r1);
    st->rlt2 = static_cast<Kvo16s>(L.r2);
    st->rht1 = static_cast<Kvo16s>(H.r1);
    st->rht2 = static_cast<Kvo16s>(H.r2);
    st->dlt0 = static_cast<Kvo16s>(L.d0);
    st->dht0 = static_cast<Kvo16s>(H.d0);
    st->szl = static_cast<Kvo16s>(L.sz);
    st->szh = static_cast<Kvo16s>(H.sz);
    st->spl = static_cast<Kvo16s>(L.sp);
    st->sph = static_cast<Kvo16s>(H.sp);
    st->sl = static_cast<Kvo16s>(L.s);
    st->sh = static_cast<Kvo16s>(H.s);
}

// Signed inverse quantizer output of the low-band code for the decoder's output.
inline int lowOutputLevel(int il, int bits) {
    if (bits == 6)
        return tab::table_quant_risi6[il] ? -tab::table_quant_oq6[tab::table_quant_ril6[il]]
                                          : tab::table_quant_oq6[tab::table_quant_ril6[il]];
    if (bits == 5) {
        const int c = il >> 1;
        return tab::table_quant_risi5[c] ? -tab::table_quant_oq5[tab::table_quant_ril5[c]]
                                         : tab::table_quant_oq5[tab::table_quant_ril5[c]];
    }
    const int c = il >> 2;
    return tab::table_quant_risi4[c] ? -tab::table_quant_oq4[tab::table_quant_ril4[c]]
                                     : tab::table_quant_oq4[tab::table_quant_ril4[c]];
}

template <int Bits>
void decodePairs(const Kvo16s* src, Kvo16s* dst, int pairs, Band& L, Band& H) {
    for (int n = 0; n < pairs; ++n) {
        const int il = src[2 * n] & 63;
        const int ih = src[2 * n + 1] & 3;
        const int yl = L.s + ((L.det * lowOutputLevel(il, Bits)) >> 12);
        adaptBand(L, lowDifferenceAndScale(L, il >> 2));
        adaptBand(H, highDifferenceAndScale(H, ih));
        dst[2 * n] = static_cast<Kvo16s>(clampi(yl, -16384, 16383));
        dst[2 * n + 1] = static_cast<Kvo16s>(clampi(H.r, -16384, 16383));
    }
}

}  // namespace

void g722StateInit(KvoG722State* st) {
    std::memset(st, 0, sizeof(*st));
    st->detl = 32;
    st->deth = 8;
}

int g722QuantL(int el, int detl) {
    const int neg = el < 0;
    const int mag = neg ? -1 - el : el;
    // The decision levels rise with k: count those at or below the magnitude
    // among levels 0..29 (level 0 always counts), by halving steps.
    int k = 0;
    for (int step = 16; step > 0; step >>= 1) {
        const int j = k + step;
        if (j <= 29 && ((tab::table_quant_q6[j] * detl) >> 12) <= mag) k = j;
    }
    return tab::table_misil[1 - neg][k + 1];
}

int g722QuantH(int eh, int deth) {
    const int neg = eh < 0;
    const int mag = neg ? -1 - eh : eh;
    const int pos = mag < ((564 * deth) >> 12) ? 1 : 2;
    return kMisih[1 - neg][pos];
}

namespace impl {

KvoStatus kvosSBADPCMEncodeStateSize_G722_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = kG722StateBytes;
    return kvoOk;
}

KvoStatus kvosSBADPCMDecodeStateSize_G722_16s(Kvo32s* pSize) {
    if (!pSize) return kvoErrNullPtr;
    *pSize = kG722StateBytes;
    return kvoOk;
}

KvoStatus kvosSBADPCMEncodeInit_G722_16s(Kvo8u* pMem) {
    if (!pMem) return kvoErrNullPtr;
    g722StateInit(g722State(pMem));
    return kvoOk;
}

KvoStatus kvosSBADPCMDecodeInit_G722_16s(Kvo8u* pMem) {
    if (!pMem) return kvoErrNullPtr;
    g722StateInit(g722State(pMem));
    return kvoOk;
}

KvoStatus kvosSBADPCMEncode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo8u* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1 || (len & 1)) return kvoErrSize;
    KvoG722State* st = g722State(pMem);
    Band L, H;
    loadBands(st, L, H);
    const int pairs = len / 2;
    for (int n = 0; n < pairs; ++n) {
        const int il = g722QuantL(sat16(pSrc[2 * n] - L.s), L.det);
        const int ih = g722QuantH(sat16(pSrc[2 * n + 1] - H.s), H.det);
        pDst[2 * n] = static_cast<Kvo16s>(il);
        pDst[2 * n + 1] = static_cast<Kvo16s>(ih);
        adaptBand(L, lowDifferenceAndScale(L, il >> 2));
        adaptBand(H, highDifferenceAndScale(H, ih));
    }
    storeBands(st, L, H);
    return kvoOk;
}

KvoStatus kvosSBADPCMDecode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s mode,
                                     Kvo8u* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1 || (len & 1)) return kvoErrSize;
    KvoG722State* st = g722State(pMem);
    Band L, H;
    loadBands(st, L, H);
    const int m = static_cast<Kvo16s>(mode);
    const int pairs = len / 2;
    if (m == 0 || m == 1)
        decodePairs<6>(pSrc, pDst, pairs, L, H);
    else if (m == 2)
        decodePairs<5>(pSrc, pDst, pairs, L, H);
    else
        decodePairs<4>(pSrc, pDst, pairs, L, H);
    storeBands(st, L, H);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
