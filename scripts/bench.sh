#!/bin/sh
# Builds the release preset and runs the measurements in bench/.
set -eu
cd "$(dirname "$0")/.."
scripts/build.sh release
bench/show_vs_getfattr.sh build/release/bin/zorv-label-manager-tool
