// kvosc demo, coders, encode, decode, verify (filled in as coders are assembled).
#include <cstdio>

#include "commands.h"

namespace kvosc {

int cmd_demo() {
    std::printf("no coder assembled yet\n");
    return 0;
}

int cmd_coders() { return 0; }

int cmd_code(bool, const char* coder, const char*, const char*) {
    std::fprintf(stderr, "kvosc: unknown coder '%s'\n", coder);
    return 2;
}

int cmd_verify(const char* coder, const char*) {
    std::fprintf(stderr, "kvosc: unknown coder '%s'\n", coder);
    return 2;
}

}  // namespace kvosc
