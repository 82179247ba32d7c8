#!/bin/bash
# Plants faults in the log, the metadata or the video of simulated clips and looks whether
# `framehold stabilize` and `inspect` name them; then gives both good clips, which they must not
# complain about. Prints a table; fails where a line of it is wrong.
# Usage: check_findings.sh FRAMEHOLD [--short] [LOG] [CLIP...]
#   --short: fewer clips; LOG: a recorded motion log of 30 s or more, which more clips follow;
#   CLIP: good clips with metadata beside them
set -u
framehold=$1
shift
short=
[ "${1:-}" = --short ] && short=1 && shift
log=${1:-}
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0

simulate() {
    local name=$1
    shift
    "$framehold" simulate "$work/$name" -q --overwrite --size "${size:-320x240}" "$@" || exit 1
}

# shifted SECONDS, scaled FACTOR: the log of the faulty clip, changed.
change() {
    awk -F, -v OFS=, -v CONVFMT=%.9f -v shift="$1" -v scale="$2" '
        table { $1 = sprintf("%.0f", $1 + 1e6 * shift); for (i = 2; i < 5; ++i) $i *= scale }
        /^t,/ { table = 1 } 1' "$work/a/imu.gcsv"
}

# line NAME EXPECTED-EXIT EXPECTED-TEXT CODE WHAT-WAS-PRINTED
line() {
    local verdict=yes
    [[ $4 =~ ^($2)$ && $5 =~ $3 ]] || { verdict=NO; status=1; }
    printf '%-22s %-5s %s\n' "$1" "$verdict" "exit $4: $(tail -n 1 <<<"$5" | cut -c 1-400 | sed "s#$work/##g")"
}

# planted NAME EXIT TEXT VIDEO LOG OPTIONS...: with the focal length $focal
focal=300
planted() {
    local name=$1 code=$2 text=$3 video=$4 imu=$5
    shift 5
    local printed
    printed=$("$framehold" stabilize "$video" -m "$imu" --focal $focal --readout 0.0299 "$@" -q \
        --overwrite -o "$work/x.mp4" 2>&1 </dev/null)
    line "$name" "$code" "$text" $? "$printed"
    printed=$("$framehold" inspect "$video" -m "$imu" --focal $focal --readout 0.0299 "$@" -q 2>&1 </dev/null)
    line "  inspect" "$code" "$text" $? "$(grep -E "^(warning|unusable): .*($text)" <<<"$printed")"
}

# good VIDEO [EXIT TEXT]: a clip whose log fits; by itself, nothing is said of it
good() {
    local printed code
    printed=$("$framehold" stabilize "$1" -q --overwrite -o "$work/x.mp4" 2>&1 </dev/null)
    code=$?
    printed=$(grep -v -e gravity -e "^framehold: done" <<<"$printed")
    line "good: ${1#"$work/"}" "${2:-0}" "${3:-^\$}" $code "$printed"
}

clip=$work/a/clip.mp4
simulate a --seed 3 --pan 10 --focal 300 --duration 8
mkdir "$work/b"
cp "$clip" "$work/b/clip.mp4"
clip=$work/b/clip.mp4
imu=$work/a/imu.gcsv
planted "axes flipped" 1 "--axes XYZ" "$clip" "$imu" --axes xyZ
planted "axes mirrored" 1 "--axes XYZ" "$clip" "$imu" --axes xYZ
planted "axes swapped" 1 "--axes XYZ" "$clip" "$imu" --axes YxZ
if [ -z "$short" ]; then
    focal=150
    planted "focal length halved" 0 "--focal (29|30)" "$clip" "$imu"
    focal=600
    planted "focal length doubled" "[013]" "--focal (29|30)" "$clip" "$imu"
    focal=300
    change 0 57.29578 >"$work/b/degrees.gcsv"
    planted "degrees" 1 "gscale" "$clip" "$work/b/degrees.gcsv"
    change 1.3 1 >"$work/b/late.gcsv"
    planted "offset 1.3 s" 1 "--time-offset 1\.(29|30)" "$clip" "$work/b/late.gcsv"
    change 70 1 >"$work/b/later.gcsv"
    for command in "stabilize --overwrite -o $work/x.mp4" inspect; do
        # shellcheck disable=SC2086 # a command with its options
        printed=$("$framehold" $command "$clip" -m "$work/b/later.gcsv" --focal $focal --readout 0.0299 2>&1 </dev/null)
        line "70 s, ${command%% *}" 0 "(69\.99|70\.00).* well determined" $? "$(grep "well determined" <<<"$printed")"
    done
    ffmpeg -v error -ss 3 -i "$clip" -crf 18 "$work/b/trimmed.mp4"
    planted "trimmed clip" 1 "--time-offset (2\.9|3\.0)" "$work/b/trimmed.mp4" "$imu"
fi
size=64x48 simulate other --seed 9 --pan 10 --focal 300 --duration 8
planted "another clip's log" 1 "another clip's" "$clip" "$work/other/imu.gcsv"
ffmpeg -v error -i "$clip" -vf "select='not(between(n,100,109))',setpts=N/30/TB" -r 30 -crf 18 \
    "$work/b/drops.mp4"
planted "hidden drops" 1 "frames are missing" "$work/b/drops.mp4" "$imu"

good "$work/a/clip.mp4"
simulate still --focal 300 --shake 0 --pan 0 --noise-density 0.0005 --duration 3
good "$work/still/clip.mp4"
if [ -z "$short" ]; then
    simulate calm --focal 300 --duration 8 --shake 0.2 --pan 0 --seed 6 --noise-density 0.0002
    simulate moving --focal 300 --duration 8 --shake 1.5 --moving 0.3 --seed 5 --readout 0.01 --axes zyX
    simulate pan --focal 300 --duration 8 --shake 0 --pan 10 --seed 6
    simulate slow --focal 300 --duration 8 --pan 0 --fps 24 --imu-rate 50 --seed 9 --time-offset 0.05
    simulate tele --duration 8 --pan 0 --focal 900 --shake 0.4 --seed 11 --clock-drift 300
    for name in calm moving slow tele; do good "$work/$name/clip.mp4"; done
    # Nothing to take out, and following a pan late is shake in part: the log is not to blame.
    good "$work/pan/clip.mp4" 3 '^warning: the result is shakier'
    if [ -n "$log" ]; then
        simulate walk --focal 300 --duration 8 --motion "$log" --from 2 --axes YxZ --noise-density 0.0002 --moving 0.2 \
            --rate-bias 0.008,-0.009,0.005
        good "$work/walk/clip.mp4"
    fi
    for name in "$@"; do good "$name"; done
fi
exit $status
