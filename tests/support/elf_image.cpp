#include "support/elf_image.h"

#include <elf.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace kvosc::test {

namespace {
template <class T>
bool read_at(const std::vector<uint8_t>& f, uint64_t off, T& out) {
    if (off > f.size() || f.size() - off < sizeof(T)) return false;
    std::memcpy(&out, f.data() + off, sizeof(T));
    return true;
}
std::string cstr_at(const std::vector<uint8_t>& f, uint64_t off) {
    std::string s;
    while (off < f.size() && f[off]) s.push_back(static_cast<char>(f[off++]));
    return s;
}
template <class T>
const T* find_named(const std::vector<T>& v, const std::string& n) {
    for (const auto& s : v)
        if (s.name == n) return &s;
    return nullptr;
}
}  // namespace

bool ElfImage::Section::writable() const {
    return flags & SHF_WRITE;
}

ElfImage::ElfImage(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    file_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.is_open())
        parse();
    else
        error_ = "cannot open";
    if (!error_.empty()) error_ = path + ": " + error_;
}

void ElfImage::parse() {
    Elf64_Ehdr eh;
    if (!read_at(file_, 0, eh) || std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 ||
        eh.e_ident[EI_CLASS] != ELFCLASS64 || eh.e_ident[EI_DATA] != ELFDATA2LSB) {
        error_ = "not a 64-bit little-endian ELF file";
        return;
    }
    for (unsigned i = 0; i < eh.e_phnum; ++i) {
        Elf64_Phdr ph;
        if (!read_at(file_, eh.e_phoff + uint64_t{i} * eh.e_phentsize, ph)) {
            error_ = "truncated program header table";
            return;
        }
        segments_.push_back({ph.p_type, ph.p_flags, ph.p_vaddr, ph.p_memsz});
    }
    std::vector<Elf64_Shdr> sh(eh.e_shnum);
    for (unsigned i = 0; i < eh.e_shnum; ++i)
        if (!read_at(file_, eh.e_shoff + uint64_t{i} * eh.e_shentsize, sh[i])) {
            error_ = "truncated section header table";
            return;
        }
    uint64_t names = eh.e_shstrndx < sh.size() ? sh[eh.e_shstrndx].sh_offset : 0;
    for (const auto& s : sh)
        sections_.push_back({cstr_at(file_, names + s.sh_name), s.sh_type, s.sh_flags, s.sh_addr,
                             s.sh_offset, s.sh_size});
    for (const auto& s : sh) {
        if (s.sh_type == SHT_SYMTAB || s.sh_type == SHT_DYNSYM) {
            // Names come from the linked string table.
            const uint64_t strs = s.sh_link < sh.size() ? sh[s.sh_link].sh_offset : 0;
            auto& out = s.sh_type == SHT_SYMTAB ? symtab_ : dynsym_;
            Elf64_Sym r;
            for (uint64_t off = 0; off + sizeof r <= s.sh_size; off += sizeof r) {
                if (!read_at(file_, s.sh_offset + off, r)) break;
                out.push_back({cstr_at(file_, strs + r.st_name), r.st_value, r.st_size,
                               static_cast<uint8_t>(ELF64_ST_BIND(r.st_info)),
                               static_cast<uint8_t>(ELF64_ST_TYPE(r.st_info)),
                               static_cast<uint8_t>(ELF64_ST_VISIBILITY(r.st_other)), r.st_shndx});
            }
        } else if (s.sh_type == SHT_DYNAMIC) {
            Elf64_Dyn d;
            for (uint64_t off = 0; off + sizeof d <= s.sh_size; off += sizeof d) {
                if (!read_at(file_, s.sh_offset + off, d) || d.d_tag == DT_NULL) break;
                dynamic_.push_back({d.d_tag, d.d_un.d_val});
            }
        }
    }
}

const ElfImage::Section* ElfImage::section(const std::string& name) const {
    return find_named(sections_, name);
}
const ElfImage::Symbol* ElfImage::find_symtab(const std::string& name) const {
    return find_named(symtab_, name);
}
const ElfImage::Symbol* ElfImage::find_dynsym(const std::string& name) const {
    return find_named(dynsym_, name);
}

std::optional<ElfImage::Segment> ElfImage::segment(uint32_t type) const {
    for (const auto& s : segments_)
        if (s.type == type) return s;
    return std::nullopt;
}

std::optional<uint64_t> ElfImage::dynamic_value(int64_t tag) const {
    for (const auto& [t, v] : dynamic_)
        if (t == tag) return v;
    return std::nullopt;
}

std::string ElfImage::dynstr(std::optional<uint64_t> off) const {
    const Section* s = section(".dynstr");
    return s && off ? cstr_at(file_, s->offset + *off) : std::string();
}

std::vector<std::string> ElfImage::needed() const {
    std::vector<std::string> out;
    for (const auto& [t, v] : dynamic_)
        if (t == DT_NEEDED) out.push_back(dynstr(v));
    return out;
}

std::string ElfImage::soname() const {
    return dynstr(dynamic_value(DT_SONAME));
}

std::string ElfImage::runpath() const {
    auto v = dynamic_value(DT_RUNPATH);
    return dynstr(v ? v : dynamic_value(DT_RPATH));
}

std::string mapping_permissions(const void* addr) {
    FILE* f = std::fopen("/proc/self/maps", "r");
    if (!f) return "";
    const auto a = reinterpret_cast<uintptr_t>(addr);
    char line[512], p[8] = {0};
    std::string perms;
    while (perms.empty() && std::fgets(line, sizeof line, f)) {
        unsigned long lo = 0, hi = 0;
        if (std::sscanf(line, "%lx-%lx %7s", &lo, &hi, p) == 3 && a >= lo && a < hi) perms = p;
    }
    std::fclose(f);
    return perms;
}

}  // namespace kvosc::test
