#include "coders/registry.h"

namespace kvosc::coders {

// Each assembled coder declares its entry here and lists it below.
// extern const Coder kG729;

const std::vector<const Coder*>& all_coders() {
    static const std::vector<const Coder*> list = {
        // &kG729,
    };
    return list;
}

const Coder* find_coder(const std::string& name) {
    for (const Coder* c : all_coders())
        if (name == c->name) return c;
    return nullptr;
}

}  // namespace kvosc::coders
