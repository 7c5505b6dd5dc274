// The bad-argument checker on small functions with known faults: a correct
// function passes with the expected case count, and each kind of fault is
// reported.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/badargs.h"

namespace kt = kvosc::test;

namespace {

// Messages of the non-fatal failures that f() reports, kept from the test.
template <class F>
std::vector<std::string> failures_of(F&& f) {
    ::testing::TestPartResultArray results;
    {
        ::testing::ScopedFakeTestPartResultReporter fake(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        f();
    }
    std::vector<std::string> out;
    for (int i = 0; i < results.size(); ++i) out.push_back(results.GetTestPartResult(i).message());
    return out;
}

bool any_contains(const std::vector<std::string>& msgs, const std::string& part) {
    return std::any_of(msgs.begin(), msgs.end(),
                       [&](const std::string& m) { return m.find(part) != std::string::npos; });
}

// clang-format off
enum class Flaw { None, LengthBeforeNull, WriteBeforeScaleCheck, Overrun, WriteInput, NoScaleCheck,
                  RejectAll, Underrun };
// clang-format on

// dst[i] = src[i] >> sf, with the usual check order: nulls, length, scale.
KvoStatus shift_right(Flaw flaw, const Kvo16s* src, Kvo16s* dst, Kvo32s len, Kvo32s sf) {
    if (flaw == Flaw::RejectAll) return kvoErrNullPtr;
    if (flaw == Flaw::LengthBeforeNull && len < 1) return kvoErrSize;
    if (!src || !dst) return kvoErrNullPtr;
    if (len < 1) return kvoErrSize;
    if (flaw == Flaw::WriteBeforeScaleCheck) dst[0] = 0;
    if (flaw != Flaw::NoScaleCheck && (sf < 0 || sf > 15)) return kvoErrScaleRange;
    for (Kvo32s i = 0; i < len; ++i) dst[i] = static_cast<Kvo16s>(src[i] >> (sf & 15));
    if (flaw == Flaw::Overrun) dst[len] = 1;
    if (flaw == Flaw::Underrun) dst[-1] = 1;
    if (flaw == Flaw::WriteInput) const_cast<Kvo16s*>(src)[0] = 0;
    return kvoOk;
}

kt::BadArgs::Report check_shift(Flaw flaw) {
    kt::BadArgs t("shift_right");
    auto src = t.in<Kvo16s>("pSrc", 20);
    auto dst = t.out<Kvo16s>("pDst", 20);
    auto len = t.value<Kvo32s>("len", 20, {{0, kvoErrSize}, {-3, kvoErrSize}});
    auto sf = t.value<Kvo32s>("scaleFactor", 2, {{-1, kvoErrScaleRange}, {16, kvoErrScaleRange}});
    return t.run([&](const kt::BadArgs::Call& c) {
        return shift_right(flaw, c(src), c(dst), c(len), c(sf));
    });
}

TEST(BadArgs, EachFaultIsReported) {
    kt::BadArgs::Report ok = check_shift(Flaw::None);
    EXPECT_EQ(ok.cases, 15);  // valid + 2 nulls + 4 bad values + 2 x 4 null-with-bad-value pairs
    EXPECT_EQ(ok.failures, 0);
    struct Row {
        Flaw flaw;
        const char* message;
    };
    const Row rows[] = {
        {Flaw::LengthBeforeNull, "shift_right(pSrc = null, len = 0): status -6, want -8"},
        {Flaw::WriteBeforeScaleCheck, "pDst byte 0 changed"},
        {Flaw::Overrun, "pDst guard byte after the buffer"},
        {Flaw::Underrun, "pDst guard byte before the buffer"},
        {Flaw::WriteInput, "pSrc byte 0 (an input) changed"},
        {Flaw::NoScaleCheck, "shift_right(scaleFactor = 16): status 0, want -13"},
        {Flaw::RejectAll, "shift_right(all arguments valid): status -8, want 0"},
    };
    for (const Row& row : rows) {
        kt::BadArgs::Report r;
        auto msgs = failures_of([&] { r = check_shift(row.flaw); });
        EXPECT_GT(r.failures, 0) << row.message;
        EXPECT_GE(static_cast<int>(msgs.size()), r.failures) << row.message;
        EXPECT_TRUE(any_contains(msgs, row.message))
            << "want: " << row.message << "\ngot: " << ::testing::PrintToString(msgs);
    }
}

// A stateful frame function: the record counts frames.
struct Counter {
    Kvo32s magic, frames;
};
void counter_init(void* p) {
    *static_cast<Counter*>(p) = {0x4b56, 0};
}
KvoStatus counter_frame(bool early_write, Counter* st, const Kvo16s* x, Kvo32s len) {
    if (!st || !x) return kvoErrNullPtr;
    if (early_write) ++st->frames;
    if (len != 80) return kvoErrSize;
    if (st->magic != 0x4b56) return kvoErrContextMatch;
    if (!early_write) ++st->frames;
    return kvoOk;
}

kt::BadArgs::Report check_counter(bool early_write) {
    kt::BadArgs t("counter_frame");
    auto st = t.state("pState", sizeof(Counter), counter_init);
    auto x = t.in<Kvo16s>("pSrc", 80);
    auto len = t.value<Kvo32s>("len", 80, {{79, kvoErrSize}, {160, kvoErrSize}});
    return t.run([&](const kt::BadArgs::Call& c) {
        return counter_frame(early_write, static_cast<Counter*>(c(st)), c(x), c(len));
    });
}

TEST(BadArgs, StateRecordMustStayUntouchedOnFailure) {
    EXPECT_EQ(check_counter(false).failures, 0);
    auto msgs = failures_of([] { check_counter(true); });
    EXPECT_EQ(msgs.size(), 2u);  // len = 79 and len = 160
    EXPECT_TRUE(any_contains(msgs,
                             "counter_frame(len = 79): pState byte 4 changed from 0 to 1 by "
                             "a call that failed"))
        << ::testing::PrintToString(msgs);
}

TEST(BadArgs, OptionsShapeTheCases) {
    auto f = [](const Kvo16s* a, Kvo32s* opt, Kvo32s n) -> KvoStatus {
        if (!a) return kvoErrNullPtr;
        if (n < 1 || n > 4) return n < 1 ? kvoErrSize : kvoErrRange;
        if (opt) *opt = n;
        return kvoOk;
    };
    kt::BadArgs t("f");
    auto a = t.in<Kvo16s>("a", 4, {1, 2, 3, 4});
    auto opt = t.out<Kvo32s>("opt", 1);
    auto n = t.value<Kvo32s>("n", 4, {{0, kvoErrSize}, {5, kvoErrRange}});
    t.optional(opt);
    t.combo(kvoErrSize, {t.bad(n, 0), t.null(opt)});
    auto r = t.run([&](const kt::BadArgs::Call& c) { return f(c(a), c(opt), c(n)); });
    EXPECT_EQ(r.cases, 7);  // valid, a = null, n = 0, n = 5, a = null with each, the combination
    EXPECT_EQ(r.failures, 0);
}

}  // namespace
