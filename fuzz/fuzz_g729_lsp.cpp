// Fuzz target of the G.729 LSP decoders and quantisers: arbitrary indices,
// histories and input vectors, every buffer on the heap at exactly its
// documented size.  Checks that refused calls write nothing, that every
// decoded vector passes the stability limits it reports, and that the main
// and G.729.1 decoders agree on in-range predictors.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kvosc.h"

namespace {

struct Input {
    const uint8_t* p;
    size_t n;
    uint8_t byte() {
        if (n == 0) return 0;
        --n;
        return *p++;
    }
    Kvo16s s16() { return static_cast<Kvo16s>(byte() | (byte() << 8)); }
};

struct Buf {
    Kvo16s* v;
    int n;
    Buf(Input& in, int len) : n(len) {
        v = static_cast<Kvo16s*>(std::malloc(sizeof(Kvo16s) * len));
        for (int i = 0; i < len; ++i) v[i] = in.s16();
    }
    ~Buf() { std::free(v); }
    Buf(const Buf&) = delete;
    Buf& operator=(const Buf&) = delete;
};

// The limits a decoder output meets unless saturation got in the way: the
// lowest and highest values, as far as the warning says they were clamped.
void checkOutput(const Kvo16s* q, KvoStatus st) {
    if (st < 0) return;
    if (st == kvoWarnLsfLow || st == kvoWarnLsfLowAndHigh)
        if (q[0] != 40) std::abort();
    if (st == kvoWarnLsfHigh || st == kvoWarnLsfLowAndHigh)
        if (q[9] != 25681) std::abort();
    if (q[0] < 40 || q[9] > 25681) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const int which = in.byte() % 8;
    Buf hist(in, 40), idx(in, 4), vec(in, 10), out(in, 10), out2(in, 10), code(in, 2);
    Kvo16s before[40];
    std::memcpy(before, hist.v, sizeof before);
    KvoStatus st = kvoOk;
    switch (which) {
        case 0: {
            st = kvosLSFDecode_G729_16s(idx.v, hist.v, out.v);
            if (st == kvoErrOutOfRange && std::memcmp(before, hist.v, sizeof before)) std::abort();
            if (st >= 0) {
                Kvo16s h2[40], q2[10];
                std::memcpy(h2, before, sizeof h2);
                if (kvosLSFDecode_G7291_16s(idx.v, h2, q2) != st) std::abort();
                if (std::memcmp(q2, out.v, sizeof q2) || std::memcmp(h2, hist.v, sizeof h2))
                    std::abort();
            }
            checkOutput(out.v, st);
            break;
        }
        case 1:
            st = kvosLSFDecode_G7291_16s(idx.v, hist.v, out.v);
            checkOutput(out.v, st);
            break;
        case 2:
            st = kvosLSFDecode_G729B_16s(idx.v, hist.v, out.v);
            checkOutput(out.v, st);
            break;
        case 3: {
            const Kvo32s ma = static_cast<Kvo32s>(static_cast<uint32_t>(idx.v[0]) << 16 |
                                                  static_cast<uint16_t>(idx.v[1]));
            st = kvosLSFDecodeErased_G729_16s(ma, hist.v, vec.v);
            if (st < 0 && std::memcmp(before, hist.v, sizeof before)) std::abort();
            break;
        }
        case 4:
            st = kvosLSFQuant_G729_16s(vec.v, hist.v, out.v, idx.v);
            checkOutput(out.v, st);
            if (idx.v[0] < 0 || idx.v[0] > 1 || idx.v[1] < 0 || idx.v[1] > 127 || idx.v[2] < 0 ||
                idx.v[2] > 31 || idx.v[3] < 0 || idx.v[3] > 31)
                std::abort();
            break;
        case 5:
            st = kvosLSFQuant_G729B_16s(vec.v, hist.v, out.v, idx.v);
            checkOutput(out.v, st);
            if (idx.v[0] < 0 || idx.v[0] > 1 || idx.v[1] < 0 || idx.v[1] > 31 || idx.v[2] < 0 ||
                idx.v[2] > 15)
                std::abort();
            break;
        case 6:
            st = kvosLSPQuant_G729_16s(vec.v, hist.v, out.v, code.v);
            break;
        default:
            st = kvosLSPQuant_G729E_16s(vec.v, hist.v, out2.v, out.v, code.v);
            if (std::memcmp(before, hist.v, sizeof before)) std::abort();
            break;
    }
    (void)st;
    return 0;
}
