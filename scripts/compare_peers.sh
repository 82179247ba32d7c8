#!/bin/bash
# Stabilizes the same clips with framehold and with other stabilizers, all at one crop (80 %), one
# size and one encoding, and prints what shake, contrast and processor time each of them leaves or
# takes. What is done is kept in FOLDER: a run that was broken off goes on where it was.
# Usage: compare_peers.sh [--record] FRAMEHOLD OPENCV_STABILIZE FOLDER [OPTION...]
#   --record: keeps what is printed as a dated file, see record.sh
#   OPENCV_STABILIZE: that program of the bench preset
#   --clips "NAME..."   some clips; --tools "NAME..." some tools; --list prints the names
#   --again "TOOL..."   runs these though their results are there
#   --log LOG           a recorded motion log of 40 s of a hand, for the simulated clips
#   --recorded FOLDER   of recorded clips with a clip.json each
#   --seconds N         of simulated clips (default 10); --size WxH of them (default 640x360)
set -euo pipefail
if [ "${1-}" = --record ]; then
    shift
    exec "$(dirname "$0")/record.sh" peers scripts/compare_peers.sh "$@"
fi
root=$(cd "$(dirname "$0")/.." && pwd)
log=$root/../shared/motion/phone-drive-40s.gcsv
recorded=$root/../shared/clips
all_clips="phone-walk action-grip hand pan walk run steady"
all_clips="$all_clips log-100hz log-offset picture-hand picture-walk"
all_tools="input crop live offline vidstab-15 vidstab-30 deshake opencv"
seconds=10
size=640x360
if [ "${1-}" = --list ]; then
    printf 'clips: %s\ntools: %s\n' "$all_clips" "$all_tools"
    exit
fi
[ $# -ge 3 ] || { sed -n '5,13s/^# //p' "$0" >&2; exit 2; }
framehold=$1
opencv=$2
folder=$3
shift 3
clips=$all_clips
tools=$all_tools
again=""
while [ $# -ge 2 ]; do
    case $1 in
        --clips) clips=$2 ;;
        --tools) tools=$2 ;;
        --again) again=$2 ;;
        --log) log=$2 ;;
        --recorded) recorded=$2 ;;
        --seconds) seconds=$2 ;;
        --size) size=$2 ;;
        *) echo "compare_peers.sh: $1: there is no such option" >&2; exit 2 ;;
    esac
    shift 2
done
mkdir -p "$folder"
has_option() { "$framehold" stabilize --help-all | grep -e "$1" >/dev/null; }

focal=$((${size%x*} * 4 / 5))
encoding=(-c:v libx264 -crf 14 -preset medium -pix_fmt yuv420p -an -fps_mode passthrough)

# clip_options CLIP: how a simulated clip is made; nothing for recorded ones.
# A pan of 45 degrees lasts a quarter of its period: 2.7 s.
clip_options() {
    case $1 in
        hand) echo "--motion $log --from 1" ;;
        pan) echo "--motion $log --from 1 --pan 22.5 --pan-period 10.4" ;;
        walk) echo "--motion $log --from 12 --walk" ;;
        run) echo "--motion $log --from 20 --run" ;;
        steady) echo "--shake 0.02 --pan 15 --pan-period 24" ;;
        log-100hz) echo "--motion $log --from 6 --imu-rate 100 --noise-density 0.0002" ;;
        log-offset) echo "--motion $log --from 16 --time-offset 0.12" ;;
        picture-hand) echo "--motion $log --from 24" ;;
        picture-walk) echo "--motion $log --from 27 --walk --moving 0.1" ;;
    esac
}

# make_clip CLIP: $folder/CLIP/clip.mp4, a link to the source where it is a recorded one.
make_clip() {
    local work=$folder/$1 options
    options=$(clip_options "$1")
    if [ -z "$options" ]; then
        [ -e "$recorded/$1/clip.mp4" ] || return 1
        mkdir -p "$work"
        ln -sf "$(realpath "$recorded/$1/clip.mp4")" "$work/clip.mp4"
    elif [ ! -e "$work/made" ]; then
        case $options in *--motion*) [ -e "$log" ] || return 1 ;; esac
        # shellcheck disable=SC2086
        "$framehold" simulate "$work" -q --overwrite --size "$size" --focal "$focal" \
            --duration "$seconds" $options || exit 1
        case $1 in
            picture-*) rm "$work/imu.gcsv" "$work/clip.json" "$work/frames.csv" ;;
            log-offset) sed -i '/"time_offset_s"/d' "$work/clip.json" ;; # to be found
        esac
        touch "$work/made"
    fi
}

# timed FILE COMMAND...: runs it; its user and system time go to FILE, in seconds.
timed() {
    local file=$1 TIMEFORMAT='%U %S' status=0
    shift
    { time "$@" 2>"$file.said" || status=$?; } 2>"$file.time"
    tail -n 1 "$file.time" | awk '{ print $1 + $2 }' >"$file"
    [ $status -eq 0 ] || { cat "$file.said" >&2; return 1; }
    rm "$file.said" "$file.time"
}

filtered() { ffmpeg -nostdin -v error -y -i "$1" -vf "$2" "${encoding[@]}" "$3"; }

# framehold_engine CLIP OUTPUT [OPTION...]
framehold_engine() {
    local clip_name=$1 output=$2 source=()
    local work=$folder/$clip_name
    shift 2
    if [ -e "$work/clip.json" ]; then
        source=(--clip "$work/clip.json")
        [ "$clip_name" != log-offset ] || source+=(--auto)
    elif [ -e "$recorded/$clip_name/clip.json" ]; then
        source=(--clip "$recorded/$clip_name/clip.json" --allow-outside-paths)
    else
        source=(--no-motion)
    fi
    "$framehold" stabilize "$work/clip.mp4" -q --overwrite --force "${source[@]}" "$@" --crop 80 \
        --encoder libx264 --quality 14 --preset medium --pixel-format yuv420p -o "$output" ||
        [ $? -eq 3 ] # done, but shakier than the source: that is a result
}

opencv_encoded() {
    local rate trimmed
    rate=$(ffprobe -v error -select_streams v -show_entries stream=r_frame_rate -of csv=p=0 "$1")
    # As OpenCV trims: a tenth, rounded down, of each side.
    trimmed=$((width - 2 * (width / 10)))x$((height - 2 * (height / 10)))
    "$opencv" "$1" | ffmpeg -v error -y -f rawvideo -pix_fmt bgr24 -s "$trimmed" -r "$rate" -i - \
        -vf "scale=$width:$height:flags=bicubic" "${encoding[@]}" "$2"
}

# run_tool CLIP TOOL OUTPUT: writes OUTPUT; processor times to OUTPUT.first and OUTPUT.second, what
# only looks at the clip and what renders and encodes it. Returns 1 if the tool cannot do it.
run_tool() {
    local clip=$folder/$1/clip.mp4 output=$3 second=()
    local rescaled="crop=iw*0.8:ih*0.8,scale=$width:$height:flags=bicubic"
    echo 0 >"$output.first"
    echo 0 >"$output.second"
    case $2 in
        input) ln -sf "$(realpath "$clip")" "$output" && return ;;
        crop) second=(filtered "$clip" "$rescaled" "$output") ;;
        live | offline)
            local engine=()
            if has_option --engine; then
                engine=(--engine "$2")
            elif [ "$2" = offline ]; then
                return 1
            fi
            [ -e "$folder/$1/clip.json" ] || [ -e "$recorded/$1/clip.json" ] ||
                { [ "$2" = offline ] && has_option --no-motion; } || return 1
            second=(framehold_engine "$1" "$output" "${engine[@]}")
            ;;
        vidstab-*)
            local transforms=$output.trf
            # vid.stab's zoom counts from the output: 20 shows 80 % of the source's width. Where its
            # path needs more, black shows.
            local zoom="smoothing=${2#*-}:optzoom=0:zoom=20"
            timed "$output.first" ffmpeg -nostdin -v error -i "$clip" \
                -vf "vidstabdetect=result=$transforms" -f null - || return 1
            second=(filtered "$clip"
                "vidstabtransform=input=$transforms:crop=black:interpol=bicubic:$zoom" "$output")
            ;;
        deshake) second=(filtered "$clip" "deshake,$rescaled" "$output") ;;
        opencv) second=(opencv_encoded "$clip" "$output") ;;
    esac
    timed "$output.second" "${second[@]}"
}

# contrast VIDEO: mean gradient of the 2 % of pixels with the strongest one, in the middle of every
# 15th frame.
contrast() {
    ffmpeg -nostdin -v error -i "$1" -f rawvideo -pix_fmt gray -vf \
        "select='not(mod(n,15))',format=gray,crop=iw*0.6:ih*0.6,roberts=scale=0.5" \
        -fps_mode passthrough - | python3 -c '
import collections, sys
counts = collections.Counter(sys.stdin.buffer.read())
wanted = left = max(1, sum(counts.values()) // 50)
total = 0
for value in sorted(counts, reverse=True):
    taken = min(left, counts[value])
    total += taken * value
    left -= taken
print(total / wanted)'
}

# measured VIDEO: number of frames; median and RMS of how far points of the picture move from one
# frame to the next, less what is slower than 1 Hz; shake_px and the largest border in percent.
measured() {
    "$framehold" measure "$1" -q --json --csv "$1.csv" --overwrite >"$1.json"
    local shake border
    shake=$(sed -n 's/.*"shake_px": \([-0-9.e]*\).*/\1/p' "$1.json" | head -n 1)
    border=$(sed -n 's/.*"largest_border_percent": \([-0-9.e]*\).*/\1/p' "$1.json" | head -n 1)
    # Shift, turn and growth add up as in `shake_px`: points are (w^2 + h^2) / 12 from the centre.
    awk -F , -v spread=$(((width * width + height * height) / 12)) '
        NR > 1 {
            turn = $10 * 3.14159265 / 180; growth = log($11)
            shift = ($8 - x) ^ 2 + ($9 - y) ^ 2
            if (NR > 2) print sqrt(shift + spread * ((turn - turned) ^ 2 + (growth - grown) ^ 2))
            x = $8; y = $9; turned = turn; grown = growth
        }' "$1.csv" | sort -g | awk -v shake="$shake" -v border="$border" '
        { value[NR] = $1; sum += $1 * $1 }
        END { print NR + 1, value[int((NR + 1) / 2)], sqrt(sum / NR), shake, border }'
}

for clip in $clips; do
    make_clip "$clip" || { echo "$clip: skipped, its recording is not there" >&2; continue; }
    IFS=, read -r width height < <(ffprobe -v error -select_streams v \
        -show_entries stream=width,height -of csv=p=0 "$folder/$clip/clip.mp4")
    for tool in $tools; do
        output=$folder/$clip/$tool.mp4
        case " $again " in *" $tool "*) rm -f "$output.figures" ;; esac
        if [ ! -s "$output.figures" ]; then
            echo "== $clip: $tool" >&2
            run_tool "$clip" "$tool" "$output" || continue
            shake=$(measured "$output")
            sharpness=$(contrast "$output")
            echo "$shake $sharpness $(cat "$output.first" "$output.second" | xargs)" >"$output.part"
            mv "$output.part" "$output.figures"
        fi
    done
done

cat <<'TEXT'
Shake: median / RMS, over the frames, of how far the picture moves from one frame to the next, less
what is slower than 1 Hz; then shake_px of framehold measure; both in pixels of the source: results
are enlarged 1.25 times by the crop, which is divided out. Border: black, in the worst frame, as
framehold measure has it. Contrast: gradient at strong edges, 100 % that of the plain crop.
Processor time in ms per frame: what only looks at the clip; what renders and encodes it.
TEXT
for clip in $clips; do
    [ -e "$folder/$clip/clip.mp4" ] || continue
    plain=$(awk '{ print $6 }' "$folder/$clip/crop.mp4.figures" 2>/dev/null) || plain=0
    printf '\n%-17s %15s %9s %9s %9s %8s %10s\n' \
        "$clip" "shake, px/frame" shake_px border contrast analysis rendering
    for tool in $tools; do
        output=$folder/$clip/$tool.mp4
        [ -s "$output.figures" ] || { printf '  %-15s %9s\n' "$tool" -; continue; }
        awk -v tool="$tool" -v plain="$plain" '{
            enlarged = tool == "input" ? 1 : 1.25
            contrast = plain > 0 ? sprintf("%.0f %%", 100 * $6 / plain) : "-"
            printf "  %-15s %6.2f / %6.2f %9.2f %7.1f %% %9s %8.1f %10.1f\n", tool, $2 / enlarged,
                $3 / enlarged, $4 / enlarged, $5, contrast, 1000 * $7 / $1, 1000 * $8 / $1
        }' "$output.figures"
    done
done
