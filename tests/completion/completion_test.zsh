#!/usr/bin/zsh -f
# Types command lines into an interactive shell at a pseudo-terminal, lets it insert all completions (or, after a TAB in
# the row, the one), and compares the words that the tool would be started with.
# Usage: completion_test.zsh bash|bash-completion|zsh, from the directory of this file
if [[ -z $ZORV_IN_PRIVATE_NAMESPACE ]]; then
    ZORV_IN_PRIVATE_NAMESPACE=1 exec unshare -m --propagation private $0 "$@"
fi
setopt err_exit no_unset
zmodload zsh/zpty
shell=$1 completion=${0:A:h}/../../packaging/completion
work=$(mktemp -d)
trap 'zpty -d shell 2>/dev/null || true; rm -rf $work' EXIT

# What there is to be completed.
awkward=$'it\'s a "b" $HOME\n`c`\\ *' device='by:1=$x \x20'
mkdir -p $work/bin $work/tree/sub
touch $work/tree/$awkward $work/tree/plain
mount -t tmpfs tmpfs /dev/shm
mknod /dev/shm/$device c 1 3
touch /dev/shm/file
mount -t tmpfs tmpfs /sys/module
mkdir /sys/module/zorv_test /sys/module/other
print '#!/bin/sh\necho "installed bash\nconfig-files gone\ninstalled b++"' >$work/bin/dpkg-query
# The words of a command line, when it is entered.
print '#!/bin/sh\nprintf "%s\\0" "$@" >'$work'/new && mv '$work'/new '$work'/words' >$work/bin/zorv-label-manager-tool
cp $work/bin/zorv-label-manager-tool $work/bin/zorv-label-state
chmod +x $work/bin/*

path=($work/bin $path)
export PATH HOME=$work TERM=dumb PS1='$ ' ZDOTDIR=$work HISTFILE=
case $shell in
    bash*)
        all=$'\e*'
        {
            [[ $shell == bash ]] || print '. /usr/share/bash-completion/bash_completion'
            print ". $completion/zorv-label-manager-tool.bash; . $completion/zorv-label-state.bash"
            print "bind 'set bell-style none' 'set enable-bracketed-paste off'"
        } >$work/rc
        start=(bash --noprofile --rcfile $work/rc -i)
        ;;
    zsh)
        all=$'\C-x*'
        {
            print "fpath=($completion \$fpath); autoload -Uz compinit; compinit -u -d $work/dump; setopt no_beep"
            print "zle -C all complete-word _generic; bindkey '^X*' all; bindkey '^I' complete-word"
            print "zstyle ':completion:all:*' completer _all_matches _complete"
            print "zstyle ':completion:all:*' insert true; PS1='$ '; unset zle_bracketed_paste"
        } >$work/.zshrc
        start=(zsh -i)
        ;;
esac
cd $work/tree
zpty -b shell $start

failed=0 program=zorv-label-manager-tool
# That LINE is completed to WORDS, in any order and in place of a last word that has begun; without WORDS, not at all.
expect() { # LINE WORD...
    local line=$1 key=$all output
    local -a expected got
    shift
    [[ $line == *$'\t' ]] && key=$'\t' line=${line%$'\t'}
    expected=(${(Q)${(z)line}})
    (( $# == 0 )) || [[ $line == *' ' ]] || expected[-1]=()
    expected+=("$@")
    rm -f $work/words
    zpty -w -n shell "$program $line$key"$'\n'
    repeat 500; do
        [[ ! -e $work/words ]] || break
        zpty -r -t shell output || sleep 0.02
    done
    [[ -e $work/words ]] || { print -r -- "FAILED in $shell: '$line': no answer"; exit 1; }
    got=("${(@0)${"$(<$work/words)"%$'\0'}}")
    if [[ ${(j:|:)${(o)got}} != ${(j:|:)${(o)expected}} ]]; then
        print -r -- "FAILED in $shell: '$line': got ${(qq)got}, not ${(qq)expected}"
        failed=1
    fi
}

# actions, and what goes before them
expect '-' -a --add -g --get -d -r --restore -i --init -S --subscribe -P --pattern-match -R --recursive \
    -H --no-dereference -3 --sm3 -h --help
expect '-P ' -a --add -g --get -d
expect '-h '

# what each action takes, and nothing after a selector that ends the options
expect '-a ' -o --oid -m --sid -t --tid -n --inherit-flag -p --pkg-id -s --scan -P --pattern-match
expect '-a -p bash '
expect '-g -' -o --oid -m --sid -t --tid -n --inherit-flag -p --pkg-id -q --pkg-name -k --module -e --device -b \
    -l --label -u --user-set -P --pattern-match -R --recursive -H --no-dereference
expect '-g -q 1f '
expect '-g -l plain -'
expect '-u -g -' -o --oid -m --sid -t --tid -n --inherit-flag -p --pkg-id -P --pattern-match
expect '-g -u -o plain ' -P --pattern-match
expect '-d --' --oid --sid --tid --inherit-flag --pkg-id --label --pattern-match --recursive --no-dereference
expect '-S ' -T --topic
expect '-S -T file '

# arguments and operands: files with awkward names survive
files=($awkward plain sub)
expect '-R -g -l plain ' $files
expect '-d -t -g ' $files
expect $'-g -l it\\\'s\\ a\t' $awkward
expect $'-g -l "it\'s a\t' $awkward
expect "-g -l $work/tree/pl"$'\t' $work/tree/plain
expect '-a -s ' sub
expect '-g -u -o ' --all $files
expect '-g -u -t pl' plain
expect '-g -u --pkg-id ' --all bash b++
expect '-d -p b++ bas' bash
expect '-d -c sid p' pkgid
expect '-g -k zorv-t' zorv_test
expect '-g -e shm/f'
expect $'-g -e /dev/shm/by\t' /dev/shm/$device
expect $'-g -e shm/by\\:1\\=\\$x\t' shm/$device
expect '-S -T ' file package scan

program=zorv-label-state
expect '' apply backup check-policy explain export label remove-pattern restore verify
expect 'apply --' --check --keep-others --allow-missing --json --quiet
expect 'apply --check ' $files
expect 'verify ' sub
expect 'remove-pattern --' --oid --sid --tid --inherit-flag --quiet
exit $failed
