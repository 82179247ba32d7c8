#!/bin/bash
# Runs the pipelines of docs/gstreamer.md on simulated clips, with GStreamer's search for leaks; and
# compares what the element makes of a real clip with what the program does.
# Usage: pipelines_test.sh FRAMEHOLD PLUGIN DOCUMENT CLIPS
. "$(dirname "$0")/../support/shell_checks.sh"
document=$3
clips=$4
for program in gst-launch-1.0 gst-inspect-1.0 ffmpeg python3; do
    command -v $program >/dev/null || { echo "$program is missing"; exit 77; }
done
GST_PLUGIN_PATH=$(dirname "$2")
export GST_PLUGIN_PATH
export GST_REGISTRY=$work/registry
for element in decodebin qtdemux vp8enc webmmux avdec_h264; do
    gst-inspect-1.0 --exists $element || { echo "SKIPPED: $element is missing"; exit 77; }
done
gst-inspect-1.0 framehold | grep -q 'Klass *Filter/Effect/Video' || fail "gst-inspect-1.0"

cd "$work" || exit 1
"$framehold" simulate -q simulated --size 256x144 --focal 1150 --shake 0.3 --pan 0 --duration 2 ||
    exit 1
cp simulated/clip.mp4 walk.mp4
cp simulated/imu.gcsv walk.gcsv
sed 's/clip\.mp4/walk.mp4/; s/imu\.gcsv/walk.gcsv/' simulated/clip.json >walk.json
python3 -c '
import math, struct, sys
for i in range(800):
    if i % 8 == 0:
        sys.stdout.buffer.write(struct.pack("<IId4d", 1, 0, i / 400, 9.81, 0, 0, 0))
    sys.stdout.buffer.write(struct.pack("<IId4d", 3, 0, i / 400, 0, 0.1 * math.sin(i / 20), 0, 0))
' >walk.motion

# Lines of the document that begin with the program, those that go on joined.
count=0
while read -r pipeline; do
    count=$((count + 1))
    pipeline=${pipeline//autovideosink/fakesink sync=false}
    GST_TRACERS=leaks GST_DEBUG=GST_TRACER:7 GST_DEBUG_NO_COLOR=1 timeout 60 \
        bash -c "$pipeline" >log 2>&1 || fail "$pipeline: $(tail -n 3 log)"
    grep -q 'WARNING: from element.*framehold' log && fail "$pipeline warns: $(cat log)"
    grep 'object-alive, type-name=(string)[^%]' log && fail "$pipeline leaks"
done < <(awk '/^    gst-launch/ || more { sub(/^ +/, ""); line = line $0
    more = sub(/\\$/, "", line); if (!more) { print line; line = "" } }' "$document")
[ $count -ge 5 ] || fail "$document has $count pipelines"
[ -s steady.webm ] || fail "no steady.webm"

# same VIDEO PROPERTIES OPTIONS: compares the frames of the element and of the program.
same() {
    local video=$1 properties=$2 options=${3:-}
    # Both are lists.
    # shellcheck disable=SC2086
    gst-launch-1.0 -q filesrc location="$video" ! decodebin ! videoconvert \
        ! framehold $properties ! videoconvert ! video/x-raw,format=I420 \
        ! filesink location=element.yuv >log 2>&1 || fail "$video: $(cat log)"
    # shellcheck disable=SC2086
    "$framehold" stabilize -q "$video" $options --engine live -o - 2>log |
        ffmpeg -loglevel error -f yuv4mpegpipe -i - -f rawvideo -y program.yuv
    local bytes
    bytes=$(stat -c %s program.yuv)
    [ "$bytes" -gt 0 ] || fail "$video: the program wrote nothing: $(cat log)"
    cmp element.yuv program.yuv || fail "$video: pixels are not the program's"
    echo "$video: $bytes bytes equal the program's, md5 $(md5sum <element.yuv | cut -d' ' -f1)"
}
# A clip.json of the video's name; an app's log with tables of frames; telemetry.
same walk.mp4 motion-from-video=true
mkdir app telemetry
cp walk.mp4 app/movie.mp4
"$framehold" convert -q walk.gcsv -o app/gyro_accel.csv || fail "convert"
awk -F, 'NR > 1 { printf "%d\n", ($2 + 0.0004) * 1e9 }' simulated/frames.csv >app/frame_timestamps.txt
awk -F, 'NR == 1 { print "time_ns,exposure_ns,readout_ns,fx[px],width" }
    NR > 1 { printf "%d,8000000,29900000,2300,512\n", ($2 + 0.0004) * 1e9 }' simulated/frames.csv \
    >app/movie_metadata.csv
same app/movie.mp4 motion-from-video=true
"$framehold" convert -q walk.gcsv --video walk.mp4 -o telemetry/walk.mp4 || fail "convert"
same telemetry/walk.mp4 "motion-from-video=true field-of-view=13" "--fov 13"
if [ -d "$clips/phone-walk" ]; then
    walk=$clips/phone-walk
    same "$walk/clip.mp4" "clip-file=$walk/clip.json" "--clip $walk/clip.json"
elif [ $failures -eq 0 ]; then
    echo "SKIPPED: $clips/phone-walk is missing"
    exit 77
fi
exit $((failures > 0))
