#!/usr/bin/env python3
"""The text detector as a compiler for a device would leave it: make_device.py NETWORK DEVICE.

Its input is what a camera gives: bytes, red first, the channels of a pixel side by side. That they
are turned around, scaled and made of mean 0 is part of the model. Its output has another name,
stands the other way round and is a byte, of which 255 are 1. Takes python3-onnx."""

import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

SIDE = 960
# Of blue, green and red, as in find.recipe.json.
MEAN, DEVIATION = [0.485, 0.456, 0.406], [0.229, 0.224, 0.225]


def main():
    model = onnx.load(sys.argv[1])
    graph = model.graph
    taken, given = graph.input[0].name, graph.output[0].name

    def constant(name, values, kind):
        graph.initializer.append(numpy_helper.from_array(np.array(values, kind), name))
        return name

    def a_channel(values):
        return np.reshape(values, (1, 3, 1, 1))

    before = [
        helper.make_node("Gather", ["camera", constant("turned", [2, 1, 0], np.int64)],
                         ["blue_first"], axis=3),
        helper.make_node("Transpose", ["blue_first"], ["planes"], perm=[0, 3, 1, 2]),
        helper.make_node("Cast", ["planes"], ["floats"], to=TensorProto.FLOAT),
        helper.make_node("Sub", ["floats", constant("mean", a_channel(np.multiply(MEAN, 255)),
                                                    np.float32)], ["centred"]),
        helper.make_node("Mul", ["centred", constant("scale", a_channel(
            1 / np.multiply(DEVIATION, 255)), np.float32)], [taken]),
    ]
    behind = [
        helper.make_node("Transpose", [given], ["rows"], perm=[0, 2, 3, 1]),
        helper.make_node("QuantizeLinear", ["rows", constant("step", 1 / 255, np.float32),
                                            constant("zero", 0, np.uint8)], ["text"]),
    ]
    nodes = before + list(graph.node) + behind
    del graph.node[:], graph.input[:], graph.output[:]
    graph.node.extend(nodes)
    for tensors, name, channels in (graph.input, "camera", 3), (graph.output, "text", 1):
        tensors.append(helper.make_tensor_value_info(name, TensorProto.UINT8,
                                                     [1, SIDE, SIDE, channels]))
    onnx.save(model, sys.argv[2])


if __name__ == "__main__":
    main()
