#!/bin/sh
# Prints every include that the layers do not allow and fails when there is one. Tried on wrong ones first.
set -eu

# Reads the source tree in the current directory.
wrongIncludes() {
    grep -rE '^[[:space:]]*#[[:space:]]*include[[:space:]]*("|<(\.|cli|common|label|labelmgr|log|msg|tests)/)' \
        cli common label labelmgr log msg 2>/dev/null |
        grep -vE '^common/[^:]*:.*"(common|log)/' |
        grep -vE '^label/[^:]*:.*"(label|log)/' |
        grep -vE '^labelmgr/[^:]*:.*"((labelmgr|label|common|log)/|cli/label_manager\.h")' |
        grep -vE '^cli/[^:]*:.*"(cli/|label/label\.h"|common/sm3_hash\.h")' |
        grep -vE '^(log/logger|msg/zmq_socket)\.cpp:.*"\1\.h"'
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
while read -r folder include; do
    mkdir -p "$work/$folder"
    echo "#include $include" >"$work/$folder/wrong.cpp"
    if ! (cd "$work" && wrongIncludes >/dev/null); then
        echo "check_layers: does not notice $include in $folder/" >&2
        exit 1
    fi
    rm "$work/$folder/wrong.cpp"
done <<'END'
log "common/string_utils.h"
msg "log/logger.h"
common "label/id.h"
label "common/sm3_hash.h"
label <common/sm3_hash.h>
labelmgr "cli/output.h"
labelmgr "tests/support/run.h"
cli "log/logger.h"
cli "label/id.h"
cli "labelmgr/store.h"
cli "../log/logger.h"
END

cd "$1"
! wrongIncludes
