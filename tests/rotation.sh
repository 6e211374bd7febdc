#!/bin/sh
# Runs the rotation test with the numbers of a long life: 1,000,000 records, ten kills, 15,000 loads of the settings.
#
#   rotation.sh <build directory> [<test function>...]
#
# Takes about a minute and a few hundred megabytes below TMPDIR.
set -eu

build=$1
shift
ZYR_ROTATION_FULL=1 QTEST_FUNCTION_TIMEOUT=3600000 exec "$build/tests/tst_rotation" -maxwarnings 0 "$@"
