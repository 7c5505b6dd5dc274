// Fuzz target of the real FFT, its 16-bit wrapper, the float cross-correlation and the float
// to integer conversions.  The first bytes choose the function and its shape, the rest is
// data.  Besides memory safety it checks two properties: a forward-inverse round trip gives
// the samples back, and every cross-correlation output is bounded by the Cauchy-Schwarz
// product of the inputs.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fft/fft.h"
#include "numeric/vector_fft.h"

namespace {

struct Reader {
    const uint8_t* p;
    size_t n;
    uint8_t byte() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
    int32_t i32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
        return static_cast<int32_t>(v);
    }
    // A bounded finite float in [-1, 1).
    float unit() { return (static_cast<int>(byte()) - 128) / 128.0f; }
};

void roundTrip(Reader& r) {
    const int order = r.byte() % 13;
    const int flag = 1 << (r.byte() % 4);
    const int fmt = r.byte() % 3;
    const uint8_t opts = r.byte();
    const int N = 1 << order;
    Kvo32s ss, is, ws;
    if (kvo::kvosFFTGetSize_R_32f(order, flag, 0, &ss, &is, &ws) != kvoOk) abort();
    std::vector<Kvo8u> mem(ss + (opts & 63)), init(is + 1), work(ws + 1);
    kvo::KvoFFTSpec32f* s = nullptr;
    if (kvo::kvosFFTInit_R_32f(&s, order, flag, 0, mem.data() + (opts & 63), init.data()) != kvoOk)
        abort();
    std::vector<float> x(N), y(N + 2), z(N + 2);
    for (auto& v : x) v = r.unit();
    Kvo8u* w = (opts & 64) ? nullptr : work.data();
    KvoStatus st;
    if (fmt == 0) {
        st = kvo::kvosFFTFwd_RToPerm_32f(x.data(), y.data(), s, w);
        if (st == kvoOk) st = kvo::kvosFFTInv_PermToR_32f(y.data(), z.data(), s, w);
    } else if (fmt == 1) {
        st = kvo::kvosFFTFwd_RToPack_32f(x.data(), y.data(), s, w);
        if (st == kvoOk) st = kvo::kvosFFTInv_PackToR_32f(y.data(), z.data(), s, w);
    } else {
        st = kvo::kvosFFTFwd_RToCCS_32f(x.data(), y.data(), s, w);
        if (st == kvoOk) st = kvo::kvosFFTInv_CCSToR_32f(y.data(), z.data(), s, w);
    }
    if (st != kvoOk) abort();
    const double back = flag == 8 ? N : 1.0;
    for (int n = 0; n < N; ++n)
        if (std::fabs(z[n] - x[n] * back) > 1e-5 * (order + 1) * back * std::sqrt(double(N)))
            abort();
    kvo::kvosFFTFree_R_32f(s);
}

void wrapper16(Reader& r) {
    const int order = r.byte() % 12;
    const int flag = 1 << (r.byte() % 4);
    const int sf = static_cast<int8_t>(r.byte());
    const int N = 1 << order;
    Kvo32s ss, is, ws;
    if (kvo::kvosFFTGetSize_R_16s32s(order, flag, 0, &ss, &is, &ws) != kvoOk) abort();
    std::vector<Kvo8u> mem(ss), init(is + 1), work(ws);
    kvo::KvoFFTSpec16s* s = nullptr;
    if (kvo::kvosFFTInit_R_16s32s(&s, order, flag, 0, mem.data(), init.data()) != kvoOk) abort();
    std::vector<Kvo16s> x(N), z(N);
    for (auto& v : x) v = static_cast<Kvo16s>(r.byte() << 8 | r.byte());
    std::vector<Kvo32s> y(N + 2);
    if (kvo::kvosFFTFwd_RToCCS_16s32s_Sfs(x.data(), y.data(), s, sf, work.data()) != kvoOk) abort();
    if (kvo::kvosFFTInv_CCSToR_32s16s_Sfs(y.data(), z.data(), s, sf, nullptr) != kvoOk) abort();
}

void crossCorr(Reader& r) {
    const int len1 = 1 + (r.byte() << 4 | r.byte() >> 4) % 3000;
    const int len2 = 1 + (r.byte() << 4 | r.byte() >> 4) % 3000;
    const int dstLen = 1 + (r.byte() << 4 | r.byte() >> 4) % 4000;
    const int32_t lowLag = (r.byte() & 1) ? r.i32() : (r.i32() % 6000);
    std::vector<float> a(len1), b(len2), y(dstLen);
    double na = 0, nb = 0;
    for (auto& v : a) {
        v = r.unit();
        na += double(v) * v;
    }
    for (auto& v : b) {
        v = r.unit();
        nb += double(v) * v;
    }
    if (kvo::kvosCrossCorr_32f(a.data(), len1, b.data(), len2, y.data(), dstLen, lowLag) != kvoOk)
        abort();
    const double bound = std::sqrt(na * nb) * (1 + 1e-4) + 1e-3;
    for (float v : y)
        if (!(std::fabs(v) <= bound)) abort();
}

void convert(Reader& r) {
    const int mode = r.byte() % 4;
    const int sf = r.i32();
    float v[8];
    for (auto& f : v) {
        uint32_t bits = static_cast<uint32_t>(r.i32());
        std::memcpy(&f, &bits, 4);
    }
    Kvo16s a[8];
    Kvo32s b[8];
    kvo::kvosConvert_32f16s_Sfs(v, a, 8, mode, sf);
    kvo::kvosConvert_32f32s_Sfs(v, b, 8, mode, sf);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader r{data, size};
    switch (r.byte() % 4) {
        case 0:
            roundTrip(r);
            break;
        case 1:
            wrapper16(r);
            break;
        case 2:
            crossCorr(r);
            break;
        default:
            convert(r);
            break;
    }
    return 0;
}
