// Argument checks of every G.722 export, in their documented order; a failed
// call writes nothing.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "kvosc.h"

namespace {

struct Row {
    const char* what;
    std::function<KvoStatus()> call;
    KvoStatus want;
};

class G722Args : public ::testing::Test {
  protected:
    alignas(16) Kvo8u mem[512];
    Kvo16s src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    Kvo16s dst[8];
    Kvo16s delay[24];
    Kvo16s hb[2];
    Kvo32s size = -1, cls = 0;
    Kvo8u snapshot[512];

    void SetUp() override {
        std::memset(mem, 0x3C, sizeof mem);
        std::memset(dst, 0x3C, sizeof dst);
        std::memset(delay, 0x3C, sizeof delay);
        std::memset(hb, 0x3C, sizeof hb);
    }
    void run(const std::vector<Row>& rows) {
        for (const Row& r : rows) {
            SetUp();
            std::memcpy(snapshot, mem, sizeof mem);
            EXPECT_EQ(r.call(), r.want) << r.what;
            if (r.want < 0) {
                EXPECT_EQ(std::memcmp(snapshot, mem, sizeof mem), 0) << r.what;
                for (Kvo16s v : dst) EXPECT_EQ(v, 0x3C3C) << r.what;
                for (Kvo16s v : delay) EXPECT_EQ(v, 0x3C3C) << r.what;
                for (Kvo16s v : hb) EXPECT_EQ(v, 0x3C3C) << r.what;
            }
        }
    }
};

TEST_F(G722Args, QmfAndCoder) {
    run({
        {"qmf enc null src", [&] { return kvosQMFEncode_G722_16s(nullptr, dst, 4, delay); },
         kvoErrNullPtr},
        {"qmf enc null dst", [&] { return kvosQMFEncode_G722_16s(src, nullptr, 4, delay); },
         kvoErrNullPtr},
        {"qmf enc null delay", [&] { return kvosQMFEncode_G722_16s(src, dst, 4, nullptr); },
         kvoErrNullPtr},
        {"qmf enc null, len 0", [&] { return kvosQMFEncode_G722_16s(nullptr, dst, 0, delay); },
         kvoErrNullPtr},
        {"qmf enc len 0", [&] { return kvosQMFEncode_G722_16s(src, dst, 0, delay); }, kvoErrSize},
        {"qmf enc len -2", [&] { return kvosQMFEncode_G722_16s(src, dst, -2, delay); }, kvoErrSize},
        {"qmf enc len odd", [&] { return kvosQMFEncode_G722_16s(src, dst, 3, delay); }, kvoErrSize},
        {"qmf enc ok", [&] { return kvosQMFEncode_G722_16s(src, dst, 8, delay); }, kvoOk},
        {"qmf dec null src", [&] { return kvosQMFDecode_G722_16s(nullptr, dst, 4, delay); },
         kvoErrNullPtr},
        {"qmf dec null dst", [&] { return kvosQMFDecode_G722_16s(src, nullptr, 4, delay); },
         kvoErrNullPtr},
        {"qmf dec null delay", [&] { return kvosQMFDecode_G722_16s(src, dst, 4, nullptr); },
         kvoErrNullPtr},
        {"qmf dec len 0", [&] { return kvosQMFDecode_G722_16s(src, dst, 0, delay); }, kvoErrSize},
        {"qmf dec len odd", [&] { return kvosQMFDecode_G722_16s(src, dst, 7, delay); }, kvoErrSize},
        {"qmf dec ok", [&] { return kvosQMFDecode_G722_16s(src, dst, 2, delay); }, kvoOk},
        {"enc size null", [&] { return kvosSBADPCMEncodeStateSize_G722_16s(nullptr); },
         kvoErrNullPtr},
        {"dec size null", [&] { return kvosSBADPCMDecodeStateSize_G722_16s(nullptr); },
         kvoErrNullPtr},
        {"enc size", [&] { return kvosSBADPCMEncodeStateSize_G722_16s(&size); }, kvoOk},
        {"enc init null", [&] { return kvosSBADPCMEncodeInit_G722_16s(nullptr); }, kvoErrNullPtr},
        {"dec init null", [&] { return kvosSBADPCMDecodeInit_G722_16s(nullptr); }, kvoErrNullPtr},
        {"enc null src", [&] { return kvosSBADPCMEncode_G722_16s(nullptr, dst, 4, mem); },
         kvoErrNullPtr},
        {"enc null dst", [&] { return kvosSBADPCMEncode_G722_16s(src, nullptr, 4, mem); },
         kvoErrNullPtr},
        {"enc null mem", [&] { return kvosSBADPCMEncode_G722_16s(src, dst, 4, nullptr); },
         kvoErrNullPtr},
        {"enc len 0", [&] { return kvosSBADPCMEncode_G722_16s(src, dst, 0, mem); }, kvoErrSize},
        {"enc len odd", [&] { return kvosSBADPCMEncode_G722_16s(src, dst, 5, mem); }, kvoErrSize},
        {"enc len negative", [&] { return kvosSBADPCMEncode_G722_16s(src, dst, -4, mem); },
         kvoErrSize},
        {"dec null src", [&] { return kvosSBADPCMDecode_G722_16s(nullptr, dst, 4, 1, mem); },
         kvoErrNullPtr},
        {"dec null dst", [&] { return kvosSBADPCMDecode_G722_16s(src, nullptr, 4, 1, mem); },
         kvoErrNullPtr},
        {"dec null mem", [&] { return kvosSBADPCMDecode_G722_16s(src, dst, 4, 1, nullptr); },
         kvoErrNullPtr},
        {"dec len 0", [&] { return kvosSBADPCMDecode_G722_16s(src, dst, 0, 1, mem); }, kvoErrSize},
        {"dec len odd", [&] { return kvosSBADPCMDecode_G722_16s(src, dst, 1, 1, mem); },
         kvoErrSize},
        // no mode is rejected: 0 and 1 are 64 kbit/s, 2 is 56, all others 48
        {"dec mode 99", [&] { return kvosSBADPCMDecode_G722_16s(src, dst, 2, 99, mem); }, kvoOk},
        {"dec mode -5", [&] { return kvosSBADPCMDecode_G722_16s(src, dst, 2, -5, mem); }, kvoOk},
    });
}

TEST_F(G722Args, ConcealmentHelpers) {
    run({
        {"update null src",
         [&] { return kvosSBADPCMDecodeStateUpdate_G722_16s(nullptr, 0, 0, mem); }, kvoErrNullPtr},
        {"update null mem",
         [&] { return kvosSBADPCMDecodeStateUpdate_G722_16s(src, 0, 0, nullptr); }, kvoErrNullPtr},
        {"classify null x", [&] { return kvosClassifyFrame_G722_16s_I(nullptr, 3, &cls, mem); },
         kvoErrNullPtr},
        {"classify null class",
         [&] { return kvosClassifyFrame_G722_16s_I(src + 2, 3, nullptr, mem); }, kvoErrNullPtr},
        {"classify null mem",
         [&] { return kvosClassifyFrame_G722_16s_I(src + 2, 3, &cls, nullptr); }, kvoErrNullPtr},
        {"classify period -1", [&] { return kvosClassifyFrame_G722_16s_I(src + 2, -1, &cls, mem); },
         kvoErrRange},
        {"classify period 144",
         [&] { return kvosClassifyFrame_G722_16s_I(src + 2, 144, &cls, mem); }, kvoErrRange},
        // read as 16 bits: 0x10002 is period 2, 0x18000 is negative
        {"classify period 0x18000",
         [&] { return kvosClassifyFrame_G722_16s_I(src + 2, 0x18000, &cls, mem); }, kvoErrRange},
        {"classify period 0x10002",
         [&] { return kvosClassifyFrame_G722_16s_I(src + 2, 0x10002, &cls, mem); }, kvoOk},
        {"highband null x", [&] { return kvosFilterHighband_G722_16s_I(nullptr, 4, hb); },
         kvoErrNullPtr},
        {"highband null state", [&] { return kvosFilterHighband_G722_16s_I(dst, 4, nullptr); },
         kvoErrNullPtr},
        {"highband len 0", [&] { return kvosFilterHighband_G722_16s_I(dst, 0, hb); }, kvoErrSize},
        {"downsample null src", [&] { return kvosDownsampleFilter_G722_16s(nullptr, 8, dst); },
         kvoErrNullPtr},
        {"downsample null dst", [&] { return kvosDownsampleFilter_G722_16s(src + 5, 8, nullptr); },
         kvoErrNullPtr},
        {"downsample len 0", [&] { return kvosDownsampleFilter_G722_16s(src + 5, 0, dst); },
         kvoErrSize},
    });
}

TEST_F(G722Args, ClassifyOnlyReadsTheRecord) {
    std::memset(mem, 0, sizeof mem);
    ASSERT_EQ(kvosSBADPCMDecodeInit_G722_16s(mem + 1), kvoOk);
    std::memcpy(snapshot, mem, sizeof mem);
    Kvo16s x[12] = {0, 0, 5, 5, 5, 5, 900, 5, 5, 5, 0, 0};
    cls = 4;
    ASSERT_EQ(kvosClassifyFrame_G722_16s_I(x + 2, 4, &cls, mem + 1), kvoOk);
    EXPECT_EQ(cls, 2);
    EXPECT_EQ(std::memcmp(snapshot, mem, sizeof mem), 0);
}

}  // namespace
