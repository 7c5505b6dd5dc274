#!/bin/sh
# Runs every libFuzzer target in DIR for SECONDS each; fails on the first crash.
set -eu
dir=$1
secs=${2:-60}
found=0
for t in "$dir"/fuzz_*; do
    [ -x "$t" ] || continue
    found=1
    name=$(basename "$t")
    corpus=$(mktemp -d)
    echo "== $name ($secs s)"
    "$t" -max_total_time="$secs" -print_final_stats=0 -rss_limit_mb=2048 "$corpus" 2>&1 | tail -n 3
    rm -rf "$corpus"
done
[ "$found" -eq 1 ] || { echo "no fuzz targets in $dir" >&2; exit 1; }
