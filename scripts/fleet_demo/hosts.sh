# shellcheck shell=bash
# The four hosts, and the inventory that names them. They and what runs on them end with the namespaces of the session.
work=${1:?the directory of the demonstration} packages=${2:?the directory of the packages} values=1000

start_host() {
    local host=$1 address=$2 root=$work/$1
    cp -a --reflink=auto "$work/base" "$root"
    mount -t proc proc "$root/proc"
    mount -t tmpfs -o mode=755 dev "$root/dev" # a host of its own labels what is there too
    for device in "null 3" "zero 5" "full 7" "random 8" "urandom 9"; do
        # shellcheck disable=SC2086 # two words
        set -- $device
        mknod -m 666 "$root/dev/$1" c 1 "$2"
    done
    mkdir -p "$root/dev/pts" "$root/dev/shm" "$root/run/sshd" "$root/srv/www" "$root/root/.ssh"
    mount -t devpts -o newinstance,ptmxmode=666 devpts "$root/dev/pts"
    ln -s pts/ptmx "$root/dev/ptmx"
    cp "$work/key.pub" "$root/root/.ssh/authorized_keys"
    chroot "$root" useradd --create-home guest
    install -D -o 1000 -m 600 "$work/key.pub" "$root/home/guest/.ssh/authorized_keys"
    chown -R 1000 "$root/home/guest"
    (cd "$root/srv/www" && seq -f 'page-%04g.html' "$values" | xargs touch)
    echo "$address $(cat "$root/etc/ssh/ssh_host_ed25519_key.pub")" >>"$work/known_hosts"
    echo "$host ansible_host=$address" >>"$work/inventory"
    chroot "$root" /usr/sbin/sshd -o "ListenAddress=$address" -o "PidFile=none"
}

write_inventory() {
    ssh-keygen -q -t ed25519 -N '' -f "$work/key"
    mkdir -p "$work/collections/ansible_collections/zorv" "$work/group_vars"
    ln -s "$PWD/ansible" "$work/collections/ansible_collections/zorv/label"
    printf '[tid]\n/srv/www/* = 1\n' >"$work/policy.conf"
    echo "[fleet]" >"$work/inventory"
    cat >"$work/group_vars/fleet.yml" <<END
ansible_user: root
ansible_python_interpreter: /usr/bin/python3
ansible_ssh_private_key_file: $work/key
ansible_ssh_common_args: -F none -o UserKnownHostsFile=$work/known_hosts
label_manager_files:
$(printf -- '- %s\n' "$packages"/{libzorvlabelcommon1,libzorvlabelmgr-bundled,zorv-label-manager-tool}_*.deb)
label_manager_policy: $work/policy.conf
label_manager_log: $PWD/packaging/etc/zorv-label-log.properties
label_manager_units: [zorv-label-boot.service]
label_roots: [/srv/www]
label_patterns: [{pattern: "/srv/www/*-00?0.html", inherit_flag: "5"}]
label_packages: [{package: bash, id: "c0ffee"}]
label_paths:
$(seq -f "- {path: /srv/www/page-%04g.html, tid: '{{ tid }}'}" $((values - 2)))
tid: "1f"
END
    export ANSIBLE_HOME=$work/ansible ANSIBLE_COLLECTIONS_PATH=$work/collections ANSIBLE_PIPELINING=1 ANSIBLE_NOCOLOR=1
    export ANSIBLE_CALLBACK_RESULT_FORMAT=yaml ANSIBLE_INVENTORY=$work/inventory
    export ANSIBLE_SSH_CONTROL_PATH_DIR=$work/ssh # not in the home directory, where another run would find its connections
}
