#!/usr/bin/env bash
# check_completion.sh VORN COMPLETION: asks bash's completion what it would offer.
set -euo pipefail
vorn=$1
# shellcheck source=/dev/null
. "$2"

# offers WORD...: what is offered for the last one.
offers() {
  COMP_WORDS=("$vorn" "$@")
  COMP_CWORD=$#
  COMPREPLY=()
  _vorn
  echo "${COMPREPLY[*]}"
}

# expect OFFERED WORD...
expect() {
  local found
  found=$(offers "${@:2}")
  [ "$found" = "$1" ] || {
    echo "check_completion: for '${*:2}' it offers '$found', not '$1'" >&2
    exit 1
  }
}

expect inspect insp
expect '' nothing
expect --layout inspect --la
expect '--model' inspect -m model.om --mo
expect '' inspect model
expect '' trace -- program --la
