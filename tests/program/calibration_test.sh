#!/bin/bash
# Calibrates with a simulated clip that hides its metadata, and compares what is found with the truth.
# Usage: calibration_test.sh FRAMEHOLD COMPILER INCLUDE SANITIZERS
# SANITIZERS: of the program; if there are any, what only gives other numbers is left out.
. "$(dirname "$0")/../support/shell_checks.sh"
compiler=$2
include=$3
sanitizers=${4:-}

# near KEY TRUTH LIMIT: a number of the found clip.json.
near() {
    local found
    found=$(sed -n "s/^ *\"$1\": \"*\([-0-9.e]*\)\"*,*$/\1/p" "$work/found.json")
    awk -v a="$found" -v b="$2" -v most="$3" 'BEGIN { d = a - b; exit !(a != "" && d < most && -d < most) }' ||
        fail "$1: found '$found', true is $2"
}

clip=$work/clip/clip.mp4
"$framehold" simulate "$work/clip" -q --size 320x240 --focal 300 --duration 4 --pan 0 --shake 1.5 \
    --axes YxZ --time-offset 0.037 --readout 0.024 --noise-density 0.0002 --moving 0.2 \
    --metadata "$work/truth" || fail "simulate"
mkdir "$work/elsewhere"
said=$("$framehold" calibrate "$clip" -m "$work/clip/imu.gcsv" -o "$work/elsewhere/found.json" \
    --snippet "$work/camera.c" 2>&1) || fail "calibrate"
[[ $said != *"than a pinhole"* ]] || fail "a pinhole: $said"
[[ $said == *"allow-outside-paths"* ]] || fail "a clip.json that names files elsewhere: $said"
mv "$work/elsewhere/found.json" "$work"
near focal_px 300 3
near readout_s 0.024 0.002
near time_offset_s 0.037 0.001
axes=$(sed -n 's/^ *"device_[xyz]": "\(..\)",*$/\1/p' "$work/found.json" | tr -d '\n')
[ "$axes" = "+y-x+z" ] || fail "axes: $axes"
"$compiler" -std=c99 -fsyntax-only -I"$include" "$work/camera.c" || fail "the snippet"
said=$("$framehold" stabilize "$clip" -m "$work/clip/imu.gcsv" --auto --engine live \
    -o "$work/steady.mp4" --save-settings "$work/phone.json" 2>&1)
[[ $said == *"axes YxZ (found in the clip)"* ]] || fail "stabilize --auto: $said"
# What holds for other clips of the camera is among the settings.
[[ $said == *"phone.json: options, and what was found of the camera: --focal "*" --axes YxZ"* ]] || fail "settings: $said"
found=$(<"$work/phone.json")
[[ $found == *'"auto": true'*'"axes": "YxZ"'* && $found != *offset* ]] || fail "settings: $found"
cp "$work/found.json" "$work/calibrated.json"
cp "$work/phone.json" "$work/found.json"
near focal 300 3
near readout 0.024 0.002
cp "$work/calibrated.json" "$work/found.json"
expect 0 "options only: what --auto finds is written with a single clip" "$framehold" stabilize "$clip" \
    -m "$work/clip/imu.gcsv" --auto --skip-existing -o "$work/steady.mp4" --save-settings "$work/options.json"

# A lens that is no pinhole's is found, or said where a pinhole is asked for. A log whose clock is 20 s
# off is searched to its end.
if [ -z "$sanitizers" ]; then
    ffmpeg -v error -i "$clip" -vf lenscorrection=k1=-0.08:k2=0:i=bilinear -crf 12 "$work/lens.mp4" || fail "lenscorrection"
    expect 0 "further out than a pinhole" "$framehold" calibrate "$work/lens.mp4" -m "$work/clip/imu.gcsv" -q \
        -o "$work/pinhole.json" --lens-model none
    expect 0 "polynomial" "$framehold" calibrate "$work/lens.mp4" -m "$work/clip/imu.gcsv" -q -o "$work/lens.json"
    grep -q '"k1": 0\.' "$work/lens.json" || fail "no lens in $(cat "$work/lens.json")"
    awk -F, -v OFS=, -v CONVFMT=%.3f 'table { $1 += 20000000 } /^t,/ { table = 1 } 1' "$work/clip/imu.gcsv" >"$work/late.gcsv"
    "$framehold" calibrate "$clip" -m "$work/late.gcsv" -o - >"$work/found.json" 2>"$work/said" &&
        python3 -m json.tool "$work/found.json" >/dev/null && grep -q "time offset" "$work/said" || fail "a late log"
    near time_offset_s 20.037 0.001
fi

# A clip that stands still passes, with a remark.
"$framehold" simulate "$work/still" -q --overwrite --size 160x120 --focal 150 --duration 1.5 --pan 0 --shake 0 \
    --metadata "$work/truth"
expect 0 "hardly moves" "$framehold" stabilize "$work/still/clip.mp4" -m "$work/still/imu.gcsv" --auto \
    --overwrite -o "$work/steady.mp4"

# Another clip's log, and a result that is there already.
"$framehold" simulate "$work/other" -q --size 64x48 --duration 4 --seed 9
cp "$work/other/imu.gcsv" "$work/clip/other.gcsv"
echo '{"focl_px": 3, "imu": {"file": "other.gcsv"}}' >"$work/clip/clip.json"
said=$("$framehold" calibrate "$clip" -q -o "$work/x.json" 2>&1)
[ $? -eq 1 ] && [[ $said == *"clip.json: focl_px is not a known key"*"% of how the picture shakes"* ]] ||
    fail "another log: $said"
said=$("$framehold" calibrate "$clip" -q 2>&1)
[ $? -eq 1 ] && [[ $said == *"is there already"* ]] || fail "overwriting: $said"
[ $failures -eq 0 ]
