#!/usr/bin/env bash
# slurm.sh: a cluster to test with, of nodes b1 to bN, all on 127.0.0.1: munged, slurmctld and a slurmd a
# node, as the user who starts it, with a key, settings, state and ports of its own. Nothing of the
# system is read or changed.
#
#   slurm.sh start FOLDER N [LINE...]  makes FOLDER and starts all; LINEs go into slurm.conf. Prints the
#                                      file for SLURM_CONF. sinfo, sbatch and the rest use it then
#   slurm.sh kill FOLDER NODE          as a loss of power: slurmd and the jobs of the node are gone
#   slurm.sh lose FOLDER NODE          slurmd alone is gone, its jobs run on
#   slurm.sh again FOLDER NODE         starts a slurmd that was killed; "ctld" for slurmctld
#   slurm.sh kill FOLDER ctld          slurmctld is gone
#   slurm.sh stop FOLDER               ends all of it, and its jobs; the folder stays
#
# Each node has a processor, the feature "odd" or "even", and one "board" for --gres. There are the
# partitions "boards" and "lab". An array has at most eight tasks.
set -euo pipefail
. "$(dirname "$0")/processes.sh"
readonly kTries=20
readonly kWaitTenths=600


export PATH=$PATH:/usr/sbin:/sbin

port() { echo $((20000 + (RANDOM * 32768 + RANDOM) % 12000)); }

write_config() { # N LINE...
  local count=$1 i user
  shift
  user=$(id -un)
  cat <<END
ClusterName=bed
SlurmctldHost=$(hostname -s)(127.0.0.1)
SlurmctldPort=$(port)
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
AuthInfo=socket=$folder/munge.socket,cred_expire=2
CredType=cred/munge
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/%n/spool
SlurmctldPidFile=$folder/ctld.own-pid
SlurmdPidFile=$folder/%n/own-pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SchedulerParameters=batch_sched_delay=0,sched_min_interval=200000
SlurmdParameters=config_overrides
ReturnToService=2
SlurmctldTimeout=10
SlurmdTimeout=10
KillWait=5
MaxArraySize=9
GresTypes=board
END
  printf '%s\n' "$@"
  for ((i = 1; i <= count; ++i)); do
    echo "NodeName=b$i NodeHostname=$(hostname -s) NodeAddr=127.0.0.1 Port=$(port) CPUs=1" \
      "Feature=$([ $((i % 2)) = 1 ] && echo odd || echo even) Gres=board:1 State=UNKNOWN"
  done
  echo "PartitionName=boards Nodes=b[1-$count] Default=YES MaxTime=INFINITE State=UP"
  echo "PartitionName=lab Nodes=b[1-$count] MaxTime=INFINITE State=UP"
}

# in_background NAME COMMAND...: what it says goes into FOLDER/NAME.log.
in_background() {
  local name=$1
  shift
  VORN_TEST_NODE="$folder/$name" SLURM_CONF=$folder/slurm.conf setsid "$@" </dev/null \
    >>"$folder/$name.log" 2>&1 &
  note_process "$folder/$name.pid" $!
}

runs() { [ -n "$(noted_process "$folder/$1.pid")" ]; }

start_one() { # NODE, or ctld
  case $1 in
    ctld) in_background ctld slurmctld -D ;;
    *) in_background "$1" slurmd -D -N "$1" ;;
  esac
}

start_munge() {
  dd if=/dev/urandom of="$folder/munge.key" bs=1024 count=1 status=none
  chmod 600 "$folder/munge.key"
  # --force: a folder that is its user's alone is right here.
  in_background munged munged --foreground --force --key-file "$folder/munge.key" \
    --socket "$folder/munge.socket" --pid-file "$folder/munge.own-pid" \
    --log-file "$folder/munge.own-log" --seed-file "$folder/munge.seed"
  local i
  for ((i = 0; i < kWaitTenths; ++i)); do
    [ -S "$folder/munge.socket" ] && return 0
    runs munged || break
    sleep 0.1
  done
  cat "$folder/munged.log" >&2
  die "munged did not start"
}

# Until all nodes are idle; 1 if one of the programs has ended.
is_up() { # N
  local i j
  for ((i = 0; i < kWaitTenths; ++i)); do
    [ "$(sinfo -h -N -p boards -o %T 2>/dev/null | grep -cx idle)" = "$1" ] && return 0
    runs ctld || return 1
    for ((j = 1; j <= $1; ++j)); do runs "b$j" || return 1; done
    sleep 0.1
  done
  return 1
}

end_one() { # NODE, or ctld
  local pid
  pid=$(noted_process "$folder/$1.pid")
  # shellcheck disable=SC2046 # a word each
  [ -z "$pid" ] || { signal STOP "$pid" && signal KILL $(descendants "$pid") "$pid"; }
  while runs "$1"; do sleep 0.01; done
}

# Its jobs have the node's name and the file of this cluster, and slurmd's own processes its mark.
end_node() { # NODE
  end_one "$1"
  kill_marked "VORN_TEST_NODE=$folder/$1"
  local pid found=yes
  while [ -n "$found" ]; do
    found=
    for pid in $(marked "SLURMD_NODENAME=$1"); do
      grep -Fsxzq -- "SLURM_CONF=$folder/slurm.conf" "/proc/$pid/environ" || continue
      found=yes
      signal KILL "$pid"
    done
    [ -z "$found" ] || sleep 0.02
  done
}

end_all() {
  local pid name
  [ ! -e "$folder/ctld.pid" ] || end_one ctld
  for pid in "$folder"/b*.pid; do
    name=$(basename "$pid" .pid)
    [ ! -e "$pid" ] || end_node "$name"
  done
  [ ! -e "$folder/munged.pid" ] || end_one munged
}

start() { # N LINE...
  local try i
  command -v slurmctld slurmd munged >/dev/null || die "there is no Slurm; apt-get install slurm-wlm munge"
  [ "${#folder}" -lt 80 ] || die "the folder's name is too long for a socket in it: $folder"
  export SLURM_CONF=$folder/slurm.conf
  start_munge
  for ((i = 1; i <= $1; ++i)); do
    mkdir -p "$folder/b$i/spool"
    echo "NodeName=b$i Name=board Count=1"
  done >"$folder/gres.conf"
  # Nobody can keep a port for another process: some are tried, and others if one was taken.
  for ((try = 0; try < kTries; ++try)); do
    rm -rf "$folder/state"
    mkdir "$folder/state"
    write_config "$@" >"$folder/slurm.conf"
    start_one ctld
    for ((i = 1; i <= $1; ++i)); do start_one "b$i"; done
    if is_up "$1"; then
      printf '%s\n' "$folder/slurm.conf"
      return
    fi
    end_one ctld
    for ((i = 1; i <= $1; ++i)); do end_node "b$i"; done
    grep -qi 'already in use' "$folder"/*.log || break
  done
  tail -n 20 "$folder"/*.log >&2
  end_all
  die "the cluster did not start"
}

[ $# -ge 2 ] || die "start|kill|lose|again|stop FOLDER ...; its head tells more"
action=$1
mkdir -p "$2"
folder=$(cd -P "$2" && pwd)
shift 2
case $action in
  start) start "$@" ;;
  kill) if [ "$1" = ctld ]; then end_one ctld; else end_node "$1"; fi ;;
  lose) end_one "$1" ;;
  again) start_one "$1" ;;
  stop) end_all ;;
  *) die "there is no '$action'" ;;
esac
