#!/bin/sh
# Fails if objects of the library need functions of the C library that are not in Android's API 21,
# or any that nobody meant to use.
# Usage: check_c_names.sh NM ARCHIVE
set -eu
allowed="acos cos hypot round sin sincos sqrt tan calloc free malloc realloc memcpy memmove memset \
puts sigdelset sigfillset sysconf pthread_create pthread_join pthread_sigmask __stack_chk_fail \
__stack_chk_guard \
pthread_attr_destroy pthread_attr_init pthread_attr_setdetachstate pthread_attr_setstacksize \
pthread_cond_broadcast pthread_cond_destroy pthread_cond_init pthread_cond_signal \
pthread_cond_wait pthread_mutex_destroy pthread_mutex_init pthread_mutex_lock pthread_mutex_unlock"
# Of the C++ standard library, its runtime, and what compilers call for arithmetic and atomics.
runtime='_ZN?K?St|_ZT[ISV](St|N10__cxxabiv1)|_Zn[aw]|_Zd[al]|__cxa_|__gxx_personality_v0$'
runtime="$runtime|__dynamic_cast$|_Unwind_|__aeabi_|__aarch64_|_GLOBAL_OFFSET_TABLE_$"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1" "$2" >"$work/symbols"
awk 'NF == 3 { print $3 }' "$work/symbols" | sort -u >"$work/defined"
awk 'NF == 2 && $1 == "U" { print $2 }' "$work/symbols" | sort -u >"$work/wanted"
comm -23 "$work/wanted" "$work/defined" >"$work/needed"
grep -q '^malloc$' "$work/needed" || { echo "no list of needed names from $2"; exit 1; }
unknown=$(grep -vE "^($runtime)" "$work/needed" | grep -vxF "$(echo "$allowed" | tr ' ' '\n')" ||
    true)
[ -z "$unknown" ] || { echo "$2 needs:"; echo "$unknown"; exit 1; }
