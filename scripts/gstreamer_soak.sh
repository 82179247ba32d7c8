#!/bin/sh
# Runs the GStreamer element live at 8 times real pace, with random seeks and new sizes, under checks
# of memory and undefined behaviour, and prints what memory it takes once a minute.
# Usage: gstreamer_soak.sh [SECONDS [PROGRAM]]     in the root of the project
# SECONDS: default 1800. PROGRAM: gstreamer_live of a build with checks; none: it is built.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-1800}
program=${2:-build/asan/gstreamer_live}
if [ $# -lt 2 ]; then
    cmake --preset asan >/dev/null
    cmake --build --preset asan --target gstreamer_live >/dev/null
fi
# Memory that is given back is kept for a while, to find what still uses it.
export ASAN_OPTIONS=quarantine_size_mb=16:fast_unwind_on_malloc=0
export LSAN_OPTIONS=suppressions=tests/support/leaks.txt:print_suppressions=0
nice -n 10 "$program" --soak --pace 8 --seconds "$seconds" --width 320 --height 240
echo "no error"
