#!/bin/bash
# Installs builds of the library and builds programs in C and C++ with what was installed: with CMake
# and pkg-config, shared and static. Runs each, ARM's under emulation, and compares what they write.
# Prints a table. Takes the sources into a CMake project, too.
# Usage: check_install.sh [PRESET...]     default: release armv7 arm64, all built before;
#                                         release always, because it makes the clip
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- release armv7 arm64
root=$PWD
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# quietly COMMAND...: shows what it prints only if it fails.
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; return 1; }; }

# A clip as examples/live.c reads it, and what the program makes of it: the same bytes, since it
# pads no frame whose width is a multiple of 128.
clip=$work/clip
framehold=build/release/framehold
$framehold simulate -q "$clip" --size 384x216 --duration 1 --focal 300
tests/install/live_events.sh "$clip" 0.0299 >"$clip/events.txt"
ffmpeg -v error -i "$clip/clip.mp4" -f rawvideo -pix_fmt nv12 "$clip/frames.nv12"
$framehold stabilize -q "$clip/clip.mp4" --delay 5 --smoothing 9 -o - |
    ffmpeg -v error -i - -f rawvideo -pix_fmt nv12 "$clip/steady.nv12"

# check NAME LINKAGE PROGRAM [EMULATOR...]: runs a program and prints a line of the table.
check() {
    local name=$1 linkage=$2 program=$3 result=failed needs=static
    shift 3
    if readelf -d "$program" | grep -q 'NEEDED.*libzpr_framehold\.so\.3\]'; then needs=shared; fi
    case $name in
        C\ *)
            rm -f "$work/live.nv12"
            "$@" "$program" 384x216 300 0.0299 0 5 "$clip/frames.nv12" "$clip/events.txt" \
                "$work/live.nv12" && cmp "$work/live.nv12" "$clip/steady.nv12" && result=ok
            ;;
        *)
            "$@" "$program" >"$work/said" && result=$(cat "$work/said")
            [ -n "${expected:=$result}" ] && [ "$result" = "$expected" ] && result=ok
            ;;
    esac
    [ "$needs" = "$linkage" ] || result="is linked $needs"
    [ "$result" = ok ] || failed=1
    printf '%-8s %-28s %-8s %s\n' "$preset" "$name" "$linkage" "$result"
}

printf '%-8s %-28s %-8s %s\n' build "language, found by" linkage result
for preset in "$@"; do
    tree=$work/tree-$preset
    quietly env DESTDIR="$tree" cmake --install "build/$preset"
    tree=$tree/usr/local
    triplet=
    emulator=(env "LD_LIBRARY_PATH=$tree/lib")
    case $preset in
        armv7) triplet=arm-linux-gnueabi emulator=(qemu-arm) ;;
        arm64) triplet=aarch64-linux-gnu emulator=(qemu-aarch64) ;;
    esac
    settings=("-DCMAKE_PREFIX_PATH=$tree")
    if [ -n "$triplet" ]; then
        settings+=("-DCMAKE_TOOLCHAIN_FILE=$root/cmake/$preset-linux.cmake")
        emulator+=(-L "/usr/$triplet" -E "LD_LIBRARY_PATH=$tree/lib")
        triplet=$triplet-
    fi
    export PKG_CONFIG_LIBDIR=$tree/lib/pkgconfig
    for language in C CXX; do
        case $language in
            C) source=$tree/share/doc/framehold/examples/live.c compiler=${triplet}gcc ;;
            CXX) source=$root/tests/install/consumer.cpp compiler=${triplet}g++ ;;
        esac
        build=$work/$preset-$language
        quietly cmake -G Ninja -S tests/install -B "$build" "${settings[@]}" \
            -DLANGUAGE=$language -DSOURCE="$source" -DFROM=package
        quietly cmake --build "$build"
        for linkage in shared static; do
            check "$language by CMake" $linkage "$build/$linkage" "${emulator[@]}"
            flags=$(pkg-config --cflags --libs zpr_framehold)
            [ $linkage = shared ] || flags="-static $(pkg-config --static --cflags --libs zpr_framehold)"
            # shellcheck disable=SC2086
            "$compiler" -O2 "$source" $flags -o "$work/by_pkgconfig"
            check "$language by pkg-config" $linkage "$work/by_pkgconfig" "${emulator[@]}"
        done
    done
done

preset=sources
build=$work/sources
quietly cmake -G Ninja -S tests/install -B "$build" -DLANGUAGE=CXX \
    -DSOURCE="$root/tests/install/consumer.cpp" -DFROM="$root"
quietly cmake --build "$build"
for linkage in shared static; do
    check "CXX by FetchContent" $linkage "$build/$linkage"
done
exit $failed
