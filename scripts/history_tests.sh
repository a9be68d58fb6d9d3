#!/usr/bin/env bash
# history_tests.sh [COUNT]: importers of `vorn history` that are killed, each at a moment that is drawn,
# until 200 of them were, or COUNT, two at a time every fourth time; and a disk that is full. After each
# the history has to be whole, and to have nothing but whole runs. Runs are real ones of the digits,
# copied to other moments.
#
# What it needs: the release build, sqlite3 (apt-get install sqlite3), and for the full disk the right to
# mount one; without it that part is left out. VORN_HISTORY_SEED repeats the moments.
set -euo pipefail
cd -P "$(dirname "$0")/.."
readonly kBuild=${VORN_TESTED_BUILD:-build/release}
readonly kKilled=${1:-200}
readonly kRuns=300
RANDOM=${VORN_HISTORY_SEED:-20261123}

say() { printf 'history_tests: %s\n' "$*"; }
die() { say "$*"; exit 1; }

work=$(mktemp -d /tmp/history-tests.XXXXXX)
clean_up() {
  ! mountpoint -q "$work/small" || umount "$work/small"
  rm -rf "$work"
}
trap clean_up EXIT

make_runs() {
  local i
  head -n 20 examples/digits/list.txt >"$work/list.txt"
  ln -s "$PWD/examples/digits/pictures" "$work/pictures"
  "$kBuild/vorn" launch -m examples/digits/digits.onnx -j examples/digits/host.json -i "$work/list.txt" \
    --run "$work/first" --quiet
  mkdir "$work/runs"
  for ((i = 0; i < kRuns; ++i)); do
    mkdir "$work/runs/$i"
    cp "$work/first/times.jsonl" "$work/runs/$i"
    sed -E "s/(\"startRealtimeNs\": )[0-9]+/\1$((1790000000000000000 + i * 86400000000000))/" \
      "$work/first/run.json" >"$work/runs/$i/run.json"
  done
}

# Whole, and each run with its times: they are written together.
expect_whole() { # DB
  local told
  [ -s "$1" ] || return 0
  told=$(sqlite3 "$1" 'PRAGMA integrity_check; PRAGMA foreign_key_check;') || die "$1 cannot be read: $told"
  [ "$told" = ok ] || die "$1: $told"
  told=$(sqlite3 "$1" "SELECT count(*) FROM sqlite_schema WHERE name = 'runs'")
  [ "$told" = 1 ] || return 0
  told=$(sqlite3 "$1" 'SELECT count(*) FROM runs WHERE id NOT IN (SELECT run FROM times)')
  [ "$told" = 0 ] || die "$1: $told runs without their times"
}

expect_all() { # DB
  "$kBuild/vorn" history add "$work/runs" --db "$1" --quiet || die "adding the rest ended with status $?"
  expect_whole "$1"
  [ "$("$kBuild/vorn" history list --json --db "$1" | wc -l)" = "$kRuns" ] || die "$1: not $kRuns runs"
}

# In the place of a shell of its own where it is put behind.
add() { "$kBuild/vorn" history add "$work/runs" --db "$1" --quiet 2>/dev/null; }
start_adding() { exec "$kBuild/vorn" history add "$work/runs" --db "$1" --quiet 2>/dev/null; }

# How long an addition takes from nothing, in milliseconds.
measure_addition() {
  local begun
  begun=$(date +%s%N)
  add "$work/measured.sqlite"
  whole=$((($(date +%s%N) - begun) / 1000000))
}

kill_importers() {
  local round db one other killed=0
  for ((round = 0; killed < kKilled; ++round)); do
    # Some go on where another was killed.
    db=$work/history$((round / 3)).sqlite other=
    start_adding "$db" & one=$!
    if ((round % 4 == 3)); then start_adding "$db" & other=$!; fi
    sleep "$(printf '0.%03d' $((RANDOM % (whole + whole / 4) % 1000)))"
    ! kill -KILL "$one" 2>/dev/null || killed=$((killed + 1))
    wait "$one" 2>/dev/null || true
    if [ -n "$other" ]; then wait "$other" || die "round $round: the other importer failed"; fi
    expect_whole "$db"
    if ((round % 3 == 2)); then expect_all "$db"; fi
  done
  say "$round rounds, $killed importers killed (an addition takes $whole ms): every history is whole"
}

fill_disk() {
  local size
  mkdir "$work/small"
  mount -t tmpfs -o size=256k tmpfs "$work/small" 2>/dev/null || {
    say "no disk can be mounted here: that part is left out"
    return 0
  }
  "$kBuild/vorn" history add "$work/runs/0" --db "$work/small/history" --quiet
  size=$(stat -c %s "$work/small/history")
  local status=0
  add "$work/small/history" || status=$?
  [ "$status" = 7 ] || die "on a full disk an addition ended with status $status"
  expect_whole "$work/small/history"
  "$kBuild/vorn" history list --db "$work/small/history" --quiet || die "the full disk's history is not to be read"
  say "a full disk: status 7, and the history of $size bytes and more is whole"
}

make_runs
measure_addition
kill_importers
fill_disk
