#!/bin/bash
# The packages themselves, and those of an older release beside them: old/ and new/ in the work directory.
. scripts/package_test/helpers.sh

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
