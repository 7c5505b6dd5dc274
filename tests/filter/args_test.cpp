// Argument checks of every filter export: each combination of null pointers (also with a bad
// value, where the null must win), then the bad lengths, orders and scales; a refused call
// leaves every output, memory and state untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "kvosc.h"

namespace {

struct Bufs {
    Kvo16s lpc[32], src[128], dst[128], mem[32], coef[22];
    KvoHighPassState_G729 hp;
    Bufs() {
        for (int i = 0; i < 32; ++i) lpc[i] = static_cast<Kvo16s>(i == 0 ? 4096 : 100 - 7 * i);
        for (int i = 0; i < 128; ++i) src[i] = static_cast<Kvo16s>(i * 37 - 2000);
        for (int i = 0; i < 128; ++i) dst[i] = 0x5a5a;
        for (int i = 0; i < 32; ++i) mem[i] = static_cast<Kvo16s>(i * 11);
        for (int i = 0; i < 22; ++i) coef[i] = static_cast<Kvo16s>(i == 0 || i == 11 ? 4096 : i);
        std::memset(&hp, 0xa5, sizeof hp);
    }
};

// v: the length or order, s: the scale; m: bit i set makes pointer i null.
using Call = std::function<KvoStatus(Bufs& b, unsigned m, int v, int s)>;
struct Bad {
    int v, s;
    KvoStatus want;
};
struct Export {
    const char* name;
    int pointers;
    Call call;
    int v, s;
    std::vector<Bad> bad;
};

constexpr KvoStatus S = kvoErrSize, R = kvoErrScaleRange;

// clang-format off
#define P(i, p) (((m >> (i)) & 1) ? nullptr : (p))
#define FN(...) [](Bufs& b, unsigned m, int v, int s) { (void)b; (void)v; (void)s; return __VA_ARGS__; }
const std::vector<Export> kExports = {
    {"SynNR", 3, FN(kvosSynthesisFilter_NR_16s_Sfs(P(0, b.lpc), P(1, b.src), P(2, b.dst), v, s, b.mem)), 40, 12,
     {{0, 12, S}, {-1, 14, S}, {40, 11, R}, {40, 14, R}, {40, -12, R}}},
    {"SynNR_I", 2, FN(kvosSynthesisFilter_NR_16s_ISfs(P(0, b.lpc), P(1, b.dst), v, s, b.mem)), 40, 12,
     {{0, 12, S}, {40, 11, R}, {40, 14, R}}},
    {"SynLow", 2, FN(kvosSynthesisFilterLow_NR_16s_ISfs(P(0, b.lpc), P(1, b.dst), v, s, b.mem)), 40, 12,
     {{-5, 12, S}, {40, 0, R}}},
    {"SynE", 3, FN(kvosSynthesisFilter_G729E_16s(P(0, b.lpc), s, P(1, b.src), P(2, b.dst), v, b.mem)), 40, 10,
     {{40, 0, S}, {40, -3, S}, {40, 0x10000, S}, {40, 0x8000, S}, {0, 10, S}}},
    {"SynE_I", 2, FN(kvosSynthesisFilter_G729E_16s_I(P(0, b.lpc), s, P(1, b.dst), v, b.mem)), 40, 16,
     {{40, 0, S}, {-1, 16, S}}},
    {"Zsr", 2, FN(kvosSynthesisFilterZeroStateResponse_NR_16s(P(0, b.lpc), P(1, b.dst), v, s)), 40, 12,
     {{0, 12, S}, {40, 15, R}}},
    {"Res", 3, FN(kvosResidualFilter_G729_16s(P(0, b.src + 10), P(1, b.lpc), P(2, b.dst))), 0, 0, {}},
    {"ResE", 3, FN(kvosResidualFilter_G729E_16s(P(0, b.lpc), s, P(1, b.src + 16), P(2, b.dst), v)), 40, 10,
     {{40, 0, S}, {0, 10, S}, {15, 16, S}}},
    {"Iir", 4, FN(kvosIIR16s_G729_16s(P(0, b.coef), P(1, b.src), P(2, b.dst), P(3, b.mem))), 0, 0, {}},
    {"IirLow", 4, FN(kvosIIR16sLow_G729_16s(P(0, b.coef), P(1, b.src), P(2, b.dst), P(3, b.mem))), 0, 0, {}},
    {"Harm", 2, FN(kvosHarmonicFilter_NR_16s(100, 20, P(0, b.src + 20), P(1, b.dst), v)), 40, 0, {{0, 0, S}}},
    {"Harm_I", 1, FN(kvosHarmonicFilter_16s_I(100, 20, P(0, b.dst + 20), v)), 40, 0, {{-1, 0, S}}},
    {"HpSize", 1, FN(kvosHighPassFilterSize_G729(P(0, reinterpret_cast<Kvo32s*>(b.dst)))), 0, 0, {}},
    {"HpInit", 2, FN(kvosHighPassFilterInit_G729(P(0, b.coef), P(1, &b.hp))), 0, 0, {}},
    {"Hp", 2, FN(kvosHighPassFilter_G729_16s_ISfs(P(0, b.dst), v, s, P(1, &b.hp))), 40, 12,
     {{0, 12, S}, {40, 11, R}, {40, 14, R}}},
    {"Tilt", 2, FN(kvosTiltCompensation_G729E_16s(100, P(0, b.src), P(1, b.dst))), 0, 0, {}},
};
#undef FN
#undef P
// clang-format on

}  // namespace

TEST(Arguments, EveryExportRefusesBeforeWriting) {
    for (const Export& e : kExports) {
        auto refused = [&](unsigned m, int v, int s, KvoStatus want) {
            SCOPED_TRACE(testing::Message()
                         << e.name << " nulls " << m << " v " << v << " s " << s);
            Bufs b;
            const Bufs before = b;
            EXPECT_EQ(e.call(b, m, v, s), want);
            EXPECT_EQ(0, std::memcmp(&b, &before, sizeof b));
        };
        for (unsigned m = 1; m < (1u << e.pointers); ++m) {
            refused(m, e.v, e.s, kvoErrNullPtr);
            for (const Bad& x : e.bad) refused(m, x.v, x.s, kvoErrNullPtr);
        }
        for (const Bad& x : e.bad) refused(0, x.v, x.s, x.want);
        Bufs b;
        EXPECT_LE(0, e.call(b, 0, e.v, e.s)) << e.name;
    }
}
