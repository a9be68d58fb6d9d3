#!/usr/bin/env bash
# check_pages.sh SOURCE FOLDER: what the pages of SOURCE point to is there, and the code includes what
# the table of rooms in docs/architecture.md allows and nothing else.
set -euo pipefail
source=$1
. "$(dirname "$0")/../support/own_folder.sh"
own_folder "$2"
cd "$source"

# Links within the project, from the page's own folder.
find . -name '*.md' -not -path './build/*' -not -path './.deps/*' >"$work/pages"
[ -s "$work/pages" ] || { echo "no pages in $source"; exit 1; }
while read -r page; do
  grep -oE '\]\([^)]+\)' "$page" | sed -E 's/^..(.*).$/\1/; s/#.*//' | grep -vE '^$|^https?:' |
    while read -r target; do
      [ -e "$(dirname "$page")/$target" ] || echo "$page: there is no $target"
    done || true
done <"$work/pages" >"$work/faults"

# Files that these name, from the top or from a folder that they speak of. What lies in build/ is made.
for page in README.md CONTRIBUTING.md docs/architecture.md tests/README.md; do
  # shellcheck disable=SC2016  # the backticks are those of the page
  grep -oE '`[a-z_]+/[a-zA-Z0-9_/.-]+`' "$page" | tr -d '`' | { grep -v '^build/' || true; } | sort -u |
    while read -r path; do
      compgen -G "$path*" >/dev/null || compgen -G "src/$path*" >/dev/null ||
        compgen -G "runtime/host/$path*" >/dev/null || compgen -G "tests/$path*" >/dev/null ||
        echo "$page: there is no $path"
    done
done >>"$work/faults"

# room <tab> what it may include, each as it stands in an include.
# shellcheck disable=SC2016
sed -nE 's/^\| `((src|runtime\/host|layers|kit)\/[a-z]+)` \|.*\|([^|]*)\|$/\1\t\3/p' docs/architecture.md |
  tr -d '`,' >"$work/rooms"
[ "$(wc -l <"$work/rooms")" -gt 10 ] || echo "docs/architecture.md: its table of rooms is not read" >>"$work/faults"
while IFS=$'\t' read -r room allowed; do
  above= # what stands before a room's name in an include
  case $room in
    runtime/*) above=host/ ;;
    layers/*) above=layers/ ;;
    kit/*) above=kit/ ;;
  esac
  pattern=$above${room##*/}
  for other in $allowed; do
    case $other in
      include/*) pattern+="|${other#include/}" ;;
      */*) pattern+="|$other" ;;
      *) pattern+="|$above$other" ;;
    esac
  done
  grep -rnoE '#include "[^"]+"' "$room" | grep -vE "#include \"($pattern)/" |
    sed 's/$/ is not allowed by docs\/architecture.md/' || true
done <"$work/rooms" >>"$work/faults"
for room in src/* runtime/host/* layers/* kit/*; do
  [ ! -d "$room" ] || grep -q "^$room	" "$work/rooms" || echo "docs/architecture.md: nothing of $room"
done >>"$work/faults"

cat "$work/faults"
[ ! -s "$work/faults" ]
echo "the pages point to what is there, and the includes run as they say"
