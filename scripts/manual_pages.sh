#!/bin/bash
# Writes manual pages of the desktop program and each of its commands, made of their help texts by
# help2man. The pages carry the date of the last commit, or the one in SOURCE_DATE_EPOCH, so that
# the same source makes the same pages.
# Usage: manual_pages.sh FRAMEHOLD FOLDER
set -euo pipefail
framehold=$1
folder=$2

source=$(dirname "$0")/..
# An archive is no clone; its files have the date of the commit.
: "${SOURCE_DATE_EPOCH:=$(git -C "$source" log -1 --format=%ct 2>/dev/null ||
    stat -c %Y "$source/CMakeLists.txt")}"
export SOURCE_DATE_EPOCH

version=$("$framehold" --version | cut -d ' ' -f 2)
commands=$("$framehold" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
mkdir -p "$folder"
rm -f "$folder"/framehold*.1
include=$(mktemp)
trap 'rm -f "$include"' EXIT

# The program's own page last: it is what the build waits for.
for command in $commands ""; do
    page=framehold${command:+-$command}
    # "Usage: framehold stabilize [OPTIONS] VIDEO..." and "Stabilize recorded clips."
    { read -r _ usage && read -r description; } < <("$framehold" $command --help)
    description=${description%.}
    {
        echo "[synopsis]"
        echo "$usage" | sed 's/[A-Z]\+/\\fI&\\fR/g; s/^\([a-z ]*\) /.B \1\n/'
        # Commands are not hyphenated, and lines not stretched.
        printf '[<description]\n.ad l\n.nh\n'
        echo "[see also]"
        for other in "" $commands; do
            [ "$other" = "$command" ] || echo ".BR framehold${other:+\\-$other} (1),"
        done | sed '$s/,$//'
    } >"$include"
    help2man --no-info --help-option=--help-all --include="$include" --name="${description,}" \
        --version-string="$page (framehold) $version" --output="$folder/$page.1" \
        "'$framehold' $command"
done
