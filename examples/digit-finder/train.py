#!/usr/bin/env python3
"""Trains the network that tells where a digit is, and writes it as proposals.onnx.

    /usr/bin/python3 examples/digit-finder/train.py

Needs python3-numpy, python3-sklearn and python3-onnx. Which digit it is the network of
examples/digits tells, so this one learns a single answer: is there a digit in the middle of this
field of 12 x 12 pixels? Its scenes are made of the pictures that trained that network; the 200 held
out ones, of which the committed scenes are made, are never seen here.

    scene [n, 1, 96, 96], 0..16 -> x 1/16 -> conv 12x12, 48 -> relu -> conv 1x1, 24 -> relu
          -> conv 1x1, 1 -> sigmoid: objectness [n, 1, 89, 89], one for every place of a digit

Every field is a row of 144 numbers for training, and its network three dense layers.
"""

import importlib.util
from pathlib import Path

import numpy as np
import onnx
from numpy.lib.stride_tricks import sliding_window_view
from onnx import TensorProto, helper, numpy_helper

import scenes

FOLDER = Path(__file__).resolve().parent
SEED = 2203
MARGIN = 2  # pixels that a field has around the square of a digit
FIELD = scenes.DIGIT + 2 * MARGIN
PLACES = scenes.SIDE - scenes.DIGIT + 1  # of a digit's square along one side
HIDDEN = (48, 24)
SCENES_A_ROUND = 150
ROUNDS = 3  # after the first, fields that deceived the network join
HARD_A_SCENE = 60  # of them at most
EASY_A_SCENE = 60  # fields at random places with ink
EPOCHS = 12
BATCH = 256
RATE = 2e-3  # of Adam, at the start; falls to 0 along a half cosine
DECAY = 1e-4


def training_pictures():
    """The pictures [1597, 8, 8] that are not held out, by the split of examples/digits."""
    path = FOLDER.parent / "digits" / "train.py"
    spec = importlib.util.spec_from_file_location("digits_train", path)
    digits = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(digits)
    pictures, labels = digits.load_data()
    rng = np.random.default_rng(digits.SEED)
    _, others = digits.take_of_each_digit(rng, labels, np.arange(len(labels)), digits.PER_DIGIT)
    return pictures[others, 0]


def fields_of(scene):
    """All fields of a scene, one a place: float32 [89 * 89, 144], 0 to 1."""
    padded = np.pad(scene, MARGIN).astype(np.float32) / scenes.INK
    return sliding_window_view(padded, (FIELD, FIELD)).reshape(PLACES * PLACES, FIELD * FIELD)


def distance_to_digits(corners):
    """For every place how many pixels it is off the nearest digit, the larger of both ways."""
    rows, columns = np.mgrid[:PLACES, :PLACES]
    return np.min([np.maximum(abs(rows - r), abs(columns - c)) for r, c in corners],
                  axis=0).ravel()


def answer(weights, fields):
    """Objectness [n] of the fields [n, 144], and what the way back needs."""
    a1 = np.maximum(fields @ weights["w1"].T + weights["b1"], 0)
    a2 = np.maximum(a1 @ weights["w2"].T + weights["b2"], 0)
    scores = a2 @ weights["w3"].T + weights["b3"]
    return 0.5 * (1 + np.tanh(0.5 * scores[:, 0])), (a1, a2)


def gradients(weights, fields, wanted):
    """Of the mean cross entropy, by the names of the weights."""
    found, (a1, a2) = answer(weights, fields)
    d3 = ((found - wanted) / np.float32(len(fields)))[:, None].astype(np.float32)
    d2 = (d3 @ weights["w3"]) * (a2 > 0)
    d1 = (d2 @ weights["w2"]) * (a1 > 0)
    return {"w1": d1.T @ fields, "b1": d1.sum(axis=0), "w2": d2.T @ a1, "b2": d2.sum(axis=0),
            "w3": d3.T @ a2, "b3": d3.sum(axis=0)}


def new_weights(rng):
    """He's initialisation, biases 0."""
    sizes = (FIELD * FIELD, *HIDDEN, 1)
    weights = {}
    for i, (n, m) in enumerate(zip(sizes, sizes[1:]), 1):
        weights[f"w{i}"] = (rng.standard_normal((m, n)) * np.sqrt(2 / n)).astype(np.float32)
        weights[f"b{i}"] = np.zeros(m, np.float32)
    return weights


def train(rng, fields, wanted):
    """Adam over the fields in random order; returns new weights."""
    weights = new_weights(rng)
    mean = {name: np.zeros_like(value) for name, value in weights.items()}
    square = {name: np.zeros_like(value) for name, value in weights.items()}
    step, steps = 0, EPOCHS * -(-len(fields) // BATCH)
    for _ in range(EPOCHS):
        order = rng.permutation(len(fields))
        for start in range(0, len(order), BATCH):
            rate = RATE * 0.5 * (1 + np.cos(np.pi * step / steps))
            step += 1
            batch = order[start:start + BATCH]
            for name, slope in gradients(weights, fields[batch], wanted[batch]).items():
                mean[name] += np.float32(0.1) * (slope - mean[name])
                square[name] += np.float32(0.001) * (slope * slope - square[name])
                move = mean[name] / (1 - 0.9**step)
                move = move / (np.sqrt(square[name] / (1 - 0.999**step)) + 1e-8)
                weights[name] -= (rate * (move + DECAY * weights[name])).astype(np.float32)
    return weights


def fields_to_learn(rng, pictures, weights):
    """Fields of new scenes and what to answer for each: 1 with a digit in the middle, 0 without.

    Beside a digit by one pixel both answers would do, so these fields are left out. Of the others
    those are taken that deceive `weights` most, and some at random places with ink.
    """
    chosen, wanted = [], []
    for _ in range(SCENES_A_ROUND):
        of_scene = rng.choice(len(pictures), scenes.DIGITS_A_SCENE, replace=False)
        scene, corners = scenes.make_scene(rng, pictures[of_scene])
        fields, off = fields_of(scene), distance_to_digits(corners)
        others = np.flatnonzero((off > 1) & (fields.sum(axis=1) > 0))
        take = [np.flatnonzero(off == 0), rng.choice(others, EASY_A_SCENE, replace=False)]
        if weights is not None:
            found = answer(weights, fields[others])[0]
            hardest = np.argsort(-found, kind="stable")[:HARD_A_SCENE]
            take.append(others[hardest[found[hardest] > 0.02]])
        take = np.concatenate(take)
        chosen.append(fields[take])
        wanted.append((off[take] == 0).astype(np.float32))
    return np.concatenate(chosen), np.concatenate(wanted)


def to_onnx(weights):
    """The ONNX model of the weights, for whole scenes."""
    kernels = {"w1": weights["w1"].reshape(-1, 1, FIELD, FIELD),
               "w2": weights["w2"][:, :, None, None], "w3": weights["w3"][:, :, None, None]}
    constants = {"scale": np.array(1 / scenes.INK, np.float32), **weights, **kernels}
    around = {"kernel_shape": [FIELD, FIELD], "pads": [MARGIN] * 4}
    nodes = [
        helper.make_node("Cast", ["scene"], ["values"], to=TensorProto.FLOAT),
        helper.make_node("Mul", ["values", "scale"], ["scaled"]),
        helper.make_node("Conv", ["scaled", "w1", "b1"], ["conv1"], **around),
        helper.make_node("Relu", ["conv1"], ["relu1"]),
        helper.make_node("Conv", ["relu1", "w2", "b2"], ["conv2"], kernel_shape=[1, 1]),
        helper.make_node("Relu", ["conv2"], ["relu2"]),
        helper.make_node("Conv", ["relu2", "w3", "b3"], ["conv3"], kernel_shape=[1, 1]),
        helper.make_node("Sigmoid", ["conv3"], ["objectness"]),
    ]
    shape = [1, 1, scenes.SIDE, scenes.SIDE]
    graph = helper.make_graph(
        nodes, "proposals",
        [helper.make_tensor_value_info("scene", TensorProto.UINT8, shape)],
        [helper.make_tensor_value_info("objectness", TensorProto.FLOAT, [1, 1, PLACES, PLACES])],
        [numpy_helper.from_array(value, name) for name, value in constants.items()])
    model = helper.make_model(graph, ir_version=7, producer_name="train.py",
                              opset_imports=[helper.make_opsetid("", 13)])
    onnx.checker.check_model(model, full_check=True)
    return model


def main():
    """Trains in rounds and tells after each how well new scenes are answered."""
    pictures = training_pictures()
    rng = np.random.default_rng(SEED)
    fields, wanted, weights = None, None, None
    for number in range(1, ROUNDS + 1):
        new_fields, new_wanted = fields_to_learn(rng, pictures, weights)
        if weights is not None:
            found = answer(weights, new_fields)[0] > 0.5
            print(f"round {number}: of fields that are new and hard, "
                  f"{np.mean(found == (new_wanted > 0.5)):.1%} answered right before it")
            new_fields = np.concatenate([fields, new_fields])
            new_wanted = np.concatenate([wanted, new_wanted])
        fields, wanted = new_fields, new_wanted
        weights = train(rng, fields, wanted)
        print(f"round {number}: learnt {len(fields)} fields, {int(wanted.sum())} of them digits")
    (FOLDER / "proposals.onnx").write_bytes(to_onnx(weights).SerializeToString(deterministic=True))


if __name__ == "__main__":
    main()
