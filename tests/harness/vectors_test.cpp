// The vector-file readers on a small file written here, and the comparison
// helper.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/vectors.h"

namespace kt = kvosc::test;

TEST(Vectors, WordsAreLittleEndianSignedAndFaultsAreNamed) {
    const std::string path = testing::TempDir() + "kvosc_words_" + std::to_string(getpid());
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    const unsigned char bytes[] = {1, 0, 0xff, 0xff, 0x34, 0x12, 0x00, 0x80, 7};
    std::fwrite(bytes, 1, 8, f);
    std::fclose(f);
    auto w = kt::read_words(path);
    ASSERT_TRUE(w.ok()) << w.error;
    EXPECT_EQ(w.items, (std::vector<int16_t>{1, -1, 0x1234, -32768}));
    EXPECT_EQ(kt::read_bytes(path).items, std::vector<uint8_t>(bytes, bytes + 8));

    f = std::fopen(path.c_str(), "ab");
    std::fwrite(bytes + 8, 1, 1, f);
    std::fclose(f);
    EXPECT_NE(kt::read_words(path).error.find("odd byte count 9"), std::string::npos);
    std::remove(path.c_str());
    EXPECT_NE(kt::read_words(path).error.find("cannot open"), std::string::npos);
}

TEST(Vectors, FirstMismatch) {
    using V = std::vector<int16_t>;
    EXPECT_EQ(kt::first_mismatch(V{1, 2, 3}, V{1, 2, 3}), -1);
    EXPECT_EQ(kt::first_mismatch(V{1, 2, 3}, V{1, 5, 3}), 1);
    EXPECT_EQ(kt::first_mismatch(V{1, 2}, V{1, 2, 3}), 2);
    EXPECT_EQ(kt::first_mismatch(V{}, V{}), -1);
}
