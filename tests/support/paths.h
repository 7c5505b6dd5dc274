// Where the tests find the built library and the conformance vectors.
#pragma once

#include <string>

namespace kvosc::test {

// Folder of the standards' vectors: $KVOSC_VECTORS, else ../shared/vectors
// beside the checkout.  Empty when neither exists.
std::string vectors_root();
// A vector set below the root ("g729", "gsmfr" ...).  When it is missing the
// calling test is skipped with a message naming the folder, or fails when the
// environment says CI=true.
std::string vector_dir_or_skip(const std::string& set);

std::string built_library();  // path of libkvoscmx.so.8.0 in the build tree
std::string source_dir();
std::string binary_dir();

}  // namespace kvosc::test
