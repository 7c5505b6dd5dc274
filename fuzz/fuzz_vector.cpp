// Fuzz target for the vector layer: the first byte picks an operation, the next
// bytes give a scale or shift count and a length, the rest is sample data.
// Buffers are heap blocks of exactly the length used, so any read or write
// past the end is caught.  SIMD paths are compared with their plain loops.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "numeric/vector.h"

using namespace kvo;

namespace {

template <class T>
T* take(const uint8_t*& p, size_t& left, Kvo32s len) {
    T* b = static_cast<T*>(std::malloc(sizeof(T) * static_cast<size_t>(len)));
    size_t want = sizeof(T) * static_cast<size_t>(len);
    size_t n = want < left ? want : left;
    std::memset(b, 0, want);
    if (n) std::memcpy(b, p, n);
    p += n;
    left -= n;
    return b;
}

void check(bool ok) {
    if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const int op = data[0] % 16;
    const Kvo32s scale = static_cast<int8_t>(data[1]);
    const Kvo32s len = 1 + ((data[2] | (data[3] << 8)) % 300);
    const uint8_t* p = data + 4;
    size_t left = size - 4;

    Kvo16s* a = take<Kvo16s>(p, left, len);
    Kvo16s* b = take<Kvo16s>(p, left, len);
    Kvo32s* x = take<Kvo32s>(p, left, len);
    Kvo32f* f = take<Kvo32f>(p, left, len);
    Kvo16s* d16 = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * len));
    Kvo16s* e16 = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * len));
    Kvo32s* d32 = static_cast<Kvo32s*>(std::malloc(sizeof(Kvo32s) * len));
    Kvo32f* d32f = static_cast<Kvo32f*>(std::malloc(sizeof(Kvo32f) * len));
    Kvo8u* d8 = static_cast<Kvo8u*>(std::malloc(len));
    Kvo32s r32 = 0, idx = 0;
    Kvo16s r16 = 0;

    switch (op) {
        case 0:
            vec_scalar::add_16s(a, b, d16, len);
            vec_sse2::add_16s(a, b, e16, len);
            check(std::memcmp(d16, e16, sizeof(Kvo16s) * len) == 0);
            kvosSub_16s(a, b, d16, len);
            break;
        case 1:
            if (scale >= 0 && scale <= 30) {
                vec_scalar::mulc_16s_sfs(a, b[0], d16, len, scale);
                vec_sse2::mulc_16s_sfs(a, b[0], e16, len, scale);
                check(std::memcmp(d16, e16, sizeof(Kvo16s) * len) == 0);
            }
            kvosMulC_16s_Sfs(a, b[0], a, len, scale);  // in place
            break;
        case 2:
            check(vec_scalar::dotprod_16s64s(a, b, len) == vec_sse2::dotprod_16s64s(a, b, len));
            kvosDotProd_16s32s_Sfs(a, b, len, &r32, scale);
            break;
        case 3:
            kvosAdd_32s_Sfs(x, x, d32, len, scale);
            kvosSum_32s_Sfs(x, len, &r32, scale);
            break;
        case 4:
            kvosSubC_16s_Sfs(a, b[0], d16, len, scale);
            kvosSubCRev_16s_Sfs(a, b[0], d16, len, scale);
            break;
        case 5:
            kvosMul_16s32s_Sfs(a, b, d32, len, scale);
            break;
        case 6:
            if (len >= 2)
                kvosMagSquared_32sc32s_Sfs(reinterpret_cast<const Kvo32sc*>(x), d32, len / 2,
                                           scale);
            break;
        case 7:
            kvosRShiftC_16s(a, scale, d16, len);
            kvosLShiftC_16s(a, scale, d16, len);
            kvosRShiftC_32s(x, scale, d32, len);
            break;
        case 8:
            kvosLinToALaw_16s8u(a, d8, len);
            kvosLinToMuLaw_16s8u(a, d8, len);
            break;
        case 9:
            kvosSum_16s32s_Sfs(a, len, &r32, scale);
            kvosSum_16s_Sfs(a, len, &r16, scale);
            break;
        case 10:
            kvosMaxIndx_32s(x, len, &r32, &idx);
            check(idx >= 0 && idx < len && x[idx] == r32);
            kvosMinIndx_16s(a, len, &r16, &idx);
            check(idx >= 0 && idx < len && a[idx] == r16);
            kvosMaxAbs_16s(a, len, &r16);
            check(r16 >= 0);
            break;
        case 11: {
            Kvo32f s = 0;
            kvosSum_32f(f, len, &s, scale & 1);
            kvosDotProd_32f(f, f, len, &s);
            break;
        }
        case 12: {
            // pSrc2 bias elements into f, len2 covering the rest of f.
            Kvo32s bias = (scale & 0x7f) % len;
            Kvo32s l1 = 1 + (b[0] & 0x7fff) % len;
            kvosConvBiased_32f(f, l1, f + bias, len - bias, d32f, len, bias);
            break;
        }
        case 13:
            kvosThreshold_LTAbs_32f(f, d32f, len, 0.5f);
            kvosThreshold_LTValGTVal_32f(f, d32f, len, -1.0f, -1.0f, 1.0f, 1.0f);
            break;
        case 14: {
            Kvo64f* g = take<Kvo64f>(p, left, len);
            Kvo64f* o = static_cast<Kvo64f*>(std::malloc(sizeof(Kvo64f) * len));
            kvosThreshold_LTInv_64f(g, o, len, (scale & 1) ? 0.0 : 1e-3);
            kvosConvert_64f32f(g, d32f, len);
            std::free(o);
            std::free(g);
            break;
        }
        default: {
            Kvo32s shift = (scale & 15) % len;
            kvosMove_16s(a, a + shift, len - shift);
            kvosAdd_16s(a, a + shift, a, len - shift);
            break;
        }
    }

    std::free(a);
    std::free(b);
    std::free(x);
    std::free(f);
    std::free(d16);
    std::free(e16);
    std::free(d32);
    std::free(d32f);
    std::free(d8);
    return 0;
}
