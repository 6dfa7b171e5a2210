#!/bin/bash
# What fleet_demo.sh shows, in namespaces of its own. Usage: session.sh WORK PACKAGES
set -euo pipefail
. scripts/fleet_demo/hosts.sh
trap '[ $? -eq 0 ] || { echo "FAILED after the line above; the last output was:" && tail -n 60 "$work/output"; } >&2' EXIT

# Runs Ansible and keeps what it prints. Whether it fails is for the checks to say.
playbook() {
    local begin=${EPOCHREALTIME/./}
    ansible-playbook "$PWD/ansible/examples/fleet.yml" "$@" >"$work/output" 2>&1 || true
    seconds=$(awk -v us=$((${EPOCHREALTIME/./} - begin)) 'BEGIN { printf "%.1f", us / 1e6 }')
}
ok() {
    printf 'ok  %s\n' "$*"
}
# Each host's last line matches, and it is printed. Usage: recap PATTERN HOST...
recap() {
    local pattern=$1 host
    shift
    for host; do
        grep -E "^$host +: $pattern" "$work/output"
    done
}
# Usage: says TEXT...: the output has each of them.
says() {
    local text
    for text; do
        grep -F -m 1 -e "$text" "$work/output" | cut -c 1-180
        grep -qF -e "$text" "$work/output"
    done
}
# Everything about labels on a host: what is set, and every attribute.
labels_of() {
    chroot "$work/$1" zorv-label-state export
    (cd "$work/$1" && getfattr -Rhd -m security.zorv -e hex srv/www)
}

ip link set lo up
write_inventory
for number in 1 2 3 4; do
    start_host "web$number" "127.0.0.1$number"
done
all=(web1 web2 web3 web4)

echo "fleet_demo: $values values for each of ${#all[@]} hosts, the first time"
playbook
recap 'ok=[0-9]+ +changed=[1-9].* unreachable=0 +failed=0' "${all[@]}"
[ "$(chroot "$work/web1" zorv-label-state export | grep -c '^{"')" -eq "$values" ]
ok "packages, policy, labels and values are there, in $seconds seconds"

echo "fleet_demo: the second time"
playbook
recap 'ok=[0-9]+ +changed=0 +unreachable=0 +failed=0' "${all[@]}"
ok "nothing is changed on any host, in $seconds seconds"

echo "fleet_demo: web2 is spoiled"
setfattr -x security.zorv "$work/web2/srv/www/page-0001.html"
setfattr -n security.zorv -v 0x01 "$work/web2/srv/www/page-0002.html"
playbook
says '/srv/www: 2 wrong'
recap 'ok=[0-9]+ +changed=0 +unreachable=0 +failed=0' web1 web3 web4
recap 'ok=[0-9]+ +changed=1 +unreachable=0 +failed=0' web2
cmp <(labels_of web1) <(labels_of web2)
ok "its two wrong labels are found and mended"

echo "fleet_demo: all values change, and on web4 one file refuses its label"
mount --bind "$work/web4/srv/www/page-0500.html" "$work/web4/srv/www/page-0500.html"
mount -o remount,bind,ro "$work/web4/srv/www/page-0500.html"
printf '%s\n' 'tid: "2a"' 'label_patterns:' '- {pattern: "/srv/www/*9.html", inherit_flag: "0"}' \
    '- {pattern: "/srv/www/*-00?0.html", inherit_flag: "5"}' >"$work/changes.yml"
labels_of web3 >"$work/labels"
playbook --check --diff -e "@$work/changes.yml"
recap 'ok=[0-9]+ +changed=1 +unreachable=0 +failed=0' web1 web2 web3
different_records() {
    grep -E '^[-+]\{"' "$work/output" | sort -u # each host tells the same
}
different_records >"$work/diff"
cmp <(labels_of web3) "$work/labels"
ok "check mode changes nothing, and its diff has $(wc -l <"$work/diff") records"
playbook --diff -e "@$work/changes.yml"
recap 'ok=[0-9]+ +changed=1 +unreachable=0 +failed=0' web1 web2 web3
cmp <(different_records) "$work/diff"
ok "the change is what check mode told"
recap 'ok=[0-9]+ +changed=0 +unreachable=0 +failed=1' web4
says 'page-0500.html: Read-only file system'
cmp <(labels_of web4) "$work/labels"
ok "web4 is reported, and as it was"
umount "$work/web4/srv/www/page-0500.html"

mount -t tmpfs archive "$work/web4/mnt"
touch "$work/web4/mnt/old.html"
mount -o remount,ro "$work/web4/mnt"
ansible web4 -m zorv.label.state -a '{"keep_others": true, "patterns": [{"pattern": "/mnt/*", "tid": "7"}]}' \
    >"$work/output" 2>&1 && exit 1
says 'web4 | FAILED' 'changed: true' 'pattern: /mnt/*' '1 of its files did not take it; the others did'
umount "$work/web4/mnt"
ok "a file of a pattern that refuses its label is reported, and that the value holds"
playbook -e "@$work/changes.yml"
recap 'ok=[0-9]+ +changed=0 +unreachable=0 +failed=0' web1 web2 web3
recap 'ok=[0-9]+ +changed=1 +unreachable=0 +failed=0' web4
cmp <(labels_of web1) <(labels_of web4)
ok "when the file takes its label web4 is as the others"

echo "fleet_demo: hosts that cannot be labelled, and bad values"
refused() {
    local host=$1 text=$2 user=$3 parameters=$4 before
    before=$(labels_of "$host" 2>/dev/null || true)
    ansible "$host" -e "ansible_user=$user" -m zorv.label.state -a "$parameters" >"$work/output" 2>&1 && return 1
    says "$text"
    [ "$(labels_of "$host" 2>/dev/null || true)" = "$before" ]
}
one='{"keep_others": true, "packages": [{"package": "bash", "id": "1"}]}'
refused web1 'labels are for root alone' guest "$one"
refused web1 'paths[0]: tid is 31, which is no text' root '{"keep_others": true, "paths": [{"path": "/srv", "tid": 31}]}'
refused web1 'patterns[1]: bad value of "tid": "xyz"' root \
    '{"keep_others": true, "patterns": [{"pattern": "/a*", "tid": "1"}, {"pattern": "/b*", "tid": "xyz"}]}'
refused web1 'missing: patterns, packages' root '{"paths": []}'
chroot "$work/web2" dpkg --remove zorv-label-manager-tool libzorvlabelmgr-bundled >"$work/output" 2>&1
refused web2 'zorv-label-state is not installed here' root "$one"
cp -L "$work"/web3/usr/lib/*/zorv-labelmgr-bundled/libzorvlabelmgr.so "$work/web3/usr/local/lib"
chroot "$work/web3" ldconfig
refused web3 'another label manager is in use here, /usr/local/lib/libzorvlabelmgr.so' root "$one"
chroot "$work/web4" python3 -c 'import sqlite3
sqlite3.connect("/var/lib/zorv/label/label.db").execute("PRAGMA user_version = 99")'
refused web4 'written by a newer version' root "$one"
ok "each is refused with its reason"
echo "fleet_demo: passed"
