#!/bin/bash
# Cross-builds the Debian packages for other machines and passes the tests of functions, rooms and commands, under QEMU where
# this processor does not run them. In new Debian roots, as root; a quarter to half an hour an architecture.
# Usage: cross_test.sh [ARCHITECTURE...]: Debian's names; by default one of 64 bits, a big-endian one and one of 32 bits.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" != --unshared ]; then
    [ "$(id -u)" -eq 0 ] || { echo "cross_test: run as root" >&2 && exit 1; }
    exec unshare --mount --pid --mount-proc --fork --kill-child "$0" --unshared "$@" # no mount and no process outlives the test
fi
shift
[ $# -gt 0 ] || set -- arm64 s390x i386
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
command -v debootstrap dpkg-architecture git >/dev/null || {
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends debootstrap dpkg-dev git >/dev/null
}

work=$(mktemp -d /var/tmp/zorv-cross-test.XXXXXX)
finish() {
    status=$?
    [ "$status" -eq 0 ] || { echo "FAILED; the last output was:" && tail -n 30 "$work/output"; } >&2
    umount --recursive "$work/root" 2>/dev/null || true
    rm -rf --one-file-system "$work"
    exit "$status"
}
trap finish EXIT
in_root() {
    chroot "$work/root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@" >>"$work/output" 2>&1
}
programs=(unit_tests program_tests labelmgr_tests cli_tests)
# In emulation: no process is traced, the executable is QEMU, and FUSE's requests are in this machine's byte order.
unfit='SwappedWalkers.StayInTheTreeAtEachSystemCall:Processes.AreReadFromTheSystem:*MayNotAnswer:*MayNeverAnswer'

debootstrap --variant=minbase bookworm "$work/base" >"$work/output" 2>&1
for architecture; do
    triplet=$(dpkg-architecture -a"$architecture" -qDEB_HOST_GNU_TYPE 2>/dev/null)
    processor=$(dpkg-architecture -a"$architecture" -qDEB_HOST_GNU_CPU 2>/dev/null)
    emulator=/usr/bin/qemu-${processor/powerpc/ppc}-static
    skipped=$unfit
    case $(uname -m):$architecture in x86_64:i386) emulator='' skipped='' ;; esac
    mkdir -p "$work/root" "$work/$architecture/upper" "$work/$architecture/work"
    mount -t overlay -o "lowerdir=$work/base,upperdir=$work/$architecture/upper,workdir=$work/$architecture/work" overlay "$work/root"
    mount -t proc proc "$work/root/proc"
    mount --rbind --make-rslave /dev "$work/root/dev"
    mount -t sysfs sys "$work/root/sys"
    cp /etc/resolv.conf "$work/root/etc/resolv.conf"
    mkdir -p "$work/root/build/source"
    git ls-files -z | xargs -0 cp -a --parents -t "$work/root/build/source"

    in_root dpkg --add-architecture "$architecture"
    in_root apt-get update
    in_root apt-get install -y --no-install-recommends "crossbuild-essential-$architecture" ninja-build qemu-user-static sqlite3 \
        {libgmock-dev,libgtest-dev}:"$architecture"
    in_root apt-get build-dep -y --no-install-recommends --arch-only -a"$architecture" -Pcross,nocheck /build/source
    in_root sh -c "cd /build/source && dpkg-buildpackage -a$architecture -Pcross,nocheck -us -uc -B"
    for package in "$work"/root/build/*"_$architecture.deb"; do
        echo "ok  $architecture: ${package##*/}"
    done

    in_root cmake -S /build/source -B /build/tests -G Ninja -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR="$processor" \
        -DCMAKE_CXX_COMPILER="$triplet-g++" -DPKG_CONFIG_EXECUTABLE="/usr/bin/$triplet-pkg-config" -DZORV_WERROR=ON \
        -DCMAKE_CROSSCOMPILING_EMULATOR="$emulator"
    in_root cmake --build /build/tests --target "${programs[@]}"
    for tests in "${programs[@]}"; do
        # shellcheck disable=SC2086 # no word where there is no emulator
        in_root env -C /build/source/tests $emulator /build/tests/bin/$tests --gtest_filter="*-$skipped"
        echo "ok  $architecture: $tests, $(sed -n 's/.*PASSED *\] //p' "$work/output" | tail -n 1)"
    done
    umount --recursive "$work/root"
done
echo "cross_test: passed"
