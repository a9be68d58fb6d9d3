"""vorn-run on the idle runtime: what it takes to run it, and the files that it is run with."""
import os
import subprocess
import sys
from dataclasses import dataclass
from math import prod
from pathlib import Path

from measure import process
from measure.scratch import empty

FLOAT_BYTES = 4
TEXT_BYTES = 21  # at most, of a line of the values that the idle runtime makes


@dataclass(frozen=True)
class Build:
    """What the preset "bench" has built."""
    folder: Path

    @property
    def command(self):
        return self.folder / "vorn-run"

    @property
    def idle(self):
        return self.folder / "bench/runs/idle"

    @property
    def environment(self):
        return {"LD_LIBRARY_PATH": str(self.idle)}

    def floor(self, name):
        return self.folder / "bench/runs" / name

    def check(self):
        """Ends the benchmark unless vorn-run takes the idle runtime."""
        if not self.command.exists() or not self.idle.exists():
            sys.exit(f"bench: {self.folder} is not built; scripts/build.sh bench does it.")
        listed = subprocess.run(["ldd", self.command], env={**self.environment, "PATH": "/usr/bin"},
                                capture_output=True, text=True, check=True).stdout
        if str(self.idle) not in listed:
            sys.exit(f"bench: vorn-run takes another runtime than {self.idle}/libvorn.so.")


@dataclass(frozen=True)
class Memory:
    """Peaks of a run, in bytes."""
    blocks: int    # that the runtime had handed out
    resident: int  # of the whole process


@dataclass(frozen=True)
class Shapes:
    """The dense input and output of a model, 32-bit floats."""
    input: tuple
    output: tuple

    @property
    def input_bytes(self):
        return FLOAT_BYTES * prod(self.input)

    @property
    def values(self):
        return prod(self.output)

    @property
    def dump_bytes(self):
        """At most, of one inference."""
        return self.values * (FLOAT_BYTES + TEXT_BYTES) + 4 * 4096

    def model(self):
        """The image that the idle runtime reads."""
        lines = []
        for kind, dims in ("input", self.input), ("output", self.output):
            stride, size = FLOAT_BYTES * dims[-1], FLOAT_BYTES * prod(dims)
            lines.append(f"{kind} {kind} 0 {stride} {size} {' '.join(map(str, dims))}\n")
        return "".join(lines)


def write_inputs(folder, count, size):
    """Files of their own, since pages that are shared would stay in the processor's cache."""
    folder.mkdir()
    content = bytes(range(256)) * (size // 256 + 1)
    paths = [folder / f"{number}.bin" for number in range(count)]
    for path in paths:
        path.write_bytes(content[:size])
    return paths


class Run:
    """One way to run vorn-run, in a folder of its own. Called, it runs once and removes the dumps
    again, outside the time."""

    def __init__(self, build, folder, shapes, inputs, options=()):
        folder.mkdir()
        self.environment = build.environment
        self.out, self.list, self.model = folder / "out", folder / "list.txt", folder / "model"
        config = folder / "config.json"
        self.model.write_text(shapes.model())
        self.list.write_text("".join(f"{os.path.relpath(path, folder)}\n" for path in inputs))
        config.write_text("{}\n")
        self.out.mkdir()
        self.command = [build.command, "-m", self.model, "-i", self.list, "-j", config,
                        "-o", self.out, *options]

    def keep(self):
        """Runs, and leaves the dumps there."""
        return process.run(self.command, self.environment)

    def __call__(self):
        sample = self.keep()
        empty(self.out)
        return sample

    def memory(self):
        """Runs once for the memory. What wait4 tells would be Python's own peak for a small run."""
        report = self.out.parent / "memory"
        process.run(self.command, {**self.environment, "VORN_IDLE_REPORT": str(report)})
        empty(self.out)
        blocks, resident = map(int, report.read_text().split())
        return Memory(blocks, 1024 * resident)
