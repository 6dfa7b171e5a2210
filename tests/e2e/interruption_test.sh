#!/bin/bash
# Kills the tool at every fourth system call of a full labelling and at every one of every other changing command, fails
# every one of the latter, and every third of them from there on for good. Afterwards the next command must find what
# users set, the attributes of the files and the change messages as they were before the command or as they are after it,
# nothing in between, and no message twice; and a command whose calls failed must tell which of the two.
# Usage: interruption_test.sh TOOL paths|patterns|labelling [STEP], with STEP 7 to try every seventh call only.
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private -p -f --kill-child --mount-proc "$0" "$@"
fi
tool=$1 commands=$2 step=${3:-1}
mount -t tmpfs tmpfs /var/log # in memory, which goes with the last process, whatever ends it
log=/var/log/zorv/zorv_label_manager.log work=/var/log/work
mkdir "${log%/*}" "$work"
export ZORV_LABEL_STATE_DIR=$work/state ZORV_LABEL_POLICY_FILE=$work/policy.conf
export ASAN_OPTIONS=detect_leaks=0 # which needs ptrace for itself
printf '[tid]\n%s = 3\n' "$work/files/*" >"$work/policy.conf"
errors=(ENOSPC EIO EROFS EACCES ENOMEM)
environment=() # of the tool under strace, as its options

findings=0 first=0 # the latter before the command
found() { # WHAT, with before, after and now; the first ones of each command in full
    findings=$((findings + 1))
    echo "FOUND: '${command[*]//$work/}' at $*" >&2
    [ "$((findings - first))" -le 3 ] || return 0
    {
        diff <(echo "$before") <(echo "$now") | sed 's/^/    before: /'
        diff <(echo "$after") <(echo "$now") | sed 's/^/    after: /'
        cat "$log"
    } >&2 || true
}

# What users set, as the next command lists it; without what the logger says of itself when that command finds work left.
user_set() { for field in -t -n; do "$tool" -g -u $field --all 2>/dev/null; done | sed '/^read log config/d'; }
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

# Labelled files, unlabelled ones, and values that a labelling has to find.
setup() {
    case $1 in
    paths) "$tool" -a -t "$work/files/a" 5 && "$tool" -a -t "$work/files/b" 5 ;;
    pattern) "$tool" -P -a -t "$work/files/?" 6 ;;
    tree)
        mkdir "$work/files"/d{1..10}
        touch "$work/files"/d{1..10}/f{1..15}
        "$tool" -P -a -t "$work/files/d1/*" 8
        "$tool" -a -n "$work/files/d2/f2" 5
        ;;
    esac
} >/dev/null 2>&1
# A copy is faster than the commands that made it.
saved_start() {
    rm -rf "$ZORV_LABEL_STATE_DIR" "$work/files"
    if [ ! -d "$work/saved_$1" ]; then
        mkdir "$work/files"
        touch "$work/files/a" "$work/files/b"
        setup "$1"
        mkdir "$work/saved_$1"
        cp -a "$work/files" "$work/saved_$1/"
        cp -a "$ZORV_LABEL_STATE_DIR" "$work/saved_$1/" 2>/dev/null || true
        rm -rf "$ZORV_LABEL_STATE_DIR" "$work/files"
    fi
    cp -a "$work/saved_$1/." "$work/"
    : >"$log"
}

# Every "SYSCALL NUMBER" of a run, from the opening of the store's directory on.
points_of() {
    strace -qq -o "$work/trace" -e signal=none "${environment[@]}" "$tool" "$@" >/dev/null 2>&1 || true
    awk -v state="$ZORV_LABEL_STATE_DIR" -v step="$step" '
        { name = $0; sub(/\(.*/, "", name) }
        name !~ /^[a-z][a-z0-9_]*$/ || name == "exit_group" { next }
        { number[name]++ }
        index($0, state) { inside = 1 }
        /^write\([12],/ { next }
        inside && count++ % step == 0 { print name, number[name] }' "$work/trace"
}

# INJECTION, in a shell of its own that keeps the report of a kill to itself. The tool waits for ten seconds at most.
injected() {
    : >"$work/status"
    sh -c '"$@"; echo $? >"$0"' "$work/status" timeout -k 1 15 strace -qq -o /dev/null -e "inject=$1" \
        "${environment[@]}" "$tool" "${command[@]}" \
        >"$work/output" 2>/dev/null || true
}

# What was told after calls failed must be so.
check_told() { # WHAT
    [ "$(cat "$work/status")" -lt 124 ] || found "$1: ended with $(cat "$work/status") (124: waited too long)"
    now=$(state)
    if grep -q success "$work/output"; then
        [ "$now" = "$after" ] || found "$1, but a success"
    elif grep -qv -e '^=' -e '^read log config' "$work/output"; then
        [ "$now" = "$before" ] || found "$1, a failure"
    else # it could not even tell
        [ "$now" = "$before" ] || [ "$now" = "$after" ] || found "$1"
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
        now=$(state)
        [ "$now" = "$before" ] || [ "$now" = "$after" ] || found "$name $number, killed"
        count=$((count + 1))

        # The C library does not look whether the first two fail, and a close that does not close happens to nobody.
        case $name in futex | brk | close) continue ;; esac
        error=${errors[count % 5]}
        # A file without room for its label is left out of many, and of no others.
        [ "$name$error" != setxattrENOSPC ] || error=EIO
        saved_start "$setup"
        injected "$name:error=$error:when=$number"
        check_told "$name $number, $error"
        grep -q -e "\[ERROR\].*: " "$log" || grep -q success "$work/output" ||
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
    local listed before after now now_status name number told_before told_after count=0 step=$((step * 4))
    command=(-a -s "$work/files")
    environment=(-E PATH=/nonexistent -E ZORV_LABEL_THREADS=1)
    saved_start tree
    before=$(labels) listed=$(user_set) told_before=$(messages)
    points_of "${command[@]}" >"$work/points"
    after=$(labels) told_after=$(messages)
    while read -r name number; do
        saved_start tree
        injected "$name:signal=SIGKILL:when=$number"
        now=$(labels) now_status=$(status)
        case $now_status in
        0) [ "$now" = "$before" ] || found "$name $number: labelled, but the status says never" ;;
        2) [ "$now" = "$after" ] || found "$name $number: not labelled, but the status says complete" ;;
        3) [ -z "$(comm -23 <(echo "$now") <(sort -u <<<"$before"$'\n'"$after"))" ] ||
            found "$name $number: a label that is neither old nor new" ;;
        *) found "$name $number: status $now_status" ;;
        esac
        [ "$(messages)" = "$([ "$now_status" = 2 ] && echo "$told_after" || echo "$told_before")" ] ||
            found "$name $number: status $now_status, but the messages are others"
        [ "$(user_set)" = "$listed" ] || found "$name $number: not listed as before"
        PATH=/nonexistent "$tool" "${command[@]}" >/dev/null 2>&1
        now=$(labels)
        [ "$now" = "$after" ] || found "$name $number: the next labelling leaves something out"
        [ "$(status)" = 2 ] || found "$name $number: the next labelling is not complete"
        count=$((count + 1))
    done <"$work/points"
    echo "${command[*]//$work/}: killed at $count calls; labels, list, status and messages disagree $findings times"
    environment=()
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
labelling) interrupt_labelling ;;
*) echo "interruption_test: no such commands: $commands" >&2 && exit 1 ;;
esac
[ "$findings" = 0 ]
