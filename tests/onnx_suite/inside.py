#!/usr/bin/env python3
"""Holds the inner tensors that the host runtime exposes against those that ONNX Runtime gives where
a model declares them as outputs, to the last bit.

    inside.py BUILD MODEL.onnx...

Inputs are float32 or uint8 with known sizes, and get random numbers of a fixed seed; open sizes
count as 1. The exit status is 1 where anything differs.
"""
import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

import numpy
import onnx

from command import _dumps_by_name

TYPES = {1: numpy.float32, 2: numpy.uint8}
SEED = 13


def make_inputs(model, folder):
    """The files; returns a line of onnx-bare-run's list for each, and one of vorn-run's."""
    random = numpy.random.default_rng(SEED)
    carried = {weight.name for weight in model.graph.initializer}
    bare, command = [], []
    for value in model.graph.input:
        if value.name in carried:
            continue
        tensor = value.type.tensor_type
        shape = [dim.dim_value or 1 for dim in tensor.shape.dim]
        path = folder / f"input_{len(bare)}.bin"
        (16 * random.random(shape)).astype(TYPES[tensor.elem_type]).tofile(path)
        bare.append(f"{value.name}\t{tensor.elem_type}\t{','.join(map(str, shape))}\t{path}\n")
        command.append(f"{path.name}\n")
    return "".join(bare), "".join(command)


def compare(build, path, folder):
    """How many tensors are the same, and the names of those that are not."""
    model = onnx.load(path)
    bare_list, list_text = make_inputs(model, folder)
    (folder / "bare.txt").write_text(bare_list)
    (folder / "list.txt").write_text(list_text)
    (folder / "config.json").write_text(json.dumps({"model": {"expose": "all"}}))
    (folder / "out").mkdir()
    ran = subprocess.run(
        [build / "vorn-run", "-m", path, "-i", folder / "list.txt", "-j", folder / "config.json",
         "-o", folder / "out"], capture_output=True, text=True, check=True)
    names = [line.rpartition(": ")[2] for line in ran.stdout.splitlines() if "Output index" in line]
    given = {output.name for output in model.graph.output}
    model.graph.output.extend(onnx.ValueInfoProto(name=name) for name in names
                              if name not in given)
    onnx.save(model, folder / "declared.onnx")
    ran = subprocess.run(
        [build / "tests/onnx_suite/onnx-bare-run", folder / "declared.onnx", folder / "bare.txt",
         folder], capture_output=True, text=True, check=True,
        env={**os.environ, "LD_LIBRARY_PATH": str(build)})
    dumps = _dumps_by_name(folder / "out" / "0")
    differ = []
    for line in ran.stdout.splitlines():
        name, element, _, file = line.split("\t")
        wanted = numpy.fromfile(file, TYPES[int(element)]).astype(numpy.float32)
        dump, = dumps[name.replace(".", "_").replace("/", "_")]
        if not numpy.array_equal(numpy.fromfile(dump, numpy.float32).view(numpy.uint32),
                                 wanted.view(numpy.uint32)):
            differ.append(name)
    return len(names) - len(differ), differ


def main():
    build = Path(sys.argv[1]).resolve()
    status = 0
    for path in map(Path, sys.argv[2:]):
        with tempfile.TemporaryDirectory() as folder:
            same, differ = compare(build, path, Path(folder))
        print(f"{path.name}: {same} tensors are the same, {len(differ)} differ {differ[:5]}",
              flush=True)
        status = status or int(bool(differ))
    return status


if __name__ == "__main__":
    sys.exit(main())
