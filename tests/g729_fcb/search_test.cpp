// G.729 and annex A four-pulse searches: recovery of a filtered code vector,
// the budgeted main search against an enumeration of its candidates on the
// full int64 matrix, the index layout decoded back into the code vector, the
// signed matrix left behind, and constructed ties.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fcb_model.h"
#include "kvosc.h"

using namespace fcbmodel;

namespace {

struct Out {
    Vec code{};
    int16_t idx[2] = {};
    int16_t times = 0;
    std::vector<Kvo32s> m32;
    std::vector<Kvo16s> m16;
};

enum class Form { G729_16, G729_32, A_16, A_32 };
constexpr Form kForms[] = {Form::G729_16, Form::G729_32, Form::A_16, Form::A_32};
constexpr Form kMainForms[] = {Form::G729_16, Form::G729_32};

Out run(Form f, const Vec& h, const Vec& d, int16_t times = 0, int subFrame = 0) {
    Out o;
    o.times = times;
    o.m32.resize(616);
    o.m16.resize(616);
    kvosToeplizMatrix_G729_16s32s(h.data(), o.m32.data());
    kvosToeplizMatrix_G729_16s(h.data(), o.m16.data());
    KvoStatus st = kvoOk;
    switch (f) {
        case Form::G729_16:
            st = kvosFixedCodebookSearch_G729_16s(d.data(), o.m16.data(), o.code.data(), o.idx,
                                                  &o.times, subFrame);
            break;
        case Form::G729_32:
            st = kvosFixedCodebookSearch_G729_32s16s(d.data(), o.m32.data(), o.code.data(), o.idx,
                                                     &o.times, subFrame);
            break;
        case Form::A_16:
            st = kvosFixedCodebookSearch_G729A_16s(d.data(), o.m16.data(), o.code.data(), o.idx);
            break;
        case Form::A_32:
            st = kvosFixedCodebookSearch_G729A_32s16s(d.data(), o.m32.data(), o.code.data(), o.idx);
            break;
    }
    EXPECT_EQ(st, kvoOk);
    return o;
}

// The index words decode to the returned code vector.
void expectIndexMatchesCode(const Out& o) {
    const auto ps = decodeG729(o.idx[0], o.idx[1]);
    EXPECT_EQ(code(ps, 8191, -8192), o.code);
}

Vec correlate(const Vec& h, const Vec& x) {
    Vec d{};
    EXPECT_EQ(kvosCrossCorr_NormM_16s(h.data(), x.data(), L, d.data()), kvoOk);
    return d;
}

// ---- budgeted main search, enumerated on the full matrix ----------------------

struct Model {
    int pos[4] = {0, 1, 2, 3};
    int time = 0;
};

Model modelG729(const Vec& h, const Vec& d, int extra) {
    const auto hs = scaleG729(h.data());
    int sg[L], mag[L];
    for (int i = 0; i < L; ++i) {
        sg[i] = d[i] >= 0 ? 1 : -1;
        mag[i] = d[i] >= 0 ? d[i] : std::min(32767, -d[i]);
    }
    // Elements at the 16-bit scale, off-diagonal ones times the pair factor.
    auto r = [&](int a, int b) -> i64 {
        const i64 m = s16(corr(hs, a, b) >> 15);
        if (a == b) return m;
        const i64 f = sg[a] != sg[b] ? -32767 : (sg[a] > 0 ? 32766 : 32767);
        return (m * f) >> 15;
    };
    i64 sum = 0;
    int mx[3] = {0, 0, 0};
    for (int p = 0; p < L; ++p)
        if (p % 5 < 3) {
            sum += mag[p];
            mx[p % 5] = std::max(mx[p % 5], mag[p]);
        }
    const i64 avg = sum >> 3;
    const i64 thres = avg + (((mx[0] + mx[1] + mx[2] - avg) * 13107) >> 15);

    Model m;
    m.time = 75 + extra;
    i64 bestSq = 0, bestAlp = 32767;
    for (int a = 0; a < L; a += 5)
        for (int b = 1; b < L; b += 5)
            for (int c = 2; c < L; c += 5) {
                if (mag[a] + mag[b] + mag[c] <= thres) continue;
                std::vector<int> lasts;
                for (int e = 3; e < L; e += 5) lasts.push_back(e);
                for (int e = 4; e < L; e += 5) lasts.push_back(e);
                for (int e : lasts) {
                    const int p[4] = {a, b, c, e};
                    i64 en = 0;
                    for (int i = 0; i < 4; ++i)
                        for (int j = 0; j < 4; ++j) en += r(p[i], p[j]);
                    const i64 alp = w16(en >> 4);
                    const i64 ps = mag[a] + mag[b] + mag[c] + mag[e];
                    const i64 sq = (ps * ps) >> 15;
                    if (sq * bestAlp > bestSq * alp) {
                        bestSq = sq;
                        bestAlp = alp;
                        std::copy(p, p + 4, m.pos);
                    }
                }
                if (--m.time <= 0) return m;
            }
    return m;
}

TEST(G729FcbSearch, MainSearchMatchesEnumerationOverTwoSubframes) {
    std::mt19937 g(17);
    std::uniform_int_distribution<int> dv(-8191, 8191), pick(0, 3);
    for (int r = 0; r < 40; ++r) {
        SCOPED_TRACE(r);
        const Vec h = impulse(g);
        // Random targets (many triples pass: the budget runs out), and
        // sparser ones (few pass: budget left for the next subframe).
        Vec d0{}, d1{};
        for (int i = 0; i < L; ++i) {
            d0[i] = static_cast<int16_t>(dv(g) >> (r % 2 ? 0 : 4 * pick(g)));
            d1[i] = static_cast<int16_t>(dv(g) >> (r % 3 ? 0 : 4 * pick(g)));
        }
        for (Form f : kMainForms) {
            const Model m0 = modelG729(h, d0, 30);
            Out o0 = run(f, h, d0, 999, 0);
            EXPECT_EQ(o0.times, m0.time);
            std::vector<Pulse> ps;
            for (int k = 0; k < 4; ++k) ps.push_back({m0.pos[k], d0[m0.pos[k]] >= 0 ? 1 : -1});
            EXPECT_EQ(o0.code, code(ps, 8191, -8192));
            expectIndexMatchesCode(o0);

            const Model m1 = modelG729(h, d1, o0.times);
            Out o1 = run(f, h, d1, o0.times, 1);
            EXPECT_EQ(o1.times, m1.time);
            ps.clear();
            for (int k = 0; k < 4; ++k) ps.push_back({m1.pos[k], d1[m1.pos[k]] >= 0 ? 1 : -1});
            EXPECT_EQ(o1.code, code(ps, 8191, -8192));
        }
    }
}

TEST(G729FcbSearch, BudgetIsResetBySubframeZeroAndInheritedOtherwise) {
    Vec h{};
    h[0] = 4096;
    const Vec zero{};
    for (Form f : kMainForms) {
        // No triple passes a zero target: nothing is spent.
        Out o = run(f, h, zero, -5, 0);
        EXPECT_EQ(o.times, 105);
        o = run(f, h, zero, 105, 1);
        EXPECT_EQ(o.times, 180);
        // The 32-bit form takes any positive subframe as a later one.
        if (f == Form::G729_32) {
            o = run(f, h, zero, 7, 12);
            EXPECT_EQ(o.times, 82);
            o = run(f, h, zero, 7, 0x10000);  // low 16 bits: subframe 0
            EXPECT_EQ(o.times, 105);
        }
    }
}

// ---- recovery of a filtered code vector -----------------------------------------

// Every pulse has the sign of d at its position and the largest |d| of its
// track (tracks 3 and 4 counted as one).
bool wellPosed(const std::vector<Pulse>& ps, const Vec& d) {
    for (const Pulse& p : ps) {
        if ((d[p.pos] >= 0 ? 1 : -1) != p.sign) return false;
        const int t = p.pos % 5;
        for (int q = 0; q < L; ++q)
            if (q != p.pos && (q % 5 == t || (t >= 3 && q % 5 >= 3)) &&
                std::abs(d[q]) >= std::abs(d[p.pos]))
                return false;
    }
    return true;
}

TEST(G729FcbSearch, FindsTheCodeVectorThatMadeTheTarget) {
    std::mt19937 g(729);
    std::uniform_int_distribution<int> idx(0, 7), coin(0, 1);
    int used = 0;
    for (int r = 0; r < 300; ++r) {
        SCOPED_TRACE(r);
        const Vec h = impulse(g);
        std::vector<Pulse> ps;
        for (int t = 0; t < 3; ++t) ps.push_back({t + 5 * idx(g), coin(g) ? 1 : -1});
        ps.push_back({3 + coin(g) + 5 * idx(g), coin(g) ? 1 : -1});
        const Vec d = correlate(h, target(ps, h, 3000));
        // The searches fix each sign from d and the focused one starts from
        // the track maxima: keep targets where both point at the pulses.
        if (!wellPosed(ps, d)) continue;
        ++used;
        for (Form f : kForms) {
            const Out o = run(f, h, d, 0, 0);
            EXPECT_EQ(o.code, code(ps, 8191, -8192)) << static_cast<int>(f);
            expectIndexMatchesCode(o);
        }
    }
    EXPECT_GT(used, 150);
}

TEST(G729FcbSearch, ZeroAndFlatTargetsGiveTheDefaultPulses) {
    // Zero: every sign is plus and no candidate is better than the start, so
    // the pulses stay at 0, 1, 2, 3.  Flat: every triple sums exactly to the
    // threshold and none passes (main search only).
    Vec h{};
    h[0] = 4096;
    h[1] = -1500;
    Vec flat;
    flat.fill(-1000);
    for (Form f : kForms) {
        const Out o = run(f, h, Vec{}, 0, 0);
        EXPECT_EQ(o.idx[0], 15);
        EXPECT_EQ(o.idx[1], 0);
        EXPECT_EQ(o.code, code({{0, 1}, {1, 1}, {2, 1}, {3, 1}}, 8191, -8192));
    }
    for (Form f : kMainForms) {
        const Out o = run(f, h, flat, 0, 0);
        EXPECT_EQ(o.idx[0], 0);
        EXPECT_EQ(o.idx[1], 0);
        EXPECT_EQ(o.code, code({{0, -1}, {1, -1}, {2, -1}, {3, -1}}, 8191, -8192));
        EXPECT_EQ(o.times, 105);
    }
}

// ---- ties and scan order ---------------------------------------------------------

TEST(G729FcbSearch, TiesKeepTheFirstCandidateInScanOrder) {
    // A unit impulse makes every energy equal; equal correlations then tie.
    Vec h{};
    h[0] = 4096;
    // Track 0 ties between positions 0 and 5: the first one stays.
    Vec d{};
    d[0] = d[5] = d[1] = d[2] = d[3] = 4000;
    for (Form f : kForms) {
        const Out o = run(f, h, d, 0, 0);
        EXPECT_EQ(o.code, code({{0, 1}, {1, 1}, {2, 1}, {3, 1}}, 8191, -8192)) << int(f);
    }
    // Last pulse tied between position 8 (track 3) and 4 (track 4): track 3
    // is searched in full before track 4, so 8 stays.
    d = Vec{};
    d[0] = d[1] = d[2] = 4000;
    d[8] = d[4] = -3000;
    for (Form f : kForms) {
        const Out o = run(f, h, d, 0, 0);
        EXPECT_EQ(o.code, code({{0, 1}, {1, 1}, {2, 1}, {8, -1}}, 8191, -8192)) << int(f);
        expectIndexMatchesCode(o);
    }
}

// ---- the signed matrix left behind ---------------------------------------------

TEST(G729FcbSearch, MatrixIsLeftWithTheSignFactors) {
    std::mt19937 g(3);
    std::uniform_int_distribution<int> dv(-8000, 8000);
    for (int r = 0; r < 10; ++r) {
        const Vec h = impulse(g);
        Vec d{};
        for (auto& x : d) x = static_cast<int16_t>(dv(g));
        const auto hs = scaleG729(h.data());
        for (Form f : kForms) {
            const Out o = run(f, h, d, 0, 0);
            const bool main = f == Form::G729_16 || f == Form::G729_32;
            for (int a = 0; a < L; ++a)
                for (int b = a; b < L; ++b) {
                    const int off = offsetG729(a, b);
                    if (off < 0 || (a != b && a % 5 > b % 5)) continue;
                    const i64 m = corr(hs, a, b) >> 15;
                    i64 want = m;
                    if (a != b) {
                        const bool pa = d[a] >= 0, pb = d[b] >= 0;
                        const i64 fct = main ? (pa != pb ? -32767 : pa ? 32766 : 32767)
                                             : (pa == pb ? 32767 : -32768);
                        want = std::min<i64>((m * fct) >> 15, 32767);
                    }
                    const i64 got = (f == Form::G729_16 || f == Form::A_16) ? o.m16[off] : o.m32[off];
                    ASSERT_EQ(got, want) << a << "," << b;
                }
        }
    }
}

}  // namespace
