#!/usr/bin/env bash
# valgrind.sh [GTEST_FILTER]: runs the end-to-end tests with vorn-run under valgrind. An invalid access,
# a use of a value that was never set or memory that nothing reaches any more turns a run's exit status
# into 86, which no test expects. Takes some 25 minutes. Left out is what leaves valgrind itself no place
# for its log, or no descriptors.
set -euo pipefail
cd "$(dirname "$0")/.."
filter=${1:-*-OutputFolder.ThatIsNotNamedMeansTheRoot:OpenFiles.AreFewHoweverLongTheList}
readonly kProgram=valgrind
. scripts/packages.sh

command -v valgrind >/dev/null || install_packages valgrind
./scripts/build.sh dev vorn-run e2e_test

real=$PWD/build/dev/vorn-run
wrapper=$PWD/build/dev/vorn-run-under-valgrind
cat >"$wrapper" <<EOT
#!/bin/sh
exec valgrind -q --error-exitcode=86 --leak-check=full --errors-for-leak-kinds=definite \\
  --log-file="$PWD/build/dev/valgrind.%p.log" "$real" "\$@"
EOT
chmod +x "$wrapper"
rm -f build/dev/valgrind.*.log
status=0
VORN_RUN=$wrapper build/dev/tests/e2e/e2e_test --gtest_filter="$filter" --gtest_brief=1 || status=$?
# A run that a signal ends on purpose leaves a log of that signal; anything else in a log is a finding.
find build/dev -maxdepth 1 -name 'valgrind.*.log' -size 0 -delete
logs=$(grep -lE 'Invalid|uninitialised|definitely lost|overlap' build/dev/valgrind.*.log 2>/dev/null || true)
if [ -n "$logs" ]; then
  printf 'valgrind: findings in\n%s\n' "$logs"
  exit 1
fi
exit "$status"
