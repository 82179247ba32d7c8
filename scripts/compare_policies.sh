#!/bin/bash
# Prints how much the virtual camera of the live engine shakes with smoothing level 9, with level 5
# and with a level for every frame (--smoothing auto), by clip and delay. Clips are simulated ones
# of few pixels, since shake is found from the path alone; recorded ones are used where they are there.
# Usage: compare_policies.sh [--record] FRAMEHOLD [RECORDED [CLIP...]]
#   --record: keeps what is printed as a dated file, see record.sh
#   RECORDED: folder of recorded clips with a clip.json each (default ../shared/clips), and of
#     ../motion/phone-drive-40s.gcsv, what the hand of a passenger did in 40 s
#   CLIP: some clips, by name
set -euo pipefail
if [ "$1" = --record ]; then
    shift
    exec "$(dirname "$0")/record.sh" smoothing-policy scripts/compare_policies.sh "$@"
fi
framehold=$1
recorded=${2-$(dirname "$0")/../../shared/clips}
log=$recorded/../motion/phone-drive-40s.gcsv
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A pan of N degrees in 2.7 s is a quarter of 10.4 s of --pan N/2, which comes there and back.
clips="pan-20|--shake 0.5 --pan 10 --pan-period 10.4
pan-45|--shake 0.5 --pan 22.5 --pan-period 10.4
pan-90|--shake 0.5 --pan 45 --pan-period 10.4
calm|--shake 0.3 --pan 0
hand|--motion $log --from 1
hand-pan-20|--motion $log --from 1 --pan 10 --pan-period 10.4
hand-pan-45|--motion $log --from 1 --pan 22.5 --pan-period 10.4
hand-pan-90|--motion $log --from 8 --pan 45 --pan-period 20
walk|--motion $log --from 12 --walk
walk-pan-45|--motion $log --from 12 --walk --pan 22.5 --pan-period 10.4
run|--motion $log --from 20 --run
phone-walk|
action-grip|"

# make_clip NAME OPTIONS: prints its folder.
make_clip() {
    if [ -z "$2" ]; then
        [ -e "$recorded/$1/clip.mp4" ] && echo "$recorded/$1"
        return
    fi
    case $2 in *--motion*) [ -e "$log" ] || return 1 ;; esac
    # shellcheck disable=SC2086
    "$framehold" simulate "$work/$1" -q --size 64x36 --focal 51.2 --duration 10 $2
    echo "$work/$1"
}

# shake PATH_TABLE FOLDER: RMS, over the frames, of how far the picture moves from one frame to the
# next, less what is slower than 1 Hz, in pixels: of the source; for a simulated clip of 640 x 360.
shake() {
    python3 - "$@" <<'PYTHON'
import bisect, csv, json, math, sys

rows = [r for r in csv.DictReader(open(sys.argv[1])) if r["corrected_w"]]
clip = json.load(open(sys.argv[2] + "/clip.json"))
scale = 640 / clip["width"] if clip["width"] < 320 else 1
focal = clip["focal_px"] * scale
times = [float(r["time_s"]) for r in rows]
turns = [[float(r["corrected_" + c]) for c in "wxyz"] for r in rows]


def step(a, b):
    """Rotation vector from orientation a to b, in the camera's axes."""
    w, x, y, z = (a[0], -a[1], -a[2], -a[3])
    v = [w * b[1] + x * b[0] + y * b[3] - z * b[2], w * b[2] - x * b[3] + y * b[0] + z * b[1],
         w * b[3] + x * b[2] - y * b[1] + z * b[0]]
    return [2 * c for c in v]


def fast(values, sigma=0.354):
    """Less the parabola that fits best around each value, as framehold measure has it."""
    result = []
    for k, t0 in enumerate(times):
        m = [0.0] * 5
        r = [0.0] * 3
        begin, end = (bisect.bisect(times, t0 + side * 4 * sigma) for side in (-1, 1))
        for t, value in zip(times[begin:end], values[begin:end]):
            u = (t - t0) / sigma
            w = math.exp(-u * u / 2)
            for i in range(5):
                m[i] += w * u ** i
            for i in range(3):
                r[i] += w * u ** i * (value - values[k])
        minors = [m[2] * m[4] - m[3] ** 2, m[1] * m[4] - m[2] * m[3], m[1] * m[3] - m[2] ** 2]
        whole = m[0] * minors[0] - m[1] * minors[1] + m[2] * minors[2]
        result.append(-(r[0] * minors[0] - r[1] * minors[1] + r[2] * minors[2]) / whole)
    return result


path = [[0.0] * 3]
for a, b in zip(turns, turns[1:]):
    path.append([p + s for p, s in zip(path[-1], step(a, b))])
path = list(zip(*[fast(axis) for axis in zip(*path)]))
size = [clip["width"] * scale / focal, clip["height"] * scale / focal]
weights = [1, 1, (size[0] ** 2 + size[1] ** 2) / 12]
squares = [sum(w * (q - p) ** 2 for w, p, q in zip(weights, a, b)) for a, b in zip(path, path[1:])]
print(focal * math.sqrt(sum(squares) / len(squares)))
PYTHON
}

echo "Shake of the virtual camera: RMS of how far the picture moves from frame to frame, less"
echo "what is slower than 1 Hz, in pixels of 640 x 360 (recorded clips: of theirs); crop 80 %."
echo "auto: a level for every frame; also as a share of the shake with level 9."
printf '%-12s' clip
for delay in 0 5 15 30; do printf ' | %-23s' "delay $delay: 9, 5, auto"; done
echo
while IFS='|' read -r name options; do
    [ $# -lt 3 ] || case " ${*:3} " in *" $name "*) ;; *) continue ;; esac
    if ! folder=$(make_clip "$name" "$options"); then
        echo "$name: skipped, its recording is not there"
        continue
    fi
    printf '%-12s' "$name"
    for delay in 0 5 15 30; do
        figures=()
        for level in 9 5 auto; do
            "$framehold" stabilize "$folder/clip.mp4" --clip "$folder/clip.json" \
                --allow-outside-paths --engine live --delay "$delay" --smoothing "$level" -q \
                --force --overwrite --preset ultrafast --export-path "$work/path.csv" \
                -o "$work/stable.mp4" 2>/dev/null || [ $? -eq 3 ] # shakier than the source
            figures+=("$(shake "$work/path.csv" "$folder")")
        done
        awk '{ printf " | %5.3f %5.3f %5.3f %3.0f %%", $1, $2, $3, 100 * $3 / $1 }' \
            <<<"${figures[*]}"
    done
    echo
done <<<"$clips"
