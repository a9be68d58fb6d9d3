#!/usr/bin/env bash
# test.sh [PRESET]: sets up, builds and runs all tests. "asan" runs them under AddressSanitizer and
# UndefinedBehaviorSanitizer, "tsan" those of the host runtime under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
targets=()
[ "$preset" != release ] || targets=(all) # its default are the products alone
./scripts/build.sh "$preset" "${targets[@]}"
# What a caller has set for runs of their own would change what is tested: which runtime, its log.
unset DESTDIR LD_LIBRARY_PATH LD_PRELOAD POSIXLY_CORRECT VORN_LOG
ctest --preset "$preset"
