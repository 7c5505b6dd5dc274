// The binary interface of libkvoscmx.so.8.0 as built: what it exports, how an
// exported name reaches its implementation, which memory stays writable after
// load, and what the dynamic section promises the loader.
//
// The build tree's library is read as a file (ELF tables, including the
// local .symtab the build keeps) and loaded with dlopen to look at the
// relocated slots and the load-time index in memory.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kvocore.h"
#include "kvosc.h"
#include "support/elf_image.h"
#include "support/paths.h"

#if defined(__SANITIZE_ADDRESS__)
#define KVOSC_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(undefined_behavior_sanitizer)
#define KVOSC_TEST_SANITIZED 1
#endif
#endif
#ifndef KVOSC_TEST_SANITIZED
#define KVOSC_TEST_SANITIZED 0
#endif

namespace {

using kvosc::test::ElfImage;

struct ExportRow {
    std::string family, name, fn;
};

// The KVO_EXPORT rows of the export list in the source tree.
std::vector<ExportRow> export_rows() {
    std::ifstream in(kvosc::test::source_dir() + "/src/frame/exports.def");
    std::vector<ExportRow> rows;
    std::regex row(
        R"(^KVO_EXPORT\(\s*([a-z0-9]+)\s*,\s*([A-Za-z0-9_]+)\s*,\s*([A-Za-z0-9_]+)\s*\))");
    std::string line;
    std::smatch m;
    while (std::getline(in, line))
        if (std::regex_search(line, m, row)) rows.push_back({m[1], m[2], m[3]});
    return rows;
}

class Abi : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        elf_ = new ElfImage(kvosc::test::built_library());
        rows_ = new std::vector<ExportRow>(export_rows());
        handle_ = dlopen(kvosc::test::built_library().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle_) {
            link_map* lm = nullptr;
            if (dlinfo(handle_, RTLD_DI_LINKMAP, &lm) == 0 && lm) base_ = lm->l_addr;
        }
    }
    static void TearDownTestSuite() {
        if (handle_) dlclose(handle_);
        delete elf_;
        delete rows_;
        handle_ = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(elf_->ok()) << elf_->error();
        ASSERT_FALSE(rows_->empty()) << "no KVO_EXPORT row read from exports.def";
        ASSERT_NE(handle_, nullptr) << dlerror();
        ASSERT_FALSE(elf_->symtab().empty()) << "the built library has no .symtab";
    }
    // Run-time address of a link-time virtual address of the library.
    static const uint8_t* at(uint64_t vaddr) {
        return reinterpret_cast<const uint8_t*>(base_ + vaddr);
    }
    static std::pair<uint64_t, uint64_t> relro() {
        auto r = elf_->segment(PT_GNU_RELRO);
        return r ? std::make_pair(r->vaddr, r->vaddr + r->memsz) : std::make_pair(0ul, 0ul);
    }
    // The implementation kvo::impl::<fn> in .symtab (C++ mangled, any signature).
    static const ElfImage::Symbol* impl_symbol(const std::string& fn) {
        std::string prefix = "_ZN3kvo4impl" + std::to_string(fn.size()) + fn + "E";
        for (const auto& s : elf_->symtab())
            if (s.type == STT_FUNC && s.defined() && s.name.compare(0, prefix.size(), prefix) == 0 &&
                s.name.find('.') == std::string::npos)  // not a compiler clone (.constprop, .isra)
                return &s;
        return nullptr;
    }

    static ElfImage* elf_;
    static std::vector<ExportRow>* rows_;
    static void* handle_;
    static uintptr_t base_;
};
ElfImage* Abi::elf_ = nullptr;
std::vector<ExportRow>* Abi::rows_ = nullptr;
void* Abi::handle_ = nullptr;
uintptr_t Abi::base_ = 0;

TEST_F(Abi, ExportsExactlyTheListedFunctions) {
    std::set<std::string> want, got;
    for (const auto& r : *rows_) want.insert(r.name);
    for (const auto& s : elf_->dynsym()) {
        if (!s.defined()) continue;
        got.insert(s.name);
        EXPECT_EQ(s.type, STT_FUNC) << s.name;
        EXPECT_EQ(s.bind, STB_GLOBAL) << s.name;
        EXPECT_EQ(s.visibility, STV_DEFAULT) << s.name;
    }
    std::vector<std::string> extra, missing;
    std::set_difference(got.begin(), got.end(), want.begin(), want.end(),
                        std::back_inserter(extra));
    std::set_difference(want.begin(), want.end(), got.begin(), got.end(),
                        std::back_inserter(missing));
    EXPECT_TRUE(extra.empty()) << "exported but not listed: " << ::testing::PrintToString(extra);
    EXPECT_TRUE(missing.empty()) << "listed but not exported: "
                                 << ::testing::PrintToString(missing);

    // The build's listing (read by tools and the CLI) agrees with the source list.
    std::ifstream in(kvosc::test::binary_dir() + "/exports.txt");
    std::set<std::string> listed;
    std::string kind, family, name;
    while (in >> kind >> family >> name)
        if (kind == "export") listed.insert(name);
    EXPECT_EQ(listed, want) << "exports.txt is stale: reconfigure the build";
}

TEST_F(Abi, NoRuntimeSymbolsAndNoVersionNodes) {
    // Exports carry no version node: no definition table, no version section.
    EXPECT_FALSE(elf_->dynamic_value(DT_VERDEF)) << "DT_VERDEF present";
    EXPECT_EQ(elf_->section(".gnu.version_d"), nullptr);
    if (KVOSC_TEST_SANITIZED)
        GTEST_SKIP() << "sanitizer builds reference the C++ runtime (UBSan's function-type "
                        "checks); checked in the release build";
    // No C++ runtime: neither defined nor imported (crtbegin's weak
    // __cxa_finalize reference is the C start-up's, not the C++ runtime's).
    for (const auto& s : elf_->dynsym()) {
        bool cxx = s.name.rfind("_Z", 0) == 0 || s.name.rfind("__gxx", 0) == 0 ||
                   s.name.rfind("_Unwind", 0) == 0 || s.name.rfind("__cxa", 0) == 0;
        if (s.name == "__cxa_finalize" && !s.defined() && s.bind == STB_WEAK) cxx = false;
        EXPECT_FALSE(cxx) << "C++ runtime symbol in .dynsym: " << s.name;
    }
    for (const auto& n : elf_->needed())
        EXPECT_TRUE(n.find("stdc++") == std::string::npos && n.find("gcc_s") == std::string::npos)
            << "depends on " << n;
}

TEST_F(Abi, SlotsLieInRelroAndAreReadOnlyAfterLoad) {
    auto [lo, hi] = relro();
    ASSERT_LT(lo, hi) << "no PT_GNU_RELRO segment";
    for (const auto& r : *rows_) {
        SCOPED_TRACE(r.name);
        const ElfImage::Symbol* slot = elf_->find_symtab(r.name + "_arraddr");
        ASSERT_NE(slot, nullptr) << "slot symbol missing";
        // AddressSanitizer pads globals with a red zone and reports the padded size.
        if (KVOSC_TEST_SANITIZED)
            EXPECT_GE(slot->size, sizeof(void*));
        else
            EXPECT_EQ(slot->size, sizeof(void*));
        EXPECT_NE(slot->bind, STB_GLOBAL) << "a slot must not be a dynamic symbol";
        EXPECT_TRUE(slot->value >= lo && slot->value + slot->size <= hi)
            << "slot at 0x" << std::hex << slot->value << " outside RELRO [0x" << lo << ", 0x" << hi
            << ")";
        std::string perms = kvosc::test::mapping_permissions(at(slot->value));
        ASSERT_FALSE(perms.empty());
        EXPECT_EQ(perms[1], '-') << "slot mapping is " << perms;
    }
}

TEST_F(Abi, EachStubJumpsThroughItsSlotToItsImplementation) {
    for (const auto& r : *rows_) {
        SCOPED_TRACE(r.name);
        const ElfImage::Symbol* entry = elf_->find_dynsym(r.name);
        const ElfImage::Symbol* slot = elf_->find_symtab(r.name + "_arraddr");
        const ElfImage::Symbol* impl = impl_symbol(r.fn);
        ASSERT_TRUE(entry && slot) << "entry or slot missing";
        ASSERT_NE(impl, nullptr) << "no kvo::impl::" << r.fn << " in .symtab";
        EXPECT_EQ(entry->size, 10u) << "a stub is two instructions, 10 bytes";

        // lea rel32(%rip),%r11 (4c 8d 1d) or mov rel32(%rip),%r11 (4c 8b 1d),
        // then jmp *(%r11) (41 ff 23).
        const uint8_t* p = at(entry->value);
        ASSERT_EQ(p[0], 0x4c);
        ASSERT_TRUE(p[1] == 0x8d || p[1] == 0x8b) << "opcode " << std::hex << int(p[1]);
        ASSERT_EQ(p[2], 0x1d) << "destination must be r11, RIP-relative";
        int32_t rel;
        std::memcpy(&rel, p + 3, 4);
        const uint8_t* ref = p + 7 + rel;
        ASSERT_EQ(p[7], 0x41);
        ASSERT_EQ(p[8], 0xff);
        ASSERT_EQ(p[9], 0x23);
        const uint8_t* slot_addr = ref;
        if (p[1] == 0x8b) std::memcpy(&slot_addr, ref, sizeof slot_addr);  // through the GOT
        EXPECT_EQ(slot_addr, at(slot->value)) << "the stub loads another word than its slot";

        const void* target;
        std::memcpy(&target, at(slot->value), sizeof target);
        EXPECT_EQ(target, at(impl->value)) << "slot holds another address than kvo::impl::" << r.fn;
        std::string perms = kvosc::test::mapping_permissions(target);
        EXPECT_TRUE(perms.size() > 2 && perms[2] == 'x') << "target mapping " << perms;
    }
}

TEST_F(Abi, CallThroughTheExportedNameReachesTheImplementation) {
    using Fn = const KvoLibraryVersion* (*)();
    auto by_name = reinterpret_cast<Fn>(dlsym(handle_, "kvoscGetLibVersion"));
    ASSERT_NE(by_name, nullptr);
    const ElfImage::Symbol* impl = impl_symbol("kvoscGetLibVersion");
    ASSERT_NE(impl, nullptr);
    auto direct = reinterpret_cast<Fn>(const_cast<uint8_t*>(at(impl->value)));
    const KvoLibraryVersion* v = by_name();
    EXPECT_EQ(v, direct());
    EXPECT_EQ(v, kvoscGetLibVersion());  // the copy the test is linked against is the same object
    EXPECT_EQ(v->versionMajor, 8);
}

// Writable data of the library after RELRO is sealed: only the load-time index
// of the library's own code.  Allowed beside it, from the C start-up objects
// (crtbeginS/crtendS) and the linker: completed.N, __dso_handle, __TMC_END__,
// _edata/_end/__bss_start; in sanitizer builds, the sanitizers'
// instrumentation data (__asan*, ___asan*, __odr_asan*, __ubsan*, __sancov*,
// and UBSan's type descriptors and source locations, named __unnamed_N).
TEST_F(Abi, OnlyWritableWordIsTheJumpIndex) {
    auto [lo, hi] = relro();
    std::regex crt(R"(^(completed\.[0-9]+|__dso_handle|__TMC_END__|_edata|_end|__bss_start)$)");
    std::regex san(
        R"(^((__asan|___asan|__odr_asan|__ubsan|__sancov|__start_|__stop_).*|__unnamed_[0-9]+)$)");
    std::vector<std::string> unexpected;
    const ElfImage::Symbol* index = nullptr;
    for (const auto& s : elf_->symtab()) {
        if (!s.defined() || s.shndx >= elf_->sections().size()) continue;
        if (s.type != STT_OBJECT && s.type != STT_NOTYPE && s.type != STT_TLS) continue;
        const auto& sec = elf_->sections()[s.shndx];
        if (!sec.writable() || (s.value >= lo && s.value < hi)) continue;
        if (s.name == "kvoJumpIndexForMergedDLL") {
            index = &s;
            continue;
        }
        if (std::regex_match(s.name, crt)) continue;
        if (KVOSC_TEST_SANITIZED && std::regex_match(s.name, san)) continue;
        unexpected.push_back(s.name + " in " + sec.name);
    }
    EXPECT_TRUE(unexpected.empty()) << "writable data besides kvoJumpIndexForMergedDLL: "
                                    << ::testing::PrintToString(unexpected);
    // Nothing writable hides without a symbol: outside RELRO, the bytes of
    // writable sections not covered by a sized symbol are alignment padding.
    if (!KVOSC_TEST_SANITIZED) {
        for (size_t i = 0; i < elf_->sections().size(); ++i) {
            const auto& sec = elf_->sections()[i];
            if (!sec.writable() || !(sec.flags & SHF_ALLOC) || !sec.size) continue;
            if (sec.addr >= lo && sec.addr + sec.size <= hi) continue;
            std::vector<bool> covered(sec.size, false);
            for (const auto& sym : elf_->symtab()) {
                // crtbeginS gives the pointer __dso_handle no size.
                uint64_t size = sym.size ? sym.size : sym.name == "__dso_handle" ? 8 : 0;
                if (sym.shndx == i)
                    for (uint64_t b = sym.value; b < sym.value + size; ++b)
                        if (b >= sec.addr && b - sec.addr < sec.size) covered[b - sec.addr] = true;
            }
            auto loose = std::count(covered.begin(), covered.end(), false);
            EXPECT_LT(loose, 8) << sec.name << ": " << loose << " writable bytes without a symbol";
        }
    }
    ASSERT_NE(index, nullptr) << "kvoJumpIndexForMergedDLL not in .symtab";
    if (KVOSC_TEST_SANITIZED)
        EXPECT_GE(index->size, 4u);
    else
        EXPECT_EQ(index->size, 4u);
    EXPECT_NE(index->bind, STB_GLOBAL) << "the index is not exported";

    int32_t value;
    std::memcpy(&value, at(index->value), sizeof value);
    Kvo64u mask = kvoGetEnabledCpuFeatures();
    EXPECT_EQ(value, (mask & 0x30) == 0x30 ? 1 : 0) << "enabled mask 0x" << std::hex << mask;
}

TEST_F(Abi, DynamicSectionNamesCoreSonameAndBindNow) {
    auto needed = elf_->needed();
    EXPECT_NE(std::find(needed.begin(), needed.end(), "libkvocore.so.8.0"), needed.end())
        << ::testing::PrintToString(needed);
    std::regex allowed(
        KVOSC_TEST_SANITIZED
            ? R"(^(libkvocore\.so\.8\.0|libc\.so\.6|libm\.so\.6|libstdc\+\+\.so\.6|lib(asan|ubsan)\.so.*)$)"
            : R"(^(libkvocore\.so\.8\.0|libc\.so\.6|libm\.so\.6)$)");
    for (const auto& n : needed) EXPECT_TRUE(std::regex_match(n, allowed)) << "needs " << n;
    EXPECT_EQ(elf_->soname(), "libkvoscmx.so.8");

    auto flags = elf_->dynamic_value(DT_FLAGS).value_or(0);
    auto flags1 = elf_->dynamic_value(DT_FLAGS_1).value_or(0);
    EXPECT_TRUE((flags & DF_BIND_NOW) || (flags1 & DF_1_NOW) || elf_->dynamic_value(DT_BIND_NOW))
        << "not linked with -z now";
    EXPECT_NE(elf_->runpath().find("$ORIGIN"), std::string::npos)
        << "RUNPATH '" << elf_->runpath()
        << "' lacks $ORIGIN: installed copies would not find "
           "libkvocore";
    auto stack = elf_->segment(PT_GNU_STACK);
    ASSERT_TRUE(stack) << "no PT_GNU_STACK: the loader would make the stack executable";
    EXPECT_FALSE(stack->flags & PF_X);

    std::string lib = kvosc::test::binary_dir() + "/lib/";
    auto link = [](const std::string& p) {
        char buf[256];
        ssize_t n = readlink(p.c_str(), buf, sizeof buf - 1);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
    };
    EXPECT_EQ(link(lib + "libkvoscmx.so.8"), "libkvoscmx.so.8.0");
    EXPECT_EQ(link(lib + "libkvoscmx.so"), "libkvoscmx.so.8");
    EXPECT_EQ(access((lib + "libkvocore.so.8.0").c_str(), R_OK), 0);
}

}  // namespace
