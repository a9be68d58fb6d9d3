#!/usr/bin/env python3
"""Checks what was read on the photographs and draws it; the exit status says whether all is right.

    PYTHONPATH=examples/reference check.py FOLDER

FOLDER is what run.sh leaves: boxes.json of cut.py, the run over the lines in `read`, and the
letters in the package of the network. Leaves NAME-read.png for every photograph with text."""

import difflib
import json
import sys
from pathlib import Path

import numpy as np
from PIL import Image, ImageDraw

from boxes import read_letters
from judging import check, overlap
from seen import SEEN

SURE = 0.8
LEAST_OVERLAP = 0.5
LEAST_ALIKE = 0.85
ZOOM = 2
BESIDE = 380  # pixels for what was read
COLOUR = (230, 60, 40)


def letters_of(package):
    text = (package / "assets/ppocr_keys_v1.txt").read_text(encoding="utf-8")
    return text.rstrip("\n").split("\n") + [" "]


def sureness(rows):
    """The mean of the likeliest classes where they are letters."""
    best = rows.argmax(axis=1)
    return float(rows.max(axis=1)[best > 0].mean()) if best.any() else 0.0


def readings(folder):
    """Photograph, text and box of each line that the second network is sure of."""
    letters = letters_of(folder / "package")
    for i, box in enumerate(json.loads((folder / "boxes.json").read_text())):
        rows = np.load(next((folder / f"read/dumps/{i}").glob("*.npy")))[0]
        if sureness(rows) >= SURE:
            yield box["photograph"], read_letters(rows, letters), box["box"]


def draw(folder, name, lines):
    """The photograph with its boxes, twice as large, and what was read beside it."""
    image = Image.open(folder / "photographs" / name).convert("RGB")
    large = image.resize((image.width * ZOOM, image.height * ZOOM))
    sheet = Image.new("RGB", (large.width + BESIDE, large.height), "white")
    sheet.paste(large)
    pen = ImageDraw.Draw(sheet)
    for text, box in lines:
        left, top, right, bottom = (side * ZOOM for side in box)
        pen.rectangle([left, top, right, bottom], outline=COLOUR, width=ZOOM)
        latin = text.encode("latin-1", "replace").decode("latin-1")  # all that the font has
        pen.text((large.width + 10, (top + bottom) / 2 - 6), latin, fill=COLOUR)
    sheet.save(folder / f"{Path(name).stem}-read.png")


def alike(text, seen):
    """1 where all letters are the same, in their order; gaps do not count."""
    return difflib.SequenceMatcher(None, text.replace(" ", ""), seen.replace(" ", "")).ratio()


def told_by_eye(name, lines, seen):
    """A line of the report for each line of text."""
    yield check(len(lines) == len(seen),
                f"{name}: lines of text: {len(lines)}, to be seen: {len(seen)}")
    for (text, box), (meant, place) in zip(lines, seen):
        same, both = alike(text, meant), overlap(box, place)
        yield check(same >= LEAST_ALIKE and both >= LEAST_OVERLAP,
                    f"{name}: {text!r}, letters {same:.2f} alike, overlap {both:.2f}")


def main():
    folder = Path(sys.argv[1])
    found = {name: [] for name in SEEN}
    for name, text, box in readings(folder):
        found[name].append((text, box))
    holds = True
    for name, seen in SEEN.items():
        holds = all([*told_by_eye(name, found[name], seen)]) and holds
        if found[name]:
            draw(folder, name, found[name])
    return 0 if holds else 1


if __name__ == "__main__":
    sys.exit(main())
