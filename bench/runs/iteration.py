"""The row "iteration": what one iteration costs in a list of 100,000 entries, against one in a list
of 1,000. The time of an empty list is taken off both.

The dumps go into memory: on a disk, making 100,000 folders has a price of its own, which changes
several times over with what was made and removed before. For comparison the C program's figure
stands beside that of vorn-run, without a goal, and that of runs whose output folder is missing,
which make no files at all.
"""
from measure import contest
from measure.scratch import has_room, in_memory, scratch_folder
from measure.vorn_run import Run, Shapes, write_inputs
from runs.whole import Floor, dump_sample

SMALL = Shapes(input=(1, 8), output=(1, 8))
MANY, FEW = 100_000, 1_000
DUMP_BLOCKS = 3 * 4096  # bytes on the disk: a folder and two small files
SHORT_RUNS = 5          # of the short list for one of the long list, half before and half after it


def build_cases(build, scratch):
    """For each case, what runs lists of MANY, of FEW and of no entries."""
    (path,) = write_inputs(scratch / "inputs", 1, SMALL.input_bytes)

    def runs(make, name):
        return [make(scratch / f"{name}-{count}", [path] * count) for count in (MANY, FEW, 0)]

    def without_files(folder, inputs):
        run = Run(build, folder, SMALL, inputs)
        run.out.rmdir()
        return run.keep

    dumped = dump_sample(build, scratch / "sample", SMALL, [path])
    return {
        "dumps": runs(lambda folder, inputs: Run(build, folder, SMALL, inputs), "dumps"),
        "no files": runs(without_files, "nothing"),
        "floor alone": runs(
            lambda folder, inputs: Floor(build, folder, inputs, dumped), "floor"),
    }


def take_turns(many, few, none, rounds):
    """The samples of the three; the short ones around each long one."""
    samples = [], [], []
    for run in few, none:
        run()
    for _ in range(rounds):
        for half in range(2):
            samples[1].extend(few() for _ in range(SHORT_RUNS))
            samples[2].extend(none() for _ in range(SHORT_RUNS))
            if half == 0:
                samples[0].append(many())
    return samples


def per_iteration(samples, count, empty):
    return (contest.wall(samples) - contest.wall(empty)) / count


def measure(case, runs, rounds):
    many, few, none = take_turns(*runs, rounds)
    ours, floor = per_iteration(many, MANY, none), per_iteration(few, FEW, none)
    return {"row": "iteration", "case": case, "ratio": ours / floor, "floor": 1e6 * floor,
            "ours": 1e6 * ours, "unit": "us", "runs": len(many)}


def iteration(build, quick):
    with scratch_folder(in_memory()) as scratch:
        if not has_room(scratch, MANY * DUMP_BLOCKS, "iteration"):
            return []
        return [measure(case, runs, 1 if quick else 3)
                for case, runs in build_cases(build, scratch).items()]
