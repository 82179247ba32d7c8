#!/bin/sh
# Prints how fast frames of 1280x720 go through the Java binding, beside C, with no and with 15 frames
# of delay. Wants the release build with its tests.
# Usage: java_times.sh [ROUNDS]
set -eu
cd "$(dirname "$0")/../build/release"
for delay in 0 15; do
    java -Djava.library.path=. -cp framehold.jar:tests/android/framehold_java_tests.jar \
        zpr.framehold.JniTimes ./reference_run $delay "${1:-301}"
done
