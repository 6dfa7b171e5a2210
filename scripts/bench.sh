#!/bin/sh
# Builds the release preset with the measurements of bench/ and runs them: how cost grows with files and records, into
# build/bench/report.md, then start-up, listener and library. The arguments go to bench/growth.py: the largest tree
# (1,000,000 files) and the rounds (3).
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh develop
cmake --preset release -DZORV_BENCH=ON >/dev/null
cmake --build --preset release
bench/growth.py build/release/bin/zorv-label-manager-tool build/bench "$@"
bench/startup_vs_getfattr.sh build/release
bench/listener_delay.sh build/release
build/release/bin/common_bench
