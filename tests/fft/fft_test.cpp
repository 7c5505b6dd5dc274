// Real FFT: forward against a double-precision DFT, scaling flags and round trips (which
// pin the inverse), SIMD twin, record identity and argument-check order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "fft/fft.h"

namespace {

using kvo::KvoFFTSpec16s;
using kvo::KvoFFTSpec32f;

struct FftSetup {
    std::vector<Kvo8u> mem, init;
    std::vector<Kvo8u> work;
    KvoFFTSpec32f* s = nullptr;
    FftSetup(int order, int flag, size_t misalign = 0) {
        Kvo32s ss = 0, is = 0, ws = 0;
        EXPECT_EQ(kvo::kvosFFTGetSize_R_32f(order, flag, 0, &ss, &is, &ws), kvoOk);
        mem.resize(ss + misalign);
        init.resize(is + 1);
        work.resize(ws + 1);
        EXPECT_EQ(kvo::kvosFFTInit_R_32f(&s, order, flag, 0, mem.data() + misalign,
                                         is ? init.data() : nullptr),
                  kvoOk);
        Kvo32s bs = -1;
        EXPECT_EQ(kvo::kvosFFTGetBufSize_R_32f(s, &bs), kvoOk);
        EXPECT_EQ(bs, ws);  // the query and the record agree on the work size
    }
    Kvo8u* wk() { return work.data(); }
};

std::vector<float> randomSignal(int n, std::mt19937& g) {
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> x(n);
    for (auto& v : x) v = d(g);
    return x;
}

// X[k] for k = 0 .. N/2 in double (only the bins in `only`, when given).
void dft(const std::vector<float>& x, std::vector<double>& re, std::vector<double>& im,
         std::vector<int> only = {}) {
    const size_t N = x.size();
    std::vector<double> c(N), s(N);
    for (size_t j = 0; j < N; ++j) {
        const long double a = 2.0L * M_PIl * j / N;
        c[j] = static_cast<double>(cosl(a));
        s[j] = static_cast<double>(-sinl(a));
    }
    re.assign(N / 2 + 1, 0.0);
    im.assign(N / 2 + 1, 0.0);
    if (only.empty())
        for (size_t k = 0; k <= N / 2; ++k) only.push_back(static_cast<int>(k));
    for (int k : only) {
        double sr = 0, si = 0;
        size_t j = 0;
        for (size_t n = 0; n < N; ++n) {
            sr += x[n] * c[j];
            si += x[n] * s[j];
            j += k;
            if (j >= N) j -= N;
        }
        re[k] = sr;
        im[k] = si;
    }
}

// (R[k], I[k]) read from a spectrum in one storage order.
struct View {
    enum Kind { Perm, Pack, CCS } kind;
    const float* p;
    int N;
    double R(int k) const {
        if (k == 0) return p[0];
        if (k == N / 2) return kind == Perm ? p[1] : (kind == Pack ? p[N - 1] : p[N]);
        return p[kind == Pack ? 2 * k - 1 : 2 * k];
    }
    double I(int k) const {
        if (k == 0 || k == N / 2) return 0.0;
        return p[kind == Pack ? 2 * k : 2 * k + 1];
    }
};

double norm2(const std::vector<float>& x) {
    double s = 0;
    for (float v : x) s += double(v) * v;
    return std::sqrt(s);
}

// Error bound of a float FFT: grows with log2 N, relative to the signal's norm.
double fftTol(int order, double norm) {
    return 3e-7 * (order + 2) * norm + 1e-30;
}

using FwdFn = KvoStatus (*)(const Kvo32f*, Kvo32f*, const KvoFFTSpec32f*, Kvo8u*);
using InvFn = KvoStatus (*)(const Kvo32f*, Kvo32f*, const KvoFFTSpec32f*, Kvo8u*);

struct Format {
    View::Kind kind;
    FwdFn fwd;
    InvFn inv;
    int extra;  // length beyond N
    const char* name;
};
const Format kFormats[] = {
    {View::Perm, kvo::kvosFFTFwd_RToPerm_32f, kvo::kvosFFTInv_PermToR_32f, 0, "Perm"},
    {View::Pack, kvo::kvosFFTFwd_RToPack_32f, kvo::kvosFFTInv_PackToR_32f, 0, "Pack"},
    {View::CCS, kvo::kvosFFTFwd_RToCCS_32f, kvo::kvosFFTInv_CCSToR_32f, 2, "CCS"},
};

int specLen(const Format& f, int order) {
    return order == 0 && f.kind == View::CCS ? 2 : (1 << order) + f.extra;
}

TEST(FftReal, ForwardMatchesDoubleDftEveryOrderAndFormat) {
    std::mt19937 g(1234);
    for (int order : {0, 1, 2, 3, 5, 8, 11, 14}) {
        const int N = 1 << order;
        FftSetup sp(order, 8);
        auto x = randomSignal(N, g);
        std::vector<double> re, im;
        dft(x, re, im);
        const double tol = fftTol(order, norm2(x));
        for (const Format& f : kFormats) {
            SCOPED_TRACE(::testing::Message() << "order " << order << " " << f.name);
            std::vector<float> y(specLen(f, order) + 4, NAN);
            ASSERT_EQ(f.fwd(x.data(), y.data(), sp.s, sp.wk()), kvoOk);
            View v{f.kind, y.data(), N};
            double worst = 0;
            for (int k = 0; k <= N / 2; ++k) {
                worst = std::max(worst, std::fabs(v.R(k) - re[k]));
                worst = std::max(worst, std::fabs(v.I(k) - im[k]));
            }
            EXPECT_LE(worst, tol);
            if (f.kind == View::CCS) {
                EXPECT_EQ(y[1], 0.0f);
                if (order > 0) {
                    EXPECT_EQ(y[N + 1], 0.0f);
                }
            }
            // Nothing written past the spectrum.
            EXPECT_TRUE(std::isnan(y[specLen(f, order)]));
        }
    }
}

TEST(FftReal, FlagsScaleAndRoundTrip) {
    std::mt19937 g(7);
    for (int flag : {1, 2, 4, 8}) {
        for (int order : {0, 1, 3, 11}) {
            SCOPED_TRACE(::testing::Message() << "flag " << flag << " order " << order);
            const int N = 1 << order;
            FftSetup sp(order, flag);
            auto x = randomSignal(N, g);
            std::vector<double> re, im;
            dft(x, re, im, {0, N / 4, N / 2});
            const double fs = flag == 1 ? 1.0 / N : (flag == 4 ? 1.0 / std::sqrt(double(N)) : 1.0);
            const double is = flag == 2 ? 1.0 / N : (flag == 4 ? 1.0 / std::sqrt(double(N)) : 1.0);
            for (const Format& f : kFormats) {
                std::vector<float> y(specLen(f, order)), z(N);
                ASSERT_EQ(f.fwd(x.data(), y.data(), sp.s, sp.wk()), kvoOk);
                View v{f.kind, y.data(), N};
                for (int k : {0, N / 4, N / 2}) {
                    EXPECT_NEAR(v.R(k), re[k] * fs, fftTol(order, norm2(x)) * fs);
                }
                ASSERT_EQ(f.inv(y.data(), z.data(), sp.s, sp.wk()), kvoOk);
                const double back = fs * is * N;  // 1 except for flag 8, where it is N
                for (int n = 0; n < N; ++n)
                    ASSERT_NEAR(z[n], x[n] * back, 4e-7 * (order + 2) * back) << n;
            }
        }
    }
}

TEST(FftReal, VectorPathsMatchScalarTwinBitForBit) {
    std::mt19937 g(31);
    std::uniform_real_distribution<float> wide(-3e4f, 3e4f);
    for (int order : {0, 1, 2, 3, 4, 7, 12}) {
        const int N = 1 << order;
        for (int flag : {1, 8}) {
            FftSetup sp(order, flag);
            for (int kind = 0; kind < 3; ++kind) {
                // random, extreme magnitudes mixed with zeros and tiny values, an impulse
                std::vector<float> x(N + 2);
                for (int n = 0; n < N + 2; ++n) {
                    if (kind == 0) x[n] = wide(g);
                    if (kind == 1) x[n] = (g() % 3 == 0) ? 0.0f : ((g() & 1) ? 1e30f : -1e-30f);
                    if (kind == 2) x[n] = n == 3 % N ? 1.0f : 0.0f;
                }
                for (int fmt = 0; fmt < 3; ++fmt) {
                    for (int fwd = 0; fwd < 2; ++fwd) {
                        SCOPED_TRACE(::testing::Message()
                                     << "order " << order << " flag " << flag << " data " << kind
                                     << " format " << fmt << " fwd " << fwd);
                        const Format& f = kFormats[fmt];
                        std::vector<float> a(N + 2, 7.0f), b(N + 2, 7.0f);
                        ASSERT_EQ((fwd ? f.fwd : f.inv)(x.data(), a.data(), sp.s, sp.wk()), kvoOk);
                        ASSERT_EQ(kvo::kvosFFTScalarTwin_32f_(x.data(), b.data(), sp.s, nullptr,
                                                              fwd, fmt),
                                  kvoOk);
                        EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(float)), 0);
                    }
                }
            }
        }
    }
}

TEST(FftReal, RecordIdentity) {
    std::vector<float> x(64, 1.0f), y(66);
    // Freed record (allocated by the library).
    KvoFFTSpec32f* s = nullptr;
    ASSERT_EQ(kvo::kvosFFTInitAlloc_R_32f(&s, 6, 1, 0), kvoOk);
    EXPECT_EQ(kvo::kvosFFTFwd_RToCCS_32f(x.data(), y.data(), s, nullptr), kvoOk);
    EXPECT_EQ(y[0], 1.0f);
    ASSERT_EQ(kvo::kvosFFTFree_R_32f(s), kvoOk);
    EXPECT_EQ(kvo::kvosFFTFree_R_32f(nullptr), kvoErrNullPtr);
    // Freed record in caller memory: the tag is cleared, a second free is refused.
    FftSetup sp(6, 1);
    ASSERT_EQ(kvo::kvosFFTFree_R_32f(sp.s), kvoOk);
    EXPECT_EQ(kvo::kvosFFTFree_R_32f(sp.s), kvoErrContextMatch);
    EXPECT_EQ(kvo::kvosFFTFwd_RToCCS_32f(x.data(), y.data(), sp.s, nullptr), kvoErrContextMatch);
    Kvo32s bs;
    EXPECT_EQ(kvo::kvosFFTGetBufSize_R_32f(sp.s, &bs), kvoErrContextMatch);
    // Null checks: the record first, then the vectors.
    FftSetup ok(3, 1);
    EXPECT_EQ(kvo::kvosFFTFwd_RToPerm_32f(nullptr, nullptr, nullptr, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvo::kvosFFTFwd_RToPerm_32f(nullptr, y.data(), ok.s, nullptr), kvoErrNullPtr);
    EXPECT_EQ(kvo::kvosFFTInv_CCSToR_32f(x.data(), nullptr, ok.s, nullptr), kvoErrNullPtr);
}

TEST(FftReal, ArgumentCheckOrder) {
    Kvo32s a, b, c;
    struct SizeCase {
        Kvo32s order, flag;
        bool nullOut;
        KvoStatus want;
    } sizeCases[] =
        {
            {31, 3, true, kvoErrFftOrder},  // order above 30 comes before the pointers
            {-1, 1, true, kvoErrFftOrder},  // taken as unsigned
            {30, 3, true, kvoErrNullPtr},   // 29..30: pointers, then flag, then order
            {29, 3, false, kvoErrFftFlag},  {29, 1, false, kvoErrFftOrder},
            {28, 8, false, kvoErrFftOrder},  // valid order whose tables exceed 32-bit sizes
            {12, 2, false, kvoOk},
        };
    for (const auto& t : sizeCases) {
        SCOPED_TRACE(::testing::Message() << "order " << t.order << " flag " << t.flag);
        EXPECT_EQ(kvo::kvosFFTGetSize_R_32f(t.order, t.flag, 0, &a, t.nullOut ? nullptr : &b, &c),
                  t.want);
        EXPECT_EQ(
            kvo::kvosFFTGetSize_R_16s32s(t.order, t.flag, 0, t.nullOut ? nullptr : &a, &b, &c),
            t.want);
    }
    alignas(64) static Kvo8u mem[1 << 16];
    alignas(64) static Kvo8u init[64];
    KvoFFTSpec32f* s = nullptr;
    KvoFFTSpec16s* s16 = nullptr;
    struct InitCase {
        bool nullPp;
        Kvo32s order, flag;
        bool nullMem, nullInit;
        KvoStatus want;
    } initCases[] = {
        {true, 40, 3, true, true, kvoErrNullPtr},     {false, 29, 3, true, true, kvoErrFftOrder},
        {false, 11, 3, false, true, kvoErrNullPtr},   {false, 10, 3, false, true, kvoErrFftFlag},
        {false, 10, 2, false, true, kvoOk},           {false, 11, 2, false, false, kvoOk},
    };
    for (const auto& t : initCases) {
        SCOPED_TRACE(::testing::Message() << "order " << t.order << " flag " << t.flag);
        EXPECT_EQ(kvo::kvosFFTInit_R_32f(t.nullPp ? nullptr : &s, t.order, t.flag, 0,
                                         t.nullMem ? nullptr : mem, t.nullInit ? nullptr : init),
                  t.want);
        EXPECT_EQ(kvo::kvosFFTInit_R_16s32s(t.nullPp ? nullptr : &s16, t.order, t.flag, 0,
                                            t.nullMem ? nullptr : mem, t.nullInit ? nullptr : init),
                  t.want);
    }
}

}  // namespace
