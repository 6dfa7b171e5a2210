#!/bin/bash
# Builds the Debian packages and tries them in a new Debian root, as an administrator and another program's author would.
# Before a release, as root. Prints a line for each thing that was found to be so, and stops at the first that is not.
# Usage: package_test.sh [BASE.tar]: the root to begin with, which is made when it is not there
#        package_test.sh --release NAME: all of it, the building too, in a root of that Debian release (bookworm, trixie)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" != --unshared ]; then
    [ "$(id -u)" -eq 0 ] || { echo "package_test: run as root" >&2 && exit 1; }
    exec unshare --mount --pid --mount-proc --fork --kill-child "$0" --unshared "$@" # no mount and no process outlives the test
fi
if [ "${2:-}" = --release ]; then
    release=${3:?is the name of a release}
else
    base=${2:+$(realpath "$2")}
fi
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

needed=(attr build-essential debhelper debootstrap fakeroot git lintian)
dpkg-query -W "${needed[@]}" >/dev/null 2>&1 || {
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${needed[@]}" >/dev/null
}

work=$(mktemp -d /var/tmp/zorv-package-test.XXXXXX)
export ZORV_PACKAGE_TEST=$work
finish() {
    status=$?
    [ "$status" -eq 0 ] || { echo "FAILED after the line above; the last output was:" && tail -n 30 "$work/output"; } >&2
    umount --recursive "$work/root" "$work/host" 2>/dev/null || true
    rm -rf --one-file-system "$work"
    exit "$status"
}
trap finish EXIT
: >"$work/output"

if [ -n "${release:-}" ]; then
    scripts/package_test/elsewhere.sh "$release"
    exit
fi
for part in packages installation use replacement removal development rpm; do
    echo "package_test: $part"
    "scripts/package_test/$part.sh" "$base"
done
echo "package_test: passed"
