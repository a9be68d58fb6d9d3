#!/usr/bin/env python3
"""Puts the models together that find digits, one graph each: finder.onnx and finder_by_class.onnx.

    /usr/bin/python3 examples/digit-finder/make_models.py

Needs python3-numpy and python3-onnx. Both hold the same two networks, proposals.onnx of this folder
and digits.onnx of examples/digits, and differ in their input of thresholds only:

    scene --> proposals --> the 256 likeliest places --> their 8 x 8 pixels --> digits
                                     |                         |                   |
                                 objectness       x           ink          probabilities [256, 10]
                                                               |
    thresholds ------------------------------------------------+--> suppression --> findings, count

    finder.onnx            thresholds [1, 4]    score, overlap, ink, most: for all classes alike
    finder_by_class.onnx   thresholds [4, 10]   the same as rows, a column for every digit

A place scores, for every class, its objectness times the probability of the class; without enough
ink it scores nothing. NonMaxSuppression then keeps, class by class, the best of what overlaps.
"""

from pathlib import Path

import numpy as np
import onnx
from onnx import TensorProto, compose, helper, numpy_helper

import scenes

FOLDER = Path(__file__).resolve().parent
CLASSES = 10
KEPT = 256  # places that go on to the second network
PLACES = scenes.SIDE - scenes.DIGIT + 1  # along one side
KINDS = ("score", "overlap", "ink", "most")


class Graph:
    """Nodes and constants as they are added."""

    def __init__(self):
        self.nodes, self.constants = [], []

    def constant(self, name, values, kind=np.int64):
        """Adds a constant; returns its name."""
        self.constants.append(numpy_helper.from_array(np.array(values, kind), name))
        return name

    def node(self, operator, inputs, output, **attributes):
        """Adds a node with one output; returns the output's name."""
        self.nodes.append(helper.make_node(operator, inputs, [output], **attributes))
        return output

    def cut(self, value, output, axis, at):
        """One entry of an axis, which stays with the size 1."""
        bounds = [self.constant(f"{output}.{what}", [number])
                  for what, number in (("from", at), ("to", at + 1), ("axis", axis))]
        return self.node("Slice", [value, *bounds], output)

    def take_model(self, path, prefix, **renamed):
        """Adds the nodes of a model file, `renamed` inputs and outputs without the prefix."""
        graph = compose.add_prefix(onnx.load(path), prefix).graph
        renamed = {prefix + old: new for old, new in renamed.items()}
        for node in graph.node:
            for names in (node.input, node.output):
                names[:] = [renamed.get(name, name) for name in names]
        self.nodes += graph.node
        self.constants += graph.initializer


def add_places(graph):
    """The likeliest places: `row` and `column` [256] of their corners, `likely` [256]."""
    graph.constant("all", [-1])
    graph.node("Reshape", ["objectness", "all"], "flat")
    graph.nodes.append(helper.make_node("TopK", ["flat", graph.constant("kept", [KEPT])],
                                        ["likely", "place"]))
    graph.node("Div", ["place", graph.constant("places", PLACES)], "row")
    graph.node("Mod", ["place", "places"], "column")


def add_windows(graph):
    """The pixels of these places: `windows` [256, 1, 8, 8], and their mean ink, 0 to 1."""
    side = np.arange(scenes.DIGIT)
    offsets = (side[:, None] * scenes.SIDE + side).reshape(1, -1)
    graph.node("Mul", ["row", graph.constant("side", scenes.SIDE)], "row.at")
    graph.node("Add", ["row.at", "column"], "corner")
    graph.node("Reshape", ["corner", graph.constant("upright", [-1, 1])], "corners")
    graph.node("Add", ["corners", graph.constant("offsets", offsets)], "pixels")
    graph.node("Reshape", ["scene", "all"], "sheet")
    graph.node("Gather", ["sheet", "pixels"], "values")
    graph.node("Reshape", ["values", graph.constant("window", [KEPT, 1, scenes.DIGIT,
                                                               scenes.DIGIT])], "windows")
    graph.node("Cast", ["values"], "dark", to=TensorProto.FLOAT)
    graph.node("ReduceMean", ["dark"], "mean", axes=[1], keepdims=0)
    graph.node("Div", ["mean", graph.constant("full", scenes.INK, np.float32)], "ink.of_place")


def add_scores(graph):
    """`scores` [1, 10, 256] before any threshold, and `boxes` [1, 256, 4] as x1, y1, x2, y2."""
    graph.node("Transpose", ["probabilities"], "of_class", perm=[1, 0])
    graph.node("Mul", ["of_class", "likely"], "scores.flat")
    graph.node("Unsqueeze", ["scores.flat", graph.constant("first", [0])], "scores")
    graph.node("Concat", [graph.node("Cast", [graph.node("Reshape", [value, "upright"],
                                                         f"{value}.upright")],
                                     f"{value}.float", to=TensorProto.FLOAT)
                          for value in ("column", "row")], "low", axis=1)
    graph.node("Add", ["low", graph.constant("digit", scenes.DIGIT, np.float32)], "high")
    graph.node("Concat", ["low", "high"], "corners.float", axis=1)
    graph.node("Unsqueeze", ["corners.float", "first"], "boxes")


def add_suppression(graph, scores, threshold, prefix=""):
    """Applies the four thresholds to scores [1, classes, 256]; returns the name of the kept
    indices [n, 3]: 0, class, place. `threshold` names them by kind, each of one element."""
    dark = graph.node("GreaterOrEqual", ["ink.of_place", threshold["ink"]], f"{prefix}inked")
    inked = graph.node("Where", [dark, scores, "never"], f"{prefix}inked.scores")
    most = graph.node("Cast", [threshold["most"]], f"{prefix}most.whole", to=TensorProto.INT64)
    return graph.node("NonMaxSuppression",
                      ["boxes", inked, most, threshold["overlap"], threshold["score"]],
                      f"{prefix}kept.indices")


def add_one_for_all(graph):
    """Suppression with thresholds [1, 4]."""
    graph.node("Reshape", ["thresholds", "all"], "kinds")
    threshold = {kind: graph.cut("kinds", kind, 0, i) for i, kind in enumerate(KINDS)}
    return add_suppression(graph, "scores", threshold)


def add_one_a_class(graph):
    """Suppression with thresholds [4, 10]: the operator takes one of each, so it is there once a
    class, and the numbers of the classes are put in afterwards."""
    kept = []
    for digit in range(CLASSES):
        prefix = f"{digit}."
        column = graph.cut("thresholds", f"{prefix}column", 1, digit)
        kinds = graph.node("Reshape", [column, "all"], f"{prefix}kinds")
        threshold = {kind: graph.cut(kinds, prefix + kind, 0, i) for i, kind in enumerate(KINDS)}
        scores = graph.cut("scores", f"{prefix}scores", 1, digit)
        indices = add_suppression(graph, scores, threshold, prefix)
        number = graph.constant(f"{prefix}number", [[0, digit, 0]])
        kept.append(graph.node("Add", [indices, number], f"{prefix}kept"))
    return graph.node("Concat", kept, "kept.of_all", axis=0)


def add_findings(graph, kept):
    """`findings` [n, 6], x1, y1, x2, y2, score, class, and `count` [1], from the kept indices."""
    place = graph.node("Reshape", [graph.cut(kept, "kept.place", 1, 2), "all"], "kept.places")
    digit = graph.cut(kept, "kept.class", 1, 1)
    graph.node("Gather", ["corners.float", place], "kept.boxes")
    graph.node("GatherND", ["scores", kept], "kept.scores")
    graph.node("Reshape", ["kept.scores", "upright"], "kept.score")
    graph.node("Cast", [digit], "kept.digit", to=TensorProto.FLOAT)
    graph.node("Concat", ["kept.boxes", "kept.score", "kept.digit"], "findings", axis=1)
    graph.node("Shape", ["kept.places"], "count")


def make_model(add_thresholds, shape):
    """A whole model; `shape` is that of its thresholds."""
    graph = Graph()
    graph.constant("never", -1, np.float32)  # as a score
    graph.take_model(FOLDER / "proposals.onnx", "proposals.", scene="scene",
                     objectness="objectness")
    add_places(graph)
    add_windows(graph)
    graph.take_model(FOLDER.parent / "digits" / "digits.onnx", "digits.", picture="windows",
                     probabilities="probabilities")
    add_scores(graph)
    add_findings(graph, add_thresholds(graph))
    whole = helper.make_graph(
        graph.nodes, "finder",
        [helper.make_tensor_value_info("scene", TensorProto.UINT8,
                                       [1, 1, scenes.SIDE, scenes.SIDE]),
         helper.make_tensor_value_info("thresholds", TensorProto.FLOAT, shape)],
        [helper.make_tensor_value_info("findings", TensorProto.FLOAT, ["found", 6]),
         helper.make_tensor_value_info("count", TensorProto.INT64, [1])],
        graph.constants)
    model = helper.make_model(whole, ir_version=7, producer_name="make_models.py",
                              opset_imports=[helper.make_opsetid("", 13)])
    onnx.checker.check_model(model, full_check=True)
    return model


def main():
    """Writes both models."""
    for name, add_thresholds, shape in (("finder.onnx", add_one_for_all, [1, len(KINDS)]),
                                        ("finder_by_class.onnx", add_one_a_class,
                                         [len(KINDS), CLASSES])):
        model = make_model(add_thresholds, shape)
        (FOLDER / name).write_bytes(model.SerializeToString(deterministic=True))
        print(f"{name}: {model.ByteSize()} bytes, {len(model.graph.node)} nodes")


if __name__ == "__main__":
    main()
