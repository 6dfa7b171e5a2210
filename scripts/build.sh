#!/bin/sh
# Installs what is needed and builds one preset. Usage: build.sh [PRESET]
set -eu
cd "$(dirname "$0")/.."
preset=${1:-dev}
scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
