// Annex D phase dispersion: a model of the class decision and the circular convolution run
// alongside the export over long random sequences, state carried across calls, the record
// protocol, and the worked cases (no pulse, no dispersion).
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "g729/post_tables.h"
#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::i32;
using pmodel::Rng;
using pmodel::Vec;

namespace {

// The decision as a caller would describe it, in plain integers.
struct Model {
    int hist[6] = {};
    int prevClass = 0, prevCb = 0, onset = 0;

    void push(int pitch) {
        for (int i = 5; i > 0; --i) hist[i] = hist[i - 1];
        hist[0] = pitch;
    }
    int decide(int cb, int pitch) {
        int cls = pitch >= 14745 ? 2 : pitch > 9830 ? 1 : 0;
        push(pitch);
        onset = (cb >> 1) > prevCb ? 2 : std::max(onset - 1, 0);
        int low = 0;
        for (int v : hist) low += v < 9830;
        if (low > 2 && onset == 0) cls = 0;
        if (cls > prevClass + 1 && onset == 0) cls -= 1;
        if (onset != 0 && cls < 2) cls += 1;
        prevClass = cls;
        prevCb = cb;
        return cls;
    }
    void update(int pitch, int cb) {
        push(pitch);
        prevClass = 2;
        prevCb = cb;
        onset = 0;
    }
    // Excitation and innovation after dispersion.
    void run(const Vec& exc, Vec& out, i16 cb, i16 pitch, Vec& inno) {
        const int cls = decide(cb, pitch);
        Vec imp(40, 0);
        if (cls == 2)
            imp[0] = 32767;
        else
            for (int k = 0; k < 40; ++k)
                imp[k] = cls == 0 ? kvo::tab::phImpLow[k] : kvo::tab::phImpMid[k];
        Vec ltp(40), disp(40, 0);
        for (int n = 0; n < 40; ++n)
            ltp[n] = pmodel::sat16(i32{exc[n]} - pmodel::sat16((i32{inno[n]} * cb + 8192) >> 14));
        for (int p = 0; p < 40; ++p) {
            if (inno[p] == 0) continue;
            for (int k = 0; k < 40; ++k) {
                const i32 term = pmodel::sat16((i32{imp[(k - p + 40) % 40]} * inno[p]) >> 15);
                disp[k] = pmodel::sat16(i32{disp[k]} + term);
            }
        }
        inno = disp;
        out.resize(40);
        for (int n = 0; n < 40; ++n)
            out[n] = pmodel::sat16(i32{pmodel::sat16((i32{inno[n]} * cb + 8192) >> 14)} + ltp[n]);
    }
};

Vec randomPulses(Rng& r, int count, bool loud) {
    Vec v(40, 0);
    for (int i = 0; i < count; ++i) {
        const int p = r.uni(0, 39);
        v[p] = static_cast<i16>(loud ? (r.uni(0, 1) ? 32767 : -32768)
                                     : (r.uni(0, 1) ? 8191 : -8192));
    }
    return v;
}

void checkState(const KvoPhaseDispersionState_G729D& s, const Model& m) {
    for (int i = 0; i < 6; ++i) EXPECT_EQ(s.gainHistory[i], m.hist[i]) << i;
    EXPECT_EQ(s.prevDispersion, m.prevClass);
    EXPECT_EQ(s.prevCbGain, m.prevCb);
    EXPECT_EQ(s.onset, m.onset);
}

}  // namespace

TEST(PhaseDispersion, RecordProtocol) {
    Kvo32s size = -1;
    ASSERT_EQ(kvosPhaseDispersionGetStateSize_G729D_16s(&size), kvoOk);
    EXPECT_EQ(size, 20);
    EXPECT_GE(size, static_cast<Kvo32s>(sizeof(KvoPhaseDispersionState_G729D)));
    // Init writes the whole record: buffers prefilled with 0x00 and 0xFF end up identical.
    alignas(8) unsigned char a[20], b[20];
    std::memset(a, 0x00, sizeof a);
    std::memset(b, 0xff, sizeof b);
    ASSERT_EQ(kvosPhaseDispersionInit_G729D_16s(reinterpret_cast<KvoPhaseDispersionState_G729D*>(a)),
              kvoOk);
    ASSERT_EQ(kvosPhaseDispersionInit_G729D_16s(reinterpret_cast<KvoPhaseDispersionState_G729D*>(b)),
              kvoOk);
    EXPECT_EQ(0, std::memcmp(a, b, sizeof(KvoPhaseDispersionState_G729D)));
    EXPECT_EQ(0, std::memcmp(a, b, static_cast<size_t>(size)));
}

// A long random run of dispersion and update calls, with gains spread over the thresholds and
// onsets, follows the model subframe by subframe.  The record holds plain values: moving it
// between calls changes nothing.
TEST(PhaseDispersion, LongRunFollowsModel) {
    for (uint32_t seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        KvoPhaseDispersionState_G729D st[2];
        ASSERT_EQ(kvosPhaseDispersionInit_G729D_16s(&st[0]), kvoOk);
        Model m;
        int which = 0;
        int classes[3] = {};
        for (int f = 0; f < 400; ++f) {
            SCOPED_TRACE(f);
            const i16 pitch = static_cast<i16>(r.uni(0, 3) == 0 ? r.uni(0, 16384)
                                                                 : (r.uni(0, 1) ? r.uni(9000, 10500)
                                                                                : r.uni(14000, 15500)));
            const i16 cb = static_cast<i16>(r.uni(0, 4) == 0 ? r.uni(0, 32767) : r.uni(0, 600));
            if (r.uni(0, 9) == 0) {
                ASSERT_EQ(kvosPhaseDispersionUpdate_G729D_16s(pitch, cb, &st[which]), kvoOk);
                m.update(pitch, cb);
            } else {
                const bool loud = seed % 4 == 0;
                Vec inno = randomPulses(r, r.uni(0, 12), loud), innoModel = inno;
                Vec exc(40);
                for (auto& v : exc) v = static_cast<i16>(r.uni(loud ? -32768 : -4000, loud ? 32767 : 4000));
                Vec out(40), want;
                ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), cb, pitch,
                                                        inno.data(), &st[which]),
                          kvoOk);
                m.run(exc, want, cb, pitch, innoModel);
                ASSERT_EQ(inno, innoModel);
                ASSERT_EQ(out, want);
                ++classes[m.prevClass];
            }
            checkState(st[which], m);
            if (r.uni(0, 7) == 0) {
                std::memcpy(&st[1 - which], &st[which], sizeof st[0]);
                std::memset(&st[which], 0xcc, sizeof st[0]);
                which = 1 - which;
            }
        }
        EXPECT_GT(classes[0], 10);
        EXPECT_GT(classes[1], 10);
        EXPECT_GT(classes[2], 10);
    }
}

// No pulse: the output is the excitation itself, and the history still moves.
TEST(PhaseDispersion, ZeroInnovationGivesTheExcitation) {
    KvoPhaseDispersionState_G729D st;
    kvosPhaseDispersionInit_G729D_16s(&st);
    Vec exc(40), inno(40, 0), out(40);
    for (int n = 0; n < 40; ++n) exc[n] = static_cast<i16>(n * 700 - 14000);
    ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), 300, 12000, inno.data(), &st),
              kvoOk);
    EXPECT_EQ(out, exc);
    EXPECT_EQ(inno, Vec(40, 0));
    EXPECT_EQ(st.gainHistory[0], 12000);
    EXPECT_EQ(st.prevCbGain, 300);
    EXPECT_EQ(st.onset, 2);  // 300 / 2 above the cleared previous gain
}

// Class 2 (strong pitch, steady code gain) keeps each pulse where it is, less one unit of
// rounding, and nowhere else; the two dispersing responses spread it over the subframe.
TEST(PhaseDispersion, NoDispersionForStrongPitch) {
    KvoPhaseDispersionState_G729D st;
    kvosPhaseDispersionInit_G729D_16s(&st);
    for (int i = 0; i < 6; ++i) st.gainHistory[i] = 16000;
    st.prevDispersion = 2;
    st.prevCbGain = 1000;
    Vec exc(40, 0), out(40);
    Vec inno(40, 0);
    inno[3] = 8191;
    inno[17] = -8192;
    inno[39] = 8191;
    const Vec before = inno;
    ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), 1000, 15000, inno.data(), &st),
              kvoOk);
    EXPECT_EQ(st.prevDispersion, 2);
    for (int n = 0; n < 40; ++n) EXPECT_NEAR(inno[n], before[n], 1) << n;

    // Weak pitch history: full dispersion, the pulse energy spreads out.
    for (int i = 0; i < 6; ++i) st.gainHistory[i] = 2000;
    st.prevDispersion = 0;
    inno = before;
    ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), 1000, 2000, inno.data(), &st),
              kvoOk);
    EXPECT_EQ(st.prevDispersion, 0);
    int nonzero = 0;
    for (i16 v : inno) nonzero += v != 0;
    EXPECT_GT(nonzero, 30);
}
