#!/bin/sh
# Runs the rotation test with the numbers of a long life: 1,000,000 records, ten kills, 15,000 loads of the settings.
#
#   rotation.sh <build directory> [<test function>...]
#
# Takes a few minutes and a few hundred megabytes below TMPDIR.
set -eu

build=$1
shift
export QTEST_FUNCTION_TIMEOUT=3600000
ZYR_ROTATION_FULL=1 "$build/tests/tst_rotation" -maxwarnings 0 "$@"
ZYR_RELOADS=15000 "$build/tests/tst_reload" losesNothingUnderLoad
