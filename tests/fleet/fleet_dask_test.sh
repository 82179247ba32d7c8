#!/bin/bash
# Stabilizes a folder of clips with Dask, by examples/fleet: a scheduler and two workers, one of which
# is killed while it works at a clip. Nothing may be lost, and nothing made twice.
# Usage: fleet_dask_test.sh FRAMEHOLD EXAMPLES
. "$(dirname "$0")/../support/shell_checks.sh"
examples=$2
# Debian's: another Python in PATH has no packages of its.
python=/usr/bin/python3
$python -c 'import distributed' 2>/dev/null || { echo "SKIPPED: python3-distributed is missing"; exit 77; }
cd "$work" || exit 1
started=()
trap 'kill "${started[@]}" 2>/dev/null; wait; rm -rf "$work"' EXIT

# until_true COMMAND: waits for it, for half a minute.
until_true() {
    for ((try = 0; try < 300; ++try)); do eval "$1" && return || sleep 0.1; done
    fail "waited in vain for: $1; $(tail -n 20 ./*.log)"
    exit 1
}

"$framehold" simulate sim --size 160x90 --focal 150 --duration 1.2 -q || fail "simulate"
for i in 1 2 3 4 5 6 7 8; do mkdir -p clips/c$i && cp sim/clip.* sim/imu.gcsv clips/c$i; done
"$examples/manifest.py" clips steady >manifest

# Says which worker starts which result, and waits at the fifth clip's first start.
cat >logged_framehold <<END
#!/bin/bash
result=\$(sed 's/.* -o \([^ ]*\) .*/\1/' <<<"\$*")
echo "\$PPID \$\$ \$result" >>$work/starts
[[ \$result != */c5/* ]] || ! mkdir $work/first_c5 2>/dev/null || exec sleep 60
exec "$framehold" "\$@"
END
chmod +x logged_framehold
export FRAMEHOLD=$work/logged_framehold DASK_LOGGING__DISTRIBUTED=warning
# They end with this test, even if it is killed.
run="setpriv --pdeathsig TERM $python"
$run -m distributed.cli.dask_scheduler --host 127.0.0.1 --port 0 --no-dashboard --no-show \
    --scheduler-file scheduler.json >scheduler.log 2>&1 &
started+=($!)
until_true '[ -s scheduler.json ]'
for i in 1 2; do
    $run -m distributed.cli.dask_worker --scheduler-file scheduler.json --no-nanny --nthreads 1 \
        --no-dashboard --local-directory worker$i >worker$i.log 2>&1 &
    started+=($!)
done
address=$($python -c 'import json; print(json.load(open("scheduler.json"))["address"])')
stabilize() {
    $python "$examples/dask_manifest.py" "$address" manifest ledger --page page.html -- --preset ultrafast
}

stabilize >client.log 2>&1 &
client=$!
started+=($client)
until_true 'grep -q /c5/ starts 2>/dev/null'
read -r worker child _ < <(grep /c5/ starts)
[ "$worker" = "${started[1]}" ] || [ "$worker" = "${started[2]}" ] || { fail "$worker is no worker"; exit 1; }
# The page is there before the end, and whole.
until_true '[ -s ledger ] && grep -q "</html>" page.html 2>/dev/null'
kill -KILL "$worker"
until_true '! kill -0 $child 2>/dev/null'
wait $client || fail "exit code $?"

cat client.log
[ "$(sort -u -k 3 starts | wc -l) $(wc -l <starts)" = "8 9" ] || fail "not each clip once, c5 twice: $(cat starts)"
for i in 1 2 3 4 5 6 7 8; do
    [ "$(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 steady/c$i/clip.mp4)" = 36 ] ||
        fail "steady/c$i/clip.mp4 is not whole"
done
[ "$(find steady -type f | wc -l)" = 8 ] || fail "other files: $(find steady)"
counts() {
    $python -c 'import collections, json
entries = [json.loads(line) for line in open("ledger")]
print(*sorted(collections.Counter(e["status"] for e in entries).items()), len({e["clip"] for e in entries}))'
}
[ "$(counts)" = "('done', 8) 8" ] || fail "ledger: $(counts)"
for text in "8 of 8 clips: 8 done" ", workers: 1<" "src=\"data:image/jpeg;base64,/9j/"; do
    grep -q "$text" page.html || fail "the page does not say '$text': $(cut -c 1-300 page.html)"
done

# Once more, with a clip that is broken: the others stay as they are.
files() { find steady -type f -printf '%P %i %T@\n' | sort; }
before=$(files)
mkdir clips/c9 && head -c 3000 sim/clip.mp4 >'clips/c9/<b>.mp4'
"$examples/manifest.py" clips steady >manifest
stabilize >client.log 2>&1
[ $? -eq 1 ] && grep -q "c9/<b>.mp4: failed on .*holds no frames" client.log || fail "broken clip: $(cat client.log)"
grep -q "&lt;b&gt;.mp4: .*holds no frames" page.html || fail "the page's failure: $(cut -c 1-300 page.html)"
[ "$(counts)" = "('done', 8) ('failed', 1) ('skipped', 8) 9" ] || fail "ledger: $(counts)"
[ "$(files)" = "$before" ] || fail "made anew: $(diff <(files) <(echo "$before"))"
[ $failures -eq 0 ]
