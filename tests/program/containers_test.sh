#!/bin/bash
# Prints what becomes of streams in each container, as the table of docs/video.md, and compares it
# with that. A stream that is neither kept nor said to be left out is an error.
# Usage: containers_test.sh FRAMEHOLD DOCUMENT
set -eu
framehold=$(realpath "$1")
document=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
containers="mp4 mov mkv webm"

# Sources: each kind of stream is in one of them.
picture() { echo "-f lavfi -i testsrc2=size=192x128:rate=15:duration=0.4"; }
printf '1\n00:00:00,050 --> 00:00:00,300\nHello\n' >text.srt
printf 'a font, for all that is known' >some.ttf
printf 'anything' >notes.bin
head -c 400 /dev/urandom >log.bin
# make_mett FROM TO: a GPMF track becomes timed metadata, whose type stands in its sample entry.
make_mett() {
    python3 - "$1" "$2" <<'END'
import struct, sys
data = open(sys.argv[1], "rb").read()
texts = b"\0application/gyro\0"

def grown(start, end, path):
    """The boxes of a part of the file, those on the path to the sample entry with the texts added."""
    result = b""
    while start < end:
        size, kind = struct.unpack(">I4s", data[start:start + 8])
        content = data[start + 8:start + size]
        inside = data[start:start + size].find(b"stsd") >= 0 and b"gpmd" in content
        if kind == b"stsd" and b"gpmd" in content:
            entry = content[8:24].replace(b"gpmd", b"mett") + texts
            content = content[:8] + struct.pack(">I", len(entry)) + entry[4:]
        elif kind == path[0] and inside:
            content = grown(start + 8, start + size, path[1:])
        result += struct.pack(">I", len(content) + 8) + kind + content
        start += size
    return result

moov = data.rindex(b"moov") - 4
path = [b"moov", b"trak", b"mdia", b"minf", b"stbl", b""]
open(sys.argv[2], "wb").write(data[:moov] + grown(moov, len(data), path))
END
}
# shellcheck disable=SC2046
{
    ffmpeg -v error $(picture) -frames:v 1 cover.jpg
    ffmpeg -v error $(picture) -f lavfi -i sine=duration=0.4 -i text.srt -map 0 -map 1 -map 2 -c:v libx264 -preset ultrafast -c:a aac \
        -c:s subrip -attach some.ttf -metadata:s:3 mimetype=application/x-truetype-font -attach notes.bin \
        -metadata:s:4 mimetype=application/octet-stream -attach cover.jpg -metadata:s:5 mimetype=image/jpeg \
        -metadata:s:5 filename=cover.jpg a.mkv
    ffmpeg -v error $(picture) -i text.srt -f data -i log.bin -map 0 -map 1 -map 2 -c:v libx264 -preset ultrafast -c:s mov_text -c:d copy \
        -tag:d gpmd -timecode 01:02:03:04 b.mov
    sed 's/gpmd/camm/g' b.mov >c.mov
    make_mett b.mov e.mov
    ffmpeg -v error $(picture) -pix_fmt yuv420p10le -c:v libx265 -preset ultrafast -color_trc smpte2084 -color_primaries bt2020 \
        -colorspace bt2020nc -x265-params "log-level=none:hdr10=1:max-cll=1000,400:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)" d.mkv
}

# Turned recordings are compared as players show them, which ffmpeg's own turning stands for.
for angle in 90 180 270; do
    ffmpeg -v error -y -i b.mov -map 0:v -c copy -metadata:s:v rotate=$angle turned.mp4
    "$framehold" compare turned.mp4 turned.mp4 -q --overwrite --video pair.mp4
    psnr=$(ffmpeg -i turned.mp4 -i pair.mp4 -lavfi '[1]crop=(iw-4)/2:ih:0:0[left];[0][left]psnr' -f null - 2>&1 |
        sed -n 's/.*average:\([0-9]*\).*/\1/p')
    [ "${psnr:-0}" -ge 30 ] || { echo "turned by $angle degrees: $psnr dB from upright"; exit 1; }
done

# What the encoder does not know or take is refused before the clip is read.
while IFS='|' read -r text options; do
    # shellcheck disable=SC2086
    said=$("$framehold" stabilize a.mkv $options --no-motion --focal 200 -o refused.mp4 2>&1) && { echo "$options: taken"; exit 1; }
    [[ $said == *"$text"* && $said != *analysing* ]] || { echo "$options: $said"; exit 1; }
done <<'END'
--encoder-option nonsense: libx264 has no such option|--encoder-option bf=0 --encoder-option nonsense=1
to value abc|--encoder-option crf=abc
'crf' is not KEY=VALUE|--encoder-option crf
END

for container in $containers; do
    fast="--preset ultrafast"
    [ "$container" = webm ] && fast="--encoder-option deadline=realtime --encoder-option cpu-used=8"
    # shellcheck disable=SC2086
    "$framehold" stabilize a.mkv b.mov c.mov d.mkv e.mov -j 2 --no-motion --focal 200 --readout 0 --crop 90 $fast \
        -q -o "$container/{name}.$container" 2>"$container.log" || [ $? -eq 3 ] ||
        { cat "$container.log"; exit 1; }
done

# What ffprobe shows of each result, a line for each stream and for a frame.
for result in */*; do
    ffprobe -v error -read_intervals %+#1 -show_streams -show_format -show_frames -select_streams v:0 -of compact "$result" \
        >"$result.txt"
    ffprobe -v error -show_streams -of compact "$result" >>"$result.txt"
done

# kind | source | what ffprobe shows of it | what the warning names
rows='sound (AAC)|a|codec_name=aac|audio, aac
subtitles (SubRip)|a|codec_name=subrip|subtitle, subrip
subtitles (MOV text)|b|codec_name=mov_text|subtitle, mov_text
font as an attachment|a|filename=some.ttf|attachment, some.ttf
any file as an attachment|a|filename=notes.bin|attachment, notes.bin
cover picture|a|mjpeg.*attached_pic=1|video, mjpeg
time code|b|timecode=01:02:03:04|tmcd
GPMF motion log|b|codec_tag_string=gpmd|data, gpmd
CAMM motion log|c|codec_tag_string=camm|data, camm
timed metadata of sensors|e|codec_tag_string=mett|data, mett) is left out: its motion
mastering display, light levels|d|Mastering|HDR'

failed=0
table="| kind | ${containers// / | } |"$'\n'"|---|---|---|---|---|"
while IFS='|' read -r kind source shows names; do
    line="| $kind |"
    for container in $containers; do
        result=LOST
        if grep -Eqi "$shows" "$container/$source.$container.txt"; then
            result=kept
        elif grep -E "^$source\.[a-z]*: warning:" "$container.log" | grep -Fq "$names"; then
            result="left out, said"
        fi
        [ "$result" != LOST ] || failed=1
        line+=" $result |"
    done
    table+=$'\n'"$line"
done <<<"$rows"
echo "$table"
[ $failed -eq 0 ] || { tail -n 20 ./*.log; exit 1; }
diff <(echo "$table") <(sed -n '/^| kind | mp4/,/^$/p' "$document" | sed '/^$/d') || { echo "$document: not the table above"; exit 1; }
