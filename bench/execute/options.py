#!/usr/bin/env python3
"""What the host runtime's options cost: time to load, time to execute, peak of memory.

    options.py BUILD_FOLDER [ROUNDS]

Runs vorn-run's own report (-p 1: the mean of 21 executions) with every pair of `threads` and
`graphOptimization`, and with a `memoryLimit` that nothing reaches, all of them taking turns, and
prints the medians of ROUNDS (5) rounds as a table. The models are those that run.sh makes, and the
digits.
"""
import json
import os
import re
import struct
import subprocess
import sys
import tempfile
from collections import defaultdict
from itertools import product
from pathlib import Path
from statistics import median

DIGITS = Path(__file__).resolve().parents[2] / "examples/digits/digits.onnx"
THREADS = (1, 2)
LEVELS = ("none", "basic", "extended", "all")
CONFIGS = [{"threads": threads, "graphOptimization": level}
           for threads, level in product(THREADS, LEVELS)]
CONFIGS.append({"threads": 1, "graphOptimization": "all", "memoryLimit": 4 << 30})


def model_files(build):
    """Name to (model file, bytes of one input)."""
    return {"digits": (DIGITS, 8 * 8),
            "small": (build / "models/small.onnx", 4 * 3 * 32 * 32),
            "resnet50": (build / "models/resnet50.onnx", 4 * 3 * 224 * 224)}


def run(build, folder, model, config):
    """(load ms, execute ms, peak MiB) of one run."""
    (folder / "config.json").write_text(json.dumps(config))
    command = [build / "vorn-run", "-m", model, "-i", folder / "list.txt",
               "-j", folder / "config.json", "-o", folder, "-p", "1"]
    with tempfile.TemporaryFile() as out:
        child = subprocess.Popen(command, stdout=out)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        text = out.read().decode()
    if child.returncode != 0:
        sys.exit(f"bench: {model} with {config} failed:\n{text[-500:]}")
    times = [float(re.search(rf"Model {what} Time: *([0-9.]+) ms", text)[1])
             for what in ("Load", "Execute")]
    return (*times, usage.ru_maxrss / 1024)


def main():
    build = Path(sys.argv[1]).resolve()
    rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    samples = defaultdict(list)
    with tempfile.TemporaryDirectory(prefix="vorn-bench.") as name:
        folder = Path(name)
        (folder / "list.txt").write_text("input.bin\n")
        for model, (file, size) in model_files(build).items():
            (folder / "input.bin").write_bytes(struct.pack("f", 0.5) * (size // 4))
            for _ in range(rounds):
                for number, config in enumerate(CONFIGS):
                    samples[model, number].append(run(build, folder, file, config))
    print("| model | threads | graphOptimization | memoryLimit | load, ms | execute, ms |"
          " peak, MiB |")
    print("|---|---|---|---|---|---|---|")
    for (model, number), runs in samples.items():
        config = CONFIGS[number]
        load, execute, peak = (median(figures) for figures in zip(*runs))
        print(f"| {model} | {config['threads']} | {config['graphOptimization']} "
              f"| {'yes' if 'memoryLimit' in config else ''} "
              f"| {load:.3g} | {execute:.3g} | {peak:.0f} |")


if __name__ == "__main__":
    main()
