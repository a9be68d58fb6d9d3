#!/usr/bin/env bash
# check_given_runtime.sh CMAKE SOURCE_DIR LIBVORN WORK_DIR: configures with a runtime from elsewhere,
# builds the command alone and sees that it runs with that one.
set -euo pipefail
cmake=$1 source=$2 library=$3 work=$4
rm -rf "$work"
mkdir -p "$work"
"$cmake" -S "$source" -B "$work/build" -DVORN_LIBRARY="$library" -DVORN_BUILD_TESTS=OFF >/dev/null
"$cmake" --build "$work/build" --target vorn-run >/dev/null
# Only the name stands in the executable, so that any libvorn.so can take the library's place.
readelf -d "$work/build/vorn-run" | grep -q 'NEEDED.*\[libvorn.so\]'
ldd "$work/build/vorn-run" | grep -qF "libvorn.so => $(dirname "$library")/"
VORN_RECORD="$work/record" "$work/build/vorn-run" -m /nonexistent -i /nonexistent -j /nonexistent \
  >"$work/out" || true
grep -q vorn_init "$work/record"
