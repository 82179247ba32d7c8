#!/bin/bash
# Gives the desktop program files that are made to do harm, with names to match.
# Usage: hostile_input_test.sh FRAMEHOLD
. "$(dirname "$0")/../support/shell_checks.sh"
cd "$work" || exit 1

"$framehold" simulate sim -q --size 320x180 --focal 250 --duration 1 --pan 0 || fail "simulate"
mkfifo pipe

# What a clip.json names lies below its folder, and nothing waits for the other end of a pipe.
mkdir -p set/logs && cp sim/clip.mp4 set && cp sim/imu.gcsv set/logs && cp sim/imu.gcsv outside.gcsv
metadata() { echo "{\"video\": \"clip.mp4\", \"focal_px\": 250, \"imu\": {\"file\": \"$1\"}}" >set/clip.json; }
stabilize() { timeout -k 5 60 "$framehold" stabilize set/clip.mp4 -q --preset ultrafast -o none.mp4 "$@"; }
inspect() { timeout -k 5 60 "$framehold" inspect -q "$@"; }
metadata logs/imu.gcsv
expect 0 "gyroscope" inspect set/clip.mp4
metadata ../outside.gcsv
expect 1 "set/clip.json: imu: ../outside.gcsv is not below the folder of this file; --allow-outside-paths" stabilize
expect 1 "--allow-outside-paths allows it" "$framehold" calibrate set/clip.mp4 -q -o found.json
expect 0 "gyroscope" inspect set/clip.mp4 --allow-outside-paths
# Frame times that stand still and go back.
awk -F, -v OFS=, 'NR == 10 { $2 = last } NR == 20 { $2 -= 0.5 } { last = $2; print }' sim/frames.csv >set/frames.csv
metadata logs/imu.gcsv
for engine in live offline; do
    expect 0 "1 frame with times before" stabilize --engine $engine --overwrite --force
done
rm set/frames.csv none.mp4
mkfifo set/pipe.gcsv
metadata pipe.gcsv
expect 1 "set/pipe.gcsv: is not a regular file" stabilize
# In the foreground, as else timeout sends SIGCONT, too, which can stop the search for leaks for ever.
expect 124 "interrupted" timeout --foreground -k 60 1 "$framehold" inspect -q pipe
expect 1 "pipe: is not a regular file" inspect sim/clip.mp4 --clip pipe
printf '{"width": "\x1b[2Jwide", "\x1b]0;x\x07": 1' >set/clip.json
expect 1 "set/clip.json: not JSON: a mistake in line 1, or before it" stabilize

# A matrix of how to turn pictures whose numbers have no opposites.
python3 -c 'import struct, sys
data = bytearray(sys.stdin.buffer.read())
at = data.index(b"tkhd", data.index(b"moov")) + 44
data[at:at + 20] = struct.pack(">5i", 0, -2**31, 0, -2**31, 0)
sys.stdout.buffer.write(data)' <sim/clip.mp4 >turned.mp4
expect 0 "" "$framehold" compare turned.mp4 turned.mp4 -q --frames 2 --picture turned.png

# Lists of other files are not opened, whatever they are called.
printf 'ffconcat version 1.0\nfile sim/clip.mp4\n' >list.mp4
printf '#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nsim/clip.mp4\n#EXT-X-ENDLIST\n' >playlist.mp4
for list in list.mp4 playlist.mp4; do
    expect 1 "a list of other files" "$framehold" measure $list -q
done

# Names of all kinds, and what a terminal would obey.
for name in "a:b" "-dash" "http:" $'\xff\xfe' $'new\nline' "50%d" "concat:a|b"; do
    cp sim/clip.mp4 "./$name.mp4" && cp sim/imu.gcsv "./$name.gcsv"
    "$framehold" stabilize --focal 250 -q --json --preset ultrafast -o "./$name-out.mp4" -- "$name.mp4" >said.json 2>said ||
        fail "stabilize $name: $(cat said)"
    [ -s "./$name-out.mp4" ] || fail "no result for $name"
    "$framehold" measure -q --json -- "$name.mp4" "$name-out.mp4" >measured.json || fail "measure $name"
    "$framehold" inspect -q --json -- "$name.mp4" >found.json || fail "inspect $name"
    for json in said.json measured.json found.json; do
        iconv -f utf-8 -t utf-8 $json >/dev/null || fail "$json of $name is not UTF-8"
    done
done
sed $'2a note,\x1b]0;title\x07\x1b[2J' sim/imu.gcsv >$'\x1b[31mred.gcsv'
sed -i $'3a \x1b[1mbold,1' $'\x1b[31mred.gcsv'
said=$("$framehold" inspect $'\x1b[31mred.gcsv' 2>&1)
[[ $said == *'\x1B[31mred.gcsv'* && $said == *'\x1B]0;title\x07\x1B[2J'* && $said == *'\x1B[1mbold'* ]] || fail "inspect: $said"
said+=$("$framehold" stabilize sim/clip.mp4 -m $'\x1b[31mred.gcsv' --focal 250 -o $'\x1b[7m.xyz' 2>&1)
[[ $said != *$'\x1b'* ]] || fail "a terminal's commands were printed: $said"
[ $failures -eq 0 ]
