// kvosc version, kvosc exports.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "commands.h"
#include "kvocore.h"
#include "kvosc.h"

namespace kvosc {

namespace {

struct Row {
    const char* family;
    const char* name;
};

// The export catalogue, read from the library's own export list.
const Row kCatalogue[] = {
#define KVO_EXPORT(family, name, fn) {#family, #name},
#define KVO_PENDING(family, name) {#family, #name},
#include "exports.def"
#undef KVO_EXPORT
#undef KVO_PENDING
};

const struct {
    Kvo64u bit;
    const char* name;
} kFeatures[] = {
    {KVO_CPU_MMX, "mmx"},       {KVO_CPU_SSE, "sse"},         {KVO_CPU_SSE2, "sse2"},
    {KVO_CPU_SSE3, "sse3"},     {KVO_CPU_SSSE3, "ssse3"},     {KVO_CPU_SSE41, "sse4.1"},
    {KVO_CPU_SSE42, "sse4.2"},  {KVO_CPU_AVX, "avx"},         {KVO_CPU_AES, "aes"},
    {KVO_CPU_CLMUL, "clmul"},   {KVO_CPU_F16C, "f16c"},       {KVO_CPU_FMA, "fma"},
    {KVO_CPU_AVX2, "avx2"},     {KVO_CPU_BMI1, "bmi1"},       {KVO_CPU_BMI2, "bmi2"},
    {KVO_CPU_POPCNT, "popcnt"}, {KVO_CPU_AVX512F, "avx512f"},
};

void print_features(const char* label, Kvo64u mask) {
    std::printf("%-16s0x%llx", label, static_cast<unsigned long long>(mask));
    for (const auto& f : kFeatures)
        if (mask & f.bit) std::printf(" %s", f.name);
    std::printf("\n");
}

}  // namespace

int cmd_version() {
    const KvoLibraryVersion* v = kvoscGetLibVersion();
    std::printf("%s %s, built %s\n", v->nameText, v->versionText, v->dateText);
    std::printf("%-16s%d.%d.%d revision %d, cpu tag \"%.4s\"\n", "version", v->versionMajor,
                v->versionMinor, v->buildMajor, v->revision, v->cpuTag);
    Kvo64u all = 0;
    kvoGetCpuFeatures(&all, nullptr);
    print_features("cpu features", all);
    print_features("enabled", kvoGetEnabledCpuFeatures());
    return 0;
}

int cmd_exports() {
    int total = 0, done = 0;
    std::printf("%-8s %11s  %s\n", "family", "implemented", "exports");
    size_t n = sizeof kCatalogue / sizeof kCatalogue[0];
    for (size_t i = 0; i < n;) {
        size_t j = i;
        int fam_total = 0, fam_done = 0;
        std::vector<const char*> names;
        for (; j < n && std::strcmp(kCatalogue[j].family, kCatalogue[i].family) == 0; ++j) {
            ++fam_total;
            if (dlsym(RTLD_DEFAULT, kCatalogue[j].name)) {
                ++fam_done;
                names.push_back(kCatalogue[j].name);
            }
        }
        std::printf("%-8s %5d / %-4d ", kCatalogue[i].family, fam_done, fam_total);
        for (size_t k = 0; k < names.size(); ++k) std::printf("%s%s", k ? " " : "", names[k]);
        std::printf("\n");
        total += fam_total;
        done += fam_done;
        i = j;
    }
    std::printf("%-8s %5d / %-4d\n", "all", done, total);
    return 0;
}

}  // namespace kvosc
