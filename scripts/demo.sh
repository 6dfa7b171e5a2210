#!/bin/bash
# Installs what is needed, builds, and labels a real tree in a temporary directory with a store of its own. Prints each
# command before its output. Usage: demo.sh [TOOL-DIRECTORY], with a directory to use the tool there and build none.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

[ $# -gt 0 ] || "$root/scripts/build.sh" release zorv-label-manager-tool
if [ "$(id -u)" -ne 0 ]; then
    echo "demo: run as root: labels live in the security namespace of extended attributes" >&2
    exit 1
fi

demo=$(mktemp -d)
trap 'rm -rf "$demo"' EXIT
export ZORV_LABEL_STATE_DIR=$demo/store ZORV_LABEL_POLICY_FILE=$demo/policy.conf
PATH=${1:-$root/build/release/bin}:$PATH
mkdir -p "$demo/tree/reports"
cd "$demo/tree"
printf '#!/bin/sh\necho hello\n' >hello.sh
chmod +x hello.sh
touch notes.txt reports/2026.txt
printf '[tid]\n%s/* = 12\n' "$demo/tree" >"$ZORV_LABEL_POLICY_FILE"

run() {
    printf '\n# %s\n' "$*"
    "$@" || echo "(exit status $?)"
}
tool=zorv-label-manager-tool

echo
[ -e /etc/zorv/label/zorv-label-log.properties ] ||
    echo "The log has no properties file on this machine: commands that log say so in two lines of the logger's own."
echo "== Set fields of a file's label, and read them back"
run $tool -a -o hello.sh 1 2 3
run $tool -a -t hello.sh 1f
run $tool -a -n notes.txt 5
run $tool -g -o hello.sh
run $tool -g -t hello.sh -n notes.txt
run getfattr -e hex -n security.zorv hello.sh
echo
echo "== Show whole labels, recursively"
run $tool -a -t reports/2026.txt 2a
run $tool -R -g -l .
echo
echo "== What users have set"
run $tool -g -u -t --all
echo
echo "== Take one value back: the field returns to what policy says"
run $tool -d -t hello.sh
run $tool -g -t hello.sh
echo
echo "== Clear a field for all files"
run $tool -d -c oid inherit_flag
run $tool -g -u -o --all
echo
echo "== Packages"
run $tool -g -p bash
run $tool -a -p bash c0ffee
run $tool -g -p bash
run $tool -g -q c0ffee
echo
echo "== Remove whole labels"
run $tool -R -d -l .
run $tool -g -l hello.sh
