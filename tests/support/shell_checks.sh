# What the shell tests of the program start and check with; to be sourced. The program is the first
# argument, `work` a folder that is removed afterwards. A test ends well if `failures` is still 0.
# shellcheck shell=bash disable=SC2034
set -u
framehold=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# expect CODE "TEXT" COMMAND...: the command's exit code, and a text that it prints.
expect() {
    local code=$1 text=$2
    shift 2
    local printed
    printed=$("$@" 2>&1 </dev/null)
    local got=$?
    [ $got -eq "$code" ] || fail "$* ended with $got, expected $code: $printed"
    [[ $printed == *"$text"* ]] || fail "$* did not say '$text': $printed"
}
