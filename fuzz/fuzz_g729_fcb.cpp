// Fuzz target of the G.729 algebraic codebook: arbitrary targets, impulse
// responses, matrices, budgets, subframe numbers and modes for every export,
// each vector in a heap block of exactly its size so that the address
// sanitizer reports any access outside it.  Invariants: the status, the
// number and amplitudes of the pulses, and for the main and annex D searches
// the index words decoding to the code vector.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kvosc.h"

namespace {

struct Input {
    const uint8_t* p;
    size_t n;
    size_t at = 0;
    uint8_t byte() { return at < n ? p[at++] : 0; }
    int16_t word() { return static_cast<int16_t>(byte() | (byte() << 8)); }
    int32_t dword() { return static_cast<int32_t>(static_cast<uint32_t>(word() & 0xffff) |
                                                  (static_cast<uint32_t>(word() & 0xffff) << 16)); }
};

template <class T>
struct Heap {
    T* p;
    explicit Heap(size_t count) : p(static_cast<T*>(std::malloc(count * sizeof(T)))) {}
    ~Heap() { std::free(p); }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;
};

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

// Vectors of 40 samples: raw words, or scaled down, or a decaying response.
void fill16(Kvo16s* v, Input& in) {
    const int kind = in.byte() % 4;
    for (int i = 0; i < 40; ++i) {
        const int16_t w = in.word();
        switch (kind) {
            case 0: v[i] = w; break;
            case 1: v[i] = static_cast<Kvo16s>(w >> 4); break;
            case 2: v[i] = static_cast<Kvo16s>(i == 0 ? 4096 : (w >> (2 + i / 4))); break;
            default: v[i] = static_cast<Kvo16s>(w >> 12); break;
        }
    }
}

// G.729 / annex A code vector: four pulses of 8191 or -8192, one per track
// 0, 1, 2 and one on track 3 or 4, as the index words say.
void checkMain(const Kvo16s* code, const Kvo16s* idx) {
    Kvo16s want[40] = {};
    const int pos = idx[1];
    const int p[4] = {pos & 7, (pos >> 3) & 7, (pos >> 6) & 7, (pos >> 9) & 15};
    const int q[4] = {5 * p[0], 1 + 5 * p[1], 2 + 5 * p[2], 3 + (p[3] & 1) + 5 * (p[3] >> 1)};
    for (int k = 0; k < 4; ++k) want[q[k]] = (idx[0] >> k) & 1 ? 8191 : -8192;
    check((idx[0] & ~15) == 0 && (pos & ~8191) == 0, "main index range");
    check(std::memcmp(want, code, sizeof want) == 0, "main index decodes to the code vector");
}

int pulseCount(const Kvo16s* code, int unit) {
    int n = 0;
    for (int i = 0; i < 40; ++i) {
        check(code[i] % unit == 0 || code[i] == 8191 || code[i] == 16382, "pulse amplitude");
        n += code[i] == 8191 ? 1 : code[i] == 16382 ? 2 : std::abs(code[i] / unit);
    }
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const int which = in.byte() % 8;
    Heap<Kvo16s> corr(40), imp(40), tgt(40), res(40), code(40), flt(40), idx(5);
    Heap<Kvo32s> m32(616);
    Heap<Kvo16s> m16(616);
    Heap<Kvo16s> times(1), sign(1), index(1);
    fill16(corr.p, in);
    fill16(imp.p, in);
    *times.p = in.word();
    const bool rawMatrix = in.byte() & 1;
    if (rawMatrix) {
        for (int i = 0; i < 616; ++i) {
            m32.p[i] = in.dword();
            m16.p[i] = in.word();
        }
    } else {
        check(kvosToeplizMatrix_G729_16s32s(imp.p, m32.p) == kvoOk, "matrix status");
        check(kvosToeplizMatrix_G729_16s(imp.p, m16.p) == kvoOk, "matrix status");
        for (int i = 0; i < 616; ++i)
            check(m16.p[i] == (m32.p[i] >> 15 > 32767 ? 32767 : m32.p[i] >> 15), "16-bit matrix");
    }
    const Kvo32s subFrame = in.byte() % 3 == 0 ? in.dword() : in.byte() & 1;
    switch (which) {
        case 0:
        case 1: {
            const KvoStatus st =
                which == 0 ? kvosFixedCodebookSearch_G729_32s16s(corr.p, m32.p, code.p, idx.p,
                                                                 times.p, subFrame)
                           : kvosFixedCodebookSearch_G729_16s(corr.p, m16.p, code.p, idx.p,
                                                              times.p, subFrame);
            if (st == kvoOk) checkMain(code.p, idx.p);
            else check(st == kvoErrRange, "main status");
            break;
        }
        case 2:
        case 3: {
            const KvoStatus st = which == 2
                                     ? kvosFixedCodebookSearch_G729A_32s16s(corr.p, m32.p, code.p, idx.p)
                                     : kvosFixedCodebookSearch_G729A_16s(corr.p, m16.p, code.p, idx.p);
            check(st == kvoOk, "annex A status");
            for (int i = 0; i < 40; ++i)
                check(code.p[i] == 0 || code.p[i] == 8191 || code.p[i] == -8192, "annex A pulses");
            break;
        }
        case 4: {
            check(kvosFixedCodebookSearch_G729D_16s(corr.p, imp.p, code.p, flt.p, sign.p,
                                                    index.p) == kvoOk,
                  "annex D status");
            check(pulseCount(code.p, 8192) == 2, "annex D pulses");
            check((*sign.p & ~3) == 0 && (*index.p & ~511) == 0, "annex D index range");
            break;
        }
        default: {
            fill16(tgt.p, in);
            fill16(res.p, in);
            const Kvo16s mode = static_cast<Kvo16s>(which - 5);
            check(kvosFixedCodebookSearch_G729E_16s(mode, tgt.p, res.p, imp.p, code.p, flt.p,
                                                    idx.p) == kvoOk,
                  "annex E status");
            int n = 0;
            for (int i = 0; i < 40; ++i) {
                check(code.p[i] % 4096 == 0, "annex E amplitude");
                n += std::abs(code.p[i] / 4096);
            }
            // Pulses of opposite signs never share a position.
            check(n == (mode ? 12 : 10), "annex E pulses");
            break;
        }
    }
    return 0;
}
