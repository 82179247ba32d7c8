# Debian packages that the scripts beside this file need; to be sourced.
# shellcheck shell=sh disable=SC2034

build_packages="ca-certificates cmake g++ ninja-build pkg-config libavcodec-dev libavformat-dev \
libavutil-dev libswscale-dev libceres-dev libcli11-dev libeigen3-dev libfmt-dev \
libopencv-calib3d-dev libopencv-core-dev libopencv-features2d-dev libopencv-imgproc-dev \
libopencv-video-dev libzip-dev nlohmann-json3-dev"
test_packages="$build_packages binutils chromium clang-19 clang-format doxygen ffmpeg fish \
g++-aarch64-linux-gnu g++-arm-linux-gnueabi googletest groff help2man junit5 libclang-rt-19-dev \
llvm-19 openjdk-17-jdk-headless qemu-user valgrind zsh"
test_packages="$test_packages mypy pybind11-dev python3 python3-build python3-dev \
python3-matplotlib python3-numpy python3-pytest python3-setuptools python3-venv python3-wheel"
test_packages="$test_packages gstreamer1.0-libav gstreamer1.0-plugins-base \
gstreamer1.0-plugins-good gstreamer1.0-tools libgstreamer-plugins-base1.0-dev libgstreamer1.0-dev"
test_packages="$test_packages munge python3-dask python3-distributed slurm-wlm"
bench_packages="$build_packages ffmpeg gnuplot-nox libopencv-videostab-dev libvidstab-dev python3"
fuzz_packages="$test_packages clang libclang-rt-14-dev llvm"
package_packages="$build_packages autopkgtest debhelper debootstrap dh-python dpkg-dev \
help2man libgstreamer-plugins-base1.0-dev lintian pybind11-dev python3-dev"
arm_packages="ca-certificates clang-19 cmake g++-arm-linux-gnueabi ninja-build qemu-user"
android_packages="binutils ca-certificates clang-19 cmake g++ g++-aarch64-linux-gnu \
g++-arm-linux-gnueabi googletest junit5 libeigen3-dev ninja-build openjdk-17-jdk-headless python3"

# Node comes from elsewhere on some machines; Debian's would replace it.
command -v node >/dev/null || test_packages="$test_packages nodejs"
command -v npm >/dev/null || test_packages="$test_packages npm"

# install_packages PACKAGE...: installs what is missing.
install_packages() {
    missing=""
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    echo "== installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing >/dev/null
}
