"""The row "start": from the start to the exit with an empty list, against a program in C++ that prints
one line."""
from measure import contest, process
from measure.vorn_run import Run, Shapes

SMALL = Shapes(input=(1, 8), output=(1, 8))


def start(build, scratch, quick):
    ours = Run(build, scratch / "ours", SMALL, [])
    floor = [build.floor("floor_start")]

    # Nothing is dumped, so nothing has to be removed.
    def run_floor():
        return process.run(floor, build.environment)

    of_ours, of_floor = contest.take_turns([ours.keep, run_floor], 50 if quick else 1000)
    return [contest.result("start", "", of_ours, of_floor, "ms", 1e3)]
