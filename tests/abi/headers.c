/* Compiled as C99 and as C++20 with warnings as errors: the public headers
 * must stand on their own in both languages. */
#include <kvosc.h>
#include <kvosc_types.h>
#include <kvocore.h>

int main(void) {
    const KvoLibraryVersion* v = kvoscGetLibVersion();
    KvoStatus st = kvoOk;
    return v != 0 && st == kvoOk ? 0 : 1;
}
