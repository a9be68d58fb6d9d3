# Processes of a test bed, by notes in its folder. Sourced; `folder` is the bed's.

say() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }
die() {
  say "$*"
  exit 1
}

# A process is known by its number and by when it began, which no later one has.
began() { sed 's/.*) //' "/proc/$1/stat" 2>/dev/null | cut -d' ' -f20; }

# note_process FILE PID
note_process() { printf '%s %s\n' "$2" "$(began "$2")" >"$1"; }

# noted_process FILE: its number; nothing if it is gone.
noted_process() {
  local pid when
  { read -r pid when <"$1"; } 2>/dev/null || return 0
  [ "$(began "$pid")" != "$when" ] || printf '%s\n' "$pid"
}

# signal SIGNAL PID...: those that are there still.
signal() {
  local pid
  for pid in "${@:2}"; do kill "-$1" "$pid" 2>/dev/null || true; done
}

descendants() {
  local child
  for child in $(ps -o pid= --ppid "$1"); do
    printf '%s\n' "$child"
    descendants "$child"
  done
}

# marked MARK: processes with this word in their environment.
marked() { grep -lFsxz -- "$1" /proc/[0-9]*/environ | cut -d/ -f3 || true; }

# kill_marked MARK: what runs may start more while it is looked for, until a look finds nothing.
kill_marked() {
  local found
  while found=$(marked "$1") && [ -n "$found" ]; do
    # shellcheck disable=SC2086 # a word each
    signal KILL $found
    sleep 0.02
  done
}
