#!/bin/sh
# Makes the Android package build/android/framehold-VERSION.aar. Needs ANDROID_NDK_ROOT. Without it,
# checks all that can be checked: the Java tests; and clang's builds for ARM Linux, which go through
# the same steps as Android's would, into a package that is thrown away.
# Usage: android.sh [--java BUILD]
# --java: takes framehold.jar from that build instead of building it and running its tests.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $android_packages

if [ "${1:-}" = --java ]; then
    java=$2
else
    java=build/java
    cmake --preset release -B $java -DFRAMEHOLD_BUILD_TOOLS=OFF >/dev/null
    cmake --build $java --target framehold_java_tests framehold_jni reference_run
    ctest --test-dir $java -R '^java$' --no-tests=error --output-on-failure
fi

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$java/CMakeCache.txt")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# make_package OUTPUT NDK ABI=PRESET...: builds the presets, puts stripped libraries into OUTPUT.
make_package() {
    output=$1
    ndk=$2
    shift 2
    folders=""
    for build in "$@"; do
        abi=${build%%=*}
        preset=${build#*=}
        cmake --preset "$preset" >/dev/null
        cmake --build --preset "$preset" --target zpr_framehold framehold_jni
        strip=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "build/$preset/CMakeCache.txt")
        mkdir "$work/$abi"
        for library in zpr_framehold framehold_jni; do
            "$strip" --strip-unneeded -o "$work/$abi/lib$library.so" "build/$preset/lib$library.so"
        done
        folders="$folders $abi=$work/$abi"
    done
    # shellcheck disable=SC2086
    bindings/android/make_aar.py "$output" "$version" "$ndk" "$java/framehold.jar" \
        include $folders
}

if [ -n "${ANDROID_NDK_ROOT:-}" ]; then
    aar=framehold-$version.aar
    ndk=$(sed -n 's/^Pkg.Revision *= *\([0-9]*\).*/\1/p' "$ANDROID_NDK_ROOT/source.properties")
    make_package "$work/$aar" "$ndk" armeabi-v7a=android-armv7 arm64-v8a=android-arm64 \
        x86_64=android-x86_64
    tests/android/check_aar.py "$work/$aar" armeabi-v7a arm64-v8a x86_64
    mkdir -p build/android
    mv "$work/$aar" build/android
    echo "build/android/$aar"
else
    make_package "$work/stand-in.aar" 0 armeabi-v7a=armv7-clang arm64-v8a=arm64-clang
    tests/android/check_aar.py --stand-in "$work/stand-in.aar" armeabi-v7a arm64-v8a
    echo "No package was made: ANDROID_NDK_ROOT is not set. Checked with libraries for ARM Linux:"
    echo "layout, JSON, alignment, exports. Not done: builds for Android, x86_64, a run on a phone."
fi
