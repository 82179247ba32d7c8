#!/bin/sh
# Fails if the extension exports more than its entry point.
# Usage: check_symbols.sh EXTENSION NM
names=$("$2" -D --defined-only "$1" | awk '{ print $NF }')
[ "$names" = PyInit__core ] && exit
echo "$1 exports: $names"
exit 1
