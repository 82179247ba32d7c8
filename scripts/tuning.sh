#!/bin/bash
# Prints how much shake is left of two simulated clips, of a standing hand and of one that pans, by
# delay, smoothing level and crop.
# Usage: tuning.sh [--record] FRAMEHOLD
# --record: keeps what is printed as a dated file, see record.sh.
set -euo pipefail
if [ "$1" = --record ]; then
    exec "$(dirname "$0")/record.sh" tuning scripts/tuning.sh "$2"
fi
framehold=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

settings=("--delay 0" "--delay 5" "--delay 10" "--delay 15" "--delay 30"
    "--delay 15 --smoothing 1" "--delay 15 --smoothing 5" "--delay 15 --smoothing 10"
    "--delay 15 --crop 90" "--delay 15 --crop 70")

# shake_left PAN: the share of the shake that is left with each of the settings, in percent.
shake_left() {
    local clip=$work/pan$1 results=() i
    "$framehold" simulate "$clip" -q --size 640x360 --duration 12 --focal 500 --pan "$1"
    for i in "${!settings[@]}"; do
        local level="--smoothing 9"
        case ${settings[i]} in *--smoothing*) level= ;; esac
        # shellcheck disable=SC2086
        "$framehold" stabilize "$clip/clip.mp4" -q $level ${settings[i]} -o "$clip/$i.mp4"
        results+=("$clip/$i.mp4")
    done
    "$framehold" measure "$clip/clip.mp4" "${results[@]}" -q --json |
        sed -n '/"remaining"/,/}/s/.*"shake_px": \([0-9.]*\).*/\1/p' |
        awk '{ printf "%.0f %%\n", 100 * $1 }'
}

echo "Shake left, with smoothing level 9 and a crop of 80 % where nothing else is said."
printf '%-26s %14s %14s\n' settings "standing hand" "pans of 20 deg"
paste -d ';' <(printf '%s\n' "${settings[@]}") <(shake_left 0) <(shake_left 20) |
    awk -F ';' '{ printf "%-26s %14s %14s\n", $1, $2, $3 }'
