#!/usr/bin/env python3
"""Draws what was found in one scene with two thresholds, side by side.

    PYTHONPATH=examples/reference draw.py FOLDER PICTURE [SCENE]

FOLDER is what run.sh leaves. Needs python3-matplotlib.
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

from findings import read_findings, read_scenes, read_truth, right_ones  # noqa: E402

RIGHT, WRONG, MISSED = "#2a7f62", "#c8553d", "#8a94a0"
SCENE = 2
RUNS = (("eager", "score above 0.05"), ("strict", "score above 0.95"))


def draw_box(axes, box, colour, style="-"):
    """The outline of a box x1, y1, x2, y2 around its pixels."""
    x, y = box[0] - 1, box[1] - 1
    axes.add_patch(plt.Rectangle((x, y), box[2] - box[0] + 1, box[3] - box[1] + 1, fill=False,
                                 edgecolor=colour, linewidth=1.4, linestyle=style))


def draw_scene(axes, scene, findings, truth, title):
    """A scene with its findings, and with the digits that are not among them."""
    axes.imshow(scene, cmap="gray_r", vmin=0, vmax=16)
    right = right_ones(findings, truth)
    missed = ~right_ones(truth_as_findings(truth), findings[right][:, [0, 1, 2, 3, 5]])
    for box in truth[missed]:
        draw_box(axes, box, MISSED, ":")
    write_classes(axes, findings[right], RIGHT, above=True)
    write_classes(axes, findings[~right], WRONG, above=False)
    axes.set_title(f"{title}: {right.sum()} right, {(~right).sum()} wrong, {missed.sum()} missed",
                   fontsize=10)
    axes.set(xticks=[], yticks=[], xlim=(-3, 98), ylim=(98, -3))


def write_classes(axes, findings, colour, above):
    """Boxes with their classes above or below; what has the same box shares a line."""
    classes = {}
    for finding in findings:
        classes.setdefault(tuple(finding[:4]), []).append(f"{finding[5]:.0f}")
    for box, texts in classes.items():
        draw_box(axes, box, colour)
        at, align = (box[1] - 1.4, "bottom") if above else (box[3] + 0.4, "top")
        axes.text(box[2], at, " ".join(texts), color=colour, fontsize=9, weight="bold",
                  ha="right", va=align)


def truth_as_findings(truth):
    """Digits as findings that are all equally sure."""
    rows = truth[:, [0, 1, 2, 3, 4, 4]].astype(float)
    rows[:, 4] = 1
    return rows


def main():
    """Writes the picture."""
    folder, picture = sys.argv[1:3]
    number = int(sys.argv[3]) if len(sys.argv) > 3 else SCENE
    figure, both = plt.subplots(1, 2, figsize=(10, 5.7))
    for axes, (run, title) in zip(both, RUNS):
        findings = read_findings(f"{folder}/{run}", number)
        draw_scene(axes, read_scenes()[number], findings, read_truth(number), title)
    keys = [plt.Line2D([], [], color=colour, linestyle=style, linewidth=1.4)
            for colour, style in ((RIGHT, "-"), (WRONG, "-"), (MISSED, ":"))]
    figure.legend(keys, ["a digit, read right", "something else", "a digit not found"],
                  loc="lower center", ncol=3, frameon=False)
    figure.tight_layout(rect=(0, 0.06, 1, 1))
    figure.savefig(picture, dpi=90)
    print(f"drawn: {picture}")


if __name__ == "__main__":
    main()
