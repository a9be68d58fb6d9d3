#!/usr/bin/env bash
# bench.sh [--quick] [PART...]: builds with the preset "bench", measures, prints one table, and leaves
# results.json and pictures in build/bench/report. The parts are kernels, runs and execute, all three
# unless some are named, and scale, layers, edits, prepare, timing, fleet and history. --quick measures too
# little to be believed. See bench/README.md.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly kBuild=build/bench kReport=build/bench/report
readonly kProgram=bench
. scripts/packages.sh
export PYTHONDONTWRITEBYTECODE=1

provide_tools() {
  local missing=()
  [ -e /usr/include/benchmark/benchmark.h ] || missing+=(libbenchmark-dev)
  [ -x /usr/bin/python3 ] || missing+=(python3)
  [ -x /usr/bin/time ] || missing+=(time)
  /usr/bin/python3 -c 'import matplotlib' 2>/dev/null || missing+=(python3-matplotlib)
  [ "${#missing[@]}" = 0 ] || install_packages "${missing[@]}"
}

measure() {
  local part=$1 out=$2
  case "$part" in
    kernels) /usr/bin/python3 bench/kernels/run.py "$kBuild" "$out" "${quick[@]}" ;;
    runs) PYTHONPATH=bench /usr/bin/python3 -m runs "$kBuild" "$out" "${quick[@]}" ;;
    execute) bench/execute/run.sh "$kBuild" "$out" "$seconds" ;;
    edits) bench/execute/edits.sh "$kBuild" "$out" "$rounds" ;;
    scale) PYTHONPATH=bench /usr/bin/python3 -m scale "$kBuild" "$out" "${quick[@]}" ;;
    layers) PYTHONPATH=bench /usr/bin/python3 -m layers "$kBuild" "$out" "${quick[@]}" ;;
    prepare) PYTHONPATH=bench /usr/bin/python3 -m prepare "$kBuild" "$out" "${quick[@]}" ;;
    fleet) PYTHONPATH=bench /usr/bin/python3 -m fleet "$kBuild" "$out" "${quick[@]}" ;;
    history) bench/history/run.sh "$kBuild" "$((trials / 2))" 5 "${out%.json}.md" ;;
    timing) "$kBuild/bench/timing/timing_bench" "$trials" | tee "${out%.json}.md" ;;
  esac || die "measuring '$part' failed."
}

quick=() seconds=20 rounds=30 trials=2000 parts=()
for word in "$@"; do
  case "$word" in
    --quick) quick=(--quick) seconds=2 rounds=2 trials=100 ;;
    kernels | runs | execute | scale | layers | edits | prepare | timing | fleet | history) parts+=("$word") ;;
    *) die "there is no '$word'; bench.sh [--quick] [kernels] [runs] [execute] [scale] [layers] [edits] [prepare] [timing] [fleet] [history]" ;;
  esac
done
[ "${#parts[@]}" -gt 0 ] || parts=(kernels runs execute)

provide_tools
./scripts/build.sh bench
mkdir -p "$kReport"
tables=()
for part in "${parts[@]}"; do
  rm -f "$kReport/$part.json"
  measure "$part" "$kReport/$part.json"
  [[ "$part" == @(scale|timing|fleet|history) ]] || tables+=("$kReport/$part.json")
done
if [ "${#tables[@]}" -gt 0 ]; then
  printf '\n'
  /usr/bin/python3 bench/table.py "$kReport/results.json" "${tables[@]}"
  printf '\n'
fi
/usr/bin/python3 bench/draw.py "$kReport"
