#!/bin/bash
# Builds the Debian packages and tries them in a new Debian root, as an administrator and another program's author would.
# Before a release, as root. Prints a line for each thing that was found to be so, and stops at the first that is not.
# Usage: package_test.sh [BASE.tar]: the root to begin with, which is made when it is not there
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" != --unshared ]; then
    [ "$(id -u)" -eq 0 ] || { echo "package_test: run as root" >&2 && exit 1; }
    exec unshare --mount --pid --mount-proc --fork --kill-child "$0" --unshared "$@" # no mount and no process outlives the test
fi
base=${2:+$(realpath "$2")}
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

scripts/setup.sh
dpkg-query -W debhelper debootstrap fakeroot lintian >/dev/null 2>&1 || {
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends debhelper debootstrap fakeroot lintian >/dev/null
}

work=$(mktemp -d /var/tmp/zorv-package-test.XXXXXX)
root=$work/root
finish() {
    status=$?
    [ "$status" -eq 0 ] || { echo "FAILED after the line above; the last output was:" && tail -n 30 "$work/output"; } >&2
    umount "$root/proc" "$root/dev" 2>/dev/null || true
    rm -rf --one-file-system "$work"
    exit "$status"
}
trap finish EXIT
: >"$work/output"

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
# Every name in the root with its kind, mode and owner, without what package managers keep for themselves.
list_files() {
    find "$root" \( -path "$root/packages" -o -path "$root/proc" -o -path "$root/dev" -o -path "$root/tmp" -o -path "$root/var/cache" -o \
        -path "$root/var/lib/apt" -o -path "$root/var/log/apt" \) -prune -o -printf '/%P %y %m %u:%g\n' |
        grep -vE '^/(var/lib/dpkg/(status|available|diversions|statoverride|triggers/|lock|alternatives ).*|var/log/(dpkg|alternatives)\.log.*|etc/ld\.so\.cache.*)' |
        LC_ALL=C sort
}
leaves_nothing() {
    diff "$work/files" <(list_files) >>"$work/output"
}

triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
library=/usr/lib/$triplet/libzorvlabelmgr.so
bundled=/usr/lib/$triplet/zorv-labelmgr-bundled/libzorvlabelmgr.so
tool=zorv-label-manager-tool
manager=libzorvlabelmgr-bundled
all=("$tool" "$manager" libzorvlabelcommon1) # packages in use; their author needs one more
log=/var/log/zorv/zorv_label_manager.log
store=/var/lib/zorv/label

# --- the packages -------------------------------------------------------------------------------------------------

scripts/package.sh "$work/new" >>"$work/output"
lintian --fail-on warning --allow-root "$work"/new/*.changes >>"$work/output" 2>&1
[ -z "$(lintian --allow-root "$work"/new/*.changes 2>&1)" ]
ok "lintian has nothing to say"

copy_source() {
    mkdir -p "$1"
    git ls-files -z | xargs -0 cp -a --parents -t "$1"
}
copy_source "$work/a/longer/path/source"
(cd "$work/a/longer/path/source" && umask 077 && TZ=Asia/Tokyo dpkg-buildpackage -us -uc -b >>"$work/output" 2>&1)
for package in "$work"/new/*.deb; do
    cmp "$package" "$work/a/longer/path/${package##*/}"
done
ok "a second build, in another directory, time zone and with another umask, is byte-identical"

# An older release, whose configuration differs from this one's.
copy_source "$work/old/source"
(
    cd "$work/old/source"
    version=$(dpkg-parsechangelog -S Version | sed 's/-.*//')
    sed -i "s/${version//./\\.}/0.9.0/; s/\${PROJECT_VERSION_MAJOR}/1/" debian/changelog debian/*.symbols CMakeLists.txt
    sed -i '1i # As of 0.9.' packaging/etc/*
    DEB_BUILD_OPTIONS=noautodbgsym dpkg-buildpackage -us -uc -b >>"$work/output" 2>&1
)

for package in "$tool" libzorvlabelcommon1 "$manager"; do
    dpkg-deb -x "$work/new/${package}_"*.deb "$work/extracted"
done
for binary in "$work/extracted/usr/bin/$tool" "$work/extracted$bundled" "$work/extracted/usr/lib/$triplet/libzorvlabelcommon.so.1"; do
    readelf -d "$binary" >"$work/dynamic"
    grep -q BIND_NOW "$work/dynamic"
    fails grep -E 'RPATH|RUNPATH' "$work/dynamic"
    readelf -lW "$binary" | grep GNU_RELRO >/dev/null
    readelf -sW --dyn-syms "$binary" | grep '__.*_chk@' >/dev/null
    fails grep -aq "$work" "$binary"
done
readelf -h "$work/extracted/usr/bin/$tool" | grep 'Position-Independent Executable' >/dev/null
ok "programs and libraries are hardened, have no RUNPATH and do not name the directory that they were built in"

# --- the root -----------------------------------------------------------------------------------------------------

mkdir "$root"
if [ -n "$base" ] && [ -e "$base" ]; then
    tar -C "$root" -xpf "$base"
else
    debootstrap --variant=minbase bookworm "$root" >>"$work/output" 2>&1
    [ -z "$base" ] || tar -C "$root" -cf "$base" .
fi
mount -t proc proc "$root/proc"
mount --bind /dev "$root/dev"
cp /etc/resolv.conf "$root/etc/resolv.conf"
mkdir "$root/packages"
cp -a "$work/old" "$work/new" "$root/packages"
rm -rf "$root/packages/old/source" "$root"/packages/*/*dbgsym*
apt_get update

# What the packages need is there before files are counted; first a check that they say so.
install new "${all[@]}"
chroot "$root" ldd "/usr/bin/$tool" "$bundled" >"$work/linked"
fails grep 'not found' "$work/linked"
prints 'SM3 Hash (last 64 bits): 297da02b8f4ba8e0' $tool -3 abc
ok "installs in a minimal system, with everything that it is linked with or loads for a digest"
for file in man/man8/$tool.8.gz man/man5/zorv-label-policy.conf.5.gz bash-completion/completions/$tool zsh/vendor-completions/_$tool; do
    present "/usr/share/$file"
done
ok "brings manuals and completions"
apt_get purge "${all[@]}"
list_files >"$work/files"
fails grep -i zorv "$work/files"
ok "purged, no file has zorv in its name"

# --- an older release, used ---------------------------------------------------------------------------------------

install old "${all[@]}"
mkdir "$root/srv/tree"
touch "$root/srv/tree/a" "$root/srv/tree/b"
prints 'set file oid success. /srv/tree/a' $tool -a -o /srv/tree/a 1 2 3
printf '[tid]\n/srv/tree/* = 12\n' >>"$root/etc/zorv/label/policy.conf"
cp "$root/etc/zorv/label/policy.conf" "$work/policy.conf"

install new "${all[@]}"
cmp "$work/policy.conf" "$root/etc/zorv/label/policy.conf"
cmp packaging/etc/zorv-label-log.properties "$root/etc/zorv/label/zorv-label-log.properties"
rm "$root/etc/zorv/label/policy.conf.dpkg-dist"
ok "an upgrade keeps the changed policy and brings the new version of the unchanged log configuration"
prints '/srv/tree/a, oid : 0x0000000000000001-0x0000000000000002-0x0000000000000003' $tool -g -u -o --all
ok "an upgrade keeps what users set"

# --- an administrator ---------------------------------------------------------------------------------------------

has_mode /var/log/zorv '2750 root:adm'
has_mode $store '700 root:root'
ok "the log's directory is 2750 root:adm, the store's 0700 root:root"

prints 'set file tid success. /srv/tree/a' $tool -a -t /srv/tree/a 1f
prints '/srv/tree/a tid:0000001f' $tool -g -t /srv/tree/a
prints 'file: /srv/tree/a label: 0000000000000001-0000000000000002-0000000000000003:31:0000000000000000-0000000000000000-0000000000000000:0:0000000000000000-0000000000000000-0000000000000000' \
    $tool -g -l /srv/tree/a
prints '/srv/tree/a, tid : 0x0000001f' $tool -g -u -t --all
ok "set and show print labels and nothing else"
prints 'set file oid error. /srv/tree/none' $tool -a -o /srv/tree/none 1 2 3
grep -qE '^[0-9-]{10} [0-9:.]{12} [0-9]+ \[ERROR\] \[.*/srv/tree/none.*No such file' "$root$log"
ok "a failure prints the tool's words alone, and the log has the reason"
lines=$(wc -l <"$root$log")
user=(setpriv --reuid=65534 --regid=65534 --clear-groups)
complaint="chmod failed for $log: Permission denied"
prints "$complaint"$'\n''file: /srv/tree/a label: 0000000000000001-0000000000000002-0000000000000003:31:0000000000000000-0000000000000000-0000000000000000:0:0000000000000000-0000000000000000-0000000000000000' \
    "${user[@]}" $tool -g -l /srv/tree/a
prints "$complaint"$'\nset file oid error. /srv/tree/a' "${user[@]}" $tool -a -o /srv/tree/a 1 2 3
fails in_root "${user[@]}" cat "$log"
[ "$(wc -l <"$root$log")" -eq "$lines" ]
has_mode $log '640 root:adm'
ok "a user without privilege sees the same after a complaint on standard error, and cannot read the log, which is 0640"

in_root $tool -a -s /srv/tree
grep -q '\[INFO\].*full labelling\|\[INFO\].*labelled' "$root$log"
prints '/srv/tree/b tid:00000012' $tool -g -t /srv/tree/b
ok "a full labelling of a small root follows the policy and leaves its summary in the log"
chroot "$root" timeout 20 $tool -S >"$work/heard" 2>&1 &
listener=$!
for _ in $(seq 100); do
    in_root $tool -a -t /srv/tree/b 2a
    grep -q 'set_tid /srv/tree/b' "$work/heard" && break
    sleep 0.1
done
grep -q 'file set_tid /srv/tree/b' "$work/heard"
kill "$listener"
wait "$listener" || true
ok "a listener hears of a change"
in_root $tool -d -t /srv/tree/b
in_root $tool -r -l /srv/tree/b
prints '/srv/tree/b tid:00000012' $tool -g -t /srv/tree/b
ok "restore brings back what policy says"
cp scripts/demo.sh "$root/tmp"
chroot "$root" bash /tmp/demo.sh /usr/bin >"$work/demo" 2>&1
fails grep -i 'read log config\|chmod failed' "$work/demo"
[ "$(grep -c '^# ' "$work/demo")" -eq "$(grep -c '^run ' scripts/demo.sh)" ]
ok "the demonstration runs with the installed tool"

# --- another label manager ----------------------------------------------------------------------------------------

# The library file that the tool uses is this one. Usage: manager_is PATH [COMMAND...]
manager_is() {
    local path=$1 used
    shift
    used=$(chroot "$root" "$@" ldd "/usr/bin/$tool" | sed -n 's/.*libzorvlabelmgr\.so => \(.*\) (.*/\1/p')
    [ "$(chroot "$root" realpath "$used")" = "$path" ]
}
manager_is "$bundled"
ok "the bundled label manager is used"

# A stand-in for the framework's library: answers any identifier with zeros.
framework=$work/framework
mkdir -p "$framework/DEBIAN" "$framework/usr/lib/$triplet"
dpkg-deb -x "$work/new"/libzorvlabelcommon-dev_*.deb "$work/dev"
c++ -std=c++20 -shared -fPIC -I. -I"$work/dev/usr/include/zorv" tests/support/{fake_labelmgr,table}.cpp -Wl,-soname,libzorvlabelmgr.so \
    -o "$framework$library"
cat >"$framework/DEBIAN/control" <<CONTROL
Package: framework-label-manager
Version: 1
Architecture: $(dpkg --print-architecture)
Provides: libzorvlabelmgr
Maintainer: nobody <nobody@example.invalid>
Description: stand-in for the framework's label manager
CONTROL
dpkg-deb -b "$framework" "$root/packages/framework.deb" >>"$work/output"
speaks_as_framework() {
    prints '/srv/tree/a tid:00000000' env ZORV_FAKE_CALLS=/dev/null ZORV_FAKE_ANSWERS= $tool -g -t /srv/tree/a
}
# The same as a link to a library of another name, in a package without a merged /usr.
linked=$work/linked-framework
mkdir "$linked"
cp -a "$framework/DEBIAN" "$framework/usr/lib" "$linked"
mv "$linked${library#/usr}"{,.3}
ln -s libzorvlabelmgr.so.3 "$linked${library#/usr}"
sed -i 's/^Package: framework/&-linked/' "$linked/DEBIAN/control"
dpkg-deb -b "$linked" "$root/packages/framework-linked.deb" >>"$work/output"
for package in framework framework-linked; do
    apt_get install ./packages/$package.deb
    speaks_as_framework
    install new $manager
    speaks_as_framework
    ok "a package with the framework's library ($package) takes over, also when the bundled one is installed again"
    apt_get remove $package-label-manager
    manager_is "$bundled"
    ok "when that package goes, the bundled one is back"
done
apt_get install ./packages/framework.deb
apt_get remove $manager
speaks_as_framework
install new $manager
speaks_as_framework
in_root dpkg --purge framework-label-manager
manager_is "$bundled"
ok "the bundled one can be removed and installed again beside it"

mkdir -p "$root/opt/framework"
cp "$framework$library" "$root/opt/framework"
manager_is /opt/framework/libzorvlabelmgr.so env LD_LIBRARY_PATH=/opt/framework
in_root update-alternatives --install "$library" "libzorvlabelmgr.so-$triplet" /opt/framework/libzorvlabelmgr.so 50
speaks_as_framework
in_root update-alternatives --remove "libzorvlabelmgr.so-$triplet" /opt/framework/libzorvlabelmgr.so
manager_is "$bundled"
cp "$framework$library" "$root/usr/local/lib"
in_root ldconfig
manager_is /usr/local/lib/libzorvlabelmgr.so
rm -r "$root/usr/local/lib/libzorvlabelmgr.so" "$root/opt/framework"
in_root ldconfig
manager_is "$bundled"
ok "so do LD_LIBRARY_PATH, an alternative of higher priority and /usr/local/lib, as long as they are there"

# --- removal ------------------------------------------------------------------------------------------------------

fill() {
    mkdir -p "$root/srv/tree"
    touch "$root/srv/tree/a"
    in_root $tool -a -o /srv/tree/a 1 2 3
    in_root $tool -g -o /srv/tree/none || true
    touch "$root$log.1"
}
fill
apt_get remove $tool $manager
present $log $store/label.db /etc/zorv/label/policy.conf
absent "$library"
ok "removal keeps the log, the store and the configuration"
install new "${all[@]}"
prints '/srv/tree/a oid:0000000000000001-0000000000000002-0000000000000003' $tool -g -o /srv/tree/a
apt_get purge $tool
present $log $store/label.db
install new "${all[@]}"
apt_get install ./packages/framework.deb # which the tool can do with instead
apt_get purge $manager
present $log
absent $store
ok "purging one package leaves what the other uses"
install new "${all[@]}"
apt_get purge framework-label-manager
fill
echo kept | tee "$root$store/backup.db" >"$root/var/log/zorv/other.log"
apt_get purge "${all[@]}"
present $store/backup.db /var/log/zorv/other.log
absent $store/label.db $log
getfattr --only-values -n security.zorv "$root/srv/tree/a" >/dev/null 2>&1
rm -r "$root/var/lib/zorv" "$root/var/log/zorv"
ok "purging leaves labels of files and what is not the packages' own"
in_root dpkg --purge $tool $manager
ok "purging twice succeeds"

install new "${all[@]}"
in_root $tool -H -R -d -l /srv
fails getfattr -n security.zorv "$root/srv/tree/a" >/dev/null 2>&1
ok "labels can be removed from files first, as README.Debian says"
fill
apt_get remove $tool $manager
apt_get purge "${all[@]}"
rm -r "$root/srv/tree"
leaves_nothing
ok "removed, then purged: the files of the system are as before the installation"

install new "${all[@]}"
fill
rm -r "$root/var/lib/zorv" "$root/var/log/zorv"
apt_get purge "${all[@]}"
ok "removal without the store and the log succeeds"
install new "${all[@]}"
fill
for directory in /var/lib/zorv /var/log/zorv; do
    mount --bind "$root$directory" "$root$directory"
    mount -o remount,bind,ro "$root$directory"
done
apt_get purge "${all[@]}"
umount "$root/var/lib/zorv" "$root/var/log/zorv"
ok "so it does with both read-only"
rm -rf "$root/var/lib/zorv" "$root/var/log/zorv" "$root/srv/tree"
leaves_nothing

# --- another program's author -------------------------------------------------------------------------------------

apt_get install cmake g++ make pkg-config
install new libzorvlabelcommon1 libzorvlabelcommon-dev
cp -a tests/install "$root/consumer"
# shellcheck disable=SC2016 # the inner shell's
in_root sh -ec 'cd /consumer
    (cd /usr/include/zorv && find . -name "*.h" | sed "s:^\./\(.*\):#include <\1>:") >every_header.h
    cmake -S . -B /consumer/build -DCMAKE_CXX_STANDARD=17
    cmake --build build
    c++ -std=c++17 consumer.cpp -o by-pkg-config $(pkg-config --cflags --libs zorvlabelcommon)'
for program in /consumer/build/consumer /consumer/by-pkg-config; do
    prints '13 /a 1 2404100320 8' "$program"
done
ok "a program is built against the development package by CMake and by pkg-config, and runs"
echo "package_test: passed"
