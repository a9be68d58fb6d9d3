#!/usr/bin/env python3
"""Writes the networks that the executions are measured with, unless they are there already.

    make_models.py FOLDER

    resnet50.onnx      [1, 3, 224, 224] -> [1, 1000], 25.6 M parameters: a 7x7 convolution, 3 + 4 +
                       6 + 3 bottleneck blocks, an average, a dense layer. 102 MB.
    small.onnx         [1, 3, 32, 32] -> [1, 10], four convolutions, well under a millisecond
    small-padded.onnx  the same for [1, 3, 32, 30], whose rows of 120 bytes do not fill a stride

The weights are random with a fixed seed: what a network says does not matter for how long it takes,
as long as no value turns out infinite or so small that the processor becomes slow over it.

Needs python3-onnx and python3-numpy as Debian has them.
"""
import sys
from hashlib import sha256
from pathlib import Path

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

SEED = 50
CLASSES = 1000
RESNET50_BLOCKS = (3, 4, 6, 3)


class Network:
    """A graph that grows layer by layer; each method returns the name of what the layer makes."""

    def __init__(self, name, input_shape):
        self.rng = np.random.default_rng(SEED)
        self.name, self.input_shape = name, input_shape
        self.nodes, self.weights = [], []

    def _weight(self, values):
        name = f"w{len(self.weights)}"
        self.weights.append(numpy_helper.from_array(np.asarray(values, np.float32), name))
        return name

    def _node(self, kind, inputs, **attributes):
        name = f"t{len(self.nodes)}"
        self.nodes.append(helper.make_node(kind, inputs, [name], **attributes))
        return name

    def conv(self, x, channels_in, channels_out, size, stride=1):
        """Scaled so that values keep their size on the way through (He)."""
        deviation = np.sqrt(2 / (channels_in * size * size))
        weight = self.rng.normal(0, deviation, (channels_out, channels_in, size, size))
        return self._node("Conv", [x, self._weight(weight)], kernel_shape=[size, size],
                          strides=[stride, stride], pads=[size // 2] * 4)

    def norm(self, x, channels, scale=1.0):
        parts = [np.full(channels, scale), self.rng.normal(0, 0.1, channels), np.zeros(channels),
                 np.ones(channels)]
        return self._node("BatchNormalization", [x, *map(self._weight, parts)])

    def relu(self, x):
        return self._node("Relu", [x])

    def add(self, x, y):
        return self._node("Add", [x, y])

    def max_pool(self, x):
        return self._node("MaxPool", [x], kernel_shape=[3, 3], strides=[2, 2], pads=[1] * 4)

    def dense(self, x, features, classes):
        """Over the average of each channel."""
        flat = self._node("Flatten", [self._node("GlobalAveragePool", [x])])
        weight = self.rng.normal(0, np.sqrt(1 / features), (classes, features))
        parts = [self._weight(weight), self._weight(np.zeros(classes))]
        return self._node("Gemm", [flat, *parts], transB=1)

    def save(self, path, output, classes):
        self.nodes[-1].output[0] = "scores"
        assert output == f"t{len(self.nodes) - 1}", "the last layer is the output"
        shape = helper.make_tensor_value_info
        graph = helper.make_graph(self.nodes, self.name,
                                  [shape("picture", TensorProto.FLOAT, self.input_shape)],
                                  [shape("scores", TensorProto.FLOAT, [1, classes])],
                                  initializer=self.weights)
        model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)])
        model.ir_version = 7
        onnx.checker.check_model(model)
        onnx.save(model, str(path))


def bottleneck(net, x, channels_in, width, stride):
    """1x1, 3x3, 1x1 to four times the width, beside a shortcut."""
    wide = 4 * width
    y = net.relu(net.norm(net.conv(x, channels_in, width, 1), width))
    y = net.relu(net.norm(net.conv(y, width, width, 3, stride), width))
    y = net.norm(net.conv(y, width, wide, 1), wide, scale=0.5)
    if channels_in != wide:
        x = net.norm(net.conv(x, channels_in, wide, 1, stride), wide)
    return net.relu(net.add(x, y))


def write_resnet50(path):
    net = Network("resnet50", [1, 3, 224, 224])
    x = net.max_pool(net.relu(net.norm(net.conv("picture", 3, 64, 7, stride=2), 64)))
    channels = 64
    for stage, blocks in enumerate(RESNET50_BLOCKS):
        width = 64 << stage
        for block in range(blocks):
            x = bottleneck(net, x, channels, width, 2 if stage > 0 and block == 0 else 1)
            channels = 4 * width
    net.save(path, net.dense(x, channels, CLASSES), CLASSES)


def write_small(path, columns):
    net = Network("small", [1, 3, 32, columns])
    x, channels = "picture", 3
    for layer, width in enumerate((16, 32, 32, 64)):
        x = net.relu(net.conv(x, channels, width, 3, stride=2 if layer % 2 else 1))
        channels = width
    net.save(path, net.dense(x, channels, 10), 10)


def main():
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    stamp = folder / "stamp"
    source = sha256(Path(__file__).read_bytes()).hexdigest()
    if stamp.exists() and stamp.read_text() == source:
        return
    write_resnet50(folder / "resnet50.onnx")
    write_small(folder / "small.onnx", 32)
    write_small(folder / "small-padded.onnx", 30)
    stamp.write_text(source)


if __name__ == "__main__":
    main()
