#!/bin/bash
# The framework's label manager in place of the bundled one, and back.
. scripts/package_test/helpers.sh

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
