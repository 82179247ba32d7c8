#!/bin/bash
# Checks what the desktop program says of itself: help that fits a screen, manual pages and shell
# completions that have the same options, and errors that suggest what was meant.
# Usage: command_line_test.sh FRAMEHOLD MANUAL_PAGES_SCRIPT
. "$(dirname "$0")/../support/shell_checks.sh"
make_pages=$2
skipped=0

commands=$("$framehold" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 5 ] || fail "commands found in the help: $commands"

for shell in bash zsh fish; do
    "$framehold" completion $shell >"$work/$shell" || fail "completion $shell"
    $shell -n "$work/$shell" || fail "$shell refuses its completions"
done
if command -v help2man >/dev/null; then
    # The date is the one given, wherever and whenever the pages are made.
    SOURCE_DATE_EPOCH=0 TZ=America/New_York "$make_pages" "$framehold" "$work" || fail "manual pages"
    for page in framehold $(printf 'framehold-%s ' $commands); do
        said=$(groff -ww -man -Tutf8 -z "$work/$page.1" 2>&1)
        [ -z "$said" ] || fail "$page.1: $said"
        grep -q "^\.TH ${page^^} \"1\" \"January 1970\" \"framehold [0-9.]*\"" "$work/$page.1" ||
            fail "$page.1: title $(grep '^\.TH' "$work/$page.1")"
        for section in SYNOPSIS DESCRIPTION OPTIONS; do
            grep -q "^\.SH $section" "$work/$page.1" || fail "$page.1 has no section $section"
        done
    done
else
    echo "help2man is missing: manual pages are not checked"
    skipped=77
fi

# options_in FORM COMMAND: names of its options as help, the manual page or a shell has them.
options_in() {
    case $1 in
    help) "$framehold" "$2" --help-all | grep -o '^  -[-a-z, ]*' | tr -d ' ' | tr , '\n' ;;
    manual) sed -n '/^\.TP/{n; s/\\-/-/g; s/^\\fB-/\\fB-/p}' "$work/framehold-$2.1" |
        grep -o 'fB-[-a-z]*' | cut -c 3- ;;
    bash) sed -n "s/^ *$2) options=\"\([^\"]*\)\".*/\1/p" "$work/bash" | tr ' ' '\n' ;;
    zsh) sed -n "/^ *$2)/,/;;/s/^ *'\(-[-a-z]*\)=\?\[.*/\1/p" "$work/zsh" ;;
    fish) sed -n "/_from $2'/s/ -d .*//p" "$work/fish" | grep -o ' -[sl] [-a-z]*' |
        sed 's/ -s /-/; s/ -l /--/' ;;
    esac | sort
}

for command in $commands; do
    "$framehold" "$command" --help >"$work/help" || fail "$command --help"
    lines=$(wc -l <"$work/help")
    columns=$(awk '{ if (length > n) n = length } END { print n }' "$work/help")
    [ "$lines" -le 48 ] && [ "$columns" -le 80 ] || fail "$command --help: $lines x $columns"
    grep -q '^Examples:' "$work/help" || fail "$command --help has no example"
    options_in help "$command" >"$work/options"
    grep -qx -e --help "$work/options" || fail "$command --help-all: $(cat "$work/options")"
    for form in $([ $skipped -ne 0 ] || echo manual) bash zsh fish; do
        diff "$work/options" <(options_in $form "$command") || fail "$command: help and $form differ"
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
[ "$(completed framehold stabilize --fov-across = d)" = diagonal ] || fail "bash: --fov-across=d"
[ "$(completed framehold stabilize --fov-across =)" = "width height diagonal" ] ||
    fail "bash: --fov-across="
[ "$(completed framehold completion z)" = zsh ] || fail "bash: completion z"
# fish_offers LINE: the words that fish offers for the end of a line.
fish_offers() {
    fish --no-config -c "source $work/fish; complete -C '$1'" | cut -f 1 | tr '\n' ' '
}
[ "$(fish_offers 'framehold stabilize --fov-a')" = "--fov-across " ] || fail "fish: --fov-a"
[ "$(fish_offers 'framehold stabilize --fov-across d')" = "diagonal " ] || fail "fish: --fov-across d"
[ "$(fish_offers 'framehold completion z')" = "zsh " ] || fail "fish: completion z"

expect 2 "stabilise: there is no such command; did you mean stabilize?" "$framehold" stabilise
expect 2 "--focl: there is no such option; did you mean --focal?" "$framehold" stabilize "$0" --focl=900
expect 2 "--crop: '0' is not a whole number from 1 to 100" "$framehold" stabilize "$0" --crop 0
for option in "--horizon lock" "--crop auto" "--zoom dynamic"; do
    # shellcheck disable=SC2086
    expect 2 "${option/ lock/}: goes with --engine offline only" \
        "$framehold" stabilize "$0" $option --engine live
done
expect 2 "a command is missing" "$framehold"
expect 2 "CLIP: there is no file '-x.mp4'" "$framehold" measure -- -x.mp4
expect 2 ": there is no such command" "$framehold" ""
[ $failures -eq 0 ] || exit 1
exit $skipped
