#!/usr/bin/env bash
# check_example.sh PAGE SOURCE BUILD FOLDER: runs the shell blocks of a page that stand behind a line
# "<!-- example -->", in their order, and compares what each prints with the text block behind it.
# They run where examples/ and build/release/ are those of SOURCE and BUILD.
set -euo pipefail
page=$1 source=$2 build=$3
. "$(dirname "$0")/../support/own_folder.sh"

own_folder "$4"
mkdir "$work/build" "$work/blocks"
ln -s "$source/examples" "$work/examples"
ln -s "$build" "$work/build/release"

# blocks/1.sh, blocks/1.text, blocks/2.sh, ...
awk -v folder="$work/blocks" '
  /^<!-- example -->$/ { ++count; wanted = 1; next }
  /^```(sh|text)$/ && wanted { out = folder "/" count "." substr($0, 4); next }
  /^```$/ && out { wanted = (out ~ /sh$/); close(out); out = ""; next }
  out { print > out }' "$page"

count=$(find "$work/blocks" -name '*.sh' | wc -l)
[ "$count" -gt 0 ] || { echo "no examples in $page"; exit 1; }
cd "$work"
for number in $(seq "$count"); do
  bash -eu "blocks/$number.sh" >"blocks/$number.said" || { echo "example $number fails"; exit 1; }
  diff -u "blocks/$number.text" "blocks/$number.said" || { echo "example $number differs"; exit 1; }
done
echo "$count examples of $page print what it says"
