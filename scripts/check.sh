#!/bin/sh
# Looks at what needs no build: formatting, shell scripts, manual pages, layers, the Ansible collection. For before a commit;
# a few seconds.
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh develop

sources() {
    git ls-files -- '*.h' '*.cpp'
}
# Other versions of clang-format have other rules of their own.
formatting() {
    version=$(clang-format --version | sed 's/.* version \([0-9]*\).*/\1/')
    if [ "$version" = 14 ]; then
        sources | xargs clang-format --dry-run --Werror
    else
        echo "check: formatting is skipped: the sources are formatted with clang-format 14, and this is $version"
    fi
}
# clang-format knows one limit only, that of code.
comments() {
    sources | xargs awk '/^ *\/\// && length > 90 { print FILENAME ":" FNR ": a comment line over 90 columns"; long = 1 }
        END { exit long }'
}
shell_scripts() {
    git ls-files -- '*.sh' '*.bash' .ci/run 'debian/*.p*inst' 'debian/*.p*rm' | xargs shellcheck -x
}
manual_pages() {
    mandoc -Tlint -W warning packaging/man/* || return 1
    for page in packaging/man/*; do
        if LC_ALL=C.UTF-8 man --warnings -l -Tutf8 -Z "$page" 2>&1 >/dev/null | grep .; then
            return 1
        fi
    done
}
# Ansible finds a collection by its place, and writes into the home directory.
collection() (
    version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
    grep -qx "version: $version" ansible/galaxy.yml || { echo "ansible/galaxy.yml: the version is not $version" && exit 1; }
    command -v ansible-lint >/dev/null || { echo "check: no ansible-lint, so the Ansible collection is not looked at" && exit 0; }
    HOME=$(mktemp -d)
    trap 'rm -rf "$HOME"' EXIT
    mkdir -p "$HOME/ansible_collections/zorv"
    cp -a ansible "$HOME/ansible_collections/zorv/label"
    export HOME ANSIBLE_COLLECTIONS_PATH="$HOME"
    cd "$HOME/ansible_collections/zorv/label" || exit 1
    for command in "ansible-lint --offline --nocolor -p -q" "ansible-doc -t module zorv.label.state zorv.label.verify"; do
        $command >"$HOME/output" 2>&1 || { cat "$HOME/output" && exit 1; }
    done
)
layers() {
    sh tests/check_layers.sh .
}

status=0
failed() {
    echo "check: FAILED: $1"
    status=1
}
formatting || failed "formatting"
comments || failed "width of comments"
shell_scripts || failed "shell scripts"
manual_pages || failed "manual pages"
layers || failed "layers"
collection || failed "Ansible collection"
[ "$status" -ne 0 ] || echo "check: passed"
exit "$status"
