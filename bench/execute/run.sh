#!/usr/bin/env bash
# run.sh BUILD_DIR OUT.json [SECONDS]: makes the models and measures the rows "execute", each case
# for that long (20 s). BUILD_DIR is built with the preset "bench".
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$1 out=$2 seconds=${3:-20}
models=$build/models
digits=$here/../../examples/digits
readonly kProgram=bench
. "$here/../../scripts/packages.sh"

/usr/bin/python3 -c 'import numpy, onnx' 2>/dev/null || install_packages python3-onnx python3-numpy
/usr/bin/python3 "$here/make_models.py" "$models"

"$build/bench/execute/execute-bench" "$digits/host.json" "$out" "$seconds" \
  digits="$digits/digits.onnx" resnet50="$models/resnet50.onnx" \
  small="$models/small.onnx" small-padded="$models/small-padded.onnx"
