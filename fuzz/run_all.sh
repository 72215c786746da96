#!/usr/bin/env bash
# Runs all fuzz targets of a build side by side, each on a copy of its corpus:
#   fuzz/run_all.sh BUILD_DIR SECONDS
# Fails when a target is missing or finds a crash, a leak or an input that takes longer than 10 s;
# the input is kept and its path printed.
set -u
if [ $# -ne 2 ]; then
    echo "usage: $0 BUILD_DIR SECONDS" >&2
    exit 2
fi
build=$(cd "$1" && pwd) || exit 2
seconds=$2
source=$(cd "$(dirname "$0")" && pwd)
# A build that also measures coverage must not record it here.
export LLVM_PROFILE_FILE=/dev/null
work=$(mktemp -d "${TMPDIR:-/tmp}/fuzz.XXXXXX")

names=()
children=()
for corpus in "$source"/corpus/*/; do
    name=$(basename "$corpus")
    names+=("$name")
    mkdir -p "$work/$name"
    cp -r "$corpus" "$work/$name/corpus"
    (cd "$work/$name" && exec "$build/fuzz/${name}_fuzz" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -print_final_stats=1 corpus >/dev/null 2>log) &
    children+=($!)
done

failed=0
for i in "${!names[@]}"; do
    name=${names[$i]}
    if wait "${children[$i]}"; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$name/log")
        echo "$name: no failure in $seconds s, $runs runs"
    else
        failed=1
        echo "$name: FAILED, see $work/$name" >&2
        tail -n 40 "$work/$name/log" >&2
    fi
done
[ $failed -ne 0 ] || rm -rf "$work"
exit $failed
