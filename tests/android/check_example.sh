#!/bin/sh
# Compiles the Java example of docs/android.md against the binding.
# Usage: check_example.sh JAVAC JAR DOCUMENT
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n '/^```java$/,/^```$/p' "$3" | grep -v '^```' >"$work/SteadyCamera.java"
"$1" -Xlint:all -Werror -cp "$2" -d "$work" "$work/SteadyCamera.java"
[ -f "$work/SteadyCamera.class" ] || { echo "$3 has no example"; exit 1; }
