#!/usr/bin/env bash
# Runs a trained network over real pictures of handwritten digits that it has never seen, shows what
# it read, and judges a device with faults by it. Sets up, builds and runs; the second time it only runs.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/build.sh release vorn-run libvorn digits-report vorn-command vorn-qualify vorn-report
unset LD_LIBRARY_PATH LD_PRELOAD # what is shown is the runtime that was built here

out=build/demo
rm -rf "$out"
mkdir -p "$out"
command=(build/release/vorn-run -m examples/digits/digits.onnx -i examples/digits/list.txt
  -j examples/digits/host.json -o "$out" -p 1)
printf '\n$ %s\n' "${command[*]}"
if ! "${command[@]}" >"$out/vorn-run.log"; then
  tail -n 20 "$out/vorn-run.log"
  printf 'demo: the run failed; all its lines are in %s\n' "$out/vorn-run.log" >&2
  exit 1
fi
sed -n '/execute sample success/,$p' "$out/vorn-run.log"

printf '\n$ build/release/digits-report examples/digits %s\n' "$out"
build/release/digits-report examples/digits "$out"
# The device is a stand-in: the host runtime rounding to 8 bits, behind a script that spoils three
# outputs. That they are found is what is shown; any other end is a fault.
command=(build/release/vorn qualify examples/digits/qualify.json --quiet)
printf '\n$ %s\n' "${command[*]}"
status=0
"${command[@]}" || status=$?
if [ "$status" != 6 ]; then
  printf 'demo: ended with status %s, where outputs that differ (6) were to be found\n' "$status" >&2
  exit 1
fi

command=(build/release/vorn report build/demo.qualified -o build/demo.html --quiet)
printf '\n$ %s\n' "${command[*]}"
"${command[@]}"

cat <<EOT

The verdict, as a page    build/demo.html
Every line of the run     $out/vorn-run.log
Ten values a picture      $(echo "$out"/0/*.float)
The same as 32-bit floats $(echo "$out"/0/*.bin)
Further pictures          $out/1 to $out/199
The verdict, step by step docs/qualify.md
The network, the data     examples/digits/README.md
EOT
