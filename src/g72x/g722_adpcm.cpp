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
#include <emmintrin.h>

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

// Magnitude with the sign of a table entry that holds -1 (negative) or 0,
// without a branch on the data.
inline int withSign(int mag, int sign) { return (mag ^ sign) - sign; }


// One band's predictor and quantizer adaptation state, in registers.
// The six zero-predictor coefficients and delayed differences sit in lanes
// 0..5 of two 16-bit vectors, lane 0 the newest (BL1, DLT1); lanes 6 and 7 of
// the coefficients stay 0, those of the differences are don't-care.
struct Band {
    int a1, a2;
    __m128i b;
    __m128i d;
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

    // Zero predictor: leak (b * 32640) >> 15, plus or minus 128 by the sign
    // agreement of dq with each delayed difference (a zero counts as
    // positive), nothing when dq is 0.  The delay line then takes dq.
    const __m128i dqv = _mm_set1_epi16(static_cast<short>(dq));
    const __m128i differ = _mm_srai_epi16(_mm_xor_si128(z.d, dqv), 15);
    __m128i wd = _mm_sub_epi16(_mm_xor_si128(_mm_set1_epi16(128), differ), differ);
    wd = _mm_andnot_si128(_mm_cmpeq_epi16(dqv, _mm_setzero_si128()), wd);
    wd = _mm_and_si128(wd, _mm_set_epi16(0, 0, -1, -1, -1, -1, -1, -1));
    const __m128i k = _mm_set1_epi16(32640);
    const __m128i leak = _mm_or_si128(_mm_slli_epi16(_mm_mulhi_epi16(z.b, k), 1),
                                      _mm_srli_epi16(_mm_mullo_epi16(z.b, k), 15));
    z.b = _mm_add_epi16(leak, wd);
    z.d = _mm_insert_epi16(_mm_slli_si128(z.d, 2), dq, 0);

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

    // Zero section output: the products (d * b) >> 14 added from the oldest
    // tap to the newest, saturating each addition.  The plain running sums
    // give the same result when none leaves the 16-bit range, which is the
    // rule; otherwise the saturating chain is redone.
    const __m128i plo = _mm_mullo_epi16(z.d, z.b), phi = _mm_mulhi_epi16(z.d, z.b);
    const __m128i t14 = _mm_srai_epi32(_mm_unpacklo_epi16(plo, phi), 14);  // taps 1..4
    const __m128i t58 = _mm_srai_epi32(_mm_unpackhi_epi16(plo, phi), 14);  // taps 5..8
    const __m128i s56 = _mm_add_epi32(t58, _mm_srli_si128(t58, 4));         // P5, P6, 0, 0
    __m128i s14 = _mm_add_epi32(t14, _mm_srli_si128(t14, 4));
    s14 = _mm_add_epi32(s14, _mm_srli_si128(s14, 8));
    s14 = _mm_add_epi32(s14, _mm_shuffle_epi32(s56, 0));                    // P1, P2, P3, P4
    const __m128i bias = _mm_set1_epi32(32768);
    const __m128i range = _mm_srli_epi32(
        _mm_or_si128(_mm_add_epi32(s14, bias), _mm_add_epi32(s56, bias)), 16);
    if (__builtin_expect(_mm_movemask_epi8(_mm_cmpeq_epi32(range, _mm_setzero_si128())) == 0xFFFF,
                         1)) {
        z.sz = _mm_cvtsi128_si32(s14);
    } else {
        alignas(16) int t[8];
        _mm_store_si128(reinterpret_cast<__m128i*>(t), t14);
        _mm_store_si128(reinterpret_cast<__m128i*>(t + 4), t58);
        int sz = 0;
        for (int i = 5; i >= 0; --i) sz = sat16(sz + t[i]);
        z.sz = sz;
    }

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
    const int q = withSign(tab::table_quant_oq4[m], tab::table_quant_risi4[j]);
    const int dq = lo16((L.det * q) >> 12);
    L.nb = clampi(lo16(((L.nb * 127) >> 7) + kWl[m]), 0, 18432);
    L.det = tab::table_ila[(L.nb >> 6) + 64] * 4 + 4;
    return dq;
}

// Blocks INVQAH and LOGSCH/SCALEH with the 2-bit code ih of the high band.
inline int highDifferenceAndScale(Band& H, int ih) {
    const int m = kIh2[ih];
    const int q = withSign(kOq2[m], kSih[ih]);
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
    alignas(16) Kvo16s v[4][8] = {};
    for (int i = 0; i < 6; ++i) {
        v[0][i] = st->bl[i];
        v[1][i] = st->bh[i];
        v[2][i] = lo16(st->dlt[i]);
        v[3][i] = lo16(st->dh[i]);
    }
    L.b = _mm_load_si128(reinterpret_cast<const __m128i*>(v[0]));
    H.b = _mm_load_si128(reinterpret_cast<const __m128i*>(v[1]));
    L.d = _mm_load_si128(reinterpret_cast<const __m128i*>(v[2]));
    H.d = _mm_load_si128(reinterpret_cast<const __m128i*>(v[3]));
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
    alignas(16) Kvo16s v[4][8];
    _mm_store_si128(reinterpret_cast<__m128i*>(v[0]), L.b);
    _mm_store_si128(reinterpret_cast<__m128i*>(v[1]), H.b);
    _mm_store_si128(reinterpret_cast<__m128i*>(v[2]), L.d);
    _mm_store_si128(reinterpret_cast<__m128i*>(v[3]), H.d);
    for (int i = 0; i < 6; ++i) {
        st->bl[i] = v[0][i];
        st->bh[i] = v[1][i];
        st->dlt[i] = v[2][i];
        st->dh[i] = v[3][i];
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
    using namespace tab;
    if (bits == 6) return withSign(table_quant_oq6[table_quant_ril6[il]], table_quant_risi6[il]);
    if (bits == 5) {
        const int c = il >> 1;
        return withSign(table_quant_oq5[table_quant_ril5[c]], table_quant_risi5[c]);
    }
    const int c = il >> 2;
    return withSign(table_quant_oq4[table_quant_ril4[c]], table_quant_risi4[c]);
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
    // The decision levels rise with k (for any DETL >= 0), so the position
    // found is the count of levels 0..29 at or below the magnitude.  All 30
    // levels at once: (Q6 * 16 * DETL) >> 16 is (Q6 * DETL) >> 12 exactly.
    // A negative DETL (a damaged record) puts every level at or below 0.
    if (detl < 0) return tab::table_misil[1 - neg][30];
    const __m128i d = _mm_set1_epi16(static_cast<short>(detl));
    const __m128i m = _mm_set1_epi16(static_cast<short>(mag));
    const Kvo16s* q = tab::table_quant_q6;
    auto above = [&](__m128i lv) {  // lanes whose level is above the magnitude
        return _mm_cmpgt_epi16(_mm_mulhi_epu16(_mm_slli_epi16(lv, 4), d), m);
    };
    const __m128i* qv = reinterpret_cast<const __m128i*>(q);
    __m128i n = above(_mm_load_si128(qv));
    n = _mm_add_epi16(n, above(_mm_load_si128(qv + 1)));
    n = _mm_add_epi16(n, above(_mm_load_si128(qv + 2)));
    // levels 23..30: lane 0 repeats level 23 and lane 7 is level 30, which
    // the search never reads: both count as above
    const __m128i pad = _mm_set_epi16(-1, 0, 0, 0, 0, 0, 0, -1);
    n = _mm_add_epi16(
        n, _mm_or_si128(above(_mm_loadu_si128(reinterpret_cast<const __m128i*>(q + 23))), pad));
    const __m128i cnt = _mm_packs_epi16(_mm_sub_epi16(_mm_setzero_si128(), n), _mm_setzero_si128());
    const int notBelow = _mm_cvtsi128_si32(_mm_sad_epu8(cnt, _mm_setzero_si128()));
    return tab::table_misil[1 - neg][32 - notBelow];
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
