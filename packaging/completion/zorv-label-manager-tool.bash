# bash completion of zorv-label-manager-tool. Needs nothing of the bash-completion package.
# shellcheck shell=bash
#
# The tool counts its words and takes its operands from the last option on, so the order matters: what changes how a
# selector works is offered before it only, and nothing but operands after a selector that takes some.
# Deliberately not offered: --del, --clear and --batch, which differ from -d, -c and -b in whether they take an
# argument; -L, which is given up for -R -l; -f and -v, which do nothing.

# As getopt_long() sees them: letter, long name, and a colon for an argument, first after the letter, then after the name.
__zorv_options="a/add g/get d/del: r/restore i/init s:/scan: v:/id: u/user-set o:/oid: m:/sid: t:/tid: n:/inherit-flag:
f:/creator-oid: p:/pkg-id: q:/pkg-name: k:/module: e:/device: l:/label: c:/clear h/help b/batch: R/recursive
L:/dir-label: H/no-dereference P/pattern-match S/subscribe T:/topic: 3:/sm3:"

# Notes one option: $1 is "LETTER" or "LETTER:", $2 what is attached to it, if anything.
__zorv_note_option() {
    local letter=${1%:}
    seen+=$letter
    [[ $letter == [agdriS] ]] && action=$letter
    [[ $1 == *: && -z $2 ]] && expects=$letter
}

__zorv_read_cluster() { # the letters behind one "-"
    local letters=$1
    while [[ -n $letters ]]; do
        if [[ " $__zorv_options" == *[[:space:]]"${letters:0:1}":* ]]; then
            __zorv_note_option "${letters:0:1}:" "${letters:1}"
            return
        fi
        __zorv_note_option "${letters:0:1}"
        letters=${letters:1}
    done
}

__zorv_read_long() { # a name, perhaps cut short or with "=" and a value
    local name=${1%%=*} value='' option found=''
    [[ $1 == *=* ]] && value=$1
    for option in $__zorv_options; do
        if [[ ${option#*/} == "$name" || ${option#*/} == "$name:" ]]; then
            found=$option
            break
        elif [[ ${option#*/} == "$name"* ]]; then
            found+=$option
        fi
    done
    [[ -z $found || $found == */*/* ]] && return # unknown or ambiguous
    if [[ $found == *: ]]; then
        __zorv_note_option "${found:0:1}:" "$value"
        [[ $expects == [db] ]] && expects=nothing
    else
        __zorv_note_option "${found:0:1}"
    fi
}

# Sets action, seen (all letters so far), expects (the letter whose argument comes next) and operands.
__zorv_read_words() {
    local word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ -n $expects ]]; then
            operands=("$word")
            expects=
        elif [[ $word == --?* ]]; then
            __zorv_read_long "${word#--}"
        elif [[ $word == -?* ]]; then
            __zorv_read_cluster "${word#-}"
        else
            operands+=("$word")
        fi
    done
}

# Offers those of the names that the word being completed begins. readline quotes file names only.
__zorv_offer() {
    local name quoted
    for name; do
        [[ $name == "$typed"* ]] || continue
        if [[ -n $inQuotes ]]; then
            COMPREPLY+=("$name")
        else
            printf -v quoted %q "$name"
            quoted=${quoted//:/\\:}
            COMPREPLY+=("${quoted//=/\\=}")
        fi
    done
}

__zorv_offer_options() { # LETTER...
    local letter option
    for letter; do
        [[ $seen == *"$letter"* ]] && continue
        __zorv_offer "-$letter"
        [[ $letter == [dcb] ]] && continue
        for option in $__zorv_options; do
            [[ $option == "$letter"* ]] && option=${option#*/} && __zorv_offer "--${option%:}"
        done
    done
}

# readline's own completion of file names copes with quotes, tildes and variables; it comes when nothing is offered here.
__zorv_offer_files() {
    compopt -o default
}

# With --all, which would keep readline's file names away, they have to be listed here.
__zorv_offer_all_or_files() {
    local names
    if [[ -z $typed ]]; then
        mapfile -d '' -t names < <(shopt -s nullglob && shopt -u failglob && set +f && printf '%s\0' --all *)
        COMPREPLY=("${names[@]}")
        compopt -o filenames
    else
        __zorv_offer --all
        [[ ${#COMPREPLY[@]} -gt 0 ]] || __zorv_offer_files
    fi
}

__zorv_offer_packages() {
    local -a names
    if type dpkg-query &>/dev/null; then
        # shellcheck disable=SC2016 # the fields are dpkg-query's
        mapfile -t names < <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2>/dev/null | sed -n 's/^installed //p')
    else
        mapfile -t names < <(rpm -qa --qf '%{NAME}\n' 2>/dev/null)
    fi
    __zorv_offer "${names[@]}"
}

__zorv_offer_modules() {
    local -a names
    mapfile -t names < <({
        set +f
        printf '%s\n' /sys/module/*/
        cut -d : -f 1 "/lib/modules/$(uname -r)"/modules.{dep,builtin} 2>/dev/null
    } | sed 's|/$||; s|.*/||; s/\.ko.*//; y/-/_/' | sort -u)
    typed=${typed//-/_} # the same to the tool
    __zorv_offer "${names[@]}"
}

# By path, or by the name below /dev.
__zorv_offer_devices() {
    local directory=/dev/ path
    local -a paths
    [[ $typed == /* ]] && directory=
    mapfile -d '' -t paths < <(shopt -s nullglob && shopt -u failglob && set +f && printf '%s\0' "$directory$typed"*)
    for path in "${paths[@]}"; do
        if [[ -d $path ]]; then
            __zorv_offer "${path#"$directory"}/"
            compopt -o nospace
        elif [[ -b $path || -c $path ]]; then
            __zorv_offer "${path#"$directory"}"
        fi
    done
}

__zorv_offer_clear_words() {
    local word
    for word in sid oid tid inherit_flag pkgid; do
        [[ " ${operands[*]} " == *" $word "* ]] || __zorv_offer "$word"
    done
}

__zorv_offer_argument() { # of the option LETTER
    case $action$1 in
        g[omtn])
            if [[ $seen == *u* ]]; then __zorv_offer_all_or_files; else __zorv_offer_files; fi
            ;;
        *[omtnlL3]) __zorv_offer_files ;;
        *p)
            [[ $action == g && $seen == *u* ]] && __zorv_offer --all
            __zorv_offer_packages
            ;;
        *s) compopt -o dirnames ;;
        *c) __zorv_offer_clear_words ;;
        *k) __zorv_offer_modules ;;
        *e) __zorv_offer_devices ;;
        *T) __zorv_offer file package scan ;;
    esac
}

__zorv_offer_next_options() {
    case $action in
        '')
            case $seen in
                '') __zorv_offer_options a g d r i S P R H 3 h ;;
                *[h3]*) ;;
                *P*) __zorv_offer_options a g d ;;
                *[RH]*) __zorv_offer_options g d R H ;;
            esac
            ;;
        a)
            case $seen in
                *[omtnps]*) ;;
                *P*) __zorv_offer_options o m t n ;;
                *) __zorv_offer_options o m t n p s P ;;
            esac
            ;;
        g)
            case $seen in
                *u*p* | *p*u* | *[lLq]*) ;;
                *u*[omtn]* | *[omtn]*u*) __zorv_offer_options P ;;
                *u*P* | *P*u*) __zorv_offer_options o m t n ;;
                *u*) __zorv_offer_options o m t n p P ;;
                *P*) __zorv_offer_options u ;;
                *[RH]*) __zorv_offer_options l R H ;;
                *[omtnpkeb]*) __zorv_offer_options o m t n p q k e b l ;;
                *) __zorv_offer_options o m t n p q k e b l u P R H ;;
            esac
            ;;
        d)
            case $seen in
                *[omtnplLc]*) ;;
                *P*) __zorv_offer_options o m t n ;;
                *[RH]*) __zorv_offer_options l R H ;;
                *) __zorv_offer_options o m t n p c l P R H ;;
            esac
            ;;
        [ri]) [[ $seen == *l* ]] || __zorv_offer_options l ;;
        S) __zorv_offer_options T ;;
    esac
}

_zorv_label_manager_tool() {
    local IFS=$' \t\n' typed=$2 inQuotes='' action='' seen='' expects='' last=''
    local -a operands=()
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD]} in
        [\'\"]*) inQuotes=yes ;;
        *) # without the backslashes that quote
            typed=${typed//\\\\/$'\1'}
            typed=${typed//\\/}
            typed=${typed//$'\1'/\\}
            ;;
    esac
    __zorv_read_words
    last=${seen: -1}
    if [[ -n $expects ]]; then
        __zorv_offer_argument "$expects"
    elif [[ $action$last == d[omtnplLc] || $action$last == g[lL] ]]; then
        __zorv_offer_argument "$last" # one more operand
    elif [[ -z $typed || $typed == -* ]]; then
        __zorv_offer_next_options
    fi
}

complete -F _zorv_label_manager_tool zorv-label-manager-tool
