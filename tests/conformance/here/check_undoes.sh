#!/usr/bin/env bash
# check_undoes.sh PROGRAM RUNTIME MODELS FOLDER: refuses the steps of coming up one after the other,
# and fails unless the suite then undoes those before, and nothing else. The next test of the same
# process would meet what is left.
set -euo pipefail
program=$1 runtime=$2 models=$3
here=$(cd "$(dirname "$0")" && pwd)
. "$here/scripted_suite.sh"
. "$here/../../support/own_folder.sh"

own_folder "$4"

# calls_of TEST STEP: the operations that the test calls if STEP is refused, in one line.
calls_of() {
  export VORN_RECORD=$work/$1.$2.record
  printf 'answer %s always 5\n' "$2" >"$work/$2.script"
  suite feed_forward "$work/$2.script" "$1" --in-process >"$work/$1.$2.said" && return 1
  grep -o '^vorn_[a-z_]*' "$VORN_RECORD" | paste -sd' ' -
}

# expect STEP CALLS: of a test that brings the runtime up by itself, and of one that finds it up.
expect() {
  for test in Process.ComesUpAndGoesDown Device.TellsItsRunMode; do
    calls=$(calls_of "$test" "$1") || { echo "$test passes without $1"; exit 1; }
    [ "$calls" = "$2" ] || { echo "without $1, $test calls $calls"; exit 1; }
  done
}

expect vorn_init 'vorn_init'
expect vorn_rt_set_device 'vorn_init vorn_rt_set_device vorn_finalize'
expect vorn_rt_create_context \
  'vorn_init vorn_rt_set_device vorn_rt_create_context vorn_rt_reset_device vorn_finalize'
