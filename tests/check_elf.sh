#!/bin/sh
# Reads ELF files of the build. Prints what is wrong and fails then.
# check_elf.sh loaded FILE SONAME...      the file names these libraries as loaded at first use, not as needed at its start
# check_elf.sh runpath DIRECTORY...       no empty element, for which the loader looks into the working directory
set -eu
what=$1
shift

emptyElements() {
    grep -E '(\[|:)(:|\])'
}

case $what in
loaded)
    file=$1
    shift
    readelf --wide --sections "$file" | grep -E '\.note\.dlopen +NOTE .* A +0 +0 +4$'
    [ "$(readelf --wide --notes "$file" | grep -oE 'FDO +0x[0-9a-f]+[[:space:]]+[^(]*\(?(0x407c0c0a|.*DLOPEN)' | wc -l)" = $# ]
    for soname; do
        readelf --string-dump=.note.dlopen "$file" | grep -E "\
\[\{\"feature\":\"[a-z]+\",\"description\":\"[A-Za-z0-9 ]+\",\"priority\":\"recommended\",\"soname\":\[\"$soname\"\]\}\]\$"
        ! readelf --dynamic "$file" | grep "NEEDED.*\[$soname\]" || exit 1
    done
    ;;
runpath)
    for wrong in '[]' '[:/a]' '[/a:]' '[/a::/b]'; do
        echo "$wrong" | emptyElements >/dev/null || { echo "does not notice $wrong" >&2 && exit 1; }
    done
    paths=$(find "$@" -type f -exec readelf --dynamic {} + 2>/dev/null | grep -E '^File|\((RPATH|RUNPATH)\)')
    echo "$paths" | grep -q '(RUNPATH)'
    ! echo "$paths" | grep -B 1 -e '(RPATH)' || exit 1
    ! echo "$paths" | emptyElements || exit 1
    ;;
esac
