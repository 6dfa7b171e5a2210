#!/bin/sh
# Sees to it that what is needed is there: by apt, or, where that is not, by saying what is missing. Installs nothing twice.
# Usage: setup.sh [run|build|develop]: to run a tool that was built elsewhere; to build it; to test, check and measure, too.
set -eu
level=${1:-develop}

# What it is for; where it shows: a command, a file, a library, or a pkg-config module and its version; Debian's package;
# its own name.
needs() {
    cat <<'NEEDS'
run     liblog4cpp.so.5      liblog4cpp5v5     log4cpp
run     libsqlite3.so.0      libsqlite3-0      SQLite
run     libcrypto.so.3       libssl3           OpenSSL
run     libzmq.so.5          libzmq5           ZeroMQ
build   c++                  g++               a C++20 compiler
build   cmake                cmake             CMake
build   ninja                ninja-build       Ninja
build   pkg-config           pkg-config        pkg-config
build   log4cpp>=1.1         liblog4cpp5-dev   log4cpp
build   sqlite3>=3.37        libsqlite3-dev    SQLite
build   libcrypto>=3.0       libssl-dev        OpenSSL
build   libzmq>=4.0          libzmq3-dev       ZeroMQ
build   nlohmann_json>=3.11  nlohmann-json3-dev JSON for Modern C++
develop gtest>=1.10          libgtest-dev      GoogleTest
develop gmock>=1.10          libgmock-dev      GoogleMock
develop benchmark>=1.5       libbenchmark-dev  Google Benchmark
develop clang++              clang             Clang
develop clang-format         clang-format      clang-format
develop clang-tidy           clang-tidy        clang-tidy
develop libclang_rt.fuzzer   libclang-rt-dev   compiler-rt
develop getfattr             attr              attr
develop /usr/share/bash-completion/bash_completion bash-completion bash-completion
develop mkfs.btrfs           btrfs-progs       btrfs-progs
develop doxygen              doxygen           Doxygen
develop mkfs.ext4            e2fsprogs         e2fsprogs
develop gnuplot              gnuplot-nox       gnuplot
develop git                  git               Git
develop make                 make              GNU make
develop man                  man-db            man-db
develop mandoc               mandoc            mandoc
develop setfiles             policycoreutils   SELinux userland tools
develop python3              python3           Python
develop shellcheck           shellcheck        ShellCheck
develop sqlite3              sqlite3           SQLite shell
develop strace               strace            strace
develop /usr/bin/time        time              GNU time
develop mkfs.xfs             xfsprogs          xfsprogs
develop zsh                  zsh               zsh
NEEDS
}

is_there() {
    case $1 in
    *'>='*) pkg-config --exists "${1%>=*} >= ${1#*>=}" 2>/dev/null ;;
    *.so.*) PATH=$PATH:/usr/sbin:/sbin ldconfig -p | grep -qF "$1 " ;;
    libclang_rt.*) find "$(clang++ -print-resource-dir 2>/dev/null || echo /nonexistent)/lib" -name "$1*" 2>/dev/null | grep -q . ;;
    /*) [ -e "$1" ] ;;
    *) PATH=$PATH:/usr/sbin:/sbin command -v "$1" >/dev/null ;;
    esac
}
# What is missing, by Debian's name or its own.
missing() {
    needs | while read -r for sign package name; do
        case $level:$for in run:run | build:build | develop:build | develop:develop)
            is_there "$sign" || if [ "$1" = package ]; then echo "$package"; else echo "$name,"; fi
            ;;
        esac
    done | sort -u | tr '\n' ' ' | sed 's/,* $//'
}

case $level in run | build | develop) ;; *) echo "setup: run, build or develop, not '$level'" >&2 && exit 1 ;; esac
packages=$(missing package)
[ -n "$packages" ] || exit 0
if ! command -v apt-get >/dev/null; then
    echo "setup: install by this system's own means: $(missing name)" >&2
    exit 1
fi
if [ "$(id -u)" -ne 0 ]; then
    echo "setup: run as root to install: $packages" >&2
    exit 1
fi
echo "setup: installing: $packages"
export DEBIAN_FRONTEND=noninteractive
# With apt's progress on a terminal. A machine that updates itself holds apt's lock for a while.
install() {
    wait=-oDPkg::Lock::Timeout=120
    apt-get "$wait" update -qq
    # shellcheck disable=SC2086 # a list of words
    if [ -t 1 ]; then
        apt-get "$wait" install -y --no-install-recommends $packages
    else
        apt-get "$wait" install -y -qq --no-install-recommends $packages >/dev/null
    fi
}
install
packages=$(missing package)
[ -z "$packages" ] || { echo "setup: still missing after the installation: $packages" >&2 && exit 1; }
