#!/usr/bin/env bash
# aarch64.sh [GTEST_FILTER]: cross-compiles for aarch64 and runs, under an emulator, the tests of the
# pieces, of the host runtime and of whole runs. Takes about half an hour, and leaves out what an
# emulator cannot do.
set -euo pipefail
cd "$(dirname "$0")/.."
# Nothing may stand on standard error, where ONNX Runtime remarks that it does not know the emulated
# processor, and the emulator that a signal came.
left_out=HostCommand.DumpsTheValuesOfEveryOutputType:DigitsRun.SaysWhatItIsExpectedToSay
left_out+=":*Golden.RunsAsItIsWritten/no_data_inputs"
# Where no thread may start the emulator ends.
left_out+=:EngineTest.RefusesMoreThreadsThanThereAre:EngineThreads.LeavesNoneWhereOneCannotBeStarted
left_out+=:Deadline.SaysThatThereIsNoThreadForIt
# Two hundred pictures take it longer than their tests wait.
left_out+=:DigitsRun.RecognisesPicturesItHasNeverSeen:DigitsRun.LeavesTheSameValuesAsTextAndAsBinary
left_out+=:DigitsRun.ReachesNoNetworkAndWritesIntoItsOutputFolderOnly
filter=${1:-*-$left_out}
readonly kProgram=aarch64
. scripts/packages.sh

readonly kBuild=$PWD/build/aarch64
readonly kEmulator=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
readonly kPrograms=(include/vorn_header_test app/app_test common/common_test model/model_test
  output/output_test sample/sample_test shared/rows/rows_test
  runtime/host/vorn_host_test runtime/host/vorn_host_recovery_test
  runtime/host/vorn_host_interface_test runtime/host/vorn_host_command_test
  e2e/e2e_test examples/digits/digits_run_test)

missing=()
command -v aarch64-linux-gnu-g++ >/dev/null || missing+=(g++-aarch64-linux-gnu)
command -v qemu-aarch64 >/dev/null || missing+=(qemu-user)
[ -e /usr/src/googletest/CMakeLists.txt ] || missing+=(googletest)
[ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"
./scripts/setup.sh
./scripts/setup.sh aarch64

# cross SOURCE BUILD [OPTION...]
cross() {
  cmake -S "$1" -B "$2" -G Ninja --toolchain "$PWD/cmake/aarch64.cmake" -DCMAKE_BUILD_TYPE=Release \
    "${@:3}"
}

build() {
  cross /usr/src/googletest "$kBuild/googletest" -DCMAKE_INSTALL_PREFIX="$kBuild/installed" &&
    cmake --build "$kBuild/googletest" --target install &&
    cross . "$kBuild" -DGTest_DIR="$kBuild/installed/lib/cmake/GTest" \
      -DONNXRUNTIME_INCLUDE_DIR="$PWD/.deps/onnxruntime-aarch64/include" \
      -DONNXRUNTIME_LIBRARY="$PWD/.deps/onnxruntime-aarch64/lib/libonnxruntime.so.1" &&
    cmake --build "$kBuild" --target vorn-run "${kPrograms[@]##*/}"
}

mkdir -p "$kBuild"
log=$kBuild/build.log
say "building, into build/aarch64 (log: build/aarch64/build.log)"
build >"$log" 2>&1 || {
  tail -n 60 "$log"
  die "the build failed; the whole log is $log"
}

# What a test starts is started by the system, which knows nothing of the emulator.
wrapper=$kBuild/vorn-run-emulated
printf '#!/bin/sh\nexec %s "%s" "$@"\n' "${kEmulator[*]}" "$kBuild/vorn-run" >"$wrapper"
chmod +x "$wrapper"

ulimit -c 0 # the emulator would leave a core here for each end that a test wants
failed=()
for program in "${kPrograms[@]}"; do
  say "$program"
  VORN_RUN=$wrapper LD_LIBRARY_PATH=$kBuild "${kEmulator[@]}" "$kBuild/tests/$program" \
    --gtest_brief=1 --gtest_filter="$filter" || failed+=("$program")
done
[ "${#failed[@]}" = 0 ] || die "failed: ${failed[*]}"
