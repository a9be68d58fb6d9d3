"""Finds the test cases in the package's folders.

    node/test_abs/model.onnx                           light/light_vgg19.onnx
    node/test_abs/test_data_set_0/input_0.pb, ...      light/light_vgg19_output_0.pb
    node/test_abs/test_data_set_0/output_0.pb, ...

The networks of light/ come without inputs and are given a ramp from 0 to 1.
"""
from dataclasses import dataclass
from pathlib import Path

import numpy
from onnx import TensorProto

from tensors import Tensor, declared_shape, load_model, read_tensor, why_not_dense


@dataclass(frozen=True)
class DataSet:
    """Inputs of one run, in the model's order, and what is expected of it."""
    inputs: list
    outputs: list


@dataclass(frozen=True)
class Case:
    """A model with its data sets. Not read before it is needed: there are many."""
    folder: str
    name: str
    model: Path

    @property
    def key(self):
        return f"{self.folder}/{self.name}"


@dataclass(frozen=True)
class Contents:
    """What the files of a case say."""
    model: object        # as it is executed
    inputs: list         # the model's, without those that it has own values for
    outputs: list
    not_dense: str       # why it cannot run here, or ""
    data_sets: list      # none if it cannot run


def find_cases(root):
    """All cases below the package's data folder, in order."""
    models = list(root.glob("*/*/model.onnx"))
    cases = [Case(model.parent.parent.name, model.parent.name, model) for model in models]
    cases += [Case("light", model.stem, model) for model in root.glob("light/*.onnx")]
    return sorted(cases, key=lambda case: case.key)


def read_case(case):
    """Reads the model, and the data sets where its types can run at all."""
    model = load_model(case.model)
    graph = model.graph
    own_values = {tensor.name for tensor in graph.initializer}
    inputs = [value for value in graph.input if value.name not in own_values]
    outputs = list(graph.output)
    kinds = sorted({why_not_dense(value) for value in [*inputs, *outputs]} - {None})
    if kinds:
        return Contents(model, inputs, outputs, ", ".join(kinds), [])
    read_sets = _light_set if case.folder == "light" else _given_sets
    return Contents(model, inputs, outputs, "", read_sets(case, inputs, outputs))


def _numbered(folder, pattern):
    """The files of a pattern with one star, by the number in its place."""
    start = pattern.index("*")
    return sorted(folder.glob(pattern), key=lambda path: int(path.stem[start:]))


def _read_all(paths, values):
    """Files are meant by their position; a file's own name may be another one."""
    if len(paths) != len(values):
        raise ValueError(f"{len(paths)} files like {paths[:1]} for {len(values)} values")
    return [read_tensor(path, value) for path, value in zip(paths, values)]


def _given_sets(case, inputs, outputs):
    folders = _numbered(case.model.parent, "test_data_set_*")
    if not folders:
        raise ValueError(f"{case.key}: no data set")
    return [DataSet(_read_all(_numbered(folder, "input_*.pb"), inputs),
                    _read_all(_numbered(folder, "output_*.pb"), outputs)) for folder in folders]


def _light_set(case, inputs, outputs):
    ramps = []
    for value in inputs:
        shape = declared_shape(value)
        count = int(numpy.prod(shape))
        ramp = (numpy.arange(count).reshape(shape) / count).astype(numpy.float32)
        ramps.append(Tensor(value.name, TensorProto.FLOAT, ramp))
    return [DataSet(ramps, _read_all([case.model.with_name(f"{case.name}_output_0.pb")], outputs))]
