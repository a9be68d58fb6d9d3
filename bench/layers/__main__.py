"""Measures what a layer costs, a call and a run, and writes the results of the rows.

    PYTHONPATH=bench python3 -m layers BUILD_FOLDER OUT.json [--quick] [ROW...]
"""
import json
import subprocess
import sys
from statistics import median

from measure import contest
from measure.options import parse
from measure.scratch import in_memory, scratch_folder
from measure.vorn_run import Run, Shapes, write_inputs

CALLS = 100_000
PICTURES = Shapes(input=(1, 3, 224, 224), output=(1, 1000))
CLOCK_READINGS = 2  # that the trace layer makes a call


def under_trace(build, folder):
    """The environment of a program under the trace layer, whose trace goes into the folder."""
    return {**build.environment, "LD_PRELOAD": str(build.folder / "libvorn-trace.so"),
            "VORN_TRACE_FILE": str(folder / "trace.vtrace")}


def call_cost(build, environment):
    """Nanoseconds of a call, and of a reading of the clock."""
    command = [build.folder / "bench/layers/call_cost", str(CALLS)]
    done = subprocess.run(command, env=environment, capture_output=True, text=True)
    if done.returncode != 0 or done.stderr:
        sys.exit(f"bench: call_cost ended with status {done.returncode}. {done.stderr}")
    return [float(word) for word in done.stdout.split()]


def trace_call(build, quick):
    """What a call takes longer under the layer, less its own readings of the clock. The two take
    turns, and the median of the turns' differences is taken."""
    with scratch_folder(in_memory()) as scratch:
        traced = under_trace(build, scratch)
        costs, clocks = [], []
        for _ in range(5 if quick else 51):
            direct, _ = call_cost(build, build.environment)
            layered, clock = call_cost(build, traced)
            costs.append(layered - direct - CLOCK_READINGS * clock)
            clocks.append(clock)
    print(f"bench: a reading of the clock takes {median(clocks):.1f} ns", flush=True)
    return [{"row": "trace-call", "case": "", "ratio": median(costs), "floor": None,
             "ours": median(costs), "unit": "ns", "runs": len(costs)}]


def trace_run(build, quick):
    """A run of a thousand pictures with the layer against one without."""
    with scratch_folder(in_memory()) as scratch:
        inputs = write_inputs(scratch / "inputs", 1000, PICTURES.input_bytes)
        ours = Run(build, scratch / "ours", PICTURES, inputs)
        ours.environment = under_trace(build, scratch)
        floor = Run(build, scratch / "floor", PICTURES, inputs)
        of_ours, of_floor = contest.take_turns([ours, floor], 3 if quick else 31)
    return [contest.result("trace-run", "", of_ours, of_floor, "ms", 1e3)]


ROWS = {"trace-call": trace_call, "trace-run": trace_run}


def main():
    options = parse("layers", "Measures layers.", "row", ROWS)
    results = []
    for row in options.chosen:
        print(f"bench: {row}", flush=True)
        results += ROWS[row](options.build, options.quick)
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
