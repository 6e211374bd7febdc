#!/bin/sh
# guides.sh <build directory>: every block of C++ in README.md and doc/*.md, and every \code block in the public headers,
# compiles against the library, and every link in the guides leads to something. A block with an #include is a source
# file; the others become functions that know the names below. What is not ours belongs into blocks marked c++ or text.
set -eu

build=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'exit 130' INT TERM
failed=0

cat >"$scratch/fragments.cpp" <<'END'
#include <QtCore/QtCore>
#include <ZyrLogger/ClassLogger.h>
#include <ZyrLogger/Macros.h>
using namespace Qt::StringLiterals;
double measure();
END
names="Zyr::Logger& log, Zyr::ClassLogger& valve, QString name, int number, int litres, double pressure"

awk -v names="$names" -v to="$scratch/" '
    FNR == 1 { header = FILENAME ~ /\.h$/ }
    header { sub(/^ *\/\/\/ ?/, "") }
    inside && /^(```|[\\@]endcode)$/ {
        inside = 0
        fromHeaders += header
        block = "#line " start " \"" FILENAME "\"\n" block
        if (whole)
            printf "%s", block >(to "block" ++blocks ".cpp")
        else
            printf "void block%d(%s) {{\n%s}}\n", ++blocks, names, block >>(to "fragments.cpp")
    }
    inside && /^#include/ { whole = 1 }
    inside { block = block $0 "\n" }
    /^```cpp$/ || (header && /^[\\@]code$/) { inside = 1; whole = 0; block = ""; start = FNR + 1 }
    END { exit inside || blocks == fromHeaders || !fromHeaders }' README.md doc/*.md lib/*/include/*/*.h

# shellcheck disable=SC2046 # the flags are words
for source in "$scratch"/*.cpp; do
    ${CXX:-c++} -std=c++17 -fPIC -fsyntax-only -Wall -Werror -Ilib/ZyrTools/include -Ilib/ZyrLogger/include \
        -I"$build/lib/ZyrTools/include" -I"$build/lib/ZyrLogger/include" $(pkg-config --cflags Qt6Core) "$source" ||
        failed=1
done

# Lines outside of blocks of code, and the anchors that their headings get.
prose() { awk '/^```/ { code = !code; next } !code' "$1"; }
anchors() { prose "$1" | sed -n 's/^##* //p' | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'; }

for guide in README.md doc/*.md; do
    for link in $(prose "$guide" | grep -o '](\([^)]*\))' | sed 's/^](//; s/)$//' | grep -v '^https\?:'); do
        case $link in
            '#'*) file=$guide ;;
            *) file=$(dirname "$guide")/${link%%#*} ;;
        esac
        case $link in
            *'#'*) anchors "$file" | grep -qx -- "${link#*#}" ;;
            *) [ -e "$file" ] ;;
        esac || { echo "$guide: nothing at $link" >&2; failed=1; }
    done
done
exit $failed
