#!/bin/sh
# Prints what a library or an executable exports, in the form of common/exported_symbols.txt: demangled, a line a name,
# without the copies that an executable holds of other libraries' data and without the marks of sanitizers.
# Usage: exported_symbols.sh FILE
set -eu
nm --dynamic --demangle --defined-only "$1" | cut -d ' ' -f 3- | grep -v -e '@' -e '^__[a-z]*san_' |
    sed 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' |
    LC_ALL=C sort -u
