#!/bin/sh
# Prints every include that the layers do not allow and fails when there is one. Tried on wrong ones first.
# Usage: check_layers.sh SOURCE-ROOT
set -eu

# The folders, and what each may include; of a room of labelmgr/, the rooms below it and itself.
allowed='
base base/
log log/ base/
msg msg/ base/
common common/ log/ base/
label label/ log/ base/
cli cli/ base/ label/label.h label/label_xattr.h common/sm3_hash.h
'
rooms='model files store policy feed change scan port'
outside='label/ common/ log/ base/ cli/label_manager.h'
below=
for room in $rooms; do
    below="$below labelmgr/$room/"
    allowed="$allowed
labelmgr/$room $outside $below"
done

allowed="$allowed
state state/ $outside $below"

# Of lines "FILE:LINE", those with an include of this project that the file's folder may not include.
wrongIncludes() {
    awk -v allowed="$allowed" '
        BEGIN {
            count = split(allowed, rows, "\n")
            for (i = 1; i <= count; ++i) {
                folder = rows[i]; sub(/ .*/, "", folder); mayInclude[folder] = rows[i]
            }
        }
        {
            file = $0; sub(/:.*/, "", file)
            folder = file; sub(/\/[^\/]*$/, "", folder)
            if (!match($0, /#[ \t]*include[ \t]*["<][^">]*[">]/)) next
            name = substr($0, RSTART, RLENGTH); sub(/^#[ \t]*include[ \t]*/, "", name)
            quoted = name ~ /^"/; gsub(/["<>]/, "", name)
            if (!quoted && name !~ /^(\.|base\/|cli\/|common\/|label\/|labelmgr\/|log\/|msg\/|state\/|tests\/)/) next
            count = split(mayInclude[folder], targets, " ")
            for (i = 2; i <= count; ++i) {
                isFolder = targets[i] ~ /\/$/
                if (quoted && (isFolder ? index(name, targets[i]) == 1 : name == targets[i])) next
            }
            print; found = 1
        }
        END { exit !found }'
}

wrong=$(
    for wrong in base/log/logger.h log/common/wildcard.h log/msg/zmq_socket.h msg/log/logger.h common/label/id.h \
        label/common/sm3_hash.h cli/log/logger.h cli/label/id.h cli/labelmgr/store/store.h cli/state/options.h \
        cli/../log/logger.h state/cli/output.h; do
        echo "${wrong%%/*}/wrong.h:#include \"${wrong#*/}\""
    done
    above=$rooms
    for room in $rooms; do
        above=${above#*"$room"}
        for wrong in $above; do echo "labelmgr/$room/wrong.h:#include \"labelmgr/$wrong/any.h\""; done
        echo "labelmgr/$room/wrong.h:#include \"cli/output.h\""
        echo "labelmgr/$room/wrong.h:#include \"state/options.h\""
    done
)
[ "$(echo "$wrong" | wrongIncludes)" = "$wrong" ] || { echo "check_layers: does not notice all of: $wrong" >&2 && exit 1; }
cd "$1"
! grep -r '#' --include='*.h' --include='*.cpp' base cli common label labelmgr log msg state | wrongIncludes
