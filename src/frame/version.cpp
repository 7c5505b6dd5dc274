// The constant version record.
#include "impl.h"

namespace kvo::impl {

namespace {
constexpr KvoLibraryVersion kVersion = {
    8, 0, 1, 40318, {'m', 'x', 0, 0}, "kvoSC PX (mx)", "8.0.1 (r40318)", "Jul 11 2013",
};
}  // namespace

const KvoLibraryVersion* kvoscGetLibVersion() { return &kVersion; }

}  // namespace kvo::impl
