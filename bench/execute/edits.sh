#!/usr/bin/env bash
# edits.sh BUILD_DIR OUT.json [ROUNDS]: makes the models and measures the rows "edit-load" and
# "edit-execute", each case that many rounds (30). BUILD_DIR is built with the preset "bench".
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$1 out=$2 rounds=${3:-30}
models=$build/models
readonly kProgram=bench
. "$here/../../scripts/packages.sh"

/usr/bin/python3 -c 'import numpy, onnx' 2>/dev/null || install_packages python3-onnx python3-numpy
/usr/bin/python3 "$here/make_models.py" "$models"

"$build/bench/execute/edits-bench" "$out" "$rounds" \
  digits="$here/../../examples/digits/digits.onnx" small="$models/small.onnx" \
  resnet50="$models/resnet50.onnx"
