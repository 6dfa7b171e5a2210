#!/bin/sh
# Prints every include that the layers do not allow and fails when there is one. Tried on wrong ones first.
set -eu

# Of lines "FILE:LINE".
wrongIncludes() {
    grep -E '^[^:]*:[[:space:]]*#[[:space:]]*include[[:space:]]*("|<(\.|base|cli|common|label|labelmgr|log|msg|tests)/)' |
        grep -vE '^base/[^:]*:.*"base/' |
        grep -vE '^(log|msg)/[^:]*:.*"(base/|\1/)' |
        grep -vE '^common/[^:]*:.*"(common|log|base)/' |
        grep -vE '^label/[^:]*:.*"(label|log|base)/' |
        grep -vE '^labelmgr/[^:]*:.*"((labelmgr|label|common|log|base)/|cli/label_manager\.h")' |
        grep -vE '^cli/[^:]*:.*"((cli|base)/|label/label\.h"|common/sm3_hash\.h")'
}

for wrong in base/log/logger.h log/common/wildcard.h log/msg/zmq_socket.h msg/log/logger.h common/label/id.h \
    label/common/sm3_hash.h labelmgr/cli/output.h cli/log/logger.h cli/label/id.h cli/labelmgr/store.h cli/../log/logger.h; do
    echo "${wrong%%/*}/wrong.h:#include \"${wrong#*/}\"" | wrongIncludes >/dev/null ||
        { echo "check_layers: does not notice $wrong" >&2 && exit 1; }
done

cd "$1"
! grep -r '#' base cli common label labelmgr log msg | wrongIncludes
