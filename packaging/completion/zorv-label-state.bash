# bash completion of zorv-label-state. Needs nothing of the bash-completion package.
# shellcheck shell=bash

_zorv_label_state() {
    local IFS=$' \t\n' typed=$2 options=
    COMPREPLY=()
    if [[ $COMP_CWORD == 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W 'apply backup check-policy explain export label remove-pattern restore verify' -- "$typed")
        return
    fi
    case ${COMP_WORDS[1]} in
        apply) options='--check --keep-others --allow-missing --json --quiet' ;;
        restore) options='--check --json --quiet' ;;
        verify | check-policy) options='--json --quiet' ;;
        label) options='--if-needed --new-packages --json --quiet' ;;
        explain) options='--json' ;;
        remove-pattern) options='--oid --sid --tid --inherit-flag --quiet' ;;
        export | backup) options='--quiet' ;;
        *) return ;;
    esac
    if [[ $typed == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$typed")
    elif [[ ${COMP_WORDS[1]} == @(label|verify) ]]; then
        compopt -o dirnames
    elif [[ ${COMP_WORDS[1]} != remove-pattern ]]; then
        compopt -o default # readline's own completion of file names copes with quotes, tildes and variables
    fi
}

complete -F _zorv_label_state zorv-label-state
