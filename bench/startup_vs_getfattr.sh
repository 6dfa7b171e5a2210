#!/bin/bash
# Measures the start-up of the tool against getfattr's, whole processes in turns: a digest, and a label's field read
# without a store and with one. Prints times and ratios (meant to be at most 2.0).
# Usage: startup_vs_getfattr.sh BUILD-DIRECTORY [ROUNDS]
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private "$0" "$@"
fi
build=$(realpath "$1") rounds=${2:-500}
tool=$build/bin/zorv-label-manager-tool
work=$(mktemp -d -p "${ZORV_BENCH_DIR:-/var/tmp}")
trap 'rm -rf "$work"' EXIT
export ZORV_LABEL_STATE_DIR=$work/state ZORV_LABEL_POLICY_FILE=$work/policy.conf

# The log as the packages configure it.
mount -t tmpfs tmpfs /var/log
mkdir /var/log/zorv /var/log/etc /var/log/etc/upper /var/log/etc/work
mount -t overlay overlay -o lowerdir=/etc,upperdir=/var/log/etc/upper,workdir=/var/log/etc/work /etc
mkdir -p /etc/zorv/label
cp "$(dirname "$0")/../packaging/etc/zorv-label-log.properties" /etc/zorv/label

cd "$work"
touch file
setfattr -n security.zorv -v "0x$(printf '%016d' 1 2 3 4 5 6 7 8 9)0c00000005000000ff" file
echo "start-up, $rounds rounds, without a store:"
"$build/bin/run_in_turns" "$rounds" getfattr -n security.zorv file -- "$tool" -3 abc -- "$tool" -g -o file
"$tool" -a -t file 1 >/dev/null
echo "with a store:"
"$build/bin/run_in_turns" "$rounds" getfattr -n security.zorv file -- "$tool" -g -o file
