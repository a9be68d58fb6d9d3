"""What the numbers of both networks mean: a map becomes boxes, rows of classes become letters.

The first network tells of every pixel how likely it is within a line of text, in a core of the line
that is smaller than it. So the cores are cut out, and their boxes widened by what the area and the
circumference of a core say: that is how its makers use it, but with boxes that stand upright.
"""

import numpy as np

PIXEL_SURE = 0.3  # that a pixel is text
BOX_SURE = 0.6    # the mean of a core
WIDER = 1.5
LEAST_SIDE = 3    # pixels of the map


def cores(is_text):
    """The boxes (left, top, right, bottom) of the pieces that hang together, and their pixels."""
    left_to_see = {tuple(place) for place in np.argwhere(is_text)}
    while left_to_see:
        rim = [left_to_see.pop()]
        piece = []
        while rim:
            y, x = rim.pop()
            piece.append((y, x))
            for near in [(y + dy, x + dx) for dy in (-1, 0, 1) for dx in (-1, 0, 1)]:
                if near in left_to_see:
                    left_to_see.remove(near)
                    rim.append(near)
        yield np.array(piece)


def text_boxes(likely):
    """Where there is text, from the top down, as (score, [left, top, right, bottom]) in pixels of
    the map `likely` [rows, columns]."""
    found = []
    for piece in cores(likely > PIXEL_SURE):
        top, left = piece.min(axis=0)
        bottom, right = piece.max(axis=0) + 1
        width, height = right - left, bottom - top
        score = float(likely[tuple(piece.T)].mean())
        if min(width, height) < LEAST_SIDE or score < BOX_SURE:
            continue
        more = width * height * WIDER / (2 * (width + height))
        found.append((score, np.array([left - more, top - more, right + more, bottom + more])))
    return sorted(found, key=lambda one: one[1][1])


def to_picture(box, geometry):
    """A box of the tensor in pixels of the photograph; manifest.json tells the geometry as pairs of
    (along rows, along columns)."""
    size, resized, cut, placed = (np.array(geometry[key], float)[::-1]
                                  for key in ("picture", "resized", "cut", "placed"))
    corners = (np.reshape(box, (2, 2)) - placed + cut) * size / resized
    return np.clip(corners, 0, size).reshape(4)


def read_letters(rows, letters):
    """The text of `rows` [steps, classes]: the likeliest class of each step, repetitions once, and
    class 0 stands between letters."""
    best = rows.argmax(axis=1)
    kept = [i for i, one in enumerate(best) if one != 0 and (i == 0 or one != best[i - 1])]
    return "".join(letters[best[i] - 1] for i in kept)
