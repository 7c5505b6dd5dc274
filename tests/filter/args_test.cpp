// Argument checks of every filter export: nulls first, then lengths and orders, then the scale;
// a refused call leaves every output, memory and state untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kvosc.h"

namespace {

struct Bufs {
    Kvo16s lpc[32];
    Kvo16s src[128];
    Kvo16s dst[128];
    Kvo16s mem[32];
    Kvo16s coef[22];
    KvoHighPassState_G729 hp;
    Kvo32s size;
    Bufs() {
        for (int i = 0; i < 32; ++i) lpc[i] = static_cast<Kvo16s>(i == 0 ? 4096 : 100 - 7 * i);
        for (int i = 0; i < 128; ++i) src[i] = static_cast<Kvo16s>(i * 37 - 2000);
        for (int i = 0; i < 128; ++i) dst[i] = 0x5a5a;
        for (int i = 0; i < 32; ++i) mem[i] = static_cast<Kvo16s>(i * 11);
        for (int i = 0; i < 22; ++i) coef[i] = static_cast<Kvo16s>(i == 0 || i == 11 ? 4096 : i);
        std::memset(&hp, 0xa5, sizeof hp);
        size = -12345;
    }
};

struct Case {
    std::string what;
    std::function<KvoStatus(Bufs&)> call;
    KvoStatus want;
};

}  // namespace

TEST(Arguments, EveryExportRefusesBeforeWriting) {
    const Kvo16s* N = nullptr;
    Kvo16s* W = nullptr;
    // clang-format off
    const std::vector<Case> cases = {
        // order-10 synthesis, three forms
        {"syn null lpc", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(N, b.src, b.dst, 40, 12, b.mem); }, kvoErrNullPtr},
        {"syn null src", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, N, b.dst, 40, 12, b.mem); }, kvoErrNullPtr},
        {"syn null dst", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, b.src, W, 40, 12, b.mem); }, kvoErrNullPtr},
        {"syn null before len", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, N, b.dst, 0, 11, b.mem); }, kvoErrNullPtr},
        {"syn len 0", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, b.src, b.dst, 0, 12, b.mem); }, kvoErrSize},
        {"syn len -1 before scale", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, b.src, b.dst, -1, 14, b.mem); }, kvoErrSize},
        {"syn scale 11", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, b.src, b.dst, 40, 11, b.mem); }, kvoErrScaleRange},
        {"syn scale 14", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, b.src, b.dst, 40, 14, nullptr); }, kvoErrScaleRange},
        {"syn scale -12", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_Sfs(b.lpc, b.src, b.dst, 40, -12, b.mem); }, kvoErrScaleRange},
        {"synI null lpc", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_ISfs(N, b.dst, 40, 12, b.mem); }, kvoErrNullPtr},
        {"synI null srcdst", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_ISfs(b.lpc, W, 40, 12, b.mem); }, kvoErrNullPtr},
        {"synI len 0", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_ISfs(b.lpc, b.dst, 0, 12, b.mem); }, kvoErrSize},
        {"synI scale 11", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_ISfs(b.lpc, b.dst, 40, 11, b.mem); }, kvoErrScaleRange},
        {"synI scale 14", [&](Bufs& b) { return kvosSynthesisFilter_NR_16s_ISfs(b.lpc, b.dst, 40, 14, b.mem); }, kvoErrScaleRange},
        {"synLow null lpc", [&](Bufs& b) { return kvosSynthesisFilterLow_NR_16s_ISfs(N, b.dst, 40, 12, b.mem); }, kvoErrNullPtr},
        {"synLow null srcdst", [&](Bufs& b) { return kvosSynthesisFilterLow_NR_16s_ISfs(b.lpc, W, 40, 12, b.mem); }, kvoErrNullPtr},
        {"synLow len -5", [&](Bufs& b) { return kvosSynthesisFilterLow_NR_16s_ISfs(b.lpc, b.dst, -5, 12, b.mem); }, kvoErrSize},
        {"synLow scale 0", [&](Bufs& b) { return kvosSynthesisFilterLow_NR_16s_ISfs(b.lpc, b.dst, 40, 0, b.mem); }, kvoErrScaleRange},
        // any-order synthesis
        {"synE null lpc", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(N, 10, b.src, b.dst, 40, b.mem); }, kvoErrNullPtr},
        {"synE null src", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, 10, N, b.dst, 40, b.mem); }, kvoErrNullPtr},
        {"synE null dst", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, 10, b.src, W, 40, b.mem); }, kvoErrNullPtr},
        {"synE order 0", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, 0, b.src, b.dst, 40, b.mem); }, kvoErrSize},
        {"synE order -3", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, -3, b.src, b.dst, 40, b.mem); }, kvoErrSize},
        {"synE order 0x10000 is 0", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, 0x10000, b.src, b.dst, 40, b.mem); }, kvoErrSize},
        {"synE order 0x8000 is negative", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, 0x8000, b.src, b.dst, 40, b.mem); }, kvoErrSize},
        {"synE len 0", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s(b.lpc, 10, b.src, b.dst, 0, b.mem); }, kvoErrSize},
        {"synEI null lpc", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s_I(N, 10, b.dst, 40, b.mem); }, kvoErrNullPtr},
        {"synEI null srcdst", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s_I(b.lpc, 10, W, 40, b.mem); }, kvoErrNullPtr},
        {"synEI order 0", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s_I(b.lpc, 0, b.dst, 40, b.mem); }, kvoErrSize},
        {"synEI len -1", [&](Bufs& b) { return kvosSynthesisFilter_G729E_16s_I(b.lpc, 16, b.dst, -1, b.mem); }, kvoErrSize},
        // zero-state response
        {"zsr null lpc", [&](Bufs& b) { return kvosSynthesisFilterZeroStateResponse_NR_16s(N, b.dst, 40, 12); }, kvoErrNullPtr},
        {"zsr null dst", [&](Bufs& b) { return kvosSynthesisFilterZeroStateResponse_NR_16s(b.lpc, W, 40, 12); }, kvoErrNullPtr},
        {"zsr len 0", [&](Bufs& b) { return kvosSynthesisFilterZeroStateResponse_NR_16s(b.lpc, b.dst, 0, 12); }, kvoErrSize},
        {"zsr scale 15", [&](Bufs& b) { return kvosSynthesisFilterZeroStateResponse_NR_16s(b.lpc, b.dst, 40, 15); }, kvoErrScaleRange},
        // residual filters
        {"res null src", [&](Bufs& b) { return kvosResidualFilter_G729_16s(N, b.lpc, b.dst); }, kvoErrNullPtr},
        {"res null lpc", [&](Bufs& b) { return kvosResidualFilter_G729_16s(b.src + 10, N, b.dst); }, kvoErrNullPtr},
        {"res null dst", [&](Bufs& b) { return kvosResidualFilter_G729_16s(b.src + 10, b.lpc, W); }, kvoErrNullPtr},
        {"resE null lpc", [&](Bufs& b) { return kvosResidualFilter_G729E_16s(N, 10, b.src + 16, b.dst, 40); }, kvoErrNullPtr},
        {"resE null src", [&](Bufs& b) { return kvosResidualFilter_G729E_16s(b.lpc, 10, N, b.dst, 40); }, kvoErrNullPtr},
        {"resE null dst", [&](Bufs& b) { return kvosResidualFilter_G729E_16s(b.lpc, 10, b.src + 16, W, 40); }, kvoErrNullPtr},
        {"resE order 0", [&](Bufs& b) { return kvosResidualFilter_G729E_16s(b.lpc, 0, b.src + 16, b.dst, 40); }, kvoErrSize},
        {"resE len 0", [&](Bufs& b) { return kvosResidualFilter_G729E_16s(b.lpc, 10, b.src + 16, b.dst, 0); }, kvoErrSize},
        {"resE order above len", [&](Bufs& b) { return kvosResidualFilter_G729E_16s(b.lpc, 16, b.src + 16, b.dst, 15); }, kvoErrSize},
        // weighting filters
        {"iir null coeffs", [&](Bufs& b) { return kvosIIR16s_G729_16s(N, b.src, b.dst, b.mem); }, kvoErrNullPtr},
        {"iir null src", [&](Bufs& b) { return kvosIIR16s_G729_16s(b.coef, N, b.dst, b.mem); }, kvoErrNullPtr},
        {"iir null dst", [&](Bufs& b) { return kvosIIR16s_G729_16s(b.coef, b.src, W, b.mem); }, kvoErrNullPtr},
        {"iir null mem", [&](Bufs& b) { return kvosIIR16s_G729_16s(b.coef, b.src, b.dst, W); }, kvoErrNullPtr},
        {"iirLow null coeffs", [&](Bufs& b) { return kvosIIR16sLow_G729_16s(N, b.src, b.dst, b.mem); }, kvoErrNullPtr},
        {"iirLow null src", [&](Bufs& b) { return kvosIIR16sLow_G729_16s(b.coef, N, b.dst, b.mem); }, kvoErrNullPtr},
        {"iirLow null dst", [&](Bufs& b) { return kvosIIR16sLow_G729_16s(b.coef, b.src, W, b.mem); }, kvoErrNullPtr},
        {"iirLow null mem", [&](Bufs& b) { return kvosIIR16sLow_G729_16s(b.coef, b.src, b.dst, W); }, kvoErrNullPtr},
        // harmonic filters
        {"harm null src", [&](Bufs& b) { return kvosHarmonicFilter_NR_16s(100, 20, N, b.dst, 40); }, kvoErrNullPtr},
        {"harm null dst", [&](Bufs& b) { return kvosHarmonicFilter_NR_16s(100, 20, b.src + 20, W, 40); }, kvoErrNullPtr},
        {"harm len 0", [&](Bufs& b) { return kvosHarmonicFilter_NR_16s(100, 20, b.src + 20, b.dst, 0); }, kvoErrSize},
        {"harmI null", [&](Bufs& b) { return kvosHarmonicFilter_16s_I(100, 20, W, 40); }, kvoErrNullPtr},
        {"harmI len -1", [&](Bufs& b) { return kvosHarmonicFilter_16s_I(100, 20, b.dst + 20, -1); }, kvoErrSize},
        // high-pass filter
        {"hp size null", [&](Bufs& b) { return kvosHighPassFilterSize_G729(nullptr); }, kvoErrNullPtr},
        {"hp init null coeffs", [&](Bufs& b) { return kvosHighPassFilterInit_G729(N, &b.hp); }, kvoErrNullPtr},
        {"hp init null mem", [&](Bufs& b) { return kvosHighPassFilterInit_G729(b.coef, nullptr); }, kvoErrNullPtr},
        {"hp null srcdst", [&](Bufs& b) { return kvosHighPassFilter_G729_16s_ISfs(W, 40, 12, &b.hp); }, kvoErrNullPtr},
        {"hp null mem", [&](Bufs& b) { return kvosHighPassFilter_G729_16s_ISfs(b.dst, 40, 12, nullptr); }, kvoErrNullPtr},
        {"hp len 0", [&](Bufs& b) { return kvosHighPassFilter_G729_16s_ISfs(b.dst, 0, 12, &b.hp); }, kvoErrSize},
        {"hp scale 11", [&](Bufs& b) { return kvosHighPassFilter_G729_16s_ISfs(b.dst, 40, 11, &b.hp); }, kvoErrScaleRange},
        {"hp scale 14", [&](Bufs& b) { return kvosHighPassFilter_G729_16s_ISfs(b.dst, 40, 14, &b.hp); }, kvoErrScaleRange},
        // tilt compensation
        {"tilt null src", [&](Bufs& b) { return kvosTiltCompensation_G729E_16s(100, N, b.dst); }, kvoErrNullPtr},
        {"tilt null dst", [&](Bufs& b) { return kvosTiltCompensation_G729E_16s(100, b.src, W); }, kvoErrNullPtr},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Bufs b;
        const Bufs before = b;
        EXPECT_EQ(c.call(b), c.want);
        EXPECT_EQ(0, std::memcmp(&b, &before, sizeof b));
    }
}
