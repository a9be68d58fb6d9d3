"""Whether a changed source compiles to the very machine code that the unchanged one compiles to.

Such a mutant is the same program, and no test can tell them apart. Two compilations at -O2 decide:
what the compiler may reorder, widen or drop without a trace is gone then.
"""
import json
import shlex
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor

_PARTS = ("src", "runtime", "shared", "kit", "layers", "include", ".deps")


class _Copy:
    """A copy of the sources of a configured tree, in which one file at a time is changed."""

    def __init__(self, tree, folder):
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        for part in _PARTS:
            if (tree.folder / part).is_symlink():
                (folder / part).symlink_to((tree.folder / part).resolve())
            elif (tree.folder / part).exists():
                shutil.copytree(tree.folder / part, folder / part)
        self.folder = folder
        self.commands = dict(self._read_commands(tree))
        self.files = {}  # that a source is compiled from
        self.unchanged = {}  # object code by source

    def _read_commands(self, tree):
        """How each source of ours is compiled, without its name and the object file's."""
        for entry in json.loads((tree.build / "compile_commands.json").read_text()):
            name = entry["file"].removeprefix(f"{tree.folder}/")
            words = shlex.split(entry["command"].replace(f"{tree.folder}/", f"{self.folder}/"))
            words = [w for w in words if w not in (str(self.folder / name), "-c")]
            behind = words.index("-o")
            if words[0].endswith("ccache"):
                del words[0]
                behind -= 1
            if name.startswith(_PARTS):
                yield name, [*words[:behind], *words[behind + 2 :], "-O2", "-w"]

    def units_of(self, file):
        if not self.files:
            self.files = {source: self._dependencies(source) for source in self.commands}
        return [source for source, files in self.files.items() if file in files]

    def _dependencies(self, source):
        made = subprocess.run([*self.commands[source], "-MM", source], cwd=self.folder,
                              capture_output=True, text=True, check=True)
        names = made.stdout.replace("\\\n", " ").split()
        return {source, *(name.removeprefix(f"{self.folder}/") for name in names)}

    def compile(self, source):
        """The object file's bytes, or none if it does not compile."""
        made = subprocess.run([*self.commands[source], "-c", source, "-o", "object.o"],
                              cwd=self.folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return (self.folder / "object.o").read_bytes() if made.returncode == 0 else None

    def is_same(self, mutant, text):
        units = self.units_of(mutant.file)
        if not units:
            raise ValueError(f"nothing is compiled from {mutant.file}")
        for source in units:
            if source not in self.unchanged:
                self.unchanged[source] = self.compile(source)
        place = self.folder / mutant.file
        place.write_text(mutant.apply(text))
        try:
            return all(self.compile(source) == self.unchanged[source] for source in units)
        finally:
            place.write_text(text)


def find_same_code(tree, folder, mutants, texts, jobs):
    """Those of the mutants that are the unchanged program. The tree is configured."""
    found = []
    mutants = sorted(mutants, key=lambda mutant: mutant.file)
    share = -(-len(mutants) // jobs)

    def look(number):
        copy = _Copy(tree, folder / str(number))
        for mutant in mutants[number * share : (number + 1) * share]:
            if copy.is_same(mutant, texts[mutant.file]):
                found.append(mutant)

    with ThreadPoolExecutor(jobs) as pool:
        list(pool.map(look, range(jobs if mutants else 0)))
    return found
