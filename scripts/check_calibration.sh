#!/bin/bash
# Simulates clips that follow a recorded gyroscope, lets `framehold calibrate` see only video and
# log, and compares what it finds with the truth. Fails where it is not within 1 ms (time offset),
# 1 % (focal length), 2 ms (readout), or the axes are not exactly right.
# Usage: check_calibration.sh FRAMEHOLD LOG [SETTINGS]
#   LOG: a motion log of 40 s or more, of a hand; SETTINGS: how many, 1 to 4 (default 4)
set -u
framehold=$1
log=$2
count=${3:-4}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A phone's gyroscope: 0.0002 rad/s per root Hz, biased by half a degree per second.
phone="--noise-density 0.0002 --rate-bias 0.008,-0.009,0.005 --moving 0.2"
# From second, duration, size, offset, focal length, readout, axes, seed, further options.
settings=(
    "2 10 960x540 0.037 900 0.024 YxZ 1"
    "13 10 1280x720 -0.2141 1166 0.0312 xzy 2 $phone"
    "23 8 640x480 0.7183 517 0.0117 zYX 3 $phone"
    "30 8 854x480 -0.0463 744 0.0189 Zxy 4 $phone"
)

# value KEY: a number of clip.json in $1.
value() { sed -n "s/^ *\"$2\": \([-0-9.e]*\),*$/\1/p" "$1"; }
axes() { sed -n 's/^ *"device_[xyz]": "\(..\)",*$/\1/p' "$1" | tr '\n' ' '; }

status=0
printf '%-8s %-12s %10s %10s %10s  %s\n' setting "" "offset ms" "focal px" "readout ms" axes
for ((i = 0; i < count; ++i)); do
    read -r from duration size offset focal readout letters seed options <<<"${settings[i]}"
    # shellcheck disable=SC2086
    "$framehold" simulate "$work/clip" -q --overwrite --motion "$log" --from "$from" --duration "$duration" \
        --size "$size" --time-offset "$offset" --focal "$focal" --readout "$readout" \
        --axes "$letters" --seed "$seed" --metadata "$work/truth" $options || exit 1
    start=$(date +%s.%N)
    "$framehold" calibrate "$work/clip/clip.mp4" --motion "$work/clip/imu.gcsv" -q --overwrite \
        -o "$work/found.json" >"$work/said" || exit 1
    seconds=$(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f", b - a }')
    for which in truth/clip found; do
        json=$work/$which.json
        awk -v i=$((i + 1)) -v name=${which%/*} -v o="$(value "$json" time_offset_s)" \
            -v f="$(value "$json" focal_px)" -v r="$(value "$json" readout_s)" -v a="$(axes "$json")" \
            'BEGIN { printf "%-8s %-12s %10.3f %10.2f %10.3f  %s\n", i, name, 1000*o, f, 1000*r, a }'
    done
    echo "         found in $seconds s"
    awk -v o="$(value "$work/found.json" time_offset_s)" -v f="$(value "$work/found.json" focal_px)" \
        -v r="$(value "$work/found.json" readout_s)" -v to="$offset" -v tf="$focal" -v tr="$readout" '
        function off(a, b) { return a > b ? a - b : b - a }
        BEGIN { exit !(o != "" && f != "" && r != "" && off(o, to) < 0.001 &&
                       off(f, tf) < 0.01 * tf && off(r, tr) < 0.002) }' &&
        [ "$(axes "$work/found.json")" = "$(axes "$work/truth/clip.json")" ] || {
        echo "FAILED: setting $((i + 1))"
        cat "$work/said"
        status=1
    }
done
exit $status
