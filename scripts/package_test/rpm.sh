#!/bin/bash
# The RPM packages, built in the root and installed beside dpkg's: rpm's own database is empty there, so it cannot look for
# what they need.
. scripts/package_test/helpers.sh
spec=packaging/$tool.spec
name=$tool-$(sed -n 's/^Version: *//p' "$spec")

in_root dpkg --purge libzorvlabelcommon-dev libzorvlabelcommon1
apt_get install cmake g++ liblog4cpp5-dev libsqlite3-dev libssl-dev libzmq3-dev ninja-build nlohmann-json3-dev pkg-config rpm
mkdir -p "$root/rpm/SOURCES"
git ls-files -z | tar --null -T - --transform "s,^,$name/," -czf "$root/rpm/SOURCES/$name.tar.gz"
cp "$spec" "$root/rpm"
# Without packages for debuggers: Debian's rpm lacks the program that fills them.
in_root rpmbuild -bb --nodeps --define 'debug_package %{nil}' --define '_topdir /rpm' --define "_libdir /usr/lib/$triplet" "/rpm/$tool.spec"
ok "the RPM packages are built, with a place for every file"

rpm_packages=("$root"/rpm/RPMS/*/*.rpm)
in_root rpm --install --nodeps "${rpm_packages[@]#"$root"}"
touch "$root/srv/labelled"
prints 'set file tid success. /srv/labelled' $tool -a -t /srv/labelled 1f
prints '/srv/labelled, tid : 0x0000001f' $tool -g -u -t --all
has_mode $store '700 root:root'
in_root rpm --erase $tool zorv-label-common-devel
absent "/usr/bin/$tool" /usr/bin/zorv-label-state "$library"
present $store/label.db
ok "rpm installs them, they label, and erasing them leaves what was set"
