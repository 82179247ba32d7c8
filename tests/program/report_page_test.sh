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

# A log that ends early, so that frames have no orientation; and a note that could end a script.
"$framehold" simulate sim -q --size 640x360 --focal 500 --duration 3 --pan 15 --pan-period 6
awk -F, '!/^[0-9]/ || $1 < 2400000' sim/imu.gcsv >short.gcsv
"$framehold" stabilize sim/clip.mp4 -m short.gcsv --focal 500 --readout 0.0299 -q \
    -o steady.mp4 --save-run run.json 2>/dev/null
sed 's,"notes":\[,"notes":["</script><b>odd</b>"\,,' run.json >odd_run.json
"$framehold" report sim/clip.mp4 steady.mp4 --run odd_run.json -q -o report.html
node report_page_test.mjs "$browser" report.html report.png
