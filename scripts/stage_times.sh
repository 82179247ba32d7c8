#!/bin/bash
# Processor time of the stages of an offline run, beside ffmpeg with vid.stab's two passes, in ms per
# frame: medians of rounds in which all take turns. Both decode the clip twice, show 80 % of it and
# encode with libx264 at its preset medium. What encodes is taken from runs that encode and runs that
# write to nowhere.
# Usage: stage_times.sh [--record] FRAMEHOLD FOLDER [OPTION...]
#   --record: keeps what is printed as a dated file, see record.sh
#   FOLDER: for the clip, which is simulated if it is not there, and the results
#   --rounds N (default 5); --seconds N of the clip (default 5); --size WxH of it (1920x1080)
set -euo pipefail
if [ "${1-}" = --record ]; then
    shift
    exec "$(dirname "$0")/record.sh" stage-times scripts/stage_times.sh "$@"
fi
[ $# -ge 2 ] || { sed -n '6,9s/^# //p' "$0" >&2; exit 2; }
framehold=$1
folder=$2
shift 2
rounds=5
seconds=5
size=1920x1080
while [ $# -ge 2 ]; do
    case $1 in
        --rounds) rounds=$2 ;;
        --seconds) seconds=$2 ;;
        --size) size=$2 ;;
        *) echo "stage_times.sh: $1: there is no such option" >&2; exit 2 ;;
    esac
    shift 2
done
clip=$folder/clip.mp4
[ -e "$clip" ] || "$framehold" simulate "$folder" -q --overwrite --walk --size "$size" \
    --focal $((${size%x*} * 4 / 5)) --duration "$seconds"
frames=$(ffprobe -v error -select_streams v -show_entries stream=nb_frames -of csv=p=0 "$clip")
nowhere=$folder/nowhere.y4m
ln -sf /dev/null "$nowhere"
rm -f "$folder"/*.times

# note NAME: adds the number on standard input, in seconds for the whole clip.
note() { awk -v frames="$frames" '{ print 1000 * $1 / frames }' >>"$folder/$1.times"; }

# timed NAME COMMAND...: adds its user and system time, and to NAME-wall the time it took.
timed() {
    local name=$1 TIMEFORMAT='%U %S %R'
    shift
    { time "$@" >"$folder/said" 2>&1; } 2>"$folder/time" || { cat "$folder/said" >&2; exit 1; }
    awk '{ print $1 + $2 }' "$folder/time" | note "$name"
    awk '{ print $3 }' "$folder/time" | note "$name-wall"
}

# steadied OUTPUT NAME OPTION...: a run of framehold; its stages' times go to NAME-STAGE.
steadied() {
    local output=$1 name=$2 stage
    shift 2
    timed "$name" "$framehold" stabilize "$clip" --clip "$folder/clip.json" --engine offline -q \
        --crop 80 --json --overwrite -o "$output" "$@"
    for stage in analysis path frames; do
        sed -n '/"processor_seconds"/,/}/s/.*"'$stage'": \([0-9.e-]*\).*/\1/p' "$folder/said" |
            note "$name-$stage"
    done
}

encoder=(libx264 -preset medium -crf 18)
transform="vidstabtransform=input=$folder/clip.trf:smoothing=30:optzoom=0:zoom=20:interpol=bicubic"
ffmpeg_run() { ffmpeg -nostdin -v error -y -i "$clip" -an "$@"; }
for ((round = 1; round <= rounds; ++round)); do
    echo "round $round of $rounds" >&2
    timed decoding ffmpeg_run -f null -
    steadied "$nowhere" rendered
    steadied "$folder/steady.mp4" whole --encoder libx264 --preset medium --quality 18
    timed detected ffmpeg_run -vf "vidstabdetect=result=$folder/clip.trf" -f null -
    timed transformed ffmpeg_run -vf "$transform" -pix_fmt yuv420p "$nowhere"
    timed encoded ffmpeg_run -vf "$transform" -pix_fmt yuv420p -c:v "${encoder[@]}" \
        "$folder/vidstab.mp4"
done

python3 - "$folder" <<'END'
import statistics, sys

def ms(name):
    with open(f"{sys.argv[1]}/{name}.times") as times:
        return statistics.median(float(line) for line in times)

def row(name, ours, theirs):
    ratio = f"{ours / theirs:8.2f}" if ours and theirs else f"{'-':>8}"
    print(f"{name:<36}{ours:>10.1f}{theirs:>10.1f}{ratio}")

print(f"{'ms per frame':<36}{'framehold':>10}{'vid.stab':>10}{'ratio':>8}")
path = ms("whole-path")
rendering = ms("rendered-frames")
row("analysis, with decoding", ms("rendered-analysis"), ms("detected"))
row("path", path, 0)
row("rendering, with decoding", rendering, ms("transformed"))
row("encoding, libx264 medium", ms("whole-frames") - rendering, ms("encoded") - ms("transformed"))
row("whole run", ms("whole"), ms("detected") + ms("encoded"))
row("whole run, time that passes", ms("whole-wall"), ms("detected-wall") + ms("encoded-wall"))
print(f"decoding once takes {ms('decoding'):.1f}")
together = ms("rendered-analysis") + path + rendering
print(f"analysis, path and rendering take {together / (ms('whole-frames') - rendering):.2f} of encoding")
END
