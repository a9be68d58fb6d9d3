"""Puts scenes together: handwritten digits at random places, and marks of a pen that are none.

A scene is a sheet of SIDE x SIDE pixels, 0 (paper) to 16 (ink), as the pictures of
examples/digits. A digit fills a square of DIGIT pixels and has paper around it. The marks make the
task worth its thresholds: a short upright stroke looks much like a 1, and a scribble of the size of
a digit now and then like a 7 or a 2. Some of the digits and marks are faint.
"""

import numpy as np

SIDE = 96
DIGIT = 8
GAP = 1  # pixels of paper around every digit
DIGITS_A_SCENE = 16
STROKES_A_SCENE = 8
SCRIBBLES_A_SCENE = 8
INK = 16  # the most that a pixel holds


def free_square(rng, taken):
    """A random corner (row, column) of a digit whose square and gap touch nothing."""
    for _ in range(1000):
        row, column = rng.integers(0, SIDE - DIGIT + 1, 2)
        if not around(taken, row, column).any():
            return int(row), int(column)
    raise RuntimeError("no room for all digits")


def around(sheet, row, column):
    """The square of a digit with its gap, as far as it is on the sheet."""
    return sheet[max(row - GAP, 0):row + DIGIT + GAP, max(column - GAP, 0):column + DIGIT + GAP]


def strength(rng):
    """What ink is multiplied by: one mark in four is faint."""
    return rng.uniform(0.4, 1) if rng.random() < 0.25 else 1


def draw_line(points, radius):
    """The line of a pen along points [n, 2] (rows, columns), float [SIDE, SIDE], 0 to INK."""
    rows, columns = np.mgrid[:SIDE, :SIDE]
    distance = np.full((SIDE, SIDE), np.inf)
    for y, x in points:
        distance = np.minimum(distance, np.hypot(rows - y, columns - x))
    return INK * np.clip(radius + 0.5 - distance, 0, 1)


def stroke(rng):
    """A curved line somewhere on an empty sheet."""
    at = rng.uniform(4, SIDE - 4, 2)
    direction, bend = rng.uniform(0, 2 * np.pi), rng.normal(0, 0.12)
    points = []
    for _ in range(int(rng.uniform(6, 28))):
        points.append(at)
        at = at + np.array([np.sin(direction), np.cos(direction)]) / 2
        direction += bend
    return draw_line(points, rng.uniform(0.5, 0.9))


def scribble(rng):
    """Three to five straight lines end to end within the square of a digit."""
    corner = rng.uniform(0, SIDE - DIGIT, 2)
    ends = corner + rng.uniform(0.5, DIGIT - 1.5, (rng.integers(3, 6), 2)) * [1, 0.8]
    shares = np.linspace(0, 1, 12)[:, None]
    points = [a + shares * (b - a) for a, b in zip(ends, ends[1:])]
    return draw_line(np.concatenate(points), rng.uniform(0.4, 0.7))


def add_mark(rng, scene, keep_out, draw):
    """Draws a mark where it touches nothing of keep_out; leaves it out if ten tries all do."""
    for _ in range(10):
        mark = np.rint(draw(rng) * strength(rng)).astype(np.uint8)
        if not (keep_out & (mark > 0)).any():
            np.maximum(scene, mark, out=scene)
            return


def make_scene(rng, pictures):
    """Places the pictures [n, 8, 8], then marks where there is room for them.

    Returns the scene as uint8 [SIDE, SIDE] and the corners (row, column) of the pictures.
    """
    scene = np.zeros((SIDE, SIDE), np.uint8)
    keep_out = np.zeros((SIDE, SIDE), bool)
    corners = []
    for picture in pictures:
        row, column = free_square(rng, keep_out)
        faint = np.rint(picture * strength(rng)).astype(np.uint8)
        scene[row:row + DIGIT, column:column + DIGIT] = faint
        around(keep_out, row, column)[:] = True
        corners.append((row, column))
    for draw, count in ((stroke, STROKES_A_SCENE), (scribble, SCRIBBLES_A_SCENE)):
        for _ in range(count):
            add_mark(rng, scene, keep_out, draw)
    return scene, corners
