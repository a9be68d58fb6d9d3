#!/usr/bin/env bash
# onnx_suite.sh [OPTION...]: runs the test cases of the ONNX project through vorn-run, and the same
# ones straight through ONNX Runtime to compare with. docs/onnx-suite.md describes the table that it
# ends with; the exit status says whether every case is accounted for. The options are those of
# tests/onnx_suite/run.py.
#
# Fetches and installs what is missing the first time: the cases out of Debian 13's package, unpacked
# only, into .deps/; Python's onnx and numpy as packages of the system.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kProgram=onnx_suite
readonly kNeeds='Python 3 with onnx and numpy'
. scripts/debian13.sh

readonly kPackage=libonnx-testdata
readonly kVersion=1.17.0-3
readonly kSha256=d2d352c25a62c5544781cd7fb08c41507cd2bbded859f8e804ac8594329077bd
readonly kCasesDir=.deps/onnx-testdata
readonly kStamp="$kPackage $kVersion $kSha256"
readonly kPython=/usr/bin/python3  # the one that the system's packages are for

provide_cases() {
  [ "$(cat "$kCasesDir/stamp" 2>/dev/null)" = "$kStamp" ] && return
  work=$(mktemp -d "$PWD/.deps/fetch.XXXXXX") # not local: the trap runs when this has returned
  trap 'rm -rf "$work"' EXIT
  update_apt_lists
  update_debian_keys
  say "fetching the cases: $kPackage $kVersion (Debian 13), to be unpacked, not installed"
  unpack_from_debian13 "$work" "$kPackage" "$kVersion" "$kSha256"
  printf '%s\n' "$kStamp" >"$work/$kPackage/stamp"
  rm -rf "$kCasesDir"
  mv "$work/$kPackage" "$kCasesDir"
}

./scripts/build.sh release vorn-run onnx-bare-run
"$kPython" -c 'import numpy, onnx' 2>/dev/null || install_packages python3-onnx python3-numpy
exec 9>.deps/lock
flock 9
provide_cases
exec 9>&-

"$kPython" -B tests/onnx_suite/run.py --cases "$kCasesDir" --build build/release "$@"
