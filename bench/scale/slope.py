"""How steeply a series rises on axes that are both logarithmic: 1 is in proportion."""
from math import log
from statistics import linear_regression

CONSTANT_TIMES = 5


def rising(xs, ys, constant):
    """The points that are at least five times the constant part, which would flatten the line."""
    return [(x, y) for x, y in zip(xs, ys) if y >= CONSTANT_TIMES * constant]


def fit(xs, ys, constant):
    """The slope of the line of least squares through the logarithms of the rising points, nothing
    taken off them; None for fewer than two."""
    points = rising(xs, ys, constant)
    if len(points) < 2:
        return None
    return linear_regression([log(x) for x, _ in points], [log(y) for _, y in points]).slope


def last(xs, ys, constant):
    """The slope from the last but one of the rising points to the last; None for fewer than two."""
    points = rising(xs, ys, constant)[-2:]
    return fit([x for x, _ in points], [y for _, y in points], 0) if len(points) == 2 else None


def of(points, key, constant):
    """Both slopes of a series of points."""
    quantities, figures = [p["quantity"] for p in points], [p[key] for p in points]
    return {"slope": fit(quantities, figures, constant),
            "lastSlope": last(quantities, figures, constant), "constant": constant}
