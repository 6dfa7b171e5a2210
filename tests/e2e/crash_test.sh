#!/bin/bash
# Kills the tool at every system call of every changing command in turn. The next command must find what users set and
# the attributes of the files agreeing, all old or all new. Usage: crash_test.sh TOOL
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private "$0" "$@"
fi
tool=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mount -t tmpfs tmpfs /var/log
mkdir /var/log/zorv
export ZORV_LABEL_STATE_DIR=$work/state ZORV_LABEL_POLICY_FILE=$work/policy.conf
export ASAN_OPTIONS=detect_leaks=0 # which needs ptrace for itself
files=("$work/a" "$work/b")
printf '[tid]\n%s = 3\n' "$work/*" >"$work/policy.conf"

quietly() { "$tool" "$@" >/dev/null 2>&1; }

# The state before a command: one user-set TID on each file, taken from a copy so that each round starts alike.
start_over() {
    rm -rf "$ZORV_LABEL_STATE_DIR"
    [ "$1" = empty ] || cp -a "$work/saved" "$ZORV_LABEL_STATE_DIR"
    for file in "${files[@]}"; do
        rm -f "$file"
        : >"$file"
        [ "$1" = empty ] || setfattr -n security.zorv -v "$(cat "$work/attribute")" "$file"
    done
}

listed() { { "$tool" -g -u -t "$1" 2>/dev/null || true; } | sed -n 's/.* : 0x0*//p'; }
labelled() { { "$tool" -g -t "$1" 2>/dev/null || true; } | sed -n 's/.* tid:0*//p'; }

# What the attribute must hold for a listed value: without one, policy's, or nothing on a file that never had a label.
check() { # COMMAND POINT OLD NEW together|apart
    local file state states=() old=$3 new=$4
    for file in "${files[@]}"; do
        states+=("$(listed "$file")/$(labelled "$file")")
    done
    for state in "${states[@]}"; do
        [ "$state" = "$old" ] || [ "$state" = "$new" ] || {
            echo "FAILED: '$1' killed at $2: listed/labelled $state, expected $old or $new" >&2
            exit 1
        }
    done
    if [ "$5" = together ] && [ "${states[0]}" != "${states[1]}" ]; then
        echo "FAILED: '$1' killed at $2: half done: ${states[*]}" >&2
        exit 1
    fi
}

# Every "SYSCALL NUMBER" of a run, from the opening of the store's directory on.
points_of() {
    strace -f -qq -o "$work/trace" -e signal=none "$tool" "$@" >/dev/null 2>&1 || true
    awk -v state="$ZORV_LABEL_STATE_DIR" '
        { sub(/^[0-9]+ +/, ""); name = $0; sub(/\(.*/, "", name) }
        name !~ /^[a-z][a-z0-9_]*$/ || name == "exit_group" { next }
        { number[name]++ }
        index($0, state) { inside = 1 }
        inside { print name, number[name] }' "$work/trace"
}

kill_everywhere() { # START OLD NEW together|apart COMMAND...
    local start=$1 old=$2 new=$3 together=$4 name number count=0
    shift 4
    start_over "$start"
    points_of "$@" >"$work/points"
    while read -r name number; do
        start_over "$start"
        # Inside a shell of its own, which keeps the report of the kill to itself.
        sh -c '"$@"; :' sh strace -qq -o /dev/null -e "inject=$name:signal=SIGKILL:when=$number" "$tool" "$@" \
            >/dev/null 2>&1
        check "$*" "$name $number" "$old" "$new" "$together"
        count=$((count + 1))
    done <"$work/points"
    [ "$count" -gt 50 ] || { echo "FAILED: only $count points for '$*'" >&2; exit 1; }
    echo "'${*//$work/}': killed at $count points, list and attribute agree after each"
}

for file in "${files[@]}"; do : >"$file"; quietly -a -t "$file" 5; done
getfattr --absolute-names --only-values -n security.zorv "${files[0]}" | od -An -v -tx1 | tr -d ' \n' | sed 's/^/0x/' >"$work/attribute"
cp -a "$ZORV_LABEL_STATE_DIR" "$work/saved"

kill_everywhere empty / 9/9 apart -a -t "${files[0]}" 9
kill_everywhere set 5/5 9/9 apart -a -t "${files[0]}" 9
kill_everywhere set 5/5 /3 apart -d -t "${files[0]}"
kill_everywhere set 5/5 /3 together -d -c tid
