// G.723.1: the coder assembled from the exports against FFmpeg's G.723.1
// encoder and decoder (6.3 kbit/s, post filter on) on the same 3 s of
// speech-like signal.  The counter "per10ms" is the time of 10 ms of audio.
// Needs the assembled coders: kvosc_bench links kvosc_coders.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "coders/coder.h"
#include "sample.h"

#if defined(KVOSC_HAVE_LIBAVCODEC) && __has_include(<libavcodec/avcodec.h>)
#define KVOSC_G723_BENCH_FFMPEG 1
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}
#endif

namespace {

using kvosc::coders::Options;

constexpr int kFrames = 100;  // 3 s

const std::vector<int16_t>& speech() {
    static const std::vector<int16_t> pcm = [] {
        std::vector<int16_t> v = kvosc::synth_speech(3.0, 8000);
        v.resize(kFrames * 240);
        return v;
    }();
    return pcm;
}

const kvosc::coders::Coder& coder() { return *kvosc::coders::find_coder("g723"); }

const std::vector<uint8_t>& stream() {
    static const std::vector<uint8_t> s = [] {
        std::vector<uint8_t> out;
        std::string err;
        coder().encode(Options{}, speech(), out, err);
        return out;
    }();
    return s;
}

void perTenMs(benchmark::State& state) {
    state.counters["per10ms"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kFrames * 3,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_G723_Encode_Ours(benchmark::State& state) {
    std::vector<uint8_t> out;
    std::string err;
    for (auto _ : state) {
        coder().encode(Options{}, speech(), out, err);
        benchmark::DoNotOptimize(out.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_G723_Encode_Ours);

void BM_G723_Decode_Ours(benchmark::State& state) {
    std::vector<int16_t> out;
    std::string err;
    for (auto _ : state) {
        coder().decode(Options{}, stream(), out, err);
        benchmark::DoNotOptimize(out.data());
    }
    perTenMs(state);
}
BENCHMARK(BM_G723_Decode_Ours);

#ifdef KVOSC_G723_BENCH_FFMPEG
void BM_G723_Encode_FFmpeg(benchmark::State& state) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_G723_1);
    if (!codec) {
        state.SkipWithError("no G.723.1 encoder in libavcodec");
        return;
    }
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    ctx->sample_rate = 8000;
    ctx->bit_rate = 6300;
    ctx->sample_fmt = AV_SAMPLE_FMT_S16;
    av_channel_layout_default(&ctx->ch_layout, 1);
    if (avcodec_open2(ctx, codec, nullptr) < 0) {
        avcodec_free_context(&ctx);
        state.SkipWithError("libavcodec refused the encoder settings");
        return;
    }
    AVFrame* frame = av_frame_alloc();
    frame->nb_samples = 240;
    frame->format = AV_SAMPLE_FMT_S16;
    av_channel_layout_default(&frame->ch_layout, 1);
    av_frame_get_buffer(frame, 0);
    AVPacket* pkt = av_packet_alloc();
    for (auto _ : state)
        for (int k = 0; k < kFrames; ++k) {
            av_frame_make_writable(frame);
            std::memcpy(frame->data[0], &speech()[240 * k], 480);
            avcodec_send_frame(ctx, frame);
            while (avcodec_receive_packet(ctx, pkt) == 0) av_packet_unref(pkt);
        }
    perTenMs(state);
    av_packet_free(&pkt);
    av_frame_free(&frame);
    avcodec_free_context(&ctx);
}
BENCHMARK(BM_G723_Encode_FFmpeg);

void BM_G723_Decode_FFmpeg(benchmark::State& state) {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_G723_1);
    if (!codec) {
        state.SkipWithError("no G.723.1 decoder in libavcodec");
        return;
    }
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    ctx->sample_rate = 8000;
    av_channel_layout_default(&ctx->ch_layout, 1);
    avcodec_open2(ctx, codec, nullptr);
    AVPacket* pkt = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    const std::vector<uint8_t>& s = stream();
    for (auto _ : state)
        for (size_t pos = 0; pos + 24 <= s.size(); pos += 24) {
            av_new_packet(pkt, 24);
            std::memcpy(pkt->data, &s[pos], 24);
            avcodec_send_packet(ctx, pkt);
            while (avcodec_receive_frame(ctx, frame) == 0) benchmark::DoNotOptimize(frame->data[0]);
            av_packet_unref(pkt);
        }
    perTenMs(state);
    av_frame_free(&frame);
    av_packet_free(&pkt);
    avcodec_free_context(&ctx);
}
BENCHMARK(BM_G723_Decode_FFmpeg);
#endif

}  // namespace
