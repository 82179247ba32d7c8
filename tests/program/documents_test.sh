#!/bin/bash
# Runs the program's commands that the documents show, in their order, on simulated clips of the
# names that the documents use; and looks for the other programs and scripts that they name.
# Usage: documents_test.sh FRAMEHOLD SOURCE_ROOT BUILD_FOLDER HAS_REPORTS
. "$(dirname "$0")/../support/shell_checks.sh"
root=$2
build=$3
has_reports=$4
command -v ffmpeg >/dev/null || { echo "ffmpeg is missing"; exit 77; }

mkdir "$work/bin"
ln -s "$framehold" "$work/bin/framehold"
export PATH=$work/bin:$PATH

simulated=$work/simulated
framehold simulate -q "$simulated" --size 256x144 --focal 1150 --shake 0.3 --pan 0 --duration 3 ||
    exit 1

# simulated NAME: NAME.mp4 with NAME.gcsv, and NAME.json unless commands make it.
simulated() {
    cp "$simulated/clip.mp4" "$1.mp4"
    cp "$simulated/imu.gcsv" "$1.gcsv"
    case $1 in walk | a | b) return ;; esac
    sed "s/clip\.mp4/${1##*/}.mp4/; s/imu\.gcsv/${1##*/}.gcsv/" "$simulated/clip.json" >"$1.json"
}

# commands DOCUMENT: its indented lines, those that go on joined, without comments.
commands() {
    awk '/^```/ { code = !code }
        code || !/^    [^ ]/ && !more { next }
        { sub(/^ +/, ""); sub(/ +#.*/, ""); line = line $0
          more = sub(/\\$/, "", line) || line ~ /[|]$/
          if (!more) { print line; line = "" } }' "$root/$1"
}

longest=200  # seconds for one command
count=0
cd "$root" || exit 1
for document in README.md CONTRIBUTING.md docs/*.md; do
    mkdir -p "$work/$document/recordings"
    cd "$work/$document" || exit 1
    while IFS= read -r line; do
        # shellcheck disable=SC2086
        set -- $line
        case $1 in
            framehold | build/release/framehold | ffmpeg)
                [[ $has_reports = ON || $2 != report ]] || continue
                if [ ! -e walk.mp4 ]; then
                    for name in walk a b clip original recordings/one recordings/two; do
                        simulated $name
                    done
                    cp original.mp4 other-tool.mp4
                    cp original.mp4 steady.mp4
                    ffmpeg -v error -i walk.mp4 -c copy walk.mkv </dev/null
                    mkdir frames
                    ffmpeg -v error -i walk.mp4 frames/frame-%04d.png </dev/null
                    cp walk.gcsv imu.gcsv
                fi
                # What a command writes is not there yet.
                before=""
                for word in $line; do
                    [ "$before" = -o ] && rm -f -- "$word"
                    before=$word
                done
                printed=$(timeout -k 10 $longest bash -o pipefail \
                    -c "${line//build\/release\//}" 2>&1 </dev/null)
                code=$?
                [ $code -ne 124 ] || printed="not done after $longest s, $printed"
                [ $code -eq 0 ] || fail "$document: $line: $printed"
                count=$((count + 1))
                ;;
            scripts/*) [ -x "$root/$1" ] || fail "$document: $line: no such script" ;;
            build/release/*)
                [ -x "$build/${1#build/release/}" ] || fail "$document: $line: no such program"
                ;;
        esac
    done < <(commands "$document")
    cd "$root" || exit 1
    rm -rf "${work:?}/$document"
done
echo "$count commands run"
[ $count -ge 10 ] || fail "only $count commands found"
[ $failures -eq 0 ]
