"""Lets commands take turns, so that whatever else the machine does meets all of them alike."""
from statistics import median


def take_turns(sides, rounds):
    """Runs each side, a function that returns a Sample, once a round, in the other order every
    other round, after a first round that does not count. Returns the samples side by side."""
    for side in sides:
        side()
    samples = [[] for _ in sides]
    for number in range(rounds):
        order = range(len(sides)) if number % 2 == 0 else reversed(range(len(sides)))
        for which in order:
            samples[which].append(sides[which]())
    return samples


def wall(samples):
    return median(sample.wall for sample in samples)


def cpu(samples):
    return median(sample.cpu for sample in samples)


def result(row, case, ours, floor, unit, scale):
    """The result of a row: medians of the wall times, times `scale`, and for comparison the ratio
    of the processor times, which other programs disturb less."""
    return {"row": row, "case": case, "ratio": wall(ours) / wall(floor),
            "floor": scale * wall(floor), "ours": scale * wall(ours), "unit": unit,
            "runs": len(ours), "cpuRatio": cpu(ours) / cpu(floor)}
