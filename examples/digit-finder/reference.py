"""Finds digits plainly and slowly: both networks window by window in double precision, and
suppression as it is told in words. Shares nothing with the models but their weights."""

from pathlib import Path

import numpy as np
import onnx
from onnx import numpy_helper

from judging import overlap

FOLDER = Path(__file__).resolve().parent
UNLIKELY = 0.01  # places below are passed over; every score threshold has to be above


def weights_of(path):
    """The constants of a model by name."""
    return {tensor.name: numpy_helper.to_array(tensor).astype(float)
            for tensor in onnx.load(path).graph.initializer}


PROPOSALS = weights_of(FOLDER / "proposals.onnx")
DIGITS = weights_of(FOLDER.parent / "digits" / "digits.onnx")


def objectness(field):
    """How likely there is a digit in the middle of a field [12, 12], 0 to 1."""
    values = field.ravel()
    for layer in "123":
        weight = PROPOSALS[f"w{layer}"]
        values = weight.reshape(len(weight), -1) @ values + PROPOSALS[f"b{layer}"]
        if layer != "3":
            values = np.maximum(values, 0)
    return 1 / (1 + np.exp(-values[0]))


def convolve(x, name):
    """A 3x3 convolution [c, 8, 8] with zeros around, and what is above 0 of it."""
    padded = np.pad(x, ((0, 0), (1, 1), (1, 1)))
    y = np.zeros((len(DIGITS[f"{name}.weight"]), 8, 8)) + DIGITS[f"{name}.bias"][:, None, None]
    for row in range(3):
        for column in range(3):
            part = padded[:, row:row + 8, column:column + 8]
            y += np.tensordot(DIGITS[f"{name}.weight"][:, :, row, column], part, 1)
    return np.maximum(y, 0)


def probabilities(window):
    """Of each digit in a window [8, 8]."""
    y = convolve(convolve(window[None], "conv1"), "conv2")
    pooled = y.reshape(32, 4, 2, 4, 2).max(axis=(2, 4))
    scores = DIGITS["dense.weight"] @ pooled.ravel() + DIGITS["dense.bias"]
    exps = np.exp(scores - scores.max())
    return exps / exps.sum()


def windows_of(scene):
    """All windows that may hold a digit: (x1, y1, x2, y2), mean ink, ten scores."""
    sheet = scene / 16
    padded = np.pad(sheet, 2)
    windows = []
    for y in range(89):
        for x in range(89):
            likely = objectness(padded[y:y + 12, x:x + 12])
            if likely > UNLIKELY:
                window = sheet[y:y + 8, x:x + 8]
                windows.append(((x, y, x + 8, y + 8), window.mean(),
                                likely * probabilities(window)))
    return windows


def find(windows, thresholds):
    """The findings [n, 6] with thresholds [4, 10]: score, overlap, ink and most, a column a class.

    From the best on, a window is kept unless it overlaps one that is kept already by more than the
    threshold.
    """
    found = []
    for digit, (score, most_overlap, ink, most) in enumerate(thresholds.T):
        assert score >= UNLIKELY
        kept = []
        for box, dark, scores in sorted(windows, key=lambda window: -window[2][digit]):
            if len(kept) == int(most):
                break
            if scores[digit] <= score or dark < ink:
                continue
            if all(overlap(box, other) <= most_overlap for other, _ in kept):
                kept.append((box, scores[digit]))
        found += [(*box, value, digit) for box, value in kept]
    return np.array(found).reshape(-1, 6)
