#!/usr/bin/env python3
"""Checks a run of the face detector and draws it; the exit status says whether all of it is right.

    PYTHONPATH=examples/reference check.py FOLDER

FOLDER is what prepare.py wrote, with the dump of the run in `out`, and in `bare` the same outputs
straight out of ONNX Runtime. Leaves <name>-found.png beside every picture with a face.
"""

import sys
from pathlib import Path

import numpy as np
from PIL import Image, ImageDraw

from faces import FACE, PHOTOGRAPH, PICTURES, POINTS, SURE, decode, find_faces
from judging import check, overlap

LEAST_OVERLAP = 0.8
FURTHEST = 10  # pixels of the photograph, 2.5 of the input
SCORES, NUMBERS = ("Identity:0", "Identity_1:0"), ("Identity_2:0", "Identity_3:0")
COLOUR = (42, 200, 120)


def read(folder, pattern, names):
    """The outputs of these names one after the other."""
    return np.concatenate([np.fromfile(next(folder.glob(pattern.format(name))), np.float32)
                           for name in names])


def expected(picture):
    """The box and the points of the face in this picture."""
    if not picture.is_mirrored:
        return FACE, np.array(POINTS, float)
    right_eye, left_eye, nose, mouth = [(PHOTOGRAPH - x, y) for x, y in POINTS]
    box = (PHOTOGRAPH - FACE[2], FACE[1], PHOTOGRAPH - FACE[0], FACE[3])
    return box, np.array([left_eye, right_eye, nose, mouth], float)


def draw(folder, picture, box, points):
    """The picture with the face that was found."""
    image = Image.open(folder / f"{picture.name}.png")
    pen = ImageDraw.Draw(image)
    pen.rectangle([float(value) for value in box], outline=COLOUR, width=3)
    for x, y in points:
        pen.ellipse([x - 3, y - 3, x + 3, y + 3], fill=COLOUR)
    image.save(folder / f"{picture.name}-found.png")


def told_by_eye(folder, picture, faces):
    """Whether there is one face, in its place."""
    if len(faces) != 1:
        return [check(False, f"{picture.name}: {len(faces)} faces instead of one")]
    score, box, points = faces[0]
    box, points = box * PHOTOGRAPH, points * PHOTOGRAPH
    draw(folder, picture, box, points)
    face, features = expected(picture)
    away = np.hypot(*(points[:len(features)] - features).T).max()
    return [
        check(overlap(box, face) >= LEAST_OVERLAP,
              f"{picture.name}: one face, score {score:.2f}, at {np.rint(box).astype(int)}; "
              f"overlap {overlap(box, face):.2f} with {face}"),
        check(away <= FURTHEST, f"{picture.name}: eyes, nose and mouth {away:.1f} pixels off "
                                "at most"),
    ]


def main():
    """Checks all pictures."""
    folder = Path(sys.argv[1])
    results, difference, total = [], 0, 0
    for number, picture in enumerate(PICTURES):
        dump, bare = folder / "out" / str(number), folder / "bare" / picture.name
        scores = read(dump, "{}.0.*.bin", SCORES)
        numbers = read(dump, "{}.0.*.bin", NUMBERS)
        both = np.concatenate([scores, numbers])
        difference = max(difference, abs(both - read(bare, "{}.bin", SCORES + NUMBERS)).max())
        total += len(both)
        faces = find_faces(scores, numbers.reshape(-1, 16))
        if picture.has_face:
            results += told_by_eye(folder, picture, faces)
        else:
            surest = decode(scores, numbers.reshape(-1, 16))[0].max()
            results.append(check(not faces, f"{picture.name}: no face above {SURE:g}, "
                                            f"{surest:.2f} at most"))
    results.append(check(difference == 0, f"straight through ONNX Runtime: {total} values, "
                                          f"greatest difference {difference:g}"))
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
