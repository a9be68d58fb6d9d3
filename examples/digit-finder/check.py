#!/usr/bin/env python3
"""Checks runs of the digit finder; the exit status says whether all of it is right.

    PYTHONPATH=examples/reference check.py FOLDER

FOLDER holds what run.sh leaves: a folder a file of thresholds, with the dump of the run, and in
`bare` the same findings straight out of ONNX Runtime.
"""

import sys
from pathlib import Path

import numpy as np

import reference
from findings import FOLDER, read_findings, read_scenes, read_truth, right_ones
from judging import check

RUNS = ("eager", "even", "strict", "by_class_even", "by_class_sure_threes")
THREE = 3


def thresholds_of(run):
    """The thresholds of a run as [4, 10]."""
    values = np.array((FOLDER / "thresholds" / f"{run}.txt").read_text().split(), float)
    return values.reshape(4, -1) * np.ones((4, 10))


def told_by_truth(runs, truth):
    """How much of what is there was found, and how much of what was found is there."""
    rates, there = {}, sum(map(len, truth))
    for run, findings in runs.items():
        right = sum(right_ones(*pair).sum() for pair in zip(findings, truth))
        found = sum(map(len, findings))
        rates[run] = right / found, right / there
        print(f"        {run:21} score {thresholds_of(run)[0].min():<5g} found {found}, "
              f"{right} of them among the {there} digits: "
              f"precision {right / found:.1%}, recall {right / there:.1%}")
    return [
        check(min(rates["even"]) >= 0.95, "even: precision and recall at least 95 %"),
        check(rates["eager"][1] >= 0.99, "eager: recall at least 99 %"),
        check(rates["strict"][0] >= 0.99, "strict: precision at least 99 %"),
    ]


def rows_of(findings, keep=lambda rows: rows[:, 4] > 0):
    """Findings of all scenes that `keep` picks, as a set."""
    return {(scene, *row) for scene, rows in enumerate(findings) for row in rows[keep(rows)]}


def told_by_class(runs):
    """What thresholds of one class do to the others."""
    eager, sure = runs["eager"], runs["by_class_sure_threes"]
    score = thresholds_of("by_class_sure_threes")[0, THREE]
    threes = [len(rows_of(run, lambda rows: rows[:, 5] == THREE)) for run in (eager, sure)]

    def passes(rows):
        return (rows[:, 5] != THREE) | (rows[:, 4] > score)

    return [
        check(rows_of(runs["by_class_even"]) == rows_of(runs["even"]),
              "ten equal columns find what one row of thresholds finds"),
        check(rows_of(sure) == rows_of(eager, passes) and threes[1] < threes[0],
              f"a score of {score:g} for 3 alone: {threes[1]} threes instead of {threes[0]}, "
              "all else stays"),
    ]


def told_by_reference(runs, windows):
    """Whether plain loops over all windows find the same, one by one and in this order."""
    difference, total = 0, 0
    for run, findings in runs.items():
        for found, of_scene in zip(findings, windows):
            wanted = reference.find(of_scene, thresholds_of(run))
            if len(wanted) != len(found) or (wanted[:, [0, 1, 2, 3, 5]] !=
                                             found[:, [0, 1, 2, 3, 5]]).any():
                return [check(False, f"{run}: plain loops find something else")]
            difference = max(difference, *abs(wanted[:, 4] - found[:, 4]))
            total += len(found)
    return [check(difference < 1e-4, f"plain loops over all windows: the same {total} findings, "
                                     f"greatest difference of a score {difference:.1g}")]


def told_by_engine(runs, folder):
    """Whether ONNX Runtime alone gives the very same values."""
    total = 0
    for run, findings in runs.items():
        for scene, found in enumerate(findings):
            bare = np.fromfile(folder / run / str(scene) / "findings.bin", np.float32)
            if not np.array_equal(bare.reshape(-1, 6), found):
                return [check(False, f"{run}, scene {scene}: ONNX Runtime alone gives others")]
            total += len(found)
    return [check(True, f"straight through ONNX Runtime: the same {total} findings to the last "
                        "bit")]


def main():
    """Checks all runs."""
    folder = Path(sys.argv[1])
    scenes = read_scenes()
    truth = [read_truth(scene) for scene in range(len(scenes))]
    runs = {run: [read_findings(folder / run, scene) for scene in range(len(scenes))]
            for run in RUNS}
    windows = [reference.windows_of(scene) for scene in scenes]
    results = (told_by_truth(runs, truth) + told_by_class(runs)
               + told_by_reference(runs, windows) + told_by_engine(runs, folder / "bare"))
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
