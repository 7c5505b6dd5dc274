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
    static constexpr Kvo8u syncNeg[18] = {15, 0, 1, 2, 3, 4,  5,  6,  7,
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

// Magnitude of a 16-bit value with -32768 held at 32767.
inline int satMag(int v) { return v < 0 ? (v == -32768 ? 32767 : -v) : v; }

inline int lo16i(int v) { return static_cast<Kvo16s>(static_cast<Kvo16u>(v)); }

// Working copy of the adaptation state.
struct Work {
    int pk1, pk2, yu, ap, yl, dms, dml, td;
    int b[6], a[2], dq[6], sr[2], dqs[6], srs[2];
    int sez;

    void load(const KvoG726EncodeState& s) {
        pk1 = s.pk1;
        pk2 = s.pk2;
        yu = s.yu;
        ap = s.ap;
        yl = s.yl;
        dms = s.dms;
        dml = s.dml;
        td = s.td;
        sez = s.sez;
        for (int i = 0; i < 6; ++i) {
            b[i] = s.b[i];
            dq[i] = s.dq[i];
            dqs[i] = s.dqSign[i];
        }
        for (int i = 0; i < 2; ++i) {
            a[i] = s.a[i];
            sr[i] = s.sr[i];
            srs[i] = s.srSign[i];
        }
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
        s.sez = static_cast<Kvo16s>(sez);
        for (int i = 0; i < 6; ++i) {
            s.b[i] = static_cast<Kvo16s>(b[i]);
            s.dq[i] = static_cast<Kvo16s>(dq[i]);
            s.dqSign[i] = static_cast<Kvo16s>(dqs[i]);
        }
        for (int i = 0; i < 2; ++i) {
            s.a[i] = static_cast<Kvo16s>(a[i]);
            s.sr[i] = static_cast<Kvo16s>(sr[i]);
            s.srSign[i] = static_cast<Kvo16s>(srs[i]);
        }
    }

    // Mixed scale factor Y from YU, YL and the speed control AP.
    int scale() const {
        const int ylp = yl >> 6;
        const int m = satMag(lo16i(yu - ylp));
        const int al = ap < 256 ? ap >> 2 : 64;
        const int p = (al * m) >> 6;
        return lo16i(yu >= ylp ? ylp + p : ylp - p);
    }

    // Signal estimate SE; stores the zero-section part SEZ.
    int estimate() {
        int z = 0;
        for (int i = 0; i < 6; ++i) z += floatMul(b[i], dq[i], dqs[i]);
        const int pole = floatMul(a[0], sr[0], srs[0]) + floatMul(a[1], sr[1], srs[1]);
        sez = lo16i(z) >> 1;
        return lo16i(z + pole) >> 1;
    }

    // Inverse quantizer, adaptation and predictor update for code i of a sample
    // with estimate se and scale y.  Returns the reconstructed signal SR and the
    // new PK0.
    template <int R>
    int update(int i, int y, int se, int& pk0) {
        using RT = Rate<R>;
        const int s = i >> (RT::bits - 1);

        // Inverse adaptive quantizer.
        const int dql = RT::dqln()[i] + (y >> 2);
        const int dqmag = dql < 0 ? 0 : (((dql & 127) + 128) << 7) >> (14 - ((dql >> 7) & 15));
        const int dqv = s ? -dqmag : dqmag;

        // Scale factor adaptation (the old YL serves the transition detector).
        const int ylOld = yl;
        int yut = lo16i(((RT::wi()[i] - y) >> 5) + y);
        yu = yut < 544 ? 544 : (yut > 5120 ? 5120 : yut);
        yl = yl + lo16i(yu + ((-yl) >> 6));

        // Transition detector, on the old tone flag.
        int tr = 0;
        if (td) {
            const int n = ylOld >> 15;
            const int t = n > 9 ? 31744 : (((ylOld >> 10) & 31) + 32) << n;
            tr = (((t >> 1) + t) >> 1) < dqmag;
        }

        // Reconstructed signal and the sign of the partial sum.
        const int srv = lo16i(se + dqv);
        const int sum = lo16i(sez + dqv);
        pk0 = sum < 0;

        // Pole section update, limited in both branches.
        int a1 = a[0], a2 = a[1];
        int a1n, a2n;
        if (sum == 0) {
            a2n = a2 - (a2 >> 7);
            a1n = a1 - (a1 >> 8);
        } else {
            const int p1 = pk0 ^ pk1;
            int f = 4 * a1;
            f = f > 32764 ? 32764 : (f < -32764 ? -32764 : f);
            const int g = pk0 == pk2 ? 16384 : -16384;
            a2n = a2 + ((g + (p1 ? f : -f)) >> 7) - (a2 >> 7);
            a1n = a1 - (a1 >> 8) + (p1 ? -192 : 192);
        }
        a2n = lo16i(a2n);
        a2n = a2n > 12288 ? 12288 : (a2n < -12288 ? -12288 : a2n);
        const int lim = 15360 - a2n;
        a1n = a1n > lim ? lim : (a1n < -lim ? -lim : a1n);

        // Averages of F[I] and the tone detector.
        int tdn = a2n < -11776;
        const int fi = RT::fi()[i];
        dms = lo16i(dms + ((fi - dms) >> 5));
        dml = lo16i(dml + ((4 * fi - dml) >> 7));

        if (tr) {
            for (int k = 0; k < 6; ++k) b[k] = 0;
            a1n = 0;
            a2n = 0;
            tdn = 0;
            ap = 256;
        } else {
            const int grad = dqmag != 0 ? 128 : 0;
            for (int k = 0; k < 6; ++k) {
                const int u = dqs[k] == s ? grad : -grad;
                b[k] = lo16i(b[k] - (b[k] >> RT::leak) + u);
            }
            const int v = satMag(lo16i(4 * dms - dml));
            if (y >= 1536 && v < (dml >> 3) && tdn == 0)
                ap = ap + ((-ap) >> 4);
            else
                ap = ap + ((512 - ap) >> 4);
        }
        a[0] = a1n;
        a[1] = a2n;
        td = tdn;

        // Delay lines.
        for (int k = 5; k > 0; --k) {
            dq[k] = dq[k - 1];
            dqs[k] = dqs[k - 1];
        }
        dq[0] = floatWord(dqmag);
        dqs[0] = s;
        sr[1] = sr[0];
        srs[1] = srs[0];
        if (srv == -32768) {
            sr[0] = 32;
            srs[0] = 1;
        } else {
            sr[0] = floatWord(srv < 0 ? -srv : srv);
            srs[0] = srv < 0;
        }
        pk2 = pk1;
        pk1 = pk0;
        return srv;
    }
};

template <int R>
void encodeRun(KvoG726EncodeState& st, const Kvo16s* src, Kvo8u* dst, int len) {
    using RT = Rate<R>;
    Work w;
    w.load(st);
    int pk0 = st.pk0;
    for (int n = 0; n < len; ++n) {
        const int y = w.scale();
        const int se = w.estimate();
        const int d = lo16i(src[n] - se);
        const int dln = lo16i(logMag(satMag(d)) - (y >> 2));
        const int p = levelPosition<R>(dln);
        const int code = d < 0 ? RT::indNeg[p] : RT::indPos[p];
        dst[n] = static_cast<Kvo8u>(code);
        w.template update<R>(code, y, se, pk0);
    }
    w.store(st, pk0);
}

// Synchronous tandem adjustment: compares the code that a coder behind this
// decoder would send for the linear value lin of the output byte with the
// received code, on a monotonic scale.  Returns 0 to keep the byte, -1 for
// one step down, +1 for one step up.
template <int R>
inline int tandemStep(int lin, int se, int y, int code) {
    using RT = Rate<R>;
    const int dx = (lin >> 2) - se;
    const int dln = lo16i(logMag(dx < 0 ? -dx : dx) - (y >> 2));
    const int p = levelPosition<R>(dln);
    const int id = dx < 0 ? RT::syncNeg[p] : RT::syncPos[p];
    constexpr int half = 1 << (RT::bits - 1);
    const int im = (code & half) ? code & (half - 1) : code + half;
    return id == im ? 0 : (id > im ? -1 : 1);
}

template <int R, int LAW>
void decodeRun(KvoG726EncodeState& st, const Kvo8u* src, Kvo16s* dst, int len) {
    using RT = Rate<R>;
    constexpr int mask = (1 << RT::bits) - 1;
    Work w;
    w.load(st);
    int pk0 = st.pk0;
    for (int n = 0; n < len; ++n) {
        const int code = src[n] & mask;
        const int y = w.scale();
        const int se = w.estimate();
        const int sr = w.template update<R>(code, y, se, pk0);
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
            const int step = tandemStep<R>(tab::u2l[c], se, y, code);
            if (step != 0) {
                // Byte 127 arises only from SR = -32768 and steps to its neighbours
                // 126 and 255.
                if (c == 127)
                    c = step < 0 ? 126 : 255;
                else
                    c = step < 0 ? tab::u2LT[c] : tab::u2GT[c];
            }
            dst[n] = static_cast<Kvo16s>(c);
        } else {
            int v = sr == -32768 ? -2 : sr;
            v = v < -8192 ? -8192 : (v > 8191 ? 8191 : v);
            int c = aLawByte(4 * v);
            const int step = tandemStep<R>(tab::a2l[c], se, y, code);
            if (step != 0) c = step < 0 ? tab::a2LT[c] : tab::a2GT[c];
            dst[n] = static_cast<Kvo16s>(c);
        }
    }
    w.store(st, pk0);
}

template <int LAW>
void decodeLaw(KvoG726EncodeState& st, const Kvo8u* src, Kvo16s* dst, int len) {
    switch (st.rateIndex) {
        case 0: decodeRun<0, LAW>(st, src, dst, len); break;
        case 1: decodeRun<1, LAW>(st, src, dst, len); break;
        case 2: decodeRun<2, LAW>(st, src, dst, len); break;
        default: decodeRun<3, LAW>(st, src, dst, len); break;
    }
}

int rateIndexOf(KvoSpeechRate rate) {
    switch (rate) {
        case kvoRate16000: return 0;
        case kvoRate24000: return 1;
        case kvoRate32000: return 2;
        case kvoRate40000: return 3;
        default: return -1;
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
    return s.rateIndex >= 0 && s.rateIndex <= 3 && s.yu >= 544 && s.yu <= 5120 &&
           s.yl >= 34816 && s.yl <= 327680 && s.ap >= 0 && s.ap <= 512 &&
           (s.td == 0 || s.td == 1);
}

}  // namespace

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
    switch (pState->rateIndex) {
        case 0: encodeRun<0>(*pState, pSrc, pDst, len); break;
        case 1: encodeRun<1>(*pState, pSrc, pDst, len); break;
        case 2: encodeRun<2>(*pState, pSrc, pDst, len); break;
        default: encodeRun<3>(*pState, pSrc, pDst, len); break;
    }
    return kvoOk;
}

KvoStatus kvosDecodeGetStateSize_G726_8u16s(Kvo32s* pSize) {
    if (pSize == nullptr) return kvoErrNullPtr;
    *pSize = static_cast<Kvo32s>(sizeof(KvoG726DecodeState));
    return kvoOk;
}

KvoStatus kvosDecodeInit_G726_8u16s(KvoG726DecodeState* pState, KvoSpeechRate rate,
                                    Kvo32s law) {
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
    if (!coreInRange(pState->core) || pState->law < 0 || pState->law > 2)
        return kvoErrOutOfRange;
    switch (pState->law) {
        case 0: decodeLaw<0>(pState->core, pSrc, pDst, len); break;
        case 1: decodeLaw<1>(pState->core, pSrc, pDst, len); break;
        default: decodeLaw<2>(pState->core, pSrc, pDst, len); break;
    }
    return kvoOk;
}

}  // namespace impl
}  // namespace kvo
