#!/bin/bash
# Shows the labels of a tree of 100,000 labelled files in 2,100 directories with the tool and with getfattr, in turn,
# both into a file, and prints wall times, peak memory and the ratio of the medians; then the system calls a file.
# Usage: show_vs_getfattr.sh TOOL [FILES [ROUNDS]]
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private "$0" "$@"
fi
tool=$1 files=${2:-100000} rounds=${3:-11}
work=$(mktemp -d -p "${ZORV_BENCH_DIR:-/var/tmp}")
trap 'rm -rf "$work"' EXIT
mount -t tmpfs tmpfs /var/log
mkdir /var/log/zorv

# 100 directories of 20 directories each, files spread evenly.
mkdir "$work/tree"
(cd "$work/tree" && seq 0 99 | xargs -I{} sh -c 'mkdir d{} && cd d{} && seq 0 19 | sed s/^/e/ | xargs mkdir')
seq 0 $((files - 1)) | awk '{ printf "d%d/e%d/file%d\n", $1 % 100, ($1 / 100) % 20, $1 }' | (cd "$work/tree" && xargs touch)
value=0x$(printf '%016d' 1 2 3 4 5 6 7 8 9)0c00000005000000ff
find "$work/tree" -print0 | xargs -0 setfattr -n security.zorv -v "$value"
total=$(find "$work/tree" | wc -l)

timed() { # FIGURES COMMAND...
    local figures=$1
    shift
    /usr/bin/time -f '%e %M' -a -o "$figures" "$@" >"$work/output" 2>/dev/null
}
show() { timed "$work/ours" "$tool" -R -g -l "$work/tree"; }
compare() { timed "$work/theirs" getfattr -R -h -m security.zorv -d -e hex "$work/tree"; }
median() { awk '{ print $1 }' "$1" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
peak() { awk '$2 > m { m = $2 } END { print m }' "$1"; }

timed "$work/warm" "$tool" -R -g -l "$work/tree"
timed "$work/warm" getfattr -R -h -m security.zorv -d -e hex "$work/tree"
for _ in $(seq "$rounds"); do
    show
    compare
done
ours=$(median "$work/ours") theirs=$(median "$work/theirs")
echo "$total labels, $rounds rounds: tool median $ours s, peak $(peak "$work/ours") kB;" \
    "getfattr median $theirs s, peak $(peak "$work/theirs") kB"
awk -v a="$ours" -v b="$theirs" 'BEGIN { printf "ratio tool/getfattr: %.2f\n", a / b }'

strace -f -c -o "$work/counts" "$tool" -R -g -l "$work/tree" >"$work/output" 2>/dev/null
echo "system calls of one run ($total labels):"
awk 'NR <= 2 || $4 > 1000' "$work/counts"
