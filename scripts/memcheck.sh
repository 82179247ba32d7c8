#!/bin/bash
# Runs `framehold stabilize` on 20 frames under valgrind's memcheck and fails on any error, or leak
# of our own code: of the real clip phone-walk where it lies beside the project, else of a
# simulated one, and says so.
# Usage: memcheck.sh FRAMEHOLD SHARED_CLIPS
set -euo pipefail
framehold=$1
clip=$2/phone-walk
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ ! -d "$clip" ]; then
    echo "phone-walk is not at $2: taking a simulated clip"
    clip=$work/clip
    "$framehold" simulate "$clip" --quiet --size 640x360 --duration 1
fi
ffmpeg -v error -i "$clip/clip.mp4" -c copy -frames:v 20 "$work/short.mp4"
cp "$clip/clip.json" "$clip/imu.gcsv" "$clip/frames.csv" "$work"
status=0
valgrind --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    "$framehold" stabilize "$work/short.mp4" --clip "$work/clip.json" -o "$work/out.mp4" \
    2>"$work/report" || status=$?
grep -e 'frames in' -e 'ERROR SUMMARY' -e 'definitely lost' -e 'indirectly lost' -e 'no leaks' "$work/report" || true
[ $status -eq 0 ] || cat "$work/report"
exit $status
