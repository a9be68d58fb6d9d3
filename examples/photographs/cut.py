#!/usr/bin/env python3
"""Cuts the lines of text that the first network found out of the photographs, for the second one.

    cut.py FOLDER

FOLDER has the run over the photographs in `find` and what was prepared for it in `find.inputs`.
Leaves a picture a line in `lines`, and where each is in boxes.json."""

import json
import sys
from pathlib import Path

import numpy as np
from PIL import Image

from boxes import text_boxes, to_picture


def main():
    folder = Path(sys.argv[1])
    manifest = json.loads((folder / "find.inputs/manifest.json").read_text())
    (folder / "lines").mkdir()
    boxes = []
    for tensor in manifest["tensors"]:
        item = tensor["items"][0]
        array = next((folder / f"find/dumps/{tensor['sample']}").glob("*.npy"))
        photograph = Path(item["source"]["path"])
        for score, box in text_boxes(np.load(array)[0, 0]):
            box = to_picture(box, item["geometry"])
            name = f"{len(boxes):03}.png"
            Image.open(photograph).convert("RGB").crop(np.rint(box)).save(folder / "lines" / name)
            boxes.append({"photograph": photograph.name, "line": name, "score": round(score, 3),
                          "box": [round(float(side), 1) for side in box]})
    (folder / "boxes.json").write_text(json.dumps(boxes, indent=1) + "\n")


if __name__ == "__main__":
    main()
