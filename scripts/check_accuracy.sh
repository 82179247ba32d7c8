#!/bin/bash
# Calibrates with simulated clips of many kinds and counts how often the truth is within the stated
# deviations: by parameter, by rate of the log and by bit rate. What is done is kept in FOLDER: a run
# that was broken off goes on where it was.
# Usage: check_accuracy.sh FRAMEHOLD LOG FOLDER [COUNT]
#   LOG: a recorded motion log of 40 s or more, of a hand; COUNT: clips (default 12)
set -u
framehold=$1
log=$2
folder=$3
count=${4:-12}
mkdir -p "$folder"

sizes=(320x240 480x270 640x360 400x300)
focals=(0.8 0.95 1.15 1.4) # of the width
readouts=(0.012 0.018 0.025 0.031)
axes=(XYZ YxZ xzY zYX XYz yXZ)
rates=(50 100 200 400 1000)
codings=("-crf 14" "-crf 28" "-crf 34" "-b:v 500k" "-crf 23 -vf noise=alls=12:allf=t")
starts=(2 9 16 23 28)
distortions=(0 0 0.004 0 -0.006 0 0.01) # share at the corners

value() { sed -n "s/^ *\"$2\": \([-0-9.e]*\),*$/\1/p" "$1"; }
# found FILE KEY: value, deviation and confidence of a parameter in calibrate --json.
found() {
    awk -v key="\"$2\":" '$1 == key { on = 1 }
        on && $1 == "\"value\":" { value = $2 + 0 } on && $1 == "\"deviation\":" { deviation = $2 + 0 }
        on && $1 == "\"confidence\":" { gsub(/.*: "|".*/, ""); gsub(/ /, "_"); print value, deviation, $0; exit }' "$1"
}

for ((i = 0; i < count; ++i)); do
    result=$folder/$i.txt
    [ -s "$result" ] && continue
    size=${sizes[i % 4]}
    focal=$(awk -v w="${size%x*}" -v f="${focals[i / 2 % 4]}" 'BEGIN { print int(w * f) }')
    readout=${readouts[i / 3 % 4]}
    rate=${rates[i % 5]}
    coding=${codings[(i + i / 5) % 5]}
    offset=$(awk -v i=$i 'BEGIN { srand(i + 1); printf "%.4f", rand() - 0.5 }')
    moving=$(awk -v i=$i 'BEGIN { print i % 3 == 2 ? 0.2 : 0 }')
    work=$(mktemp -d)
    "$framehold" simulate "$work/clip" -q --overwrite --motion "$log" --from "${starts[i % 5]}" --duration 9 \
        --size "$size" --focal "$focal" --readout "$readout" --time-offset "$offset" --seed "$i" \
        --axes "${axes[i % 6]}" --imu-rate "$rate" --noise-density 0.0002 --moving "$moving" \
        --rate-bias 0.008,-0.009,0.005 --metadata "$work/truth" || exit 1
    lens=lenscorrection=k1=${distortions[i % 7]}:k2=0:i=bilinear
    [ "${distortions[i % 7]}" = 0 ] && lens=null
    case $coding in
    *-vf*) filtered=${coding/-vf /-vf $lens,} ;;
    *) filtered="$coding -vf $lens" ;;
    esac
    # shellcheck disable=SC2086
    ffmpeg -v error -i "$work/clip/clip.mp4" -c:v libx264 $filtered "$work/coded.mp4" || exit 1
    "$framehold" calibrate "$work/coded.mp4" --motion "$work/clip/imu.gcsv" -q --json \
        -o "$work/found.json" >"$work/all.json" 2>"$work/said" || cat "$work/said" >&2
    {
        letters=$(sed -n 's/.*"letters": "\(...\)".*/\1/p' "$work/all.json" | head -n 1)
        [ "$letters" = "${axes[i % 6]}" ] && right=1 || right=0
        for key in focal_px readout_s time_offset_s; do
            echo "$i $rate ${coding// /_} $right $key $(value "$work/truth/clip.json" $key)" \
                "$(found "$work/all.json" $key)"
        done
    } >"$result.part"
    mv "$result.part" "$result"
    rm -rf "$work"
done

# Errors in deviations: share within one and two, mean error (of the focal length in %, else in ms).
cat "$folder"/*.txt | awk '
    function add(group, key, z, error) {
        id = group "\t" key
        if (!(id in n)) order[++groups] = id
        ++n[id]; one[id] += z <= 1; two[id] += z <= 2; sum[id] += error
    }
    NF < 9 || $9 == "unobservable" { ++unknown[$5]; next }
    {
        error = $5 == "focal_px" ? 100 * ($7 / $6 - 1) : 1000 * ($7 - $6)
        z = ($7 - $6) / $8; if (z < 0) z = -z
        add("all", $5, z, error); add($2 " Hz", $5, z, error); add($3, $5, z, error)
        if (!seen[$1]++) { ++clips; right += $4 }
    }
    END {
        printf "%d clips, axes right in %d\n", clips, right
        for (key in unknown) printf "%s: not found in %d\n", key, unknown[key]
        printf "%-32s %-14s %6s %8s %8s %12s\n", "", "", "clips", "within 1", "within 2", "mean error"
        for (i = 1; i <= groups; ++i) {
            id = order[i]; split(id, part, "\t")
            printf "%-32s %-14s %6d %6.0f %% %6.0f %% %9.3f %s\n", part[1], part[2], n[id],
                100 * one[id] / n[id], 100 * two[id] / n[id], sum[id] / n[id],
                part[2] == "focal_px" ? "%" : "ms"
        }
    }'
