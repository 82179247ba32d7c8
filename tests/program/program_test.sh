#!/bin/bash
# Runs the desktop program as a user would, on a simulated clip and, where it lies beside the
# project, on a real one. Exit code 77: a part was skipped, and is named.
# Usage: program_test.sh FRAMEHOLD SHARED_CLIPS
. "$(dirname "$0")/../support/shell_checks.sh"
clips=$2

timestamps() { ffprobe -v error -select_streams v -show_entries frame=pts_time -of csv=p=0 "$1"; }

# How much consecutive frames differ on average.
restlessness() {
    ffmpeg -v error -i "$1" -vf "crop=iw*0.6:ih*0.6,tblend=all_mode=difference,signalstats,\
metadata=print:key=lavfi.signalstats.YAVG:file=-" -f null - |
        sed -n 's/.*YAVG=//p' | awk 'NR > 1 { s += $1; n++ } END { print s / n }'
}

sim=$work/sim
expect 0 "written: $sim" "$framehold" simulate "$sim" --size 640x360 --focal 500 --duration 1.5 --pan 0
[ -s "$sim/truth.csv" ] || { fail "no truth.csv"; exit 1; }

# A tone beside the picture, to see that sound is kept.
ffmpeg -v error -i "$sim/clip.mp4" -f lavfi -i sine=duration=1.5 -c:v copy -c:a aac "$work/sound.mp4"
for options in "--delay 0" "--delay 30" "--engine offline" --no-motion; do
    # shellcheck disable=SC2086
    expect 0 "45 frames in, 45 out" "$framehold" stabilize "$work/sound.mp4" --clip "$sim/clip.json" \
        $options --overwrite -o "$work/steady.mp4"
    diff <(timestamps "$work/sound.mp4") <(timestamps "$work/steady.mp4") || fail "timestamps differ"
    ffprobe -v error -show_entries stream=codec_name "$work/steady.mp4" | grep -q aac || fail "no sound"
    before=$(restlessness "$sim/clip.mp4")
    after=$(restlessness "$work/steady.mp4")
    echo "$options: frames differ by $before before, $after after"
    awk -v b="$before" -v a="$after" 'BEGIN { exit !(a < 0.4 * b) }' || fail "$options: not steadier"
done

# Errors: exit code, file and field; nothing is left behind.
expect 2 "--crop" "$framehold" stabilize "$sim/clip.mp4" --crop 0
expect 2 "VIDEO is required" "$framehold" stabilize
cp "$sim/clip.mp4" "$work/alone.mp4"
expect 1 "no motion log" "$framehold" stabilize "$work/alone.mp4" --engine live
expect 1 "imu.gcsv" "$framehold" stabilize "$sim/imu.gcsv" --clip "$sim/clip.json"
expect 1 "no container format" "$framehold" stabilize "$sim/clip.mp4" --clip "$sim/clip.json" -o "$work/x.xyz"
expect 1 "is the input itself" "$framehold" stabilize "$sim/clip.mp4" --clip "$sim/clip.json" -o "$sim/clip.mp4"
sed 's/^2000\.000,/oops,/;20s/,.*,/,x,/' "$sim/imu.gcsv" > "$work/bad.gcsv"
expect 1 "bad.gcsv:20: " "$framehold" stabilize "$sim/clip.mp4" --motion "$work/bad.gcsv" -o "$work/bad.mp4"
expect 1 "cannot be written" "$framehold" stabilize "$sim/clip.mp4" --clip "$sim/clip.json" -o /nowhere/x.mp4
"$framehold" stabilize "$sim/clip.mp4" --clip "$sim/clip.json" --preset veryslow -o "$work/killed.mp4" 2>"$work/said" &
pid=$!
while [ -z "$(ls "$work" | grep killed)" ] && kill -0 $pid 2>/dev/null; do sleep 0.01; done
kill -INT $pid
wait $pid
[ $? -eq 130 ] || fail "interruption: $(cat "$work/said")"
ls "$work" | grep -q -e killed -e bad.mp4 -e part && fail "left behind: $(ls "$work")"
expect 0 "" "$framehold" compare "$sim/clip.mp4" "$work/steady.mp4" --video "$work/both.mp4" --picture "$work/mean.png"
[ "$(ffprobe -v error -show_entries stream=width,nb_frames -of csv=p=0 "$work/both.mp4")" = 1284,45 ] || fail "both.mp4"
[ "$(ffprobe -v error -show_entries stream=codec_name,width -of csv=p=0 "$work/mean.png")" = png,1284 ] || fail "mean.png"
expect 0 "Examples" "$framehold" stabilize --help
expect 0 "framehold 3.0" "$framehold" --version

walk=$clips/phone-walk
if [ -d "$walk" ]; then
    expect 0 "103 frames in, 103 out" "$framehold" stabilize "$walk/clip.mp4" --clip "$walk/clip.json" -o "$work/walk.mp4"
    diff <(timestamps "$walk/clip.mp4") <(timestamps "$work/walk.mp4") || fail "phone-walk: timestamps differ"
fi
[ $failures -eq 0 ] || exit 1
[ -d "$walk" ] || { echo "SKIPPED: the part that needs phone-walk, which is not at $clips"; exit 77; }
