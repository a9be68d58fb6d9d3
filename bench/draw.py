#!/usr/bin/python3
"""Draws the results: the ratios with their goals, and the series with their slopes.

    draw.py FOLDER

Reads results.json, scale.json and fleet.json of the folder, whichever is there, and leaves
ratios.png, scale.png and fleet.png beside them. Needs python3-matplotlib as Debian has it.
"""
import json
import sys
from math import log10
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter  # noqa: E402

MET, MISSED, NO_GOAL, GOAL = "#2a7f62", "#c8553d", "#8a94a0", "#1d2733"
COLOURS = {"met": MET, "missed": MISSED, "-": NO_GOAL}
MEMORY = "#b26a00"
MIB = 1 << 20
INCHES_A_BAR = 0.34

plt.rcParams.update({"font.size": 9, "axes.spines.top": False, "axes.spines.right": False})


def label(result):
    return f"{result['row']}   {result['case']}" if result["case"] else result["row"]


def draw_ratios(results, path):
    """A bar a result from the ratio 1, and a line where its goal is. Rows without a floor are left
    to the table."""
    results = [result for result in results if result.get("floor") is not None]
    figure, axes = plt.subplots(figsize=(9, 1.4 + INCHES_A_BAR * len(results)))
    for at, result in enumerate(results):
        ratio, goal = result["ratio"], result["goal"]
        axes.barh(at, ratio - 1, left=1, height=0.62, color=COLOURS[result["verdict"]])
        beside, align = (6, "left") if ratio >= 1 else (-6, "right")
        # Not on top of the goal's line.
        furthest = max(ratio, goal or ratio) if ratio >= 1 else min(ratio, goal or ratio)
        axes.annotate(f"{ratio:.3g}", (furthest, at), (beside, 0), textcoords="offset points",
                      va="center", ha=align, fontsize=8)
        if goal is not None:
            axes.plot([goal, goal], [at - 0.42, at + 0.42], color=GOAL, linewidth=2)
    axes.set_xscale("log")
    low, high = axes.get_xlim()
    axes.set_xlim(low / 1.6, high * 1.6)
    axes.xaxis.set_major_locator(LogLocator(10, subs=(1, 2, 5)))
    axes.xaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:g}"))
    axes.xaxis.set_minor_formatter(NullFormatter())
    axes.tick_params(axis="x", labelrotation=90 if high / low > 1e4 else 0)
    axes.axvline(1, color="#555555", linewidth=0.8)
    axes.grid(axis="x", color="#dddddd", linewidth=0.6)
    axes.set_axisbelow(True)
    axes.set_yticks(range(len(results)), [label(result) for result in results])
    axes.set_ylim(len(results) - 0.4, -0.6)
    axes.set_xlabel("ours / floor (less is better)")
    keys = [plt.Rectangle((0, 0), 1, 1, color=shade) for shade in (MET, MISSED, NO_GOAL)]
    keys.append(plt.Line2D([], [], color=GOAL, linewidth=2))
    figure.legend(keys, ["goal met", "goal missed", "no goal", "goal"], loc="upper right", ncol=4,
                  frameon=False)
    figure.tight_layout(rect=(0, 0, 1, 1 - 0.35 / figure.get_figheight()))
    figure.savefig(path, dpi=130)


def slope_text(slopes):
    return "too flat to fit" if slopes["slope"] is None else f"slope {slopes['slope']:.3f}"


def draw_series(axes, series):
    points = series["points"]
    quantities = [point["quantity"] for point in points]
    times, = axes.loglog(quantities, [point["seconds"] for point in points], "o-", color=MET,
                         markersize=4, label=f"time, {slope_text(series['time'])}")
    axes.set_xlabel(series["unit"])
    axes.set_ylabel("seconds", color=MET)
    right = axes.twinx()
    right.spines["right"].set_visible(True)
    memory, = right.loglog(quantities, [point["bytes"] / MIB for point in points], "s--",
                           color=MEMORY, markersize=4,
                           label=f"memory, {slope_text(series['memory'])}")
    right.set_ylabel("MiB at the peak", color=MEMORY)
    axes.grid(color="#dddddd", linewidth=0.6)
    axes.legend(handles=[times, memory], loc="upper left", fontsize=8, framealpha=0.9)
    share_decades(axes, right)


def share_decades(*axes):
    """As many decades on both axes, so that equal slopes look equal, and room for the legend."""
    most = max(log10(one.get_ylim()[1] / one.get_ylim()[0]) for one in axes) + 0.6
    for one in axes:
        low = one.get_ylim()[0]
        one.set_ylim(low, low * 10**most)


def draw_scale(scale, path):
    figure, grid = plt.subplots(2, 2, figsize=(11, 8))
    for axes, series in zip(grid.flat, scale):
        draw_series(axes, series)
    for axes in list(grid.flat)[len(scale):]:
        axes.remove()
    figure.tight_layout()
    figure.savefig(path, dpi=130)


def draw_fleet(fleet, path):
    if "growth" in fleet:
        draw_scale(fleet["growth"], path)


def main():
    if len(sys.argv) != 2:
        sys.exit("draw.py FOLDER")
    folder = Path(sys.argv[1])
    for name, draw, picture in (("results.json", draw_ratios, "ratios.png"),
                                ("scale.json", draw_scale, "scale.png"),
                                ("fleet.json", draw_fleet, "fleet.png")):
        if (folder / name).exists():
            draw(json.loads((folder / name).read_text()), folder / picture)
            print(f"bench: {folder / picture}")


if __name__ == "__main__":
    main()
