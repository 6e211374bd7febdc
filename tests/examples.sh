#!/bin/sh
# examples.sh <build directory>: runs the small examples, and looks at what they write and say.
set -eu

build=$1
examples=$(cd "$(dirname "$0")/../examples" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "examples.sh: $*" >&2
    exit 1
}

# run <example> [settings file]: in a place of its own, and with no complaint
run() {
    place=$scratch/$1
    mkdir "$place"
    [ $# -eq 1 ] || cp "$2" "$place"
    QUADEL_CURRENT_LOG_LOCATION=$place QUADEL_CURRENT_CONFIG_LOCATION=$place \
        ${ZYR_TEST_EMULATOR:-} "$build/examples/$1" >"$place/output" 2>"$place/errors" || fail "$1 failed"
    [ ! -s "$place/errors" ] || fail "$1 complained: $(cat "$place/errors")"
}

# has <file> <text>
has() {
    grep -qF "$2" "$place/$1" || fail "not in $1: $2"
}

run class-logger
has pump_Valve.log '"level":"error","msg":"No position for a valve: 130 %"}'
has pump_Valve_Log.ini 'level=information'

run listener
has output '1 error(s)'
has pump.log '"msg":"No water"}'

run minimal "$examples/low-flash/pump_Log.ini"
has pump.log '"level":"warn","msg":"Tank T1 holds 48,250 litres"}'
has pump_Log.ini '; By their age alone'
for setting in rotation=192 purgeCount=4 purgeAge=none queueSize=512; do # nothing replaced
    has pump_Log.ini "$setting"
done
