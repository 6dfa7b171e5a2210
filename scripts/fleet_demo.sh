#!/bin/bash
# Labels four hosts with the Ansible collection: Debian roots made in a temporary directory, each with an SSH server of its
# own, in a network that nothing else sees. Shows that a second run changes nothing, that spoiled labels are found and
# mended, that a host where a change fails midway is as it was, and what is said of hosts that cannot be labelled. Stops at
# the first thing that is not so. As root. Usage: fleet_demo.sh [PACKAGES [BASE.tar]]: the directory of the packages, which
# are built when it is not given, and the root to begin with, which is made when it is not there
set -euo pipefail
cd "$(dirname "$0")/.."

prepare() {
    [ "$(id -u)" -eq 0 ] || { echo "fleet_demo: run as root" >&2 && exit 1; }
    export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
    dpkg-query -W ansible-core debootstrap iproute2 openssh-client >/dev/null 2>&1 || {
        apt-get update -qq
        apt-get install -y -qq --no-install-recommends ansible-core debootstrap iproute2 openssh-client >/dev/null
    }
    packages=$(realpath --canonicalize-missing "${1:-build/packages}")
    [ $# -gt 0 ] || scripts/package.sh "$packages"
    work=$(mktemp -d /var/tmp/zorv-fleet.XXXXXX)
    trap 'rm -rf --one-file-system "$work"' EXIT
    mkdir "$work/base"
    echo "fleet_demo: making the hosts"
    make_base "${2:-}" >/dev/null
    unshare --mount --net --pid --mount-proc --fork --kill-child scripts/fleet_demo/session.sh "$work" "$packages"
}

# The archives are those of this machine, and so is the release: the packages are built for it.
make_base() {
    local codename mirror
    if [ -n "$1" ] && [ -e "$1" ]; then
        tar -C "$work/base" -xpf "$1"
        return
    fi
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    # shellcheck disable=SC2016 # the variables are apt's
    mirror=$(apt-get indextargets --format '$(CODENAME) $(REPO_URI)' 'Identifier: Packages' |
        awk -v codename="$codename" '$1 == codename && !found { print $2; found = 1 }')
    debootstrap --variant=minbase \
        --include=openssh-server,python3,python3-apt,systemd,liblog4cpp5v5,libsqlite3-0,libssl3,libzmq5 \
        "$codename" "$work/base" "$mirror"
    rm -rf "$work/base"/var/cache/apt/archives/*.deb "$work/base"/usr/share/{doc,locale,man}/*
    [ -z "$1" ] || tar -C "$work/base" -cf "$1" .
}

prepare "$@"
