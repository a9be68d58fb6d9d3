#!/usr/bin/env bash
# check_readme.sh VORN SOURCE: README.md shows what `vorn inspect` prints of the digits' model, but for
# the lines that name files.
set -euo pipefail
vorn=$1
cd "$2"
awk '/^```text$/ { on = 1; next } /^```$/ { if (on && shown ~ /^network /) printf "%s", shown; on = 0; shown = "" }
     on { shown = shown $0 "\n" }' README.md |
  diff -u - <(env -u LD_LIBRARY_PATH "$vorn" inspect -m examples/digits/digits.onnx |
    grep -vE '^(model|runtime)  ')
