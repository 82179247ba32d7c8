#!/bin/sh
# Builds the desktop program, simulates a shaky clip, stabilizes it and puts pictures of both side
# by side, all in out/demo. On a fresh Debian machine, run it as root: it installs what it needs.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $build_packages

echo "== building"
cmake --preset release >/dev/null
cmake --build --preset release --target framehold

out=out/demo
framehold=build/release/framehold
mkdir -p $out
echo "== simulating a shaky clip (1280x720, 6 s)"
$framehold simulate $out/shaky --overwrite --duration 6 --shake 1.2
echo "== stabilizing it"
$framehold stabilize $out/shaky/clip.mp4 --overwrite --clip $out/shaky/clip.json -o $out/stable.mp4 \
    --save-run $out/run.json

echo "== comparing"
$framehold compare $out/shaky/clip.mp4 $out/stable.mp4 --overwrite --video $out/side_by_side.mp4 \
    --picture $out/mean.png --from 6

echo "== measuring"
$framehold measure $out/shaky/clip.mp4 $out/stable.mp4
page=""
if $framehold report $out/shaky/clip.mp4 $out/stable.mp4 --run $out/run.json \
    --overwrite -o $out/report.html; then
    page="
  report.html         what was done: pictures, the camera's path, measures, parameters"
fi

cat <<END

Done. In $out:
  shaky/clip.mp4      the simulated clip, with its motion log (imu.gcsv) and the truth (truth.csv)
  stable.mp4          the same clip, stabilized
  side_by_side.mp4    both
  mean.png            the mean of 30 frames of each: the shake blurs the one on the left$page
END
