#!/bin/sh
# check.sh <build directory>: writes a log file and archives with the library that was built there, and looks at what the
# viewer lnav makes of them with the format file packaging/lnav/zyrlogger.json.
set -eu

build=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'exit 130' INT TERM

fail() {
    echo "check.sh: $*" >&2
    exit 1
}

# same <expected file> <actual file> <what they hold>
same() {
    diff -u "$1" "$2" >&2 || fail "lnav shows other $3 than expected (-), see above"
}

# The name makes it the first one that lnav tries, and different from one that is installed already.
formats=$scratch/home/.lnav/formats/check
mkdir -p "$formats"
sed 's/"zyrlogger"/"a_check"/' packaging/lnav/zyrlogger.json >"$formats/check.json"

# shellcheck disable=SC2046 # the flags are words
"${CXX:-c++}" -std=c++17 -fPIC tests/viewer/write-log.cpp -o "$scratch/write-log" $(pkg-config --cflags --libs Qt6Core) \
    -Ilib/ZyrLogger/include -Ilib/ZyrTools/include -I"$build/lib/ZyrLogger/include" -I"$build/lib/ZyrTools/include" \
    -L"$build/lib/ZyrLogger" -L"$build/lib/ZyrTools" -lZyrLogger -lZyrTools -lPocoFoundation \
    -Wl,-rpath,"$build/lib/ZyrLogger:$build/lib/ZyrTools"

# An Emerg entry names its source line, and this one has none. JSON allows no raw tab.
cat >"$scratch/levels" <<'END'
fatal Level 0 [, Line 0]
fatal Level 1
critical Level 2
error Level 3
warning Level 4
notice Level 5
info Level 6
debug Level 7
trace Level 8
notice <SYS> Level 11
debug <TODO> Level 12
warning Valve "V3" in C:\valves: 48 °C, 阀, 🚰
invalid null
END

# check <settings of the log file>...: in a zone half an hour off, read in another one
check() {
    place=$scratch/place
    rm -rf "$place"
    mkdir "$place"
    printf '%s\n' '[Logger]' level=trace '[LoggerFileChannel]' 'rotation=4 K' compress=true "$@" >"$place/pump_Log.ini"
    TZ=XYZ-05:30 QUADEL_CURRENT_LOG_LOCATION=$place QUADEL_CURRENT_CONFIG_LOCATION=$place "$scratch/write-log"
    [ "$(find "$place" -name 'pump.log.*.gz' | wc -l)" -gt 3 ] || fail "there are too few archives: $(ls "$place")"

    HOME=$scratch/home XDG_CONFIG_HOME='' TMPDIR=$scratch TZ=ABC5 lnav -n \
        -c ';SELECT log_format, log_time, log_level, log_body, log_raw_text FROM all_logs' -c ':write-jsonlines-to -' \
        "$place"/pump.log* >"$scratch/records" 2>"$scratch/errors" || fail "lnav failed: $(cat "$scratch/errors")"
    [ ! -s "$scratch/errors" ] || fail "lnav complained: $(cat "$scratch/errors")"
    formats_used=$(jq -r .log_format "$scratch/records" | sort -u)
    [ "$formats_used" = a_check ] || fail "lnav took another format: ${formats_used:-none}"

    # Each line once, and in the order in which the lines were written, which is that of their times.
    zcat -f "$place"/pump.log* | LC_ALL=C sort >"$scratch/lines"
    jq -r .log_raw_text "$scratch/records" >"$scratch/raw"
    same "$scratch/lines" "$scratch/raw" lines
    # The time is the one on the clock that the line's writer went by, to the millisecond.
    jq -cR 'fromjson? | [(.timestamp[:23] | sub("T"; " ")), .msg]' "$scratch/lines" >"$scratch/expected"
    jq -c 'select(.log_level != "invalid") | [.log_time, .log_body]' "$scratch/records" >"$scratch/actual"
    same "$scratch/expected" "$scratch/actual" "times or texts"
    jq -r '"\(.log_level) \(.log_body)" | select(test("Record") | not)' "$scratch/records" >"$scratch/actual"
    same "$scratch/levels" "$scratch/actual" "levels or texts"
}

check archive=number timestamp=local
grep -q '+0530"' "$scratch/lines" || fail "no line has the zone's offset"
check archive=timestamp timestamp=UTC
grep -q 'GMT"' "$scratch/lines" || fail "no line has a time that is UTC"
echo "check.sh: lnav reads $(wc -l <"$scratch/lines") lines as it should, archives included"
