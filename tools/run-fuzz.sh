#!/bin/sh
# Runs every libFuzzer target in DIR for SECONDS each.  New inputs go to a
# temporary corpus; fuzz/corpus/<target>/ (when present) seeds it.  A crash,
# leak, sanitizer report or timeout fails the run; the input that caused it
# is kept in fuzz-artifacts/<target>/ under the current folder.
set -u
dir=$1
secs=${2:-60}
seeds_root=$(cd "$(dirname "$0")/.." && pwd)/fuzz/corpus
found=0
failed=""
for t in "$dir"/fuzz_*; do
    [ -x "$t" ] || continue
    found=1
    name=$(basename "$t")
    corpus=$(mktemp -d)
    artifacts=fuzz-artifacts/$name
    mkdir -p "$artifacts"
    log=$(mktemp)
    seeds=""
    [ -d "$seeds_root/$name" ] && seeds="$seeds_root/$name"
    echo "== $name ($secs s)"
    # shellcheck disable=SC2086
    "$t" -max_total_time="$secs" -print_final_stats=1 -rss_limit_mb=2048 -timeout=25 \
        -artifact_prefix="$artifacts/" "$corpus" $seeds >"$log" 2>&1
    rc=$?
    if [ "$rc" -ne 0 ]; then
        tail -n 40 "$log"
        echo "== $name FAILED (exit $rc); input kept in $artifacts/"
        failed="$failed $name"
    else
        grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)' "$log" | tr '\n' ' '
        echo
        rmdir "$artifacts" 2>/dev/null
    fi
    rm -rf "$corpus" "$log"
done
rmdir fuzz-artifacts 2>/dev/null
[ "$found" -eq 1 ] || { echo "no fuzz targets in $dir" >&2; exit 1; }
[ -z "$failed" ] || { echo "fuzz targets failed:$failed" >&2; exit 1; }
echo "all fuzz targets ran ${secs} s without a finding"
