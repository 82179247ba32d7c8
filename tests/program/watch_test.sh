#!/bin/bash
# Lets the program watch a folder while recordings arrive in it, and checks files of settings.
# Usage: watch_test.sh FRAMEHOLD
. "$(dirname "$0")/../support/shell_checks.sh"

"$framehold" simulate "$work/sim" -q --size 160x120 --focal 130 --duration 1.5 --pan 0 --metadata "$work/truth"
folder=$work/recordings
mkdir -p "$folder/first"
cp "$work/sim/clip.mp4" "$folder/first/walk.mp4"
cp "$work/sim/imu.gcsv" "$folder/first/walk.gcsv"

# What is given is written, and read again; the command line wins, and what it excludes stays out.
settings=$work/settings.json
expect 0 "written" "$framehold" stabilize "$folder/first/walk.mp4" -o "$work/a.mp4" --focal 130 --crop auto \
    --smoothing 7 --encoder-option crf=30 --encoder-option bf=0 --no-motion --force --again \
    --save-run "$work/run.json" --export-path "$work/{name}.csv" --save-settings "$settings"
expect 1 "--overwrite" "$framehold" stabilize "$folder/first/walk.mp4" -o "$work/b.mp4" --save-settings "$settings"
expect 2 "written for the settings and for" "$framehold" stabilize "$folder/first/walk.mp4" -o "$work/x.mp4" --save-settings "$work/x.mp4"
for wanted in '"crop": "auto"' '"smoothing": "7"' '"no-motion": true' '"crf=30"' '/{name}.csv"'; do
    grep -q -- "$wanted" "$settings" || fail "no $wanted in $(cat "$settings")"
done
# Names of one run's files stay out, patterns of names do not.
grep -e '"output"' -e '"save-run"' -e '"force"' -e '"again"' "$settings" && fail "what is of one run is among the settings"
expect 0 "smoothing 7" "$framehold" stabilize "$folder/first/walk.mp4" -o "$work/b.mp4" --preset-file "$settings" --overwrite
cmp "$work/a.mp4" "$work/b.mp4" || fail "settings give another result"
expect 0 "smoothing 3" "$framehold" stabilize "$folder/first/walk.mp4" -o "$work/c.mp4" \
    --preset-file="$settings" --smoothing 3 --fov 60 --overwrite -m "$folder/first/walk.gcsv"
# settings TEXT: a file with these options.
settings() { echo "{\"framehold_settings\": 1, \"options\": {$1}}" >"$work/wrong.json"; }
while IFS='|' read -r options said; do
    settings "$options"
    expect 1 "wrong.json: $said" "$framehold" stabilize "$folder/first/walk.mp4" --preset-file "$work/wrong.json"
done <<'END'
"crp": 80|crp: there is no such option of stabilize; did you mean crop?
"crop": 0|crop: '0' is not a whole number from 1 to 100
"gravity": "0,up,0"|gravity: 'up' is not a number
"zoom": "both"|zoom: 
"auto": "yes"|auto: is neither true nor false
"overwrite": true|overwrite: belongs on the command line
"crop": [80, 90]|crop: takes one value
"crop": {}|crop: is neither a text nor a number
END
echo '{"framehold_settings": 2}' >"$work/wrong.json"
expect 1 "framehold_settings: 2 is not 1" "$framehold" stabilize "$0" --preset-file "$work/wrong.json"
echo '{"framehold_settings": 1,}' >"$work/wrong.json"
expect 1 "is not JSON" "$framehold" stabilize "$0" --preset-file "$work/wrong.json"
echo '{}' >"$work/wrong.json"
expect 1 "is not a file of settings" "$framehold" stabilize "$0" --preset-file "$work/wrong.json"

# wait_for FILE: until it is there, at most four minutes.
wait_for() {
    for ((i = 0; i < 2400; ++i)); do
        [ ! -e "$1" ] || return 0
        sleep 0.1
    done
    fail "$1 has not been made: $(cat "$work/said")"
}
# wait_said TEXT: until it is among what is printed.
wait_said() {
    for ((i = 0; i < 2400; ++i)); do
        ! grep -q -- "$1" "$work/said" || return 0
        sleep 0.1
    done
    fail "nothing is said of $1: $(cat "$work/said")"
}
start() {
    : >"$work/said"  # or what an earlier one has said is found
    "$framehold" watch "$folder" --settle 0.3 --focal 130 "$@" >"$work/said" 2>&1 &
    watcher=$!
}
stop() {
    kill -INT $watcher 2>/dev/null
    wait $watcher
    local code=$?
    [ $code -eq "$1" ] || fail "watch ended with $code, expected $1: $(cat "$work/said")"
}
expect 2 "several videos need a folder or a pattern" "$framehold" watch "$folder" -o one.mp4
expect 2 "there is no folder" "$framehold" watch "$folder/first/walk.mp4"
start
wait_for "$folder/first/walk-stable.mp4"
# Cut off, nothing at all, and one that comes in two parts to a new folder.
mkdir "$folder/second"
head -c 3000 "$work/sim/clip.mp4" >"$folder/cut.mp4"
: >"$folder/empty.mp4"
head -c 5000 "$work/sim/clip.mp4" >"$folder/second/late.mp4"
tail -c +5001 "$work/sim/clip.mp4" >>"$folder/second/late.mp4"
wait_for "$folder/second/late-stable.mp4"
wait_said cut.mp4
wait_said empty.mp4
stop 1
rm "$folder/cut.mp4" "$folder/empty.mp4"
# Started again, it does what is missing and nothing twice.
before=$(stat -c %Y%i "$folder/first/walk-stable.mp4")
rm "$folder/second/late-stable.mp4"
start -j 2
wait_for "$folder/second/late-stable.mp4"
stop 0
[ "$before" = "$(stat -c %Y%i "$folder/first/walk-stable.mp4")" ] || fail "a clip was stabilized twice"
left=$(find "$folder" -type f | wc -l)
[ "$left" -eq 5 ] || fail "files: $(find "$folder" -type f)"
# It ends when there is nothing left to watch.
start
wait_said watching
rm -r "$folder"
wait_said "recordings: is gone"
stop 1
[ $failures -eq 0 ]
