#!/usr/bin/env python3
"""Makes the scenes of this folder out of the held-out pictures of examples/digits.

    /usr/bin/python3 examples/digit-finder/make_scenes.py

Needs python3-numpy. No picture is used twice. Writes:

    scenes/00.bin ...  uint8 [96, 96], row by row, 0 (paper) to 16 (ink)
    list.txt           the scenes in order, for vorn-run -i
    truth.txt          a line a digit: scene, x1, y1, x2, y2, digit; x2 and y2 lie behind the last
                       pixel
"""

from pathlib import Path

import numpy as np

import scenes

FOLDER = Path(__file__).resolve().parent
DIGITS = FOLDER.parent / "digits"
SEED = 96
SCENES = 12


def held_out():
    """The pictures [200, 8, 8] and what digit each one is."""
    names = (DIGITS / "list.txt").read_text().split()
    pictures = [np.fromfile(DIGITS / name, np.uint8).reshape(8, 8) for name in names]
    return np.stack(pictures), [int(line) for line in (DIGITS / "labels.txt").read_text().split()]


def main():
    """Writes all files anew."""
    pictures, labels = held_out()
    rng = np.random.default_rng(SEED)
    order = rng.permutation(len(pictures))
    (FOLDER / "scenes").mkdir(exist_ok=True)
    names, truth = [], []
    for number in range(SCENES):
        of_scene = order[number * scenes.DIGITS_A_SCENE:][:scenes.DIGITS_A_SCENE]
        scene, corners = scenes.make_scene(rng, pictures[of_scene])
        names.append(f"scenes/{number:02}.bin\n")
        (FOLDER / names[-1].strip()).write_bytes(scene.tobytes())
        for (row, column), picture in zip(corners, of_scene):
            box = (column, row, column + scenes.DIGIT, row + scenes.DIGIT)
            truth.append(" ".join(map(str, (number, *box, labels[picture]))) + "\n")
    (FOLDER / "list.txt").write_text("".join(names))
    (FOLDER / "truth.txt").write_text("".join(truth))
    print(f"{SCENES} scenes with {len(truth)} digits")


if __name__ == "__main__":
    main()
