// Fuzz target of the correlation kernels: arbitrary lengths, lag counts,
// scales and samples for every export and private kernel, each vector
// heap-allocated to exactly the size the function may touch, so that the
// address sanitizer reports any access outside it.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kernels/corr.h"
#include "kvosc.h"

namespace {

struct Input {
    const uint8_t* p;
    size_t n;
    size_t at = 0;
    uint8_t byte() { return at < n ? p[at++] : 0; }
    int16_t word() { return static_cast<int16_t>(byte() | (byte() << 8)); }
};

// Exactly `count` elements on the heap (at least one byte allocated).
template <class T>
struct Heap {
    T* p;
    explicit Heap(size_t count) : p(static_cast<T*>(std::malloc(count ? count * sizeof(T) : 1))) {}
    ~Heap() { std::free(p); }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;
};

void fill(Heap<Kvo16s>& h, size_t count, Input& in) {
    for (size_t i = 0; i < count; ++i) h.p[i] = in.word();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const int which = in.byte() % 23;
    // Lengths may be 0 or negative (checked paths); bodies run up to 700.
    const Kvo32s len = static_cast<Kvo32s>(in.byte() | ((in.byte() & 3) << 8)) - 4;
    const Kvo32s lags = static_cast<Kvo32s>(in.byte() % 70) - 2;
    const Kvo32s sf = static_cast<Kvo32s>(static_cast<int8_t>(in.byte())) % 40;
    const Kvo32s step = 1 + in.byte() % 6;
    const size_t n = len > 0 ? static_cast<size_t>(len) : 0;
    const size_t l = lags > 0 ? static_cast<size_t>(lags) : 0;
    const size_t slide = n + (l ? l - 1 : 0);  // sliding operand of the lag forms
    Kvo32s norm = 0;
    Kvo16s norm16 = 0;

    switch (which) {
        case 0:
        case 1:
        case 2: {
            Heap<Kvo16s> src(n);
            fill(src, n, in);
            if (which == 0) {
                Heap<Kvo32s> dst(l);
                kvosAutoCorr_NormE_16s32s(src.p, len, dst.p, lags, &norm);
            } else if (which == 1) {
                Heap<Kvo16s> dst(l);
                kvosAutoCorr_NormE_NR_16s(src.p, len, dst.p, lags, &norm);
            } else {
                Heap<Kvo32s> dst(l);
                kvosAutoCorr_16s32s(src.p, len, dst.p, lags);
            }
            break;
        }
        case 3:
        case 4:
        case 5: {
            const size_t fixed = which == 5 ? 240 : 180;
            Heap<Kvo16s> src(fixed);
            fill(src, fixed, in);
            if (which == 3) {
                Heap<Kvo16s> dst(11);
                kvosAutoCorr_NormE_G723_16s(src.p, dst.p, &norm);
            } else if (which == 4) {
                Heap<Kvo16s> dst(11);
                kvosAutoCorr_G723_16s(src.p, &norm16, dst.p);
            } else {
                Heap<Kvo32s> dst(13);
                kvosAutoCorr_G729B(src.p, &norm16, dst.p);
            }
            break;
        }
        case 6:
        case 7:
        case 8: {
            Heap<Kvo16s> a(n), b(slide);
            fill(a, n, in);
            fill(b, slide, in);
            if (which == 6) {
                Heap<Kvo16s> dst(l);
                kvosCrossCorr_NR_16s(a.p, b.p, len, dst.p, lags);
            } else if (which == 7) {
                Heap<Kvo16s> dst(l);
                kvosCrossCorr_NR_16s_Sfs(a.p, b.p, len, dst.p, lags, sf < 0 ? -sf : sf);
            } else {
                Heap<Kvo32s> dst(l);
                kvosCrossCorr_NR_16s32s(a.p, b.p, len, dst.p, lags);
            }
            break;
        }
        case 9:
        case 10:
        case 11:
        case 12:
        case 13:
        case 14: {
            // Triangular correlations and the partial convolutions: len each.
            Heap<Kvo16s> a(n), b(n);
            fill(a, n, in);
            fill(b, n, in);
            Heap<Kvo16s> d16(n);
            Heap<Kvo32s> d32(n);
            if (which == 9) kvosCrossCorr_16s32s_Sfs(a.p, b.p, len, d32.p, sf);
            if (which == 10) kvosCrossCorr_NormM_16s(a.p, b.p, len, d16.p);
            if (which == 11) kvosConvPartial_16s_Sfs(a.p, b.p, d16.p, len, sf);
            if (which == 12) kvosConvPartial_16s32s(a.p, b.p, d32.p, len);
            if (which == 13) kvosConvPartial_NR_16s(a.p, b.p, d16.p, len);
            if (which == 14) kvosConvPartial_NR_Low_16s(a.p, b.p, d16.p, len);
            break;
        }
        default: {
            // Private kernels: no checks, so only sizes of at least 1.
            if (n == 0 || l == 0) break;
            const Kvo32s hr = sf % 8;
            switch (which) {
                case 15: {
                    Heap<Kvo16s> src(n);
                    fill(src, n, in);
                    Heap<Kvo32s> dst(l);
                    kvo::kvosAutoCorr_G729_16s32s_Sfs_(src.p, len, dst.p, lags, sf & 31, step - 1);
                    break;
                }
                case 16: {
                    Heap<Kvo16s> src(n + l - 1);
                    fill(src, n + l - 1, in);
                    Heap<Kvo32s> dst(l);
                    kvo::kvosAutoCorr_Inv_16s32s_(src.p + l - 1, len, dst.p, lags);
                    break;
                }
                case 17:
                case 18: {
                    Heap<Kvo16s> a(n), b(slide);
                    fill(a, n, in);
                    fill(b, slide, in);
                    Heap<Kvo32s> dst(l);
                    if (which == 17)
                        kvo::kvosCrossCorr_Fwd_16s32s_(a.p, b.p, len, dst.p, lags);
                    else
                        kvo::kvosCrossCorr_Fwd_Low_16s32s_(a.p, b.p, len, dst.p, lags);
                    break;
                }
                case 19: {
                    Heap<Kvo16s> a(n), b(slide);
                    fill(a, n, in);
                    fill(b, slide, in);
                    Heap<Kvo32s> dst(l);
                    kvo::kvosCrossCorr_Inv_16s32s_(a.p, b.p + l - 1, len, dst.p, lags);
                    break;
                }
                case 20: {
                    Heap<Kvo16s> a(n), b(n);
                    fill(a, n, in);
                    fill(b, n, in);
                    Heap<Kvo16s> dst(l);
                    kvo::kvosCrossCorr_Step_NR_Sfs_16s_(a.p, b.p, len, step, dst.p, lags,
                                                        sf < 0 ? -sf : sf);
                    break;
                }
                case 21: {
                    Heap<Kvo16s> src(n);
                    fill(src, n, in);
                    Heap<Kvo16s> dst(l);
                    kvo::kvosAutoCorr_NormE_Step_NR_16s_(src.p, len, step, dst.p, lags, &norm);
                    break;
                }
                default: {
                    Heap<Kvo16s> a(n), b(n), dst(n);
                    fill(a, n, in);
                    fill(b, n, in);
                    Kvo32s shift = hr;
                    kvo::kvosCrossCorr_Norm_16s_(a.p, b.p, dst.p, len, &shift);
                    break;
                }
            }
        }
    }
    return 0;
}
