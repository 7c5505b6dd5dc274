// Annex D phase dispersion: a model of the class decision and of the circular convolution run
// alongside the export over long random sequences (records moved between calls), the record
// protocol, and the worked cases.
#include <gtest/gtest.h>

#include <cstring>

#include "g729/post_tables.h"
#include "kvosc.h"
#include "post_model.h"

using pmodel::i16;
using pmodel::i32;
using pmodel::Rng;
using pmodel::sat16;
using pmodel::Vec;

namespace {

struct Model {
    int hist[6] = {}, prevClass = 0, prevCb = 0, onset = 0;

    void push(int pitch) {
        std::memmove(hist + 1, hist, 5 * sizeof(int));
        hist[0] = pitch;
    }
    // The excitation is ltp + cb inno; the innovation is spread by one of three responses.
    void run(const Vec& exc, Vec& out, i16 cb, i16 pitch, Vec& inno) {
        int cls = pitch >= 14745 ? 2 : pitch > 9830 ? 1 : 0;
        push(pitch);
        onset = (cb >> 1) > prevCb ? 2 : std::max(onset - 1, 0);
        const int low =
            static_cast<int>(std::count_if(hist, hist + 6, [](int v) { return v < 9830; }));
        if (low > 2 && onset == 0) cls = 0;
        if (cls > prevClass + 1 && onset == 0) --cls;
        if (onset && cls < 2) ++cls;
        prevClass = cls, prevCb = cb;
        Vec ltp(40), disp(40, 0);
        for (int n = 0; n < 40; ++n)
            ltp[n] = sat16(exc[n] - sat16((i32{inno[n]} * cb + 8192) >> 14));
        for (int p = 0; p < 40; ++p)
            for (int k = 0; k < 40 && inno[p]; ++k) {
                const int j = (k - p + 40) % 40;
                const i32 h =
                    cls == 2 ? (j ? 0 : 32767) : (cls ? kvo::tab::phImpMid : kvo::tab::phImpLow)[j];
                disp[k] = sat16(disp[k] + sat16((h * inno[p]) >> 15));
            }
        inno = disp;
        for (int n = 0; n < 40; ++n)
            out[n] = sat16(sat16((i32{inno[n]} * cb + 8192) >> 14) + ltp[n]);
    }
};

}  // namespace

// Size 20; Init writes the whole record (0x00 and 0xFF prefills end up identical).
TEST(PhaseDispersion, RecordProtocol) {
    Kvo32s size = -1;
    ASSERT_EQ(kvosPhaseDispersionGetStateSize_G729D_16s(&size), kvoOk);
    ASSERT_TRUE(size == 20 && size >= static_cast<Kvo32s>(sizeof(KvoPhaseDispersionState_G729D)));
    alignas(8) unsigned char a[20], b[20];
    std::memset(a, 0x00, 20), std::memset(b, 0xff, 20);
    kvosPhaseDispersionInit_G729D_16s(reinterpret_cast<KvoPhaseDispersionState_G729D*>(a));
    kvosPhaseDispersionInit_G729D_16s(reinterpret_cast<KvoPhaseDispersionState_G729D*>(b));
    EXPECT_EQ(0, std::memcmp(a, b, 20));
}

// 400 subframes of dispersion and update calls with gains around the thresholds, onsets, and
// full-scale pulses in some runs; the record is moved to another buffer now and then.  Every
// output, innovation and record field follows the model.
TEST(PhaseDispersion, LongRunFollowsModel) {
    for (uint32_t seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE(seed);
        Rng r(seed);
        KvoPhaseDispersionState_G729D st[2];
        kvosPhaseDispersionInit_G729D_16s(&st[0]);
        Model m;
        int which = 0, classes[3] = {};
        const bool loud = seed % 4 == 0;
        for (int f = 0; f < 400; ++f) {
            SCOPED_TRACE(f);
            const int band = r.uni(0, 3);
            const i16 pitch = static_cast<i16>(band == 0   ? r.uni(0, 16384)
                                               : band == 1 ? r.uni(9000, 10500)
                                                           : r.uni(14000, 15500));
            const i16 cb = static_cast<i16>(r.uni(0, 4) ? r.uni(0, 600) : r.uni(0, 32767));
            if (r.uni(0, 9) == 0) {
                ASSERT_EQ(kvosPhaseDispersionUpdate_G729D_16s(pitch, cb, &st[which]), kvoOk);
                m.push(pitch), m.prevClass = 2, m.prevCb = cb, m.onset = 0;
            } else {
                Vec inno(40, 0), exc(40), out(40), want(40);
                for (int i = r.uni(0, 12); i > 0; --i)
                    inno[r.uni(0, 39)] = static_cast<i16>(r.uni(0, 1) ? (loud ? 32767 : 8191)
                                                                      : (loud ? -32768 : -8192));
                for (auto& v : exc)
                    v = static_cast<i16>(loud ? r.uni(-32768, 32767) : r.uni(-4000, 4000));
                Vec innoModel = inno;
                ASSERT_EQ(kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), cb, pitch,
                                                        inno.data(), &st[which]),
                          kvoOk);
                m.run(exc, want, cb, pitch, innoModel);
                ASSERT_EQ(inno, innoModel);
                ASSERT_EQ(out, want);
                ++classes[m.prevClass];
            }
            const auto& s = st[which];
            ASSERT_TRUE(std::equal(m.hist, m.hist + 6, s.gainHistory));
            ASSERT_TRUE(s.prevDispersion == m.prevClass && s.prevCbGain == m.prevCb &&
                        s.onset == m.onset);
            if (r.uni(0, 7) == 0) {
                std::memcpy(&st[1 - which], &st[which], sizeof st[0]);
                std::memset(&st[which], 0xcc, sizeof st[0]);
                which = 1 - which;
            }
        }
        EXPECT_TRUE(classes[0] > 10 && classes[1] > 10 && classes[2] > 10);
    }
}

// No pulse: the output is the excitation itself, and the history still moves.  Strong steady
// pitch (class 2) leaves each pulse where it is, less one unit of rounding.
TEST(PhaseDispersion, WorkedCases) {
    KvoPhaseDispersionState_G729D st;
    kvosPhaseDispersionInit_G729D_16s(&st);
    Vec exc(40), inno(40, 0), out(40);
    for (int n = 0; n < 40; ++n) exc[n] = static_cast<i16>(n * 700 - 14000);
    kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), 300, 12000, inno.data(), &st);
    EXPECT_TRUE(out == exc && inno == Vec(40, 0));
    EXPECT_TRUE(st.gainHistory[0] == 12000 && st.prevCbGain == 300 && st.onset == 2);

    for (auto& g : st.gainHistory) g = 16000;
    st.prevDispersion = 2, st.prevCbGain = 1000, st.onset = 0;
    inno[3] = 8191, inno[17] = -8192, inno[39] = 8191;
    const Vec before = inno;
    kvosPhaseDispersion_G729D_16s(exc.data(), out.data(), 1000, 15000, inno.data(), &st);
    EXPECT_EQ(st.prevDispersion, 2);
    for (int n = 0; n < 40; ++n) EXPECT_NEAR(inno[n], before[n], 1) << n;
}
