"""What the examples' checks judge with. Each run.sh names this folder in PYTHONPATH."""


def check(holds, what):
    """Prints a line of the report; returns `holds`."""
    print(("ok      " if holds else "WRONG   ") + what)
    return bool(holds)


def overlap(a, b):
    """Intersection over union of two boxes x1, y1, x2, y2."""
    width, height = min(a[2], b[2]) - max(a[0], b[0]), min(a[3], b[3]) - max(a[1], b[1])
    if width <= 0 or height <= 0:
        return 0.0
    both = width * height
    areas = (a[2] - a[0]) * (a[3] - a[1]) + (b[2] - b[0]) * (b[3] - b[1])
    return both / (areas - both)
