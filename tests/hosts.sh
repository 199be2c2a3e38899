#!/usr/bin/env bash
# Tries vex over three hosts: each has name spaces of its own for network, processes, name and temporary files, and an
# sshd; the home directory is theirs together. Needs root for that; vex and the jobs are an ordinary user's.
# Usage: tests/hosts.sh BIN-DIRECTORY, in which vex, vexagent, vexconsole and the programs to debug are.
set -uo pipefail
. "$(dirname "$0")/support/trial.sh"
needs "openssh-server, iproute2" ssh ssh-keygen /usr/sbin/sshd ip nsenter script

spaces=(--net --uts --ipc --pid --mount --fork --kill-child --mount-proc)
unshare "${spaces[@]}" true 2>/dev/null || skip "name spaces may not be made here"

makeDir /var/tmp # not below /tmp, of which each host has its own
programs=$dir/bin
hosts=(node1 node2 node3)
declare -A init # the first process of each host: the host ends with it
end() {
    kill -KILL "${init[@]}" ${switch:+"$switch"} 2>/dev/null
    wait 2>/dev/null
    rm -rf "$dir" "$scratch"
}
trap end EXIT

writeFiles() {
    local each number=0
    mkdir -p "$programs" "$dir/home/.ssh"
    # The home directory belongs to the user of all hosts, who may have none on this one.
    { echo "tester:x:$uid:$gid::$dir/home:/bin/sh" && grep -v '^tester:' /etc/passwd; } >"$dir/passwd"
    ssh-keygen -q -t ed25519 -N '' -f "$dir/hostkey" && ssh-keygen -q -t ed25519 -N '' -f "$dir/home/.ssh/key" ||
        return 1
    mv "$dir/home/.ssh/key.pub" "$dir/home/.ssh/authorized_keys"
    echo '127.0.0.1 localhost' >"$dir/hosts"
    for each in "${hosts[@]}"; do
        echo "10.77.0.$((++number)) $each" >>"$dir/hosts"
        echo "$each slots=2" >>"$dir/home/slots"
        echo "$each:2" >>"$dir/home/machines"
    done
    cat >"$dir/home/.ssh/config" <<END
IdentityFile $dir/home/.ssh/key
StrictHostKeyChecking no
UserKnownHostsFile /dev/null
LogLevel ERROR
END
    cat >"$dir/sshd" <<END
HostKey $dir/hostkey
AuthorizedKeysFile $dir/home/.ssh/authorized_keys
PasswordAuthentication no
StrictModes no
UsePAM no
MaxStartups 100
PidFile none
END
    printf '#!/bin/sh\n[ "$1" = node3 ] && echo "node3 is away" && exit 1\nexec ssh "$@"\n' >"$dir/rsh"
    chmod 755 "$dir/rsh"
    chmod 700 "$dir/home/.ssh"
    chown -R "$uid:$gid" "$dir/home"
}

# What the first process of a host does, in its name spaces; bash takes the orphans.
host() {
    hostname "$1" && mount --bind "$bin" "$dir/bin" && mount --bind "$dir/passwd" /etc/passwd &&
        mount --bind "$dir/hosts" /etc/hosts && mount -t tmpfs tmpfs /tmp && chmod 1777 /tmp &&
        mount -t tmpfs tmpfs /run && mkdir /run/sshd && ip link set lo up && /usr/sbin/sshd -f "$dir/sshd" || exit 1
    touch "$dir/$1.up"
    while sleep 1000; do :; done
}

begin() {
    local each number=0 outer
    export bin dir
    export -f host
    writeFiles || return 1
    unshare --net sleep 1000 &
    switch=$!
    for each in "${hosts[@]}"; do
        unshare "${spaces[@]}" bash -c 'host "$1"' bash "$each" >"$dir/$each.log" 2>&1 &
        outer=$!
        expect "$each begins" [ -e "$dir/$each.up" ]
        init[$each]=$(pgrep -P "$outer")
        [ -n "${init[$each]}" ] || return 1
        nsenter -t "$switch" -n ip link add "$each" type veth peer name eth0 netns "${init[$each]}" &&
            nsenter -t "${init[$each]}" -n sh -c "ip addr add 10.77.0.$((++number))/24 dev eth0 && ip link set eth0 up" ||
            return 1
    done
    nsenter -t "$switch" -n ip link add bridge type bridge && network bridge up || return 1
    for each in "${hosts[@]}"; do
        nsenter -t "$switch" -n ip link set "$each" master bridge && network "$each" up || return 1
    done
}

# on HOST COMMAND... runs it there as the user.
on() {
    local where=$1
    shift
    nsenter -t "${init[$where]}" -m -u -i -n -p -- "${drop[@]}" env -C "$dir/home" HOME="$dir/home" VEX_COLOUR=never \
        OMPI_MCA_mpi_yield_when_idle=1 "$@"
}

vexAs() { on node1 "$@"; }
type() { printf '%s\n' "$@" >&9; }
# each COMMAND... HOST: on all hosts
each() {
    local host
    for host in "${hosts[@]}"; do "$@" "$host" || return; done
}
noneOn() { ! on "$1" ps -A -o comm= | grep -qE '^(vex|gdb|ring|halo|orted|hydra|mpi|ssh$)'; }
# Two tasks of this program go on there; no debugger stops them.
twoRun() { [ "$(on "$2" pgrep -c -r R,S -x "$1")" = 2 ]; }
network() { nsenter -t "$switch" -n ip link set "$1" "$2"; }
prompts() { [ "$(tail -c 6 "$dir/screen")" = '(all) ' ]; }

# A job that vex starts on all hosts, and ends.
launched() {
    local what=$1 place=$2
    shift 2
    expect "$what: a job is debugged" \
        batch "break $place\nrun\nprint rank\nwhere\nvex who\nshell pgrep -c -x vexagent-node\n" "$@"
    expect "all stop at once" says "^0:5 | .*Breakpoint 1, $place "
    expect "all tell the same place once" says "^0:5 | #0  $place "
    expect "each knows its rank" says '^5 | $1 = 5'
    expect "they are on three hosts" says '^4 | rank 4  host node3 '
    expect "each host has one agent" says '^0:5 | 1$'
    expect "nothing is left" each noneOn
}

# A job that runs already, and goes on.
running() {
    local what=$1 launcher=$2 program=$3 pid
    # shellcheck disable=SC2086 # words
    on node1 $launcher "$programs/$program" >/dev/null 2>&1 </dev/null &
    expect "$what: a job runs" each twoRun "$program"
    pid=$(on node1 pgrep -o -x "${launcher%% *}")
    expect "it is attached to" batch 'vex who\nprint ntasks\nshell pgrep -c -x vexagent-node\n' --mpi "$pid"
    expect "all are there" says '^0:5 | $1 = 6'
    expect "they are on three hosts" says '^4 | rank 4  host node3 '
    expect "each other host has one agent" says '^2:5 | 1$'
    expect "it runs on" each twoRun "$program"
    batch '' --mpi "$pid" --rsh "$dir/rsh"
    expect "half of it is not debugged" says '^vex: to go on with the 4 .*: --partial'
    expect "those missing are named" says '^vex: ranks 4:5 .*are missing'
    expect "and why" says '^vex: .*: node3 is away'
    expect "but when it is wanted" batch 'print ntasks' --mpi "$pid" --rsh "$dir/rsh" --partial
    expect "the others are there" says '^0:3 | $1 = 6'
    onTerminal "--mpi $pid --rsh $dir/rsh"
    expect "a person is asked" says 'go on with the 4 .*? (y/n) '
    printf y >&9
    expect "and can go on" prompts
    type kquit y
    expect "it runs on" each twoRun "$program"
    on node1 kill "$pid"
    expect "and ends" each noneOn
}

# What happens to a host is felt by its own tasks only.
disturbed() {
    onTerminal "--launch ssh --hosts machines $programs/halo"
    expect "a job is debugged" prompts
    expect "its user can knock at each door" knocks "$uid" answers
    expect "others are refused" knocks 65533 refuses
    on node3 pkill -STOP -x vexagent-node
    type 'print 7'
    expect "a node that stands still holds nobody" says '^0:3 | $1 = 7'
    expect "its clients are named" says 'No answer yet from 4:5 on node3'
    on node3 pkill -CONT -x vexagent-node
    expect "it goes on" says '^4:5 | $1 = 7'
    network node3 down
    type 'print 8'
    expect "a network that stands still holds nobody" says '^0:3 | $2 = 8'
    sleep 6
    network node3 up
    expect "it goes on" says '^4:5 | $2 = 8'
    on node3 pkill -KILL -x vexagent-node
    expect "the clients of a killed node's agent are named" says '^Client 5 was terminated'
    type 'print 9'
    expect "the others go on" says '^0:3 | $3 = 9'
    expect "nothing is left there" noneOn node3
    type kquit y
    expect "nothing is left" each noneOn
}

# knocks UID ANSWER: each socket that vex and its agents listen at on node1 gives this answer to that user.
knocks() {
    # To a node's agent: JOIN, in a version that it does not know.
    nsenter -t "${init[node1]}" -m -u -i -n -p -- setpriv --reuid "$1" --regid "$1" --clear-groups perl -MSocket -e '
        open my $list, "<", "/proc/net/unix" or die;
        for (map { [split] } <$list>) {
            my ($flags, $type, $name) = @$_[3, 4, 7];
            next unless $flags eq "00010000" && $name =~ s/^@(?=vex)/\0/ | $name =~ /\.vexsock/;
            my ($isControl, $answer) = ($type == 5, "refuses");
            socket my $link, PF_UNIX, $isControl ? SOCK_SEQPACKET : SOCK_STREAM, 0 or die;
            setsockopt $link, SOL_SOCKET, SO_RCVTIMEO, pack "q2", 1, 0;
            if (connect $link, pack_sockaddr_un $name) {
                send $link, $isControl ? "facts" : "\0\0\0\5\0\0\0\xc9\x7e", MSG_NOSIGNAL;
                my $got = sysread $link, my $bytes, 99;
                $answer = "answers" if $got || !defined $got && $!{EAGAIN};
            }
            print "$answer\n";
        }' >"$dir/answers"
    [ "$(sort "$dir/answers" | uniq -c | tr -s ' ')" = " 3 $2" ]
}

# mpi NAME LAUNCHER PROGRAM
mpi() {
    if ! command -v "${2%% *}" >/dev/null || [ ! -x "$bin/$3" ]; then
        say "hosts: $1 skipped, it is not here"
        return
    fi
    launched "$1" go_round --launch "$2" "$programs/$3"
    running "$@"
}

if ! begin; then
    say "hosts: FAILED: the hosts do not begin"
    cat "$dir"/*.log >&2
    exit 1
fi
disturbed
launched ssh simulate --launch ssh --hosts machines "$programs/halo"
mpi "Open MPI" 'mpirun.openmpi --hostfile slots -np 6' ring.openmpi
mpi MPICH 'mpiexec.mpich -f machines -n 6' ring.mpich
exit $failed
