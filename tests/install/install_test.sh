#!/bin/sh
# Builds programs of their own against the common library by CMake and by pkg-config, and runs them.
# Usage: install_test.sh [BUILD-DIRECTORY]: what that installs, put aside; without it, what the system has.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=/usr
if [ $# -gt 0 ]; then
    prefix=$scratch/prefix
    cmake --install "$1" --prefix "$prefix" >/dev/null
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name '*.pc')")
    LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")
    export PKG_CONFIG_PATH LD_LIBRARY_PATH
    if find "$prefix" -type f -exec readelf --dynamic {} + 2>/dev/null | grep -E '\((RPATH|RUNPATH)\)'; then
        exit 1 # leads into the build tree
    fi
fi

cp "$here"/CMakeLists.txt "$here"/consumer.cpp "$scratch"
(cd "$prefix/include/zorv" && find . -name '*.h' | sort -r | sed 's|^\./\(.*\)|#include <\1>|') >"$scratch/every_header.h"
if grep -e _parsing -e _handles -e path_text "$scratch/every_header.h"; then
    exit 1 # internals are not installed
fi

cmake -S "$scratch" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_STANDARD=17 >/dev/null
cmake --build "$scratch/cmake" >/dev/null
# The example of the manual page.
awk '/^#include/ { inside = 1 } /^\.Ed/ { inside = 0 } inside' "$here/../../packaging/man/libzorvlabelcommon.3" |
    sed 's/\\e/\\/g' >"$scratch/example.cpp"
cmp "$scratch/example.cpp" "$here/../../packaging/examples/labels.cpp"
for program in consumer example; do
    # shellcheck disable=SC2046 # a list of words
    c++ -std=c++17 -pedantic-errors -Wall -Wextra -Werror "$scratch/$program.cpp" -o "$scratch/$program" \
        $(pkg-config --cflags --libs zorvlabelcommon)
done
for program in "$scratch/cmake/consumer" "$scratch/consumer"; do
    [ "$("$program")" = "13 /a 1 2404100320 8 1" ]
done
