#!/bin/bash
# Runs the job array of examples/fleet on a Slurm of its own: one node, this machine, with daemons
# that this test starts and ends, and all their files in a temporary folder.
# Usage: fleet_slurm_test.sh FRAMEHOLD EXAMPLES
. "$(dirname "$0")/../support/shell_checks.sh"
examples=$2
export PATH=$PATH:/usr/sbin FRAMEHOLD=$framehold
for program in munged slurmctld slurmd sbatch; do
    command -v $program >/dev/null || { echo "SKIPPED: $program (packages slurm-wlm, munge) is missing"; exit 77; }
done
cd "$work" || exit 1

daemons=()
# They end with this test, even if it is killed.
trap 'kill "${daemons[@]}" 2>/dev/null; wait; rm -rf "$work"' EXIT
start() {
    local log=$1
    shift
    setpriv --pdeathsig TERM "$@" >"$log" 2>&1 &
    daemons=("$!" "${daemons[@]}")
}

mkdir -m 700 munge state spool
(umask 077 && head -c 1024 /dev/urandom >munge/key)
for name in socket key-file log-file pid-file seed-file; do munge+=("--$name=$work/munge/${name%-file}"); done
ports=($(python3 -c 'import socket
sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(2)]
print(*(s.getsockname()[1] for s in sockets))'))
cat >slurm.conf <<CONF
ClusterName=fleet
SlurmctldHost=$(hostname -s)(127.0.0.1)
SlurmctldPort=${ports[0]}
SlurmdPort=${ports[1]}
SlurmUser=$(id -un)
SlurmdUser=$(id -un)
AuthType=auth/munge
AuthInfo=socket=$work/munge/socket
CredType=cred/munge
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
JobAcctGatherType=jobacct_gather/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SlurmdParameters=config_overrides
SchedulerParameters=batch_sched_delay=0,sched_interval=1
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
NodeName=$(hostname -s) NodeAddr=127.0.0.1 CPUs=2
PartitionName=all Nodes=ALL Default=YES State=UP
CONF
export SLURM_CONF=$work/slurm.conf
start munge.log munged --force --foreground "${munge[@]}"
for ((i = 0; i < 100; ++i)); do [ -S munge/socket ] && break || sleep 0.1; done
start slurmctld.log slurmctld -D
start slurmd.log slurmd -D
for ((i = 0; i < 300; ++i)); do sinfo -h -o %t 2>/dev/null | grep -q idle && break || sleep 0.1; done
[ $i -lt 300 ] || { fail "no node: $(tail -n 5 ./*.log)"; exit 1; }

# Six clips in folders; one is broken, one is long, another one no MP4.
"$framehold" simulate sim --size 160x90 --focal 150 --duration 1 -q || fail "simulate"
for i in 1 2 3 4; do mkdir -p clips/day$i && cp sim/clip.* sim/imu.gcsv clips/day$i; done
head -c 3000 sim/clip.mp4 >clips/day2/clip.mp4
ffmpeg -v error -i sim/clip.mp4 -c copy clips/day4/other.ts
ffmpeg -v error -stream_loop 300 -i sim/clip.mp4 -c copy clips/day4/long.mkv
"$examples/manifest.py" clips steady >manifest
cut -f 2 manifest | sed "s#$PWD/##" | tr '\n' ' ' | grep -qx "steady/day1/clip.mp4 steady/day2/clip.mp4 \
steady/day3/clip.mp4 steady/day4/clip.mp4 steady/day4/long.mkv steady/day4/other.ts.mp4 " || fail "$(cat manifest)"
(cd clips/day4 && touch double.avi double.avi.mp4)
expect 1 "would be written for" "$examples/manifest.py" clips steady
rm clips/day4/double*

# array TASKS: runs them. ended: waits for them; their numbers with states and exit states.
array() {
    job=$(sbatch --parsable --array="$1" --output=task%a.log "$examples/slurm_array.sh" manifest 2 --preset ultrafast)
}
ended() {
    while squeue -h -j "$job" | grep -q .; do sleep 0.1; done
    scontrol show job -o "$job" | sed 's/.*ArrayTaskId=\([^ ]*\).* JobState=\([^ ]*\).* ExitCode=\([^ :]*\).*/\1 \2 \3/' |
        sort | paste -sd ,
}
results() { (cd steady && find . -type f -printf '%P %i %T@\n' | sort); }

# The task with the long clip is stopped in it; the broken clip's says so, and goes on.
array 0-2
for ((i = 0; i < 300; ++i)); do [ -e steady/day4/clip.mp4 ] && break || sleep 0.1; done
scancel "${job}_2"
states=$(ended)
[ "$states" = "0 FAILED 1,1 COMPLETED 0,2 CANCELLED 0" ] || fail "tasks: $states"
grep -q "task 0: 2 clips, 1 failed" task0.log && grep -q "day2/clip.mp4: " task0.log || fail "task 0: $(cat task0.log)"
[ "$(results | cut -d ' ' -f 1 | tr '\n' ' ')" = "day1/clip.mp4 day3/clip.mp4 day4/clip.mp4 " ] || fail "$(results)"
results >before
[ "$("$examples/manifest.py" clips steady --left | wc -l)" = 3 ] || fail "manifest.py --left"

# Once more: only what is missing is made.
cp sim/clip.mp4 clips/day2/
ffmpeg -v error -y -stream_loop 1 -i sim/clip.mp4 -c copy clips/day4/long.mkv
array 0,2
states=$(ended)
[ "$states" = "0 COMPLETED 0,2 COMPLETED 0" ] || fail "tasks: $states: $(cat task*.log)"
results >after
[ "$(wc -l <after)" = 6 ] && [ "$(comm -12 before after)" = "$(cat before)" ] || fail "made anew: $(diff before after)"
[ -z "$("$examples/manifest.py" clips steady --left)" ] || fail "clips are left"
[ $failures -eq 0 ]
