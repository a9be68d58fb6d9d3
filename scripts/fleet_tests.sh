#!/usr/bin/env bash
# fleet_tests.sh [ROUNDS]: a fleet over real boards and a real cluster, all on this machine: an sshd each,
# and Slurm with three nodes. Boards lose their power and their connections, nodes theirs, jobs are
# cancelled, and what runs on boards is killed, and so is the process that hands all out, each at a
# moment that is drawn; then the fleet is resumed until it is done. Each time what is merged has to be
# a run in one piece. ROUNDS each, 5 without.
#
# What it needs: the release build, sshd, GNU parallel, Slurm and munge, and shells for logins
# (apt-get install openssh-server parallel slurm-wlm munge csh busybox). VORN_FLEET_SEED repeats the
# moments.
set -euo pipefail
cd -P "$(dirname "$0")/.."
readonly kBuild=${VORN_TESTED_BUILD:-build/release}
readonly kRounds=${1:-5}
readonly kRepeats=10  # of the 200 pictures of digits
readonly kChunk=100
readonly kResumes=10 # more than enough
RANDOM=${VORN_FLEET_SEED:-20261123}

say() { printf 'fleet_tests: %s\n' "$*"; }
die() { say "$*"; exit 1; }

# A short path: sockets are made in it.
work=$(mktemp -d /tmp/fleet-tests.XXXXXX)
clean_up() {
  local bed
  for bed in "$work"/ssh*; do [ ! -d "$bed" ] || tests/beds/sshd.sh stop "$bed"; done
  [ ! -e "$work/slurm" ] || tests/beds/slurm.sh stop "$work/slurm"
  rm -rf "$work"
}
trap clean_up EXIT

make_list() {
  local i
  ln -s "$PWD/examples/digits/pictures" "$work/pictures"
  for ((i = 0; i < kRepeats; ++i)); do cat examples/digits/list.txt; done >"$work/list.txt"
}

vorn() { "$kBuild/vorn" "$@"; }

make_plan() { # FLEET
  vorn fleet plan -m examples/digits/digits.onnx -j examples/digits/host.json -i "$work/list.txt" \
    --chunk "$kChunk" -o "$1" --quiet
}

run_in_one_piece() {
  vorn launch -m examples/digits/digits.onnx -j examples/digits/host.json -i "$work/list.txt" \
    --run "$work/whole" --quiet
}

# contents RUN: each dump by inference, output and kind, and its hash: names hold times.
contents() {
  (cd "$1" && find dumps -type f -exec sha256sum {} + |
    sed -E 's/^([0-9a-f]*) +(.*)\.[0-9]+(\.(bin|float))$/\2\3 \1/' | sort)
}

# without_names RUN: the records of its inferences but for the times in the names of dumps.
without_names() { sed -E 's/\.[0-9]+(\.(bin|float)")/\1/g' "$1/samples.jsonl"; }

expect_whole() { # FLEET
  vorn fleet merge "$1" --run "$work/merged" --quiet || die "$1: merge ended with status $?"
  cmp <(contents "$work/whole") <(contents "$work/merged") || die "$1: other dumps than in one piece"
  cmp <(without_names "$work/whole") <(without_names "$work/merged") ||
    die "$1: other samples than in one piece"
  rm -rf "$work/merged"
}

write_boards() { # BED BOARD...
  local bed=$1 board between=
  shift
  {
    echo '{"schema": 1, "boards": ['
    for board in "$@"; do
      printf '%s{"name": "%s", "host": "%s", "work": "%s", "ssh": ["-F", "%s"], "runtime": "%s"}\n' \
        "$between" "$board" "$board" "$bed-on-$board" "$bed/ssh_config" "$PWD/$kBuild/libvorn.so"
      between=,
    done
    echo ']}'
  } >"$bed.json"
}

moment() { sleep "$((RANDOM % 4)).$((RANDOM % 10))"; }

# kill_program NAME: one of those that a board or a node runs for this test.
kill_program() {
  local pid pids=()
  for pid in $(pgrep -x "$1"); do
    if [[ $(readlink "/proc/$pid/cwd") == "$work"/* ]] ||
      grep -qs "SLURM_CONF=$work/" "/proc/$pid/environ"; then
      pids+=("$pid")
    fi
  done
  say "  $1 ${pids[*]:-none}"
  [ "${#pids[@]}" = 0 ] || kill -KILL "${pids[RANDOM % ${#pids[@]}]}" 2>/dev/null || true
}

# One fault at a time, of a kind that is drawn. CONTROL is the process that hands all out.
disturb_ssh() { # CONTROL
  local board=b$((RANDOM % 3 + 1))
  case $((RANDOM % 5)) in
    0) say "  power of $board"; tests/beds/sshd.sh kill "$work/ssh" "$board"; sleep 1
       tests/beds/sshd.sh again "$work/ssh" "$board" ;;
    1) say "  connections of $board"; tests/beds/sshd.sh cut "$work/ssh" "$board" || true ;;
    2) say "  control"; kill -KILL "$1" 2>/dev/null || true ;;
    3) kill_program vorn-launch ;;
    4) kill_program vorn-run ;;
  esac
}

disturb_slurm() { # CONTROL
  local node=b$((RANDOM % 3 + 1)) job
  case $((RANDOM % 6)) in
    0) say "  power of $node"; tests/beds/slurm.sh kill "$work/slurm" "$node"; sleep 1
       tests/beds/slurm.sh again "$work/slurm" "$node" ;;
    1) say "  slurmd of $node"; tests/beds/slurm.sh lose "$work/slurm" "$node"; sleep 1
       tests/beds/slurm.sh again "$work/slurm" "$node" ;;
    2) job=$(squeue -h -t R -o %i | head -n 1)
       say "  job ${job:-none}"; [ -z "$job" ] || scancel "$job" || true ;;
    3) say "  control"; kill -KILL "$1" 2>/dev/null || true ;;
    4) kill_program vorn-launch ;;
    5) kill_program vorn-run ;;
  esac
}

# torment NAME DISTURB ARGUMENT...: runs a fleet, disturbs it, and resumes it until it is done.
torment() {
  local name=$1 disturb=$2 fleet=$work/$1.fleet control i status=8
  shift 2
  rm -rf "$fleet"
  make_plan "$fleet"
  "$kBuild/vorn-fleet" run "$fleet" "$@" >>"$work/$name.log" 2>&1 &
  control=$!
  for ((i = 0; i < 2; ++i)); do
    moment
    "$disturb" "$control"
  done
  wait "$control" || true
  for ((i = 0; i < kResumes && status != 0; ++i)); do
    status=0
    "$kBuild/vorn-fleet" resume "$fleet" --again "$@" >>"$work/$name.log" 2>&1 || status=$?
  done
  [ "$status" = 0 ] || { tail -n 20 "$work/$name.log"; die "$name was not done after $kResumes resumes"; }
  say "  done after $i resumes"
  expect_whole "$fleet"
}

# hold_login NAME SHELL: a board whose login has another shell than a POSIX one.
hold_login() {
  local bed=$work/ssh-$1 fleet=$work/$1.fleet
  tests/beds/sshd.sh start "$bed" 1 "ForceCommand exec $2 -c \"\$SSH_ORIGINAL_COMMAND\""
  write_boards "$bed" b1
  make_plan "$fleet"
  vorn fleet run "$fleet" --boards "$bed.json" --quiet || die "a login of $1: run ended with status $?"
  expect_whole "$fleet"
  tests/beds/sshd.sh stop "$bed"
  say "a board with a login of $1"
}

hold_requeue() {
  local fleet=$work/requeued job control
  make_plan "$fleet"
  "$kBuild/vorn-fleet" run "$fleet" --on slurm >>"$work/requeue.log" 2>&1 &
  control=$!
  while job=$(squeue -h -t R -o %i | head -n 1) && [ -z "$job" ]; do sleep 0.1; done
  scontrol requeue "$job"
  # Slurm waits two minutes before it starts a job again.
  while [ "$(squeue -h -j "$job" -o %T)" != PENDING ]; do sleep 0.2; done
  scontrol update JobId="$job" StartTime=now
  wait "$control" || die "a queued-again job: run ended with status $?"
  expect_whole "$fleet"
  say "a job that was queued again went on"
}

hold_without_waiting() {
  local fleet=$work/left status=0
  make_plan "$fleet"
  vorn fleet run "$fleet" --on slurm --no-wait --partition lab --quiet || status=$?
  [ "$status" = 8 ] || die "--no-wait ended with status $status"
  while [ -n "$(squeue -h)" ]; do sleep 0.5; done
  expect_whole "$fleet"
  say "jobs went on by themselves"
}

# A launch that hears no signal: Slurm asks at the time limit and kills KillWait later. The word of a
# minute before is replaced, or it would end in order. Limits are whole minutes, and looked at twice a
# minute: this takes a minute and a half.
hold_time_limit() {
  local fleet=$work/limited bin=$work/hanging
  mkdir "$bin"
  cp "$kBuild/vorn-fleet" "$bin" # which runs the vorn-launch beside it
  cat >"$bin/vorn-launch" <<END
#!/bin/sh
if mkdir "$bin/hung" 2>/dev/null; then trap "" HUP TERM; while :; do sleep 1; done; fi
exec "$PWD/$kBuild/vorn-launch" "\$@"
END
  chmod +x "$bin/vorn-launch"
  make_plan "$fleet"
  "$bin/vorn-fleet" run "$fleet" --on slurm --time 1 --sbatch=--signal=B:CONT@60 --quiet ||
    die "a job beyond its time limit: run ended with status $?"
  grep -q 'DUE TO TIME LIMIT' "$fleet"/slurm/1/*.log || die "no job met its time limit"
  # Its launch may be killed a moment before the task, which notes that then.
  grep -qE 'its job ended without a word|was stopped' "$fleet"/journal/*.jsonl ||
    die "nothing tells of the attempt that a time limit ended"
  expect_whole "$fleet"
  say "others did what a job left that met its time limit"
}

make_list
run_in_one_piece
hold_login csh /bin/csh
hold_login busybox "/bin/busybox sh"
tests/beds/sshd.sh start "$work/ssh" 3
write_boards "$work/ssh" b1 b2 b3
SLURM_CONF=$(tests/beds/slurm.sh start "$work/slurm" 3)
export SLURM_CONF
hold_requeue
hold_without_waiting
hold_time_limit
for ((round = 1; round <= kRounds; ++round)); do
  say "boards over ssh, round $round"
  torment ssh disturb_ssh --boards "$work/ssh.json"
  say "nodes of Slurm, round $round"
  torment slurm disturb_slurm --on slurm
done
say "all $((kRounds * 2 + 5)) merges are the run in one piece"
