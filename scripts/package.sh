#!/bin/bash
# Builds the Debian packages of the last commit and checks them: with lintian; then, in a new root of
# debootstrap's, that they install, run, build programs (autopkgtest, debian/tests) and leave nothing
# when they are removed. Prints where they lie. Run it as root; it installs what it needs.
# Usage: package.sh [--build-only | --root FOLDER]     FOLDER: makes the root there, or takes the one
#                                                      that is there, and keeps it
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $package_packages
packages=$PWD/build/package

echo "== building"
rm -rf "$packages"
mkdir -p "$packages"
# Always in the same folder, for compiler caches.
git archive --prefix="framehold/" HEAD | tar -x -C "$packages"
(cd "$packages/framehold" && DEB_BUILD_OPTIONS=noautodbgsym nice dpkg-buildpackage -us -uc -b >../build.log 2>&1) ||
    { tail -n 40 "$packages/build.log"; exit 1; }
ls -sh "$packages"/*.deb

echo "== lintian"
lintian --version
lintian --show-overrides --fail-on error,warning "$packages"/*.changes
[ "${1-}" != --build-only ] || exit 0

echo "== a new root"
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
temporary=$(mktemp -d)
root=$temporary
trap 'umount "$root/proc" 2>/dev/null; rm -rf "$temporary"' EXIT
[ "${1-}" != --root ] || root=$2
[ -e "$root/etc/debian_version" ] ||
    debootstrap --variant=minbase "$suite" "$root" >"$packages/debootstrap.log"
# For the users that apt and others become in there.
chmod 755 "$root"
rm -rf "$root"/etc/apt/sources.list*
cp -r /etc/apt/sources.list* "$root/etc/apt/"
rm -rf "$root/packages"
cp -r "$packages" "$root/packages"
mount -t proc proc "$root/proc"

# inside COMMAND...: runs it in the root.
inside() {
    chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 HOME=/root \
        DEBIAN_FRONTEND=noninteractive "$@"
}

# What the packages and their tests need, so that all that comes later is the packages'.
depends=$(for package in "$packages"/*.deb; do dpkg-deb -f "$package" Pre-Depends Depends; done |
    sed 's/^[A-Za-z-]*: //; s/libzpr-framehold[^,]*//; /^$/d' | paste -sd ,)
inside apt-get update -qq
inside apt-get satisfy -y -qq --no-install-recommends \
    "$depends, autopkgtest, cmake, g++, gstreamer1.0-tools, make, man-db, pkg-config" >"$packages/apt.log" 2>&1 ||
    { tail "$packages/apt.log"; exit 1; }

# files: all files of the root but those that any use of it changes.
files() {
    find "$root" -xdev \( -path "$root/proc" -o -path "$root/packages" -o -path "$root/tmp" \
        -o -path "$root/var/log" -o -path "$root/var/cache" -o -path "$root/var/lib/apt" \
        -o -path "$root/var/lib/dpkg/status*" -o -path "$root/var/lib/dpkg/triggers" \) -prune -o \
        -type f -printf '%P %s\n' -o -printf '%P %y %l\n' | sort
}

echo "== install, run, remove"
# A kept root has them from the last time.
names="framehold gstreamer1.0-framehold libzpr-framehold-dev libzpr-framehold3 python3-framehold"
# shellcheck disable=SC2086
inside dpkg -P $names >"$packages/dpkg.log" 2>&1
files >"$packages/files_before"
inside sh -c 'dpkg -i /packages/*.deb' >>"$packages/dpkg.log"
inside framehold --version
inside man -w framehold-stabilize
inside python3 -c 'import framehold; print("Python:", framehold.__version__, framehold.__file__)'
inside env GST_REGISTRY=/tmp/registry gst-inspect-1.0 framehold | grep -e Filename -e Version
# shellcheck disable=SC2086
inside dpkg --verify $names
files >"$packages/files_installed"
# shellcheck disable=SC2086
inside dpkg -P $names >>"$packages/dpkg.log"
files >"$packages/files_after"
echo "files installed: $(comm -13 "$packages"/files_{before,installed} | wc -l)"
diff "$packages"/files_{before,after} || { echo "left behind or changed: see above"; exit 1; }
echo "files left: none"

echo "== autopkgtest"
inside sh -c 'autopkgtest --no-built-binaries /packages/*.deb /packages/framehold/ -- null' 2>&1 |
    tee "$packages/autopkgtest.log" | tail -n 30

echo "== packages in $packages"
