#!/bin/sh
# Prints a simulated clip's motion log and frame times as examples/live.c reads them: each frame
# after the first sample past its readout. Times start 2 s later, since the log starts at -1 s.
# Usage: live_events.sh FOLDER READOUT
exec awk -F, -v readout="$2" '
FILENAME ~ /frames.csv$/ { if (FNR > 1) frame[frames++] = $2; next }
$1 == "t" { data = 1; next }
!data { next }
{
    while (shown < frames && samples && time >= frame[shown] + readout) writeFrame()
    time = $1 * 0.000001
    ++samples
    printf "gravity %.17g %.17g %.17g %.17g\n", time + 2, $5 * 9.81, $6 * 9.81, $7 * 9.81
    printf "rate %.17g %.17g %.17g %.17g\n", time + 2, $2, $3, $4
}
END { while (shown < frames) writeFrame() }
function writeFrame() { printf "frame %.17g\n", frame[shown++] + 2 }
' "$1/frames.csv" "$1/imu.gcsv"
