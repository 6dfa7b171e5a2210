# shellcheck shell=bash
# What the parts of the package test share. They run one after the other in one work directory with one root.
# shellcheck disable=SC2034 # most of it is for them
set -euo pipefail
work=${ZORV_PACKAGE_TEST:?is set by package_test.sh}
root=$work/root
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
library=/usr/lib/$triplet/libzorvlabelmgr.so
bundled=/usr/lib/$triplet/zorv-labelmgr-bundled/libzorvlabelmgr.so
tool=zorv-label-manager-tool
manager=libzorvlabelmgr-bundled
all=("$tool" "$manager" libzorvlabelcommon1) # packages in use; their author needs one more
log=/var/log/zorv/zorv_label_manager.log
store=/var/lib/zorv/label

ok() {
    printf 'ok  %s\n' "$*"
}
# For use where a failure of the wrong kind would pass unnoticed: -e does not look at "!" and at lists.
fails() {
    ! "$@"
}
present() {
    for file; do
        [ -s "$root$file" ]
    done
}
absent() {
    for file; do
        [ ! -e "$root$file" ]
    done
}
in_root() {
    chroot "$root" "$@" >>"$work/output" 2>&1
}
apt_get() {
    in_root env DEBIAN_FRONTEND=noninteractive apt-get -y -q --no-install-recommends -o Dpkg::Options::=--force-confold "$@"
}
# Installs packages of one release. Usage: install RELEASE PACKAGE...
install() {
    local release=$1
    shift
    # shellcheck disable=SC2046 # patterns, which name the same files outside the root and inside
    (cd "$root" && apt_get install --reinstall $(printf "./packages/$release/%s_*.deb " "$@"))
}
# What a command prints, standard error included, is this and nothing else. Usage: prints EXPECTED COMMAND...
prints() {
    local expected=$1 printed
    shift
    printed=$(chroot "$root" "$@" 2>&1) || true
    printf '%s\n' "\$ $*" "$printed" >>"$work/output"
    [ "$printed" = "$expected" ] || { printf 'expected: %s\n' "$expected" >>"$work/output" && return 1; }
}
has_mode() {
    [ "$(stat -c '%a %U:%G' "$root$1")" = "$2" ]
}
# Every name in the root with its kind, mode and owner, without what package managers and mount(8) keep for themselves.
list_files() {
    find "$root" \( -path "$root/packages" -o -path "$root/proc" -o -path "$root/dev" -o -path "$root/tmp" -o -path "$root/run/mount" -o -path "$root/var/cache" -o \
        -path "$root/var/lib/apt" -o -path "$root/var/log/apt" \) -prune -o -printf '/%P %y %m %u:%g\n' |
        grep -vE '^/(var/lib/dpkg/(status|available|diversions|statoverride|triggers/|lock|alternatives ).*|var/log/(dpkg|alternatives)\.log.*|etc/ld\.so\.cache.*)' |
        LC_ALL=C sort
}
leaves_nothing() {
    diff "$work/files" <(list_files) >>"$work/output"
}
