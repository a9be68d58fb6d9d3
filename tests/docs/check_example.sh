#!/usr/bin/env bash
# check_example.sh PAGE SOURCE BUILD FOLDER: runs the shell blocks of a page that stand behind a line
# "<!-- example -->", in their order, and compares what each prints with the text block behind it, if there
# is one. A line "…" stands for any lines. Behind "<!-- example: figures vary -->" a number stands for any
# other, and blanks for as many as there are. They run where examples/ and build/release/ are those of
# SOURCE and BUILD.
set -euo pipefail
page=$1 source=$2 build=$3
. "$(dirname "$0")/../support/own_folder.sh"

own_folder "$4"
# Boards that a page has started end with it, however it ends.
trap '[ ! -d "$work/build/boards" ] || "$source/tests/beds/sshd.sh" stop "$work/build/boards"
      rm -rf "$work"' EXIT
mkdir "$work/build" "$work/blocks"
# Folders of its own: behind a link, ".." would lead to what SOURCE has in build/release.
cp -rs "$source/examples" "$work/examples"
ln -s "$build" "$work/build/release"
mkdir "$work/tests"
ln -s "$source/tests/beds" "$work/tests/beds"

# blocks/1.sh, blocks/1.text, blocks/2.sh, ...; blocks/2.varies where figures vary
awk -v folder="$work/blocks" '
  /^<!-- example(: figures vary)? -->$/ {
    ++count
    wanted = 1
    if (/vary/) printf "" > (folder "/" count ".varies")
    next
  }
  /^```(sh|text)$/ && wanted { out = folder "/" count "." substr($0, 4); next }
  /^```$/ && out { wanted = (out ~ /sh$/); close(out); out = ""; next }
  /^```/ { wanted = 0 }
  out { print > out }' "$page"

# settled FILE NUMBER: what is compared of it.
settled() {
  if [ -e "blocks/$2.varies" ]; then
    sed -E 's/-?[0-9]+(\.[0-9]+)?(e[-+][0-9]+)?/0/g; s/[[:space:]]+/ /g; s/ $//' "$1"
  else
    cat "$1"
  fi
}

# skipped SHOWN SAID: what was said without the lines that "…" stands for, which stays itself.
skipped() {
  awk 'NR == FNR { shown[++lines] = $0; next }
       { if (shown[at + 1] == "…") { if ($0 != shown[at + 2] || at + 2 > lines) next; print "…"; ++at }
         print; ++at }
       END { if (shown[at + 1] == "…") print "…" }' "$1" "$2"
}

count=$(find "$work/blocks" -name '*.sh' | wc -l)
[ "$count" -gt 0 ] || { echo "no examples in $page"; exit 1; }
cd "$work"
for number in $(seq "$count"); do
  bash -eu "blocks/$number.sh" >"blocks/$number.said" || { echo "example $number fails"; exit 1; }
  [ -e "blocks/$number.text" ] || continue
  settled "blocks/$number.text" "$number" >shown
  settled "blocks/$number.said" "$number" >said
  skipped shown said | diff -u shown - || { echo "example $number differs"; exit 1; }
done
echo "$count examples of $page print what it says"
