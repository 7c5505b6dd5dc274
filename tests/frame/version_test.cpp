// The version record and the load-time set-up.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "kvosc.h"

TEST(Version, RecordIsConstantAndConsistent) {
    const KvoLibraryVersion* v = kvoscGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, kvoscGetLibVersion());
    EXPECT_EQ(v->versionMajor, 8);
    EXPECT_EQ(v->versionMinor, 0);
    EXPECT_EQ(v->buildMajor, 1);
    EXPECT_EQ(v->revision, 40318);
    EXPECT_EQ(std::string(v->cpuTag, 4), std::string("mx\0\0", 4));
    EXPECT_STREQ(v->nameText, "kvoSC PX (mx)");
    EXPECT_STREQ(v->dateText, "Jul 11 2013");
    // versionText is derived from the numbers.
    char want[64];
    std::snprintf(want, sizeof want, "%d.%d.%d (r%d)", v->versionMajor, v->versionMinor,
                  v->buildMajor, v->revision);
    EXPECT_STREQ(v->versionText, want);
}
