#!/usr/bin/env python3
"""Prints the results of the benchmarks as one table, and writes them as results.json.

    table.py RESULTS.json PART.json...

Each part is a list of objects:

    row    key of rows.json
    case   what was measured, where a row has several
    ratio  ours / floor; ours itself for a row without a floor, whose goal has the unit then
    floor, ours, unit       the figures themselves, medians
    runs   how many there were of each
"""
import json
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent


def read_rows():
    return json.loads((HERE / "rows.json").read_text())


def goal_of(row, case):
    """A goal for "float32" is one for "float32, small" too."""
    goal = row["goal"]
    return goal.get(case, goal.get(case.split(",")[0])) if isinstance(goal, dict) else goal


def collect(paths):
    """The results in the order of rows.json, each with what its row says."""
    found = [result for path in paths for result in json.loads(Path(path).read_text())]
    known = {row["row"] for row in read_rows()}
    strangers = sorted({result["row"] for result in found} - known)
    if strangers:
        sys.exit(f"rows.json does not know {', '.join(strangers)}; add them there.")
    collected = []
    for row in read_rows():
        for result in found:
            if result["row"] == row["row"]:
                case = result.get("case", "")
                judged = {**result, "what": row["what"], "against": row["floor"], "case": case,
                          "goal": goal_of(row, case)}
                collected.append({**judged, "verdict": verdict(judged)})
    return collected


def number(value):
    return f"{value:.3g}" if abs(value) < 1000 else f"{value:.0f}"


def figure(value, unit):
    return "" if value is None else f"{number(value)} {unit}"


def verdict(result):
    """By the ratio as it is printed."""
    if result["goal"] is None:
        return "-"
    return "met" if float(number(result["ratio"])) <= result["goal"] else "missed"


def line(cells):
    return "| " + " | ".join(cells) + " |"


def table(results):
    lines = [line(["row", "case", "floor", "floor's figure", "ours", "ratio", "goal", ""]),
             "|" + "---|" * 8]
    for result in results:
        unit, floor = result.get("unit", ""), result.get("floor")
        goal = "" if result["goal"] is None else f"≤ {result['goal']:g}"
        if floor is None:
            goal, ratio = f"{goal} {unit}", ""
        else:
            ratio = number(result["ratio"])
        lines.append(line([result["what"], result["case"], result["against"], figure(floor, unit),
                           figure(result["ours"], unit), ratio, goal, result["verdict"]]))
    return "\n".join(lines)


def main():
    results = collect(sys.argv[2:])
    Path(sys.argv[1]).write_text(json.dumps(results, indent=1) + "\n")
    print(table(results))


if __name__ == "__main__":
    main()
