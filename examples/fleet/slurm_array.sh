#!/bin/bash
# Stabilizes the clips of a manifest (see manifest.py) as a Slurm job array. Task N takes the Nth
# part of the manifest, so that a task can be repeated alone; what is done is left out then.
# Usage: sbatch --array=0-LAST slurm_array.sh MANIFEST CLIPS_PER_TASK [OPTION OF framehold stabilize...]
# Exit code of a task: 0 all of its results are there; 1 clips failed; 3 the input of some had losses.
#SBATCH --job-name=framehold
#SBATCH --requeue
#SBATCH --open-mode=append
set -u
manifest=$1
clips_per_task=$2
shift 2
framehold=${FRAMEHOLD:-framehold}
first=$((SLURM_ARRAY_TASK_ID * clips_per_task + 1))
[ -r "$manifest" ] || { echo "$manifest: cannot be read"; exit 2; }

clips=0
failed=0
lossy=0
# The manifest has a number of its own, so that nothing else reads it.
while IFS=$'\t' read -r clip result <&3; do
    clips=$((clips + 1))
    mkdir -p "$(dirname "$result")"
    "$framehold" stabilize "$clip" -o "$result" --skip-existing --quiet "$@" 3<&- </dev/null
    code=$?
    case $code in
        0) ;;
        3) lossy=$((lossy + 1)) ;;
        1) failed=$((failed + 1)) ;;
        # Interrupted, or options that no clip can be stabilized with.
        *) echo "$clip: stopped with exit code $code"; exit $code ;;
    esac
done 3< <(sed -n "$first,$((first + clips_per_task - 1))p" "$manifest")
echo "task $SLURM_ARRAY_TASK_ID: $clips clips, $failed failed, $lossy had losses"
[ $failed -eq 0 ] || exit 1
[ $lossy -eq 0 ] || exit 3
