#!/bin/sh
# Builds the wheel offline and uses it in a clean environment.
# Usage: check_wheel.sh PYTHON SOURCE_FOLDER BUILD_FOLDER WORK_FOLDER
set -eu
python=$1
work=$4/wheel_check
unset PYTHONPATH
rm -rf "$work"
mkdir -p "$work"
# setuptools writes beside what it builds.
tar -C "$2" -c --exclude=./build --exclude=./.git ./include ./bindings/python | tar -C "$work" -x
cd "$work"
FRAMEHOLD_BUILD_FOLDER=$3 "$python" -m build --no-isolation --wheel --outdir . bindings/python >build.log 2>&1 ||
    { cat build.log; exit 1; }
"$python" -m venv --system-site-packages environment
environment/bin/python -m pip install -q --no-index --no-deps framehold-*.whl
cd environment
bin/python -c '
import pathlib, sys, framehold, numpy
package = pathlib.Path(framehold.__file__).parent
assert package.is_relative_to(sys.prefix), package
assert {"py.typed", "_core.pyi"} <= {file.name for file in package.iterdir()}
with framehold.Stabilizer(framehold.Parameters(width=64, height=64)) as stabilizer:
    assert stabilizer.stabilize(numpy.zeros((96, 64), numpy.uint8), 1.0).shape == (96, 64)
print(framehold.__version__, "from", package)'
bin/python -m pip uninstall -q -y framehold
if bin/python -c 'import framehold' 2>/dev/null; then
    echo "the package is still there"
    exit 1
fi
