"""The rows "run-inputs" and "run-outputs": a whole run against a C program that reads and writes
the same files."""
import filecmp
import sys

from measure import contest, process
from measure.scratch import empty, has_room, in_memory, on_disk, scratch_folder
from measure.vorn_run import Run, Shapes, write_inputs

PICTURES = Shapes(input=(1, 3, 224, 224), output=(1, 1000))
SEGMENTS = Shapes(input=(1, 3, 512, 512), output=(1, 21, 512, 512))


class Floor:
    """The C program, given the bytes that a run has dumped."""

    def __init__(self, build, folder, inputs, dumped):
        folder.mkdir()
        self.out = folder / "out"
        paths = folder / "list.txt"
        paths.write_text("".join(f"{path}\n" for path in inputs))
        self.command = [build.floor("floor_run"), paths, self.out, next(dumped.glob("*.float")),
                        next(dumped.glob("*.bin"))]
        self.out.mkdir()

    def keep(self):
        return process.run(self.command, {})

    def __call__(self):
        sample = self.keep()
        empty(self.out)
        return sample


def dump_sample(build, folder, shapes, inputs):
    """The folder with the dumps of one inference, which are those of all."""
    sample = Run(build, folder, shapes, inputs[:1])
    sample.keep()
    return sample.out / "0"


def contents(out):
    """The dumps of all inferences, their names without the time stamp, and their sizes."""
    return sorted((path.parent.name, path.suffix, path.stat().st_size)
                  for path in out.glob("*/*") if path.is_file())


def check_alike(ours, floor):
    """Ends the benchmark unless both leave the same files."""
    ours.keep()
    floor.keep()
    last = max(path.name for path in floor.out.iterdir())
    alike = contents(ours.out) == contents(floor.out) and all(
        filecmp.cmp(next((ours.out / last).glob(f"*{suffix}")),
                    next((floor.out / last).glob(f"*{suffix}")), shallow=False)
        for suffix in (".float", ".bin"))
    if not alike:
        sys.exit("bench: vorn-run and the floor do not leave the same files.")
    empty(ours.out)
    empty(floor.out)


def measure(row, case, shapes, count, build, scratch, rounds):
    if not has_room(scratch, count * (shapes.input_bytes + 2 * shapes.dump_bytes), row):
        return []
    inputs = write_inputs(scratch / "inputs", count, shapes.input_bytes)
    dumped = dump_sample(build, scratch / "sample", shapes, inputs)
    floor = Floor(build, scratch / "floor", inputs, dumped)
    ours = Run(build, scratch / "ours", shapes, inputs)
    check_alike(ours, floor)
    of_ours, of_floor = contest.take_turns([ours, floor], rounds)
    return [contest.result(row, case, of_ours, of_floor, "ms", 1e3)]


def everywhere(row, shapes, count, build, rounds):
    """On a disk, as runs are, and in memory, where the files take the least of the time."""
    results = []
    for case, place in ("on disk", on_disk()), ("in memory", in_memory()):
        with scratch_folder(place) as scratch:
            results += measure(row, case, shapes, count, build, scratch, rounds)
    return results


def run_inputs(build, quick):
    return everywhere("run-inputs", PICTURES, 1000, build, 3 if quick else 11)


def run_outputs(build, quick):
    return everywhere("run-outputs", SEGMENTS, 20, build, 1 if quick else 5)
