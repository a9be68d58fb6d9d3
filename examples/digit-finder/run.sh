#!/usr/bin/env bash
# run.sh [BUILD_DIR]: finds digits with several thresholds, checks what was found, and draws it.
# Takes python3-onnx and python3-matplotlib the first time; BUILD_DIR is build/release.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:-$here/../../build/release}")
work=$build/digit-finder
readonly kProgram=digit-finder
. "$here/../../scripts/packages.sh"
export PYTHONPATH=$here/../reference PYTHONDONTWRITEBYTECODE=1
runs=(eager even strict by_class_even by_class_sure_threes)

/usr/bin/python3 -c 'import onnx, matplotlib' 2>/dev/null ||
  install_packages python3-onnx python3-matplotlib
cmake --build "$build" --target vorn-run model-reference

model_of() {
  case "$1" in
    by_class_*) echo "$here/finder_by_class.onnx" ;;
    *) echo "$here/finder.onnx" ;;
  esac
}

rm -rf "$work"
for run in "${runs[@]}"; do
  mkdir -p "$work/$run"
  VORN_LOG=1 "$build/vorn-run" -m "$(model_of "$run")" -i "$here/list.txt" -j "$here/host.json" \
    -r "$here/thresholds/$run.txt" -o "$work/$run" -p 1 >"$work/$run.log"

  # ONNX Runtime alone takes the thresholds as bytes.
  bare=$work/bare/$run
  mkdir -p "$bare"
  /usr/bin/python3 -c 'import sys, numpy
values = numpy.array(open(sys.argv[1]).read().split(), numpy.float32)
values.tofile(sys.argv[2])' "$here/thresholds/$run.txt" "$bare/thresholds.bin"
  scene=0
  while read -r name; do
    mkdir "$bare/$scene"
    LD_LIBRARY_PATH=$build "$build/examples/reference/model-reference" "$(model_of "$run")" \
      "$bare/$scene" "$here/$name" "$bare/thresholds.bin" >"$bare/$scene/shapes.txt"
    scene=$((scene + 1))
  done <"$here/list.txt"
done
/usr/bin/python3 "$here/check.py" "$work"
/usr/bin/python3 "$here/draw.py" "$work" "$work/found.png"
