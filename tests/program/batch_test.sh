#!/bin/bash
# Runs `framehold stabilize` on several clips, in a pipe, on all kinds of pixels and streams, and
# where it is stopped. All clips are simulated or made up.
# Usage: batch_test.sh FRAMEHOLD
. "$(dirname "$0")/../support/shell_checks.sh"
cd "$work" || exit 1

# of FILE ENTRIES: what ffprobe says.
of() { ffprobe -v error -show_entries "$2" -of csv=p=0 "$1" | sed '/^$/d'; }
frames() { ffmpeg -v error -i "$1" -map 0:v -f framemd5 - | sed '/^#/d;s/.*,//'; }
stabilize() { "$framehold" stabilize "$@" --preset ultrafast; }

"$framehold" simulate sim --size 320x180 --focal 300 --duration 1 -q || fail "simulate"
metadata=sim/clip.json

# Six clips, a broken video and a broken log among them. The last one has metadata of its own name.
for i in 1 2 3 4 5; do cp -r sim "clip$i"; done
rm clip*/truth.csv
mkdir clip6 && cp sim/clip.mp4 clip6/walk.mp4 && cp sim/imu.gcsv clip6/walk.gcsv
head -c 3000 sim/clip.mp4 >clip2/clip.mp4
sed -i '20s/,.*,/,x,/' clip4/imu.gcsv
said=$(stabilize clip? -j 2 --json -o 'out/{folder}-{name}.{ext}' 2>&1 >summary.json)
[ $? -eq 1 ] || fail "batch: exit code"
for text in "4 of 6 clips stabilized, 2 failed" "clip2/clip.mp4: FAILED: clip2/clip.mp4: " \
    "clip4/clip.mp4: FAILED: clip4/imu.gcsv:20: "; do
    [[ $said == *"$text"* ]] || fail "batch did not say '$text': $said"
done
[ "$(echo out/*)" = "out/clip1-clip.mp4 out/clip3-clip.mp4 out/clip5-clip.mp4 out/clip6-walk.mp4" ] ||
    fail "batch: $(ls out)"
[ "$(frames out/clip1-clip.mp4 | wc -l)" = 30 ] || fail "batch: frames"
python3 - <<'END' || fail "summary.json: $(cat summary.json)"
import json
run = json.load(open("summary.json"))
assert (run["done"], run["failed"], run["interrupted"]) == (4, 2, 0)
assert [c["status"] for c in run["clips"]] == ["done", "failed", "done", "failed", "done", "done"]
assert run["clips"][0]["parameters"]["focal_px"] == 300 and run["clips"][5]["warnings"]
assert run["clips"][0]["frames_without_orientation"] == 0
times = run["clips"][0]["processor_seconds"]
assert list(times) == ["analysis", "path", "frames"] and all(0 < t < 60 for t in times.values())
END

# A terminal shows one line for all clips that run, with the remaining time; else there are whole lines.
batch="'$framehold' stabilize clip1 clip3 -j 2 --preset ultrafast --overwrite -o 'out/{folder}-{name}.mp4'"
eval "$batch" >said 2>&1 && [ "$(tail -n 1 said)" = "2 of 2 clips stabilized" ] || fail "batch: $(cat said)"
grep -q $'[\r\x1b]' said && fail "control characters: $(cat -v said)"
script -qec "stty cols 200; $batch" /dev/null >typed || fail "batch in a terminal"
for text in "0 of 2 clips" "1 of 2 clips  .* left" "| clip1/clip.mp4 analysing" "| clip3/clip.mp4 stabilizing"; do
    grep -q "$text" typed || fail "a terminal does not show '$text': $(cat -v typed)"
done
script -qec "$batch -q" /dev/null >typed
[ ! -s typed ] || fail "quiet: $(cat -v typed)"

# What does not go together is refused before anything is done.
expect 2 "several videos need a folder or a pattern" stabilize clip1 clip3 -o one.mp4
expect 2 "would be written for clip1/clip.mp4 and for clip3/clip.mp4" stabilize clip1 clip3 -o out
expect 2 "known are {name}, {folder} and {ext}" stabilize clip1 clip3 -o 'out/{nam}.mp4'
expect 2 "--export-path: paths.csv would be" stabilize clip1 clip3 -o 'out/{folder}.mp4' --export-path 'paths{ext:.0}.csv'
expect 2 "goes with one video only" stabilize clip1 clip3 --motion clip1/imu.gcsv
expect 2 "--json" stabilize clip1 -o - --json
mkdir empty
expect 1 "empty: holds no videos" stabilize empty
expect 1 "is the input itself" stabilize clip1/clip.mp4 -o clip1/../clip1/clip.mp4
# The folder's only video is that of its clip.json, in the current folder as well.
cp -r sim here && mv here/clip.mp4 here/walk.mp4 && sed -i '/"video"/d' here/clip.json
(cd here && expect 0 "focal length 300.0 pixels (clip.json)" stabilize walk.mp4; exit $failures) ||
    fail "a clip.json in the current folder"
expect 1 "standard input: is no video that can be read from a pipe" stabilize - --clip $metadata -o pipe.mp4

# A pipe gives the frames that a file gives.
ffmpeg -v error -i sim/clip.mp4 -f yuv4mpegpipe - | "$framehold" stabilize - --clip $metadata -o - -q >pipe.y4m ||
    fail "pipe"
"$framehold" stabilize --engine live sim/clip.mp4 -o lossless.mkv --encoder ffv1 --export-path path.csv -q ||
    fail "lossless"
[ "$(frames pipe.y4m)" = "$(frames lossless.mkv)" ] || fail "the pipe's frames differ"
for container in matroska mpegts; do
    ffmpeg -v error -i sim/clip.mp4 -c copy -f $container - | stabilize - --clip $metadata -o piped.mkv \
        --overwrite -q && [ "$(frames piped.mkv | wc -l)" = 30 ] || fail "$container from a pipe"
done
# A log that can be read only once.
"$framehold" stabilize sim/clip.mp4 -m <(cat sim/imu.gcsv) --focal 300 -o piped.mkv --overwrite -q || fail "log from a pipe"
[ "$(wc -l <path.csv)" = 31 ] && ! grep -q ,, path.csv || fail "path.csv: $(head -3 path.csv)"

# Pictures in numbered files give the frames of the video that they were; all are inputs.
ffmpeg -v error -i sim/clip.mp4 -pix_fmt bgr0 -c:v ffv1 rgb.avi
mkdir '50%d' && (cd '50%d' && ffmpeg -v error -i ../rgb.avi -start_number 7 f-%03d.png) && cp sim/imu.gcsv '50%d/f.gcsv'
camera="--focal 300 --time-offset 0 --readout 0 --encoder ffv1 -q --overwrite"
for engine in live offline; do
    # shellcheck disable=SC2086
    "$framehold" stabilize rgb.avi -m sim/imu.gcsv --engine $engine $camera -o lossless.mkv || fail "rgb.avi"
    # shellcheck disable=SC2086
    "$framehold" stabilize '50%d/f-%03d.png' --fps 30 --engine $engine $camera -o '50%d/f.mkv' || fail "pictures"
    [ "$(frames '50%d/f.mkv')" = "$(frames lossless.mkv)" ] || fail "$engine: the pictures' frames differ"
done
[ "$(of '50%d/f.mkv' stream=r_frame_rate)" = 30/1 ] || fail "the pictures' rate"
cp '50%d/f-007.png' '50%d/lone-%d.png'
while IFS='|' read -r code text command; do
    expect "$code" "$text" eval "$command"
done <<'END'
0|1 frame in, 1 out|stabilize '50%d/lone-%d.png' --no-motion --focal 300 -o lone.mkv
0|stability|"$framehold" measure '50%d/f-%03d.png' rgb.avi --fps 30 -q
0|samples       30 in 966.7 ms|"$framehold" inspect '50%d/f-%03d.png' --fps 30 --focal 300 -q
0||"$framehold" compare '50%d/f-%03d.png' rgb.avi --fps 29.97 --picture pair.png -q
2|--fps: is needed for the image sequence 50%d/f-%03d.png|stabilize '50%d/f-%03d.png'
2|--fps: goes with image sequences only|"$framehold" measure rgb.avi --fps 30
2|there is no file or folder '50%d/g-%03d.png'|stabilize '50%d/g-%03d.png' --fps 30
2|there is no file '50%d/f-%2d.png'|"$framehold" measure '50%d/f-%2d.png' --fps 30
1|50%d/f-009.png is the input itself|"$framehold" stabilize '50%d/f-%03d.png' --fps 30 -o '50%d/f-009.png' --overwrite
1|50%d/f-009.png is the input itself|"$framehold" measure '50%d/f-%03d.png' --fps 30 --csv '50%d/f-009.png'
END
rm '50%d/f-020.png'
expect 1 "f-020.png is missing, and f-021.png is there" stabilize '50%d/f-%03d.png' --fps 30 -o gap.mkv
ln -s /dev/zero '50%d/f-020.png'
expect 1 "f-020.png is missing" "$framehold" measure '50%d/f-%03d.png' --fps 30

# Whatever else is in the file comes out as it went in; frames keep their times.
printf '1\n00:00:00,000 --> 00:00:01,000\nhello\n' >text.srt
printf ';FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/10\nSTART=0\nEND=7\ntitle=one\n' >chapter.txt
ffmpeg -v error -i sim/clip.mp4 -f lavfi -i sine=duration=1 -i text.srt -i chapter.txt \
    -map 0:v -map 1:a -map 2:s -map_metadata 3 -vf "select='not(eq(mod(n,5),3))',setsar=4/3" -vsync vfr \
    -pix_fmt yuv422p10le -c:v libx264 -preset ultrafast -color_range tv -colorspace bt709 \
    -color_primaries bt709 -color_trc bt709 -c:a aac -c:s mov_text whole.mp4
ffmpeg -v error -i whole.mp4 -map 0:v -map 0:a -map 0:s -c copy -metadata:s:v rotate=90 turned.mp4
expect 0 "come in as yuv422p10le" stabilize turned.mp4 --clip $metadata --engine live -o kept.mp4
entries=stream=codec_name,width,height,sample_aspect_ratio,color_range,color_space,color_primaries,\
color_transfer,nb_frames:stream_side_data=rotation:chapter=end_time:frame=pts_time
[ "$(of turned.mp4 $entries)" = "$(of kept.mp4 $entries)" ] ||
    fail "not kept: $(diff <(of turned.mp4 $entries) <(of kept.mp4 $entries))"
of kept.mp4 stream_side_data=rotation | grep -q 90 || fail "no rotation to keep"
for stream in a s; do
    [ "$(ffmpeg -v error -i turned.mp4 -map 0:$stream -c copy -f md5 -)" = \
        "$(ffmpeg -v error -i kept.mp4 -map 0:$stream -c copy -f md5 -)" ] || fail "stream $stream differs"
done
expect 0 "stream 2 (subtitle, mov_text) is left out" stabilize turned.mp4 --clip $metadata -o kept.mkv
expect 0 "rotation of the picture by 90 degrees is left out" stabilize turned.mp4 --overwrite --clip $metadata -o kept.mkv
stabilize turned.mp4 --clip $metadata --side-by-side --pixel-format yuv444p10le -q -o both.mp4
of both.mp4 stream=pix_fmt,width,height | grep -q ^644,180,yuv444p10le || fail "both.mp4: no such size or pixels"

# One colour stays that colour, in all kinds of pixels and sizes.
# colour "PIXEL FORMAT" RANGE SIZE NAME "WHAT COMES OUT" OPTIONS...
colour() {
    local format=$1 range=$2 size=$3 name=$4 expected=$5
    shift 5
    ffmpeg -v error -y -f lavfi -i "color=c=0xC85028:s=$size:d=0.2,format=gbrp" -vf "scale=out_range=$range:\
out_color_matrix=bt709,format=$format" -color_range $range -colorspace bt709 -c:v ffv1 colour.mkv
    stabilize colour.mkv --clip $metadata -q -o "$name" "$@" || fail "$format to $name"
    local got
    got=$(of "$name" stream=width,height,pix_fmt)
    [ "$got" = "$expected" ] || fail "$format to $name $*: $got"
    ffmpeg -v error -i "$name" -f rawvideo -pix_fmt rgb24 -vf "scale=in_color_matrix=bt709:sws_flags=accurate_rnd" - |
        python3 -c "
import sys
pixels = sys.stdin.buffer.read()
for i, level in enumerate((0xC8, 0x50, 0x28)):
    off = max(abs(v - level) for v in pixels[i::3])
    assert off <= 4, f'component {i} is off by {off}'" || fail "colour of $format to $name $*"
}
for engine in live offline; do
    colour yuv444p pc 257x131 full.mp4 257,131,yuvj444p --engine $engine --overwrite
done
colour yuv420p tv 257x131 odd.mp4 257,131,yuv444p
colour yuv420p tv 257x131 even.mp4 258,132,yuv420p --pixel-format yuv420p
colour yuv422p10le tv 256x130 ten.mkv 256,130,yuv422p10le
colour gbrp pc 256x130 rgb.mp4 256,130,yuv444p
# Encoders that print of themselves, or wait for frames.
for encoder in libx265 libsvtav1; do
    said=$(timeout -s KILL 200 "$framehold" stabilize sim/clip.mp4 -o piped.mkv --overwrite --encoder $encoder -q 2>&1)
    [ $? -eq 0 ] && [ -z "$said" ] || fail "$encoder: $said"
done
expect 2 "--encoder: FFmpeg here has no video encoder 'nope'" stabilize clip1 --encoder nope
expect 2 "--pixel-format: libx264 does not take 'yuv411p' but yuv420p" stabilize clip1 --pixel-format yuv411p
expect 2 "--preset: x.mp4: the encoder libx264 cannot be started" "$framehold" stabilize sim/clip.mp4 -o x.mp4 --preset nope
expect 2 "--axes: 'XYQ' is not one each of X, Y and Z" stabilize clip1 --axes XYQ
expect 2 "--preset: ffv1 has no such option" stabilize clip1 --encoder ffv1 -o x.mkv

# A result that cannot be is found before the frames, and even the log, are looked at.
ffmpeg -v error -i sim/clip.mp4 -pix_fmt yuv420p10le -c:v ffv1 -color_trc smpte2084 pq.mkv
for output in "pq.mp4 --encoder mpeg4:keeps 8 of 10 bits" "none/there.mp4:none/there.mp4: cannot be"; do
    # shellcheck disable=SC2086
    expect 1 "${output#*:}" "$framehold" stabilize pq.mkv --clip $metadata --time-offset 100 -o ${output%%:*}
done
expect 1 "timebase 1/90000 not supported" "$framehold" stabilize sim/clip.mp4 --time-offset 100 \
    --encoder mpeg4 -o clock.mp4

# A file that may not grow stands for a full disk; killed runs leave the temporary file at most.
full=$(ulimit -f 8; trap '' XFSZ; stabilize sim/clip.mp4 -o full-disk.mp4 -q 2>&1)
[ $? -eq 1 ] && [[ $full == *"full-disk.mp4: cannot be"*": File too large"* ]] || fail "full disk: $full"
# The input never ends, so that the signal comes in time.
for signal in TERM KILL; do
    rm -f endless && mkfifo endless && exec 9<>endless
    ffmpeg -v quiet -y -i sim/clip.mp4 -f yuv4mpegpipe endless 9>&- &
    "$framehold" stabilize - -m sim/imu.gcsv --focal 300 -q -o killed.mp4 <endless 2>said 9>&- &
    pid=$!
    while [ -z "$(ls | grep killed)" ] && kill -0 $pid 2>/dev/null; do sleep 0.01; done
    kill -$signal $pid
    wait $pid 2>/dev/null
    code=$?
    exec 9>&-
    [ $signal = KILL ] || { [ $code -eq 130 ] && grep -q interrupted said; } || fail "$signal: $code, $(cat said)"
    [ ! -e killed.mp4 ] || fail "$signal left killed.mp4"
done
rm -f killed.mp4.*.part
ls | grep -e part -e full-disk && fail "left behind"
[ $failures -eq 0 ]
