// The internal allocation wrappers: a length below 1 (or a float count whose
// byte size overflows 32 bits) gives null without reaching the core library;
// other lengths reach kvoMalloc in bytes and kvosFree hands the block to
// kvoFree.  This binary interposes kvoMalloc and kvoFree to watch the calls.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "frame/alloc.h"
#include "kvocore.h"
#include "kvosc.h"
#include "support/alloc_count.h"

namespace {
int g_mallocs = 0, g_frees = 0;
Kvo32s g_last_len = 0;
void* g_last_freed = nullptr;
}  // namespace

extern "C" void* kvoMalloc(Kvo32s len) {
    ++g_mallocs, g_last_len = len;
    static auto real = reinterpret_cast<void* (*)(Kvo32s)>(dlsym(RTLD_NEXT, "kvoMalloc"));
    return real ? real(len) : nullptr;
}

extern "C" void kvoFree(void* p) {
    ++g_frees, g_last_freed = p;
    static auto real = reinterpret_cast<void (*)(void*)>(dlsym(RTLD_NEXT, "kvoFree"));
    if (real) real(p);
}

TEST(Alloc, LengthsReachTheCoreInBytesOrNotAtAll) {
    struct Row {
        bool floats;
        Kvo32s len, bytes;  // bytes 0: null, no call
    };
    const Row rows[] = {{false, 0, 0},         {true, -1, 0},        {false, INT32_MIN, 0},
                        {true, 0x20000000, 0}, {true, INT32_MAX, 0}, {false, 1, 1},
                        {false, 1000, 1000},   {true, 1, 4},         {true, 257, 1028}};
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.floats << " " << r.len);
        const int calls = g_mallocs, frees = g_frees;
        void* p = r.floats ? kvo::kvosMalloc_32f(r.len) : kvo::kvosMalloc_8u(r.len);
        EXPECT_EQ(g_mallocs, calls + (r.bytes ? 1 : 0));
        if (!r.bytes) {
            EXPECT_EQ(p, nullptr);
            continue;
        }
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(g_last_len, r.bytes);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
        kvo::kvosFree(p);
        EXPECT_EQ(g_frees, frees + 1);
        EXPECT_EQ(g_last_freed, p);
    }
}

TEST(Version, RecordIsConstantConsistentAndAllocatesNothing) {
    ASSERT_TRUE(kvosc::test::allocation_counting_available());
    const KvoLibraryVersion* v = nullptr;
    EXPECT_EQ(kvosc::test::allocations_during([&] { v = kvoscGetLibVersion(); }), 0);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, kvoscGetLibVersion());
    EXPECT_EQ(std::string(v->cpuTag, 4), std::string("mx\0\0", 4));
    EXPECT_STREQ(v->nameText, "kvoSC PX (mx)");
    EXPECT_STREQ(v->dateText, "Jul 11 2013");
    EXPECT_STREQ(v->versionText, "8.0.1 (r40318)");  // derived from the numbers
    EXPECT_EQ(v->versionMajor, 8);
    EXPECT_EQ(v->versionMinor, 0);
    EXPECT_EQ(v->buildMajor, 1);
    EXPECT_EQ(v->revision, 40318);
}
