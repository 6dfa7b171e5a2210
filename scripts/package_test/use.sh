#!/bin/bash
# What an administrator and a user without privilege do and see.
. scripts/package_test/helpers.sh

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
prints 'file: /srv/tree/a label: 0000000000000001-0000000000000002-0000000000000003:31:0000000000000000-0000000000000000-0000000000000000:0:0000000000000000-0000000000000000-0000000000000000' \
    "${user[@]}" $tool -g -l /srv/tree/a
prints 'set file oid error. /srv/tree/a' "${user[@]}" $tool -a -o /srv/tree/a 1 2 3
fails in_root "${user[@]}" cat "$log"
[ "$(wc -l <"$root$log")" -eq "$lines" ]
has_mode $log '640 root:adm'
ok "a user without privilege sees the same, and cannot read the log, which is 0640"

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
fails grep -i 'read log config\|chmod failed\|error' "$work/demo"
[ "$(grep -c '^# ' "$work/demo")" -eq "$(grep -c '^run ' scripts/demo.sh)" ]
ok "the demonstration runs with the installed tool"
