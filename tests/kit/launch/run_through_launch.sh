#!/usr/bin/env bash
# run_through_launch.sh BUILD FOLDER PROGRAM FILTER: the tests of a program that runs vorn-run over and
# over, each run by way of vorn launch: lines, calls, dumps and ends have to be the same.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../../support/own_folder.sh"
own_folder "$2"
export VORN_TESTED_BUILD=$1 VORN_LAUNCHED=$work/launched VORN_RUN=$here/launch_as_run.sh
"$3" --gtest_brief=1 --gtest_filter="$4"
launched=$(wc -l <"$work/launched")
echo "$launched runs by way of launch"
[ "$launched" -gt 100 ] || { echo "too few of them"; exit 1; }
