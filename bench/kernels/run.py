#!/usr/bin/env python3
"""Runs the kernels' benchmarks and writes the results of their rows.

    run.py BUILD_FOLDER OUT.json [--quick]

The two sides of a case are benchmarks named ROW|CASE|ours and ROW|CASE|floor. Their repetitions are
shuffled among those of all others, and the medians of their processor times are compared.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
from collections import defaultdict
from pathlib import Path
from statistics import median

# A stream that flushes every line takes seconds a time, so this row has few repetitions.
SLOW = r"^text-stream\|"
NANOSECONDS = {"ms": 1e6, "us": 1e3, "ns": 1}


def measure(build, names, repetitions, seconds):
    """Google Benchmark's results of the benchmarks whose names fit (or, after a -, do not fit)."""
    program = build / "bench/kernels/kernels_bench"
    if not program.exists():
        sys.exit(f"bench: {build} is not built; scripts/build.sh bench does it.")
    environment = {**os.environ, "LD_LIBRARY_PATH": str(build / "bench/runs/idle")}
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        command = [program, f"--benchmark_filter={names}",
                   f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={seconds}",
                   "--benchmark_enable_random_interleaving=true",
                   f"--benchmark_out={out.name}", "--benchmark_out_format=json"]
        done = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            sys.exit(f"bench: the kernels ended with status {done.returncode}. {done.stderr}")
        return json.loads(Path(out.name).read_text())["benchmarks"]


def collect(benchmarks):
    """(row, case) to side to the nanoseconds of each repetition."""
    times = defaultdict(lambda: defaultdict(list))
    for one in benchmarks:
        if one.get("error_occurred"):
            sys.exit(f"bench: {one['name']}: {one['error_message']}.")
        if one["run_type"] == "iteration":
            row, case, side = one["run_name"].split("|")
            side = side.split("/")[0]  # an argument follows
            times[row, case][side].append(one["cpu_time"] * NANOSECONDS[one["time_unit"]])
    return times


def result(row, case, sides):
    ours, floor = median(sides["ours"]), median(sides["floor"])
    unit = next((unit for unit, size in NANOSECONDS.items() if floor >= size), "ns")
    return {"row": row, "case": case, "ratio": ours / floor, "floor": floor / NANOSECONDS[unit],
            "ours": ours / NANOSECONDS[unit], "unit": unit, "runs": len(sides["ours"])}


def main():
    parser = argparse.ArgumentParser(description="Measures the kernels.")
    parser.add_argument("build", type=lambda text: Path(text).resolve())
    parser.add_argument("out", type=Path)
    parser.add_argument("--quick", action="store_true", help="few repetitions, to try it")
    options = parser.parse_args()
    print("bench: kernels", flush=True)
    benchmarks = measure(options.build, f"-{SLOW}", *((3, 0.02) if options.quick else (15, 0.05)))
    benchmarks += measure(options.build, SLOW, 1 if options.quick else 3, 0.01)
    cases = sorted(collect(benchmarks).items())
    results = [result(row, case, sides) for (row, case), sides in cases]
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
