#!/bin/bash
# Runs listener_delay with a store and a log of its own.
# Usage: listener_delay.sh [BUILD-DIRECTORY [CHANGES [IDLE-SECONDS]]]
set -euo pipefail

if [ -z "${ZORV_IN_PRIVATE_NAMESPACE:-}" ]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private "$0" "$@"
fi
build=${1:-$(dirname "$0")/../build/release}
work=$(mktemp -d -p "${ZORV_BENCH_DIR:-/var/tmp}")
trap 'rm -rf "$work"' EXIT
mount -t tmpfs tmpfs /var/log
mkdir /var/log/zorv
export ZORV_LABEL_STATE_DIR=$work/state ZORV_LABEL_POLICY_FILE=$work/policy.conf
touch "$work/file"
"$build/bin/listener_delay" "$build/bin/zorv-label-manager-tool" "$work/file" "${@:2}" 2>/dev/null
