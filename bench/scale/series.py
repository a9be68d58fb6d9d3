"""The four series, each from a quantity to the runs that have that much of it."""
from dataclasses import dataclass
from typing import Callable

from measure.vorn_run import Run, Shapes, write_inputs

SMALL = Shapes(input=(1, 8), output=(1, 8))
PICTURE = Shapes(input=(1, 3, 224, 224), output=(1, 1000))
ROW = 1000
BLOCK = 4096  # what a small file or a folder takes on a disk


@dataclass(frozen=True)
class Series:
    name: str
    unit: str  # of the quantity
    points: tuple
    room: Callable  # the bytes that a point needs where it runs
    make: Callable  # (build, folder, quantity) -> Run


def values_shapes(values):
    return Shapes(input=SMALL.input, output=(values // ROW, ROW))


def make_values(build, folder, values):
    folder.mkdir()
    inputs = write_inputs(folder / "inputs", 1, SMALL.input_bytes)
    return Run(build, folder / "run", values_shapes(values), inputs)


def make_entries(build, folder, entries):
    folder.mkdir()
    inputs = write_inputs(folder / "inputs", 1, SMALL.input_bytes)
    return Run(build, folder / "run", SMALL, inputs * entries)


def make_batch(build, folder, batch):
    folder.mkdir()
    inputs = write_inputs(folder / "inputs", 1, batch * PICTURE.input_bytes)
    return Run(build, folder / "run", PICTURE, inputs, ["-b", batch])


def make_model(build, folder, mebibytes):
    folder.mkdir()
    inputs = write_inputs(folder / "inputs", 1, SMALL.input_bytes)
    run = Run(build, folder / "run", SMALL, inputs)
    piece = b"\nweights" * (1 << 17)
    with run.model.open("ab") as image:
        for _ in range(mebibytes):
            image.write(piece)
    return run


ALL = (
    Series("values", "values per output", tuple(10**n for n in range(3, 9)),
           lambda values: values_shapes(values).dump_bytes, make_values),
    Series("entries", "entries of the list", tuple(10**n for n in range(1, 6)),
           lambda entries: entries * 3 * BLOCK, make_entries),
    Series("batch", "batch items", tuple(2**n for n in range(9)),
           lambda batch: batch * (PICTURE.input_bytes + PICTURE.dump_bytes), make_batch),
    Series("model", "MiB of the model file", (1, 4, 16, 64, 256, 1024),
           lambda mebibytes: mebibytes << 20, make_model),
)
