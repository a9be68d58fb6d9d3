#!/usr/bin/env bash
# board.sh [MACHINE]: makes the folder that goes onto a board, as build/vorn-VERSION-MACHINE.tar.gz:
# vorn-run, the layers and the verbs that run there, which need the C library and the board's own
# libvorn.so. MACHINE is this one's (x86_64, aarch64) unless it is named; aarch64 is cross-compiled
# elsewhere. Installs what is missing. Two runs over the same sources make the same bytes.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kProgram=board
. scripts/packages.sh

own=$(uname -m)
machine=${1:-$own}
missing=()
need() { command -v "$1" >/dev/null || missing+=("$2"); }
need g++ g++
need cmake cmake
need ninja ninja-build
[ -e /usr/include/nlohmann/json.hpp ] || missing+=(nlohmann-json3-dev)
[ -e /usr/include/xxhash.h ] || missing+=(libxxhash-dev)
strip='strip'
options=()
case $machine in
  "$own") ;;
  aarch64)
    need aarch64-linux-gnu-g++ g++-aarch64-linux-gnu
    strip=aarch64-linux-gnu-strip
    options=(--toolchain "$PWD/cmake/aarch64.cmake")
    ;;
  *) die "no compiler for '$machine' here; board.sh [$own|aarch64]" ;;
esac
[ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"

build=build/board-$machine
mkdir -p build
{
  cmake --preset board -B "$build" "${options[@]}" && cmake --build "$build" --target board
} >"$build.log" 2>&1 || {
  tail -n 40 "$build.log"
  die "the build failed; the whole log is $build.log"
}
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
name=vorn-$version-$machine
work=$(mktemp -d "$PWD/build/board.XXXXXX")
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --component board --prefix "$work/$name" >/dev/null
cp docs/board.md "$work/$name/README.md"
find "$work/$name" -maxdepth 1 -type f -perm -u+x -exec "$strip" {} +
find "$work/$name" -maxdepth 1 -name '*.so' -exec "$strip" --strip-unneeded {} +
chmod -R go=u,go-w "$work/$name"
tar -C "$work" --sort=name --owner=0 --group=0 --numeric-owner \
  --mtime="@${SOURCE_DATE_EPOCH:-0}" -cf - "$name" | gzip -9n >"$work/$name.tar.gz"
mv "$work/$name.tar.gz" build/
say "build/$name.tar.gz, $(($(stat -c %s "build/$name.tar.gz") / 1024)) KiB"
