#!/bin/sh
# Installs what is needed, builds and passes the tests. Usage: test.sh [PRESET...]
# Without an argument everything that a change must pass: formatting, both compilers, the linter, the fuzz targets on
# their seeds, the sanitizers.
set -eu
cd "$(dirname "$0")/.."

scripts/setup.sh
if [ $# -eq 0 ]; then
    echo "test: formatting"
    git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
    git ls-files '*.sh' '*.bash' .ci/run 'debian/*.p*inst' 'debian/*.p*rm' | xargs shellcheck
    echo "test: manual pages"
    for page in packaging/man/*; do
        mandoc -Tlint -W warning "$page"
        if LC_ALL=C.UTF-8 man --warnings -l -Tutf8 -Z "$page" 2>&1 >/dev/null | grep .; then
            exit 1
        fi
    done
    echo "test: clang++ and clang-tidy"
    scripts/build.sh tidy
    cmake --build --preset tidy --target docs
    set -- fuzz asan dev
fi
for preset in "$@"; do
    echo "test: $preset"
    scripts/build.sh "$preset"
    ctest --preset "$preset" -j "$(nproc)"
done
