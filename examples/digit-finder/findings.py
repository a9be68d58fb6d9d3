"""Reads what a run of vorn-run found in the scenes, and tells it from what there is to find."""

from pathlib import Path

import numpy as np

from judging import overlap

FOLDER = Path(__file__).resolve().parent
SAME = 0.5  # overlap (intersection over union) from which a finding means a digit


def read_findings(output_folder, scene):
    """The findings of one scene, float32 [n, 6]: x1, y1, x2, y2, score, class."""
    dumps = Path(output_folder) / str(scene)
    count = np.fromfile(next(dumps.glob("count.0.*.bin")), np.float32)
    findings = np.fromfile(next(dumps.glob("findings.0.*.bin")), np.float32).reshape(-1, 6)
    assert count[0] <= len(findings), "outputDims leaves too little room"
    assert not findings[int(count[0]):].any(), "zeros are behind the last finding"
    return findings[:int(count[0])]


def read_scenes():
    """All scenes, uint8 [n, 96, 96]."""
    names = (FOLDER / "list.txt").read_text().split()
    return np.stack([np.fromfile(FOLDER / name, np.uint8).reshape(96, 96) for name in names])


def read_truth(scene):
    """The digits of one scene, int [n, 5]: x1, y1, x2, y2, digit."""
    rows = np.loadtxt(FOLDER / "truth.txt", dtype=int)
    return rows[rows[:, 0] == scene][:, 1:]


def right_ones(findings, truth):
    """For every finding whether it means a digit of its class that no better one means already."""
    left = list(range(len(truth)))
    right = np.zeros(len(findings), bool)
    for i in np.argsort(-findings[:, 4], kind="stable"):
        for j in left:
            if findings[i, 5] == truth[j, 4] and overlap(findings[i], truth[j]) >= SAME:
                left.remove(j)
                right[i] = True
                break
    return right
