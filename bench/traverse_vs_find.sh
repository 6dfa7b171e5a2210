#!/bin/sh
# Lists a tree of 100,000 files with list_tree and with find, whole processes in turns, and prints the ratio of their
# median times (meant to be at most 1.2).
# Usage: traverse_vs_find.sh [BUILD-DIRECTORY]
set -eu

build=${1:-$(dirname "$0")/../build/release}
list_tree=$build/bin/list_tree
rounds=21
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

for directory in $(seq 1000); do
    path=$tree/files/$((directory / 32))/$directory
    mkdir -p "$path"
    (cd "$path" && seq -f 'file-%g.txt' 100 | xargs touch)
done
"$list_tree" "$tree/files" | sort >"$tree/ours"
find "$tree/files" -printf '%p\n' | sort >"$tree/theirs"
cmp "$tree/ours" "$tree/theirs"

# Prints the nanoseconds that a command takes.
measure() {
    start=$(date +%s%N)
    "$@" >/dev/null
    echo $(($(date +%s%N) - start))
}
for _ in $(seq "$rounds"); do
    measure find "$tree/files" -printf '%p\n' >>"$tree/find-times"
    measure "$list_tree" "$tree/files" >>"$tree/list-times"
done
median() { sort -n "$1" | sed -n "$((rounds / 2 + 1))p"; }
awk -v ours="$(median "$tree/list-times")" -v theirs="$(median "$tree/find-times")" 'BEGIN {
    printf "list_tree %.1f ms, find %.1f ms, ratio %.2f (bound 1.2)\n", ours / 1e6, theirs / 1e6, ours / theirs }'
