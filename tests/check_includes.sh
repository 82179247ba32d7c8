#!/bin/sh
# Fails if an include points back up the house: each folder may use only what stands below it.
# Usage: check_includes.sh SOURCE_ROOT
cd "$1" || exit 2
status=0

# allow FOLDER "FOLDERS IT MAY INCLUDE": those of src/, tools/ or the public header.
allow() {
    for file in $(find "$1" -name '*.h' -o -name '*.cpp'); do
        for header in $(sed -n 's/^ *# *include *"\([^"]*\)".*/\1/p' "$file"); do
            for target in $2 none; do
                case $header in "$target" | "$target"/*) break ;; esac
            done
            [ "$target" != none ] || { echo "$file: must not include $header"; status=1; }
        done
    done
}

public=zpr_framehold.h
allow include ""
allow src/math "math"
allow src/runtime "runtime"
allow src/sensors "sensors math $public"
allow src/smoothing "smoothing sensors math $public"
allow src/warp "warp runtime smoothing/frame_correction.h smoothing/shared_array.h math/matrix3.h $public"
allow src/api "api runtime warp smoothing sensors math $public"

allow tools/common "common"
allow tools/simulation "simulation"
allow tools/motion "motion media/telemetry_track.h common"
allow tools/session "session common $public"
allow tools/media "media common libavcodec libavformat libavutil libswscale"
allow tools/cli "cli common"
allow tools/analysis "analysis motion media common math sensors smoothing $public"
allow tools/report "report analysis media common math $public"
allow tools/framehold "framehold analysis cli math sensors smoothing simulation motion session media common libavutil $public report"

allow bench "bench api runtime warp smoothing sensors math $public"
allow fuzz "draw.h guarded_frame.h guarded_plane.h kernel_levels.h fault_gate.h checked_log.h temporary_folder.h warp runtime sensors motion session common $public"

# The rules above keep bench/ out of everything but the tests.
for file in $(grep -rlE '^ *# *include *["<](\.\./)*bench/' tests); do
    echo "$file: must not include from bench/"
    status=1
done

# A folder that no rule names could include anything.
for folder in src/* tools/* bench fuzz; do
    [ -d "$folder" ] || continue
    grep -q "^allow $folder " "$0" || { echo "$folder: no rule in $0"; status=1; }
done
exit $status
