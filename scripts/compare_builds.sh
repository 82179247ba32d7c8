#!/bin/sh
# Feeds the same sessions to several builds of the library and compares the bytes of every frame.
# Usage: compare_builds.sh REFERENCE_BUILD BUILD=EMULATOR...
set -eu
reference=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
for delay in 0 30; do
    # Shake, pan and roll; an odd number of block rows and a partial one.
    "$reference/framehold" simulate "$work/clip" --overwrite --quiet --size 640x360 --focal 480 --duration 2 \
        --shake 1.5 --pan 10 --roll 3
    "$reference/framehold" stabilize "$work/clip/clip.mp4" --clip "$work/clip/clip.json" --overwrite --quiet \
        --delay $delay --smoothing 9 --record-session "$work/session" -o "$work/stable.mp4"
    "$reference/framehold_replay" "$work/session" >"$work/expected"
    for build in "$@"; do
        ${build#*=} "${build%%=*}/framehold_replay" "$work/session" >"$work/got"
        differing=$(diff "$work/expected" "$work/got" | grep -c '^<' || true)
        echo "delay $delay: ${build%%=*}: $differing of $(wc -l <"$work/expected") frames differ" \
            "from $reference"
        [ "$differing" -eq 0 ] && [ -s "$work/expected" ] || status=1
    done
done
exit $status
