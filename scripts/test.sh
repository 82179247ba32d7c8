#!/bin/sh
# Builds and runs every test: on this machine, under sanitizers, and for ARM under emulation. On a
# fresh Debian machine, run it as root: it installs what it needs.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $test_packages

echo "== format"
find include src toolkit program bindings plugins examples bench tests fuzz -name '*.h' -o -name '*.c' -o \
    -name '*.cpp' |
    xargs clang-format --dry-run --Werror

summary=""
failed=""
for preset in release asan tsan armv7 arm64 armv7-clang arm64-clang; do
    echo "== $preset"
    cmake --preset $preset >/dev/null
    cmake --build --preset $preset
    log=build/$preset/test.log
    ctest --preset $preset -j "$(nproc)" --no-tests=error >$log 2>&1 || failed="$failed $preset"
    grep -v -e ' Passed ' -e ' Start ' $log | sed '/^$/d'
    grep -h '^SKIPPED' build/$preset/Testing/Temporary/LastTest.log || true
    summary="$summary
  $preset: $(sed -n 's/.*tests passed, .* out of \([0-9]*\)/\1 tests/p' $log)"
done

echo "== same bytes on every platform"
scripts/compare_builds.sh build/release \
    "build/armv7=qemu-arm -L /usr/arm-linux-gnueabi" \
    "build/arm64=qemu-aarch64 -L /usr/aarch64-linux-gnu" \
    "build/armv7-clang=qemu-arm -L /usr/arm-linux-gnueabi" \
    "build/arm64-clang=qemu-aarch64 -L /usr/aarch64-linux-gnu" || failed="$failed compare_builds"

echo "== programs that use what is installed"
scripts/check_install.sh || failed="$failed check_install"

echo "== Android package"
scripts/android.sh --java build/release || failed="$failed android"

echo "== fuzz targets, for a moment each"
scripts/fuzz.sh 5 || failed="$failed fuzz"

echo "== memcheck"
scripts/memcheck.sh build/release/framehold ../shared/clips || failed="$failed memcheck"

echo "== tests run:$summary"
if [ -n "$failed" ]; then
    echo "FAILED:$failed"
    exit 1
fi
echo "all passed"
