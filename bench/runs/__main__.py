"""Measures whole runs and writes the results of their rows.

    PYTHONPATH=bench python3 -m runs BUILD_FOLDER OUT.json [--quick] [ROW...]
"""
import json

from measure.options import parse
from runs.iteration import iteration
from runs.judge import judge
from runs.memory import memory
from runs.start import start
from runs.whole import run_inputs, run_outputs

ROWS = {
    "start": start,
    "run-inputs": run_inputs,
    "run-outputs": run_outputs,
    "iteration": iteration,
    "memory": memory,
    "judge": judge,
}


def main():
    options = parse("runs", "Measures whole runs.", "row", ROWS)
    results = []
    for row in options.chosen:
        print(f"bench: {row}", flush=True)
        results += ROWS[row](options.build, options.quick)
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
