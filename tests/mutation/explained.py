"""Reads the list of explained mutants: changes that no test can notice, each with its reason.

An entry explains one change of one statement and nothing else. It names the file, the statement as
it reads (on one line; what stands in braces below it is `{...}`, of an `if` or a loop only the head
is given, which stands before what follows it without braces), the change as the report words it and
where the file has that change of those words more than once, which one of how many.
"""
import fnmatch
import sys

_KEYS = ("file", "statement", "change", "which", "reason")


def read_explained(path):
    """Reasons by the keys of the mutants (see Mutant.key)."""
    reasons = {}
    for block in path.read_text().split("\n\n"):
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        if not lines:
            continue
        entry = dict(line.split(": ", 1) for line in lines)
        if not set(_KEYS) - {"which"} <= set(entry) <= set(_KEYS) or len(entry) != len(lines):
            sys.exit(f"{path.name}: file, statement, change and reason make an entry:\n{block}")
        ordinal, _, count = entry.get("which", "1 of 1").partition(" of ")
        if not (ordinal.isdigit() and count.isdigit()):
            sys.exit(f"{path.name}: 'which: {entry['which']}' does not read '2 of 3':\n{block}")
        key = (entry["file"], entry["statement"], entry["change"], int(ordinal), int(count))
        if key in reasons:
            sys.exit(f"{path.name}: the same twice:\n{block}")
        reasons[key] = entry["reason"]
    return reasons


def format_entry(key, reason):
    file, statement, change, ordinal, count = key
    lines = [f"file: {file}", f"statement: {statement}", f"change: {change}"]
    if count > 1:
        lines.append(f"which: {ordinal} of {count}")
    return "\n".join([*lines, f"reason: {reason}"])


def find_unfounded(reasons, mutants, places):
    """The entries that no mutant answers to, of files in these folders or of these patterns."""
    known = {mutant.key for mutant in mutants}

    def is_meant(file):
        return any(file.startswith(f"{place}/") or fnmatch.fnmatch(file, place) for place in places)

    return [key for key in reasons if is_meant(key[0]) and key not in known]
