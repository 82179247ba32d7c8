#!/bin/bash
# Prints what --crop auto, --zoom dynamic and --horizon make of simulated clips whose true orientation
# is known: the crop, the zoom, its largest change, the roll that is left, the black border and shake.
# Usage: zoom_horizon.sh [--record] FRAMEHOLD [FOLDER [CLIP...]]
# --record: keeps what is printed as a dated file, see record.sh. FOLDER: keeps the clips. CLIP: the
# number of one, from 0; all where none is given.
set -euo pipefail
if [ "$1" = --record ]; then
    exec "$(dirname "$0")/record.sh" zoom-horizon scripts/zoom_horizon.sh "${@:2}"
fi
framehold=$1
work=${2:-$(mktemp -d)}
[ $# -gt 1 ] || trap 'rm -rf "$work"' EXIT

clips=("standing hand|--pan 0 --duration 6"
    "tilted by 5 deg|--pan 20 --tilt 5 --duration 6"
    "rolling by 2 deg/s|--pan 0 --tilt -6 --roll 2 --duration 6"
    "walking, tilted|--walk --pan 0 --tilt 5 --duration 6"
    "pans with rests|--pan 25 --pan-period 24 --duration 12")
settings=("--crop 80" "--crop auto" "--zoom dynamic" "--crop 70 --horizon lock"
    "--crop auto --horizon lock" "--zoom dynamic --crop 70 --horizon lock")

# Roll of source and result to the world's vertical, from the truth and the path's table, in degrees;
# least and largest picture shown, in percent, and the fastest zoom, in percent per second.
figures() {
    awk -F , -v crop="$3" '
        function product(aw, ax, ay, az, bw, bx, by, bz) {
            w = aw * bw - ax * bx - ay * by - az * bz
            x = aw * bx + ax * bw + ay * bz - az * by
            y = aw * by - ax * bz + ay * bw + az * bx
            z = aw * bz + ax * by - ay * bx + az * bw
        }
        function roll() { return 57.29578 * atan2(2 * (y * z + w * x), 2 * (x * z - w * y)) }
        function size(number) { return number < 0 ? -number : number }
        FNR == 1 { for (i = 1; i <= NF; i++) column[$i] = i; next }
        NR == FNR { truth[$1] = $6 "," $3 "," $4 "," $5; next }
        {
            split(truth[$1], t, ",")
            product(t[1], t[2], t[3], t[4], 1, 0, 0, 0)
            before += roll() ^ 2
            product(w, x, y, z, $3, -$4, -$5, -$6)
            product(w, x, y, z, $7, $8, $9, $10)
            after += roll() ^ 2
            if (size(roll()) > largest) largest = size(roll())
            zoom = $column["zoom"]
            if (n == 0 || zoom < far) far = zoom
            if (n == 0 || zoom > near) near = zoom
            if (n > 0) {
                speed = size(100 * log(zoom / last) / ($2 - time))
                if (speed > fastest) fastest = speed
            }
            last = zoom; time = $2; n++
        }
        END {
            printf "%s;%.0f-%.0f %%;%.1f %%/s;%.2f;%.2f;%.2f", crop, crop / near, crop / far,
                fastest, sqrt(before / n), sqrt(after / n), largest
        }' "$1" "$2"
}

format='%-19s %-40s %5s %9s %8s %7s %10s %8s %13s %6s\n'
# shellcheck disable=SC2059
printf "$format" clip options crop shown zooms "roll in" "roll left" largest "black border" shake
numbers=("${@:3}")
[ $# -gt 2 ] || numbers=("${!clips[@]}")
for c in "${numbers[@]}"; do
    clip=$work/$c
    # shellcheck disable=SC2086
    "$framehold" simulate "$clip" -q --overwrite --size 320x180 --focal 250 ${clips[c]#*|}
    for s in "${!settings[@]}"; do
        # shellcheck disable=SC2086
        "$framehold" stabilize "$clip/clip.mp4" -q --overwrite --json ${settings[s]} \
            -o "$clip/$s.mp4" --export-path "$clip/$s.csv" >"$clip/$s.json"
        crop=$(sed -n 's/.*"crop_percent": \([0-9]*\).*/\1/p' "$clip/$s.json")
        "$framehold" measure "$clip/clip.mp4" "$clip/$s.mp4" -q >"$clip/measures"
        black=$(sed -n 's/^black border, .* \([^ ]*\)$/\1/p' "$clip/measures" | paste -s -d /)
        shake=$(sed -n 's/^shake, .*(\([0-9]* %\))$/\1/p' "$clip/measures")
        figures=$(figures "$clip/truth.csv" "$clip/$s.csv" "$crop")
        IFS=';' read -r -a columns <<<"${clips[c]%%|*};${settings[s]};$figures;$black;$shake"
        # shellcheck disable=SC2059
        printf "$format" "${columns[@]}"
    done
done
echo "shown: percent of the picture; zooms: fastest; roll: degrees, rms and largest, by the truth;"
echo "black border: mean and worst frame, percent of the area; shake: what is left of the source's."
