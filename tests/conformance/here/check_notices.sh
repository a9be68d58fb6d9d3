#!/usr/bin/env bash
# check_notices.sh PROGRAM RUNTIME MODELS NUMBER FOLDER: runs the suite on a scripted runtime that
# does one thing wrong, fault NUMBER of misbehaviour.txt, and fails unless the suite does, naming the
# operation or test. Tests that this runtime fails by its nature are left out.
set -euo pipefail
program=$1 runtime=$2 models=$3 number=$4
here=$(cd "$(dirname "$0")" && pwd)
unclaimed=$here/unclaimed.txt
. "$here/scripted_suite.sh"
. "$here/../../support/own_folder.sh"

read -r model name statement \
  < <(grep '^[a-z]' "$here/misbehaviour.txt" | sed -n "${number}p")
own_folder "$5"
script=$work/$number.script
{ cat "$here/$model.script" && printf '%s\n' "$statement"; } >"$script"

status=0
said=$(suite "$model" "$script" "$(groups_of "$model")-$(names_of "$unclaimed")" --in-process 2>&1) ||
  status=$?
if [ "$status" = 0 ]; then
  echo "the suite did not notice: $statement"
  exit 1
fi
if grep -q '^scripted runtime: ' <<<"$said" || ! grep -qw "$name" <<<"$said"; then
  printf 'the suite does not name %s for: %s\n%s\n' "$name" "$statement" "$said"
  exit 1
fi
