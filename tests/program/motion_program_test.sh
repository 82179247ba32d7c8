#!/bin/bash
# Gives the desktop program motion logs of many kinds, good ones and broken ones, as a user would.
# Usage: motion_program_test.sh FRAMEHOLD DATA
. "$(dirname "$0")/../support/shell_checks.sh"
data=$2/motion

for log in "$data"/*.gcsv "$data"/*/[!M]*.csv; do
    [[ $log == *_magnetic.csv ]] || expect 0 "format " "$framehold" inspect "$log"
done
expect 0 "walk_accel.csv" "$framehold" inspect "$data/three-files/walk_gyro.csv"
expect 1 "its name is that of another sensor" "$framehold" inspect "$data/three-files/walk_magnetic.csv"
sed '6s/,/;/' "$data/euroc/data.csv" >"$work/data.csv"
expect 1 "$work/data.csv:6: 6 fields where 7 are expected" "$framehold" inspect "$work/data.csv"
echo "frame,brightness" >"$work/other.csv"
expect 1 "other.csv:1: not a motion log of a format that is known: the first line is \"frame,brightness\". Known are .gcsv" \
    "$framehold" inspect "$work/other.csv"
expect 1 "is not a video" "$framehold" inspect "$work/data.csv" --motion "$work/other.csv"
python3 -m zipfile -c "$work/export.zip" "$data/iphone/Gyroscope.csv" "$data/iphone/Accelerometer.csv"
expect 0 "taken from the archive: Gyroscope.csv, Accelerometer.csv" "$framehold" inspect "$work/export.zip"
expect 1 "is a zip archive: unpack the video" "$framehold" stabilize "$work/export.zip" -o "$work/steady.mp4"

# The camera's true orientations are a log as good as the sensors.
sim=$work/sim
"$framehold" simulate "$sim" -q --size 320x180 --focal 250 --duration 2.5 --pan 0 --readout 0 \
    --time-offset 0.03
mkdir "$work/bare"
cp "$sim/clip.mp4" "$work/bare"
cp "$sim/imu.gcsv" "$work/bare/moved.gcsv"
clip=$work/bare/clip.mp4
expect 0 "75 orientations at 30 Hz" "$framehold" stabilize "$clip" --motion "$sim/truth.csv" \
    --focal 250 --readout 0 -o "$work/steady.mp4"
left=$("$framehold" measure "$clip" "$work/steady.mp4" -q | sed -n 's/^translation, px.*(\(.*\) %)/\1/p')
echo "translation left with orientations: $left %"
[ "${left:-100}" -lt 35 ] || fail "not steadier with orientations: $left %"

expect 1 "holds no motion telemetry" "$framehold" inspect "$clip"
expect 0 "the time offset is wrong by 3" "$framehold" inspect "$clip" --motion "$work/bare/moved.gcsv" --readout 0
# A clock of its own: the offset is found all the same.
awk -F, -v OFS=, -v CONVFMT=%.3f 'table { $1 += 500000000 } /^t,/ { table = 1 } 1' "$sim/imu.gcsv" >"$work/bare/moved.gcsv"
expect 0 "%: well determined" "$framehold" inspect "$clip" --motion "$work/bare/moved.gcsv" --readout 0
expect 0 "time offset 8 min 20 s (found in the clip)" "$framehold" stabilize "$clip" \
    --motion "$work/bare/moved.gcsv" --focal 250 --readout 0 -o "$work/moved.mp4"
expect 1 "no frame has motion" "$framehold" inspect "$clip" --motion "$work/bare/moved.gcsv" --readout 0 --time-offset 9
# The page shows the same, and nothing in it is taken for HTML.
hostile="$work/bare/<img src=x>&.gcsv"
cp "$work/bare/moved.gcsv" "$hostile"
expect 0 "written: $work/page.html" "$framehold" inspect "$clip" -m "$hostile" --readout 0 --report "$work/page.html"
[ "$(grep -c '<path class="line [a-z]*" d="M[0-9]' "$work/page.html")" -eq 11 ] || fail "not 11 lines in the page"
grep -q 'bare/&lt;img src=x&gt;&amp;.gcsv</h1>' "$work/page.html" && ! grep -q '<img' "$work/page.html" || fail "page: names"
expect 1 "--overwrite" "$framehold" inspect "$hostile" --report "$work/page.html"
expect 1 "is the input itself" "$framehold" inspect "$clip" -m "$hostile" --overwrite --report "$hostile"
"$framehold" inspect "$clip" -q --json --motion "$work/bare/moved.gcsv" --readout 0 >"$work/found.json" 2>/dev/null
grep -q '"confidence": "well determined"' "$work/found.json" || fail "json: $(cat "$work/found.json")"
offset=$(sed -n '/"fit"/,$s/.*"time_offset_s": \(.*\),/\1/p' "$work/found.json")
echo "time offset found: $offset s, 500.03 is right"
awk -v o="${offset:-0}" 'BEGIN { exit !(o > 500.028 && o < 500.032) }' || fail "time offset $offset"
# Beside the pictures of the video, on their clock, the log goes where the video goes.
mkdir "$work/with"
expect 0 "from gcsv 1.3" "$framehold" convert "$sim/imu.gcsv" --video "$clip" --time-offset 0.03 -o "$work/with/walk.mp4"
expect 0 "readout 0.0 ms" "$framehold" stabilize "$work/with/walk.mp4" --focal 250 --axes XYZ -o "$work/with/steady.mp4"
left=$("$framehold" measure "$clip" "$work/with/steady.mp4" -q | sed -n 's/^translation, px.*(\(.*\) %)/\1/p')
echo "translation left with the motion in the video: $left %"
[ "${left:-100}" -lt 35 ] || fail "not steadier with the motion in the video: $left %"
for ending in gcsv csv mp4; do
    "$framehold" convert "$sim/imu.gcsv" -q -o "$work/a.$ending" &&
        "$framehold" convert "$work/a.$ending" -q -o "$work/b.$ending" &&
        cmp "$work/a.$ending" "$work/b.$ending" || fail "$ending is not read back to the same log"
    [ $ending = mp4 ] || "$framehold" convert "$sim/imu.gcsv" --format $ending -o - 2>/dev/null |
        cmp - "$work/a.$ending" || fail "$ending on standard output"
done
# What is from before the pictures is kept beside them, and they are shown at the same times.
"$framehold" convert "$sim/imu.gcsv" -q --video "$clip" -o "$work/both.mp4" || fail "beside a video"
for log in a both; do "$framehold" convert "$work/$log.mp4" -q -o "$work/$log-back.csv" || fail "$log.mp4"; done
cmp "$work/a-back.csv" "$work/both-back.csv" || fail "beside a video the log is another"
times() { ffprobe -v error -select_streams v -show_entries stream=start_time:packet=pts_time,flags -of csv "$1"; }
diff <(times "$clip") <(times "$work/both.mp4") || fail "pictures have other times beside a log"
expect 1 "the log ends" "$framehold" convert "$sim/imu.gcsv" -q --video "$clip" --time-offset 60 -o "$work/none.mp4"
expect 1 "--overwrite" "$framehold" convert "$sim/imu.gcsv" -o "$work/a.csv"
expect 2 "give --format" "$framehold" convert "$sim/imu.gcsv" -o "$work/a.txt"
expect 2 "--video: goes with .mp4 and .mov only" "$framehold" convert "$sim/imu.gcsv" --video "$clip" -o "$work/c.csv"
expect 3 "orientations are written as the rates between them" \
    "$framehold" convert "$data/rotation/game.csv" -o "$work/c.gcsv"
# A lens that moved explains what the gyroscope does not, in the check before the run as well.
"$framehold" simulate "$work/ois" --lens-shift 4 --size 320x180 --focal 250 --duration 2 --pan 0 -q
said=$("$framehold" stabilize "$work/ois/clip.mp4" --engine offline -o "$work/ois/steady.mp4" 2>&1) || fail "$said"
[[ $said == *"up to 4.0 pixels are taken out"* && $said != *warning* ]] || fail "lens shifts: $said"
said=$("$framehold" stabilize "$work/ois/clip.mp4" --engine live -o "$work/ois/live.mp4" 2>&1)
[[ $said == *"only --engine offline takes into account"* ]] && [ "$(grep -c "warning: .*imu.gcsv" <<<"$said")" -eq 1 ] ||
    fail "lens shifts, live: $said"
# What stands beside the video is found, and is said with the rule that found it.
said=$("$framehold" inspect "$sim/clip.mp4" -q)
for found in "metadata      $sim/clip.json (beside the video)" "motion        $sim/imu.gcsv (named by $sim/clip.json)" \
    "frame times   $sim/frames.csv (with the metadata)"; do
    [[ $said == *"  $found"$'\n'* ]] || fail "no '$found' in: $said"
done
mkdir "$work/app"
cp "$clip" "$work/app/movie.mp4"
cp "$work/a.csv" "$work/app/gyro_accel.csv"
echo "frame,brightness" >"$work/app/movie_metadata.csv"
said=$("$framehold" inspect "$work/app/movie.mp4" -q --time-offset 0.03)
for found in "motion        $work/app/gyro_accel.csv (layout " "movie_metadata.csv: not used: the first line names no exposure"; do
    [[ $said == *"$found"* ]] || fail "no '$found' in: $said"
done
[ $failures -eq 0 ]
