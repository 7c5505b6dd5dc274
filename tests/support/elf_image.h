// A small reader of 64-bit little-endian ELF shared objects, for the tests of
// the library's binary interface: sections, program headers, both symbol
// tables and the dynamic section.  It reads the file only; nothing is loaded.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvosc::test {

class ElfImage {
  public:
    struct Section {
        std::string name;
        uint32_t type = 0;
        uint64_t flags = 0, addr = 0, offset = 0, size = 0;
        bool writable() const;
    };
    struct Segment {
        uint32_t type = 0, flags = 0;
        uint64_t vaddr = 0, memsz = 0;
    };
    struct Symbol {
        std::string name;
        uint64_t value = 0, size = 0;
        uint8_t bind = 0, type = 0, visibility = 0;
        uint16_t shndx = 0;  // 0 = undefined
        bool defined() const { return shndx != 0; }
    };

    // Reads and parses the file; error() tells why when it fails.
    explicit ElfImage(const std::string& path);
    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }

    const std::vector<Section>& sections() const { return sections_; }
    const std::vector<Symbol>& symtab() const { return symtab_; }  // .symtab (may be empty)
    const std::vector<Symbol>& dynsym() const { return dynsym_; }  // .dynsym

    const Section* section(const std::string& name) const;
    const Symbol* find_symtab(const std::string& name) const;
    const Symbol* find_dynsym(const std::string& name) const;
    std::optional<Segment> segment(uint32_t type) const;  // first of that type

    // Strings of DT_NEEDED, DT_SONAME, DT_RUNPATH (RPATH when no RUNPATH).
    std::vector<std::string> needed() const;
    std::string soname() const;
    std::string runpath() const;
    std::optional<uint64_t> dynamic_value(int64_t tag) const;

  private:
    void parse();
    std::string dynstr(std::optional<uint64_t> off) const;

    std::vector<uint8_t> file_;
    std::string error_;
    std::vector<Section> sections_;
    std::vector<Segment> segments_;
    std::vector<Symbol> symtab_, dynsym_;
    std::vector<std::pair<int64_t, uint64_t>> dynamic_;  // tag, value
};

// Permission string ("r--p", "r-xp" ...) of the mapping of this process that
// holds addr, read from /proc/self/maps; empty when no mapping holds it.
std::string mapping_permissions(const void* addr);

}  // namespace kvosc::test
