"""Measures how time and memory grow with what a run is given.

    PYTHONPATH=bench python3 -m scale BUILD_FOLDER OUT.json [--quick] [SERIES...]

Each point is run several times; its time is the median, its memory the peak of the process. A slope
above 1.05 is printed as a finding.
"""
import json

from measure import contest
from measure.options import parse
from measure.scratch import has_room, in_memory, scratch_folder
from measure.vorn_run import Run
from scale import series as all_series
from scale import slope

STEEPEST = 1.05
MIB = 1 << 20
SECONDS_A_POINT = 3
MOST_RUNS = 51
SERIES = {one.name: one for one in all_series.ALL}


def runs_for(seconds, quick):
    return 1 if quick else min(MOST_RUNS, max(3, int(SECONDS_A_POINT / seconds)))


def time_of(run, quick):
    first = run()  # does not count
    return contest.wall([run() for _ in range(runs_for(first.wall, quick))])


def measure_start(build, quick):
    """Time and memory of a run that has nothing to do."""
    with scratch_folder(in_memory()) as scratch:
        run = Run(build, scratch / "start", all_series.SMALL, [])
        return time_of(run, quick), run.memory().resident


def measure_point(one, build, quantity, quick):
    with scratch_folder(in_memory()) as scratch:
        if not has_room(scratch, one.room(quantity), f"{quantity} {one.unit}"):
            return None
        run = one.make(build, scratch / "point", quantity)
        return {"quantity": quantity, "seconds": time_of(run, quick),
                "bytes": run.memory().resident}


def measure_series(one, build, start, quick):
    points = []
    for quantity in one.points:
        point = measure_point(one, build, quantity, quick)
        if point is None:
            break
        points.append(point)
        print(f"  {quantity:>11,} {one.unit:<22} {1e3 * point['seconds']:12.2f} ms "
              f"{point['bytes'] / MIB:10.1f} MiB", flush=True)
    return {"series": one.name, "unit": one.unit, "points": points,
            "time": slope.of(points, "seconds", start[0]),
            "memory": slope.of(points, "bytes", start[1])}


def verdict(slopes):
    if slopes["slope"] is None:
        return "none: it stays below five times that of a run with nothing to do"
    steepest = max(slopes["slope"], slopes["lastSlope"])
    finding = f"   FINDING: above {STEEPEST}" if steepest > STEEPEST else ""
    return f"{slopes['slope']:.3f}, at the end {slopes['lastSlope']:.3f}{finding}"


def main():
    options = parse("scale", "Measures how runs grow.", "series", SERIES)
    start = measure_start(options.build, options.quick)
    print(f"scale: a run with nothing to do: {1e3 * start[0]:.2f} ms, {start[1] / MIB:.1f} MiB; "
          f"dumps go to {in_memory()}")
    results = []
    for name in options.chosen:
        print(f"scale: {name}", flush=True)
        result = measure_series(SERIES[name], options.build, start, options.quick)
        print(f"  slope of time   {verdict(result['time'])}")
        print(f"  slope of memory {verdict(result['memory'])}", flush=True)
        results.append(result)
    options.out.write_text(json.dumps(results, indent=1) + "\n")


if __name__ == "__main__":
    main()
