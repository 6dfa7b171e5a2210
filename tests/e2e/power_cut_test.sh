#!/bin/bash
# Cuts the power at every flush of a disk, right behind everything that the tool tells, and at random instants between,
# while the tool's commands run on recorded disks. Each time the file systems are mounted as the cut left them, and the next
# command must find what was told before: what users set, the labels and the status as after the last command that told
# its result; of a command that was under way all or nothing, of a full labelling each file's old or its new label.
# Usage: power_cut_test.sh TOOL RECORDING_DISK ext4|xfs|btrfs one|two [OTHERS]
#   with the store and the files on one disk or on two, and OTHERS cuts at random. Ends with 77 where the system lacks
#   what the test needs.
set -euo pipefail

skip() { echo "power_cut_test: skipped: $*" >&2 && exit 77; }

# All that is made here lies in memory and goes with the last process, whatever ends it.
if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    namespaces=(unshare -m --propagation private -p -f --kill-child --mount-proc)
    reason=$("${namespaces[@]}" true 2>&1) || skip "no private namespaces: $reason"
    for needed in /dev/fuse /dev/loop-control; do
        { [ -c "$needed" ] && : 2>/dev/null <>"$needed"; } || skip "cannot open $needed"
    done
    for needed in "mkfs.$3" getfattr; do command -v "$needed" >/dev/null || skip "no $needed"; done
    ZORV_IN_PRIVATE_NAMESPACE=1 exec "${namespaces[@]}" "$0" "$@"
fi
tool=$1 recorder=$2 type=$3 others=${5:-60}
case $4 in one) disks=(only) ;; two) disks=(store files) ;; esac
mount -t tmpfs tmpfs /var/log
log=/var/log/zorv/zorv_label_manager.log work=/var/log/work
mkdir -p "${log%/*}" "$work/recorded" "${disks[@]/#/$work/}"
files=$work/${disks[-1]}/files
export ZORV_LABEL_STATE_DIR=$work/${disks[0]}/state ZORV_LABEL_POLICY_FILE=$work/policy.conf
printf '[tid]\n%s = 3\n' "$files/*" >"$ZORV_LABEL_POLICY_FILE"

workload=(
    nothing
    "-a -t $files/a 5"
    "-a -n $files/b 5"
    "-a -t $files/a 9"
    "-a -o $files/b 1 2 3"
    "-P -a -t $files/d/* 6"
    "-a -t $files/nothing 1"
    "-P -a -t $files/d/* 7"
    "-a -t $files/d/1 8"
    "-d -t $files/a"
    "-P -a -n $files/? 7"
    "-r -l $files/c"
    "-P -d -n $files/?"
    "-a -s $files"
    "-a -t $files/a 4"
    "-i -l $files/a"
    "-P -a -t $files/d/* 8"
    "-d -c tid"
    "-a -m $files/d/2 1 2 3"
    "-i -l $files/d/2"
    "-a -s $files"
)
last=$((${#workload[@]} - 1))

run() { PATH=/nonexistent "$tool" "$@" 2>/dev/null; }
# shellcheck disable=SC2046,SC2086 # a command is words, and its patterns are not the shell's
run_command() { (set -f && run ${workload[$1]}); } # NUMBER

mount_disks() { # DIRECTORY SUFFIX
    for disk in "${disks[@]}"; do mount -t "$type" -o loop "$1/$disk$2" "$work/$disk" || return; done
}
umount_disks() { for disk in "${disks[@]}"; do umount "$work/$disk"; done; }

make_files() { mkdir -p "$files/d" && touch "$files"/{a,b,c} "$files"/d/{1..20}; }
# What now holds, as list_now, labels_now and status_now.
ask() {
    list_now=$(for field in -t -n -o -m; do run -g -u $field --all; done | sed '/^read log config/d')
    labels_now=$(getfattr -R -d -m security.zorv -e hex --absolute-names "$files" |
        awk '/^# file/ { file = $3 } /^security/ { print file, $0 }' | sort)
    status_now=$(run -g -b | sed -n 's/^LabelSetStatus: //p')
}

is_state() { # NUMBER
    [ "$list_now|$labels_now|$status_now" = "${list[$1]}|${labels[$1]}|${status[$1]}" ]
}

# What holds after each command, from a run on no disk at all.
make_files
for number in $(seq 0 "$last"); do
    [ "$number" = 0 ] || run_command "$number" >/dev/null || true
    ask
    list[number]=$list_now labels[number]=$labels_now status[number]=$status_now
done
rm -rf "$ZORV_LABEL_STATE_DIR" "$files"

# The recorded run. A result is told when its line is read, which may be before the command ends.
cd "$work"
for disk in "${disks[@]}"; do
    truncate -s 300M "$disk.first" # the least that each of the file systems takes
    "mkfs.$type" -q "$disk.first" >/dev/null
    cp "$disk.first" "$disk.now"
done
"$recorder" recorded "${disks[@]}" >>events &
until [ -e recorded/cut ]; do
    kill -0 $! || exit 1
    sleep 0.05
done
mount_disks recorded ''
make_files
for disk in "${disks[@]}"; do sync -f "$work/$disk"; done
for number in $(seq "$last"); do
    echo begin "$number" >>events
    run_command "$number" | while read -r line; do
        [[ ! $line =~ (file|label).*(success|error) ]] || echo told "$number" >>events
    done || true
    echo told "$number" >>events
done
ask
is_state "$last" || { echo "power_cut_test: the commands do something else on $type" >&2 && exit 1; }
umount_disks

# "EVENTS PERCENT TOLD BEGUN" of each cut: the numbers of the last commands that told something and that had begun.
awk -v others="$others" '
    function cut(events, percent) { print events, percent, told + 0, begun }
    BEGIN { srand(11) }
    $1 == "begin" { begun = $2 }
    $1 == "told" && $2 > told { told = $2; cut(events, 0); cut(events, 50) }
    $1 == "write" { events++; unflushed = 1 }
    $1 == "flush" && events++ >= 0 && begun {
        if (unflushed) { cut(events - 1, 10 + 20 * (events % 5)) }
        cut(events, 0)
        unflushed = 0
    }
    begun { between[++count] = events " " int(rand() * 5) * 25 " " told + 0 " " begun }
    END { while (others-- > 0) print between[1 + int(rand() * count)] }
' events >cuts

# Of the last command that told something and the one that had begun.
has_either() {
    [ "$told" != "$begun" ] || return 1
    [ "$list_now" = "${list[told]}" ] || [ "$list_now" = "${list[begun]}" ] || return 1
    printf '%s\n' "${labels[told]}" -- "${labels[begun]}" -- "$labels_now" | awk '
        $1 == "--" { part++ }
        { label[part + 0, $1] = $2; files[$1] }
        END { for (file in files) if (label[2, file] != label[0, file] && label[2, file] != label[1, file]) exit 1 }'
}

declare -A found=([lost]=0 [half]=0 [error]=0)
report() { # KIND WHAT
    [ "$((++found[$1]))" -le 5 ] || return 0
    echo "$2: begun '${workload[begun]}' ($begun of $last), told before '${workload[told]}' ($told);" \
        "cut after event $events, $percent % of the unflushed writes, seed $count"
    diff <(printf '%s\n' "${list[told]}" "${labels[told]}" "status ${status[told]}") \
        <(printf '%s\n' "$list_now" "$labels_now" "status $status_now") | sed -n '1,12s/^/    /p' || true
    [ ! -s "$log" ] || sed 's/^/    log: /' "$log"
}
count=0
while read -r events percent told begun; do
    count=$((count + 1))
    for disk in "${disks[@]}"; do cp "$disk.first" "$disk.cut"; done
    echo "$events $percent $count" >recorded/cut
    : >"$log"
    list_now='' labels_now='' status_now=''
    if ! mount_disks . .cut; then
        report error "not mounted"
        umount_disks 2>/dev/null || true
        continue
    fi
    ask
    umount_disks
    if [[ $list_now$status_now =~ fail|error ]]; then
        report error "the next command fails"
    elif is_state "$told" || is_state "$begun"; then
        continue
    elif has_either; then
        [[ ${workload[begun]}$status_now == "-a -s "*3 ]] || report half "half done"
    else
        report lost "told and lost"
    fi
done <cuts
umount recorded
wait
echo "$type, $4: $count cuts, ${found[lost]} told and lost, ${found[half]} half done, ${found[error]} errors"
[ "$((found[lost] + found[half] + found[error]))" = 0 ]
