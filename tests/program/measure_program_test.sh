#!/bin/bash
# Runs `framehold measure` and `report` as a user would, on a simulated clip.
# Usage: measure_program_test.sh FRAMEHOLD REPORTS   (ON, or OFF if the program is built without)
. "$(dirname "$0")/../support/shell_checks.sh"
reports=$2

"$framehold" simulate "$work/sim" -q --size 320x180 --focal 250 --duration 1.5 --pan 0
clip=$work/sim/clip.mp4
steady=$work/steady.mp4
"$framehold" stabilize "$clip" --clip "$work/sim/clip.json" -q -o "$steady" --save-run "$work/run.json"

expect 0 "translation, px RMS" "$framehold" measure "$clip"
"$framehold" measure "$clip" "$steady" --json --csv "$work/paths.csv" > "$work/all.json"
# The values of a key in all.json, in order.
values() { sed -n "s/.*\"$1\": \([0-9.e-]*\).*/\1/p" "$work/all.json"; }
# The translation of both clips, then what remains of the first one's; from the paths, and as told.
recomputed=$(awk -F, 'NR > 1 { s[$1] += $8 * $8 + $9 * $9; n[$1]++ }
    END { a = sqrt(s[0] / n[0]); b = sqrt(s[1] / n[1]); print a, b, b / a, n[0], n[1] }' "$work/paths.csv")
# shellcheck disable=SC2046
echo $recomputed $(values translation_px) $(values frames) $(values cropping_ratio_percent) | awk '
    function near(a, b) { return a - b < 1e-3 && b - a < 1e-3 }
    { exit !(near($1, $6) && near($2, $7) && near($3, $8) && $3 < 0.4 && $4 == 45 && $5 == 45 &&
             $9 == 45 && $10 == 45 && $11 > 60 && $11 < 68 && NF == 11) }' ||
    fail "paths.csv tells $recomputed; all.json: $(cat "$work/all.json")"

expect 2 "CLIP is required" "$framehold" measure
expect 2 "--cutoff" "$framehold" measure "$clip" --cutoff 0
expect 1 "imu.gcsv" "$framehold" measure "$work/sim/imu.gcsv"
expect 1 "/nowhere/x.csv: cannot be written" "$framehold" measure "$clip" --csv /nowhere/x.csv

page=$work/page.html
if [ "$reports" = ON ]; then
    "$framehold" report "$clip" "$steady" --run "$work/run.json" -o - >"$page" 2>"$work/said" &&
        grep -q "written: standard output" "$work/said" || fail "report: $(cat "$work/said")"
    [[ $(head -c 15 "$page")$(tail -c 8 "$page") == "<!DOCTYPE html></html>" ]] || fail "more than a page"
    expect 0 "" "$framehold" stabilize "$clip" --clip "$work/sim/clip.json" -q -o "$work/again.mp4" \
        --report "$work/again.html"
    for file in "$page" "$work/again.html"; do
        grep -q '"frames":45,' "$file" || fail "$file knows no run"
    done
    expect 1 "page.html: cannot be written" "$framehold" report "$clip" "$steady" -o /nowhere/page.html
    expect 1 "all.json: is not what stabilize --save-run writes" \
        "$framehold" report "$clip" "$steady" --run "$work/all.json" --overwrite -o "$page"
    expect 2 "--report" "$framehold" stabilize "$clip" --clip "$work/sim/clip.json" -o - --report "$page"
    expect 2 "--side-by-side" "$framehold" stabilize "$clip" --side-by-side --report "$page"
else
    expect 1 "reports are off" "$framehold" report "$clip" "$steady" -o "$page"
    expect 1 "reports are off" "$framehold" stabilize "$clip" -o "$work/again.mp4" --report "$page"
    [ ! -e "$page" ] && [ ! -e "$work/again.mp4" ] || fail "something was written"
fi
[ $failures -eq 0 ]
