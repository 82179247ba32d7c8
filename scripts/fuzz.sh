#!/bin/bash
# Fuzzes every target, or those named, for some seconds each; prints executions and findings of
# each, and what the inputs of all targets together reach in src/. Fails if there are findings.
# Usage: fuzz.sh [--record] SECONDS [TARGET...]
# --record: keeps what is printed as a dated file, see record.sh.
# Inputs that reach something new are kept in build/fuzz/inputs and are the start of the next run;
# inputs that break something are put into build/fuzz/findings.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$1" = --record ]; then
    exec scripts/record.sh fuzz scripts/fuzz.sh "${@:2}"
fi
seconds=$1
shift
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $fuzz_packages
targets=("$@")
if [ $# -eq 0 ]; then
    for folder in fuzz/corpus/*; do targets+=("$(basename "$folder")"); done
fi
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]/%/_fuzz}" >/dev/null
build=build/fuzz
# Some targets write each input into a file: in memory they run thirty times as often.
[ -w /dev/shm ] && export TMPDIR=/dev/shm

# statistic NAME LOG: a figure of libFuzzer's.
statistic() { sed -n "s/^stat::$1: *//p" "$2"; }

total_findings=0
printf '%-12s %12s %10s %8s %9s\n' target executions "CPU in s" inputs findings
for target in "${targets[@]}"; do
    program=$build/${target}_fuzz
    inputs=$build/inputs/$target
    findings=$build/findings/$target
    log=$build/$target.log
    mkdir -p "$inputs" "$findings"
    TIMEFORMAT='%U %S'
    cpu=$({ time LLVM_PROFILE_FILE=/dev/null "$program" -max_total_time="$seconds" -max_len=2048 \
        -len_control=0 -timeout=20 -report_slow_units=20 -print_final_stats=1 \
        -artifact_prefix="$findings/" "$inputs" "fuzz/corpus/$target" >"$log" 2>&1 || true; } 2>&1)
    # What all inputs reach, for the coverage.
    LLVM_PROFILE_FILE=$build/$target.profraw "$program" -runs=0 "$inputs" "fuzz/corpus/$target" \
        >"$log.coverage" 2>&1 || true
    found=$(find "$findings" -type f | wc -l)
    total_findings=$((total_findings + found))
    printf '%-12s %12s %10.0f %8s %9s\n' "$target" "$(statistic number_of_executed_units "$log")" \
        "$(awk '{ print $1 + $2 }' <<<"$cpu")" "$(find "$inputs" -type f | wc -l)" "$found"
done

objects=("$build/${targets[0]}_fuzz")
for target in "${targets[@]:1}"; do objects+=(-object "$build/${target}_fuzz"); done
llvm-profdata merge -o $build/fuzz.profdata $build/*.profraw
llvm-cov report -instr-profile=$build/fuzz.profdata \
    -ignore-filename-regex='/(fuzz|tests)/([a-z]+/)?[a-z_]+\.(cpp|h)$|/toolkit/' "${objects[@]}" \
    >$build/coverage.txt 2>$build/coverage.log
awk '/^TOTAL/ { print "coverage of src/: lines " $10 ", functions " $7 ", regions " $4 ", branches " $13 }' \
    $build/coverage.txt
echo "by file: $build/coverage.txt"
[ "$total_findings" -eq 0 ] || { echo "findings in $build/findings"; exit 1; }
