#!/bin/bash
# The whole package test in a new root of another Debian release. Usage: elsewhere.sh RELEASE
set -euo pipefail
host=${ZORV_PACKAGE_TEST:?is set by package_test.sh}/host

debootstrap --variant=minbase "$1" "$host" >>"$ZORV_PACKAGE_TEST/output" 2>&1
mount --bind "$host" "$host" # a root that can have mount namespaces of its own
mount -t proc proc "$host/proc"
mount --rbind --make-rslave /dev "$host/dev"
cp /etc/resolv.conf "$host/etc/resolv.conf"
mkdir "$host/project"
git ls-files -z | xargs -0 cp -a --parents -t "$host/project"
chroot "$host" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 sh -ec '
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends git >/dev/null 2>&1
    cd /project
    git init -q
    git add -A
    exec scripts/package_test.sh'
