#!/usr/bin/env python3
"""make_arrays.py [FOLDER]: makes the archives beside this anew, with numpy (Debian: python3-numpy).

Every array holds 0, 1, 2, ... in rows, but for bool, where every second is true.
"""
import io
import sys
import zipfile
from pathlib import Path

import numpy

folder = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).parent


def counting(kind, shape=(2, 3)):
    values = numpy.arange(numpy.prod(shape, dtype=int)).reshape(shape)
    return (values % 2 if kind.endswith("b1") else values).astype(kind)


KINDS = ["f2", "f4", "f8", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8", "b1"]
arrays = {kind: counting(kind) for kind in KINDS}
arrays |= {f"big/{kind}": counting(f">{kind}") for kind in KINDS}
arrays["fortran"] = numpy.asfortranarray(counting("i4", (2, 3, 4)))
arrays["fortran/big"] = numpy.asfortranarray(counting(">f8", (4, 3)))
arrays["scalar"] = numpy.float32(7)
arrays["empty"] = counting("f4", (0, 3))
arrays["empty/fortran"] = numpy.asfortranarray(counting("f4", (3, 0, 2)))
arrays["größe.0"] = counting("f4", (1,))
numpy.savez(folder / "saved.npz", **arrays)
numpy.savez_compressed(folder / "compressed.npz", **arrays)
numpy.savez(folder / "none.npz")
numpy.savez_compressed(folder / "objects.npz", words=numpy.array([{}, "a"], dtype=object),
                       numbers=counting("f4"))


class Pipe(io.RawIOBase):
    """Cannot be sought in: sizes come behind the values then."""

    def __init__(self, path):
        self.file = open(path, "wb")

    def writable(self):
        return True

    def write(self, data):
        return self.file.write(data)

    def close(self):
        self.file.close()


with zipfile.ZipFile(Pipe(folder / "streamed.npz"), "w", zipfile.ZIP_DEFLATED) as archive:
    for version in [(1, 0), (2, 0), (3, 0)]:
        with archive.open(f"version {version[0]}.npy", "w", force_zip64=True) as entry:
            numpy.lib.format.write_array(entry, counting("f4"), version=version)
    archive.writestr("readme.txt", "no array")
    archive.writestr("folder/", "")
