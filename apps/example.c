#include <stdio.h>
#include <kvosc.h>

int main(void) {
    Kvo16s a[4] = {1000, -2000, 3000, 32767}, b[4] = {16384, 16384, 16384, 16384}, y[4];
    const KvoLibraryVersion* v = kvoscGetLibVersion();
    KvoStatus st = kvosMul_NR_16s_Sfs(a, b, y, 4, 15);   /* y = a * 0.5, rounded */
    printf("%s: status %d, y = %d %d %d %d\n", v->versionText, st, y[0], y[1], y[2], y[3]);
    return st == kvoOk ? 0 : 1;
}
