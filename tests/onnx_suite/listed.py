"""The list of cases that cannot pass through the command."""


def read_listed(path):
    """The reasons' texts by their keys, and the reason's key of each listed case."""
    texts, reasons, key = {}, {}, None
    for line in path.read_text().splitlines():
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        if line.startswith("reason "):
            key, text = line.removeprefix("reason ").split(": ", 1)
            texts[key] = text
        elif line in reasons:
            raise ValueError(f"{path}: {line} is listed twice")
        else:
            reasons[line] = key
    return texts, reasons
