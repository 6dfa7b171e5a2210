#!/bin/sh
# Installs what is needed, builds and passes the tests. Usage: test.sh [STAGE...]
# A stage is one of those below or any preset. Without an argument: everything that a change must pass.
set -eu
cd "$(dirname "$0")/.."

# The seconds that a stage takes from a clean checkout on two free cores, and what it is.
about() {
    case $1 in
    check) echo "5 formatting, shell scripts, manual pages, layers" ;;
    tidy) echo "750 clang++ with clang-tidy, and the reference of the headers" ;;
    fuzz) echo "190 build with clang++, and parsers of foreign bytes on their seeds" ;;
    asan) echo "275 build and tests with the address and undefined behaviour sanitizers" ;;
    tsan) echo "300 build and tests with the thread sanitizer" ;;
    dev) echo "420 build and tests, commands interrupted at every system call too" ;;
    quick) echo "165 build and tests" ;;
    *) echo "0 build and tests, of unknown time" ;;
    esac
}
run() {
    case $1 in
    check) scripts/check.sh ;;
    tidy) scripts/build.sh tidy && scripts/build.sh tidy docs ;;
    *) scripts/build.sh "$1" && ctest --preset "$1" -j "$(nproc)" ;;
    esac
}
duration() {
    echo "$(($1 / 60)) min $(($1 % 60)) s"
}

[ $# -gt 0 ] || set -- check tidy fuzz asan tsan dev
total=0
for stage; do
    about=$(about "$stage")
    total=$((total + ${about%% *}))
done
echo "test: $# stages, which take about $(duration "$total") on two free cores:"
for stage; do
    about=$(about "$stage")
    printf '  %-6s %12s  %s\n' "$stage" "$(duration "${about%% *}")" "${about#* }"
done

scripts/setup.sh develop
begin=$(date +%s)
number=0
for stage; do
    number=$((number + 1))
    place="[$number/$#] $stage"
    about=$(about "$stage")
    echo "$place: ${about#* } ..."
    stage_begin=$(date +%s)
    if ! run "$stage"; then
        echo "$place: FAILED after $(duration $(($(date +%s) - stage_begin)))" >&2
        exit 1
    fi
    echo "$place: passed in $(duration $(($(date +%s) - stage_begin)))"
done
echo "test: passed in $(duration $(($(date +%s) - begin)))"
