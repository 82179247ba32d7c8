#!/bin/sh
# Prints what a frame costs on 32-bit ARM, in instructions: by stage, and for each kernel level.
# Instructions do not tell time, but they are the same on every run and on every machine.
# Usage: arm_counts.sh [--record] COUNTER [PRESET]
# --record: keeps what is printed as a dated file, see record.sh.
# PRESET: armv7 (GCC, the default) or armv7-clang.
# COUNTER: a command that runs the 32-bit ARM program given to it, with its arguments, and prints
# as the last number of its output how many instructions that took.
set -eu
if [ "$1" = --record ]; then
    counter=$(realpath "$(command -v "$2")")
    exec "$(dirname "$0")/record.sh" "arm-counts${3:+-$3}" scripts/arm_counts.sh "$counter" ${3:+"$3"}
fi
preset=${2:-armv7}
counter=$(realpath "$(command -v "$1")")
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $arm_packages
program=build/$preset/framehold_arm_count
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target framehold_arm_count >/dev/null

# count WIDTH HEIGHT FRAMES LEVEL STAGE: instructions of the whole run.
count() {
    output=$("$counter" $program "$@" 2>&1) || { printf '%s\n' "$output" >&2; return 1; }
    printf '%s\n' "$output" | grep -o '[0-9][0-9]*' | tail -n 1
}

# per_frame WIDTH HEIGHT LEVEL STAGE
per_frame() {
    without=$(count "$1" "$2" 0 "$3" "$4")
    with=$(count "$1" "$2" $frames "$3" "$4")
    echo $(((with - without) / frames))
}

frames=4
echo "Instructions per frame on 32-bit ARM ($preset), one thread, 15 frames of delay,"
compiler=$(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")$/\1/p' \
    build/"$preset"/CMakeFiles/*/CMakeCXXCompiler.cmake)
echo "mean of $frames frames. Compiler: $("$compiler" --version | head -n 1)"
echo "'sensor samples' are handed over before ZPR_Stabilize; 'whole call' is measured apart."
for size in "1280 720" "1920 1080"; do
    # shellcheck disable=SC2086
    set -- $size
    pixels=$(($1 * $2))
    samples=$(per_frame "$1" "$2" scalar samples)
    copy=$(per_frame "$1" "$2" scalar copy)
    smoothing=$(per_frame "$1" "$2" scalar smoothing)
    mapping=$(per_frame "$1" "$2" scalar mapping)
    scalar=$(per_frame "$1" "$2" scalar rendering)
    scalar_call=$(per_frame "$1" "$2" scalar all)
    neon=$(per_frame "$1" "$2" neon rendering)
    neon_call=$(per_frame "$1" "$2" neon all)
    printf '\n%sx%s\n' "$1" "$2"
    awk -v pixels=$pixels -v samples="$samples" -v copy="$copy" -v smoothing="$smoothing" \
        -v mapping="$mapping" -v scalar="$scalar" -v neon="$neon" \
        -v scalar_call="$scalar_call" -v neon_call="$neon_call" 'BEGIN {
        # What a stage of the program includes of others.
        smoothing -= samples; scalar -= mapping; neon -= mapping
        scalar_call -= samples; neon_call -= samples
        line = "%-28s %14s %14s %14s\n"
        printf line, "", "scalar", "neon", "scalar / neon"
        printf line, "sensor samples", samples, samples, ""
        printf line, "copy", copy, copy, ""
        printf line, "smoothing", smoothing, smoothing, ""
        printf line, "mapping", mapping, mapping, ""
        printf line, "rendering", scalar, neon, sprintf("%.2f", scalar / neon)
        rest = copy + smoothing + mapping
        printf line, "sum without samples", rest + scalar, rest + neon,
            sprintf("%.2f", (rest + scalar) / (rest + neon))
        printf line, "whole call", scalar_call, neon_call, sprintf("%.2f", scalar_call / neon_call)
        printf line, "rendering per luma pixel", sprintf("%.2f", scalar / pixels),
            sprintf("%.2f", neon / pixels), ""
        # A frame has 1.5 x width x height samples: luma and both chroma components.
        printf line, "rendering per sample", sprintf("%.2f", scalar / pixels / 1.5),
            sprintf("%.2f", neon / pixels / 1.5), ""
    }'
done
