#!/bin/sh
# Fails unless a shared library exports the eight functions and nothing else, and asks for no
# executable stack.
# Usage: check_exports.sh NM READELF LIBRARY
expected="ZPR_Deinit ZPR_GetDefaultParam ZPR_GetMemorySize ZPR_GetVersion ZPR_Init ZPR_Reset \
ZPR_SetSensorData ZPR_Stabilize"
exported=$("$1" -D --defined-only "$3" | awk '{ print $NF }' | sort | xargs)
[ "$exported" = "$expected" ] || { echo "exported: $exported; expected: $expected"; exit 1; }
if "$2" -lW "$3" | grep GNU_STACK | grep -q 'RWE'; then
    echo "$3 asks for an executable stack"
    exit 1
fi
