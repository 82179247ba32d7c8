#!/bin/sh
# Checks that the objects of vector kernels define nothing for the linker but their kernel: it could
# give an inline function that was compiled for one processor to code that runs on all.
# Usage: check_kernels.sh NM OBJECT...
set -eu
nm=$1
shift
checked=0
for object in "$@"; do
    [ "$(basename "$(dirname "$object")")" = kernels ] || continue
    case $object in */row_scalar.*) continue ;; esac
    checked=$((checked + 1))
    shared=$("$nm" -C --defined-only "$object" | grep -E ' [TWVuBDC] ' |
        grep -vE 'renderStrips_[a-z0-9]+\(|DW\.ref\.|__asan' || true)
    [ -z "$shared" ] || { echo "$object shares:"; echo "$shared"; exit 1; }
done
[ "$checked" -ge 1 ] || { echo "no vector kernels among $*"; exit 1; }
