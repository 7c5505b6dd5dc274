// Where the tests find the built library and the conformance vectors.
#pragma once

#include <string>
#include <vector>

namespace kvosc::test {

// Folder of the standards' vectors: $KVOSC_VECTORS, else ../shared/vectors
// beside the checkout.  Empty when neither exists.
std::string vectors_root();
// A vector set below the root ("g729", "gsmfr" ...).  When it is missing the
// calling test is skipped with a message naming the folder, or fails when the
// environment says CI=true.
std::string vector_dir_or_skip(const std::string& set);

// Names of the regular files in dir, sorted; empty when dir cannot be read.
std::vector<std::string> files_in(const std::string& dir);
// A fresh empty folder below $TMPDIR (or /tmp) for files a test writes.
// The caller removes it (remove_tree) when done.
std::string make_temp_dir();
void remove_tree(const std::string& dir);

std::string built_library();  // path of libkvoscmx.so.8.0 in the build tree
std::string source_dir();
std::string binary_dir();

}  // namespace kvosc::test
