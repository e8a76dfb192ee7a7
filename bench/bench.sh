#!/bin/sh
# ./run bench: times mavkit, the floor and the peers, one after the other in rounds, and prints the
# table. With --count[=TEXT] instructions instead, by callgrind, of the cases whose name contains
# TEXT; other arguments go to Google Benchmark (--benchmark_filter=...). With --keep the tables and
# the chart of docs/performance.md are written anew.
set -eu
out=build/bench
case ${1:-} in
--count*)
    rm -f "$out"/callgrind.*
    valgrind --tool=callgrind --callgrind-out-file="$out/callgrind.%p" \
        "$out/bench/mavkit_bench" "$1" >"$out/count.log" 2>&1 || {
        cat "$out/count.log" >&2
        exit 1
    }
    exec python3 bench/table.py --count "$out/callgrind.*.*"
    ;;
esac
keep=
if [ "${1:-}" = --keep ]; then
    keep=$1
    shift
fi
"$out/bench/mavkit_bench" --benchmark_enable_random_interleaving=true --benchmark_repetitions=7 \
    --benchmark_min_time=0.02 --benchmark_report_aggregates_only=true \
    --benchmark_out_format=json --benchmark_out="$out/bench.json" "$@" >"$out/bench.log" 2>&1 ||
    { cat "$out/bench.log" >&2; exit 1; }
exec python3 bench/table.py ${keep:+"$keep"} "$out/bench.json"
