#!/bin/bash
# Runs a command and keeps what it prints as a dated file, docs/results/DATE-NAME.md, with the
# commit, the machine and the command (of absolute paths the last part). A file of the same name and
# day is replaced.
# Usage: record.sh NAME COMMAND [ARGUMENT...]     in the root of the project
set -euo pipefail
name=$1
shift
cd "$(dirname "$0")/.."
file=docs/results/$(date +%F)-$name.md
mkdir -p docs/results

commit=$(git describe --always --dirty)
processor=$(lscpu | sed -n 's/^Model name: *//p' | head -n 1)
compiler=$(c++ --version | head -n 1)

output=$(mktemp)
trap 'rm -f "$output"' EXIT
"$@" | tee "$output"
{
    printf '# %s, %s\n\n' "$name" "$(date +%F)"
    printf -- '- commit %s\n' "$commit"
    printf -- '- %s, %s processors; %s\n' "${processor:-unknown processor}" "$(nproc)" "$compiler"
    printf -- '- `%s`\n\n' "$(sed -E 's#(^| )/[^ ]*/#\1#g' <<<"$*")"
    printf '```\n'
    cat "$output"
    printf '```\n'
} >"$file"
echo "written: $file"
