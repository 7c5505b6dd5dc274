#include "support/paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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
    const char* env = std::getenv("KVOSC_VECTORS");
    const std::string root = env && *env ? env : source_dir() + "/../shared/vectors";
    return is_dir(root) ? root : "";
}

std::string vector_dir_or_skip(const std::string& set) {
    const char* env = std::getenv("KVOSC_VECTORS");
    const std::string where =
        env && *env ? std::string(env) + " ($KVOSC_VECTORS)" : source_dir() + "/../shared/vectors";
    const std::string dir = vectors_root().empty() ? "" : vectors_root() + "/" + set;
    if (is_dir(dir)) return dir;
    const std::string msg = "vector folder '" + set + "' not found under " + where;
    const char* ci = std::getenv("CI");
    if (ci && std::strcmp(ci, "true") == 0)
        ADD_FAILURE() << msg << " (required when CI=true)";
    else
        ::testing::internal::AssertHelper(::testing::TestPartResult::kSkip, __FILE__, __LINE__,
                                          (msg + ": skipped").c_str()) = ::testing::Message();
    return "";
}

}  // namespace kvosc::test
