#!/bin/sh
# Installs the Debian packages that building, testing and measuring need. Safe to run again: installs nothing twice.
set -eu

packages="
build-essential ca-certificates clang clang-format clang-tidy cmake git libclang-rt-14-dev ninja-build pkg-config
liblog4cpp5-dev libsqlite3-dev libssl-dev libzmq3-dev nlohmann-json3-dev
libbenchmark-dev libgmock-dev libgtest-dev
attr bash-completion btrfs-progs doxygen e2fsprogs gnuplot-nox man-db mandoc policycoreutils python3 shellcheck
sqlite3 strace time xfsprogs zsh
"

missing=
for package in $packages; do
    status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "setup: run as root to install:$missing" >&2
    exit 1
fi
echo "setup: installing:$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# shellcheck disable=SC2086 # a list of words
apt-get install -y -qq --no-install-recommends $missing >/dev/null
