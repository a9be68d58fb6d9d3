#!/usr/bin/env bash
# test.sh [PRESET]: sets up, builds and runs all tests; "asan" runs them under the sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
./scripts/build.sh "$preset"
ctest --preset "$preset"
