#!/bin/sh
# Prints every include that the layers do not allow and fails when there is one. Tried on wrong ones first.
set -eu

# Of lines "FILE:LINE". A source's own header is always right.
wrongIncludes() {
    grep -E '^[^:]*:[[:space:]]*#[[:space:]]*include[[:space:]]*("|<(\.|cli|common|label|labelmgr|loader|log|msg|tests)/)' |
        grep -vE '^common/[^:]*:.*"(common|loader|log)/' |
        grep -vE '^label/[^:]*:.*"(label|log)/' |
        grep -vE '^labelmgr/[^:]*:.*"((labelmgr|label|common|log)/|cli/label_manager\.h")' |
        grep -vE '^cli/[^:]*:.*"(cli/|label/label\.h"|common/sm3_hash\.h")' |
        grep -vE '^msg/[^:]*:.*"loader/' |
        grep -vE '^((loader|log|msg)/[a-z_]*)\.cpp:.*"\1\.h"'
}

for wrong in log/common/wildcard.h log/loader/shared_library.h loader/log/logger.h msg/log/logger.h common/label/id.h \
    label/common/sm3_hash.h labelmgr/cli/output.h cli/log/logger.h cli/loader/shared_library.h cli/label/id.h \
    cli/labelmgr/store.h cli/../log/logger.h; do
    echo "${wrong%%/*}/wrong.h:#include \"${wrong#*/}\"" | wrongIncludes >/dev/null ||
        { echo "check_layers: does not notice $wrong" >&2 && exit 1; }
done

cd "$1"
! grep -r '#' cli common label labelmgr loader log msg | wrongIncludes
