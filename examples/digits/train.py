#!/usr/bin/env python3
"""Trains the digit network and writes everything of this folder that comes out of training.

    /usr/bin/python3 examples/digits/train.py

Needs python3-numpy, python3-sklearn and python3-onnx (Debian's packages will do). The data are the
1,797 handwritten digits that scikit-learn carries along, so nothing is fetched. Takes two to three
minutes on one core. Run twice on one machine, it writes the same bytes.

The pictures are split once, by digit and with a fixed seed:

    held out      200   20 of each digit; nothing sees them before the last step
    validation    200   20 of each digit; they choose how long to train, as they chose the constants
    training    1,397   the others; validation joins them for the final training

The network, for a batch of N pictures [N, 1, 8, 8]:

    cast, x 1/16 -> conv 3x3, 16 -> relu -> conv 3x3, 32 -> relu -> max 2x2 -> dense 10 -> softmax
"""

from pathlib import Path

import numpy as np
import onnx
from numpy.lib.stride_tricks import sliding_window_view
from onnx import TensorProto, helper, numpy_helper
from sklearn.datasets import load_digits

FOLDER = Path(__file__).resolve().parent
SEED = 1797
DIGITS = 10
PER_DIGIT = 20  # pictures of each digit that are held out, and again for validation
EPOCHS_TO_TRY = (20, 40, 80)
BATCH = 64
LEARNING_RATE = 4e-3  # of Adam, at the start; falls to 0 along a half cosine
WEIGHT_DECAY = 1e-2
DROPOUT = 0.5  # of the values that enter the dense layer
SCALE = np.float32(1 / 16)  # the data set's values go from 0 to 16


# --- Data ---------------------------------------------------------------------------------------


def load_data():
    """Returns pictures [1797, 1, 8, 8] as uint8 0..16, and labels [1797]."""
    data = load_digits()
    pictures = data.images.astype(np.uint8).reshape(-1, 1, 8, 8)
    assert np.array_equal(pictures[:, 0], data.images), "a value is not a whole number"
    return pictures, data.target.astype(np.int64)


def take_of_each_digit(rng, labels, candidates, count):
    """Splits candidates (indices) in two, both in order: count of each digit, and the others."""
    taken = [
        rng.choice(candidates[labels[candidates] == digit], count, replace=False)
        for digit in range(DIGITS)
    ]
    taken = np.sort(np.concatenate(taken))
    return taken, np.setdiff1d(candidates, taken)


def shift_at_random(rng, pictures):
    """Moves each picture by -1, 0 or 1 rows and columns; 0 enters at the edges.

    Half of the moves along each axis are 0, so a quarter of the pictures stays as it is.
    """
    padded = np.pad(pictures, ((0, 0), (0, 0), (1, 1), (1, 1)))
    windows = sliding_window_view(padded, (8, 8), axis=(2, 3))  # [n, 1, 3, 3, 8, 8]
    rows, columns = rng.choice(3, (2, len(pictures)), p=(0.25, 0.5, 0.25))
    return windows[np.arange(len(pictures)), :, rows, columns]


# --- Network ------------------------------------------------------------------------------------


def new_weights(rng):
    """He's initialisation: normal, scaled by the number of values that enter."""

    def normal(*shape):
        entering = np.prod(shape[1:])
        return (rng.standard_normal(shape) * np.sqrt(2 / entering)).astype(np.float32)

    def zeros(count):
        return np.zeros(count, np.float32)

    return {
        "conv1.weight": normal(16, 1, 3, 3),
        "conv1.bias": zeros(16),
        "conv2.weight": normal(32, 16, 3, 3),
        "conv2.bias": zeros(32),
        "dense.weight": normal(DIGITS, 32 * 4 * 4),
        "dense.bias": zeros(DIGITS),
    }


def patches(x):
    """The 3x3 neighbourhoods of x [n, c, h, w], 0 beyond the edges: [n * h * w, c * 9]."""
    n, c, h, w = x.shape
    padded = np.pad(x, ((0, 0), (0, 0), (1, 1), (1, 1)))
    windows = sliding_window_view(padded, (3, 3), axis=(2, 3))  # [n, c, h, w, 3, 3]
    return windows.transpose(0, 2, 3, 1, 4, 5).reshape(n * h * w, c * 9)


def add_patches(d_patches, shape):
    """The reverse of patches for gradients: adds every neighbourhood back to where it came from."""
    n, c, h, w = shape
    d_patches = d_patches.reshape(n, h, w, c, 3, 3).transpose(0, 3, 1, 2, 4, 5)
    d_padded = np.zeros((n, c, h + 2, w + 2), np.float32)
    for row in range(3):
        for column in range(3):
            d_padded[:, :, row : row + h, column : column + w] += d_patches[..., row, column]
    return d_padded[:, :, 1:-1, 1:-1]


def convolve(x, weight, bias):
    """Returns the 3x3 convolution of x, and the patches that its gradient needs."""
    n, _, h, w = x.shape
    columns = patches(x)
    y = columns @ weight.reshape(len(weight), -1).T + bias
    return y.reshape(n, h, w, -1).transpose(0, 3, 1, 2), columns


def convolve_back(d_y, columns, weight):
    """Returns the gradients of the patches, the weight and the bias."""
    d_rows = d_y.transpose(0, 2, 3, 1).reshape(-1, len(weight))
    d_weight = (d_rows.T @ columns).reshape(weight.shape)
    return d_rows @ weight.reshape(len(weight), -1), d_weight, d_rows.sum(axis=0)


def softmax(scores):
    exps = np.exp(scores - scores.max(axis=1, keepdims=True))
    return exps / exps.sum(axis=1, keepdims=True)


def forward(weights, pictures, keep=None):
    """Returns probabilities [n, 10], and what backward needs.

    keep [n, 512] multiplies what enters the dense layer (dropout); None outside training.
    """
    x = pictures.astype(np.float32) * SCALE
    y1, columns1 = convolve(x, weights["conv1.weight"], weights["conv1.bias"])
    a1 = np.maximum(y1, 0)
    y2, columns2 = convolve(a1, weights["conv2.weight"], weights["conv2.bias"])
    a2 = np.maximum(y2, 0)
    n, c, h, w = a2.shape
    fields = a2.reshape(n, c, h // 2, 2, w // 2, 2)
    pooled = fields.max(axis=(3, 5), keepdims=True)
    flat = pooled.reshape(n, -1)
    if keep is not None:
        flat = flat * keep
    probabilities = softmax(flat @ weights["dense.weight"].T + weights["dense.bias"])
    return probabilities, (columns1, a1, columns2, a2, fields, pooled, flat)


def backward(weights, probabilities, labels, keep, kept):
    """Returns the gradients of the mean cross entropy, by the names of the weights."""
    columns1, a1, columns2, a2, fields, pooled, flat = kept
    d_scores = (probabilities - np.eye(DIGITS, dtype=np.float32)[labels]) / np.float32(len(labels))
    d_flat = (d_scores @ weights["dense.weight"]) * keep
    # Equal greatest values of a field all pass the gradient on. Above 0 that is rare, and at 0 the
    # relu stops it.
    d_a2 = ((fields == pooled) * d_flat.reshape(pooled.shape)).reshape(a2.shape)
    d_y2 = d_a2 * (a2 > 0)
    d_columns2, d_weight2, d_bias2 = convolve_back(d_y2, columns2, weights["conv2.weight"])
    d_y1 = add_patches(d_columns2, a1.shape) * (a1 > 0)
    _, d_weight1, d_bias1 = convolve_back(d_y1, columns1, weights["conv1.weight"])
    return {
        "conv1.weight": d_weight1,
        "conv1.bias": d_bias1,
        "conv2.weight": d_weight2,
        "conv2.bias": d_bias2,
        "dense.weight": d_scores.T @ flat,
        "dense.bias": d_scores.sum(axis=0),
    }


# --- Training -----------------------------------------------------------------------------------


class Adam:
    """Adam with weight decay kept out of the moments; changes the weights in place."""

    def __init__(self, weights):
        self.mean = {name: np.zeros_like(value) for name, value in weights.items()}
        self.square = {name: np.zeros_like(value) for name, value in weights.items()}
        self.step_count = 0

    def step(self, weights, gradients, rate):
        self.step_count += 1
        correction1 = 1 - 0.9**self.step_count
        correction2 = 1 - 0.999**self.step_count
        for name, gradient in gradients.items():
            mean, square = self.mean[name], self.square[name]
            mean += np.float32(0.1) * (gradient - mean)
            square += np.float32(0.001) * (gradient * gradient - square)
            move = (mean / correction1) / (np.sqrt(square / correction2) + 1e-8)
            decay = WEIGHT_DECAY if name.endswith(".weight") else 0
            weights[name] -= (rate * (move + decay * weights[name])).astype(np.float32)


def train(pictures, labels, epochs):
    """Returns the weights. Depends on nothing but the arguments, the constants above and SEED."""
    rng = np.random.default_rng(SEED)
    weights = new_weights(rng)
    adam = Adam(weights)
    for epoch in range(epochs):
        rate = LEARNING_RATE * 0.5 * (1 + np.cos(np.pi * epoch / epochs))
        order = rng.permutation(len(pictures))
        for start in range(0, len(order), BATCH):
            batch = order[start : start + BATCH]
            keep = (rng.random((len(batch), 512)) >= DROPOUT).astype(np.float32) / (1 - DROPOUT)
            probabilities, kept = forward(weights, shift_at_random(rng, pictures[batch]), keep)
            adam.step(weights, backward(weights, probabilities, labels[batch], keep, kept), rate)
    return weights


def accuracy(probabilities, labels):
    return np.mean(probabilities.argmax(axis=1) == labels)


def choose_epochs(pictures, labels, training, validation):
    """Trains once for each number in EPOCHS_TO_TRY; the least loss on validation wins."""
    losses = {}
    for epochs in EPOCHS_TO_TRY:
        weights = train(pictures[training], labels[training], epochs)
        probabilities, _ = forward(weights, pictures[validation])
        of_label = probabilities[np.arange(len(validation)), labels[validation]]
        losses[epochs] = -np.mean(np.log(np.maximum(of_label, 1e-30)))
        percent = 100 * accuracy(probabilities, labels[validation])
        print(f"{epochs} epochs: validation loss {losses[epochs]:.4f}, accuracy {percent:.1f} %")
    return min(losses, key=losses.get)


# --- What is written ----------------------------------------------------------------------------


def to_onnx(weights):
    """Returns the ONNX model: picture, uint8 [batch, 1, 8, 8] -> probabilities, float [batch, 10].

    Cast and scale are inside, so a caller passes the pictures' bytes as they are.
    """
    same = {"kernel_shape": [3, 3], "pads": [1, 1, 1, 1]}
    nodes = [
        helper.make_node("Cast", ["picture"], ["values"], to=TensorProto.FLOAT),
        helper.make_node("Mul", ["values", "scale"], ["scaled"]),
        helper.make_node("Conv", ["scaled", "conv1.weight", "conv1.bias"], ["conv1"], **same),
        helper.make_node("Relu", ["conv1"], ["relu1"]),
        helper.make_node("Conv", ["relu1", "conv2.weight", "conv2.bias"], ["conv2"], **same),
        helper.make_node("Relu", ["conv2"], ["relu2"]),
        helper.make_node("MaxPool", ["relu2"], ["pooled"], kernel_shape=[2, 2], strides=[2, 2]),
        helper.make_node("Flatten", ["pooled"], ["flat"], axis=1),
        helper.make_node("Gemm", ["flat", "dense.weight", "dense.bias"], ["scores"], transB=1),
        helper.make_node("Softmax", ["scores"], ["probabilities"], axis=1),
    ]
    constants = {"scale": np.array(SCALE), **weights}
    graph = helper.make_graph(
        nodes,
        "digits",
        [helper.make_tensor_value_info("picture", TensorProto.UINT8, ["batch", 1, 8, 8])],
        [helper.make_tensor_value_info("probabilities", TensorProto.FLOAT, ["batch", DIGITS])],
        [numpy_helper.from_array(value, name) for name, value in constants.items()],
    )
    model = helper.make_model(
        graph, ir_version=7, opset_imports=[helper.make_opsetid("", 13)], producer_name="train.py"
    )
    onnx.checker.check_model(model, full_check=True)
    return model


def write_held_out(pictures, labels):
    """Writes pictures/000.bin ... (64 bytes each, row by row), list.txt and labels.txt."""
    folder = FOLDER / "pictures"
    folder.mkdir(exist_ok=True)
    for old in folder.glob("*.bin"):
        old.unlink()
    names = [f"pictures/{i:03}.bin" for i in range(len(pictures))]
    for name, picture in zip(names, pictures):
        (FOLDER / name).write_bytes(picture.tobytes())
    (FOLDER / "list.txt").write_text("".join(f"{name}\n" for name in names))
    (FOLDER / "labels.txt").write_text("".join(f"{label}\n" for label in labels))


# --- A second look ------------------------------------------------------------------------------
# Runs digits.onnx as it lies on the disk, over the pictures as they lie on the disk, node by node
# in double precision. Shares no code with the network above, so that a mistake in the export, or in
# the files, shows as a difference.


def run_conv(x, weight, bias, kernel_shape, pads):
    n, _, h, w = x.shape
    x = np.pad(x, ((0, 0), (0, 0), (pads[0], pads[2]), (pads[1], pads[3])))
    y = np.zeros((n, len(weight), h, w)) + bias.reshape(1, -1, 1, 1)
    for row in range(kernel_shape[0]):
        for column in range(kernel_shape[1]):
            part = x[:, :, row : row + h, column : column + w]
            y += np.einsum("nchw,oc->nohw", part, weight[:, :, row, column])
    return y


def run_max_pool(x, kernel_shape, strides):
    assert kernel_shape == strides == [2, 2]
    top = np.maximum(x[:, :, ::2, ::2], x[:, :, ::2, 1::2])
    return np.maximum(top, np.maximum(x[:, :, 1::2, ::2], x[:, :, 1::2, 1::2]))


def run_softmax(x, axis):
    return np.exp(x) / np.sum(np.exp(x), axis=axis, keepdims=True)


RUN = {
    "Cast": lambda x, to: x.astype(np.float64),
    "Mul": lambda x, y: x * y,
    "Conv": run_conv,
    "Relu": lambda x: np.where(x > 0, x, 0),
    "MaxPool": run_max_pool,
    "Flatten": lambda x, axis: x.reshape(len(x), -1),
    "Gemm": lambda x, weight, bias, transB: np.einsum("nk,ok->no", x, weight) + bias,
    "Softmax": run_softmax,
}


def run_from_disk():
    """Returns the probabilities [200, 10] and the labels [200]."""
    lines = (FOLDER / "list.txt").read_text().splitlines()
    pictures = b"".join((FOLDER / line).read_bytes() for line in lines)
    labels = np.array([int(line) for line in (FOLDER / "labels.txt").read_text().splitlines()])
    graph = onnx.load(FOLDER / "digits.onnx").graph
    values = {tensor.name: numpy_helper.to_array(tensor) for tensor in graph.initializer}
    values["picture"] = np.frombuffer(pictures, np.uint8).reshape(-1, 1, 8, 8)
    for node in graph.node:
        attributes = {a.name: helper.get_attribute_value(a) for a in node.attribute}
        values[node.output[0]] = RUN[node.op_type](*(values[i] for i in node.input), **attributes)
    return values["probabilities"], labels


def main():
    pictures, labels = load_data()
    rng = np.random.default_rng(SEED)
    held_out, others = take_of_each_digit(rng, labels, np.arange(len(labels)), PER_DIGIT)
    validation, training = take_of_each_digit(rng, labels, others, PER_DIGIT)
    print(f"{len(training)} training, {len(validation)} validation, {len(held_out)} held out")

    epochs = choose_epochs(pictures, labels, training, validation)
    print(f"final training: {len(others)} pictures, {epochs} epochs")
    weights = train(pictures[others], labels[others], epochs)

    (FOLDER / "digits.onnx").write_bytes(to_onnx(weights).SerializeToString(deterministic=True))
    write_held_out(pictures[held_out], labels[held_out])

    probabilities, _ = forward(weights, pictures[held_out])
    from_disk, labels_from_disk = run_from_disk()
    difference = np.max(np.abs(from_disk - probabilities))
    right = np.sum(from_disk.argmax(axis=1) == labels_from_disk)
    print(f"digits.onnx and the trained network differ by at most {difference:.1e}")
    assert difference < 1e-5, "the export is not the network that was trained"
    print(f"held out: recognised {right} of {len(held_out)} ({100 * right / len(held_out):.1f} %)")


if __name__ == "__main__":
    main()
