#include "support/elf_image.h"

#include <elf.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace kvosc::test {

bool ElfImage::Section::writable() const {
    return flags & SHF_WRITE;
}

ElfImage::ElfImage(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error_ = path + ": cannot open";
        return;
    }
    file_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    parse();
    if (!error_.empty()) error_ = path + ": " + error_;
}

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
}  // namespace

void ElfImage::parse() {
    Elf64_Ehdr eh;
    if (!read_at(file_, 0, eh) || std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0) {
        error_ = "not an ELF file";
        return;
    }
    if (eh.e_ident[EI_CLASS] != ELFCLASS64 || eh.e_ident[EI_DATA] != ELFDATA2LSB) {
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
    for (size_t i = 0; i < sh.size(); ++i) {
        if (sh[i].sh_type == SHT_SYMTAB || sh[i].sh_type == SHT_DYNSYM) {
            auto syms = read_symbols(sections_[i]);
            // Names come from the linked string table.
            uint64_t strs = sh[i].sh_link < sh.size() ? sh[sh[i].sh_link].sh_offset : 0;
            for (size_t k = 0; k < syms.size(); ++k) {
                Elf64_Sym raw;
                read_at(file_, sh[i].sh_offset + k * sizeof(Elf64_Sym), raw);
                syms[k].name = cstr_at(file_, strs + raw.st_name);
            }
            (sh[i].sh_type == SHT_SYMTAB ? symtab_ : dynsym_) = std::move(syms);
        } else if (sh[i].sh_type == SHT_DYNAMIC) {
            for (uint64_t off = 0; off + sizeof(Elf64_Dyn) <= sh[i].sh_size;
                 off += sizeof(Elf64_Dyn)) {
                Elf64_Dyn d;
                read_at(file_, sh[i].sh_offset + off, d);
                if (d.d_tag == DT_NULL) break;
                dynamic_.push_back({d.d_tag, d.d_un.d_val});
            }
        }
    }
}

std::vector<ElfImage::Symbol> ElfImage::read_symbols(const Section& s) const {
    std::vector<Symbol> out;
    for (uint64_t off = 0; off + sizeof(Elf64_Sym) <= s.size; off += sizeof(Elf64_Sym)) {
        Elf64_Sym raw;
        if (!read_at(file_, s.offset + off, raw)) break;
        Symbol sym;
        sym.value = raw.st_value;
        sym.size = raw.st_size;
        sym.bind = ELF64_ST_BIND(raw.st_info);
        sym.type = ELF64_ST_TYPE(raw.st_info);
        sym.visibility = ELF64_ST_VISIBILITY(raw.st_other);
        sym.shndx = raw.st_shndx;
        out.push_back(sym);
    }
    return out;
}

const ElfImage::Section* ElfImage::section(const std::string& name) const {
    for (const auto& s : sections_)
        if (s.name == name) return &s;
    return nullptr;
}

static const ElfImage::Symbol* find(const std::vector<ElfImage::Symbol>& v, const std::string& n) {
    for (const auto& s : v)
        if (s.name == n) return &s;
    return nullptr;
}
const ElfImage::Symbol* ElfImage::find_symtab(const std::string& name) const {
    return find(symtab_, name);
}
const ElfImage::Symbol* ElfImage::find_dynsym(const std::string& name) const {
    return find(dynsym_, name);
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

std::string ElfImage::dynstr(uint64_t off) const {
    const Section* s = section(".dynstr");
    return s ? cstr_at(file_, s->offset + off) : std::string();
}

std::vector<std::string> ElfImage::needed() const {
    std::vector<std::string> out;
    for (const auto& [t, v] : dynamic_)
        if (t == DT_NEEDED) out.push_back(dynstr(v));
    return out;
}

std::string ElfImage::soname() const {
    auto v = dynamic_value(DT_SONAME);
    return v ? dynstr(*v) : std::string();
}

std::string ElfImage::runpath() const {
    auto v = dynamic_value(DT_RUNPATH);
    if (!v) v = dynamic_value(DT_RPATH);
    return v ? dynstr(*v) : std::string();
}

std::string mapping_permissions(const void* addr) {
    FILE* f = std::fopen("/proc/self/maps", "r");
    if (!f) return "";
    auto a = reinterpret_cast<uintptr_t>(addr);
    char line[512];
    std::string perms;
    while (std::fgets(line, sizeof line, f)) {
        unsigned long lo = 0, hi = 0;
        char p[8] = {0};
        if (std::sscanf(line, "%lx-%lx %7s", &lo, &hi, p) == 3 && a >= lo && a < hi) {
            perms = p;
            break;
        }
    }
    std::fclose(f);
    return perms;
}

}  // namespace kvosc::test
