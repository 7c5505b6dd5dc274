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

inline int clampi(int v, int lo, int hi) {
    return v < lo ? lo : (v > hi ? hi : v);
}

// Magnitude with the sign of a table entry that holds -1 (negative) or 0,
// without a branch on the data.
inline int withSign(int mag, int sign) {
    return (mag ^ sign) - sign;
}

// Predictor state of both bands.  The zero predictors keep their six
// coefficients and delayed differences in lanes 0..5 of 16-bit vectors, lane
// 0 the newest (BL1, DLT1); lanes 6 and 7 of the coefficients stay 0, those
// of the differences are don't-care.  The pole predictors and the signals
// run as two lanes of 16-bit vectors, lane 0 the low band, lane 1 the high
// band (other lanes are don't-care): one vector step adapts both bands, with
// the same arithmetic as the Recommendation's per-band blocks.
struct Coder {
    __m128i bl, dl, bh, dh;
    __m128i a1, a2, p, r, p1, p2, r1, r2, d0, sz, sp, s;
    int detl, deth, nbl, nbh;
};

inline __m128i pair16(int lo, int hi) {
    return _mm_cvtsi32_si128(static_cast<int>((static_cast<unsigned>(lo) & 0xFFFFu) |
                                              (static_cast<unsigned>(hi) << 16)));
}
inline int lane0(__m128i v) {
    return static_cast<Kvo16s>(_mm_cvtsi128_si32(v));
}
inline int lane1(__m128i v) {
    return _mm_cvtsi128_si32(v) >> 16;
}

// Low 16 bits of (a * b) >> n for 16-bit lanes, 1 <= n <= 16.
template <int N>
inline __m128i mulShift(__m128i a, __m128i b) {
    return _mm_or_si128(_mm_slli_epi16(_mm_mulhi_epi16(a, b), 16 - N),
                        _mm_srli_epi16(_mm_mullo_epi16(a, b), N));
}

// Block UPZERO of one band: leak (b * 32640) >> 15, plus or minus 128 by the
// sign agreement of dq with each delayed difference (a zero counts as
// positive), nothing when dq is 0; the delay line then takes dq.
inline void upzero(__m128i& b, __m128i& d, __m128i dqv, int dq) {
    const __m128i differ = _mm_srai_epi16(_mm_xor_si128(d, dqv), 15);
    __m128i wd = _mm_sub_epi16(_mm_xor_si128(_mm_set1_epi16(128), differ), differ);
    wd = _mm_andnot_si128(_mm_cmpeq_epi16(dqv, _mm_setzero_si128()), wd);
    wd = _mm_and_si128(wd, _mm_set_epi16(0, 0, -1, -1, -1, -1, -1, -1));
    b = _mm_add_epi16(mulShift<15>(b, _mm_set1_epi16(32640)), wd);
    d = _mm_insert_epi16(_mm_slli_si128(d, 2), dq, 0);
}

// Block FILTEZ of one band: the products (d * b) >> 14 in 32 bits; returns
// the running sums from the oldest tap, P1..P4 in lanes 0..3 of `s14` and
// P5, P6 in lanes 0, 1 of the result.
inline __m128i filtez(__m128i b, __m128i d, __m128i& s14, __m128i& t14, __m128i& t58) {
    const __m128i plo = _mm_mullo_epi16(d, b), phi = _mm_mulhi_epi16(d, b);
    t14 = _mm_srai_epi32(_mm_unpacklo_epi16(plo, phi), 14);
    t58 = _mm_srai_epi32(_mm_unpackhi_epi16(plo, phi), 14);
    const __m128i s56 = _mm_add_epi32(t58, _mm_srli_si128(t58, 4));
    s14 = _mm_add_epi32(t14, _mm_srli_si128(t14, 4));
    s14 = _mm_add_epi32(s14, _mm_srli_si128(s14, 8));
    s14 = _mm_add_epi32(s14, _mm_shuffle_epi32(s56, 0));
    return s56;
}

// Saturating chain of the zero section, oldest tap first (the rare path).
int filtezChain(__m128i t14, __m128i t58) {
    alignas(16) int t[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(t), t14);
    _mm_store_si128(reinterpret_cast<__m128i*>(t + 4), t58);
    int sz = 0;
    for (int i = 5; i >= 0; --i) sz = sat16(sz + t[i]);
    return sz;
}

// Blocks UPZERO, UPPOL2, UPPOL1, FILTEZ, FILTEP and the sum of the predictor
// outputs of both bands, once the quantized differences are known.
inline void adapt(Coder& c, int dql, int dqh) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i dq = pair16(dql, dqh);
    c.d0 = dq;
    const __m128i p = _mm_adds_epi16(c.sz, dq);
    c.r = _mm_adds_epi16(c.s, dq);
    c.p = p;

    upzero(c.bl, c.dl, _mm_shuffle_epi32(_mm_shufflelo_epi16(dq, 0x00), 0), dql);
    upzero(c.bh, c.dh, _mm_shuffle_epi32(_mm_shufflelo_epi16(dq, 0x55), 0), dqh);

    // UPPOL2: W = sat(4 AL1), negated (saturating) when PLT and PLT1 agree
    // in sign; AL2 := W >> 7 +- 128 + (AL2 * 127) >> 7, limited to +-12288.
    const __m128i differ1 = _mm_srai_epi16(_mm_xor_si128(p, c.p1), 15);
    const __m128i differ2 = _mm_srai_epi16(_mm_xor_si128(p, c.p2), 15);
    const __m128i a1x2 = _mm_adds_epi16(c.a1, c.a1);
    const __m128i w = _mm_adds_epi16(a1x2, a1x2);
    const __m128i wsel =
        _mm_or_si128(_mm_and_si128(differ1, w), _mm_andnot_si128(differ1, _mm_subs_epi16(zero, w)));
    const __m128i k128 = _mm_set1_epi16(128);
    __m128i a2 = _mm_add_epi16(_mm_srai_epi16(wsel, 7),
                               _mm_sub_epi16(_mm_xor_si128(k128, differ2), differ2));
    a2 = _mm_add_epi16(a2, mulShift<7>(c.a2, _mm_set1_epi16(127)));
    a2 = _mm_max_epi16(_mm_min_epi16(a2, _mm_set1_epi16(12288)), _mm_set1_epi16(-12288));
    // UPPOL1: AL1 := (AL1 * 32640) >> 15 +- 192, within +-(15360 - AL2).
    const __m128i k192 = _mm_set1_epi16(192);
    __m128i a1 = _mm_add_epi16(mulShift<15>(c.a1, _mm_set1_epi16(32640)),
                               _mm_sub_epi16(_mm_xor_si128(k192, differ1), differ1));
    const __m128i lim = _mm_sub_epi16(_mm_set1_epi16(15360), a2);
    a1 = _mm_max_epi16(_mm_min_epi16(a1, lim), _mm_sub_epi16(zero, lim));
    c.a1 = a1;
    c.a2 = a2;
    c.p2 = c.p1;
    c.p1 = p;

    // FILTEZ: the plain running sums equal the saturating chain when none of
    // them leaves the 16-bit range, which is the rule; otherwise the chain is
    // redone for that band.
    __m128i sl14, tl14, tl58, sh14, th14, th58;
    const __m128i sl56 = filtez(c.bl, c.dl, sl14, tl14, tl58);
    const __m128i sh56 = filtez(c.bh, c.dh, sh14, th14, th58);
    const __m128i bias = _mm_set1_epi32(32768);
    const __m128i outl = _mm_or_si128(_mm_add_epi32(sl14, bias), _mm_add_epi32(sl56, bias));
    const __m128i outh = _mm_or_si128(_mm_add_epi32(sh14, bias), _mm_add_epi32(sh56, bias));
    const __m128i range = _mm_srli_epi32(_mm_or_si128(outl, outh), 16);
    if (__builtin_expect(_mm_movemask_epi8(_mm_cmpeq_epi32(range, zero)) == 0xFFFF, 1)) {
        const __m128i both = _mm_unpacklo_epi32(sl14, sh14);
        c.sz = _mm_packs_epi32(both, both);
    } else {
        c.sz = pair16(filtezChain(tl14, tl58), filtezChain(th14, th58));
    }

    // FILTEP on the doubled reconstructed signal, new coefficients.
    c.r2 = c.r1;
    c.r1 = c.r;
    c.sp = _mm_adds_epi16(mulShift<15>(_mm_adds_epi16(c.r1, c.r1), a1),
                          mulShift<15>(_mm_adds_epi16(c.r2, c.r2), a2));
    c.s = _mm_adds_epi16(c.sp, c.sz);
}

// Block INVQAL and LOGSCL/SCALEL with the 4-bit index j of the low band:
// returns DLT0 (with the scale factor before adaptation) and adapts DETL.
// The same from the magnitude index m and the signed output q of that index.
inline int lowDifference(Coder& c, int m, int q) {
    const int dq = lo16((c.detl * q) >> 12);
    c.nbl = clampi(lo16(((c.nbl * 127) >> 7) + kWl[m]), 0, 18432);
    c.detl = tab::table_ila[(c.nbl >> 6) + 64] * 4 + 4;
    return dq;
}
inline int lowDifferenceAndScale(Coder& c, int j) {
    const int m = tab::table_quant_ril4[j];
    return lowDifference(c, m, withSign(tab::table_quant_oq4[m], tab::table_quant_risi4[j]));
}

// Blocks INVQAH and LOGSCH/SCALEH with the 2-bit code ih of the high band.
inline int highDifferenceAndScale(Coder& c, int ih) {
    const int m = kIh2[ih];
    const int q = withSign(kOq2[m], kSih[ih]);
    const int dq = lo16((c.deth * q) >> 12);
    c.nbh = clampi(lo16(((c.nbh * 127) >> 7) + kWh[m]), 0, 22528);
    c.deth = tab::table_ila[c.nbh >> 6] * 4 + 4;
    return dq;
}

void load(const KvoG722State* st, Coder& c) {
    alignas(16) Kvo16s v[4][8] = {};
    for (int i = 0; i < 6; ++i) {
        v[0][i] = st->bl[i];
        v[1][i] = st->bh[i];
        v[2][i] = lo16(st->dlt[i]);
        v[3][i] = lo16(st->dh[i]);
    }
    c.bl = _mm_load_si128(reinterpret_cast<const __m128i*>(v[0]));
    c.bh = _mm_load_si128(reinterpret_cast<const __m128i*>(v[1]));
    c.dl = _mm_load_si128(reinterpret_cast<const __m128i*>(v[2]));
    c.dh = _mm_load_si128(reinterpret_cast<const __m128i*>(v[3]));
    c.a1 = pair16(st->al1, st->ah1);
    c.a2 = pair16(st->al2, st->ah2);
    c.p = pair16(st->plt, st->pht);
    c.r = pair16(st->rlt, st->rht);
    c.p1 = pair16(st->plt1, st->pht1);
    c.p2 = pair16(st->plt2, st->pht2);
    c.r1 = pair16(st->rlt1, st->rht1);
    c.r2 = pair16(st->rlt2, st->rht2);
    c.d0 = pair16(st->dlt0, st->dht0);
    c.sz = pair16(st->szl, st->szh);
    c.sp = pair16(st->spl, st->sph);
    c.s = pair16(st->sl, st->sh);
    c.detl = st->detl;
    c.deth = st->deth;
    c.nbl = st->nbl;
    c.nbh = st->nbh;
}

void store(KvoG722State* st, const Coder& c) {
    alignas(16) Kvo16s v[4][8];
    _mm_store_si128(reinterpret_cast<__m128i*>(v[0]), c.bl);
    _mm_store_si128(reinterpret_cast<__m128i*>(v[1]), c.bh);
    _mm_store_si128(reinterpret_cast<__m128i*>(v[2]), c.dl);
    _mm_store_si128(reinterpret_cast<__m128i*>(v[3]), c.dh);
    for (int i = 0; i < 6; ++i) {
        st->bl[i] = v[0][i];
        st->bh[i] = v[1][i];
        st->dlt[i] = v[2][i];
        st->dh[i] = v[3][i];
    }
    auto put = [](__m128i x, Kvo16s& lo, Kvo16s& hi) {
        lo = static_cast<Kvo16s>(lane0(x));
        hi = static_cast<Kvo16s>(lane1(x));
    };
    put(c.a1, st->al1, st->ah1);
    put(c.a2, st->al2, st->ah2);
    put(c.p, st->plt, st->pht);
    put(c.r, st->rlt, st->rht);
    put(c.p1, st->plt1, st->pht1);
    put(c.p2, st->plt2, st->pht2);
    put(c.r1, st->rlt1, st->rht1);
    put(c.r2, st->rlt2, st->rht2);
    put(c.d0, st->dlt0, st->dht0);
    put(c.sz, st->szl, st->szh);
    put(c.sp, st->spl, st->sph);
    put(c.s, st->sl, st->sh);
    st->detl = static_cast<Kvo16s>(c.detl);
    st->deth = static_cast<Kvo16s>(c.deth);
    st->nbl = static_cast<Kvo16s>(c.nbl);
    st->nbh = static_cast<Kvo16s>(c.nbh);
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
void decodePairs(const Kvo16s* src, Kvo16s* dst, int pairs, Coder& c) {
    for (int n = 0; n < pairs; ++n) {
        const int il = src[2 * n] & 63;
        const int ih = src[2 * n + 1] & 3;
        const int yl = lane0(c.s) + ((c.detl * lowOutputLevel(il, Bits)) >> 12);
        const int dql = lowDifferenceAndScale(c, il >> 2);
        const int dqh = highDifferenceAndScale(c, ih);
        adapt(c, dql, dqh);
        dst[2 * n] = static_cast<Kvo16s>(clampi(yl, -16384, 16383));
        dst[2 * n + 1] = static_cast<Kvo16s>(clampi(lane1(c.r), -16384, 16383));
    }
}

// Block QUANTL: position of the low-band difference el at scale factor detl
// in the code table, row * 32 + k (row 0 for negative differences).
inline int quantLPos(int el, int detl) {
    const int neg = el < 0;
    const int mag = neg ? -1 - el : el;
    // The decision levels rise with k (for any DETL >= 0), so the position
    // found is the count of levels 0..29 at or below the magnitude.  All 30
    // levels at once: (Q6 * 16 * DETL) >> 16 is (Q6 * DETL) >> 12 exactly.
    // A negative DETL (a damaged record) puts every level at or below 0.
    if (detl < 0) return (1 - neg) * 32 + 30;
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
    return (1 - neg) * 32 + 32 - notBelow;
}

// Block QUANTL: 6-bit code IL.
inline int quantL(int el, int detl) {
    const int pos = quantLPos(el, detl);
    return tab::table_misil[pos >> 5][pos & 31];
}

// Block QUANTH: 2-bit code of the high-band difference eh at scale factor deth.
inline int quantH(int eh, int deth) {
    const int neg = eh < 0;
    const int mag = neg ? -1 - eh : eh;
    const int pos = mag < ((564 * deth) >> 12) ? 1 : 2;
    return kMisih[1 - neg][pos];
}

}  // namespace

void g722StateInit(KvoG722State* st) {
    std::memset(st, 0, sizeof(*st));
    st->detl = 32;
    st->deth = 8;
}

int g722QuantL(int el, int detl) {
    return quantL(el, detl);
}

int g722QuantH(int eh, int deth) {
    return quantH(eh, deth);
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
    Coder c;
    load(st, c);
    // Code, magnitude index and signed inverse quantizer output of the 4-bit
    // index, by quantizer position: one lookup on the pair-to-pair path.
    int lut[64];
    for (int i = 0; i < 64; ++i) {
        const int il = tab::table_misil[i >> 5][i & 31];
        const int j = il >> 2, m = tab::table_quant_ril4[j];
        lut[i] =
            il | (m << 6) |
            static_cast<int>(
                static_cast<unsigned>(withSign(tab::table_quant_oq4[m], tab::table_quant_risi4[j]))
                << 16);
    }
    const int pairs = len / 2;
    for (int n = 0; n < pairs; ++n) {
        const int sv = _mm_cvtsi128_si32(c.s);  // SL in the low half, SH in the high half
        const int e = lut[quantLPos(sat16(pSrc[2 * n] - static_cast<Kvo16s>(sv)), c.detl)];
        const int ih = quantH(sat16(pSrc[2 * n + 1] - (sv >> 16)), c.deth);
        pDst[2 * n] = static_cast<Kvo16s>(e & 63);
        pDst[2 * n + 1] = static_cast<Kvo16s>(ih);
        const int dql = lowDifference(c, (e >> 6) & 7, e >> 16);
        const int dqh = highDifferenceAndScale(c, ih);
        adapt(c, dql, dqh);
    }
    store(st, c);
    return kvoOk;
}

KvoStatus kvosSBADPCMDecode_G722_16s(const Kvo16s* pSrc, Kvo16s* pDst, Kvo32s len, Kvo32s mode,
                                     Kvo8u* pMem) {
    if (!pSrc || !pDst || !pMem) return kvoErrNullPtr;
    if (len < 1 || (len & 1)) return kvoErrSize;
    KvoG722State* st = g722State(pMem);
    Coder c;
    load(st, c);
    const int m = static_cast<Kvo16s>(mode);
    const int pairs = len / 2;
    if (m == 0 || m == 1)
        decodePairs<6>(pSrc, pDst, pairs, c);
    else if (m == 2)
        decodePairs<5>(pSrc, pDst, pairs, c);
    else
        decodePairs<4>(pSrc, pDst, pairs, c);
    store(st, c);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
