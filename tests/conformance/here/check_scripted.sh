#!/usr/bin/env bash
# check_scripted.sh PROGRAM RUNTIME MODELS HEADER FOLDER: runs the suite on the scripted runtime in
# its ordinary course. All that it claims passes, all that it does not claim fails, and together they
# call every operation of the header.
set -euo pipefail
program=$1 runtime=$2 models=$3 header=$4
here=$(cd "$(dirname "$0")" && pwd)
unclaimed=$here/unclaimed.txt
. "$here/scripted_suite.sh"
. "$here/../../support/own_folder.sh"

own_folder "$5"
export VORN_RECORD=$work/record
for model in feed_forward detection recurrent; do
  suite "$model" "$here/$model.script" "$(groups_of "$model")-$(names_of "$unclaimed")"
done

# Without a model to test with, a test would fail under --no-skips for that reason.
mapfile -t names < <(grep '^[A-Z]' "$unclaimed")
for name in "${names[@]}"; do
  case $name in
    Detection.*) model=detection ;;
    Recurrent.*) model=recurrent ;;
    *) model=feed_forward ;;
  esac
  said=$(suite "$model" "$here/$model.script" "$name" --in-process) && {
    echo "unclaimed.txt names $name, which passes"
    exit 1
  }
  grep -q "FAILED.*$name" <<<"$said" || {
    echo "unclaimed.txt names $name, which is no test"
    exit 1
  }
done

for operation in $(grep -o 'VORN_API .*[ *]vorn_[a-z_]*(' "$header" | grep -o 'vorn_[a-z_]*(' |
  tr -d '('); do
  grep -q "^$operation(" "$VORN_RECORD" || { echo "$operation is not called"; exit 1; }
  grep -q "^[a-z_]* *$operation " "$here/misbehaviour.txt" ||
    { echo "misbehaviour.txt has no fault of $operation"; exit 1; }
done
