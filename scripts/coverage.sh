#!/usr/bin/env bash
# coverage.sh: builds with counters, runs all tests, prints for each room which of its lines and branches
# ran, and leaves the same as pages in build/coverage/report/. Installs gcovr where it is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/coverage
report=$build/report
readonly kProgram=coverage
readonly kRooms=(src runtime/host shared layers kit)
. scripts/packages.sh

# A branch that only an exception takes, or that the compiler knows not to be taken, is no choice of
# this code's.
count() {
  gcovr --root . --object-directory "$build" "${kRooms[@]/#/--filter=}" --exclude-throw-branches \
    --exclude-unreachable-branches -j 2 --json "$report/coverage.json" "$build"
}

show() { gcovr --root . --add-tracefile "$report/coverage.json" "$@"; }

command -v gcovr >/dev/null || install_packages gcovr
./scripts/build.sh coverage
find "$build" -name '*.gcda' -delete # counters of an earlier run
mkdir -p "$report"
status=0
ctest --preset coverage >"$report/tests.log" 2>&1 || status=$?
sed -n '/tests passed/,$p' "$report/tests.log"

count
show --html-details "$report/index.html"
for room in "${kRooms[@]}"; do
  printf '\nLines of %s\n' "$room"
  show --filter "$room/" --txt
  printf '\nBranches of %s, those that only an exception takes left out\n' "$room"
  show --filter "$room/" --txt --branches
done
printf '\nThe pages: %s/index.html\n' "$report"
exit "$status"
