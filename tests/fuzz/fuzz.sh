#!/bin/sh
# Searches for inputs that break a property: fuzz.sh BUILD SECONDS; two targets at a time. An input
# that reaches new code is kept in BUILD/corpus for the next run. One that breaks a property is kept
# in corpus/TARGET/crash-*, which the suite replays from then on.
set -eu
corpus=$(dirname "$0")/corpus
build=$1
seconds=$2

if [ $# -eq 2 ]; then
    echo "$seconds seconds a target, AddressSanitizer and UndefinedBehaviorSanitizer"
    find "$corpus" -mindepth 1 -maxdepth 1 -type d -exec basename {} \; | sort |
        xargs -P 2 -n 1 sh "$0" "$build" "$seconds"
    exit
fi

target=$3
mkdir -p "$build/corpus/$target"
status=0
# In CI the search is one that others can repeat; elsewhere each search is a new one.
"$build/tests/fuzz/$target" -max_total_time="$seconds" ${CI:+-seed=1} -timeout=30 -max_len=512 \
    -print_final_stats=1 -artifact_prefix="$corpus/$target/" \
    "$build/corpus/$target" "$corpus/$target" >"$build/$target.log" 2>&1 || status=1
stat() {
    sed -n "s/^stat::$1: *//p" "$build/$target.log"
}
printf '%-15s %10s executions %8s/s %5s inputs  %s\n' "$target" \
    "$(stat number_of_executed_units)" "$(stat average_exec_per_sec)" \
    "$(find "$build/corpus/$target" -type f | wc -l)" \
    "$([ $status -eq 0 ] && echo passed || echo BROKEN)"
if [ $status -ne 0 ]; then
    # The property, or what the sanitizer says, and the input.
    grep -E '^[^ ]+:[0-9]+: |^input of|: runtime error|ERROR: |Test unit written' \
        "$build/$target.log" >&2 || :
    exit 1
fi
