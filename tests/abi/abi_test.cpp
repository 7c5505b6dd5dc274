// The binary interface of libkvoscmx.so.8.0 as built: what it exports, how an
// exported name reaches its implementation, which memory stays writable after
// load, and what the dynamic section promises the loader.  The library is read
// as a file (including the local .symtab the build keeps) and loaded with
// dlopen to look at the relocated slots and the load-time index.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "kvocore.h"
#include "support/elf_image.h"
#include "support/paths.h"

#if defined(__SANITIZE_ADDRESS__)
#define KVOSC_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(undefined_behavior_sanitizer)
#define KVOSC_SANITIZED 1
#endif
#endif
// Instrumentation adds data, padding and runtime symbols.
#ifdef KVOSC_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

namespace {

using kvosc::test::ElfImage;
namespace kt = kvosc::test;

class Abi : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        elf_ = new ElfImage(kt::built_library());
        std::ifstream in(kt::source_dir() + "/src/frame/exports.def");
        const std::regex row(R"(^KVO_EXPORT\(\s*[a-z0-9]+\s*,\s*(\w+)\s*,\s*(\w+)\s*\))");
        std::smatch m;
        for (std::string line; std::getline(in, line);)
            if (std::regex_search(line, m, row)) rows_.push_back({m[1], m[2]});
        handle_ = dlopen(kt::built_library().c_str(), RTLD_NOW | RTLD_LOCAL);
        link_map* lm = nullptr;
        if (handle_ && dlinfo(handle_, RTLD_DI_LINKMAP, &lm) == 0 && lm) base_ = lm->l_addr;
        auto r = elf_->segment(PT_GNU_RELRO);
        if (r) relro_ = {r->vaddr, r->vaddr + r->memsz};
    }
    static void TearDownTestSuite() {
        if (handle_) dlclose(handle_);
        delete elf_;
    }
    void SetUp() override {
        ASSERT_TRUE(elf_->ok()) << elf_->error();
        ASSERT_FALSE(rows_.empty()) << "no KVO_EXPORT row read from exports.def";
        ASSERT_NE(handle_, nullptr) << dlerror();
        ASSERT_FALSE(elf_->symtab().empty()) << "the built library has no .symtab";
        ASSERT_LT(relro_.first, relro_.second) << "no PT_GNU_RELRO segment";
    }
    static const uint8_t* at(uint64_t vaddr) {
        return reinterpret_cast<const uint8_t*>(base_ + vaddr);
    }
    static bool in_relro(uint64_t a, uint64_t n) {
        return a >= relro_.first && a + n <= relro_.second;
    }
    // kvo::impl::<fn> in .symtab (mangled, any signature, not a compiler clone).
    static const ElfImage::Symbol* impl_symbol(const std::string& fn) {
        const std::string prefix = "_ZN3kvo4impl" + std::to_string(fn.size()) + fn + "E";
        for (const auto& s : elf_->symtab())
            if (s.type == STT_FUNC && s.defined() && s.name.rfind(prefix, 0) == 0 &&
                s.name.find('.') == std::string::npos)
                return &s;
        return nullptr;
    }

    static inline ElfImage* elf_ = nullptr;
    static inline std::vector<std::pair<std::string, std::string>> rows_;  // name, fn
    static inline void* handle_ = nullptr;
    static inline uintptr_t base_ = 0;
    static inline std::pair<uint64_t, uint64_t> relro_{0, 0};
};

TEST_F(Abi, ExportsExactlyTheListedFunctions) {
    std::set<std::string> want, got, listed;
    for (const auto& r : rows_) want.insert(r.first);
    for (const auto& s : elf_->dynsym()) {
        if (!s.defined()) continue;
        got.insert(s.name);
        EXPECT_TRUE(s.type == STT_FUNC && s.bind == STB_GLOBAL && s.visibility == STV_DEFAULT)
            << s.name;
    }
    EXPECT_EQ(got, want);
    std::ifstream in(kt::binary_dir() + "/exports.txt");  // the build's listing, read by tools
    for (std::string kind, family, name; in >> kind >> family >> name;)
        if (kind == "export") listed.insert(name);
    EXPECT_EQ(listed, want) << "exports.txt is stale: reconfigure the build";
}

TEST_F(Abi, EachStubJumpsThroughItsReadOnlySlotToItsImplementation) {
    for (const auto& [name, fn] : rows_) {
        SCOPED_TRACE(name);
        const ElfImage::Symbol* entry = elf_->find_dynsym(name);
        const ElfImage::Symbol* slot = elf_->find_symtab(name + "_arraddr");
        const ElfImage::Symbol* impl = impl_symbol(fn);
        ASSERT_TRUE(entry && slot && impl) << "entry, slot or kvo::impl::" << fn << " missing";
        EXPECT_NE(slot->bind, STB_GLOBAL) << "a slot must not be a dynamic symbol";
        EXPECT_TRUE(kSanitized ? slot->size >= 8 : slot->size == 8);
        EXPECT_TRUE(in_relro(slot->value, slot->size)) << "slot outside RELRO";
        EXPECT_EQ(kt::mapping_permissions(at(slot->value)).substr(0, 2), "r-");
        // lea or mov rel32(%rip),%r11 (4c 8d/8b 1d), then jmp *(%r11) (41 ff 23): 10 bytes.
        EXPECT_EQ(entry->size, 10u);
        const uint8_t* p = at(entry->value);
        ASSERT_TRUE(p[0] == 0x4c && (p[1] == 0x8d || p[1] == 0x8b) && p[2] == 0x1d &&
                    p[7] == 0x41 && p[8] == 0xff && p[9] == 0x23)
            << "not the two-instruction stub";
        int32_t rel;
        std::memcpy(&rel, p + 3, 4);
        const uint8_t* ref = p + 7 + rel;
        if (p[1] == 0x8b) std::memcpy(&ref, ref, sizeof ref);  // through the GOT
        EXPECT_EQ(ref, at(slot->value)) << "the stub loads another word than its slot";
        const void* target;
        std::memcpy(&target, at(slot->value), sizeof target);
        EXPECT_EQ(target, at(impl->value)) << "slot holds another address than kvo::impl::" << fn;
    }
}

// Writable data after RELRO is sealed: only the load-time index of the
// library's code, beside the C start-up's and linker's own symbols and, in
// sanitizer builds, the instrumentation's data.
TEST_F(Abi, OnlyWritableWordIsTheJumpIndex) {
    const std::regex crt(
        R"(^(completed\.[0-9]+|__dso_handle|__TMC_END__|_edata|_end|__bss_start)$)");
    const std::regex san(
        R"(^((__asan|___asan|__odr_asan|__ubsan|__sancov|__start_|__stop_).*|__unnamed_[0-9]+)$)");
    std::vector<std::string> unexpected;
    const ElfImage::Symbol* index = nullptr;
    for (const auto& s : elf_->symtab()) {
        if (!s.defined() || s.shndx >= elf_->sections().size()) continue;
        if (s.type != STT_OBJECT && s.type != STT_NOTYPE && s.type != STT_TLS) continue;
        const auto& sec = elf_->sections()[s.shndx];
        if (!sec.writable() || in_relro(s.value, 1)) continue;
        if (s.name == "kvoJumpIndexForMergedDLL")
            index = &s;
        else if (!std::regex_match(s.name, crt) && !(kSanitized && std::regex_match(s.name, san)))
            unexpected.push_back(s.name + " in " + sec.name);
    }
    EXPECT_TRUE(unexpected.empty()) << ::testing::PrintToString(unexpected);
    ASSERT_NE(index, nullptr) << "kvoJumpIndexForMergedDLL not in .symtab";
    EXPECT_TRUE(kSanitized ? index->size >= 4 : index->size == 4);
    EXPECT_NE(index->bind, STB_GLOBAL) << "the index is not exported";
    int32_t value;
    std::memcpy(&value, at(index->value), sizeof value);
    const Kvo64u mask = kvoGetEnabledCpuFeatures();
    EXPECT_EQ(value, (mask & 0x30) == 0x30 ? 1 : 0) << "enabled mask 0x" << std::hex << mask;
}

TEST_F(Abi, DynamicSectionAndRuntimeDependencies) {
    EXPECT_FALSE(elf_->dynamic_value(DT_VERDEF)) << "exports carry no version node";
    EXPECT_EQ(elf_->soname(), "libkvoscmx.so.8");
    const auto flags = elf_->dynamic_value(DT_FLAGS).value_or(0);
    const auto flags1 = elf_->dynamic_value(DT_FLAGS_1).value_or(0);
    EXPECT_TRUE((flags & DF_BIND_NOW) || (flags1 & DF_1_NOW)) << "not linked with -z now";
    EXPECT_NE(elf_->runpath().find("$ORIGIN"), std::string::npos) << elf_->runpath();
    auto stack = elf_->segment(PT_GNU_STACK);
    EXPECT_TRUE(stack && !(stack->flags & PF_X)) << "executable stack";
    auto needed = elf_->needed();
    EXPECT_NE(std::find(needed.begin(), needed.end(), "libkvocore.so.8.0"), needed.end());
    const std::regex allowed(
        kSanitized
            ? R"(^(libkvocore\.so\.8\.0|libc\.so\.6|libm\.so\.6|libstdc\+\+\.so\.6|lib(asan|ubsan)\.so.*)$)"
            : R"(^(libkvocore\.so\.8\.0|libc\.so\.6|libm\.so\.6)$)");
    for (const auto& n : needed) EXPECT_TRUE(std::regex_match(n, allowed)) << "needs " << n;
    char buf[64] = {};
    const std::string lib = kt::binary_dir() + "/lib/";
    EXPECT_GT(readlink((lib + "libkvoscmx.so.8").c_str(), buf, sizeof buf - 1), 0);
    EXPECT_STREQ(buf, "libkvoscmx.so.8.0");
    if (kSanitized) return;  // UBSan's function-type checks reference the C++ runtime
    for (const auto& s : elf_->dynsym()) {  // crtbegin's weak __cxa_finalize is the C start-up's
        const bool weak_finalize = s.name == "__cxa_finalize" && !s.defined() && s.bind == STB_WEAK;
        for (const char* p : {"_Z", "__gxx", "_Unwind", "__cxa"})
            EXPECT_TRUE(s.name.rfind(p, 0) != 0 || weak_finalize)
                << "C++ runtime symbol " << s.name;
    }
}

}  // namespace
