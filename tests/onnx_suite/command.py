"""One data set through vorn-run and the host runtime.

The list holds the data set twice: the second inference runs over a model that has run already.
Each inference has as many batch items as the options say, all of them the same.
"""
import json
import os
import re
from dataclasses import dataclass

import numpy

from compare import dump_difference, is_exact
from process import run
from tensors import BFLOAT16, declared_shape

INFERENCES = 2
NATIVE_32_BITS = (numpy.int32, numpy.uint32)
# Read as other bits in a dump where they are not presented.
NEEDS_PRESENTING = (numpy.bool_, numpy.int64, numpy.uint64, numpy.float64, numpy.float16)


@dataclass(frozen=True)
class Verdict:
    """`problem` is "" where all is right; `settings` says what had to be configured."""
    problem: str
    settings: str


def verdict_of_command(case, contents, data_set, work, options):
    """Runs as a user would: plain first, and with "outputDims" where the runtime asks for it."""
    model = {"expose": "all"} if options.expose else {}
    shapes = _open_input_dims(contents, data_set)
    if shapes:
        model["inputDims"] = shapes
    config = {"model": model} if model else {}
    if _needs_native(data_set):
        config["outputTypes"] = "native"
    problem, log = _run_once(case, contents, data_set, config, work / "command", options)
    if problem and "outputDims" in log:
        model["outputDims"] = _output_dims(contents, data_set)
        config["model"] = model
        problem, _ = _run_once(case, contents, data_set, config, work / "command-again", options)
    return Verdict(problem, ", ".join(sorted([*model, *(set(config) - {"model"})])))


def _open_input_dims(contents, data_set):
    """The shapes of the inputs that the model does not fix."""
    declared = [declared_shape(value) for value in contents.inputs]
    return {tensor.name: tensor.shape for tensor, shape in zip(data_set.inputs, declared)
            if shape is None or None in shape}


def _output_dims(contents, data_set):
    return {value.name: tensor.shape
            for value, tensor in zip(contents.outputs, data_set.outputs)}


def _needs_native(data_set):
    """Whether whole numbers of 32 bits would be rounded, and no output forbids to dump bits."""
    types = [tensor.array.dtype for tensor in data_set.outputs]
    if any(dtype in NEEDS_PRESENTING for dtype in types):
        return False
    if any(tensor.element == BFLOAT16 for tensor in data_set.outputs):
        return False
    return any(tensor.array.dtype in NATIVE_32_BITS and not is_exact(tensor.array)
               for tensor in data_set.outputs)


def _run_once(case, contents, data_set, config, work, options):
    """What is wrong, "" if nothing is, and what the runtime said of it."""
    (work / "out").mkdir(parents=True)
    (work / "list.txt").write_text(INFERENCES * _list_of_files(data_set, work, options.batch))
    (work / "config.json").write_text(json.dumps(config))
    words = [options.build / "vorn-run", "-m", case.model, "-i", work / "list.txt",
             "-j", work / "config.json", "-o", work / "out", "-b", options.batch]
    ended = run(words, options.seconds, {**os.environ, "VORN_LOG": "1"})
    (work / "stdout.log").write_text(ended.out)
    (work / "stderr.log").write_text(ended.error)
    if ended.problem:
        return f"{ended.problem}: {_last_words(ended)}", ended.error
    is_native = config.get("outputTypes") == "native"
    for inference in range(INFERENCES):
        wrong = _compare(contents, data_set, ended.out, work / f"out/{inference}", is_native,
                         options)
        if wrong:
            return f"inference {inference}: {wrong}", ended.error
    return "", ended.error


def _list_of_files(data_set, work, batch):
    """Named and in reverse order, so that naming is exercised, or in order where a name cannot be
    told from its file. Inputs without elements are left out."""
    lines = []
    for index, tensor in enumerate(data_set.inputs):
        if tensor.array.size == 0:
            continue
        file = f"input_{index}.bin"
        (work / file).write_bytes(batch * tensor.to_bytes())
        lines.append((tensor.name, file))
    if any(":" in name or len(name) > 127 for name, _ in lines):
        return "".join(f"{file}\n" for _, file in lines)
    return "".join(f"{name}:{file}\n" for name, file in reversed(lines))


def _last_words(ended):
    """The line that tells the cause: the runtime's own if there is one."""
    said = [line for line in ended.error.splitlines() if re.match(r"vorn: vorn_(init|mdl_)", line)]
    said = said or [line for line in ended.out.splitlines() if line.startswith("[ERROR]")]
    return said[0][:300] if said else "it said nothing"


def _shown_shapes(transcript):
    """The shapes in the block of the outputs that vorn-run prints of a model."""
    block = transcript.partition("Output Info")[2]
    texts = re.findall(r"^\[INFO\]  Shape: \[([^\]]*)\]", block, re.MULTILINE)
    return [[int(dim) for dim in text.split(",") if dim.strip()] for text in texts]


def _compare(contents, data_set, transcript, folder, is_native, options):
    """Outputs without elements have no dump. Inner tensors come behind the model's own, and are as
    right as these: nothing is known of them."""
    expected = [(value.name, tensor) for value, tensor in zip(contents.outputs, data_set.outputs)
                if tensor.array.size != 0]
    shapes = _shown_shapes(transcript)
    if len(shapes) < len(expected) or len(shapes) > len(expected) and not options.expose:
        return f"{len(shapes)} outputs instead of {len(expected)}"
    dumps = _dumps_by_name(folder)
    for shape, (name, tensor) in zip(shapes, expected):
        if shape != (tensor.shape or [1]):
            return f"output {name}: shape {shape} instead of {tensor.shape}"
        files = dumps.get(re.sub(r"[./\\]", "_", name), [])
        if len(files) != 1:
            return f"output {name}: {len(files)} dumps"
        dump = numpy.fromfile(files[0], numpy.float32)
        count = options.batch * tensor.array.size
        if dump.size != count:
            return f"output {name}: {dump.size} values instead of {count}"
        for item in dump.reshape(options.batch, -1):
            wrong = dump_difference(item, tensor, is_native)
            if wrong:
                return f"output {name}: {wrong}"
    return ""


def _dumps_by_name(folder):
    """The binary dumps, NAME.NUMBER.TIME.bin, by the name of their output."""
    dumps = {}
    for path in folder.glob("*.bin"):
        dumps.setdefault(path.name.rsplit(".", 3)[0], []).append(path)
    return dumps
