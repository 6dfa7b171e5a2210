#!/bin/sh
# Installs the common library aside, builds a program of its own against it by CMake and by pkg-config, and runs both.
# Usage: install_test.sh BUILD-DIRECTORY
set -eu
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cmake --install "$1" --prefix "$prefix" >/dev/null

cmake -S "$here" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_STANDARD=17 >/dev/null
cmake --build "$scratch/cmake" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name '*.pc')")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046 # a list of words
c++ -std=c++17 -pedantic-errors -Wall -Wextra -Werror "$here/consumer.cpp" -o "$scratch/pkg-config" \
    $(pkg-config --cflags --libs zorvlabelcommon)
# So does the example of the manual page.
awk '/^#include/ { inside = 1 } /^\.Ed/ { inside = 0 } inside' "$here/../../packaging/man/libzorvlabelcommon.3" |
    sed 's/\\e/\\/g' >"$scratch/example.cpp"
# shellcheck disable=SC2046 # a list of words
c++ -std=c++17 -pedantic-errors -Wall -Wextra -Werror "$scratch/example.cpp" -o "$scratch/example" \
    $(pkg-config --cflags --libs zorvlabelcommon)
for program in "$scratch/cmake/consumer" "$scratch/pkg-config"; do
    [ "$(LD_LIBRARY_PATH=$(pkg-config --variable=libdir zorvlabelcommon) "$program")" = "13 /a 1 2404100320 8" ]
done
if find "$prefix/include" -name '*_parsing.h' -o -name '*_handles.h' -o -name 'path_text.h' | grep .; then
    exit 1 # internals are not installed
fi
