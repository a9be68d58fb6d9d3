#!/usr/bin/env bash
# Installs and fetches what the build, the demo and the tests need, on Debian 12 or later.
# Says what it does; does nothing where everything is there, and needs no network then.
#
# ONNX Runtime comes from the system's package where there is one. Elsewhere the library is taken
# out of an npm package and the headers out of Debian 13's package, into .deps/, which git ignores.
# Both archives are unpacked only: nothing of them is installed and none of their scripts is run.
set -euo pipefail
cd "$(dirname "$0")/.."

# The library is the last release line that neither writes to the home folder nor calls out; look
# at that again before taking a newer one. An older header works with a newer library.
readonly kLibraryPackage=onnxruntime-node
readonly kLibraryVersion=1.27.0
readonly kLibrarySha256=c3779c01c59832f8c03e2c392ac3af10bf08579f1822e8b1c63cc451edb302a2
readonly kHeaderPackage=libonnxruntime-dev
readonly kHeaderVersion=1.21.0+dfsg-1
readonly kHeaderSha256=14f7d959d5deacbcf1504830d4189f91fc67382b399ed9ae9d3aa9c4050ced08
readonly kHeaderSuite=trixie
readonly kOnnxRuntimeDir=.deps/onnxruntime
readonly kStamp="$kLibraryPackage $kLibraryVersion $kLibrarySha256, $kHeaderPackage $kHeaderVersion"

say() { printf 'setup: %s\n' "$*"; }
die() {
  printf 'setup: %s\n' "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "needs root for: $*. Run it as root, or install sudo."
  fi
}

apt_lists_are_new=no
update_apt_lists() {
  [ "$apt_lists_are_new" = yes ] && return
  command -v apt-get >/dev/null ||
    die "no apt-get here. Install by hand: g++ (C++20), cmake >= 3.25, ninja, GoogleTest, nlohmann-json, ONNX Runtime with headers, strace."
  say "updating the package lists"
  as_root apt-get update -qq
  apt_lists_are_new=yes
}

install_packages() {
  update_apt_lists
  say "installing $*"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" \
    >/dev/null
}

# probe_command NAME PACKAGE / probe_file PATH PACKAGE: notes the package if the thing is missing.
missing=()
probe_command() { command -v "$1" >/dev/null || missing+=("$2"); }
probe_file() { [ -e "$1" ] || missing+=("$2"); }

install_build_tools() {
  probe_command g++ g++
  probe_command cmake cmake
  probe_command ninja ninja-build
  probe_command strace strace
  probe_file /usr/include/gtest/gtest.h libgtest-dev
  probe_file /usr/include/gmock/gmock.h libgmock-dev
  probe_file /usr/include/nlohmann/json.hpp nlohmann-json3-dev
  [ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"
}

check_sha256() {
  printf '%s  %s\n' "$2" "$1" | sha256sum --check --status ||
    die "$(basename "$1") is not the file that was pinned (SHA-256 differs). Nothing was kept."
}

# Writes a source list for Debian 13 with the very mirrors that this machine uses itself, security
# archives left out. Understands both formats of apt's lists.
derive_source_list() {
  local out=$1 found=no file
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -e "$file" ] || continue
    awk -v suite="$kHeaderSuite" 'BEGIN { RS = ""; FS = "\n" }
      /URIs:[^\n]*\/debian\/?( |\n|$)/ && !/-security/ {
        for (i = 1; i <= NF; ++i) {
          if ($i ~ /^#/) continue
          if ($i ~ /^Suites:/) $i = "Suites: " suite
          if ($i ~ /^Components:/) $i = "Components: main"
          print $i
        }
        print ""
      }' "$file" >>"$out.sources"
  done
  [ -s "$out.sources" ] && found=$out.sources
  if [ "$found" = no ]; then
    cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
      sed -nE '/-security/d; s#^deb( +\[[^]]*\])? +([^ ]+/debian/?) +[^ ]+ .*#deb\1 \2 '"$kHeaderSuite"' main#p' |
      sort -u >"$out.list"
    [ -s "$out.list" ] && found=$out.list
  fi
  [ "$found" != no ] || die "found no Debian mirror in /etc/apt to fetch $kHeaderPackage from."
  printf '%s\n' "$found"
}

fetch_headers() {
  local work=$1 list
  list=$(derive_source_list "$work/debian13")
  say "fetching the headers: $kHeaderPackage $kHeaderVersion (Debian 13), to be unpacked, not installed"
  mkdir -p "$work/apt/lists/partial" "$work/apt/archives/partial"
  local options=(-qq -o Dir::Etc::sourcelist="$list" -o Dir::Etc::sourceparts=/dev/null
    -o Dir::State::lists="$work/apt/lists" -o Dir::Cache="$work/apt"
    -o Dir::Cache::archives="$work/apt/archives" -o APT::Sandbox::User=root
    -o APT::Architecture=amd64 -o APT::Architectures=amd64)
  apt-get "${options[@]}" update ||
    die "cannot read the package lists of Debian 13 from this machine's mirrors; is the network there?"
  (cd "$work" && apt-get "${options[@]}" download "$kHeaderPackage=$kHeaderVersion") ||
    die "cannot download $kHeaderPackage $kHeaderVersion."
  local deb
  deb=$(echo "$work"/*.deb)
  check_sha256 "$deb" "$kHeaderSha256"
  dpkg-deb -x "$deb" "$work/headers"
  mv "$work/headers/usr/include/onnxruntime" "$work/new/include"
}

fetch_library() {
  local work=$1 machine
  case "$(uname -m)" in
    x86_64) machine=x64 ;;
    aarch64) machine=arm64 ;;
    *) die "no ONNX Runtime for $(uname -m) here; x86_64 and aarch64 are served." ;;
  esac
  command -v npm >/dev/null || install_packages npm
  say "fetching the library: npm package $kLibraryPackage $kLibraryVersion (100 MB, once)"
  npm pack --loglevel=error --ignore-scripts --pack-destination "$work" \
    "$kLibraryPackage@$kLibraryVersion" >/dev/null ||
    die "cannot download $kLibraryPackage $kLibraryVersion with npm; is the network there?"
  local archive="$work/$kLibraryPackage-$kLibraryVersion.tgz"
  check_sha256 "$archive" "$kLibrarySha256"
  mkdir -p "$work/new/lib"
  tar -xzf "$archive" -C "$work/new/lib" --strip-components=5 \
    "package/bin/napi-v6/linux/$machine/libonnxruntime.so.1"
}

has_onnxruntime() {
  [ -e /usr/include/onnxruntime/onnxruntime_cxx_api.h ] ||
    [ "$(cat "$kOnnxRuntimeDir/stamp" 2>/dev/null)" = "$kStamp" ]
}

provide_onnxruntime() {
  has_onnxruntime && return
  update_apt_lists
  if apt-cache show libonnxruntime-dev >/dev/null 2>&1; then
    install_packages libonnxruntime-dev
    return
  fi
  # The new mirrors' keys came with an update of this package.
  as_root apt-get install -y -qq --no-install-recommends debian-archive-keyring >/dev/null
  local work
  work=$(mktemp -d "$PWD/.deps/fetch.XXXXXX")
  trap "rm -rf '$work'" EXIT
  mkdir -p "$work/new"
  fetch_headers "$work"
  fetch_library "$work"
  printf '%s\n' "$kStamp" >"$work/new/stamp"
  rm -rf "$kOnnxRuntimeDir"
  mv "$work/new" "$kOnnxRuntimeDir"
  say "ONNX Runtime $kLibraryVersion is in $kOnnxRuntimeDir"
}

mkdir -p .deps
exec 9>.deps/lock
flock 9 # two runs at once: the second waits and finds everything there
install_build_tools
provide_onnxruntime
