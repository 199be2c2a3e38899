#!/usr/bin/env bash
# Tries vex under a Slurm of its own: munge, a controller and one node, all on this host, below a directory that
# goes at the end. Needs root for the daemons; the jobs and vex are an ordinary user's.
# Usage: tests/slurm.sh BIN-DIRECTORY, in which vex, vexagent, vexconsole and halo are.
set -uo pipefail
. "$(dirname "$0")/support/trial.sh"
needs "slurm-wlm, munge" munged slurmctld slurmd srun
makeDir /tmp
export SLURM_CONF=$dir/slurm.conf
end() {
    for each in d ctld munge; do
        [ -s "$dir/$each.pid" ] && kill "$(cat "$dir/$each.pid")" 2>/dev/null
    done
    pkill -KILL -P $$
    rm -rf "$dir" "$scratch"
}
trap end EXIT

begin() {
    local host port=$((20000 + $$ % 20000))
    host=$(hostname -s)
    mkdir -p "$dir/munge" "$dir/run" "$dir/state" "$dir/spool"
    chmod 700 "$dir/munge"
    head -c 1024 /dev/urandom >"$dir/munge/key"
    chmod 400 "$dir/munge/key"
    munged --force --key-file="$dir/munge/key" --socket="$dir/run/munge" --pid-file="$dir/munge.pid" \
        --log-file="$dir/munge/log" --seed-file="$dir/munge/seed" || return 1
    # One processor for each task of the jobs below, whatever the host has.
    cat >"$SLURM_CONF" <<END
ClusterName=test
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$dir/run/munge
SlurmctldPort=$port
SlurmdPort=$((port + 1))
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/ctld.pid
SlurmdPidFile=$dir/d.pid
SlurmctldLogFile=$dir/ctld.log
SlurmdLogFile=$dir/d.log
SlurmdParameters=config_overrides
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MpiDefault=none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
ReturnToService=2
NodeName=$host NodeAddr=127.0.0.1 CPUs=4 State=UNKNOWN
PartitionName=all Nodes=$host Default=YES MaxTime=INFINITE State=UP
END
    slurmctld && slurmd
}

idle() { [ "$(sinfo -h -o %t)" = idle ]; }
states() { [ "$(squeue -h -o %t | sort | tr '\n' ' ')" = "$1" ]; }
gone() { ! pgrep -f "^$bin/vex" >/dev/null; }
vexAs() { asUser "$@"; }
# The oldest process of vex: the one on the terminal.
tellVex() { pkill "$1" -o -f "^$bin/vex"; }
# A start of vex, at whose terminal nobody types.
starts() { onTerminal "--launch 'srun -n 4' $bin/halo"; }

begin && expect "one node is up" idle
[ $failed -eq 0 ] || skip "its daemons do not start here: $(tail -n 3 "$dir"/*.log 2>/dev/null)"

expect "a launched job is debugged" batch 'break simulate\nrun\nprint rank\n' --launch "srun -n 4" "$bin/halo"
expect "each task knows its rank" says '^3 | $1 = 3'
expect "nothing of it is left" states ""

asUser srun -n 4 sleep 1000 >/dev/null 2>&1 &
job=$! # the shell that runs it
expect "a job runs" states "R "
expect "its tasks are found" batch 'vex who\n' --mpi "$(pgrep -x srun -P "$job")"
expect "with their ranks" says '^3 | rank 3 '
expect "the job goes on" states "R "
scancel -u "$user"
expect "it was cancelled" states ""

starts
expect "a job is debugged" says '(all)'
scancel -u "$user"
expect "scancel ends the session" gone
expect "nothing is left" states ""

asUser srun -n 4 sleep 1000 >/dev/null 2>&1 &
expect "the node is busy" states "R "
starts
expect "the next job waits" states "PD R "
tellVex -USR1 # as Ctrl-C does
expect "the start is given up" gone
expect "with its job" states "R "
starts
expect "one more waits" states "PD R "
tellVex -KILL
expect "its vex is killed" gone
expect "and has left no job" states "R "
starts
expect "the last one waits" states "PD R "
pkill -STOP -F "$dir/ctld.pid"
tellVex -USR1
expect "a controller that does not answer holds nobody" gone
expect "what could not be taken back is told" says 'end that by: scancel '
pkill -CONT -F "$dir/ctld.pid"
scancel -u "$user"
expect "and in the end nothing is left" states ""
sleep 1 # for the daemons of the last job
exit $failed
