#!/usr/bin/env bash
# fuzz.sh [SECONDS] [NAME...]: builds the fuzzers of tests/fuzz and runs each for that long (60 s),
# one after the other; all of them unless some are named. Installs clang if it is missing.
#
# New inputs gather in build/fuzz/corpus/NAME, where the next run starts from. An input that fails
# goes to tests/fuzz/findings/NAME and is replayed by the tests from then on. The exit status is 1
# if there was one.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kAll=(command_line list_file rpn_text input_file dump whole_run model_image
  configuration kit_texts launch_texts judge_files prepare_files manifests trace_file pictures
  run_folder history_files)
readonly kPackages=(clang libclang-rt-14-dev)
readonly kCorpus=build/fuzz/corpus kLogs=build/fuzz/logs
readonly kProgram=fuzz
readonly kNeeds='clang++ with its libFuzzer'
. scripts/packages.sh

has_clang_with_fuzzer() {
  command -v clang++ >/dev/null &&
    [ -e "$(clang++ -print-file-name="libclang_rt.fuzzer-$(uname -m).a")" ]
}

provide_clang() {
  has_clang_with_fuzzer && return
  install_packages "${kPackages[@]}"
  has_clang_with_fuzzer || die "clang++ is here, but not its libFuzzer."
}

# Bytes of the longest input. A text of settings may be long, and nested deep.
longest_input() {
  case "$1" in
    configuration) echo 300000 ;;
    trace_file) echo 32768 ;; # its header and names alone take 8192
    *) echo 8192 ;;
  esac
}

count_files() { find "$1" -type f | wc -l; }

# The last number that stands behind a word in a log.
last_of() { grep -oE "$1 *[0-9]+" "$2" | tail -n 1 | grep -oE '[0-9]+$' || echo 0; }

# One line about a run; 1 if it left a finding or did not come to its end.
run_fuzzer() {
  local name=$1 seconds=$2
  local own=$kCorpus/$name findings=tests/fuzz/findings/$name log=$kLogs/$name.log status=0
  mkdir -p "$own" "$findings"
  local before after dictionary=()
  before=$(count_files "$findings")
  [ -e "tests/fuzz/dictionaries/$name.dict" ] &&
    dictionary=("-dict=tests/fuzz/dictionaries/$name.dict")
  "build/fuzz/tests/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=20 \
    -max_len="$(longest_input "$name")" -rss_limit_mb=1024 \
    -print_final_stats=1 -artifact_prefix="$findings/" "${dictionary[@]}" \
    "$own" "tests/fuzz/corpus/$name" "$findings" >"$log" 2>&1 || status=$?
  after=$(count_files "$findings")
  printf 'fuzz: %-13s %9s executions, %6s a second, coverage %5s, %d new findings%s\n' "$name" \
    "$(last_of 'stat::number_of_executed_units:' "$log")" \
    "$(last_of 'stat::average_exec_per_sec:' "$log")" "$(last_of ' cov:' "$log")" \
    $((after - before)) "$([ "$status" = 0 ] || echo ", status $status: see $log")"
  rmdir -p --ignore-fail-on-non-empty "$findings"
  return $((status != 0))
}

seconds=${1:-60}
shift || true
names=("$@")
[ "$#" -gt 0 ] || names=("${kAll[@]}")
# Before anything is built. libFuzzer takes what is no number for no limit, and would never end.
case "$seconds" in
  0* | *[!0-9]*) die "the first word is '$seconds'; give the seconds for each fuzzer, from 1 on." ;;
esac
for name in "${names[@]}"; do
  [[ " ${kAll[*]} " == *" $name "* ]] || die "there is no fuzzer '$name'; ${kAll[*]} are there."
done

provide_clang
./scripts/build.sh fuzz
mkdir -p "$kLogs"
failed=0
for name in "${names[@]}"; do
  run_fuzzer "$name" "$seconds" || failed=1
done
exit "$failed"
