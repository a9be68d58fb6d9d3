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

# Configures, unless nothing was changed since it last did, by hand or in the presets: what else it
# depends on the build looks at by itself.
configure() {
  local stamp=build/$preset/configured cache=build/$preset/CMakeCache.txt
  [ "$stamp" -nt CMakePresets.json ] && [ -e "$cache" ] && [ ! "$cache" -nt "$stamp" ] && return
  cmake --preset "$preset" && touch "$stamp"
}

if ! { configure && cmake --build --preset "$preset" ${@:+--target "$@"}; } >"$log" 2>&1; then
  tail -n 60 "$log"
  printf 'build: failed; the whole log is %s\n' "$log" >&2
  exit 1
fi
