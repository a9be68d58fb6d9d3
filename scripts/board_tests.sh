#!/usr/bin/env bash
# board_tests.sh: makes the folder for a board, for this machine and for aarch64, and uses each where
# nothing else is, with the scripted runtime beside it; the second one under an emulator.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kProgram=board_tests
. scripts/packages.sh

command -v qemu-aarch64 >/dev/null || install_packages qemu-user
scripted=()
for file in tests/scripted/*.cpp; do
  case $file in *_test.cpp) ;; *) scripted+=("$file") ;; esac
done

# check MACHINE COMPILER [EMULATOR...]
check() {
  local machine=$1 compiler=$2
  ./scripts/board.sh "$machine"
  local work=build/board-$machine/tests
  mkdir -p "$work"
  "$compiler" -std=c++20 -O1 -shared -fPIC -fvisibility=hidden -static-libstdc++ -static-libgcc \
    -Wl,--exclude-libs,ALL -Iinclude -Itests -I. "${scripted[@]}" -o "$work/libvorn.so"
  tests/install/check_board.sh "build/vorn-"*"-$machine.tar.gz" "$work/libvorn.so" "$work" "${@:3}"
  say "$machine: works where nothing else is"
}

own=$(uname -m)
check "$own" g++
[ "$own" = aarch64 ] || check aarch64 aarch64-linux-gnu-g++ qemu-aarch64 -L /usr/aarch64-linux-gnu
