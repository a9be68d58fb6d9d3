#!/usr/bin/env bash
# run_under.sh LAYER FOLDER PROGRAM: all tests of a program that runs vorn-run over and over, with a layer
# in every process. What it leaves is looked at here and removed.
set -euo pipefail
layer=$1 program=$3
. "$(dirname "$0")/../support/own_folder.sh"
own_folder "$2"
env LD_PRELOAD="$layer" VORN_TRACE_FILE="$work/%p" VORN_TRACE_CALLS=200 "$program" --gtest_brief=1
# The layer was in the way of the calls, and not just loaded.
with_calls=$(find "$work" -type f -size +16k | wc -l)
[ "$with_calls" -gt 100 ] || { echo "only $with_calls processes left a trace with calls"; exit 1; }
