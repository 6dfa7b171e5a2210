#!/bin/bash
# What removing and purging leave.
. scripts/package_test/helpers.sh

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
