"""The row "judge": two tensors of float32 judged against each other, against reading both files."""
import array
import random

from measure import contest, process
from measure.scratch import has_room, in_memory, scratch_folder

BLOCK = 1 << 20  # values; the same ones over and over


def write_sides(scratch, values):
    """Both files of that many values: normal, times 10, and the actual ones off by 1e-6 of that."""
    chance = random.Random(1)
    expected = array.array("f", (chance.gauss(0, 10) for _ in range(BLOCK)))
    actual = array.array("f", (value * (1 + chance.gauss(0, 1e-6)) for value in expected))
    paths = []
    for side, block in (("actual", actual), ("expected", expected)):
        path = scratch / side / "0" / "values.0.1.bin"
        path.parent.mkdir(parents=True)
        with path.open("wb") as file:
            for _ in range(values // BLOCK):
                block.tofile(file)
        paths.append(path)
    return paths


def judge(build, quick):
    values = BLOCK * (8 if quick else 64)
    place = in_memory()
    with scratch_folder(place) as scratch:
        if not has_room(scratch, 8 * values, "judge"):
            return []
        paths = write_sides(scratch, values)

        def ours():
            return process.run([build.folder / "vorn-judge", scratch / "actual", "--expected",
                                scratch / "expected", "--rtol", "1e-3", "--quiet"], {})

        def floor():
            return process.run([build.floor("floor_read"), *paths], {})

        of_ours, of_floor = contest.take_turns([ours, floor], 3 if quick else 11)
        speed = 8 * values / contest.cpu(of_ours) / 1e9
        case = f"{4 * values >> 20} MiB a side"
        print(f"bench: judge, {case}: {speed:.2f} GB of both sides a second of the processor",
              flush=True)
        return [contest.result("judge", case, of_ours, of_floor, "ms", 1e3)]
