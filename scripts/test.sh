#!/usr/bin/env bash
# test.sh [PRESET]: sets up, builds and runs all tests. "asan" runs them under AddressSanitizer and
# UndefinedBehaviorSanitizer, "tsan" those of the host runtime under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
./scripts/build.sh "$preset"
ctest --preset "$preset"
