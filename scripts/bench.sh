#!/bin/sh
# Builds the release preset with the measurements of bench/ and runs them.
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh develop
cmake --preset release -DZORV_BENCH=ON >/dev/null
cmake --build --preset release
bench/startup_vs_getfattr.sh build/release
bench/show_vs_getfattr.sh build/release/bin/zorv-label-manager-tool
bench/scan_vs_setfiles.sh build/release/bin/zorv-label-manager-tool
bench/listener_delay.sh build/release
build/release/bin/common_bench
