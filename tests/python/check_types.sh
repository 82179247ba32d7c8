#!/bin/sh
# Fails where the package's types are wrong or say something else than the package.
# Usage: check_types.sh PYTHON FOLDER_OF_PACKAGE WORK_FOLDER
set -eu
python=$1
here=$(cd "$(dirname "$0")" && pwd)
export PYTHONPATH="$2" MYPYPATH="$2"
cd "$3"
"$python" -m mypy --strict --cache-dir=mypy_cache -p framehold
"$python" -m mypy.stubtest framehold --mypy-config-file "$here/stubtest.ini" \
    --allowlist "$here/stubtest_allowed.txt" --ignore-unused-allowlist
