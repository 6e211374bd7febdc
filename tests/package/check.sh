#!/bin/sh
# check.sh <build directory>: installs what was built there into a scratch prefix and uses it as a program of somebody
# else does, by CMake and by pkg-config. Also looks at what the libraries export.
set -eu

build=$1
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

fail() {
    echo "check.sh: $*" >&2
    exit 1
}

cmake --install "$build" --prefix "$prefix" >/dev/null
pkgconfig=$(dirname "$(find "$prefix" -name zyrlogger.pc)")
libraries=$(dirname "$pkgconfig")

for library in ZyrTools ZyrLogger; do
    nm -DC --defined-only "$libraries/lib$library.so" | cut -d' ' -f3- | sed 's/@@ZYR_2$//'
done >"$scratch/symbols"
! grep -vE '^(((vtable|typeinfo|typeinfo name|non-virtual thunk) (for|to) )?Zyr::.*|ZYR_2)$' "$scratch/symbols" ||
    fail "the symbols above are exported but not our own"
for class in ConfigFileListener Logger Logger::LogListener LogMessage LogMessage::Completer ClassLogger; do
    for symbol in vtable typeinfo 'typeinfo name'; do
        grep -qx "$symbol for Zyr::$class" "$scratch/symbols" || fail "the $symbol for Zyr::$class is not exported"
    done
done

cmake -G Ninja -S "$here" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/build" >/dev/null

flags=$(PKG_CONFIG_PATH=$pkgconfig pkg-config --cflags --libs 'zyrlogger >= 2')
# The headers promise C++17.
# shellcheck disable=SC2086 # the flags are words
${CXX:-c++} -std=c++17 -fPIC "$here/main.cpp" -o "$scratch/by-pkg-config" $flags -Wl,-rpath,"$libraries"

for program in "$scratch/build/consumer" "$scratch/by-pkg-config"; do
    place=$scratch/place
    mkdir "$place"
    QUADEL_CURRENT_LOG_LOCATION=$place QUADEL_CURRENT_CONFIG_LOCATION=$place "$program"
    grep -q '"level":"warn","msg":"pressure 7"}$' "$place/consumer_Pump.log" || fail "$program wrote no proper line"
    rm -r "$place"
done
