#!/bin/bash
# A new root, the packages in it, and an upgrade of an older release in use. Usage: installation.sh BASE.tar, or an empty word
. scripts/package_test/helpers.sh
base=$1

mkdir "$root"
if [ -n "$base" ] && [ -e "$base" ]; then
    tar -C "$root" -xpf "$base"
else
    debootstrap --variant=minbase "$(. /etc/os-release && echo "$VERSION_CODENAME")" "$root" >>"$work/output" 2>&1
    [ -z "$base" ] || tar -C "$root" -cf "$base" .
fi
mount --bind "$root" "$root" # a root that can have mount namespaces of its own
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

# An older release, used.
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
