#!/bin/bash
# Installs what is needed, builds, and labels a real tree in a temporary directory, with a store, a policy and a log of its own.
# Prints each command before its output. Usage: demo.sh [TOOL-DIRECTORY], with a directory to use the tool there and build none.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

if [ "$(id -u)" -ne 0 ]; then
    echo "demo: run as root: labels live in the security namespace of extended attributes" >&2
    exit 1
fi
if [ "${1:-}" != --unshared ]; then
    [ $# -gt 0 ] || "$root/scripts/build.sh" release zorv-label-manager-tool
    exec unshare --mount bash "$0" --unshared "${1:-$root/build/release/bin}" # nobody else sees the configuration
fi
demo=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$demo"' EXIT
export ZORV_LABEL_STATE_DIR=$demo/store ZORV_LABEL_POLICY_FILE=$demo/policy.conf PATH=$2:$PATH
cp -a /etc "$demo"
mkdir -p "$demo"/{etc/zorv/label,tree/bin,tree/www/upload}
cat >"$demo/etc/zorv/label/zorv-label-log.properties" <<LOG
log4cpp.rootCategory=INFO, log
log4cpp.appender.log=FileAppender
log4cpp.appender.log.fileName=$demo/log
log4cpp.appender.log.layout=PatternLayout
log4cpp.appender.log.layout.ConversionPattern=%p %m%n
LOG
mount --bind "$demo/etc" /etc
cd "$demo/tree"
install /bin/true bin/server
touch www/index.html www/upload/photo.jpg
printf '[tid]\n%s/bin/* = 10\n' "$PWD" >"$ZORV_LABEL_POLICY_FILE"
tool=zorv-label-manager-tool
run() {
    printf '# %s\n' "$*"
    "$@"
}

printf '\n== Label a whole tree as the policy says, and show the labels: OID:TID:SID:inherit flag:creator OID\n'
run $tool -a -s "$PWD"
run $tool -R -g -l .
printf '\n== A listener, from here on; set values for a file, and for all files of a pattern, those to come included\n'
$tool -S >"$demo/heard" &
until $tool -a -p demo 1 >/dev/null && [ -s "$demo/heard" ]; do sleep 0.1; done # it listens
run $tool -a -o www/index.html 1 2 3
run $tool -P -a -t "$PWD/www/*" 1f
run $tool -g -t www/upload/photo.jpg
printf '\n== What users have set; take the value of the pattern back, and restore a label that was removed\n'
run $tool -g -u -t --all
run $tool -P -d -t "$PWD/www/*"
run $tool -d -l bin/server
run $tool -r -l bin/server
printf '\n== What the listener heard, and what the log says\n'
until grep -q restore_label "$demo/heard"; do sleep 0.1; done
run grep ' file ' "$demo/heard"
run cat "$demo/log"
