#!/bin/bash
# Makes a report of a simulated clip, and opens it in a real browser. Exit code 77: skipped.
# Usage: report_page_test.sh FRAMEHOLD WORK_FOLDER
set -eu
framehold=$(realpath "$1")
work=$2
here=$(cd "$(dirname "$0")" && pwd)
skip() {
    echo "SKIPPED: the report in a browser: $*"
    exit 77
}
browser=$(command -v chromium) || skip "there is no chromium"
command -v npm >/dev/null || skip "there is no npm"
mkdir -p "$work"
cp "$here"/browser/{package.json,package-lock.json,.npmrc,report_page_test.mjs} "$work"
cd "$work"
if ! cmp -s package-lock.json node_modules/installed; then
    npm ci --ignore-scripts --no-audit --no-fund --fetch-retries=1 >npm.log 2>&1 || skip "npm ci: $(tail -3 npm.log)"
    cp package-lock.json node_modules/installed
fi

# A log that ends early, so that frames have no orientation, which may cost steadiness; names and header lines that could end a
# script, start a comment in it or be taken for code.
"$framehold" simulate sim -q --overwrite --size 640x360 --focal 500 --duration 3 --pan 15 --pan-period 6
rm -rf odd && mkdir odd
log=$'odd/<!--<script>alert(1)&lt;\xe2\x80\xa8\xff.gcsv'
clip='odd/<img src=x onerror=alert(2)>.mp4'
awk -F, '/^version/ { print; print "</script><script>alert(3)</script><!--,1"; next }
    !/^[0-9]/ || $1 < 2400000' sim/imu.gcsv >"$log"
cp sim/clip.mp4 "$clip"
"$framehold" stabilize "$clip" -m "$log" --engine live --focal 500 --readout 0.0299 -q --overwrite \
    -o 'odd/steady<svg onload=alert(4)>.mp4' --save-run run.json 2>/dev/null || [ $? -eq 3 ]
sed 's,"notes":\[,"notes":["</script><b>odd</b>"\,"<!-- <script> ]]> \&amp; \xe2\x80\xa9"\,,' run.json >odd_run.json
"$framehold" report "$clip" 'odd/steady<svg onload=alert(4)>.mp4' --run odd_run.json -q --overwrite -o report.html
node report_page_test.mjs "$browser" report.html report.png
