#!/bin/sh
# Fails when programs that were linked with the library before would not work with it any more:
# other exported names or versions of them, other records, other constants. Fails on an executable
# stack, too.
# Usage: check_abi.sh NM READELF LIBRARY BASELINE LAYOUT_PROGRAM [ARGUMENT...]
# LAYOUT_PROGRAM: abi_layout.c, compiled; may be an emulator, with the program as its argument.
nm=$1 readelf=$2 library=$3 baseline=$4
shift 4
actual=$(
    "$nm" -D --defined-only "$library" | awk '{ print $NF }' | LC_ALL=C sort || exit
    "$@" || exit
)
printf '%s\n' "$actual" | diff "$baseline" - || {
    echo "<: $baseline, >: this build"
    exit 1
}
"$readelf" -lW "$library" | grep -q GNU_STACK || { echo "$library: no GNU_STACK"; exit 1; }
if "$readelf" -lW "$library" | grep GNU_STACK | grep -q 'RWE'; then
    echo "$library asks for an executable stack"
    exit 1
fi
