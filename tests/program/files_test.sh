#!/bin/bash
# Checks that no command of the desktop program loses a file: neither one that it reads, nor a result
# that is there, nor one of several runs at once; and what becomes of input that ends early.
# Usage: files_test.sh FRAMEHOLD REPORTS   (ON, or OFF if the program is built without)
. "$(dirname "$0")/../support/shell_checks.sh"
reports=$2
cd "$work" || exit 1

stabilize() { "$framehold" stabilize "$@" --preset ultrafast; }
measure() { "$framehold" measure "$@" -q; }
compare() { "$framehold" compare "$@" -q; }
simulate() { "$framehold" simulate "$@" --size 64x48 --focal 60 --duration 0.5 -q; }
frames() { ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 "$1"; }

simulate rec && mv rec/clip.mp4 rec/walk.mp4 && sed -i 's/clip.mp4/walk.mp4/' rec/clip.json
cp -r rec second
# A log in two files of which only one is named; names that lead to the same file.
mkdir halves && cp rec/walk.mp4 halves/a.mp4
sed -n '/^t,/,$p' rec/imu.gcsv | cut -d , -f 1-4 | sed '1s/.*/timestamp_us,gyro_x,gyro_y,gyro_z/' >halves/a_gyro.csv
sed -n '/^t,/,$p' rec/imu.gcsv | cut -d , -f 1,5-7 | sed '1s/.*/timestamp_us,accel_x,accel_y,accel_z/' >halves/a_accel.csv
ln rec/imu.gcsv rec/hard.gcsv && ln -s walk.mp4 rec/soft.mp4 && ln -s rec up
stabilize rec/walk.mp4 -o steady.mp4 --save-run run.json -q || fail "stabilize"
ffmpeg -v error -i rec/walk.mp4 -f yuv4mpegpipe pipe.y4m

# Each would lose a file that is read, or one of two results. Nothing may change, --overwrite or not.
hashes() { find . -type f ! -name '.*' -exec md5sum {} + | sort; }
hashes >../"${work##*/}.before"
before=../${work##*/}.before
trap 'rm -rf "$work" "$work.before"' EXIT
while IFS='|' read -r code text command; do
    [ -n "$command" ] || continue
    [[ $command == report* && $reports != ON ]] && continue
    command=${command/#report/"$framehold" report}
    command=${command/#calibrate/"$framehold" calibrate}
    for flag in "" --overwrite; do
        said=$(eval "$command $flag" 2>&1 </dev/null)
        got=$?
        [ $got -eq "$code" ] && [[ $said == *"$text"* ]] || fail "$command $flag: $got, $said"
        diff "$before" <(hashes) || fail "$command $flag: files have changed"
    done
done <<'END'
1|is the input itself|stabilize rec/walk.mp4 -o rec/walk.mp4
1|is the input itself (rec/walk.mp4)|stabilize rec/walk.mp4 -o rec/soft.mp4
1|is the input itself (rec/walk.mp4)|stabilize rec/walk.mp4 -o up/walk.mp4
1|--record-session: rec/walk.mp4 is the input itself|stabilize rec/walk.mp4 -o x.mp4 --record-session rec/walk.mp4
1|--export-path: rec/imu.gcsv is the input itself|stabilize rec/walk.mp4 -o x.mp4 --export-path rec/imu.gcsv
1|--export-path: rec/hard.gcsv is the input itself|stabilize rec/walk.mp4 -o x.mp4 --export-path rec/hard.gcsv
1|--save-run: rec/clip.json is the input itself|stabilize rec/walk.mp4 -o x.mp4 --save-run rec/clip.json
1|--save-run: up/frames.csv is the input itself|stabilize rec/walk.mp4 -o x.mp4 --save-run up/frames.csv
1|rec/imu.gcsv is the input itself|stabilize rec second -o '{folder}.mp4' --export-path '{folder}/imu.gcsv'
1|second/walk.mp4 is the input itself|stabilize rec/walk.mp4 second/walk.mp4 -o 'second/{name}.mp4'
1|standard output is the input itself|"$framehold" stabilize pipe.y4m --clip rec/clip.json -o - >>pipe.y4m
2|--export-path: ./x.mp4 is what --output writes, too|stabilize rec/walk.mp4 -o x.mp4 --export-path ./x.mp4
2|--save-run: up/../x.mp4 is what --output writes, too|stabilize rec/walk.mp4 -o x.mp4 --save-run up/../x.mp4
2|would be written for|stabilize rec second -o '{name}.mp4'
1|--csv: rec/walk.mp4 is the input itself|measure rec/walk.mp4 --csv rec/walk.mp4
2|--csv: a file is needed, not standard output|measure rec/walk.mp4 --csv -
2|--save-run: a file is needed|stabilize rec/walk.mp4 -o x.mp4 --save-run -
2|--save-settings: a file is needed|stabilize rec/walk.mp4 -o x.mp4 --save-settings -
2|--picture: a file is needed|"$framehold" compare rec/walk.mp4 steady.mp4 --picture -
2|--report: a file is needed|"$framehold" inspect rec/imu.gcsv --report -
1|--video: rec/walk.mp4 is the input itself|compare rec/walk.mp4 steady.mp4 --video rec/walk.mp4
1|--picture: steady.mp4 is the input itself|compare rec/walk.mp4 steady.mp4 --picture steady.mp4
2|--picture: x.mp4 is what --video writes, too|compare rec/walk.mp4 steady.mp4 --video x.mp4 --picture x.mp4
1|--output: rec/walk.mp4 is the input itself|report rec/walk.mp4 steady.mp4 -o rec/walk.mp4
1|--output: run.json is the input itself|report rec/walk.mp4 steady.mp4 --run run.json -o run.json
1|--output: rec/imu.gcsv is the input itself|calibrate rec/walk.mp4 -o rec/imu.gcsv
1|--snippet: rec/frames.csv is the input itself|calibrate rec/walk.mp4 -o x.json --snippet rec/frames.csv
1|FOLDER: rec/imu.gcsv is the input itself|simulate rec --motion rec/imu.gcsv --from 1
END
# What can be found only in the log itself is in the way without --overwrite, too.
stabilize halves/a.mp4 -m halves/a_gyro.csv --focal 60 -o x.mp4 --export-path halves/a_accel.csv -q >said 2>&1 &&
    fail "the other half of a log"
expect 1 "halves/a_accel.csv is the input itself" stabilize halves/a.mp4 -m halves/a_gyro.csv --focal 60 \
    -o x.mp4 --export-path halves/a_accel.csv --overwrite
rm said
diff "$before" <(hashes) || fail "files have changed"

# What was only looked for is free.
expect 0 "" stabilize rec/walk.mp4 -o x.mp4 --save-run rec/walk.json
rm x.mp4 rec/walk.json

# Results that are there stay, unless they may be replaced; those that are may be written to stay so.
while read -r files; do
    eval "set -- $files"
    file=${!#}
    set -- "${@:1:$#-1}"
    rm -f "$file"
    expect 0 "" "$@"
    echo old >"$file"
    expect 1 "$file: is there already; --overwrite replaces it" "$@"
    [ "$(cat "$file")" = old ] || fail "$file was written"
    chmod 640 "$file" && mv "$file" real && ln -s "$PWD/real" "$file"
    expect 0 "$file is a link: $PWD/real is written" "$@" --overwrite
    [ -L "$file" ] && [ "$(stat -c %a real)" = 640 ] && [ "$(wc -c <real)" -gt 4 ] || fail "$file: $(stat real)"
    rm -f "$file" real
done <<'END'
stabilize rec/walk.mp4 -o x.mp4 x.mp4
"$framehold" compare rec/walk.mp4 steady.mp4 --video x.mp4 x.mp4
"$framehold" compare rec/walk.mp4 steady.mp4 --picture x.png x.png
"$framehold" measure rec/walk.mp4 --csv x.csv x.csv
END
expect 1 "rec/imu.gcsv and 4 more: are there already" simulate rec

# Special files are written to, and stay.
mkfifo fifo
cat fifo >drained &
stabilize rec/walk.mp4 -o x.mp4 --export-path fifo -q || fail "fifo"
wait $!
[ -p fifo ] && [ "$(wc -l <drained)" = 16 ] || fail "fifo: $(ls -l fifo drained)"
rm x.mp4
stabilize rec/walk.mp4 -o x.mp4 --export-path /dev/null --save-run /dev/null -q || fail "/dev/null"
[ -c /dev/null ] || fail "/dev/null is gone"

# A folder run takes no results, under whatever names; named ones take a flag.
mkdir shelf && cp rec/walk.mp4 rec/imu.gcsv rec/frames.csv rec/clip.json shelf
for container in mp4 mov mkv avi ts flv; do
    stabilize shelf/walk.mp4 -o shelf/one.$container -q 2>said || fail "$container: $(cat said)"
done
"$framehold" stabilize shelf/walk.mp4 -o shelf/one.webm -q || fail webm
compare shelf/walk.mp4 shelf/one.mp4 --video shelf/both.mp4
[ "$(ls shelf | wc -l)" = 12 ] || fail "shelf: $(ls shelf)"
stabilize shelf -o 'again/{name}.{ext}' --json >again.json 2>/dev/null || fail "folder with results"
[ "$(ls again)" = walk.mp4 ] || fail "a folder run took results: $(ls again)"
expect 1 "shelf/one.mov: is a result itself" stabilize shelf/one.mov -m rec/imu.gcsv -o twice.mp4
expect 0 "" stabilize shelf/one.mov -m rec/imu.gcsv --focal 60 -o twice.mp4 --again

# A batch that goes on after a break: whole results stay as they are, others are in the way.
mkdir batch && for i in 1 2 3; do cp -r rec batch/$i && rm batch/$i/soft.mp4; done
stabilize batch/1 batch/2 -o 'done/{folder}.mp4' --export-path 'done/{folder}.csv' -q || fail "batch"
md5sum done/* >done.sums
stabilize batch -o 'done/{folder}.mp4' --export-path 'done/{folder}.csv' --skip-existing --json >skip.json 2>said ||
    fail "--skip-existing: $(cat said)"
md5sum --quiet -c done.sums || fail "--skip-existing wrote results again"
[ "$(frames done/3.mp4)" = 15 ] || fail "--skip-existing left clip 3 out"
grep -q '"skipped": 2' skip.json && grep -q '"status": "skipped"' skip.json && grep -q '"done": 1' skip.json ||
    fail "skip.json: $(cat skip.json)"
expect 1 "done/1.mp4 and 5 more: are there already" stabilize batch -o 'done/{folder}.mp4' --export-path 'done/{folder}.csv'
expect 2 "--skip-existing" stabilize batch -o 'done/{folder}.mp4' --overwrite --skip-existing
size=$(stat -c %s done/2.mp4)
truncate -s $((size - size / 4)) done/2.mp4
expect 1 "done/2.mp4: is there, but is no complete video" stabilize batch -o 'done/{folder}.mp4' --skip-existing
rm done/2.mp4
expect 1 "done/2.csv: is there, but not done/2.mp4" stabilize batch -o 'done/{folder}.mp4' \
    --export-path 'done/{folder}.csv' --skip-existing

# Two runs at once: one whole result and one error, and with --overwrite as well.
for flag in "" --overwrite; do
    for i in 1 2 3 4 5; do
        rm -f race.mp4
        [ -z "$flag" ] || cp steady.mp4 race.mp4
        for run in a b; do
            { stabilize rec/walk.mp4 -o race.mp4 -q $flag 2>said.$run; echo $? >code.$run; } &
        done
        wait
        # Where one was through before the other began, it may be replaced.
        codes=$(cat code.a code.b | sort | tr -d '\n')
        [ "$codes" = 01 ] || [ "$flag$codes" = --overwrite00 ] || fail "race $flag: $codes, $(cat said.?)"
        [ "$codes" = 00 ] || grep -q -e "another program has written it" -e "is there already" said.a said.b ||
            fail "race: $(cat said.?)"
        [ "$(frames race.mp4)" = 15 ] || fail "race: $(frames race.mp4) frames"
    done
done
ls | grep part && fail "left behind"

# Input that ends early: what is there is written, and the exit code and the JSON say so.
ffmpeg -v error -i rec/walk.mp4 -f lavfi -i sine=duration=0.5 -c:v copy -c:a aac -shortest sound.mp4
for container in mp4 mkv avi flv y4m; do
    ffmpeg -v error -y -i sound.mp4 -c:v copy $([ $container != y4m ] || echo -an -c:v wrapped_avframe) \
        -movflags +faststart whole.$container
    expect 0 "15 frames in, 15 out" stabilize whole.$container -m rec/imu.gcsv --focal 60 --overwrite -o cut-out.mp4
    head -c $(($(stat -c %s whole.$container) * 7 / 10)) whole.$container >cut.$container
    expect 3 "the input ends early" stabilize cut.$container -m rec/imu.gcsv --focal 60 --overwrite -o cut-out.mp4
    stabilize cut.$container -m rec/imu.gcsv --focal 60 --overwrite -o cut-out.mp4 --json 2>/dev/null >summary.json
    written=$(frames cut-out.mp4)
    [ "$written" -gt 2 ] && [ "$written" -lt 15 ] && grep -q "\"frames\": $written," summary.json &&
        grep -q '"status": "done with losses"' summary.json && grep -q '"with_losses": 1' summary.json ||
        fail "cut $container: $written frames, $(cat summary.json)"
done
while read -r arguments; do
    # shellcheck disable=SC2086
    expect 3 "the input ends early" "$framehold" $arguments
done <<END
measure whole.y4m cut.y4m
inspect cut.mkv -m rec/imu.gcsv --focal 60
compare whole.y4m cut.y4m --video compared.mkv --from 0 --frames 5
END
cp rec/imu.gcsv whole.gcsv && cp rec/imu.gcsv cut.gcsv
expect 3 "2 of 2 clips stabilized, 1 with losses" stabilize whole.mp4 cut.mp4 --focal 60 -o 'losses/{name}.mp4'
stabilize - -m rec/imu.gcsv --overwrite -o cut-out.mp4 <cut.y4m 2>said
[ $? -eq 3 ] && grep -q "the input ends early" said && grep -q "not compared with the motion log" said || fail "cut pipe: $(cat said)"

# What cannot be written to standard output is an error of every command.
while read -r command; do
    for end in ">/dev/full" ">&-" "| true"; do
        said=$(eval "{ { sleep 0.1; $command; } 2>&3; echo \$? >code; } $end" 3>&1)
            [ "$(cat code)" = 1 ] && [[ $said == *"cannot be written"* ]] || fail "$command $end: $(cat code) $said"
    done
done <<'END'
"$framehold" --help
"$framehold" stabilize --help-all
"$framehold" --version
"$framehold" completion bash
"$framehold" inspect rec/imu.gcsv
"$framehold" measure rec/walk.mp4 --json -q
"$framehold" stabilize rec/walk.mp4 -o - -q
stabilize rec/walk.mp4 -o cut-out.mp4 --overwrite -q --json
"$framehold" convert rec/imu.gcsv -o - --format csv -q
END
[ $failures -eq 0 ]
