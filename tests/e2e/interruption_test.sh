#!/bin/bash
# Kills the tool at every fourth system call of a full labelling and at every one of every other changing command, fails
# every one of the latter, and every third of them from there on for good. Afterwards the next command must find what
# users set, the attributes of the files and the change messages as they were before the command or as they are after it,
# nothing in between, and no message twice; and a command whose calls failed must tell which of the two.
# Usage: interruption_test.sh TOOL paths|patterns|apply|labelling [STEP], with STEP 7 to try every seventh call only.
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private -p -f --kill-child --mount-proc "$0" "$@"
fi
tool=$1 commands=$2 step=${3:-1}
program=$tool state_program=${tool%/*}/zorv-label-state # the first is interrupted
mount -t tmpfs tmpfs /var/log # in memory, which goes with the last process, whatever ends it
log=/var/log/zorv/zorv_label_manager.log work=/var/log/work
mkdir "${log%/*}" "$work"
if [ -d /var/lib/dpkg ]; then # a restore asks for all owners: of few packages that is few calls
    mount -t tmpfs tmpfs /var/lib/dpkg
    mkdir /var/lib/dpkg/info /var/lib/dpkg/updates
    printf 'Package: some\nStatus: install ok installed\nArchitecture: all\nVersion: 1\nMaintainer: nobody\nDescription: some\n' \
        >/var/lib/dpkg/status
    printf '%s\n' /. /var /var/log "$work" "$work/files" "$work/files/a" >/var/lib/dpkg/info/some.list
fi
export ZORV_LABEL_STATE_DIR=$work/state ZORV_LABEL_POLICY_FILE=$work/policy.conf
export ASAN_OPTIONS=detect_leaks=0 # which needs ptrace for itself
printf '[tid]\n%s = 3\n' "$work/files/*" >"$work/policy.conf"
errors=(ENOSPC EIO EROFS EACCES ENOMEM)
environment=() # of the tool under strace, as its options

findings=0 first=0 # the latter before the command
found() { # WHAT, with before, after and now; the first ones of each command in full
    findings=$((findings + 1))
    echo "FOUND: '${command[*]//$work/}' at $*"
    [ "$((findings - first))" -gt 3 ] || diff3 <(echo "$before") <(echo "$now") <(echo "$after") | cat - "$log"
}

# What users set, as the next command lists it; without what the logger says of itself when that command finds work left.
user_set() { for field in -t -n -p; do "$tool" -g -u $field --all 2>/dev/null; done | sed '/^read log config/d'; }
# "FILE LABEL" of every labelled file, sorted.
labels() {
    getfattr -R -P -d -m security.zorv -e hex --absolute-names "$work/files" |
        awk '/^# file/ { file = $3 } /^security/ { print file, $0 }' | sort
}
# Every change message, sorted: in which order a change tells its files is not promised. Empty ones were taken back. Of a
# store that was killed in the making there may be a file without tables.
messages() {
    [ ! -e "$ZORV_LABEL_STATE_DIR/label.db" ] ||
        { sqlite3 "$ZORV_LABEL_STATE_DIR/label.db" 'SELECT message FROM change_feed WHERE length(message) > 0' 2>&1 || true; } |
        sed '/no such table/d' | sort
}
state() { user_set && labels && messages; }
status() { PATH=/nonexistent "$tool" -g -b 2>/dev/null | sed -n 's/^LabelSetStatus: //p'; }

# Labelled files, unlabelled ones, and values that a labelling has to find; saved, as a copy is faster than the commands.
for start in empty paths pattern mixed tree; do
    mkdir -p "$work/files" "$work/saved/$start"
    touch "$work/files/a" "$work/files/b"
    case $start in
    paths) "$tool" -a -t "$work/files/a" 5 && "$tool" -a -t "$work/files/b" 5 ;;
    pattern) "$tool" -P -a -t "$work/files/?" 6 ;;
    mixed) "$tool" -a -t "$work/files/a" 5 && "$tool" -P -a -t "$work/files/?" 6 && "$tool" -a -p old 7 ;;
    tree)
        mkdir "$work/files"/d{1..10} && touch "$work/files"/d{1..10}/f{1..15}
        "$tool" -P -a -t "$work/files/d1/*" 8 && "$tool" -a -n "$work/files/d2/f2" 5
        ;;
    esac >/dev/null 2>&1
    [ "$start" = empty ] || mv "$ZORV_LABEL_STATE_DIR" "$work/saved/$start/"
    mv "$work/files" "$work/saved/$start/"
done
saved_start() {
    rm -rf "$ZORV_LABEL_STATE_DIR" "$work/files"
    cp -a "$work/saved/$1/." "$work/"
    : >"$log"
}

# Every "SYSCALL NUMBER" of a run, from the opening of the store's directory on.
points_of() {
    strace -qq -o "$work/trace" -e signal=none "${environment[@]}" "$program" "$@" >/dev/null 2>&1 || true
    awk -v state="$ZORV_LABEL_STATE_DIR" -v step="$step" '
        { name = $0; sub(/\(.*/, "", name) }
        name !~ /^[a-z][a-z0-9_]*$/ || name ~ /^syscall_/ || name == "exit_group" { next } # those without a name
        { number[name]++ }
        index($0, state) { inside = 1 }
        /^write\([12],/ { next }
        inside && count++ % step == 0 { print name, number[name] }' "$work/trace"
}

# INJECTION, in a shell of its own that keeps the report of a kill to itself. The tool waits for ten seconds at most.
injected() {
    : >"$work/status"
    sh -c '"$@"; echo $? >"$0"' "$work/status" timeout -k 1 15 strace -qq -o /dev/null -e "inject=$1" \
        "${environment[@]}" "$program" "${command[@]}" \
        >"$work/output" 2>/dev/null || true
}

is_before_or_after() { now=$(state) && { [ "$now" = "$before" ] || [ "$now" = "$after" ]; }; }
# By the tool in words, by the other program in its status.
is_told_done() { grep -q success "$work/output" || [ "$program$(cat "$work/status")" = "${state_program}2" ]; }
is_told_failed() {
    grep -qv -e '^=' -e '^read log config' "$work/output" || [ "$program$(cat "$work/status")" = "${state_program}1" ]
}
# What was told after calls failed must be so; when it could not even tell, either.
check_told() { # WHAT
    [ "$(cat "$work/status")" -lt 124 ] || found "$1: ended with $(cat "$work/status") (124: waited too long)"
    is_before_or_after || found "$1"
    if is_told_done; then
        [ "$now" = "$after" ] || found "$1, but a success"
    elif is_told_failed; then
        [ "$now" = "$before" ] || found "$1, a failure"
    fi
}

interrupt() { # SETUP COMMAND...
    local setup=$1 before after now name number error count=0 first=$findings
    shift
    command=("$@")
    saved_start "$setup"
    before=$(state)
    points_of "${command[@]}" >"$work/points"
    after=$(state)
    while read -r name number; do
        saved_start "$setup"
        injected "$name:signal=SIGKILL:when=$number"
        is_before_or_after || found "$name $number, killed"
        count=$((count + 1))

        # The C library does not look whether the first two fail, and a close that does not close happens to nobody.
        case $name in futex | brk | close) continue ;; esac
        error=${errors[count % 5]}
        # A file without room for its label is left out of many, and of no others; to open or look at one takes no room.
        case $name$error in setxattrENOSPC) error=EIO ;; esac
        saved_start "$setup"
        injected "$name:error=$error:when=$number"
        check_told "$name $number, $error"
        grep -q -e "\[ERROR\].*: " "$log" || is_told_done ||
            found "$name $number, $error: no reason in the log"

        # A lock that is refused for good is waited for in vain.
        [ $((count % $([ "$name" = fcntl ] && echo 15 || echo 3))) = 0 ] || continue
        saved_start "$setup"
        injected "$name:error=$error:when=$number+"
        check_told "$name $number and later, $error"
    done <"$work/points"
    echo "${command[*]//$work/}: $count calls killed and failed;" \
        "list, attributes and messages disagree $((findings - first)) times"
}

# A labelling of the whole tree, killed: every file has its old or its new label, the status and the message say whether
# all have, what users set is listed as before, and the next labelling completes the work.
interrupt_labelling() {
    local listed before after now status_now name number complete count=0 step=$((step * 4))
    local -A told
    command=(-a -s "$work/files")
    environment=(-E PATH=/nonexistent -E ZORV_LABEL_THREADS=1)
    saved_start tree
    before=$(labels) listed=$(user_set) told[0]=$(messages) told[3]=${told[0]}
    points_of "${command[@]}" >"$work/points"
    after=$(labels) told[2]=$(messages) complete=$(user_set && labels && status)
    while read -r name number; do
        saved_start tree
        injected "$name:signal=SIGKILL:when=$number"
        now=$(labels) status_now=$(status)
        case $status_now in
        0) [ "$now" = "$before" ] ;;
        2) [ "$now" = "$after" ] ;;
        3) [ -z "$(comm -23 <(echo "$now") <(sort -u <<<"$before"$'\n'"$after"))" ] ;;
        *) false ;;
        esac || found "$name $number: labels that the status $status_now does not allow"
        [ "$(messages)" = "${told[${status_now:-none}]-}" ] || found "$name $number: status $status_now, other messages"
        [ "$(user_set)" = "$listed" ] || found "$name $number: not listed as before"
        PATH=/nonexistent "$tool" "${command[@]}" >/dev/null 2>&1
        now=$(user_set && labels && status)
        [ "$now" = "$complete" ] || found "$name $number: the next labelling leaves something out"
        count=$((count + 1))
    done <"$work/points"
    echo "${command[*]//$work/}: killed at $count calls; labels, list, status and messages disagree $findings times"
}

case $commands in
paths)
    interrupt empty -a -t "$work/files/a" 9
    interrupt paths -a -t "$work/files/a" 9
    interrupt paths -d -t "$work/files/a"
    interrupt paths -r -l "$work/files/a"
    ;;
patterns)
    interrupt empty -P -a -t "$work/files/?" 9
    interrupt pattern -P -d -t "$work/files/?"
    interrupt paths -d -c tid
    ;;
apply)
    printf '{"format": "zorv-label-state", "version": 1, "paths": [{"path": "%s", "tid": "9", "inherit_flag": "5"}],
        "patterns": [{"pattern": "%s", "tid": "8"}], "packages": [{"package": "new", "id": "7"}]}' \
        "$work/files/b" "$work/files/*" >"$work/apply.json"
    program=$state_program
    interrupt mixed apply --quiet "$work/apply.json"
    ;;
labelling) interrupt_labelling ;;
*) echo "interruption_test: no such commands: $commands" >&2 && exit 1 ;;
esac
[ "$findings" = 0 ]
