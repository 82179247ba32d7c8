#!/bin/sh
# Fails on an include that the folder's build target does not declare.
# Usage: check_includes.sh SOURCE_ROOT RULES
# RULES: a file of lines "FOLDER NAMES...": the folders, or headers, that those in FOLDER and the
# folders below it may include.
cd "$1" || exit 2
rules=$2
status=0
[ -s "$rules" ] || { echo "$rules: no rules"; exit 2; }

# quoted FILE: what it includes in quotes, which only headers of this tree are.
quoted() { sed -n 's/^ *# *include *"\([^"]*\)".*/\1/p' "$1"; }

# rule FILE: the names that the rule of the nearest folder gives.
rule() {
    folder=$1
    while folder=$(dirname "$folder") && [ "$folder" != . ]; do
        sed -n "s|^$folder \(.*\)|\1|p" "$rules" | grep . && return
    done
}

for file in $(find include src toolkit program bindings plugins bench fuzz tests/support -name '*.h' -o -name '*.cpp'); do
    names=$(rule "$file")
    # A binding or plugin that this build leaves out has no rule.
    case $file in bindings/* | plugins/*) [ -n "$names" ] || continue ;; esac
    [ -n "$names" ] || { echo "$file: no folder above it is a build target with a rule"; status=1; }
    for header in $(quoted "$file"); do
        for name in $names none; do
            case $header in "$name" | "$name"/*) break ;; esac
        done
        [ "$name" != none ] || { echo "$file: must not include $header"; status=1; }
    done
done

# Nobody uses tests and benchmarks but themselves.
for file in $(grep -rlE '^ *# *include *["<](\.\./)*bench/' tests); do
    echo "$file: must not include from bench/"
    status=1
done
exit $status
