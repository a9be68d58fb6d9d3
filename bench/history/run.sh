#!/usr/bin/env bash
# run.sh BUILD TRIALS ROUNDS OUT: how often vorn history errs and how late it is, and how long its
# questions take over 100,000 runs, into a page of Markdown. See ../README.md.
set -euo pipefail
build=$1 trials=$2 rounds=$3 out=$4
readonly kRuns=100000 kSeries=500
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# seconds COMMAND...: of the wall clock, the least of ROUNDS, and the largest memory in MiB.
seconds() {
  local best='' least_memory='' i measured
  for ((i = 0; i < rounds; ++i)); do
    # Steps end some questions with a status of their own.
    measured=$(PYTHONPATH=bench /usr/bin/python3 - "$@" <<'PY'
import subprocess, sys, time
from measure.memory import PeakMemory
memory = PeakMemory(*sys.argv[1:])
begun = time.monotonic()
ended = subprocess.run(memory.words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
took = time.monotonic() - begun
if ended.returncode not in (0, 6, 10):
    sys.exit(f"{sys.argv[1:]} ended with status {ended.returncode}")
print(f"{took:.3f} {memory.bytes() // 2**20}")
PY
    ) || return 1
    if [ -z "$best" ] || [ "$(printf '%s\n' "${measured%% *}" "$best" | sort -g | head -n 1)" != "$best" ]; then
      best=${measured%% *} least_memory=${measured##* }
    fi
  done
  printf '%s s | %s MiB' "$best" "$least_memory"
}

{
  "$build/bench/history/history_bench" errors "$trials"
  db=$work/history.sqlite
  made=$(rounds=1; seconds "$build/bench/history/history_bench" make "$db" "$kRuns" "$kSeries")
  printf '\n| Over %d runs of %d series, %d MiB | wall clock | memory |\n|---|--:|--:|\n' \
    "$kRuns" "$kSeries" $(($(stat -c %s "$db") >> 20))
  printf '| making them, 100 times each | %s |\n' "$made"
  for question in "list" "list --json" "list --last 20" "series" "changes" "report -o $work/page.html"; do
    # shellcheck disable=SC2086  # words of a question
    printf '| vorn history %s | %s |\n' "${question% "$work"*}" \
      "$(seconds "$build/vorn-history" $question --db "$db")"
  done
  printf '\nThe page has %d KiB.\n' $(($(stat -c %s "$work/page.html") >> 10))
} | tee "$out"
