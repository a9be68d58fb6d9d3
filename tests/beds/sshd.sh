#!/usr/bin/env bash
# sshd.sh: boards to test with, b1 to bN: an sshd each on 127.0.0.1, as the user who starts it, with
# keys, known hosts, settings and a port of its own. Nothing of the system is read or changed, but that
# root has to have the folder /run/sshd.
#
#   sshd.sh start FOLDER N [LINE...]  makes FOLDER and starts N boards; LINEs go into each sshd_config.
#                                     ssh -F FOLDER/ssh_config b1 is on the first then
#   sshd.sh again FOLDER BOARD        starts a board that was killed, at the same port
#   sshd.sh kill FOLDER BOARD         as a loss of power: sshd and all that it started are gone
#   sshd.sh cut FOLDER BOARD          connections are lost; what runs by them hears of it, or does not
#   sshd.sh freeze|thaw FOLDER BOARD  connections stand still, and go on
#   sshd.sh stop FOLDER               ends all of them, and what they started; the folder stays
set -euo pipefail
. "$(dirname "$0")/processes.sh"
readonly kTries=50
readonly kWaitTenths=200


# Debian has it where only root looks.
sshd=$(PATH=$PATH:/usr/sbin:/sbin command -v sshd) || true

# A path as ssh's own files take it.
word() { printf '"%s"' "${1//%/%%}"; }

pid_of() { noted_process "$folder/$1/pid"; }

write_config() { # BOARD PORT LINE...
  local board=$1 port=$2
  shift 2
  cat <<END
Port $port
ListenAddress 127.0.0.1
HostKey $(printf '"%s"' "$folder/$board/host_key")
AuthorizedKeysFile $(word "$folder/user_key.pub")
PidFile none
AuthenticationMethods publickey
PubkeyAuthentication yes
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
StrictModes no
X11Forwarding no
PrintMotd no
Subsystem sftp internal-sftp
SetEnv "VORN_TEST_BOARD=$folder/$board" "HOME=$folder/$board/home"
END
  printf '%s\n' "$@"
}

# listens BOARD: waits until it does; 1 if it has ended.
listens() {
  local i
  for ((i = 0; i < kWaitTenths; ++i)); do
    grep -q '^Server listening on ' "$folder/$1/log" && return 0
    [ -n "$(pid_of "$1")" ] || return 1
    sleep 0.1
  done
  return 1
}

launch() { # BOARD
  : >"$folder/$1/log"
  # -D: in the foreground, so that its number is known from the first moment on.
  setsid "$sshd" -D -e -f "$folder/$1/sshd_config" </dev/null >>"$folder/$1/log" 2>&1 &
  note_process "$folder/$1/pid" $!
  listens "$1"
}

# Nobody can keep a port for another process: one is tried, and another if it was taken.
start_board() { # BOARD LINE...
  local board=$1 try port
  shift
  # What this user's logins do else is no matter of a board's, and may take long.
  mkdir -p "$folder/$board/home"
  ssh-keygen -q -t ed25519 -N '' -C "$board" -f "$folder/$board/host_key"
  for ((try = 0; try < kTries; ++try)); do
    port=$((20000 + (RANDOM * 32768 + RANDOM) % 12000)) # below those that the system gives away
    write_config "$board" "$port" "$@" >"$folder/$board/sshd_config"
    launch "$board" && break
    grep -q 'Address already in use' "$folder/$board/log" || break
  done
  listens "$board" || { cat "$folder/$board/log" >&2; die "sshd of $board did not start"; }
  printf '%s %s\n' "$board" "$(cut -d' ' -f1,2 "$folder/$board/host_key.pub")" >>"$folder/known_hosts"
  cat >>"$folder/ssh_config" <<END
Host $board
  HostName 127.0.0.1
  Port $port
  HostKeyAlias $board
END
}

start() { # N LINE...
  local count=$1 i
  shift
  [ -n "$sshd" ] || die "there is no sshd; apt-get install openssh-server"
  [ "$(id -u)" != 0 ] || [ -d /run/sshd ] || mkdir -m 0755 /run/sshd
  ssh-keygen -q -t ed25519 -N '' -C "$(id -un)" -f "$folder/user_key"
  for ((i = 1; i <= count; ++i)); do start_board "b$i" "$@"; done
  cat >>"$folder/ssh_config" <<END
Host *
  User $(id -un)
  IdentityFile $(word "$folder/user_key")
  IdentitiesOnly yes
  IdentityAgent none
  UserKnownHostsFile $(word "$folder/known_hosts")
  GlobalKnownHostsFile /dev/null
  StrictHostKeyChecking yes
  BatchMode yes
  LogLevel ERROR
END
}

end_board() { # BOARD
  local pid
  pid=$(pid_of "$1")
  # shellcheck disable=SC2046 # a word each
  [ -z "$pid" ] || { signal STOP "$pid" && signal KILL $(descendants "$pid") "$pid"; }
  # What sshd started and left has its mark in the environment.
  kill_marked "VORN_TEST_BOARD=$folder/$1"
  while [ -n "$(pid_of "$1")" ]; do sleep 0.01; done
}

# Those of a connection: its sshd, and where there are two, the one without rights.
connections() { # BOARD
  local child pid
  pid=$(pid_of "$1")
  [ -n "$pid" ] || die "$1 does not run"
  for child in $(descendants "$pid"); do
    if [ "$(cat "/proc/$child/comm" 2>/dev/null)" = sshd ]; then printf '%s\n' "$child"; fi
  done
}

# shellcheck disable=SC2046 # a word each
signal_connections() { signal "$1" $(connections "$2"); } # SIGNAL BOARD

[ $# -ge 2 ] || die "start|again|kill|cut|freeze|thaw|stop FOLDER ...; its head tells more"
action=$1
mkdir -p "$2"
folder=$(cd -P "$2" && pwd)
shift 2
case $action in
  start) start "$@" ;;
  again) launch "$1" || { cat "$folder/$1/log" >&2; die "sshd of $1 did not start again"; } ;;
  kill) end_board "$1" ;;
  cut) signal_connections KILL "$1" ;;
  freeze) signal_connections STOP "$1" ;;
  thaw) signal_connections CONT "$1" ;;
  stop) for pid in "$folder"/b*/pid; do [ ! -e "$pid" ] || end_board "$(basename "$(dirname "$pid")")"; done ;;
  *) die "there is no '$action'" ;;
esac
