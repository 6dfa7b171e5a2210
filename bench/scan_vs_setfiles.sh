#!/bin/bash
# Labels a tree of 100,000 files in 2,100 directories with the tool and, on an equal tree, with setfiles, in turn: a
# first pass on files without any attribute, and a second with nothing to change. Prints wall times and the ratios of
# the medians; then the second pass with 10,000 user-set paths and 1,000 pattern rules in the store.
# Usage: scan_vs_setfiles.sh TOOL [FILES [ROUNDS]]
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private "$0" "$@"
fi
tool=$1 files=${2:-100000} rounds=${3:-5}
command -v setfiles >/dev/null || PATH=$PATH:/usr/sbin
work=$(mktemp -d -p "${ZORV_BENCH_DIR:-/var/tmp}")
trap 'rm -rf "$work"' EXIT
mount -t tmpfs tmpfs /var/log
mkdir /var/log/zorv
export ZORV_LABEL_STATE_DIR=$work/state ZORV_LABEL_POLICY_FILE=$work/policy.conf
printf '%s\n' '/.* system_u:object_r:default_t:s0' '/.*/e1/.* system_u:object_r:etc_t:s0' >"$work/contexts"

make_tree() { # 100 directories of 20 directories each, files spread evenly
    rm -rf "$1"
    mkdir "$1"
    (cd "$1" && seq 0 99 | xargs -I{} sh -c 'mkdir d{} && cd d{} && seq 0 19 | sed s/^/e/ | xargs mkdir')
    seq 0 $((files - 1)) | awk '{ printf "d%d/e%d/file%d\n", $1 % 100, ($1 / 100) % 20, $1 }' | (cd "$1" && xargs touch)
    find "$1" | wc -l >/dev/null
}
timed() { # FIGURES COMMAND...
    local figures=$1
    shift
    /usr/bin/time -f '%e %M' -a -o "$figures" "$@" >/dev/null 2>&1
}
ours() { timed "$work/$1" "$tool" -a -s "$work/ours"; }
theirs() { timed "$work/$1" setfiles -T 0 ${2:+"$2"} "$work/contexts" "$work/theirs"; }
median() { awk '{ print $1 }' "$work/$1" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

for _ in $(seq "$rounds"); do
    make_tree "$work/ours"
    make_tree "$work/theirs"
    sync
    ours first_ours
    theirs first_theirs -F
    ours second_ours
    theirs second_theirs
    ours second_ours
    theirs second_theirs
done
for pass in first second; do
    a=$(median ${pass}_ours) b=$(median ${pass}_theirs)
    echo "$pass pass: tool $a s, setfiles $b s, ratio $(ratio "$a" "$b")"
done
echo "peak memory: $(awk '$2 > m { m = $2 } END { print m }' "$work/second_ours") kB"

sqlite3 "$work/state/label.db" "
    WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 9999)
    INSERT INTO user_value(field, is_pattern, target, package, file, path)
    SELECT 2, 0, CAST('$work/ours/d' || (i % 100) || '/e' || (i / 100 % 20) || '/file' || i AS BLOB), 7, 0, 0 FROM n;
    WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 999)
    INSERT INTO user_value(field, is_pattern, target, package, file, path)
    SELECT 3, 1, CAST('$work/ours/d' || (i % 100) || '/e' || (i / 100) || '/*' || i || '?' AS BLOB), 5, 0, 0 FROM n;"
ours warm
for _ in $(seq "$rounds"); do
    ours with_rules
done
a=$(median with_rules) b=$(median second_ours)
echo "second pass with 10,000 paths and 1,000 patterns set: $a s, ratio to the pass without $(ratio "$a" "$b")"
