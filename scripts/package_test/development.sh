#!/bin/bash
# Another program's author, with the development package.
. scripts/package_test/helpers.sh

apt_get install cmake g++ make pkg-config
install new libzorvlabelcommon1 libzorvlabelcommon-dev
mkdir "$root/sources"
cp -a --parents tests/install packaging/examples packaging/man "$root/sources"
in_root /sources/tests/install/install_test.sh
ok "programs are built against the development package by CMake and by pkg-config, and run"
