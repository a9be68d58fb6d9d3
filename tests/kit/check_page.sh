#!/usr/bin/env bash
# check_page.sh VERB_PROGRAM PAGE: the page is what the program's own table says, and its manual page is
# one that man can read.
set -euo pipefail
if ! "$1" --help=page | diff -u "$2" -; then
  echo "write it anew: ${1##*/} --help=page > docs/verbs/${2##*/}" >&2
  exit 1
fi
"$1" --help=man | grep -q '^\.TH '
