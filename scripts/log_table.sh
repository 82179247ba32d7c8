#!/bin/bash
# Makes a sample of every layout of motion logs, lets `framehold` find, read and calibrate each beside
# the same clip, prints what it found beside the truth, and then stabilizes all of them as one folder.
# Fails where the axes are not exactly right, the time offset is off by 2 ms, or a clip keeps more than
# a fifth of its shake.
# Usage: log_table.sh [--record] FRAMEHOLD [SAMPLE...]
#   SAMPLE: names of folders that make_motion_samples.py makes (default: all)
set -u
if [ "${1:-}" = --record ]; then
    shift
    exec "$(dirname "$0")/record.sh" logs "$0" "$@"
fi
framehold=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$(dirname "$0")/make_motion_samples.py" "$framehold" "$work/all" --clip "$work/clip.mp4" || exit 1
if [ $# -eq 0 ]; then
    mapfile -t samples < <(sed 1d "$work/all/samples.csv" | cut -d, -f1)
else
    samples=("$@")
fi

# value FILE KEY...: a value in a file of JSON.
value() {
    python3 -c 'import json, sys
value = json.load(open(sys.argv[1]))
for key in sys.argv[2:]:
    value = value[int(key) if isinstance(value, list) else key]
print(len(value) if isinstance(value, list) else value)' "$@" 2>/dev/null
}

status=0
printf '%-17s %-34s %-21s %7s  %-9s %-13s %s\n' layout files "detected as" rate "read" \
    "axes (true)" "offset s (true)"
for sample in "${samples[@]}"; do
    IFS='|' read -r video log clock framed <<<"$(python3 -c 'import csv, sys
row = next(r for r in csv.DictReader(open(sys.argv[1])) if r["folder"] == sys.argv[2])
print(row["video"], row["log"], row["clock_s"], row["has_frame_times"], sep="|")' \
        "$work/all/samples.csv" "$sample")"
    axes=$(sed -n "s/^$sample,.*,\([XYZxyz]\{3\}\),.*/\1/p" "$work/all/samples.csv")
    folder=$work/recordings/$sample
    mkdir -p "$work/recordings"
    cp -r "$work/all/$sample" "$folder"
    files=$(cd "$folder" && find . -type f | sed 's#^\./##' | sort | tr '\n' ' ')
    cp "$work/clip.mp4" "$folder/$video.mp4"
    logged=$log
    [ "$log" != telemetry.bin ] || logged=$video.mp4
    "$framehold" inspect "$folder/$logged" --json -q >"$work/log.json" 2>/dev/null
    "$framehold" calibrate "$folder/$video.mp4" -q --json -o "$work/found.json" --overwrite \
        >"$work/calibration.json" 2>"$work/said" || cat "$work/said"
    found=$(value "$work/calibration.json" axes letters)
    offset=$(value "$work/calibration.json" clips 0 time_offset_s value)
    read=$(for sensor in gyroscope accelerometer orientations; do
        [ -z "$(value "$work/log.json" $sensor samples)" ] || echo -n "${sensor:0:1} "
    done)
    rate=$(value "$work/log.json" gyroscope rate_hz || value "$work/log.json" orientations rate_hz)
    printf '%-17s %-34.34s %-21s %7.2f  %-9s %-13s %s\n' "$sample" "$files" \
        "$(value "$work/log.json" format)" "${rate:-0}" "$read" "$found ($axes)" \
        "$(awk -v o="${offset:-0}" -v t="$clock" 'BEGIN { printf "%.4f (%.4f)", o, t }')"
    # With times of frames on the log's clock the rest of the offset is none.
    is_right=$(awk -v o="${offset:-1e99}" -v t="$clock" -v f="$framed" '
        function off(d) { return d < 0 ? -d : d }
        BEGIN { print off(o - t) < 0.002 || (f == 1 && off(o) < 0.002) }')
    if [ "$is_right" != 1 ] || [ "$found" != "$axes" ]; then
        echo "FAILED: $sample"
        status=1
    fi
done
echo "read: g gyroscope, a accelerometer, o orientations"

echo
"$framehold" stabilize "$work/recordings" --auto -o "$work/steady/{folder}.mp4" -j 2 2>&1 |
    sed "s#$work/##g" | grep -v '^warning' || status=1
printf '\n%-17s %s\n' folder "shake left"
for sample in "${samples[@]}"; do
    left=$("$framehold" measure "$work/clip.mp4" "$work/steady/$sample.mp4" -q |
        sed -n 's/^shake, px.*(\(.*\) %)/\1/p')
    printf '%-17s %s %%\n' "$sample" "${left:-unknown}"
    [ "${left:-100}" -lt 20 ] || { echo "FAILED: $sample is not steady"; status=1; }
done
exit $status
