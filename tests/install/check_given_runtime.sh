#!/usr/bin/env bash
# check_given_runtime.sh CMAKE SOURCE_DIR LIBVORN FOLDER: configures with a runtime from elsewhere,
# builds the command alone and sees that it runs with that one. No later build is led to it.
set -euo pipefail
cmake=$1 source=$2 library=$3
. "$(dirname "$0")/../support/own_folder.sh"
fail() {
  echo "check_given_runtime: $*" >&2
  exit 1
}

own_folder "$4"
cd "$source"
"$cmake" --preset given -B "$work/build" -DVORN_LIBRARY="$library" >/dev/null
"$cmake" --build "$work/build" --target vorn-run >/dev/null

# By way of files: "grep -q" leaves a pipe at the first match, and whoever still writes into it fails.
# Only the name stands in the executable, so that any libvorn.so can take the library's place.
readelf -d "$work/build/vorn-run" >"$work/dynamic"
grep -q 'NEEDED.*\[libvorn.so\]' "$work/dynamic" ||
  fail "the command needs no libvorn.so by that name: $(cat "$work/dynamic")"
ldd "$work/build/vorn-run" >"$work/ldd"
grep -qF "libvorn.so => $(dirname "$library")/" "$work/ldd" ||
  fail "the command does not find the runtime it was given: $(cat "$work/ldd")"

VORN_RECORD="$work/record" "$work/build/vorn-run" -m /nonexistent -i /nonexistent -j /nonexistent \
  >"$work/out" || true
grep -q vorn_init "$work/record" || fail "the runtime it was given was not called"

# Installed, it leaves the runtime where it is, and the notices of what the host runtime holds.
"$cmake" --install "$work/build" --prefix "$work/tree" >/dev/null
find "$work/tree" -name 'libvorn.so*' -type f -o -name 'libonnx*' -type f -o -name '*onnx*' -type f >"$work/found"
[ ! -s "$work/found" ] ||
  fail "the installed tree should hold no library and no notice of one: $(cat "$work/found")"

# What one call names, the next one without a name does not remember: nobody who runs the demo wants it.
for preset in given release; do
  "$cmake" --preset "$preset" -B "$work/$preset" -DVORN_LIBRARY="$library" -DVORN_BUILD_TESTS=OFF \
    >/dev/null
  "$cmake" --preset "$preset" -B "$work/$preset" -DVORN_BUILD_TESTS=OFF >"$work/said" 2>&1 || true
  grep '^VORN_LIBRARY:' "$work/$preset/CMakeCache.txt" >"$work/cached"
  if grep -qF "$library" "$work/cached"; then
    fail "the preset $preset stays with a runtime that it was given once: $(cat "$work/cached")"
  fi
done
"$cmake" --preset given -B "$work/none" >"$work/said" 2>&1 && fail "'given' goes on without a runtime"
# CMake breaks the message where a path makes its lines long.
tr -s '[:space:]' ' ' <"$work/said" >"$work/words"
grep -q 'Give the path of a libvorn.so' "$work/words" ||
  fail "it says not what to give: $(cat "$work/said")"
