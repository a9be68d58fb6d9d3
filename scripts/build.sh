#!/usr/bin/env bash
# build.sh [PRESET] [TARGET...]: configures and builds; says little unless something fails.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
shift || true

./scripts/setup.sh
log=build/$preset.log
mkdir -p build
printf 'build: %s, into build/%s (log: %s)\n' "$preset" "$preset" "$log"
if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${@:+--target "$@"}; } \
  >"$log" 2>&1; then
  tail -n 60 "$log"
  printf 'build: failed; the whole log is %s\n' "$log" >&2
  exit 1
fi
