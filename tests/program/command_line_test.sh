#!/bin/bash
# Checks what the desktop program says of itself: help that fits a screen, a manual page and shell
# completions that know every option, and errors that suggest what was meant.
# Usage: command_line_test.sh FRAMEHOLD
set -u
. "$(dirname "$0")/../support/shell_checks.sh"
framehold=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

commands=$("$framehold" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 5 ] || fail "commands found in the help: $commands"

"$framehold" manual >"$work/framehold.1" || fail "manual"
said=$(groff -ww -man -Tutf8 -z "$work/framehold.1" 2>&1)
[ -z "$said" ] || fail "manual: $said"
for shell in bash zsh fish; do
    "$framehold" completion $shell >"$work/$shell" || fail "completion $shell"
    $shell -n "$work/$shell" || fail "$shell refuses its completions"
done

for command in $commands; do
    "$framehold" "$command" --help >"$work/help" || fail "$command --help"
    lines=$(wc -l <"$work/help")
    columns=$(awk '{ if (length > n) n = length } END { print n }' "$work/help")
    [ "$lines" -le 48 ] && [ "$columns" -le 80 ] || fail "$command --help: $lines x $columns"
    grep -q '^Examples:' "$work/help" || fail "$command --help has no example"
    for option in $("$framehold" "$command" --help-all | grep -o -e '^  \(-., \)\?--[a-z-]*' |
        grep -o -e '--[a-z-]*'); do
        grep -q -e "${option//-/\\\\-}\\>" "$work/framehold.1" || fail "$command $option: not in the manual"
        grep -q -e "$command.*$option" "$work/bash" || fail "$command $option: not known to bash"
        grep -q -e "$command.*-l ${option#--} " "$work/fish" || fail "$command $option: not known to fish"
        grep -q -e "'$option\[" "$work/zsh" || fail "$command $option: not known to zsh"
    done
done

# completed WORDS...: what bash offers for the last of the words.
completed() {
    bash -c '. "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _framehold; echo "${COMPREPLY[*]}"' \
        "$work/bash" "$@"
}
[ "$(completed framehold stab)" = stabilize ] || fail "bash: stab"
[ "$(completed framehold stabilize --foc)" = --focal ] || fail "bash: --foc"
[ "$(completed framehold stabilize --fov-across h)" = height ] || fail "bash: --fov-across h"
[ "$(completed framehold completion z)" = zsh ] || fail "bash: completion z"

expect 2 "stabilise: there is no such command; did you mean stabilize?" "$framehold" stabilise
expect 2 "--focl: there is no such option; did you mean --focal?" "$framehold" stabilize "$0" --focl=900
expect 2 "--crop: Value 0 not in range 1 to 100" "$framehold" stabilize "$0" --crop 0
expect 2 "A subcommand is required" "$framehold"
[ $failures -eq 0 ]
