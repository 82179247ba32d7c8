#!/bin/sh
# Builds the benchmark and runs it. On a fresh Debian machine, run it as root: it installs what it
# needs.
# Usage: bench.sh [--record] [--picture FILE.svg] [OPTION...]
# --record: keeps what is printed as a dated file, see record.sh. --picture: draws the results on one
# thread into a file. Options are the benchmark's; --help lists them.
set -eu
if [ "${1-}" = --record ]; then
    shift
    exec "$(dirname "$0")/record.sh" performance scripts/bench.sh "$@"
fi
picture=""
if [ "${1:-}" = --picture ]; then
    picture=$(realpath "$2")
    shift 2
fi
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $bench_packages
cmake --preset bench >/dev/null
cmake --build --preset bench --target framehold_bench >/dev/null
program=build/bench/framehold_bench
[ -n "$picture" ] || exec $program "$@"
results=build/bench/results.csv
$program --csv $results "$@"
gnuplot -e "results='$results'; picture='$picture'" bench/performance.gnuplot
echo "drawn: $picture, from $results"
