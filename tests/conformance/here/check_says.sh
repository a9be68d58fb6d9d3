#!/usr/bin/env bash
# check_says.sh STATUS REGEX PROGRAM [ARGUMENT...]: runs the program, and fails unless it ends with
# that status and says, anywhere on its two outputs, what the extended regular expression asks for.
set -euo pipefail
wanted=$1 regex=$2
shift 2

status=0
said=$("$@" 2>&1) || status=$?
if [ "$status" != "$wanted" ] || ! [[ $said =~ $regex ]]; then
  printf 'status %s instead of %s, or this does not say "%s":\n%s\n' \
    "$status" "$wanted" "$regex" "$said"
  exit 1
fi
