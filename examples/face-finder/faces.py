"""The pictures, what is to be seen on them, and what the network's numbers mean.

The network looks at 896 places, the anchors: two in each cell of a grid of 16 x 16, and six in each
of a grid of 8 x 8. For every anchor it gives a score and 16 numbers in pixels of its input: the
middle of a face, counted from the middle of the cell, its width and height, and six points of the
face, counted likewise: the eye on the left, that on the right, nose, mouth, both ears.
"""

from dataclasses import dataclass

import numpy as np

from judging import overlap

SIDE = 128  # of the network's input
GRIDS = ((16, 2), (8, 6))  # cells along a side, anchors in each
SURE = 0.75
SAME = 0.3  # overlap from which two boxes mean one face


@dataclass(frozen=True)
class Picture:
    """A photograph of scikit-image's, and whether FACE is to be seen on it."""

    name: str
    file: str
    has_face: bool = False
    is_mirrored: bool = False


PICTURES = (
    Picture("astronaut", "astronaut.png", has_face=True),
    Picture("mirrored", "astronaut.png", has_face=True, is_mirrored=True),
    Picture("cat", "chelsea.png"),
    Picture("coffee", "coffee.png"),
    Picture("rocket", "rocket.jpg"),
)

# Measured by eye in astronaut.png at six times its size, in its 512 x 512 pixels. The box goes
# from cheek to cheek and from the hair to the chin.
FACE = (181, 80, 269, 178)
POINTS = ((204, 101), (247, 103), (225, 127), (225, 146))  # eyes from left to right, nose, mouth
PHOTOGRAPH = 512  # pixels along its sides


def anchors():
    """The middle of each anchor's cell, [896, 2], in pixels of the input."""
    middles = []
    for cells, count in GRIDS:
        steps = (np.arange(cells) + 0.5) * SIDE / cells
        x, y = np.meshgrid(steps, steps)
        middles.append(np.repeat(np.stack([x.ravel(), y.ravel()], axis=1), count, axis=0))
    return np.concatenate(middles)


def decode(scores, numbers):
    """Scores [896] and numbers [896, 16] as scores 0 to 1, boxes [896, 4] and points [896, 6, 2],
    both as shares of the picture's side."""
    middle = anchors()
    at = numbers[:, :2] + middle
    half = numbers[:, 2:4] / 2
    points = numbers[:, 4:].reshape(-1, 6, 2) + middle[:, None]
    sure = 1 / (1 + np.exp(-np.clip(scores.astype(float), -100, 100)))
    return sure, np.concatenate([at - half, at + half], axis=1) / SIDE, points / SIDE


def find_faces(scores, numbers):
    """The faces, the surest first: a list of (score, box, points). Of boxes that mean one face the
    surest stays."""
    sure, boxes, points = decode(scores, numbers)
    faces = []
    for i in np.argsort(-sure, kind="stable"):
        if sure[i] <= SURE:
            break
        if all(overlap(boxes[i], box) < SAME for _, box, _ in faces):
            faces.append((sure[i], boxes[i], points[i]))
    return faces
