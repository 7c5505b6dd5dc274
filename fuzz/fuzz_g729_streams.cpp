// Fuzz target of the assembled G.729 stream decoders (apps/coders): serial
// streams whose frames switch between 6.4, 8 and 11.8 kbit/s at will (size
// words 64, 80, 118, forward and backward mode flags, erased frames) for the
// multi-rate decoder, and streams of speech, SID and untransmitted frames in
// any order for the Annex B decoders; raw bytes in both formats as well.
// A decoder either refuses the stream with a message, or gives exactly 80
// samples per frame.
#include "coders/coder.h"
#include "common.h"

namespace {

using kvosc::coders::Coder;
using kvosc::coders::Options;

Options format(const char* f) {
    Options o;
    o.values.push_back({"format", f});
    return o;
}

// A well-formed serial stream: sync word (0x6b20 flags a bad frame), size
// word from the coder's set, bit words 0x0081 / 0x007f with the odd zero.
std::vector<uint8_t> serial(FuzzedDataProvider& fdp, const int* sizes, int nSizes, int* frames) {
    std::vector<int16_t> w;
    *frames = 0;
    while (fdp.remaining_bytes() > 0 && *frames < 60) {
        const int n = sizes[fdp.ConsumeIntegralInRange(0, nSizes - 1)];
        w.push_back(fdp.ConsumeIntegralInRange(0, 15) == 0 ? 0x6b20 : 0x6b21);
        w.push_back(static_cast<int16_t>(n));
        for (int i = 0; i < n; ++i) {
            const uint8_t b = fdp.ConsumeIntegral<uint8_t>();
            w.push_back(b == 0 ? 0 : (b & 1) ? 0x0081 : 0x007f);
        }
        ++*frames;
    }
    return kvosc::coders::bytes_from_words(w);
}

void run(const Coder& c, const Options& o, const std::vector<uint8_t>& stream, int frames) {
    std::vector<int16_t> pcm;
    std::string error;
    if (!c.decode(o, stream, pcm, error)) {
        KVOSC_FUZZ_CHECK(!error.empty());
        return;
    }
    if (frames >= 0) KVOSC_FUZZ_CHECK(pcm.size() == 80u * frames);
    KVOSC_FUZZ_CHECK(pcm.size() % 80 == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider fdp(data, size);
    static const int kRates[] = {64, 80, 118};
    static const int kAnnexB[] = {80, 16, 0};
    const int which = fdp.ConsumeIntegralInRange(0, 5);
    const char* name = which % 3 == 0 ? "g729i" : which % 3 == 1 ? "g729b" : "g729ab";
    const Coder* c = kvosc::coders::find_coder(name);
    KVOSC_FUZZ_CHECK(c != nullptr);
    if (which < 3) {
        int frames = 0;
        const std::vector<uint8_t> s =
            which == 0 ? serial(fdp, kRates, 3, &frames) : serial(fdp, kAnnexB, 3, &frames);
        run(*c, format("itu"), s, frames);
    } else {
        // Raw bytes: packed frames with any length or type octet, or serial words.
        const bool itu = fdp.ConsumeBool();
        const std::vector<uint8_t> s = fdp.ConsumeRemainingBytes<uint8_t>();
        run(*c, format(itu ? "itu" : "packed"), s, -1);
    }
    return 0;
}
