#!/bin/sh
# Installs the build tree into a temporary prefix and builds a program
# against the installed copy, without any help from the build tree.
#   install_test.sh MODE BUILD_DIR SOURCE_DIR CC CMAKE
# MODE pkgconfig: a C program built with `pkg-config --cflags --libs kvosc`,
#                 and the installed kvosc tool;
#      cmake:     a CMake project using find_package(kvosc) and kvosc::kvoscmx;
#      readme:    the README's example (apps/example.c, which the README must
#                 quote verbatim), when the exports it calls are built
#                 (exit 77, a skip, until then).
set -eu
mode=$1 build=$2 src=$3 cc=$4 cmake=$5
tmp=$(mktemp -d "${TMPDIR:-/tmp}/kvosc-install-XXXXXX")
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix

extra=${KVOSC_EXTRA_CFLAGS:-}   # sanitizer builds: flags for the programs built here

fail() { echo "install test ($mode): $*" >&2; exit 1; }

if [ "$mode" = readme ]; then
    # The README's C block and apps/example.c are the same text.
    sed -n '/^```c$/,/^```$/p' "$src/README.md" | sed '1d;$d' > "$tmp/readme.c"
    cmp -s "$tmp/readme.c" "$src/apps/example.c" ||
        fail "README.md's C example differs from apps/example.c"
    for f in $(grep -o 'kvos[A-Za-z0-9_]*(' "$src/apps/example.c" | tr -d '(' | sort -u); do
        grep -q "^export [a-z0-9]* $f\$" "$build/exports.txt" || {
            echo "skipped: the example calls $f, which this build does not export yet"
            exit 77
        }
    done
fi

"$cmake" --install "$build" --prefix "$prefix" >"$tmp/install.log" 2>&1 ||
    { cat "$tmp/install.log"; fail "cmake --install failed"; }
libdir=$(dirname "$(find "$prefix" -name 'libkvoscmx.so.8.0' | head -n 1)")
[ -f "$libdir/libkvocore.so.8.0" ] || fail "libkvocore.so.8.0 not installed beside libkvoscmx"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# Nothing of the build tree may be found at run time.
unset LD_LIBRARY_PATH

case $mode in
pkgconfig)
    cat > "$tmp/app.c" <<'C'
#include <stdio.h>
#include <string.h>
#include <kvosc.h>

int main(void) {
    const KvoLibraryVersion* v = kvoscGetLibVersion();
    printf("%s %s\n", v->nameText, v->versionText);
    return v->versionMajor == 8 && strcmp(v->cpuTag, "mx") == 0 ? 0 : 1;
}
C
    flags=$(pkg-config --cflags --libs kvosc) || fail "pkg-config does not know kvosc"
    # shellcheck disable=SC2086
    "$cc" $extra -std=c99 -Wall -Werror -o "$tmp/app" "$tmp/app.c" $flags || fail "compile failed ($flags)"
    "$tmp/app" || fail "the program failed against the installed library"
    "$prefix/bin/kvosc" version >/dev/null || fail "installed kvosc tool does not run"
    ;;
cmake)
    mkdir -p "$tmp/proj"
    cat > "$tmp/proj/CMakeLists.txt" <<'C'
cmake_minimum_required(VERSION 3.16)
project(uses_kvosc C)
find_package(kvosc 8.0 REQUIRED)
add_executable(app app.c)
target_link_libraries(app PRIVATE kvosc::kvoscmx)
C
    cat > "$tmp/proj/app.c" <<'C'
#include <kvosc.h>
int main(void) { return kvoscGetLibVersion()->versionMajor == 8 ? 0 : 1; }
C
    "$cmake" -S "$tmp/proj" -B "$tmp/proj/build" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$extra" >"$tmp/cfg.log" 2>&1 || { cat "$tmp/cfg.log"; fail "configure failed"; }
    "$cmake" --build "$tmp/proj/build" >"$tmp/build.log" 2>&1 || { cat "$tmp/build.log"; fail "build failed"; }
    "$tmp/proj/build/app" || fail "the program failed against the installed library"
    ;;
readme)
    flags=$(pkg-config --cflags --libs kvosc) || fail "pkg-config does not know kvosc"
    # shellcheck disable=SC2086
    "$cc" $extra -o "$tmp/example" "$src/apps/example.c" $flags || fail "the README example does not compile"
    out=$("$tmp/example") || fail "the README example failed: $out"
    echo "$out"
    echo "$out" | grep -q 'y = 500 -1000 1500 16384$' || fail "unexpected output: $out"
    ;;
*) fail "unknown mode" ;;
esac
echo "install test ($mode): ok"
