// The assembled G.729 Annex A coder (apps/coders/g729.cpp, exports only) per
// 10 ms frame, against libbcg729's encoder and decoder on the same synthetic
// speech in the same run; G.729 main body for reference.  peer/ours above 1
// means ours is faster.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "coders/g729.h"
#include "ratio.h"
#include "sample.h"

#if (defined(KVOSC_HAVE_LIBBCG729) || defined(KVOSC_HAVE_BCG729)) && __has_include(<bcg729/encoder.h>)
extern "C" {
#include <bcg729/decoder.h>
#include <bcg729/encoder.h>
}
#define KVOSC_G729_BENCH_PEER 1
#endif

namespace {

using namespace kvosc::coders;

constexpr int kFrames = 200;  // 2 s of speech, cycled

const std::vector<int16_t>& speech() {
    static const std::vector<int16_t> s = kvosc::synth_speech(kFrames / 100.0, 8000);
    return s;
}

// The packed stream of our encoder over the sample, for the decoders.
const std::vector<uint8_t>& stream(bool annexA) {
    static std::vector<uint8_t> s[2];
    std::vector<uint8_t>& out = s[annexA];
    if (out.empty()) {
        g729::Encoder enc(annexA);
        for (int f = 0; f < kFrames; ++f) {
            int16_t prm[g729::kParams];
            uint8_t b[g729::kPackedBytes];
            enc.frame(speech().data() + 80 * f, prm);
            g729::pack(prm, b);
            out.insert(out.end(), b, b + g729::kPackedBytes);
        }
    }
    return out;
}

void BM_G729_EncodeFrame(benchmark::State& st) {
    g729::Encoder enc(st.range(0) != 0);
    int16_t prm[g729::kParams];
    int f = 0;
    for (auto _ : st) {
        enc.frame(speech().data() + 80 * f, prm);
        benchmark::DoNotOptimize(prm);
        f = (f + 1) % kFrames;
    }
    st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_G729_EncodeFrame)->ArgName("annexA")->Arg(0)->Arg(1);

void BM_G729_DecodeFrame(benchmark::State& st) {
    const bool annexA = st.range(0) != 0;
    g729::Decoder dec(annexA);
    int16_t prm[g729::kParams], pcm[g729::kFrame];
    int f = 0;
    for (auto _ : st) {
        g729::unpack(stream(annexA).data() + g729::kPackedBytes * f, prm);
        dec.frame(prm, false, pcm);
        benchmark::DoNotOptimize(pcm);
        f = (f + 1) % kFrames;
    }
    st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_G729_DecodeFrame)->ArgName("annexA")->Arg(0)->Arg(1);

#ifdef KVOSC_G729_BENCH_PEER
struct PairState {
    g729::Encoder enc{true};
    g729::Decoder dec{true};
    bcg729EncoderChannelContextStruct* penc = initBcg729EncoderChannel(0);
    bcg729DecoderChannelContextStruct* pdec = initBcg729DecoderChannel();
    int fo = 0, fp = 0, dfo = 0, dfp = 0;
};

PairState& pair_state() {
    static PairState s;  // lives for the whole run
    return s;
}

void ours_encode() {
    PairState& s = pair_state();
    int16_t prm[g729::kParams];
    s.enc.frame(speech().data() + 80 * s.fo, prm);
    benchmark::DoNotOptimize(prm);
    s.fo = (s.fo + 1) % kFrames;
}

void peer_encode() {
    PairState& s = pair_state();
    uint8_t bits[10];
    uint8_t len = 0;
    bcg729Encoder(s.penc, speech().data() + 80 * s.fp, bits, &len);
    benchmark::DoNotOptimize(bits);
    s.fp = (s.fp + 1) % kFrames;
}

void ours_decode() {
    PairState& s = pair_state();
    int16_t prm[g729::kParams];
    int16_t pcm[g729::kFrame];
    g729::unpack(stream(true).data() + g729::kPackedBytes * s.dfo, prm);
    s.dec.frame(prm, false, pcm);
    benchmark::DoNotOptimize(pcm);
    s.dfo = (s.dfo + 1) % kFrames;
}

void peer_decode() {
    PairState& s = pair_state();
    int16_t pcm[80];
    bcg729Decoder(s.pdec, stream(true).data() + g729::kPackedBytes * s.dfp, 10, 0, 0, 0, pcm);
    benchmark::DoNotOptimize(pcm);
    s.dfp = (s.dfp + 1) % kFrames;
}

KVOSC_BENCH_PAIR(G729A_EncodeFrame, ours_encode, peer_encode);
KVOSC_BENCH_PAIR(G729A_DecodeFrame, ours_decode, peer_decode);
#endif

}  // namespace
