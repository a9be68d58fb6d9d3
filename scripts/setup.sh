#!/usr/bin/env bash
# setup.sh [MACHINE]: installs and fetches what the build, the demo and the tests need, on Debian 12 or
# later; for another machine (aarch64, x86_64), the ONNX Runtime to cross-compile with, too. Says what
# it does; does nothing where everything is there, and needs no network then.
#
# ONNX Runtime comes from the system's package where there is one. Elsewhere the library is taken
# out of an npm package and the headers out of Debian 13's package, into .deps/, which git ignores.
# Both archives are unpacked only: nothing of them is installed and none of their scripts is run.
# The npm package brings no licence texts; they stand in notices/ and are installed with the library.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kProgram=setup
readonly kNeeds='g++ (C++20), cmake >= 3.25, ninja, GoogleTest, nlohmann-json, xxHash, libjpeg-turbo, libpng, libwebp, libtiff, libzip, SQLite, ONNX Runtime with headers, strace, protoc'
. scripts/debian13.sh

# The library is the last release line that neither writes to the home folder nor calls out; look
# at that again, and at notices/, before taking a newer one. An older header works with a newer one.
readonly kLibraryPackage=onnxruntime-node
readonly kLibraryVersion=1.27.0
readonly kLibrarySha256=c3779c01c59832f8c03e2c392ac3af10bf08579f1822e8b1c63cc451edb302a2
readonly kHeaderPackage=libonnxruntime-dev
readonly kHeaderVersion=1.21.0+dfsg-1
readonly kHeaderSha256=14f7d959d5deacbcf1504830d4189f91fc67382b399ed9ae9d3aa9c4050ced08
own=$(uname -m)
machine=${1:-$own}
dir=.deps/onnxruntime
[ "$machine" = "$own" ] || dir=$dir-$machine
readonly kStamp="$kLibraryPackage $kLibraryVersion $kLibrarySha256, $kHeaderPackage $kHeaderVersion"

# probe_command NAME PACKAGE / probe_file PATH PACKAGE: notes the package if the thing is missing.
missing=()
probe_command() { command -v "$1" >/dev/null || missing+=("$2"); }
probe_file() { [ -e "$1" ] || missing+=("$2"); }

install_build_tools() {
  probe_command g++ g++
  probe_command cmake cmake
  probe_command ninja ninja-build
  probe_command strace strace
  probe_command protoc protobuf-compiler
  probe_command ssh openssh-client
  PATH=$PATH:/usr/sbin:/sbin probe_command sshd openssh-server
  probe_command parallel parallel
  probe_file /usr/include/gtest/gtest.h libgtest-dev
  probe_file /usr/include/gmock/gmock.h libgmock-dev
  probe_file /usr/include/nlohmann/json.hpp nlohmann-json3-dev
  probe_file /usr/include/xxhash.h libxxhash-dev
  probe_file /usr/include/zip.h libzip-dev
  probe_file /usr/include/sqlite3.h libsqlite3-dev
  probe_file /usr/include/jpeglib.h libjpeg62-turbo-dev
  probe_file /usr/include/png.h libpng-dev
  probe_file /usr/include/webp/demux.h libwebp-dev
  [ -n "$(find /usr/include -maxdepth 2 -name tiffio.h)" ] || missing+=(libtiff-dev)
  [ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"
}

fetch_headers() {
  local work=$1
  say "fetching the headers: $kHeaderPackage $kHeaderVersion (Debian 13), to be unpacked, not installed"
  unpack_from_debian13 "$work" "$kHeaderPackage" "$kHeaderVersion" "$kHeaderSha256"
  mv "$work/$kHeaderPackage/usr/include/onnxruntime" "$work/new/include"
}

fetch_library() {
  local work=$1 folder
  case "$machine" in
    x86_64) folder=x64 ;;
    aarch64) folder=arm64 ;;
    *) die "no ONNX Runtime for $machine here; x86_64 and aarch64 are served." ;;
  esac
  say "fetching the library: npm package $kLibraryPackage $kLibraryVersion (100 MB, once)"
  fetch_from_npm "$work" "$kLibraryPackage" "$kLibraryVersion" "$kLibrarySha256"
  mkdir -p "$work/new/lib"
  tar -xzf "$work/package.tgz" -C "$work/new/lib" --strip-components=5 \
    "package/bin/napi-v6/linux/$folder/libonnxruntime.so.1"
}

has_onnxruntime() {
  [ "$(cat "$dir/stamp" 2>/dev/null)" = "$kStamp" ] ||
    { [ "$machine" = "$own" ] && [ -e /usr/include/onnxruntime/onnxruntime_cxx_api.h ]; }
}

provide_onnxruntime() {
  has_onnxruntime && return
  update_apt_lists
  if [ "$machine" = "$own" ] && apt-cache show libonnxruntime-dev >/dev/null 2>&1; then
    install_packages libonnxruntime-dev
    return
  fi
  update_debian_keys
  work=$(mktemp -d "$PWD/.deps/fetch.XXXXXX") # not local: the trap runs when this has returned
  trap 'rm -rf "$work"' EXIT
  mkdir -p "$work/new"
  fetch_headers "$work"
  fetch_library "$work"
  printf '%s\n' "$kStamp" >"$work/new/stamp"
  rm -rf "$dir"
  mv "$work/new" "$dir"
  say "ONNX Runtime $kLibraryVersion is in $dir"
}

mkdir -p .deps
exec 9>.deps/lock
flock 9 # two runs at once: the second waits and finds everything there
install_build_tools
provide_onnxruntime
