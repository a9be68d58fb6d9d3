"""The row "start": from the start to the exit with an empty list, against a program in C++ that
prints one line."""
from measure import contest, process
from measure.scratch import in_memory, scratch_folder
from measure.vorn_run import Run, Shapes

SMALL = Shapes(input=(1, 8), output=(1, 8))


def start(build, quick):
    with scratch_folder(in_memory()) as scratch:
        ours = Run(build, scratch / "ours", SMALL, [])

        def run_floor():
            return process.run([build.floor("floor_start")], build.environment)

        # Nothing is dumped, so nothing has to be removed.
        of_ours, of_floor = contest.take_turns([ours.keep, run_floor], 100 if quick else 500)
        return [contest.result("start", "", of_ours, of_floor, "ms", 1e3)]
