// Argument checks of every GSM full-rate export: nulls first, then lengths,
// then ranges and scale; a refused call leaves outputs and memories untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "kvosc.h"

namespace {

struct Bufs {
    Kvo16s src[64], dst[64], mem[9], rc[8];
    Kvo32s acf[9], mx, lag;
    KvoHighPassState_GSMFR hp;
    Bufs() {
        for (int i = 0; i < 64; ++i) src[i] = static_cast<Kvo16s>(i % 8);
        std::memset(dst, 0x5a, sizeof dst);
        std::memset(mem, 0x3c, sizeof mem);
        for (int i = 0; i < 8; ++i) rc[i] = static_cast<Kvo16s>(1000 * i - 3000);
        for (int i = 0; i < 9; ++i) acf[i] = 1000000 - 1000 * i;
        mx = lag = -12345;
        std::memset(&hp, 0xa5, sizeof hp);
    }
    bool same(const Bufs& o) const {
        return !std::memcmp(dst, o.dst, sizeof dst) && !std::memcmp(mem, o.mem, sizeof mem) &&
               !std::memcmp(&hp, &o.hp, sizeof hp) && mx == o.mx && lag == o.lag &&
               !std::memcmp(src, o.src, sizeof src);
    }
};

struct Case {
    std::string what;
    std::function<KvoStatus(Bufs&)> call;
    KvoStatus want;
};

TEST(GsmFrArgs, EveryExportRefusesBadArgumentsWithoutWriting) {
    const Case cases[] = {
        {"hp null src",
         [](Bufs& b) { return kvosHighPassFilter_GSMFR_16s(nullptr, b.dst, 4, &b.hp); },
         kvoErrNullPtr},
        {"hp null dst",
         [](Bufs& b) { return kvosHighPassFilter_GSMFR_16s(b.src, nullptr, 4, &b.hp); },
         kvoErrNullPtr},
        {"hp null state, len 0",
         [](Bufs& b) { return kvosHighPassFilter_GSMFR_16s(b.src, b.dst, 0, nullptr); },
         kvoErrNullPtr},
        {"hp len 0", [](Bufs& b) { return kvosHighPassFilter_GSMFR_16s(b.src, b.dst, 0, &b.hp); },
         kvoErrSize},
        {"pre null mem",
         [](Bufs& b) { return kvosPreemphasize_GSMFR_16s(b.src, b.dst, 4, nullptr); },
         kvoErrNullPtr},
        {"pre null src",
         [](Bufs& b) { return kvosPreemphasize_GSMFR_16s(nullptr, b.dst, 4, b.mem); },
         kvoErrNullPtr},
        {"pre len -1", [](Bufs& b) { return kvosPreemphasize_GSMFR_16s(b.src, b.dst, -1, b.mem); },
         kvoErrSize},
        {"de null buf", [](Bufs& b) { return kvosDeemphasize_GSMFR_16s_I(nullptr, 4, b.mem); },
         kvoErrNullPtr},
        {"de null mem", [](Bufs& b) { return kvosDeemphasize_GSMFR_16s_I(b.dst, 4, nullptr); },
         kvoErrNullPtr},
        {"de len 0", [](Bufs& b) { return kvosDeemphasize_GSMFR_16s_I(b.dst, 0, b.mem); },
         kvoErrSize},
        {"schur null src", [](Bufs& b) { return kvosSchur_GSMFR_32s16s(nullptr, b.dst, 8); },
         kvoErrNullPtr},
        {"schur null dst", [](Bufs& b) { return kvosSchur_GSMFR_32s16s(b.acf, nullptr, 8); },
         kvoErrNullPtr},
        {"schur order 0", [](Bufs& b) { return kvosSchur_GSMFR_32s16s(b.acf, b.dst, 0); },
         kvoErrSize},
        {"schur order 9", [](Bufs& b) { return kvosSchur_GSMFR_32s16s(b.acf, b.dst, 9); },
         kvoErrSize},
        {"schur order -1", [](Bufs& b) { return kvosSchur_GSMFR_32s16s(b.acf, b.dst, -1); },
         kvoErrSize},
        {"sta null rc",
         [](Bufs& b) { return kvosShortTermAnalysisFilter_GSMFR_16s_I(nullptr, b.dst, 4, b.mem); },
         kvoErrNullPtr},
        {"sta null buf",
         [](Bufs& b) { return kvosShortTermAnalysisFilter_GSMFR_16s_I(b.rc, nullptr, 4, b.mem); },
         kvoErrNullPtr},
        {"sta null mem",
         [](Bufs& b) { return kvosShortTermAnalysisFilter_GSMFR_16s_I(b.rc, b.dst, 4, nullptr); },
         kvoErrNullPtr},
        {"sta len 0",
         [](Bufs& b) { return kvosShortTermAnalysisFilter_GSMFR_16s_I(b.rc, b.dst, 0, b.mem); },
         kvoErrSize},
        {"sts null rc",
         [](Bufs& b) {
             return kvosShortTermSynthesisFilter_GSMFR_16s(nullptr, b.src, b.dst, 4, b.mem);
         },
         kvoErrNullPtr},
        {"sts null src",
         [](Bufs& b) {
             return kvosShortTermSynthesisFilter_GSMFR_16s(b.rc, nullptr, b.dst, 4, b.mem);
         },
         kvoErrNullPtr},
        {"sts null dst",
         [](Bufs& b) {
             return kvosShortTermSynthesisFilter_GSMFR_16s(b.rc, b.src, nullptr, 4, b.mem);
         },
         kvoErrNullPtr},
        {"sts null mem",
         [](Bufs& b) {
             return kvosShortTermSynthesisFilter_GSMFR_16s(b.rc, b.src, b.dst, 4, nullptr);
         },
         kvoErrNullPtr},
        {"sts len -5",
         [](Bufs& b) {
             return kvosShortTermSynthesisFilter_GSMFR_16s(b.rc, b.src, b.dst, -5, b.mem);
         },
         kvoErrSize},
        {"wf null src", [](Bufs& b) { return kvosWeightingFilter_GSMFR_16s(nullptr, b.dst, 4); },
         kvoErrNullPtr},
        {"wf null dst",
         [](Bufs& b) { return kvosWeightingFilter_GSMFR_16s(b.src + 5, nullptr, 4); },
         kvoErrNullPtr},
        {"wf len 0", [](Bufs& b) { return kvosWeightingFilter_GSMFR_16s(b.src + 5, b.dst, 0); },
         kvoErrSize},
        {"apcm null src",
         [](Bufs& b) { return kvosRPEQuantDecode_GSMFR_16s(nullptr, 100, 2, b.dst); },
         kvoErrNullPtr},
        {"apcm null dst, bad exp",
         [](Bufs& b) { return kvosRPEQuantDecode_GSMFR_16s(b.src, 100, -1, nullptr); },
         kvoErrNullPtr},
        {"apcm exp -1", [](Bufs& b) { return kvosRPEQuantDecode_GSMFR_16s(b.src, 100, -1, b.dst); },
         kvoErrScaleRange},
        {"lag null src1",
         [](Bufs& b) { return kvosCrossCorrLagMax_16s(nullptr, b.src, 8, 4, &b.mx, &b.lag); },
         kvoErrNullPtr},
        {"lag null src2",
         [](Bufs& b) { return kvosCrossCorrLagMax_16s(b.src, nullptr, 8, 4, &b.mx, &b.lag); },
         kvoErrNullPtr},
        {"lag null max",
         [](Bufs& b) { return kvosCrossCorrLagMax_16s(b.src, b.src, 8, 4, nullptr, &b.lag); },
         kvoErrNullPtr},
        {"lag null lag",
         [](Bufs& b) { return kvosCrossCorrLagMax_16s(b.src, b.src, 8, 4, &b.mx, nullptr); },
         kvoErrNullPtr},
        {"lag len 0 before range",
         [](Bufs& b) { return kvosCrossCorrLagMax_16s(b.src, b.src, 0, -1, &b.mx, &b.lag); },
         kvoErrSize},
        {"lag maxLag -1",
         [](Bufs& b) { return kvosCrossCorrLagMax_16s(b.src, b.src, 8, -1, &b.mx, &b.lag); },
         kvoErrRange},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bufs b;
        const Bufs before;
        EXPECT_EQ(c.call(b), c.want);
        EXPECT_TRUE(b.same(before));
    }
}

}  // namespace
