"""Measures whole runs and writes the part of their rows.

    PYTHONPATH=bench python3 -m runs BUILD_FOLDER OUT.json [--quick] [ROW...]
"""
import argparse
import json
from pathlib import Path

from measure.vorn_run import Build
from runs.iteration import iteration
from runs.memory import memory
from runs.start import start
from runs.whole import run_inputs, run_outputs

ROWS = {
    "start": start,
    "run-inputs": run_inputs,
    "run-outputs": run_outputs,
    "iteration": iteration,
    "memory": memory,
}


def parse():
    parser = argparse.ArgumentParser(prog="runs", description="Measures whole runs.")
    parser.add_argument("build", type=lambda text: Build(Path(text).resolve()))
    parser.add_argument("out", type=Path)
    parser.add_argument("--quick", action="store_true", help="few rounds, to try it")
    parser.add_argument("rows", nargs="*", metavar="ROW", help=", ".join(ROWS))
    options = parser.parse_intermixed_args()
    unknown = set(options.rows) - set(ROWS)
    if unknown:
        parser.error(f"there is no row {', '.join(sorted(unknown))}; {', '.join(ROWS)} are there")
    return options


def main():
    options = parse()
    options.build.check()
    results = []
    for row in options.rows or ROWS:
        print(f"bench: {row}", flush=True)
        results += ROWS[row](options.build, options.quick)
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
