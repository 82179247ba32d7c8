#!/bin/bash
# Simulates clips of lenses, calibrates them from video and log alone, stabilizes them with and
# without the lens, and prints what was found beside what is true, and the shake that is left.
# Usage: check_lens.sh FRAMEHOLD FOLDER
#   FOLDER keeps clips and results: a run that was broken off goes on where it was.
set -u
framehold=$1
folder=$2
mkdir -p "$folder"

# Name, focal length, model, k1 and k2.
lenses=(
    "barrel 500 polynomial -0.25 0.06"
    "pincushion 500 polynomial 0.15 0.02"
    "fisheye 260 fisheye -0.03 0.004"
    "none 500 none 0 0"
)

# found FILE KEY: value, deviation and confidence of a parameter in calibrate --json.
found() {
    awk -v key="\"$2\":" '$1 == key { on = 1 }
        on && $1 == "\"value\":" { value = $2 + 0 } on && $1 == "\"deviation\":" { deviation = $2 + 0 }
        on && $1 == "\"confidence\":" { gsub(/.*: "|".*/, ""); print value " +- " deviation ", " $0; exit }' "$1"
}
shake() { sed -n 's/^ *"shake_px": \([-0-9.e]*\),*$/\1/p' "$1"; }

for lens in "${lenses[@]}"; do
    read -r name focal model k1 k2 <<<"$lens"
    clip=$folder/$name
    options=(--lens-model "$model")
    [ "$model" = none ] || options+=("--lens=$k1,$k2")
    [ -s "$clip/clip.json" ] || "$framehold" simulate "$clip" -q --overwrite --size 640x360 --duration 10 \
        --shake 1.5 --pan 12 --seed 3 --noise-density 0.0002 --focal "$focal" "${options[@]}" || exit 1
    asked=()
    [ "$model" = fisheye ] && asked=(--lens-model fisheye)
    [ -s "$clip/all.json" ] || "$framehold" calibrate "$clip/clip.mp4" "${asked[@]}" -q --json --overwrite \
        -o "$clip/found.json" >"$clip/all.json" || exit 1
    echo "$name: true focal_px $focal, k1 $k1, k2 $k2"
    for key in focal_px k1 k2 distortion; do echo "  found $key $(found "$clip/all.json" $key)"; done
    for way in without with straightened; do
        options=()
        [ $way = without ] && options=(--lens-model none)
        [ $way = straightened ] && options=(--straighten)
        [ "$name" = none ] && [ $way != without ] && continue
        [ -s "$clip/$way.mp4" ] || "$framehold" stabilize "$clip/clip.mp4" --clip "$clip/clip.json" -q --force \
            "${options[@]}" -o "$clip/$way.mp4" || exit 1
        [ -s "$clip/$way.json" ] || "$framehold" measure "$clip/$way.mp4" -q --json >"$clip/$way.json" || exit 1
        echo "  shake left $way: $(shake "$clip/$way.json") px"
    done
    [ -s "$clip/source.json" ] || "$framehold" measure "$clip/clip.mp4" -q --json >"$clip/source.json"
    echo "  shake of the source: $(shake "$clip/source.json") px"
done
