"""Whether a changed source compiles to the very machine code that the unchanged one compiles to.

Such a mutant is the same program, and no test can tell them apart. Two compilations at -O2 decide:
what the compiler may reorder, widen or drop without a trace is gone then.
"""
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

_FLAGS = ["-std=c++20", "-O2", "-w", "-I.", "-Isrc", "-Iinclude"]


class _Copy:
    """A copy of the command's sources in which one file at a time is changed."""

    def __init__(self, root, folder):
        shutil.rmtree(folder, ignore_errors=True)
        for part in ("src", "include", "shared"):
            shutil.copytree(root / part, folder / part)
        self.folder = folder
        self.units = {}  # the sources that a file is compiled into
        self.unchanged = {}  # object code by source

    def units_of(self, file):
        if file not in self.units:
            sources = [p.relative_to(self.folder).as_posix()
                       for p in sorted((self.folder / "src").rglob("*.cpp"))]
            reached = [s for s in sources if s == file or file in self._dependencies(s)]
            self.units[file] = reached
        return self.units[file]

    def _dependencies(self, source):
        command = ["g++", *_FLAGS, "-MM", source]
        made = subprocess.run(command, cwd=self.folder, capture_output=True, text=True, check=True)
        return made.stdout.replace("\\\n", " ").split()

    def compile(self, source):
        """The object file's bytes, or none if it does not compile."""
        made = subprocess.run(["g++", *_FLAGS, "-c", source, "-o", "object.o"], cwd=self.folder,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return (self.folder / "object.o").read_bytes() if made.returncode == 0 else None

    def is_same(self, mutant, text):
        units = self.units_of(mutant.file)
        for source in units:
            if source not in self.unchanged:
                self.unchanged[source] = self.compile(source)
        place = self.folder / mutant.file
        place.write_text(mutant.apply(text))
        try:
            return all(self.compile(source) == self.unchanged[source] for source in units)
        finally:
            place.write_text(text)


def find_same_code(root, folder, mutants, texts, jobs):
    """Those of the mutants that are the unchanged program."""
    found = []

    def look(number):
        copy = _Copy(root, Path(folder) / str(number))
        for mutant in mutants[number::jobs]:
            if copy.is_same(mutant, texts[mutant.file]):
                found.append(mutant)

    with ThreadPoolExecutor(jobs) as pool:
        list(pool.map(look, range(jobs)))
    return found
