"""From the results of all cases to the table and to what has to fail the suite."""
from collections import Counter
from dataclasses import dataclass


@dataclass(frozen=True)
class Result:
    """What became of one case; "" as a problem means that it passed."""
    folder: str
    key: str
    not_dense: str       # why it cannot run; the problems say nothing then
    bare_problem: str
    command_problem: str
    settings: str        # what had to be configured for the command
    traits: list         # what is special about its tensors


COLUMNS = ("cases", "other types", "can run", "bare passes", "command passes", "listed",
           "unaccounted")


def faults(results, reasons):
    """What makes the suite fail, a line each."""
    lines = []
    found = {result.key for result in results}
    for result in results:
        is_due = _is_due(result)
        passes = is_due and not result.command_problem
        if is_due and not passes and result.key not in reasons:
            lines.append(f"{result.key}: passes bare and not through vorn-run: "
                         f"{result.command_problem}")
        if result.key in reasons and (passes or not is_due):
            why = "it passes" if passes else "it does not pass bare either"
            lines.append(f"{result.key}: is listed, but {why}")
    lines += [f"{key}: is listed, but there is no such case" for key in reasons
              if key not in found]
    return lines


def _is_due(result):
    """Whether it has to pass through the command."""
    return not result.not_dense and not result.bare_problem


def _row(results, reasons):
    runnable = [result for result in results if not result.not_dense]
    due = [result for result in runnable if _is_due(result)]
    passed = [result for result in due if not result.command_problem]
    listed = [result for result in due if result.command_problem and result.key in reasons]
    return (len(results), len(results) - len(runnable), len(runnable), len(due), len(passed),
            len(listed), len(due) - len(passed) - len(listed))


def table(results, reasons):
    """The table in Markdown, a folder a row and all of them last."""
    rows = [(folder, _row([r for r in results if r.folder == folder], reasons))
            for folder in sorted({result.folder for result in results})]
    rows.append(("all", _row(results, reasons)))
    lines = ["| folder | " + " | ".join(COLUMNS) + " |", "|---" * (len(COLUMNS) + 1) + "|"]
    lines += ["| " + " | ".join([name, *map(str, counts)]) + " |" for name, counts in rows]
    return "\n".join(lines)


def counts(title, names):
    """How often each of the names occurs, the most frequent first."""
    ordered = sorted(Counter(names).items(), key=lambda item: (-item[1], item[0]))
    return "\n".join([title, *(f"  {count:5} {name}" for name, count in ordered)])
