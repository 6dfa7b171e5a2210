#!/bin/sh
# Builds the Debian packages into a directory, build/packages by default, from the files that git knows, as they stand.
# Installs what the build needs. Usage: package.sh [DIRECTORY]
set -eu
cd "$(dirname "$0")/.."
packages=${1:-build/packages}
mkdir -p "$packages"
packages=$(cd "$packages" && pwd)

export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
if ! dpkg-checkbuilddeps 2>/dev/null || ! command -v git >/dev/null; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "package: run as root to install what debian/control says" >&2
        exit 1
    fi
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends dpkg-dev git >/dev/null
    apt-get build-dep -y -qq --no-install-recommends ./ >/dev/null
fi

work=$(mktemp -d "$packages/build.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/source"
git ls-files -z >"$work/files"
xargs -0 -a "$work/files" cp -a --parents -t "$work/source"
rm -f "$packages"/*.deb "$packages"/*.buildinfo "$packages"/*.changes
if ! (cd "$work/source" && dpkg-buildpackage -us -uc -b) >"$work/log" 2>&1; then
    tail -n 50 "$work/log" >&2
    exit 1
fi
mv "$work"/*.deb "$work"/*.buildinfo "$work"/*.changes "$packages"
ls "$packages"/*.deb
