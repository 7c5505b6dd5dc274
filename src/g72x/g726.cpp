// ITU-T G.726 ADPCM at 16, 24, 32 and 40 kbit/s, encoder and decoder, sample by
// sample bit-exact to the Recommendation's fixed-point description.
//
// One call codes any number of samples; all adaptation state lives in the
// caller's record, copied into locals for the length of the call.  Signals
// are 16-bit two's complement on the 14-bit PCM scale, predictor coefficients
// Q14, the scale factors YU (Q5 of the log step) and YL (6 more fraction bits),
// logarithms Q7, DMS Q9 and DML Q11.
//
// Behaviour kept from the Recommendation's reference arithmetic:
//  - SR = -32768 takes the floating form of a zero magnitude with the sign set
//    (exponent 0, mantissa 32), in the encoder and in the decoder alike.
//  - In mu-law output, SR = -32768 compresses to byte 127 (negative zero); its
//    tandem step then goes down to 126 or up to 255, as for any other byte.
//  - The limits of A2 and A1 also apply when DQ + SEZ is 0 (leak only).
//  - Code bits above the code width are ignored by the decoder.
//
// The exports run the six zero-section products side by side in SSE2 and take
// the quantizer's codes, DQ magnitudes and their floating words from tables
// built at compile time (PredSse2); the plain twin (PredScalar) computes
// everything sample by sample and is kept for the tests, which compare them.
#include <emmintrin.h>

#include <cstring>

#include "g72x/g726.h"
#include "g72x/g726_tables.h"
#include "impl.h"

namespace kvo {
namespace {

using namespace kvo::g726;

// Per-rate constants: code width, leak shift of B1..B6, decision levels (a
// sentinel first), position-to-code tables and the tables indexed by code.
template <int R>
struct Rate;

template <>
struct Rate<0> {
    static constexpr int bits = 2, leak = 8, nlev = 3;
    static constexpr Kvo16s lev[3] = {2048, 261, 0};
    static constexpr Kvo8u indPos[4] = {0, 1, 0, 0};
    static constexpr Kvo8u indNeg[4] = {3, 2, 3, 3};
    static constexpr Kvo8u syncPos[4] = {2, 3, 2, 2};
    static constexpr Kvo8u syncNeg[4] = {1, 0, 1, 1};
    static const Kvo16s* dqln() { return tab::reconst16_dqln; }
    static const Kvo32s* wi() { return tab::sfa_tab16_wi; }
    static const Kvo16s* fi() { return tab::asc_tab16_map; }
};

template <>
struct Rate<1> {
    static constexpr int bits = 3, leak = 8, nlev = 5;
    static constexpr Kvo16s lev[5] = {2048, 331, 218, 8, 0};
    static constexpr Kvo8u indPos[6] = {7, 3, 2, 1, 7, 7};
    static constexpr Kvo8u indNeg[6] = {7, 4, 5, 6, 7, 7};
    static constexpr Kvo8u syncPos[6] = {3, 7, 6, 5, 3, 3};
    static constexpr Kvo8u syncNeg[6] = {3, 0, 1, 2, 3, 3};
    static const Kvo16s* dqln() { return tab::reconst24_dqln; }
    static const Kvo32s* wi() { return tab::sfa_tab24_wi; }
    static const Kvo16s* fi() { return tab::asc_tab24_map; }
};

template <>
struct Rate<2> {
    static constexpr int bits = 4, leak = 8, nlev = 9;
    static constexpr Kvo16s lev[9] = {2048, 400, 349, 300, 246, 178, 80, 0, -124};
    static constexpr Kvo8u indPos[10] = {15, 7, 6, 5, 4, 3, 2, 1, 1, 15};
    static constexpr Kvo8u indNeg[10] = {15, 8, 9, 10, 11, 12, 13, 14, 14, 15};
    static constexpr Kvo8u syncPos[10] = {7, 15, 14, 13, 12, 11, 10, 9, 9, 7};
    static constexpr Kvo8u syncNeg[10] = {7, 0, 1, 2, 3, 4, 5, 6, 6, 7};
    static const Kvo16s* dqln() { return tab::reconst32_dqln; }
    static const Kvo32s* wi() { return tab::sfa_tab32_wi; }
    static const Kvo16s* fi() { return tab::asc_tab32_map; }
};

template <>
struct Rate<3> {
    static constexpr int bits = 5, leak = 9, nlev = 17;
    static constexpr Kvo16s lev[17] = {2048, 553, 528, 502, 475, 445, 413, 378, 339,
                                       298,  250, 198, 139, 68,  0,   -16, -122};
    static constexpr Kvo8u indPos[18] = {31, 15, 14, 13, 12, 11, 10, 9, 8,
                                         7,  6,  5,  4,  3,  2,  2,  1, 31};
    static constexpr Kvo8u indNeg[18] = {31, 16, 17, 18, 19, 20, 21, 22, 23,
                                         24, 25, 26, 27, 28, 29, 29, 30, 31};
    static constexpr Kvo8u syncPos[18] = {15, 31, 30, 29, 28, 27, 26, 25, 24,
                                          23, 22, 21, 20, 19, 18, 18, 17, 15};
    static constexpr Kvo8u syncNeg[18] = {15, 0, 1,  2,  3,  4,  5,  6,  7,
                                          8,  9, 10, 11, 12, 13, 13, 14, 15};
    static const Kvo16s* dqln() { return tab::reconst40_dqln; }
    static const Kvo32s* wi() { return tab::sfa_tab40_wi; }
    static const Kvo16s* fi() { return tab::asc_tab40_map; }
};

// Position in the decision levels of a logarithm: the index of the first
// level at or below dln (the levels fall strictly), the table length if none.
template <int R>
inline int levelPosition(int dln) {
    int p = 0;
    for (int j = 0; j < Rate<R>::nlev; ++j) p += Rate<R>::lev[j] > dln;
    return p;
}

// Codes by logarithm: for every DLN a record can produce (DL from -128 to
// 1919 less Y >> 2 from 136 to 1280), the code for D >= 0 in the low byte and
// for D < 0 in the high byte; one table of quantizer codes, one of the
// monotonic codes of the tandem adjustment.
constexpr int kDlnMin = -128 - (5120 >> 2);
constexpr int kDlnMax = 1919 - (544 >> 2);

template <int R, bool SYNC>
struct CodeTab {
    Kvo16u v[kDlnMax - kDlnMin + 1];
    constexpr CodeTab() : v{} {
        for (int dln = kDlnMin; dln <= kDlnMax; ++dln) {
            int p = 0;
            for (int j = 0; j < Rate<R>::nlev; ++j) p += Rate<R>::lev[j] > dln;
            const int pos = SYNC ? Rate<R>::syncPos[p] : Rate<R>::indPos[p];
            const int neg = SYNC ? Rate<R>::syncNeg[p] : Rate<R>::indNeg[p];
            v[dln - kDlnMin] = static_cast<Kvo16u>(pos | (neg << 8));
        }
    }
};
template <int R, bool SYNC>
constexpr CodeTab<R, SYNC> kCodeTab{};

template <int R, bool SYNC>
inline int codeByTable(int dln, bool negative) {
    return (kCodeTab<R, SYNC>.v[dln - kDlnMin] >> (static_cast<int>(negative) << 3)) & 0xFF;
}

// The same by searching the levels.
template <int R, bool SYNC>
inline int codeBySearch(int dln, bool negative) {
    const int p = levelPosition<R>(dln);
    if constexpr (SYNC)
        return negative ? Rate<R>::syncNeg[p] : Rate<R>::syncPos[p];
    else
        return negative ? Rate<R>::indNeg[p] : Rate<R>::indPos[p];
}

inline int lo16i(int v) {
    return static_cast<Kvo16s>(static_cast<Kvo16u>(v));
}

// What one sample's adaptation hands to the zero section and the delay lines.
struct Step {
    int s;       // sign of the code
    int dqmag;   // magnitude of DQ
    int dqword;  // floating word of DQ
    int srv;     // reconstructed signal SR
    int tr;      // transition detected
};

// Magnitude of DQ from its logarithm DQL >= 0 (DQL below 0 gives 0).
constexpr int dqMagnitude(int dql) {
    return (((dql & 127) + 128) << 7) >> (14 - ((dql >> 7) & 15));
}

// DQ magnitude (low half) and its floating word (high half) for every DQL a
// record can produce, at DQL + 1: entry 0 stands for all negative DQL (zero
// magnitude), then DQL from 0 to 566 + (5120 >> 2).
constexpr int kDqlMax = 566 + (5120 >> 2);
struct DqTab {
    Kvo32u v[kDqlMax + 2];
    constexpr DqTab() : v{} {
        v[0] = 32u << 16;
        for (int dql = 0; dql <= kDqlMax; ++dql) {
            const int mag = dqMagnitude(dql);
            int f = 0;
            while ((mag >> f) != 0) ++f;
            const int word = (f << 6) + ((mag << 6) >> f);
            v[dql + 1] = static_cast<Kvo32u>(mag) | (static_cast<Kvo32u>(word) << 16);
        }
    }
};
constexpr DqTab kDqTab{};

// The scalar adaptation state: scale factors, speed control, averages, tone
// and transition detection, pole section and the partial-sum signs.
struct Adapt {
    int pk1, pk2, yu, ap, yl, dms, dml, td, a1, a2, sez;

    void load(const KvoG726EncodeState& s) {
        pk1 = s.pk1;
        pk2 = s.pk2;
        yu = s.yu;
        ap = s.ap;
        yl = s.yl;
        dms = s.dms;
        dml = s.dml;
        td = s.td;
        a1 = s.a[0];
        a2 = s.a[1];
        sez = s.sez;
    }

    void store(KvoG726EncodeState& s, int pk0) const {
        s.pk0 = static_cast<Kvo16s>(pk0);
        s.pk1 = static_cast<Kvo16s>(pk1);
        s.pk2 = static_cast<Kvo16s>(pk2);
        s.yu = static_cast<Kvo16s>(yu);
        s.ap = static_cast<Kvo16s>(ap);
        s.yl = yl;
        s.dms = static_cast<Kvo16s>(dms);
        s.dml = static_cast<Kvo16s>(dml);
        s.td = static_cast<Kvo16s>(td);
        s.a[0] = static_cast<Kvo16s>(a1);
        s.a[1] = static_cast<Kvo16s>(a2);
        s.sez = static_cast<Kvo16s>(sez);
    }

    // Mixed scale factor Y from YU, YL and the speed control AP.
    int scale() const {
        const int ylp = yl >> 6;
        const int m = satAbs16(lo16i(yu - ylp));
        const int al = ap < 256 ? ap >> 2 : 64;
        const int p = (al * m) >> 6;
        const int neg = -static_cast<int>(yu < ylp);  // 0 or -1
        return lo16i(ylp + ((p ^ neg) - neg));
    }

    // Signal estimate from the zero-section and pole-section product sums;
    // keeps SEZ.
    int estimate(int zeroSum, int poleSum) {
        sez = lo16i(zeroSum) >> 1;
        return lo16i(zeroSum + poleSum) >> 1;
    }

    // Inverse quantizer, scale factor adaptation, transition and tone
    // detection, pole section, averages and speed control for code i of a
    // sample with scale y and estimate se.
    template <int R, bool TABLES>
    Step step(int i, int y, int se, int& pk0) {
        using RT = Rate<R>;
        Step out;
        out.s = i >> (RT::bits - 1);

        // Inverse adaptive quantizer.
        const int dql = RT::dqln()[i] + (y >> 2);
        if constexpr (TABLES) {
            const Kvo32u e = kDqTab.v[(dql | (dql >> 31)) + 1];  // negative DQL: entry 0
            out.dqmag = static_cast<int>(e & 0xFFFF);
            out.dqword = static_cast<int>(e >> 16);
        } else {
            out.dqmag = dql < 0 ? 0 : dqMagnitude(dql);
            out.dqword = floatWord(out.dqmag);
        }
        const int dqmag = out.dqmag;
        const int dqv = out.s ? -dqmag : dqmag;

        // Scale factor adaptation (the old YL serves the transition detector).
        const int ylOld = yl;
        const int yut = lo16i(((RT::wi()[i] - y) >> 5) + y);
        yu = yut < 544 ? 544 : (yut > 5120 ? 5120 : yut);
        yl = yl + lo16i(yu + ((-yl) >> 6));

        // Transition detector, on the old tone flag.
        out.tr = 0;
        if (td) {
            const int n = ylOld >> 15;
            const int t = n > 9 ? 31744 : (((ylOld >> 10) & 31) + 32) << n;
            out.tr = (((t >> 1) + t) >> 1) < dqmag;
        }

        // Reconstructed signal and the sign of the partial sum.
        out.srv = lo16i(se + dqv);
        const int sum = lo16i(sez + dqv);
        pk0 = sum < 0;

        // Pole section update, limited in both branches.
        int a1n, a2n;
        if (sum == 0) {
            a2n = a2 - (a2 >> 7);
            a1n = a1 - (a1 >> 8);
        } else {
            const int p1 = pk0 ^ pk1;  // the sign of DQ + SEZ changed: a coin toss
            int f = 4 * a1;
            f = f > 32764 ? 32764 : (f < -32764 ? -32764 : f);
            const int g = pk0 == pk2 ? 16384 : -16384;
            const int same = p1 - 1;  // -1 when the sign held, 0 when it changed
            a2n = a2 + ((g + ((f ^ same) - same)) >> 7) - (a2 >> 7);
            a1n = a1 - (a1 >> 8) + 192 - 384 * p1;
        }
        a2n = lo16i(a2n);
        a2n = a2n > 12288 ? 12288 : (a2n < -12288 ? -12288 : a2n);
        const int lim = 15360 - a2n;
        a1n = a1n > lim ? lim : (a1n < -lim ? -lim : a1n);

        // Averages of F[I] and the tone detector.
        const int fi = RT::fi()[i];
        dms = lo16i(dms + ((fi - dms) >> 5));
        dml = lo16i(dml + ((4 * fi - dml) >> 7));

        if (out.tr) {
            a1 = a2 = 0;
            td = 0;
            ap = 256;
        } else {
            a1 = a1n;
            a2 = a2n;
            td = a2n < -11776;
            const int v = satAbs16(lo16i(4 * dms - dml));
            const int slow = (y >= 1536) & (v < (dml >> 3)) & (td == 0);
            ap = ap + ((((slow ^ 1) << 9) - ap) >> 4);
        }
        pk2 = pk1;
        pk1 = pk0;
        return out;
    }
};

// Floating word and sign of the reconstructed signal; -32768 is a zero
// magnitude with the sign set.
inline int srWord(int srv) {
    if (srv == -32768) return 32;
    return floatWord(srv < 0 ? -srv : srv);
}

// Zero section and delay lines, plain C: the twin of PredSse2.
struct PredScalar {
    static constexpr bool tables = false;
    int b[6], dq[6], dqs[6], sr[2], srs[2];

    void load(const KvoG726EncodeState& s) {
        for (int i = 0; i < 6; ++i) {
            b[i] = s.b[i];
            dq[i] = s.dq[i];
            dqs[i] = s.dqSign[i];
        }
        for (int i = 0; i < 2; ++i) {
            sr[i] = s.sr[i];
            srs[i] = s.srSign[i];
        }
    }

    void store(KvoG726EncodeState& s) const {
        for (int i = 0; i < 6; ++i) {
            s.b[i] = static_cast<Kvo16s>(b[i]);
            s.dq[i] = static_cast<Kvo16s>(dq[i]);
            s.dqSign[i] = static_cast<Kvo16s>(dqs[i]);
        }
        for (int i = 0; i < 2; ++i) {
            s.sr[i] = static_cast<Kvo16s>(sr[i]);
            s.srSign[i] = static_cast<Kvo16s>(srs[i]);
        }
    }

    void sums(int a1, int a2, int& zero, int& pole) const {
        int z = 0;
        for (int i = 0; i < 6; ++i) z += floatMul(b[i], dq[i], dqs[i]);
        zero = z;
        pole = floatMul(a1, sr[0], srs[0]) + floatMul(a2, sr[1], srs[1]);
    }

    template <int R, bool SYNC>
    static int code(int dln, bool negative) {
        return codeBySearch<R, SYNC>(dln, negative);
    }

    template <int R>
    void update(const Step& st, int, int) {
        if (st.tr) {
            for (int k = 0; k < 6; ++k) b[k] = 0;
        } else {
            const int grad = st.dqmag != 0 ? 128 : 0;
            for (int k = 0; k < 6; ++k) {
                const int u = dqs[k] == st.s ? grad : -grad;
                b[k] = lo16i(b[k] - (b[k] >> Rate<R>::leak) + u);
            }
        }
        for (int k = 5; k > 0; --k) {
            dq[k] = dq[k - 1];
            dqs[k] = dqs[k - 1];
        }
        dq[0] = st.dqword;
        dqs[0] = st.s;
        sr[1] = sr[0];
        srs[1] = srs[0];
        sr[0] = srWord(st.srv);
        srs[0] = st.srv < 0;
    }
};

// Predictor coefficients and delay lines in three SSE2 registers, as they lie
// in the record: B1..B6, A1, A2; the floating words DQ1..DQ6, SR1, SR2; their
// signs.  The eight floating products run side by side; bit lengths and
// power-of-two scalings go through single-precision floats, which hold these
// integers exactly.  (Scalar pole products would shorten the dependency chain
// but cost more instructions than they save.)
struct PredSse2 {
    static constexpr bool tables = true;
    __m128i coef, word, sign;
    int sr[2], srs[2];

    void load(const KvoG726EncodeState& s) {
        coef = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.b));   // b[6], a[2]
        word = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.dq));  // dq[6], sr[2]
        sign = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.dqSign));
        for (int i = 0; i < 2; ++i) {
            sr[i] = s.sr[i];
            srs[i] = s.srSign[i];
        }
    }

    // Writes B, A, DQ and SR; the caller's Adapt writes A1 and A2 again.
    void store(KvoG726EncodeState& s) const {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(s.b), coef);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(s.dq), word);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(s.dqSign), sign);
        for (int i = 0; i < 2; ++i) {
            s.sr[i] = static_cast<Kvo16s>(sr[i]);
            s.srSign[i] = static_cast<Kvo16s>(srs[i]);
        }
    }

    void sums(int, int, int& zero, int& pole) const {
        const __m128i zeroV = _mm_setzero_si128();
        // 13-bit magnitude of coef >> 2.
        __m128i m = _mm_srai_epi16(coef, 2);
        const __m128i sm = _mm_srai_epi16(m, 15);
        m = _mm_and_si128(_mm_sub_epi16(_mm_xor_si128(m, sm), sm), _mm_set1_epi16(0x1FFF));
        // Bit length and 6-bit mantissa from the float of m.
        const __m128i fl = _mm_castps_si128(_mm_cvtepi32_ps(_mm_unpacklo_epi16(m, zeroV)));
        const __m128i fh = _mm_castps_si128(_mm_cvtepi32_ps(_mm_unpackhi_epi16(m, zeroV)));
        const __m128i e = _mm_subs_epu16(
            _mm_packs_epi32(_mm_srli_epi32(fl, 23), _mm_srli_epi32(fh, 23)), _mm_set1_epi16(126));
        const __m128i mant = _mm_or_si128(
            _mm_and_si128(_mm_packs_epi32(_mm_srli_epi32(fl, 18), _mm_srli_epi32(fh, 18)),
                          _mm_set1_epi16(31)),
            _mm_set1_epi16(32));
        // Exponent sum and rounded mantissa product.
        const __m128i x =
            _mm_add_epi16(e, _mm_and_si128(_mm_srli_epi16(word, 6), _mm_set1_epi16(15)));
        const __m128i t = _mm_srli_epi16(
            _mm_add_epi16(_mm_mullo_epi16(mant, _mm_and_si128(word, _mm_set1_epi16(63))),
                          _mm_set1_epi16(48)),
            4);
        // t * 2^(x - 19), truncated, kept to 15 bits.
        const __m128i bias = _mm_set1_epi32(108);
        const __m128 pl =
            _mm_castsi128_ps(_mm_slli_epi32(_mm_add_epi32(_mm_unpacklo_epi16(x, zeroV), bias), 23));
        const __m128 ph =
            _mm_castsi128_ps(_mm_slli_epi32(_mm_add_epi32(_mm_unpackhi_epi16(x, zeroV), bias), 23));
        const __m128i ml =
            _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(_mm_unpacklo_epi16(t, zeroV)), pl));
        const __m128i mh =
            _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(_mm_unpackhi_epi16(t, zeroV)), ph));
        const __m128i mask15 = _mm_set1_epi32(0x7FFF);
        const __m128i mag = _mm_packs_epi32(_mm_and_si128(ml, mask15), _mm_and_si128(mh, mask15));
        // Negative where the coefficient's sign and the stored sign differ.
        const __m128i neg = _mm_xor_si128(_mm_srai_epi16(coef, 15), _mm_sub_epi16(zeroV, sign));
        const __m128i prod = _mm_sub_epi16(_mm_xor_si128(mag, neg), neg);
        // Pair sums [p0+p1, p2+p3, p4+p5, p6+p7]: B products, then A products.
        const __m128i ps = _mm_madd_epi16(prod, _mm_set1_epi16(1));
        zero = _mm_cvtsi128_si32(ps) + _mm_cvtsi128_si32(_mm_srli_si128(ps, 4)) +
               _mm_cvtsi128_si32(_mm_srli_si128(ps, 8));
        pole = _mm_cvtsi128_si32(_mm_srli_si128(ps, 12));
    }

    template <int R, bool SYNC>
    static int code(int dln, bool negative) {
        return codeByTable<R, SYNC>(dln, negative);
    }

    template <int R>
    void update(const Step& st, int a1, int a2) {
        if (st.tr) {
            coef = _mm_setzero_si128();
        } else {
            // B - (B >> leak) + 128 where the signs agree, - 128 where not, when
            // DQ is not 0.
            const __m128i differ =
                _mm_xor_si128(_mm_cmpeq_epi16(sign, _mm_set1_epi16(static_cast<short>(st.s))),
                              _mm_set1_epi16(-1));
            const __m128i g = _mm_set1_epi16(st.dqmag != 0 ? 128 : 0);
            const __m128i u = _mm_sub_epi16(_mm_xor_si128(g, differ), differ);  // -g where differ
            coef = _mm_add_epi16(_mm_sub_epi16(coef, _mm_srai_epi16(coef, Rate<R>::leak)), u);
        }
        coef = _mm_insert_epi16(_mm_insert_epi16(coef, a1, 6), a2, 7);
        sr[1] = sr[0];
        srs[1] = srs[0];
        sr[0] = srWord(st.srv);
        srs[0] = st.srv < 0;
        word = _mm_insert_epi16(_mm_insert_epi16(_mm_slli_si128(word, 2), st.dqword, 0), sr[0], 6);
        sign = _mm_insert_epi16(_mm_insert_epi16(_mm_slli_si128(sign, 2), st.s, 0), srs[0], 6);
    }
};

template <int R, class Pred>
void encodeRun(KvoG726EncodeState& st, const Kvo16s* src, Kvo8u* dst, int len) {
    Adapt ad;
    Pred pr;
    ad.load(st);
    pr.load(st);
    int pk0 = st.pk0;
    for (int n = 0; n < len; ++n) {
        const int y = ad.scale();
        int zs, ps;
        pr.sums(ad.a1, ad.a2, zs, ps);
        const int se = ad.estimate(zs, ps);
        const int d = lo16i(src[n] - se);
        const int dln = lo16i(logMag(satAbs16(d)) - (y >> 2));
        const int code = Pred::template code<R, false>(dln, d < 0);
        dst[n] = static_cast<Kvo8u>(code);
        const Step s = ad.template step<R, Pred::tables>(code, y, se, pk0);
        pr.template update<R>(s, ad.a1, ad.a2);
    }
    pr.store(st);
    ad.store(st, pk0);
}

// Synchronous tandem adjustment: compares the code that a coder behind this
// decoder would send for the linear value lin of the output byte with the
// received code, on a monotonic scale.  Returns 0 to keep the byte, -1 for
// one step down, +1 for one step up.
template <int R, class Pred>
inline int tandemStep(int lin, int se, int y, int code) {
    const int dx = (lin >> 2) - se;
    const int dln = lo16i(logMag(satAbs16(dx)) - (y >> 2));
    const int id = Pred::template code<R, true>(dln, dx < 0);
    constexpr int half = 1 << (Rate<R>::bits - 1);
    const int im = (code & half) ? code & (half - 1) : code + half;
    return id == im ? 0 : (id > im ? -1 : 1);
}

template <int R, int LAW, class Pred>
void decodeRun(KvoG726EncodeState& st, const Kvo8u* src, Kvo16s* dst, int len) {
    constexpr int mask = (1 << Rate<R>::bits) - 1;
    Adapt ad;
    Pred pr;
    ad.load(st);
    pr.load(st);
    int pk0 = st.pk0;
    for (int n = 0; n < len; ++n) {
        const int code = src[n] & mask;
        const int y = ad.scale();
        int zs, ps;
        pr.sums(ad.a1, ad.a2, zs, ps);
        const int se = ad.estimate(zs, ps);
        const Step s = ad.template step<R, Pred::tables>(code, y, se, pk0);
        pr.template update<R>(s, ad.a1, ad.a2);
        const int sr = s.srv;
        if constexpr (LAW == 2) {
            dst[n] = static_cast<Kvo16s>(sr < -8192 ? -8192 : (sr > 8191 ? 8191 : sr));
        } else if constexpr (LAW == 0) {
            int c;
            if (sr == -32768) {
                c = 127;  // negative zero
            } else {
                const int v = sr < -8192 ? -8192 : (sr > 8191 ? 8191 : sr);
                int x = lo16i(4 * v);
                if (x < 0 && x != -32768) x -= 1;
                c = muLawByte(x);
            }
            const int stp = tandemStep<R, Pred>(tab::u2l[c], se, y, code);
            if (stp != 0) {
                // Byte 127 arises only from SR = -32768 and steps to its neighbours
                // 126 and 255.
                if (c == 127)
                    c = stp < 0 ? 126 : 255;
                else
                    c = stp < 0 ? tab::u2LT[c] : tab::u2GT[c];
            }
            dst[n] = static_cast<Kvo16s>(c);
        } else {
            int v = sr == -32768 ? -2 : sr;
            v = v < -8192 ? -8192 : (v > 8191 ? 8191 : v);
            int c = aLawByte(4 * v);
            const int stp = tandemStep<R, Pred>(tab::a2l[c], se, y, code);
            if (stp != 0) c = stp < 0 ? tab::a2LT[c] : tab::a2GT[c];
            dst[n] = static_cast<Kvo16s>(c);
        }
    }
    pr.store(st);
    ad.store(st, pk0);
}

template <class Pred>
void encodeAny(KvoG726EncodeState& st, const Kvo16s* src, Kvo8u* dst, int len) {
    switch (st.rateIndex) {
        case 0:
            encodeRun<0, Pred>(st, src, dst, len);
            break;
        case 1:
            encodeRun<1, Pred>(st, src, dst, len);
            break;
        case 2:
            encodeRun<2, Pred>(st, src, dst, len);
            break;
        default:
            encodeRun<3, Pred>(st, src, dst, len);
            break;
    }
}

template <int LAW, class Pred>
void decodeLaw(KvoG726EncodeState& st, const Kvo8u* src, Kvo16s* dst, int len) {
    switch (st.rateIndex) {
        case 0:
            decodeRun<0, LAW, Pred>(st, src, dst, len);
            break;
        case 1:
            decodeRun<1, LAW, Pred>(st, src, dst, len);
            break;
        case 2:
            decodeRun<2, LAW, Pred>(st, src, dst, len);
            break;
        default:
            decodeRun<3, LAW, Pred>(st, src, dst, len);
            break;
    }
}

template <class Pred>
void decodeAny(KvoG726DecodeState& st, const Kvo8u* src, Kvo16s* dst, int len) {
    switch (st.law) {
        case 0:
            decodeLaw<0, Pred>(st.core, src, dst, len);
            break;
        case 1:
            decodeLaw<1, Pred>(st.core, src, dst, len);
            break;
        default:
            decodeLaw<2, Pred>(st.core, src, dst, len);
            break;
    }
}

int rateIndexOf(KvoSpeechRate rate) {
    switch (rate) {
        case kvoRate16000:
            return 0;
        case kvoRate24000:
            return 1;
        case kvoRate32000:
            return 2;
        case kvoRate40000:
            return 3;
        default:
            return -1;
    }
}

void initCore(KvoG726EncodeState& s, int rateIndex) {
    std::memset(&s, 0, sizeof s);
    s.rateIndex = static_cast<Kvo16s>(rateIndex);
    s.yu = 544;
    s.yl = 34816;
    for (int i = 0; i < 6; ++i) s.dq[i] = 32;
    s.sr[0] = s.sr[1] = 32;
}

// Values the adaptation can reach from Init; anything else is a damaged record.
bool coreInRange(const KvoG726EncodeState& s) {
    const auto flag = [](Kvo16s v) { return v == 0 || v == 1; };
    bool ok = s.rateIndex >= 0 && s.rateIndex <= 3 && s.yu >= 544 && s.yu <= 5120 &&
              s.yl >= 34816 && s.yl <= 327680 && s.ap >= 0 && s.ap <= 512 && flag(s.td) &&
              flag(s.pk0) && flag(s.pk1) && flag(s.pk2);
    for (int i = 0; i < 6; ++i) ok = ok && flag(s.dqSign[i]);
    return ok && flag(s.srSign[0]) && flag(s.srSign[1]);
}

}  // namespace

namespace g726 {

void encodeScalar(KvoG726EncodeState& st, const Kvo16s* src, Kvo8u* dst, int len) {
    encodeAny<PredScalar>(st, src, dst, len);
}

void decodeScalar(KvoG726DecodeState& st, const Kvo8u* src, Kvo16s* dst, int len) {
    decodeAny<PredScalar>(st, src, dst, len);
}

}  // namespace g726

namespace impl {

KvoStatus kvosEncodeGetStateSize_G726_16s8u(Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoG726EncodeState));
    return kvoOk;
}

KvoStatus kvosEncodeInit_G726_16s8u(KvoG726EncodeState* pState, KvoSpeechRate rate) {
    if (pState == nullptr) return kvoErrNullPtr;
    const int r = rateIndexOf(rate);
    if (r < 0) return kvoErrRange;
    initCore(*pState, r);
    return kvoOk;
}

KvoStatus kvosEncode_G726_16s8u(KvoG726EncodeState* pState, const Kvo16s* pSrc, Kvo8u* pDst,
                                Kvo32s len) {
    if (pState == nullptr || pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len == 0) return kvoErrSize;
    if (len < 0) return kvoOk;
    if (!coreInRange(*pState)) return kvoErrOutOfRange;
    encodeAny<PredSse2>(*pState, pSrc, pDst, len);
    return kvoOk;
}

KvoStatus kvosDecodeGetStateSize_G726_8u16s(Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoG726DecodeState));
    return kvoOk;
}

KvoStatus kvosDecodeInit_G726_8u16s(KvoG726DecodeState* pState, KvoSpeechRate rate, Kvo32s law) {
    if (pState == nullptr) return kvoErrNullPtr;
    const int r = rateIndexOf(rate);
    if (r < 0) return kvoErrRange;
    if (law < 0 || law > 2) return kvoErrRange;
    std::memset(pState, 0, sizeof *pState);
    initCore(pState->core, r);
    pState->law = static_cast<Kvo16s>(law);
    return kvoOk;
}

KvoStatus kvosDecode_G726_8u16s(KvoG726DecodeState* pState, const Kvo8u* pSrc, Kvo16s* pDst,
                                Kvo32s len) {
    if (pState == nullptr || pSrc == nullptr || pDst == nullptr) return kvoErrNullPtr;
    if (len == 0) return kvoErrSize;
    if (len < 0) return kvoOk;
    if (!coreInRange(pState->core) || pState->law < 0 || pState->law > 2) return kvoErrOutOfRange;
    decodeAny<PredSse2>(*pState, pSrc, pDst, len);
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
