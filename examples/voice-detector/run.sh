#!/usr/bin/env bash
# run.sh [BUILD_DIR]: fetches the voice detector, makes a recording, runs vorn-run over it, checks
# what it heard. Takes npm, espeak-ng and the network the first time; BUILD_DIR is build/release.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:-$here/../../build/release}")
work=$build/voice-detector
readonly kProgram=voice-detector
. "$here/../../scripts/packages.sh"
export PYTHONPATH=$here/../reference PYTHONDONTWRITEBYTECODE=1
readonly kPackage=@ricky0123/vad-web
readonly kVersion=0.0.31
readonly kSha256=d1a211cf1a2ed26297da52cc08de79e75d79838a274bfc6de546feb1f828c940
model=$work/package/dist/silero_vad_v5.onnx
mkdir -p "$work"

[ -f "$model" ] || unpack_from_npm "$work/package" "$kPackage" "$kVersion" "$kSha256"
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
