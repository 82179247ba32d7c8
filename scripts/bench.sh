#!/bin/sh
# Builds the benchmark and runs it; arguments are passed on (--help lists them). On a fresh Debian
# machine, run it as root: it installs what it needs.
set -eu
cd "$(dirname "$0")/.."
. scripts/packages.sh
# shellcheck disable=SC2086
install_packages $bench_packages
cmake --preset bench >/dev/null
cmake --build --preset bench --target framehold_bench >/dev/null
exec build/bench/framehold_bench "$@"
