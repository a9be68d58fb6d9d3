#!/bin/sh
# spoilt_device.sh [OPTION...]: vorn-run as it is, and behind it three outputs spoilt on purpose, as
# devices spoil them: a value that is none, an output that is still that of the sample before, and one
# that is the same number throughout. A stand-in for a device with faults, for vorn qualify to find.
set -eu
run=$(dirname "$0")/../../${VORN_BUILD:-build/release}/vorn-run
out=
before=
for word; do
  [ "$before" != -o ] || out=$word
  before=$word
done

# Only this process is under the layer, not the tools below.
"$run" "$@"
unset LD_PRELOAD

# dump SAMPLE: its file, if this process ran so far.
dump() { for file in "$out/$1"/probabilities.0.*.bin; do [ ! -e "$file" ] || echo "$file"; done; }

for sample in 17 57 58 130; do
  [ -n "$(dump $sample)" ] || exit 0
done
printf '\000\000\300\177' | dd of="$(dump 17)" bs=4 seek=3 conv=notrunc status=none
cat "$(dump 57)" >"$(dump 58)"
for _ in 0 1 2 3 4 5 6 7 8 9; do printf '\315\314\314\075'; done >"$(dump 130)" # 0.1
