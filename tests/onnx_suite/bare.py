"""One data set straight through ONNX Runtime."""
import os
from pathlib import Path

from compare import difference
from process import run
from tensors import SERVED, from_bytes


def problem_of_bare(case, data_set, work, options):
    """What is wrong with the results of onnx-bare-run, "" if nothing is."""
    out = work / "bare"
    out.mkdir(parents=True)
    lines = []
    for index, tensor in enumerate(data_set.inputs):
        path = out / f"input_{index}.bin"
        path.write_bytes(tensor.to_bytes())
        dims = ",".join(map(str, tensor.shape))
        lines.append(f"{tensor.name}\t{tensor.element}\t{dims}\t{path}\n")
    (out / "inputs.txt").write_text("".join(lines))
    environment = {**os.environ, "LD_LIBRARY_PATH": str(options.build)}
    ended = run([options.build / "tests/onnx_suite/onnx-bare-run", case.model, out / "inputs.txt",
                 out], options.seconds, environment)
    if ended.problem:
        return f"{ended.problem}: {ended.error.strip()[:300]}"
    return _compare(ended.out, data_set.outputs)


def _compare(listing, expected):
    results = [line.split("\t") for line in listing.splitlines()]
    if len(results) != len(expected):
        return f"{len(results)} outputs instead of {len(expected)}"
    for (name, element, dims, path), tensor in zip(results, expected):
        if int(element) != tensor.element or tensor.element not in SERVED:
            return f"output {name} has the element type {element} instead of {tensor.element}"
        shape = [int(dim) for dim in dims.split(",") if dim]
        actual = from_bytes(name, tensor.element, shape, Path(path).read_bytes())
        wrong = difference(actual.values(), tensor.values())
        if wrong:
            return f"output {name}: {wrong}"
    return ""
