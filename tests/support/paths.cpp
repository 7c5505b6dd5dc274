#include "support/paths.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <cstdlib>
#include <cstring>

namespace kvosc::test {

namespace {
bool is_dir(const std::string& p) {
    struct stat st;
    return !p.empty() && stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
}  // namespace

std::string source_dir() {
    return KVOSC_SOURCE_DIR;
}
std::string binary_dir() {
    return KVOSC_BINARY_DIR;
}
std::string built_library() {
    return binary_dir() + "/lib/libkvoscmx.so.8.0";
}

std::string vectors_root() {
    if (const char* env = std::getenv("KVOSC_VECTORS"); env && *env) return is_dir(env) ? env : "";
    std::string beside = source_dir() + "/../shared/vectors";
    return is_dir(beside) ? beside : "";
}

std::string vector_dir_or_skip(const std::string& set) {
    std::string root = vectors_root();
    std::string dir = root.empty() ? "" : root + "/" + set;
    if (is_dir(dir)) return dir;
    const char* env = std::getenv("KVOSC_VECTORS");
    std::string where = !root.empty()   ? root
                        : (env && *env) ? std::string(env) + " ($KVOSC_VECTORS)"
                                        : source_dir() + "/../shared/vectors";
    const char* ci = std::getenv("CI");
    if (ci && std::strcmp(ci, "true") == 0) {
        ADD_FAILURE() << "vector folder '" << set << "' not found under " << where
                      << " (required when CI=true)";
    } else {
        std::string msg = "vector folder '" + set + "' not found under " + where + ": skipped";
        ::testing::internal::AssertHelper(::testing::TestPartResult::kSkip, __FILE__, __LINE__,
                                          msg.c_str()) = ::testing::Message();
    }
    return "";
}

std::vector<std::string> files_in(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (!d) return names;
    while (dirent* e = readdir(d)) {
        struct stat st;
        std::string full = dir + "/" + e->d_name;
        if (stat(full.c_str(), &st) == 0 && S_ISREG(st.st_mode)) names.push_back(e->d_name);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

std::string make_temp_dir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/kvosc-test-XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back(0);
    return mkdtemp(buf.data()) ? std::string(buf.data()) : std::string();
}

void remove_tree(const std::string& dir) {
    if (dir.empty()) return;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string n = e->d_name;
            if (n == "." || n == "..") continue;
            std::string full = dir + "/" + n;
            struct stat st;
            if (lstat(full.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
                remove_tree(full);
            else
                unlink(full.c_str());
        }
        closedir(d);
    }
    rmdir(dir.c_str());
}

}  // namespace kvosc::test
