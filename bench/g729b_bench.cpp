// The assembled G.729 Annex A + B coder (apps/coders/g729b.cpp, exports only)
// per 10 ms frame with VAD and DTX on, against libbcg729 with its VAD on, on
// the same input in the same run: 2 s of synthetic speech then 2 s of low
// background noise, cycled, so that speech, SID and untransmitted frames all
// occur.  peer/ours above 1 means ours is faster.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "coders/g729b.h"
#include "ratio.h"
#include "sample.h"

#if (defined(KVOSC_HAVE_LIBBCG729) || defined(KVOSC_HAVE_BCG729)) && __has_include(<bcg729/encoder.h>)
extern "C" {
#include <bcg729/decoder.h>
#include <bcg729/encoder.h>
}
#define KVOSC_G729B_BENCH_PEER 1
#endif

namespace {

using namespace kvosc::coders;

constexpr int kFrames = 400;

const std::vector<int16_t>& input() {
    static const std::vector<int16_t> s = [] {
        std::vector<int16_t> v = kvosc::synth_speech(2.0, 8000);
        uint32_t seed = 12345;
        for (int i = 0; i < 16000; ++i) {  // low noise, about -60 dBov
            seed = seed * 1664525u + 1013904223u;
            v.push_back(static_cast<int16_t>(static_cast<int32_t>(seed >> 16) % 64 - 32));
        }
        v.resize(80 * kFrames);
        return v;
    }();
    return s;
}

struct Coded {
    int type;
    int16_t prm[g729::kParams];
};

// Our encoder's frames over the input, for the decoders.
const std::vector<Coded>& frames() {
    static const std::vector<Coded> s = [] {
        std::vector<Coded> out(kFrames);
        g729b::EncoderB enc(true);
        for (int f = 0; f < kFrames; ++f)
            enc.frame(input().data() + 80 * f, out[f].prm, &out[f].type);
        return out;
    }();
    return s;
}

void BM_G729AB_EncodeFrame(benchmark::State& st) {
    g729b::EncoderB enc(true);
    int16_t prm[g729::kParams];
    int type, f = 0;
    for (auto _ : st) {
        enc.frame(input().data() + 80 * f, prm, &type);
        benchmark::DoNotOptimize(prm);
        f = (f + 1) % kFrames;
    }
    st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_G729AB_EncodeFrame);

void BM_G729AB_DecodeFrame(benchmark::State& st) {
    g729b::DecoderB dec(true);
    int16_t pcm[g729::kFrame];
    int f = 0;
    for (auto _ : st) {
        dec.frame(frames()[f].prm, frames()[f].type, false, pcm);
        benchmark::DoNotOptimize(pcm);
        f = (f + 1) % kFrames;
    }
    st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_G729AB_DecodeFrame);

#ifdef KVOSC_G729B_BENCH_PEER
struct PairState {
    g729b::EncoderB enc{true};
    g729b::DecoderB dec{true};
    bcg729EncoderChannelContextStruct* penc = initBcg729EncoderChannel(1);
    bcg729DecoderChannelContextStruct* pdec = initBcg729DecoderChannel();
    std::vector<std::vector<uint8_t>> packed;  // our frames as payloads for the peer
    int fo = 0, fp = 0, dfo = 0, dfp = 0;
    PairState() {
        for (const Coded& c : frames()) {
            uint8_t b[g729::kPackedBytes];
            if (c.type == 1) g729::pack(c.prm, b);
            if (c.type == 2) g729b::packSid(c.prm, b);
            packed.emplace_back(b, b + (c.type == 1 ? 10 : c.type == 2 ? 2 : 0));
        }
    }
};

PairState& pair_state() {
    static PairState s;  // lives for the whole run
    return s;
}

void ours_encode() {
    PairState& s = pair_state();
    int16_t prm[g729::kParams];
    int type;
    s.enc.frame(input().data() + 80 * s.fo, prm, &type);
    benchmark::DoNotOptimize(prm);
    s.fo = (s.fo + 1) % kFrames;
}

void peer_encode() {
    PairState& s = pair_state();
    uint8_t bits[10];
    uint8_t len = 0;
    bcg729Encoder(s.penc, input().data() + 80 * s.fp, bits, &len);
    benchmark::DoNotOptimize(bits);
    s.fp = (s.fp + 1) % kFrames;
}

void ours_decode() {
    PairState& s = pair_state();
    int16_t pcm[g729::kFrame];
    s.dec.frame(frames()[s.dfo].prm, frames()[s.dfo].type, false, pcm);
    benchmark::DoNotOptimize(pcm);
    s.dfo = (s.dfo + 1) % kFrames;
}

void peer_decode() {
    PairState& s = pair_state();
    int16_t pcm[80];
    static uint8_t none[10] = {};
    const std::vector<uint8_t>& p = s.packed[s.dfp];
    bcg729Decoder(s.pdec, p.empty() ? none : p.data(), static_cast<uint8_t>(p.size()), 0,
                  p.size() != 10, 0, pcm);
    benchmark::DoNotOptimize(pcm);
    s.dfp = (s.dfp + 1) % kFrames;
}

KVOSC_BENCH_PAIR(G729AB_EncodeFrame, ours_encode, peer_encode);
KVOSC_BENCH_PAIR(G729AB_DecodeFrame, ours_decode, peer_decode);
#endif

}  // namespace
