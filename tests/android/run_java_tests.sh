#!/bin/sh
# Runs the binding's tests with the checks of JNI's use. Fails if a test fails, or these checks
# report.
# Usage: run_java_tests.sh JAVA CLASSPATH LIBRARY_FOLDER REFERENCE_RUN
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$4" >"$work/checksums"
status=0
"$1" -Xcheck:jni -Djava.library.path="$3" -Dframehold.checksums="$work/checksums" -cp "$2" \
    org.junit.platform.console.ConsoleLauncher --disable-banner --disable-ansi-colors \
    --details=tree --fail-if-no-tests --scan-classpath "${2%%:*}" >"$work/output" 2>&1 || status=$?
cat "$work/output"
if grep -E 'WARNING|FATAL ERROR|in native method' "$work/output"; then
    echo "JNI is used wrongly"
    status=1
fi
exit $status
