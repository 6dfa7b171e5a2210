#!/bin/sh
# Installs what is needed and builds one preset, or one target of it. Usage: build.sh [PRESET [TARGET]]
set -eu
cd "$(dirname "$0")/.."
preset=${1:-dev}
scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" ${2:+--target "$2"}
