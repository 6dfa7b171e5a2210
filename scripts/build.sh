#!/bin/sh
# Installs what is needed and builds one preset, or one target of it. Usage: build.sh [PRESET [TARGET]]
set -eu
cd "$(dirname "$0")/.."
preset=${1:-dev}
if [ "$preset" = release ]; then
    scripts/setup.sh build # what is installed and no tests
else
    scripts/setup.sh develop
fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" ${2:+--target "$2"}
