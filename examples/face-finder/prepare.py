#!/usr/bin/env python3
"""Prepares photographs as inputs of the face detector.

    PYTHONPATH=examples/reference prepare.py FOLDER PHOTOGRAPHS

FOLDER has to exist, PHOTOGRAPHS is where scikit-image keeps its own. Needs python3-pil and
python3-numpy. Writes into FOLDER, a picture after the other as faces.py lists them:

    <name>.png  the photograph as a square: cut, or mirrored, as the list says
    <name>.bin  float32 [128, 128, 3], red, green and blue from -1 to 1
    list.txt    these files, for vorn-run -i
"""

import sys
from pathlib import Path

import numpy as np
from PIL import Image, ImageOps

from faces import PICTURES, SIDE


def square_of(path, picture):
    """The photograph in colours, mirrored if asked for, and cut to the square in its middle."""
    image = Image.open(path).convert("RGB")
    if picture.is_mirrored:
        image = ImageOps.mirror(image)
    side = min(image.size)
    left, top = (image.width - side) // 2, (image.height - side) // 2
    return image.crop((left, top, left + side, top + side))


def main():
    """Prepares all pictures."""
    folder, photographs = map(Path, sys.argv[1:])
    for picture in PICTURES:
        image = square_of(photographs / picture.file, picture)
        image.save(folder / f"{picture.name}.png")
        small = image.resize((SIDE, SIDE), Image.Resampling.BOX)
        values = np.asarray(small, np.float32) / 127.5 - 1
        values.tofile(folder / f"{picture.name}.bin")
    (folder / "list.txt").write_text("".join(f"{one.name}.bin\n" for one in PICTURES))


if __name__ == "__main__":
    main()
